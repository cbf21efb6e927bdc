// A part of a host that is there before sdk-core is loaded, and so outlives the logger.

#include <TarnoMirelo/export.h>

namespace {

struct Late {
    ~Late() {
        if (report != nullptr) report("late");
    }
    void (*report)(const char*) = nullptr;
} late;

}  // namespace

extern "C" MIRELO_EXPORT_SYMBOL void reportAtExit(void (*report)(const char*)) { late.report = report; }
