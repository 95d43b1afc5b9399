// The dynamic loader's four calls, through which the companion bridge (and nothing else)
// loads a library at run time. The C library carries them: libnus.so needs nothing more.
#include "frame/frame.h"

#include <dlfcn.h>

NU_EXPORT void *tsrn_dlopen(const char *file, int mode) {
    if (file == nullptr) return nullptr;   // never the program itself
    return dlopen(file, mode);
}

NU_EXPORT void *tsrn_dlsym(void *library, const char *name) {
    if (library == nullptr || name == nullptr) return nullptr;
    return dlsym(library, name);
}

NU_EXPORT int tsrn_dlclose(void *library) {
    if (library == nullptr) return -1;
    return dlclose(library);
}

NU_EXPORT char *tsrn_dlerror(void) { return dlerror(); }
