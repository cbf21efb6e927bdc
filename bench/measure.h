#pragma once

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

/// What the families of benchmarks share. A row of the table compares two or three benchmarks, its sides, that are told
/// apart by their names: "<row>|ours", "<row>|limit", "<row>|instead".
namespace Bench {

enum class Side {
    Ours,     ///< the library
    Limit,    ///< the least that any program would have to do
    Instead,  ///< what a user would pick in its place
};

/// Has `work` measured, a callable without arguments that does the work once.
template <typename Work>
benchmark::internal::Benchmark* measure(const std::string& row, Side side, Work work) {
    constexpr const char* kSides[] = {"ours", "limit", "instead"};
    const std::string name = row + "|" + kSides[static_cast<int>(side)];
    return benchmark::RegisterBenchmark(name.c_str(), [work](benchmark::State& state) mutable {
        for ([[maybe_unused]] auto _ : state) work();
    });
}

/// As above, with `prepare` called before each time and not measured.
template <typename Prepare, typename Work>
benchmark::internal::Benchmark* measure(const std::string& row, Side side, Prepare prepare, Work work) {
    const auto prepared = [prepare, work](benchmark::State& state) mutable {
        for ([[maybe_unused]] auto _ : state) {
            state.PauseTiming();
            prepare();
            state.ResumeTiming();
            work();
        }
    };
    constexpr const char* kSides[] = {"ours", "limit", "instead"};
    return benchmark::RegisterBenchmark((row + "|" + kSides[static_cast<int>(side)]).c_str(), prepared);
}

/// A directory in the memory file system, gone at the program's end.
const std::filesystem::path& scratchDirectory();

void addModelCalls();
void addManifests();
void addMemory();
void addFiles();
void addArchives();
void addBatches();
void addManager();
void addLogging();

}  // namespace Bench
