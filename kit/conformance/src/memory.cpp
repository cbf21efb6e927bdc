#include "trial.h"

#include <limits>

namespace TarnoMirelo::Conformance {
namespace {

uint64_t bytesOf(const MireloModel& model) { return model.getRuntimeStatus().getCurrentMemoryConsumption(); }

/// A model with a record that the check can write into, as others than the backend may.
class Recorded {
 public:
    explicit Recorded(std::shared_ptr<MireloModel> model) : model_(std::move(model)) { renew(); }
    Recorded(const Recorded&) = delete;
    Recorded& operator=(const Recorded&) = delete;
    ~Recorded() { model_->setRuntimeStatus(nullptr); }  // it and its record keep each other alive

    MireloModel& operator*() const { return *model_; }
    MireloModel* operator->() const { return model_.get(); }
    uint64_t bytes() const { return record_->getCurrentMemoryConsumption(); }
    void addOfOthers(uint64_t bytes) const { record_->addCurrentMemoryConsumption(bytes); }
    void renew() {
        record_ = std::make_shared<ModelRuntimeStatus>(std::numeric_limits<uint64_t>::max(), model_);
        model_->setRuntimeStatus(record_);
    }

 private:
    std::shared_ptr<MireloModel> model_;
    std::shared_ptr<ModelRuntimeStatus> record_;
};

constexpr uint64_t kOfOthers = 1'000'000'000;

// Each operation of a host, with results that are right.
void useAll(const Trial& trial, const MireloModel& model) {
    trial.expectPredicts(model, trial.plain());
    const Case& each = trial.plain().cases.front();
    for (const char* const operation : trial.operations()) {
        SCOPED_TRACE(operation);
        Outputs outputs;
        Binding binding;
        Trial::expectSuccess(run(operation, model, featuresOf(each.inputs), outputs, binding), operation);
        if (binding != nullptr) Trial::expectSuccess(model.evaluate(binding), "evaluate");
        trial.expectResults(outputs, each.outputs);
    }
}

// Each operation by itself is the first one after the registration.
void memoryAfterRegistration(Trial& trial) {
    const Features features = featuresOf(trial.plain().cases.front());
    for (const char* const name : trial.operations()) {
        SCOPED_TRACE(name);
        ModelManager manager;
        const auto model = trial.loaded(trial.plain());
        manager.registerModel(model);
        EXPECT_EQ(bytesOf(*model), 0U) << "A record is empty until the first operation after the registration";
        Outputs outputs;
        Binding binding;
        Trial::expectSuccess(run(name, *model, features.inputs, outputs, binding), name);
        EXPECT_GT(bytesOf(*model), 0U) << "wanted is a report at the first operation after the registration";
        Trial::expectSuccess(manager.unloadModel(model), "unloadModel");
    }
    if (!trial.backend().binds) return;
    SCOPED_TRACE("evaluate");
    ModelManager manager;
    const auto model = trial.loaded(trial.plain());
    Outputs outputs;
    Binding binding;
    Trial::expectSuccess(model->bind(features.constInputs(), outputs, binding), "bind");
    manager.registerModel(model);
    Trial::expectSuccess(model->evaluate(binding), "evaluate");
    EXPECT_GT(bytesOf(*model), 0U) << "wanted is a report at the first operation after the registration";
    Trial::expectSuccess(manager.unloadModel(model), "unloadModel");
}

void memoryOfLoad(Trial& trial) {
    const Recorded model(trial.make());
    Trial::load(*model, trial.plain().components);
    EXPECT_GT(model.bytes(), 0U) << "wanted is a report by the load of a model that is registered";
    useAll(trial, *model);
    const uint64_t once = model.bytes();
    for (int times = 0; times < 3; ++times) useAll(trial, *model);
    EXPECT_EQ(model.bytes(), once) << "wanted is the same after the same operations again";
    Trial::load(*model, trial.plain().components);
    useAll(trial, *model);
    EXPECT_EQ(model.bytes(), once) << "wanted is the same after another load of the same network";
}

void memoryOfUnload(Trial& trial) {
    const Recorded model(trial.loaded(trial.plain()));
    model.addOfOthers(kOfOthers);
    trial.expectPredicts(*model, trial.plain());
    EXPECT_GT(model.bytes(), kOfOthers) << "wanted is what others have reported, and the model's own";
    for (int times = 0; times < 2; ++times) {
        Trial::expectSuccess(model->doUnload(), "doUnload");
        EXPECT_EQ(model.bytes(), kOfOthers) << "wanted is what others have reported";
    }
}

void memoryOfFailedLoad(Trial& trial) {
    const Recorded model(trial.loaded(trial.plain()));
    trial.expectPredicts(*model, trial.plain());
    EXPECT_GT(model.bytes(), 0U);
    MireloModel::Components components = trial.plain().components;
    ModelComponent& component = std::get<ModelTarget>(components).components.front();
    component.path = "there_is_no_such_file";
    component.buffer.clear();
    EXPECT_FALSE(model->load(components).ok()) << "load takes a component that is not there";
    EXPECT_EQ(model.bytes(), 0U) << "wanted is nothing, since there is no network any more";
}

void memoryOfNewRecord(Trial& trial) {
    Recorded model(trial.loaded(trial.plain()));
    trial.expectPredicts(*model, trial.plain());
    const uint64_t first = model.bytes();
    model.renew();
    EXPECT_EQ(model.bytes(), 0U);
    trial.expectPredicts(*model, trial.plain());
    EXPECT_EQ(model.bytes(), first) << "wanted is all of it in the new record";
    Trial::expectSuccess(model->doUnload(), "doUnload");
    EXPECT_EQ(model.bytes(), 0U);
}

void memoryOfSeveralModels(Trial& trial) {
    ModelManager manager;
    const auto first = trial.loaded(trial.plain());
    const auto second = trial.loaded(trial.plain());
    manager.registerModel(first);
    manager.registerModel(second);
    trial.expectPredicts(*first, trial.plain());
    const uint64_t bytes = bytesOf(*first);
    EXPECT_EQ(bytesOf(*second), 0U) << "wanted is nothing for a model that has not been used";
    trial.expectPredicts(*second, trial.plain());
    EXPECT_EQ(bytesOf(*first), bytes) << "wanted is what it was before the other model was used";
    EXPECT_EQ(bytesOf(*second), bytes) << "wanted is the same for the same network";
    Trial::expectSuccess(manager.unloadModel(first), "unloadModel");
    trial.expectPredicts(*second, trial.plain());
    EXPECT_EQ(bytesOf(*second), bytes) << "wanted is what it was before the other model was unloaded";
    Trial::expectSuccess(manager.unloadModel(second), "unloadModel");
}

void endOfTheModel(Trial& trial) {
    std::weak_ptr<MireloModel> watched;
    {
        ModelManager manager;
        const auto model = trial.loaded(trial.plain());
        watched = model;
        manager.registerModel(model);
        useAll(trial, *model);
        Trial::expectSuccess(manager.unloadModel(model), "unloadModel");
    }
    EXPECT_TRUE(watched.expired()) << "The model lives on, wanted is its end with the last one who holds it";
}

}  // namespace

std::vector<Row> memoryRows() {
    return {
        {"MemoryAfterRegistration", "the first operation after a registration", SUCCESS,
         "the record shows the model's memory; until then it is empty", memoryAfterRegistration},
        {"MemoryOfLoad", "a load of a registered model, then further operations and loads", SUCCESS,
         "the record shows the network of the last load only", memoryOfLoad},
        {"MemoryOfUnload", "an unload", SUCCESS, "exactly what the model reported is taken back, once", memoryOfUnload},
        {"MemoryOfFailedLoad", "a load that fails", SUCCESS, "what the previous load reported is taken back",
         memoryOfFailedLoad},
        {"MemoryOfNewRecord", "another registration", SUCCESS, "the new record shows all of the model's memory",
         memoryOfNewRecord},
        {"MemoryOfSeveralModels", "two models on one device", SUCCESS, "each record shows its own model only",
         memoryOfSeveralModels},
        {"EndOfTheModel", "an unload through the manager", SUCCESS,
         "the model is destroyed with the last reference to it", endOfTheModel},
    };
}

}  // namespace TarnoMirelo::Conformance
