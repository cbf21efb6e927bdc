#pragma once

#include <chrono>
#include <cstdint>

namespace TarnoMirelo {

/// The system clock in 100-nanosecond ticks since 1 January 1970 UTC.
inline int64_t currentTicks() {
    using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;
    return std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace TarnoMirelo
