#include "tensor/aligned_buffer.h"

#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

constexpr uint64_t kAlignment = 64;
constexpr uint64_t kLargestBuffer = static_cast<uint64_t>(std::numeric_limits<ptrdiff_t>::max()) - kAlignment;

}  // namespace

BufferMemory noMemory() { return {nullptr, std::free}; }

uint64_t allocationSize(std::optional<int64_t> byteCount) {
    return byteCount ? static_cast<uint64_t>(*byteCount) : std::numeric_limits<uint64_t>::max();
}

// calloc and not aligned operator new: large blocks come zeroed from the system, so nothing has to fill them.
BufferMemory allocateZeroed(uint64_t size) {
    if (size > kLargestBuffer) throw std::length_error("A tensor buffer of this size cannot be allocated");
    BufferMemory memory(std::calloc(1, static_cast<size_t>(size) + kAlignment), std::free);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

uint8_t* alignedBuffer(const BufferMemory& memory) {
    if (memory == nullptr) return nullptr;
    const uint64_t beyond = reinterpret_cast<uintptr_t>(memory.get()) % kAlignment;  // the multiple before
    return static_cast<uint8_t*>(memory.get()) + (kAlignment - beyond);
}

}  // namespace TarnoMirelo
