#include "engine.h"

#include "log.h"
#include "operator_domain.h"

#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/tensor.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace TarnoMirelo::OnnxRuntime {
namespace {

// The release 1.17.0 has version 17 of the interface.
uint32_t versionOf(const std::string& release) {
    const bool isKnown = release.rfind("1.", 0) == 0;
    return isKnown ? static_cast<uint32_t>(std::strtoul(release.c_str() + 2, nullptr, 10)) : 0;
}

Engine open() {
    const OrtApiBase& base = *OrtGetApiBase();
    Engine engine{nullptr, 0, base.GetVersionString(), nullptr};
    const uint32_t offered = versionOf(engine.release);
    // Asked for what it does not have, the engine writes to standard error.
    if (offered >= kLowestVersion) {
        engine.version = std::min<uint32_t>(offered, ORT_API_VERSION);
        engine.api = base.GetApi(engine.version);
    }
    if (engine.api == nullptr) {
        throw MLFrameworkException("ONNX Runtime is of release " + engine.release + ", wanted is 1." +
                                   std::to_string(kLowestVersion) + " or a later 1.x");
    }
    const auto require = [&](OrtStatus* status) {
        if (status == nullptr) return;
        const std::string text = engine.api->GetErrorMessage(status);
        engine.api->ReleaseStatus(status);
        throw MLFrameworkException("ONNX Runtime does not start: " + text);
    };
    require(engine.api->CreateEnvWithCustomLogger(&Log::writeEngineLine, nullptr, ORT_LOGGING_LEVEL_WARNING, "sdk-core",
                                                  &engine.environment));
    require(engine.api->DisableTelemetryEvents(engine.environment));
    return engine;
}

constexpr std::array<ONNXTensorElementDataType, 13> kTypes = {
    ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED, ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8,      ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16,     ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32,     ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64,     ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16,   ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT,
    ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE};

}  // namespace

const Engine& engine() {
    static const Engine opened = open();
    return opened;
}

void check(OrtStatus* status) {
    if (status == nullptr) return;
    struct ReleaseStatus {
        void operator()(OrtStatus* failed) const { api().ReleaseStatus(failed); }
    };
    const std::unique_ptr<OrtStatus, ReleaseStatus> owned(status);
    const std::string text = api().GetErrorMessage(status);
    if (const auto failure = operatorStatusIn(text)) throw Exception(failure->getDescription(), failure->getCode());
    throw EngineFailure(text, api().GetErrorCode(status));
}

const OrtMemoryInfo* hostMemory() {
    static const OrtMemoryInfo* const made =
        make<OrtMemoryInfo>(api().CreateCpuMemoryInfo, OrtDeviceAllocator, OrtMemTypeDefault).release();
    return made;
}

ONNXTensorElementDataType toEngineType(DataType type) {
    const auto index = static_cast<size_t>(type);
    return index < kTypes.size() ? kTypes[index] : ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
}

DataType toDataType(ONNXTensorElementDataType type) {
    const auto* const found = std::find(kTypes.begin(), kTypes.end(), type);
    return found == kTypes.end() ? DataType::Undefined : static_cast<DataType>(found - kTypes.begin());
}

std::string nameOf(ONNXTensorElementDataType type) {
    if (const DataType known = toDataType(type); known != DataType::Undefined) return Kit::toText(known);
    switch (type) {
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_STRING:
            return "string";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX64:
            return "complex64";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_COMPLEX128:
            return "complex128";
        case ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16:
            return "bfloat16";
        default:
            return "number " + std::to_string(type);
    }
}

}  // namespace TarnoMirelo::OnnxRuntime
