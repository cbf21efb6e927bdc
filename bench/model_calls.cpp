// What a call of a model adds to its backend's hook, and what the manager costs.

#include "idle_model.h"
#include "measure.h"

#include <TarnoMirelo/TarnoMirelo.h>

#include <optional>
#include <unordered_map>
#include <utility>

namespace Bench {

using namespace TarnoMirelo;

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

namespace {

std::vector<std::shared_ptr<MireloModel>> makeModels(size_t count) {
    std::vector<std::shared_ptr<MireloModel>> models;
    for (size_t i = 0; i < count; ++i) {
        models.push_back(std::make_shared<IdleModel>("digits", MireloModelType::WinML));
    }
    return models;
}

// The limit copies the list of models, and each record from where the model's backend writes it.
void addSnapshot(const std::string& row, const std::vector<std::shared_ptr<MireloModel>>& models) {
    const auto manager = std::make_shared<ModelManager>();
    std::vector<const ModelRuntimeStatus*> records;
    for (const auto& model : models) {
        manager->registerModel(model);
        records.push_back(&model->getRuntimeStatus());
    }
    measure(row, Side::Ours, [=] { benchmark::DoNotOptimize(manager->getRuntimeStatus()); });
    measure(row, Side::Limit, [=] {
        std::pair<std::vector<std::shared_ptr<MireloModel>>, std::vector<ModelRuntimeStatus>> lists{models, {}};
        lists.second.reserve(records.size());
        for (const ModelRuntimeStatus* const record : records) lists.second.push_back(*record);
        benchmark::DoNotOptimize(lists);
    });
}

}  // namespace

void addManager() {
    for (const size_t count : {size_t{1}, size_t{100}, size_t{1000}, size_t{10000}}) {
        const std::string models = std::to_string(count) + (count == 1 ? " model" : " models");
        const auto all = makeModels(count);
        const auto manager = std::make_shared<std::optional<ModelManager>>();
        measurePrepared(
            "registerModel, " + models, Side::Ours, [=] { manager->emplace(); },
            [=] {
                for (const auto& model : all) (*manager)->registerModel(model);
            });
        addSnapshot("snapshot, " + models, makeModels(count));
        const auto filled = std::make_shared<ModelManager>();
        for (const auto& model : all) filled->registerModel(model);
        // The first of the list each time: the most models have to move up.
        measure("unloadModel and registerModel, " + models, Side::Ours, [=, next = size_t{0}]() mutable {
            filled->unloadModel(all[next]);
            filled->registerModel(all[next]);
            next = (next + 1) % all.size();
        });
    }
}

}  // namespace Bench
