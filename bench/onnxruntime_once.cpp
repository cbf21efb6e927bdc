// What is counted of the ONNX Runtime backend, and what only two threads show. Prints one "name value" a line:
//   evaluate_allocations  of a thousand calls, beyond those of the engine by itself
//   two_threads           the throughput of two threads on one model of two copies, divided by that of one thread
//   two_threads_one_copy  the same with one copy
//   two_threads_engine    the same for one session of the engine by itself

#include "allocations.h"
#include "onnxruntime_subjects.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <thread>

namespace {

using namespace Bench::OnnxRuntimeSubjects;

template <typename Work>
int64_t allocationsOf(Work work) {
    for (int i = 0; i < 10; ++i) work();  // what only the first calls need
    const uint64_t before = Bench::allocations();
    for (int i = 0; i < 1000; ++i) work();
    return static_cast<int64_t>(Bench::allocations() - before);
}

int64_t countEvaluateAllocations() {
    Ours ours(voice());
    Engine engine(voice());
    return allocationsOf([&] { require(ours.model->evaluate(ours.binding)); }) -
           allocationsOf([&] { engine.runBound(); });
}

using Work = std::function<void()>;

// Seconds until each thread has done its work so often.
double timeOf(const std::vector<Work>& works, int calls) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (const Work& work : works) {
        threads.emplace_back([&work, calls] {
            for (int i = 0; i < calls; ++i) work();
        });
    }
    for (std::thread& thread : threads) thread.join();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The best of many rounds: other load on the machine takes a processor away from the two.
double throughputOfTwo(const Work& first, const Work& second) {
    constexpr int kCalls = 500;
    double one = timeOf({first}, kCalls);
    double two = timeOf({first, second}, kCalls);
    for (int round = 1; round < 50; ++round) {
        one = std::min(one, timeOf({first}, kCalls));
        two = std::min(two, timeOf({first, second}, kCalls));
    }
    return 2 * one / two;
}

double throughputOfTwo(int copies) {
    Ours first(load(voice(), "", copies), voice());
    Ours second(first.model, voice());
    return throughputOfTwo([&] { require(first.model->evaluate(first.binding)); },
                           [&] { require(second.model->evaluate(second.binding)); });
}

double throughputOfTwoByEngine() {
    Engine first(voice());
    Engine second(first.session, voice());
    return throughputOfTwo([&] { first.runBound(); }, [&] { second.runBound(); });
}

}  // namespace

// What is raised ends the program. NOLINTNEXTLINE(bugprone-exception-escape)
int main() {
    std::cout << "evaluate_allocations " << countEvaluateAllocations() << "\ntwo_threads " << throughputOfTwo(2)
              << "\ntwo_threads_one_copy " << throughputOfTwo(1) << "\ntwo_threads_engine " << throughputOfTwoByEngine()
              << std::endl;
    return 0;
}
