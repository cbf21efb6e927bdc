#include "support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

constexpr int kNever = -1;
thread_local int untilFailure = kNever;
thread_local bool hasFailed = false;

}  // namespace

namespace TarnoMirelo {

void failNewAfter(int count) {
    untilFailure = count;
    hasFailed = false;
}

bool stopFailingNew() {
    untilFailure = kNever;
    return hasFailed;
}

}  // namespace TarnoMirelo

void* operator new(size_t size) {
    if (untilFailure != kNever && untilFailure-- == 0) {
        hasFailed = true;
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size > 0 ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { std::free(memory); }
