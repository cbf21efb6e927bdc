#include "trial.h"

#include <algorithm>

namespace TarnoMirelo::Conformance {
namespace {

// Rows of a batch: the cases over and over, `count` of them.
std::vector<Case> rowsOf(const Package& package, size_t count) {
    const std::vector<Case> cases = package.rows();
    std::vector<Case> rows;
    for (size_t i = 0; i < count; ++i) rows.push_back(cases[i % cases.size()]);
    return rows;
}

struct Batch {
    Outputs inputs;
    std::vector<Value> expected;  // row by row
};

Batch batchOf(const std::vector<Case>& rows) {
    Batch batch;
    for (const Case& row : rows) {
        const Outputs inputs = featuresOf(row.inputs);
        batch.inputs.insert(batch.inputs.end(), inputs.begin(), inputs.end());
        batch.expected.insert(batch.expected.end(), row.outputs.begin(), row.outputs.end());
    }
    return batch;
}

MireloStatus predictBatch(const MireloModel& model, const Outputs& inputs, Outputs& outputs) {
    return model.predictBatch({inputs.begin(), inputs.end()}, outputs);
}

void expectBatches(const Trial& trial, const MireloModel& model, const Package& package) {
    for (const size_t count : {1U, 2U, 3U, 5U}) {
        SCOPED_TRACE(std::to_string(count) + " rows");
        const Batch batch = batchOf(rowsOf(package, count));
        Outputs outputs;
        Trial::expectSuccess(predictBatch(model, batch.inputs, outputs), "predictBatch");
        trial.expectResults(outputs, batch.expected);
    }
}

void batches(Trial& trial) {
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        expectBatches(trial, *trial.loaded(package), package);
    }
}

void stackedBatches(Trial& trial) {
    if (!trial.backend().makeStackingModel) GTEST_SKIP() << "The backend never runs several rows in one pass";
    bool tried = false;
    for (const Package& package : trial.packages()) {
        if (!package.rowsAreIndependent) continue;
        tried = true;
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(trial.backend().makeStackingModel, package);
        expectBatches(trial, *model, package);
        trial.expectPredicts(*model, package);
    }
    if (!tried) GTEST_SKIP() << "No package has rows that are independent";
}

// The inputs of a batch one after the other, each with all its rows; names may be mixed in any way.
void batchInputByInput(Trial& trial) {
    const Package* package = trial.plainWith(2, 1);
    if (package == nullptr) package = &trial.plain();
    const auto model = trial.loaded(*package);
    Batch batch = batchOf(rowsOf(*package, 3));
    std::stable_sort(batch.inputs.begin(), batch.inputs.end(), [](const auto& one, const auto& other) {
        return one->featureDescriptor().name() > other->featureDescriptor().name();
    });
    Outputs outputs;
    Trial::expectSuccess(predictBatch(*model, batch.inputs, outputs), "predictBatch");
    trial.expectResults(outputs, batch.expected);
}

void batchInPlace(Trial& trial) {
    std::vector<MakeModel> makers = {trial.backend().makeModel};
    if (trial.backend().makeStackingModel) makers.push_back(trial.backend().makeStackingModel);
    for (const MakeModel& make : makers) {
        for (const Package& package : trial.packages()) {
            if (&make != &makers.front() && !package.rowsAreIndependent) continue;
            SCOPED_TRACE("package " + package.name);
            const auto model = trial.loaded(make, package);
            const Batch batch = batchOf(rowsOf(package, 3));
            for (const Outputs& given :
                 {roomFor(batch.expected), openRoomFor(batch.expected, false), openRoomFor(batch.expected, true)}) {
                Outputs outputs = given;
                Trial::expectSuccess(predictBatch(*model, batch.inputs, outputs), "predictBatch");
                EXPECT_TRUE(outputs == given) << "The list of outputs has changed";
                trial.expectResults(given, batch.expected);
            }
        }
    }
}

void batchOutputsInAnyOrder(Trial& trial) {
    const Package* const package = trial.plainWith(1, 2);
    if (package == nullptr) GTEST_SKIP() << "No package has two outputs of floats and fixed shapes";
    std::vector<MakeModel> makers = {trial.backend().makeModel};
    if (trial.backend().makeStackingModel && package->rowsAreIndependent) {
        makers.push_back(trial.backend().makeStackingModel);
    }
    for (const MakeModel& make : makers) {
        const auto model = trial.loaded(make, *package);
        const Batch batch = batchOf(rowsOf(*package, 3));
        std::vector<Value> byName = batch.expected;
        std::stable_sort(byName.begin(), byName.end(),
                         [](const Value& one, const Value& other) { return one.name > other.name; });
        std::vector<Value> oneName = byName;
        oneName.resize(3);  // of all rows
        for (const std::vector<Value>& expected : {byName, oneName}) {
            SCOPED_TRACE(std::to_string(expected.size()) + " outputs");
            Outputs outputs = roomFor(expected);
            const Outputs given = outputs;
            Trial::expectSuccess(predictBatch(*model, batch.inputs, outputs), "predictBatch");
            EXPECT_TRUE(outputs == given) << "The list of outputs has changed";
            trial.expectResults(given, expected);
        }
    }
}

void emptyBatch(Trial& trial) {
    trial.expectRefusesBatch(trial.plain(), "", [](Features& features) { features.inputs.clear(); });
}

void unevenBatch(Trial& trial) {
    const Package* const package = trial.plainWith(2, 1);
    if (package == nullptr) GTEST_SKIP() << "No package has two inputs of floats and fixed shapes";
    trial.expectRefusesBatch(*package, "", [](Features& features) { features.inputs.pop_back(); });
}

void unevenOutputs(Trial& trial) {
    const std::string name = trial.plain().cases.front().outputs.front().name;
    trial.expectRefusesBatch(trial.plain(), name,
                             [&](Features& features) { features.outputs.erase(features.outputs.begin()); });
}

void rowsWithUnknownInput(Trial& trial) {
    const Value& value = trial.plain().cases.front().inputs.front();
    trial.expectRefusesBatch(trial.plain(), "stranger", [&](Features& features) {
        for (int row = 0; row < 2; ++row) {
            features.inputs.push_back(featureOver("stranger", featureOf(value)->asTensor()));
        }
    });
}

void rowsWithoutInput(Trial& trial) {
    const Package* const package = trial.plainWith(2, 1);
    if (package == nullptr) GTEST_SKIP() << "No package has two inputs of floats and fixed shapes";
    const std::string name = package->target().inputs.front().name();
    trial.expectRefusesBatch(*package, name, [&](Features& features) {
        const auto isFirst = [&](const auto& input) { return input->featureDescriptor().name() == name; };
        features.inputs.erase(std::remove_if(features.inputs.begin(), features.inputs.end(), isFirst),
                              features.inputs.end());
    });
}

// An output of the first row in the memory of the second's input, or of its output.
void rowOverAnother(Trial& trial) {
    const Case& each = trial.plain().cases.front();
    const Value& input = each.inputs.front();
    const Value& output = each.outputs.front();
    eachOverlap(output, input, [&](const auto& over, const auto& shared) {
        trial.expectRefusesBatch(trial.plain(), output.name, [&](Features& features) {
            features.outputs[0] = over;
            features.inputs[each.inputs.size()] = shared;
        });
    });
    eachOverlap(output, output, [&](const auto& over, const auto& shared) {
        trial.expectRefusesBatch(trial.plain(), output.name, [&](Features& features) {
            features.outputs[0] = over;
            features.outputs[each.outputs.size()] = shared;
        });
    });
}

// The same value of all cases in one tensor, for ports whose first dimension counts rows.
bool stack(const std::vector<Case>& rows, std::vector<Value> Case::*values, std::vector<Value>& stacked) {
    stacked = rows.front().*values;
    for (Value& value : stacked) {
        if (value.shape.dimension() == 0 || value.shape[0] != 1) return false;
        value.bytes.clear();
        value.shape[0] = static_cast<int64_t>(rows.size());
    }
    for (const Case& row : rows) {
        for (size_t i = 0; i < stacked.size(); ++i) {
            const std::vector<uint8_t>& bytes = (row.*values)[i].bytes;
            stacked[i].bytes.insert(stacked[i].bytes.end(), bytes.begin(), bytes.end());
        }
    }
    return true;
}

const Package* packageOfRows(const Trial& trial) {
    for (const Package& package : trial.packages()) {
        Case unused;
        if (package.rowsAreIndependent && stack(package.rows(), &Case::inputs, unused.inputs) &&
            stack(package.rows(), &Case::outputs, unused.outputs)) {
            return &package;
        }
    }
    return nullptr;
}

Case severalRows(const Package& package, size_t count) {
    Case all;
    all.name = std::to_string(count) + " rows in one tensor";
    const std::vector<Case> rows = rowsOf(package, count);
    stack(rows, &Case::inputs, all.inputs);
    stack(rows, &Case::outputs, all.outputs);
    return all;
}

void batchSize(Trial& trial) {
    if (!trial.backend().setsBatchSize) GTEST_SKIP() << "The backend sets no batch size";
    const Package* const package = packageOfRows(trial);
    if (package == nullptr) GTEST_SKIP() << "No package has rows that are independent and shapes that begin with 1";
    const auto model = trial.loaded(*package);
    for (const unsigned int count : {3U, 1U, 2U}) {
        const Case all = severalRows(*package, count);
        Trial::expectSuccess(model->setBatchSize(count), "setBatchSize");
        trial.expectPredicts(*model, all);
        for (const char* const operation : trial.rowOperations()) {
            SCOPED_TRACE(std::string(operation) + " of " + all.name);
            Features features = featuresOf(all);
            Binding binding;
            Trial::expectSuccess(run(operation, *model, features.inputs, features.outputs, binding), operation);
            if (binding != nullptr) Trial::expectSuccess(model->evaluate(binding), "evaluate");
            trial.expectResults(features.outputs, all.outputs);
        }
    }
    expectBatches(trial, *model, *package);  // which takes single rows all the same
    Trial::load(*model, package->components);
    trial.expectPredicts(*model, *package);
}

void otherThanTheBatchSize(Trial& trial) {
    if (!trial.backend().setsBatchSize) GTEST_SKIP() << "The backend sets no batch size";
    const Package* const package = packageOfRows(trial);
    if (package == nullptr) GTEST_SKIP() << "No package has rows that are independent and shapes that begin with 1";
    const auto model = trial.loaded(*package);
    Trial::expectSuccess(model->setBatchSize(2), "setBatchSize");
    for (const size_t count : {1U, 3U}) {
        const Case all = severalRows(*package, count);
        SCOPED_TRACE(all.name);
        for (const char* const operation : trial.rowOperations()) {
            trial.expectRefusedBy(operation, *model, {featuresOf(all.inputs), {}}, all.inputs.front().name);
        }
    }
}

void batchSizeOfZero(Trial& trial) {
    if (!trial.backend().setsBatchSize) GTEST_SKIP() << "The backend sets no batch size";
    const auto model = trial.loaded(trial.plain());
    trial.expectRefused(model->setBatchSize(0));
    trial.expectPredicts(*model, trial.plain());
}

void noBatchSize(Trial& trial) {
    if (trial.backend().setsBatchSize) GTEST_SKIP() << "The backend sets a batch size";
    const auto model = trial.loaded(trial.plain());
    trial.expectRefused(model->setBatchSize(2));
    trial.expectPredicts(*model, trial.plain());
}

}  // namespace

