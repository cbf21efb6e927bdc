#include "failure.h"

#include <TarnoMirelo/kit/texts.h>

namespace TarnoMirelo::Tool {

void require(const std::string& thing, const MireloStatus& status) {
    if (!status.ok() && !status.warn()) throw Failure(thing + ": " + Kit::describe(status));
}

}  // namespace TarnoMirelo::Tool
