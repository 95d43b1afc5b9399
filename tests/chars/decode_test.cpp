// Character decoding and encoding over hand-built CTYPE tables: single-byte (every byte a
// character), EUC-like (1, 2 and 3 bytes) and fixed two-byte (shortest character two bytes,
// so the terminator is 00 00). Spans are placed before an inaccessible page, so a read past
// a length faults. The system's EUC-JP decoder is the oracle for character boundaries.
#include "chars/chars.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <filesystem>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

struct Char {
    nu_wchar wc;
    int length;
};
enum class Set { single_byte, euc, fixed_two, fixed_two_no_zero_lead };

// EUC: ASCII, A1-FE A1-FE, 8F A1-FE A1-FE. Fixed two: 00 00-7F (unless left out, so that
// 00 leads nowhere), 03 91-C9, and 90 30 81 30-39 as four bytes.
std::vector<Char> chars_of(Set set) {
    std::vector<Char> out;
    auto range = [&](nu_wchar from, nu_wchar to, int length) {
        for (nu_wchar wc = from; wc <= to; ++wc) out.push_back({wc, length});
    };
    switch (set) {
    case Set::single_byte: range(0, 0xFF, 1); break;
    case Set::euc:
        range(0, 0x7F, 1);
        for (nu_wchar lead = 0xA1; lead <= 0xFE; ++lead) {
            range(lead << 8 | 0xA1, lead << 8 | 0xFE, 2);
        }
        for (nu_wchar lead = 0x8FA1; lead <= 0x8FFE; ++lead) {
            range(lead << 8 | 0xA1, lead << 8 | 0xFE, 3);
        }
        break;
    case Set::fixed_two: range(0, 0x7F, 2); [[fallthrough]];
    case Set::fixed_two_no_zero_lead:
        range(0x391, 0x3C9, 2);
        range(0x90308130, 0x90308139, 4);
        break;
    }
    return out;
}

// A handle whose CTYPE class table holds exactly the characters of a set.
class Locale {
public:
    explicit Locale(Set set) {
        if (nu_create_null_locale_4(&h_) != 0) std::abort();
        _nu_free_multi(h_->ctype.class_table);
        static const uint16_t zero16 = 0;
        const uint16_t mask = 1;
        multi_t *table = _nu_create_multi(2, 0, &zero16);
        for (const Char &c : chars_of(set)) {
            multi_key key{c.length, {}};
            for (int i = 0; i < c.length; ++i) {
                key.bytes[i] = static_cast<unsigned char>(c.wc >> (8 * (c.length - 1 - i)));
            }
            if (_nu_insert_desc_multi(&key, &mask, table) != 0) std::abort();
        }
        h_->ctype.class_table = table;
        h_->single_byte = set == Set::single_byte;
    }
    ~Locale() { nu_lc_unload(h_); }
    Locale(const Locale &) = delete;
    Locale &operator=(const Locale &) = delete;
    operator nu_locale_t() const { return h_; }
    // A result with the error slot, which is then cleared.
    std::pair<int, int> r(int value) const { return {value, std::exchange(*_nu_ext_errno(h_), 0)}; }

private:
    nu_locale_t h_ = nullptr;
};

using nus_test::Guarded;

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }
using Bytes = std::vector<unsigned char>;
using Wide = std::vector<nu_wchar>;
const std::pair<int, int> kIllegal{-1, NU_EILSEQ};
const std::pair<int, int> kIncomplete{-1, NU_EINVAL};

// "A", A1A2, 8FA1A3, "B": four characters in seven bytes.
const std::string kEuc("A\xA1\xA2\x8F\xA1\xA3" "B");

} // namespace

