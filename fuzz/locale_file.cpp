// Locale object files: loaded whole (as the default locale) and category by category; what
// loads is then used.
#include "fuzz/exercise.h"

NUS_FUZZ_TARGET(locale_file) {
    nus_fuzz::environment();
    const std::string text(reinterpret_cast<const char *>(data), size);
    nus_fuzz::write_scratch("default.lco", text);
    const std::string dir = nus_fuzz::scratch_dir();

    nu_locale_t whole = nullptr;
    const int read_whole = nu_createlocale2_4(&whole, (dir + "/").c_str());
    // A failed load may leave the error slot at 0: a COLLATE section whose method line is
    // unknown fails without a code, as it always has.
    if (read_whole == 0) nus_fuzz::exercise_locale(whole, text);
    nu_lc_unload(whole);

    nu_locale_t by_category = nullptr;
    const int read_each = nu_lc_load(&by_category, "default.lco", nullptr, dir.c_str());
    if (read_each == 0) nus_fuzz::exercise_locale(by_category, text);
    nu_lc_unload(by_category);
    return 0;
}
