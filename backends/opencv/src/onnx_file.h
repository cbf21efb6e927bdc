#pragma once

#include <TarnoMirelo/kit/protection.h>
#include <TarnoMirelo/manifest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace TarnoMirelo::OpenCv {

/// What the file of an ONNX network says, read before the engine sees it.
struct OnnxFile {
    struct Input {
        std::string name;
        std::optional<std::vector<int64_t>> shape;  // -1 for an open dimension; nothing: not even the rank is known
    };

    std::vector<Input> inputs;                                     // without the constants
    std::set<std::string> customOperators;                         // that ONNX itself doesn't have, as "domain.type"
    std::unordered_map<std::string, std::string> nodes;            // `Node "name" (type)`, by the node's outputs
    std::unordered_map<std::string, std::vector<int64_t>> shapes;  // of values, -1 for an open dimension
    bool fusesWrongly = false;                                     // the engine may not fuse its layers
    Kit::SecretBytes repaired;                                     // the file in a form that the engine reads right
};

/// Reads a network's file, takes dimensions that it leaves open from the target, and repairs what the engine would read
/// wrong. Where the engine is right for a single row alone, the first dimension of the inputs is 1 afterwards.
///
/// Raises `ModelMetaDataException` for bytes that are no ONNX model, and for a node that the engine is known to compute
/// wrong without saying so; the text names the node and the reason.
OnnxFile readOnnxFile(const char* bytes, size_t size, const ModelTarget& target);

}  // namespace TarnoMirelo::OpenCv
