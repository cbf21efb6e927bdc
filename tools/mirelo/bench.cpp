#include "commands.h"
#include "keys.h"
#include "measurement.h"
#include "plot.h"
#include "prediction.h"
#include "text_table.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <thread>

namespace TarnoMirelo::Tool {
namespace {

struct Options {
    std::string path;
    std::string keyFile;
    std::vector<std::string> engines;
    std::vector<std::string> inputs;
    std::vector<std::string> shapes;
    MeasurementPlan plan{1, {1, 2, 4, 8, 16}, {}, false};
    std::string plotFile;
    bool force = false;
};

// 1, 2, 4, ... and as many as the machine runs at once.
std::vector<unsigned int> usualThreads() {
    const unsigned int most = std::max(std::thread::hardware_concurrency(), 1U);
    std::vector<unsigned int> threads;
    for (unsigned int count = 1; count < most; count *= 2) threads.push_back(count);
    threads.push_back(most);
    return threads;
}

std::string inUnits(double value, const char* unit) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(value < 10 ? 3 : 1) << value << ' ' << unit;
    return text.str();
}

Json ratesOf(const char* what, const std::vector<Rate>& rates) {
    Json json = Json::array();
    for (const Rate& rate : rates) json.push_back({{what, rate.count}, {"perSecond", rate.perSecond}});
    return json;
}

Json jsonOf(const Measurement& measured) {
    if (!measured.problem.empty()) return {{"engine", measured.engine}, {"problem", measured.problem}};
    return {{"engine", measured.engine},
            {"load",
             {{"first", measured.firstLoad},
              {"further", measured.furtherLoad},
              {"cached", measured.cachedLoad ? Json(*measured.cachedLoad) : Json()}}},
            {"latency",
             {{"predictions", measured.predictions},
              {"p50", measured.latency50},
              {"p90", measured.latency90},
              {"p99", measured.latency99}}},
            {"memory", measured.memory},
            {"byRows", ratesOf("rows", measured.byRows)},
            {"byThreads", ratesOf("threads", measured.byThreads)}};
}

// The engines side by side.
std::string tableOf(const std::vector<Measurement>& measurements, const MeasurementPlan& plan) {
    std::vector<TextTable::Align> alignment(measurements.size() + 1, TextTable::Align::Right);
    alignment[0] = TextTable::Align::Left;
    TextTable table("", alignment);
    const auto addRow = [&](std::string title, const auto& cellOf) {
        std::vector<std::string> cells{std::move(title)};
        for (const Measurement& measured : measurements)
            cells.push_back(measured.problem.empty() ? cellOf(measured) : "-");
        table.addRow(std::move(cells));
    };
    const auto addTime = [&](const char* title, double Measurement::*time) {
        addRow(title, [time](const Measurement& measured) { return inUnits(measured.*time, "ms"); });
    };
    std::vector<std::string> names{""};
    for (const Measurement& measured : measurements) names.emplace_back(measured.engine);
    table.addRow(std::move(names));
    addTime("load, first", &Measurement::firstLoad);
    addTime("load, further", &Measurement::furtherLoad);
    addRow("load, cached", [](const Measurement& measured) {
        return measured.cachedLoad ? inUnits(*measured.cachedLoad, "ms") : std::string("-");
    });
    addTime("latency, p50", &Measurement::latency50);
    addTime("latency, p90", &Measurement::latency90);
    addTime("latency, p99", &Measurement::latency99);
    addRow("memory", [](const Measurement& measured) {
        return inUnits(static_cast<double>(measured.memory) / (1U << 20U), "MiB");
    });
    for (size_t i = 0; i < plan.rows.size(); ++i) {
        addRow("rows in a batch: " + std::to_string(plan.rows[i]),
               [i](const Measurement& measured) { return inUnits(measured.byRows[i].perSecond, "rows/s"); });
    }
    for (size_t i = 0; i < plan.threads.size(); ++i) {
        addRow("threads: " + std::to_string(plan.threads[i]),
               [i](const Measurement& measured) { return inUnits(measured.byThreads[i].perSecond, "rows/s"); });
    }
    return table.text();
}

std::vector<const Engine*> chosenEngines(const Options& options) {
    defaultEngine();  // there is one
    std::vector<const Engine*> chosen;
    for (const std::string& name : options.engines) chosen.push_back(&engineNamed(name));
    if (chosen.empty()) {
        for (const Engine& engine : engines()) chosen.push_back(&engine);
    }
    return chosen;
}

ExitCode bench(const Options& options, Console& console) {
    const std::vector<const Engine*> chosen = chosenEngines(options);
    std::optional<PartialFile> picture;
    if (!options.plotFile.empty()) picture.emplace(toPath(options.plotFile), options.force);
    const Package package(options.path);
    ModelMetadata metadata;
    const MireloModel::Components components = runnableTarget(package, options.keyFile, metadata);
    std::string missing;  // none: what is not given is generated
    const auto& target = std::get<ModelTarget>(components);
    const MireloModel::Inputs inputs =
        makeInputs(target, parseNamedValues("--input", options.inputs, target.inputs),
                   Filling{0, parseNamedValues("--shape", options.shapes, target.inputs)}, missing);

    std::vector<Measurement> measurements;
    measurements.reserve(chosen.size());
    for (const Engine* const engine : chosen) {
        measurements.push_back(measure(*engine, components, inputs, options.plan, console));
    }
    if (picture) {
        picture->write(plot(measurements));
        picture->keep();
    }
    if (console.json()) {
        Json json = Json::array();
        for (const Measurement& measured : measurements) json.push_back(jsonOf(measured));
        console.printJson({{"engines", std::move(json)}});
    } else {
        console.print(tableOf(measurements, options.plan));
    }
    std::string problems;
    size_t refusals = 0;
    for (const Measurement& measured : measurements) {
        if (measured.problem.empty()) continue;
        problems += (problems.empty() ? "" : "\n") + measured.problem;
        ++refusals;
    }
    // An engine that nobody asked for by name may refuse, if another one works.
    if (refusals == measurements.size() || (refusals != 0 && !options.engines.empty())) throw Failure(problems);
    if (refusals != 0 && !console.json()) console.print("not measured: " + problems + "\n");
    return kDone;
}

}  // namespace

