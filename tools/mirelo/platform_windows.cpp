#include "platform.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace TarnoMirelo::Tool::Platform {

void prepareStandardStreams() {
    SetConsoleOutputCP(CP_UTF8);
    for (std::FILE* const stream : {stdout, stderr}) {
        _setmode(_fileno(stream), _O_BINARY);  // no carriage returns
        const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
        DWORD mode = 0;
        // Colours are escape sequences. Consoles that don't know them are no terminals here.
        if (GetConsoleMode(console, &mode) != 0) SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    }
}

bool isTerminal(std::FILE* stream) {
    DWORD mode = 0;
    const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    return GetConsoleMode(console, &mode) != 0 && (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

// What is renamed is there already: see `Kit::Platform::NewFile`.
bool syncDirectory(const std::filesystem::path& /*directory*/) { return true; }

std::error_code writeSecretFile(const std::filesystem::path& path, const void* data, size_t size) {
    const auto reason = [] { return std::error_code(static_cast<int>(GetLastError()), std::system_category()); };
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return reason();
    std::error_code error;
    DWORD written = 0;
    SetLastError(ERROR_DISK_FULL);  // of a part that is written
    if (WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr) == FALSE || written != size ||
        FlushFileBuffers(file) == FALSE) {
        error = reason();
    }
    CloseHandle(file);
    if (error) DeleteFileW(path.c_str());
    return error;
}

}  // namespace TarnoMirelo::Tool::Platform
