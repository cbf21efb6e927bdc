// The kit: models that are traced.

#include "support/scripted_model.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/kit/trace.h>

#include <gtest/gtest.h>

#include <thread>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

// Reports some memory with every prediction, and keeps a cached file.
class ReportingModel : public BindingModel {
 public:
    using BindingModel::BindingModel;

    uint64_t bytes = 0;

 protected:
    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override {
        reporter_.report(runtimeRecord(), bytes);
        return BindingModel::onPredict(inputs, outputs);
    }
    MireloStatus onUnload() override {
        if (answer.ok()) reporter_.report(runtimeRecord(), 0);
        return BindingModel::onUnload();
    }
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override {
        setCachedModelFilePath(getRootDir());
        return BindingModel::onLoad(components);
    }
    MireloCacheStatus onQueryCacheStatus(const Components& /*components*/) override {
        return static_cast<MireloCacheStatus>(7);
    }

 private:
    mutable MemoryReporter reporter_;
};

struct ListSink : TraceSink {
    void record(const TraceEvent& event) override {
        EXPECT_GE(event.duration.count(), 0);
        EXPECT_LE(event.start + event.duration, std::chrono::steady_clock::now());
        events += list(event.modelName, event.operation, text(event.status), event.memory) + ";";
        if (raises) throw std::runtime_error("full");
    }
    std::string events;
    bool raises = false;
};

MireloModel::Components twoComponents() {
    ModelTarget target;
    target.components.resize(2);
    return {MireloModelType::TFLite, target, Filepath("root")};
}

// Every operation, and what came of it.
std::string callAll(MireloModel& model) {
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    std::string all;
    const auto note = [&](const MireloStatus& status) { all += text(status) + ";"; };
    note(model.load(twoComponents()));
    note(model.setBatchSize(3));
    note(model.predict({}, outputs));
    note(model.predictBatch({}, outputs));
    note(model.bind({}, outputs, binding));
    note(model.evaluate(binding));
    all += std::to_string(static_cast<int>(model.queryCacheStatus(twoComponents())));
    note(model.doUnload());
    all += list(model.getName(), model.getRootDir().getPathString(), model.getCachedModelFilePath()->getPathString(),
                static_cast<int>(model.getModelType()), model.getModelTarget().components.size());
    return all;
}

std::shared_ptr<ReportingModel> reportingModel() {
    return std::make_shared<ReportingModel>("inner", MireloModelType::WinML);
}

// The text with a T for each time.
std::string withoutTimes(std::string text) {
    const std::string key = "\"ts\": ";
    for (size_t at = 0; (at = text.find(key, at)) != std::string::npos;) {
        at += key.size();
        const size_t end = text.find(',', at);
        EXPECT_EQ(text.find('.', at) + 4, end);  // microseconds with three digits behind the point
        text.replace(at, end - at, "T");
    }
    return text;
}

}  // namespace

TEST(KitTrace, PassesEverythingOn) {
    const auto bare = reportingModel();
    const std::string expected = callAll(*bare);
    for (const bool raises : {false, true}) {
        const auto inner = reportingModel();
        const auto sink = std::make_shared<ListSink>();
        sink->raises = raises;
        EXPECT_EQ(callAll(*TracedModel::wrap(inner, sink)), expected);
        EXPECT_EQ(inner->calls, bare->calls);
        EXPECT_EQ(sink->events,
                  "another name load 1:  0;another name setBatchSize 1:  0;another name predict 1:  0;another name "
                  "predictBatch 1:  0;another name bind 1:  0;another name evaluate 1:  0;another name "
                  "queryCacheStatus 1:  0;another name doUnload 1:  0;");
    }
    EXPECT_EQ(callAll(*TracedModel::wrap(reportingModel())), expected);
    EXPECT_EQ(raised([] { TracedModel::wrap(nullptr); }), "7: The model to trace must not be null");
}

TEST(KitTrace, HasTheInnerModelsDevice) {
    const auto shared = std::make_shared<Device>("d", MireloModelType::CoreML);
    Device raw("r", MireloModelType::TFJS);
    const auto onShared = TracedModel::wrap(std::make_shared<ScriptedModel>("m", shared));
    const auto onRaw = TracedModel::wrap(std::make_shared<ScriptedModel>("m", &raw));
    EXPECT_EQ(onShared->getDevice(), shared);
    EXPECT_EQ(onShared->getModelType(), MireloModelType::CoreML);
    EXPECT_EQ(onRaw->getDeviceRawPointer(), &raw);
    EXPECT_EQ(onRaw->getDevice(), nullptr);
}

TEST(KitTrace, KeepsStampsFailuresAndExceptions) {
    const auto inner = std::make_shared<ScriptedModel>("inner", MireloModelType::WinML);
    const auto sink = std::make_shared<ListSink>();
    // The outer stamp has another model type: the first one wins.
    const auto model = TracedModel::wrap(TracedModel::wrap(inner), sink);
    inner->answer = {ML_FRAMEWORK_ERROR, "broken"};
    EXPECT_EQ(model->load(twoComponents()).getProperty("mireloondevice.status"), "13");
    MireloModel::Outputs outputs;
    const MireloStatus status = model->predict({}, outputs);
    EXPECT_EQ(status.getProperty("mireloondevice.modelType"), "TF-Lite");
    EXPECT_EQ(status.getProperty("mireloondevice.method"), "PREDICT");
    EXPECT_EQ(text(status), "13: broken");
    inner->raises = true;
    EXPECT_EQ(raised([&] { model->predict({}, outputs); }), "2: raised by predict");
    EXPECT_EQ(sink->events, "inner load 13: broken 0;inner predict 13: broken 0;inner predict 2: raised by predict 0;");
}

