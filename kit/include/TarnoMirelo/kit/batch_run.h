#pragma once

/// @file
/// Batches for every backend: a flat list of features taken apart into rows, which are run and put together again.

#include <TarnoMirelo/kit/ports.h>

#include <cstdint>
#include <functional>

namespace TarnoMirelo::Kit {

/// How the rows of a batch may go through the network.
enum class Stacking : int32_t {
    /// Each by itself: right for every network.
    Never,
    /// All in one pass where their shapes allow it. The caller promises that the first dimension of every input and
    /// output counts rows that don't depend on each other. Nothing in a manifest tells: a recurrent network that takes
    /// its first dimension for time, or a softmax over it, gives other results for rows that go through together.
    Promised,
};

/// What a backend does for `rows` rows in each tensor: its prediction. `outputs` is empty, to be filled with one
/// feature for each output of the target, or holds the host's features of one row.
using RunRows =
    std::function<MireloStatus(const MireloModel::Inputs& inputs, MireloModel::Outputs& outputs, int64_t rows)>;

/// Runs a batch: input names repeat in a flat list, and the n-th feature of a name belongs to row n. Rows that are not
/// given in one pass, or that the backend refuses in one pass, are run one by one, from the first to the last.
///
/// @param inputs   each name as often as every other one; rows of the target's shape
/// @param outputs  in: none, or for some or all of the target's outputs one feature for each row, in any order; out, on
///                 success, where it was empty: the new features row by row, in each row in the target's order. A list
///                 that was not empty stays as it is, and its features are written into.
/// @param run      called after all rows are checked; what it raises passes through
/// @return `SUCCESS`, or the first warning of `run`; a failure of `run`; a failure of `checkInputs` or `checkOutputs`,
///         with the number of the row from 0; or
///   - `INVALID_ARGUMENTS`: no rows; not as many outputs of a name as there are rows; an output that shares its memory
///     with an input or output of any row
///   - `INVALID_TYPE`: inputs of one name that are more or fewer than those of another
/// A failure leaves the list of outputs as it was; outputs of the rows before the one that failed may be written.
MireloStatus runBatch(const InputPorts& inputPorts, const OutputPorts& outputPorts, const MireloModel::Inputs& inputs,
                      MireloModel::Outputs& outputs, Stacking stacking, const RunRows& run);

}  // namespace TarnoMirelo::Kit
