#pragma once

#include <TarnoMirelo/manifest.h>

namespace TarnoMirelo {

/// As `ModelTypeToName`, without a copy: constant text.
const char* modelTypeText(MireloModelType type);

}  // namespace TarnoMirelo
