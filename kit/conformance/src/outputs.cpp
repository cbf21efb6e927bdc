#include "trial.h"

#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <cstring>

namespace TarnoMirelo::Conformance {
namespace {

// Predicts the case into the given outputs and expects that they hold the results, in their own features and buffers.
void expectInPlace(const Trial& trial, const MireloModel& model, const Case& each, Outputs outputs,
                   const std::vector<Value>& expected) {
    const Outputs given = outputs;
    std::vector<const uint8_t*> buffers;
    for (const auto& feature : given) buffers.push_back(feature->asTensor()->buffer());
    const Outputs inputs = featuresOf(each.inputs);
    Trial::expectSuccess(model.predict({inputs.begin(), inputs.end()}, outputs), "predict");
    EXPECT_TRUE(outputs == given) << "The list of outputs has changed, wanted are the given features in their order";
    trial.expectResults(given, expected);
    for (size_t i = 0; i < given.size(); ++i) {
        EXPECT_TRUE(buffers[i] == nullptr || buffers[i] == given[i]->asTensor()->buffer())
            << "Output " << i << " has got another buffer";
    }
}

void outputsInPlace(Trial& trial) {
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        for (const Case& each : package.cases) {
            SCOPED_TRACE("case " + each.name);
            expectInPlace(trial, *model, each, roomFor(each.outputs), each.outputs);
        }
    }
}

void outputsInAnyOrder(Trial& trial) {
    const Package* const package = trial.plainWith(1, 2);
    if (package == nullptr) GTEST_SKIP() << "No package has two outputs of floats and fixed shapes";
    const auto model = trial.loaded(*package);
    for (const Case& each : package->cases) {
        std::vector<Value> reversed = each.outputs;
        std::reverse(reversed.begin(), reversed.end());
        expectInPlace(trial, *model, each, roomFor(reversed), reversed);
    }
}

void someOutputs(Trial& trial) {
    const Package* const package = trial.plainWith(1, 2);
    if (package == nullptr) GTEST_SKIP() << "No package has two outputs of floats and fixed shapes";
    const auto model = trial.loaded(*package);
    const Case& each = package->cases.front();
    for (const Value& value : each.outputs) {
        SCOPED_TRACE("output " + value.name + " alone");
        expectInPlace(trial, *model, each, roomFor({value}), {value});
    }
}

void openOutputs(Trial& trial) {
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        Outputs variable;
        for (const Value& value : package.cases.front().outputs) {
            const std::vector<int64_t> open(value.shape.dimension(), -1);
            variable.push_back(featureOver(value.name, std::make_shared<VariableTensor>(value.type, open)));
        }
        for (const Case& each : package.cases) {
            SCOPED_TRACE("case " + each.name);
            Outputs empty;
            for (const Value& value : each.outputs) {
                empty.push_back(featureOver(value.name, std::make_shared<Tensor>(value.type)));
            }
            expectInPlace(trial, *model, each, empty, each.outputs);
            Outputs outputs = variable;  // the same tensors for every case: they may grow
            const Outputs inputs = featuresOf(each.inputs);
            Trial::expectSuccess(model->predict({inputs.begin(), inputs.end()}, outputs), "predict");
            EXPECT_TRUE(outputs == variable) << "The list of outputs has changed";
            trial.expectResults(variable, each.outputs);
        }
    }
}

// The failures, each on the first output of the package.

const Value& firstOutput(const Trial& trial) { return trial.plain().cases.front().outputs.front(); }

void nullOutput(Trial& trial) {
    trial.expectRefuses(trial.plain(), "", [](Features& features) { features.outputs[0] = nullptr; });
    trial.expectRefuses(trial.plain(), "", [](Features& features) { features.outputs.push_back(nullptr); });
}

void unknownOutput(Trial& trial) {
    trial.expectRefuses(trial.plain(), "stranger", [&](Features& features) {
        features.outputs.push_back(featureOver("stranger", roomFor({firstOutput(trial)})[0]->asTensor()));
    });
}

void outputGivenTwice(Trial& trial) {
    trial.expectRefuses(trial.plain(), firstOutput(trial).name,
                        [&](Features& features) { features.outputs.push_back(roomFor({firstOutput(trial)})[0]); });
}

void outputOfWrongKind(Trial& trial) {
    const std::string& name = firstOutput(trial).name;
    trial.expectRefuses(trial.plain(), name, [&](Features& features) { features.outputs[0] = numberOf(name); });
}

void outputWithoutTensor(Trial& trial) {
    const std::string& name = firstOutput(trial).name;
    trial.expectRefuses(trial.plain(), name,
                        [&](Features& features) { features.outputs[0] = featureOver(name, nullptr); });
}

void outputOnDevice(Trial& trial) {
    const Value& value = firstOutput(trial);
    trial.expectRefuses(trial.plain(), value.name, [&](Features& features) {
        features.outputs[0] =
            featureOver(value.name, std::make_shared<TrickyTensor>(value, TrickyTensor::Place::Device));
    });
}

void outputOfWrongType(Trial& trial) {
    for (const DataType type : {DataType::Double, DataType::Int32}) {
        Value value = firstOutput(trial);
        value = converted(value, type);
        trial.expectRefuses(trial.plain(), value.name,
                            [&](Features& features) { features.outputs[0] = roomFor({value})[0]; });
    }
}

