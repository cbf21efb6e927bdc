#pragma once

#include "onnx_outline.h"

#include <TarnoMirelo/kit/components.h>

#include <filesystem>
#include <vector>

namespace TarnoMirelo::OnnxRuntime {

/// A network as it lies in a component.
struct NetworkFile {
    Kit::ComponentFiles archive;  // what the bytes are borrowed from, for a component that is one
    Kit::ComponentBytes bytes;
    OnnxOutline outline;
    /// Where the bytes come from; empty for a component in memory, and for a protected one, which is opened there.
    std::filesystem::path path;
    /// Of the weights that lie in files of their own.
    std::vector<std::filesystem::path> weights;
};

/// Reads the network of a component of any kind. Raises what is wrong with it, the
/// component's name before the text. Its weights are there.
NetworkFile readNetworkFile(const ModelComponent& component, const Filepath& rootDir);

/// The system's own form of a path in UTF-8. Raises `FileException` where the text is none.
std::filesystem::path toSystemPath(const Filepath& path);

/// Raises the status where it is a failure.
void require(const MireloStatus& status);

}  // namespace TarnoMirelo::OnnxRuntime
