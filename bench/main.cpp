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

// The allocator takes blocks of up to 32 MiB from its heap once it has seen one of them freed, and maps them anew each
// time before. All are measured in the state that a program which has run for a while is in.
void settleAllocator() {
    void* block = std::malloc(size_t{31} << 20);
    benchmark::DoNotOptimize(block);
    std::free(block);
}

}  // namespace

const std::filesystem::path& scratchDirectory() {
    static const ScratchDirectory directory;
    return directory.path();
}

}  // namespace Bench

// What is raised ends the program. NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    Bench::settleAllocator();
    Bench::scratchDirectory();
    Bench::addModelCalls();
    Bench::addManifests();
    Bench::addMemory();
    Bench::addFiles();
    Bench::addArchives();
    Bench::addBatches();
    Bench::addManager();
    Bench::addLogging();
    Bench::registerRows();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
