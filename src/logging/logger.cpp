#include "logging/clock.h"

#include <TarnoMirelo/logging.h>

namespace TarnoMirelo {
namespace {

constexpr int32_t kDeepestReport = 9;
constexpr size_t kRecordedMessages = 17;

// Plain variables: they can still be read when static objects have been destroyed.
bool instanceCreated = false;
bool instanceAlive = false;
bool ownerGone = false;

// Defined before the owner of the instance, and so destroyed after it.
struct OwnerMark {
    ~OwnerMark() { ownerGone = true; }
} ownerMark;

bool isError(const LogEntry& entry) {
    constexpr auto kErrorTargets =
        static_cast<uint16_t>(LogProcessorTarget::ErrorList) | static_cast<uint16_t>(LogProcessorTarget::ErrorDialog);
    return entry.severity >= LogSeverity::Error || (static_cast<uint16_t>(entry.target) & kErrorTargets) != 0;
}

// Never destroyed: static objects may report while the process ends, after a static made here would be gone.
const std::shared_ptr<ILogProcessor>& builtInProcessor() {
    static const auto& processor =
        *new std::shared_ptr<ILogProcessor>(std::make_shared<LogProcessorFormatter<DebugLogFormat>>(
            std::make_shared<LogProcessorOStream>(), DebugLogFormat()));
    return processor;
}

// Counts a report in progress.
class Depth {
 public:
    explicit Depth(int32_t& depth) : depth_(depth) { ++depth_; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;
    ~Depth() { --depth_; }

    bool tooDeep() const { return depth_ > kDeepestReport; }

 private:
    int32_t& depth_;
};

}  // namespace

#if !defined(__clang__) || __clang_major__ >= 15
constinit
#endif
    std::unique_ptr<Logger>
        Logger::sLogger;

Logger::Logger() = default;
Logger::Logger(const Logger& /*other*/) : Logger() {}
Logger& Logger::operator=(const Logger& other) = default;

Logger::~Logger() {
    instanceAlive = false;  // first: the processor may report from its destructor
    processor_.reset();
}

Logger& Logger::GetInstance() { return *CreateInstancePtr(); }

Logger* Logger::CreateInstancePtr() {
    if (sLogger == nullptr) {
        sLogger.reset(new Logger());
        instanceCreated = true;
        instanceAlive = true;
    }
    return sLogger.get();
}

void Logger::SetDefaultLogProcessor(const std::shared_ptr<ILogProcessor>& processor) {
    std::shared_ptr<ILogProcessor> other = processor;
    processor_.swap(other);  // the old one is destroyed last: it may report from its destructor
}

std::shared_ptr<ILogProcessor> Logger::GetLogProcessor() {
    return processor_ != nullptr ? processor_ : builtInProcessor();
}

void Logger::Report(const LogEntry& entry) {
    const Depth depth(reportDepth_);
    if (depth.tooDeep()) return;
    if (isError(entry)) {
        errorMessages_.push_back(entry.message);  // first: if it raises, nothing has changed
        if (errorMessages_.size() > kRecordedMessages) errorMessages_.erase(errorMessages_.begin());
    }
    const std::shared_ptr<ILogProcessor> processor = GetLogProcessor();  // kept alive: Process may replace it
    try {
        processor->Process(entry);
    } catch (...) {  // a failing sink must not fail the caller
    }
}

bool Logger::GenerateLogEntry(LogEntry& entry, const std::string& message, LogProcessorTarget target,
                              LogSeverity severity, uint64_t value) {
    entry.message = message;
    entry.target = target;
    entry.severity = severity;
    entry.value = static_cast<int64_t>(value);
    entry.timestamp = currentTicks();
    return true;
}

uint64_t Logger::GetErrorCount() const { return errorMessages_.size(); }

std::string Logger::GetErrorMessageAt(uint64_t index) const {
    return index < errorMessages_.size() ? errorMessages_[index] : std::string();
}

void Logger::ClearErrorMessages() { errorMessages_.clear(); }

void _Report_(bool direct, LogProcessorTarget target, LogSeverity severity, const std::string& message) {
    const LogEntry entry{message, target, severity, -1, currentTicks()};
    const bool usable = !ownerGone && (!instanceCreated || instanceAlive);
    if (!direct && usable) {
        Logger::CreateInstancePtr()->Report(entry);
        return;
    }
    try {
        LogProcessorOStream().Process(entry);
    } catch (...) {  // as in Report: a host may have set std::cout to throw
    }
}

}  // namespace TarnoMirelo
