#include "support/tar_model.h"

#include <utf8.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <numeric>
#include <optional>

namespace TarnoMirelo {
namespace {

constexpr uint64_t kBlock = 512;

std::string textAt(const uint8_t* field, size_t width) {
    return {reinterpret_cast<const char*>(field), ::strnlen(reinterpret_cast<const char*>(field), width)};
}

std::optional<uint32_t> number(const char* begin, const char* end, int base, bool whole) {
    uint32_t value = 0;
    const std::from_chars_result result = std::from_chars(begin, end, value, base);
    if (result.ec != std::errc() || (whole && result.ptr != end)) return std::nullopt;
    return value;
}

bool addsUp(const uint8_t* header, bool sized) {
    const char* begin = reinterpret_cast<const char*>(header) + 148;
    const char* const end = begin + 8;
    if (sized) {
        while (begin != end && (*begin == ' ' || *begin == '\0')) ++begin;
        return number(begin, end, 8, false) == tarChecksum(header);
    }
    char expected[16];
    static_cast<void>(std::snprintf(expected, sizeof expected, "%06o ", tarChecksum(header)));
    return std::memcmp(expected, begin, 6) == 0;
}

bool endsArchive(const uint8_t* header, bool sized) {
    return std::all_of(header, header + (sized ? kBlock : 1), [](uint8_t byte) { return byte == 0; });
}

std::optional<uint32_t> sizeIn(const uint8_t* header, bool sized) {
    const char* begin = reinterpret_cast<const char*>(header) + 124;
    const char* const end = begin + 12;
    while (begin != end && *begin != '\0' && std::strchr(" \t\n\v\f\r", *begin) != nullptr) ++begin;
    if (sized) {
        const char* behind = begin;
        while (behind != end && *behind >= '0' && *behind <= '7') ++behind;
        if (behind != end && *behind != ' ' && *behind != '\0') return std::nullopt;
    }
    return number(begin, end, 8, false);
}

std::string nameIn(const uint8_t* header) {
    const std::string prefix = textAt(header + 345, 155);
    const bool prefixed = std::memcmp(header + 257, "ustar", 6) == 0 && !prefix.empty();
    return (prefixed ? prefix + "/" : "") + textAt(header, 100);
}

bool isRefused(std::string name) {
    std::replace(name.begin(), name.end(), '\\', '/');
    const std::filesystem::path path(name);
    return path.empty() || path.is_absolute() || name.find(':') != std::string::npos ||
           std::find(path.begin(), path.end(), "..") != path.end();
}

// A name that paths can't have, or that a file can't.
bool isRefusedWhenSized(std::string name, bool file) {
    std::replace(name.begin(), name.end(), '\\', '/');
    const std::filesystem::path path(name);
    const bool named =
        std::any_of(path.begin(), path.end(), [](const auto& part) { return !part.empty() && part != "."; });
    return !utf8::is_valid(name.begin(), name.end()) || name.find('\0') != std::string::npos ||
           (file && (!named || name.back() == '/'));
}

bool isIncomplete(const std::map<std::string, std::string>& records) {
    return std::any_of(records.begin(), records.end(), [](const auto& record) {
        return record.first.starts_with("GNU.sparse.") || record.first.starts_with("GNU.volume.");
    });
}

// False when they are malformed.
bool readRecords(const std::string& data, std::map<std::string, std::string>& records) {
    for (size_t begin = 0; begin < data.size();) {
        const size_t space = std::min(data.find(' ', begin), data.size());
        const auto length = number(data.data() + begin, data.data() + space, 10, true);
        if (!length || space == data.size() || *length > data.size() - begin || begin + *length <= space + 1)
            return false;
        const std::string record = data.substr(space + 1, begin + *length - space - 1);
        const size_t equals = record.find('=');
        if (record.back() != '\n' || equals == std::string::npos) return false;
        const std::string value = record.substr(equals + 1, record.size() - equals - 2);
        if (record.substr(0, equals) == "size" && !number(value.data(), value.data() + value.size(), 10, true))
            return false;
        records[record.substr(0, equals)] = value;
        begin += *length;
    }
    return true;
}

}  // namespace

unsigned tarChecksum(const uint8_t* header) {
    const unsigned sum = std::accumulate(header, header + 148, 8U * ' ');
    return std::accumulate(header + 156, header + kBlock, sum);
}

TarReading readTar(const uint8_t* archive, uint64_t size, bool sized) {
    TarReading reading{{}, TAR_EXTRACTION_ERROR};
    std::map<std::string, std::string> records;
    bool announced = false;  // by an extended header
    while (size >= kBlock) {
        const uint8_t* const header = archive;
        if (endsArchive(header, sized)) {
            if (sized && announced) break;
            reading.end = SUCCESS;
        } else if (!addsUp(header, sized)) {
            reading.end = TAR_CHECKSUM_ERROR;
        }
        if (reading.end != TAR_EXTRACTION_ERROR) break;
        archive += kBlock;
        size -= kBlock;
        const char kind = static_cast<char>(header[156]);
        const bool extension = kind == 'x' || kind == 'g' || (kind == 'L' && sized);
        std::optional<uint32_t> entrySize = sizeIn(header, sized);
        if (!extension && records.contains("size")) {
            const std::string& text = records["size"];
            entrySize = number(text.data(), text.data() + text.size(), 10, true);
        }
        if (!entrySize || *entrySize > size) break;
        const uint64_t padded = (*entrySize + kBlock - 1) / kBlock * kBlock;
        if (padded > size) break;
        const std::string data(reinterpret_cast<const char*>(archive), extension && sized ? *entrySize : 0);
        announced = extension && (announced || kind != 'g');
        if (kind == 'L' && sized) {
            records["path"] = data.substr(0, data.find('\0'));
        } else if (extension) {
            std::map<std::string, std::string> ofAll;
            std::map<std::string, std::string>& read = kind == 'g' ? ofAll : records;
            if (!readRecords(data, read)) break;
            if (ofAll.contains("path") || ofAll.contains("size") || isIncomplete(ofAll)) break;
        } else {
            std::string name = records.contains("path") ? records["path"] : nameIn(header);
            const bool incomplete = isIncomplete(records);
            records.clear();
            const bool directory =
                kind == '5' || (kind == '\0' && sized && (name.ends_with('/') || name.ends_with('\\')));
            const bool file = !directory && (kind == '0' || (kind == '\0' && sized));
            if (incomplete || (!file && !directory) || isRefused(name) || (sized && isRefusedWhenSized(name, file)))
                break;
            if (sized && directory && *entrySize > 0) break;
            reading.entries.push_back({directory, std::move(name), archive, *entrySize});
        }
        archive += padded;
        size -= padded;
    }
    return reading;
}

}  // namespace TarnoMirelo
