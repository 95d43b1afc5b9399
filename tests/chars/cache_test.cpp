// Validation caches: case-insensitive shortest-prefix lookups in byte and wide tries, folded
// with real locales' case rules (single-byte, Turkish, Shift-JIS, UTF-8, fixed two-byte), the
// empty entry, allocation failures and freeing.
#include "chars/chars.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace {

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

// A byte trie and a wide trie over the same strings, freed at the end of the scope.
class Caches {
public:
    explicit Caches(nu_locale_t h) : h_(h) {}
    ~Caches() {
        _nu_free_mb_cache(h_, mb);
        _nu_free_wc_cache(h_, wc);
    }
    // Caches s in both tries.
    void add(const std::string &s, uint32_t value) {
        EXPECT_EQ(_nu_cache_mb_string(h_, &mb, u(s.c_str()), value), 0) << s;
        EXPECT_EQ(_nu_cache_wc_string(h_, &wc, u(s.c_str()), value), 0) << s;
    }
    // {len, value} of the byte lookup, or {-1, 0} when nothing matches.
    std::pair<int, uint32_t> find(const std::string &s) const {
        int len = -1;
        uint32_t value = 0;
        if (_nu_validate_mb_string(h_, mb, u(s.c_str()), &len, &value) != 0) return {-1, 0};
        return {len, value};
    }
    // The same for the wide lookup of the decoded string; len in characters.
    std::pair<int, uint32_t> find_wide(const std::vector<nu_wchar> &ws) const {
        std::vector<nu_wchar> z(ws);
        z.push_back(0);
        int len = -1;
        uint32_t value = 0;
        if (_nu_validate_wc_string(h_, wc, z.data(), &len, &value) != 0) return {-1, 0};
        return {len, value};
    }

    nu_mb_cache_node *mb = nullptr;
    nu_wc_cache_node *wc = nullptr;

private:
    nu_locale_t h_;
};

// The wide characters of a multibyte string of the locale.
std::vector<nu_wchar> wide(nu_locale_t h, const std::string &s) {
    int count = 0;
    nu_wchar *ws = nu_mbstowcslen(h, u(s.c_str()), &count);
    EXPECT_NE(ws, nullptr) << s;
    std::vector<nu_wchar> out(ws, ws + (ws != nullptr ? count : 0));
    _nu_free_ptr(ws);
    return out;
}

using Match = std::pair<int, uint32_t>;
const Match kNone{-1, 0};

} // namespace

TEST(CacheLookup, MonthNamesInASingleByteLocale) {
    NUS_LOAD_OR_SKIP(de, "de_de.8859-1");
    Caches c(de);
    c.add("jan", 1);
    c.add("januar", 1);
    c.add("m\xE4r", 3);
    c.add("m\xE4rz", 3);
    c.add("mai", 5);
    // The shorter entry is met first, whatever the case of the input.
    EXPECT_EQ(c.find("JANUAR 2024"), Match(3, 1));
    EXPECT_EQ(c.find("M\xC4RZ"), Match(3, 3));
    EXPECT_EQ(c.find("ja"), kNone);          // a prefix of entries, but no entry
    EXPECT_EQ(c.find("m\xE4x"), kNone);
    EXPECT_EQ(c.find(""), kNone);
    EXPECT_EQ(c.find_wide(wide(de, "JANUAR")), Match(3, 1));
    EXPECT_EQ(c.find_wide(wide(de, "M\xC4R")), Match(3, 3));
    EXPECT_EQ(c.find_wide({'M', 'A', 'I'}), Match(3, 5));

    // A wide character beyond the byte table keeps its value and reports error 1.
    *_nu_ext_errno(de) = 0;
    EXPECT_EQ(c.find_wide({'M', 0x1C4, 'R'}), kNone);
    EXPECT_EQ(std::exchange(*_nu_ext_errno(de), 0), NU_EILSEQ);
}

TEST(CacheLookup, TurkishCaseRules) {
    NUS_LOAD_OR_SKIP(tr, "tr_tr.8859-9");
    Caches c(tr);
    c.add("\xFE" "ubat", 2);            // şubat
    c.add("\xFD" "l", 7);               // ıl, dotless
    c.add("il", 8);
    EXPECT_EQ(c.find("\xDE" "UBAT"), Match(5, 2));
    // Capital I folds to the dotless ı, capital İ (DD) to the dotted i.
    EXPECT_EQ(c.find("IL"), Match(2, 7));
    EXPECT_EQ(c.find("\xDD" "L"), Match(2, 8));
    EXPECT_EQ(c.find_wide({'I', 'L'}), Match(2, 7));
    EXPECT_EQ(c.find_wide({0xDD, 'L'}), Match(2, 8));
}

