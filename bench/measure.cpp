#include "measure.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>
#include <vector>

namespace Bench {
namespace {

constexpr size_t kSides = 3;
constexpr size_t kOurs = static_cast<size_t>(Side::Ours);
constexpr double kLeastTime = 0.0003;  // seconds that a side is measured for at once

struct TimedSide {
    TimedWork work;
    size_t calls = 1;  // in a round, so that they take kLeastTime
    double spent = 0;  // seconds, in the run's rounds
};

struct Row {
    std::string name;
    std::array<TimedSide, kSides> sides;
    int repetitions = 0;
    size_t first = 0;  // counts the rounds: another side begins each
};

std::vector<Row>& rows() {
    static std::vector<Row> all;
    return all;
}

// Seconds that one call takes: the average of enough calls to be measured.
double timeOf(TimedSide& side) {
    double time = side.work(side.calls);
    while (time < kLeastTime) {
        side.calls *= 2;
        time = side.work(side.calls);
    }
    side.spent += time;
    return time / static_cast<double>(side.calls);
}

double medianOf(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The sides take turns, in rounds: what else happens on the machine slows down all of them. Each is compared with what
// the library took in the same round.
void run(Row& row, benchmark::State& state) {
    const TimedSide& ours = row.sides[kOurs];
    double least = std::numeric_limits<double>::infinity();
    std::array<std::vector<double>, kSides> ratios;
    for (TimedSide& side : row.sides) side.spent = 0;
    for ([[maybe_unused]] auto _ : state) {
        std::vector<size_t> turns;
        for (size_t side = 0; side < kSides; ++side) {
            const TimedSide& timed = row.sides[side];
            const bool isTooSlow = timed.calls == 1 && timed.spent > 2 * ours.spent;  // skipped in some rounds
            if (timed.work != nullptr && !isTooSlow) turns.push_back(side);
        }
        std::rotate(turns.begin(), turns.begin() + static_cast<ptrdiff_t>(row.first++ % turns.size()), turns.end());
        std::array<double, kSides> times{};
        for (const size_t side : turns) times[side] = timeOf(row.sides[side]);
        for (size_t side = 0; side < kSides; ++side) {
            if (side != kOurs && times[side] > 0) ratios[side].push_back(times[kOurs] / times[side]);
        }
        least = std::min(least, times[kOurs]);
        state.SetIterationTime(times[kOurs] * static_cast<double>(ours.calls));
    }
    state.counters["ours"] = least * 1e9;
    const std::array<const char*, kSides> names{"ours", "limit", "instead"};
    for (size_t side = 0; side < kSides; ++side) {
        if (!ratios[side].empty()) state.counters[names[side]] = medianOf(ratios[side]);
    }
}

}  // namespace

void addSide(const std::string& row, Side side, TimedWork work, int repetitions) {
    const auto hasName = [&row](const Row& other) { return other.name == row; };
    auto found = std::find_if(rows().begin(), rows().end(), hasName);
    if (found == rows().end()) found = rows().insert(found, Row{row, {}, repetitions});
    found->sides[static_cast<size_t>(side)].work = std::move(work);
}

void registerRows() {
    for (Row& row : rows()) {
        auto* const added = benchmark::RegisterBenchmark(row.name.c_str(), [&row](auto& state) { run(row, state); });
        added->UseManualTime();
        if (row.repetitions != 0) added->Iterations(1)->Repetitions(row.repetitions);
    }
}

}  // namespace Bench
