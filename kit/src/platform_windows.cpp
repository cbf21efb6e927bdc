#include "platform.h"
#include "windows_names.h"

#include <TarnoMirelo/kit/texts.h>

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <algorithm>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>
#include <windows.h>

namespace TarnoMirelo::Kit::Platform {
namespace {

std::wstring widePath(const Filepath& path) {
    const char* const text = path.c_str();
    const int length = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (length == 0) throw FileException("The path is not UTF-8");
    std::wstring wide(static_cast<size_t>(length), L'\0');
    ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), length);
    wide.pop_back();  // the zero behind the text
    // Where the system takes a path literally, below a root of the form \\\\?\\, a slash would be part of a name.
    std::replace(wide.begin(), wide.end(), L'/', L'\\');
    return wide;
}

HANDLE handleOf(intptr_t number) { return reinterpret_cast<HANDLE>(number); }

// "Cannot ACTION the file PATH: REASON".
[[noreturn]] void refuse(const char* action, const Filepath& path, const std::string& reason) {
    throw FileException("Cannot " + (action + (" the file " + toText(path))) + ": " + reason);
}

std::string reasonOf(DWORD error) { return std::system_category().message(static_cast<int>(error)); }

constexpr const char* kNoFile = "it is no regular file";

}  // namespace

bool isMisread(std::string_view name) {
    return !name.empty() && (name.back() == '.' || name.back() == ' ' || isWindowsDevice(name));
}

InputFile::InputFile(const Filepath& path)
    : path_(path),
      handle_(reinterpret_cast<intptr_t>(::CreateFileW(widePath(path).c_str(), GENERIC_READ,
                                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                       OPEN_EXISTING, 0, nullptr))) {
    const HANDLE file = handleOf(handle_);
    const bool isOpen = file != INVALID_HANDLE_VALUE;
    LARGE_INTEGER size{};
    // A pipe or a device is no file here.
    const bool isRegular = isOpen && ::GetFileType(file) == FILE_TYPE_DISK;
    const DWORD error = !isOpen || (isRegular && ::GetFileSizeEx(file, &size) == FALSE) ? ::GetLastError() : 0;
    size_ = static_cast<uint64_t>(size.QuadPart);
    if (isRegular && error == 0) return;
    if (isOpen) ::CloseHandle(file);
    refuse("open", path, error != 0 ? reasonOf(error) : kNoFile);
}

InputFile::~InputFile() { ::CloseHandle(handleOf(handle_)); }

size_t InputFile::read(void* data, size_t size) {
    constexpr size_t kMost = 1 << 30;  // the system counts in 32 bits
    size_t done = 0;
    for (DWORD more = 1; done < size && more > 0; done += more) {
        const auto wanted = static_cast<DWORD>(std::min(size - done, kMost));
        if (::ReadFile(handleOf(handle_), static_cast<char*>(data) + done, wanted, &more, nullptr) == FALSE) {
            refuse("read", path_, reasonOf(::GetLastError()));
        }
    }
    return done;
}

NewFile::NewFile(const Filepath& path, std::filesystem::perms /*permissions*/)
    : path_(path),
      native_(widePath(path)),
      beside_(widePath(pathBeside(path))),
      handle_(reinterpret_cast<intptr_t>(
          ::CreateFileW(beside_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr))) {
    if (handleOf(handle_) == INVALID_HANDLE_VALUE) fail();
    if (::GetFileType(handleOf(handle_)) == FILE_TYPE_DISK) return;
    ::CloseHandle(handleOf(handle_));
    refuse("write", path, kNoFile);
}

NewFile::~NewFile() {
    if (handleOf(handle_) != INVALID_HANDLE_VALUE) ::CloseHandle(handleOf(handle_));
    if (!finished_) ::DeleteFileW(beside_.c_str());
}

void NewFile::fail() const { refuse("write", path_, reasonOf(::GetLastError())); }

void NewFile::write(const void* data, size_t size) {
    constexpr size_t kMost = 1 << 30;
    for (size_t done = 0; done < size;) {
        const auto wanted = static_cast<DWORD>(std::min(size - done, kMost));
        DWORD more = 0;
        const auto* const next = static_cast<const char*>(data) + done;
        if (::WriteFile(handleOf(handle_), next, wanted, &more, nullptr) == FALSE || more == 0) fail();
        done += more;
    }
}

void NewFile::finish() {
    if (::FlushFileBuffers(handleOf(handle_)) == FALSE) fail();
    ::CloseHandle(handleOf(std::exchange(handle_, reinterpret_cast<intptr_t>(INVALID_HANDLE_VALUE))));
    constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
    if (::MoveFileExW(beside_.c_str(), native_.c_str(), kFlags) == FALSE) fail();
    finished_ = true;
}

}  // namespace TarnoMirelo::Kit::Platform
