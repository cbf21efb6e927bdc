// A host that is built without type information, has a file system of its own, and still uses the library while the
// process ends.

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/operators.h>

#include <cstdlib>

using namespace TarnoMirelo;

namespace {

struct Late {
    Late() { CustomOperators::getOperatorRegistry(); }  // which is then destroyed after this object
    ~Late() {
        CustomOperators::getMutableOperatorRegistry().clear();
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
    CustomOperators::registerCustomOperator("of the host",
                                            [] { return std::make_unique<CustomOperators::Operator>(); });
    HostFiles files;
    char byte = 'x';
    files.writeBinaryDataToFile(&byte, 1, Filepath("nowhere"));
    if (!files.opened) return EXIT_FAILURE;
    return files.findFilesByPattern(Filepath("."), ".").size() == 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}
