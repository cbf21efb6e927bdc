#pragma once

#include "network.h"

#include <TarnoMirelo/model.h>

#include <opencv2/core.hpp>

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

namespace TarnoMirelo::OpenCv {

/// Whether an object is of this very class. By address, for a class that a host built without type information has
/// nothing there to look into.
template <typename Class, typename Base>
bool isExactly(const Base& object) {
    return &typeid(object) == &typeid(Class);
}

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
    /// As `run`, where it is known that all tensors are where they were.
    void runAgain();

    /// Remembers what was bound without keeping it alive: from then on to be run only where `stillFits` says so.
    /// @return false where another binding of the same features may be another one
    bool release(const MireloModel::Inputs& inputs, const MireloModel::Outputs& outputs);
    /// Whether these are the very features of the release, in that order, and nothing of what was bound has changed: a
    /// new binding would be no other.
    bool stillFits(const MireloModel::Inputs& inputs, const MireloModel::Outputs& outputs) const;

    /// Runs several bindings of one row each: in a single pass where the network allows it, else one by one.
    static void runRows(std::vector<Binding>& rows);

 private:
    // A tensor as it was bound, and from the release on the feature whose tensor it was.
    struct Bound {
        explicit Bound(const ITensor& bound) : tensor(&bound), buffer(bound.buffer()), shape(bound.shape()) {}

        bool isInPlace() const { return tensor->buffer() == buffer && tensor->shape() == shape; }
        template <typename Feature>
        bool isStill(const std::shared_ptr<Feature>& given) const;

        const ITensor* tensor;
        const uint8_t* buffer;
        TensorShape shape;
        const MireloFeature* feature = nullptr;
        std::weak_ptr<const MireloFeature> owner;
    };

    void wrapInputs(const MireloModel::Inputs& inputs, int64_t rows);
    void wrapOutputs(MireloModel::Outputs& outputs, int64_t rows);
    void keep(const std::shared_ptr<const ITensor>& tensor);
    static cv::Mat wrap(const ITensor& tensor, const EngineShape& shape, int depth);
    void checkInPlace() const;
    void forward();
    bool hasSameForm(const Binding& other) const;
    static void runStacked(std::vector<Binding>& rows);

    std::vector<std::shared_ptr<const ITensor>> kept_;  // the tensors of bound_, until the release
    EngineShapes inputShapes_;
    // What every run looks at.
    std::shared_ptr<Network> network_;
    std::vector<Bound> bound_;     // the inputs, then the outputs, as they were given
    uint64_t inference_ = 0;       // the one of inputShapes_
    std::vector<cv::Mat> inputs_;  // in the target's order
    std::vector<std::string> outputNames_;
    std::vector<cv::Mat> outputs_;  // in the order of outputNames_
};

}  // namespace TarnoMirelo::OpenCv
