// String operations on real generated locales (Latin-1, Shift-JIS, EUC-JP, UTF-8) and on the
// fixed two-byte fixture, whose terminator is 00 00. Length-given spans sit at the end of a
// readable page, so a read past a length faults.
#include "chars/chars.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using nus_test::Guarded;

namespace {

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }
unsigned char *mu(char *s) { return reinterpret_cast<unsigned char *>(s); }
int error_of(nu_locale_t h) { return *_nu_ext_errno(h); }
void set_error(nu_locale_t h, int code) { *_nu_ext_errno(h) = code; }

// Shift-JIS: "ソ" is 83 5C, whose second byte is the code of a backslash; "亜" is 88 9F;
// B1 is a one-byte katakana; 81 40 the ideographic space.
const char kSo[] = "\x83\x5c";
const char kA[] = "\x88\x9f";

// Fixed two-byte text from ASCII: each character 00 xx, ended by 00 00.
std::string two(const std::string &ascii) {
    std::string out;
    for (char c : ascii) out += std::string(1, '\0') + c;
    return out;
}

} // namespace

TEST(Strings, SteppingNeverSplitsACharacter) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    const std::string text = std::string("a\xb1") + kA + "b";
    const unsigned char *s = u(text.c_str());
    EXPECT_EQ(nu_full_mbsnext(sjis, s), s + 1);
    EXPECT_EQ(nu_full_mbsnext(sjis, s + 2), s + 4);
    EXPECT_EQ(nu_full_mbsnext(sjis, s + 5), s + 6);   // the terminator is stepped over too
    EXPECT_EQ(nu_full_mbsnext(sjis, u("\x80")), nullptr);
    EXPECT_EQ(error_of(sjis), NU_EILSEQ);
    EXPECT_EQ(_tsn_nu_full_mbsnext(sjis, s + 2, 1), nullptr);
    EXPECT_EQ(error_of(sjis), NU_EINVAL);
    EXPECT_EQ(_tsn_nu_full_mbsnext(sjis, s, 0), nullptr);
    EXPECT_EQ(_tsn_nu_full_mbsnext(sjis, s + 2, 2), s + 4);

    // Previous character: from the start, never from the middle of one.
    EXPECT_EQ(nu_full_mbsprev(sjis, s, s + 4), s + 2);
    EXPECT_EQ(nu_full_mbsprev(sjis, s, s + 2), s + 1);
    EXPECT_EQ(nu_full_mbsprev(sjis, s, s), nullptr);
    EXPECT_EQ(error_of(sjis), NU_EPOSITION);
    EXPECT_EQ(nu_full_mbsprev(sjis, s, s + 3), nullptr);   // inside 亜
    EXPECT_EQ(error_of(sjis), NU_EINVAL);

    // Positions by index: the null-stopping form ends on the terminator.
    EXPECT_EQ(nu_full_getmbsi(sjis, s, 3), s + 4);
    EXPECT_EQ(nu_getmbsinull(sjis, s, 9), s + 5);
    EXPECT_EQ(nu_full_getmbsi(sjis, s, 5), s + 6);   // past the terminator
    EXPECT_EQ(nu_full_getmbsi(sjis, s, -1), nullptr);
    EXPECT_EQ(error_of(sjis), NU_ENOWIDTH);
    EXPECT_EQ(nu_getmbsinull(sjis, nullptr, 1), nullptr);
    EXPECT_EQ(error_of(sjis), NU_EBADARG);

    EXPECT_EQ(nu_mbsbytes_nt(sjis, s), 5);
    EXPECT_EQ(nu_mbsbytes_nt(sjis, u("a\x80")), -1);
    EXPECT_EQ(nu_mbsbytes_nt(sjis, nullptr), -1);
    EXPECT_EQ(nu_ismbsterm(sjis, s + 5), 1);
    EXPECT_EQ(nu_ismbsterm(sjis, s), 0);

    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    const std::string f = two("ab") + std::string(2, '\0');
    const unsigned char *fs = u(f.data());
    EXPECT_EQ(nu_mbsbytes_nt(fixed, fs), 4);
    EXPECT_EQ(nu_ismbsterm(fixed, fs + 4), 2);
    EXPECT_EQ(nu_ismbsterm(fixed, fs), 0);
    EXPECT_EQ(nu_getmbsinull(fixed, fs, 7), fs + 4);
    EXPECT_EQ(nu_full_mbsprev(fixed, fs, fs + 4), fs + 2);
}

