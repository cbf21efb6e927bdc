#include "telemetry.h"

namespace TarnoMirelo::OnnxRuntime {

// The engine hands its events to the system, which it is told to leave right after its start.
void declineTelemetry() {}

}  // namespace TarnoMirelo::OnnxRuntime
