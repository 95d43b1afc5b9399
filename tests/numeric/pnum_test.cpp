// Reading numbers by a format: every conversion, flag, width and length modifier read back
// from what nu_mbsfnum writes, in every compiled locale and in the two-byte fixture; then the
// errors, grouping and several conversions in one format against a fixture with known
// symbols.
#include "numeric/numeric_fixture.h"

#include "nus.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

namespace fs = std::filesystem;

std::string two(const std::string &s) {
    std::string out;
    for (char c : s) out += std::string(1, '\0') + c;
    return out;
}

// Every locale object of the compiled tree, named by language, territory and code-set number
// (the registry takes numbers as names): "de_de.819".
std::vector<std::string> compiled_locales() {
    std::vector<std::string> out;
    const fs::path root = fs::path(NUS_DATA_DIR) / "nus" / "lc11";
    if (!fs::exists(root)) return out;
    for (const auto &dir : fs::directory_iterator(root)) {
        if (!dir.is_directory()) continue;
        for (const auto &file : fs::directory_iterator(dir.path())) {
            const std::string stem = file.path().stem().string();
            if (file.path().extension() != ".lco" || stem.size() < 4) continue;
            out.push_back(dir.path().filename().string() + "." +
                          std::to_string(std::stoul(stem.substr(0, 4), nullptr, 16)) +
                          (stem.size() > 4 ? "@" + stem.substr(4) : ""));
        }
    }
    std::sort(out.begin(), out.end());
    return out;
}

struct Counts {
    long integers = 0, doubles = 0, skipped = 0;
};

// Under a grouping list that begins with 0 (el_GR's "0;0") the formatter still separates
// digits, while the conversions to numbers take it for no grouping: grouped text of such a
// locale is not read back.
bool groups_from_zero(nu_locale_t h) {
    return h->lc.grouping.count > 0 && h->lc.grouping.sizes[0] <= 0;
}

// The locale's text of `s` (ASCII): itself, or each character widened to two bytes.
struct Text {
    bool two_byte;
    std::string operator()(const std::string &s) const { return two_byte ? two(s) + '\0' : s; }
};

