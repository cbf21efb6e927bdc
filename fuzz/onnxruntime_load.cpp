// Bytes as an ONNX network, read by the backend and by the engine: a network is loaded and can predict, or the status
// is one of those that the header lists and names the component.

#include "support/require.h"

#include <TarnoMirelo/onnxruntime.h>

#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo {
namespace {

// What the engine logs, and no one reads.
struct Silence : ILogProcessor {
    void Process(const LogEntry& entry) override { (void)entry; }
};

MireloConfig silent() {
    MireloConfig config;
    config.SetLogger(std::make_shared<Silence>());
    return config;
}

ModelFeatureDescriptor port(const char* name, const TensorShape& shape) {
    return {MireloFeatureType::Tensor, true, name, "", TensorDescriptor(shape, DataType::Undefined)};
}

bool isDocumented(STATUS_CODE code) {
    return code == SUCCESS || code == MODEL_METADATA_ERROR || code == FILE_ERROR || code == ML_FRAMEWORK_ERROR;
}

}  // namespace
}  // namespace TarnoMirelo

// The engine loses some bytes when it starts, and more for some networks that it refuses.
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    ModelTarget target;
    ModelComponent component{"net", "", Encryption(), ComponentKind::MemoryStream, {}};
    component.buffer.assign(data, data + size);
    target.components.push_back(component);
    target.inputs = {port("x", {-1, -1})};
    target.outputs = {port("y", {-1, -1})};
    OnnxRuntime::Options options;
    options.threadsWithinNodes = 1;
    OnnxRuntime::Model model("fuzz", MireloModelType::WinML, silent(), options);
    const MireloStatus status = model.load({MireloModelType::WinML, target, Filepath()});
    require(isDocumented(status.getCode()), "the status of a load is a documented one");
    require(status.ok() || status.getDescription().compare(0, 17, "Component \"net\": ") == 0,
            "it names the component");
    if (!status.ok()) return 0;
    const auto tensor = std::make_shared<Tensor>(DataType::Float, TensorShape(1, 2));
    MireloModel::Outputs outputs;
    const MireloStatus predicted =
        model.predict({std::make_shared<MireloFeatureTensor>(target.inputs[0], tensor)}, outputs);
    require(predicted.ok() == (outputs.size() == 1), "there are outputs after a success, and none after a failure");
    return 0;
}
