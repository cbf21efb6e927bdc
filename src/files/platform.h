#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

/// The only door to the operating system. The build picks the file behind it: platform_windows.cpp, else
/// platform_posix.cpp. Every path comes as NUL-terminated text with backslashes for separators; a port turns them into
/// the system's own at the last moment.
///
/// *Wide* operations take the text as UTF-8 and raise `std::range_error` "bad conversion" for overlong forms,
/// surrogates, values beyond U+10FFFF and cut sequences. *Narrow* ones take it as it is.
namespace TarnoMirelo::Platform {

/// How the text of a path is to be read.
enum class PathText { Wide, Narrow };

/// False for the two errors that mean "absent" only; any other error counts as present. Wide.
bool pathExists(const char* path);

/// What became of a directory to be created. Present: a file or directory of that name was there before.
enum class Creation { Done, Present, ParentMissing, Failed };

/// Creates one directory, not its parents.
Creation createDirectory(const char* path, PathText text);

/// Deletes a file, never a directory. Narrow.
/// @return whether it is gone
bool deleteFile(const char* path);

/// Opens a file for binary input at its start. The stream is closed when the file cannot be opened, or is a directory.
std::ifstream openToRead(const char* path, PathText text);

/// Opens a file for binary output in the given mode, `std::ios::trunc` or `std::ios::app`. The stream is closed when
/// the file cannot be opened. Wide.
std::ofstream openToWrite(const char* path, std::ios::openmode mode);

/// Creates or empties a file and writes the text into it, each line feed as a carriage return and a line feed. Failures
/// are silent. Wide.
void writeTextFile(const char* path, const char* text);

/// Creates or empties a file and writes `size` bytes into it. Wide.
/// @return whether all of it is written, the file closed included
bool writeFile(const char* path, const void* data, uint64_t size);

/// The bare names of the files and directories whose path matches `pattern`, a path whose last component may hold the
/// wildcards `*` and `?`, in the order in which the system yields them; as UTF-8. Wide.
std::vector<std::string> findFiles(const char* pattern);

}  // namespace TarnoMirelo::Platform
