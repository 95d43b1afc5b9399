// Numbers from text and back: grouping checks, end pointers, sentinels, the decimal mark of
// the process's own locale.
#include "numeric/numeric.h"
#include "numeric/numeric_fixture.h"

#include "nus.h"

#include <cerrno>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <random>

namespace {

using nus_test::narrow;
using nus_test::set_numeric;
using nus_test::W;

long wcstol_grouped(nu_locale_t h, const std::string &text, long *consumed = nullptr) {
    auto w = W(text);
    nu_wchar *end = nullptr;
    const long v = nu_wcstol(h, w.data(), &end, 10, 1);
    if (consumed != nullptr) *consumed = end != nullptr ? end - w.data() : -1;
    return v;
}

TEST(NumericConvert, GroupedIntegersAreCheckedGroupByGroup) {
    NUS_FIXTURE(h);
    set_numeric(h, ",", ".", {3});
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(wcstol_grouped(h, "1.234.567"), 1234567);
    EXPECT_EQ(h.error(), 0);
    EXPECT_EQ(wcstol_grouped(h, "1234.567"), 2147483647);
    EXPECT_EQ(h.error(), NU_EINVAL);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(wcstol_grouped(h, "-12.345"), -12345);
    EXPECT_EQ(wcstol_grouped(h, "123"), 123);
    // The unsigned form fails with the signed maximum as well.
    auto bad = W("12.34");
    EXPECT_EQ(nu_wcstoul(h, bad.data(), nullptr, 10, 1), 2147483647UL);
    EXPECT_EQ(h.error(), NU_EINVAL);

    // A size of 0 ends grouping here (the formatter repeats the previous size instead).
    set_numeric(h, ",", ".", {3, 0});
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(wcstol_grouped(h, "1234.567"), 1234567);
    EXPECT_EQ(h.error(), 0);
    nu_wchar out[32];
    nu_ltowcs(h, out, 32, 1234567, 10, 1);
    EXPECT_EQ(narrow(out), "1234.567");

    // 256 characters or more are refused.
    EXPECT_EQ(wcstol_grouped(h, std::string(300, '1')), 2147483647);
    EXPECT_EQ(h.error(), NU_EINVAL);
}

TEST(NumericConvert, EndPointerCountsSpacesSeparatorsAndOneSignCharacter) {
    NUS_FIXTURE(h);
    set_numeric(h, ".", ",", {3}, "", "<>");
    long consumed = 0;
    EXPECT_EQ(wcstol_grouped(h, "  1,234", &consumed), 1234);
    EXPECT_EQ(consumed, 7);
    auto w = W("<>42x");
    nu_wchar *end = nullptr;
    EXPECT_EQ(nu_wcstol(h, w.data(), &end, 10, 0), -42);
    // The locale's two-character sign counts as one: kept for compatibility.
    EXPECT_EQ(end - w.data(), 3);
    auto hex = W(" ff!");
    EXPECT_EQ(nu_wcstol(h, hex.data(), &end, 16, 0), 255);
    EXPECT_EQ(end - hex.data(), 3);
    auto none = W("  xyz");
    EXPECT_EQ(nu_wcstol(h, none.data(), &end, 10, 0), 0);
    EXPECT_EQ(end - none.data(), 2);
}

TEST(NumericConvert, WideCharacterInASingleByteLocale) {
    NUS_FIXTURE(h);
    const nu_wchar text[] = {' ', 0x4E00, '5', 0};
    nu_wchar *end = nullptr;
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_wcstol(h, text, &end, 10, 0), 0);   // the conversion goes on, finds nothing
    EXPECT_EQ(h.error(), NU_EILSEQ);
    EXPECT_EQ(end, text + 1);
}

