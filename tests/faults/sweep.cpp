// Fails the allocations of every operation one by one, and then all from each one on: the operation reports it, leaves
// its objects as they were or as documented, leaks nothing, and works when it is called again.

#include "faults/allocations.h"
#include "support/protection.h"
#include "support/scripted_model.h"
#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/kit/batch_run.h>
#include <TarnoMirelo/kit/check.h>
#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/digest.h>
#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/kit/package.h>
#include <TarnoMirelo/kit/targets.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/kit/trace.h>

#include <functional>
#include <iostream>
#include <optional>

using namespace TarnoMirelo;

namespace {

using Text = std::function<std::string()>;

// One call on objects that were made for it.
struct Call {
    std::function<MireloStatus()> work;
    // The objects as text; where a failed call may change them, only what it may not.
    Text state = [] { return std::string(); };
    // The same after success.
    Text result = [] { return std::string(); };
};

struct Operation {
    const char* name;
    std::function<Call()> prepare;
    std::string failure = "raises";  // how it says that there is no memory: by std::bad_alloc, or by a status
    bool goesOn = false;             // or it does without
};

const MireloStatus kDone(SUCCESS, "");
const std::string kStatus = "2: std::bad_alloc";
const std::string kLong(60, 'n');  // beyond what a text holds without an allocation

MireloStatus done(bool good) { return {good ? SUCCESS : WARNING, ""}; }

// Builds a value, copies it, and assigns the copy.
template <typename Value, typename... Arguments>
Operation values(const char* name, Arguments... arguments) {
    const auto work = [=] {
        const Value value(arguments...);
        Value copy(value);
        Value other(arguments...);
        other = copy;
        Value moved(std::move(copy));
        other = std::move(moved);
        return kDone;
    };
    return {name, [=] { return Call{work}; }};
}

// Builds an object that is not copied.
template <typename Object, typename... Arguments>
Operation objects(const char* name, Arguments... arguments) {
    return {name, [=] { return Call{[=] { return Object(arguments...), kDone; }}; }};
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
    const Filepath path = Filepath(MANIFEST_DIRECTORY).append(Filepath("manifest.json"));
    // A failed load may have stored the first fields; it keeps the targets.
    return {[=] { return metadata->load(path); },
            [=] { return list(metadata->getTargets().count(MireloModelType::TFLite)); },
            [=] { return describe(*metadata); }};
}

// The code is there even where there is no memory for the text.
Call loadNoManifest() {
    const auto metadata = std::make_shared<ModelMetadata>();
    const Filepath path(kLong);
    return {[=] {
                const MireloStatus status = metadata->load(path);
                return status.getCode() == MODEL_METADATA_ERROR ? kDone : status;
            },
            [=] { return describe(*metadata); }};
}

Call replaceTargets() {
    const auto metadata = std::make_shared<ModelMetadata>();
    metadata->setTargets({{MireloModelType::TFLite, target()}});
    const ModelMetadata::Targets targets = {{MireloModelType::WinML, target()}, {MireloModelType::CoreML, target()}};
    const Text types = [=] {
        return list(metadata->getTargets().size(), metadata->getTargets().count(MireloModelType::TFLite));
    };
    return {[=] { return metadata->setTargets(targets), kDone; }, types, types};
}

Call loadModel() {
    const auto model = makeModel();
    const MireloModel::Components components(MireloModelType::OpenVino, ModelTarget(target()), Filepath(kLong));
    return {[=] { return model->load(components); },
            [=] { return list(model->getRootDir().c_str(), model->getModelTarget().inputs.size()); },
            [=] { return model->calls; }};
}

Call predict() {
    const auto model = makeModel();
    return {[=] {
        MireloModel::Outputs outputs;
        return model->predict({}, outputs);
    }};
}

Call readProperties() {
    MireloModel::Outputs outputs;
    const auto status = std::make_shared<MireloStatus>(makeModel()->predict({}, outputs));
    return {[=] { return done(status->getProperty("mireloondevice.modelName") == kLong); },
            [=] { return list(status->getPropertyMap().size()); }};
}

Call allocateInputs() {
    const auto model = makeModel();
    const auto inputs = std::make_shared<MireloModel::Outputs>(1);  // what is there already, and stays
    return {[=] {
                inputs->resize(1);
                return model->allocateInputs(*inputs);
            },
            [=] { return list(inputs->at(0) == nullptr); }, [=] { return list(inputs->size()); }};
}

struct Registered {
    Registered() { manager.registerModel(models[0]); }
    ~Registered() {  // a record and its model hold each other
        for (const auto& model : models) model->setRuntimeStatus(nullptr);
    }
    std::string describe() {
        std::string text;
        for (const auto& model : manager.getRuntimeStatus().getLoadedModels()) {
            text += model == models[0] ? "first " : "second ";
        }
        for (const auto& model : models) text += model->runtimeRecord() ? "recorded " : "free ";
        return text;
    }
    ModelManager manager;
    std::vector<std::shared_ptr<ScriptedModel>> models{makeModel(), makeModel()};
};

// A manager of the first of two models.
Operation managing(const char* name, MireloStatus (*work)(Registered& all)) {
    return {name, [work] {
                const auto all = std::make_shared<Registered>();
                const Text state = [=] { return all->describe(); };
                return Call{[=] { return work(*all); }, state, state};
            }};
}

Call extract(bool sized) {
    const auto directory = std::make_shared<TempDir>();
    const auto destination = std::make_shared<Filepath>(directory->path());
    const Filepath start = directory->path();
    const auto archive = std::make_shared<std::vector<unsigned char>>(
        TarBuilder().directory("m").extended("path=m/new/" + kLong).file("m/f", "weights").file("m/g", "more").whole());
    return {[=] {
                *destination = start;
                return sized ? FileUtils().extractTarballOfSize(archive->data(), archive->size(), *destination)
                             : FileUtils().extractTarball(archive->data(), *destination);
            },
            [=] { return std::string(directory->path().c_str()); },
            [=] {
                return std::string(destination->c_str()).substr(directory->path().getPathString().size()) +
                       directory->read(sized ? "m/new/" + kLong : "m/f") + directory->read("m/g");
            }};
}

// The reason takes memory, too.
Call refuseArchive() {
    const auto directory = std::make_shared<TempDir>();
    const auto destination = std::make_shared<Filepath>(directory->path());
    const auto archive = std::make_shared<std::vector<unsigned char>>(
        TarBuilder().entry('L', "long", kLong + "/link").entry('2', "link").whole());
    const auto refusal = std::make_shared<MireloStatus>();
    return {[=] {
                *refusal = FileUtils().extractTarballOfSize(archive->data(), archive->size(), *destination);
                return refusal->getCode() == TAR_EXTRACTION_ERROR ? kDone : *refusal;
            },
            [=] { return std::string(directory->path().c_str()); }, [=] { return refusal->getDescription(); }};
}

Call shapeTensor(const std::shared_ptr<ITensor>& tensor, MireloStatus (ITensor::*shape)(const TensorShape&)) {
    const Text state = [=] { return list(tensor->shape(), tensor->buffer() == nullptr); };
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
    MireloModel::Inputs inputs(count, std::make_shared<MireloFeatureTensor>(descriptor("x")));
    return inputs;
}

Call readBatch() {
    const auto batch = std::make_shared<MireloBatch>(rows(3));
    return {[=] {
        const size_t sorted = batch->getSortedFetures({2, descriptor("x")}).size();
        return done(batch->getFeatureSet().features.size() + sorted == 9);
    }};
}

// The list would take 64 MB, more than there is: the unknown name is reported all the same.
Call sortByUnknownNames() {
    const auto batch = std::make_shared<MireloBatch>(rows(2000));
    const auto names = std::make_shared<std::vector<ModelFeatureDescriptor>>(1999, descriptor("x"));
    names->push_back(descriptor("y"));
    return {[=] {
        try {
            return done(batch->getSortedFetures(*names).empty());
        } catch (const std::out_of_range&) {
            return kDone;
        }
    }};
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
    return {[=] { return user->logger.Report(entry), kDone; }, [=] { return list(user->logger.GetErrorCount()); },
            [=] { return user->logger.GetErrorMessageAt(16); }};
}

Call fillRegistry() {
    using namespace CustomOperators;
    const auto registry = std::make_shared<OperatorRegistry>();
    const std::array<char, 64> captured{};
    return {[=] {
        registry->clear();
        const bool added = registry->addOperatorToRegistry(
            kLong, [captured] { return captured[0] == 0 ? std::make_unique<Operator>() : nullptr; });
        registry->addCustomOperatorDLL(Filepath(kLong));
        registry->updateOpPlacement({{kLong}, {kLong, "b"}});
        registry->markRegistryAsReadOnly();
        const OperatorRegistry copy = *registry;
        return done(added && copy.createOperator(kLong) != nullptr && copy.getCustomOperatorDLLList().size() == 1 &&
                    copy.getOpPlacement().second.size() == 2);
    }};
}

// A prediction's features, and the ports that they fit.
struct Prediction {
    Prediction() {
        for (const auto& input : target().inputs) inputs.push_back(std::make_shared<MireloFeatureTensor>(input));
        inputPorts.arrange(inputs, 1, tensors);
        results[0].elements = tensors[0]->buffer();
    }

