#include "failure.h"

#include "paths.h"

#include <TarnoMirelo/kit/texts.h>

namespace TarnoMirelo::Tool {

std::string reasonOf(const std::filesystem::filesystem_error& error) {
    if (error.path1().empty()) return error.what();
    return toGenericText(error.path1()) + ": " + error.code().message();
}

void require(const std::string& thing, const MireloStatus& status) {
    if (!status.ok() && !status.warn()) throw Failure(thing + ": " + Kit::describe(status));
}

}  // namespace TarnoMirelo::Tool
