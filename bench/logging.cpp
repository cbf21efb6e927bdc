// Reporting a line to a file.

#include "measure.h"
#include "system_file.h"

#include <TarnoMirelo/logging.h>

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <string>

namespace Bench {
namespace {

using namespace TarnoMirelo;

const std::string kMessage = "OpenCV model \"digits\": loaded in 12.345678 ms";

}  // namespace

void addLogging() {
    const std::string row = "Logger::Report to a file";
    const std::string rowWithEntry = "GenerateLogEntry, Logger::Report to a file";
    const std::string directory = scratchDirectory();
    const auto sink = std::make_shared<LogProcessorFileSystem>(directory, "ours.log", false);
    Logger::GetInstance().SetDefaultLogProcessor(
        std::make_shared<LogProcessorFormatter<DebugLogFormat>>(sink, DebugLogFormat()));
    LogEntry ready;
    Logger::GenerateLogEntry(ready, kMessage, LogProcessorTarget::None, LogSeverity::Info, 1);
    measure(row, Side::Ours, [=] { Logger::GetInstance().Report(ready); });
    measure(rowWithEntry, Side::Ours, [=] {
        LogEntry entry;
        Logger::GenerateLogEntry(entry, kMessage, LogProcessorTarget::None, LogSeverity::Info, 1);
        Logger::GetInstance().Report(entry);
    });
    const auto file = std::make_shared<SystemFile>((directory + "/limit.log").c_str(), O_WRONLY | O_CREAT | O_APPEND);
    const std::string line = "(00:00:00:00) " + kMessage + "[1]\n";
    const auto writeLine = [=] { file->write(line.data(), line.size()); };
    measure(row, Side::Limit, writeLine);
    measure(rowWithEntry, Side::Limit, writeLine);
    const auto other = spdlog::basic_logger_st("bench", directory + "/instead.log");
    other->flush_on(spdlog::level::trace);
    const auto reportToOther = [=] { other->info(kMessage); };
    measure(row, Side::Instead, reportToOther);
    measure(rowWithEntry, Side::Instead, reportToOther);
}

}  // namespace Bench
