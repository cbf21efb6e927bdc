#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Tar archives in the POSIX ustar layout, with the extended headers of the pax format (IEEE Std 1003.1, "pax").
namespace TarnoMirelo::Tar {

/// Headers and data come in blocks of this many bytes.
inline constexpr uint64_t kBlockSize = 512;

/// The kinds of entry that extraction knows.
inline constexpr char kFile = '0';
inline constexpr char kOldFile = '\0';  // of archives from before ustar
inline constexpr char kDirectory = '5';
inline constexpr char kGlobalHeader = 'g';
inline constexpr char kExtendedHeader = 'x';

/// The fields of one header block, read in place.
class Header {
 public:
    /// @param block  `kBlockSize` bytes, borrowed
    explicit Header(const unsigned char* block) : block_(reinterpret_cast<const char*>(block), kBlockSize) {}

    /// Whether this is no header, but the block behind the last entry.
    bool endsArchive() const;
    bool checksumMatches() const;
    /// Bytes of the entry's data. Nothing when the field holds no octal digit (sizes in base 256 included) or says 4
    /// GiB and more: such an entry is refused, never guessed at.
    std::optional<uint32_t> size() const;
    /// The entry's name, with the ustar prefix before it.
    std::string name() const;
    char kind() const;

 private:
    std::string_view field(size_t offset, size_t width) const { return block_.substr(offset, width); }

    std::string_view block_;
};

/// What an extended header says of the entry after it.
struct ExtendedRecords {
    std::optional<std::string> path;
    std::optional<uint32_t> size;
};

/// Reads the records of an extended header into `records`, over what is there. False when they are malformed, or give a
/// size of 4 GiB or more.
bool readRecords(std::string_view data, ExtendedRecords& records);

/// Whether an entry of that name lands under the directory it is extracted to: no ".." among its components, which
/// either slash separates, no leading slash, no ":"; and not empty, which would be
/// that directory itself.
bool staysInside(std::string_view name);

}  // namespace TarnoMirelo::Tar