TEST(CacheLookup, MultibyteLocales) {
    NUS_LOAD_OR_SKIP(utf8, "en_us.utf8");
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    {
        Caches c(utf8);
        c.add("f\xC3\xA9vr", 2);            // févr
        c.add("kelvin", 9);
        // len counts the input's bytes, which differ from the folded ones for the Kelvin sign.
        EXPECT_EQ(c.find("F\xC3\x89VRIER"), Match(5, 2));
        EXPECT_EQ(c.find("\xE2\x84\xAA" "ELVIN"), Match(8, 9));
        EXPECT_EQ(c.find("F\xC3\x88VR"), kNone);                 // È is not É
        EXPECT_EQ(c.find("f\xC3"), kNone);                       // illegal: no match
        *_nu_ext_errno(utf8) = 0;
        EXPECT_EQ(c.find_wide(wide(utf8, "F\xC3\x89VRIER")), Match(4, 2));
        EXPECT_EQ(c.find_wide(wide(utf8, "\xE2\x84\xAA" "ELVIN")), Match(6, 9));
    }
    {
        // Full-width Ａ (82 60) folds to ａ (82 81); the trie holds the folded bytes.
        Caches c(sjis);
        c.add("\x82\x81\x82\x82", 4);
        c.add("\x82\x81\x81\x40", 5);
        EXPECT_EQ(c.find("\x82\x60\x82\x61xyz"), Match(4, 4));
        EXPECT_EQ(c.find("\x82\x60\x81\x40"), Match(4, 5));
        EXPECT_EQ(c.find("\x82\x60\x82"), kNone);
        ASSERT_NE(c.mb, nullptr);
        EXPECT_EQ(c.mb->key, 0x82);
        EXPECT_EQ(c.mb->down, nullptr);
        EXPECT_EQ(c.find_wide({0x8260, 0x8261}), Match(2, 4));
        ASSERT_NE(c.wc, nullptr);
        EXPECT_EQ(c.wc->key, 0x8281u);
    }
}

TEST(CacheLookup, FixedTwoByteCodeSet) {
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    nu_mb_cache_node *mb = nullptr;
    nu_wc_cache_node *wc = nullptr;
    const unsigned char alpha[] = {0x03, 0x91, 0, 'B', 0, 0};   // Α B
    EXPECT_EQ(_nu_cache_mb_string(fixed, &mb, alpha, 6), 0);
    EXPECT_EQ(_nu_cache_wc_string(fixed, &wc, alpha, 6), 0);
    EXPECT_EQ(_nu_cache_mb_string(fixed, &mb, u("\0Z\0"), 7), 0);
    // The first position now holds a key 0 that is no entry of the empty string.
    int len = -1;
    uint32_t value = 0;
    const unsigned char other[] = {0, 'b', 0, 0};
    EXPECT_EQ(_nu_validate_mb_string(fixed, mb, other, &len, &value), -1);
    EXPECT_EQ(_nu_cache_mb_string(fixed, &mb, u("\0"), 1), 0);    // the empty string
    EXPECT_EQ(_nu_cache_wc_string(fixed, &wc, u("\0"), 1), 0);
    const unsigned char lower[] = {0x03, 0xB1, 0, 'b', 0, 'c', 0, 0};
    EXPECT_EQ(_nu_validate_mb_string(fixed, mb, lower, &len, &value), 0);
    EXPECT_EQ(std::pair(len, value), std::pair(4, 6u));
    EXPECT_EQ(_nu_validate_mb_string(fixed, mb, other, &len, &value), 0);
    EXPECT_EQ(std::pair(len, value), std::pair(0, 1u));
    const nu_wchar ws[] = {0x3B1, 'B', 0};
    EXPECT_EQ(_nu_validate_wc_string(fixed, wc, ws, &len, &value), 0);
    EXPECT_EQ(std::pair(len, value), std::pair(2, 6u));
    const nu_wchar none[] = {'x', 0};
    EXPECT_EQ(_nu_validate_wc_string(fixed, wc, none, &len, &value), 0);
    EXPECT_EQ(std::pair(len, value), std::pair(0, 1u));
    _nu_free_mb_cache(fixed, mb);
    _nu_free_wc_cache(fixed, wc);
}