std::vector<Row> batchRows() {
    const char* const named = "the description names the input; nothing is written for any row";
    return {
        {"Batches", "predictBatch, with no outputs given", SUCCESS,
         "the results of predict for each row; row by row, each row in the target's order", batches},
        {"StackedBatches", "predictBatch with the host's promise that rows are independent", SUCCESS,
         "the same results", stackedBatches},
        {"BatchInputByInput", "a batch in another order of names", SUCCESS,
         "the n-th feature of each name belongs to row n", batchInputByInput},
        {"BatchInPlace", "outputs given for all rows of a batch", SUCCESS, "the results are in the given features",
         batchInPlace},
        {"BatchOutputsInAnyOrder", "outputs of a batch in another order of names, or of only one name", SUCCESS,
         "the n-th feature of each name gets the result of row n", batchOutputsInAnyOrder},
        {"EmptyBatch", "a batch without inputs", INVALID_ARGUMENTS, "nothing changes", emptyBatch},
        {"UnevenBatch", "an input with more rows than another", INVALID_TYPE, "nothing changes", unevenBatch},
        {"UnevenOutputs", "outputs of one name, more or fewer than the rows", INVALID_ARGUMENTS,
         "the description names the output; nothing changes", unevenOutputs},
        {"RowsWithUnknownInput", "in all rows, an input that the target doesn't have", INVALID_ARGUMENTS, named,
         rowsWithUnknownInput},
        {"RowsWithoutInput", "in all rows, a required input left out", INVALID_ARGUMENTS, named, rowsWithoutInput},
        {"RowOverAnother", "an output of one row in the memory of another row's input or output", INVALID_ARGUMENTS,
         "the description names the output; nothing is written for any row", rowOverAnother},
        {"BatchSize", "setBatchSize(n), then n rows in each tensor", SUCCESS,
         "n takes the place of a leading 1 in predict and bind, until the next load", batchSize},
        {"OtherThanTheBatchSize", "a number of rows other than n, after setBatchSize(n)", INVALID_SHAPE,
         "the description names the input", otherThanTheBatchSize},
        {"BatchSizeOfZero", "setBatchSize(0)", INVALID_ARGUMENTS, "the batch size stays as it was", batchSizeOfZero},
        {"NoBatchSize", "setBatchSize of a backend that does not implement it", NOT_IMPLEMENTED, "nothing changes",
         noBatchSize},
    };
}

}  // namespace TarnoMirelo::Conformance
