#pragma once

namespace TarnoMirelo::OnnxRuntime {

/// Before the engine starts: asks it to collect nothing, unless the process's environment says otherwise. On Windows
/// nothing needs to be done so early. The build picks the file behind this header.
void declineTelemetry();

}  // namespace TarnoMirelo::OnnxRuntime
