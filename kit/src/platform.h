#pragma once

#include <TarnoMirelo/files.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace TarnoMirelo::Kit::Platform {

/// Whether the system takes a name in a path for something else than a file of that name: a device, or a file of
/// another name. "." and ".." are not asked about.
bool isMisread(std::string_view name);

/// A regular file, read from its beginning, without a buffer of its own.
class InputFile {
 public:
    /// Opens it without waiting for another process. Raises `FileException` that names the path when it can't, and for
    /// a path that is not UTF-8.
    explicit InputFile(const Filepath& path);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    /// Reads until `size` bytes are there or the file ends. Raises `FileException` that names the path when reading
    /// fails.
    /// @return the bytes that were read; fewer than `size` at the end alone
    size_t read(void* data, size_t size);

 private:
    Filepath path_;
    intptr_t handle_;
};

}  // namespace TarnoMirelo::Kit::Platform
