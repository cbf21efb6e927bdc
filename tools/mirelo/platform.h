#pragma once

/// @file
/// What the tool needs of the system beyond the standard library; the build picks the implementation.

#include <cstdint>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool::Platform {

/// Prepares standard output and standard error: they take UTF-8 and write the same bytes on every system.
void prepareStandardStreams();

/// Whether colours and progress can be shown there.
bool isTerminal(std::FILE* stream);

}  // namespace TarnoMirelo::Tool::Platform
