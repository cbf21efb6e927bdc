// Reports while the process ends, before and after the logger's end: exit_host <plug-in> <installed|built-in>

#include <cstdio>
#include <dlfcn.h>
#include <string>

namespace {

void (*report)(const char*) = nullptr;

// Outlives the logger: it was made before sdk-core was loaded.
struct Late {
    ~Late() { report("late"); }
} late;

template <typename Function>
Function* find(void* plugin, const char* name) {
    return reinterpret_cast<Function*>(dlsym(plugin, name));
}

}  // namespace

int main(int /*argc*/, char** argv) {
    void* const plugin = dlopen(argv[1], RTLD_NOW);
    if (plugin == nullptr) return std::puts(dlerror());
    report = find<void(const char*)>(plugin, "report");
    if (argv[2] == std::string("installed")) find<void()>(plugin, "install")();
    return 0;
}
