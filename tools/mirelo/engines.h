#pragma once

#include <TarnoMirelo/config.h>
#include <TarnoMirelo/model.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

struct EngineSettings {
    int threads = 0;                       ///< that share one prediction; 0 for the engine's choice
    bool rowsAreIndependent = false;       ///< the user's promise of a batch's rows
    std::filesystem::path cacheDirectory;  ///< empty: nothing is kept
};

/// An inference engine that the tool is built with.
struct Engine {
    const char* name;
    bool overlaps;      ///< predictions of one model may overlap
    bool takesThreads;  ///< heeds `EngineSettings::threads`
    bool keepsCache;    ///< heeds `EngineSettings::cacheDirectory`
    std::shared_ptr<MireloModel> (*makeModel)(const std::string& name, const EngineSettings& settings);
};

const std::vector<Engine>& engines();
/// Raises `WrongUsage` where the tool has no engine of that name.
const Engine& engineNamed(const std::string& name);
/// The first engine there is. Raises `Failure` where the tool has none.
const Engine& defaultEngine();
/// For models whose reports nobody reads: what fails comes back as a status.
MireloConfig silentConfig();
/// As in "opencv, onnxruntime".
std::string engineNames();

}  // namespace TarnoMirelo::Tool
