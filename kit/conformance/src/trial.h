#pragma once

#include "package.h"

#include <TarnoMirelo/conformance.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo::Conformance {

using Binding = std::shared_ptr<MireloModel::MireloBinding>;
using Outputs = MireloModel::Outputs;

/// What a host hands to a prediction. The inputs are not const here, so that checks can change what they hold.
struct Features {
    Outputs inputs;
    Outputs outputs;

    MireloModel::Inputs constInputs() const { return {inputs.begin(), inputs.end()}; }
};

/// A tensor over memory that can be moved, and that can say that it is on a device.
class TrickyTensor : public ITensor {
 public:
    enum class Place { Host, Device };

    TrickyTensor(const Value& value, Place place);

    const uint8_t* buffer() const override { return bytes_.data(); }
    uint8_t* buffer() override { return bytes_.data(); }
    bool onDevice() const override { return place_ == Place::Device; }
    /// The same elements elsewhere.
    void move();

 protected:
    bool allocateBufferOfSize(uint64_t /*size*/) override { return false; }

 private:
    std::vector<uint8_t> bytes_, old_;  // the old memory is kept, so that the new one is elsewhere
    Place place_;
};

std::shared_ptr<MireloFeature> featureOver(const std::string& name, std::shared_ptr<ITensor> tensor);
std::shared_ptr<MireloFeature> featureOf(const Value& value);
/// A feature that is no tensor.
std::shared_ptr<MireloFeature> numberOf(const std::string& name);
/// A feature over a tensor of that shape without a buffer, which can't get one.
std::shared_ptr<MireloFeature> withoutBuffer(const Value& value);
Outputs featuresOf(const std::vector<Value>& values);
/// Features of a host for such results, whose elements are none of the results'.
Outputs roomFor(const std::vector<Value>& values);
/// Inputs of a case, and room for its outputs.
Features featuresOf(const Case& each);
/// Those values as elements of another type.
Value converted(const Value& value, DataType type);
/// Whether the inputs of two cases, which have the same names, have the same shapes too.
bool haveSameShapes(const Case& one, const Case& other);
/// Copies the elements into the feature's tensor, which has room for them.
void write(const std::vector<Value>& values, const Outputs& features);

/// The features of a host as they are now, to be compared with what they are later.
class Snapshot {
 public:
    explicit Snapshot(const Outputs& features);
    /// Fails unless the list has the same features, and these the same tensors, shapes, buffers and elements.
    void expectUnchanged(const Outputs& features, const char* what) const;

 private:
    struct Held {
        std::shared_ptr<MireloFeature> feature;
        std::shared_ptr<ITensor> tensor;
        TensorShape shape;
        const uint8_t* buffer = nullptr;
        std::vector<uint8_t> bytes;
    };
    static Held look(const std::shared_ptr<MireloFeature>& feature);
    std::vector<Held> held_;
};

/// What the check of a row works with.
class Trial {
 public:
    /// Raises `std::runtime_error` for packages that can't be read.
    Trial(const Backend& backend, const Row& row);

    const Backend& backend() const { return backend_; }
    const std::vector<Package>& packages() const { return packages_; }
    /// The package that failures are tried on: the first one of fixed shapes and floats, and if there is one, with that
    /// many inputs and outputs.
    const Package& plain() const;
    const Package* plainWith(size_t inputs, size_t outputs) const;

    std::shared_ptr<MireloModel> make(const std::string& name = "model") const;
    /// A model that has loaded the package; expected to succeed.
    std::shared_ptr<MireloModel> loaded(const Package& package) const;
    std::shared_ptr<MireloModel> loaded(const MakeModel& make, const Package& package) const;
    static void load(MireloModel& model, const MireloModel::Components& components);
    /// Whether networks may come as components of that kind.
    bool takes(const char* componentKind) const;

    /// Expects the row's status, a description, and in it the name of what the failure is about, if one is given.
    void expectRefused(const MireloStatus& status, const std::string& named = "") const;
    static void expectSuccess(const MireloStatus& status, const std::string& operation);
    /// Expects those results, in that order. A piece of the text that is returned says what is wrong, for threads.
    void expectResults(const Outputs& outputs, const std::vector<Value>& expected) const;
    std::string compare(const Outputs& outputs, const std::vector<Value>& expected) const;
    /// Expects the model to predict the case, with new outputs.
    void expectPredicts(const MireloModel& model, const Case& each) const;
    void expectPredicts(const MireloModel& model, const Package& package) const;

    /// Has one row of features changed, and expects that each operation that takes one row refuses them: with the row's
    /// status, its outputs as they were, and nothing that sticks.
    using Damage = std::function<void(Features& features)>;
    void expectRefuses(const Package& package, const std::string& named, const Damage& damage) const;
    /// Likewise, of a batch of two rows: the case and the next one.
    void expectRefusesBatch(const Package& package, const std::string& named, const Damage& damage) const;
    /// Inputs of two rows, and room for their outputs.
    static Features twoRowsOf(const Package& package);

 private:
    void expectRefusedBy(const char* operation, const MireloModel& model, Features features,
                         const std::string& named) const;

    const Backend& backend_;
    const Row& row_;
    std::vector<Package> packages_;
    std::shared_ptr<Device> device_;
};

/// Whether the text has the name as a word of its own.
bool names(const std::string& text, const std::string& name);

// The rows of each file.
std::vector<Row> loadingRows();
std::vector<Row> predictionRows();
std::vector<Row> outputRows();
std::vector<Row> bindingRows();
std::vector<Row> batchRows();
std::vector<Row> memoryRows();
std::vector<Row> threadRows();

}  // namespace TarnoMirelo::Conformance
