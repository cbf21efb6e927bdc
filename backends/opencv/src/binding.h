#pragma once

#include "network.h"

#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/model.h>

#include <opencv2/core.hpp>

#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo::OpenCv {

/// Raises for inputs whose element type or shape the engine doesn't take. What else is wrong with them is left to
/// other checks.
void checkForms(const Kit::InputPorts& ports, const MireloModel::Inputs& inputs);

/// Inputs and outputs, checked and wrapped for the engine: a prediction that has only to be run.
class Binding final : public MireloModel::MireloBinding {
 public:
    /// Checks everything before it changes anything, and raises what does not fit.
    /// @param outputs  empty: filled with new features; else some or all of the target's outputs
    /// @param rows     rows in each tensor
    Binding(std::shared_ptr<Network> network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
            int64_t rows);

    const std::shared_ptr<Network>& network() const { return network_; }

    /// Runs the network on what the inputs hold now. Raises `InvalidOperationException` where a tensor has got another
    /// buffer or shape since.
    void run();

 private:
    void wrapInput(size_t index, std::shared_ptr<const ITensor> tensor);
    void wrapOutput(size_t index, std::shared_ptr<const ITensor> tensor, const EngineShape& shape);

    std::shared_ptr<Network> network_;
    EngineShapes inputShapes_;
    uint64_t generation_ = 0;      // of the inference for inputShapes_
    Kit::BoundTensors bound_;      // the inputs and the outputs
    std::vector<cv::Mat> inputs_;  // in the target's order
    std::vector<std::string> outputNames_;
    std::vector<cv::Mat> outputs_;              // in the order of outputNames_
    std::vector<const uint8_t*> outputMemory_;  // where they are to stay
};

}  // namespace TarnoMirelo::OpenCv