TEST(CharDecode, LengthsBudgetsAndNulls) {
    Locale euc(Set::euc), fixed(Set::fixed_two);
    EXPECT_EQ(nu_full_mblen(euc, nullptr, 4), 0);
    EXPECT_EQ(nu_full_mblen(euc, u(""), 4), 0);
    EXPECT_EQ(_tsn_nu_full_mblen(euc, u(""), 4), 1);
    EXPECT_EQ(nu_full_mblen(fixed, u("\0"), 2), 0);
    EXPECT_EQ(_tsn_nu_full_mblen(fixed, u("\0"), 2), 2);
    EXPECT_EQ(nu_full_mblen(fixed, u("\0A"), 2), 2);
    EXPECT_EQ(nu_full_mblen(euc, u("\x8F\xA1\xA2"), 3), 3);
    struct Case {
        std::string text;
        int n;
        std::pair<int, int> result;
    };
    for (const Case &c : {Case{"\xA1", 1, kIncomplete}, Case{"\x8F\xA1", 2, kIncomplete},
                          Case{"A", 0, kIncomplete}, Case{"A", -2, kIncomplete},
                          Case{"\x80", 1, kIllegal}, Case{"\xA1" "A", 2, kIllegal},
                          Case{"\x8F\xA1 ", 3, kIllegal}, Case{"\xA1\xA2", 2, {2, 0}}}) {
        SCOPED_TRACE(c.text);
        Guarded g(c.text);
        EXPECT_EQ(euc.r(nu_full_mblen(euc, g.data, c.n)), c.result);
        EXPECT_EQ(euc.r(_tsn_nu_full_mblen(euc, g.data, c.n)), c.result);
        nu_wchar wc = 0;
        EXPECT_EQ(euc.r(_tsn_nu_full_mbtowc(euc, &wc, g.data, c.n)), c.result);
    }

    nu_wchar wc = 0;
    EXPECT_EQ(nu_full_mbtowc(euc, &wc, u("\x8F\xA1\xA2"), 3), 3);
    EXPECT_EQ(wc, 0x8FA1A2u);
    EXPECT_EQ(nu_full_mbtowc(euc, &wc, u(""), 1), 0);
    EXPECT_EQ(euc.r(nu_full_mblen(euc, u("A"), -1)), kIncomplete);
    EXPECT_EQ(wc, 0u);
    // -1: the public form rejects it, the counted form decodes up to the terminator (so an
    // empty string is incomplete, and an illegal one fails while being measured).
    EXPECT_EQ(euc.r(nu_full_mbtowc(euc, &wc, u("\xA1\xA2"), -1)), kIncomplete);
    EXPECT_EQ(euc.r(_tsn_nu_full_mbtowc(euc, &wc, u("\xA1\xA2" "B"), -1)), std::pair(2, 0));
    EXPECT_EQ(wc, 0xA1A2u);
    EXPECT_EQ(euc.r(_tsn_nu_full_mbtowc(euc, &wc, u(""), -1)), kIncomplete);
    EXPECT_EQ(euc.r(_tsn_nu_full_mbtowc(euc, &wc, u("A\x80"), -1)), kIllegal);
    EXPECT_EQ(_tsn_nu_full_mbtowc(fixed, &wc, u("\x03\x91\0"), -1), 2);
    EXPECT_EQ(wc, 0x391u);
}

TEST(CharEncode, LengthRuleAndTableChecks) {
    Locale euc(Set::euc), fixed(Set::fixed_two), no_zero(Set::fixed_two_no_zero_lead),
        sb(Set::single_byte);
    struct Case {
        const Locale *loc;
        nu_wchar wc;
        Bytes out; // empty: not a character of the set
    };
    for (const Case &c : {Case{&euc, 0x41, {0x41}}, Case{&euc, 0x8FA1A3, {0x8F, 0xA1, 0xA3}},
                          Case{&euc, 0x80, {}}, Case{&euc, 0xA141, {}}, Case{&euc, 0x100, {}},
                          Case{&euc, 0xA1A2A3, {}}, Case{&euc, 0x1000000, {}},
                          // shortest character two bytes: a zero lead below 256
                          Case{&fixed, 0x41, {0x00, 0x41}}, Case{&fixed, 0, {0x00, 0x00}},
                          Case{&fixed, 0x3A9, {0x03, 0xA9}},
                          Case{&fixed, 0x90308135, {0x90, 0x30, 0x81, 0x35}},
                          Case{&fixed, 0x308135, {}}, Case{&no_zero, 0x41, {}},
                          Case{&sb, 0xE9, {0xE9}}}) {
        SCOPED_TRACE(c.wc);
        const Locale &loc = *c.loc;
        unsigned char out[4];
        const auto result = loc.r(nu_full_wctomb(loc, out, c.wc));
        const int n = result.first;
        if (c.out.empty()) {
            EXPECT_EQ(result, kIllegal);
            EXPECT_EQ(loc.r(nu_wclen(loc, c.wc)), kIllegal);
        } else {
            ASSERT_EQ(n, static_cast<int>(c.out.size()));
            EXPECT_EQ(Bytes(out, out + n), c.out);
            EXPECT_EQ(loc.r(nu_wclen(loc, c.wc)), std::pair(n, 0));
        }
    }
    EXPECT_EQ(nu_wclen(sb, 0x1234), 1);
}

