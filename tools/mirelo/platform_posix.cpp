#include "platform.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace TarnoMirelo::Tool::Platform {

void prepareStandardStreams() {}  // they write bytes as they are

bool isTerminal(std::FILE* stream) {
    const char* const kind = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): nobody changes the environment
    return isatty(fileno(stream)) != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

}  // namespace TarnoMirelo::Tool::Platform