TEST(Strings, ReplacingCharactersOfOtherLengths) {
    NUS_LOAD_OR_SKIP(utf8, "en_us.utf8");
    char buffer[32] = "xay";
    // One byte replaced by three: the rest moves right by two.
    ASSERT_EQ(nu_mbcreplace(utf8, mu(buffer + 1), u("\xe6\x97\xa5")), mu(buffer + 1));
    EXPECT_STREQ(buffer, "x\xe6\x97\xa5y");
    // And back: three by one.
    ASSERT_EQ(nu_full_putmbsi(utf8, mu(buffer), 1, u("b")), mu(buffer));
    EXPECT_STREQ(buffer, "xby");
    // The terminator replaced: the character is appended and the string stays terminated.
    ASSERT_NE(nu_full_putmbsi(utf8, mu(buffer), 3, u("\xc3\xa9")), nullptr);
    EXPECT_STREQ(buffer, "xby\xc3\xa9");
    EXPECT_EQ(nu_mbcreplace(utf8, nullptr, u("a")), nullptr);
    EXPECT_EQ(error_of(utf8), NU_EBADARG);
    EXPECT_EQ(nu_mbcreplace(utf8, mu(buffer), u("\xff")), nullptr);
    EXPECT_EQ(error_of(utf8), NU_EILSEQ);
    {
        nus_test::CountingAllocator allocator;
        allocator.fail_from(1);
        EXPECT_EQ(nu_mbcreplace(utf8, mu(buffer), u("q")), nullptr);
        EXPECT_EQ(error_of(utf8), NU_ENOMEM);
        EXPECT_STREQ(buffer, "xby\xc3\xa9");
    }
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    char b2[8] = "abc";
    EXPECT_EQ(nu_full_putmbsi(latin1, mu(b2), 2, u("\xe4")), mu(b2));
    EXPECT_STREQ(b2, "ab\xe4");
}

TEST(Strings, TrailingBlanks) {
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    EXPECT_EQ(nu_mbsntslen(latin1, u("ab  ")), 2);
    EXPECT_EQ(nu_mbsntslen(latin1, u("a b")), 3);
    EXPECT_EQ(nu_mbsntslen(latin1, u("   ")), 0);
    EXPECT_EQ(nu_mbsntslen(latin1, u("a\t")), 2);   // a tab is blank but also cntrl
    EXPECT_EQ(nu_mbsntslen(latin1, nullptr), -1);
    EXPECT_EQ(error_of(latin1), NU_EBADARG);
    // Length-given: a null character inside counts as a character.
    EXPECT_EQ(_tsn_nu_mbsntslen(latin1, u("a\0b  x"), 5), 3);
    EXPECT_EQ(_tsn_nu_mbsntsbytes(latin1, u("a\0  "), 4), 2);
    EXPECT_EQ(_tsn_nu_mbsntslen(latin1, u("ab "), -2), -1);
    EXPECT_EQ(error_of(latin1), NU_EBADVAL);

    // Wide: space class (not blank), cntrl excluded; the truncation has no cntrl test.
    const nu_wchar w1[] = {'a', ' ', '\n', 0};
    const nu_wchar w2[] = {'a', ' ', ' ', 0};
    EXPECT_EQ(nu_wcsntslen(latin1, w1), 3);
    EXPECT_EQ(nu_wcsntslen(latin1, w2), 1);
    EXPECT_EQ(_tsn_nu_wcsntslen(latin1, w2, 2), 1);
    EXPECT_EQ(_tsn_nu_wcsntslen(nullptr, w2, 2), -1);
    nu_wchar t1[] = {'a', ' ', '\n', 0};
    nu_wcsntstrunc(latin1, t1);
    EXPECT_EQ(t1[1], 0u);
    // A wide character above 255 is outside every class of a single-byte table.
    const nu_wchar wide[] = {'a', 0x3000, 0};
    EXPECT_EQ(nu_wcsntslen(latin1, wide), 2);
    EXPECT_EQ(error_of(latin1), NU_EILSEQ);

    // The multibyte truncation keeps control blanks.
    char m1[] = "a  ";
    EXPECT_EQ(nu_mbsntstrunc(latin1, mu(m1)), mu(m1 + 1));
    EXPECT_STREQ(m1, "a");
    char m2[] = "a\t";
    EXPECT_EQ(nu_mbsntstrunc(latin1, mu(m2)), nullptr);
    EXPECT_STREQ(m2, "a\t");

    // Multibyte blanks: the ideographic space of UTF-8 and Shift-JIS.
    NUS_LOAD_OR_SKIP(utf8, "ja_jp.utf8");
    EXPECT_EQ(nu_mbsntslen(utf8, u("\xe3\x81\x82\xe3\x80\x80")), 1);
    EXPECT_EQ(nu_mbsntsbytes(utf8, u("\xe3\x81\x82\xe3\x80\x80 ")), 3);
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    EXPECT_EQ(nu_mbsntsbytes(sjis, u("\x88\x9f\x81\x40 ")), 2);

    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    const std::string f = two("ab  ") + std::string(2, '\0');
    EXPECT_EQ(nu_mbsntslen(fixed, u(f.data())), 2);
    EXPECT_EQ(nu_mbsntsbytes(fixed, u(f.data())), 4);
    EXPECT_EQ(_tsn_nu_mbsntsbytes(fixed, u(f.data()), 6), 4);
}