TEST(CharStrings, ToWide) {
    Locale euc(Set::euc), fixed(Set::fixed_two), sb(Set::single_byte);
    Wide wcs(8, 0xEEEE);
    EXPECT_EQ(_nu_im_mbstowcs(euc, wcs.data(), u(kEuc.c_str()), 8), 4);
    EXPECT_EQ(wcs, (Wide{0x41, 0xA1A2, 0x8FA1A3, 0x42, 0, 0xEEEE, 0xEEEE, 0xEEEE}));
    EXPECT_EQ(_nu_im_mbstowcs(euc, wcs.data(), u(kEuc.c_str()), 2), 2);
    EXPECT_EQ(euc.r(_nu_im_mbstowcs(euc, wcs.data(), u("B\x80"), 8)), kIllegal);
    EXPECT_EQ(wcs[0], 0x42u); // what came before stays
    EXPECT_EQ(_nu_im_mbstowcs(fixed, wcs.data(), u("\0A\x03\x91\x90\x30\x81\x39\0"), 8), 3);
    EXPECT_EQ(Wide(wcs.begin(), wcs.begin() + 4), (Wide{0x41, 0x391, 0x90308139, 0}));

    // Counted: the characters when the end is reached, n + 1 when room runs out first; a
    // span cut inside a character is illegal (not incomplete); nulls are characters.
    Guarded text(kEuc);
    EXPECT_EQ(_tsn_nu_im_mbfstowcfs(euc, wcs.data(), text.data, 7, 8), 4);
    EXPECT_EQ(_tsn_nu_im_mbfstowcfs(euc, wcs.data(), text.data, 7, 4), 4);
    EXPECT_EQ(_tsn_nu_im_mbfstowcfs(euc, wcs.data(), text.data, 7, 2), 3);
    for (size_t cut : {2, 4, 5}) {
        Guarded g(kEuc.substr(0, cut));
        const int slen = static_cast<int>(cut);
        EXPECT_EQ(euc.r(_tsn_nu_im_mbfstowcfs(euc, wcs.data(), g.data, slen, 8)), kIllegal) << cut;
    }
    Guarded nulls(std::string("A\0B", 3));
    EXPECT_EQ(_tsn_nu_im_mbfstowcfs(euc, wcs.data(), nulls.data, 3, 8), 3);
    EXPECT_EQ(Wide(wcs.begin(), wcs.begin() + 3), (Wide{0x41, 0, 0x42}));
    EXPECT_EQ(_tsn_nu_im_mbfstowcfs(euc, wcs.data(), nulls.data, 0, 8), 0);
    Guarded odd(std::string("\0A\x03", 3));
    EXPECT_EQ(fixed.r(_tsn_nu_im_mbfstowcfs(fixed, wcs.data(), odd.data, 3, 8)), kIllegal);

    // Single-byte: each byte one character; never an error.
    EXPECT_EQ(_nu_is_mbstowcs(sb, wcs.data(), u("a\xE9\xFF"), 8), 3);
    EXPECT_EQ(Wide(wcs.begin(), wcs.begin() + 4), (Wide{0x61, 0xE9, 0xFF, 0}));
    Guarded raw(std::string("\xE9\0\xFF", 3));
    EXPECT_EQ(_tsn_nu_is_mbfstowcfs(sb, wcs.data(), raw.data, 3, 8), 3);
    EXPECT_EQ(Wide(wcs.begin(), wcs.begin() + 3), (Wide{0xE9, 0, 0xFF}));
    EXPECT_EQ(_tsn_nu_is_mbfstowcfs(sb, wcs.data(), raw.data, 3, 2), 2);
}

