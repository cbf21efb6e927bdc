#pragma once

/// @file
/// Log entries, the processors that consume them, and the process-wide logger. For hosts and backends: this library
/// reports its own failures in statuses and exceptions and logs nothing.

#include <TarnoMirelo/export.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace TarnoMirelo {

/// How bad an entry is. The logger records those from `Error` on.
enum class LogSeverity : int32_t {
    Verbose = 0,  ///< details that help to find a fault
    Info = 1,     ///< what happened, as it should
    Warning = 2,  ///< it worked, but not as it was meant
    Error = 3,    ///< an operation failed
    Fatal = 4,    ///< the reporter can't go on
};

/// Where an entry should appear: a set of bits. The logger records those for the error list or dialog. Sinks of the
/// host's own may honour the others; those of this library write every entry.
enum class LogProcessorTarget : uint16_t {
    None = 0,         ///< nowhere in particular
    ErrorList = 1,    ///< in the host's list of errors
    ErrorDialog = 2,  ///< in front of the user
    Console = 4,      ///< on a console
};

/// One report. A plain value.
struct LogEntry {
    std::string message;                                   ///< every sink writes it up to its first NUL
    LogProcessorTarget target = LogProcessorTarget::None;  ///< where it should appear
    LogSeverity severity = LogSeverity::Verbose;           ///< how bad it is
    int64_t value = -1;                                    ///< a number of the reporter's choice; -1 when there is none
    int64_t timestamp = 0;  ///< 100-nanosecond ticks since 1 January 1970 UTC, by the system clock
};

/// A log sink. Processors are held by `std::shared_ptr`. None of those declared here takes a lock: calls on one must
/// not overlap.
class MIRELO_API ILogProcessor {
 public:
    ILogProcessor();
    ILogProcessor(const ILogProcessor&) = delete;
    ILogProcessor& operator=(const ILogProcessor&) = delete;
    virtual ~ILogProcessor();

    /// Consumes an entry, which is borrowed for the call.
    virtual void Process(const LogEntry& entry) = 0;
};

/// Writes each message and a line end to a stream, and flushes it. What a failing stream loses is not reported.
class MIRELO_API LogProcessorOStream : public ILogProcessor {
 public:
    /// Standard output.
    LogProcessorOStream();
    /// @param stream  outlives the processor
    explicit LogProcessorOStream(std::ostream& stream);
    ~LogProcessorOStream() override;

    void Process(const LogEntry& entry) override;

 private:
    std::ostream* stream_;
};

/// Writes each message and a line feed to a file, and flushes it. Other processes may read and write the file at the
/// same time; of two that write, one overwrites the other's lines. Each opening is marked by two rules, after three
/// empty lines where the file has content already. While no file is open, everything written is dropped; no failure is
/// reported but by `Open`.
class MIRELO_API LogProcessorFileSystem : public ILogProcessor {
 public:
    /// Opens the file `directory`/`fileName`, whose path is read as UTF-8.
    /// @param disabled  true: never opens a file
    LogProcessorFileSystem(const std::string& directory, const std::string& fileName, bool disabled);
    /// Closes the file.
    ~LogProcessorFileSystem() override;

    void Process(const LogEntry& entry) override;

    /// Opens a file in place of the one that is open, at its end; creates it where there is none. A file that may be
    /// written but not read is emptied.
    /// @return whether a file is open now
    bool Open(const std::string& path);
    /// Closes the file; entries are dropped until the next `Open`.
    /// @return true
    bool Close();
    /// Two rules of 60 "=", after three empty lines unless the file is empty.
    void WriteSeparator();
    /// One line, 60 characters wide where title and value take at most 47: "===== title: value      =====". A text of
    /// 36 characters or more ends the line.
    void WriteHeader(const std::string& title, const std::string& value);
    /// As the other one with the number in decimal.
    void WriteHeader(const std::string& title, int32_t value);

 private:
    void writeHeader(const std::string& title, const std::string& value, bool closed);

    std::ofstream file_;
    bool disabled_;
};

/// Hands each entry to several processors, in the order in which they were added. What one of them raises passes to the
/// caller at once; the others don't get the entry then.
class MIRELO_API LogProcessorContainer : public ILogProcessor {
 public:
    LogProcessorContainer();
    ~LogProcessorContainer() override;

    void Process(const LogEntry& entry) override;

    /// Adds a processor at the end, also one that is there already; an empty pointer adds nothing.
    void AddProcessor(std::shared_ptr<ILogProcessor> processor);
    /// How many processors were added.
    uint64_t GetProcessorCount() const;