TEST(Strings, TrailingBlankPositions) {
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    const unsigned char *s = u("a b  ");
    EXPECT_EQ(nu_mbsp(latin1, s), s + 3);
    EXPECT_EQ(nu_mbsp(latin1, u("ab")), nullptr);
    const unsigned char *blanks = u("  ");
    EXPECT_EQ(nu_mbsp(latin1, blanks), blanks);
    EXPECT_EQ(nu_mbsp(latin1, u("a\t")), nullptr);   // control blanks are no trailing blanks
}

TEST(Strings, DisplayWidths) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    EXPECT_NE(nu_ctype(sjis, "full_width"), 0);
    const std::string text = std::string("a") + kA + "\xb1";
    EXPECT_EQ(nu_mbswidth(sjis, u(text.c_str()), 10), 4);   // a, 亜 (2), half-width ｱ
    EXPECT_EQ(nu_mbswidth(sjis, u(text.c_str()), 2), 3);
    EXPECT_EQ(nu_mbswidth(sjis, u(text.c_str()), 0), 0);
    EXPECT_EQ(nu_mbswidth(sjis, u(text.c_str()), -1), -1);
    EXPECT_EQ(error_of(sjis), NU_ENOWIDTH);
    EXPECT_EQ(nu_mbwidth(sjis, u(kA)), 2);
    EXPECT_EQ(nu_mbwidth(sjis, u("")), 0);
    EXPECT_EQ(nu_mbwidth(sjis, u("\t")), 1);   // one-byte non-printable in a multibyte set
    EXPECT_EQ(nu_mbwidth(sjis, nullptr), -1);
    EXPECT_EQ(error_of(sjis), NU_EBADARG);
    EXPECT_EQ(nu_mbswidth(sjis, u("a\tb"), 5), -1);
    EXPECT_EQ(error_of(sjis), NU_EINVAL);
    EXPECT_EQ(nu_mbswidth(sjis, u("a\x80"), 5), -1);
    EXPECT_EQ(error_of(sjis), NU_EILSEQ);
    const unsigned char *s = u(text.c_str());
    EXPECT_EQ(nu_mbspwidth(sjis, s, s + 3), 3);
    EXPECT_EQ(nu_mbspwidth(sjis, s + 1, s), -1);
    EXPECT_EQ(error_of(sjis), NU_EPOSITION);

    NUS_LOAD_OR_SKIP(utf8, "ja_jp.utf8");
    EXPECT_EQ(nu_mbswidth(utf8, u("\xe6\x97\xa5\xe6\x9c\xac" "ab"), 10), 6);
    nu_wchar ws[8];
    ASSERT_EQ(_nu_im_mbstowcs(utf8, ws, u("\xe6\x97\xa5" "a"), 8), 2);
    EXPECT_EQ(nu_wcwidth(utf8, ws[0]), 2);
    EXPECT_EQ(nu_wcswidth(utf8, ws, 8), 3);
    EXPECT_EQ(nu_wcspwidth(utf8, ws, ws + 1), 2);
    EXPECT_EQ(nu_wcwidth(utf8, 0), 0);
    EXPECT_EQ(nu_wcwidth(utf8, '\n'), -1);
    EXPECT_EQ(error_of(utf8), NU_EINVAL);

    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    EXPECT_EQ(nu_mbwidth(latin1, u("\t")), -1);   // single-byte: not printable is no width
    EXPECT_EQ(nu_mbswidth(latin1, u("\xe4x"), 9), 2);
}

