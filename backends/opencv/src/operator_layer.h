#pragma once

#include <list>
#include <set>
#include <string>

namespace TarnoMirelo::OpenCv {

/// Has the engine know a type of layer for the host's operator of that name. The engine keeps one list for the whole
/// process and takes a type once; here, any number may exist at once, on any threads.
class LayerType {
 public:
    explicit LayerType(const std::string& name);
    LayerType(const LayerType&) = delete;
    LayerType& operator=(const LayerType&) = delete;
    ~LayerType();

 private:
    std::string name_;
};

/// Has the engine know the host's operators while a network is read.
class OperatorLayers {
 public:
    /// @param types  of the network's nodes; those that the finalised registry has an operator of this backend for are
    ///               registered. The factories of other operators are not called.
    explicit OperatorLayers(const std::set<std::string>& types);

 private:
    std::list<LayerType> types_;
};

}  // namespace TarnoMirelo::OpenCv
