// The OpenCV backend keeps the contract of a backend.

#include <TarnoMirelo/conformance.h>
#include <TarnoMirelo/opencv.h>

using namespace TarnoMirelo;

namespace {

Conformance::Backend describe() {
    Conformance::Backend backend;
    backend.makeModel = [](const std::string& name, const std::shared_ptr<Device>& device) {
        return std::make_shared<OpenCv::Model>(name, device);
    };
    backend.makeStackingModel = [](const std::string& name, const std::shared_ptr<Device>& device) {
        OpenCv::Options options;
        options.rowsAreIndependent = true;
        return std::make_shared<OpenCv::Model>(name, device, MireloConfig(), options);
    };
    // The engine computes in floats, and can't do without an input.
    backend.packages = {"identity", "sum", "two_outputs", "variable_shape", "lstm", "gemm"};
    backend.floatInputTypes = {DataType::UInt8, DataType::Int8,    DataType::UInt16, DataType::Int16,
                               DataType::Int32, DataType::Float16, DataType::Float,  DataType::Double};
    return backend;
}

}  // namespace

MIRELO_CONFORMANCE(OpenCv, describe);