    const ModelTarget described = target();
    Kit::InputPorts inputPorts{described};
    Kit::OutputPorts outputPorts{target()};
    MireloModel::Inputs inputs;
    Kit::InputTensors tensors;
    MireloModel::Outputs outputs;
    std::vector<Kit::Result> results{{DataType::Float, {2, 3}, nullptr}};
};

Call checkFeatures(bool prepared) {
    const auto all = std::make_shared<Prediction>();
    return {
        [=] { return prepared ? all->inputPorts.check(all->inputs) : Kit::checkInputs(all->described, all->inputs); },
        [] { return std::string(); }};
}

Call preparePorts() {
    return {[] {
        const Kit::InputPorts ports(target());
        Kit::InputPorts copy(ports);
        copy = ports;
        return kDone;
    }};
}

Call describeFailure() {
    const auto all = std::make_shared<Prediction>();
    all->inputs.pop_back();
    return {[=] {
                const MireloStatus status = all->inputPorts.check(all->inputs);
                return Kit::describe(status).find("missing") == std::string::npos ? status : kDone;
            },
            [] { return std::string(); }};
}

// Memory that runs out for the work's own object is told, for anything else raised.
template <typename Work>
MireloStatus orRaise(const Work& work) {
    MireloStatus status = work();
    if (status.getCode() == ALLOCATION_FAILED) throw std::bad_alloc();
    return status;
}

// Into none, or into a variable tensor that has to grow.
Call writeResults(bool given) {
    const auto all = std::make_shared<Prediction>();
    if (given) {
        const auto tensor = std::make_shared<VariableTensor>(DataType::Float, TensorShape(-1, 3));
        tensor->allocateShape({1, 3});
        all->outputs = {std::make_shared<MireloFeatureTensor>(target().outputs[0], tensor)};
    }
    const auto state = [=] { return all->outputs.empty() ? "none" : list(all->outputs[0]->asTensor()->shape()); };
    return {[=] {
                return orRaise([&] {
                    return Kit::writeOutputs(all->inputPorts, all->tensors, all->outputPorts, all->results, 1,
                                             all->outputs);
                });
            },
            state, state};
}

Call runRows() {
    const auto all = std::make_shared<Prediction>();
    const MireloModel::Inputs row = all->inputs;
    all->inputs.insert(all->inputs.end(), row.begin(), row.end());
    const auto run = [=](const MireloModel::Inputs& /*inputs*/, MireloModel::Outputs& outputs, int64_t /*rows*/) {
        outputs = {std::make_shared<MireloFeatureTensor>(target().outputs[0])};
        return kDone;
    };
    const auto state = [=] { return std::to_string(all->outputs.size()); };
    return {[=] {
                return Kit::runBatch(all->inputPorts, all->outputPorts, all->inputs, all->outputs,
                                     Kit::Stacking::Promised, run);
            },
            state, state};
}

Call readFileOfComponent() {
    const auto bytes = std::make_shared<Kit::ComponentBytes>();
    const auto component = std::make_shared<ModelComponent>();
    component->name = kLong;
    component->path = "manifest.json";
    component->type = ComponentKind::File;
    return {
        [=] { return orRaise([&] { return Kit::readComponent(*component, Filepath(MANIFEST_DIRECTORY), *bytes); }); },
        [=] { return std::to_string(bytes->size()); }, [=] { return std::to_string(bytes->size() > 100); }};
}

// In memory and in files, there and back.
Call protectContent() {
    const auto directory = std::make_shared<TempDir>();
    directory->write("plain", kLong);
    const auto opened = std::make_shared<std::string>();
    return {[=] {
                Bytes container;
                Kit::SecretBytes plain;
                MireloStatus status = Kit::protect(kLong.data(), kLong.size(), kTestKey, container);
                if (status.ok()) status = Kit::unprotect(container.data(), container.size(), kTestKey, plain);
                const Filepath file = directory->path("container");
                if (status.ok()) status = Kit::protectFile(directory->path("plain"), kTestKey, file);
                if (status.ok()) status = Kit::unprotectFile(file, kTestKey, plain);
                if (status.ok()) status = Kit::unprotectFile(file, kTestKey, directory->path("opened"));
                *opened = std::string(plain.data(), plain.data() + plain.size());
                return status;
            },
            [=] {  // no half file is left, under whatever name
                size_t files = 0;
                for (const auto& entry : std::filesystem::directory_iterator(directory->native())) {
                    files += entry.path().extension() == ".part" ? 1 : 0;
                }
                return std::to_string(files);
            },
            [=] { return *opened + directory->read("opened"); }};
}

Call refuseContainer() {
    const auto plain = std::make_shared<Kit::SecretBytes>();
    return {[=] {
                const MireloStatus status = Kit::unprotect(kLong.data(), kLong.size(), kTestKey, *plain);
                return status.getCode() == MODEL_METADATA_ERROR ? kDone : status;
            },
            [=] { return std::to_string(plain->size()); }};
}

Call readProtectedComponent(const char* kind) {
    const auto directory = std::make_shared<TempDir>();
    const auto component = std::make_shared<ModelComponent>();
    component->name = kLong;
    component->path = kLong;
    component->type = kind;
    component->setCryptoKey(kTestKey);
    directory->write(kLong, stringOf(protectedBytes(stringOf(TarBuilder().file(kLong, "w").file("f", "x").whole()))));
    const auto read = std::make_shared<uint64_t>(0);
    return {[=] {
                return orRaise([&] {
                    Kit::ComponentFiles files;
                    Kit::ComponentBytes bytes;
                    MireloStatus status = component->type == ComponentKind::SecuredTar
                                              ? Kit::readComponentFiles(*component, directory->path(), files)
                                              : Kit::readComponent(*component, directory->path(), bytes);
                    if (status.ok()) *read = files.files().size() + bytes.size();
                    return status;
                });
            },
            [=] { return std::string(); }, [=] { return std::to_string(*read); }};
}

Call giveKey() {
    const auto metadata = std::make_shared<ModelMetadata>();
    ModelTarget made = target();
    made.components[1].type = ComponentKind::SecuredFile;
    metadata->setTargets({{MireloModelType::WinML, made}});
    const auto key = [=] {
        const auto& components = metadata->getTargetMetadata(MireloModelType::WinML).components;
        return std::to_string(components.at(1).encryption.getKey()[1]);
    };
    return {[=] { return Kit::setProtectionKey(*metadata, MireloModelType::WinML, kTestKey); },
            [=] { return metadata->getTargetMetadata(MireloModelType::WinML).components.at(1).path; }, key};
}

Call verifyFiles() {
    const auto directory = std::make_shared<TempDir>();
    directory->write(kLong, "weights");
    std::string digest;
    Kit::sha256("weights", 7, digest);
    const Filepath manifest = directory->write(
        "manifest.json", R"({"targets": {"WinML": {"components": [{"name": "net", "type": "file", "path": ")" + kLong +
                             R"(", "sha256": ")" + digest + "\"}]}}}");
    const auto report = std::make_shared<Kit::PackageReport>();
    return {[=] { return Kit::verifyPackage(manifest, *report); },
            [=] { return std::string(directory->path().c_str()); }, [=] { return std::to_string(report->verified); }};
}

