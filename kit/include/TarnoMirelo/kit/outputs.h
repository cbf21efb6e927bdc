#pragma once

/// @file
/// The outputs of a prediction: new ones for a host that gave none, else the host's own, made to fit the results.

#include <TarnoMirelo/kit/ports.h>

#include <cstdint>
#include <vector>

namespace TarnoMirelo::Kit {

/// A result of the engine.
struct Result {
    DataType dataType = DataType::Undefined;  ///< of the elements
    TensorShape shape;                        ///< without -1: what the engine computed, or is going to
    /// Dense and row-major, borrowed, as many as the shape says. `writeOutputs` copies them, `prepareOutputs` doesn't
    /// look.
    const uint8_t* elements = nullptr;
};

/// Outputs that fit the results.
struct PreparedOutputs {
    MireloModel::Outputs features;  ///< what the host's list becomes: its own features in its order, or a new one each
    OutputTensors tensors;          ///< each with a buffer of its result's size and shape
};

/// Has an output ready for each result, for engines that tell the shapes before they run or bind.
///
/// With an empty list, there is a new feature for each output of the target. Otherwise the given ones are used: a
/// tensor of variable shape or without a buffer gets the result's shape and, where needed, a new buffer; any other one
/// has the result's shape already. All is checked before anything is changed. When a tensor refuses its shape after
/// all, or a variable one grows within its buffer over another tensor, variable tensors get their shapes back; one that
/// has moved to a larger buffer by then has zeros in it. Only when memory runs out may a tensor that had no buffer have
/// got one.
///
/// A backend that has run, or bound, moves `features` to the host's list as its last step.
/// @param inputs    of the same prediction, in the order of `inputPorts`
/// @param results   one for each output of the target, in its order; those that the host's list leaves out are not
///                  looked at
/// @param given     the host's list; its features are changed, the list isn't
/// @param rows      in each tensor, see `Ports::Port::shapeOf`
/// @param prepared  out, on success only
/// @return `SUCCESS`; what `OutputPorts::arrange` returns; or
///   - `MODEL_METADATA_ERROR`: a result whose element type or shape is not what the target declares
///   - `INVALID_SHAPE`: a given tensor that can't take the result's shape
///   - `ALLOCATION_FAILED`: a given tensor that has no buffer and can't get one, or no memory for an output
///   - what else a tensor answers to `resize` or `allocateShape`
/// What else a tensor raises there passes through, and `std::bad_alloc` where memory runs out for anything but an
/// output.
MireloStatus prepareOutputs(const InputPorts& inputPorts, const InputTensors& inputs, const OutputPorts& ports,
                            const std::vector<Result>& results, const MireloModel::Outputs& given, int64_t rows,
                            PreparedOutputs& prepared);

/// As `prepareOutputs`, and copies the results into the outputs: for engines that own their results' memory.
/// @param outputs  in: the host's list; out, on success: the same, or the new features where it was empty
MireloStatus writeOutputs(const InputPorts& inputPorts, const InputTensors& inputs, const OutputPorts& ports,
                          const std::vector<Result>& results, int64_t rows, MireloModel::Outputs& outputs);

}  // namespace TarnoMirelo::Kit