TEST(CacheLookup, ShortestEntryEmptyEntryAndOverwrites) {
    NUS_LOAD_OR_SKIP(de, "de_de.8859-1");
    Caches c(de);
    // Inserted longest first: the shortest entry still wins.
    c.add("abc", 1);
    c.add("ab", 2);
    c.add("b", 3);
    EXPECT_EQ(c.find("abcd"), Match(2, 2));
    EXPECT_EQ(c.find("xyz"), kNone);
    c.add("", 9);
    EXPECT_EQ(c.find("xyz"), Match(0, 9));
    EXPECT_EQ(c.find("a"), Match(0, 9));       // a prefix without an entry falls back too
    EXPECT_EQ(c.find_wide({'x'}), Match(0, 9));
    EXPECT_EQ(c.find_wide({}), Match(0, 9));
    c.add("AB", 4);                              // the same folded string: its value changes
    EXPECT_EQ(c.find("abcd"), Match(2, 4));
    EXPECT_EQ(c.find_wide({'a', 'b'}), Match(2, 4));

    // Null roots and strings fail without touching the error slot or the results.
    int len = 5;
    uint32_t value = 5;
    *_nu_ext_errno(de) = 42;
    const nu_wchar ws[] = {'a', 'b', 0};
    EXPECT_EQ(_nu_validate_mb_string(de, nullptr, u("ab"), &len, &value), -1);
    EXPECT_EQ(_nu_validate_mb_string(de, c.mb, nullptr, &len, &value), -1);
    EXPECT_EQ(_nu_validate_wc_string(de, nullptr, ws, &len, &value), -1);
    EXPECT_EQ(_nu_validate_wc_string(de, c.wc, nullptr, &len, &value), -1);
    EXPECT_EQ(_nu_cache_mb_string(de, &c.mb, nullptr, 1), -1);
    EXPECT_EQ(_nu_cache_wc_string(de, &c.wc, nullptr, 1), -1);
    EXPECT_EQ(std::exchange(*_nu_ext_errno(de), 0), 42);
    EXPECT_EQ(std::pair(len, value), std::pair(5, 5u));
    _nu_free_mb_cache(de, nullptr);
    _nu_free_wc_cache(de, nullptr);
}

TEST(CacheMemory, AllocationFailuresAndFreeing) {
    NUS_LOAD_OR_SKIP(utf8, "en_us.utf8");
    nus_test::CountingAllocator alloc;
    // The n-th allocation and all later ones refused, in turn: error 3, nothing lost, and a
    // half-inserted string is no entry.
    for (long refuse = 1; refuse <= 6; ++refuse) {
        SCOPED_TRACE(refuse);
        nu_mb_cache_node *mb = nullptr;
        nu_wc_cache_node *wc = nullptr;
        EXPECT_EQ(_nu_cache_mb_string(utf8, &mb, u("jan"), 1), 0);
        EXPECT_EQ(_nu_cache_wc_string(utf8, &wc, u("jan"), 1), 0);
        alloc.fail_from(alloc.allocations + refuse);
        // New nodes: C3, A4 and n in the byte trie, then u and n in the wide trie.
        EXPECT_EQ(_nu_cache_mb_string(utf8, &mb, u("j\xC3\xA4n"), 2), refuse <= 3 ? -1 : 0);
        EXPECT_EQ(_nu_cache_wc_string(utf8, &wc, u("jun"), 2), refuse <= 5 ? -1 : 0);
        EXPECT_EQ(std::exchange(*_nu_ext_errno(utf8), 0), refuse <= 5 ? NU_ENOMEM : 0);
        alloc.fail_from(0);
        int len = -1;
        uint32_t value = 0;
        EXPECT_EQ(_nu_validate_mb_string(utf8, mb, u("J\xC3\x84N"), &len, &value),
                  refuse <= 3 ? -1 : 0);
        const nu_wchar jun[] = {'J', 'U', 'N', 0};
        EXPECT_EQ(_nu_validate_wc_string(utf8, wc, jun, &len, &value), refuse <= 5 ? -1 : 0);
        _nu_free_mb_cache(utf8, mb);
        _nu_free_wc_cache(utf8, wc);
        EXPECT_EQ(alloc.live, 0);
    }
}

TEST(CacheMemory, WideChainsAreFreedNodeByNode) {
    NUS_LOAD_OR_SKIP(de, "de_de.8859-1");
    nus_test::CountingAllocator alloc;
    {
        Caches c(de);
        for (int i = 0; i < 300; ++i) c.add(std::to_string(i * 7919) + "x", static_cast<uint32_t>(i));
        for (int i = 0; i < 300; ++i) {
            EXPECT_EQ(c.find(std::to_string(i * 7919) + "X!").second, static_cast<uint32_t>(i));
        }
    }
    EXPECT_GT(alloc.allocations, 300);
    EXPECT_EQ(alloc.frees, alloc.allocations);
}