TEST(Strings, CopyAndConcatenate) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    char d[32] = {};
    EXPECT_EQ(nu_full_mbscpy(sjis, mu(d), u(kA)), mu(d));
    EXPECT_STREQ(d, kA);
    EXPECT_EQ(nu_full_mbscat(sjis, mu(d), u("b")), mu(d));
    EXPECT_STREQ(d, "\x88\x9f" "b");
    EXPECT_EQ(_tsn_nu_mbscpy(sjis, mu(d), u("xyz"), -1), 4);   // with its terminator
    EXPECT_EQ(_tsn_nu_mbscat(sjis, mu(d), -1, u(kSo), -1), 6);
    EXPECT_STREQ(d, "xyz\x83\x5c");
    // Length-given: the bytes are copied, then checked; a cut character fails after the copy.
    EXPECT_EQ(_tsn_nu_mbscpy(sjis, mu(d), u("\x88\x9f\x88"), 3), -1);
    EXPECT_EQ(error_of(sjis), NU_EINVAL);
    EXPECT_EQ(static_cast<unsigned char>(d[2]), 0x88);
    EXPECT_EQ(_tsn_nu_mbscpy(sjis, mu(d), u("a\0b"), 3), 3);
    EXPECT_EQ(_tsn_nu_mbscat(sjis, mu(d), 3, u(kA), 2), 5);
    EXPECT_EQ(_tsn_nu_mbscat(sjis, mu(d), -1, u("x"), 5), -1);
    EXPECT_EQ(error_of(sjis), NU_ELENGTHS);
    EXPECT_EQ(_tsn_nu_mbscat(sjis, mu(d), 2, u("x"), -3), -1);
    EXPECT_EQ(error_of(sjis), NU_EBADVAL);
    EXPECT_EQ(_tsn_nu_mbscat(sjis, nullptr, 2, u("x"), 1), -1);
    EXPECT_EQ(error_of(sjis), NU_EBADARG);

    // Character counts.
    const std::string three = std::string(kA) + "bc";
    std::memset(d, 'Z', sizeof d);
    EXPECT_EQ(nu_mbsncpy(sjis, mu(d), u(three.c_str()), 2), mu(d));
    EXPECT_STREQ(d, "\x88\x9f" "b");
    std::memset(d, 'Z', sizeof d);
    EXPECT_EQ(_tsn_nu_mbsncpy(sjis, mu(d), u(three.c_str()), -1, 9), 4);
    EXPECT_STREQ(d, three.c_str());
    std::memset(d, 'Z', sizeof d);
    EXPECT_EQ(_tsn_nu_mbsncpy(sjis, mu(d), u(three.c_str()), 3, 9), 3);   // no terminator
    EXPECT_EQ(d[3], 'Z');
    EXPECT_EQ(_tsn_nu_mbsncpy(sjis, mu(d), u(three.c_str()), 4, 1), 2);
    std::strcpy(d, "x");
    EXPECT_EQ(nu_mbsncat(sjis, mu(d), u(three.c_str()), 1), mu(d));
    EXPECT_STREQ(d, "x\x88\x9f");
    std::strcpy(d, "x");
    EXPECT_EQ(_tsn_nu_mbsncat(sjis, mu(d), -1, u(three.c_str()), -1, 2), 5);
    EXPECT_STREQ(d, "x\x88\x9f" "b");
    EXPECT_EQ(_tsn_nu_mbsncat(sjis, mu(d), 1, u(three.c_str()), 4, 1), 3);

    // The fixed two-byte set writes a two-byte terminator.
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    const std::string f = two("abc");
    char fd[16];
    std::memset(fd, 'Z', sizeof fd);
    EXPECT_EQ(nu_mbsncpy(fixed, mu(fd), u(f.c_str()), 2), mu(fd));
    EXPECT_EQ(std::string(fd, 6), two("ab") + std::string(2, '\0'));
    EXPECT_EQ(_tsn_nu_mbsncat(fixed, mu(fd), -1, u(f.c_str()), -1, 1), 8);
    EXPECT_EQ(std::string(fd, 8), two("aba") + std::string(2, '\0'));
}

