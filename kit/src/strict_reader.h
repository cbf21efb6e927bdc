#pragma once

#include "finding_list.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo::Kit {

/// What a manifest says of a component, where it is sound, and where it stands in the text.
struct ComponentEntry {
    std::string pointer;
    std::string type;
    std::string path;
    size_t pathOffset = 0;
    std::optional<uint64_t> size;
    size_t sizeOffset = 0;
    std::string sha256;
    size_t sha256Offset = 0;
};

/// Reads a manifest by the table of rules and adds what is wrong to `findings`.
/// @param text        of the manifest
/// @param components  out: those that have a path and a kind
void readStrictly(std::string_view text, FindingList& findings, std::vector<ComponentEntry>& components);

}  // namespace TarnoMirelo::Kit
