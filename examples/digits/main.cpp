// The whole road of a packaged model: from its manifest to its unload, with real images of handwritten digits.

#include "../step.h"
#include "backend.h"
#include "package.h"
#include "report.h"
#include "samples.h"

#include <TarnoMirelo/TarnoMirelo.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>

using namespace TarnoMirelo;

namespace {

// What backends report goes to the console and to a file.
void installLog() {
    const auto console = std::make_shared<LogProcessorOStream>(std::cerr);
    const std::string directory = std::filesystem::temp_directory_path().string();
    const auto file = std::make_shared<LogProcessorFileSystem>(directory, "sdk-core-digits.log", false);
    std::cout << "Log: " << directory << "/sdk-core-digits.log\n";
    file->WriteHeader("Program", "digits");
    const auto both = std::make_shared<LogProcessorContainer>();
    both->AddProcessor(std::make_shared<LogProcessorFormatter<DebugLogFormat>>(console, DebugLogFormat()));
    both->AddProcessor(std::make_shared<LogProcessorFormatter<DebugLogFormat>>(file, DebugLogFormat()));
    Logger::GetInstance().SetDefaultLogProcessor(both);
}

void printUsage(const MireloStatus& status) {
    std::cout << "Usage:";
    for (const char* const property : {"method", "status", "modelName", "modelType", "sdkName", "version"}) {
        std::cout << "  " << property << " " << status.getProperty(std::string("mireloondevice.") + property);
    }
    std::cout << "\n";
}

void fill(ITensor& tensor, const Sample& sample) {
    // Nothing happens where the images have the manifest's shape; others are refused.
    require("resize", tensor.resize(TensorShape(1, static_cast<int64_t>(sample.pixels.size()))));
    std::memcpy(tensor.buffer(), sample.pixels.data(), static_cast<size_t>(tensor.bytes()));
}

std::vector<float> read(const ITensor& tensor) {
    std::vector<float> values(static_cast<size_t>(tensor.shape().size()));
    std::memcpy(values.data(), tensor.buffer(), values.size() * sizeof(float));
    return values;
}

MireloModel::Outputs allocateInputs(MireloModel& model) {
    MireloModel::Outputs inputs;
    require("allocateInputs", model.allocateInputs(inputs));
    return inputs;
}

Predictions predictOneByOne(MireloModel& model, const std::vector<Sample>& samples, MireloStatus& status) {
    const MireloModel::Outputs allocated = allocateInputs(model);
    const MireloModel::Inputs inputs(allocated.begin(), allocated.end());
    MireloModel::Outputs outputs;
    Predictions predictions;
    for (const Sample& sample : samples) {
        fill(*allocated.at(0)->asTensor(), sample);
        status = model.predict(inputs, outputs);
        require("predict", status);
        predictions.push_back(read(*outputs.at(0)->asTensor()));
    }
    return predictions;
}

// Each sample's own memory serves as an input; nothing is copied on this side.
Predictions predictAtOnce(MireloModel& model, std::vector<Sample>& samples) {
    const ModelFeatureDescriptor& descriptor = model.getModelTarget().inputs.at(0);
    MireloModel::Inputs inputs;
    for (Sample& sample : samples) {
        auto* const pixels = reinterpret_cast<uint8_t*>(sample.pixels.data());
        auto tensor = std::make_shared<BufferWrappedTensor>(DataType::Float, descriptor.tensorDescriptor().shape(),
                                                            pixels, sample.pixels.size() * sizeof(float));
        inputs.push_back(std::make_shared<MireloFeatureTensor>(descriptor, std::move(tensor)));
    }
    MireloModel::Outputs outputs;
    require("predictBatch", model.predictBatch(inputs, outputs));
    Predictions predictions;
    for (const auto& output : outputs) predictions.push_back(read(*output->asTensor()));
    return predictions;
}

Predictions predictBound(MireloModel& model, const std::vector<Sample>& samples) {
    const MireloModel::Outputs inputs = allocateInputs(model);
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    require("bind", model.bind({inputs.begin(), inputs.end()}, outputs, binding));
    Predictions predictions;
    for (const Sample& sample : samples) {
        fill(*inputs.at(0)->asTensor(), sample);
        require("evaluate", model.evaluate(binding));
        predictions.push_back(read(*outputs.at(0)->asTensor()));
    }
    return predictions;
}

void printSpeed(const char* way, size_t predictions, const std::function<void()>& predict) {
    constexpr int kRounds = 20;
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < kRounds; ++round) predict();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    std::cout << "  " << std::left << std::setw(16) << way << std::right << std::setw(10) << std::setprecision(0)
              << std::fixed << kRounds * static_cast<double>(predictions) / seconds.count() << "\n";
}

