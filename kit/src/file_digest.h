#pragma once

#include "platform.h"

#include <cstdint>
#include <functional>
#include <string>

namespace TarnoMirelo::Kit {

/// The SHA-256 of a file in lower-case hexadecimal digits. Raises what `InputFile` and the cryptography raise.
/// @param onPiece  called after each piece that was read, with its bytes
std::string digestOf(Platform::InputFile& file, const std::function<void(size_t)>& onPiece);

}  // namespace TarnoMirelo::Kit