TEST(Strings, WideCopies) {
    const nu_wchar s[] = {1, 2, 3, 0};
    nu_wchar d[8];
    std::fill(std::begin(d), std::end(d), 9u);
    EXPECT_EQ(nu_wcscpy(d, s), d);
    EXPECT_EQ(d[3], 0u);
    EXPECT_EQ(nu_wcscat(d, s), d);
    EXPECT_EQ(nu_wcslen(d), 6);
    std::fill(std::begin(d), std::end(d), 9u);
    EXPECT_EQ(nu_wcsncpy(d, s, 6), d);   // padded with wide nulls up to n
    EXPECT_EQ(d[5], 0u);
    EXPECT_EQ(d[6], 9u);
    EXPECT_EQ(_tsn_nu_wcsncpy(nullptr, d, s, 2, 5), 2);
    EXPECT_EQ(_tsn_nu_wcsncpy(nullptr, d, s, -1, 5), 3);
    EXPECT_EQ(_tsn_nu_wcscpy(nullptr, d, s, -1), 3);
    EXPECT_EQ(_tsn_nu_wcscpy(nullptr, d, s, 2), 2);
    EXPECT_EQ(_tsn_nu_wcscat(nullptr, d, 2, s, 3), 5);
    EXPECT_EQ(d[4], 3u);
    d[1] = 0;
    EXPECT_EQ(nu_wcsncat(d, s, 2), d);
    EXPECT_EQ(nu_wcslen(d), 3);
    EXPECT_EQ(_tsn_nu_wcsncat(nullptr, d, 3, s, 3, 1), 4);
    // Failures with a null handle are silent; with a handle they are reported.
    EXPECT_EQ(_tsn_nu_wcscat(nullptr, d, -1, s, 2), -1);
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    EXPECT_EQ(_tsn_nu_wcscat(h, d, -1, s, 2), -1);
    EXPECT_EQ(error_of(h), NU_ELENGTHS);
    EXPECT_EQ(_tsn_nu_wcscpy(h, d, nullptr, 2), -1);
    EXPECT_EQ(error_of(h), NU_EBADARG);
    EXPECT_EQ(_tsn_nu_wcscpy(h, d, s, -5), -1);
    EXPECT_EQ(error_of(h), NU_EBADVAL);
    nu_lc_unload(h);
}

