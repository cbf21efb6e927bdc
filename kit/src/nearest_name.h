#pragma once

#include <span>
#include <string_view>

namespace TarnoMirelo::Kit {

/// The name that was probably meant: equal but for letter case, another word for it, or a few letters away, with the
/// same digits. Empty where none is near.
std::string_view nearestName(std::string_view name, std::span<const std::string_view> names);

/// As `nearestName`, for types: one whose name has a letter more, as "bfloat16" or "ARGB", is another type.
std::string_view nearestType(std::string_view name, std::span<const std::string_view> names);

}  // namespace TarnoMirelo::Kit
