// Bytes as an ONNX network for what the ONNX Runtime backend reads of it before the engine does: an outline, or a
// refusal with its reason. The engine has faults of its own, which SECURITY.md tells of, and is left out.

#include "onnx_outline.h"
#include "support/require.h"

#include <TarnoMirelo/status.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    try {
        const OnnxRuntime::OnnxOutline outline = OnnxRuntime::readOutline(data, size);
        // Each has a key and a length of its own.
        const uint64_t most = size / 2;
        require(outline.nodes + outline.constants + outline.subgraphs <= most, "nothing is counted twice");
        require(outline.weightFiles.size() + outline.valuesWithShape.size() <= most, "nothing is invented");
        for (const std::string& location : outline.weightFiles) {
            require(location.size() < size, "a path is a part of the file");
        }
    } catch (const ModelMetaDataException& exception) {
        require(*exception.what() != '\0', "a refusal has a reason");
    }
    return 0;
}
