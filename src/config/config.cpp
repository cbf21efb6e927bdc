#include <TarnoMirelo/config.h>

#include <utility>

namespace TarnoMirelo {

MireloConfig::MireloConfig() = default;

void MireloConfig::SetLogger(const std::shared_ptr<ILogProcessor>& logger) {
    std::shared_ptr<ILogProcessor> other = logger;
    logger_.swap(other);  // the old one is released last: it may own this configuration
}
std::shared_ptr<ILogProcessor> MireloConfig::GetLogger() const { return logger_; }

void MireloConfig::RegisterGetJNIEnvFxn(JNIEnvFunction function) { jniEnvFunction_ = std::move(function); }
const MireloConfig::JNIEnvFunction& MireloConfig::GetRegisteredJNIEnvFxn() const { return jniEnvFunction_; }

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): callers load an object
MireloStatus MireloConfig::load() { return {}; }

}  // namespace TarnoMirelo
