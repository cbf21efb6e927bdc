#include "nearest_name.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string>

namespace TarnoMirelo::Kit {
namespace {

constexpr size_t kLongestName = 32;  // of the names that a manifest knows, and of those that may be meant for one

// Names of other programs for the same thing.
constexpr std::string_view kOtherWords[][2] = {
    {"float32", "float"},
    {"float64", "double"},
    {"half", "float16"},
    {"dtype", "dataType"},
    {"onnx", "WinML"},
    {"onnxruntime", "WinML"},
    {"tf-lite", "TensorflowLite"},
    {"tflite", "TensorflowLite"},
    {"folder", "dir"},
    {"directory", "dir"},
    {"dimensions", "shape"},
    // Element types in place of a feature's.
    {"int8", "tensor"},
    {"int16", "tensor"},
    {"uint16", "tensor"},
    {"uint32", "tensor"},
    {"uint64", "tensor"},
    {"float16", "tensor"},
    {"float32", "tensor"},
    {"float", "tensor"},
};

std::string lowered(std::string_view text) {
    std::string lower(text);
    for (char& each : lower) {
        if (each >= 'A' && each <= 'Z') each = static_cast<char>(each - 'A' + 'a');
    }
    return lower;
}

// Insertions, deletions, replacements and swaps of neighbours that turn one text into the other.
size_t distanceOf(std::string_view a, std::string_view b) {
    std::array<std::array<size_t, kLongestName + 1>, kLongestName + 1> steps{};
    for (size_t i = 0; i <= a.size(); ++i) steps[i][0] = i;
    for (size_t j = 0; j <= b.size(); ++j) steps[0][j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = steps[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
        }
    }
    return steps[a.size()][b.size()];
}

bool isDigit(char each) { return each >= '0' && each <= '9'; }

std::string digitsOf(std::string_view text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), isDigit);
    return digits;
}

// Whether each of the letters is in the text, as often.
bool hasLetters(std::string text, std::string_view letters) {
    for (const char each : letters) {
        const size_t at = text.find(each);
        if (at != std::string::npos) {
            text.erase(at, 1);
        } else if (each >= 'a' && each <= 'z') {
            return false;
        }
    }
    return true;
}

std::string_view otherWord(std::string_view given, std::span<const std::string_view> names) {
    for (const auto& [word, meant] : kOtherWords) {
        if (word == given && std::find(names.begin(), names.end(), meant) != names.end()) return meant;
    }
    return {};
}

}  // namespace

std::string_view nearestName(std::string_view name, std::span<const std::string_view> names) {
    if (name.size() > kLongestName) return {};
    const std::string given = lowered(name);
    if (const std::string_view word = otherWord(given, names); !word.empty()) return word;
    std::string_view nearest;
    size_t least = name.size() / 3 + 1;
    for (const std::string_view candidate : names) {
        if (candidate.size() > kLongestName || digitsOf(candidate) != digitsOf(name)) continue;
        const size_t distance = distanceOf(given, lowered(candidate));
        if (distance >= least) continue;
        least = distance;
        nearest = candidate;
    }
    return nearest;
}

std::string_view nearestType(std::string_view name, std::span<const std::string_view> names) {
    const std::string given = lowered(name);
    if (const std::string_view word = otherWord(given, names); !word.empty()) return word;
    const std::string_view nearest = nearestName(name, names);
    return hasLetters(lowered(nearest), given) ? nearest : std::string_view();
}

}  // namespace TarnoMirelo::Kit
