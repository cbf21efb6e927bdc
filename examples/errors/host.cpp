#include <TarnoMirelo/files.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/onnxruntime.h>

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace TarnoMirelo;

namespace {

// Shows a failure as a host would put it into its log.
void show(const std::string& situation, const MireloStatus& status) {
    std::cout << situation << "\n    " << Kit::describe(status) << '\n';
}

// What a host does with most statuses: a warning has worked, too.
void check(const MireloStatus& status) {
    if (!status.ok() && !status.warn()) throw std::runtime_error(Kit::describe(status));
}

// What the work answers, or what it raises as a status.
template <typename Work>
MireloStatus statusOf(const Work& work) {
    try {
        return work();
    } catch (...) {
        return getStatusFromCurrentException();
    }
}

Filepath in(Filepath folder, const char* name) { return folder.append(Filepath(name)); }

void failToRead(const Filepath& folder) {
    show("A manifest that is not there", ModelMetadata().load(in(folder, "manifest.jsn")));
    show("A manifest that is no JSON", ModelMetadata().load(in(folder, "samples.csv")));
    std::vector<unsigned char> bytes = FileUtils().readBinaryFileToByteVector(in(folder, "samples.csv"));
    Filepath destination = folder;
    show("An archive that is none", FileUtils().extractTarballOfSize(bytes.data(), bytes.size(), destination));
}

void failToLoad(const ModelMetadata& package) {
    show("A target that the manifest lacks", package.validate(MireloModelType::CoreML));
    show("The same, not validated", statusOf([&] {
             OnnxRuntime::Model model("digits", MireloModelType::CoreML);
             return model.load(package.getModelCompoents(MireloModelType::CoreML));
         }));

    OnnxRuntime::Model model("digits", MireloModelType::WinML);
    MireloModel::Components components = package.getModelCompoents(MireloModelType::WinML);
    std::string& network = std::get<ModelTarget>(components).components.at(0).path;
    network = "digits.onx";
    show("A network that is not there", model.load(components));
    network = "samples.csv";
    show("A network that is none", model.load(components));
    MireloModel::Outputs outputs;
    show("A prediction after a load that failed", model.predict({}, outputs));
}

std::shared_ptr<MireloFeature> tensor(const ModelFeatureDescriptor& descriptor, DataType type,
                                      const TensorShape& shape) {
    return std::make_shared<MireloFeatureTensor>(descriptor, std::make_shared<Tensor>(type, shape));
}

void failToPredict(const MireloModel& model, const MireloModel& other) {
    const ModelFeatureDescriptor& input = model.getModelTarget().inputs.at(0);
    const ModelFeatureDescriptor& output = model.getModelTarget().outputs.at(0);
    MireloModel::Outputs outputs;
    show("No input", model.predict({}, outputs));
    show("An input that the target lacks", model.predict({std::make_shared<MireloFeatureTensor>(output)}, outputs));
    show("Another element type", model.predict({tensor(input, DataType::UInt8, {1, 64})}, outputs));
    show("Another shape", model.predict({tensor(input, DataType::Float, {8, 8})}, outputs));

    const auto pixels = tensor(input, DataType::Float, {1, 64});
    uint8_t* const memory = pixels->asTensor()->buffer();
    const auto overlapping = std::make_shared<BufferWrappedTensor>(DataType::Float, TensorShape(1, 10), memory, 40);
    outputs = {std::make_shared<MireloFeatureTensor>(output, overlapping)};
    show("An output in the memory of an input", model.predict({pixels}, outputs));

    outputs.clear();
    std::shared_ptr<MireloModel::MireloBinding> binding;
    check(other.bind({pixels}, outputs, binding));
    show("A binding of another model", model.evaluate(binding));
}

void failToManage(const std::shared_ptr<MireloModel>& model) {
    show("The memory of a model that is not registered", statusOf([&] {
             model->getRuntimeStatus();
             return MireloStatus(SUCCESS, "");
         }));
    show("An unload by a manager that doesn't know the model", ModelManager().unloadModel(model));
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) throw std::invalid_argument("usage: host FOLDER");
    const Filepath folder(argv[1]);
    failToRead(folder);

    ModelMetadata package;
    check(package.load(in(folder, "manifest.json")));
    failToLoad(package);

    const auto model = std::make_shared<OnnxRuntime::Model>("digits", MireloModelType::WinML);
    OnnxRuntime::Model other("others", MireloModelType::WinML);
    check(model->load(package.getModelCompoents(MireloModelType::WinML)));
    check(other.load(package.getModelCompoents(MireloModelType::WinML)));
    failToPredict(*model, other);
    failToManage(model);
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
