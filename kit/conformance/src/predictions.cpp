#include "trial.h"

#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <cstddef>
#include <set>

namespace TarnoMirelo::Conformance {
namespace {

void predictions(Trial& trial) {
    for (const Package& package : trial.packages()) trial.expectPredicts(*trial.loaded(package), package);
}

void repeatedPrediction(Trial& trial) {
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        const Case& each = package.cases.front();
        const Features features = featuresOf(each);
        Outputs first;
        Trial::expectSuccess(model->predict(features.constInputs(), first), "predict");
        const Snapshot results(first);
        trial.expectPredicts(*model, package);  // other cases between them
        Outputs second;
        Trial::expectSuccess(model->predict(features.constInputs(), second), "the same predict again");
        trial.expectResults(second, each.outputs);
        results.expectUnchanged(first, "outputs of the first prediction");
        const Case last = package.rows().back();
        if (!haveSameShapes(last, each)) continue;
        write(last.inputs, features.inputs);
        Outputs third;
        Trial::expectSuccess(model->predict(features.constInputs(), third), "predict with other elements");
        trial.expectResults(third, last.outputs);
    }
}

void resultsOutliveTheModel(Trial& trial) {
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const Case& each = package.cases.front();
        Outputs outputs;
        Outputs ofBatch;
        Outputs ofBinding;
        {
            const auto model = trial.loaded(package);
            const MireloModel::Inputs inputs = featuresOf(each).constInputs();
            Trial::expectSuccess(model->predict(inputs, outputs), "predict");
            Trial::expectSuccess(model->predictBatch(inputs, ofBatch), "predictBatch");
            Binding binding;
            if (trial.backend().binds) {
                Trial::expectSuccess(model->bind(inputs, ofBinding, binding), "bind");
                Trial::expectSuccess(model->evaluate(binding), "evaluate");
            }
            model->doUnload();
        }
        trial.expectResults(outputs, each.outputs);
        trial.expectResults(ofBatch, each.outputs);
        if (trial.backend().binds) trial.expectResults(ofBinding, each.outputs);
    }
}

void inputsStay(Trial& trial) {
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        const Features features = featuresOf(package.fullCase());
        const Snapshot before(features.inputs);
        for (const bool given : {true, false}) {
            SCOPED_TRACE(given ? "with outputs" : "without outputs");
            for (const char* const operation : trial.operations()) {
                Outputs outputs = given ? features.outputs : Outputs();
                Binding binding;
                Trial::expectSuccess(run(operation, *model, features.inputs, outputs, binding), operation);
                if (binding != nullptr) Trial::expectSuccess(model->evaluate(binding), "evaluate");
                before.expectUnchanged(features.inputs, "inputs");
            }
        }
    }
}

void inputsInAnyOrder(Trial& trial) {
    const Package* const package = trial.plainWith(2, 1);
    if (package == nullptr) GTEST_SKIP() << "No package has two inputs of floats and fixed shapes";
    const auto model = trial.loaded(*package);
    for (const Case& each : package->cases) {
        SCOPED_TRACE("case " + each.name);
        Features features = featuresOf(each);
        std::reverse(features.inputs.begin(), features.inputs.end());
        Outputs outputs;
        Trial::expectSuccess(model->predict(features.constInputs(), outputs), "predict");
        trial.expectResults(outputs, each.outputs);
    }
}

// Those of variable shape keep the memory of the largest shape that they had.
void allocatedInputs(Trial& trial) {
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        Outputs inputs;
        Trial::expectSuccess(model->allocateInputs(inputs), "allocateInputs");
        for (const Case& each : package.cases) {
            if (each.inputs.size() != inputs.size()) continue;
            SCOPED_TRACE("case " + each.name);
            for (size_t i = 0; i < inputs.size(); ++i) {
                ITensor& tensor = *inputs[i]->asTensor();
                if (tensor.hasVariableShape()) {
                    Trial::expectSuccess(tensor.allocateShape(each.inputs[i].shape), "allocateShape");
                }
            }
            write(each.inputs, inputs);
            Outputs outputs;
            Trial::expectSuccess(model->predict({inputs.begin(), inputs.end()}, outputs), "predict");
            trial.expectResults(outputs, each.outputs);
        }
    }
}

void absentInput(Trial& trial) {
    bool tried = false;
    for (const Package& package : trial.packages()) {
        for (const Case& each : package.cases) {
            if (each.inputs.size() == package.target().inputs.size()) continue;
            tried = true;
            SCOPED_TRACE("package " + package.name);
            const auto model = trial.loaded(package);
            trial.expectPredicts(*model, package);  // with and without, in turn
            trial.expectPredicts(*model, each);
            Features rows = featuresOf(each);
            const Outputs second = featuresOf(each.inputs);
            rows.inputs.insert(rows.inputs.end(), second.begin(), second.end());
            std::vector<Value> expected = each.outputs;
            expected.insert(expected.end(), each.outputs.begin(), each.outputs.end());
            Outputs outputs;
            Trial::expectSuccess(model->predictBatch(rows.constInputs(), outputs), "predictBatch");
            trial.expectResults(outputs, expected);
        }
    }
    if (!tried) GTEST_SKIP() << "No case of a package leaves out an input";
}

