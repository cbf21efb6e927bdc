// Bytes as an ONNX network for the OpenCV backend: read or refused with a reason, and what is repaired can be read
// again.

#include "onnx_file.h"
#include "support/require.h"

#include <TarnoMirelo/feature.h>
#include <TarnoMirelo/status.h>

#include <onnx/onnx_pb.h>
#include <onnx/shape_inference/implementation.h>

// In the place of the library's, which reads beside its lists where a damaged network's shapes don't fit its nodes.
// That is the library's to mend; here it would hide what this backend does.
void onnx::shape_inference::InferShapes(ModelProto& /*model*/, const ISchemaRegistry* /*registry*/,
                                        const ShapeInferenceOptions& /*options*/,
                                        std::unordered_map<std::string, TensorShapeProto>* /*shapes*/) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static const ModelTarget target = [] {
        ModelTarget made;
        made.inputs.emplace_back(MireloFeatureType::Tensor, true, "x", "",
                                 TensorDescriptor(TensorShape({1, 3}), DataType::Float));
        return made;
    }();
    try {
        const OpenCv::OnnxFile file = OpenCv::readOnnxFile(reinterpret_cast<const char*>(data), size, target);
        onnx::ModelProto repaired;
        require(repaired.ParseFromArray(file.repaired.data(), static_cast<int>(file.repaired.size())),
                "what is repaired is a network");
    } catch (const ModelMetaDataException& exception) {
        require(*exception.what() != '\0', "a refusal has a reason");
    }
    return 0;
}
