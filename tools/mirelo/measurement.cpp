#include "measurement.h"

#include "failure.h"
#include "interrupt.h"
#include "paths.h"
#include "prediction.h"

#include <TarnoMirelo/kit/manager.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <exception>
#include <functional>
#include <thread>

namespace TarnoMirelo::Tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLoads = 5;
constexpr size_t kFewestPredictions = 10;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The smallest value that this share of them does not exceed.
double percentile(std::vector<double>& values, double share) {
    std::sort(values.begin(), values.end());
    const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(values.size())));
    return values[std::max<size_t>(rank, 1) - 1];
}

class Bench {
 public:
    Bench(const Engine& engine, const MireloModel::Components& components, const MireloModel::Inputs& inputs,
          const MeasurementPlan& plan, Console& console)
        : engine_(engine), components_(components), inputs_(inputs), plan_(plan), console_(console) {}

    Measurement run() {
        Measurement measured;
        measured.engine = engine_.name;
        measured.firstLoad = timeLoad({});
        measured.furtherLoad = medianLoad({});
        // No backend keeps what is protected on the disk.
        if (engine_.keepsCache && missingKeyOf(std::get<ModelTarget>(components_)).empty()) {
            const TemporaryFolder cache;
            EngineSettings settings;
            settings.cacheDirectory = cache.path();
            timeLoad(settings);  // which fills it
            measured.cachedLoad = medianLoad(settings);
        }
        measureOneModel(measured);
        for (const unsigned int threads : plan_.threads)
            measured.byThreads.push_back({threads, rateOfThreads(threads)});
        return measured;
    }

 private:
    std::shared_ptr<MireloModel> load(const EngineSettings& settings) const {
        checkInterrupt();
        std::shared_ptr<MireloModel> model = engine_.makeModel("bench", settings);
        require(engine_.name, model->load(components_));
        return model;
    }

    double timeLoad(const EngineSettings& settings) const {
        const auto start = Clock::now();
        const std::shared_ptr<MireloModel> model = load(settings);
        return millisecondsSince(start);
    }

    double medianLoad(const EngineSettings& settings) const {
        std::vector<double> times(kLoads);
        for (double& time : times) time = timeLoad(settings);
        return percentile(times, 0.5);
    }

    void predict(const MireloModel& model) const {
        MireloModel::Outputs outputs;
        require(engine_.name, model.predict(inputs_, outputs));
    }

    // Calls until the time is up, and at least once. Returns how often a second.
    double repeat(const std::function<void()>& work) {
        work();  // the first one may set things up
        const auto start = Clock::now();
        double milliseconds = 0;
        uint64_t count = 0;
        do {
            checkInterrupt();
            work();
            ++count;
            milliseconds = millisecondsSince(start);
            showProgress(milliseconds);
        } while (milliseconds < plan_.seconds * 1000);
        ++done_;
        return static_cast<double>(count) * 1000 / milliseconds;
    }

    void measureOneModel(Measurement& measured) {
        EngineSettings settings;
        settings.rowsAreIndependent = plan_.rowsAreIndependent;
        ModelManager manager;
        Kit::ScopedModel model(manager, load(settings));
        std::vector<double> times;
        predict(*model);
        const auto timed = [&] {
            const auto start = Clock::now();
            predict(*model);
            times.push_back(millisecondsSince(start));
        };
        repeat(timed);
        while (times.size() < kFewestPredictions) timed();
        measured.predictions = times.size();
        measured.latency50 = percentile(times, 0.50);
        measured.latency90 = percentile(times, 0.90);
        measured.latency99 = percentile(times, 0.99);
        for (const unsigned int rows : plan_.rows) measured.byRows.push_back({rows, rateOfRows(*model, rows)});
        measured.memory = model->getRuntimeStatus().getCurrentMemoryConsumption();
    }

    double rateOfRows(const MireloModel& model, unsigned int rows) {
        MireloModel::Inputs inputs;
        for (unsigned int row = 0; row < rows; ++row) inputs.insert(inputs.end(), inputs_.begin(), inputs_.end());
        return rows * repeat([&] {
                   MireloModel::Outputs outputs;
                   require(engine_.name, model.predictBatch(inputs, outputs));
               });
    }

    // Each prediction on one thread, where the engine lets itself be told.
    double rateOfThreads(unsigned int threads) {
        EngineSettings settings;
        settings.threads = 1;
        std::vector<std::shared_ptr<MireloModel>> models{load(settings)};
        while (models.size() < threads) models.push_back(engine_.overlaps ? models.front() : load(settings));
        for (const std::shared_ptr<MireloModel>& model : models) predict(*model);

        std::atomic<bool> stop = false;
        std::atomic<uint64_t> count = 0;
        std::vector<std::exception_ptr> failures(threads);
        std::vector<std::thread> workers;
        const auto start = Clock::now();
        const auto join = [&] {
            stop = true;
            for (std::thread& worker : workers) worker.join();
            workers.clear();
        };
        try {
            for (unsigned int i = 0; i < threads; ++i) {
                workers.emplace_back([&, i] {
                    try {
                        do {  // at least once, however short the time
                            predict(*models[i]);
                            ++count;
                        } while (!stop);
                    } catch (...) {
                        failures[i] = std::current_exception();
                    }
                });
            }
            double passed = 0;
            while (passed < plan_.seconds * 1000) {
                checkInterrupt();
                showProgress(passed);
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                passed = millisecondsSince(start);
            }
        } catch (...) {
            join();
            throw;
        }
        join();
        const double milliseconds = millisecondsSince(start);
        for (const std::exception_ptr& failure : failures) {
            if (failure) std::rethrow_exception(failure);
        }
        ++done_;
        return static_cast<double>(count) * 1000 / milliseconds;
    }

    void showProgress(double milliseconds) {
        const auto all = static_cast<double>(1 + plan_.rows.size() + plan_.threads.size());
        const double step = plan_.seconds > 0 ? std::min(milliseconds / (plan_.seconds * 1000), 1.0) : 1;
        console_.progress(std::string("Measuring ") + engine_.name, (static_cast<double>(done_) + step) / all);
    }

    const Engine& engine_;
    const MireloModel::Components& components_;
    const MireloModel::Inputs& inputs_;
    const MeasurementPlan& plan_;
    Console& console_;
    uint64_t done_ = 0;  // of the steps
};

}  // namespace

Measurement measure(const Engine& engine, const MireloModel::Components& components, const MireloModel::Inputs& inputs,
                    const MeasurementPlan& plan, Console& console) {
    try {
        return Bench(engine, components, inputs, plan, console).run();
    } catch (const Failure& failure) {
        Measurement refused;
        refused.engine = engine.name;
        refused.problem = failure.what();
        return refused;
    }
}

}  // namespace TarnoMirelo::Tool
