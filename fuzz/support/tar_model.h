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

/// @param size  bytes that may be read
/// @param pax   whether extended headers count, and entries of the oldest kind
TarReading readTar(const uint8_t* archive, uint64_t size, bool pax);

}  // namespace TarnoMirelo
