// nus fmt, nus money, nus parse: numbers and amounts written and read the locale's way.
#include "tools/nus/nus_run.h"

#include <gtest/gtest.h>

#include <string>

using nus_test::nus;
using nus_test::usage;

TEST(NusFmt, GroupedDecimalsInThreeLocales) {
    struct Case {
        const char *locale;
        const char *positive;
        const char *negative;
    };
    // fr_FR separates thousands with a no-break space, 0xA0 in ISO 8859-1.
    for (const Case &c : {Case{"de_de.8859-1", "1.234.567,891", "-1.234.567,891"},
                          Case{"fr_fr.8859-1",
                               "1\xA0"
                               "234\xA0"
                               "567,891",
                               "-1\xA0"
                               "234\xA0"
                               "567,891"},
                          Case{"en_us.8859-1", "1,234,567.891", "-1,234,567.891"}}) {
        auto r = nus({"fmt", "-l", c.locale, "%'.3f", "1234567.891", "-1234567.891"});
        EXPECT_EQ(r.status, 0) << c.locale << ": " << r.err;
        EXPECT_EQ(r.out, std::string(c.positive) + "\n" + c.negative + "\n") << c.locale;
        // Without the ' flag there is no grouping, only the decimal point.
        auto plain = nus({"fmt", "-l", c.locale, "%.2f", "1234567.891"});
        EXPECT_EQ(plain.out, c.locale[0] == 'e' ? "1234567.89\n" : "1234567,89\n") << c.locale;
    }
}

TEST(NusFmt, IntegerBasesSignsAndWidths) {
    auto run = [](const char *format, const char *number) {
        auto r = nus({"fmt", "-l", "en_us.8859-1", format, number});
        EXPECT_EQ(r.status, 0) << format << " " << number << ": " << r.err;
        return r.out;
    };
    EXPECT_EQ(run("%'d", "-1234567"), "-1,234,567\n");
    EXPECT_EQ(run("%x", "-255"), "-ff\n"); // a sign and the magnitude, not two's complement
    EXPECT_EQ(run("%#X", "255"), "0XFF\n");
    EXPECT_EQ(run("%#o", "8"), "010\n");
    EXPECT_EQ(run("%b", "5"), "101\n");
    EXPECT_EQ(run("%q", "5"), "11\n");
    EXPECT_EQ(run("%08d", "-42"), "-0000042\n");
    EXPECT_EQ(run("%u", "4294967295"), "4294967295\n");
    EXPECT_EQ(run("%hd", "70000"), "4464\n"); // the low 16 bits
    EXPECT_EQ(run("<%-6d>", "42"), "<42    >\n");
    EXPECT_EQ(run("%5s", "abcdefgh"), "abcde\n");
    EXPECT_EQ(run("%-5c|", "xyz"), "x    |\n");
    EXPECT_EQ(run("100%% %d", "7"), "100% 7\n");
    EXPECT_EQ(run("[%8f]", "nan"), "[     NaN]\n");
    EXPECT_EQ(run("[%f]", "-inf"), "[-Inf]\n"); // "-inf" is a number, not an option
    // The exponent's sign is the locale's: en_US has an empty positive sign.
    EXPECT_EQ(run("%.2e", "12345.678"), "1.23e04\n");
    EXPECT_EQ(run("%.2e", "0.00012345"), "1.23e-04\n");
}

TEST(NusFmt, MultibyteArguments) {
    // %s and %ls take text in the locale's code set; widths count display columns.
    auto utf8 = nus({"fmt", "-l", "en_us.utf8", "[%-6ls]", "h\xC3\xA9llo"});
    EXPECT_EQ(utf8.status, 0) << utf8.err;
    EXPECT_EQ(utf8.out, "[h\xC3\xA9llo ]\n");
    auto wide_char = nus({"fmt", "-l", "ja_jp.sjis", "%lc", "\x82\xA0\x82\xA2"});
    EXPECT_EQ(wide_char.out, "\x82\xA0\n");
}

