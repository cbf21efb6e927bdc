#include "files/platform.h"
#include "logging/clock.h"

#include <TarnoMirelo/logging.h>

#include <charconv>
#include <cstring>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

constexpr size_t kRuleWidth = 60;
constexpr size_t kHeaderRoom = 47;  // of a rule's width, for title and value
constexpr size_t kLongText = 36;    // a header's text from here on ends the line

constexpr size_t kFormatRoom = 48;  // for what a format adds to a message

constexpr int64_t kTicksPerHour = 36'000'000'000;
constexpr int64_t kTicksPerMinute = 600'000'000;
constexpr int64_t kTicksPerSecond = 10'000'000;
constexpr int64_t kTicksPerMillisecond = 10'000;

void appendNumber(std::string& text, int64_t number, ptrdiff_t leastDigits = 1) {
    char digits[20];  // of any number
    const char* const end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
    if (end - digits < leastDigits) text += '0';
    text.append(digits, static_cast<size_t>(end - digits));
}

}  // namespace

ILogProcessor::ILogProcessor() = default;
ILogProcessor::~ILogProcessor() = default;

LogProcessorOStream::LogProcessorOStream() : LogProcessorOStream(std::cout) {}
LogProcessorOStream::LogProcessorOStream(std::ostream& stream) : stream_(&stream) {}
LogProcessorOStream::~LogProcessorOStream() = default;

void LogProcessorOStream::Process(const LogEntry& entry) { *stream_ << entry.message.c_str() << std::endl; }

LogProcessorFileSystem::LogProcessorFileSystem(const std::string& directory, const std::string& fileName, bool disabled)
    : disabled_(disabled) {
    Open(directory + "/" + fileName);
}

LogProcessorFileSystem::~LogProcessorFileSystem() = default;

void LogProcessorFileSystem::Process(const LogEntry& entry) {
    if (!file_.is_open() || !file_.good()) return;
    const char* const text = entry.message.c_str();  // up to its first NUL
    const auto length = static_cast<std::streamsize>(std::strlen(text));
    std::filebuf& buffer = *file_.rdbuf();  // the stream would check its state at each of the three
    const bool written = buffer.sputn(text, length) == length && buffer.sputc('\n') == '\n' && buffer.pubsync() == 0;
    if (!written) file_.setstate(std::ios::badbit);
}

bool LogProcessorFileSystem::Open(const std::string& path) {
    Close();
    if (disabled_) return false;
    try {
        file_ = Platform::openToWrite(path.c_str(), Platform::WriteMode::Continue);
        if (!file_.is_open()) file_ = Platform::openToWrite(path.c_str(), Platform::WriteMode::Truncate);
    } catch (const std::range_error&) {
        return false;  // not UTF-8: as without a file
    }
    WriteSeparator();
    return file_.is_open();
}

bool LogProcessorFileSystem::Close() {
    file_.close();
    return true;
}

void LogProcessorFileSystem::WriteSeparator() {
    if (!file_.is_open()) return;
    if (file_.tellp() != std::ofstream::pos_type(0)) file_ << "\n\n\n";
    const std::string rule(kRuleWidth, '=');
    file_ << rule << '\n' << rule << std::endl;
}

void LogProcessorFileSystem::WriteHeader(const std::string& title, const std::string& value) {
    writeHeader(title, value, value.size() < kLongText);
}

void LogProcessorFileSystem::WriteHeader(const std::string& title, int32_t value) {
    writeHeader(title, std::to_string(value), true);
}

void LogProcessorFileSystem::writeHeader(const std::string& title, const std::string& value, bool closed) {
    if (!file_.is_open()) return;
    const size_t used = title.size() + value.size();
    file_ << "===== " << title << ": " << value;
    if (closed) file_ << std::string(used < kHeaderRoom ? kHeaderRoom - used : 0, ' ') << "=====";
    file_ << std::endl;
}

LogProcessorContainer::LogProcessorContainer() = default;
LogProcessorContainer::~LogProcessorContainer() = default;

void LogProcessorContainer::Process(const LogEntry& entry) {
    // By index and with a reference of its own: Process may add a processor, whose first entry is the next one.
    // NOLINTNEXTLINE(modernize-loop-convert)
    for (size_t i = 0, count = processors_.size(); i < count; ++i) {
        const std::shared_ptr<ILogProcessor> processor = processors_[i];
        processor->Process(entry);
    }
}

void LogProcessorContainer::AddProcessor(std::shared_ptr<ILogProcessor> processor) {
    if (processor != nullptr) processors_.push_back(std::move(processor));
}

uint64_t LogProcessorContainer::GetProcessorCount() const { return processors_.size(); }

DebugLogFormat::DebugLogFormat() : DebugLogFormat(currentTicks()) {}
DebugLogFormat::DebugLogFormat(int64_t startTime) : startTime_(startTime) {}

bool DebugLogFormat::Format(LogEntry& out, const LogEntry& in) const {
    // Modulo 2^64: any two times have a difference.
    const auto elapsed = static_cast<int64_t>(static_cast<uint64_t>(in.timestamp) - static_cast<uint64_t>(startTime_));
    const char* const text = in.message.c_str();  // up to its first NUL
    std::string message;
    message.reserve(kFormatRoom + in.message.size());
    message += '(';
    appendNumber(message, elapsed / kTicksPerHour, 2);
    message += ':';
    appendNumber(message, elapsed % kTicksPerHour / kTicksPerMinute, 2);
    message += ':';
    appendNumber(message, elapsed % kTicksPerMinute / kTicksPerSecond, 2);
    message += ':';
    appendNumber(message, elapsed % kTicksPerSecond / kTicksPerMillisecond, 2);
    message.append(") ").append(text).append(1, '[');
    appendNumber(message, in.value);
    message += ']';
    out.target = in.target;
    out.severity = in.severity;
    out.value = in.value;
    out.timestamp = in.timestamp;
    out.message = std::move(message);
    return true;
}

template class MIRELO_EXPORT_DEFINED_TEMPLATE LogProcessorFormatter<DebugLogFormat>;

}  // namespace TarnoMirelo
