#include "failure.h"

#include "paths.h"

#include <TarnoMirelo/kit/texts.h>

#include <utf8.h>

namespace TarnoMirelo::Tool {

namespace {

std::string escape(unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    if (byte == '\n') return "\\n";
    return {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
}

std::string linesOf(const std::string& text, const std::vector<std::string>& details) {
    std::string lines = printable(text);
    for (const std::string& detail : details) lines += "\n  " + printable(detail);
    return lines;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at != end;) {
        const char* const begin = at;
        bool isShown = false;
        try {
            const auto character = utf8::next(at, end);
            isShown = character >= 0x20 && (character < 0x7F || character > 0x9F);
        } catch (const utf8::exception&) {
            at = begin + 1;
        }
        if (isShown) {
            result.append(begin, at);
        } else {
            for (const char byte : std::string(begin, at)) result += escape(static_cast<unsigned char>(byte));
        }
    }
    return result;
}

Failure::Failure(const std::string& text) : Failure(text, {}) {}

Failure::Failure(const std::string& text, const std::vector<std::string>& details)
    : std::runtime_error(linesOf(text, details)) {}

std::string reasonOf(const std::filesystem::filesystem_error& error) {
    if (error.path1().empty()) return error.what();
    return toGenericText(error.path1()) + ": " + error.code().message();
}

void require(const std::string& thing, const MireloStatus& status) {
    if (!status.ok() && !status.warn()) throw Failure(thing + ": " + Kit::describe(status));
}

}  // namespace TarnoMirelo::Tool
