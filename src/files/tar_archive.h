#pragma once

#include "files/tar.h"

#include <TarnoMirelo/status.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo::Tar {

/// Why an archive is not taken: `TAR_CHECKSUM_ERROR` or `TAR_EXTRACTION_ERROR`, and a text that names the entry and the
/// reason.
struct Refusal {
    STATUS_CODE code = TAR_EXTRACTION_ERROR;
    std::string text;
};

/// The refusal of one entry.
Refusal refused(std::string_view name, const std::string& why);

/// A file or a directory of an archive.
struct Entry {
    std::string name;  ///< as the archive has it; UTF-8, without a NUL, and inside of where it is put
    bool isDirectory = false;
    std::string_view data;  ///< lies in the archive; nothing for a directory
};

/// An archive of known length, read in place and entry by entry: what is not read whole is refused. docs/archives.md
/// tells what is taken.
class Archive {
 public:
    /// @param archive  borrowed; may be null where `size` is 0
    Archive(const unsigned char* archive, uint64_t size) : archive_(archive), size_(archive == nullptr ? 0 : size) {}

    /// Reads the next entry.
    /// @param entry  out: nothing at the end of the archive
    /// @return nothing, or why the rest is refused
    std::optional<Refusal> next(std::optional<Entry>& entry);

 private:
    std::optional<Refusal> atEnd() const;
    Refusal badChecksum(const Header& header) const;
    std::optional<std::string_view> take(std::optional<uint32_t> size);
    Refusal refusedSize(std::string_view name, std::optional<uint32_t> size) const;
    std::optional<Refusal> readExtension(const Header& header);
    std::optional<Refusal> readEntry(const Header& header, Entry& entry);

    const unsigned char* archive_;
    uint64_t size_;
    uint64_t offset_ = 0;      // of the next header
    ExtendedRecords records_;  // of the entry to come
    bool announced_ = false;   // whether an extended header has announced it
};

/// The components of a name, without the empty ones and ".".
std::vector<std::string_view> componentsOf(std::string_view name);

}  // namespace TarnoMirelo::Tar
