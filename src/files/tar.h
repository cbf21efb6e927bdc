#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Tar archives in the POSIX ustar layout, with the extended headers of the pax format (IEEE Std 1003.1, "pax") and the
/// long names of GNU's.
namespace TarnoMirelo::Tar {

/// Headers and data come in blocks of this many bytes.
inline constexpr uint64_t kBlockSize = 512;

/// The kinds of entry that extraction knows.
inline constexpr char kFile = '0';
inline constexpr char kOldFile = '\0';  // of archives from before ustar; a directory where the name ends in a slash
inline constexpr char kDirectory = '5';
inline constexpr char kGlobalHeader = 'g';
inline constexpr char kExtendedHeader = 'x';
inline constexpr char kLongName = 'L';

/// The fields of one header block, read in place.
class Header {
 public:
    /// @param block  `kBlockSize` bytes, borrowed
    explicit Header(const unsigned char* block) : block_(reinterpret_cast<const char*>(block), kBlockSize) {}

    /// Whether the first byte is zero: without extended headers, nothing else has an empty name.
    bool startsWithZero() const;
    bool isZero() const;
    /// The sum of the header's bytes, the checksum field counted as spaces.
    uint32_t sum() const;
    /// What the checksum field says as a number: octal digits, behind blanks or zero bytes. Nothing without a digit.
    std::optional<uint32_t> checksum() const;
    /// Whether the checksum field begins with the sum in six octal digits.
    bool hasSixDigitChecksum() const;
    /// Bytes of the entry's data. Nothing when the field holds no octal digit (sizes in base 256 included) or says 4
    /// GiB and more: such an entry is refused, never guessed at.
    std::optional<uint32_t> size() const;
    /// As `size`; nothing, either, where the digits end in anything but a blank, a zero byte or the field's end.
    std::optional<uint32_t> wholeSize() const;
    /// The entry's name, with the ustar prefix before it.
    std::string name() const;
    char kind() const;

 private:
    std::string_view field(size_t offset, size_t width) const { return block_.substr(offset, width); }

    std::string_view block_;
};

/// The blocks that so many bytes of data fill, in bytes.
constexpr uint64_t paddedSize(uint32_t size) { return (uint64_t{size} + kBlockSize - 1) / kBlockSize * kBlockSize; }

/// What an extended header says of the entry after it.
struct ExtendedRecords {
    std::optional<std::string> path;
    std::optional<uint32_t> size;
    const char* incomplete = nullptr;  // what the entry is where its data is not all of the file
};

/// Reads the records of an extended header into `records`, over what is there.
/// @return why they are refused: malformed, or a size of 4 GiB or more; empty when they are not
std::string readRecords(std::string_view data, ExtendedRecords& records);

/// Why an entry of that name would not land below the directory that it is extracted to; null when it would. Either
/// slash separates components.
const char* confinementProblem(std::string_view name);

/// What a kind of entry is called.
std::string kindName(char kind);

/// A name in quotes, to be shown: what is not plain UTF-8 text is escaped, and of a long name only its beginning given.
std::string quoted(std::string_view name);

}  // namespace TarnoMirelo::Tar
