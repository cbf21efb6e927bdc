// The ONNX Runtime backend keeps the contract of a backend.

#include <TarnoMirelo/conformance.h>
#include <TarnoMirelo/onnxruntime.h>

using namespace TarnoMirelo;

namespace {

Conformance::Backend describe() {
    Conformance::Backend backend;
    backend.makeModel = [](const std::string& name, const std::shared_ptr<Device>& device) {
        return std::make_shared<OnnxRuntime::Model>(name, device);
    };
    backend.makeStackingModel = [](const std::string& name, const std::shared_ptr<Device>& device) {
        OnnxRuntime::Options options;
        options.rowsAreIndependent = true;
        return std::make_shared<OnnxRuntime::Model>(name, device, MireloConfig(), options);
    };
    backend.packages = {"identity", "sum", "two_outputs", "variable_shape", "int64", "lstm", "optional_input", "gemm"};
    backend.mayOverlap = true;
    return backend;
}

}  // namespace

MIRELO_CONFORMANCE(OnnxRuntime, describe);
