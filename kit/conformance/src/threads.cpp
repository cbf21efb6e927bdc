#include "trial.h"

#include <TarnoMirelo/kit/texts.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace TarnoMirelo::Conformance {
namespace {

constexpr int kThreads = 4;

// Runs the work in several threads at once, for at least that many rounds and that long. What is wrong in one of them
// first, if anything, is told.
template <typename Work>
void inThreads(int rounds, std::chrono::milliseconds time, const Work& work) {
    std::mutex mutex;
    std::string first;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            ++ready;
            while (ready < kThreads) std::this_thread::yield();  // else the first is done before the last begins
            const auto end = std::chrono::steady_clock::now() + time;
            for (int round = 0; round < rounds || std::chrono::steady_clock::now() < end; ++round) {
                std::string problem;
                try {
                    problem = work(number, round);
                } catch (const std::exception& exception) {
                    problem = std::string("raised: ") + exception.what();
                }
                if (problem.empty()) continue;
                const std::lock_guard<std::mutex> lock(mutex);
                if (first.empty()) first = problem;
                return;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(first.empty()) << "In one of several threads: " << first;
}

std::string failureOf(const MireloStatus& status) { return status.ok() ? std::string() : Kit::describe(status); }

std::string predict(const Trial& trial, const MireloModel& model, const Case& each) {
    Outputs outputs;
    const std::string failure = failureOf(model.predict(featuresOf(each).constInputs(), outputs));
    return failure.empty() ? trial.compare(outputs, each.outputs) : failure;
}

std::string predictBatch(const Trial& trial, const MireloModel& model, const Case& each) {
    Outputs outputs;
    const std::string failure = failureOf(model.predictBatch(featuresOf(each).constInputs(), outputs));
    return failure.empty() ? trial.compare(outputs, each.outputs) : failure;
}

std::string evaluate(const Trial& trial, const MireloModel& model, const Case& each) {
    Features features = featuresOf(each);
    Binding binding;
    std::string failure = failureOf(model.bind(features.constInputs(), features.outputs, binding));
    if (failure.empty()) failure = failureOf(model.evaluate(binding));
    return failure.empty() ? trial.compare(features.outputs, each.outputs) : failure;
}

void distinctModels(Trial& trial) {
    inThreads(5, std::chrono::milliseconds(0), [&](int number, int /*round*/) {  // each takes a load
        const Package& package = trial.packages()[static_cast<size_t>(number) % trial.packages().size()];
        const auto model = trial.make("model " + std::to_string(number));
        std::string failure = failureOf(model->load(package.components));
        for (const Case& each : package.cases) {
            if (failure.empty()) failure = predict(trial, *model, each);
        }
        return failure.empty() ? failureOf(model->doUnload()) : failure;
    });
}

void overlappingOperations(Trial& trial) {
    if (!trial.backend().mayOverlap) GTEST_SKIP() << "The operations of one model must not overlap";
    for (const Package& package : trial.packages()) {
        SCOPED_TRACE("package " + package.name);
        ModelManager manager;
        const auto model = trial.loaded(package);
        manager.registerModel(model);
        inThreads(25, std::chrono::milliseconds(20), [&](int number, int round) {
            const Case& each = package.cases[static_cast<size_t>(number + round) % package.cases.size()];
            if (round % 3 == 1) return predictBatch(trial, *model, each);
            return round % 3 == 2 && trial.backend().binds ? evaluate(trial, *model, each)
                                                           : predict(trial, *model, each);
        });
        Trial::expectSuccess(manager.unloadModel(model), "unloadModel");
    }
}

}  // namespace

std::vector<Row> threadRows() {
    return {
        {"DistinctModels", "several threads, each with its own model", SUCCESS, "the expected results", distinctModels},
        {"OverlappingOperations", "several threads on one model, where the backend allows that", SUCCESS,
         "the expected results", overlappingOperations},
    };
}

}  // namespace TarnoMirelo::Conformance
