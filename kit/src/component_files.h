#pragma once

#include "strict_reader.h"

#include <TarnoMirelo/files.h>

#include <vector>

namespace TarnoMirelo::Kit {

/// Looks for the files of components below the model's directory, and adds what is wrong to `findings`.
void checkComponentFiles(const std::vector<ComponentEntry>& components, const Filepath& rootDir, FindingList& findings);

}  // namespace TarnoMirelo::Kit
