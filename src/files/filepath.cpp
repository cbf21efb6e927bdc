#include <TarnoMirelo/files.h>

#include <cstring>

namespace TarnoMirelo {

// Clang before 15 cannot evaluate the standard library's string at compile time; there the loader initialises this
// constant with the library, still before any code that could use it.
#if !defined(__clang__) || __clang_major__ >= 15
constinit
#endif
    const std::string Filepath::Separator("\\");  // NOLINT(cert-err58-cpp): allocates nothing

Filepath::Filepath() = default;

Filepath::Filepath(const std::string& path) : path_(path) {}

Filepath& Filepath::append(const Filepath& other) {
    const size_t length = std::strlen(other.c_str());  // before anything is added: the other path may be this one
    path_.reserve(path_.size() + Separator.size() + length);
    if (!path_.empty()) path_.append(Separator);
    path_.append(other.path_, 0, length);
    return *this;
}

Filepath Filepath::parent_path() const {
    const size_t separator = path_.rfind(Separator);
    return separator == std::string::npos ? *this : Filepath(path_.substr(0, separator));
}

std::string Filepath::getPathString() const { return path_; }

const char* Filepath::c_str() const { return path_.c_str(); }

}  // namespace TarnoMirelo
