#include "commands.h"
#include "engines.h"
#include "interrupt.h"
#include "package.h"
#include "prediction.h"

#include <TarnoMirelo/kit/check.h>
#include <TarnoMirelo/kit/texts.h>
#ifdef MIRELO_WITH_ONNXRUNTIME
#include <TarnoMirelo/onnxruntime.h>
#endif

#include <algorithm>

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string network;
    std::string folder;
    std::string id;
    std::string name;
    std::string author;
    std::string description;
    std::vector<std::string> shapes;
};

#ifdef MIRELO_WITH_ONNXRUNTIME

TensorShape shapeOf(const ModelFeatureDescriptor& feature, const NamedValues& shapes) {
    const TensorShape told = feature.tensorDescriptor().shape();
    const auto given = shapes.find(feature.name());
    return given == shapes.end() ? told : parseShape("--shape", given->second);
}

Json featuresOf(const std::vector<ModelFeatureDescriptor>& features, const NamedValues& shapes) {
    Json json = Json::array();
    for (const ModelFeatureDescriptor& feature : features) {
        json.push_back({{"name", feature.name()},
                        {"description", ""},
                        {"required", true},
                        {"featureType", "tensor"},
                        {"tensor",
                         {{"shape", shapeOf(feature, shapes).shapeVector()},
                          {"dataType", Kit::toText(feature.tensorDescriptor().tensorType())}}}});
    }
    return json;
}

// Weights in files of their own belong to the component, too, which is then a folder.
constexpr const char* kFolderOfNetwork = "network";

Json manifestOf(const Options& options, const OnnxRuntime::NetworkDescription& network, const NamedValues& shapes) {
    const fs::path file = toPath(options.network).filename();
    const std::string stem = toText(file.stem());
    const bool isFolder = !network.weightFiles.empty();
    const Json component = {{"name", "network"},
                            {"path", isFolder ? kFolderOfNetwork : toText(file)},
                            {"type", isFolder ? ComponentKind::Dir : ComponentKind::File}};
    return {{"id", options.id.empty() ? stem : options.id},
            {"name", options.name.empty() ? stem : options.name},
            {"author", options.author},
            {"description", options.description},
            {"sdkVersion", MIRELO_VERSION},
            {"version", 1},
            {"targets",
             {{"WinML",
               {{"components", Json::array({component})},
                {"inputs", featuresOf(network.inputs, shapes)},
                {"outputs", featuresOf(network.outputs, {})}}}}}};
}

void copyFile(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::create_directories(to.parent_path(), error);
    fs::copy_file(from, to, error);
    if (error) throw Failure(toGenericText(from) + ": the file can't be copied: " + error.message());
}

// Whatever else a manifest can lack, one that is made here has.
[[noreturn]] void refuseFirstInput(const ModelTarget& target) {
    if (target.inputs.empty() || target.outputs.empty()) throw Failure("the network has no input, or no output");
    const ModelFeatureDescriptor& first = target.inputs.front();
    std::string fixed;
    for (const int64_t dimension : first.tensorDescriptor().shape().shapeVector()) {
        fixed += (fixed.empty() ? "" : ",") + std::to_string(std::max<int64_t>(dimension, 1));
    }
    throw Failure("Input \"" + first.name() + "\": the shape is " + Kit::toText(first.tensorDescriptor().shape()) +
                  "; hosts refuse a package whose first input has an open dimension or one of 0. Give the shape, as in "
                  "--shape \"" +
                  first.name() + "=" + fixed + "\"");
}

// An even number of -1 passes `validate`.
bool leavesOpen(const ModelFeatureDescriptor& input) {
    const std::vector<int64_t> dimensions = input.tensorDescriptor().shape().shapeVector();
    return std::find(dimensions.begin(), dimensions.end(), -1) != dimensions.end();
}

// A file's name, for one, may be none that Windows takes.
void requireSound(const Package& package, const Options& options) {
    std::string errors;
    for (const Kit::Finding& finding : Kit::checkManifest(toFilepath(package.manifest()))) {
        if (finding.severity == Kit::Severity::Error) errors += "\n  " + finding.where + ": " + Kit::toText(finding);
    }
    if (!errors.empty()) throw Failure(options.network + ": its package would have mistakes:" + errors);
}

