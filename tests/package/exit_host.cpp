// Reports while the process ends, before and after the logger's end: exit_host <plug-in> <installed|built-in>

#include <cstdio>
#include <string>

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
    if (report == nullptr) return std::puts("no plug-in");
    reportAtExit(report);
    if (argv[2] == std::string("installed")) find<void()>(argv[1], "install")();
    return 0;
}
