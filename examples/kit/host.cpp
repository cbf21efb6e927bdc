#include "../quickstart/scaler.h"

#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/kit/targets.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/kit/trace.h>

#include <algorithm>
#include <iostream>

namespace {

std::shared_ptr<MireloFeature> featureOf(const ModelTarget& target, std::initializer_list<float> elements) {
    auto feature = std::make_shared<MireloFeatureTensor>(target.inputs.at(0));
    std::copy(elements.begin(), elements.end(), reinterpret_cast<float*>(feature->asTensor()->buffer()));
    return feature;
}

}  // namespace

// Takes the folder of a packaged model, and the file to write a trace to.
int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: kit_example FOLDER TRACE_FILE" << std::endl;
        return 2;
    }
    Kit::AllTargetsMetadata metadata;
    MireloStatus status = metadata.load(Filepath(argv[1]).append(Filepath("manifest.json")));
    const auto device = std::make_shared<Device>("cpu", MireloModelType::WinML);
    const Kit::TargetChoice choice = Kit::chooseTarget(metadata, {device});
    if (status.ok()) status = choice.status();

    const auto trace = std::make_shared<Kit::ChromeTraceFile>(Filepath(argv[2]));
    const auto model = Kit::TracedModel::wrap(std::make_shared<Scaler>("scaler", device), trace);
    if (status.ok()) status = model->load(metadata.getModelCompoents(choice.type));
    ModelManager manager;
    Kit::ScopedModel scoped(manager, model);

    MireloModel::Outputs outputs;
    if (status.ok()) {
        const ModelTarget& target = model->getModelTarget();
        status = model->predictBatch({featureOf(target, {1, 1, 1}), featureOf(target, {5, 6, 7})}, outputs);
    }
    for (const auto& output : outputs) {
        const auto* const elements = reinterpret_cast<const float*>(output->asTensor()->buffer());
        for (int i = 0; i < 3; ++i) std::cout << elements[i] << ' ';
    }
    std::cout << std::endl;
    if (status.ok()) status = scoped.unload();
    if (!status.ok()) std::cerr << Kit::describe(status) << std::endl;
    return status.ok() ? 0 : 1;
}
