#include "backend.h"

#include <TarnoMirelo/onnxruntime.h>

std::shared_ptr<TarnoMirelo::MireloModel> makeModel(const std::string& name,
                                                    const std::shared_ptr<TarnoMirelo::Device>& device) {
    TarnoMirelo::OnnxRuntime::Options options;
    options.rowsAreIndependent = true;  // the network looks at each image by itself
    return std::make_shared<TarnoMirelo::OnnxRuntime::Model>(name, device, TarnoMirelo::MireloConfig(), options);
}