TEST(KitTrace, SharesTheRecordAndLosesNoModel) {
    const std::weak_ptr<TracedModel> watched = [] {
        ModelManager manager;
        const auto inner = reportingModel();
        const auto sink = std::make_shared<ListSink>();
        const auto model = TracedModel::wrap(inner, sink);
        MireloModel::Outputs outputs;
        inner->bytes = 50;
        manager.registerModel(model);
        model->predict({}, outputs);
        manager.registerModel(model);  // with a new record
        model->predict({}, outputs);
        EXPECT_EQ(manager.getRuntimeStatus().getModelsRuntimeStatus()[0].getCurrentMemoryConsumption(), 50U);
        EXPECT_EQ(sink->events, "another name predict 1:  50;another name predict 1:  50;");
        inner->answer = {WARNING, ""};
        EXPECT_EQ(manager.unloadModel(model).getCode(), WARNING);
        EXPECT_EQ(model->getRuntimeStatus().getCurrentMemoryConsumption(), 50U);
        inner->answer = {SUCCESS, ""};
        EXPECT_EQ(manager.unloadModel(model).getCode(), MODEL_REFERENCE_ERROR);  // registered twice
        const ScopedModel scoped(manager, model);
        model->predict({}, outputs);
        EXPECT_EQ(model->getRuntimeStatus().getCurrentMemoryConsumption(), 50U);
        return model;
    }();
    EXPECT_TRUE(watched.expired());
}

TEST(KitTrace, LetsOperationsOverlap) {
    struct Quiet : ScriptedModel {
        using ScriptedModel::ScriptedModel;
        MireloStatus onPredict(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override {
            const std::lock_guard<std::mutex> lock(reporting);
            if (runtimeRecord() == nullptr) return {UNKNOWN_ERROR, ""};
            runtimeRecord()->addCurrentMemoryConsumption(1);
            return {SUCCESS, ""};
        }
        mutable std::mutex reporting;
    };
    const TempDir directory;
    const auto sink = std::make_shared<ChromeTraceFile>(directory.path("trace.json"));
    const auto model = TracedModel::wrap(std::make_shared<Quiet>("m", MireloModelType::WinML), sink);
    ModelManager manager;
    const ScopedModel scoped(manager, model);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int call = 0; call < 50; ++call) {
                MireloModel::Outputs outputs;
                EXPECT_TRUE(model->predict({}, outputs).ok());
            }
        });
    }
    while (manager.getRuntimeStatus().getTotalMemoryConsumption() < 200) std::this_thread::yield();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(text(sink->close()), kSuccess);
    const std::string written = directory.read("trace.json");
    size_t operations = 0;
    for (size_t at = 0; (at = written.find("\"status\"", at)) != std::string::npos; ++at) ++operations;
    EXPECT_EQ(operations, 200U);
    EXPECT_NE(written.find("\"tid\": 4,"), std::string::npos);
}

TEST(KitTrace, WritesChromesFormat) {
    const TempDir directory;
    {
        ChromeTraceFile file(directory.path("trace.json"));
        const MireloStatus failed(INVALID_SHAPE, "a \"b\"\n\xE2\x82\xAC\xFF\xED\xA0\x80");
        const std::string name = "m\\";
        const auto start = std::chrono::steady_clock::now();
        file.record({"predict", name, start, std::chrono::nanoseconds(1234567), failed, 42});
        file.record({"predict", name, start, std::chrono::nanoseconds(5), failed, 42});
    }
    const auto event = [](const char* duration) {
        return std::string(R"({"name": "predict", "cat": "m\\", "ph": "X", "pid": 1, "tid": 1, "ts": T, "dur": )") +
               duration +
               R"(, "args": {"status": "INVALID_SHAPE", "description": "a \"b\"\u000a)"
               "\xE2\x82\xAC" +
               R"(\ufffd\ufffd\ufffd\ufffd", "memory": 42}})";
    };
    const std::string counter = R"({"name": "memory of m\\", "ph": "C", "pid": 1, "ts": T, "args": {"bytes": 42}})";
    EXPECT_EQ(withoutTimes(directory.read("trace.json")),
              "[\n" + event("1234.567") + ",\n" + counter + ",\n" + event("0.005") + "\n]\n");
    ChromeTraceFile empty(directory.path("trace.json"));
    EXPECT_EQ(text(empty.close()), kSuccess);
    EXPECT_EQ(directory.read("trace.json"), "[]\n");
    const Filepath nowhere = directory.path("none").append(Filepath("trace.json"));
    EXPECT_EQ(text(ChromeTraceFile(nowhere).status()), "3: Trace: cannot write the file " + toText(nowhere));
}
