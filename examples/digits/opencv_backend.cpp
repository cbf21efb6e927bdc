#include "backend.h"

#include <TarnoMirelo/opencv.h>

std::shared_ptr<TarnoMirelo::MireloModel> makeModel(const std::string& name,
                                                    const std::shared_ptr<TarnoMirelo::Device>& device) {
    TarnoMirelo::OpenCv::Options options;
    options.rowsAreIndependent = true;  // the network looks at each image by itself
    return std::make_shared<TarnoMirelo::OpenCv::Model>(name, device, TarnoMirelo::MireloConfig(), options);
}
