#pragma once

#include "network.h"

#include <TarnoMirelo/model.h>

#include <opencv2/core.hpp>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TarnoMirelo::OpenCv {

/// The memory of an input or an output; all is borrowed.
struct Memory {
    const ITensor* tensor;
    const uint8_t* begin;
    const uint8_t* end;
    const std::string* name;
    bool isOutput;
};

/// Inputs and outputs, checked and wrapped for the engine: a prediction that has only to be run.
class Binding final : public MireloModel::MireloBinding {
 public:
    /// Checks everything, changes nothing, and raises what does not fit. To be followed by `prepareOutputs`.
    /// @param outputs  empty: filled with new features; else some or all of the target's outputs
    /// @param rows     rows in each tensor
    Binding(std::shared_ptr<Network> network, const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs,
            int64_t rows);

    /// Gives the outputs the shapes of their results, and a buffer where they have none. Raises where a tensor can't
    /// get one; others that had none may have got theirs then.
    void prepareOutputs();

    const std::shared_ptr<Network>& network() const { return network_; }

    /// Runs the network on what the inputs hold now. Raises `InvalidOperationException` where a tensor has got another
    /// buffer or shape since.
    void run();
    /// Prepares and runs several bindings of one row each. Checks all before it changes any.
    /// @param rowsAreIndependent  whether all of them may go through in a single pass, where the network allows it
    static void runRows(std::vector<Binding>& rows, bool rowsAreIndependent);

 private:
    // A tensor as it was bound.
    struct Bound {
        explicit Bound(std::shared_ptr<const ITensor> bound)
            : tensor(std::move(bound)), buffer(tensor->buffer()), shape(tensor->shape()) {}

        bool isInPlace() const { return tensor->buffer() == buffer && tensor->shape() == shape; }

        std::shared_ptr<const ITensor> tensor;
        const uint8_t* buffer;
        TensorShape shape;
    };

    // An output's tensor, and what it is to take.
    struct Result {
        std::shared_ptr<ITensor> tensor;
        TensorShape shape;
        EngineShape engineShape;
    };

    void wrapInputs(const MireloModel::Inputs& inputs, int64_t rows);
    void checkOutputs(MireloModel::Outputs& outputs, int64_t rows);
    /// What `run` does once the tensors are known to be in place.
    void runInPlace();
    static cv::Mat wrap(const ITensor& tensor, const EngineShape& shape, int depth);
    /// The memory of every input and output.
    std::vector<Memory> memories() const;
    void checkInPlace() const;
    bool hasSameForm(const Binding& other) const;
    static void runStacked(std::vector<Binding>& rows);

    std::shared_ptr<Network> network_;
    EngineShapes inputShapes_;
    uint64_t generation_ = 0;      // of the inference for inputShapes_
    std::vector<Bound> bound_;     // the inputs, then the outputs, as they were given
    std::vector<Result> results_;  // in the order of outputNames_
    std::vector<cv::Mat> inputs_;  // in the target's order
    std::vector<std::string> outputNames_;
    std::vector<cv::Mat> outputs_;  // in the order of outputNames_
};

}  // namespace TarnoMirelo::OpenCv