TEST(NumericConvert, IntegersToTextWithGrouping) {
    NUS_FIXTURE(h);
    set_numeric(h, ",", ".", {3});
    nu_wchar out[40];
    nu_ltowcs(h, out, 11, -1234567, 10, 1);
    EXPECT_EQ(narrow(out), "-1.234.567");
    out[0] = 'x';
    nu_ltowcs(h, out, 10, -1234567, 10, 1);
    EXPECT_EQ(narrow(out), "");
    nu_ltowcs(h, out, 40, 255, 16, 0);
    EXPECT_EQ(narrow(out), "FF");
    nu_ltowcs(h, out, 40, 35, 36, 0);
    EXPECT_EQ(narrow(out), "Z");
    for (int base : {0, 1, 37, -5}) {
        out[0] = 'x';
        nu_ltowcs(h, out, 40, 5, base, 0);
        EXPECT_EQ(narrow(out), "") << base;
    }
    nu_wchar wide_out[80];
    nu_ultowcs(h, wide_out, 80, ULONG_MAX, 2, 0);
    EXPECT_EQ(narrow(wide_out), std::string(sizeof(long) * 8, '1'));
    nu_ultowcs(h, wide_out, static_cast<int>(sizeof(long) * 8), ULONG_MAX, 2, 0);
    EXPECT_EQ(narrow(wide_out), "");   // no room for the terminator
    nu_ltowcs(h, out, 40, LONG_MIN, 10, 0);
    EXPECT_EQ(std::strtol(narrow(out).c_str(), nullptr, 10), LONG_MIN);
    // 3;2 groups the way the list says, from the units.
    set_numeric(h, ".", ",", {3, 2});
    nu_ltowcs(h, out, 40, 123456789, 10, 1);
    EXPECT_EQ(narrow(out), "12,34,56,789");

    char bytes[40];
    EXPECT_EQ(nu_ltombs(h, bytes, 40, -1234, 10, 1), 6);
    EXPECT_STREQ(bytes, "-1,234");
    EXPECT_EQ(nu_ltombs(h, bytes, 6, -1234, 10, 1), 0);   // no room: empty
    EXPECT_STREQ(bytes, "");
    EXPECT_EQ(nu_ultombs(h, bytes, 40, 4096, 8, 0), 5);
    EXPECT_STREQ(bytes, "10000");
}

TEST(NumericConvert, MultibyteFrontEndsSentinelsAndEnds) {
    NUS_FIXTURE(h);
    set_numeric(h, ".", ",", {3});
    char *end = nullptr;
    EXPECT_EQ(nu_mbstol(h, "", &end, 10, 0), 2147483647);
    EXPECT_EQ(h.error(), NU_ERANGE);
    EXPECT_EQ(nu_mbstoul(h, "", &end, 10, 0), ULONG_MAX);
    EXPECT_EQ(nu_mbstod(h, "", &end, 0), 2147483647.0);
    *_nu_ext_errno(h) = 0;
    const char *text = " 12,345 rest";
    EXPECT_EQ(nu_mbstol(h, text, &end, 10, 0), 12);
    EXPECT_EQ(end, text + 3);
    EXPECT_EQ(nu_mbstoul(h, "4294967295", nullptr, 10, 0), 4294967295UL);
    EXPECT_EQ(nu_mbstol(h, "999999999999999999999999", &end, 10, 0), 2147483647);
    EXPECT_EQ(h.error(), NU_ERANGE);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_mbstod(h, "1e999", nullptr, 0), 2147483647.0);
    EXPECT_EQ(h.error(), NU_ERANGE);
    *_nu_ext_errno(h) = 0;
    const char *d = "-1,234.5e2x";
    EXPECT_DOUBLE_EQ(nu_mbstod(h, d, &end, 1), -123450.0);
    EXPECT_EQ(end, d + 10);
}

#if LONG_MAX == 2147483647L
TEST(NumericConvert, ThirtyTwoBitLongLimits) {
    NUS_FIXTURE(h);
    EXPECT_EQ(nu_mbstol(h, "2147483648", nullptr, 10, 0), 2147483647);
    EXPECT_EQ(h.error(), NU_ERANGE);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_mbstol(h, "-2147483648", nullptr, 10, 0), LONG_MIN);
    EXPECT_EQ(h.error(), 0);
    EXPECT_EQ(nu_mbstoul(h, "4294967296", nullptr, 10, 0), 2147483647UL);
    EXPECT_EQ(h.error(), NU_ERANGE);
}
#endif

