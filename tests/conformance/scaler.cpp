// The backend of the first examples keeps the contract.

#include "quickstart/scaler.h"

#include <TarnoMirelo/conformance.h>

namespace {

Conformance::Backend describe() {
    Conformance::Backend backend;
    backend.makeModel = [](const std::string& name, const std::shared_ptr<Device>& device) {
        return std::make_shared<Scaler>(name, device);
    };
    backend.makeStackingModel = backend.makeModel;  // it takes the rows for independent, which they are
    backend.packageFolder = EXAMPLES;
    backend.packages = {"quickstart/model", "kit/model"};
    backend.binds = false;
    backend.setsBatchSize = false;
    return backend;
}

}  // namespace

MIRELO_CONFORMANCE(Scaler, describe);
