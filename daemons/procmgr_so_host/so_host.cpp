/// Runs an application that is a shared object: loads the object and calls its entry
/// `int procmgr_app_main(int argc, char** argv)`, whose first argument is the object's path. What the entry returns is
/// the exit code; the codes below are the host's own.
#include <dlfcn.h>

#include <iostream>

namespace {

constexpr int kExitUsage = 120;
constexpr int kExitNotLoaded = 121;
constexpr int kExitNoEntry = 122;
constexpr const char* kEntryName = "procmgr_app_main";

using AppMain = int (*)(int argc, char** argv);

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "procmgr-so-host: no shared object given; usage: procmgr-so-host OBJECT [ARGUMENT]..."
                  << std::endl;
        return kExitUsage;
    }
    const char* const object = argv[1];
    void* const handle = ::dlopen(object, RTLD_NOW | RTLD_GLOBAL);
    if (handle == nullptr) {
        std::cerr << "procmgr-so-host: cannot load " << object << ": " << ::dlerror() << std::endl;
        return kExitNotLoaded;
    }
    const auto appMain = reinterpret_cast<AppMain>(::dlsym(handle, kEntryName));
    if (appMain == nullptr) {
        std::cerr << "procmgr-so-host: " << object << " has no entry \"" << kEntryName << '"' << std::endl;
        return kExitNoEntry;
    }
    // The object stays loaded: threads that it left behind may still run while the process ends.
    return appMain(argc - 1, argv + 1);
}
