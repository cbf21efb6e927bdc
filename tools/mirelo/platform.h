#pragma once

/// @file
/// What the tool needs of the system beyond the standard library; the build picks the implementation.

#include <cstddef>
#include <cstdint>
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

/// Gives a file another name in its directory, unless something of that name is there. Where the file system can't do
/// both at once, it is looked for first.
/// @return the system's reason where it is refused; nothing is changed then
std::error_code renameToNew(const std::filesystem::path& from, const std::filesystem::path& to);

/// Keeps other calls of the tool away from a folder, as long as this object or the process lives. Leaves no file there.
/// Without effect where the system has no locks for the folder, as on some file systems, and for calls on other
/// machines.
class FolderLock {
 public:
    explicit FolderLock(const std::filesystem::path& folder);
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock();

    /// Whether another call has it.
    bool isTaken() const { return isTaken_; }

 private:
    intptr_t handle_;
    bool isTaken_ = false;
};

/// Makes a file that, where the system has permissions, its owner alone can read from the beginning, and has it written
/// to the disk.
/// @return the system's reason where it can't be made or written, also since something of that name is there already
std::error_code writeSecretFile(const std::filesystem::path& path, const void* data, size_t size);

}  // namespace TarnoMirelo::Tool::Platform
