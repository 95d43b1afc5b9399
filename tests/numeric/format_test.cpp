// The locale's printf: grouping in both directions, signs, padding, the kept quirks, the
// scanner, and output bounds under bad formats and small buffers.
#include "numeric/numeric_fixture.h"

#include "nus.h"

#include <cmath>
#include <functional>
#include <limits>

namespace {

using nus_test::narrow;
using nus_test::set_numeric;
using nus_test::W;

// nu_mbsfnum into a buffer with a canary after `size` bytes; the text, or "<fail N>".
template <typename... Args>
std::string fmt(nu_locale_t h, int size, const char *format, Args... args) {
    return nus_test::guarded_text(h, size, format, [&](char *out) {
        return nu_mbsfnum(h, out, size, format, args...);
    });
}

template <typename... Args>
std::string fmt(nu_locale_t h, const char *format, Args... args) {
    return fmt(h, 200, format, args...);
}

TEST(NumericFormat, LiteralsAndSizes) {
    NUS_FIXTURE(h);
    EXPECT_EQ(fmt(h, 1, ""), "");
    EXPECT_EQ(fmt(h, 1, "a"), "<fail 14>");
    EXPECT_EQ(fmt(h, 5, "abcd"), "abcd");
    EXPECT_EQ(fmt(h, 4, "abcd"), "<fail 14>");
    EXPECT_EQ(fmt(h, "100%% sure"), "100% sure");
    EXPECT_EQ(fmt(h, 3, "%%%%"), "%%");
    EXPECT_EQ(fmt(h, 2, "%%%%"), "<fail 14>");
    EXPECT_EQ(fmt(h, 0, ""), "<fail 14>");
}

TEST(NumericFormat, GroupingWithTheLocalesSymbols) {
    NUS_FIXTURE(h);
    set_numeric(h, ",", ".", {3});
    EXPECT_EQ(fmt(h, "%'d", -1234567), "-1.234.567");
    EXPECT_EQ(fmt(h, "%'.2f", 1234567.891), "1.234.567,89");
    EXPECT_EQ(fmt(h, "%'d|%'d|%'d", 1, 123, 1000), "1|123|1.000");
    EXPECT_EQ(fmt(h, "%'14.2f|", 1234567.891), "  1.234.567,89|");
    // The exponent's "+" and "-" are the locale's sign strings ("" and "-" here).
    EXPECT_EQ(fmt(h, "%.3e|%.1e", 1234.5, 0.01), "1,234e03|1,0e-02");
    // Counted before rounding: 999.9 shows "1000" ungrouped. Kept for compatibility.
    EXPECT_EQ(fmt(h, "%'.0f", 999.9), "1000");

    // 3;2: the repeating size is smaller than the first.
    set_numeric(h, ".", ",", {3, 2});
    EXPECT_EQ(fmt(h, "%'d", 12345), "12,345");
    EXPECT_EQ(fmt(h, "%'d", 123456), "1,23,456");
    EXPECT_EQ(fmt(h, "%'d", 123), ",123");
    EXPECT_EQ(fmt(h, "%'.0f", 123.0), "1,23");
    EXPECT_EQ(fmt(h, "%'.0f", 1234567.0), "12,34,567");

    // A multi-character separator and a size of 0 that repeats the previous one.
    set_numeric(h, ".", "::", {2, 0});
    EXPECT_EQ(fmt(h, "%'d", 1234567), "1::23::45::67");
    EXPECT_EQ(fmt(h, "%'.1f", 12345.0), "1::23::45.0");
    // -1 ends grouping.
    set_numeric(h, ".", ",", {3, -1});
    EXPECT_EQ(fmt(h, "%'d", 1234567), "1234,567");
    set_numeric(h, ".", ",", {});
    EXPECT_EQ(fmt(h, "%'d", 1234567), "1234567");
}

TEST(NumericFormat, IntegerBasesSignsAndPadding) {
    NUS_FIXTURE(h);
    set_numeric(h, ".", ",", {3}, "+", "-");
    EXPECT_EQ(fmt(h, "%x", -255), "-ff");
    EXPECT_EQ(fmt(h, "%#o", 8), "010");
    EXPECT_EQ(fmt(h, "%b", 5), "101");
    EXPECT_EQ(fmt(h, "%q", 5), "11");
    EXPECT_EQ(fmt(h, "%#08x", 255), "00000xff");
    EXPECT_EQ(fmt(h, "%08d", -42), "-0000042");
    EXPECT_EQ(fmt(h, "%6d|%-6d|%.4d", 42, 42, 42), "    42|42    |0042");
    EXPECT_EQ(fmt(h, "%hd %hu", 70000, -1), "4464 65535");
    EXPECT_EQ(fmt(h, "%ld", 123456L), "123456");
    EXPECT_EQ(fmt(h, "%u", 4294967295u), "4294967295");
    EXPECT_EQ(fmt(h, "%d", std::numeric_limits<int>::min()), "-2147483648");
    EXPECT_EQ(fmt(h, "%*d|%.*d", 5, 1, 3, 2), "    1|002");
    // Flags and the negative sign stay in force for the rest of the call: kept for
    // compatibility.
    EXPECT_EQ(fmt(h, "%+d %d", 1, 2), "+1 +2");
    EXPECT_EQ(fmt(h, "%X %x", 255, 255), "FF FF");
    EXPECT_EQ(fmt(h, "%d %u", -1, 1), "-1 -1");
    EXPECT_EQ(fmt(h, "% d", 5), " 5");   // as many spaces as the positive sign has characters

    nu_wchar out[16];
    nu_wchar *cursor = out;
    int count = 1;
    EXPECT_EQ(_nu_format_decimal(h, 5, 0, 37, &count, 16, &cursor, 0, -1, 0), -1);
    EXPECT_EQ(h.error(), NU_EBADVAL);
    EXPECT_EQ(_nu_format_decimal(h, 35, 0, 36, &count, 16, &cursor, 3, -1, NU_FMT_UPPER), 0);
    *cursor = 0;
    EXPECT_EQ(narrow(out), "  Z");
    EXPECT_EQ(count, 4);
}

TEST(NumericFormat, FloatsInfinityAndNaN) {
    NUS_FIXTURE(h);
    EXPECT_EQ(fmt(h, "%f|%.1f|%10.3f|%-8.1f|", 1.5, -0.25, 3.14159, 2.0),
              "1.500000|-0.2|     3.142|2.0     |");
    EXPECT_EQ(fmt(h, "%g %G %E", 0.0001, 1e-10, 12345.678), "0.0001 1E-10 1.234568E04");
    EXPECT_EQ(fmt(h, "%.f|%#.0f", 2.5, 3.0), "2|3.");
    EXPECT_EQ(fmt(h, "%08.2f", -1.5), "-0001.50");
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    // Infinity and NaN are written but not counted by the wide engine: kept for
    // compatibility. (The multibyte front end counts the bytes it encodes.)
    nu_wchar out[16];
    auto wf = W("%8f");
    EXPECT_EQ(nu_wcsfnum(h, out, 16, wf.data(), nan), 0);
    EXPECT_EQ(narrow(out), "     NaN");
    wf = W("[%f]");
    EXPECT_EQ(nu_wcsfnum(h, out, 16, wf.data(), -inf), 2);
    EXPECT_EQ(narrow(out), "[-Inf]");
    wf = W("%-5f|");
    EXPECT_EQ(nu_wcsfnum(h, out, 16, wf.data(), inf), 1);
    EXPECT_EQ(narrow(out), "Inf  |");
    // Never past the output, even so: the room checks see them.
    wf = W("%8fab");
    EXPECT_EQ(nu_wcsfnum(h, out, 4, wf.data(), nan), -1);
    EXPECT_EQ(h.error(), NU_E2BIG);
    wf = W("%fab");
    EXPECT_EQ(nu_wcsfnum(h, out, 5, wf.data(), inf), -1);
    EXPECT_EQ(nu_wcsfnum(h, out, 6, wf.data(), inf), 2);
    EXPECT_EQ(narrow(out), "Infab");
    char bytes[16];
    EXPECT_EQ(nu_mbsfnum(h, bytes, 16, "%5f", nan), 5);
    EXPECT_STREQ(bytes, "  NaN");

    EXPECT_EQ(fmt(h, "%100f", 1.0), "<fail 14>");
    EXPECT_EQ(fmt(h, "%.200f", 1.0), "<fail 14>");
    EXPECT_EQ(fmt(h, "%f", 1e300), "<fail 14>");   // more than 99 characters of digits
    EXPECT_EQ(fmt(h, "%e", 1e300), "1.000000e300");
}

TEST(NumericFormat, CharactersAndStrings) {
    NUS_FIXTURE(h);
    EXPECT_EQ(fmt(h, "%5s|%.3s|%-5c|", "abcdefgh", "abcdefgh", "x"), "abcde|abc|x    |");
    EXPECT_EQ(fmt(h, "%s|%8s|%-4.2s", "hi", "right", "left"), "hi|   right|le  ");
    EXPECT_EQ(fmt(h, "%03s|%5s", "z", "ab"), "00z|000ab");   // "0" stays in force
    const nu_wchar wide_text[] = {'w', 0xE9, 0};
    EXPECT_EQ(fmt(h, "%ls %lc", wide_text, 0xE9), "w\xe9 \xe9");
    std::vector<char> out(16, '#');
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_mbsfnum(h, out.data(), 16, "%c", ""), -1);
    EXPECT_EQ(h.error(), 0);
    const std::string long_text(500, 'q');
    EXPECT_EQ(fmt(h, 600, "%s", long_text.c_str()), long_text);
    EXPECT_EQ(fmt(h, 400, "%s", long_text.c_str()), "<fail 14>");
}

