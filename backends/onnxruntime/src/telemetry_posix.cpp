#include "telemetry.h"

#include <cstdlib>

namespace TarnoMirelo::OnnxRuntime {

// From release 1.29 on, the engine keeps a number for the user and a database in the home directory, and sends what it
// has collected to its maker, from its start on. Nothing but this variable stops it before that.
void declineTelemetry() { setenv("ORT_DISABLE_TELEMETRY", "1", 0); }

}  // namespace TarnoMirelo::OnnxRuntime
