#pragma once

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/manifest.h>

#include <functional>

namespace TarnoMirelo::Kit {

/// Reads a manifest and hands out each member of its "targets" that is an object and has one of the given keys, the
/// first one of a key. Raises `ModelMetaDataException` for a file that can't be read or is no manifest.
/// @param take  takes the target that was read
void readTargets(const Filepath& manifest, const std::function<void(ModelTarget target)>& take);

}  // namespace TarnoMirelo::Kit