void round_trip(nu_locale_t h, const std::string &name, Text text, Counts &counts) {
    const char *int_conversions = "diuoxXbq";
    const char *flag_sets[] = {"", "'", "-", "+", " ", "#", "0", "'+", "-'#", "+0"};
    const char *widths[] = {"", "14"};
    const int int_values[] = {0, 1, -1, 7, 255, 1234567, -1234567, INT_MAX, INT_MIN};
    char out[512];
    for (const char *c = int_conversions; *c != 0; ++c)
        for (const char *flags : flag_sets)
            for (const char *width : widths)
                for (const char *length : {"", "h", "l"})
                    for (int v : int_values) {
                        if (std::strchr(flags, '\'') != nullptr && groups_from_zero(h)) {
                            ++counts.skipped;
                            continue;
                        }
                        const std::string format =
                            std::string("%") + flags + width + length + *c;
                        const std::string f = text(format);
                        *_nu_ext_errno(h) = 0;
                        const int n = *length == 'l'
                                          ? nu_mbsfnum(h, out, sizeof out, f.c_str(), long{v})
                                          : nu_mbsfnum(h, out, sizeof out, f.c_str(), v);
                        ASSERT_GE(n, 0) << name << " " << format << " " << v;
                        const std::string what = name + " " + format + " of " +
                                                 std::to_string(v);
                        int converted = -1;
                        char *end = nullptr;
                        long got = 0;
                        if (*length == 'l') {
                            unsigned long ul = 0;
                            long l = 0;
                            end = *c == 'u' ? nu_mbspnum(h, out, &converted, f.c_str(), &ul)
                                            : nu_mbspnum(h, out, &converted, f.c_str(), &l);
                            got = *c == 'u' ? static_cast<long>(ul) : l;
                        } else if (*length == 'h') {
                            unsigned short us = 0;
                            short s = 0;
                            end = *c == 'u' ? nu_mbspnum(h, out, &converted, f.c_str(), &us)
                                            : nu_mbspnum(h, out, &converted, f.c_str(), &s);
                            got = *c == 'u' ? us : s;
                        } else {
                            unsigned u = 0;
                            int i = 0;
                            end = *c == 'u' ? nu_mbspnum(h, out, &converted, f.c_str(), &u)
                                            : nu_mbspnum(h, out, &converted, f.c_str(), &i);
                            got = *c == 'u' ? static_cast<long>(u) : i;
                        }
                        // The formatter takes 32 bits ("l" included) and 16 with "h", signed
                        // but for u.
                        long want;
                        if (*length == 'h') want = *c == 'u' ? static_cast<unsigned short>(v)
                                                             : static_cast<short>(v);
                        else want = *c == 'u' ? static_cast<long>(static_cast<unsigned>(v)) : v;
                        ASSERT_NE(end, nullptr) << what << " error " << *_nu_ext_errno(h);
                        EXPECT_EQ(end, out + n) << what;
                        EXPECT_EQ(converted, 1) << what;
                        ASSERT_EQ(got, want) << what;
                        ++counts.integers;
                    }

    const char *float_conversions = "eEfgG";
    const char *precisions[] = {"", ".2", ".0"};
    const double double_values[] = {0.0, 1.5,     -1234567.891, 1e-5,   3.25e10,
                                    -0.5, 999.9, HUGE_VAL,     -HUGE_VAL, NAN};
    for (const char *c = float_conversions; *c != 0; ++c)
        for (const char *flags : flag_sets)
            for (const char *width : widths)
                for (const char *precision : precisions)
                    for (double v : double_values) {
                        if (std::strchr(flags, '\'') != nullptr && groups_from_zero(h)) {
                            ++counts.skipped;
                            continue;
                        }
                        const std::string format =
                            std::string("%") + flags + width + precision + *c;
                        const std::string f = text(format);
                        *_nu_ext_errno(h) = 0;
                        const int n = nu_mbsfnum(h, out, sizeof out, f.c_str(), v);
                        const std::string what = name + " " + format + " of " +
                                                 std::to_string(v);
                        ASSERT_GE(n, 0) << what;
                        // Infinities and NaN are written without being counted: the text
                        // ends at the terminator, not at n.
                        const bool special = std::isinf(v) || std::isnan(v);
                        int converted = -1;
                        double got = 0;
                        char *end = nu_mbspnum(h, out, &converted, f.c_str(), &got);
                        ASSERT_NE(end, nullptr) << what << " error " << *_nu_ext_errno(h);
                        if (!special) {
                            EXPECT_EQ(end, out + n) << what;
                        }
                        EXPECT_EQ(converted, 1) << what;
                        // The value as the C library rounds it to the same precision.
                        char plain[128];
                        std::snprintf(plain, sizeof plain,
                                      (std::string("%") + precision + *c).c_str(), v);
                        const double want = std::strtod(plain, nullptr);
                        if (std::isnan(v)) {
                            EXPECT_TRUE(std::isnan(got)) << what;
                        } else {
                            ASSERT_EQ(got, want) << what << " read " << out;
                        }
                        ++counts.doubles;
                    }
}

TEST(FormattedParse, ReadsBackWhatTheFormatterWritesInEveryLocale) {
    const auto locales = compiled_locales();
    if (locales.empty()) GTEST_SKIP() << "no compiled locales (build the 64-bit tree)";
    Counts counts;
    int loaded = 0;
    for (const auto &spec : locales) {
        nus_test::TestLocale h(spec);
        ASSERT_NE(h.h, nullptr) << spec;
        ++loaded;
        round_trip(h, spec, Text{false}, counts);
        if (HasFatalFailure()) return;
    }
    // The two-byte code set, with separators, signs and grouping of its own.
    nus_test::TestLocale two_byte("uc_uc/e005.lco");
    ASSERT_NE(two_byte.h, nullptr);
    nus_test::set_numeric(two_byte, two(","), two("."), {3}, two("+"), two("-"));
    round_trip(two_byte, "two-byte", Text{true}, counts);
    std::printf("%d locales and the two-byte fixture: %ld integer and %ld floating round trips"
                " (%ld grouped ones left out)\n",
                loaded, counts.integers, counts.doubles, counts.skipped);
}

// A locale with "," as its decimal point, "." as its separator, groups of three and the
// signs "+" and "-" (the formatter's own example locale).
struct FormattedParseLocale : ::testing::Test {
    void SetUp() override {
        if (h.h == nullptr) GTEST_SKIP() << "fixture not available";
        nus_test::set_numeric(h, ",", ".", {3}, "+", "-");
    }
    nus_test::TestLocale h{"xx_yy/0333.lco"};
};

