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

void AlignedBufferRelease::operator()(uint8_t* /*buffer*/) const noexcept { std::free(allocation); }

uint64_t allocationSize(std::optional<int64_t> byteCount) {
    return byteCount ? static_cast<uint64_t>(*byteCount) : std::numeric_limits<uint64_t>::max();
}

// calloc and not aligned operator new: large blocks come zeroed from the system, so nothing has to fill them.
AlignedBuffer allocateZeroed(uint64_t size) {
    if (size > kLargestBuffer) throw std::length_error("A tensor buffer of this size cannot be allocated");
    size_t space = static_cast<size_t>(size) + kAlignment;
    void* const allocation = std::calloc(1, space);
    if (allocation == nullptr) throw std::bad_alloc();
    void* aligned = allocation;
    std::align(kAlignment, static_cast<size_t>(size), aligned, space);
    return {static_cast<uint8_t*>(aligned), AlignedBufferRelease{allocation}};
}

}  // namespace TarnoMirelo
