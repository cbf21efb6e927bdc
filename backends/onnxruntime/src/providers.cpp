#include "providers.h"

#include "engine.h"

#include <TarnoMirelo/onnxruntime.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace TarnoMirelo::OnnxRuntime {
namespace {

struct Provider {
    OrtEP provider;
    const char* name;       // the engine's
    const char* shortName;  // by which the engine's general function appends it
    DeviceType deviceType;
};

constexpr std::array<Provider, 6> kProviders = {{
    {OrtEP::CPU, "CPUExecutionProvider", "CPU", DeviceType::CPU},
    {OrtEP::CUDA, "CUDAExecutionProvider", "CUDA", DeviceType::GPU},
    {OrtEP::DirectML, "DmlExecutionProvider", "DML", DeviceType::GPU},
    {OrtEP::OpenVINO, "OpenVINOExecutionProvider", "OpenVINO", DeviceType::Undefined},
    {OrtEP::CoreML, "CoreMLExecutionProvider", "CoreML", DeviceType::Undefined},
    {OrtEP::TensorRT, "TensorrtExecutionProvider", "TensorRT", DeviceType::GPU},
}};

// Of those that the engine was built with, in its order of preference.
std::vector<Provider> available() {
    char** names = nullptr;
    int count = 0;
    check(api().GetAvailableProviders(&names, &count));
    std::vector<Provider> found;
    for (int i = 0; i < count; ++i) {
        const auto isNamed = [&](const Provider& known) { return std::strcmp(known.name, names[i]) == 0; };
        const auto* const known = std::find_if(kProviders.begin(), kProviders.end(), isNamed);
        if (known != kProviders.end()) found.push_back(*known);
    }
    check(api().ReleaseAvailableProviders(names, count));
    return found;
}

void append(OrtSessionOptions& options, const Provider& provider) {
    if (provider.provider == OrtEP::CUDA) {
        OrtCUDAProviderOptionsV2* made = nullptr;
        check(api().CreateCUDAProviderOptions(&made));
        OrtStatus* const status = api().SessionOptionsAppendExecutionProvider_CUDA_V2(&options, made);
        api().ReleaseCUDAProviderOptions(made);
        check(status);
    } else if (provider.provider == OrtEP::TensorRT) {
        OrtTensorRTProviderOptionsV2* made = nullptr;
        check(api().CreateTensorRTProviderOptions(&made));
        OrtStatus* const status = api().SessionOptionsAppendExecutionProvider_TensorRT_V2(&options, made);
        api().ReleaseTensorRTProviderOptions(made);
        check(status);
    } else {
        check(api().SessionOptionsAppendExecutionProvider(&options, provider.shortName, nullptr, nullptr, 0));
    }
}

}  // namespace

void appendProvider(OrtSessionOptions& options, OrtEP provider) {
    if (provider == OrtEP::Undefined || provider == OrtEP::CPU) return;  // the engine always has it
    const std::vector<Provider> all = available();
    const auto isWanted = [&](const Provider& known) { return known.provider == provider; };
    if (const auto found = std::find_if(all.begin(), all.end(), isWanted); found != all.end()) {
        append(options, *found);
        return;
    }
    const auto* const known = std::find_if(kProviders.begin(), kProviders.end(), isWanted);
    std::string text = "This engine has no execution provider ";
    text += known == kProviders.end() ? "of number " + std::to_string(static_cast<uint64_t>(provider)) : known->name;
    text += ", but ";
    for (size_t i = 0; i < all.size(); ++i) text.append(i == 0 ? "" : ", ").append(all[i].name);
    throw InvalidArgumentsException(text);
}

std::vector<std::shared_ptr<Device>> devices() {
    std::vector<std::shared_ptr<Device>> found;
    for (const Provider& provider : available()) {
        found.push_back(std::make_shared<Device>(provider.name, MireloModelType::OnnxRuntime, provider.deviceType,
                                                 provider.provider));
    }
    return found;
}

}  // namespace TarnoMirelo::OnnxRuntime