void printMemory(ModelManager& manager, const std::shared_ptr<MireloModel>& model) {
    RuntimeStatus snapshot = manager.getRuntimeStatus();
    std::cout << "\nModels in service: " << snapshot.getLoadedModels().size() << ", their memory "
              << snapshot.getTotalMemoryConsumption() << " bytes; the record of \"" << model->getName() << "\" says "
              << snapshot.getModelRuntimeStatus(model).getCurrentMemoryConsumption() << "\n";
}

// Predicts in the three ways, and says whether they agree with each other and with the trainer.
bool classify(MireloModel& model, std::vector<Sample>& samples) {
    MireloStatus status;
    const Predictions predictions = predictOneByOne(model, samples, status);
    const Predictions atOnce = predictAtOnce(model, samples);
    const Predictions bound = predictBound(model, samples);
    const Predictions trainer = trainerPredictions(samples);
    const double accuracy = accuracyOf(samples, predictions);
    const size_t differing = differingDigits(predictions, trainer);
    const float fromTrainer = largestDifference(predictions, trainer);
    const float betweenWays = std::max(largestDifference(predictions, atOnce), largestDifference(predictions, bound));

    printUsage(status);
    std::cout << "\nSample 1 shows a " << samples[0].label << ":\n";
    drawDigit(samples[0], predictions[0]);
    std::cout << "\n";
    printConfusion(samples, predictions);
    std::cout << std::defaultfloat << std::setprecision(4)
              << "\nSamples:                               " << samples.size()
              << "\nAccuracy:                              " << accuracy
              << "\nDigits that differ from the trainer's: " << differing
              << "\nLargest difference from the trainer:   " << fromTrainer
              << "\nLargest difference between the ways:   " << betweenWays << "\n\nPredictions per second:\n";
    printSpeed("predict", samples.size(), [&] { predictOneByOne(model, samples, status); });
    printSpeed("predictBatch", samples.size(), [&] { predictAtOnce(model, samples); });
    printSpeed("bind, evaluate", samples.size(), [&] { predictBound(model, samples); });
    return accuracy >= 0.95 && differing == 0 && fromTrainer < 1e-4F && betweenWays <= 1e-6F;
}

bool run(const std::filesystem::path& manifest, const std::filesystem::path& samplesFile) {
    ModelMetadata metadata;
    require("load of the manifest", metadata.load(toFilepath(manifest)));
    require("validate", metadata.validate(MireloModelType::WinML));
    const auto components = metadata.getModelCompoents(MireloModelType::WinML);
    std::cout << metadata.getName() << ", version " << metadata.getVersion() << ": " << metadata.getDescription()
              << "\n";
    std::vector<Sample> samples = readSamples(samplesFile);

    const auto device = std::make_shared<Device>("Processor", MireloModelType::WinML, DeviceType::CPU);
    const auto model = makeModel(metadata.getName(), device);
    const bool cached = model->queryCacheStatus(components) != MireloCacheStatus::NotCached;
    std::cout << "Cached: " << (cached ? "yes" : "no") << "\n";
    MireloStatus status = model->load(components);
    require("load of the model", status);
    printUsage(status);

    ModelManager manager;
    require("registerModel", manager.registerModel(model));
    const bool agreed = classify(*model, samples);
    printMemory(manager, model);
    status = manager.unloadModel(model);
    require("unloadModel", status);
    printUsage(status);
    std::cout << "Models in service: " << manager.getRuntimeStatus().getLoadedModels().size() << "\n\n"
              << (agreed ? "The model does what its trainer's does." : "The model does NOT do what its trainer's does.")
              << std::endl;
    return agreed;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::cerr << "Usage: " << argv[0] << " MANIFEST|ARCHIVE.tar [SAMPLES]\n"
                  << "Classifies the images of SAMPLES (samples.csv beside the manifest) with the packaged model.\n";
        return 2;
    }
    try {
        installLog();
        const Package package(argv[1]);
        const std::filesystem::path samples = argc > 2 ? argv[2] : package.manifest().parent_path() / "samples.csv";
        return run(package.manifest(), samples) ? 0 : 1;
    } catch (const std::exception& exception) {
        std::cerr << argv[0] << ": " << exception.what() << std::endl;
        return 1;
    }
}
