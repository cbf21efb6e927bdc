#include "allocations.h"

#include <cstddef>

// Names of the C library's own. NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

uint64_t made = 0;

}  // namespace

// They replace the C library's: every allocation of the process comes through here.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {
__attribute__((visibility("default"))) void* malloc(size_t size) {
    ++made;
    return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(size_t count, size_t size) {
    ++made;
    return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, size_t size) {
    ++made;
    return __libc_realloc(block, size);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

uint64_t Bench::allocations() { return made; }
