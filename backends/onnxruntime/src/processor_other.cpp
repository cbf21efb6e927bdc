#include "processor.h"

namespace TarnoMirelo::OnnxRuntime {

std::string processorFeatures() { return {}; }

}  // namespace TarnoMirelo::OnnxRuntime
