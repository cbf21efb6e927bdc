#include "console.h"

#include "failure.h"
#include "platform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace TarnoMirelo::Tool {
namespace {

std::string painted(Colour colour, std::string_view text) {
    const char* code = "";
    switch (colour) {
        case Colour::Red:
            code = "1;31";
            break;
        case Colour::Yellow:
            code = "1;33";
            break;
        case Colour::Green:
            code = "32";
            break;
        case Colour::Bold:
            code = "1";
            break;
    }
    return std::string("\033[") + code + "m" + std::string(text) + "\033[0m";
}

std::string onOneLine(const Json& value) {
    std::string text;
    if (!value.is_array()) return value.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (const Json& element : value) text += (text.empty() ? "" : ", ") + onOneLine(element);
    return "[" + text + "]";
}

void append(std::string& text, const Json& value, size_t depth) {
    const bool isFlat = !value.is_object() &&
                        std::none_of(value.begin(), value.end(), [](const Json& each) { return each.is_structured(); });
    if (value.empty() || !value.is_structured() || isFlat) {
        text += value.empty() && value.is_object() ? "{}" : onOneLine(value);
        return;
    }
    text += value.is_object() ? "{" : "[";
    const char* separator = "\n";
    for (const auto& [key, each] : value.items()) {
        text += separator + std::string(2 * depth + 2, ' ');
        if (value.is_object()) text += onOneLine(key) + ": ";
        append(text, each, depth + 1);
        separator = ",\n";
    }
    text += "\n" + std::string(2 * depth, ' ') + (value.is_object() ? "}" : "]");
}

bool wantsColours() {
    const char* const no = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): nobody changes the environment
    return no == nullptr || *no == '\0';
}

}  // namespace

std::string toText(const Json& value) {
    std::string text;
    append(text, value, 0);
    return text;
}

Console::Console()
    : colours_(wantsColours() && Platform::isTerminal(stdout)),
      errorColours_(wantsColours() && Platform::isTerminal(stderr)),
      showsProgress_(Platform::isTerminal(stderr)) {}

Console::~Console() { clearProgress(); }

void Console::print(std::string_view text) {
    clearProgress();
    std::cout << text;
}

void Console::printJson(const Json& value) { print(toText(value) + "\n"); }

void Console::printError(std::string_view text) { printMessage(Colour::Red, "mirelo: error:", text); }

void Console::printWarning(std::string_view text) { printMessage(Colour::Yellow, "mirelo: warning:", text); }

void Console::printMessage(Colour colour, std::string_view label, std::string_view text) {
    clearProgress();
    std::cout.flush();
    std::cerr << (errorColours_ ? painted(colour, label) : std::string(label)) << " " << text << std::endl;
}

std::string Console::paint(Colour colour, std::string_view text) const {
    return colours_ ? painted(colour, text) : std::string(text);
}

void Console::progress(std::string_view work, double share) {
    if (!showsProgress_) return;
    std::string line = std::string(work) + " " + std::to_string(static_cast<int>(share * 100)) + " %";
    if (line == progress_) return;
    std::cerr << "\r\033[K" << line << std::flush;
    progress_ = std::move(line);
}

void Console::flush() {
    clearProgress();
    if (!std::cout.flush()) throw Failure("standard output: not everything could be written");
}

void Console::clearProgress() {
    if (!progress_.empty()) std::cerr << "\r\033[K" << std::flush;
    progress_.clear();
}

}  // namespace TarnoMirelo::Tool
