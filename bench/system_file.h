#pragma once

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Bench {

/// A file by the system's own calls: the least that any program has to do with one. Raises when a call fails.
class SystemFile {
 public:
    SystemFile(const char* path, int flags) : file_(::open(path, flags | O_CLOEXEC, 0666)) { check(file_ >= 0); }
    SystemFile(const SystemFile&) = delete;
    SystemFile& operator=(const SystemFile&) = delete;
    ~SystemFile() { ::close(file_); }

    static SystemFile toRead(const char* path) { return {path, O_RDONLY}; }
    static SystemFile toWrite(const char* path) { return {path, O_WRONLY | O_CREAT | O_TRUNC}; }

    size_t size() const {
        struct stat facts {};
        check(::fstat(file_, &facts) == 0);
        return static_cast<size_t>(facts.st_size);
    }
    void read(void* data, size_t size) const { check(::read(file_, data, size) == static_cast<ssize_t>(size)); }
    void write(const void* data, size_t size) const { check(::write(file_, data, size) == static_cast<ssize_t>(size)); }

 private:
    static void check(bool succeeded) {
        if (!succeeded) throw std::system_error(errno, std::generic_category());
    }

    int file_;
};

}  // namespace Bench
