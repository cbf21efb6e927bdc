#pragma once

#include <cstdint>

namespace Bench {

/// How often this process has allocated from the C library so far, in programs that are linked with allocations.cpp.
/// Not locked: counts of threads at the same time may get lost.
uint64_t allocations();

}  // namespace Bench
