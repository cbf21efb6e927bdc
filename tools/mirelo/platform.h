#pragma once

/// @file
/// What the tool needs of the system beyond the standard library; the build picks the implementation.

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace TarnoMirelo::Tool::Platform {

/// Prepares standard output and standard error: they take UTF-8 and write the same bytes on every system.
void prepareStandardStreams();

/// Whether colours and progress can be shown there.
bool isTerminal(std::FILE* stream);

/// Has the system write a directory's entries to the disk: which files it has, under which names.
/// @return whether they are there
bool syncDirectory(const std::filesystem::path& directory);

/// Makes a file that, where the system has permissions, its owner alone can read from the beginning, and has it written
/// to the disk.
/// @return the system's reason where it can't be made or written, also since something of that name is there already
std::error_code writeSecretFile(const std::filesystem::path& path, const void* data, size_t size);

}  // namespace TarnoMirelo::Tool::Platform
