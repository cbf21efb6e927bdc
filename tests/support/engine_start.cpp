// ONNX Runtime loses some bytes when it starts. It does so here, where nobody looks; what is lost later is told.

#include <TarnoMirelo/onnxruntime.h>

#include <sanitizer/lsan_interface.h>

namespace {

struct EngineStart {
    EngineStart() {
        const __lsan::ScopedDisabler disabler;
        TarnoMirelo::OnnxRuntime::devices();
    }
};

const EngineStart started;

}  // namespace
