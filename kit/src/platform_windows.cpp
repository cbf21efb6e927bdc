#include "platform.h"

#include <algorithm>
#include <iterator>
#include <string>

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

}  // namespace

bool isMisread(std::string_view name) {
    return !name.empty() && (name.back() == '.' || name.back() == ' ' || isDevice(std::string(name)));
}

}  // namespace TarnoMirelo::Kit::Platform
