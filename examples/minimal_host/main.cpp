// minimal_host PLUGIN LOG: loads the reader plug-in, reads the log and
// prints its header, the way a profile-viewing host drives a reader.
#include <dlfcn.h>

#include <cstdio>
#include <string>

#include <VekChrometraceProfilingReader.h>

using namespace vek::profiling;
using Reader = IVekProfileLogReader<VisibilityLevel>;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: minimal_host PLUGIN LOG\n");
        return 2;
    }
    void* plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    auto create = reinterpret_cast<Reader* (*)(const std::string&, VisibilityLevel)>(
        dlsym(plugin, "createReader"));
    auto destroy = reinterpret_cast<void (*)(Reader*)>(dlsym(plugin, "deleteReader"));
    if (create == nullptr || destroy == nullptr) return 1;

    Reader* reader = create(argv[2], VisibilityLevel(127));
    // loadLog is slot 4, right after the interface's operations.
    auto* loadable = static_cast<IVekLoadableProfileLogReader<VisibilityLevel>*>(reader);
    const bool loaded = loadable->loadLog(false);
    if (loaded) std::fputs(reader->printHeader().c_str(), stdout);
    destroy(reader);
    dlclose(plugin);
    return loaded ? 0 : 1;
}
