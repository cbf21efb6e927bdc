// What may run on several threads at once; ThreadSanitizer watches in the preset "tsan".

#include "support/scripted_model.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/TarnoMirelo.h>

#include <gtest/gtest.h>

#include <barrier>
#include <thread>

namespace TarnoMirelo {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 50;

// Runs the same work on all threads, started together.
template <typename Work>
void onAllThreads(const Work& work) {
    std::barrier start(kThreads);
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            for (int round = 0; round < kRounds; ++round) work(i);
        });
    }
}

const char* const kManifest = R"({"name": "threads", "targets": {"WinML": {
    "components": [{"name": "c", "path": "c.onnx", "type": "file"}],
    "inputs": [{"name": "in", "featureType": "tensor", "tensor": {"shape": [4, 4], "dataType": "float"}}],
    "outputs": [{"name": "out", "featureType": "tensor", "tensor": {"shape": [4], "dataType": "float"}}]}}})";

// From a manifest to a prediction, with objects of its own; a property of the status tells which model answered.
std::string walkTheRoad(const Filepath& manifest, const std::string& name) {
    ModelMetadata metadata;
    metadata.load(manifest);
    const auto model = std::make_shared<ScriptedModel>(name, std::make_shared<Device>("CPU", MireloModelType::WinML));
    const auto components = metadata.getModelCompoents(MireloModelType::WinML);
    model->queryCacheStatus(components);
    model->load(components);
    MireloModel::Outputs inputs;
    model->allocateInputs(inputs);
    inputs.at(0)->asTensor()->buffer()[0] = 1;
    MireloModel::Outputs outputs;
    ModelManager manager;
    manager.registerModel(model);
    const std::string told =
        model->predict({inputs.begin(), inputs.end()}, outputs).getProperty("mireloondevice.modelName");
    return told + text(manager.unloadModel(model)) +
           list(CustomOperators::getOperatorRegistry().isRegistryReadOnly(),
                FileUtils().findFilesByPattern(manifest.parent_path(), "MANIFEST.*").size());
}

// Here, whichever thread comes first makes the objects that a process has once.
TEST(Threads, FirstUseAndDistinctObjects) {
    const TempDir directory;
    const Filepath manifest = directory.write("manifest.json", kManifest);
    onAllThreads([&](int thread) {
        const std::string name = std::to_string(thread);
        EXPECT_EQ(walkTheRoad(manifest, name), name + kSuccess + "0 1");
    });
}

TEST(Threads, ReadWhatNobodyChanges) {
    const TempDir directory;
    ModelMetadata loaded;
    loaded.load(directory.write("manifest.json", kManifest));
    const ModelMetadata& metadata = loaded;
    ScriptedModel model("shared", MireloModelType::WinML);
    const MireloStatus status = model.load(metadata.getModelCompoents(MireloModelType::WinML));
    CustomOperators::OperatorRegistry filled;
    filled.addOperatorToRegistry("operator", [] { return std::make_unique<CustomOperators::Operator>(); });
    filled.markRegistryAsReadOnly();
    const CustomOperators::OperatorRegistry& registry = filled;
    onAllThreads([&](int /*thread*/) {
        const ModelTarget target = std::get<ModelTarget>(metadata.getModelCompoents(MireloModelType::WinML));
        EXPECT_EQ(list(text(metadata.validate(MireloModelType::WinML)), target.inputs.at(0).tensorDescriptor().shape(),
                       status.getProperty("mireloondevice.modelName"), MireloStatus(status).getPropertyMap().size(),
                       registry.createOperator("operator") != nullptr),
                  "1:  (4,4) shared 6 1");
    });
}

TEST(Threads, ReleaseSnapshotsWhereverTheyLike) {
    ModelManager manager;
    for (int round = 0; round < kRounds; ++round) {
        const auto model = std::make_shared<ScriptedModel>("model", MireloModelType::WinML);
        manager.registerModel(model);
        auto snapshot = std::make_shared<RuntimeStatus>(manager.getRuntimeStatus());
        std::jthread reader([taken = std::move(snapshot)]() mutable {
            EXPECT_EQ(taken->getTotalMemoryConsumption() + taken->getLoadedModels().size(), 1U);
            taken.reset();
        });
        EXPECT_EQ(text(manager.unloadModel(model)), kSuccess);
    }
}

}  // namespace
}  // namespace TarnoMirelo
