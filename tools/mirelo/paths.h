#pragma once

#include <TarnoMirelo/files.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace TarnoMirelo::Tool {

/// The path of a text in UTF-8, as the command line has it.
std::filesystem::path toPath(const std::string& text);
/// The path in UTF-8, with the system's own separators.
std::string toText(const std::filesystem::path& path);
/// The path in UTF-8 with slashes, as manifests and archives have it.
std::string toGenericText(const std::filesystem::path& path);
/// The path as the library takes it: its directory and its name joined by `Filepath::Separator`. Raises `Failure` for
/// one that is not UTF-8.
Filepath toFilepath(const std::filesystem::path& path);

/// The text with ASCII letters in lower case: names that differ in these alone are one name on Windows.
std::string lowered(std::string text);

/// Where a link leads; any other path as it is. Raises `std::filesystem::filesystem_error` for a link to nothing.
std::filesystem::path realPath(const std::filesystem::path& path);
/// The path, absolute and without "." and ".." names or a slash at its end.
std::filesystem::path toPlainPath(const std::string& text);
/// A name beside the given one that nothing has yet, for what is renamed when it is whole.
std::filesystem::path temporaryNameBeside(const std::filesystem::path& path);

/// A file that gets its name when it is whole: until then it has another one, and is removed with this object.
class PartialFile {
 public:
    /// @param replaces  whether a file of that name may be there, or a link to one: the new file takes its place and
    /// has
    ///                  its permissions
    /// @param about     how messages name the file; empty: by its path
    /// Raises `Failure` where one is there that must not be, or the file can't be made.
    PartialFile(const std::filesystem::path& path, bool replaces, std::string about = "");
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;
    ~PartialFile();

    /// Of the file as it is now.
    const std::filesystem::path& temporaryPath() const { return temporary_; }
    /// Raises `Failure` with the system's reason where it is refused, as on a full disk.
    void write(std::string_view bytes);
    /// Closes the file, which is then whole. Raises as `write`.
    void close();
    /// Closes the file and gives it its name. Raises as `write`.
    void keep();

 private:
    std::string about_;
    std::filesystem::path path_;
    std::filesystem::path temporary_;  // empty: nothing to remove
    std::ofstream stream_;
};

/// A folder, with everything in it, that is there as long as this object, unless it is released.
class TemporaryFolder {
 public:
    /// Among the system's temporary files, for this user alone. Raises `Failure` where it can't be made.
    TemporaryFolder();
    /// @param about  how messages name the folder; empty: by its path
    /// Raises `Failure` where it can't be made, or is there already.
    TemporaryFolder(std::filesystem::path path, std::string about);
    TemporaryFolder(TemporaryFolder&& other) noexcept;
    TemporaryFolder& operator=(TemporaryFolder&& other) = delete;
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::filesystem::path& path() const { return path_; }
    /// Gives the folder its final name, under which nothing is there, and keeps it. Raises `Failure` where that is
    /// refused.
    void renameTo(const std::filesystem::path& path);
    /// Moves everything in it, or nothing, to a folder on the same file system where no entry of these names is. Raises
    /// `Failure` where that is refused.
    void moveEntriesTo(const std::filesystem::path& folder);

 private:
    std::filesystem::path path_;  // empty: nothing to remove
    std::string about_;
};

}  // namespace TarnoMirelo::Tool
