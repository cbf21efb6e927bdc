// A host of a protected model: its key comes from a file, and its plain bytes are in memory alone.

#include "../digits/backend.h"
#include "../digits/package.h"
#include "../digits/report.h"
#include "../digits/samples.h"
#include "../step.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/manager.h>

#include <cstring>
#include <fstream>
#include <iostream>

using namespace TarnoMirelo;

namespace {

void giveKey(ModelMetadata& metadata, const std::filesystem::path& path) {
    unsigned char key[16];
    std::ifstream file(path, std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(key), sizeof key) || file.peek() != std::ifstream::traits_type::eof()) {
        throw std::runtime_error(path.string() + " is no key, wanted are 16 bytes");
    }
    require("setProtectionKey", Kit::setProtectionKey(metadata, MireloModelType::WinML, key));
}

std::vector<float> probabilitiesOf(MireloModel& model, const MireloModel::Outputs& inputs, const Sample& sample) {
    ITensor& tensor = *inputs.at(0)->asTensor();
    if (tensor.shape().size() != static_cast<int64_t>(sample.pixels.size()))
        throw std::runtime_error("The images don't fit");
    std::memcpy(tensor.buffer(), sample.pixels.data(), sample.pixels.size() * sizeof(float));
    MireloModel::Outputs outputs;
    require("predict", model.predict({inputs.begin(), inputs.end()}, outputs));
    const auto* const first = reinterpret_cast<const float*>(outputs.at(0)->asTensor()->buffer());
    return {first, first + outputs[0]->asTensor()->shape().size()};
}

bool run(const std::filesystem::path& manifest, const std::filesystem::path& key, const std::filesystem::path& images) {
    ModelMetadata metadata;
    require("load of the manifest", metadata.load(toFilepath(manifest)));
    require("validate", metadata.validate(MireloModelType::WinML));
    giveKey(metadata, key);
    const auto device = std::make_shared<Device>("Processor", MireloModelType::WinML, DeviceType::CPU);
    ModelManager manager;
    const Kit::ScopedModel model(manager, makeModel(metadata.getName(), device));
    require("load of the model", model->load(metadata.getModelCompoents(MireloModelType::WinML)));

    MireloModel::Outputs inputs;
    require("allocateInputs", model->allocateInputs(inputs));
    const std::vector<Sample> samples = readSamples(images);
    Predictions predictions;
    for (const Sample& sample : samples) predictions.push_back(probabilitiesOf(*model, inputs, sample));
    const size_t differing = differingDigits(predictions, trainerPredictions(samples));
    std::cout << "The protected model says of " << samples.size() - differing << " of " << samples.size()
              << " images what its trainer's says" << std::endl;
    return differing == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "Usage: " << argv[0] << " MANIFEST KEYFILE SAMPLES\n"
                  << "Classifies the images of SAMPLES with a packaged model that is protected with the key.\n";
        return 2;
    }
    try {
        return run(argv[1], argv[2], argv[3]) ? 0 : 1;
    } catch (const std::exception& exception) {
        std::cerr << "Refused: " << exception.what() << std::endl;
        return 1;
    }
}
