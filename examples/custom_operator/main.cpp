// A model with an operator that the engine lacks: it can't be loaded until the host supplies the operator.

#include "engine.h"

#include <TarnoMirelo/TarnoMirelo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <numeric>

using namespace TarnoMirelo;

MireloStatus unitLength(const std::vector<std::shared_ptr<const ITensor>>& inputs,
                        const std::vector<std::shared_ptr<ITensor>>& outputs) {
    const TensorShape& shape = inputs.at(0)->shape();
    const auto width = shape[shape.dimension() - 1];
    const auto* from = reinterpret_cast<const float*>(inputs[0]->buffer());
    auto* to = reinterpret_cast<float*>(outputs.at(0)->buffer());
    for (int64_t left = shape.size(); left > 0; left -= width, from += width, to += width) {
        const float length = std::sqrt(std::inner_product(from, from + width, from, 0.0F));
        if (length == 0) return {INVALID_ARGUMENTS, "a row of zeros has no direction"};
        std::transform(from, from + width, to, [length](float element) { return element / length; });
    }
    return {SUCCESS, ""};
}

namespace {

MireloStatus load(MireloModel& model, const Filepath& directory) {
    ModelMetadata metadata;
    MireloStatus status = metadata.load(Filepath(directory).append(Filepath("manifest.json")));
    if (status.ok()) status = metadata.validate(MireloModelType::WinML);
    return status.ok() ? model.load(metadata.getModelCompoents(MireloModelType::WinML)) : status;
}

// The status of a prediction, and what came of it.
MireloStatus predict(MireloModel& model, const std::vector<float>& row, std::vector<float>& result) {
    MireloModel::Outputs allocated;
    MireloModel::Outputs outputs;
    MireloStatus status = model.allocateInputs(allocated);
    if (!status.ok()) return status;
    std::memcpy(allocated.at(0)->asTensor()->buffer(), row.data(), row.size() * sizeof(float));
    status = model.predict({allocated.begin(), allocated.end()}, outputs);
    if (!status.ok()) return status;
    result.resize(row.size());
    std::memcpy(result.data(), outputs.at(0)->asTensor()->buffer(), result.size() * sizeof(float));
    return status;
}

MireloStatus print(const char* step, const MireloStatus& status) {
    std::cout << step << ": " << status.getCode() << " " << status.getDescription() << "\n";
    return status;
}

bool run(const Engine& engine, const Filepath& directory) {
    const std::shared_ptr<MireloModel> made = engine.makeModel("unit length");
    MireloModel& model = *made;
    const bool refused = !print("Load without the operator", load(model, directory)).ok();

    CustomOperators::registerCustomOperator("example.sdk.UnitLength", engine.makeOperator);
    CustomOperators::finalizeOperatorRegistry();
    if (!print("Load with the operator", load(model, directory)).ok()) return false;

    std::vector<float> result;
    if (!print("Predict (3, -12, 4)", predict(model, {3, -12, 4}, result)).ok()) return false;
    const std::vector<float> expected = {3.0F / 13, 0, 4.0F / 13};  // relu of the row, divided by its length
    for (const float element : result) std::cout << "  " << element;
    std::cout << "\n";
    const bool right = std::equal(result.begin(), result.end(), expected.begin(), expected.end(),
                                  [](float a, float b) { return std::abs(a - b) < 1e-6F; });
    const bool told = print("Predict (0, 0, 0)", predict(model, {0, 0, 0}, result)).getCode() == INVALID_ARGUMENTS;
    std::cout << (refused && right && told ? "The operator does its work." : "The operator does NOT do its work.")
              << std::endl;
    return refused && right && told;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<Engine> engines = {
#if defined(WITH_OPENCV)
        openCv(),
#endif
#if defined(WITH_ONNXRUNTIME)
        onnxRuntime(),
#endif
    };
    const auto engine = std::find_if(engines.begin(), engines.end(), [&](const Engine& each) {
        return argc == 2 || (argc == 3 && each.name == std::string(argv[2]));
    });
    if (engine == engines.end()) {
        std::cerr << "Usage: " << argv[0] << " DIRECTORY [ENGINE]\nRuns the packaged model of this example on one of:";
        for (const Engine& each : engines) std::cerr << " " << each.name;
        std::cerr << std::endl;
        return 2;
    }
    return run(*engine, Filepath(argv[1])) ? 0 : 1;
}
