#pragma once

#include <TarnoMirelo/status.h>

#include <stdexcept>
#include <string>

/// Raises what the library says of a step that failed.
inline void require(const std::string& step, const TarnoMirelo::MireloStatus& status) {
    if (status.ok()) return;
    throw std::runtime_error(step + " failed with status " + std::to_string(status.getCode()) + ": \"" +
                             status.getDescription() + "\"");
}
