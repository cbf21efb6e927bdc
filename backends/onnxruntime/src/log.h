#pragma once

#include <TarnoMirelo/config.h>
#include <TarnoMirelo/logging.h>

#include <memory>
#include <onnxruntime_c_api.h>
#include <string>

namespace TarnoMirelo::OnnxRuntime {

/// Where a model reports. Its operations, and so those of the engine's threads, may overlap: sinks are called under one
/// lock for all models, which a sink may enter again.
class Log {
 public:
    /// Of what belongs to no model.
    Log() = default;
    Log(const MireloConfig& config, const std::string& modelName)
        : sink_(config.GetLogger()), prefix_("ONNX Runtime model \"" + modelName + "\": ") {}

    /// Raises nothing: a failing sink must not fail the caller. Without a sink only failures are reported: hosts that
    /// asked for no log get none on their standard output.
    void write(LogSeverity severity, const std::string& message) const noexcept;

    /// The least severe of the engine's lines that anybody reads.
    OrtLoggingLevel engineLevel() const {
        return sink_ == nullptr ? ORT_LOGGING_LEVEL_ERROR : ORT_LOGGING_LEVEL_WARNING;
    }

    /// The engine's logging function.
    /// @param log  a `Log`; null for that of this thread's `LogScope`
    static void ORT_API_CALL writeEngineLine(void* log, OrtLoggingLevel level, const char* category, const char* id,
                                             const char* location, const char* message);

 private:
    std::shared_ptr<ILogProcessor> sink_;
    std::string prefix_ = "ONNX Runtime: ";
};

/// While it lives, what the engine logs on this thread for no model in particular goes to this log.
class LogScope {
 public:
    explicit LogScope(const Log& log);
    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;
    ~LogScope();

 private:
    const Log* outer_;
};

}  // namespace TarnoMirelo::OnnxRuntime
