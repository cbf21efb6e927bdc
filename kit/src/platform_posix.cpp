#include "platform.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace TarnoMirelo::Kit::Platform {
namespace {

// The core's check of the text: what is no UTF-8 fails on every system or on none.
std::string nativePath(const Filepath& path) {
    try {
        FileUtils().pathExists(path);
    } catch (const std::range_error&) {
        throw FileException("The path is not UTF-8: wanted is the name of a file");
    }
    std::string native = path.c_str();
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

// A pipe is not waited for.
int openRegular(const Filepath& path) {
    const int file = ::open(nativePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    struct stat facts {};
    if (file < 0 || (::fstat(file, &facts) == 0 && S_ISREG(facts.st_mode))) return file;
    ::close(file);
    return -1;
}

}  // namespace

bool isMisread(std::string_view /*name*/) { return false; }

InputFile::InputFile(const Filepath& path) : path_(path), handle_(openRegular(path)) {
    if (handle_ < 0) throw FileException("Cannot open the file " + path.getPathString());
}

InputFile::~InputFile() { ::close(static_cast<int>(handle_)); }

size_t InputFile::read(void* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t more = ::read(static_cast<int>(handle_), static_cast<char*>(data) + done, size - done);
        if (more < 0 && errno == EINTR) continue;
        if (more < 0) throw FileException("Cannot read the file " + path_.getPathString());
        if (more == 0) break;
        done += static_cast<size_t>(more);
    }
    return done;
}

}  // namespace TarnoMirelo::Kit::Platform
