// Numbers and money in a code set whose every character is two bytes: ASCII characters begin
// with a zero byte and strings end with two zero bytes. Each multibyte entry point is run on
// the same text as in a one-byte locale with the same symbols, and must give the same result
// with every character widened (and every end pointer twice as far), at every output size.
#include "numeric/numeric_fixture.h"

#include "nus.h"

#include <deque>
#include <functional>
#include <utility>

namespace {

// ASCII text in the two-byte code set, without its terminator.
std::string two(const std::string &s) {
    std::string out;
    for (char c : s) {
        out += '\0';
        out += c;
    }
    return out;
}

// The ASCII text of a two-byte string in n bytes: "?" for a character outside ASCII,
// "<unterminated>" when no two-byte terminator ends it within n.
std::string ascii(const char *s, size_t n) {
    std::string out;
    for (size_t i = 0; i + 1 < n; i += 2) {
        if (s[i] == 0 && s[i + 1] == 0) return out;
        out += s[i] == 0 ? s[i + 1] : '?';
    }
    return "<unterminated>";
}

long offset(const char *end, const char *start) { return end != nullptr ? end - start : -1; }

// The two-byte fixture and the Latin-1 one as its oracle, with the same NUMERIC and MONETARY
// symbols; text arguments in each one's code set.
struct Locales {
    nus_test::TestLocale wide{"uc_uc/e005.lco"}, narrow{"xx_yy/0333.lco"};
    std::deque<std::string> kept;

