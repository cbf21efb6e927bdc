#pragma once

#include <TarnoMirelo/status.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TarnoMirelo {

/// A file or directory of an archive.
struct TarEntry {
    bool directory;
    std::string name;
    const uint8_t* data;
    uint32_t size;
};

/// An archive as another reader than the library's sees it.
struct TarReading {
    std::vector<TarEntry> entries;  // before the end, or the one that can't be extracted
    STATUS_CODE end;                // how extraction ends when each of them could be written
};

/// What the checksum field of a header block should say.
unsigned tarChecksum(const uint8_t* header);

/// @param size   bytes that may be read
/// @param sized  how an archive of known length is read: with extended headers, long names, entries of the oldest kind
///               and checksums in any spelling
TarReading readTar(const uint8_t* archive, uint64_t size, bool sized);

}  // namespace TarnoMirelo