TEST(Strings, SearchesRespectCharacterBoundaries) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    // ソ's second byte is a backslash byte; the search must not find it there.
    const std::string text = std::string(kSo) + "x\\" + kA;
    const unsigned char *s = u(text.c_str());
    set_error(sjis, 99);
    EXPECT_EQ(nu_full_mbschr(sjis, s, u("\\")), s + 3);
    EXPECT_EQ(nu_full_mbschr(sjis, u(kSo), u("\\")), nullptr);
    EXPECT_EQ(error_of(sjis), 0);   // absence, not failure
    EXPECT_EQ(nu_full_mbschr(sjis, s, u(kA)), s + 4);
    EXPECT_EQ(nu_full_mbschr(sjis, s, u("")), s + 6);   // the terminator
    EXPECT_EQ(nu_full_mbsrchr(sjis, s, u("x")), s + 2);
    const std::string two_so = std::string(kSo) + "a" + kSo;
    EXPECT_EQ(nu_full_mbsrchr(sjis, u(two_so.c_str()), u(kSo)), u(two_so.c_str()) + 3);
    EXPECT_EQ(nu_full_mbsmbs(sjis, s, u((std::string("\\") + kA).c_str())), s + 3);
    EXPECT_EQ(nu_full_mbsmbs(sjis, s, u("\\")), s + 3);
    EXPECT_EQ(nu_full_mbsmbs(sjis, s, u("\x5cx")), nullptr);   // would start inside ソ
    EXPECT_EQ(nu_full_mbsmbs(sjis, s, u("")), s);
    EXPECT_EQ(nu_full_mbschr(sjis, u("a\x80\\"), u("\\")), nullptr);
    EXPECT_EQ(error_of(sjis), NU_EILSEQ);   // failure, not absence
    EXPECT_EQ(nu_full_mbschr(sjis, nullptr, u("a")), nullptr);
    EXPECT_EQ(error_of(sjis), NU_EBADARG);

    // Length-given: null characters inside, and nothing read past the span.
    const std::string span = std::string("a\0", 2) + kSo + "\\";
    Guarded g(span);
    EXPECT_EQ(_tsn_nu_mbschr(sjis, g.data, 5, u("\\"), 1), g.data + 4);
    EXPECT_EQ(_tsn_nu_mbschr(sjis, g.data, 4, u("\\"), 1), nullptr);
    EXPECT_EQ(_tsn_nu_mbschr(sjis, g.data, 5, u(""), 1), g.data + 1);
    EXPECT_EQ(_tsn_nu_mbsrchr(sjis, g.data, 5, u(kSo), 2), g.data + 2);
    EXPECT_EQ(_tsn_nu_mbsmbs(sjis, g.data, 5, u("\\"), 1), g.data + 4);
    EXPECT_EQ(_tsn_nu_mbsmbs(sjis, g.data, 5, u("\\\\"), 2), nullptr);
    EXPECT_EQ(_tsn_nu_mbschr(sjis, g.data, 5, u("\\"), -1), nullptr);
    EXPECT_EQ(error_of(sjis), NU_ELENGTHS);
    Guarded cut("a\x88");
    EXPECT_EQ(_tsn_nu_mbschr(sjis, cut.data, 2, u("b"), 1), nullptr);
    EXPECT_EQ(error_of(sjis), NU_EINVAL);

    // Wide searches.
    const nu_wchar ws[] = {'a', 'b', 'a', 0};
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    EXPECT_EQ(nu_wcschr(latin1, ws, 'a'), ws);
    EXPECT_EQ(nu_wcsrchr(latin1, ws, 'a'), ws + 2);
    EXPECT_EQ(_tsn_nu_wcschr(latin1, ws, -1, 0), ws + 3);
    EXPECT_EQ(_tsn_nu_wcschr(latin1, ws, 3, 0), nullptr);
    EXPECT_EQ(_tsn_nu_wcsrchr(latin1, ws, 2, 'a'), ws);
    set_error(latin1, 99);
    EXPECT_EQ(nu_wcschr(latin1, ws, 'z'), nullptr);
    EXPECT_EQ(error_of(latin1), 0);
    const nu_wchar ba[] = {'b', 'a', 0};
    const nu_wchar none[] = {0};
    EXPECT_EQ(nu_wcswcs(latin1, ws, ba), ws + 1);
    EXPECT_EQ(nu_wcswcs(latin1, ws, none), ws);
    EXPECT_EQ(_tsn_nu_wcswcs(latin1, ws, 2, ba, 2), nullptr);
    EXPECT_EQ(_tsn_nu_wcswcs(nullptr, ws, 3, ba, 2), ws + 1);
}