Call loadAllTargets() {
    const auto metadata = std::make_shared<Kit::AllTargetsMetadata>();
    const Filepath path = Filepath(MANIFEST_DIRECTORY).append(Filepath("manifest.json"));
    return {[=] { return metadata->load(path); }, [] { return std::string(); }, [=] { return describe(*metadata); }};
}

Call checkManifest() {
    const auto text = std::make_shared<std::string>();
    const auto work = [=] {
        const size_t none = Kit::checkManifest(Filepath(MANIFEST_DIRECTORY).append(Filepath("manifest.json"))).size();
        const auto some = Kit::checkManifestText(R"({"name": "n", "naem": "\u0000", "version": 1.5, "x": [})");
        *text = std::to_string(none) + std::to_string(some.size()) + Kit::toText(some.at(0));
        return kDone;
    };
    return {work, [] { return std::string(); }, [=] { return *text; }};
}

Call viewMemory() {
    const auto all = std::make_shared<Registered>();
    all->manager.registerModel(all->models[1]);
    for (const auto& model : all->models) model->runtimeRecord()->setCurrentMemoryConsumption(5);
    const auto reporter = std::make_shared<Kit::MemoryReporter>();
    return {[=] {
                reporter->report(all->models[0]->runtimeRecord(), 7);
                const Kit::MemoryView view(all->manager.getRuntimeStatus(), 8);
                return MireloStatus(view.toUnload().size() == 1 ? SUCCESS : WARNING, "");
            },
            [=] { return all->describe(); }, [=] { return std::to_string(reporter->reported()); }};
}

