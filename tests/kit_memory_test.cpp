// The kit: memory accounts, and models in service for as long as an object lives.

#include "support/scripted_model.h"
#include "support/text.h"

#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/kit/memory.h>

#include <gtest/gtest.h>

#include <limits>
#include <optional>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();

std::shared_ptr<ScriptedModel> makeModel() { return std::make_shared<ScriptedModel>("m", MireloModelType::WinML); }

uint64_t recorded(const std::shared_ptr<ModelRuntimeStatus>& record) { return record->getCurrentMemoryConsumption(); }

}  // namespace

TEST(KitMemory, ReportsToWhicheverRecordThereIs) {
    const auto model = makeModel();
    ModelManager manager;
    MemoryReporter reporter;
    EXPECT_FALSE(reporter.report(model->runtimeRecord(), 100));
    manager.registerModel(model);
    EXPECT_TRUE(reporter.report(model->runtimeRecord(), 100));
    EXPECT_TRUE(reporter.report(model->runtimeRecord(), 100));
    EXPECT_EQ(recorded(model->runtimeRecord()), 100U);
    model->runtimeRecord()->addCurrentMemoryConsumption(7);  // of somebody else, who takes it back by themselves
    EXPECT_TRUE(reporter.report(model->runtimeRecord(), 40));
    const std::shared_ptr<ModelRuntimeStatus> former = model->runtimeRecord();
    EXPECT_EQ(recorded(former), 47U);
    manager.registerModel(model);
    EXPECT_TRUE(reporter.report(model->runtimeRecord(), 40));
    EXPECT_EQ(recorded(model->runtimeRecord()), 40U);
    EXPECT_EQ(recorded(former), 47U);
    EXPECT_TRUE(reporter.report(model->runtimeRecord(), 0));
    EXPECT_EQ(recorded(model->runtimeRecord()), 0U);
    EXPECT_TRUE(reporter.report(model->runtimeRecord(), 30));
    manager.unloadModel(model);
    EXPECT_FALSE(reporter.report(model->runtimeRecord(), 30));
    manager.registerModel(model);  // perhaps where the former record was
    EXPECT_TRUE(reporter.report(model->runtimeRecord(), 30));
    EXPECT_EQ(recorded(model->runtimeRecord()), 30U);
    manager.unloadModel(model);
}

TEST(KitMemory, TakesBackOnlyWhatTheRecordTook) {
    const auto record = std::make_shared<ModelRuntimeStatus>(100, nullptr);
    MemoryReporter reporter;
    EXPECT_TRUE(reporter.report(record, 60));
    EXPECT_FALSE(reporter.report(record, 100));
    EXPECT_EQ(reporter.reported(), 60U);
    EXPECT_EQ(recorded(record), 60U);
    EXPECT_TRUE(reporter.report(record, 0));
    EXPECT_EQ(recorded(record), 0U);
}

TEST(KitMemory, ViewChoosesTheShortestListToUnload) {
    const struct {
        std::vector<uint64_t> bytes;
        uint64_t budget, total, over;
        std::vector<size_t> unload;
    } cases[] = {
        {{}, 0, 0, 0, {}},
        {{5, 9, 5}, 19, 19, 0, {}},
        {{5, 9, 5}, 18, 19, 1, {2}},
        {{5, 9, 5}, 10, 19, 9, {1}},
        {{5, 9, 5}, 9, 19, 10, {1, 2}},
        {{5, 9, 5}, 0, 19, 19, {1, 0, 2}},
        {{1, 9, 2, 8}, 2, 20, 18, {1, 3, 0}},
        {{0, 3}, 0, 3, 3, {1}},
        {{kMost - 1, kMost - 1}, 5, kMost, kMost - 5, {0, 1}},
    };
    for (const auto& each : cases) {
        ModelManager manager;
        std::vector<std::shared_ptr<ScriptedModel>> models;
        std::vector<std::shared_ptr<MireloModel>> expected;
        for (const uint64_t bytes : each.bytes) {
            models.push_back(makeModel());
            manager.registerModel(models.back());
            models.back()->runtimeRecord()->setCurrentMemoryConsumption(bytes);
        }
        for (const size_t index : each.unload) expected.push_back(models[index]);
        if (!models.empty()) manager.registerModel(models[0]);  // counted once all the same
        if (!models.empty()) models[0]->runtimeRecord()->setCurrentMemoryConsumption(each.bytes[0]);
        const MemoryView view(manager.getRuntimeStatus(), each.budget);
        EXPECT_EQ(list(view.models().size(), view.total(), view.over()),
                  list(each.bytes.size(), each.total, each.over));
        EXPECT_EQ(view.toUnload(), expected) << list(each.total, each.over);
        for (const auto& model : models) manager.unloadModel(model);
    }
}

TEST(KitManager, UnloadsWhenTheScopeEnds) {
    ModelManager manager;
    const std::weak_ptr<ScriptedModel> watched = [&] {
        ScopedModel scoped(manager, makeModel());
        EXPECT_EQ(text(*scoped.lastStatus()), kSuccess);
        ScopedModel moved = std::move(scoped);
        moved = ScopedModel(manager, moved.model());  // the model once more: the former registration is unloaded
        EXPECT_EQ(moved->getName(), "m");
        return std::static_pointer_cast<ScriptedModel>(moved.model());
    }();
    EXPECT_TRUE(watched.expired());
    EXPECT_TRUE(manager.getRuntimeStatus().getLoadedModels().empty());
}

TEST(KitManager, KeepsTheLastStatus) {
    ModelManager manager;
    EXPECT_EQ(text(*ScopedModel(manager, nullptr).lastStatus()), "7: The model must not be null");
    const auto model = makeModel();
    std::optional<ScopedModel> scoped;
    scoped.emplace(manager, model);
    model->answer = {ML_FRAMEWORK_ERROR, "busy"};
    EXPECT_EQ(text(scoped->unload()), "13: busy");
    EXPECT_EQ(scoped->model(), model);
    model->raises = true;
    EXPECT_EQ(text(scoped->unload()), "2: raised by unload");
    model->raises = false;
    model->answer = {SUCCESS, ""};
    const std::shared_ptr<const MireloStatus> last = scoped->lastStatus();
    scoped.reset();
    EXPECT_EQ(text(*last), kSuccess);
    EXPECT_EQ(model->calls, "unload;unload;");

    scoped.emplace(manager, model);
    manager.unloadModel(model);
    EXPECT_EQ(scoped->unload().getCode(), MODEL_REFERENCE_ERROR);
    EXPECT_EQ(text(scoped->unload()), kSuccess);
    scoped.reset();
    EXPECT_EQ(model->calls, "unload;unload;unload;unload;");
}