TEST_F(FormattedParseLocale, SeveralConversionsLiteralsAndSuppression) {
    int a = 0, b = 0, converted = 0;
    double d = 0;
    short s = 0;
    const char *in = "  -1.234.567 ; 1.234,5|ff  %  -12x ";
    char *end = nu_mbspnum(h, in, &converted, "%'d ; %'f|%x %% %hd%*d", &a, &d, &b, &s);
    // "%*d" finds no number at "x": the three values before it are stored.
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(h.error(), NU_EFORMAT);
    EXPECT_EQ(converted, 4);
    EXPECT_EQ(a, -1234567);
    EXPECT_EQ(d, 1234.5);
    EXPECT_EQ(b, 255);
    EXPECT_EQ(s, -12);

    end = nu_mbspnum(h, in, &converted, "%'d ; %'f|%x %% %hd%*c", &a, &d, &b, &s);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(h.error(), NU_EFORMAT);

    end = nu_mbspnum(h, "5 6 7", &converted, "%*d %d %d", &a, &b);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(converted, 2);
    EXPECT_EQ(a, 6);
    EXPECT_EQ(b, 7);
    EXPECT_EQ(*end, 0);
    // A null target is skipped and not counted.
    end = nu_mbspnum(h, "8 9", &converted, "%d %d", static_cast<int *>(nullptr), &b);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(converted, 1);
    EXPECT_EQ(b, 9);
}

TEST_F(FormattedParseLocale, GroupingIsCheckedGroupByGroup) {
    struct Case {
        const char *input, *format;
        long value;
        int rest;   // characters left unread, or -1 for a failure with `error`
        int error;
    };
    const Case cases[] = {
        {"1.234.567", "%'d", 1234567, 0, 0},
        {"1234.567", "%'d", 0, -1, NU_EINVAL},      // four digits before a separator
        {"1.234.56", "%'d", 1234, 3, 0},           // the longest right stretch: 1.234
        {"1.234", "%d", 1, 4, 0},                  // without "'" a separator ends the number
        {"12.", "%'d", 12, 1, 0},                  // a separator not followed by a digit
        {"1.23", "%'d", 1, 3, 0},
        {"-0x1.0ff", "%'x", -0x10ff, 0, 0},        // grouped hexadecimal digits
        {"00000xff", "%#08x", 255, 0, 0},
        {"1,2e3", "%'f", 0, -1, 0},                // read as a double below
    };
    for (const Case &c : cases) {
        if (c.rest == -1 && c.error == 0) continue;
        *_nu_ext_errno(h) = 0;
        long value = 0;
        const char *end = nu_mbspnum(h, c.input, nullptr, c.format, &value);
        const std::string what = std::string(c.input) + " by " + c.format;
        if (c.rest < 0) {
            EXPECT_EQ(end, nullptr) << what;
            EXPECT_EQ(h.error(), c.error) << what;
            continue;
        }
        ASSERT_NE(end, nullptr) << what << " error " << h.error();
        EXPECT_EQ(static_cast<int>(std::strlen(end)), c.rest) << what;
        // "%d" stores an int: the long was zero before.
        EXPECT_EQ(static_cast<int>(value), c.value) << what;
    }
    double d = 0;
    ASSERT_NE(nu_mbspnum(h, "1,2e3", nullptr, "%f", &d), nullptr);
    EXPECT_EQ(d, 1200.0);
    ASSERT_NE(nu_mbspnum(h, "2,5e-3", nullptr, "%e", &d), nullptr);
    EXPECT_EQ(d, 0.0025);
    ASSERT_NE(nu_mbspnum(h, ",5", nullptr, "%f", &d), nullptr);
    EXPECT_EQ(d, 0.5);
    ASSERT_NE(nu_mbspnum(h, "-INFINITY", nullptr, "%g", &d), nullptr);
    EXPECT_EQ(d, -HUGE_VAL);
    // Grouping the other formatters do not write is refused with "'" on e and g.
    EXPECT_STREQ(nu_mbspnum(h, "1.234", nullptr, "%'g", &d), ".234");
}

