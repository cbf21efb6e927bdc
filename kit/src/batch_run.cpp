#include "descriptor_access.h"
#include "memory_ranges.h"

#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/outputs.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

namespace TarnoMirelo::Kit {
namespace {

// A row of a batch, and what its features hold.
struct Row {
    MireloModel::Inputs inputs;    // in the target's order
    MireloModel::Outputs outputs;  // as the host gave them
    InputTensors inputTensors;
    OutputTensors outputTensors;
};

using Rows = std::vector<Row>;

MireloStatus ofRow(size_t row, MireloStatus status) {
    status.setDescription("Row " + std::to_string(row) + ": " + status.getDescription());
    return status;
}

// The features of each port, in their order.
template <typename Feature>
using Columns = std::vector<std::vector<std::shared_ptr<Feature>>>;

template <typename Feature>
MireloStatus takeApart(const char* kind, const Ports& ports, const std::vector<std::shared_ptr<Feature>>& features,
                       Columns<Feature>& columns) {
    columns.resize(ports.size());
    for (size_t i = 0; i < features.size(); ++i) {
        if (features[i] == nullptr) {
            return {INVALID_ARGUMENTS, std::string(kind) + ": the feature at index " + std::to_string(i) + " is null"};
        }
        const std::string& name = nameOf(features[i]->featureDescriptor());
        const size_t likely = i % ports.size();
        const std::optional<size_t> index = ports[likely].name == name ? likely : ports.find(name);
        if (!index) {
            return {INVALID_ARGUMENTS, std::string(kind) + " \"" + name + "\": the target has none of that name"};
        }
        columns[*index].push_back(features[i]);
    }
    return {SUCCESS, ""};
}

MireloStatus takeInputsApart(const InputPorts& ports, const MireloModel::Inputs& inputs, Rows& rows) {
    Columns<const MireloFeature> columns;
    MireloStatus status = takeApart("Input", ports, inputs, columns);
    if (!status.ok()) return status;
    size_t reference = ports.size();  // the first port with features
    for (size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].empty()) continue;
        if (reference == ports.size()) reference = i;
        if (columns[i].size() == columns[reference].size()) continue;
        return {INVALID_TYPE, ports.about(i, std::to_string(columns[i].size()) + " features, wanted are " +
                                                 std::to_string(columns[reference].size()) + " as of input \"" +
                                                 ports[reference].name + "\"")};
    }
    if (reference == ports.size()) return {INVALID_ARGUMENTS, "Input: the batch is empty, wanted is at least one row"};
    rows.resize(columns[reference].size());
    for (size_t row = 0; row < rows.size(); ++row) {
        rows[row].inputs.reserve(ports.size());
        for (const auto& column : columns) {
            if (!column.empty()) rows[row].inputs.push_back(column[row]);
        }
    }
    return status;
}

MireloStatus takeOutputsApart(const OutputPorts& ports, const MireloModel::Outputs& outputs, Rows& rows) {
    Columns<MireloFeature> columns;
    MireloStatus status = takeApart("Output", ports, outputs, columns);
    if (!status.ok()) return status;
    for (size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].empty()) continue;
        if (columns[i].size() != rows.size()) {
            return {INVALID_ARGUMENTS, ports.about(i, std::to_string(columns[i].size()) + " features, wanted are " +
                                                          std::to_string(rows.size()) + ", one for each row")};
        }
        for (size_t row = 0; row < rows.size(); ++row) rows[row].outputs.push_back(columns[i][row]);
    }
    return status;
}

// What the rows write must not be what another one reads or writes.
MireloStatus checkApart(const InputPorts& inputPorts, const OutputPorts& outputPorts, const Rows& rows) {
    MemoryRanges ranges;
    ranges.reserve(rows.size() * (inputPorts.size() + outputPorts.size()));
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.inputTensors.size(); ++i) {
            if (row.inputTensors[i] != nullptr) ranges.addInput(*row.inputTensors[i], inputPorts[i].name);
        }
        for (size_t i = 0; i < row.outputTensors.size(); ++i) {
            if (row.outputTensors[i] != nullptr) ranges.addOutput(*row.outputTensors[i], outputPorts[i].name);
        }
    }
    MireloStatus status = ranges.check();
    if (!status.ok()) status.setDescription("Between rows: " + status.getDescription());
    return status;
}

