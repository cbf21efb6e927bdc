// A file name, a line feed and a pattern: the pattern finds the file if and only if a table of all prefixes says so, in
// time that grows no faster than the product of the two lengths.

#include "support/require.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo {
namespace {

// Bytes from 0x80 stand for these: pairs of letters, capital and small, of two and four bytes, and characters without.
constexpr std::string_view kLetters[] = {"\u00C9",     "\u00E9",     "\u042F", "\u044F",
                                         "\U00010400", "\U00010428", "\u20AC", "\U0001F600"};
constexpr size_t kPaired = 6;

std::string encoded(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += value < 0x80 ? std::string_view(&byte, 1) : kLetters[value % std::size(kLetters)];
    }
    return text;
}

// One number for both cases of a letter.
int folded(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80) return value >= 'A' && value <= 'Z' ? value - 'A' + 'a' : value;
    const size_t letter = value % std::size(kLetters);
    return 0x80 + static_cast<int>(letter < kPaired ? letter / 2 * 2 : letter);
}

// matched[n]: whether the part of the pattern read so far matches the name's first n characters.
bool matches(std::string_view name, std::string_view pattern) {
    std::vector<bool> matched(name.size() + 1);
    matched[0] = true;
    for (const char wanted : pattern) {
        std::vector<bool> longer(name.size() + 1);
        longer[0] = matched[0] && wanted == '*';
        for (size_t n = 1; n <= name.size(); ++n) {
            const bool one = wanted == '?' || folded(wanted) == folded(name[n - 1]);
            longer[n] = wanted == '*' ? matched[n] || longer[n - 1] : matched[n - 1] && one;
        }
        matched = longer;
    }
    return matched[name.size()];
}

double processorSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static const TempDir scratch;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const size_t end = input.find('\n');
    if (end == std::string_view::npos || input.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos)
        return -1;
    const std::string_view name = input.substr(0, end);
    const std::string_view pattern = input.substr(end + 1);
    const std::string file = encoded(name);
    if (file.empty() || file.size() > 255 || file == "." || file == "..") return -1;

    std::vector<std::string> expected;
    for (const std::string_view there : {name, std::string_view("."), std::string_view("..")}) {
        if (matches(there, pattern)) expected.push_back(encoded(there));
    }
    scratch.write(file, "");
    const double start = processorSeconds();
    std::vector<std::string> found;
    for (const Filepath& one : FileUtils().findFilesByPattern(scratch.path(), encoded(pattern))) {
        found.push_back(one.getPathString());
    }
    // A hundred times what it takes, and far less than backtracking would take.
    const double allowed = 0.5 + 2e-6 * static_cast<double>(name.size() * pattern.size());
    require(processorSeconds() - start < allowed, "a pattern costs no more than the product of the lengths");
    std::filesystem::remove(scratch.native() / file);

    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    require(found == expected, "a pattern finds the names that match it");
    return 0;
}
