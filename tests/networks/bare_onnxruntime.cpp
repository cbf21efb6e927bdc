// Runs packaged networks straight on ONNX Runtime, without the backend, and prints what came of them as the trial's
// other programs do. What the engine has right, the backend must have right, too.

#include "package.h"

#include <algorithm>
#include <array>
#include <onnxruntime_cxx_api.h>

using namespace TarnoMirelo;

namespace {

// The engine's element type by the library's number.
constexpr std::array<ONNXTensorElementDataType, 13> kTypes = {
    ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED, ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8,      ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16,     ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32,     ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64,     ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16,   ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE};

DataType toDataType(ONNXTensorElementDataType type) {
    const auto* const found = std::find(kTypes.begin(), kTypes.end(), type);
    if (found == kTypes.end()) throw std::invalid_argument("An output has elements that the library has no type for");
    return static_cast<DataType>(found - kTypes.begin());
}

Ort::Value makeTensor(const ModelFeatureDescriptor& descriptor, RowReader& row) {
    Ort::AllocatorWithDefaultOptions allocator;
    const std::vector<int64_t> shape = descriptor.tensorDescriptor().shape().shapeVector();
    Ort::Value tensor =
        Ort::Value::CreateTensor(allocator, shape.data(), shape.size(),
                                 kTypes.at(static_cast<size_t>(descriptor.tensorDescriptor().tensorType())));
    row.take(static_cast<uint8_t*>(tensor.GetTensorMutableRawData()), tensor.GetTensorSizeInBytes());
    return tensor;
}

void predict(Ort::Session& session, const ModelTarget& target, size_t index, const Bytes& row) {
    std::vector<const char*> inputNames;
    std::vector<const char*> outputNames;
    std::vector<Ort::Value> inputs;
    RowReader reader(row);
    for (const std::string& name : target.outputNames) outputNames.push_back(name.c_str());
    for (const std::string& name : target.inputNames) inputNames.push_back(name.c_str());
    for (const ModelFeatureDescriptor& input : target.inputs) inputs.push_back(makeTensor(input, reader));
    reader.end();
    const std::vector<Ort::Value> outputs = session.Run(Ort::RunOptions(), inputNames.data(), inputs.data(),
                                                        inputs.size(), outputNames.data(), outputNames.size());
    tell("predict " + std::to_string(index), MireloStatus(SUCCESS, ""));
    for (size_t i = 0; i < outputs.size(); ++i) {
        const Ort::TensorTypeAndShapeInfo info = outputs[i].GetTensorTypeAndShapeInfo();
        tell("predict", index, target.outputNames[i], toDataType(info.GetElementType()), info.GetShape(),
             static_cast<const uint8_t*>(outputs[i].GetTensorRawData()), outputs[i].GetTensorSizeInBytes());
    }
}

void run(const Filepath& folder) {
    static const Ort::Env environment(ORT_LOGGING_LEVEL_FATAL);
    Ort::SessionOptions options;
    options.SetIntraOpNumThreads(1);  // more take longer to start than the networks to run
    ModelMetadata metadata;
    if (!metadata.load(inside(folder, "manifest.json")).ok()) throw std::invalid_argument("There is no manifest");
    const ModelTarget target = std::get<ModelTarget>(metadata.getModelCompoents(MireloModelType::WinML));
    const Bytes network = readFile(inside(folder, "network.onnx"));
    std::string operation = "load";
    try {
        Ort::Session session(environment, network.data(), network.size(), options);
        for (const size_t index : {size_t{0}, size_t{1}}) {
            operation = "predict " + std::to_string(index);
            predict(session, target, index, readRow(folder, index));
        }
    } catch (const Ort::Exception& exception) {
        tell(operation, MireloStatus(ML_FRAMEWORK_ERROR, exception.what()));
    }
}

}  // namespace

int main(int argc, char** argv) { return runEach(argc, argv, run); }
