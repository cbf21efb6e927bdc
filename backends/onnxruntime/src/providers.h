#pragma once

#include <TarnoMirelo/model.h>

#include <onnxruntime_c_api.h>

namespace TarnoMirelo::OnnxRuntime {

/// Has a session compute with that provider. Raises `InvalidArgumentsException` where the engine lacks it.
void appendProvider(OrtSessionOptions& options, OrtEP provider);

}  // namespace TarnoMirelo::OnnxRuntime
