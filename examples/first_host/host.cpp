#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/onnxruntime.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <stdexcept>

using namespace TarnoMirelo;

namespace {

void check(const MireloStatus& status) {
    if (!status.ok() && !status.warn()) throw std::runtime_error(Kit::describe(status));
}

// A feature over the host's own floats: the engine reads and writes them in place, nothing is copied.
template <size_t count>
std::shared_ptr<MireloFeature> wrap(const ModelFeatureDescriptor& descriptor, std::array<float, count>& floats) {
    auto* const bytes = reinterpret_cast<uint8_t*>(floats.data());
    const TensorShape shape(1, count);
    return std::make_shared<MireloFeatureTensor>(
        descriptor, std::make_shared<BufferWrappedTensor>(DataType::Float, shape, bytes, sizeof floats));
}

const char image[] =
    "   ###  "
    "  ## ## "
    "  ## ## "
    "     ## "
    "    ##  "
    "   ##   "
    "  ##### "
    "  ##### ";

std::array<float, 64> draw() {
    std::array<float, 64> pixels{};
    std::transform(image, image + 64, pixels.begin(), [](char pixel) { return pixel == '#' ? 16.0F : 0.0F; });
    return pixels;
}

// The probability of each digit, by the package in that folder.
std::array<float, 10> recognise(const Filepath& folder, std::array<float, 64> pixels) {
    ModelMetadata package;
    check(package.load(Filepath(folder).append(Filepath("manifest.json"))));
    check(package.validate(MireloModelType::WinML));  // WinML: the target with an ONNX network, on every system

    OnnxRuntime::Model model("digits", MireloModelType::WinML);  // or OpenCv::Model: the same calls
    check(model.load(package.getModelCompoents(MireloModelType::WinML)));

    std::array<float, 10> probabilities{};
    const ModelTarget& target = model.getModelTarget();  // what the manifest says of inputs and outputs
    MireloModel::Outputs outputs{wrap(target.outputs.at(0), probabilities)};
    check(model.predict({wrap(target.inputs.at(0), pixels)}, outputs));
    return probabilities;
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) throw std::invalid_argument("usage: host FOLDER");
    const std::array<float, 10> probabilities = recognise(Filepath(argv[1]), draw());
    const auto* const best = std::max_element(probabilities.begin(), probabilities.end());
    std::cout << "This is a " << best - probabilities.begin() << " (" << std::lround(*best * 100) << " %)\n";
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
