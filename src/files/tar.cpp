#include "files/tar.h"

#include <charconv>
#include <iterator>
#include <limits>

namespace TarnoMirelo::Tar {
namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
constexpr std::string_view kUstarMagic("ustar\0", 6);
constexpr size_t kChecksumOffset = 148;
constexpr size_t kChecksumWidth = 8;

std::string_view upToNul(std::string_view field) { return field.substr(0, field.find('\0')); }

// A whole decimal number that fits in 32 bits.
std::optional<uint32_t> parseDecimal(std::string_view text) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

bool Header::endsArchive() const { return block_[0] == '\0'; }

bool Header::checksumMatches() const {
    const auto sumOf = [](std::string_view bytes) {
        unsigned sum = 0;
        for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
        return sum;
    };
    // The field itself counts as spaces.
    unsigned sum = sumOf(block_) - sumOf(field(kChecksumOffset, kChecksumWidth)) + kChecksumWidth * ' ';
    // Six octal digits, zero-padded; 512 bytes never add up to more. What follows them in the field varies.
    char digits[6];
    for (size_t i = std::size(digits); i-- > 0; sum /= 8) digits[i] = static_cast<char>('0' + sum % 8);
    return field(kChecksumOffset, std::size(digits)) == std::string_view(digits, std::size(digits));
}

std::optional<uint32_t> Header::size() const {
    const std::string_view text = field(124, 12);
    size_t i = text.find_first_not_of(kWhiteSpace);
    const size_t begin = i;
    uint64_t bytes = 0;  // 12 octal digits are 36 bits: no overflow
    for (; i < text.size() && text[i] >= '0' && text[i] <= '7'; ++i) {
        bytes = bytes * 8 + static_cast<uint64_t>(text[i] - '0');
    }
    if (i == begin || bytes > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    return static_cast<uint32_t>(bytes);
}

std::string Header::name() const {
    std::string name(upToNul(field(0, 100)));
    const std::string_view prefix = upToNul(field(345, 155));
    if (field(257, 6) != kUstarMagic || prefix.empty()) return name;
    return std::string(prefix) + "/" + name;
}

char Header::kind() const { return block_[156]; }

// A record reads "<length> <key>=<value>\n", where the length counts all of it.
bool readRecords(std::string_view data, ExtendedRecords& records) {
    while (!data.empty()) {
        const size_t space = data.find(' ');
        if (space == std::string_view::npos) return false;
        const std::optional<uint32_t> length = parseDecimal(data.substr(0, space));
        if (!length || *length > data.size() || *length < space + 2 || data[*length - 1] != '\n') return false;
        const std::string_view record = data.substr(space + 1, *length - space - 2);
        const size_t equals = record.find('=');
        if (equals == std::string_view::npos) return false;
        const std::string_view key = record.substr(0, equals);
        const std::string_view value = record.substr(equals + 1);
        if (key == "path") records.path = std::string(upToNul(value));
        if (key == "size") records.size = parseDecimal(value);
        if (key == "size" && !records.size) return false;
        data.remove_prefix(*length);
    }
    return true;
}

bool staysInside(std::string_view name) {
    const auto isSlash = [](char character) { return character == '/' || character == '\\'; };
    if (name.empty() || isSlash(name.front())) return false;
    size_t component = 0;  // where it begins
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] == ':') return false;
        if (!isSlash(name[i])) continue;
        if (name.substr(component, i - component) == "..") return false;
        component = i + 1;
    }
    return name.substr(component) != "..";
}

}  // namespace TarnoMirelo::Tar
