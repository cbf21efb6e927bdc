#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

namespace TarnoMirelo::OnnxRuntime {

/// What the file of an ONNX network says that the engine is not asked for: read before the engine sees it.
struct OnnxOutline {
    std::set<std::pair<std::string, std::string>> operators;          // domain and type, of every domain but ONNX's own
    std::set<std::pair<std::string, std::string>> operatorsWithGaps;  // those of which a node leaves out an input
    bool isQuantised = false;                                         // has a QuantizeLinear
    bool hasIdleTranspose = false;          // a Transpose of two dimensions that leaves them as they are
    std::set<std::string> weightFiles;      // paths as the network has them, relative to its own folder
    std::set<std::string> valuesWithShape;  // inputs and outputs whose number of dimensions is declared

    // What the engine keeps for the network, as far as the file tells.
    uint64_t nodes = 0;  // without constants
    uint64_t constants = 0;
    uint64_t subgraphs = 0;
    uint64_t weightBytes = 0;          // of the constants of the graph itself, as their shapes say
    uint64_t widenedBytes = 0;         // that float16 constants grow by: at the last level, most nodes get floats
    uint64_t subgraphWeightBytes = 0;  // of those of subgraphs, as often as the engine keeps each of them
};

/// Raises `ModelMetaDataException` for bytes that are no ONNX network, or only a part of one, and for what is known to
/// crash the engine.
OnnxOutline readOutline(const uint8_t* bytes, uint64_t size);

}  // namespace TarnoMirelo::OnnxRuntime
