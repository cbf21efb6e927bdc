#pragma once

#include <TarnoMirelo/kit/protection.h>

#include <string>

namespace TarnoMirelo::Tool {

inline constexpr uint64_t kKeyBytes = 16;
/// At the end of the names of protected files.
inline constexpr const char* kProtectedSuffix = ".protected";

/// The key in a file. Raises `Failure` where the file can't be read or holds anything else than 16 bytes.
Kit::SecretBytes readKey(const std::string& file);

}  // namespace TarnoMirelo::Tool
