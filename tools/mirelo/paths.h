#pragma once

#include <TarnoMirelo/files.h>

#include <filesystem>
#include <string>

namespace TarnoMirelo::Tool {

/// The path of a text in UTF-8, as the command line has it.
std::filesystem::path toPath(const std::string& text);
/// The path in UTF-8, with the system's own separators.
std::string toText(const std::filesystem::path& path);
/// The path in UTF-8 with slashes, as manifests and archives have it.
std::string toGenericText(const std::filesystem::path& path);
/// The path as the library takes it: its directory and its name joined by `Filepath::Separator`.
Filepath toFilepath(const std::filesystem::path& path);

/// A name beside the given one that nothing has yet, for what is renamed when it is whole.
std::filesystem::path temporaryNameBeside(const std::filesystem::path& path);

/// A folder, with everything in it, that is there as long as this object, unless it is released.
class TemporaryFolder {
 public:
    /// Among the system's temporary files, for this user alone. Raises `Failure` where it can't be made.
    TemporaryFolder();
    /// Raises `Failure` where it can't be made, or is there already.
    explicit TemporaryFolder(std::filesystem::path path);
    TemporaryFolder(TemporaryFolder&& other) noexcept;
    TemporaryFolder& operator=(TemporaryFolder&& other) = delete;
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::filesystem::path& path() const { return path_; }
    /// Gives the folder its final name, under which nothing or an empty folder is there, and keeps it.
    /// Raises `Failure` where that is refused.
    void renameTo(const std::filesystem::path& path);

 private:
    std::filesystem::path path_;  // empty: nothing to remove
};

}  // namespace TarnoMirelo::Tool
