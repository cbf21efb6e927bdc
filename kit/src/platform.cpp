#include "platform.h"

#include "cryptography.h"

namespace TarnoMirelo::Kit::Platform {

Filepath pathBeside(const Filepath& path) {
    uint64_t number = 0;
    Cryptography::randomBytes(&number, sizeof number);
    return Filepath(path.c_str() + ("." + std::to_string(number)) + ".part");
}

}  // namespace TarnoMirelo::Kit::Platform
