#include "affine_model.h"

#include <TarnoMirelo/conformance.h>

using namespace TarnoMirelo;

namespace {

Conformance::Backend describe() {
    Conformance::Backend backend;
    backend.makeModel = [](const std::string& name, const std::shared_ptr<Device>& device) {
        return std::make_shared<AffineModel>(name, device);
    };
    backend.packageFolder = PACKAGES;
    backend.packages = {"blend", "open_shape"};
    backend.setsBatchSize = false;
    backend.mayOverlap = true;
    return backend;
}

}  // namespace

MIRELO_CONFORMANCE(Affine, describe);
