#include "platform.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TarnoMirelo::Tool::Platform {

void prepareStandardStreams() {
    // They write bytes as they are. A reader that goes away must not end the tool before it has removed its temporary
    // files: writing fails, and that is told.
    std::signal(SIGPIPE, SIG_IGN);  // NOLINT(cert-err33-c): there is nothing to do about a failure here
}

bool isTerminal(std::FILE* stream) {
    const char* const kind = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): nobody changes the environment
    return isatty(fileno(stream)) != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

bool syncDirectory(const std::filesystem::path& directory) {
    const int handle = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0) return false;
    const bool isWritten = ::fsync(handle) == 0 || errno == EINVAL;  // file systems that can't have no need to
    ::close(handle);
    return isWritten;
}

std::error_code renameToNew(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
    if (errno != EINVAL) return {errno, std::generic_category()};
    // File systems that don't know the flag, such as NFS: nothing is known to put a file there just now.
    if (std::filesystem::exists(std::filesystem::symlink_status(to))) return {EEXIST, std::generic_category()};
    std::error_code error;
    std::filesystem::rename(from, to, error);
    return error;
}

FolderLock::FolderLock(const std::filesystem::path& folder)
    : handle_(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    isTaken_ = handle_ >= 0 && ::flock(static_cast<int>(handle_), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

FolderLock::~FolderLock() {
    if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

std::error_code writeSecretFile(const std::filesystem::path& path, const void* data, size_t size) {
    const auto reason = [] { return std::error_code(errno, std::generic_category()); };
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) return reason();
    std::error_code error;
    errno = ENOSPC;  // of a part that is written
    if (::write(file, data, size) != static_cast<ssize_t>(size) || ::fsync(file) != 0) error = reason();
    if (::close(file) != 0 && !error) error = reason();
    if (!error && !syncDirectory(path.parent_path())) error = reason();
    if (error) ::unlink(path.c_str());
    return error;
}

}  // namespace TarnoMirelo::Tool::Platform
