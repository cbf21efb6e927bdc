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

}  // namespace TarnoMirelo::Tool::Platform