bool fitsEveryType(const Value& value) {
    for (size_t i = 0; i < value.size(); ++i) {
        const double element = readElement(value.type, value.bytes.data() + i * widthOf(value.type));
        if (element < 0 || element > 100 || element != static_cast<int>(element)) return false;
    }
    return true;
}

// Whether each element type is taken or refused as the description says.
void elementTypes(Trial& trial) {
    const Case& each = trial.plain().cases.front();
    const bool canConvert = std::all_of(each.inputs.begin(), each.inputs.end(), fitsEveryType);
    const auto model = trial.loaded(trial.plain());
    for (const DataType type : trial.backend().floatInputTypes) {
        if (type != DataType::Float && !canConvert) {
            ADD_FAILURE() << "The first case of package " << trial.plain().name
                          << " has inputs that other types can't hold, wanted are integers from 0 to 100";
            return;
        }
        SCOPED_TRACE("elements of type " + Kit::toText(type));
        Outputs inputs;
        for (const Value& value : each.inputs) inputs.push_back(featureOf(converted(value, type)));
        Outputs outputs;
        Trial::expectSuccess(model->predict({inputs.begin(), inputs.end()}, outputs), "predict");
        trial.expectResults(outputs, each.outputs);
        trial.expectPredicts(*model, trial.plain());  // one type after the other
    }
}

// A network may have a default for any input, so a result is right, too.
void neededInput(Trial& trial) {
    const Package& package = trial.plain();
    for (size_t i = 0; i < package.target().inputs.size(); ++i) {
        MireloModel::Components components = package.components;
        ModelFeatureDescriptor& port = std::get<ModelTarget>(components).inputs[i];
        const std::string name = port.name();
        SCOPED_TRACE("input \"" + name + "\"");
        port = {port.type(), false, name, port.description(), port.tensorDescriptor()};
        const auto model = trial.make();
        const MireloStatus loaded = model->load(components);
        if (!loaded.ok()) {
            EXPECT_EQ(Kit::toText(loaded.getCode()), Kit::toText(MODEL_METADATA_ERROR));
            EXPECT_FALSE(loaded.getDescription().empty()) << "The description is empty, wanted is one that says why";
            continue;
        }
        Outputs inputs = featuresOf(package.fullCase().inputs);
        inputs.erase(inputs.begin() + static_cast<std::ptrdiff_t>(i));
        for (const char* const operation : trial.rowOperations()) {
            SCOPED_TRACE(operation);
            Outputs outputs;
            Binding binding;
            const MireloStatus status = run(operation, *model, inputs, outputs, binding);
            if (!status.ok()) trial.expectRefused(status, name);
            EXPECT_EQ(outputs.size(), status.ok() ? package.target().outputs.size() : 0) << "of outputs";
        }
        trial.expectPredicts(*model, package);
    }
}

// The failures, each on every input.

void inputOfWrongType(Trial& trial) {
    const std::vector<DataType>& ofFloats = trial.backend().floatInputTypes;
    for (const Place& input : trial.inputs()) {
        const DataType declared = input.declaredType();
        if (declared == DataType::Undefined) continue;
        for (auto number = static_cast<int32_t>(DataType::Bool); number <= static_cast<int32_t>(DataType::Double);
             ++number) {
            const auto type = static_cast<DataType>(number);
            const bool isConverted =
                declared == DataType::Float && std::find(ofFloats.begin(), ofFloats.end(), type) != ofFloats.end();
            if (type == declared || isConverted) continue;
            SCOPED_TRACE("elements of type " + Kit::toText(type));
            trial.expectRefusesAt(input, featureOf(input.value.name, type, input.value.shape));
        }
    }
}

void nullInput(Trial& trial) {
    for (const Place& input : trial.inputs()) trial.expectRefusesAt(input, nullptr);
    trial.expectRefuses(trial.plain(), "", [](Features& features) { features.inputs.push_back(nullptr); });
}

void missingInput(Trial& trial) {
    for (const Place& input : trial.inputs()) {
        if (!input.port.required()) continue;
        trial.expectRefuses(input.package, input.value.name, [&](Features& features) {
            features.inputs.erase(features.inputs.begin() + static_cast<std::ptrdiff_t>(input.index));
        });
    }
}

void unknownInput(Trial& trial) {
    const Value& value = trial.plain().cases.front().inputs.front();
    trial.expectRefuses(trial.plain(), "stranger", [&](Features& features) {
        features.inputs.push_back(featureOver("stranger", featureOf(value)->asTensor()));
    });
}

