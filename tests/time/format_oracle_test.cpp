// nu_mbsftime against glibc's strftime_l in the glibc locale compiled from the same Debian
// source, byte for byte, for every conversion, flag and modifier over random dates of the
// years 1 to 9999. Where the library differs on purpose the comparison is made with glibc's
// wide formatter instead (converted back to the code set):
//  - "^" and "#" change the case of every character; strftime_l does so byte by byte, which
//    leaves the non-ASCII letters of a multibyte code set as they are;
//  - a width counts characters; strftime_l counts bytes;
//  - %P (always lower case) likewise: strftime_l lowers bytes, which in Shift JIS turns the
//    second byte of a character ("O" of 0x91 0x4F) into another character.
// Not compared: conversions glibc does not have (%f), and %s where a 32-bit time_t cannot
// hold the value.
#include "chars/chars.h"
#include "frame/handle.h"
#include "time/time_fixture.h"

#include <cwchar>
#include <time.h>

namespace {

using namespace nus_test;

// UTF-8 sources, formatted with the CTYPE of en_us.utf8 (the case maps of every one of them
// but the Turkic ones, which are not here).
const char *const kUtf8Sources[] = {
    "ja_JP", "th_TH", "zh_TW", "fa_IR", "my_MM", "ru_RU", "uk_UA", "pl_PL", "el_GR", "ar_SA",
    "he_IL", "hi_IN", "ko_KR", "es_ES", "de_DE", "en_US", "fr_FR", "it_IT", "pt_BR", "pt_PT",
    "nl_NL", "sv_SE", "fi_FI", "da_DK", "nb_NO", "cs_CZ", "sk_SK", "hu_HU", "ro_RO", "bg_BG",
    "hr_HR", "sr_RS", "sl_SI", "lt_LT", "lv_LV", "et_EE", "ca_ES", "eu_ES", "gl_ES", "vi_VN",
    "id_ID", "zh_CN", "zh_HK", "bn_IN", "ta_IN", "or_IN", "lo_LA", "km_KH", "am_ET", "ka_GE",
    "hy_AM", "be_BY", "mk_MK", "sq_AL", "ga_IE", "cy_GB", "is_IS", "ms_MY", "fil_PH", "sw_KE",
};

// The legacy code sets of the default locale set: our own compiled locale (its real CTYPE)
// and the glibc locale of the same source and charmap.
struct Legacy {
    const char *ours, *source, *charmap;
};
const Legacy kLegacy[] = {
    {"en_us.8859-1", "en_US", "ISO-8859-1"}, {"de_de.8859-1", "de_DE", "ISO-8859-1"},
    {"fr_fr.8859-1", "fr_FR", "ISO-8859-1"}, {"es_es.8859-1", "es_ES", "ISO-8859-1"},
    {"sv_se.8859-1", "sv_SE", "ISO-8859-1"}, {"cs_cz.8859-2", "cs_CZ", "ISO-8859-2"},
    {"ru_ru.8859-5", "ru_RU", "ISO-8859-5"}, {"el_gr.8859-7", "el_GR", "ISO-8859-7"},
    {"he_il.8859-8", "he_IL", "ISO-8859-8"}, {"tr_tr.8859-9", "tr_TR", "ISO-8859-9"},
    {"en_us.cp1252", "en_US", "CP1252"},     {"ja_jp.sjis", "ja_JP", "SHIFT_JIS"},
    {"ja_jp.ujis", "ja_JP", "EUC-JP"},       {"ko_kr.euckr", "ko_KR", "EUC-KR"},
    {"zh_cn.gb", "zh_CN", "GB2312"},         {"zh_tw.big5", "zh_TW", "BIG5"},
    {"th_th.tis620", "th_TH", "TIS-620"},    {"ja_jp.utf8", "ja_JP", "UTF-8"},
    {"de_de.utf8", "de_DE", "UTF-8"},        {"en_us.utf8", "en_US", "UTF-8"},
    {"fr_fr.utf8", "fr_FR", "UTF-8"},        {"es_es.utf8", "es_ES", "UTF-8"},
    {"sv_se.utf8", "sv_SE", "UTF-8"},        {"ru_ru.utf8", "ru_RU", "UTF-8"},
    {"uk_ua.utf8", "uk_UA", "UTF-8"},        {"pl_pl.utf8", "pl_PL", "UTF-8"},
    {"el_gr.utf8", "el_GR", "UTF-8"},        {"ar_sa.utf8", "ar_SA", "UTF-8"},
    {"he_il.utf8", "he_IL", "UTF-8"},        {"hi_in.utf8", "hi_IN", "UTF-8"},
    {"ko_kr.utf8", "ko_KR", "UTF-8"},        {"zh_tw.utf8", "zh_TW", "UTF-8"},
    {"th_th.utf8", "th_TH", "UTF-8"},        {"fa_ir.utf8", "fa_IR", "UTF-8"},
    {"my_mm.utf8", "my_MM", "UTF-8"},
};

// Whether the locale file brought a TIME category of its own (the compiler writes one).
bool has_time(nu_locale_t h) { return h->time.month_count > 0 && h->time.mon[0].mb != nullptr && *h->time.mon[0].mb != 0; }

// Every conversion with and without its modifiers, and the flags and widths.
const char *const kFormats[] = {
    "%a", "%A", "%b", "%B", "%c", "%C", "%d", "%D", "%e", "%F", "%g", "%G", "%h", "%H",
    "%I", "%j", "%m", "%M", "%n", "%p", "%r", "%R", "%S", "%t", "%T", "%u", "%U", "%V",
    "%w", "%W", "%x", "%X", "%y", "%Y", "%z", "%Z", "%%", "%k", "%l", "%P", "%s",
    "%Ec", "%EC", "%Ex", "%EX", "%Ey", "%EY", "%Od", "%Oe", "%OH", "%OI", "%Om", "%OM",
    "%OS", "%Ou", "%OU", "%OV", "%Ow", "%OW", "%Oy", "%Ob", "%OB", "%OC", "%Ok", "%Ol",
    "%Oj", "%Og", "%OG", "%En", "%Ep",
    "%_d", "%-d", "%0e", "%-e", "%_H", "%-j", "%_j", "%_5Y", "%-5Y", "%05Y", "%8C", "%_3m",
    "%-Oy", "%_Od", "%5Om", "%4Ey", "%_Ey", "%-EC", "%12s", "%3%", "%5n", "%6Z", "%6z",
    "%^a", "%^A", "%#a", "%#A", "%^b", "%^B", "%#b", "%#B", "%^OB", "%#Ob", "%^p", "%#p",
    "%^P", "%#P", "%^c", "%^Ec", "%^x", "%^EY", "%^EC", "%#c", "%^r",
    "%10a", "%-10A", "%010B", "%_12b", "%20c", "%030Ec", "%12x", "%12EX", "%8p", "%3D",
    "%Y-%m-%dT%H:%M:%S", "[%a|%b|%e|%EY|%Oy]",
};

bool changes_case_or_width(const std::string &f) {
    for (size_t i = 0; i + 1 < f.size(); ++i)
        if (f[i] == '%' && (f[i + 1] == '^' || f[i + 1] == 'P' || f[i + 1] == '#' ||
                            (f[i + 1] >= '1' && f[i + 1] <= '9') ||
                            (f[i + 1] == '0' && i + 2 < f.size() && std::isdigit(f[i + 2])) ||
                            ((f[i + 1] == '_' || f[i + 1] == '-') && i + 2 < f.size() &&
                             std::isdigit(f[i + 2]))))
            return true;
    return false;
}

std::string glibc_format(locale_t g, const std::string &format, const struct tm &tm) {
    char out[1024];
    if (!changes_case_or_width(format)) {
        const size_t n = strftime_l(out, sizeof out, format.c_str(), &tm, g);
        return std::string(out, n);
    }
    // Through the wide formatter, back to the code set.
    const locale_t old = uselocale(g);
    wchar_t wformat[256], wout[512];
    std::mbstate_t st{};
    const char *src = format.c_str();
    std::mbsrtowcs(wformat, &src, 256, &st);
    const size_t n = wcsftime(wout, 512, wformat, &tm);
    std::string result;
    st = std::mbstate_t{};
    for (size_t i = 0; i < n; ++i) {
        char mb[MB_LEN_MAX];
        const size_t k = std::wcrtomb(mb, wout[i], &st);
        if (k != static_cast<size_t>(-1)) result.append(mb, k);
    }
    uselocale(old);
    return result;
}

struct Counts {
    long compared = 0;
    long differing = 0;
};

void compare_locale(nu_locale_t h, locale_t g, const std::string &name, int dates, Counts &c) {
    std::mt19937 rng(static_cast<unsigned>(std::hash<std::string>{}(name)));
    for (int i = 0; i < dates; ++i) {
        const nu_time_rec t = i == 0 ? date(2024, 1, 29) : random_time(rng);
        const struct tm tm = to_tm(t);
        for (const char *format : kFormats) {
            const std::string f(format);
            if (sizeof(time_t) == 4 && f.find('s') != std::string::npos &&
                (t.year < 2 || t.year > 137))
                continue;
            const std::string expected = glibc_format(g, f, tm);
            char out[1024];
            const int n = nu_mbsftime(h, out, sizeof out, format, &t);
            const std::string got = n >= 0 ? std::string(out, n)
                                           : "<error " + std::to_string(*_nu_ext_errno(h)) + ">";
            ++c.compared;
            if (got != expected) {
                if (++c.differing <= 20)
                    ADD_FAILURE() << name << " " << format << " " << ymd(t) << " " << t.hour
                                  << ":" << t.minute << ": ours [" << got << "] glibc ["
                                  << expected << "]";
            }
        }
    }
}

class FormatOracle : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

TEST_F(FormatOracle, Utf8SourcesAgreeWithStrftime) {
    NUS_LOAD_OR_SKIP(h, "en_us.utf8");
    Counts c;
    int locales = 0;
    for (const char *source : kUtf8Sources) {
        const locale_t g = glibc_locale(source, "UTF-8");
        if (g == nullptr) continue;
        {
            TimeFill fill(h, g, source);
            compare_locale(h, g, std::string(source) + ".UTF-8", 150, c);
        }
        freelocale(g);
        ++locales;
    }
    EXPECT_GE(locales, 40);
    EXPECT_EQ(c.differing, 0) << "of " << c.compared;
    std::printf("[ oracle   ] %d UTF-8 locales, %ld comparisons, %ld differing\n", locales,
                c.compared, c.differing);
}

// The default locale set with the TIME category our compiler wrote (filled from glibc only
// where a data tree has none): the compiler, the reader and the formatter together.
TEST_F(FormatOracle, DefaultSetAgreesWithStrftime) {
    Counts c;
    int locales = 0, own = 0;
    for (const Legacy &l : kLegacy) {
        TestLocale h(l.ours);
        const locale_t g = glibc_locale(l.source, l.charmap);
        if (h.h == nullptr || g == nullptr) {
            if (g != nullptr) freelocale(g);
            ADD_FAILURE() << l.ours << " not available";
            continue;
        }
        if (has_time(h)) {
            compare_locale(h, g, l.ours, 150, c);
            ++own;
        } else {
            TimeFill fill(h, g, l.source);
            compare_locale(h, g, l.ours, 150, c);
        }
        freelocale(g);
        ++locales;
    }
    EXPECT_EQ(c.differing, 0) << "of " << c.compared;
    std::printf("[ oracle   ] %d locales of the default set (%d with their own TIME), %ld "
                "comparisons, %ld differing\n",
                locales, own, c.compared, c.differing);
}

} // namespace
