#include "engines.h"

#include "failure.h"
#include "paths.h"

#include <TarnoMirelo/config.h>
#include <TarnoMirelo/logging.h>
#ifdef MIRELO_WITH_OPENCV
#include <TarnoMirelo/opencv.h>
#endif
#ifdef MIRELO_WITH_ONNXRUNTIME
#include <TarnoMirelo/onnxruntime.h>
#endif

namespace TarnoMirelo::Tool {

MireloConfig silentConfig() {
    MireloConfig config;
    config.SetLogger(std::make_shared<LogProcessorContainer>());
    return config;
}

const std::vector<Engine>& engines() {
    static const std::vector<Engine> kEngines = {
#ifdef MIRELO_WITH_ONNXRUNTIME
        {"onnxruntime", true, true, true,
         [](const std::string& name, const EngineSettings& settings) -> std::shared_ptr<MireloModel> {
             OnnxRuntime::Options options;
             options.threadsWithinNodes = settings.threads;
             options.rowsAreIndependent = settings.rowsAreIndependent;
             if (!settings.cacheDirectory.empty()) options.cacheDirectory = toFilepath(settings.cacheDirectory);
             return std::make_shared<OnnxRuntime::Model>(name, MireloModelType::WinML, silentConfig(), options);
         }},
#endif
#ifdef MIRELO_WITH_OPENCV
        {"opencv", false, false, false,
         [](const std::string& name, const EngineSettings& settings) -> std::shared_ptr<MireloModel> {
             OpenCv::Options options;
             options.rowsAreIndependent = settings.rowsAreIndependent;
             return std::make_shared<OpenCv::Model>(name, MireloModelType::WinML, silentConfig(), options);
         }},
#endif
    };
    return kEngines;
}

std::string engineNames() {
    std::string names;
    for (const Engine& engine : engines()) names += (names.empty() ? "" : ", ") + std::string(engine.name);
    return names.empty() ? "none" : names;
}

const Engine& engineNamed(const std::string& name) {
    for (const Engine& engine : engines()) {
        if (engine.name == name) return engine;
    }
    throw WrongUsage("there is no engine \"" + name + "\" in this build, wanted is one of " + engineNames());
}

const Engine& defaultEngine() {
    if (engines().empty()) throw Failure("this build has no engine to predict with");
    return engines().front();
}

}  // namespace TarnoMirelo::Tool
