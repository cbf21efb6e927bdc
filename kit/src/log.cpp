#include <TarnoMirelo/kit/log.h>

#include <cstdint>

namespace TarnoMirelo::Kit {

void writeLog(const std::shared_ptr<ILogProcessor>& sink, LogSeverity severity, const std::string& text) noexcept {
    try {
        if (sink == nullptr) {
            if (severity >= LogSeverity::Error) _Report_(false, LogProcessorTarget::None, severity, text);
            return;
        }
        LogEntry entry;
        Logger::GenerateLogEntry(entry, text, LogProcessorTarget::None, severity, static_cast<uint64_t>(-1));
        sink->Process(entry);
    } catch (...) {  // NOLINT(bugprone-empty-catch): see the header
    }
}

}  // namespace TarnoMirelo::Kit
