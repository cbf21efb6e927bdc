#include "engine.h"

#include <TarnoMirelo/opencv.h>

std::shared_ptr<TarnoMirelo::MireloModel> makeModel() {
    return std::make_shared<TarnoMirelo::OpenCv::Model>("network", TarnoMirelo::MireloModelType::WinML);
}