TEST(Strings, SetsAreDecodedOnce) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    const std::string text = std::string("ab") + kA + kSo + "\\c";
    const unsigned char *s = u(text.c_str());
    const std::string set = std::string("ba") + kA;
    EXPECT_EQ(nu_full_mbsspn(sjis, s, u(set.c_str())), 3);
    EXPECT_EQ(nu_full_mbscspn(sjis, s, u("\\")), 4);   // ソ's trail byte is no backslash
    EXPECT_EQ(nu_full_mbspbrk(sjis, s, u("\\")), s + 6);
    set_error(sjis, 99);
    EXPECT_EQ(nu_full_mbspbrk(sjis, s, u("z")), nullptr);
    EXPECT_EQ(error_of(sjis), 0);
    EXPECT_EQ(nu_full_mbscspn(sjis, s, u("z")), 6);
    EXPECT_EQ(_tsn_nu_mbsspn(sjis, s, 4, u(set.c_str()), 4), 3);
    EXPECT_EQ(_tsn_nu_mbscspn(sjis, s, 8, u("\\"), 1), 4);
    EXPECT_EQ(_tsn_nu_mbspbrk(sjis, s, 8, u(kSo), 2), s + 4);
    EXPECT_EQ(_tsn_nu_mbspbrk(sjis, s, 8, u(kSo), 0), nullptr);
    EXPECT_EQ(nu_full_mbsspn(sjis, s, nullptr), -1);
    EXPECT_EQ(error_of(sjis), NU_EBADARG);
    EXPECT_EQ(nu_full_mbsspn(sjis, s, u("a\x80")), -1);
    EXPECT_EQ(error_of(sjis), NU_EILSEQ);

    // The set's block starts with room for one character and doubles: 1, 2, 4, 8 for five
    // characters; every block is returned.
    {
        nus_test::CountingAllocator allocator;
        EXPECT_EQ(nu_full_mbscspn(sjis, s, u("vwxyz")), 6);
        EXPECT_EQ(allocator.allocations, 4);
        EXPECT_EQ(allocator.live, 0);
        allocator.fail_from(allocator.allocations + 2);
        EXPECT_EQ(nu_full_mbscspn(sjis, s, u("vwxyz")), -1);
        EXPECT_EQ(error_of(sjis), NU_ENOMEM);
        EXPECT_EQ(allocator.live, 0);
    }

    const nu_wchar ws[] = {'a', 'b', 'c', 'a', 0};
    const nu_wchar ab[] = {'b', 'a', 0};
    EXPECT_EQ(nu_wcsspn(sjis, ws, ab), 2);
    EXPECT_EQ(nu_wcscspn(sjis, ws, ab), 0);
    EXPECT_EQ(nu_wcspbrk(sjis, ws + 2, ab), ws + 3);
    EXPECT_EQ(_tsn_nu_wcscspn(sjis, ws + 2, 1, ab, 2), 1);
    EXPECT_EQ(_tsn_nu_wcspbrk(sjis, ws + 2, 1, ab, 2), nullptr);
}

TEST(Strings, CodeOrderComparisons) {
    const nu_wchar abc[] = {'a', 'b', 'c', 0}, abd[] = {'a', 'b', 'd', 0};
    const nu_wchar far[] = {'a', 'b', 0x10000, 0}, abcde[] = {'a', 'b', 'c', 'd', 'e', 0};
    EXPECT_EQ(nu_wcsncmp(abc, abd, 3), -1);
    EXPECT_EQ(nu_wcsncmp(far, abc, 3), 0x10000 - 'c');   // the whole difference
    EXPECT_EQ(nu_wcsncmp(abc, abd, 2), 0);
    EXPECT_EQ(nu_wcsncmp(abc, abcde, 9), -'d');
    EXPECT_EQ(_tsn_nu_wcfscmp(abc, 3, abcde, 5), -2);
    EXPECT_EQ(_tsn_nu_wcfscmp(abd, 3, abcde, 5), 1);
    EXPECT_EQ(nu_wcscmp(abc, abcde), -1);
    EXPECT_EQ(nu_wcscmp(far, abc), 1);
    EXPECT_EQ(nu_wcscmp(abc, abc), 0);
}

// Nothing is read past a given length, and an illegal byte anywhere fails with error 1.
TEST(Strings, BadInputAtEveryPosition) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    const std::string good = std::string("ab") + kA + "cd";
    for (size_t cut = 1; cut <= good.size(); ++cut) {
        Guarded g(good.substr(0, cut));
        const int n = static_cast<int>(cut);
        const bool inside = cut == 3;   // ends after the lead byte of 亜
        EXPECT_EQ(_tsn_nu_mbsntslen(sjis, g.data, n) < 0, inside) << cut;
        EXPECT_EQ(_tsn_nu_mbsntsbytes(sjis, g.data, n) < 0, inside) << cut;
        EXPECT_EQ(_tsn_nu_mbschr(sjis, g.data, n, u("z"), 1) == nullptr, true) << cut;
        EXPECT_EQ(_tsn_nu_mbsmbs(sjis, g.data, n, u("dz"), 2), nullptr) << cut;
        const unsigned char *p = g.data;
        while (p != nullptr && p < g.data + cut) p = _tsn_nu_full_mbsnext(sjis, p, static_cast<int>(g.data + cut - p));
        EXPECT_EQ(p == nullptr, inside) << cut;
        unsigned char d[16];
        EXPECT_EQ(_tsn_nu_mbsncpy(sjis, d, g.data, n, 9) < 0, inside) << cut;
        EXPECT_EQ(_tsn_nu_mbscpy(sjis, d, g.data, n) < 0, inside) << cut;
    }
    for (size_t at = 0; at < good.size(); ++at) {
        std::string bad = good;
        bad[at] = '\x80';
        const unsigned char *s = u(bad.c_str());
        unsigned char d[16];
        EXPECT_EQ(nu_mbsntslen(sjis, s), -1) << at;
        EXPECT_EQ(error_of(sjis), NU_EILSEQ) << at;
        EXPECT_EQ(nu_mbswidth(sjis, s, 99), -1) << at;
        EXPECT_EQ(nu_full_mbschr(sjis, s, u("z")), nullptr) << at;
        EXPECT_EQ(error_of(sjis), NU_EILSEQ) << at;
        EXPECT_EQ(nu_mbsncpy(sjis, d, s, 99), nullptr) << at;
        EXPECT_EQ(nu_full_mbscspn(sjis, s, u("z")), -1) << at;
    }
}

