#include "trial.h"

#include <algorithm>

namespace TarnoMirelo::Conformance {
namespace {

#define SKIP_WITHOUT_BINDINGS(trial) \
    if (!(trial).backend().binds) GTEST_SKIP() << "The backend does not bind"

// A binding, what it binds, and what is to come of it.
struct Bound {
    const Case* expected = nullptr;
    Features features;
    Binding binding;

    void expectEvaluates(const Trial& trial, const MireloModel& model) {
        Trial::expectSuccess(model.evaluate(binding), "evaluate of case " + expected->name);
        trial.expectResults(features.outputs, expected->outputs);
    }
};

Bound boundOf(const MireloModel& model, const Case& each, bool given) {
    Bound bound{&each, featuresOf(each), nullptr};
    if (!given) bound.features.outputs.clear();
    Trial::expectSuccess(model.bind(bound.features.constInputs(), bound.features.outputs, bound.binding), "bind");
    EXPECT_NE(bound.binding, nullptr) << "bind gives no binding";
    return bound;
}

void evaluations(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        for (const bool given : {false, true}) {
            SCOPED_TRACE(given ? "into given outputs" : "into new outputs");
            for (const Case& each : package.cases) {
                Bound bound = boundOf(*model, each, given);
                const Outputs outputs = bound.features.outputs;
                bound.expectEvaluates(trial, *model);
                bound.expectEvaluates(trial, *model);
                EXPECT_TRUE(bound.features.outputs == outputs) << "evaluate has changed the list of outputs";
            }
        }
    }
}

// Binds the case's inputs and these outputs, each in reverse, and expects the results there.
void expectBoundInReverse(const Trial& trial, const MireloModel& model, const Case& each, std::vector<Value> outputs) {
    Features features = featuresOf(each);
    std::reverse(features.inputs.begin(), features.inputs.end());
    std::reverse(outputs.begin(), outputs.end());
    features.outputs = roomFor(outputs);
    const Outputs given = features.outputs;
    Binding binding;
    Trial::expectSuccess(model.bind(features.constInputs(), features.outputs, binding), "bind");
    EXPECT_TRUE(features.outputs == given) << "bind has changed the list of outputs";
    Trial::expectSuccess(model.evaluate(binding), "evaluate");
    trial.expectResults(given, outputs);
}

void boundInAnyOrder(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    bool tried = false;
    for (const Package& package : trial.packages()) {
        const Case& each = package.cases.back();
        if (each.inputs.size() + each.outputs.size() == 2) continue;
        tried = true;
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        expectBoundInReverse(trial, *model, each, each.outputs);
        for (const Value& output : each.outputs) {
            SCOPED_TRACE("output " + output.name + " alone");
            expectBoundInReverse(trial, *model, each, {output});
        }
    }
    if (!tried) GTEST_SKIP() << "No package has two inputs or two outputs";
}

void openBoundOutputs(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        for (const bool isVariable : {false, true}) {
            SCOPED_TRACE(isVariable ? "of variable shape" : "without shape and buffer");
            Bound bound{&package.cases.front(), featuresOf(package.cases.front()), nullptr};
            bound.features.outputs = openRoomFor(bound.expected->outputs, isVariable);
            const Outputs given = bound.features.outputs;
            Trial::expectSuccess(model->bind(bound.features.constInputs(), bound.features.outputs, bound.binding),
                                 "bind");
            EXPECT_TRUE(bound.features.outputs == given) << "bind has changed the list of outputs";
            bound.expectEvaluates(trial, *model);
            bound.expectEvaluates(trial, *model);
        }
    }
}

void inputsThatChange(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        Bound bound = boundOf(*model, package.cases.front(), true);
        for (const Case& each : package.rows()) {
            if (!haveSameShapes(each, *bound.expected)) continue;
            write(each.inputs, bound.features.inputs);
            bound.expected = &each;
            bound.expectEvaluates(trial, *model);
        }
    }
}

void severalBindings(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        const auto model = trial.loaded(package);
        Bound first = boundOf(*model, package.cases.front(), true);
        Bound second = boundOf(*model, package.cases.back(), false);
        Bound third = boundOf(*model, package.cases.front(), false);
        for (int times = 0; times < 2; ++times) {
            first.expectEvaluates(trial, *model);
            trial.expectPredicts(*model, package);
            second.expectEvaluates(trial, *model);
            third.expectEvaluates(trial, *model);
        }
        trial.expectResults(first.features.outputs, first.expected->outputs);
        trial.expectResults(second.features.outputs, second.expected->outputs);
    }
}

void bindingKeepsWhatItBinds(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    const auto model = trial.loaded(trial.plain());
    Bound bound = boundOf(*model, trial.plain().cases.front(), true);
    bound.features.inputs.clear();
    const std::shared_ptr<ITensor> kept = bound.features.outputs.front()->asTensor();
    bound.features.outputs.clear();
    Trial::expectSuccess(model->evaluate(bound.binding), "evaluate");
    const Value& value = bound.expected->outputs.front();
    trial.expectResults({featureOver(value.name, kept)}, {value});
}

void failedBind(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    const auto model = trial.loaded(trial.plain());
    Bound bound = boundOf(*model, trial.plain().cases.front(), true);
    Outputs outputs;
    trial.expectRefused(model->bind({}, outputs, bound.binding));
    EXPECT_TRUE(outputs.empty()) << "There are outputs, although bind has failed";
    bound.expectEvaluates(trial, *model);
}

