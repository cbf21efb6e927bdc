#include "platform.h"

namespace TarnoMirelo::Kit::Platform {

bool isMisread(std::string_view /*name*/) { return false; }

}  // namespace TarnoMirelo::Kit::Platform
