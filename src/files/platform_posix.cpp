#include "files/platform.h"

#include <utf8.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cwctype>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#if defined(__GLIBCXX__)
#include <ext/stdio_filebuf.h>
#endif

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

// An open file, closed at the end unless it is handed on.
class Descriptor {
 public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (isOpen()) ::close(number_);
    }

    bool isOpen() const { return number_ >= 0; }
    int get() const { return number_; }
    int release() { return std::exchange(number_, -1); }

 private:
    int number_;
};

// Opening a pipe would wait for its other end, and a terminal could become the process's own.
constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

std::optional<struct stat> factsOf(int file) {
    struct stat facts {};
    if (::fstat(file, &facts) != 0) return std::nullopt;
    return facts;
}

// A file for output, or nothing. Only what has no position can be a pipe: asking for that costs less than for the facts
// of every file. Devices are written to, and may be waited for.
Descriptor openOutput(const std::string& path, WriteMode mode) {
    int flags = O_WRONLY | O_CREAT | O_TRUNC;
    if (mode == WriteMode::Append) flags = O_WRONLY | O_CREAT | O_APPEND;
    if (mode == WriteMode::Continue) flags = O_RDWR;
    Descriptor file(::open(path.c_str(), flags | kOpenFlags, 0666));
    if (!file.isOpen()) return file;
    if (::lseek(file.get(), 0, mode == WriteMode::Continue ? SEEK_END : SEEK_CUR) >= 0) return file;
    const std::optional<struct stat> facts = factsOf(file.get());
    if (mode == WriteMode::Continue || !facts || S_ISFIFO(facts->st_mode)) return Descriptor(-1);
    ::fcntl(file.get(), F_SETFL, flags & O_APPEND);
    return file;
}

bool writeWhole(int file, const void* data, uint64_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(file, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<uint64_t>(written);
    }
    return true;
}

// Directories are only passed through, for which no right to read them is needed.
#if defined(O_PATH)
constexpr int kEnterFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
#else
constexpr int kEnterFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

// The directory of that name, created where it is missing; never one that a link leads to.
int enterOrCreate(int parent, const char* name) {
    int directory = ::openat(parent, name, kEnterFlags | O_NOFOLLOW);
    if (directory < 0 && errno == ENOENT && (::mkdirat(parent, name, 0777) == 0 || errno == EEXIST)) {
        directory = ::openat(parent, name, kEnterFlags | O_NOFOLLOW);
    }
    return directory;
}

Obstacle failure(const std::string& name, int error) {
    return {name, "can't be written: " + std::generic_category().message(error)};
}

