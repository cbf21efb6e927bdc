#pragma once

#include <TarnoMirelo/kit/check.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo::Kit {

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Collects the findings of one text, and puts line and column to them in the end.
class FindingList {
 public:
    /// What a finding says, but for its place and severity.
    struct Words {
        std::string what;
        std::string found;
        std::string wanted;
        std::string advice;
    };

    /// Counts a finding.
    /// @return whether there is room for it, so that it has to be added; else it is only counted
    bool count(Severity severity);
    /// @param offset  of its place in the text; nothing where it has none
    void add(Severity severity, std::optional<size_t> offset, std::string where, Words words);

    /// The findings in the order of the text that they are about; those without a place come first.
    std::vector<Finding> take(std::string_view text);

 private:
    struct Placed {
        std::optional<size_t> offset;
        Finding finding;
    };

    std::vector<Placed> findings_;
    std::array<size_t, 2> counts_{};
};

/// A part of a text for people: one line, valid UTF-8, cut where it is long.
/// @param longest  in bytes
std::string excerpt(std::string_view text, size_t longest = 60);

/// `excerpt` in quotes.
std::string quotedExcerpt(std::string_view text);

/// How many bytes of valid UTF-8 the text begins with.
size_t validUtf8(std::string_view text);

}  // namespace TarnoMirelo::Kit
