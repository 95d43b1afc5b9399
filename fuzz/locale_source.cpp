// Locale definitions through the locale compiler's reader and compiler (against the
// ISO-8859-1 charmap). A locale it compiles must load in the library and stand being used.
#include "fuzz/exercise.h"
#include "tools/localedef/compile.h"

#include <filesystem>

NUS_FUZZ_TARGET(locale_source) {
    nus_fuzz::environment();
    static const nus::tools::Charmap *latin1 = [] {
        auto *map = new nus::tools::Charmap;
        if (nus::tools::read_charmap("/usr/share/i18n/charmaps/ISO-8859-1.gz", *map)) {
            delete map;
            return static_cast<nus::tools::Charmap *>(nullptr);
        }
        return map;
    }();
    if (latin1 == nullptr) return 0;
    // copy and include find nothing but the scratch directory's own files: the system's
    // sources are far too large to compile per input.
    static const std::string empty = [] {
        const std::string dir = nus_fuzz::scratch_dir() + "/none";
        std::filesystem::create_directories(dir);
        return dir;
    }();
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::string path = nus_fuzz::write_scratch("fuzz_source", text);
    nus::tools::SourceLocale source;
    if (nus::tools::read_locale_source(path, source, empty)) return 0;

    nus::tools::CompileOptions options;
    options.codeset = "8859-1";
    options.source_name = "fuzz";
    nus::tools::CompileReport report;
    char *buffer = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&buffer, &length);
    if (out == nullptr) std::abort();
    const auto failed = nus::tools::compile_locale(source, *latin1, options, out, report);
    std::fclose(out);
    const std::string object(buffer, length);
    std::free(buffer);
    if (failed) return 0;

    nus_fuzz::write_scratch("compiled.lco", object);
    nu_locale_t h = nullptr;
    const int loaded = nu_lc_load(&h, "compiled.lco", nullptr, nus_fuzz::scratch_dir().c_str());
    NUS_FUZZ_CHECK(loaded == 0);
    nus_fuzz::exercise_locale(h, text.substr(0, 32));
    nu_lc_unload(h);
    return 0;
}
