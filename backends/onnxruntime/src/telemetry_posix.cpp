// The engine's releases from Microsoft collect what they are used for and send it, with a database in the user's cache
// folder. That begins with the engine's environment, before its interface could be asked not to: this variable is what
// they look at. It is set while the library is loaded, since the system's list of variables has no lock, and threads of
// the host may read it later.

#include <cstdlib>

namespace TarnoMirelo::OnnxRuntime {
namespace {

[[maybe_unused]] const bool kIsOff = ::setenv("ORT_DISABLE_TELEMETRY", "1", 1) == 0;

}  // namespace
}  // namespace TarnoMirelo::OnnxRuntime