Call scopeModel() {
    const auto all = std::make_shared<Registered>();
    return {[=] {
                Kit::ScopedModel scoped(all->manager, all->models[1]);
                return kDone;
            },
            [=] { return std::to_string(all->manager.getRuntimeStatus().getLoadedModels().size()); }};
}

Call traceModel() {
    const auto directory = std::make_shared<TempDir>();
    const auto inner = makeModel();
    return {[=] {
                const auto sink = std::make_shared<Kit::ChromeTraceFile>(directory->path("trace"));
                MireloModel::Outputs outputs;
                return Kit::TracedModel::wrap(inner, sink)->predict({}, outputs);
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
        return "raises";
    }
}

void require(bool holds, const std::string& what) {
    if (!holds) throw std::runtime_error(what);
}

// Whether an allocation was failed; raises when something is not as it must be.
bool fails(const Operation& operation, const std::string& expected, size_t number, bool onwards) {
    const Call call = operation.prepare();
    const std::string before = call.state();
    Allocations::failAt(number, onwards);
    const std::string said = outcome(call);
    const bool failed = Allocations::stopFailing() > 0;
    if (failed) {
        require(said == operation.failure || (operation.goesOn && said == kSuccess), "says \"" + said + "\"");
        require(said == kSuccess || call.state() == before, "is " + call.state());
        require(outcome(call) == kSuccess, "does not recover");
    }
    require(call.result() == expected, "results in " + call.result());
    return failed;
}

// How many allocations were failed, one by one.
size_t sweep(const Operation& operation, bool onwards) {
    std::string expected;
    {
        const Call call = operation.prepare();
        require(outcome(call) == kSuccess, "fails by itself");  // and makes what is made once
        expected = call.result();
    }
    for (size_t number = 1;; ++number) {
        const size_t alive = Allocations::alive();
        try {
            if (!fails(operation, expected, number, onwards)) return number - 1;
            require(Allocations::alive() == alive, "leaks");
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(error.what() + (" when allocation " + std::to_string(number)) + " fails");
        }
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
        {"rows and inputs of a batch", readBatch},
        {"inputs of a batch by unknown names", sortByUnknownNames},
        {"ModelMetadata::load", loadManifest, kStatus},
        {"ModelMetadata::load of nothing", loadNoManifest, kStatus, true},
        {"setTargets", replaceTargets},
        {"MireloModel::load", loadModel},
        {"predict", predict},
        {"properties of a status", readProperties},
        {"allocateInputs", allocateInputs, kStatus},
        managing("registerModel", [](Registered& all) { return all.manager.registerModel(all.models[1]); }),
        managing("getRuntimeStatus",
                 [](Registered& all) { return done(all.manager.getRuntimeStatus().getLoadedModels().size() == 1); }),
        managing("unloadModel", [](Registered& all) { return all.manager.unloadModel(all.models[0]); }),
        managing("unloadModel of an unregistered model",
                 [](Registered& all) {
                     return done(all.manager.unloadModel(all.models[1]).getCode() == MODEL_REFERENCE_ERROR);
                 }),
        {"resize", [] { return shapeTensor(std::make_shared<Tensor>(DataType::Float), &ITensor::resize); }},
        {"allocateShape",
         [] {
             return shapeTensor(std::make_shared<VariableTensor>(DataType::Float, TensorShape(-1, -1)),
                                &ITensor::allocateShape);
         }},
        {"files", useFiles},
        {"extractTarball", [] { return extract(false); }, kStatus},
        {"extractTarballOfSize", [] { return extract(true); }, kStatus},
        {"extractTarballOfSize, refused", refuseArchive, kStatus},
        {"Logger::Report", report, "raises", true},  // or drops what a processor raises
        {"operator registry", fillRegistry},
        {"Kit::InputPorts", preparePorts},
        {"Kit::InputPorts::check", [] { return checkFeatures(true); }, "nothing: it allocates nothing"},
        {"Kit::checkInputs", [] { return checkFeatures(false); }, "nothing, likewise"},
        {"Kit::describe", describeFailure},
        {"Kit::writeOutputs, new", [] { return writeResults(false); }},
        {"Kit::writeOutputs, given", [] { return writeResults(true); }},
        {"Kit::runBatch", runRows},
        {"Kit::readComponent", readFileOfComponent},
        {"Kit::protect and its like", protectContent},
        {"Kit::unprotect, refused", refuseContainer, "raises", true},  // or without a text
        {"Kit::readComponent, protected", [] { return readProtectedComponent(ComponentKind::SecuredFile); }},
        {"Kit::readComponentFiles", [] { return readProtectedComponent(ComponentKind::SecuredTar); }},
        {"Kit::setProtectionKey", giveKey},
        {"Kit::verifyPackage", verifyFiles},
        {"Kit::AllTargetsMetadata::load", loadAllTargets, kStatus},
        {"Kit::checkManifest", checkManifest, "raises", true},  // sorting does with less memory
        {"Kit::MemoryView", viewMemory, "raises", true},        // likewise
        {"Kit::ScopedModel", scopeModel},
        {"Kit::TracedModel", traceModel, "raises", true},  // what a sink can't write is not the caller's
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
