// Runs packaged networks in every way that the library has, and prints what came of them, for trial.py to judge. A
// folder that holds the package as package.tar, too, is loaded from memory and from the archive as well.

#include "engine.h"
#include "package.h"

#include <array>

using namespace TarnoMirelo;

namespace {

void tell(const std::string& operation, size_t row, const MireloFeature& output) {
    const ITensor& tensor = *output.asTensor();
    tell(operation, row, output.featureDescriptor().name(), tensor.dataType(), tensor.shape().shapeVector(),
         tensor.buffer(), static_cast<size_t>(tensor.bytes()));
}

void tell(const std::string& operation, size_t row, const MireloModel::Outputs& outputs) {
    for (const auto& output : outputs) tell(operation, row, *output);
}

void fill(const MireloModel::Outputs& inputs, const Bytes& row) {
    RowReader reader(row);
    for (const auto& input : inputs) {
        ITensor& tensor = *input->asTensor();
        reader.take(tensor.buffer(), static_cast<size_t>(tensor.bytes()));
    }
    reader.end();
}

MireloModel::Outputs inputsOf(MireloModel& model, const Bytes& row) {
    MireloModel::Outputs inputs;
    if (const MireloStatus status = model.allocateInputs(inputs); !status.ok()) {
        throw Exception(status.getDescription(), status.getCode());
    }
    fill(inputs, row);
    return inputs;
}

bool predict(MireloModel& model, const std::string& operation, size_t index, const Bytes& row) {
    const MireloModel::Outputs inputs = inputsOf(model, row);
    MireloModel::Outputs outputs;
    const bool done =
        tell(operation + " " + std::to_string(index), model.predict({inputs.begin(), inputs.end()}, outputs));
    if (done) tell(operation, index, outputs);
    return done;
}

void predictBatch(MireloModel& model, const std::array<Bytes, 2>& rows) {
    MireloModel::Inputs inputs;
    for (const Bytes& row : rows) {
        const MireloModel::Outputs features = inputsOf(model, row);
        inputs.insert(inputs.end(), features.begin(), features.end());
    }
    MireloModel::Outputs outputs;
    if (!tell("predictBatch", model.predictBatch(inputs, outputs))) return;
    const size_t outputsPerRow = model.getModelTarget().outputs.size();
    for (size_t i = 0; i < outputs.size(); ++i) tell("predictBatch", i / outputsPerRow, *outputs[i]);
}

void evaluate(MireloModel& model, const std::array<Bytes, 2>& rows) {
    const MireloModel::Outputs inputs = inputsOf(model, rows[0]);
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    if (!tell("bind", model.bind({inputs.begin(), inputs.end()}, outputs, binding))) return;
    for (size_t i = 0; i < rows.size(); ++i) {
        fill(inputs, rows[i]);
        if (tell("evaluate", model.evaluate(binding))) tell("evaluate", i, outputs);
    }
}

using Components = decltype(ModelMetadata().getModelCompoents(MireloModelType::WinML));

Components readPackage(const Filepath& folder) {
    ModelMetadata metadata;
    if (const MireloStatus status = metadata.load(inside(folder, "manifest.json")); !status.ok()) {
        throw Exception(status.getDescription(), status.getCode());
    }
    return metadata.getModelCompoents(MireloModelType::WinML);
}

// One prediction of a package that was loaded in another way than from its file.
void runLoaded(const std::string& way, const Components& components, const Bytes& row) {
    const std::shared_ptr<MireloModel> model = makeModel();
    if (tell(way + " load", model->load(components))) predict(*model, way + " predict", 0, row);
}

void runFromMemory(const Filepath& folder, const Bytes& row) {
    Components components = readPackage(folder);
    for (ModelComponent& component : std::get<ModelTarget>(components).components) {
        component.buffer = readFile(inside(folder, component.path));
        component.type = ComponentKind::MemoryStream;
        component.path.clear();
    }
    runLoaded("memory", components, row);
}

void runFromArchive(const Filepath& folder, const Bytes& row) {
    Bytes archive = readFile(inside(folder, "package.tar"));
    Filepath destination = inside(folder, "unpacked");
    FileUtils().createDir(destination);
    if (!tell("archive extract", FileUtils().extractTarballOfSize(archive.data(), archive.size(), destination))) return;
    runLoaded("archive", readPackage(inside(folder, "unpacked")), row);
}

void run(const Filepath& folder) {
    ModelMetadata metadata;
    if (!tell("manifest", metadata.load(inside(folder, "manifest.json")))) return;
    tell("validate", metadata.validate(MireloModelType::WinML));  // refuses empty inputs, which a backend may take
    const std::shared_ptr<MireloModel> model = makeModel();
    if (!tell("load", model->load(metadata.getModelCompoents(MireloModelType::WinML)))) return;
    ModelManager manager;
    tell("registerModel", manager.registerModel(model));
    std::array<Bytes, 2> rows = {readRow(folder, 0), readRow(folder, 1)};
    predict(*model, "predict", 0, rows[0]);
    if (FileUtils().pathExists(inside(folder, "package.tar"))) {
        runFromMemory(folder, rows[0]);
        runFromArchive(folder, rows[0]);
    }
    // The changed row may ask for outputs of another shape than the manifest's. Then both rows are the first one.
    if (!predict(*model, "predict", 1, rows[1])) rows[1] = rows[0];
    predictBatch(*model, rows);
    evaluate(*model, rows);
    tell("unloadModel", manager.unloadModel(model));
}

}  // namespace

int main(int argc, char** argv) { return runEach(argc, argv, run); }