void inputGivenTwice(Trial& trial) {
    for (const Place& input : trial.inputs()) {
        trial.expectRefuses(input.package, input.value.name,
                            [&](Features& features) { features.inputs.push_back(featureOf(input.value)); });
    }
}

void inputOfWrongKind(Trial& trial) {
    for (const Place& input : trial.inputs()) trial.expectRefusesAt(input, numberOf(input.value.name));
}

void inputWithoutTensor(Trial& trial) {
    for (const Place& input : trial.inputs()) trial.expectRefusesAt(input, featureOver(input.value.name, nullptr));
}

void inputWithoutBuffer(Trial& trial) {
    for (const Place& input : trial.inputs()) {
        if (input.value.shape.dimension() > 0) trial.expectRefusesAt(input, withoutBuffer(input.value));
    }
}

void inputOnDevice(Trial& trial) {
    for (const Place& input : trial.inputs()) {
        const auto tensor = std::make_shared<TrickyTensor>(input.value, TrickyTensor::Place::Device);
        trial.expectRefusesAt(input, featureOver(input.value.name, tensor));
    }
}

void inputOfWrongShape(Trial& trial) {
    for (const Place& input : trial.inputs()) {
        const std::vector<int64_t> declared = input.port.tensorDescriptor().shape().shapeVector();
        const std::vector<int64_t> dimensions = input.value.shape.shapeVector();
        std::vector<std::vector<int64_t>> shapes;
        for (size_t i = 0; i < dimensions.size(); ++i) {
            if (i >= declared.size() || declared[i] == -1) continue;
            for (const int64_t dimension : std::set<int64_t>{0, dimensions[i] - 1, dimensions[i] + 1}) {
                if (dimension < 0 || dimension == dimensions[i]) continue;
                shapes.push_back(dimensions);
                shapes.back()[i] = dimension;
            }
        }
        shapes.push_back(dimensions);  // as many elements in more dimensions
        shapes.back().insert(shapes.back().begin(), 1);
        if (dimensions.size() > 1) shapes.push_back({input.value.shape.size()});  // and in one
        for (const auto& shape : shapes) {
            SCOPED_TRACE("shape " + Kit::toText(shape));
            trial.expectRefusesAt(input, featureOf(input.value.name, input.value.type, shape));
        }
    }
}

}  // namespace

std::vector<Row> predictionRows() {
    const char* const named = "the description names the input";
    return {
        {"Predictions", "predict, with no outputs given", SUCCESS,
         "the expected results, one new feature for each output in the target's order", predictions},
        {"RepeatedPrediction", "another prediction with the same features, with the same or with other elements",
         SUCCESS, "the results follow the present elements; earlier results stay as they were", repeatedPrediction},
        {"ResultsOutliveTheModel", "an unload, then the destruction of the model", SUCCESS,
         "results that the host still holds stay as they were", resultsOutliveTheModel},
        {"InputsStay", "predict, predictBatch, bind and evaluate", SUCCESS, "the inputs are as they were", inputsStay},
        {"InputsInAnyOrder", "inputs in another order than the target's", SUCCESS, "the same results",
         inputsInAnyOrder},
        {"AllocatedInputs", "inputs made by allocateInputs", SUCCESS, "the same results, for one shape after another",
         allocatedInputs},
        {"AbsentInput", "an optional input left out, of a prediction or of all rows of a batch", SUCCESS,
         "the results with the network's default for that input", absentInput},
        {"NeededInput", "an input that the target declares optional and the network needs, left out", INVALID_ARGUMENTS,
         "from predict and bind, and the description names the input; or load answers MODEL_METADATA_ERROR",
         neededInput},
        {"ElementTypes", "an input declared as float, with each element type that the backend converts", SUCCESS,
         "the same results", elementTypes},
        {"NullInput", "an input that is null", INVALID_ARGUMENTS, "nothing changes", nullInput},
        {"MissingInput", "a required input left out", INVALID_ARGUMENTS, named, missingInput},
        {"UnknownInput", "an input that the target doesn't have", INVALID_ARGUMENTS, named, unknownInput},
        {"InputGivenTwice", "an input given twice", INVALID_ARGUMENTS, named, inputGivenTwice},
        {"InputOfWrongKind", "an input that is not a tensor", INVALID_TYPE, named, inputOfWrongKind},
        {"InputWithoutTensor", "an input whose feature holds no tensor", INVALID_ARGUMENTS, named, inputWithoutTensor},
        {"InputWithoutBuffer", "an input whose tensor has no buffer", INVALID_ARGUMENTS, named, inputWithoutBuffer},
        {"InputOnDevice", "an input on a device that is not the backend's", INVALID_TYPE, named, inputOnDevice},
        {"InputOfWrongType", "an input of another element type", INVALID_TENSOR_DATA_TYPE, named, inputOfWrongType},
        {"InputOfWrongShape", "an input of another shape", INVALID_SHAPE, named, inputOfWrongShape},
    };
}

}  // namespace TarnoMirelo::Conformance
