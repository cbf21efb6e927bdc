#include "platform.h"

#include <TarnoMirelo/kit/texts.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace TarnoMirelo::Kit::Platform {
namespace {

// The core's check of the text: what is no UTF-8 fails on every system or on none.
std::string nativePath(const Filepath& path) {
    try {
        FileUtils().pathExists(path);
    } catch (const std::range_error&) {
        throw FileException("The path is not UTF-8");
    }
    return toText(path);
}

// "Cannot ACTION the file PATH: REASON".
[[noreturn]] void refuse(const char* action, const Filepath& path, const std::string& reason) {
    throw FileException("Cannot " + (action + (" the file " + toText(path))) + ": " + reason);
}

std::string reasonOf(int error) { return std::generic_category().message(error); }

constexpr const char* kNoFile = "it is no regular file";

bool isSomethingElse(const std::filesystem::path& path) {
    struct stat facts {};
    return ::stat(path.c_str(), &facts) == 0 && !S_ISREG(facts.st_mode);
}

}  // namespace

bool isMisread(std::string_view /*name*/) { return false; }

// A pipe is not waited for.
InputFile::InputFile(const Filepath& path)
    : path_(path), handle_(::open(nativePath(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    const int file = static_cast<int>(handle_);
    struct stat facts {};
    const int error = file < 0 || ::fstat(file, &facts) != 0 ? errno : 0;
    size_ = static_cast<uint64_t>(facts.st_size);
    permissions_ = static_cast<std::filesystem::perms>(facts.st_mode) & std::filesystem::perms::all;
    if (error == 0 && S_ISREG(facts.st_mode)) return;
    if (file >= 0) ::close(file);
    refuse("open", path, error != 0 ? reasonOf(error) : kNoFile);
}

InputFile::~InputFile() { ::close(static_cast<int>(handle_)); }

size_t InputFile::read(void* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t more = ::read(static_cast<int>(handle_), static_cast<char*>(data) + done, size - done);
        if (more < 0 && errno == EINTR) continue;
        if (more < 0) refuse("read", path_, reasonOf(errno));
        if (more == 0) break;
        done += static_cast<size_t>(more);
    }
    return done;
}

NewFile::NewFile(const Filepath& path, std::filesystem::perms permissions)
    : path_(path), native_(nativePath(path)), beside_(nativePath(pathBeside(path))) {
    if (isSomethingElse(native_)) refuse("write", path, kNoFile);
    handle_ = ::open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                     static_cast<mode_t>(permissions & std::filesystem::perms::all));
    if (handle_ < 0) fail();
}

NewFile::~NewFile() {
    if (handle_ >= 0) ::close(static_cast<int>(handle_));
    if (!finished_) ::unlink(beside_.c_str());
}

void NewFile::fail() const { refuse("write", path_, reasonOf(errno)); }

void NewFile::write(const void* data, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t more = ::write(static_cast<int>(handle_), static_cast<const char*>(data) + done, size - done);
        if (more < 0 && errno == EINTR) continue;
        if (more <= 0) fail();
        done += static_cast<size_t>(more);
    }
}

void NewFile::finish() {
    if (::fsync(static_cast<int>(handle_)) != 0) fail();
    const int file = static_cast<int>(std::exchange(handle_, -1));
    if (::close(file) != 0 || std::rename(beside_.c_str(), native_.c_str()) != 0) fail();
    finished_ = true;
}

}  // namespace TarnoMirelo::Kit::Platform
