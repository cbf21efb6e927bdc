#include "trial.h"

#include <TarnoMirelo/kit/texts.h>

#include <mutex>
#include <thread>

namespace TarnoMirelo::Conformance {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 25;

// Runs the work in several threads at once. It returns what is wrong, if anything; of that, the first is told.
template <typename Work>
void inThreads(const Work& work) {
    std::mutex mutex;
    std::string first;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            for (int round = 0; round < kRounds; ++round) {
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
    inThreads([&](int number, int round) {
        if (round % 5 != 0) return std::string();  // a load takes longer than a prediction
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
        inThreads([&](int number, int round) {
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