void nullBinding(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    Binding binding;
    trial.expectRefused(trial.loaded(trial.plain())->evaluate(binding));
}

void foreignBinding(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    const auto model = trial.loaded(trial.plain());
    const auto other = trial.loaded(trial.plain());
    Bound bound = boundOf(*other, trial.plain().cases.front(), true);
    const Snapshot outputs(bound.features.outputs);
    Binding foreign = std::make_shared<MireloModel::MireloBinding>();
    trial.expectRefused(model->evaluate(foreign));
    trial.expectRefused(model->evaluate(bound.binding));
    Binding shared(bound.binding, foreign.get());  // shares its owner with one of the backend's
    trial.expectRefused(other->evaluate(shared));
    outputs.expectUnchanged(bound.features.outputs, "outputs");
    bound.expectEvaluates(trial, *other);
}

void bindingOfEarlierLoad(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    const auto model = trial.loaded(trial.plain());
    Bound bound = boundOf(*model, trial.plain().cases.front(), true);
    const Snapshot outputs(bound.features.outputs);
    Trial::load(*model, trial.plain().components);
    trial.expectRefused(model->evaluate(bound.binding));
    outputs.expectUnchanged(bound.features.outputs, "outputs");
}

void movedTensor(Trial& trial) {
    SKIP_WITHOUT_BINDINGS(trial);
    std::vector<Place> places = trial.inputs();
    for (const Place& output : trial.outputs()) places.push_back(output);
    for (const Place& place : places) {
        const Value& value = place.value;
        const auto model = trial.loaded(place.package);
        for (const bool reshapes : {true, false}) {
            SCOPED_TRACE("package " + place.package.name + ", \"" + value.name + "\"" +
                         (reshapes ? " with another shape" : " elsewhere"));
            Features features = featuresOf(place.package.fullCase());
            const auto tensor = std::make_shared<TrickyTensor>(value, TrickyTensor::Place::Host);
            (features.*place.list)[place.index] = featureOver(value.name, tensor);
            Binding binding;
            Trial::expectSuccess(model->bind(features.constInputs(), features.outputs, binding), "bind");
            Trial::expectSuccess(model->evaluate(binding), "evaluate");
            if (reshapes) {
                std::vector<int64_t> shape = value.shape.shapeVector();
                shape.insert(shape.begin(), 1);
                ASSERT_TRUE(tensor->resize(shape).ok());
            } else {
                tensor->move();
            }
            const Snapshot outputs(features.outputs);
            trial.expectRefused(model->evaluate(binding));
            outputs.expectUnchanged(features.outputs, "outputs");
        }
    }
}

void noBindings(Trial& trial) {
    if (trial.backend().binds) GTEST_SKIP() << "The backend binds";
    const auto model = trial.loaded(trial.plain());
    Features features = featuresOf(trial.plain().cases.front());
    Binding binding;
    const auto statusOf = [](const auto& work) {  // as the core does by default, or as a status
        try {
            return work();
        } catch (...) {
            return getStatusFromCurrentException();
        }
    };
    trial.expectRefused(statusOf([&] { return model->bind(features.constInputs(), features.outputs, binding); }));
    trial.expectRefused(statusOf([&] { return model->evaluate(binding); }));
}

}  // namespace

std::vector<Row> bindingRows() {
    return {
        {"Evaluations", "bind, then evaluate any number of times", SUCCESS,
         "the results of predict, in the features that bind was given or made", evaluations},
        {"BoundInAnyOrder", "inputs and outputs in another order than the target's, or one of two outputs", SUCCESS,
         "the results of predict in the given features", boundInAnyOrder},
        {"OpenBoundOutputs", "bound output tensors of variable shape, or without shape and buffer", SUCCESS,
         "they get the shape of the result and a buffer, from bind or from evaluate", openBoundOutputs},
        {"InputsThatChange", "other elements in a bound input", SUCCESS, "evaluate reads what is there now",
         inputsThatChange},
        {"SeveralBindings", "several bindings of one model, with predictions in between", SUCCESS,
         "each keeps its inputs and outputs", severalBindings},
        {"BindingKeepsWhatItBinds", "bound features that the host releases", SUCCESS, "the binding keeps their tensors",
         bindingKeepsWhatItBinds},
        {"FailedBind", "a bind that fails", INVALID_ARGUMENTS, "the binding that was passed in can still be evaluated",
         failedBind},
        {"NullBinding", "evaluate without a binding", INVALID_OPERATION, "nothing changes", nullBinding},
        {"ForeignBinding", "a binding of another model or of another backend", INVALID_OPERATION,
         "no output has changed", foreignBinding},
        {"BindingOfEarlierLoad", "a binding from before the last load", INVALID_OPERATION, "no output has changed",
         bindingOfEarlierLoad},
        {"MovedTensor", "a bound tensor with another buffer or shape", INVALID_OPERATION, "no output has changed",
         movedTensor},
        {"NoBindings", "bind and evaluate of a backend that does not bind", NOT_IMPLEMENTED,
         "as a status, or raised as the core does", noBindings},
    };
}

}  // namespace TarnoMirelo::Conformance
