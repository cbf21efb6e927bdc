#include "processor.h"

#include <cpuid.h>

namespace TarnoMirelo::OnnxRuntime {

std::string processorFeatures() {
    std::string text;
    const auto add = [&](unsigned int number) { text += " " + std::to_string(number); };
    unsigned int eax = 0;
    unsigned int ebx = 0;
    unsigned int ecx = 0;
    unsigned int edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return text;
    add(eax);  // the model; what follows there is the number of the core
    add(ecx);
    add(edx);
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return text;
    add(ebx);
    add(ecx);
    add(edx);
    return text;
}

}  // namespace TarnoMirelo::OnnxRuntime
