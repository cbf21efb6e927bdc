// Runs packaged networks in every way that the library has, and prints what came of them, for trial.py to judge.
//
// A folder holds the manifest, and the inputs of two rows as inputs-0.bin and inputs-1.bin: the elements of each
// input in the manifest's order. One line per status, with the operation, the code and the description; one per output,
// with the operation, the row, the name, the element type, the shape and the elements in hexadecimal. Tabs separate.

#include "engine.h"

#include <TarnoMirelo/TarnoMirelo.h>

#include <array>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

using namespace TarnoMirelo;

namespace {

using Row = std::vector<char>;

bool tell(const std::string& operation, const MireloStatus& status) {
    std::string description = status.getDescription();
    for (char& character : description) {
        if (character == '\n' || character == '\r' || character == '\t') character = ' ';
    }
    std::cout << "status\t" << operation << "\t" << status.getCode() << "\t" << description << std::endl;
    return status.ok();
}

void tell(const std::string& operation, size_t row, const MireloFeature& output) {
    const ITensor& tensor = *output.asTensor();
    std::cout << "output\t" << operation << "\t" << row << "\t" << output.featureDescriptor().name() << "\t"
              << static_cast<int32_t>(tensor.dataType()) << "\t";
    for (const int64_t dimension : tensor.shape().shapeVector()) std::cout << dimension << " ";
    std::string elements;
    for (int64_t i = 0; i < tensor.bytes(); ++i) {
        elements += "0123456789abcdef"[tensor.buffer()[i] >> 4];
        elements += "0123456789abcdef"[tensor.buffer()[i] & 15];
    }
    std::cout << "\t" << elements << std::endl;
}

void tell(const std::string& operation, size_t row, const MireloModel::Outputs& outputs) {
    for (const auto& output : outputs) tell(operation, row, *output);
}

Row readRow(const Filepath& folder, size_t row) {
    Filepath path = folder;
    path.append(Filepath("inputs-" + std::to_string(row) + ".bin"));
    uint64_t size = 0;
    const std::unique_ptr<char[]> bytes = FileUtils().readBinaryFileToBuffer(path, size);
    if (bytes == nullptr) throw FileException("Cannot read " + path.getPathString());
    return {bytes.get(), bytes.get() + size};
}

void fill(const MireloModel::Outputs& inputs, const Row& row) {
    size_t position = 0;
    for (const auto& input : inputs) {
        ITensor& tensor = *input->asTensor();
        const auto size = static_cast<size_t>(tensor.bytes());
        if (size > row.size() - position) throw std::length_error("A row is shorter than the inputs");
        if (size > 0) std::memcpy(tensor.buffer(), row.data() + position, size);
        position += size;
    }
    if (position != row.size()) throw std::length_error("A row is longer than the inputs");
}

MireloModel::Outputs inputsOf(MireloModel& model, const Row& row) {
    MireloModel::Outputs inputs;
    if (const MireloStatus status = model.allocateInputs(inputs); !status.ok()) {
        throw Exception(status.getDescription(), status.getCode());
    }
    fill(inputs, row);
    return inputs;
}

bool predict(MireloModel& model, size_t index, const Row& row) {
    const MireloModel::Outputs inputs = inputsOf(model, row);
    MireloModel::Outputs outputs;
    const bool done = tell("predict " + std::to_string(index), model.predict({inputs.begin(), inputs.end()}, outputs));
    if (done) tell("predict", index, outputs);
    return done;
}

void predictBatch(MireloModel& model, const std::array<Row, 2>& rows) {
    MireloModel::Inputs inputs;
    for (const Row& row : rows) {
        const MireloModel::Outputs features = inputsOf(model, row);
        inputs.insert(inputs.end(), features.begin(), features.end());
    }
    MireloModel::Outputs outputs;
    if (!tell("predictBatch", model.predictBatch(inputs, outputs))) return;
    const size_t outputsPerRow = model.getModelTarget().outputs.size();
    for (size_t i = 0; i < outputs.size(); ++i) tell("predictBatch", i / outputsPerRow, *outputs[i]);
}

void evaluate(MireloModel& model, const std::array<Row, 2>& rows) {
    const MireloModel::Outputs inputs = inputsOf(model, rows[0]);
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    if (!tell("bind", model.bind({inputs.begin(), inputs.end()}, outputs, binding))) return;
    for (size_t i = 0; i < rows.size(); ++i) {
        fill(inputs, rows[i]);
        if (tell("evaluate", model.evaluate(binding))) tell("evaluate", i, outputs);
    }
}

void run(const Filepath& folder) {
    ModelMetadata metadata;
    Filepath manifest = folder;
    if (!tell("manifest", metadata.load(manifest.append(Filepath("manifest.json"))))) return;
    if (!tell("validate", metadata.validate(MireloModelType::WinML))) return;
    const std::shared_ptr<MireloModel> model = makeModel();
    if (!tell("load", model->load(metadata.getModelCompoents(MireloModelType::WinML)))) return;
    ModelManager manager;
    tell("registerModel", manager.registerModel(model));
    std::array<Row, 2> rows = {readRow(folder, 0), readRow(folder, 1)};
    predict(*model, 0, rows[0]);
    // The changed row may ask for outputs of another shape than the manifest's. Then both rows are the first one.
    if (!predict(*model, 1, rows[1])) rows[1] = rows[0];
    predictBatch(*model, rows);
    evaluate(*model, rows);
    tell("unloadModel", manager.unloadModel(model));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "Usage: " << argv[0] << " FOLDER...\n";
        return 2;
    }
    try {
        for (int i = 1; i < argc; ++i) {
            std::cout << "network\t" << argv[i] << std::endl;
            run(Filepath(argv[i]));
        }
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << "raised " << exception.what() << std::endl;
        return 3;
    }
}
