#include "finding_list.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

constexpr size_t kMostFindings = 1000;  // findings of a severity

constexpr size_t kAsciiBlock = sizeof(uint64_t);

// Whether a block of ASCII begins there.
bool isAscii(std::string_view text, size_t at) {
    uint64_t block = 0;
    if (text.size() - at < kAsciiBlock) return false;
    std::memcpy(&block, text.data() + at, kAsciiBlock);
    return (block & 0x8080808080808080U) == 0;
}

size_t countIndex(Severity severity) { return severity == Severity::Error ? 0 : 1; }

bool continuesUtf8(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// The length of the UTF-8 sequence at the text's start; 0 where it is none.
size_t sequenceLength(std::string_view text) {
    const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
    if (length == 0 || text.size() < length) return 0;
    if (!std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length), continuesUtf8)) return 0;
    const bool overlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool surrogate = first == 0xED && byte(1) >= 0xA0;
    const bool beyond = first == 0xF4 && byte(1) >= 0x90;
    return overlong || surrogate || beyond ? 0 : length;
}

}  // namespace

bool FindingList::count(Severity severity) { return ++counts_[countIndex(severity)] <= kMostFindings; }

void FindingList::add(Severity severity, std::optional<size_t> offset, std::string where, Words words) {
    findings_.push_back({offset, Finding{severity, std::move(where), 0, 0, std::move(words.what),
                                         std::move(words.found), std::move(words.wanted), std::move(words.advice)}});
}

std::vector<Finding> FindingList::take(std::string_view text) {
    std::stable_sort(findings_.begin(), findings_.end(), [](const Placed& a, const Placed& b) {
        return a.offset.has_value() != b.offset.has_value() ? !a.offset : a.offset && *a.offset < *b.offset;
    });
    std::vector<Finding> findings;
    findings.reserve(findings_.size());
    uint64_t line = 1;
    uint64_t column = 1;
    size_t at = text.substr(0, kByteOrderMark.size()) == kByteOrderMark ? kByteOrderMark.size() : 0;
    for (Placed& placed : findings_) {
        if (placed.offset) {
            for (; at < *placed.offset; ++at) {
                if (text[at] == '\n') {
                    ++line;
                    column = 1;
                } else if (!continuesUtf8(text[at])) {
                    ++column;
                }
            }
            placed.finding.line = line;
            placed.finding.column = column;
        }
        findings.push_back(std::move(placed.finding));
    }
    for (const Severity severity : {Severity::Error, Severity::Warning}) {
        const size_t all = counts_[countIndex(severity)];
        if (all <= kMostFindings) continue;
        Finding& more = findings.emplace_back();
        more.severity = severity;
        more.what = "There are more of them";
        more.found = std::to_string(all - kMostFindings) + " more";
        more.wanted = "none";
        more.advice = "Mend those above, and check again.";
    }
    findings_.clear();
    counts_ = {};
    return findings;
}

size_t validUtf8(std::string_view text) {
    size_t at = 0;
    while (at < text.size()) {
        if (isAscii(text, at)) {
            at += kAsciiBlock;
            continue;
        }
        const size_t length = sequenceLength(text.substr(at));
        if (length == 0) break;
        at += length;
    }
    return at;
}

std::string excerpt(std::string_view text, size_t longest) {
    std::string out;
    size_t at = 0;
    while (at < text.size() && out.size() < longest) {
        const size_t length = sequenceLength(text.substr(at));
        const bool shown = length > 1 || (length == 1 && text[at] >= ' ' && text[at] != 0x7F);
        out += shown ? text.substr(at, length) : std::string_view("?");
        at += std::max<size_t>(1, length);
    }
    return at < text.size() ? out + "..." : out;
}

std::string quotedExcerpt(std::string_view text) { return '"' + excerpt(text) + '"'; }

}  // namespace TarnoMirelo::Kit
