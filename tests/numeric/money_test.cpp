// Monetary formatting and parsing: placements, fill and alignment, rounding on the text, the
// kept quirks, and the positive/negative contest of the parser.
#include "numeric/numeric.h"
#include "numeric/numeric_fixture.h"

#include "nus.h"

namespace {

using nus_test::narrow;
using nus_test::set_monetary;
using nus_test::W;

// "$" before the value, no space, sign before everything, "-", ".", ",", 3, 2 digits.
void dollars(nu_locale_t h, const std::string &pos = "") {
    set_monetary(h, "USD ", "$", ".", ",", {3}, pos, "-", {2, 2, 1, 0, 1, 0, 1, 1});
}

template <typename... Args>
std::string money(nu_locale_t h, int size, const char *format, Args... args) {
    return nus_test::guarded_text(h, size, format, [&](char *out) {
        return nu_mbsfmon(h, out, size, format, args...);
    });
}

template <typename... Args>
std::string money(nu_locale_t h, const char *format, Args... args) {
    return money(h, 200, format, args...);
}

TEST(MoneyFormat, PlacementsAndFlags) {
    NUS_FIXTURE(h);
    dollars(h);
    EXPECT_EQ(money(h, "%n", 1234.567), "$1,234.57");
    EXPECT_EQ(money(h, "%n", -1234.567), "-$1,234.57");
    EXPECT_EQ(money(h, "%(n", -5.0), "($5.00)");
    EXPECT_EQ(money(h, "%i", 1234567.0), "USD 1,234,567.00");
    EXPECT_EQ(money(h, "%^n|%!n|%.0n|%.3n", 1234.5, 1234.5, 2.5, 0.0005),
              "$1234.50|1,234.50|$3|$0.001");
    EXPECT_EQ(money(h, "[%12n][%-12n]", 1.0, -1.0), "[       $1.00][-$1.00      ]");
    EXPECT_EQ(money(h, "%n", 99.995), "$100.00");
    EXPECT_EQ(money(h, "%n", 999999.999), "$1,000,000.00");
    EXPECT_EQ(money(h, "Total: %n.", 0.0), "Total: $0.00.");
    // Left precision: fill characters before the value, columns aligned for both signs.
    EXPECT_EQ(money(h, "%=*#5n", 1234.567), " $*1,234.57");
    EXPECT_EQ(money(h, "%#5n", -1234.567), "-$ 1,234.57");
    // A group completed by the last digit counts in the fill: three fill characters for a
    // left precision of 3. Kept for compatibility.
    EXPECT_EQ(money(h, "%#3n", 1.0), " $   1.00");
    // "(" changes the call's copy of the negative placement: later conversions keep it.
    EXPECT_EQ(money(h, "%(n %n", -1.0, -2.0), "($1.00) ($2.00)");
    // "+" with a positive sign string.
    dollars(h, "+");
    EXPECT_EQ(money(h, "%+n %n", 3.0, 4.0), "+$3.00 $4.00");

    // Other placements: symbol after the value with a space, sign after the value.
    set_monetary(h, "EUR ", "EUR", ",", ".", {3}, "", "-", {2, 2, 0, 1, 0, 1, 2, 2});
    EXPECT_EQ(money(h, "%n|%n", 1234.5, -1234.5), "1.234,50 EUR|1.234,50 EUR-");
    set_monetary(h, "EUR ", "EUR", ",", ".", {3}, "", "-", {2, 2, 0, 1, 0, 1, 1, 1});
    EXPECT_EQ(money(h, "%n", -7.0), "-7,00 EUR");
    // A placement outside the table leaves only the padding.
    set_monetary(h, "", "$", ".", ",", {3}, "", "-", {2, 2, 3, 0, 1, 0, 1, 1});
    EXPECT_EQ(money(h, "[%4n]", 1.0), "[    ]");
}

TEST(MoneyFormat, MaskTable) {
    int mask[6] = {};
    auto row = [&](int precedes, int posn, int sep) {
        for (int &m : mask) m = 0;
        const int r = nus::num::mon_mask(mask, precedes, posn, sep);
        std::string out;
        for (int m : mask)
            if (m != 0) out += static_cast<char>('0' + m);
        return r == 0 ? out : "-";
    };
    EXPECT_EQ(row(0, 0, 0), "1326");
    EXPECT_EQ(row(1, 0, 1), "12536");
    EXPECT_EQ(row(0, 1, 2), "432");    // no space for key 12 with the symbol following
    EXPECT_EQ(row(1, 1, 2), "4523");
    EXPECT_EQ(row(0, 2, 2), "3254");
    EXPECT_EQ(row(1, 2, 2), "234");    // nor for key 22 with it preceding
    EXPECT_EQ(row(1, 3, 1), "4253");
    EXPECT_EQ(row(1, 4, 2), "2543");
    EXPECT_EQ(row(2, 1, 0), "-");
    EXPECT_EQ(row(1, 5, 0), "-");
    EXPECT_EQ(row(1, 1, 3), "-");
    EXPECT_EQ(row(1, 2147483647, 2147483647), "-");
}

// Grouping lists of several sizes, a last size that repeats and sizes of 0 or less that end
// the grouping, against the rule digit by digit: from the right, a separator after each
// complete group that has a digit to its left. The count of complete groups (the last digit
// may complete one) sizes the fill of a left precision.
TEST(MoneyFormat, GroupingListsDigitByDigit) {
    NUS_FIXTURE(h);
    const std::vector<std::vector<int>> lists = {{3, 2}, {2, 3, 1}, {1, 4}, {4, 0, 2}, {2, -1}, {3}, {0}};
    for (const std::vector<int> &list : lists) {
        set_monetary(h, "", "$", ".", "'", list, "", "-", {2, 2, 1, 0, 1, 0, 1, 1});
        std::string digits;
        for (int n = 1; n <= 13; ++n) {
            digits += static_cast<char>('1' + n % 9);
            std::string grouped;
            int complete = 0, size = list[0], run = 0;
            size_t index = 0;
            for (size_t k = digits.size(); k-- > 0;) {
                grouped.insert(grouped.begin(), digits[k]);
                if (size >= 1 && ++run == size) {
                    ++complete;
                    if (k >= 1) grouped.insert(grouped.begin(), '\'');
                    run = 0;
                    if (index + 1 < list.size()) size = list[++index];
                }
            }
            EXPECT_EQ(money(h, "%n", std::stod(digits)), "$" + grouped + ".00") << list[0] << " " << n;
            EXPECT_EQ(nus::num::get_grp_cnt(h, n), complete) << list[0] << " " << n;
        }
    }
}

TEST(MoneyFormat, RoundingOnTheText) {
    char integer[16], fraction[16];
    nus::num::get_lval_rval("-0.125000", integer, fraction, 2);
    EXPECT_STREQ(integer, "0");
    EXPECT_STREQ(fraction, "125");
    nus::num::round_dval(fraction, integer, 2);
    EXPECT_STREQ(fraction, "13");
    nus::num::get_lval_rval("99.995000", integer, fraction, 2);
    nus::num::round_dval(fraction, integer, 2);
    EXPECT_STREQ(integer, "100");
    EXPECT_STREQ(fraction, "00");
    nus::num::get_lval_rval("9.5", integer, fraction, 0);
    nus::num::round_dval(fraction, integer, 0);
    EXPECT_STREQ(integer, "10");
    EXPECT_STREQ(fraction, "");
    nus::num::get_lval_rval("1.2", integer, fraction, 4);
    EXPECT_STREQ(fraction, "20000");
}

TEST(MoneyFormat, ErrorsAndBounds) {
    NUS_FIXTURE(h);
    dollars(h);
    EXPECT_EQ(money(h, 1, "a"), "<fail 14>");
    EXPECT_EQ(money(h, 2, "a"), "a");
    EXPECT_EQ(money(h, "%d", 1.0), "<fail 20>");
    EXPECT_EQ(money(h, "%#", 1.0), "<fail 20>");
    EXPECT_EQ(money(h, 9, "%n", 1234.5), "<fail 14>");
    EXPECT_EQ(money(h, 10, "%n", 1234.5), "$1,234.50");
    EXPECT_EQ(money(h, "%99999999n", 1.0), "<fail 14>");
    EXPECT_EQ(money(h, "%.999n", 1.0), "<fail 14>");
    EXPECT_EQ(money(h, "%#999n", 1.0), "<fail 14>");
    EXPECT_EQ(money(h, 500, "%n", 1e300).size(), 405u);   // "$", 301 digits, 100 separators
    // The largest fill: a left precision of 100 with groups of one digit.
    set_monetary(h, "", "$", ".", ",,", {1}, "", "-", {2, 2, 1, 0, 1, 0, 1, 1});
    const std::string filled = money(h, 1000, "%=x#100n", 1.0);
    EXPECT_EQ(filled.size(), 205u);   // alignment, "$", 199 fill characters, "1.00"
    EXPECT_EQ(filled.substr(0, 3), " $x");
    EXPECT_EQ(money(h, "%n", 1234.0), "$1,,2,,3,,4.00");
    // A symbol too long for the local buffer: NU_ENOMEM although the formatting succeeds.
    const std::string symbol(600, 'S');
    set_monetary(h, "", symbol, ".", ",", {3}, "", "-", {2, 2, 1, 0, 1, 0, 1, 1});
    std::vector<char> out(700);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_mbsfmon(h, out.data(), 700, "%n", 1.0), 604);
    EXPECT_EQ(*_nu_ext_errno(h), NU_ENOMEM);
    EXPECT_EQ(std::string(out.data()), symbol + "1.00");

