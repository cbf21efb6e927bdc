#pragma once

#include "console.h"
#include "engines.h"

#include <TarnoMirelo/model.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// What is measured of each engine, and for how long.
struct MeasurementPlan {
    double seconds = 1;                 ///< for each number of rows and of threads, and for the latency
    std::vector<unsigned int> rows;     ///< of a batch
    std::vector<unsigned int> threads;  ///< that predict at the same time
    bool rowsAreIndependent = false;    ///< see `EngineSettings`
};

/// Rows in a second, with that many rows in a batch or threads that predict.
struct Rate {
    unsigned int count = 0;
    double perSecond = 0;
};

/// Times are in milliseconds.
struct Measurement {
    const char* engine = "";
    std::string problem;     ///< why there is nothing else; empty: there is
    double firstLoad = 0;    ///< in this process
    double furtherLoad = 0;  ///< the median of a few
    /// Likewise, from the engine's cache; nothing where it has none, or may not keep the network there.
    std::optional<double> cachedLoad;
    uint64_t predictions = 0;  ///< that the latencies are of
    double latency50 = 0;
    double latency90 = 0;
    double latency99 = 0;
    uint64_t memory = 0;  ///< bytes that the model reports after its predictions
    std::vector<Rate> byRows;
    std::vector<Rate> byThreads;
};

/// Measures a package's target on an engine. A refusal by the engine becomes the measurement's problem.
/// @param inputs  of one row
Measurement measure(const Engine& engine, const MireloModel::Components& components, const MireloModel::Inputs& inputs,
                    const MeasurementPlan& plan, Console& console);

}  // namespace TarnoMirelo::Tool
