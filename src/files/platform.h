#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The only door to the operating system. The build picks the file behind it: platform_windows.cpp, else
/// platform_posix.cpp. Every path comes as NUL-terminated text; a port turns its separators, backslashes and slashes
/// alike, into the system's own at the last moment.
///
/// *Wide* operations take the text as UTF-8 and raise `std::range_error` "bad conversion" for overlong forms,
/// surrogates, values beyond U+10FFFF and cut sequences. *Narrow* ones take it as it is.
///
/// No file that is opened here stays open in a child process (one exception: `openToWrite`), and opening never waits
/// for another process.
namespace TarnoMirelo::Platform {

/// How the text of a path is to be read.
enum class PathText { Wide, Narrow };

/// Whether the beginning of the path names another machine.
bool isOnNetwork(const char* path);

/// False for the two errors that mean "absent" only; any other error counts as present. Wide.
bool pathExists(const char* path);

/// Creates one directory, not its parents. Narrow.
/// @return false when the parent is missing; any other failure is silent
bool createDirectory(const char* path);

/// Deletes a file, never a directory. Narrow.
/// @return whether it is gone
bool deleteFile(const char* path);

/// A regular file to be read once from its start, as bytes; closed at the end. No stream, whose own work costs more
/// than a small file's.
class InputFile {
 public:
    /// Not open when the path cannot be opened or is something else: a directory, a pipe, a socket, a device.
    InputFile(const char* path, PathText text);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    bool isOpen() const;
    /// Nothing when the file is not open. Files of the system's own making say 0 and hold more.
    std::optional<uint64_t> size() const;
    /// The next `size` bytes.
    /// @return bytes read; fewer than asked for at the end of the file or when reading fails
    uint64_t read(void* buffer, uint64_t size);

 private:
    intptr_t handle_ = -1;  // the system's own, where the file is open
    std::optional<uint64_t> size_;
};

/// What a file opened for output is to be.
enum class WriteMode {
    Truncate,  ///< created, or emptied
    Append,    ///< created if absent; every write goes to the end
    Continue,  ///< there already, and readable; writing starts at the end
};

/// Opens a file for binary output. The stream is closed when the file cannot be opened, or is a pipe or a socket. Wide.
///
/// A child process inherits the stream's file where the C++ library is not GNU's: the others offer no way to make a
/// stream of an open file.
std::ofstream openToWrite(const char* path, WriteMode mode);

/// Why this system can't have a file or directory of that name, as in "is the name of a device"; null where it can.
const char* nameProblem(std::string_view name);

/// The name of an archive's entry as it is joined to a directory: unchanged, but for directories whose names the system
/// takes literally.
std::string nameBelow(const char* directory, const std::string& name);

/// What stands in the way of a directory or file: a component of its path, or all of it, and how that was found, as in
/// "is a link".
struct Obstacle {
    std::string name;
    std::string found;
};

/// Writes directories and files below one directory. Each name is looked up from the open directory above it, and no
/// link on the way is followed: nothing is written elsewhere, even if others put links there meanwhile.
///
/// Relative paths have components separated by one slash each; none is empty, "." or "..". Their text is UTF-8.
class OutputTree {
 public:
    /// @param root  the directory; empty for the current one. A link there is followed. Wide.
    explicit OutputTree(const char* root);
    OutputTree(const OutputTree&) = delete;
    OutputTree& operator=(const OutputTree&) = delete;
    ~OutputTree();

    /// False when the root is no directory, or cannot be opened.
    bool isOpen() const;
    /// Creates a directory, and its parents, where they are missing.
    /// @return what stands in the way; nothing when the directory is there
    std::optional<Obstacle> makeDirectory(const std::string& relative);
    /// Creates or empties a file, and writes `size` bytes into it. Parents are created. A file with further names (hard
    /// links) is left alone: writing would change what those show.
    /// @return what stands in the way; nothing when all of it is written, the file closed included
    std::optional<Obstacle> writeFile(const std::string& relative, const void* data, uint64_t size);

 private:
    std::optional<Obstacle> enter(const std::string& relative);
    void leave();

    std::string rootText_;
    intptr_t root_;  // the system's own handles
    // The directory entered last: what follows it in an archive mostly lies there.
    std::string current_;
    intptr_t currentHandle_;
};

/// The bare names of the files and directories whose path matches `pattern`, a path whose last component may hold the
/// wildcards `*` and `?`, in the order in which the system yields them; as UTF-8. Wide.
std::vector<std::string> findFiles(const char* pattern);

}  // namespace TarnoMirelo::Platform
