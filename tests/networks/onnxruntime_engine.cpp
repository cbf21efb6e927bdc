#include "engine.h"

#include <TarnoMirelo/onnxruntime.h>

std::shared_ptr<TarnoMirelo::MireloModel> makeModel() {
    return std::make_shared<TarnoMirelo::OnnxRuntime::Model>("network", TarnoMirelo::MireloModelType::WinML);
}
