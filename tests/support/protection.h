#pragma once

#include <TarnoMirelo/kit/protection.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace TarnoMirelo {

using Bytes = std::vector<uint8_t>;

inline constexpr unsigned char kTestKey[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
inline constexpr unsigned char kOtherKey[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 16};
inline constexpr unsigned char kNoKey[16] = {};

/// What every container that can't be opened is answered with.
inline const std::string kDoesNotOpen =
    "12: The protected content does not open: it is damaged, incomplete or no protected container, or it was protected "
    "with another key";

inline std::string stringOf(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }
inline Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

inline Bytes protectedBytes(const std::string& plain, const unsigned char* key = kTestKey) {
    Bytes container;
    const MireloStatus status = Kit::protect(plain.data(), plain.size(), key, container);
    if (!status.ok()) throw std::logic_error(status.getDescription());
    return container;
}

}  // namespace TarnoMirelo
