// The TIME section reader: the fuzzer's bytes as a TIME section, read into a handle that
// shares the CTYPE of a real locale, then initialised (wide twins, the time parser's caches)
// and used: every item in both forms, the record's counts and era dates, the caches searched
// with a piece of the input.
#include "fuzz/fuzz.h"

#include "frame/handle.h"
#include "time/category.h"

namespace {

void probe_caches(nu_locale_t h, const std::string &probe, int zeros) {
    const nus::TimeFields &t = h->time;
    nus_fuzz::Exact text = nus_fuzz::terminated(probe, zeros);
    std::vector<nu_wchar> wide(probe.size() + 1, 0);
    for (size_t i = 0; i < probe.size(); ++i) wide[i] = static_cast<unsigned char>(probe[i]);
    for (int k = 0; k < nus::kTimeCaches; ++k) {
        int len = -1;
        uint32_t value = 0;
        if (_nu_validate_mb_string(h, t.mb_cache[k], text.get(), &len, &value) == 0)
            NUS_FUZZ_CHECK(len >= 0 && static_cast<size_t>(len) <= probe.size());
        if (_nu_validate_wc_string(h, t.wc_cache[k], wide.data(), &len, &value) == 0)
            NUS_FUZZ_CHECK(len >= 0 && static_cast<size_t>(len) <= probe.size());
    }
}

} // namespace

NUS_FUZZ_TARGET(time_section) {
    static const char *const specs[] = {"de_de.8859-1", "ja_jp.sjis", "ja_jp.utf8",
                                        "ru_ru.8859-5"};
    nus_fuzz::Input in(data, size);
    nu_locale_t base = nus_fuzz::locale(specs[in.byte() % 4]);
    if (base == nullptr) return 0;
    const std::string probe = in.piece();
    std::string section = in.rest() + "\n";   // fmemopen takes no empty buffer
    nu_locale_t h = nullptr;
    if (nu_create_null_locale_4(&h) != 0) return 0;
    if (nu_copy_cat(h, base, NU_CTYPE) != 0 || *_nu_ext_errno(h) != 0) {
        nu_free_nonshared_loc(h);
        return 0;
    }
    FILE *f = fmemopen(section.data(), section.size(), "r");
    if (f == nullptr) std::abort();
    int error = 0;
    const int read = _nu_read_time(f, h, &error);
    std::fclose(f);
    NUS_FUZZ_CHECK((read == 0) == (error == 0));
    NUS_FUZZ_CHECK(read == 0 || error == NU_EBADFILE);
    if (read == 0 && nus::init_time_info(h) == 1) {
        const nus::TimeFields &t = h->time;
        NUS_FUZZ_CHECK(t.month_count >= 12 && t.month_count <= nus::kMonthSlots);
        NUS_FUZZ_CHECK(t.alt_digit_count >= 0 && t.alt_digit_count <= nus::kAltDigitSlots);
        for (int i = 0; i < t.era_count; ++i) {
            const nus::EraSegment &e = t.eras[i];
            NUS_FUZZ_CHECK(e.direction == 1 || e.direction == -1);
            NUS_FUZZ_CHECK(e.name.mb != nullptr && e.name.wide != nullptr);
        }
        for (int item = 0; item <= 74; ++item) {
            const char *text = nu_nl_langinfo(h, item);
            const nu_wchar *wide = nu_wc_nl_langinfo(h, item);
            NUS_FUZZ_CHECK((text == nullptr) == (wide == nullptr));
            if (text != nullptr) NUS_FUZZ_CHECK(std::strlen(text) <= 4096);
        }
        probe_caches(h, probe, nu_mb_loc_min(h));
    }
    nu_free_nonshared_loc(h);
    return 0;
}
