#pragma once

#include <TarnoMirelo/status.h>

#include <cstdint>
#include <memory>
#include <onnxruntime_c_api.h>
#include <optional>
#include <string>

namespace TarnoMirelo {
enum class DataType : int32_t;
}

namespace TarnoMirelo::OnnxRuntime {

/// The lowest version of the engine's interface that has every function used here; the engine's release has the same
/// number, as in 1.17. Functions that came later are called only where `Engine::version` says that they are there.
constexpr uint32_t kLowestVersion = 17;
/// That can be told where the weights of a network in memory lie. Others look in the process's working directory.
constexpr uint32_t kVersionWithWeightsFolder = 22;

/// The engine of this process.
struct Engine {
    const OrtApi* api;
    uint32_t version;     // of the interface in use: the engine's or that of the headers, whichever is lower
    std::string release;  // as the engine calls itself, "1.29.0"
    OrtEnv* environment;  // lives as long as the process
};

/// Raises `MLFrameworkException` for an engine that is too old.
const Engine& engine();

inline const OrtApi& api() { return *engine().api; }

/// The engine failed, with its text and its code.
struct EngineFailure : MLFrameworkException {
    EngineFailure(const std::string& text, OrtErrorCode engineCode) : MLFrameworkException(text), code(engineCode) {}

    OrtErrorCode code;
};

/// Raises `EngineFailure` where the engine says so, and `Exception` with the status of an operator of the host's. Takes
/// the status.
void check(OrtStatus* status);

struct Release {
    void operator()(OrtSession* object) const { api().ReleaseSession(object); }
    void operator()(OrtSessionOptions* object) const { api().ReleaseSessionOptions(object); }
    void operator()(OrtRunOptions* object) const { api().ReleaseRunOptions(object); }
    void operator()(OrtIoBinding* object) const { api().ReleaseIoBinding(object); }
    void operator()(OrtValue* object) const { api().ReleaseValue(object); }
    void operator()(OrtAllocator* object) const { api().ReleaseAllocator(object); }
    void operator()(OrtMemoryInfo* object) const { api().ReleaseMemoryInfo(object); }
    void operator()(OrtTypeInfo* object) const { api().ReleaseTypeInfo(object); }
    void operator()(OrtTensorTypeAndShapeInfo* object) const { api().ReleaseTensorTypeAndShapeInfo(object); }
};

/// An object of the engine's.
template <typename Object>
using Owned = std::unique_ptr<Object, Release>;

/// Has the engine make an object: make<OrtRunOptions>(api().CreateRunOptions).
template <typename Object, typename Maker, typename... Arguments>
Owned<Object> make(Maker maker, Arguments... arguments) {
    Object* made = nullptr;
    check(maker(arguments..., &made));
    return Owned<Object>(made);
}

/// Memory that host and engine share.
const OrtMemoryInfo* hostMemory();

/// The engine's number of an element type; `UNDEFINED` for one that has no elements.
ONNXTensorElementDataType toEngineType(DataType type);
/// The element type of that number; `Undefined` where tensors of this library have none such.
DataType toDataType(ONNXTensorElementDataType type);
/// What the engine's documentation calls the type, as in "bfloat16"; its number where that isn't known.
std::string nameOf(ONNXTensorElementDataType type);

}  // namespace TarnoMirelo::OnnxRuntime
