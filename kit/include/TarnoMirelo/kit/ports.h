#pragma once

/// @file
/// The features of a prediction, matched to the inputs and outputs of a target and checked against them.
///
/// Every check gives the same statuses, for hosts and in every backend. The description names the input or output, what
/// was found and what is wanted, as in `Input "pixels": the shape is (2, 3), wanted is (1, 64)`.
///   - `INVALID_ARGUMENTS`: a feature that is null, has a name that the target doesn't have, is given twice, holds no
///     tensor, one without a buffer or one whose buffer does not begin at a multiple of an element's width; a required
///     input that is missing; an output whose memory is also another output's or an input's
///   - `INVALID_TYPE`: a feature that is no tensor, or a tensor that is not in host memory
///   - `INVALID_TENSOR_DATA_TYPE`: an element type that is not the target's
///   - `INVALID_SHAPE`: a shape that is not the target's, where -1 stands for any number from 0, or whose elements
///     can't be counted in 63 bits
/// Nothing is changed. What else a host's own features and tensors raise passes through, and so does `std::bad_alloc`.
///
/// Objects of this header are plain values: they may be used from several threads at once as long as none changes them.

#include <TarnoMirelo/model.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace TarnoMirelo::Kit {

/// One place for each input of a target, in its order; null for an input that is not required and was not given.
using InputTensors = std::vector<std::shared_ptr<const ITensor>>;
/// One place for each output of a target, in its order; null for an output that was not given.
using OutputTensors = std::vector<std::shared_ptr<ITensor>>;

/// Checks the inputs of a prediction, in any order. For up to 64 inputs nothing is allocated on success.
///
/// An input of the target that is no tensor takes any feature of its type. An input whose element type the manifest
/// leaves undefined takes every type that has elements.
/// @return `SUCCESS`, or one of the statuses above
MireloStatus checkInputs(const ModelTarget& target, const MireloModel::Inputs& inputs);

/// Checks the outputs of a prediction: none, or some or all of the target's in any order. A tensor of variable shape
/// needs the right number of dimensions, one without a buffer can have any shape: they get theirs with the results.
/// @param inputs  of the same prediction
/// @return `SUCCESS`, or one of the statuses above
MireloStatus checkOutputs(const ModelTarget& target, const MireloModel::Inputs& inputs,
                          const MireloModel::Outputs& outputs);

/// Whether a backend takes only elements of the type that the manifest declares, or looks at the type by itself.
enum class ElementTypes : int32_t {
    Declared,  ///< another type is refused with `INVALID_TENSOR_DATA_TYPE`
    Any,       ///< every type that has elements passes: the backend converts, or refuses by itself
};

/// The inputs or the outputs of a target, all of them tensors, prepared once for checks that are made often.
class Ports {
 public:
    /// One input or output, taken apart for the checks.
    struct Port {
        ModelFeatureDescriptor descriptor;  ///< as the target has it
        std::string name;                   ///< of the descriptor
        /// The declared type; `Undefined` with `ElementTypes::Any`: every type that has elements. `descriptor` has the
        /// declared one then.
        DataType dataType = DataType::Undefined;
        TensorShape shape;     ///< of one row
        bool required = true;  ///< whether a prediction needs a value for it

        /// The shape of that many rows in one tensor: a leading 1 gives way to `rows`.
        TensorShape shapeOf(int64_t rows) const;
    };

    /// How many ports there are; at least one.
    size_t size() const { return ports_.size(); }
    /// The port at a place below `size`, which is not checked; in the target's order.
    const Port& operator[](size_t index) const { return ports_[index]; }
    /// The first port, in the target's order.
    std::vector<Port>::const_iterator begin() const { return ports_.begin(); }
    /// Behind the last port.
    std::vector<Port>::const_iterator end() const { return ports_.end(); }
    /// The place of that name among the ports.
    std::optional<size_t> find(const std::string& name) const;
    /// `Input "x": ` or `Output "x": ` and the text.
    std::string about(size_t index, const std::string& text) const;

 protected:
    /// Raises as the constructor of `InputPorts` does.
    /// @param kind  "Input" or "Output", for messages
    Ports(const char* kind, const std::vector<ModelFeatureDescriptor>& descriptors, ElementTypes types);

 private:
    std::string kind_;
    std::vector<Port> ports_;
    std::unordered_map<std::string, size_t> indices_;
};

/// The inputs of a target, for a backend that checks many predictions.
class InputPorts : public Ports {
 public:
    /// Raises `ModelMetaDataException` for a target without inputs, an input that is no tensor, and a name that comes
    /// twice.
    explicit InputPorts(const ModelTarget& target, ElementTypes types = ElementTypes::Declared);

    /// As `checkInputs`.
    /// @param rows  in each tensor, see `Port::shapeOf`
    MireloStatus check(const MireloModel::Inputs& inputs, int64_t rows = 1) const;
    /// As `check`, and hands out the tensors.
    /// @param tensors  out, on success only
    MireloStatus arrange(const MireloModel::Inputs& inputs, int64_t rows, InputTensors& tensors) const;
};

/// The outputs of a target, for a backend that checks many predictions.
class OutputPorts : public Ports {
 public:
    /// Raises as `InputPorts` does.
    explicit OutputPorts(const ModelTarget& target, ElementTypes types = ElementTypes::Declared);

    /// As `checkOutputs`, and hands out the tensors.
    /// @param inputs   of the same prediction, in the order of `inputPorts`
    /// @param rows     in each tensor, see `Port::shapeOf`
    /// @param tensors  out, on success only
    MireloStatus arrange(const InputPorts& inputPorts, const InputTensors& inputs, const MireloModel::Outputs& outputs,
                         int64_t rows, OutputTensors& tensors) const;
};

/// Whether the shape is the wanted one, in which -1 stands for any number from 0 and a leading 1 for `rows`. The
/// dimensions are then not negative.
bool fits(const TensorShape& shape, const TensorShape& wanted, int64_t rows = 1);

/// The bytes of a dense tensor; nothing for a negative dimension, and where they can't be counted in 63 bits.
std::optional<int64_t> byteCount(DataType type, const TensorShape& shape);

/// The tensors that a backend has bound, so that evaluating again needs no other check than whether they have stayed.
class BoundTensors {
 public:
    /// Remembers the tensor as it is now, and keeps it alive. Null pointers are left out.
    void add(std::shared_ptr<const ITensor> tensor);
    /// Whether every tensor still has the buffer and the shape that it had.
    bool areInPlace() const {  // here, since a backend asks in each evaluation
        return std::all_of(bound_.begin(), bound_.end(), [](const Bound& each) {
            return each.tensor->buffer() == each.buffer && each.tensor->shape() == each.shape;
        });
    }

 private:
    /// @cond  Doxygen would list it, although it is private
    struct Bound {
        std::shared_ptr<const ITensor> tensor;
        const uint8_t* buffer;
        TensorShape shape;
    };
    /// @endcond
    std::vector<Bound> bound_;
};

}  // namespace TarnoMirelo::Kit
