#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

namespace TarnoMirelo {

/// RapidJSON goes on with a null pointer when memory runs out. This allocator below its own raises instead.
class RaisingAllocator {
 public:
    [[maybe_unused]] static constexpr bool kNeedFree = true;  // part of RapidJSON's idea of an allocator

    static void* Malloc(size_t size) { return size == 0 ? nullptr : present(std::malloc(size)); }
    static void* Realloc(void* block, size_t /*oldSize*/, size_t newSize) {
        if (newSize != 0) return present(std::realloc(block, newSize));
        std::free(block);
        return nullptr;
    }
    static void Free(void* block) { std::free(block); }

 private:
    static void* present(void* block) {
        if (block == nullptr) throw std::bad_alloc();
        return block;
    }
};

}  // namespace TarnoMirelo
