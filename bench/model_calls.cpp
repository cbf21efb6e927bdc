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
