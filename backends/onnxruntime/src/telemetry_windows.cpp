// The engine's releases from Microsoft collect what they are used for, from before their interface can be asked not to:
// this variable is what they look at.

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace TarnoMirelo::OnnxRuntime {
namespace {

[[maybe_unused]] const bool kIsOff = ::SetEnvironmentVariableA("ORT_DISABLE_TELEMETRY", "1") != FALSE;

}  // namespace
}  // namespace TarnoMirelo::OnnxRuntime