 private:
    std::vector<std::shared_ptr<ILogProcessor>> processors_;
};

/// Writes the time since a start, and the value: "(00:00:11:05) message[-1]" is eleven seconds and five milliseconds
/// after it. Hours count on beyond 24.
class MIRELO_API DebugLogFormat {
 public:
    /// Starts now.
    DebugLogFormat();
    /// Counts from another time.
    /// @param startTime  100-nanosecond ticks since 1 January 1970 UTC
    explicit DebugLogFormat(int64_t startTime);

    /// Fills `out` from `in`.
    /// @return true
    bool Format(LogEntry& out, const LogEntry& in) const;

 private:
    int64_t startTime_;
};

/// Hands each entry to another processor, formatted by a policy: a class with `bool Format(LogEntry& out, const
/// LogEntry& in)`, which answers false when the entry is to be passed on as it is.
template <typename Format>
class LogProcessorFormatter : public ILogProcessor {
 public:
    /// @param inner  with none, entries are dropped
    LogProcessorFormatter(std::shared_ptr<ILogProcessor> inner, Format format);
    ~LogProcessorFormatter() override;

    void Process(const LogEntry& entry) override;

 private:
    Format format_;
    std::shared_ptr<ILogProcessor> inner_;
};

// Outside of the class, where they are not inline: an instantiation exports no inline members from a DLL.

template <typename Format>
LogProcessorFormatter<Format>::LogProcessorFormatter(std::shared_ptr<ILogProcessor> inner, Format format)
    : format_(std::move(format)), inner_(std::move(inner)) {}

template <typename Format>
LogProcessorFormatter<Format>::~LogProcessorFormatter() = default;

template <typename Format>
void LogProcessorFormatter<Format>::Process(const LogEntry& entry) {
    if (inner_ == nullptr) return;
    LogEntry formatted;
    inner_->Process(format_.Format(formatted, entry) ? formatted : entry);
}

extern template class MIRELO_API_TEMPLATE LogProcessorFormatter<DebugLogFormat>;

/// The process-wide logger: records the messages of errors, and hands every entry to one processor.
///
/// Nothing is locked, not even the creation of the instance: calls must not overlap, nor those of `_Report_`. A
/// processor may report again from its `Process`, up to nine reports deep; deeper ones are dropped.
class MIRELO_API Logger {
 public:
    /// The instance, created by the first call. Not to be used once it was destroyed at the process's exit.
    static Logger& GetInstance();

    /// Takes over copies of the other logger's recorded messages, and shares its processor.
    Logger& operator=(const Logger& other);
    ~Logger();

    /// Installs a processor in place of the one that is installed. An empty pointer restores the built-in one, which
    /// writes in the format of `DebugLogFormat` to standard output, counting from its first use.
    void SetDefaultLogProcessor(const std::shared_ptr<ILogProcessor>& processor);
    /// Records the message if the entry is an error (severity `Error` or more, or a target in the error list or
    /// dialog), then has the processor consume the entry. What the processor raises is dropped.
    void Report(const LogEntry& entry);

    /// Fills an entry, with the time of the system clock.
    /// @param value  stored as it is in the signed field
    /// @return true
    static bool GenerateLogEntry(LogEntry& entry, const std::string& message, LogProcessorTarget target,
                                 LogSeverity severity, uint64_t value);

    /// The recorded messages: the last 17 at most.
    uint64_t GetErrorCount() const;
    /// A copy of a recorded message, the oldest at 0; empty from `GetErrorCount` on.
    std::string GetErrorMessageAt(uint64_t index) const;
    /// Forgets the recorded messages. The processor is not told.
    void ClearErrorMessages();

 private:
    Logger();
    Logger(const Logger& other);
    static Logger* CreateInstancePtr();
    std::shared_ptr<ILogProcessor> GetLogProcessor();

    /// @cond  Doxygen would list it, although it is private
    friend MIRELO_API void _Report_(bool direct, LogProcessorTarget target, LogSeverity severity,
                                    const std::string& message);
    /// @endcond

    int32_t reportDepth_ = 0;
    std::vector<std::string> errorMessages_;
    std::shared_ptr<ILogProcessor> processor_;

    static std::unique_ptr<Logger> sLogger;
};

/// Reports a message, with value -1, to the logger. With `direct`, or when the logger was destroyed at the process's
/// exit, the message goes to standard output instead, as it is, and is not recorded; what printing raises is dropped.
/// Static objects may call it from their destructors.
MIRELO_API void _Report_(bool direct, LogProcessorTarget target, LogSeverity severity, const std::string& message);

}  // namespace TarnoMirelo
