// The ONNX Runtime backend keeps the contract of a backend.

#include <TarnoMirelo/conformance.h>
#include <TarnoMirelo/onnxruntime.h>

#include <filesystem>
#include <random>

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

struct CacheFolder {
    CacheFolder()
        : path(std::filesystem::temp_directory_path() / ("sdk-core-" + std::to_string(std::random_device()()))) {}
    ~CacheFolder() { std::filesystem::remove_all(path); }

    std::filesystem::path path;
};

// Loads keep the optimised network, and later ones begin with it.
Conformance::Backend describeCached() {
    static const CacheFolder folder;
    OnnxRuntime::Options options;
    options.cacheDirectory = Filepath(folder.path.string());
    Conformance::Backend backend = describe();
    backend.makeModel = [options](const std::string& name, const std::shared_ptr<Device>& device) {
        return std::make_shared<OnnxRuntime::Model>(name, device, MireloConfig(), options);
    };
    options.rowsAreIndependent = true;
    backend.makeStackingModel = [options](const std::string& name, const std::shared_ptr<Device>& device) {
        return std::make_shared<OnnxRuntime::Model>(name, device, MireloConfig(), options);
    };
    return backend;
}

}  // namespace

MIRELO_CONFORMANCE(OnnxRuntime, describe);
MIRELO_CONFORMANCE(OnnxRuntimeCached, describeCached);