    // Cut formats, every size: never past the output.
    dollars(h);
    const std::string full = "a%=x+(^!-12#4.3n%%b%i";
    for (size_t cut = 0; cut <= full.size(); ++cut) {
        const std::string f = full.substr(0, cut);
        for (int size = 0; size < 40; ++size) {
            std::vector<char> buf(static_cast<size_t>(size) + 8, '#');
            const int n = nu_mbsfmon(h, buf.data(), size, f.c_str(), -1234.5, 7.25);
            for (size_t i = static_cast<size_t>(size); i < buf.size(); ++i)
                ASSERT_EQ(buf[i], '#') << f << " size " << size;
            if (n >= 0) {
                ASSERT_LT(n, size);
            }
        }
    }
}

// Parses with nu_mbspmon; the value and the offset of the end, or the error code.
struct Parsed {
    double value;
    long end;   // -1 on failure
    int error;
};

Parsed parse(nu_locale_t h, const char *format, const char *input) {
    double v = -999, second = -999;
    *_nu_ext_errno(h) = 0;
    const char *end = nu_mbspmon(h, input, format, &v, &second);
    return {v, end != nullptr ? end - input : -1, *_nu_ext_errno(h)};
}

TEST(MoneyParse, PositiveAndNegativePlacements) {
    NUS_FIXTURE(h);
    dollars(h);
    auto p = parse(h, "%n", "$1234.56");
    EXPECT_DOUBLE_EQ(p.value, 1234.56);
    EXPECT_EQ(p.end, 8);
    p = parse(h, "%n", "-$1234.56");
    EXPECT_DOUBLE_EQ(p.value, -1234.56);
    p = parse(h, "%n", "1234.56");   // the symbol is optional
    EXPECT_DOUBLE_EQ(p.value, 1234.56);
    p = parse(h, "%n", "-1234.56");
    EXPECT_DOUBLE_EQ(p.value, -1234.56);
    p = parse(h, "%'n", "$1,234.56");
    EXPECT_DOUBLE_EQ(p.value, 1234.56);
    p = parse(h, "%n", "$1,234.56");
    EXPECT_DOUBLE_EQ(p.value, 1.0);
    EXPECT_EQ(p.end, 2);
    p = parse(h, " %i and %n", "   USD 5.5 and   $7");
    EXPECT_DOUBLE_EQ(p.value, 5.5);
    EXPECT_EQ(p.end, 19);
    // "%%" skips one input character whatever it is: kept for compatibility.
    p = parse(h, "%%%n", "x$5");
    EXPECT_DOUBLE_EQ(p.value, 5.0);
    // A width in columns limits the input.
    p = parse(h, "%4n", "$12345");
    EXPECT_DOUBLE_EQ(p.value, 123.0);
    EXPECT_EQ(p.end, 4);
    // Parentheses.
    set_monetary(h, "USD ", "$", ".", ",", {3}, "", "-", {2, 2, 1, 0, 1, 0, 1, 0});
    p = parse(h, "%n", "($5.25)");
    EXPECT_DOUBLE_EQ(p.value, -5.25);
    EXPECT_EQ(p.end, 7);
    // A sign after the value with a space between (longest match wins).
    set_monetary(h, "", "kr", ",", " ", {3}, "", "-", {2, 2, 0, 1, 0, 1, 2, 2});
    p = parse(h, "%'n", "1 234,50 kr-");
    EXPECT_DOUBLE_EQ(p.value, -1234.5);
    EXPECT_EQ(p.end, 12);
    p = parse(h, "%'n", "1 234,50 kr");
    EXPECT_DOUBLE_EQ(p.value, 1234.5);
}