// Where bytes below 128 are one-byte characters, the counted conversion takes them eight at a
// time: the result, the characters and the error must be those of the byte-by-byte walk, at
// every length, alignment and room.
TEST(CharStrings, ToWideInRunsOfOneByteCharacters) {
    Locale euc(Set::euc);
    nu_locale_rec *h = euc;
    std::mt19937 rng(5);
    const std::vector<std::string> pieces = {"a", "Z", "0", std::string(1, '\0'), "\xA1\xA2",
                                             "\x8F\xA1\xA3", "\x80", "\xA1"};
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        const int count = static_cast<int>(rng() % 24);
        for (int i = 0; i < count; ++i) {
            // Mostly ASCII, so that runs of eight occur; now and then an illegal byte.
            const size_t pick = rng() % 20;
            text += pick < 14 ? pieces[pick % 3] : pieces[3 + pick % 5];
        }
        Guarded g(text);
        const int slen = static_cast<int>(text.size());
        const int room = static_cast<int>(rng() % 30);
        Wide by_byte(32, 0xEEEE), in_runs(32, 0xEEEE);
        h->ascii_direct = 0;
        const auto expected = euc.r(_tsn_nu_im_mbfstowcfs(euc, by_byte.data(), g.data, slen, room));
        h->ascii_direct = 1;
        const auto got = euc.r(_tsn_nu_im_mbfstowcfs(euc, in_runs.data(), g.data, slen, room));
        ASSERT_EQ(got, expected) << "length " << slen << " room " << room;
        ASSERT_EQ(in_runs, by_byte) << "length " << slen << " room " << room;
    }
}

TEST(CharStrings, ToMultibyte) {
    Locale euc(Set::euc), fixed(Set::fixed_two), sb(Set::single_byte);
    const nu_wchar wcs[] = {0x41, 0xA1A2, 0x8FA1A3, 0};
    Bytes out;
    // Converts into a buffer of n bytes followed by sentinels.
    auto convert = [&](const Locale &loc, auto fn, const nu_wchar *w, int wlen, int n) {
        out.assign(static_cast<size_t>(n) + 2, 0xEE);
        return loc.r(fn(loc, out.data(), w, wlen, n));
    };
    EXPECT_EQ(convert(euc, _tsn_nu_full_wcstombs, wcs, -1, 8), std::pair(6, 0));
    EXPECT_EQ(out, (Bytes{0x41, 0xA1, 0xA2, 0x8F, 0xA1, 0xA3, 0x00, 0xEE, 0xEE, 0xEE}));
    // What does not fit ends the conversion without terminator or error, the terminator too.
    EXPECT_EQ(convert(euc, _tsn_nu_full_wcstombs, wcs, -1, 5), std::pair(3, 0));
    EXPECT_EQ(out[3], 0xEE);
    EXPECT_EQ(convert(euc, _tsn_nu_full_wcstombs, wcs, -1, 6), std::pair(6, 0));
    EXPECT_EQ(out[6], 0xEE);
    EXPECT_EQ(convert(euc, _tsn_nu_full_wcstombs, wcs, 2, 8), std::pair(3, 0));
    EXPECT_EQ(out[3], 0xEE);
    EXPECT_EQ(convert(euc, _tsn_nu_full_wcstombs, wcs, 4, 8), std::pair(7, 0));
    const nu_wchar bad[] = {0x41, 0xA141, 0};
    EXPECT_EQ(convert(euc, _tsn_nu_full_wcstombs, bad, -1, 8), kIllegal);
    EXPECT_EQ(out[0], 0x41);

    const nu_wchar greek[] = {0x41, 0x391, 0};
    EXPECT_EQ(convert(fixed, _tsn_nu_full_wcstombs, greek, -1, 8), std::pair(4, 0));
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 7), (Bytes{0, 0x41, 0x03, 0x91, 0, 0, 0xEE}));
    EXPECT_EQ(convert(fixed, _tsn_nu_full_wcstombs, greek, -1, 5), std::pair(4, 0));
    EXPECT_EQ(out[4], 0xEE);
    EXPECT_EQ(nu_full_wcstombs(fixed, out.data(), greek, 3), 2);

    const nu_wchar latin[] = {0xE9, 0x41, 0};
    EXPECT_EQ(convert(sb, _tsn_nu_full_wcstombs, latin, -1, 4), std::pair(2, 0));
    EXPECT_EQ(convert(sb, _tsn_nu_is_wcstombs, latin, -1, 4), std::pair(2, 0));
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 4), (Bytes{0xE9, 0x41, 0, 0xEE}));
    EXPECT_EQ(convert(sb, _tsn_nu_is_wcstombs, latin, -1, 2), std::pair(2, 0));
    EXPECT_EQ(out[2], 0xEE);
    const nu_wchar wide[] = {0x41, 0x100, 0};
    EXPECT_EQ(convert(sb, _tsn_nu_is_wcstombs, wide, -1, 4), kIllegal);
    EXPECT_EQ(convert(sb, _tsn_nu_is_wcstombs, wide, 2, 1), std::pair(1, 0));
    EXPECT_EQ(sb.r(_nu_is_wcstombs(sb, out.data(), wide, 4)), kIllegal);
}