bool haveVariableOutputs(const Rows& rows) {
    return std::any_of(rows.begin(), rows.end(), [](const Row& row) {
        return std::any_of(row.outputTensors.begin(), row.outputTensors.end(),
                           [](const auto& tensor) { return tensor != nullptr && tensor->hasVariableShape(); });
    });
}

MireloStatus checkRows(const InputPorts& inputPorts, const OutputPorts& outputPorts, bool given, Rows& rows) {
    for (size_t i = 0; i < rows.size(); ++i) {
        Row& row = rows[i];
        MireloStatus status = inputPorts.arrange(row.inputs, 1, row.inputTensors);
        if (status.ok() && given) {
            status = outputPorts.arrange(inputPorts, row.inputTensors, row.outputs, 1, row.outputTensors);
        }
        if (!status.ok()) return ofRow(i, std::move(status));
    }
    return given ? checkApart(inputPorts, outputPorts, rows) : MireloStatus(SUCCESS, "");
}

bool isRow(const TensorShape& shape) { return shape.dimension() > 0 && shape[0] == 1; }

TensorShape withRows(TensorShape shape, size_t rows) {
    shape[0] = static_cast<int64_t>(rows);
    return shape;
}

// One tensor for an input of all rows, one row after the other; null where they don't have the same form.
std::shared_ptr<Tensor> stackOf(const Rows& rows, size_t input) {
    const ITensor& first = *rows.front().inputTensors[input];
    if (!isRow(first.shape())) return nullptr;
    for (const Row& row : rows) {
        const ITensor& tensor = *row.inputTensors[input];
        if (tensor.dataType() != first.dataType() || tensor.shape() != first.shape()) return nullptr;
    }
    const auto size = static_cast<size_t>(*byteCount(first.dataType(), first.shape()));
    auto stack = std::make_shared<Tensor>(first.dataType(), withRows(first.shape(), rows.size()));
    uint8_t* to = stack->buffer();
    for (const Row& row : rows) {
        if (size > 0) std::memcpy(to, row.inputTensors[input]->buffer(), size);
        to += size;
    }
    return stack;
}

// The inputs of all rows in one tensor each; empty where that can't be.
MireloModel::Inputs stackInputs(const InputPorts& ports, const Rows& rows) {
    MireloModel::Inputs stacked;
    for (size_t i = 0; i < ports.size(); ++i) {
        if (rows.front().inputTensors[i] == nullptr) continue;  // not given, and so in no row
        std::shared_ptr<Tensor> stack = stackOf(rows, i);
        if (stack == nullptr) return {};
        stacked.push_back(std::make_shared<MireloFeatureTensor>(ports[i].descriptor, std::move(stack)));
    }
    return stacked;
}

// The results of the first of so many rows in the stacked outputs; empty where these are no rows.
std::vector<Result> firstRowOf(const InputPorts& inputPorts, const OutputPorts& ports,
                               const MireloModel::Outputs& stacked, size_t rows) {
    OutputTensors tensors;
    if (!ports.arrange(inputPorts, {}, stacked, static_cast<int64_t>(rows), tensors).ok()) return {};
    std::vector<Result> results;
    for (const std::shared_ptr<ITensor>& tensor : tensors) {
        if (tensor == nullptr || tensor->buffer() == nullptr) return {};
        TensorShape shape = tensor->shape();
        if (shape.dimension() == 0 || shape[0] != static_cast<int64_t>(rows)) return {};
        shape[0] = 1;
        results.push_back({tensor->dataType(), std::move(shape), tensor->buffer()});
    }
    return results;
}

