// Character map object files: read from a file of the fuzzer's bytes; a map that loads then
// turns a text of the fuzzer's into symbols and reads symbols back, at exact output sizes.
#include "fuzz/fuzz.h"

#include <algorithm>

NUS_FUZZ_TARGET(cm_file) {
    nus_fuzz::environment();
    nus_fuzz::Input in(data, size);
    const int out_size = in.range(0, 200);
    const std::string sample = in.piece();
    const std::string symbols = in.piece();
    nus_fuzz::write_scratch("e123.cmo", in.rest());
    nu_locale_t h = nus_fuzz::null_handle();
    nu_cm_t cm = nullptr;
    if (nu_cm_load(h, &cm, 0xe123, nus_fuzz::scratch_dir().c_str()) != 0) {
        NUS_FUZZ_CHECK(cm == nullptr);
        return 0;
    }
    int min = 0, max = 0;
    NUS_FUZZ_CHECK(nu_cm_info(cm, &min, &max) > 0 && min >= 1 && min <= max && max <= 4);
    nus_fuzz::Exact out(static_cast<size_t>(out_size));
    // Counted, then up to the terminator.
    nus_fuzz::Exact text(sample);
    int n = nu_mbstosyms(h, cm, out.chars(), out_size, text.chars(),
                         static_cast<int>(sample.size()));
    if (n >= 0) NUS_FUZZ_CHECK(n < out_size && out.chars()[n] == '\0');
    nus_fuzz::Exact terminated = nus_fuzz::terminated(sample, 4);
    n = nu_mbstosyms(h, cm, out.chars(), out_size, terminated.chars(), -1);
    if (n >= 0) NUS_FUZZ_CHECK(n < out_size);
    std::string z = symbols;
    z.erase(std::remove(z.begin(), z.end(), '\0'), z.end());
    nus_fuzz::Exact syms = nus_fuzz::terminated(z, 1);
    n = nu_symstombs(h, cm, out.chars(), out_size, syms.chars());
    if (n >= 0) NUS_FUZZ_CHECK(n + min <= out_size);
    nu_cm_unload(cm);
    return 0;
}
