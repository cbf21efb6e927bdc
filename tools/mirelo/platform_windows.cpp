#include "platform.h"
#include "tool.h"

#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace TarnoMirelo::Tool {
namespace {

std::string toUtf8(const wchar_t* text) {
    // The length counts the NUL at the end.
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string utf8(static_cast<size_t>(length > 0 ? length : 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), length, nullptr, nullptr);
    utf8.pop_back();
    return utf8;
}

}  // namespace

namespace Platform {

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

}  // namespace Platform
}  // namespace TarnoMirelo::Tool

// The narrow arguments are in the process's code page, which has no room for every name.
int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) arguments.push_back(TarnoMirelo::Tool::toUtf8(argv[i]));
    return TarnoMirelo::Tool::runTool(arguments);
}
