#include "support/failing_new.h"

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>

namespace {

constexpr int kNever = -1;
thread_local int untilFailure = kNever;
thread_local bool hasFailed = false;

bool isCalledByUs(const void* caller) {
    Dl_info found{};
    return ::dladdr(caller, &found) != 0 && std::strstr(found.dli_fname, "/libsdk-core") != nullptr;
}

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
    if (untilFailure != kNever && isCalledByUs(__builtin_return_address(0)) && untilFailure-- == 0) {
        hasFailed = true;
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size > 0 ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { std::free(memory); }
