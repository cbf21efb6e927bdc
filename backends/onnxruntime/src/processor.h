#pragma once

#include <string>

namespace TarnoMirelo::OnnxRuntime {

/// What tells processors apart for which the engine lays out a network differently; empty where that isn't known. The
/// build picks the file behind this header.
std::string processorFeatures();

}  // namespace TarnoMirelo::OnnxRuntime
