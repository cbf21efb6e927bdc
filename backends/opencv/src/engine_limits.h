#pragma once

#include "onnx_node.h"

#include <span>

namespace TarnoMirelo::OpenCv {

/// A node that the engine computes wrong without saying so.
struct EngineLimit {
    const char* operators;  // the types, separated by spaces
    const char* condition;  // in words; docs/opencv.md has the same
    const char* reason;     // what the engine does instead
    bool (*applies)(const OnnxNode& node);
};

/// Found with scripts/networks over OpenCV 4.6, which also tells when one is out of date.
std::span<const EngineLimit> engineLimits();

/// The first limit that the node is beyond; null where it is within all.
const EngineLimit* limitOf(const OnnxNode& node);

}  // namespace TarnoMirelo::OpenCv