TEST(NumericFormat, FormatErrors) {
    NUS_FIXTURE(h);
    EXPECT_EQ(fmt(h, "%0-5d", 1), "<fail 22>");
    EXPECT_EQ(fmt(h, "%5"), "<fail 15>");
    EXPECT_EQ(fmt(h, "%'-"), "<fail 15>");
    EXPECT_EQ(fmt(h, "%l"), "<fail 22>");
    EXPECT_EQ(fmt(h, "%.?d", 1), "<fail 45>");
    for (const char *f : {"%F", "%n", "%p", "%y", "%2$d"}) EXPECT_EQ(fmt(h, f, 1), "<fail 22>") << f;
    EXPECT_EQ(fmt(h, "%.ld", 5L), "5");
}

TEST(NumericFormat, BuffersFromTheLibraryAllocator) {
    NUS_FIXTURE(h);
    nus_test::CountingAllocator alloc;
    std::vector<char> out(300);
    const std::string long_format(100, 'x');   // widened into an allocated buffer
    const std::string long_text(200, 'y');     // so is a long %s argument
    EXPECT_EQ(nu_mbsfnum(h, out.data(), 300, long_format.c_str()), 100);
    EXPECT_EQ(nu_mbsfnum(h, out.data(), 300, "%s", long_text.c_str()), 200);
    EXPECT_GE(alloc.allocations, 3);
    EXPECT_EQ(alloc.live, 0);
    for (long n = 1; n <= 2; ++n) {   // the output buffer, then the string's
        alloc.fail_from(n);
        *_nu_ext_errno(h) = 0;
        EXPECT_EQ(nu_mbsfnum(h, out.data(), 300, "%s", long_text.c_str()), -1);
        EXPECT_EQ(h.error(), NU_ENOMEM) << n;
        alloc.fail_from(0);
        EXPECT_EQ(alloc.live, 0);
    }
}

