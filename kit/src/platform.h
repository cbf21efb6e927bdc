#pragma once

#include <string_view>

namespace TarnoMirelo::Kit::Platform {

/// Whether the system takes a name in a path for something else than a file of that name: a device, or a file of
/// another name. "." and ".." are not asked about.
bool isMisread(std::string_view name);

}  // namespace TarnoMirelo::Kit::Platform
