#pragma once

#include <TarnoMirelo/model.h>

#include <cstddef>
#include <vector>

/// New samples in each call of the network.
constexpr size_t kBlock = 512;

/// Hears a recording block by block, as a host would that listens to a microphone.
///
/// The network takes each block behind the last samples of the one before, and a state that it gives back changed.
class Detector {
 public:
    /// Begins with silence. Raises std::runtime_error where the model isn't as the manifest beside this program says.
    /// @param model  loaded; outlives the detector
    explicit Detector(TarnoMirelo::MireloModel& model);

    /// How likely somebody speaks in the next `kBlock` samples, from 0 to 1. Raises std::runtime_error with the status
    /// when the model fails.
    float next(const float* samples);

 private:
    TarnoMirelo::MireloModel& model_;
    TarnoMirelo::MireloModel::Outputs inputs_;
    TarnoMirelo::MireloModel::Outputs outputs_;
    std::shared_ptr<TarnoMirelo::MireloModel::MireloBinding> binding_;
};

/// `Detector::next` for each block of a recording. Silence is added to the last one.
std::vector<float> detectSpeech(TarnoMirelo::MireloModel& model, const std::vector<float>& samples);