// Random valid strings of each real locale: the length-given forms with the string's own
// length agree with the null-terminated ones, stepping agrees with the character count, and
// replacing a character reads back as intended.
TEST(Strings, PropertiesOnRandomText) {
    std::mt19937 random(20261122);
    for (const char *spec : {"de_de.8859-1", "ja_jp.sjis", "ja_jp.ujis", "en_us.utf8",
                             "ko_kr.euc-kr", "zh_tw.big5"}) {
        NUS_LOAD_OR_SKIP(h, spec);
        // A pool of valid characters found by trying byte sequences of each length.
        std::vector<std::string> pool;
        const int longest = nu_mb_loc_max(h);
        for (int tries = 0; tries < 60000 && pool.size() < 400; ++tries) {
            const int length = 1 + static_cast<int>(random() % static_cast<unsigned>(longest));
            std::string c;
            for (int k = 0; k < length; ++k)
                c += static_cast<char>(k == 0 ? 1 + random() % 255 : 0x40 + random() % 0xC0);
            if (nu_full_mblen(h, u(c.c_str()), length) == length) pool.push_back(c);
        }
        ASSERT_GT(pool.size(), 100u) << spec;
        for (int round = 0; round < 300; ++round) {
            std::vector<std::string> chars(random() % 12);
            std::string text;
            for (auto &c : chars) {
                c = pool[random() % pool.size()];
                text += c;
            }
            const unsigned char *s = u(text.c_str());
            const int n = static_cast<int>(text.size());
            ASSERT_EQ(_tsn_nu_mbsntslen(h, s, n), nu_mbsntslen(h, s)) << spec;
            ASSERT_EQ(_tsn_nu_mbsntsbytes(h, s, n), nu_mbsntsbytes(h, s)) << spec;
            ASSERT_EQ(nu_mbsbytes_nt(h, s), n);
            int steps = 0;
            for (const unsigned char *p = s; *p != 0; p = nu_full_mbsnext(h, p)) ++steps;
            ASSERT_EQ(steps, static_cast<int>(chars.size())) << spec;
            if (!h.h->single_byte) {
                ASSERT_EQ(_nu_im_mbslen(h, s), steps) << spec;
            }
            nu_wchar wide[16];
            ASSERT_EQ(h.h->to_wide(h, wide, s, 16), steps);
            ASSERT_EQ(nu_mbswidth(h, s, 99), nu_wcswidth(h, wide, 99)) << spec;
            if (chars.empty()) continue;
            const size_t i = random() % chars.size();
            ASSERT_EQ(nu_full_mbschr(h, s, u(chars[i].c_str())),
                      _tsn_nu_mbschr(h, s, n, u(chars[i].c_str()), static_cast<int>(chars[i].size())))
                << spec;
            const unsigned char *hit = nu_full_mbsmbs(h, s, u(chars[i].c_str()));
            ASSERT_NE(hit, nullptr);
            size_t offset = 0;
            for (size_t k = 0; k < i; ++k) offset += chars[k].size();
            ASSERT_LE(hit - s, static_cast<long>(offset)) << spec;
            // Replace character i and read the string back.
            const std::string with = pool[random() % pool.size()];
            char buffer[80] = {};
            std::memcpy(buffer, text.data(), text.size());
            ASSERT_EQ(nu_full_putmbsi(h, mu(buffer), static_cast<int>(i), u(with.c_str())), mu(buffer));
            std::string expected;
            for (size_t k = 0; k < chars.size(); ++k) expected += k == i ? with : chars[k];
            ASSERT_EQ(std::string(buffer), expected) << spec;
        }
    }
}
