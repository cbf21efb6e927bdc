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

/// The name of a side's benchmark.
inline std::string nameOf(const std::string& row, Side side) {
    constexpr const char* kSides[] = {"ours", "limit", "instead"};
    return row + "|" + kSides[static_cast<int>(side)];
}

/// Has `work` measured, a callable without arguments that does the work once.
template <typename Work>
benchmark::internal::Benchmark* measure(const std::string& row, Side side, Work work) {
    return benchmark::RegisterBenchmark(nameOf(row, side).c_str(), [work](benchmark::State& state) mutable {
        for ([[maybe_unused]] auto _ : state) work();
    });
}

/// As above, with `prepare` called before each time and not measured.
template <typename Prepare, typename Work>
benchmark::internal::Benchmark* measure(const std::string& row, Side side, Prepare prepare, Work work) {
    return benchmark::RegisterBenchmark(nameOf(row, side).c_str(), [prepare, work](benchmark::State& state) mutable {
        for ([[maybe_unused]] auto _ : state) {
            state.PauseTiming();
            prepare();
            state.ResumeTiming();
            work();
        }
    });
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
