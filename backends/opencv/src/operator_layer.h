#pragma once

#include <string>
#include <vector>

namespace TarnoMirelo::OpenCv {

/// Has the engine know the host's operators while a network is read. It keeps one list of layer types for the whole
/// process, so they are taken out again at the end. Several may exist at once, on any threads.
class OperatorLayers {
 public:
    OperatorLayers() = default;
    OperatorLayers(const OperatorLayers&) = delete;
    OperatorLayers& operator=(const OperatorLayers&) = delete;
    ~OperatorLayers();

    /// Registers every operator of the finalised registry that is one of this backend's.
    void registerAll();

 private:
    std::vector<std::string> names_;
};

}  // namespace TarnoMirelo::OpenCv
