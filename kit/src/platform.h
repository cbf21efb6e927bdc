#pragma once

#include <TarnoMirelo/files.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace TarnoMirelo::Kit::Platform {

/// Whether the system takes a name in a path for something else than a file of that name: a device, or a file of
/// another name. "." and ".." are not asked about.
bool isMisread(std::string_view name);

/// The path of a file that doesn't exist yet, beside that one. Raises what `Cryptography::randomBytes` does.
Filepath pathBeside(const Filepath& path);

/// A regular file, read from its beginning, without a buffer of its own.
class InputFile {
 public:
    /// Opens it without waiting for another process. Raises `FileException` that names the path and the system's reason
    /// when it can't, and for a path that is not UTF-8.
    explicit InputFile(const Filepath& path);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    /// In bytes, when it was opened.
    uint64_t size() const { return size_; }
    /// Who may read and write it; all, where the system has other rules.
    std::filesystem::perms permissions() const { return permissions_; }
    /// Reads until `size` bytes are there or the file ends. Raises `FileException` that names the path and the system's
    /// reason when reading fails.
    /// @return the bytes that were read; fewer than `size` at the end alone
    size_t read(void* data, size_t size);

 private:
    Filepath path_;
    intptr_t handle_;
    uint64_t size_ = 0;
    std::filesystem::perms permissions_ = std::filesystem::perms::all;
};

/// A file that appears under its name once it is whole, and takes the place of the one that was there. Until then it
/// lies beside, under a name of its own that ends in ".part".
class NewFile {
 public:
    /// @param permissions  those of the file that it is made of; the process's mask takes some away as ever. Of no
    ///                     effect where the system has other rules: there they are its directory's.
    /// Raises `FileException` that names the path and the reason when the file beside can't be made, when what is there
    /// is no regular file, and for a path that is not UTF-8.
    NewFile(const Filepath& path, std::filesystem::perms permissions);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    /// Removes what is not finished.
    ~NewFile();

    /// Raises `FileException` that names the path and the system's reason where not all is written.
    void write(const void* data, size_t size);
    /// Has the system write everything to the disk and gives the file its name. Raises as `write`.
    void finish();

 private:
    [[noreturn]] void fail() const;  // with the reason that the system gave last

    Filepath path_;
    std::filesystem::path native_;  // the same, and the one beside, as the system takes them
    std::filesystem::path beside_;
    intptr_t handle_ = -1;  // once it is closed, and before it is open
    bool finished_ = false;
};

}  // namespace TarnoMirelo::Kit::Platform
