#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
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

/// Whether the beginning of the path names another machine.
bool isOnNetwork(const char* path);

/// False for the two errors that mean "absent" only; any other error counts as present. Wide.
bool pathExists(const char* path);

/// What became of a directory to be created. Present: a directory of that name was there before.
enum class Creation { Done, Present, ParentMissing, Failed };

/// Creates one directory, not its parents.
Creation createDirectory(const char* path, PathText text);

/// Deletes a file, never a directory. Narrow.
/// @return whether it is gone
bool deleteFile(const char* path);

/// A file to be read once from its start, as bytes; closed at the end. No stream, whose own work costs more than a
/// small file's.
class InputFile {
 public:
    /// Not open when the file cannot be opened, or is a directory or a character device.
    InputFile(const char* path, PathText text);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    bool isOpen() const;
    /// Nothing where the file has no size: a pipe, for example.
    std::optional<uint64_t> size() const;
    /// The next `size` bytes.
    /// @return bytes read; fewer than asked for at the end of the file or when reading fails
    uint64_t read(void* buffer, uint64_t size);

 private:
    intptr_t handle_;  // the system's own
    std::optional<uint64_t> size_;
};

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
