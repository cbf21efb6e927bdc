#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/onnxruntime.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>

using namespace TarnoMirelo;

namespace {

constexpr double kMiB = 1 << 20;

void check(const MireloStatus& status) {
    if (!status.ok()) throw std::runtime_error(Kit::describe(status));
}

// Registers first and loads then, so that the load reports to the model's record. Predicts once, since only that shows
// what the engine takes for the rows.
Kit::ScopedModel serve(ModelManager& manager, const ModelMetadata& package, const std::string& name, uint32_t rows) {
    Kit::ScopedModel model(manager, std::make_shared<OnnxRuntime::Model>(name, MireloModelType::WinML));
    check(*model.lastStatus());
    check(model->load(package.getModelCompoents(MireloModelType::WinML)));
    check(model->setBatchSize(rows));
    const auto pixels = std::make_shared<Tensor>(DataType::Float, TensorShape(rows, 64));
    MireloModel::Outputs outputs;
    check(
        model->predict({std::make_shared<MireloFeatureTensor>(model->getModelTarget().inputs.at(0), pixels)}, outputs));
    return model;
}

void print(const Kit::MemoryView& view) {
    std::cout << std::fixed << std::setprecision(1);
    for (const auto& [model, bytes] : view.models()) {
        std::cout << model->getName() << ": " << static_cast<double>(bytes) / kMiB << " MiB\n";
    }
    std::cout << "In service: " << view.models().size() << ", " << static_cast<double>(view.total()) / kMiB << " MiB, "
              << static_cast<double>(view.over()) / kMiB << " MiB over the budget\n";
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 3) throw std::invalid_argument("usage: host FOLDER MEBIBYTES");
    ModelMetadata package;
    check(package.load(Filepath(argv[1]).append(Filepath("manifest.json"))));
    check(package.validate(MireloModelType::WinML));
    const auto budget = static_cast<uint64_t>(std::lround(std::stod(argv[2]) * kMiB));

    ModelManager manager;  // before the models, which it outlives
    std::vector<Kit::ScopedModel> models;
    models.push_back(serve(manager, package, "one image", 1));
    models.push_back(serve(manager, package, "a sheet", 10'000));
    models.push_back(serve(manager, package, "an archive", 30'000));

    const Kit::MemoryView view(manager.getRuntimeStatus(), budget);
    print(view);
    for (const std::shared_ptr<MireloModel>& large : view.toUnload()) {
        const auto found = std::find_if(models.begin(), models.end(),
                                        [&](const Kit::ScopedModel& model) { return model.model() == large; });
        check(found->unload());
        models.erase(found);
        std::cout << "Unloaded: " << large->getName() << '\n';
    }
    print(Kit::MemoryView(manager.getRuntimeStatus(), budget));
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
