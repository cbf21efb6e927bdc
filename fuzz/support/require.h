#pragma once

#include <cstdio>
#include <cstdlib>

namespace TarnoMirelo {

/// Ends the process when a promise is broken: the fuzzer then keeps the input and says where.
inline void require(bool holds, const char* promise) {
    if (holds) return;
    static_cast<void>(std::fprintf(stderr, "Broken promise: %s\n", promise));
    std::abort();
}

}  // namespace TarnoMirelo