TEST(CharMeasure, LengthsBytesAndTerminators) {
    Locale euc(Set::euc), fixed(Set::fixed_two), sb(Set::single_byte);
    EXPECT_EQ(_nu_im_mbslen(euc, u(kEuc.c_str())), 4);
    EXPECT_EQ(euc.r(_nu_im_mbslen(euc, u("A\xA1"))), kIllegal); // the terminator is no trail
    EXPECT_EQ(nu_mbsbytes(euc, nullptr), 0);
    EXPECT_EQ(nu_mbsbytes(euc, u("")), 1);
    EXPECT_EQ(nu_mbsbytes(euc, u(kEuc.c_str())), 8);
    EXPECT_EQ(nu_mbsbytes(euc, u("AB\x80" "C")), 0);
    EXPECT_EQ(nu_mbsbytes(fixed, u("\0")), 2);
    EXPECT_EQ(nu_mbsbytes(fixed, u("\x03\x91\0")), 4);
    EXPECT_EQ(nu_mbsbytes(sb, u("\xE9\xFF")), 3);
    EXPECT_EQ(std::pair(nu_mb_loc_min(euc), nu_mb_loc_max(euc)), std::pair(1, 3));
    EXPECT_EQ(std::pair(nu_mb_loc_min(fixed), nu_mb_loc_max(fixed)), std::pair(2, 4));
    Bytes term(3, 0xEE);
    EXPECT_EQ(nu_mbsterm(fixed, term.data()), 2);
    EXPECT_EQ(term, (Bytes{0, 0, 0xEE}));
    const nu_wchar none[] = {0}, two[] = {0x41, 0x8FA1A3, 0};
    EXPECT_EQ(std::pair(nu_wcslen(none), nu_wcsbytes(none)), std::pair(0, 4));
    EXPECT_EQ(std::pair(nu_wcslen(two), nu_wcsbytes(two)), std::pair(2, 12));

    // Counted: nulls inside count, a character running over the end is illegal (also when
    // the bytes after the span would complete it), and nothing past the span is read.
    Guarded text(kEuc);
    EXPECT_EQ(_tsn_nu_im_mbfslen(euc, text.data, 7), 4);
    EXPECT_EQ(_tsn_nu_im_mbfslen(euc, u(kEuc.c_str()), -1), 4);
    EXPECT_EQ(_tsn_nu_im_mbfslen(euc, text.data, 0), 0);
    EXPECT_EQ(euc.r(_tsn_nu_im_mbfslen(euc, u(kEuc.c_str()), 2)), kIllegal);
    for (size_t cut : {2, 4, 5}) {
        Guarded g(kEuc.substr(0, cut));
        EXPECT_EQ(euc.r(_tsn_nu_im_mbfslen(euc, g.data, static_cast<int>(cut))), kIllegal) << cut;
    }
    Guarded nulls(std::string("A\0B", 3));
    EXPECT_EQ(_tsn_nu_im_mbfslen(euc, nulls.data, 3), 3);
    Guarded pairs(std::string("\0A\0\0\x03\x91", 6));
    EXPECT_EQ(_tsn_nu_im_mbfslen(fixed, pairs.data, 6), 3);
    EXPECT_EQ(fixed.r(_tsn_nu_im_mbfslen(fixed, pairs.data + 2, 3)), kIllegal);
    EXPECT_EQ(_tsn_nu_im_mbfslen(sb, nulls.data, 3), 3);
}