TEST(NumericConvert, DoublesWithTheLocalesSymbols) {
    NUS_FIXTURE(h);
    set_numeric(h, ",", ".", {3});
    nu_wchar *end = nullptr;
    auto half = W(",5");
    EXPECT_DOUBLE_EQ(nu_wcstod(h, half.data(), &end, 0), 0.5);
    EXPECT_EQ(end, half.data() + 2);
    auto abc = W("  abc");
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_wcstod(h, abc.data(), &end, 0), 0.0);
    EXPECT_EQ(end, abc.data());
    EXPECT_EQ(h.error(), 0);
    auto grouped = W("1.234.567,25");
    EXPECT_DOUBLE_EQ(nu_wcstod(h, grouped.data(), &end, 1), 1234567.25);
    EXPECT_EQ(end, grouped.data() + 12);
    auto bad_group = W("1234.567,5");
    EXPECT_EQ(nu_wcstod(h, bad_group.data(), &end, 1), 0.0);
    EXPECT_EQ(h.error(), NU_EINVAL);
    EXPECT_EQ(end, bad_group.data());
    // A group that is not all digits fails without a code of its own.
    *_nu_ext_errno(h) = 0;
    auto short_group = W(" 12.34,5");
    EXPECT_EQ(nu_wcstod(h, short_group.data(), &end, 1), 0.0);
    EXPECT_EQ(h.error(), 0);
    EXPECT_EQ(end, short_group.data());
    // An exponent mark counts only with a digit after it.
    auto e = W("3e+x");
    EXPECT_DOUBLE_EQ(nu_wcstod(h, e.data(), &end, 0), 3.0);
    EXPECT_EQ(end, e.data() + 1);
    // A lone decimal point converts nothing: code 46.
    *_nu_ext_errno(h) = 0;
    auto point = W(",");
    EXPECT_EQ(nu_wcstod(h, point.data(), &end, 0), 0.0);
    EXPECT_EQ(h.error(), NU_ENOMATCH);
    // 300 digits are more than the conversion takes.
    *_nu_ext_errno(h) = 0;
    auto huge = W(std::string(300, '9'));
    EXPECT_EQ(nu_wcstod(h, huge.data(), &end, 0), 0.0);
    EXPECT_EQ(h.error(), NU_EINVAL);
    auto long_fraction = W("0," + std::string(300, '3'));
    EXPECT_NEAR(nu_wcstod(h, long_fraction.data(), &end, 0), 1.0 / 3, 1e-15);
    EXPECT_EQ(end, long_fraction.data() + 302);

    // Monetary symbols for the monetary form.
    nus_test::set_monetary(h, "EUR ", "E", "'", " ", {3}, "+", "~", {2, 2, 1, 0, 1, 0, 1, 1});
    auto money = W("~1 000'5");
    EXPECT_DOUBLE_EQ(nu_wcstod_num_mon(h, money.data(), &end, 1, 1), -1000.5);
}

TEST(NumericConvert, SeparatorDecimalAndExponentTests) {
    NUS_FIXTURE(h);
    set_numeric(h, "::", "''", {3});
    auto w = W("1''2::3");
    EXPECT_EQ(nu_iswgrpsymb(h, w.data() + 1, 0, 0), 2);
    EXPECT_EQ(nu_iswgrpsymb(h, w.data() + 2, 1, 0), 2);
    EXPECT_EQ(nu_iswgrpsymb(h, w.data() + 2, 0, 0), 0);
    EXPECT_EQ(nu_iswcdecml(h, w.data() + 4, 0, 0), 2);
    EXPECT_EQ(nu_iswcdecml(h, w.data() + 5, 1, 0), 2);
    EXPECT_EQ(nu_iswcdecml(h, w.data() + 4, 0, 1), 0);   // the fixture's monetary point is "."
    auto e = W("e+E5x");
    EXPECT_EQ(nu_iswcexponent(e.data()), 2);
    EXPECT_EQ(nu_iswcexponent(e.data() + 2), 1);
    EXPECT_EQ(nu_iswcexponent(e.data() + 4), 0);
}

// The process's own locale may use "," for the system conversions: the library's results do
// not change.
TEST(NumericConvert, ProcessLocaleWithACommaDecimalPoint) {
    const std::string dir = std::string(NUS_SOURCE_DIR) + "/build/glibc-locales";
    if (!std::filesystem::exists(dir + "/de_DE.ISO-8859-1/LC_NUMERIC")) {
        std::filesystem::create_directories(dir);
        const std::string command =
            "localedef -i de_DE -f ISO-8859-1 " + dir + "/de_DE.ISO-8859-1 >/dev/null 2>&1";
        (void)std::system(command.c_str());
    }
    nus_test::EnvGuard path("LOCPATH", dir);
    if (std::setlocale(LC_NUMERIC, "de_DE.ISO-8859-1") == nullptr)
        GTEST_SKIP() << "no glibc de_DE locale";
    struct Restore {
        ~Restore() { std::setlocale(LC_NUMERIC, "C"); }
    } restore;
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    NUS_FIXTURE(h);
    auto w = W("1.5");
    EXPECT_DOUBLE_EQ(nu_wcstod(h, w.data(), nullptr, 0), 1.5);
    EXPECT_DOUBLE_EQ(nu_mbstod(h, "-0.25", nullptr, 0), -0.25);
    char out[32];
    EXPECT_EQ(nu_mbsfnum(h, out, sizeof out, "%'.2f|%e", 1234.5, 0.5), 21);
    EXPECT_STREQ(out, "1,234.50|5.000000e-01");
    set_numeric(h, ",", ".", {3});
    auto comma = W(",5");
    EXPECT_DOUBLE_EQ(nu_wcstod(h, comma.data(), nullptr, 0), 0.5);
}

} // namespace

