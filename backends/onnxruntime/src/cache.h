#pragma once

#include "network_file.h"

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/onnxruntime.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace TarnoMirelo::OnnxRuntime {

/// A network that was read from a file.
struct CachedNetwork {
    Kit::ComponentBytes file;
    Kit::ComponentBytes network;  // borrowed from the file
};

/// The file that keeps the optimised form of a network: its key, which says what it was made of and for which
/// processor, the digest of what follows, and the network. Any number of processes may use it at once: it is written
/// under another name, and then renamed.
class Cache {
 public:
    /// What the file is for. Raises where there can be none: the network's digest can't be had, the processor is not
    /// known, or the engine can't load what would be kept.
    /// @param directory  may be missing
    Cache(const Filepath& directory, const std::string& modelName, const std::string& componentName,
          const NetworkFile& network, GraphOptimization optimization, OrtEP provider);

    const Filepath& path() const { return path_; }
    /// Looks at the whole file. Raises nothing but `std::bad_alloc`, as `load`.
    CacheStatus status() const;
    /// The network in the file; nothing where there is none that is whole and of this key.
    std::optional<CachedNetwork> load() const;
    /// Writes the file, and hands out the network in it. Raises what goes wrong; the file is then as it was.
    /// @param write  has the engine write the network to that path
    CachedNetwork store(const std::function<void(const std::filesystem::path&)>& write) const;

 private:
    CacheStatus read(CachedNetwork& cached) const;

    Filepath directory_;
    Filepath path_;
    std::vector<std::filesystem::path> weights_;
    std::string weightDigests_;
    std::string key_;
};

}  // namespace TarnoMirelo::OnnxRuntime
