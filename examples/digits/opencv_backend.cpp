#include "backend.h"

#include <TarnoMirelo/opencv.h>

std::shared_ptr<TarnoMirelo::MireloModel> makeModel(const std::string& name,
                                                    const std::shared_ptr<TarnoMirelo::Device>& device) {
    return std::make_shared<TarnoMirelo::OpenCv::Model>(name, device);
}