TEST(NumericFormat, Scanner) {
    NUS_FIXTURE(h);
    auto f = W("12$'-8.3ld");
    const nu_wchar *cursor = f.data();
    int justify = 0, width = 0, precision = -1;
    nu_wchar pad = ' ';
    unsigned flags = 0, position = 0;
    ASSERT_EQ(_nu_scan_format_modifiers(h, &cursor, &justify, &pad, &width, &precision, &flags,
                                        &position, nullptr),
              0);
    EXPECT_EQ(position, 12u);
    EXPECT_EQ(flags, unsigned(NU_FMT_GROUP | NU_FMT_LEFT));
    EXPECT_EQ(width, 8);
    EXPECT_EQ(precision, 3);
    EXPECT_EQ(justify, -1);
    EXPECT_EQ(cursor - f.data(), 8);   // at the length modifier

    auto star = W("0*d");
    cursor = star.data();
    flags = 0;
    ASSERT_EQ(_nu_scan_format_modifiers(h, &cursor, &justify, &pad, &width, &precision, &flags,
                                        nullptr, nullptr),
              0);
    EXPECT_EQ(flags, unsigned(NU_FMT_ZERO | NU_FMT_STAR_SEEN));
    EXPECT_EQ(pad, nu_wchar('0'));
    EXPECT_EQ(justify, 0);

    // A character above 255 where a digit may stand, in a single-byte locale.
    auto odd = W("5");
    odd.insert(odd.begin(), 0x4E00);
    cursor = odd.data();
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(_nu_scan_format_modifiers(h, &cursor, &justify, &pad, &width, &precision, &flags,
                                        nullptr, nullptr),
              0);
    EXPECT_EQ(h.error(), NU_EILSEQ);
    EXPECT_EQ(cursor, odd.data());

    EXPECT_EQ(nu_getDecimalCharIndex(" -12.5"), 4);
    EXPECT_EQ(nu_getDecimalCharIndex("12,5"), 2);
    EXPECT_EQ(nu_getDecimalCharIndex("+.5"), 1);
    EXPECT_EQ(nu_getDecimalCharIndex("12e5"), -1);
}