// What lies in the place of a directory or a file that can't be opened; the error where it is nothing out of order.
Obstacle obstacle(int parent, const std::string& name, mode_t wanted) {
    const int error = errno;
    struct stat facts {};
    if (::fstatat(parent, name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) return failure(name, error);
    const mode_t kind = facts.st_mode & S_IFMT;
    if (kind == wanted) return failure(name, error);
    if (kind == S_IFLNK) return {name, "is a link"};
    if (kind == S_IFDIR) return {name, "is a directory"};
    return {name, kind == S_IFREG ? "is a file" : "is a special file"};
}

// A longer path could not be opened again.
#if defined(PATH_MAX)
constexpr size_t kLongestPath = PATH_MAX - 1;
#else
constexpr size_t kLongestPath = 4095;
#endif

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

bool createDirectory(const char* path) { return ::mkdir(narrowPath(path).c_str(), 0777) == 0 || !meansAbsent(errno); }

// unlink and not remove, which would delete an empty directory here and nowhere else.
bool deleteFile(const char* path) { return ::unlink(narrowPath(path).c_str()) == 0; }

InputFile::InputFile(const char* path, PathText text) {
    Descriptor file(::open(nativePath(path, text).c_str(), O_RDONLY | kOpenFlags));
    const std::optional<struct stat> facts = file.isOpen() ? factsOf(file.get()) : std::nullopt;
    if (!facts || !S_ISREG(facts->st_mode)) return;
    size_ = static_cast<uint64_t>(facts->st_size);
    handle_ = file.release();
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

std::ofstream openToWrite(const char* path, WriteMode mode) {
    const std::string native = widePath(path);
    std::ios::openmode streamMode = std::ios::binary | std::ios::out;
    if (mode == WriteMode::Append) streamMode |= std::ios::app;
    if (mode == WriteMode::Continue) streamMode |= std::ios::in | std::ios::ate;
    std::ofstream stream;
    Descriptor file = openOutput(native, mode);
    if (!file.isOpen()) {
        stream.setstate(std::ios::failbit);
        return stream;
    }
#if defined(__GLIBCXX__)
    const int number = file.release();  // the buffer closes it, also where its constructor raises
    __gnu_cxx::stdio_filebuf<char> buffer(number, streamMode);
    if (!buffer.is_open()) ::close(number);
    static_cast<std::filebuf&>(*stream.rdbuf()) = std::move(buffer);
    if (!stream.is_open()) stream.setstate(std::ios::failbit);
#else
    stream.open(native, streamMode);
#endif
    return stream;
}

const char* nameProblem(std::string_view /*name*/) { return nullptr; }

std::string nameBelow(const char* /*directory*/, const std::string& name) { return name; }

OutputTree::OutputTree(const char* root)
    : rootText_(widePath(root)),
      root_(::open(rootText_.empty() ? "." : rootText_.c_str(), kEnterFlags)),
      currentHandle_(root_) {}

OutputTree::~OutputTree() {
    leave();
    if (isOpen()) ::close(static_cast<int>(root_));
}

bool OutputTree::isOpen() const { return root_ >= 0; }

// Back to the root.
void OutputTree::leave() {
    if (currentHandle_ != root_) ::close(static_cast<int>(currentHandle_));
    currentHandle_ = root_;
    current_.clear();
}

std::optional<Obstacle> OutputTree::enter(const std::string& relative) {
    if (relative == current_) return std::nullopt;
    if (rootText_.size() + 1 + relative.size() > kLongestPath) return failure(relative, ENAMETOOLONG);
    const bool isBelow = relative.size() > current_.size() && relative[current_.size()] == '/' &&
                         relative.compare(0, current_.size(), current_) == 0;
    if (!isBelow) leave();
    std::string reached = relative;
    for (size_t begin = current_.empty() ? 0 : current_.size() + 1; begin < relative.size();) {
        const size_t end = std::min(relative.find('/', begin), relative.size());
        const std::string name = relative.substr(begin, end - begin);
        Descriptor next(enterOrCreate(static_cast<int>(currentHandle_), name.c_str()));
        if (!next.isOpen()) {
            Obstacle problem = obstacle(static_cast<int>(currentHandle_), name, S_IFDIR);
            leave();
            return problem;
        }
        leave();
        currentHandle_ = next.release();
        begin = end + 1;
    }
    current_ = std::move(reached);
    return std::nullopt;
}

std::optional<Obstacle> OutputTree::makeDirectory(const std::string& relative) { return enter(relative); }

std::optional<Obstacle> OutputTree::writeFile(const std::string& relative, const void* data, uint64_t size) {
    const size_t slash = relative.rfind('/');
    std::optional<Obstacle> problem = enter(slash == std::string::npos ? "" : relative.substr(0, slash));
    if (problem) return problem;
    if (rootText_.size() + 1 + relative.size() > kLongestPath) return failure(relative, ENAMETOOLONG);
    const std::string name = relative.substr(slash + 1);  // all of it when there is no slash
    const int parent = static_cast<int>(currentHandle_);
    Descriptor file(::openat(parent, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | kOpenFlags, 0666));
    const bool isNew = file.isOpen();
    if (!isNew && errno == EEXIST)
        file = Descriptor(::openat(parent, name.c_str(), O_WRONLY | O_NOFOLLOW | kOpenFlags));
    if (!file.isOpen()) return obstacle(parent, name, S_IFREG);
    if (!isNew) {  // emptied only after a look at it
        const std::optional<struct stat> facts = factsOf(file.get());
        if (!facts) return failure(name, errno);
        if (!S_ISREG(facts->st_mode)) return Obstacle{name, "is a special file"};
        if (facts->st_nlink > 1) return Obstacle{name, "is a file with further names (hard links)"};
        if (::ftruncate(file.get(), 0) != 0) return failure(name, errno);
    }
    if (!writeWhole(file.get(), data, size)) return failure(name, errno);
    if (::close(file.release()) != 0) return failure(name, errno);
    return std::nullopt;
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
