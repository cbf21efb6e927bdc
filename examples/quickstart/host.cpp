#include "scaler.h"

#include <cstring>
#include <iostream>

// Takes the folder of a packaged model.
int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: quickstart FOLDER" << std::endl;
        return 2;
    }
    ModelMetadata metadata;
    MireloStatus status = metadata.load(Filepath(argv[1]).append(Filepath("manifest.json")));
    if (status.ok()) status = metadata.validate(MireloModelType::WinML);
    const auto model = std::make_shared<Scaler>("scaler", MireloModelType::WinML);
    if (status.ok()) status = model->load(metadata.getModelCompoents(MireloModelType::WinML));
    ModelManager manager;
    if (status.ok()) status = manager.registerModel(model);

    MireloModel::Outputs allocated;
    MireloModel::Outputs outputs;
    if (status.ok()) status = model->allocateInputs(allocated);
    const float numbers[] = {1, 2, 3};
    if (status.ok()) std::memcpy(allocated.at(0)->asTensor()->buffer(), numbers, sizeof numbers);
    if (status.ok()) status = model->predict({allocated.begin(), allocated.end()}, outputs);
    for (int i = 0; status.ok() && i < 3; ++i) {
        std::cout << reinterpret_cast<const float*>(outputs.at(0)->asTensor()->buffer())[i] << ' ';
    }
    std::cout << std::endl;
    if (status.ok()) status = manager.unloadModel(model);
    if (!status.ok()) std::cerr << status.getCode() << ": " << status.getDescription() << std::endl;
    return status.ok() ? 0 : 1;
}
