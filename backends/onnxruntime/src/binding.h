#pragma once

#include "network.h"

#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/model.h>

#include <memory>
#include <vector>

namespace TarnoMirelo::OnnxRuntime {

/// Checks the inputs and outputs, runs the network once, and raises what does not fit.
/// @param outputs  empty: filled with new features; else some or all of the target's outputs
/// @param rows     rows in each tensor
void predictOnce(const Network& network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
                 int64_t rows);

/// Inputs and outputs, checked and bound: a prediction that has only to be run.
class Binding final : public MireloModel::MireloBinding {
 public:
    /// As `predictOnce`, up to the run.
    Binding(std::shared_ptr<const Network> network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
            int64_t rows);

    const std::shared_ptr<const Network>& network() const { return network_; }

    /// Runs the network on what the inputs hold now. Raises `InvalidOperationException` where a tensor has got another
    /// buffer or shape since.
    void run();

 private:
    void bindInPlace(std::vector<Kit::Result> results, MireloModel::Outputs& outputs);
    void bindToEngine(MireloModel::Outputs& outputs);
    void copyResults();

    std::shared_ptr<const Network> network_;
    const Network::Copy& copy_;
    int64_t rows_;
    Kit::InputTensors inputs_;
    uint64_t inputBytes_ = 0;
    Kit::BoundTensors bound_;        // what the engine reads and writes in place
    MireloModel::Outputs features_;  // of the outputs
    std::vector<size_t> copied_;     // the outputs whose results the engine allocates, all or none
    Owned<OrtIoBinding> binding_;
};

}  // namespace TarnoMirelo::OnnxRuntime
