// Fails the allocations of every operation one by one, and then all from each one on: the operation says so, leaves its
// objects as they were or as its documentation has it, loses nothing, and works when it is called again.

#include "faults/allocations.h"
#include "support/scripted_model.h"
#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/TarnoMirelo.h>

#include <functional>
#include <iostream>
#include <optional>

using namespace TarnoMirelo;

namespace {

// One call on objects that were made for it.
struct Call {
    std::function<MireloStatus()> work;
    // What can be told of the objects; where the documentation lets a failed call change them, only what it may not.
    std::function<std::string()> state;
    // What can be told of them once the call has succeeded.
    std::function<std::string()> result = [] { return std::string(); };
};

struct Operation {
    const char* name;
    std::function<Call()> prepare;
    // How it tells that it has no memory: "raises" where std::bad_alloc passes through.
    std::string failure;
    bool goesOn = false;  // where it can do without
};

const MireloStatus kDone(SUCCESS, "");
const std::string kRaises = "raises";
const std::string kStatus = "2: std::bad_alloc";
const std::string kLong(60, 'n');  // beyond what a text holds without an allocation

Call valueCall(std::function<void()> work) {
    return {[work = std::move(work)] { return work(), kDone; }, [] { return std::string(); }};
}

// Builds a value, copies it, and assigns the copy.
template <typename Value, typename... Arguments>
Operation values(const char* name, Arguments... arguments) {
    return {name,
            [=] {
                return valueCall([=] {
                    const Value value(arguments...);
                    Value copy(value);
                    Value other(arguments...);
                    other = copy;
                    Value moved(std::move(copy));
                    other = std::move(moved);
                });
            },
            kRaises};
}

// Builds an object that is not copied.
template <typename Object, typename... Arguments>
Operation objects(const char* name, Arguments... arguments) {
    return {name, [=] { return valueCall([=] { const Object object(arguments...); }); }, kRaises};
}

ModelFeatureDescriptor descriptor(const std::string& name) {
    return {MireloFeatureType::Tensor, true, name, kLong, TensorDescriptor(TensorShape(2, 3), DataType::Float)};
}

ModelTarget target() {
    ModelTarget result;
    result.components.resize(2);
    result.components[1].path = kLong;
    for (int i = 0; i < 3; ++i) result.inputs.push_back(descriptor(kLong + std::to_string(i)));
    result.outputs.push_back(descriptor("out"));
    return result;
}

std::string describe(const MireloModel& model) {
    return model.getRootDir().getPathString() + std::to_string(model.getModelTarget().inputs.size());
}

std::string describe(const ModelMetadata& metadata) {
    std::string all = metadata.getId() + metadata.getName() + metadata.getAuthor() + metadata.getDescription() +
                      metadata.getSdkVersion() + metadata.getRootDir().getPathString();
    for (const auto& [type, each] : metadata.getTargets()) {
        all += each.components.at(0).path;
        for (const auto& feature : each.inputs) all += feature.name() + feature.description();
    }
    return all;
}

std::shared_ptr<ScriptedModel> makeModel() {
    return std::make_shared<ScriptedModel>(kLong, MireloModelType::WinML, target());
}

Call loadManifest() {
    const auto metadata = std::make_shared<ModelMetadata>();
    metadata->setTargets({{MireloModelType::TFLite, target()}});
    const auto loaded = [=] { return describe(*metadata); };
    const Filepath path = Filepath(MANIFEST_DIRECTORY).append(Filepath("manifest.json"));
    // A failed load may have stored the first fields; it keeps the targets.
    return {[=] { return metadata->load(path); },
            [=] { return std::to_string(metadata->getTargets().count(MireloModelType::TFLite)); }, loaded};
}

Call replaceTargets() {
    const auto metadata = std::make_shared<ModelMetadata>();
    metadata->setTargets({{MireloModelType::TFLite, target()}});
    const ModelMetadata::Targets targets = {{MireloModelType::WinML, target()}, {MireloModelType::CoreML, target()}};
    const auto types = [=] {
        return list(metadata->getTargets().size(), metadata->getTargets().count(MireloModelType::TFLite));
    };
    return {[=] { return metadata->setTargets(targets), kDone; }, types, types};
}

// The code is told even where there is no memory left for the text.
Call loadNoManifest() {
    const auto metadata = std::make_shared<ModelMetadata>();
    const Filepath path(kLong);
    return {[=] {
                MireloStatus status = metadata->load(path);
                return status.getCode() == MODEL_METADATA_ERROR ? kDone : status;
            },
            [=] { return describe(*metadata); }};
}

Call loadModel() {
    const auto model = makeModel();
    const MireloModel::Components components(MireloModelType::OpenVino, ModelTarget(target()), Filepath(kLong));
    return {[=] { return model->load(components); }, [=] { return describe(*model); }, [=] { return model->calls; }};
}

Call predict() {
    const auto model = makeModel();
    return {[=] {
                MireloModel::Outputs outputs;
                return model->predict({}, outputs);
            },
            [] { return std::string(); }, [=] { return std::to_string(model->calls.empty()); }};
}

Call readProperties() {
    MireloModel::Outputs outputs;
    const auto status = std::make_shared<MireloStatus>(makeModel()->predict({}, outputs));
    return {
        [=] { return MireloStatus(SUCCESS, status->getProperty("mireloondevice.modelName") == kLong ? "" : "lost"); },
        [=] { return std::to_string(status->getPropertyMap().size()); }};
}

Call allocateInputs() {
    const auto model = makeModel();
    const auto inputs = std::make_shared<MireloModel::Outputs>(1);  // what is there already, and stays
    return {[=] {
                inputs->resize(1);
                return model->allocateInputs(*inputs);
            },
            [=] { return std::to_string(inputs->at(0) == nullptr); }, [=] { return std::to_string(inputs->size()); }};
}

struct Registered {
    ~Registered() {  // a record and its model hold each other
        for (const auto& model : models) model->setRuntimeStatus(nullptr);
    }
    ModelManager manager;
    std::vector<std::shared_ptr<ScriptedModel>> models{makeModel(), makeModel()};
    std::string describe() {
        std::string all;
        for (const auto& model : manager.getRuntimeStatus().getLoadedModels()) {
            all += model == models[0] ? "first " : "second ";
        }
        for (const auto& model : models) all += model->runtimeRecord() == nullptr ? "free " : "recorded ";
        return all;
    }
};

enum class Managing { Register, Snapshot, Unload, UnloadStranger };

Call manage(Managing what) {
    const auto all = std::make_shared<Registered>();
    all->manager.registerModel(all->models[0]);
    const auto describe = [=] { return all->describe(); };
    return {[=]() -> MireloStatus {
                switch (what) {
                    case Managing::Register:
                        return all->manager.registerModel(all->models[1]);
                    case Managing::Snapshot:
                        return {all->manager.getRuntimeStatus().getLoadedModels().size() == 1 ? SUCCESS : WARNING, ""};
                    case Managing::Unload:
                        return all->manager.unloadModel(all->models[0]);
                    case Managing::UnloadStranger:
                        break;
                }
                const MireloStatus status = all->manager.unloadModel(all->models[1]);
                return {status.getCode() == MODEL_REFERENCE_ERROR ? SUCCESS : UNKNOWN_ERROR, ""};
            },
            describe, describe};
}

Call extract(bool sized) {
    const auto directory = std::make_shared<TempDir>();
    const auto destination = std::make_shared<Filepath>(directory->path());
    const Filepath start = directory->path();
    const auto archive = std::make_shared<std::vector<unsigned char>>(
        TarBuilder().directory("m").extended("path=m/" + kLong).file("m/f", "weights").file("m/g", "more").whole());
    return {[=] {
                *destination = start;
                return sized ? FileUtils().extractTarballOfSize(archive->data(), archive->size(), *destination)
                             : FileUtils().extractTarball(archive->data(), *destination);
            },
            [=] { return std::string(directory->path().c_str()); },
            [=] {
                return std::string(destination->c_str()).substr(directory->path().getPathString().size()) +
                       directory->read(sized ? "m/" + kLong : "m/f") + directory->read("m/g");
            }};
}

Call shapeTensor(const std::shared_ptr<ITensor>& tensor, MireloStatus (ITensor::*shape)(const TensorShape&)) {
    const auto state = [=] { return list(tensor->shape(), tensor->buffer() == nullptr); };
    return {[=] { return ((*tensor).*shape)({2, 3}); }, state, state};
}

// Writes, finds and reads a file in each way that there is.
Call useFiles() {
    const auto directory = std::make_shared<TempDir>();
    const auto read = std::make_shared<std::string>();
    return {[=] {
                FileUtils files;
                const Filepath path = directory->path(kLong);
                files.writeStringToFile(kLong, path);
                LogProcessorFileSystem log(directory->native().string(), "log", false);
                log.WriteHeader("title", kLong);
                uint64_t size = 0;
                *read = files.findFilesByPattern(directory->path(), "N*").at(0).getPathString() +
                        files.readBinaryFileToBuffer(path, size).get()[size - 1] +
                        files.readBinaryFileToVector(path).back() +
                        static_cast<char>(files.readBinaryFileToByteVector(path).back()) +
                        files.readBinaryFileToString(path);
                return kDone;
            },
            [] { return std::string(); }, [=] { return *read; }};
}

MireloModel::Inputs rows(size_t count) {
    return MireloModel::Inputs(count, std::make_shared<MireloFeatureTensor>(descriptor("x")));
}

Call readBatch() {
    const auto batch = std::make_shared<MireloBatch>(rows(3));
    return {[=] {
                const size_t read =
                    batch->getFeatureSet().features.size() + batch->getSortedFetures({2, descriptor("x")}).size();
                return MireloStatus(read == 9 ? SUCCESS : WARNING, "");
            },
            [] { return std::string(); }};
}

// The list would take 64 MB, more than there is: the name that the batch hasn't is told all the same.
Call sortByUnknownNames() {
    const auto batch = std::make_shared<MireloBatch>(rows(2000));
    const auto names = std::make_shared<std::vector<ModelFeatureDescriptor>>(1999, descriptor("x"));
    names->push_back(descriptor("y"));
    return {[=] {
                try {
                    batch->getSortedFetures(*names);
                    return MireloStatus(WARNING, "");
                } catch (const std::out_of_range&) {
                    return kDone;
                }
            },
            [] { return std::string(); }};
}

struct CopyingSink : ILogProcessor {
    void Process(const LogEntry& entry) override { last = entry.message; }
    std::string last;
};

struct LoggerInUse {
    LoggerInUse() {
        logger.SetDefaultLogProcessor(std::make_shared<LogProcessorFormatter<DebugLogFormat>>(
            std::make_shared<CopyingSink>(), DebugLogFormat(0)));
        for (int i = 0; i < 17; ++i) logger.Report({"early", LogProcessorTarget::None, LogSeverity::Error, 0, 0});
    }
    ~LoggerInUse() {
        logger.SetDefaultLogProcessor(nullptr);
        logger.ClearErrorMessages();
    }
    Logger& logger = Logger::GetInstance();
};

Call report() {
    const auto user = std::make_shared<LoggerInUse>();
    const LogEntry entry{kLong, LogProcessorTarget::None, LogSeverity::Error, 0, 0};
    return {[=] { return user->logger.Report(entry), kDone; },
            [=] { return std::to_string(user->logger.GetErrorCount()); },
            [=] { return user->logger.GetErrorMessageAt(16); }};
}

Call fillRegistry() {
    using namespace CustomOperators;
    const auto registry = std::make_shared<OperatorRegistry>();
    const std::array<char, 64> captured{};
    return {[=] {
                registry->clear();
                const OperatorFactory factory = [captured] {
                    return captured[0] == 0 ? std::make_unique<Operator>() : nullptr;
                };
                const bool added = registry->addOperatorToRegistry(kLong, factory);
                registry->addCustomOperatorDLL(Filepath(kLong));
                registry->updateOpPlacement({{kLong}, {kLong, "b"}});
                registry->markRegistryAsReadOnly();
                const OperatorRegistry copy = *registry;
                const bool all = added && copy.createOperator(kLong) != nullptr &&
                                 copy.getCustomOperatorDLLList().size() == 1 &&
                                 copy.getOpPlacement().second.size() == 2;
                return MireloStatus(all ? SUCCESS : WARNING, "");
            },
            [] { return std::string(); }};
}

std::string outcome(const Call& call) {
    try {
        const MireloStatus status = call.work();
        Allocations::stopFailing();
        return text(status);
    } catch (const std::bad_alloc&) {
        Allocations::stopFailing();
        return kRaises;
    }
}

// How many allocations were failed, one by one; raises when something is not as it must be.
size_t sweep(const Operation& operation, bool onwards) {
    const auto require = [](bool holds, const std::string& what) {
        if (!holds) throw std::runtime_error(what);
    };
    std::string expected;
    {
        const Call call = operation.prepare();
        require(outcome(call) == kSuccess, "fails by itself");  // and makes what is made once
        expected = call.result();
    }
    for (size_t number = 1;; ++number) {
        const size_t alive = Allocations::alive();
        {
            const Call call = operation.prepare();
            const std::string before = call.state();
            Allocations::failAt(number, onwards);
            const std::string said = outcome(call);
            const bool failed = Allocations::stopFailing() > 0;
            const std::string which = " when allocation " + std::to_string(number) + " fails";
            if (failed) {
                require(said == operation.failure || (operation.goesOn && said == kSuccess),
                        "says \"" + said + "\"" + which);
                if (said != kSuccess) require(call.state() == before, "is " + call.state() + which);
                require(outcome(call) == kSuccess, "does not recover" + which);
            }
            require(call.result() == expected, "results in " + call.result() + which);
            if (!failed) return number - 1;
        }
        const bool lost = Allocations::alive() != alive;
        require(!lost, "leaks when allocation " + std::to_string(number) + " fails");
    }
}

}  // namespace

