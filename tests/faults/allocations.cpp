#include "faults/allocations.h"

#include <cstdlib>
#include <new>

// With --wrap=malloc, the linker sends calls of malloc to __wrap_malloc; __real_malloc is the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
void __real_free(void* memory);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace TarnoMirelo::Allocations {
namespace {

constexpr size_t kLargest = size_t{1} << 24;  // bytes that one allocation may take; no operation needs more

size_t untilFailure = 0;  // 0: none fails
bool everyOneAfter = false;
size_t failed = 0;
size_t living = 0;

bool fails() {
    if (untilFailure == 0 || --untilFailure > 0) return false;
    if (everyOneAfter) untilFailure = 1;
    ++failed;
    return true;
}

void* counted(void* memory) {
    if (memory != nullptr) ++living;
    return memory;
}

void* allocate(size_t size) {
    void* const memory = fails() || size > kLargest ? nullptr : counted(__real_malloc(size > 0 ? size : 1));
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept {
    if (memory != nullptr) --living;
    __real_free(memory);
}

}  // namespace

void failAt(size_t number, bool onwards) {
    untilFailure = number;
    everyOneAfter = onwards;
    failed = 0;
}

size_t stopFailing() {
    untilFailure = 0;
    return failed;
}

size_t alive() { return living; }

}  // namespace TarnoMirelo::Allocations

namespace Allocations = TarnoMirelo::Allocations;

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __wrap_malloc(size_t size) { return Allocations::fails() ? nullptr : Allocations::counted(__real_malloc(size)); }
void* __wrap_calloc(size_t count, size_t size) {
    return Allocations::fails() ? nullptr : Allocations::counted(__real_calloc(count, size));
}
void* __wrap_realloc(void* memory, size_t size) {
    if (Allocations::fails()) return nullptr;
    void* const moved = __real_realloc(memory, size);
    return memory == nullptr ? Allocations::counted(moved) : moved;
}
void __wrap_free(void* memory) { Allocations::release(memory); }
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(size_t size) { return Allocations::allocate(size); }
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {  // by which std::stable_sort asks for more
    try {
        return Allocations::allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept { Allocations::release(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { Allocations::release(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { Allocations::release(memory); }
