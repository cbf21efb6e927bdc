#include "detector.h"

#include "../step.h"
#include "recording.h"

#include <algorithm>
#include <cstring>

using namespace TarnoMirelo;

namespace {

constexpr size_t kBefore = 64;  // samples of the block before that the network wants to hear again

// The order of the manifest.
enum Input : size_t { kSamples, kState, kRate };
enum Output : size_t { kSpeech, kNewState };

template <typename Element>
Element* elements(const MireloModel::Outputs& features, size_t index, size_t count) {
    const std::shared_ptr<ITensor> tensor = features.at(index)->asTensor();
    if (tensor->bytes() != static_cast<int64_t>(count * sizeof(Element))) {
        throw std::runtime_error("The model's manifest is not the one of this program");
    }
    return reinterpret_cast<Element*>(tensor->buffer());
}

constexpr size_t kStateSize = size_t{2} * 1 * 128;

}  // namespace

Detector::Detector(MireloModel& model) : model_(model) {
    require("allocateInputs", model_.allocateInputs(inputs_));  // all zero: silence, and the state to begin with
    elements<float>(inputs_, kSamples, kBefore + kBlock);
    elements<float>(inputs_, kState, kStateSize);
    *elements<int64_t>(inputs_, kRate, 1) = kSampleRate;
    require("bind", model_.bind({inputs_.begin(), inputs_.end()}, outputs_, binding_));
    elements<float>(outputs_, kSpeech, 1);
    elements<float>(outputs_, kNewState, kStateSize);
}

float Detector::next(const float* samples) {
    auto* const window = elements<float>(inputs_, kSamples, kBefore + kBlock);
    std::memmove(window, window + kBlock, kBefore * sizeof(float));
    std::memcpy(window + kBefore, samples, kBlock * sizeof(float));
    require("evaluate", model_.evaluate(binding_));
    std::memcpy(elements<float>(inputs_, kState, kStateSize), elements<float>(outputs_, kNewState, kStateSize),
                kStateSize * sizeof(float));
    return *elements<float>(outputs_, kSpeech, 1);
}

std::vector<float> detectSpeech(MireloModel& model, const std::vector<float>& samples) {
    Detector detector(model);
    std::vector<float> probabilities;
    for (size_t begin = 0; begin < samples.size(); begin += kBlock) {
        const size_t count = std::min(kBlock, samples.size() - begin);
        float block[kBlock] = {};
        std::copy_n(samples.data() + begin, count, block);
        probabilities.push_back(detector.next(block));
    }
    return probabilities;
}
