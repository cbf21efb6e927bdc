#pragma once

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/manifest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TarnoMirelo::Kit {

/// Reads a manifest and hands out each member of its "targets" that is an object and has one of the given keys, the
/// first one of a key. Raises `ModelMetaDataException` for a file that can't be read or is no manifest.
/// @param take  takes the target that was read
void readTargets(const Filepath& manifest, const std::function<void(ModelTarget target)>& take);

/// What a manifest says of a component and its file.
struct FileStatement {
    std::string name, path, kind;
    bool hasSize = false;
    std::optional<uint64_t> size;  ///< nothing where it is no number of bytes
    bool hasDigest = false;
    std::string digest;  ///< empty where it is no text
};

/// Reads the components of each target that `readTargets` reads. Raises as it does.
std::vector<FileStatement> readStatements(const Filepath& manifest);

}  // namespace TarnoMirelo::Kit
