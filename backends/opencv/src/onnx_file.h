#pragma once

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

    std::vector<Input> inputs;                           // without the constants
    std::set<std::string> customOperators;               // of domains other than ONNX's own, as "domain.type"
    std::unordered_map<std::string, std::string> nodes;  // `Node "name" (type)`, by the node's first output
    std::string repaired;                                // the file in a form that the engine reads right
};

/// Reads a network's file, and repairs what the engine would read wrong.
///
/// Raises `ModelMetaDataException` for bytes that are no ONNX model, and for a node that the engine is known to compute
/// wrong without saying so; the text names the node and the reason.
OnnxFile readOnnxFile(const char* bytes, size_t size);

}  // namespace TarnoMirelo::OpenCv
