#include "platform.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <string>
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

std::error_code renameToNew(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH) != FALSE) return {};
    return {static_cast<int>(GetLastError()), std::system_category()};
}

// An object of the system's that bears the folder's number: it is gone with the last process that has it open.
FolderLock::FolderLock(const std::filesystem::path& folder) : handle_(0) {
    constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE opened = CreateFileW(folder.empty() ? L"." : folder.c_str(), 0, kShared, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    BY_HANDLE_FILE_INFORMATION facts{};
    if (opened == INVALID_HANDLE_VALUE) return;
    const bool isKnown = GetFileInformationByHandle(opened, &facts) != FALSE;
    CloseHandle(opened);
    if (!isKnown) return;
    std::wstring name = L"Global\\mirelo";
    for (const DWORD part : {facts.dwVolumeSerialNumber, facts.nFileIndexHigh, facts.nFileIndexLow}) {
        name += L"-" + std::to_wstring(part);
    }
    const HANDLE made = CreateMutexW(nullptr, FALSE, name.c_str());
    const DWORD error = GetLastError();
    isTaken_ = made == nullptr ? error == ERROR_ACCESS_DENIED  // another user's
                               : error == ERROR_ALREADY_EXISTS;
    handle_ = reinterpret_cast<intptr_t>(made);
}

FolderLock::~FolderLock() {
    if (handle_ != 0) CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

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