    Locales() {
        if (!ok()) return;
        for (nu_locale_t h : {wide.h, narrow.h}) {
            auto e = [&](const std::string &s) { return h == wide.h ? two(s) : s; };
            nus_test::set_numeric(h, e(","), e("."), {3, 2}, e("+"), e("-"));
            nus_test::set_monetary(h, e("USD "), e("$"), e("."), e(","), {3}, e(""), e("-"),
                                   {2, 2, 1, 0, 1, 0, 1, 1});
        }
    }
    bool ok() const { return wide.h != nullptr && narrow.h != nullptr; }
    // s in h's code set, terminated, alive as long as this object.
    const char *text(nu_locale_t h, const std::string &s) {
        kept.push_back(h == wide.h ? two(s) + std::string(2, '\0') : s);
        return kept.back().c_str();
    }
};

using Writer = std::function<int(nu_locale_t, char *, int)>;

// The two-byte call at size n against the one-byte call at size n / 2: the same outcome, the
// text widened, nothing past the size.
void every_size(Locales &l, const std::string &what, const Writer &call) {
    std::vector<char> probe(1000);
    const int full = call(l.narrow, probe.data(), 500);
    ASSERT_GE(full, 0) << what;
    for (int size = 0; size <= 2 * full + 4; ++size) {
        if (::testing::Test::HasFailure()) return;   // the first size that differs is enough
        std::vector<char> a(static_cast<size_t>(size) + 8, '#');
        std::vector<char> b(static_cast<size_t>(size / 2) + 8, '#');
        *_nu_ext_errno(l.wide) = *_nu_ext_errno(l.narrow) = 0;
        const int rw = call(l.wide, a.data(), size);
        const int rn = call(l.narrow, b.data(), size / 2);
        for (size_t i = static_cast<size_t>(size); i < a.size(); ++i)
            ASSERT_EQ(a[i], '#') << what << ": write past size " << size;
        if (rn < 0) {
            EXPECT_EQ(rw, -1) << what << " size " << size;
            EXPECT_EQ(l.wide.error(), l.narrow.error()) << what << " size " << size;
            continue;
        }
        EXPECT_EQ(rw, 2 * rn) << what << " size " << size;
        if (size >= 2) {
            EXPECT_EQ(ascii(a.data(), static_cast<size_t>(size)), std::string(b.data()))
                << what << " size " << size;
        }
    }
}

TEST(NumericTwoByte, FormattingAtEverySize) {
    Locales l;
    if (!l.ok()) GTEST_SKIP() << "fixtures not available";
    const std::vector<std::pair<std::string, Writer>> cases = {
        {"numbers", [&](nu_locale_t h, char *o, int n) {
             return nu_mbsfnum(h, o, n, l.text(h, "ab%'12.3f|%-+8d|%#x|%'d|%e|%%|%5c"), 1234.5,
                               -77, 255, 1234567, 1e-5, l.text(h, "c"));
         }},
        {"strings", [&](nu_locale_t h, char *o, int n) {
             return nu_mbsfnum(h, o, n, l.text(h, "%.2s|%5s|%-6s|%s|"), l.text(h, "abcdef"),
                               l.text(h, "xy"), l.text(h, "z"), l.text(h, ""));
         }},
        {"empty format",
         [&](nu_locale_t h, char *o, int n) { return nu_mbsfnum(h, o, n, l.text(h, "")); }},
        {"money", [&](nu_locale_t h, char *o, int n) {
             return nu_mbsfmon(h, o, n, l.text(h, "%n|%i|%(n|%=*#8n|%-14n|%+^!n|%.3n"), 1234.567,
                               -1234.567, -5.0, 1234.567, 0.5, 99.995, 3.14159);
         }},
        {"money literal",
         [&](nu_locale_t h, char *o, int n) { return nu_mbsfmon(h, o, n, l.text(h, "x%%y")); }},
        {"ltombs", [&](nu_locale_t h, char *o, int n) { return nu_ltombs(h, o, n, -1234567, 10, 1); }},
        {"ultombs", [&](nu_locale_t h, char *o, int n) { return nu_ultombs(h, o, n, 4096, 8, 0); }},
    };
    for (const auto &[what, call] : cases) every_size(l, what, call);

    // A multibyte "%s" argument of the wide formatter is widened by the locale's code set.
    std::vector<nu_wchar> ww(40), wn(40);
    const auto f = nus_test::W("[%s|%-4s|%.1s]");
    ASSERT_EQ(nu_wcsfnum(l.wide, ww.data(), 40, f.data(), l.text(l.wide, "abc"),
                         l.text(l.wide, "de"), l.text(l.wide, "fg")), 12);
    ASSERT_EQ(nu_wcsfnum(l.narrow, wn.data(), 40, f.data(), "abc", "de", "fg"), 12);
    EXPECT_EQ(nus_test::narrow(ww.data()), "[abc|de  |f]");
    EXPECT_EQ(nus_test::narrow(ww.data()), nus_test::narrow(wn.data()));
}

TEST(NumericTwoByte, ParsingNumbersAndMoney) {
    Locales l;
    if (!l.ok()) GTEST_SKIP() << "fixtures not available";
    auto reset = [&] { *_nu_ext_errno(l.wide) = *_nu_ext_errno(l.narrow) = 0; };
    // The same value and error in both locales, the end twice as far into the two-byte text.
    auto same = [&](const std::string &what, const std::string &input, auto call) {
        const char *tw = l.text(l.wide, input), *tn = input.c_str();
        char *ew = nullptr, *en = nullptr;
        reset();
        const auto vw = call(l.wide.h, tw, &ew);
        const std::string on = what + " on \"" + input + '"';
        EXPECT_EQ(vw, call(l.narrow.h, tn, &en)) << on;
        EXPECT_EQ(l.wide.error(), l.narrow.error()) << on;
        EXPECT_EQ(offset(ew, tw), en != nullptr ? 2 * offset(en, tn) : -1) << on;
    };
    for (const std::string input : {"", "  ", " 12.345 rest", "-1.234,5e2x", "+42", "1F", "0x1f",
                                    "99999999999999999999", "abc", "12.34.567", ",5", "-0",
                                    "1234567", "7e"}) {
        for (int grouping = 0; grouping <= 1; ++grouping) {
            for (int base : {10, 16, 0}) {
                same("mbstol", input, [&](nu_locale_t h, const char *s, char **e) {
                    return nu_mbstol(h, s, e, base, grouping);
                });
                same("mbstoul", input, [&](nu_locale_t h, const char *s, char **e) {
                    return nu_mbstoul(h, s, e, base, grouping);
                });
            }
            same("mbstod", input, [&](nu_locale_t h, const char *s, char **e) {
                return nu_mbstod(h, s, e, grouping);
            });
        }
    }

    const std::vector<std::pair<std::string, std::string>> money = {
        {"%n", "$1234.56"}, {"%n", "-$1234.56"}, {"%n", "1234.56"}, {"%'n", "$1,234.56"},
        {"%n", "$1,234.56"}, {" %i and %n", "   USD 5.5 and   $7"}, {"%%%n", "x$5"},
        {"%4n", "$12345"}, {"%n", "abc"}, {"x%n", "y$1"}, {"%q", "1"}, {"", "abc"}, {"%n", ""},
    };
    for (const auto &[format, input] : money) {
        same("mbspmon " + format, input, [&](nu_locale_t h, const char *s, char **e) {
            double v[2] = {-999, -999};
            *e = nu_mbspmon(h, s, l.text(h, format), &v[0], &v[1]);
            return std::pair(v[0], v[1]);
        });
    }
}

// Text that is no string of the two-byte code set: a lone byte where a character begins.
TEST(NumericTwoByte, UndecodableText) {
    nus_test::TestLocale h("uc_uc/e005.lco");
    if (h.h == nullptr) GTEST_SKIP() << "fixture not available";
    const char bad[] = "\x41\x00\x00\x00";
    char out[16];
    char *end = nullptr;
    EXPECT_EQ(nu_mbsfnum(h, out, 16, bad), -1);
    EXPECT_EQ(h.error(), NU_EILSEQ);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_mbsfnum(h, out, 16, std::string("\0%\0s\0\0", 6).c_str(), bad), -1);
    EXPECT_EQ(h.error(), NU_EILSEQ);
    *_nu_ext_errno(h) = 0;
    EXPECT_EQ(nu_mbstol(h, bad, &end, 10, 0), 2147483647);
    EXPECT_EQ(h.error(), NU_EILSEQ);
    EXPECT_EQ(end, nullptr);
    double v = -1;
    EXPECT_EQ(nu_mbspmon(h, bad, std::string("\0%\0n\0\0", 6).c_str(), &v), nullptr);
    EXPECT_EQ(v, -1);
}

} // namespace