// Every character of each set survives wide -> multibyte -> wide, whole and one by one.
TEST(CharRoundTrip, EveryCharacterOfEachSet) {
    for (Set set : {Set::single_byte, Set::euc, Set::fixed_two}) {
        SCOPED_TRACE(static_cast<int>(set));
        const bool single = set == Set::single_byte;
        Locale loc(set);
        Wide wide;
        int total = 0;
        for (const Char &c : chars_of(set)) {
            if (c.wc == 0) continue;
            wide.push_back(c.wc);
            total += c.length;
        }
        const int count = static_cast<int>(wide.size());
        wide.push_back(0);
        Bytes mb(static_cast<size_t>(total + nu_mb_loc_min(loc)));
        const int room = static_cast<int>(mb.size());
        ASSERT_EQ(nu_full_wcstombs(loc, mb.data(), wide.data(), room), total);
        EXPECT_EQ(nu_mbsbytes(loc, mb.data()), room);
        EXPECT_EQ(_tsn_nu_im_mbfslen(loc, mb.data(), total), count);
        Wide back(wide.size(), 0xEEEE);
        const auto to_wide = single ? _nu_is_mbstowcs : _nu_im_mbstowcs;
        EXPECT_EQ(to_wide(loc, back.data(), mb.data(), count + 1), count);
        EXPECT_EQ(back, wide);
        EXPECT_EQ(_tsn_nu_im_mbfstowcfs(loc, back.data(), mb.data(), total, count + 1), count);
        const unsigned char *p = mb.data();
        for (int i = 0; i < count; ++i) {
            nu_wchar wc = 0;
            unsigned char out[4];
            const int used = nu_full_mbtowc(loc, &wc, p, 4);
            ASSERT_EQ(wc, wide[static_cast<size_t>(i)]);
            ASSERT_EQ(nu_full_wctomb(loc, out, wc), used);
            p += used;
        }
    }
}

// A CTYPE category lost to an allocation failure holds no characters: 1, not a crash.
TEST(CharNullTable, NoCharacters) {
    Locale loc(Set::euc);
    nu_locale_t h = loc;
    _nu_free_multi(h->ctype.class_table);
    h->ctype.class_table = nullptr;
    nu_wchar wcs[4];
    unsigned char out[8];
    const nu_wchar wide[] = {0x41, 0};
    // Braced lists are evaluated in order, and r() clears the slot after each call.
    for (const auto &result :
         {loc.r(nu_full_mblen(h, u("A"), 1)), loc.r(nu_full_mbtowc(h, wcs, u("A"), 1)),
          loc.r(nu_full_wctomb(h, out, 0xA1A2)), loc.r(nu_wclen(h, 0x41)),
          loc.r(_nu_im_mbstowcs(h, wcs, u("A"), 4)),
          loc.r(_tsn_nu_im_mbfstowcfs(h, wcs, u("A"), 1, 4)),
          loc.r(_nu_im_mbslen(h, u("A"))), loc.r(_tsn_nu_im_mbfslen(h, u("AB"), 2)),
          loc.r(nu_full_wcstombs(h, out, wide, 8))}) {
        EXPECT_EQ(result, kIllegal);
    }
    EXPECT_EQ(loc.r(nu_mbsbytes(h, u("A"))), std::pair(0, NU_EILSEQ));
    EXPECT_EQ(nu_mbsterm(h, out) + nu_mb_loc_min(h) + nu_mb_loc_max(h), 0);
}

