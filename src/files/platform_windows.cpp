#include "files/platform.h"

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <utf8.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <io.h>
#include <iterator>
#include <limits>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <utility>
#include <windows.h>
#include <winternl.h>
#if defined(__GLIBCXX__)
#include <ext/stdio_filebuf.h>
#else
#include <filesystem>
#endif

namespace TarnoMirelo::Platform {
namespace {

// Strictly: what isn't UTF-8 has no UTF-16 form.
std::u16string toUtf16(const char* text) {
    std::u16string units;
    try {
        utf8::utf8to16(text, text + std::strlen(text), std::back_inserter(units));
    } catch (const utf8::exception&) {
        throw std::range_error("bad conversion");
    }
    return units;
}

// Where the system takes a path literally, below a root of the form \\\\?\\, a slash would be part of a name.
std::wstring widePath(const char* path) {
    std::u16string units = toUtf16(path);
    std::replace(units.begin(), units.end(), u'/', u'\\');
    return {units.begin(), units.end()};
}

// The second byte of a character is never a slash in the code pages that a process may have.
std::string narrowPath(const char* path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '/', '\\');
    return native;
}

// Two units that stand for one character are joined, so that the name can be opened again. A lone surrogate, which a
// file's name may hold, is encoded by itself.
std::string toUtf8(const wchar_t* name) {
    std::string text;
    for (; *name != L'\0'; ++name) {
        auto character = static_cast<char32_t>(*name);
        const bool pair = utf8::internal::is_lead_surrogate(character) && utf8::internal::is_trail_surrogate(name[1]);
        if (pair) character = 0x10000 + ((character - 0xD800) << 10) + (static_cast<char32_t>(*++name) - 0xDC00);
        utf8::unchecked::append(character, std::back_inserter(text));
    }
    return text;
}

struct CloseSearch {
    using pointer = HANDLE;
    void operator()(HANDLE search) const { ::FindClose(search); }
};

struct CloseHandle {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<HANDLE, CloseHandle>;

// What opens nothing says so with a value of its own.
Handle opened(HANDLE handle) { return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle); }

constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE;
// Others may neither delete nor rename it while it is open.
constexpr ACCESS_MASK kEnterAccess = FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES | SYNCHRONIZE;

constexpr DWORD kErrorIsDirectory = 336;  // ERROR_DIRECTORY_NOT_SUPPORTED, a name that not every header has

struct Opened {
    Handle handle;  // null when it could not be opened; GetLastError tells why
    bool isNew = false;
};

// Opens, or creates, what lies directly in an open directory. A link there is opened itself and not followed. By the
// system's own interface: that of Win32 opens by whole paths alone.
Opened openBelow(HANDLE parent, const std::wstring& name, ACCESS_MASK access, ULONG kind) {
    if (name.size() > std::numeric_limits<USHORT>::max() / sizeof(wchar_t)) {
        ::SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return {};
    }
    const auto bytes = static_cast<USHORT>(name.size() * sizeof(wchar_t));
    UNICODE_STRING text{bytes, bytes, const_cast<wchar_t*>(name.data())};
    OBJECT_ATTRIBUTES attributes;
    InitializeObjectAttributes(&attributes, &text, OBJ_CASE_INSENSITIVE, parent, nullptr);
    IO_STATUS_BLOCK done;
    HANDLE handle = nullptr;
    const NTSTATUS status =
        ::NtCreateFile(&handle, access | SYNCHRONIZE, &attributes, &done, nullptr, FILE_ATTRIBUTE_NORMAL, kShared,
                       FILE_OPEN_IF, kind | FILE_OPEN_REPARSE_POINT | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
    if (status >= 0) return {Handle(handle), done.Information == FILE_CREATED};
    constexpr auto kIsDirectory = static_cast<NTSTATUS>(0xC00000BA);  // mapped, it would be a lack of rights
    ::SetLastError(status == kIsDirectory ? kErrorIsDirectory : ::RtlNtStatusToDosError(status));
    return {};
}

Obstacle failure(const std::wstring& name) {
    const DWORD error = ::GetLastError();
    if (error == ERROR_DIRECTORY) return {toUtf8(name.c_str()), "is a file"};
    if (error == kErrorIsDirectory) return {toUtf8(name.c_str()), "is a directory"};
    return {toUtf8(name.c_str()), "can't be written: " + std::system_category().message(static_cast<int>(error))};
}

// Why what was opened below a directory is not to be used: a link, or what was there under another name than its own,
// such as one in other letters. Nothing when the system can't tell its own name.
std::optional<Obstacle> obstacle(const Opened& opened, const std::wstring& name, BY_HANDLE_FILE_INFORMATION& facts) {
    const HANDLE handle = opened.handle.get();
    if (handle == nullptr || ::GetFileInformationByHandle(handle, &facts) == FALSE) return failure(name);
    if ((facts.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return Obstacle{toUtf8(name.c_str()), "is a link"};
    if (opened.isNew) return std::nullopt;
    std::wstring path(::GetFinalPathNameByHandleW(handle, nullptr, 0, VOLUME_NAME_NONE), L'\0');
    path.resize(::GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), VOLUME_NAME_NONE));
    const std::wstring ownName = path.substr(path.rfind(L'\\') + 1);
    if (ownName.empty() || ownName == name) return std::nullopt;
    return Obstacle{toUtf8(name.c_str()), "is there already as \"" + toUtf8(ownName.c_str()) + '"'};
}

bool writeWhole(HANDLE file, const void* data, uint64_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const auto part = static_cast<DWORD>(std::min<uint64_t>(size, 1U << 30));
        DWORD written = 0;
        if (::WriteFile(file, bytes, part, &written, nullptr) == FALSE || written == 0) return false;
        bytes += written;
        size -= written;
    }
    return true;
}

// Whether Win32 finds what was created below a directory: programs that don't ask for longer paths have 260 units.
bool isFound(const std::string& root, const std::string& relative) {
    const std::wstring path = widePath((root.empty() ? relative : root + '\\' + relative).c_str());
    if (::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr) <= MAX_PATH) return true;
    if (::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
    ::SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return false;
}

bool isLiteral(const char* path) { return std::strncmp(path, R"(\\?\)", 4) == 0; }

}  // namespace

