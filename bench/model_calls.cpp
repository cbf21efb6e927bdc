// What a prediction costs beside the engine's own work, and what the manager costs.

#include "idle_model.h"
#include "measure.h"

#include <TarnoMirelo/opencv.h>

#include <opencv2/dnn.hpp>

#include <array>
#include <cstring>
#include <stdexcept>
#include <unordered_map>
#include <utility>

namespace Bench {
namespace {

using namespace TarnoMirelo;

void require(const MireloStatus& status) {
    if (!status.ok()) throw std::runtime_error(status.getDescription());
}

// The digits model through the backend, and its engine by itself: both read the caller's input and write the result
// into the caller's output.
struct Digits {
    Digits() {
        MireloConfig config;
        config.SetLogger(std::make_shared<LogProcessorContainer>());  // silent
        model = std::make_shared<OpenCv::Model>("digits", MireloModelType::WinML, config);
        ModelMetadata metadata;
        require(metadata.load(Filepath(DIGITS_MODEL).append(Filepath("manifest.json"))));
        require(model->load(metadata.getModelCompoents(MireloModelType::WinML)));
        MireloModel::Outputs allocated;
        require(model->allocateInputs(allocated));
        inputs.assign(allocated.begin(), allocated.end());
        require(model->predict(inputs, outputs));
        require(model->bind(inputs, outputs, binding));
        auto* const elements = reinterpret_cast<float*>(allocated.at(0)->asTensor()->buffer());
        for (int i = 0; i < 64; ++i) elements[i] = static_cast<float>(i % 17);
        engine = cv::dnn::readNetFromONNX(std::string(DIGITS_MODEL) + "/digits.onnx");
        engineInput = cv::Mat(1, 64, CV_32F, elements);
    }

    std::shared_ptr<OpenCv::Model> model;
    MireloModel::Inputs inputs;
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    cv::dnn::Net engine;
    cv::Mat engineInput;
    const std::string outputName = "probabilities";  // without one the engine lists all names in each call
    std::array<float, 10> engineOutput{};
};

}  // namespace

void addIdleCalls() {
    const auto model = std::make_shared<IdleModel>("digits", MireloModelType::WinML);
    const std::shared_ptr<const IdleModel> constant = model;
    const MireloModel::Inputs inputs;
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    const auto fillMap = [] {
        std::unordered_map<std::string, std::string> properties;
        properties["mireloondevice.sdkName"] = "MireloOnDevice";
        properties["mireloondevice.version"] = "5.4.0";
        properties["mireloondevice.method"] = "PREDICT";
        properties["mireloondevice.status"] = "1";
        properties["mireloondevice.modelType"] = "WinML";
        properties["mireloondevice.modelName"] = "digits";
        benchmark::DoNotOptimize(properties);
    };
    const auto callHook = [=]() mutable { benchmark::DoNotOptimize(constant->callHook(inputs, outputs)); };
    measure("predict, idle backend", Side::Ours,
            [=]() mutable { benchmark::DoNotOptimize(constant->predict(inputs, outputs)); });
    measure("predict, idle backend", Side::Limit, callHook);
    measure("predict, idle backend", Side::Instead, fillMap);
    measure("evaluate, idle backend", Side::Ours,
            [=]() mutable { benchmark::DoNotOptimize(constant->evaluate(binding)); });
    measure("evaluate, idle backend", Side::Limit, callHook);
    measure("evaluate, idle backend", Side::Instead, fillMap);
}

void addDigits() {
    // A pass is so short that the engine loses by sharing it out among threads, and how much differs from call to call
    // by more than what is measured here.
    cv::setNumThreads(1);
    const auto digits = std::make_shared<Digits>();
    const auto engineAlone = [=] {
        digits->engine.setInput(digits->engineInput);
        const cv::Mat result = digits->engine.forward(digits->outputName);
        std::memcpy(digits->engineOutput.data(), result.data, sizeof digits->engineOutput);
        benchmark::ClobberMemory();
    };
    measure("predict, digits over OpenCV", Side::Ours,
            [=] { benchmark::DoNotOptimize(digits->model->predict(digits->inputs, digits->outputs)); });
    measure("predict, digits over OpenCV", Side::Limit, engineAlone);
    measure("evaluate, digits over OpenCV", Side::Ours,
            [=] { benchmark::DoNotOptimize(digits->model->evaluate(digits->binding)); });
    measure("evaluate, digits over OpenCV", Side::Limit, engineAlone);
}

void addManager() {
    for (const size_t count : {size_t{1}, size_t{100}, size_t{1000}, size_t{10000}}) {
        const std::string models = std::to_string(count) + (count == 1 ? " model" : " models");
        std::vector<std::shared_ptr<MireloModel>> all;
        for (size_t i = 0; i < count; ++i) {
            all.push_back(std::make_shared<IdleModel>("digits", MireloModelType::WinML));
        }
        const auto manager = std::make_shared<std::optional<ModelManager>>();
        measurePrepared(
            "registerModel, " + models, Side::Ours, [=] { manager->emplace(); },
            [=] {
                for (const auto& model : all) (*manager)->registerModel(model);
            });
        const auto filled = std::make_shared<ModelManager>();
        for (const auto& model : all) filled->registerModel(model);
        measure("snapshot, " + models, Side::Ours, [=] { benchmark::DoNotOptimize(filled->getRuntimeStatus()); });
        measure("snapshot, " + models, Side::Limit,
                [lists = std::pair(all, filled->getRuntimeStatus().getModelsRuntimeStatus())] {
                    benchmark::DoNotOptimize(std::pair(lists));
                });
        // The first of them each time, which is the one with the most behind it.
        measure("unloadModel and registerModel, " + models, Side::Ours, [=, next = size_t{0}]() mutable {
            filled->unloadModel(all[next]);
            filled->registerModel(all[next]);
            next = (next + 1) % all.size();
        });
    }
}

}  // namespace Bench
