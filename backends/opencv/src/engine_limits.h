#pragma once

#include "onnx_node.h"

#include <span>

namespace TarnoMirelo::OpenCv {

/// Nodes that the engine computes wrong without saying so, or that bring it down.
struct EngineLimit {
    const char* operators;  // the types, separated by spaces; "*" for any
    const char* condition;  // in words; docs/opencv.md has the same
    const char* reason;     // what the engine does instead
    bool (*applies)(const OnnxNode& node);
};

/// Found with scripts/networks over OpenCV 4.6, which also tells when one is out of date.
std::span<const EngineLimit> engineLimits();

/// The first limit that the node is beyond; null where it is within all.
const EngineLimit* limitOf(const OnnxNode& node);

/// Whether the engine computes the node right alone, and wrong with the layers that it fuses it with.
bool isFusedWrongly(const OnnxNode& node);

}  // namespace TarnoMirelo::OpenCv
