// Tells when somebody speaks in a recording: a network that keeps a state, run block by block.

#include "../step.h"
#include "detector.h"
#include "recording.h"
#include "report.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/onnxruntime.h>

#include <chrono>
#include <iomanip>
#include <iostream>

using namespace TarnoMirelo;

namespace {

// What the backend reports goes to the console.
MireloConfig configuration() {
    MireloConfig config;
    config.SetLogger(std::make_shared<LogProcessorOStream>(std::cerr));
    return config;
}

std::shared_ptr<MireloModel> load(const std::string& directory) {
    ModelMetadata metadata;
    require("load of the manifest", metadata.load(Filepath(directory).append(Filepath("manifest.json"))));
    require("validate", metadata.validate(MireloModelType::WinML));
    std::cout << metadata.getName() << ", version " << metadata.getVersion() << ": " << metadata.getDescription()
              << "\n";
    OnnxRuntime::Options options;
    options.threadsWithinNodes = 1;  // a block is so short that a second thread would slow it down
    auto model =
        std::make_shared<OnnxRuntime::Model>(metadata.getName(), MireloModelType::WinML, configuration(), options);
    require("load of the model", model->load(metadata.getModelCompoents(MireloModelType::WinML)));
    return model;
}

Hearing hear(MireloModel& model, const std::filesystem::path& recording) {
    Hearing hearing;
    hearing.samples = readRecording(recording);
    const auto start = std::chrono::steady_clock::now();
    hearing.probabilities = detectSpeech(model, hearing.samples);
    const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
    hearing.segments = findSegments(hearing.probabilities);
    const double seconds = static_cast<double>(hearing.samples.size()) / kSampleRate;
    std::cout << std::fixed << std::setprecision(1) << "Heard " << seconds << " s in " << hearing.probabilities.size()
              << " blocks, " << std::setprecision(0) << seconds / duration.count()
              << " times as fast as they are spoken\n\n";
    return hearing;
}

void write(const Hearing& hearing, const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    writeText(hearing, directory / "segments.txt");
    writeJson(hearing, directory / "segments.json");
    writeSvg(hearing, directory / "speech.svg");
    std::cout << "Wrote segments.txt, segments.json and speech.svg to " << directory.string() << "\n";
}

// Whether the true segments were found: at most a tenth of the blocks wrong, and each border within three blocks.
bool agrees(const Hearing& hearing, const std::filesystem::path& labels) {
    const Agreement agreement = compare(hearing.segments, readSegments(labels), hearing.probabilities.size());
    std::cout << std::setprecision(1) << "Blocks judged wrong: " << 100 * agreement.wrongShare << " %\n"
              << std::setprecision(3) << "Farthest border:     " << agreement.farthestBorder << " s\n";
    return agreement.wrongShare <= 0.1 && agreement.farthestBorder <= 3.0 * kBlock / kSampleRate;
}

bool run(int argc, char** argv) {
    ModelManager manager;
    const Kit::ScopedModel model(manager, load(argv[1]));
    const Hearing hearing = hear(*model, argv[2]);
    draw(hearing);
    std::cout << "\nSomebody speaks:\n" << std::setprecision(2);
    for (const Segment& segment : hearing.segments) {
        std::cout << "  from " << std::setw(6) << segment.begin << " s to " << std::setw(6) << segment.end << " s\n";
    }
    std::cout << "\nMemory of the model: " << model->getRuntimeStatus().getCurrentMemoryConsumption() << " bytes\n";
    write(hearing, argv[3]);
    return argc < 5 || agrees(hearing, argv[4]);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4 || argc > 5) {
        std::cerr << "Usage: " << argv[0] << " MODEL RECORDING.wav RESULTS [LABELS]\n"
                  << "Tells when somebody speaks in RECORDING, with the packaged model in the folder MODEL, and writes "
                     "segments and a plot to the folder RESULTS. With the true segments in LABELS, fails where a tenth "
                     "of the time is judged wrong, or a border is farther away than 0.1 s.\n";
        return 2;
    }
    try {
        return run(argc, argv) ? 0 : 1;
    } catch (const std::exception& exception) {
        std::cerr << argv[0] << ": " << exception.what() << std::endl;
        return 1;
    }
}
