#include "files/platform.h"

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <utf8.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <io.h>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <windows.h>

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

std::wstring widePath(const char* path) {
    const std::u16string units = toUtf16(path);
    return {units.begin(), units.end()};
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

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

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

Creation createDirectory(const char* path, PathText text) {
    const bool wide = text == PathText::Wide;
    const std::wstring native = wide ? widePath(path) : std::wstring();
    const BOOL created = wide ? ::CreateDirectoryW(native.c_str(), nullptr) : ::CreateDirectoryA(path, nullptr);
    if (created != FALSE) return Creation::Done;
    if (::GetLastError() == ERROR_PATH_NOT_FOUND) return Creation::ParentMissing;
    const DWORD attributes = wide ? ::GetFileAttributesW(native.c_str()) : ::GetFileAttributesA(path);
    const bool isPresent = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return isPresent ? Creation::Present : Creation::Failed;
}

bool deleteFile(const char* path) { return std::remove(path) == 0; }

// A stream of the C library: those of C++ do the same, and allocate besides.
InputFile::InputFile(const char* path, PathText text)
    : handle_(reinterpret_cast<intptr_t>(text == PathText::Wide ? ::_wfopen(widePath(path).c_str(), L"rb")
                                                                : std::fopen(path, "rb"))) {
    if (!isOpen()) return;
    auto* const file = reinterpret_cast<std::FILE*>(handle_);
    // A device may never end.
    if (::GetFileType(reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(file)))) == FILE_TYPE_CHAR) {
        std::fclose(file);
        handle_ = 0;
        return;
    }
    if (::_fseeki64(file, 0, SEEK_END) != 0) return;
    const int64_t end = ::_ftelli64(file);
    if (end >= 0 && ::_fseeki64(file, 0, SEEK_SET) == 0) size_ = static_cast<uint64_t>(end);
}

InputFile::~InputFile() {
    if (isOpen()) std::fclose(reinterpret_cast<std::FILE*>(handle_));
}

bool InputFile::isOpen() const { return handle_ != 0; }
std::optional<uint64_t> InputFile::size() const { return size_; }

uint64_t InputFile::read(void* buffer, uint64_t size) {
    if (size == 0) return 0;  // also of a file that is not open
    return std::fread(buffer, 1, size, reinterpret_cast<std::FILE*>(handle_));
}

std::ofstream openToWrite(const char* path, std::ios::openmode mode) {
    return std::ofstream(std::filesystem::path(widePath(path)), std::ios::binary | mode);
}

// "t" and not what a host may have made the default.
void writeTextFile(const char* path, const char* text) {
    const std::unique_ptr<std::FILE, CloseFile> file(::_wfopen(widePath(path).c_str(), L"wt"));
    if (file != nullptr) std::fputs(text, file.get());
}

bool writeFile(const char* path, const void* data, uint64_t size) {
    std::unique_ptr<std::FILE, CloseFile> file(::_wfopen(widePath(path).c_str(), L"wb"));
    if (file == nullptr) return false;
    const bool written = std::fwrite(data, 1, size, file.get()) == size;
    return std::fclose(file.release()) == 0 && written;
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
