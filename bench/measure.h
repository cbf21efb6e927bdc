#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <time.h>

/// What the families of benchmarks share.
namespace Bench {

/// A row of the table compares two or three sides.
enum class Side {
    Ours,     ///< the library
    Limit,    ///< the least that any program would have to do
    Instead,  ///< what a user would pick in its place
};

/// The CPU time that this thread has taken so far, in seconds.
inline double cpuTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// The least time between two calls of `cpuTime`.
inline double clockCost() {
    static const double least = [] {
        double time = 1;
        for (int i = 0; i < 10000; ++i) {
            const double start = cpuTime();
            time = std::min(time, cpuTime() - start);
        }
        return time;
    }();
    return least;
}

/// Does a side's work `calls` times and returns the CPU time that it took, in seconds.
using TimedWork = std::function<double(size_t calls)>;

/// As `measure`, for work that takes the time itself.
/// @param repetitions  how many rounds; 0 for the usual number
void addSide(const std::string& row, Side side, TimedWork work, int repetitions);

/// Has `work` measured, a callable without arguments that does the work once.
template <typename Work>
void measure(const std::string& row, Side side, Work work, int repetitions = 0) {
    const auto timed = [work](size_t calls) mutable {
        const double start = cpuTime();
        for (size_t i = 0; i < calls; ++i) work();
        return cpuTime() - start;
    };
    addSide(row, side, timed, repetitions);
}

/// As above, with `prepare` called before each time and not measured.
template <typename Prepare, typename Work>
void measurePrepared(const std::string& row, Side side, Prepare prepare, Work work, int repetitions = 0) {
    const auto timed = [prepare, work](size_t calls) mutable {
        double time = 0;
        for (size_t i = 0; i < calls; ++i) {
            prepare();
            const double start = cpuTime();
            work();
            time += cpuTime() - start - clockCost();
        }
        return time;
    };
    addSide(row, side, timed, repetitions);
}

/// Hands the rows to Google Benchmark, once all of them are there.
void registerRows();

/// A directory in the memory file system, gone at the program's end.
const std::filesystem::path& scratchDirectory();

void addIdleCalls();
void addOnnxRuntime();
void addOpenCv();
void addManifests();
void addMemory();
void addFiles();
void addArchives();
void addBatches();
void addKit();
void addManager();
void addLogging();
void addProtection();

}  // namespace Bench