void outputOfWrongShape(Trial& trial) {
    const Value& value = firstOutput(trial);
    std::vector<int64_t> more = value.shape.shapeVector();
    more.insert(more.begin(), 1);
    std::vector<int64_t> larger = value.shape.shapeVector();
    if (!larger.empty()) larger.back() += 1;
    const std::vector<int64_t> open(more.size(), -1);
    const std::shared_ptr<ITensor> tensors[] = {std::make_shared<Tensor>(value.type, TensorShape(more)),
                                                std::make_shared<Tensor>(value.type, TensorShape(larger)),
                                                std::make_shared<VariableTensor>(value.type, TensorShape(open))};
    for (const auto& tensor : tensors) {
        if (tensor->shape() == value.shape) continue;  // larger, of no dimensions
        SCOPED_TRACE("shape " + Kit::toText(tensor->shape()));
        trial.expectRefuses(trial.plain(), value.name,
                            [&](Features& features) { features.outputs[0] = featureOver(value.name, tensor); });
    }
}

void outputWithoutBuffer(Trial& trial) {
    const Value& value = firstOutput(trial);
    trial.expectRefuses(trial.plain(), value.name,
                        [&](Features& features) { features.outputs[0] = withoutBuffer(value); });
    // With another one before it, which must not have got its shape by then.
    const Package* const package = trial.plainWith(1, 2);
    if (package == nullptr) return;
    const std::vector<Value>& values = package->cases.front().outputs;
    trial.expectRefuses(*package, values[1].name, [&](Features& features) {
        const std::vector<int64_t> open(values[0].shape.dimension(), -1);
        features.outputs[0] = featureOver(values[0].name, std::make_shared<VariableTensor>(values[0].type, open));
        features.outputs[1] = withoutBuffer(values[1]);
    });
}

// A tensor over the memory of another one.
std::shared_ptr<ITensor> over(const Value& value, ITensor& other) {
    return std::make_shared<BufferWrappedTensor>(value.type, value.shape, other.buffer(),
                                                 static_cast<uint64_t>(other.bytes()));
}

void outputOverInput(Trial& trial) {
    for (const Package& package : trial.packages()) {
        const Case& each = package.cases.front();
        const Value& output = each.outputs.front();
        if (output.bytes.size() > each.inputs.front().bytes.size() || output.shape.dimension() == 0) continue;
        SCOPED_TRACE("package " + package.name);
        trial.expectRefuses(package, output.name, [&](Features& features) {
            features.outputs = {featureOver(output.name, over(output, *features.inputs[0]->asTensor()))};
        });
        return;
    }
    GTEST_SKIP() << "No package has an output that fits into its first input";
}

void outputOverOutput(Trial& trial) {
    const Package* const package = trial.plainWith(1, 2);
    if (package == nullptr) GTEST_SKIP() << "No package has two outputs of floats and fixed shapes";
    std::vector<Value> values = package->cases.front().outputs;
    std::sort(values.begin(), values.end(),
              [](const Value& one, const Value& other) { return one.bytes.size() > other.bytes.size(); });
    trial.expectRefuses(*package, values[1].name, [&](Features& features) {
        features.outputs = roomFor({values[0]});
        features.outputs.push_back(featureOver(values[1].name, over(values[1], *features.outputs[0]->asTensor())));
    });
}

}  // namespace

std::vector<Row> outputRows() {
    const char* const named = "the description names the output";
    return {
        {"OutputsInPlace", "outputs given for all results", SUCCESS,
         "the results are in the given features, tensors and buffers", outputsInPlace},
        {"OutputsInAnyOrder", "outputs in another order than the target's", SUCCESS, "the list keeps its order",
         outputsInAnyOrder},
        {"SomeOutputs", "one of two outputs given", SUCCESS,
         "that output gets its result; nothing is added to the list", someOutputs},
        {"OpenOutputs", "output tensors of variable shape, or without shape and buffer", SUCCESS,
         "they get the shape of the result, and a buffer", openOutputs},
        {"NullOutput", "an output that is null", INVALID_ARGUMENTS, "nothing changes", nullOutput},
        {"UnknownOutput", "an output that the target doesn't have", INVALID_ARGUMENTS, named, unknownOutput},
        {"OutputGivenTwice", "an output given twice", INVALID_ARGUMENTS, named, outputGivenTwice},
        {"OutputOfWrongKind", "an output that is not a tensor", INVALID_TYPE, named, outputOfWrongKind},
        {"OutputWithoutTensor", "an output whose feature holds no tensor", INVALID_ARGUMENTS, named,
         outputWithoutTensor},
        {"OutputOnDevice", "an output on a device that is not the backend's", INVALID_TYPE, named, outputOnDevice},
        {"OutputOfWrongType", "an output of another element type", INVALID_TENSOR_DATA_TYPE, named, outputOfWrongType},
        {"OutputOfWrongShape", "an output of another shape", INVALID_SHAPE, named, outputOfWrongShape},
        {"OutputWithoutBuffer", "an output whose tensor has no buffer and can't get one", ALLOCATION_FAILED,
         "the description names the output; no other output gets a shape", outputWithoutBuffer},
        {"OutputOverInput", "an output in the memory of an input", INVALID_ARGUMENTS, named, outputOverInput},
        {"OutputOverOutput", "an output in the memory of another", INVALID_ARGUMENTS, named, outputOverOutput},
    };
}

}  // namespace TarnoMirelo::Conformance
