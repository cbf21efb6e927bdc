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
        const Outputs variable = openRoomFor(package.cases.front().outputs, true);
        for (const Case& each : package.cases) {
            SCOPED_TRACE("case " + each.name);
            expectInPlace(trial, *model, each, openRoomFor(each.outputs, false), each.outputs);
            Outputs outputs = variable;  // the same tensors for every case: they may grow
            const Outputs inputs = featuresOf(each.inputs);
            Trial::expectSuccess(model->predict({inputs.begin(), inputs.end()}, outputs), "predict");
            EXPECT_TRUE(outputs == variable) << "The list of outputs has changed";
            trial.expectResults(variable, each.outputs);
        }
    }
}

void nullOutput(Trial& trial) {
    for (const Place& output : trial.outputs()) trial.expectRefusesAt(output, nullptr);
    trial.expectRefuses(trial.plain(), "", [](Features& features) { features.outputs.push_back(nullptr); });
}

void unknownOutput(Trial& trial) {
    const Value& value = trial.plain().cases.front().outputs.front();
    trial.expectRefuses(trial.plain(), "stranger", [&](Features& features) {
        features.outputs.push_back(featureOf("stranger", value.type, value.shape));
    });
}

void outputGivenTwice(Trial& trial) {
    for (const Place& output : trial.outputs()) {
        trial.expectRefuses(output.package, output.value.name,
                            [&](Features& features) { features.outputs.push_back(roomFor({output.value})[0]); });
    }
}

void outputOfWrongKind(Trial& trial) {
    for (const Place& output : trial.outputs()) trial.expectRefusesAt(output, numberOf(output.value.name));
}

void outputWithoutTensor(Trial& trial) {
    for (const Place& output : trial.outputs()) trial.expectRefusesAt(output, featureOver(output.value.name, nullptr));
}

void outputOnDevice(Trial& trial) {
    for (const Place& output : trial.outputs()) {
        const auto tensor = std::make_shared<TrickyTensor>(output.value, TrickyTensor::Place::Device);
        trial.expectRefusesAt(output, featureOver(output.value.name, tensor));
    }
}

Trial::Found foundIf(bool isOpen) { return isOpen ? Trial::Found::ByTheRun : Trial::Found::ByChecks; }

void outputOfWrongType(Trial& trial) {
    for (const Place& output : trial.outputs()) {
        for (const DataType type : {DataType::Float, DataType::Double, DataType::Int32}) {
            if (type == output.value.type) continue;
            SCOPED_TRACE("elements of type " + Kit::toText(type));
            const bool isOpen = output.declaredType() == DataType::Undefined;
            trial.expectRefusesAt(output, featureOf(output.value.name, type, output.value.shape), foundIf(isOpen));
        }
    }
}

void outputOfWrongShape(Trial& trial) {
    for (const Place& output : trial.outputs()) {
        const Value& value = output.value;
        std::vector<int64_t> more = value.shape.shapeVector();
        more.insert(more.begin(), 1);
        std::vector<std::vector<int64_t>> shapes = {more};
        const std::vector<int64_t> dimensions = value.shape.shapeVector();
        for (size_t i = 0; i < dimensions.size(); ++i) {
            for (const int64_t dimension : {dimensions[i] - 1, dimensions[i] + 1}) {
                if (dimension < 1) continue;  // a tensor of no elements may have no buffer, and get another shape
                shapes.push_back(dimensions);
                shapes.back()[i] = dimension;
            }
        }
        for (const auto& shape : shapes) {
            SCOPED_TRACE("shape " + Kit::toText(shape));
            trial.expectRefusesAt(output, featureOf(value.name, value.type, shape), foundIf(output.isOpen()));
        }
        SCOPED_TRACE("a variable shape of more dimensions");
        const std::vector<int64_t> open(more.size(), -1);
        const auto variable = std::make_shared<VariableTensor>(value.type, TensorShape(open));
        trial.expectRefusesAt(output, featureOver(value.name, variable));
    }
}

void outputWithoutBuffer(Trial& trial) {
    for (const Place& output : trial.outputs()) {
        if (output.value.shape.dimension() == 0) continue;  // there is none of that kind
        trial.expectRefusesAt(output, withoutBuffer(output.value), Trial::Found::ByTheRun);
    }
    // With another one before it, which must not have got its shape by then.
    const Package* const package = trial.plainWith(1, 2);
    if (package == nullptr) return;
    const std::vector<Value>& values = package->cases.front().outputs;
    trial.expectRefuses(*package, values[1].name, [&](Features& features) {
        features.outputs = {openRoomFor(values, true)[0], withoutBuffer(values[1])};
    });
}

void outputOverInput(Trial& trial) {
    for (const Place& output : trial.outputs()) {
        for (const Place& input : trial.inputs()) {
            if (&input.package != &output.package) continue;
            eachOverlap(output.value, input.value, [&](const auto& over, const auto& shared) {
                trial.expectRefuses(output.package, output.value.name, [&](Features& features) {
                    features.outputs[output.index] = over;
                    features.inputs[input.index] = shared;
                });
            });
        }
    }
}

void outputOverOutput(Trial& trial) {
    const Package* const package = trial.plainWith(1, 2);
    if (package == nullptr) GTEST_SKIP() << "No package has two outputs of floats and fixed shapes";
    const std::vector<Value>& values = package->cases.front().outputs;
    eachOverlap(values[0], values[1], [&](const auto& one, const auto& other) {
        trial.expectRefuses(*package, values[1].name, [&](Features& features) { features.outputs = {one, other}; });
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
