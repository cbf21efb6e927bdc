#include "files/tar.h"

#include <utf8.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>

namespace TarnoMirelo::Tar {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::string_view kUstarMagic("ustar\0", 6);
constexpr size_t kChecksumOffset = 148;
constexpr size_t kChecksumWidth = 8;
constexpr size_t kLongestShown = 200;  // bytes of a name in a description

std::string_view upToNul(std::string_view field) { return field.substr(0, field.find('\0')); }

uint32_t sumOf(std::string_view bytes) {
    uint32_t sum = 0;
    for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
    return sum;
}

// The octal digits up to the first other character, behind any of `skipped`. Nothing without a digit, or beyond 32
// bits. A field's 12 digits are 36 bits: no overflow.
std::optional<uint32_t> parseOctal(std::string_view text, std::string_view skipped) {
    size_t i = text.find_first_not_of(skipped);
    const size_t begin = i;
    uint64_t number = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '7'; ++i) {
        number = number * 8 + static_cast<uint64_t>(text[i] - '0');
    }
    if (i == begin || number > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    return static_cast<uint32_t>(number);
}

// A whole decimal number that fits in 32 bits.
std::optional<uint32_t> parseDecimal(std::string_view text) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool isSlash(char character) { return character == '/' || character == '\\'; }

}  // namespace

bool Header::startsWithZero() const { return block_[0] == '\0'; }

bool Header::isZero() const { return block_.find_first_not_of('\0') == std::string_view::npos; }

uint32_t Header::sum() const {
    return sumOf(block_) - sumOf(field(kChecksumOffset, kChecksumWidth)) + uint32_t{kChecksumWidth} * ' ';
}

std::optional<uint32_t> Header::checksum() const {
    return parseOctal(field(kChecksumOffset, kChecksumWidth), std::string_view(" \0", 2));
}

bool Header::hasSixDigitChecksum() const {
    uint32_t left = sum();  // 512 bytes never add up to more than six digits
    char digits[6];
    for (size_t i = std::size(digits); i-- > 0; left /= 8) digits[i] = static_cast<char>('0' + left % 8);
    return field(kChecksumOffset, std::size(digits)) == std::string_view(digits, std::size(digits));
}

std::optional<uint32_t> Header::size() const { return parseOctal(field(124, 12), kWhiteSpace); }

std::optional<uint32_t> Header::wholeSize() const {
    const std::string_view text = field(124, 12);
    const size_t begin = std::min(text.find_first_not_of(kWhiteSpace), text.size());
    const size_t end = std::min(text.find_first_not_of("01234567", begin), text.size());
    return end == text.size() || text[end] == ' ' || text[end] == '\0' ? size() : std::nullopt;
}

std::string Header::name() const {
    std::string name(upToNul(field(0, 100)));
    const std::string_view prefix = upToNul(field(345, 155));
    if (field(257, 6) != kUstarMagic || prefix.empty()) return name;
    return std::string(prefix) + "/" + name;
}

char Header::kind() const { return block_[156]; }

// A record reads "<length> <key>=<value>\n", where the length counts all of it.
std::string readRecords(std::string_view data, ExtendedRecords& records) {
    constexpr const char* kMalformed = "its records are malformed";
    while (!data.empty()) {
        const size_t space = data.find(' ');
        if (space == std::string_view::npos) return kMalformed;
        const std::optional<uint32_t> length = parseDecimal(data.substr(0, space));
        if (!length || *length > data.size() || *length < space + 2 || data[*length - 1] != '\n') return kMalformed;
        const std::string_view record = data.substr(space + 1, *length - space - 2);
        const size_t equals = record.find('=');
        if (equals == std::string_view::npos) return kMalformed;
        const std::string_view key = record.substr(0, equals);
        const std::string_view value = record.substr(equals + 1);
        if (key == "path") records.path = std::string(value);
        if (key == "size") records.size = parseDecimal(value);
        if (key == "size" && !records.size)
            return "its size record is " + quoted(value) + ", wanted are bytes below 4 GiB";
        if (key.substr(0, 11) == "GNU.sparse.") records.incomplete = "a sparse file";
        if (key.substr(0, 11) == "GNU.volume.") records.incomplete = "the rest of a file from another volume";
        data.remove_prefix(*length);
    }
    return "";
}

const char* confinementProblem(std::string_view name) {
    if (name.empty()) return "the name is empty";
    if (isSlash(name.front())) return "the name is absolute";
    size_t component = 0;  // where it begins
    for (size_t i = 0; i <= name.size(); ++i) {
        if (i < name.size() && name[i] == ':') return "the name holds a \":\"";
        if (i < name.size() && !isSlash(name[i])) continue;
        if (name.substr(component, i - component) == "..") return "the name has a component \"..\"";
        component = i + 1;
    }
    return nullptr;
}

std::string kindName(char kind) {
    constexpr std::pair<char, const char*> kNames[] = {{'1', "a hard link"},
                                                       {'2', "a symbolic link"},
                                                       {'3', "a character device"},
                                                       {'4', "a block device"},
                                                       {'6', "a FIFO"},
                                                       {'7', "a contiguous file"},
                                                       {'K', "the long target of a link"},
                                                       {'M', "the rest of a file from another volume"},
                                                       {'S', "a sparse file"},
                                                       {'V', "a volume's label"}};
    for (const auto& [known, name] : kNames) {
        if (known == kind) return name;
    }
    return "of the unknown kind " + quoted(std::string_view(&kind, 1));
}

std::string quoted(std::string_view name) {
    const bool isText = utf8::is_valid(name.begin(), name.end());
    size_t shown = std::min(name.size(), kLongestShown);
    while (isText && shown < name.size() && (static_cast<unsigned char>(name[shown]) & 0xC0U) == 0x80U) --shown;
    std::string text = "\"";
    for (const char character : name.substr(0, shown)) {
        const auto byte = static_cast<unsigned char>(character);
        const bool isPlain = byte >= 0x80 ? isText : byte >= ' ' && byte != 0x7F;
        if (character == '"' || character == '\\') text += '\\';
        if (isPlain) {
            text += character;
        } else {
            constexpr const char* kDigits = "0123456789ABCDEF";
            text.append("\\x").append(1, kDigits[byte / 16]).append(1, kDigits[byte % 16]);
        }
    }
    return text + (shown < name.size() ? "\"..." : "\"");
}

}  // namespace TarnoMirelo::Tar
