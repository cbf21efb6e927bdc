// Measures the library beside the limit and beside what a user would pick instead; table.py compares.

#include "measure.h"

#include <cstdlib>
#include <stdexcept>

namespace Bench {
namespace {

class ScratchDirectory {
 public:
    ScratchDirectory() {
        std::string path = "/dev/shm/sdk-core-bench-XXXXXX";
        if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no memory file system at /dev/shm");
        path_ = path;
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }

 private:
    std::filesystem::path path_;
};

}  // namespace

const std::filesystem::path& scratchDirectory() {
    static const ScratchDirectory directory;
    return directory.path();
}

}  // namespace Bench

int main(int argc, char** argv) {
    Bench::scratchDirectory();
    Bench::addModelCalls();
    Bench::addManifests();
    Bench::addMemory();
    Bench::addFiles();
    Bench::addArchives();
    Bench::addBatches();
    Bench::addManager();
    Bench::addLogging();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
