#include "files/platform.h"

#include <utf8.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <cwctype>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace TarnoMirelo::Platform {
namespace {

// The narrow reading of a path: every backslash is a separator, all else stands.
std::string narrowPath(const char* path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

bool isAscii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

// The wide reading: only UTF-8 that Windows could turn into UTF-16, so that a path fails on every system or on none.
std::string widePath(const char* path) {
    std::string native = narrowPath(path);
    char anyByte = 0;  // most paths are ASCII, which is UTF-8 without a closer look
    for (const char byte : native) anyByte = static_cast<char>(anyByte | byte);
    if (!isAscii(anyByte) && !utf8::is_valid(native.begin(), native.end())) throw std::range_error("bad conversion");
    return native;
}

std::string nativePath(const char* path, PathText text) {
    return text == PathText::Wide ? widePath(path) : narrowPath(path);
}

bool meansAbsent(int error) { return error == ENOENT || error == ENOTDIR; }

// The size of an open file that is no directory. Only what can be positioned has one; files of the system's own making
// say so themselves.
std::optional<uint64_t> sizeOf(int file, const struct stat& facts) {
    if (S_ISREG(facts.st_mode)) return static_cast<uint64_t>(facts.st_size);
    const off_t end = ::lseek(file, 0, SEEK_END);
    if (end < 0 || ::lseek(file, 0, SEEK_SET) != 0) return std::nullopt;
    return static_cast<uint64_t>(end);
}

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// Without memory there is no locale, and to fold ASCII letters only from then on would change which names match.
locale_t unicodeLetters() {
    const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (locale == nullptr && errno == ENOMEM) throw std::bad_alloc();
    return locale;
}

// The characters of a name in lower case. A name that is not UTF-8 can't be told apart into characters: each byte is
// one.
std::u32string foldedCharacters(const std::string& name) {
    static const locale_t locale = unicodeLetters();  // never freed: static objects may look for files when they end
    std::u32string characters;
    if (utf8::is_valid(name.begin(), name.end())) {
        characters = utf8::utf8to32(name);
    } else {
        for (const char byte : name) characters.push_back(static_cast<unsigned char>(byte));
    }
    for (char32_t& character : characters) {
        const auto wide = static_cast<wint_t>(character);
        character = static_cast<char32_t>(locale ? ::towlower_l(wide, locale) : std::towlower(wide));
    }
    return characters;
}

// Greedy, with one place to come back to: the last asterisk, which then takes one character more. A longer run of an
// earlier asterisk can't match anything that the last one doesn't, so the time is at most the product of the lengths.
bool matches(const std::u32string& name, const std::u32string& pattern) {
    size_t n = 0;
    size_t p = 0;
    size_t afterAsterisk = std::u32string::npos;
    size_t nameThere = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == U'*') {
            afterAsterisk = ++p;
            nameThere = n;
        } else if (p < pattern.size() && (pattern[p] == U'?' || pattern[p] == name[n])) {
            ++n;
            ++p;
        } else if (afterAsterisk != std::u32string::npos) {
            p = afterAsterisk;
            n = ++nameThere;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(U'*', p) == std::u32string::npos;
}

}  // namespace

bool isOnNetwork(const char* /*path*/) { return false; }

bool pathExists(const char* path) {
    struct stat facts {};
    return ::stat(widePath(path).c_str(), &facts) == 0 || !meansAbsent(errno);
}

Creation createDirectory(const char* path, PathText text) {
    const std::string native = nativePath(path, text);
    if (::mkdir(native.c_str(), 0777) == 0) return Creation::Done;
    if (meansAbsent(errno)) return Creation::ParentMissing;
    struct stat facts {};
    const bool isPresent = ::stat(native.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
    return isPresent ? Creation::Present : Creation::Failed;
}

// unlink and not remove, which would delete an empty directory here and nowhere else.
bool deleteFile(const char* path) { return ::unlink(narrowPath(path).c_str()) == 0; }

InputFile::InputFile(const char* path, PathText text)
    : handle_(::open(nativePath(path, text).c_str(), O_RDONLY | O_CLOEXEC)) {
    if (handle_ < 0) return;
    const int file = static_cast<int>(handle_);
    struct stat facts {};
    // A directory would open, and claim a size; a device may never end.
    if (::fstat(file, &facts) != 0 || S_ISDIR(facts.st_mode) || S_ISCHR(facts.st_mode)) {
        ::close(file);
        handle_ = -1;
        return;
    }
    size_ = sizeOf(file, facts);
}

InputFile::~InputFile() {
    if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

bool InputFile::isOpen() const { return handle_ >= 0; }
std::optional<uint64_t> InputFile::size() const { return size_; }

// NOLINTNEXTLINE(readability-make-member-function-const): the file moves on
uint64_t InputFile::read(void* buffer, uint64_t size) {
    auto* const bytes = static_cast<char*>(buffer);
    uint64_t used = 0;
    while (used < size) {
        const ssize_t count = ::read(static_cast<int>(handle_), bytes + used, size - used);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        used += static_cast<uint64_t>(count);
    }
    return used;
}

std::ofstream openToWrite(const char* path, std::ios::openmode mode) {
    return std::ofstream(widePath(path), std::ios::binary | mode);
}

void writeTextFile(const char* path, const char* text) {
    std::string lines;
    lines.reserve(std::strlen(text));
    for (const char* character = text; *character != '\0'; ++character) {
        if (*character == '\n') lines.push_back('\r');
        lines.push_back(*character);
    }
    openToWrite(path, std::ios::trunc) << lines;
}

bool writeFile(const char* path, const void* data, uint64_t size) {
    const int file = ::open(widePath(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0) return false;
    const auto* bytes = static_cast<const char*>(data);
    uint64_t left = size;
    while (left > 0) {
        const ssize_t written = ::write(file, bytes, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        bytes += written;
        left -= static_cast<uint64_t>(written);
    }
    return ::close(file) == 0 && left == 0;
}

std::vector<std::string> findFiles(const char* pattern) {
    const std::string path = widePath(pattern);
    const size_t name = path.rfind('/') + 1;  // 0 when there is no separator
    const std::u32string namePattern = foldedCharacters(path.substr(name));
    const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(name == 0 ? "." : path.substr(0, name).c_str()));
    std::vector<std::string> names;
    if (directory == nullptr) return names;
    while (const dirent* const entry = ::readdir(directory.get())) {
        std::string found(entry->d_name);
        if (matches(foldedCharacters(found), namePattern)) names.push_back(std::move(found));
    }
    return names;
}

}  // namespace TarnoMirelo::Platform