// Runs all rows in one pass. Nothing where that can't be, or not well; the rows can then still be run one by one.
std::optional<MireloStatus> runStacked(const InputPorts& inputPorts, const OutputPorts& outputPorts, Rows& rows,
                                       const RunRows& run) {
    MireloModel::Outputs stacked;
    MireloStatus status;
    std::vector<Result> results;
    try {
        const MireloModel::Inputs inputs = stackInputs(inputPorts, rows);
        if (inputs.empty()) return std::nullopt;
        status = run(inputs, stacked, static_cast<int64_t>(rows.size()));
        if (!status.ok() && !status.warn()) return std::nullopt;
        results = firstRowOf(inputPorts, outputPorts, stacked, rows.size());
        if (results.empty()) return std::nullopt;
    } catch (const std::bad_alloc&) {  // single rows take less
        return std::nullopt;
    } catch (const std::length_error&) {
        return std::nullopt;
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        const MireloStatus written =
            writeOutputs(inputPorts, rows[i].inputTensors, outputPorts, results, 1, rows[i].outputs);
        if (!written.ok()) return ofRow(i, written);
        for (Result& result : results) result.elements += *byteCount(result.dataType, result.shape);
    }
    return status;
}

MireloStatus runOneByOne(Rows& rows, const RunRows& run) {
    MireloStatus all(SUCCESS, "");
    for (size_t i = 0; i < rows.size(); ++i) {
        MireloStatus status = run(rows[i].inputs, rows[i].outputs, 1);
        if (status.ok()) continue;
        status = ofRow(i, std::move(status));
        if (!status.warn()) return status;
        if (all.ok()) all = std::move(status);
    }
    return all;
}

// New features of a row in the target's order, in which most backends make them.
void sortOutputs(const OutputPorts& ports, MireloModel::Outputs& outputs) {
    const auto placeOf = [&](const std::shared_ptr<MireloFeature>& feature) {
        if (feature == nullptr) return ports.size();
        return ports.find(nameOf(feature->featureDescriptor())).value_or(ports.size());
    };
    const auto isBefore = [&](const auto& one, const auto& other) { return placeOf(one) < placeOf(other); };
    if (!std::is_sorted(outputs.begin(), outputs.end(), isBefore)) {
        std::stable_sort(outputs.begin(), outputs.end(), isBefore);
    }
}

}  // namespace

MireloStatus runBatch(const InputPorts& inputPorts, const OutputPorts& outputPorts, const MireloModel::Inputs& inputs,
                      MireloModel::Outputs& outputs, Stacking stacking, const RunRows& run) {
    Rows rows;
    MireloStatus status = takeInputsApart(inputPorts, inputs, rows);
    if (status.ok()) status = takeOutputsApart(outputPorts, outputs, rows);
    if (status.ok()) status = checkRows(inputPorts, outputPorts, !outputs.empty(), rows);
    if (!status.ok()) return status;
    std::optional<MireloStatus> stacked;
    if (stacking == Stacking::Promised && rows.size() > 1) {
        stacked = runStacked(inputPorts, outputPorts, rows, run);
    }
    status = stacked ? *std::move(stacked) : runOneByOne(rows, run);
    if (!status.ok() && !status.warn()) return status;
    if (haveVariableOutputs(rows)) {  // one may have grown, within its buffer, over what another row has there
        MireloStatus apart = checkApart(inputPorts, outputPorts, rows);
        if (!apart.ok()) return apart;
    }
    if (!outputs.empty()) return status;
    MireloModel::Outputs flat;
    flat.reserve(rows.size() * outputPorts.size());
    for (Row& row : rows) {
        sortOutputs(outputPorts, row.outputs);
        flat.insert(flat.end(), row.outputs.begin(), row.outputs.end());
    }
    outputs = std::move(flat);
    return status;
}

}  // namespace TarnoMirelo::Kit
