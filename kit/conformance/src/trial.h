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

/// An input or output of a package, as its full case has it.
struct Place {
    const Package& package;
    Outputs Features::*list;  // the inputs or the outputs
    size_t index;             // in that list
    const Value& value;
    const ModelFeatureDescriptor& port;

    DataType declaredType() const { return port.tensorDescriptor().tensorType(); }
    /// Whether the target leaves a dimension open.
    bool isOpen() const { return port.tensorDescriptor().variableShape(); }
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
/// A feature of that name over a new tensor.
std::shared_ptr<MireloFeature> featureOf(const std::string& name, DataType type, const TensorShape& shape);
Outputs featuresOf(const std::vector<Value>& values);
/// Features of a host for such results, whose elements are none of the results'.
Outputs roomFor(const std::vector<Value>& values);
/// Likewise, over tensors that get the shape and the buffer that the results need: those of variable shape, or those
/// without shape and buffer.
Outputs openRoomFor(const std::vector<Value>& values, bool isVariable);
/// Calls `attempt` with features over one piece of memory, with the elements of the values: at the same place, and with
/// the end of one in the beginning of the other.
void eachOverlap(const Value& one, const Value& other,
                 const std::function<void(std::shared_ptr<MireloFeature>, std::shared_ptr<MireloFeature>)>& attempt);
/// Inputs of a case, and room for its outputs.
Features featuresOf(const Case& each);
/// Those values as elements of another type.
Value converted(const Value& value, DataType type);
/// Whether the inputs of two cases, which have the same names, have the same shapes too.
bool haveSameShapes(const Case& one, const Case& other);
/// Copies the elements into the feature's tensor, which has room for them.
void write(const std::vector<Value>& values, const Outputs& features);

/// Runs that operation: "predict", "predictBatch" or "bind".
MireloStatus run(const std::string& operation, const MireloModel& model, const Outputs& inputs, Outputs& outputs,
                 Binding& binding);

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
    /// The package that most failures are tried on: the first one of fixed shapes and floats, and if there is one, with
    /// that many inputs and outputs.
    const Package& plain() const;
    const Package* plainWith(size_t inputs, size_t outputs) const;

    std::shared_ptr<MireloModel> make(const std::string& name = "model") const;
    /// A model that has loaded the package; expected to succeed.
    std::shared_ptr<MireloModel> loaded(const Package& package) const;
    std::shared_ptr<MireloModel> loaded(const MakeModel& make, const Package& package) const;
    static void load(MireloModel& model, const MireloModel::Components& components);
    /// Whether networks may come as components of that kind.
    bool takes(const char* componentKind) const;

    /// The operations that take inputs and outputs of one row, and all of them: for `run`.
    std::vector<const char*> rowOperations() const;
    std::vector<const char*> operations() const;

    /// Expects the row's status, a description, and in it the name of what the failure is about, if one is given.
    void expectRefused(const MireloStatus& status, const std::string& named = "") const;
    static void expectSuccess(const MireloStatus& status, const std::string& operation);
    /// Expects those results, in that order. A piece of the text that is returned says what is wrong, for threads.
    void expectResults(const Outputs& outputs, const std::vector<Value>& expected) const;
    std::string compare(const Outputs& outputs, const std::vector<Value>& expected) const;
    /// Expects the model to predict the case, with new outputs.
    void expectPredicts(const MireloModel& model, const Case& each) const;
    void expectPredicts(const MireloModel& model, const Package& package) const;

    /// The inputs of all packages, and the outputs. Of those of fixed shapes and floats, the first one for each number
    /// of inputs and outputs stands for the others.
    std::vector<Place> inputs() const;
    std::vector<Place> outputs() const;

    /// Has one row of features changed, and expects that predict and bind refuse them: with the row's status, its
    /// outputs as they were, and nothing that sticks. Where it is not the outputs that have changed, without outputs
    /// too.
    using Damage = std::function<void(Features& features)>;
    void expectRefuses(const Package& package, const std::string& named, const Damage& damage);
    /// Likewise by predictBatch, of a batch of two rows: the full case and another one, if there is one.
    void expectRefusesBatch(const Package& package, const std::string& named, const Damage& damage);
    /// What tells that a feature is wrong: checks before any run, or, of an output, the run that computes its shape.
    /// Then it may be evaluate that refuses what bind has taken, and in a batch, the rows before are written by then.
    enum class Found { ByChecks, ByTheRun };
    /// Has that feature at the place of the right one: in one row, and in the second row of a batch.
    void expectRefusesAt(const Place& place, const std::shared_ptr<MireloFeature>& feature,
                         Found found = Found::ByChecks);
    /// By one operation, of features as they are.
    void expectRefusedBy(const char* operation, const MireloModel& model, Features features, const std::string& named,
                         Found found = Found::ByChecks) const;

 private:
    std::vector<Place> places(Outputs Features::*list) const;
    void expectRefuses(const std::vector<const char*>& operations, const Package& package, const Features& whole,
                       const std::string& named, const Damage& damage, Found found = Found::ByChecks);

    const Backend& backend_;
    const Row& row_;
    std::vector<Package> packages_;
    std::shared_ptr<Device> device_;
    const Package* refused_ = nullptr;       // the last package that had something refused
    std::shared_ptr<MireloModel> refusing_;  // its model
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
