#pragma once

#include <TarnoMirelo/status.h>

#include <string>

namespace TarnoMirelo {

inline const std::string kSuccess = "1: ";

/// Code and description of a status, as in "12: No model component found".
inline std::string text(const MireloStatus& status) {
    return std::to_string(status.getCode()) + ": " + status.getDescription();
}

/// The same for what `work` raises; "nothing" when it raises nothing.
template <typename Work>
std::string raised(const Work& work) {
    try {
        work();
    } catch (...) {
        return text(getStatusFromCurrentException());
    }
    return "nothing";
}

}  // namespace TarnoMirelo
