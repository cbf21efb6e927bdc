#include <TarnoMirelo/manifest.h>

namespace TarnoMirelo {

std::string ModelTypeToName(MireloModelType type) {
    switch (type) {
        case MireloModelType::CoreML:
            return "CoreML";
        case MireloModelType::WinML:
            return "WinML";
        case MireloModelType::OpenVino:
            return "OpenVino";
        case MireloModelType::TFLite:
            return "TF-Lite";
        case MireloModelType::OnnxRuntime:
            return "OnnxRuntime";
        case MireloModelType::TFJS:
            return "tfjs";
        case MireloModelType::Undefined:
            break;
    }
    return "Undefined";
}

}  // namespace TarnoMirelo
