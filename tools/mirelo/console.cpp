#include "console.h"

#include "failure.h"
#include "platform.h"

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

bool wantsColours() {
    const char* const no = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): nobody changes the environment
    return no == nullptr || *no == '\0';
}

}  // namespace

Console::Console()
    : colours_(wantsColours() && Platform::isTerminal(stdout)),
      errorColours_(wantsColours() && Platform::isTerminal(stderr)),
      showsProgress_(Platform::isTerminal(stderr)) {}

Console::~Console() { clearProgress(); }

void Console::print(std::string_view text) {
    clearProgress();
    std::cout << text;
}

void Console::printJson(const Json& value) { print(value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"); }

void Console::printError(std::string_view text) {
    clearProgress();
    std::cout.flush();
    std::cerr << (errorColours_ ? painted(Colour::Red, "mirelo: error:") : "mirelo: error:") << " " << text
              << std::endl;
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
