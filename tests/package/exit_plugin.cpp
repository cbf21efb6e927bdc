// A part of a host that is loaded late, as plug-ins are, and sdk-core with it.

#include <TarnoMirelo/logging.h>

#include <cstdio>

using namespace TarnoMirelo;

namespace {

// Gone before the logger is: it was made after sdk-core was loaded.
struct Early {
    ~Early() { _Report_(false, LogProcessorTarget::None, LogSeverity::Error, "early"); }
} early;

class Processor : public ILogProcessor {
 public:
    ~Processor() override { _Report_(false, LogProcessorTarget::None, LogSeverity::Error, "processor"); }
    void Process(const LogEntry& entry) override { std::printf("<%s>\n", entry.message.c_str()); }
};

}  // namespace

extern "C" MIRELO_EXPORT_SYMBOL void report(const char* message) {
    _Report_(false, LogProcessorTarget::None, LogSeverity::Error, message);
}

extern "C" MIRELO_EXPORT_SYMBOL void install() {
    Logger::GetInstance().SetDefaultLogProcessor(std::make_shared<Processor>());
}
