#pragma once

#include <span>
#include <string_view>

namespace TarnoMirelo::Kit {

/// The name that was probably meant: equal but for letter case, another word for it, or a few letters away. Empty where
/// none is near.
std::string_view nearestName(std::string_view name, std::span<const std::string_view> names);

}  // namespace TarnoMirelo::Kit
