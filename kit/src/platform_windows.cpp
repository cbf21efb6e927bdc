#include "platform.h"

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <algorithm>
#include <iterator>
#include <string>
#include <windows.h>

namespace TarnoMirelo::Kit::Platform {
namespace {

bool isDevice(std::string name) {
    name.erase(std::min(name.find('.'), name.size()));
    name.erase(name.find_last_not_of(' ') + 1);
    for (char& letter : name) {
        if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
    }
    constexpr std::string_view kNames[] = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$"};
    if (std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames)) return true;
    if (name.compare(0, 3, "COM") != 0 && name.compare(0, 3, "LPT") != 0) return false;
    const std::string port = name.substr(3);
    // The superscript digits one, two and three count as digits there, too.
    return (port.size() == 1 && port[0] >= '0' && port[0] <= '9') || port == "\xC2\xB9" || port == "\xC2\xB2" ||
           port == "\xC2\xB3";
}

std::wstring widePath(const Filepath& path) {
    const char* const text = path.c_str();
    const int length = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (length == 0) throw FileException("The path is not UTF-8: wanted is the name of a file");
    std::wstring wide(static_cast<size_t>(length), L'\0');
    ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), length);
    wide.pop_back();  // the zero behind the text
    return wide;
}

// A pipe or a device is no file here.
HANDLE openRegular(const Filepath& path) {
    HANDLE file =
        ::CreateFileW(widePath(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE || ::GetFileType(file) == FILE_TYPE_DISK) return file;
    ::CloseHandle(file);
    return INVALID_HANDLE_VALUE;
}

HANDLE handleOf(intptr_t number) { return reinterpret_cast<HANDLE>(number); }

}  // namespace

bool isMisread(std::string_view name) {
    return !name.empty() && (name.back() == '.' || name.back() == ' ' || isDevice(std::string(name)));
}

InputFile::InputFile(const Filepath& path) : path_(path), handle_(reinterpret_cast<intptr_t>(openRegular(path))) {
    if (handleOf(handle_) == INVALID_HANDLE_VALUE) throw FileException("Cannot open the file " + path.getPathString());
}

InputFile::~InputFile() { ::CloseHandle(handleOf(handle_)); }

size_t InputFile::read(void* data, size_t size) {
    constexpr size_t kMost = 1 << 30;  // the system counts in 32 bits
    size_t done = 0;
    for (DWORD more = 1; done < size && more > 0; done += more) {
        const auto wanted = static_cast<DWORD>(std::min(size - done, kMost));
        if (::ReadFile(handleOf(handle_), static_cast<char*>(data) + done, wanted, &more, nullptr) == FALSE) {
            throw FileException("Cannot read the file " + path_.getPathString());
        }
    }
    return done;
}

}  // namespace TarnoMirelo::Kit::Platform
