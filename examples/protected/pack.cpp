// The packager's desk: makes a protected container of an archive, under the key in a file, which is drawn where there
// is none.

#include "../digits/package.h"
#include "../step.h"

#include <TarnoMirelo/kit/protection.h>

#include <filesystem>
#include <fstream>
#include <iostream>

using namespace TarnoMirelo;

namespace {

void readOrDrawKey(const std::filesystem::path& path, unsigned char (&key)[16]) {
    auto* const bytes = reinterpret_cast<char*>(key);
    if (std::filesystem::exists(path)) {
        std::ifstream file(path, std::ios::binary);
        if (!file.read(bytes, sizeof key) || file.peek() != std::ifstream::traits_type::eof()) {
            throw std::runtime_error(path.string() + " is no key, wanted are 16 bytes");
        }
        return;
    }
    require("newProtectionKey", Kit::newProtectionKey(key));
    std::ofstream file(path, std::ios::binary);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    if (!file.write(bytes, sizeof key) || !file.flush()) throw std::runtime_error("Cannot write " + path.string());
    std::cout << "A new key is in " << path.string() << ": keep it apart from the package\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "Usage: " << argv[0] << " ARCHIVE.tar KEYFILE CONTAINER\n"
                  << "Protects the archive with the key of 16 bytes, which is made if it isn't there.\n";
        return 2;
    }
    try {
        unsigned char key[16];
        readOrDrawKey(argv[2], key);
        require("protectFile", Kit::protectFile(toFilepath(argv[1]), key, toFilepath(argv[3])));
        std::cout << argv[3] << " holds " << argv[1] << std::endl;
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << argv[0] << ": " << exception.what() << std::endl;
        return 1;
    }
}
