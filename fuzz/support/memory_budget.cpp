#include "support/memory_budget.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace TarnoMirelo {
namespace {

thread_local MemoryBudget* current = nullptr;

bool granted(size_t size) { return current == nullptr || current->take(size); }

}  // namespace

MemoryBudget::MemoryBudget(int64_t bytes) : left_(bytes) { current = this; }
MemoryBudget::~MemoryBudget() { current = nullptr; }

bool MemoryBudget::take(size_t size) {
    if (left_ < 0 || size > static_cast<uint64_t>(left_)) {
        ++refusals_;
        return false;
    }
    left_ -= static_cast<int64_t>(size);
    allocated_ += static_cast<int64_t>(size);
    return true;
}

}  // namespace TarnoMirelo

// The linker puts each __wrap_ in the place of the C library's function, which is __real_ then.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);

void* __wrap_malloc(size_t size) { return TarnoMirelo::granted(size) ? __real_malloc(size) : nullptr; }

void* __wrap_calloc(size_t count, size_t size) {
    size_t bytes = 0;
    const bool possible = !__builtin_mul_overflow(count, size, &bytes) && TarnoMirelo::granted(bytes);
    return possible ? __real_calloc(count, size) : nullptr;
}

void __wrap_free(void* block) {
    if (TarnoMirelo::current != nullptr) TarnoMirelo::current->giveBack(malloc_usable_size(block));
    __real_free(block);
}

void* __wrap_realloc(void* block, size_t size) {
    if (!TarnoMirelo::granted(size)) return nullptr;
    if (TarnoMirelo::current != nullptr) TarnoMirelo::current->giveBack(malloc_usable_size(block));
    return __real_realloc(block, size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

void* operator new(size_t size) {
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept { return std::malloc(size == 0 ? 1 : size); }
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t /*size*/) noexcept { std::free(block); }
void operator delete[](void* block, size_t /*size*/) noexcept { std::free(block); }
