#pragma once

#include "onnx_outline.h"

#include <TarnoMirelo/kit/components.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace TarnoMirelo::OnnxRuntime {

/// A network as it lies in a component.
struct NetworkFile {
    Kit::ComponentBytes bytes;
    OnnxOutline outline;
    /// Where the bytes come from; empty for a component in memory.
    std::filesystem::path path;
    /// Of the weights that lie in files of their own.
    std::vector<std::filesystem::path> weights;
    /// The files of a protected archive, in which the bytes lie.
    Kit::ComponentFiles archive;
    /// Weights that lie in the archive, by the path that the network has for them.
    std::vector<std::pair<std::string, const Kit::ComponentFiles::File*>> archivedWeights;
    /// Whether the component is protected: nothing of it may be written anywhere.
    bool isProtected = false;
};

/// Reads the network of a component of any kind. Raises what is wrong with it, the component's name before the text.
/// Its weights are there.
NetworkFile readNetworkFile(const ModelComponent& component, const Filepath& rootDir);

/// The system's own form of a path in UTF-8. On Windows, raises `FileException` where the text is none; elsewhere any
/// bytes name a file.
std::filesystem::path toSystemPath(const Filepath& path);

/// Raises the status where it is a failure.
void require(const MireloStatus& status);

}  // namespace TarnoMirelo::OnnxRuntime