TEST(MoneyParse, Failures) {
    NUS_FIXTURE(h);
    dollars(h);
    EXPECT_EQ(parse(h, "x%n", "y$1").error, NU_EFORMAT);
    EXPECT_EQ(parse(h, "%d", "1").error, NU_EFORMAT);
    EXPECT_EQ(parse(h, "%'", "1").error, NU_EFORMAT);
    auto p = parse(h, "%n", "abc");
    EXPECT_EQ(p.end, -1);
    EXPECT_EQ(p.error, NU_EBADVAL);
    p = parse(h, "%.?n", "1");
    EXPECT_EQ(p.error, NU_EMODIFIER);
    p = parse(h, "", "abc");
    EXPECT_EQ(p.end, 0);
    set_monetary(h, "", "$", ".", ",", {3}, "", "-", {2, 2, 7, 0, 1, 0, 1, 1});
    p = parse(h, "%n", "$1");
    EXPECT_EQ(p.end, -1);
    EXPECT_EQ(p.error, 0);

    auto w = W("abc");
    EXPECT_EQ(_nu_compare_wc_to_mb(h, w.data(), "ab"), 2);
    EXPECT_EQ(_nu_compare_wc_to_mb(h, w.data(), "ax"), -1);
    EXPECT_EQ(_nu_compare_wc_to_mb(h, w.data(), ""), 0);
    EXPECT_EQ(_nu_compare_wc_to_mb(h, w.data(), nullptr), 0);

    // Every cut of a format on every cut of an input: no crash, no read past the input.
    dollars(h);
    const std::string format = "a %'#3.2n%%%i b";
    const std::string input = "a  -$1,234.50%USD 3 b";
    for (size_t fc = 0; fc <= format.size(); ++fc)
        for (size_t ic = 0; ic <= input.size(); ++ic) {
            nus_test::Guarded in(input.substr(0, ic) + '\0');
            double a = 0, b = 0;
            (void)nu_mbspmon(h, reinterpret_cast<const char *>(in.data), format.substr(0, fc).c_str(),
                             &a, &b);
        }
}

} // namespace