void addBench(Commands& commands) {
    const auto options = std::make_shared<Options>();
    options->plan.threads = usualThreads();
    CLI::App& command =
        commands.add("bench", "Measure how fast each engine is", "  mirelo bench digits --plot digits.svg",
                     [options](Console& console) { return bench(*options, console); });
    command.add_option("PATH", options->path, "a manifest, a folder or a .tar archive")->required();
    addKeyOption(command, options->keyFile);
    command
        .add_option("--engine", options->engines, "an engine to measure, all where it is left out: " + engineNames())
        ->take_all()
        ->expected(1);
    command.add_option("--seconds", options->plan.seconds, "for each measurement; 1 where it is left out")
        ->check(CLI::Range(0.0, 3600.0))
        ->check([](const std::string& text) {  // which no range refuses
            return std::string(text.find_first_of("nN") == std::string::npos ? "" : "wanted is a number");
        });
    command.add_option("--batch", options->plan.rows, "numbers of rows in a batch, as in 1,8,64")
        ->delimiter(',')
        ->check(CLI::Range(1, 65536));
    command.add_option("--threads", options->plan.threads, "numbers of threads that predict at once")
        ->delimiter(',')
        ->check(CLI::Range(1, 1024));
    command
        .add_option("--input", options->inputs, "NAME=FILE.npy: an input's elements, random ones where it is left out")
        ->type_name("NAME=FILE")
        ->take_all()
        ->expected(1);
    command.add_option("--shape", options->shapes, "NAME=1,3,224: the shape of an input with open dimensions")
        ->type_name("NAME=DIMENSIONS")
        ->take_all()
        ->expected(1);
    command.add_flag("--rows-are-independent", options->plan.rowsAreIndependent,
                     "promise that each row is computed as if it were alone");
    command.add_option("--plot", options->plotFile, "a file for a picture of the rates, in SVG");
    command.add_flag("--force", options->force, "replace a file of that name");
}

}  // namespace TarnoMirelo::Tool
