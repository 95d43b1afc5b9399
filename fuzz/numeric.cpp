// Numeric and monetary formatting and parsing: random format strings with arguments of the
// types their conversions take, random output sizes (the output is a heap block of exactly
// that size), and random text for the parsers.
#include "fuzz/fuzz.h"

#include <algorithm>

namespace {

using nus_fuzz::Exact;
using nus_fuzz::Input;

// An argument of nu_mbsfnum: a word (int, long or pointer; one slot of the variable argument
// list on both word sizes) or a double.
struct Arg {
    bool is_double;
    long word;
    double real;
};

constexpr size_t kMaxArgs = 6;

template <typename... A>
int call_fnum(nu_locale_t h, char *out, int size, const char *format, const Arg *args,
              size_t left, A... a) {
    if (left == 0) return nu_mbsfnum(h, out, size, format, a..., format, format);
    if constexpr (sizeof...(A) < kMaxArgs) {
        if (args->is_double) return call_fnum(h, out, size, format, args + 1, left - 1, a..., args->real);
        return call_fnum(h, out, size, format, args + 1, left - 1, a..., args->word);
    } else {
        std::abort();
    }
}

double real_of(Input &in) {
    switch (in.byte() % 8) {
    case 0: return 0.0;
    case 1: return -0.0;
    case 2: return 1e300 * 1e300;   // infinity
    case 3: return -(1e300 * 1e300);
    case 4: return __builtin_nan("");
    case 5: return static_cast<double>(static_cast<int32_t>(in.u32())) / 100.0;
    default: {
        uint64_t bits = static_cast<uint64_t>(in.u32()) | static_cast<uint64_t>(in.u32()) << 32;
        double d;
        std::memcpy(&d, &bits, sizeof d);
        return d;
    }
    }
}

// Builds a format of up to three conversion specifications and literal text, and the
// arguments its conversions take, in order. Strings live in `keep`.
std::string build_format(Input &in, std::vector<Arg> &args, std::vector<std::string> &keep,
                         std::vector<std::vector<nu_wchar>> &wide_keep) {
    std::string format;
    const int specs = in.range(0, 3);
    for (int s = 0; s <= specs; ++s) {
        for (char c : in.bytes(in.range(0, 6))) {
            if (c == '\0') continue;
            format += c;
            if (c == '%') format += '%';
        }
        if (s == specs) break;
        format += '%';
        const uint8_t shape = in.byte();
        for (int i = 0, n = shape & 3; i < n; ++i) format += " #'+-"[in.byte() % 5];
        if (shape & 4) format += '0';
        auto star = [&] {
            const long v = in.flag() ? static_cast<int32_t>(in.u32()) : in.range(-50, 200);
            args.push_back({false, v, 0});
        };
        switch ((shape >> 3) & 3) {
        case 1: format += std::to_string(in.range(0, 300)); break;
        case 2: format += '*'; star(); break;
        default: break;
        }
        switch ((shape >> 5) & 3) {
        case 1: format += "." + std::to_string(in.range(0, 60)); break;
        case 2: format += ".*"; star(); break;
        case 3: format += '.'; break;
        default: break;
        }
        const uint8_t length = in.byte() % 4;
        const bool is_long = length == 1;
        if (length == 1) format += 'l';
        if (length == 2) format += 'h';
        const char conversion = "diuoxXbqeEfgGcsdsZ"[in.byte() % 18];
        format += conversion;
        switch (conversion) {
        case 'e': case 'E': case 'f': case 'g': case 'G':
            args.push_back({true, 0, real_of(in)});
            break;
        case 'c':
            if (is_long) {
                args.push_back({false, static_cast<long>(in.u32()), 0});
            } else {
                keep.push_back(in.bytes(4) + std::string(4, '\0'));
                args.push_back({false, reinterpret_cast<long>(keep.back().data()), 0});
            }
            break;
        case 's':
            if (is_long) {
                std::vector<nu_wchar> ws;
                for (int i = in.range(0, 8); i > 0; --i) ws.push_back(in.u32() % 0x110000);
                ws.push_back(0);
                wide_keep.push_back(std::move(ws));
                args.push_back({false, reinterpret_cast<long>(wide_keep.back().data()), 0});
            } else {
                std::string text = in.piece();
                text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
                keep.push_back(text);
                args.push_back({false, reinterpret_cast<long>(keep.back().c_str()), 0});
            }
            break;
        case 'Z':
            break;   // unknown: the call fails there and takes no argument
        default:
            args.push_back({false, static_cast<long>(static_cast<int32_t>(in.u32())), 0});
            break;
        }
    }
    return format;
}

// A text of the fuzzer's bytes with its terminator, the parsers' input.
void check_end(const char *start, size_t length, const char *end) {
    NUS_FUZZ_CHECK(end == nullptr || (end >= start && end <= start + length));
}

} // namespace