TEST(NusFmt, BadNumbersFormatsAndLocales) {
    // A bad number is reported and the others are still formatted; status 1.
    auto mixed =
        nus({"fmt", "-l", "de_de.8859-1", "%'d", "1234", "12.5", "99999999999", "x", "-5"});
    EXPECT_EQ(mixed.status, 1);
    EXPECT_EQ(mixed.out, "1.234\n-5\n");
    EXPECT_EQ(
        mixed.err,
        "nus: fmt: '12.5' is not a whole number (%d takes one)\n"
        "nus: fmt: '99999999999' does not fit in 32 bits (%d takes -2147483648 to 2147483647)\n"
        "nus: fmt: 'x' is not a whole number (%d takes one)\n");
    auto negative_u = nus({"fmt", "-l", "de_de.8859-1", "%u", "-1"});
    EXPECT_EQ(negative_u.status, 1);
    auto not_double = nus({"fmt", "-l", "de_de.8859-1", "%f", "1,5"});
    EXPECT_EQ(not_double.status, 1);
    EXPECT_EQ(not_double.err, "nus: fmt: '1,5' is not a number\n");
    auto too_wide = nus({"fmt", "-l", "de_de.8859-1", "%200f", "1"});
    EXPECT_EQ(too_wide.status, 1);
    EXPECT_EQ(too_wide.out, "");

    // Formats: usage errors, nothing printed.
    struct Case {
        const char *format;
        const char *message;
    };
    for (const Case &c :
         {Case{"%d %d", "FORMAT must hold exactly one conversion, not 2"},
          Case{"no conversion", "FORMAT must hold exactly one conversion, not 0"},
          Case{"%y", "unknown conversion 'y' in FORMAT (d i u o x X b q e E f g G c s)"},
          Case{"%*d", "'*' widths are not supported: write the width in FORMAT"},
          Case{"%1$d", "positional conversions (%N$) are not supported in FORMAT"},
          Case{"%5", "FORMAT ends inside the conversion '%5'"}}) {
        auto r = nus({"fmt", "-l", "de_de.8859-1", c.format, "1"});
        EXPECT_EQ(r.status, 2) << c.format;
        EXPECT_EQ(r.out, "") << c.format;
        EXPECT_EQ(r.err, usage("fmt", c.message)) << c.format;
    }
    // The library's own refusal of a format is a usage error too.
    auto refused = nus({"fmt", "-l", "de_de.8859-1", "%.?d", "1"});
    EXPECT_EQ(refused.status, 2);

    EXPECT_EQ(nus({"fmt", "-l", "de_de.8859-1", "%d"}).err, usage("fmt", "no NUMBER given"));
    EXPECT_EQ(nus({"fmt", "-l", "de_de.8859-1"}).err, usage("fmt", "no FORMAT given"));
    EXPECT_EQ(nus({"fmt", "%d", "1"}).status, 2);
    auto locale = nus({"fmt", "-l", "de_de.8859-15", "%d", "1"});
    EXPECT_EQ(locale.status, 1);
    EXPECT_EQ(locale.err.rfind("nus: fmt: cannot load locale 'de_de.8859-15'", 0), 0u)
        << locale.err;
    auto help = nus({"fmt", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("Usage: nus fmt -l LOCALE FORMAT NUMBER...", 0), 0u);
}

TEST(NusMoney, AmountsInTheirPlaces) {
    auto run = [](const char *locale, const char *format, const char *amount) {
        auto r = nus({"money", "-l", locale, format, amount});
        EXPECT_EQ(r.status, 0) << locale << " " << format << " " << amount << ": " << r.err;
        return r.out;
    };
    EXPECT_EQ(run("en_us.8859-1", "%n", "1234.567"), "$1,234.57\n");
    EXPECT_EQ(run("en_us.8859-1", "%n", "-1234.567"), "-$1,234.57\n");
    EXPECT_EQ(run("en_us.8859-1", "%(n", "-5"), "($5.00)\n");
    EXPECT_EQ(run("en_us.8859-1", "%=*#5n", "1234.567"), " $*1,234.57\n");
    EXPECT_EQ(run("en_us.8859-1", "%i", "-5"), "-USD 5.00\n");
    EXPECT_EQ(run("en_us.8859-1", "%^!n", "1234567"), "1234567.00\n");
    EXPECT_EQ(run("de_de.8859-1", "%n", "1234567.891"), "1.234.567,89 EUR\n");
    EXPECT_EQ(run("de_de.8859-1", "%n", "99.995"), "100,00 EUR\n"); // rounded on the digits
    EXPECT_EQ(run("fr_fr.8859-1", "%n", "-1234567.891"), "-1\xA0"
                                                         "234\xA0"
                                                         "567,89 EUR\n");
    // Shift-JIS yen sign before the amount, no fraction digits.
    EXPECT_EQ(run("ja_jp.sjis", "%n", "1234567.891"), "\x81\x8f"
                                                      "1,234,568\n");
}

TEST(NusMoney, Errors) {
    auto bad = nus({"money", "-l", "en_us.8859-1", "%n", "12", "abc", "3"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, "$12.00\n$3.00\n");
    EXPECT_EQ(bad.err, "nus: money: 'abc' is not an amount\n");
    EXPECT_EQ(nus({"money", "-l", "en_us.8859-1", "%k", "1"}).err,
              usage("money", "unknown conversion 'k' in FORMAT (n or i)"));
    EXPECT_EQ(nus({"money", "-l", "en_us.8859-1", "%n%i", "1"}).status, 2);
    EXPECT_EQ(nus({"money", "-l", "en_us.8859-1", "%n"}).err, usage("money", "no AMOUNT given"));
    EXPECT_EQ(nus({"money", "-l", "xx_xx.8859-1", "%n", "1"}).status, 1);
}

TEST(NusParse, ValuesAndWhatIsLeft) {
    auto de = nus({"parse", "-l", "de_de.8859-1", "1234,5 EUR", "  12,5", ",5", "1.5", "-0,5e3x"});
    EXPECT_EQ(de.status, 0) << de.err;
    EXPECT_EQ(de.out, "value 1234.5, unread \" EUR\"\n"
                      "value 12.5, unread \"\"\n"
                      "value 0.5, unread \"\"\n"
                      "value 1, unread \".5\"\n"
                      "value -500, unread \"x\"\n");
    auto grouped = nus({"parse", "-l", "de_de.8859-1", "-g", "1.234.567,891"});
    EXPECT_EQ(grouped.out, "value 1234567.891, unread \"\"\n");
    auto integer = nus({"parse", "-l", "de_de.8859-1", "--integer", " 42abc", "-17 Grad"});
    EXPECT_EQ(integer.out, "value 42, unread \"abc\"\nvalue -17, unread \" Grad\"\n");
    auto hex = nus({"parse", "-l", "en_us.8859-1", "--integer", "--base", "16", "ff", "7fz"});
    EXPECT_EQ(hex.out, "value 255, unread \"\"\nvalue 127, unread \"z\"\n");
    auto money = nus({"parse", "-l", "en_us.8859-1", "--money", "$1234.56", "-$1234.56",
                      "1234.56 left", "-1234.56"});
    EXPECT_EQ(money.status, 0) << money.err;
    EXPECT_EQ(money.out, "value 1234.56, unread \"\"\n"
                         "value -1234.56, unread \"\"\n"
                         "value 1234.56, unread \" left\"\n"
                         "value -1234.56, unread \"\"\n");
    // Without grouping the separator ends the number.
    auto ungrouped = nus({"parse", "-l", "en_us.8859-1", "--money", "-$1,234.56"});
    EXPECT_EQ(ungrouped.out, "value -1, unread \",234.56\"\n");
    auto international =
        nus({"parse", "-l", "en_us.8859-1", "--money", "--format", "%i", "--", "-USD 5"});
    EXPECT_EQ(international.out, "value -5, unread \"\"\n");
}

// What fmt and money write, parse reads back, in each locale's own separators.
TEST(NusParse, ReadsBackWhatFmtAndMoneyWrite) {
    for (const char *locale :
         {"de_de.8859-1", "fr_fr.8859-1", "en_us.8859-1", "ja_jp.sjis", "en_us.utf8"}) {
        auto number = nus({"fmt", "-l", locale, "%'.3f", "-1234567.891"});
        ASSERT_EQ(number.status, 0) << locale;
        const std::string text = number.out.substr(0, number.out.size() - 1);
        auto back = nus({"parse", "-l", locale, "-g", text});
        EXPECT_EQ(back.out, "value -1234567.891, unread \"\"\n") << locale << ": " << back.err;

        auto amount = nus({"money", "-l", locale, "%n", "-1234567.25"});
        ASSERT_EQ(amount.status, 0) << locale;
        const std::string money = amount.out.substr(0, amount.out.size() - 1);
        auto read = nus({"parse", "-l", locale, "--money", "-g", money});
        const bool whole = std::string(locale) == "ja_jp.sjis"; // no fraction digits
        EXPECT_EQ(read.out,
                  whole ? "value -1234567, unread \"\"\n" : "value -1234567.25, unread \"\"\n")
            << locale << ": " << read.err;
    }
}

TEST(NusParse, Errors) {
    auto bad = nus({"parse", "-l", "de_de.8859-1", "abc", "", "12", "1.234,5"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.out, "value 12, unread \"\"\nvalue 1, unread \".234,5\"\n");
    EXPECT_EQ(bad.err, "nus: parse: 'abc': no number at the start\n"
                       "nus: parse: '': empty text\n");
    // With -g a number longer than a group needs its separators; an integer must end the text.
    auto misplaced = nus({"parse", "-l", "de_de.8859-1", "-g", "1234.567", "1234567"});
    EXPECT_EQ(misplaced.status, 1);
    EXPECT_EQ(misplaced.err, "nus: parse: '1234.567': thousands separators out of place\n"
                             "nus: parse: '1234567': thousands separators out of place\n");
    auto trailing = nus({"parse", "-l", "de_de.8859-1", "--integer", "-g", "1.234", "1.234 x"});
    EXPECT_EQ(trailing.status, 1);
    EXPECT_EQ(trailing.out, "value 1234, unread \"\"\n");
    auto no_integer = nus({"parse", "-l", "de_de.8859-1", "--integer", "zz"});
    EXPECT_EQ(no_integer.status, 1);
    EXPECT_EQ(no_integer.err, "nus: parse: 'zz': no whole number at the start\n");
    auto no_amount = nus({"parse", "-l", "en_us.8859-1", "--money", "nothing"});
    EXPECT_EQ(no_amount.status, 1);
    EXPECT_EQ(no_amount.out, "");

    EXPECT_EQ(nus({"parse", "-l", "de_de.8859-1", "--integer", "--money", "1"}).err,
              usage("parse", "--integer and --money exclude each other"));
    EXPECT_EQ(nus({"parse", "-l", "de_de.8859-1", "--integer", "--base", "1", "1"}).err,
              usage("parse", "--base takes 0 or 2 to 36, not '1'"));
    EXPECT_EQ(nus({"parse", "-l", "de_de.8859-1", "--base", "8", "1"}).err,
              usage("parse", "--base goes with --integer"));
    EXPECT_EQ(nus({"parse", "-l", "de_de.8859-1", "--money", "--format", "%d", "1"}).err,
              usage("parse", "unknown conversion 'd' in FORMAT (n or i)"));
    EXPECT_EQ(nus({"parse", "-l", "de_de.8859-1"}).err, usage("parse", "no TEXT given"));
    EXPECT_EQ(nus({"parse", "-l", "de_de.8859-1", "-USD"}).err,
              usage("parse", "unknown option '-U' (put '--' before operands that begin with '-')"));
}