// The system's EUC-JP decoder agrees on boundaries, illegal and incomplete sequences.
// Past its first 64 characters the terminated conversion takes one- and two-byte characters
// from per-call tables of the first bytes: its result, error and characters must be those of
// decoding one character at a time, whichever character (longer, illegal, cut by the
// terminator) ends the fast stretch, and at every room.
TEST(CharStrings, ToWideOfLongStringsAgreesWithOneCharacterAtATime) {
    std::mt19937 rng(22);
    for (Set set : {Set::euc, Set::fixed_two}) {
        Locale loc(set);
        const std::vector<std::string> plain =
            set == Set::euc ? std::vector<std::string>{"a", "~", "\xA1\xA2", "\xFE\xFE", "\xB0\xA1"}
                            : std::vector<std::string>{"\x03\x91", "\x03\xC9", std::string("\0A", 2)};
        const std::vector<std::string> odd =
            set == Set::euc ? std::vector<std::string>{"\x8F\xA1\xA3", "\x80", "\xA1\x41", "\xFF"}
                            : std::vector<std::string>{"\x90\x30\x81\x35", "\x03\x41", "\x04\x91"};
        for (int round = 0; round < 400; ++round) {
            std::string text;
            const int count = 60 + static_cast<int>(rng() % 80);
            for (int i = 0; i < count; ++i) {
                text += rng() % 40 == 0 ? odd[rng() % odd.size()] : plain[rng() % plain.size()];
            }
            if (rng() % 4 == 0) text += set == Set::euc ? "\xA1" : "\x03";   // cut by the end
            const int room = static_cast<int>(rng() % 150);
            // One character at a time, as the walk reads them.
            Wide expected(160, 0xEEEE), got(160, 0xEEEE);
            std::pair<int, int> want{room, 0};
            const unsigned char *p = u(text.c_str());
            for (int i = 0; i < room; ++i) {
                nu_wchar wc = 0;
                const auto one = loc.r(_tsn_nu_full_mbtowc(loc, &wc, p, 4));
                if (one.first < 0) {
                    want = one;
                    break;
                }
                expected[static_cast<size_t>(i)] = wc;
                if (one.first == 0) {
                    want = {i, 0};
                    break;
                }
                p += one.first;
            }
            const auto result = loc.r(_nu_im_mbstowcs(loc, got.data(), u(text.c_str()), room));
            ASSERT_EQ(result, want) << "round " << round << " room " << room;
            ASSERT_EQ(got, expected) << "round " << round << " room " << room;
        }
    }
}

TEST(CharOracle, GlibcEucJpBoundaries) {
    const auto built = std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() /
                       "build" / "glibc-locales";
    locale_t jp = newlocale(LC_CTYPE_MASK, "ja_JP.EUC-JP", nullptr);
    if (jp == nullptr && std::filesystem::is_directory(built)) {
        nus_test::EnvGuard locpath("LOCPATH", built.string());
        jp = newlocale(LC_CTYPE_MASK, "ja_JP.EUC-JP", nullptr);
    }
    if (jp == nullptr) GTEST_SKIP() << "ja_JP.EUC-JP not available (make bench generates it)";
    const locale_t previous = uselocale(jp);
    Locale euc(Set::euc);
    // "日本語" (JIS X 0208), a JIS X 0212 character, ASCII around them; then illegal and
    // incomplete sequences.
    using S = std::string;
    for (const S &text : {S("A\xC6\xFC\xCB\xDC\xB8\xEC \x8F\xB0\xA1z"), S("\xC6" "A"),
                          S("\x8F" "A"), S("\xC6"), S("\x8F\xB0")}) {
        Guarded g(text);
        std::mbstate_t state{};
        for (size_t pos = 0; pos < text.size();) {
            wchar_t wc;
            const size_t left = text.size() - pos;
            const size_t theirs = std::mbrtowc(&wc, text.data() + pos, left, &state);
            const auto ours = euc.r(nu_full_mblen(euc, g.data + pos, static_cast<int>(left)));
            const int length = static_cast<int>(theirs); // -1 and -2 for the failures
            const auto expected = length == -1 ? kIllegal
                                  : length == -2 ? kIncomplete
                                                 : std::pair(length, 0);
            ASSERT_EQ(ours, expected) << text << " at " << pos;
            if (ours.first < 0) break;
            pos += theirs;
        }
    }
    uselocale(previous);
    freelocale(jp);
}