TEST_F(FormattedParseLocale, ErrorsAndRanges) {
    struct Case {
        const char *input, *format;
        int error, converted;
    };
    const Case cases[] = {
        {"x=5", "y=%d", NU_ENOMATCH, 0},
        {"5 x", "%d y", NU_ENOMATCH, 1},
        {"5%", "%d%%%d", NU_EFORMAT, 1},            // the input ends before the conversion
        {"abc", "%d", NU_EFORMAT, 0},
        {"", "%f", NU_EFORMAT, 0},
        {"2147483648", "%d", NU_ERANGE, 0},
        {"-2147483648", "%d", 0, 1},
        {"-2147483649", "%d", NU_ERANGE, 0},
        {"32768", "%hd", NU_ERANGE, 0},
        {"65535", "%hu", 0, 1},
        {"-1", "%u", NU_ERANGE, 0},
        {"-0", "%u", 0, 1},
        {"99999999999999999999999", "%lu", NU_ERANGE, 0},
        {"1e999", "%e", NU_ERANGE, 0},
        {"-1e999", "%e", NU_ERANGE, 0},
        {"1e-999", "%e", 0, 1},                      // underflow is zero, not an error
        {"5", "%5", NU_EBADFMT, 0},
        {"5", "%5l", NU_EFORMAT, 0},
        {"5", "%k", NU_EFORMAT, 0},
        {"5", "%s", NU_EFORMAT, 0},
        {"5", "%.?d", NU_EMODIFIER, 0},
        {"5", "%2$d", NU_EFORMAT, 0},
    };
    for (const Case &c : cases) {
        *_nu_ext_errno(h) = 0;
        unsigned long storage[2] = {};
        int converted = -1;
        const char *end = nu_mbspnum(h, c.input, &converted, c.format, &storage[0], &storage[1]);
        const std::string what = std::string(c.input) + " by " + c.format;
        EXPECT_EQ(end == nullptr, c.error != 0) << what;
        EXPECT_EQ(h.error(), c.error) << what;
        EXPECT_EQ(converted, c.converted) << what;
    }
    // Null arguments.
    int v = 0, converted = 7;
    EXPECT_EQ(nu_mbspnum(nullptr, "1", &converted, "%d", &v), nullptr);
    EXPECT_EQ(converted, 0);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_mbspnum(h, nullptr, nullptr, "%d", &v), nullptr);
    EXPECT_EQ(h.error(), NU_EBADARG);
    EXPECT_EQ(nu_wcspnum(h, nullptr, nullptr, nullptr), nullptr);
    // The wide form: the same reading, the end as a wide pointer.
    const auto in = nus_test::W(" +12,5e2 rest"), f = nus_test::W("%E");
    double d = 0;
    const nu_wchar *end = nu_wcspnum(h, in.data(), &converted, f.data(), &d);
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(end - in.data(), 8);
    EXPECT_EQ(d, 1250.0);
}

// A long input and format take the allocated buffers of the multibyte form; a refused
// allocation is NU_ENOMEM and nothing leaks.
TEST_F(FormattedParseLocale, LongTextsAndRefusedMemory) {
    std::string input, format;
    std::vector<int> values(40);
    for (int i = 0; i < 40; ++i) {
        input += std::to_string(i * 1001) + " ";
        format += "%d ";
    }
    std::vector<int *> p;
    for (int &v : values) p.push_back(&v);
    int converted = 0;
    auto call = [&] {
        // 40 targets: the format has 40 conversions.
        return nu_mbspnum(h, input.c_str(), &converted, format.c_str(), p[0], p[1], p[2], p[3],
                          p[4], p[5], p[6], p[7], p[8], p[9], p[10], p[11], p[12], p[13], p[14],
                          p[15], p[16], p[17], p[18], p[19], p[20], p[21], p[22], p[23], p[24],
                          p[25], p[26], p[27], p[28], p[29], p[30], p[31], p[32], p[33], p[34],
                          p[35], p[36], p[37], p[38], p[39]);
    };
    ASSERT_NE(call(), nullptr);
    EXPECT_EQ(converted, 40);
    EXPECT_EQ(values[39], 39 * 1001);
    for (long n = 1;; ++n) {
        nus_test::CountingAllocator counting;
        counting.fail_from(n);
        *_nu_ext_errno(h) = 0;
        const char *end = call();
        EXPECT_EQ(counting.live, 0) << n;
        if (end != nullptr) break;
        EXPECT_EQ(h.error(), NU_ENOMEM) << n;
        ASSERT_LT(n, 10);
    }
}

} // namespace
