#include "windows_names.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace TarnoMirelo::Kit {

bool isWindowsDevice(std::string_view name) {
    std::string stem(name.substr(0, name.find('.')));
    stem.erase(stem.find_last_not_of(' ') + 1);
    for (char& letter : stem) {
        if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
    }
    constexpr std::string_view kNames[] = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$"};
    if (std::find(std::begin(kNames), std::end(kNames), stem) != std::end(kNames)) return true;
    if (!stem.starts_with("COM") && !stem.starts_with("LPT")) return false;
    const std::string port = stem.substr(3);
    // The superscript digits one, two and three count as digits there, too.
    return (port.size() == 1 && port[0] >= '0' && port[0] <= '9') || port == "\xC2\xB9" || port == "\xC2\xB2" ||
           port == "\xC2\xB3";
}

}  // namespace TarnoMirelo::Kit
