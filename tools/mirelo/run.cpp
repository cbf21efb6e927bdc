#include "commands.h"
#include "interrupt.h"
#include "keys.h"
#include "kit/src/windows_names.h"
#include "npy.h"
#include "prediction.h"
#include "text_table.h"

#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <charconv>
#include <set>

namespace TarnoMirelo::Tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string path;
    std::string keyFile;
    std::string engine;
    std::vector<std::string> inputs;
    std::vector<std::string> shapes;
    std::optional<uint64_t> seed;
    bool zeros = false;
    std::string output;
    bool force = false;
};

MireloModel::Inputs inputsOf(const Options& options, const ModelTarget& target) {
    const NamedValues shapes = parseNamedValues("--shape", options.shapes, target.inputs);
    std::optional<Filling> filling;
    if (options.seed || options.zeros) filling = Filling{options.seed, shapes};
    if (!filling && !shapes.empty()) throw WrongUsage("--shape is for inputs of --random SEED or --zeros");
    std::string missing;
    MireloModel::Inputs inputs =
        makeInputs(target, parseNamedValues("--input", options.inputs, target.inputs), filling, missing);
    if (missing.empty()) return inputs;
    throw WrongUsage("nothing is given for: " + printable(missing) +
                     "; wanted is --input NAME=FILE.npy, --random SEED or --zeros");
}

// Names of outputs may have characters that names of files can't, be those of devices, or differ in letter case alone.
class FileNames {
 public:
    std::string nameOf(const std::string& output) {
        std::string name = withoutForbidden(output);
        if (Kit::isWindowsDevice(name)) name.insert(0, "_");
        std::string unique = name;
        for (int i = 2; !taken_.insert(lowered(unique)).second; ++i) unique = name + "_" + std::to_string(i);
        return unique + ".npy";
    }

 private:
    static std::string withoutForbidden(std::string name) {
        std::replace_if(
            name.begin(), name.end(),
            [](char c) {
                return static_cast<unsigned char>(c) < 0x20 ||
                       std::string_view("<>:\"/\\|?*").find(c) != std::string_view::npos;
            },
            '_');
        return name;
    }

    std::set<std::string> taken_;
};

// Makes the folder where nothing is there yet, and removes it again if it stays empty.
class OutputFolder {
 public:
    OutputFolder(fs::path path, const std::string& about) : path_(std::move(path)) {
        std::error_code error;
        isNew_ = fs::create_directory(path_, error);
        if (fs::is_directory(path_)) return;
        throw Failure(about + ": the folder can't be made: " + (error ? error.message() : "a file is there"));
    }
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;
    ~OutputFolder() {
        std::error_code ignored;  // it holds the results
        if (isNew_) fs::remove(path_, ignored);
    }

 private:
    fs::path path_;
    bool isNew_;
};

// All of them, or none.
Json writeOutputs(const MireloModel::Outputs& outputs, const Options& options) {
    const fs::path folder = toPath(options.output);
    const OutputFolder made(folder, options.output);
    FileNames names;
    std::vector<std::unique_ptr<PartialFile>> files;
    Json results = Json::array();
    for (const std::shared_ptr<MireloFeature>& output : outputs) {
        const std::string name = output->featureDescriptor().name();
        const std::shared_ptr<const ITensor> tensor = output->asTensor();
        const std::string fileName = names.nameOf(name);
        auto file = std::make_unique<PartialFile>(folder / toPath(fileName), options.force);
        writeNpy(*tensor, *file);
        file->close();
        files.push_back(std::move(file));
        results.push_back({{"name", name},
                           {"dataType", Kit::toText(tensor->dataType())},
                           {"shape", tensor->shape().shapeVector()},
                           {"file", toGenericText(folder / toPath(fileName))}});
    }
    for (const std::unique_ptr<PartialFile>& file : files) file->keep();
    return results;
}

ExitCode run(const Options& options, Console& console) {
    const Engine& engine = options.engine.empty() ? defaultEngine() : engineNamed(options.engine);
    const Package package(options.path);
    ModelMetadata metadata;
    const MireloModel::Components components = runnableTarget(package, options.keyFile, metadata);
    const MireloModel::Inputs inputs = inputsOf(options, std::get<ModelTarget>(components));
    const std::shared_ptr<MireloModel> model = engine.makeModel(metadata.getName(), {});
    require(options.path, model->load(components));
    checkInterrupt();
    MireloModel::Outputs outputs;
    require(options.path, model->predict(inputs, outputs));
    checkInterrupt();
    const Json results = writeOutputs(outputs, options);
    if (console.json()) {
        console.printJson({{"engine", engine.name}, {"outputs", results}});
        return kDone;
    }
    TextTable table;
    for (size_t i = 0; i < outputs.size(); ++i) {
        const ITensor& tensor = *outputs[i]->asTensor();
        table.addRow({outputs[i]->featureDescriptor().name(),
                      Kit::toText(tensor.dataType()) + " " + Kit::toText(tensor.shape()),
                      results[i]["file"].get<std::string>()});
    }
    console.print(table.text());
    return kDone;
}

// What the parser of options takes for a number, it takes modulo 2^64.
std::string refusalOfSeed(const std::string& text) {
    uint64_t seed = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
    if (error == std::errc() && end == text.data() + text.size()) return "";
    return "found is \"" + text + "\", wanted is a whole number from 0 to 18446744073709551615";
}

}  // namespace

void addRun(Commands& commands) {
    const auto options = std::make_shared<Options>();
    CLI::App& command = commands.add("run", "Predict once, from NumPy files to NumPy files",
                                     "  mirelo run digits --input pixels=five.npy --output results",
                                     [options](Console& console) { return run(*options, console); });
    command.add_option("PATH", options->path, "a manifest, a folder or a .tar archive")->required();
    addKeyOption(command, options->keyFile);
    command.add_option("--engine", options->engine, "what to predict with: " + engineNames());
    command.add_option("--input", options->inputs, "NAME=FILE.npy: an input's elements")
        ->type_name("NAME=FILE")
        ->take_all()
        ->expected(1);
    auto* const random =
        command.add_option("--random", options->seed, "random elements, of that seed, where there is no --input")
            ->type_name("SEED")
            ->check(refusalOfSeed);
    command.add_flag("--zeros", options->zeros, "zeros where there is no --input")->excludes(random);
    command.add_option("--shape", options->shapes, "NAME=1,3,224: the shape of such an input")
        ->type_name("NAME=DIMENSIONS")
        ->take_all()
        ->expected(1);
    command.add_option("-o,--output", options->output, "the folder that gets a file NAME.npy of each output")
        ->required();
    command.add_flag("--force", options->force, "replace files of those names");
}

}  // namespace TarnoMirelo::Tool
