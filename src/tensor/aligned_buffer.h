#pragma once

#include <cstdint>
#include <memory>
#include <optional>

namespace TarnoMirelo {

/// An allocation that holds a buffer of which the beginning is aligned.
using BufferMemory = std::unique_ptr<void, void (*)(void*)>;

BufferMemory noMemory();

/// The size to ask `allocateZeroed` for. Byte counts that do not fit and negative ones become sizes that it refuses.
uint64_t allocationSize(std::optional<int64_t> byteCount);

/// Memory for a buffer of at least `size` bytes, all zero; there is a buffer of no bytes, too. Raises
/// `std::length_error` for sizes that no array can have, and `std::bad_alloc`.
BufferMemory allocateZeroed(uint64_t size);

/// The buffer, which begins at a multiple of 64 bytes; null where there is no memory.
uint8_t* alignedBuffer(const BufferMemory& memory);

}  // namespace TarnoMirelo
