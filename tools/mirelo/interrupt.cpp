#include "interrupt.h"

#include <csignal>
#include <initializer_list>

namespace TarnoMirelo::Tool {
namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void keepInterrupt(int number) {
    interrupted = 1;
    std::signal(number, SIG_DFL);  // NOLINT(cert-err33-c): there is nothing to do about a failure here
}

}  // namespace

void catchInterrupts() {
    for (const int number : {SIGINT, SIGTERM}) {
        // What was started with the signal ignored, as by nohup, goes on ignoring it.
        if (std::signal(number, keepInterrupt) == SIG_IGN) std::signal(number, SIG_IGN);  // NOLINT(cert-err33-c)
    }
}

void checkInterrupt() {
    if (interrupted != 0) throw Interrupted();
}

}  // namespace TarnoMirelo::Tool
