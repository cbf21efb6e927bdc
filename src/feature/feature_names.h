#pragma once

#include <array>
#include <string_view>

namespace TarnoMirelo {

/// The texts of `MireloFeatureType` and `MireloPixelType`, by value; manifests use the same.
inline constexpr std::array<std::string_view, 8> kFeatureTypeNames = {"bool",   "uint8",  "int32",  "int64",
                                                                      "double", "string", "tensor", "image"};
inline constexpr std::array<std::string_view, 5> kPixelTypeNames = {"one", "BGR", "RGB", "RGBA", "BGRA"};

}  // namespace TarnoMirelo
