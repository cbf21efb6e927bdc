// Measures the library beside the limit and beside what a user would pick instead; table.py compares.

#include "measure.h"

#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

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

// The allocator maps blocks of up to 32 MiB anew each time until one of them was freed, and takes them from its heap
// from then on, as in a program that has run for a while.
void settleAllocator() {
    void* block = std::malloc(size_t{31} << 20);
    benchmark::DoNotOptimize(block);
    std::free(block);
}

const std::map<std::string, void (*)()>& families() {
    static const std::map<std::string, void (*)()> all{{"archives", addArchives}, {"batches", addBatches},
                                                       {"files", addFiles},       {"idle", addIdleCalls},
                                                       {"kit", addKit},           {"logging", addLogging},
                                                       {"manager", addManager},   {"manifests", addManifests},
                                                       {"memory", addMemory},     {"onnxruntime", addOnnxRuntime},
                                                       {"opencv", addOpenCv},     {"protection", addProtection}};
    return all;
}

}  // namespace

const std::filesystem::path& scratchDirectory() {
    static const ScratchDirectory directory;
    return directory.path();
}

}  // namespace Bench

// Arguments: the families to measure, and options of Google Benchmark.
// What is raised ends the program. NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    Bench::settleAllocator();
    Bench::scratchDirectory();
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        const auto family = Bench::families().find(argv[i]);
        if (family == Bench::families().end()) throw std::invalid_argument(argv[i]);
        family->second();
    }
    Bench::registerRows();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
