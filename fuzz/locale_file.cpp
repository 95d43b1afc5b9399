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
    if (read_whole == 0) nus_fuzz::exercise_locale(whole, text);
    else NUS_FUZZ_CHECK(whole == nullptr || *_nu_ext_errno(whole) != 0);
    nu_lc_unload(whole);

    nu_locale_t by_category = nullptr;
    const int read_each = nu_lc_load(&by_category, "default.lco", nullptr, dir.c_str());
    if (read_each == 0) nus_fuzz::exercise_locale(by_category, text);
    else NUS_FUZZ_CHECK(by_category == nullptr || *_nu_ext_errno(by_category) != 0);
    nu_lc_unload(by_category);
    return 0;
}
