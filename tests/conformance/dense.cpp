// The backend that needs no engine keeps the contract.

#include "digits/backend.h"

#include <TarnoMirelo/conformance.h>

using namespace TarnoMirelo;

namespace {

Conformance::Backend describe() {
    Conformance::Backend backend;
    backend.makeModel = makeModel;
    backend.packageFolder = EXAMPLES "/digits/conformance";
    backend.packages = {"two_layers"};
    backend.setsBatchSize = false;
    return backend;
}

}  // namespace

MIRELO_CONFORMANCE(Dense, describe);
