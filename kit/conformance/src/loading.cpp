#include "trial.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

namespace TarnoMirelo::Conformance {
namespace {

/// A fresh folder, removed with everything in it at the end of the check.
class TemporaryFolder {
 public:
    TemporaryFolder() {
        std::random_device random;
        do {
            path_ = std::filesystem::temp_directory_path() / ("conformance-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(path_));
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string path() const { return path_.string(); }
    /// A folder in this one, with that file.
    std::string folderWith(const std::string& file, const std::vector<uint8_t>& bytes) const {
        const std::filesystem::path folder = path_ / "model";
        const std::filesystem::path whole = folder / file;
        std::filesystem::create_directories(whole.parent_path());
        write(whole, bytes);
        return folder.string();
    }
    void write(const std::filesystem::path& file, const std::vector<uint8_t>& bytes) const {
        std::ofstream(path_ / file, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

 private:
    std::filesystem::path path_;
};

/// The components of a package, of which the first one can be changed.
class Changed {
 public:
    explicit Changed(const Package& package) : components_(package.components) {}

    ModelComponent& first() { return std::get<ModelTarget>(components_).components.front(); }
    void setRoot(const std::string& folder) { std::get<Filepath>(components_) = Filepath(folder); }
    const MireloModel::Components& components() const { return components_; }

 private:
    MireloModel::Components components_;
};

std::vector<uint8_t> bytesOf(const Package& package) {
    const ModelComponent& component = package.target().components.front();
    if (!component.buffer.empty()) return component.buffer;
    return FileUtils().readBinaryFileToByteVector(Filepath(package.folder()).append(Filepath(component.path)));
}

struct Damage {
    const char* name;
    std::vector<uint8_t> bytes;
};

std::vector<Damage> damagesOf(const Package& package) {
    std::vector<uint8_t> half = bytesOf(package);
    half.resize(half.size() / 2);
    return {{"empty", {}}, {"cut to its first half", half}, {"of other bytes", std::vector<uint8_t>(64, 0xFF)}};
}

// Loads the package with other bytes in its component, in each kind that the backend takes.
template <typename Load>
void loadWith(const Trial& trial, const std::vector<uint8_t>& bytes, const Load& load) {
    const TemporaryFolder folder;
    Changed package(trial.plain());
    if (trial.takes(ComponentKind::MemoryStream)) {
        SCOPED_TRACE("kind memory_stream");
        package.first().type = ComponentKind::MemoryStream;
        package.first().buffer = bytes;
        load(package.components());
    }
    if (trial.takes(ComponentKind::File)) {
        SCOPED_TRACE("kind file");
        package.first().type = ComponentKind::File;
        package.first().buffer.clear();
        package.setRoot(folder.folderWith(package.first().path, bytes));
        load(package.components());
    }
}

void expectNotLoaded(const Trial& trial, MireloModel& model) {
    const Case& each = trial.plain().cases.front();
    const Features features = featuresOf(each);
    for (const bool given : {false, true}) {
        Outputs outputs = given ? features.outputs : Outputs();
        const Snapshot before(outputs);
        Binding binding;
        trial.expectRefused(model.predict(features.constInputs(), outputs));
        trial.expectRefused(model.predictBatch(features.constInputs(), outputs));
        if (trial.backend().binds) trial.expectRefused(model.bind(features.constInputs(), outputs, binding));
        if (trial.backend().binds) trial.expectRefused(model.evaluate(binding));
        before.expectUnchanged(outputs, "outputs");
    }
    if (trial.backend().setsBatchSize) trial.expectRefused(model.setBatchSize(1));
}

void notLoaded(Trial& trial) {
    const auto model = trial.make();
    expectNotLoaded(trial, *model);
    Trial::load(*model, trial.plain().components);
    const Features features = featuresOf(trial.plain().cases.front());
    Outputs outputs;
    Binding binding;
    if (trial.backend().binds) Trial::expectSuccess(model->bind(features.constInputs(), outputs, binding), "bind");
    Trial::expectSuccess(model->doUnload(), "doUnload");
    SCOPED_TRACE("after an unload");
    expectNotLoaded(trial, *model);
    if (trial.backend().binds) trial.expectRefused(model->evaluate(binding));
}

void damagedComponent(Trial& trial) {
    const std::string name = trial.plain().target().components.front().name;
    for (const Damage& damage : damagesOf(trial.plain())) {
        SCOPED_TRACE(std::string("a component that is ") + damage.name);
        loadWith(trial, damage.bytes, [&](const MireloModel::Components& components) {
            trial.expectRefused(trial.make()->load(components), name);
        });
    }
}

void missingComponent(Trial& trial) {
    if (!trial.takes(ComponentKind::File)) GTEST_SKIP() << "The backend takes no components of kind file";
    Changed package(trial.plain());
    package.first().path = "there_is_no_such_file";
    trial.expectRefused(trial.make()->load(package.components()), package.first().name);
}

void componentOutsideRoot(Trial& trial) {
    if (!trial.takes(ComponentKind::File)) GTEST_SKIP() << "The backend takes no components of kind file";
    const TemporaryFolder folder;
    const std::vector<uint8_t> bytes = bytesOf(trial.plain());
    folder.write("network", bytes);
    Changed package(trial.plain());
    package.setRoot(folder.folderWith("unused", bytes));
    for (const std::string& path : {std::string("../network"), std::string("..\\network"),
                                    std::string("a/../../network"), folder.path() + "/network"}) {
        SCOPED_TRACE("path " + path);
        package.first().path = path;
        trial.expectRefused(trial.make()->load(package.components()), package.first().name);
    }
}

void componentOfUnknownKind(Trial& trial) {
    Changed package(trial.plain());
    package.first().buffer = bytesOf(trial.plain());
    for (const char* const kind : {"no_such_kind", ""}) {
        package.first().type = kind;
        trial.expectRefused(trial.make()->load(package.components()), package.first().name);
    }
}

// The package with another declaration of its first output.
MireloModel::Components declaring(const Package& package, const TensorDescriptor& tensor) {
    MireloModel::Components components = package.components;
    ModelFeatureDescriptor& output = std::get<ModelTarget>(components).outputs.front();
    output = {MireloFeatureType::Tensor, true, output.name(), output.description(), tensor};
    return components;
}

void targetThatDoesNotFit(Trial& trial) {
    const Package& package = trial.plain();
    const Case& each = package.cases.front();
    const TensorDescriptor declared = package.target().outputs.front().tensorDescriptor();
    std::vector<int64_t> longer = declared.shape().shapeVector();
    if (longer.empty()) longer.push_back(1);
    longer.back() += 1;
    const std::pair<const char*, TensorDescriptor> others[] = {
        {"another shape", TensorDescriptor(TensorShape(longer), declared.tensorType())},
        {"another element type", TensorDescriptor(declared.shape(), DataType::Int32)}};
    for (const auto& [name, tensor] : others) {
        SCOPED_TRACE(std::string(name) + " of an output");
        const auto model = trial.make();
        MireloStatus status = model->load(declaring(package, tensor));
        Outputs outputs;
        if (status.ok()) status = model->predict(featuresOf(each).constInputs(), outputs);
        trial.expectRefused(status, each.outputs.front().name);
        EXPECT_TRUE(outputs.empty()) << "There are outputs, although the target does not fit";
    }
}

// Networks of an author's own format may have no names, and go by the target's order.
bool haveNames(const Trial& trial) { return trial.backend().packageFolder == suppliedPackages(); }

void expectPredictsAs(const Trial& trial, const ModelTarget& target, const Package& package) {
    MireloModel::Components components = package.components;
    std::get<ModelTarget>(components) = target;
    const auto model = trial.make();
    Trial::load(*model, components);
    for (Case each : package.cases) {
        std::vector<Value> outputs;
        for (const ModelFeatureDescriptor& output : target.outputs) {
            outputs.push_back(*std::find_if(each.outputs.begin(), each.outputs.end(),
                                            [&](const Value& value) { return value.name == output.name(); }));
        }
        each.outputs = outputs;
        trial.expectPredicts(*model, each);
    }
}

void targetInAnotherOrder(Trial& trial) {
    if (!haveNames(trial)) GTEST_SKIP() << "The packages are not those that come with the suite";
    bool tried = false;
    for (const Package& package : trial.packages()) {
        ModelTarget target = package.target();
        if (target.inputs.size() + target.outputs.size() == 2) continue;
        tried = true;
        SCOPED_TRACE("package " + package.name);
        std::reverse(target.inputs.begin(), target.inputs.end());
        std::reverse(target.outputs.begin(), target.outputs.end());
        expectPredictsAs(trial, target, package);
        for (const ModelFeatureDescriptor& output : package.target().outputs) {
            SCOPED_TRACE("output " + output.name() + " alone");
            target.outputs = {output};
            expectPredictsAs(trial, target, package);
        }
    }
    if (!tried) GTEST_SKIP() << "No package has two inputs or two outputs";
}

void targetOfOtherNames(Trial& trial) {
    if (!haveNames(trial)) GTEST_SKIP() << "The packages are not those that come with the suite";
    const std::string stranger = "stranger";
    for (const bool isInput : {true, false}) {
        SCOPED_TRACE(isInput ? "an input" : "an output");
        MireloModel::Components components = trial.plain().components;
        auto& target = std::get<ModelTarget>(components);
        ModelFeatureDescriptor& port = (isInput ? target.inputs : target.outputs).front();
        port = {port.type(), port.required(), stranger, port.description(), port.tensorDescriptor()};
        std::vector<Value> inputs = trial.plain().cases.front().inputs;
        if (isInput) inputs.front().name = stranger;
        const auto model = trial.make();
        MireloStatus status = model->load(components);
        Outputs outputs;
        const Outputs features = featuresOf(inputs);
        if (status.ok()) status = model->predict({features.begin(), features.end()}, outputs);
        trial.expectRefused(status, stranger);
        EXPECT_TRUE(outputs.empty()) << "There are outputs, although the target does not fit";
    }
}

void componentsOfEachKind(Trial& trial) {
    loadWith(trial, bytesOf(trial.plain()), [&](MireloModel::Components components) {
        const auto model = trial.make();
        ModelComponent& component = std::get<ModelTarget>(components).components.front();
        // A component in memory has no file, or one that is another.
        if (component.type == ComponentKind::MemoryStream) component.path = "manifest.json";
        Trial::load(*model, components);
        trial.expectPredicts(*model, trial.plain());
    });
}

void secondLoad(Trial& trial) {
    const Package& first = trial.packages().front();
    const auto model = trial.loaded(first);
    for (const Package& package : trial.packages()) {
        Trial::load(*model, package.components);
        trial.expectPredicts(*model, package);
    }
    Trial::load(*model, first.components);
    trial.expectPredicts(*model, first);
}

void failedLoad(Trial& trial) {
    const auto model = trial.loaded(trial.plain());
    const Features features = featuresOf(trial.plain().cases.front());
    Outputs outputs;
    Binding binding;
    if (trial.backend().binds) Trial::expectSuccess(model->bind(features.constInputs(), outputs, binding), "bind");
    loadWith(trial, damagesOf(trial.plain()).back().bytes, [&](const MireloModel::Components& components) {
        EXPECT_FALSE(model->load(components).ok()) << "load takes a damaged component";
        expectNotLoaded(trial, *model);
        if (trial.backend().binds) trial.expectRefused(model->evaluate(binding));
    });
    Trial::load(*model, trial.plain().components);
    trial.expectPredicts(*model, trial.plain());
}

void unloadTwice(Trial& trial) {
    const auto model = trial.make();
    Trial::expectSuccess(model->doUnload(), "doUnload of a model that was never loaded");
    Trial::load(*model, trial.plain().components);
    Trial::expectSuccess(model->doUnload(), "doUnload");
    Trial::expectSuccess(model->doUnload(), "the second doUnload");
    Trial::load(*model, trial.plain().components);
    trial.expectPredicts(*model, trial.plain());
}

void expectUsage(const MireloStatus& status, const std::string& method, const MireloModel& model) {
    SCOPED_TRACE("method " + method);
    const MireloStatus::PropertyMap found = status.getPropertyMap();
    if (method.empty()) {
        EXPECT_TRUE(found.empty()) << "wanted are no usage properties";
        return;
    }
    const std::string prefix = "mireloondevice.";
    const std::pair<const char*, std::string> wanted[] = {{"method", method},
                                                          {"status", std::to_string(status.getCode())},
                                                          {"modelType", ModelTypeToName(model.getModelType())},
                                                          {"modelName", "its name"}};
    for (const auto& [key, value] : wanted) {
        const auto property = found.find(prefix + key);
        ASSERT_NE(property, found.end()) << "wanted is the usage property " << key;
        EXPECT_EQ(property->second, value) << "of the usage property " << key;
    }
    EXPECT_EQ(found.count(prefix + "sdkName") + found.count(prefix + "version"), 2U)
        << "wanted are sdkName and version";
}

void usageProperties(Trial& trial) {
    const auto model = trial.make("its name");
    expectUsage(model->load(trial.plain().components), "LOAD", *model);
    const Features features = featuresOf(trial.plain().cases.front());
    Outputs outputs;
    expectUsage(model->predict(features.constInputs(), outputs), "PREDICT", *model);
    expectUsage(model->predict({}, outputs), "PREDICT", *model);
    expectUsage(model->predictBatch(features.constInputs(), outputs), "", *model);
    if (trial.backend().binds) {
        Binding binding;
        expectUsage(model->bind(features.constInputs(), outputs, binding), "", *model);
        expectUsage(model->evaluate(binding), "PREDICT", *model);
    }
    if (trial.backend().setsBatchSize) expectUsage(model->setBatchSize(1), "", *model);
    expectUsage(model->doUnload(), "UNLOAD", *model);
}

}  // namespace

std::vector<Row> loadingRows() {
    return {
        {"NotLoaded", "any operation before a load, or after an unload", INVALID_OPERATION,
         "the outputs stay as they were", notLoaded},
        {"DamagedComponent", "a component that is empty, cut short, or holds other bytes", MODEL_METADATA_ERROR,
         "the description names the component", damagedComponent},
        {"MissingComponent", "a component whose file is not there", FILE_ERROR, "the description names the component",
         missingComponent},
        {"ComponentOutsideRoot", "a component whose path leaves the root directory", MODEL_METADATA_ERROR,
         "the description names the component", componentOutsideRoot},
        {"ComponentOfUnknownKind", "a component of a kind that the backend doesn't know", MODEL_METADATA_ERROR,
         "the description names the component", componentOfUnknownKind},
        {"TargetThatDoesNotFit", "a target with an output whose shape or element type is not the network's",
         MODEL_METADATA_ERROR, "from load or from predict; the description names the output", targetThatDoesNotFit},
        {"TargetInAnotherOrder",
         "a target that lists its features in another order than the network, or only some of the outputs", SUCCESS,
         "inputs and outputs are matched by name", targetInAnotherOrder},
        {"TargetOfOtherNames", "a target with an input or output name that the network doesn't have",
         MODEL_METADATA_ERROR, "from load or from predict; the description names the input or output",
         targetOfOtherNames},
        {"ComponentsOfEachKind", "a component in a file or in memory", SUCCESS,
         "a component in memory is read only from its buffer", componentsOfEachKind},
        {"SecondLoad", "another load of a loaded model", SUCCESS, "the model runs the network of the last load",
         secondLoad},
        {"FailedLoad", "any operation after a load that failed", INVALID_OPERATION,
         "no network is loaded, not even the previous one; the next load works", failedLoad},
        {"UnloadTwice", "an unload of a model that is not loaded", SUCCESS, "it can be loaded afterwards", unloadTwice},
        {"UsageProperties", "load, predict, evaluate and unload", SUCCESS,
         "their statuses carry the core's usage properties; the statuses of other operations carry none",
         usageProperties},
    };
}

}  // namespace TarnoMirelo::Conformance