// The engine takes what was written.
void tryToLoad(const fs::path& folder, const Options& options) {
    const Package package(toText(folder));
    ModelMetadata metadata;
    package.load(metadata);
    const MireloModel::Components components = metadata.getModelCompoents(MireloModelType::WinML);
    const auto& target = std::get<ModelTarget>(components);
    if (!metadata.validate(MireloModelType::WinML).ok() || leavesOpen(target.inputs.front())) refuseFirstInput(target);
    requireSound(package, options);
    const auto model = std::make_shared<OnnxRuntime::Model>("new", MireloModelType::WinML, silentConfig());
    require(options.network, model->load(components));
}

ExitCode makePackage(const Options& options, Console& console) {
    const fs::path network = toPath(options.network);
    if (!fs::is_regular_file(network)) {
        throw Failure(options.network + ": there is no such file, wanted is an ONNX network");
    }
    const fs::path folder = toPlainPath(options.folder);
    if (fs::exists(fs::symlink_status(folder))) {
        throw Failure(options.folder + ": something is there already, wanted is a new folder");
    }
    ModelComponent component;
    component.name = toText(network.filename());
    component.path = component.name;
    component.type = ComponentKind::File;
    const fs::path source = network.has_parent_path() ? network.parent_path() : ".";
    OnnxRuntime::NetworkDescription description;
    require(options.network,
            OnnxRuntime::describeNetwork(component, Filepath(toText(source)), description, silentConfig()));
    const NamedValues shapes = parseNamedValues("--shape", options.shapes, description.inputs);
    checkInterrupt();

    TemporaryFolder package(temporaryNameBeside(folder), options.folder);
    const fs::path place = description.weightFiles.empty() ? package.path() : package.path() / kFolderOfNetwork;
    copyFile(network, place / network.filename());
    for (const std::string& weights : description.weightFiles) {
        copyFile(source / toPath(weights), place / toPath(weights));
    }
    const Json manifest = manifestOf(options, description, shapes);
    const fs::path manifestFile = package.path() / "manifest.json";
    if (fs::exists(manifestFile)) {
        throw Failure(options.network + ": its name is that of the package's manifest, wanted is another name");
    }
    PartialFile file(manifestFile, false, options.folder);
    file.write(toText(manifest) + "\n");
    file.keep();
    tryToLoad(package.path(), options);
    checkInterrupt();
    package.renameTo(folder);
    if (console.json()) {
        console.printJson({{"folder", options.folder}, {"manifest", manifest}});
    } else {
        console.print(options.folder + ": inputs: " + std::to_string(description.inputs.size()) +
                      ", outputs: " + std::to_string(description.outputs.size()) +
                      "; the descriptions in manifest.json are for you to write\n");
    }
    return kDone;
}

#else

ExitCode makePackage(const Options& options, Console& /*console*/) {
    throw Failure(options.network +
                  ": this build has no ONNX Runtime, which tells what inputs and outputs a network has");
}

#endif

}  // namespace

void addNew(Commands& commands) {
    const auto options = std::make_shared<Options>();
    CLI::App& command =
        commands.add("new", "Make a package of an ONNX network", "  mirelo new digits.onnx -o digits --author Example",
                     [options](Console& console) { return makePackage(*options, console); });
    command.add_option("NETWORK", options->network, "the network's file")->required();
    command.add_option("-o,--output", options->folder, "the folder to make")->required();
    command.add_option("--id", options->id, "the package's id; the network's name where it is left out");
    command.add_option("--name", options->name, "its name, likewise");
    command.add_option("--author", options->author, "who made it");
    command.add_option("--description", options->description, "what it does");
    command
        .add_option("--shape", options->shapes,
                    "NAME=1,3,224: the shape of an input whose dimensions the network leaves open")
        ->type_name("NAME=DIMENSIONS")
        ->take_all()
        ->expected(1);
}

}  // namespace TarnoMirelo::Tool
