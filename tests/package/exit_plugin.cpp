// A part of a host that is loaded late, as plug-ins are, and sdk-core with it.

#include <TarnoMirelo/logging.h>
#include <TarnoMirelo/operators.h>

#include <cstdio>

using namespace TarnoMirelo;

namespace {

// Made after sdk-core was loaded, and so destroyed before its logger; and before the registry, which it asks for.
struct Early {
    Early() { CustomOperators::getOperatorRegistry(); }
    ~Early() {
        CustomOperators::finalizeOperatorRegistry();
        const bool known = CustomOperators::getOperatorRegistry().createOperator("of the plug-in") != nullptr;
        _Report_(false, LogProcessorTarget::None, LogSeverity::Error, known ? "early, with an operator" : "early");
    }
} early;

struct HeldByFactory {
    ~HeldByFactory() { std::puts("factory destroyed"); }
};

class Processor : public ILogProcessor {
 public:
    ~Processor() override { _Report_(false, LogProcessorTarget::None, LogSeverity::Error, "processor"); }
    void Process(const LogEntry& entry) override { std::printf("<%s>\n", entry.message.c_str()); }
};

}  // namespace

extern "C" MIRELO_EXPORT_SYMBOL void report(const char* message) {
    _Report_(false, LogProcessorTarget::None, LogSeverity::Error, message);
}

// The built-in processor is then older than a report at the exit.
extern "C" MIRELO_EXPORT_SYMBOL void useBuiltInProcessor() { report("first"); }

extern "C" MIRELO_EXPORT_SYMBOL void registerOperator() {
    CustomOperators::registerCustomOperator("of the plug-in", [held = std::make_shared<HeldByFactory>()] {
        return std::make_unique<CustomOperators::Operator>();
    });
}

extern "C" MIRELO_EXPORT_SYMBOL void installProcessor() {
    Logger::GetInstance().SetDefaultLogProcessor(std::make_shared<Processor>());
}
