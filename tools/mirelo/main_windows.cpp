#include "tool.h"

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

}  // namespace TarnoMirelo::Tool

// The narrow arguments are in the process's code page, which has no room for every name.
int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) arguments.push_back(TarnoMirelo::Tool::toUtf8(argv[i]));
    return TarnoMirelo::Tool::runTool(arguments);
}
