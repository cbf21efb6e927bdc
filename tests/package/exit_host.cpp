// Uses the library while the process ends: exit_host <plug-in> <the plug-in's function to call before>

#include <cstdio>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

extern "C" void reportAtExit(void (*report)(const char*));

namespace {

template <typename Function>
Function* find(const char* library, const char* name) {
#if defined(_WIN32)
    return reinterpret_cast<Function*>(GetProcAddress(LoadLibraryA(library), name));
#else
    return reinterpret_cast<Function*>(dlsym(dlopen(library, RTLD_NOW), name));
#endif
}

}  // namespace

int main(int /*argc*/, char** argv) {
    auto* const report = find<void(const char*)>(argv[1], "report");
    auto* const prepare = find<void()>(argv[1], argv[2]);
    if (report == nullptr || prepare == nullptr) return std::puts("no plug-in");
    reportAtExit(report);
    prepare();
    return 0;
}
