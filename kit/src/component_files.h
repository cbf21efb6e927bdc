#pragma once

#include "strict_reader.h"

#include <TarnoMirelo/files.h>

#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo::Kit {

/// What the tool puts behind the name of a file that it protects.
inline constexpr std::string_view kProtectedSuffix = ".protected";

/// Whether a file of that name never got its final one, as in "net.onnx.17311943250571349521.part": see
/// `Platform::NewFile`.
bool isUnfinished(const std::string& name);

/// Looks for the files of components below the model's directory, and adds what is wrong to `findings`.
/// @param manifest  its name in that directory
void checkComponentFiles(const std::vector<ComponentEntry>& components, const Filepath& rootDir,
                         const std::string& manifest, FindingList& findings);

}  // namespace TarnoMirelo::Kit
