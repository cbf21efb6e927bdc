#include "log.h"

#include <TarnoMirelo/kit/log.h>

#include <mutex>

namespace TarnoMirelo::OnnxRuntime {
namespace {

thread_local const Log* current = nullptr;

// Never destroyed: the engine's threads may log while the process ends.
std::recursive_mutex& sinks() {
    static auto* const mutex = new std::recursive_mutex;
    return *mutex;
}

LogSeverity toSeverity(OrtLoggingLevel level) {
    switch (level) {
        case ORT_LOGGING_LEVEL_VERBOSE:
            return LogSeverity::Verbose;
        case ORT_LOGGING_LEVEL_INFO:
            return LogSeverity::Info;
        case ORT_LOGGING_LEVEL_WARNING:
            return LogSeverity::Warning;
        case ORT_LOGGING_LEVEL_FATAL:
            return LogSeverity::Fatal;
        default:
            return LogSeverity::Error;
    }
}

}  // namespace

void Log::write(LogSeverity severity, const std::string& message) const noexcept {
    try {
        const std::string text = prefix_ + message;
        const std::lock_guard<std::recursive_mutex> lock(sinks());
        Kit::writeLog(sink_, severity, text);
    } catch (...) {  // NOLINT(bugprone-empty-catch): see the header
    }
}

void Log::writeEngineLine(void* log, OrtLoggingLevel level, const char* /*category*/, const char* /*id*/,
                          const char* /*location*/, const char* message) {
    const Log* const to = log != nullptr ? static_cast<const Log*>(log) : current;
    try {
        (to != nullptr ? *to : Log()).write(toSeverity(level), std::string("engine: ") + message);
    } catch (...) {  // NOLINT(bugprone-empty-catch): no memory for the line
    }
}

LogScope::LogScope(const Log& log) : outer_(current) { current = &log; }
LogScope::~LogScope() { current = outer_; }

}  // namespace TarnoMirelo::OnnxRuntime
