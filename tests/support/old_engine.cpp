// An engine that is too old: it answers as release 1.16.3 would, and has no interface that is asked for.

#include <onnxruntime_c_api.h>

namespace {

const OrtApi* getInterface(uint32_t /*version*/) noexcept { return nullptr; }
const char* getVersion() noexcept { return "1.16.3"; }

}  // namespace

extern "C" __attribute__((visibility("default"))) const OrtApiBase* OrtGetApiBase() noexcept {
    static const OrtApiBase base{getInterface, getVersion};
    return &base;
}