int main() {
    const std::string name = kLong;
    const Device device(name, MireloModelType::WinML);
    const Operation operations[] = {
        values<MireloStatus>("status", FILE_ERROR, name),
        values<FileException>("exception", name),
        values<Filepath>("path", name),
        values<TensorShape>("shape", 1, 2, 3),
        values<TensorDescriptor>("tensor descriptor", name, TensorShape(1, 2), true, DataType::Float),
        values<ModelFeatureDescriptor>("feature descriptor", descriptor(name)),
        values<ModelTarget>("target", target()),
        values<ModelMetadata>("metadata", name, name, name, name, 1, name, Filepath(name),
                              ModelMetadata::Targets{{MireloModelType::WinML, target()}}, name),
        values<Device>("device", device),
        values<LogEntry>("log entry", LogEntry{name, LogProcessorTarget::None, LogSeverity::Info, 0, 0}),
        values<MireloConfig>("configuration", MireloConfig()),
        objects<Tensor>("tensor", DataType::Float, TensorShape(2, 3)),
        objects<VariableTensor>("variable tensor", DataType::Float, TensorShape(-1, 3)),
        objects<MireloFeatureTensor>("tensor feature", descriptor(name)),
        objects<MireloFeatureString>("string feature", descriptor(name), name),
        objects<ScriptedModel>("model", name, MireloModelType::WinML, target()),
        objects<MireloBatch>("batch", rows(4)),
        {"rows and inputs of a batch", readBatch, kRaises},
        {"inputs of a batch by unknown names", sortByUnknownNames, kRaises},
        {"ModelMetadata::load", loadManifest, kStatus},
        {"ModelMetadata::load of nothing", loadNoManifest, kStatus, true},
        {"setTargets", replaceTargets, kRaises},
        {"MireloModel::load", loadModel, kRaises},
        {"predict", predict, kRaises},
        {"properties of a status", readProperties, kRaises},
        {"allocateInputs", allocateInputs, kStatus},
        {"registerModel", [] { return manage(Managing::Register); }, kRaises},
        {"getRuntimeStatus", [] { return manage(Managing::Snapshot); }, kRaises},
        {"unloadModel", [] { return manage(Managing::Unload); }, kRaises},
        {"unloadModel of a stranger", [] { return manage(Managing::UnloadStranger); }, kRaises},
        {"resize", [] { return shapeTensor(std::make_shared<Tensor>(DataType::Float), &ITensor::resize); }, kRaises},
        {"allocateShape",
         [] {
             return shapeTensor(std::make_shared<VariableTensor>(DataType::Float, TensorShape(-1, -1)),
                                &ITensor::allocateShape);
         },
         kRaises},
        {"files", useFiles, kRaises},
        {"extractTarball", [] { return extract(false); }, kStatus},
        {"extractTarballOfSize", [] { return extract(true); }, kStatus},
        {"Logger::Report", report, kRaises, true},  // what a processor raises is not the reporter's
        {"operator registry", fillRegistry, kRaises},
    };
    size_t total = 0;
    bool good = true;
    for (const Operation& operation : operations) {
        try {
            const size_t failed = sweep(operation, false) + sweep(operation, true);
            total += failed;
            std::cout << operation.name << ": " << failed << " allocations failed\n";
        } catch (const std::exception& error) {
            good = false;
            std::cout << operation.name << ": " << error.what() << "\n";
        }
    }
    std::cout << total << " allocations failed in all\n";
    return good ? 0 : 1;
}