bool isOnNetwork(const char* path) {
    const auto isSlash = [](char character) { return character == '/' || character == '\\'; };
    return isSlash(path[0]) && isSlash(path[1]);
}

bool pathExists(const char* path) {
    const std::wstring native = widePath(path);
    if (::GetFileAttributesW(native.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
    const DWORD error = ::GetLastError();
    return error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND;
}

bool createDirectory(const char* path) {
    return ::CreateDirectoryA(narrowPath(path).c_str(), nullptr) != FALSE || ::GetLastError() != ERROR_PATH_NOT_FOUND;
}

bool deleteFile(const char* path) { return std::remove(narrowPath(path).c_str()) == 0; }

InputFile::InputFile(const char* path, PathText text) {
    Handle file = opened(
        text == PathText::Wide
            ? ::CreateFileW(widePath(path).c_str(), GENERIC_READ, kShared, nullptr, OPEN_EXISTING, 0, nullptr)
            : ::CreateFileA(narrowPath(path).c_str(), GENERIC_READ, kShared, nullptr, OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER size;
    if (file == nullptr || ::GetFileType(file.get()) != FILE_TYPE_DISK) return;
    if (::GetFileSizeEx(file.get(), &size) == FALSE) return;
    size_ = static_cast<uint64_t>(size.QuadPart);
    handle_ = reinterpret_cast<intptr_t>(file.release());
}

InputFile::~InputFile() {
    if (isOpen()) ::CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

bool InputFile::isOpen() const { return handle_ != -1; }
std::optional<uint64_t> InputFile::size() const { return size_; }

// NOLINTNEXTLINE(readability-make-member-function-const): the file moves on
uint64_t InputFile::read(void* buffer, uint64_t size) {
    auto* const bytes = static_cast<char*>(buffer);
    uint64_t used = 0;
    while (used < size) {
        const auto part = static_cast<DWORD>(std::min<uint64_t>(size - used, 1U << 30));
        DWORD count = 0;
        if (::ReadFile(reinterpret_cast<HANDLE>(handle_), bytes + used, part, &count, nullptr) == FALSE || count == 0)
            break;
        used += count;
    }
    return used;
}

std::ofstream openToWrite(const char* path, WriteMode mode) {
    int flags = _O_WRONLY | _O_CREAT | _O_TRUNC;
    std::ios::openmode streamMode = std::ios::binary | std::ios::out;
    if (mode == WriteMode::Append) {
        flags = _O_WRONLY | _O_CREAT | _O_APPEND;
        streamMode |= std::ios::app;
    } else if (mode == WriteMode::Continue) {
        flags = _O_RDWR;
        streamMode |= std::ios::in | std::ios::ate;
    }
    std::ofstream stream;
    const std::wstring native = widePath(path);
    const int file = ::_wopen(native.c_str(), flags | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    const bool usable = file >= 0 &&
                        ::GetFileType(reinterpret_cast<HANDLE>(::_get_osfhandle(file))) != FILE_TYPE_PIPE &&
                        (mode != WriteMode::Continue || ::_lseeki64(file, 0, SEEK_END) >= 0);
#if defined(__GLIBCXX__)
    if (usable) {
        __gnu_cxx::stdio_filebuf<char> buffer(file, streamMode);  // takes the file over
        const bool isOpen = buffer.is_open();
        static_cast<std::filebuf&>(*stream.rdbuf()) = std::move(buffer);
        if (isOpen) return stream;
    }
    if (file >= 0) ::_close(file);
    stream.setstate(std::ios::failbit);
#else
    if (file >= 0) ::_close(file);
    if (usable) {
        stream.open(std::filesystem::path(native), streamMode);
    } else {
        stream.setstate(std::ios::failbit);
    }
#endif
    return stream;
}

// The system knows these names in every directory, in any letter case, with any extension and with spaces before it.
const char* nameProblem(std::string_view name) {
    if (name.back() == '.' || name.back() == ' ') return "ends in a dot or a space, which this system drops";
    std::string base(name.substr(0, name.find('.')));
    base.resize(base.find_last_not_of(' ') + 1);
    for (char& letter : base) {
        if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
    }
    constexpr std::array<std::string_view, 6> kDevices = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
    constexpr std::array<std::string_view, 12> kNumbers = {"1", "2", "3", "4",        "5",        "6",
                                                           "7", "8", "9", "\xC2\xB9", "\xC2\xB2", "\xC2\xB3"};
    const std::string_view kind = std::string_view(base).substr(0, 3);
    const std::string_view number = std::string_view(base).substr(kind.size());
    const bool isDevice = std::find(kDevices.begin(), kDevices.end(), base) != kDevices.end();
    const bool isPort =
        (kind == "COM" || kind == "LPT") && std::find(kNumbers.begin(), kNumbers.end(), number) != kNumbers.end();
    return isDevice || isPort ? "is the name of a device on this system" : nullptr;
}

// Below a literal root, the system would take slashes, "." and empty components for parts of names.
std::string nameBelow(const char* directory, const std::string& name) {
    if (!isLiteral(directory)) return name;
    std::string literal;
    for (size_t begin = 0; begin < name.size();) {
        const size_t end = std::min(name.find_first_of("/\\", begin), name.size());
        const std::string component = name.substr(begin, end - begin);
        begin = end + 1;
        if (component.empty() || component == ".") continue;
        literal += component;
        if (end < name.size()) literal += '\\';
    }
    return literal;
}

OutputTree::OutputTree(const char* root)
    : rootText_(root[0] != '\0' && root[std::strlen(root) - 1] == ':' ? std::string(root) + '\\' : root),
      root_(reinterpret_cast<intptr_t>(
          opened(::CreateFileW(rootText_.empty() ? L"." : widePath(rootText_.c_str()).c_str(), kEnterAccess, kShared,
                               nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr))
              .release())),
      currentHandle_(root_) {
    BY_HANDLE_FILE_INFORMATION facts;
    const auto handle = reinterpret_cast<HANDLE>(root_);
    const bool isDirectory = isOpen() && ::GetFileInformationByHandle(handle, &facts) != FALSE &&
                             (facts.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isDirectory) return;
    if (isOpen()) ::CloseHandle(handle);
    root_ = 0;
    currentHandle_ = 0;
}

OutputTree::~OutputTree() {
    leave();
    if (isOpen()) ::CloseHandle(reinterpret_cast<HANDLE>(root_));
}

bool OutputTree::isOpen() const { return root_ != 0; }

// Back to the root.
void OutputTree::leave() {
    if (currentHandle_ != root_) ::CloseHandle(reinterpret_cast<HANDLE>(currentHandle_));
    currentHandle_ = root_;
    current_.clear();
}

std::optional<Obstacle> OutputTree::enter(const std::string& relative) {
    if (relative == current_) return std::nullopt;
    const bool isBelow = relative.size() > current_.size() && relative[current_.size()] == '/' &&
                         relative.compare(0, current_.size(), current_) == 0;
    if (!isBelow) leave();
    std::string reached = relative;
    for (size_t begin = current_.empty() ? 0 : current_.size() + 1; begin < relative.size();) {
        const size_t end = std::min(relative.find('/', begin), relative.size());
        const std::wstring name = widePath(relative.substr(begin, end - begin).c_str());
        Opened next = openBelow(reinterpret_cast<HANDLE>(currentHandle_), name, kEnterAccess, FILE_DIRECTORY_FILE);
        BY_HANDLE_FILE_INFORMATION facts;
        const std::optional<Obstacle> problem = obstacle(next, name, facts);
        leave();
        if (problem) return problem;
        currentHandle_ = reinterpret_cast<intptr_t>(next.handle.release());
        begin = end + 1;
    }
    if (!isFound(rootText_, relative)) {
        Obstacle tooLong = failure(widePath(relative.c_str()));
        leave();
        return tooLong;
    }
    current_ = std::move(reached);
    return std::nullopt;
}

std::optional<Obstacle> OutputTree::makeDirectory(const std::string& relative) { return enter(relative); }

std::optional<Obstacle> OutputTree::writeFile(const std::string& relative, const void* data, uint64_t size) {
    const size_t slash = relative.rfind('/');
    std::optional<Obstacle> problem = enter(slash == std::string::npos ? "" : relative.substr(0, slash));
    if (problem) return problem;
    const std::wstring name = widePath(relative.substr(slash + 1).c_str());  // all of it when there is no slash
    // What is there already is emptied only after a look at it.
    Opened opened = openBelow(reinterpret_cast<HANDLE>(currentHandle_), name, FILE_WRITE_DATA | FILE_READ_ATTRIBUTES,
                              FILE_NON_DIRECTORY_FILE);
    BY_HANDLE_FILE_INFORMATION facts;
    if ((problem = obstacle(opened, name, facts))) return problem;
    Handle& file = opened.handle;
    if (!isFound(rootText_, relative)) return failure(widePath(relative.c_str()));
    if (facts.nNumberOfLinks > 1) return Obstacle{toUtf8(name.c_str()), "is a file with further names (hard links)"};
    const bool isEmpty = facts.nFileSizeLow == 0 && facts.nFileSizeHigh == 0;
    if (!isEmpty && ::SetEndOfFile(file.get()) == FALSE) return failure(name);  // at its start: nothing was written
    if (!writeWhole(file.get(), data, size)) return failure(name);
    if (::CloseHandle(file.release()) == FALSE) return failure(name);
    return std::nullopt;
}

std::vector<std::string> findFiles(const char* pattern) {
    std::vector<std::string> names;
    WIN32_FIND_DATAW entry;
    const HANDLE first = ::FindFirstFileW(widePath(pattern).c_str(), &entry);
    if (first == INVALID_HANDLE_VALUE) return names;
    const std::unique_ptr<HANDLE, CloseSearch> search(first);
    do {
        names.push_back(toUtf8(entry.cFileName));
    } while (::FindNextFileW(search.get(), &entry) != FALSE);
    return names;
}

}  // namespace TarnoMirelo::Platform