namespace {

// The exact digit paths give what the system formatter and strtod give, on values of every
// magnitude and every precision they take.
TEST(NumericDigits, ExactPathsMatchTheSystem) {
    std::mt19937_64 rng(99);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::uniform_int_distribution<int> exponent(-30, 22);
    char ours[128], theirs[400];
    int covered = 0;
    for (int i = 0; i < 200000; ++i) {
        double v = unit(rng) * std::pow(10.0, exponent(rng));
        if (i % 4 == 0) v = std::round(v * 1000) / 1000;        // many ties and short values
        if (i % 8 == 1) v = static_cast<double>(rng() % 100000) / 8;   // exact binary halves
        if (i % 64 == 3) v *= 1e-300;                                     // down to subnormals
        const int precision = static_cast<int>(rng() % 18);
        std::snprintf(theirs, sizeof theirs, "%.*f", precision, v);
        if (nus::num::fixed_digits(v, precision, ours, sizeof ours)) {
            ++covered;
            ASSERT_STREQ(ours, theirs) << v << " " << precision;
        }
        double fast = 0;
        if (nus::num::fast_decimal(theirs, &fast)) {
            ASSERT_EQ(fast, std::strtod(theirs, nullptr)) << theirs;
        }
    }
    EXPECT_GT(covered, 100000);
    for (const char *text : {"0", "-0.0", "1e5", "12.5e-3", "123456789012345", "9007199254740993",
                             "1.7976931348623157e308", "4.9e-324", "-", ".", "1e", "0.1e-22"}) {
        double fast = 0;
        if (nus::num::fast_decimal(text, &fast)) {
            EXPECT_EQ(fast, std::strtod(text, nullptr)) << text;
        }
    }
    double sink = 0;
    EXPECT_FALSE(nus::num::fast_decimal("1234567890123456", &sink));   // 16 digits
    EXPECT_FALSE(nus::num::fixed_digits(1e300, 2, ours, sizeof ours));
    EXPECT_FALSE(nus::num::fixed_digits(-1.0, 2, ours, sizeof ours));
    EXPECT_TRUE(nus::num::fixed_digits(0.0, 0, ours, sizeof ours));
    EXPECT_STREQ(ours, "0");
}

} // namespace

namespace {

// Random bytes (digits, separators, signs, blanks, high bytes, invalid sequences) given to
// every parser of the folder: no crash, no read past the input, end pointers inside it.
TEST(NumericConvert, Garbage) {
    std::mt19937 rng(2024);
    const std::string alphabet = "0123456789.,-+ eE$()'%\xa0\xe2\x80\xaf\xc3\xff";
    for (const char *spec : {"xx_yy/0333.lco", "fr_fr.utf8", "ja_jp.sjis"}) {
        nus_test::TestLocale h(spec);
        if (h.h == nullptr) continue;
        for (int i = 0; i < 3000; ++i) {
            std::string text;
            const size_t length = rng() % (i % 50 == 0 ? 400 : 24);
            for (size_t k = 0; k < length; ++k) text += alphabet[rng() % alphabet.size()];
            nus_test::Guarded in(text + '\0');
            const char *s = reinterpret_cast<const char *>(in.data);
            char *end = nullptr;
            const int grouping = static_cast<int>(rng() % 2);
            (void)nu_mbstol(h, s, &end, 0, grouping);
            ASSERT_TRUE(end == nullptr || end <= s + text.size());
            (void)nu_mbstoul(h, s, &end, 16, grouping);
            (void)nu_mbstod(h, s, &end, grouping);
            ASSERT_TRUE(end == nullptr || end <= s + text.size());
            double a = 0, b = 0;
            const char *stop = nu_mbspmon(h, s, i % 2 ? "%'n" : "%i %n", &a, &b);
            ASSERT_TRUE(stop == nullptr || stop <= s + text.size());
        }
    }
}

} // namespace
