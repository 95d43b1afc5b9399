// Reading numbers by a format: random formats on random text (every target a slot wide enough
// for any of the types a conversion stores), and random single conversions whose
// formatter output must read back to the value formatted.
#include "fuzz/fuzz.h"

#include <algorithm>

namespace {

using nus_fuzz::Exact;
using nus_fuzz::Input;

// One target slot: large and aligned enough for int, short, long or double.
union Slot {
    long l;
    double d;
};

// An integer conversion with random flags, width, precision and length modifier.
std::string integer_format(Input &in, char *length, char *conversion) {
    std::string format = "%";
    for (int i = 0, n = in.range(0, 3); i < n; ++i) format += " #'+-"[in.byte() % 5];
    if (in.flag()) format += '0';
    if (in.flag()) format += std::to_string(in.range(0, 40));
    if (in.flag()) format += "." + std::to_string(in.range(0, 20));
    *length = "\0hl"[in.byte() % 3];
    if (*length != 0) format += *length;
    *conversion = "diuoxXbq"[in.byte() % 8];
    format += *conversion;
    return format;
}

} // namespace

NUS_FUZZ_TARGET(pnum) {
    static const char *const specs[] = {"de_de.8859-1", "en_us.utf8", "ja_jp.sjis",
                                        "fr_fr.utf8"};
    Input in(data, size);
    nu_locale_t h = nus_fuzz::locale(specs[in.byte() % 4]);
    if (h == nullptr) return 0;
    if (in.flag()) {
        std::string format = in.piece();
        format.erase(std::remove(format.begin(), format.end(), '\0'), format.end());
        const std::string text = in.rest();
        Exact input = nus_fuzz::terminated(text, 4);
        Slot v[8] = {};
        int converted = -1;
        // At most eight stores: a format with more conversions stops at the ninth, whose
        // target is null.
        if (std::count(format.begin(), format.end(), '%') > 8) return 0;
        char *end = nu_mbspnum(h, input.chars(), &converted, format.c_str(), &v[0], &v[1],
                               &v[2], &v[3], &v[4], &v[5], &v[6], &v[7]);
        NUS_FUZZ_CHECK(end == nullptr || (end >= input.chars() &&
                                          end <= input.chars() + text.size() + 4));
        NUS_FUZZ_CHECK(converted >= 0 && converted <= 8);
        return 0;
    }
    // Round trip of one integer conversion.
    char length, conversion;
    const std::string format = integer_format(in, &length, &conversion);
    const auto value = static_cast<int32_t>(in.u32());
    char out[256];
    const int n = length == 'l' ? nu_mbsfnum(h, out, sizeof out, format.c_str(), long{value})
                                : nu_mbsfnum(h, out, sizeof out, format.c_str(), int{value});
    if (n < 0) return 0;
    Slot v{};
    int converted = -1;
    char *end = nu_mbspnum(h, out, &converted, format.c_str(), &v);
    NUS_FUZZ_CHECK(end == out + n);
    NUS_FUZZ_CHECK(converted == 1);
    long got, want;
    if (length == 'h') {
        short s;
        std::memcpy(&s, &v, sizeof s);
        got = conversion == 'u' ? static_cast<unsigned short>(s) : s;
        want = conversion == 'u' ? static_cast<unsigned short>(value) : static_cast<short>(value);
    } else if (length == 'l') {
        got = v.l;
        want = conversion == 'u' ? static_cast<long>(static_cast<uint32_t>(value)) : value;
    } else {
        int i;
        std::memcpy(&i, &v, sizeof i);
        got = conversion == 'u' ? static_cast<long>(static_cast<unsigned>(i)) : i;
        want = conversion == 'u' ? static_cast<long>(static_cast<uint32_t>(value)) : value;
    }
    NUS_FUZZ_CHECK(got == want);
    return 0;
}
