#pragma once

#include <string_view>

namespace TarnoMirelo::Kit {

/// Whether Windows takes a name for a device's: in every directory, in any letter case, with any extension and with
/// spaces before it.
bool isWindowsDevice(std::string_view name);

}  // namespace TarnoMirelo::Kit