TEST(NumericFormat, MultibyteLocale) {
    NUS_LOAD_OR_SKIP(h, "ja_jp/13ba.lco");
    // Two full-width characters are four columns: "%6s" pads with two spaces.
    const char kana[] = "\xa4\xa2\xa4\xa4";
    EXPECT_EQ(fmt(h, "[%6s]", kana), std::string("[  ") + kana + "]");
    EXPECT_EQ(fmt(h, "%c|%3c", kana, kana + 2), std::string("\xa4\xa2| \xa4\xa4"));
    EXPECT_EQ(fmt(h, "%'d", 1234567), "1,234,567");
    // Output bytes, not characters, are checked against the size.
    EXPECT_EQ(fmt(h, 4, "%s", kana), "<fail 14>");
    EXPECT_EQ(fmt(h, 5, "%s", kana), kana);
    std::vector<char> out(8, '#');
    const nu_wchar bad[] = {0xFFFFFF, 0};
    EXPECT_EQ(_nu_get_mbstring(h, out.data(), bad, 8), -1);
    EXPECT_EQ(*_nu_ext_errno(h), NU_EILSEQ);
}

// Every prefix of many formats, with every size up to past the full length: the documented
// code or the text, never a write past the size.
TEST(NumericFormat, CutFormatsAndSmallBuffers) {
    NUS_FIXTURE(h);
    set_numeric(h, ",", "..", {3, 2}, "++", "--");
    using Call = std::function<int(char *, int, const char *)>;
    const std::vector<std::pair<std::string, Call>> cases = {
        {"ab%'12.3f|%-+8d|%#x|%s|%5c|%%|%e",
         [&](char *o, int n, const char *f) { return nu_mbsfnum(h, o, n, f, 1234.5, -77, 255, "str", "c", 1e-5); }},
        {"%0-5d %'d %.*d", [&](char *o, int n, const char *f) { return nu_mbsfnum(h, o, n, f, 1, 2, 3, 4); }},
        {"%'0*.2f%hx%lX%b%q",
         [&](char *o, int n, const char *f) { return nu_mbsfnum(h, o, n, f, 12, 1234567.25, 9, 10L, 11, 12); }},
        {"%99999999d|%.99999999d|%*d|%'-*d", [&](char *o, int n, const char *f) { return nu_mbsfnum(h, o, n, f, 1, 2, 30, 3, -40, 4); }},
        {"%-99999s|%.0s|%99c", [&](char *o, int n, const char *f) { return nu_mbsfnum(h, o, n, f, "a", "b", "c"); }},
        {"%'.0f%g%G%E|%'f", [&](char *o, int n, const char *f) { return nu_mbsfnum(h, o, n, f, 1e9, 0.5, 1e20, -3.0, -1e15); }},
        {"%1$d%", [&](char *o, int n, const char *f) { return nu_mbsfnum(h, o, n, f, 1); }},
    };
    for (const auto &[full, call] : cases) {
        for (size_t cut = 0; cut <= full.size(); ++cut) {
            const std::string f = full.substr(0, cut);
            for (int size = 0; size < 48; ++size) {
                std::vector<char> out(static_cast<size_t>(size) + 8, '#');
                const int n = call(out.data(), size, f.c_str());
                for (size_t i = static_cast<size_t>(size); i < out.size(); ++i)
                    ASSERT_EQ(out[i], '#') << f << " size " << size;
                if (n >= 0) {
                    ASSERT_LT(n, size) << f;
                }
            }
        }
    }
}

} // namespace
