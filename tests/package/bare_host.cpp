// A host that is built without type information, has a file system of its own, and looks for files when it ends.

#include <TarnoMirelo/files.h>

#include <cstdio>
#include <cstdlib>

using namespace TarnoMirelo;

namespace {

// Made before the library is asked for anything, so it goes last.
struct Late {
    ~Late() {
        if (FileUtils().findFilesByPattern(Filepath("."), ".").size() != 1) std::_Exit(EXIT_FAILURE);
    }
} late;

class HostFiles : public FileUtils {
 public:
    std::ofstream openFileToWriteBinaryData(const Filepath& /*path*/) override {
        opened = true;
        return {};
    }
    bool opened = false;
};

}  // namespace

int main() {
    HostFiles files;
    char byte = 'x';
    files.writeBinaryDataToFile(&byte, 1, Filepath("nowhere"));
    if (!files.opened) return EXIT_FAILURE;
    return files.findFilesByPattern(Filepath("."), ".").size() == 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}
