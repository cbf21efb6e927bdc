#pragma once

/// @file
/// What a host hands to backends at their construction.

#include <TarnoMirelo/export.h>
#include <TarnoMirelo/status.h>

#include <functional>
#include <memory>

namespace TarnoMirelo {

class ILogProcessor;

/// Holds a log sink and a callback for whoever needs them, chiefly backends; this library reads neither. To have the
/// process-wide logger use a sink, call `Logger::SetDefaultLogProcessor`.
///
/// Fill it before it is shared between threads; reading it from several at once is safe while nobody changes it.
class MIRELO_API MireloConfig {
 public:
    /// The host's Java Native Interface environment; host and backends define it.
    struct JNICapture;
    /// Gives the environment, or none: the host supplies it, backends call it.
    using JNIEnvFunction = std::function<std::shared_ptr<JNICapture>()>;

    /// No sink, no callback.
    MireloConfig();

    /// Replaces the sink.
    /// @param logger  shared with the configuration, in place of the one before; may be empty
    void SetLogger(const std::shared_ptr<ILogProcessor>& logger);
    /// The sink, shared with the configuration; empty when there is none.
    std::shared_ptr<ILogProcessor> GetLogger() const;

    /// Replaces the callback; an empty one removes it.
    void RegisterGetJNIEnvFxn(JNIEnvFunction function);
    /// The callback, empty when there is none. Valid until the next registration or the configuration's end.
    const JNIEnvFunction& GetRegisteredJNIEnvFxn() const;

    /// There is nowhere to read a configuration from: always `UNKNOWN_ERROR` with an empty description.
    MireloStatus load();

 private:
    std::shared_ptr<ILogProcessor> logger_;
    JNIEnvFunction jniEnvFunction_;
};

}  // namespace TarnoMirelo
