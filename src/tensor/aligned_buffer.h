#pragma once

#include <TarnoMirelo/tensor.h>

#include <optional>

namespace TarnoMirelo {

/// The size to ask `allocateZeroed` for. Byte counts that do not fit and negative ones become sizes that it refuses.
uint64_t allocationSize(std::optional<int64_t> byteCount);

/// A present buffer of at least `size` bytes, all zero; one of no bytes is present too. Raises `std::length_error` for
/// sizes that no array can have, and `std::bad_alloc`.
AlignedBuffer allocateZeroed(uint64_t size);

}  // namespace TarnoMirelo
