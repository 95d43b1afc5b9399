// A locale of the generated data tree for the benchmarks, or null when it is missing.
#pragma once

#include "nus.h"

#include <cstdlib>

inline nu_locale_t bench_load(const char *spec) {
    setenv("TESSARONDIR", NUS_DATA_DIR, 1);
    unsetenv("NU_PATH");
    nu_locale_t h = nullptr;
    if (nu_lc_load(&h, spec, nullptr, nullptr) != 0) {
        nu_lc_unload(h);
        return nullptr;
    }
    return h;
}