NUS_FUZZ_TARGET(numeric) {
    static const char *const specs[] = {"de_de.8859-1", "en_us.utf8", "ja_jp.sjis",
                                        "fr_fr.utf8"};
    Input in(data, size);
    nu_locale_t h = nus_fuzz::locale(specs[in.byte() % 4]);
    if (h == nullptr) return 0;
    const int out_size = in.range(0, 128);
    const uint8_t what = in.byte() % 4;
    Exact out(static_cast<size_t>(out_size));

    if (what == 0) {
        std::vector<Arg> args;
        std::vector<std::string> keep;
        std::vector<std::vector<nu_wchar>> wide_keep;
        keep.reserve(8);
        wide_keep.reserve(8);
        const std::string format = build_format(in, args, keep, wide_keep);
        if (args.size() > kMaxArgs) return 0;
        const int n = call_fnum(h, out.chars(), out_size, format.c_str(), args.data(), args.size());
        if (n >= 0) {
            NUS_FUZZ_CHECK(n < out_size);
            NUS_FUZZ_CHECK(std::memchr(out.get(), 0, static_cast<size_t>(out_size)) != nullptr);
        }
        return 0;
    }
    if (what == 1) {
        // Money: every conversion of the format takes one double; at most eight of them.
        std::string format = in.piece();
        format.erase(std::remove(format.begin(), format.end(), '\0'), format.end());
        if (std::count(format.begin(), format.end(), '%') > 8) return 0;
        double v[8];
        for (double &d : v) d = real_of(in);
        const int n = nu_mbsfmon(h, out.chars(), out_size, format.c_str(), v[0], v[1], v[2],
                                 v[3], v[4], v[5], v[6], v[7]);
        if (n >= 0) {
            NUS_FUZZ_CHECK(n < out_size);
            NUS_FUZZ_CHECK(std::memchr(out.get(), 0, static_cast<size_t>(out_size)) != nullptr);
        }
        return 0;
    }
    if (what == 2) {
        std::string format = in.piece();
        format.erase(std::remove(format.begin(), format.end(), '\0'), format.end());
        if (std::count(format.begin(), format.end(), '%') > 8) return 0;
        const std::string text = in.rest();
        Exact input = nus_fuzz::terminated(text, 4);
        double v[8] = {};
        char *end = nu_mbspmon(h, input.chars(), format.c_str(), &v[0], &v[1], &v[2], &v[3],
                               &v[4], &v[5], &v[6], &v[7]);
        check_end(input.chars(), text.size() + 4, end);
        return 0;
    }
    // Text to numbers and back.
    const int base = in.range(0, 37);
    const int grouping = in.byte() % 3;
    const long value = static_cast<int32_t>(in.u32());
    const std::string text = in.rest();
    Exact input = nus_fuzz::terminated(text, 4);
    char *end = nullptr;
    (void)nu_mbstol(h, input.chars(), &end, base, grouping);
    check_end(input.chars(), text.size() + 4, end);
    end = nullptr;
    (void)nu_mbstoul(h, input.chars(), &end, base, grouping);
    check_end(input.chars(), text.size() + 4, end);
    end = nullptr;
    (void)nu_mbstod(h, input.chars(), &end, grouping);
    check_end(input.chars(), text.size() + 4, end);
    const int n = nu_ltombs(h, out.chars(), out_size, value, base, grouping);
    if (n > 0) NUS_FUZZ_CHECK(n < out_size);
    (void)nu_ultombs(h, out.chars(), out_size, static_cast<unsigned long>(value), base, grouping);
    return 0;
}
