// The companion bridge: what nu_init_nuu does when the companion is not asked for, not
// installed, or broken (table mode, results unchanged), and, with the companion built in this
// tree, that every companion branch gives what ICU gives when called directly.
#include "convert/cv_rec.h"
#include "frame/handle.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#ifdef NUS_COMPANION
#include <unicode/ucnv.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>
#endif

namespace {

using nus_test::EnvGuard;
using nus_test::TempDir;

const unsigned char *u8(const std::string &s) {
    return reinterpret_cast<const unsigned char *>(s.c_str());
}

// A data tree for the bridge: dllregistry and locmap (and the registry) in a directory of
// their own, searched before the generated locales and conversions through NU_PATH (and not
// the generated nus/cm3, whose dllregistry names the companions the build made).
struct BridgeTree {
    TempDir dir;
    std::optional<EnvGuard> path;
    explicit BridgeTree(const std::string &dllregistry) {
        if (!dllregistry.empty()) dir.write("dllregistry", dllregistry);
        dir.write("locmap", "# test map\n\xff\nde_de/e01c.lco de_DE\nsv_se/e01c.lco  sv_SE\n"
                            "only-one-word\n" + std::string(500, 'x') + " y\n"
                            "ja_jp/e01c.lco ja_JP\nfr_fr/e01c.lco fr_FR\nes_es/e01c.lco es_ES\n");
        std::ifstream registry(std::string(NUS_SOURCE_DIR) + "/data/registry");
        dir.write("registry", std::string(std::istreambuf_iterator<char>(registry), {}));
        const std::string data = NUS_DATA_DIR;
        path.emplace("NU_PATH", dir.str() + ":" + data + "/nus/lc11:" + data + "/nus/cv9");
    }
    ~BridgeTree() { nu_free_nuu(); }
};

std::string bits() { return std::to_string(sizeof(void *) * 8); }

bool have_data() {
    return std::ifstream(std::string(NUS_DATA_DIR) + "/nus/lc11/de_de/e01c.lco").good();
}

// What a UTF-8 locale gives for a few calls, in any mode.
std::string sample(nu_locale_t h) {
    std::string out;
    const char *words[] = {"Apfel", "Äpfel", "apfel", "Zebra", "Ähre"};
    for (const char *a : words) {
        for (const char *b : words) out += std::to_string(nu_full_mbscoll(h, u8(a), u8(b))) + ",";
    }
    nu_wchar wc = 0;
    out += std::to_string(nu_full_mbtowc(h, &wc, u8("ä"), 4)) + ":" + std::to_string(wc);
    unsigned char key[64];
    out += ":" + std::to_string(nu_full_mbsxfrm(h, key, u8("Äpfel"), sizeof key));
    return out;
}

} // namespace

// Not asked for, not installed, or broken: table mode with the results of table mode, and the
// documented return of nu_init_nuu (0, or -1 with NU_ELOAD for a companion that cannot be
// loaded, which fails the loads that need it).
TEST(NuuBridge, TableModeFallbacks) {
    if (!have_data()) GTEST_SKIP() << "the data tree has not been compiled";
    std::string table;
    {
        BridgeTree tree("");
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, "de_de.utf8", nullptr, nullptr), 0);
        table = sample(h);
        nu_lc_unload(h);
    }
    const struct {
        const char *what;
        const char *use;           // NU_USENUU, or null
        std::string dllregistry;   // empty: no file
        int init;
    } cases[] = {
        {"variable unset", nullptr, bits() + " /nonexistent/libnusu.so\n", 0},
        {"variable 0", "0", bits() + " /nonexistent/libnusu.so\n", 0},
        {"no dllregistry", "1", "", 0},
        {"no entry for this build", "1", "16 /nonexistent/libnusu.so\n# nothing else\n", 0},
        {"garbage", "1",
         "\xff\xfe\n" + bits() + "\n" + bits() + "x\n" + std::string(3000, '6') + " /x\n" + bits(),
         0},
        {"missing companion", "1", bits() + " /nonexistent/libnusu.so\n", -1},
        {"companion lacking the entry points", "1", "# a library, not ours\n" + bits() +
                                                        " libm.so.6\n", -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        BridgeTree tree(c.dllregistry);
        EnvGuard use("NU_USENUU", c.use != nullptr ? std::optional<std::string>(c.use)
                                                   : std::nullopt);
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_create_null_locale_4(&h), 0);
        EXPECT_EQ(nu_init_nuu(h), c.init);
        EXPECT_EQ(*_nu_ext_errno(h), c.init == 0 ? 0 : NU_ELOAD);
        EXPECT_EQ(nuu_capable, 0);
        EXPECT_EQ(fn_nuu_mbscoll, nullptr);
        nu_lc_unload(h);
        h = nullptr;
        const int loaded = nu_lc_load(&h, "de_de.utf8", nullptr, nullptr);
        if (c.init == 0) {
            ASSERT_EQ(loaded, 0);
            EXPECT_EQ(sample(h), table);
            EXPECT_EQ(nu_nuu_locale(h, NU_COLLATE), nullptr);
            nu_cv_t cv = nullptr;
            EXPECT_EQ(nu_cv_open(&cv, "de_de.8859-1", "de_de.utf8"), 1);
            EXPECT_EQ(cv->nuu_in_use, 0);
            nu_cv_unload(cv);
        } else {
            EXPECT_EQ(loaded, -1);
            EXPECT_EQ(nu_setlocale_4(h, NU_ALL, "de_de/e01c.lco"), nullptr);
        }
        nu_lc_unload(h);
    }
}

#ifdef NUS_COMPANION

namespace {

struct Companion : ::testing::Test {
    void SetUp() override {
        if (!have_data()) GTEST_SKIP() << "the data tree has not been compiled";
        tree.emplace(bits() + " " + NUS_COMPANION + "\n");
        use.emplace("NU_USENUU", "1");
    }
    void TearDown() override {
        use.reset();
        tree.reset();
    }
    nu_locale_t load(const char *spec) {
        nu_locale_t h = nullptr;
        EXPECT_EQ(nu_lc_load(&h, spec, nullptr, nullptr), 0) << spec;
        return h;
    }
    std::optional<BridgeTree> tree;
    std::optional<EnvGuard> use;
};

std::vector<std::string> words(const char *path, bool latin1, size_t step) {
    std::ifstream in(path);
    std::vector<std::string> out;
    size_t n = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || n++ % step != 0) continue;
        if (latin1) {
            std::string utf8;
            for (unsigned char c : line) {
                if (c < 0x80) {
                    utf8 += static_cast<char>(c);
                } else {
                    utf8 += static_cast<char>(0xC0 | (c >> 6));
                    utf8 += static_cast<char>(0x80 | (c & 0x3F));
                }
            }
            line = utf8;
        }
        out.push_back(line);
    }
    return out;
}

std::string icu_key(const UCollator *c, const std::string &s) {
    UChar u[512];
    int32_t n = 0;
    UErrorCode err = U_ZERO_ERROR;
    u_strFromUTF8WithSub(u, 512, &n, s.data(), static_cast<int32_t>(s.size()), 0xFFFD, nullptr,
                         &err);
    uint8_t key[1024];
    const int32_t k = ucol_getSortKey(c, u, n, key, sizeof key);
    return std::string(reinterpret_cast<char *>(key), static_cast<size_t>(k - 1));
}

int sign(int v) { return (v > 0) - (v < 0); }

} // namespace

// Kind-3 collation of the library's entry points on four word lists equals ICU's collator of
// the mapped locale: comparisons (both forms and the wide one), sort keys, key bounds.
TEST_F(Companion, CollationThroughTheLibraryMatchesIcu) {
    const struct {
        const char *spec, *icu, *dict;
        bool latin1;
    } lists[] = {{"de_de.utf8", "de_DE", "/usr/share/dict/ngerman", false},
                 {"fr_fr.utf8", "fr_FR", "/usr/share/dict/french", false},
                 {"es_es.utf8", "es_ES", "/usr/share/dict/spanish", false},
                 {"sv_se.utf8", "sv_SE", "/usr/share/dict/swedish", true}};
    for (const auto &list : lists) {
        SCOPED_TRACE(list.spec);
        nu_locale_t h = load(list.spec);
        ASSERT_NE(h, nullptr);
        ASSERT_STREQ(nu_nuu_locale(h, NU_COLLATE), list.icu);
        EXPECT_EQ(h->coll.method, 3);
        UErrorCode err = U_ZERO_ERROR;
        UCollator *icu = ucol_open(list.icu, &err);
        const std::vector<std::string> w = words(list.dict, list.latin1, 97);
        ASSERT_GT(w.size(), 500u);
        int mismatches = 0;
        for (size_t i = 0; i + 1 < w.size(); ++i) {
            const std::string &a = w[i], &b = w[w.size() - 1 - i];
            err = U_ZERO_ERROR;
            const int expect = ucol_strcollUTF8(icu, a.c_str(), -1, b.c_str(), -1, &err);
            mismatches += sign(nu_full_mbscoll(h, u8(a), u8(b))) != expect;
            mismatches += sign(_tsn_nu_full_mbscoll(h, u8(a), static_cast<int>(a.size()), u8(b),
                                                    static_cast<int>(b.size()))) != expect;
            nu_wchar wa[256], wb[256];
            _nu_im_mbstowcs(h, wa, u8(a), 256);
            _nu_im_mbstowcs(h, wb, u8(b), 256);
            mismatches += sign(nu_full_wcscoll(h, wa, wb)) != expect;
            unsigned char key[512];
            const int n = nu_full_mbsxfrm(h, key, u8(a), sizeof key);
            mismatches += std::string(reinterpret_cast<char *>(key), static_cast<size_t>(n)) !=
                          icu_key(icu, a);
        }
        EXPECT_EQ(mismatches, 0);
        EXPECT_EQ(*_nu_ext_errno(h), 0);
        // A failing comparison still reports the companion's status.
        EXPECT_EQ(nu_full_mbscoll(h, nullptr, u8(w[0])), 0);
        EXPECT_EQ(*_nu_ext_errno(h), NU_EBADARG);
        *_nu_ext_errno(h) = 0;
        EXPECT_EQ(_nuu_mbscoll(h, u8(w[0]), nullptr), 0);
        EXPECT_EQ(*_nu_ext_errno(h), NU_EBADARG);
        *_nu_ext_errno(h) = 0;
        // Bounds of a prefix: ICU's bound of the prefix's key.
        const std::string prefix = w[3].substr(0, 2);
        const std::string key = icu_key(icu, prefix);
        uint8_t expect[256];
        err = U_ZERO_ERROR;
        const int32_t ne = ucol_getBound(reinterpret_cast<const uint8_t *>(key.c_str()),
                                         static_cast<int32_t>(key.size()) + 1,
                                         UCOL_BOUND_UPPER_LONG, 1, expect, sizeof expect, &err);
        unsigned char bound[256];
        ASSERT_EQ(nu_mbsSortKeyCollBound(h, u8(prefix), 1, bound, sizeof bound), ne - 1);
        EXPECT_EQ(std::memcmp(bound, expect, static_cast<size_t>(ne)), 0);
        ucol_close(icu);
        nu_lc_unload(h);
    }
}

// The character branches: code points as wide characters, the companion's errors in the
// handle's slot, widths, stepping and searching; a shared copy and a reload to table mode.
TEST_F(Companion, CharactersCopiesAndReloads) {
    nu_locale_t h = load("ja_jp.utf8");
    ASSERT_NE(h, nullptr);
    ASSERT_STREQ(nu_nuu_locale(h, NU_CTYPE), "ja_JP");
    nu_wchar wc = 0;
    EXPECT_EQ(nu_full_mbtowc(h, &wc, u8("語"), 4), 3);
    EXPECT_EQ(wc, 0x8A9Eu);
    unsigned char out[8];
    EXPECT_EQ(nu_full_wctomb(h, out, 0x1F600), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(out), 4), "😀");
    EXPECT_EQ(nu_full_mblen(h, u8("\xe2\x82"), 2), -1);
    EXPECT_EQ(*_nu_ext_errno(h), NU_EINVAL);
    nu_wchar wide[16];
    EXPECT_EQ(_nu_im_mbstowcs(h, wide, u8("aé語"), 16), 3);
    EXPECT_EQ(wide[1], 0xE9u);
    unsigned char back[16];
    EXPECT_EQ(nu_full_wcstombs(h, back, wide, sizeof back), 6);
    EXPECT_STREQ(reinterpret_cast<char *>(back), "aé語");
    EXPECT_EQ(nu_mb_loc_max(h), 4);
    EXPECT_EQ(nu_mbswidth(h, u8("日本 go"), 10), 7);
    EXPECT_EQ(nu_wcwidth(h, 0xFF21), 2);
    EXPECT_EQ(nu_wcswidth(h, wide, 3), 4);
    const std::string s = "日本 go  ";
    EXPECT_EQ(nu_full_mbsnext(h, u8(s)), u8(s) + 3);
    EXPECT_EQ(nu_full_mbschr(h, u8(s), u8("g")), u8(s) + 7);
    EXPECT_EQ(nu_mbsntsbytes(h, u8(s)), 9);
    // Characters from streams: code points through the external fgetc, bytes through the
    // caller's byte source, with the readers' failure codes.
    {
        TempDir dir;
        const std::string path = dir.write("chars.txt", "a語😀\xe2\x82").string();
        FILE *f = std::fopen(path.c_str(), "rb");
        ASSERT_NE(f, nullptr);
        for (const nu_wchar expected : {nu_wchar{'a'}, nu_wchar{0x8A9E}, nu_wchar{0x1F600}})
            EXPECT_EQ(nu_full_fgetwc(h, f), expected);
        EXPECT_EQ(nu_full_fgetwc(h, f), static_cast<nu_wchar>(-1));
        EXPECT_EQ(*_nu_ext_errno(h), NU_EINVAL);   // the end inside a character
        EXPECT_EQ(nu_full_fgetwc(h, f), static_cast<nu_wchar>(-1));
        EXPECT_EQ(*_nu_ext_errno(h), NU_EEOF);
        std::fclose(f);
        const char *bytes = "\xc3\xa9\xff";
        auto next = [](void *stream) {
            auto *p = static_cast<const char **>(stream);
            return **p != 0 ? static_cast<int>(static_cast<unsigned char>(*(*p)++)) : -1;
        };
        unsigned char buf[4];
        int len = -1;
        EXPECT_EQ(nu_getmb(h, buf, next, &bytes, &len), 0);
        EXPECT_EQ(len, 2);
        EXPECT_EQ(nu_getmb(h, buf, next, &bytes, &len), -1);
        EXPECT_EQ(*_nu_ext_errno(h), NU_EILSEQ);
        EXPECT_EQ(nu_getmb(h, buf, next, &bytes, &len), -1);
        EXPECT_EQ(*_nu_ext_errno(h), NU_EEOF);
        EXPECT_EQ(len, 0);
    }
    // Classes and case of code points: Unicode's simple mappings (ß has no single upper case).
    const int upper = nu_ctype(h, "upper"), alpha = nu_ctype(h, "alpha");
    EXPECT_EQ(_nu_im_iswctype(h, 0xC4, upper | alpha), upper | alpha);
    EXPECT_EQ(_nu_im_ismctype(h, u8("ж"), upper), 0);
    EXPECT_NE(_nu_im_ismctype(h, u8("Ж"), upper), 0);
    unsigned char cased[32];
    EXPECT_EQ(nu_tombsupper(h, cased, u8("straße ǆ ж")), 14);   // with the terminator
    EXPECT_STREQ(reinterpret_cast<char *>(cased), "STRAßE Ǆ Ж");
    EXPECT_EQ(_nu_im_tomlower(h, cased, u8("İ")), 2 * 256 + 1);

    // A copy shares the companion's objects; releasing it leaves them to the owner.
    nu_locale_t copy = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&copy), 0);
    ASSERT_EQ(nu_copy_cat(copy, h, NU_ALL), 0);
    EXPECT_STREQ(nu_nuu_locale(copy, NU_COLLATE), "ja_JP");
    EXPECT_EQ(nu_full_mbtowc(copy, &wc, u8("é"), 4), 2);
    EXPECT_EQ(wc, 0xE9u);
    nu_free_nonshared_loc(copy);
    // Reloading CTYPE from a table-driven locale returns it to table mode.
    nu_locale_t t = load("de_de.8859-1");
    char *name = nu_setlocale_4(t, NU_CTYPE, "de_de/0333.lco");
    nu_destroystring(name);
    EXPECT_EQ(nu_nuu_locale(t, NU_CTYPE), nullptr);
    EXPECT_EQ(nu_full_mbtowc(t, &wc, u8("\xe4"), 1), 1);
    EXPECT_EQ(wc, 0xE4u);
    nu_lc_unload(t);
    name = nu_setlocale_4(h, NU_CTYPE, "de_de/e01c.lco");
    nu_destroystring(name);
    EXPECT_STREQ(nu_nuu_locale(h, NU_CTYPE), "de_DE");
    nu_lc_unload(h);
}

// Descriptors between any two code sets the companion converts, opened by locale names or
// code-set numbers, give ICU's bytes; the irreversible flag, the error slot and the expansion
// come from the companion.
TEST_F(Companion, ConversionDescriptors) {
    const std::string text = "Grüße aus Hà Nội, 東京 ½ €";
    const struct {
        const char *spec, *icu;
    } targets[] = {{"zh_cn.gb18030", "gb18030"}, {"ja_jp.iso-2022-jp", "iso-2022-jp"},
                   {"vi_vn.cp1258", "windows-1258"}};
    for (const auto &t : targets) {
        SCOPED_TRACE(t.icu);
        for (int by_numbers = 0; by_numbers < 2; ++by_numbers) {
            nu_cv_t cv = nullptr;
            const int opened = by_numbers ? nu_cv_load(&cv, t.spec, "de_de.utf8", nullptr, nullptr)
                                          : nu_cv_open(&cv, t.spec, "de_de.utf8");
            ASSERT_EQ(opened, 1);
            ASSERT_EQ(cv->nuu_in_use, 1);
            EXPECT_GE(nu_iconv_expansion(cv), 1.0);
            std::string expect(256, '\0');
            UErrorCode err = U_ZERO_ERROR;
            expect.resize(static_cast<size_t>(ucnv_convert(t.icu, "utf-8", expect.data(), 256,
                                                           text.data(),
                                                           static_cast<int32_t>(text.size()),
                                                           &err)));
            unsigned char buffer[256];
            unsigned char *in = const_cast<unsigned char *>(u8(text)), *o = buffer;
            int inlen = static_cast<int>(text.size()), room = sizeof buffer, irreversible = -1;
            EXPECT_EQ(nu_miconv(cv, &in, &inlen, &o, &room, &irreversible), 0);
            EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer),
                                  static_cast<size_t>(o - buffer)),
                      expect);
            EXPECT_EQ(irreversible, std::strcmp(t.icu, "gb18030") == 0 ? 0 : 1);
            // Too little room: error 14, whole characters written, the input on the first
            // character left out; the rest follows in a second call.
            in = const_cast<unsigned char *>(u8(text));
            o = buffer;
            inlen = static_cast<int>(text.size());
            room = 3;
            EXPECT_EQ(nu_miconv(cv, &in, &inlen, &o, &room, &irreversible), -1);
            EXPECT_EQ(*_nu_ext_errno(cv), NU_E2BIG);
            EXPECT_GE(in - u8(text), 2);
            EXPECT_LE(o - buffer, 3);
            room = static_cast<int>(sizeof buffer) - static_cast<int>(o - buffer);
            EXPECT_EQ(nu_miconv(cv, &in, &inlen, &o, &room, &irreversible), 0);
            EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer),
                                  static_cast<size_t>(o - buffer)),
                      expect);
            EXPECT_EQ(nu_cv_unload(cv), 0);
        }
    }
    // Once the variable is gone, opens and loads are table-driven again, though the companion
    // stays loaded.
    use.reset();
    EXPECT_EQ(nuu_capable, 1);
    nu_cv_t cv = nullptr;
    ASSERT_EQ(nu_cv_open(&cv, "de_de.8859-1", "de_de.utf8"), 1);
    EXPECT_EQ(cv->nuu_in_use, 0);
    nu_cv_unload(cv);
    nu_locale_t h = load("de_de.utf8");
    EXPECT_EQ(nu_nuu_locale(h, NU_COLLATE), nullptr);
    nu_lc_unload(h);
}

namespace {

// Counts the library's allocations and refuses the k-th one.
struct Counting {
    static inline long count = 0, refuse = 0, live = 0;
    static void *allocate(size_t n) {
        if (++count == refuse) return nullptr;
        ++live;
        return std::malloc(n);
    }
    static void release(void *p) {
        if (p != nullptr) --live;
        std::free(p);
    }
};

} // namespace

// Every allocation of the companion's load refused in turn (the searches for its files and
// the locale map): nu_init_nuu fails with 3 or goes on without the file, and nothing is left
// once the companion is released.
TEST_F(Companion, AllocationSweep) {
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    nu_setextfunc(nullptr, NU_EXT_MALLOC, reinterpret_cast<nu_extfunc>(&Counting::allocate));
    nu_setextfunc(nullptr, NU_EXT_FREE, reinterpret_cast<nu_extfunc>(&Counting::release));
    long k = 1;
    for (;; ++k) {
        Counting::count = 0;
        Counting::refuse = k;
        Counting::live = 0;
        *_nu_ext_errno(h) = 0;
        const int result = nu_init_nuu(h);
        EXPECT_TRUE(result == 0 || *_nu_ext_errno(h) == NU_ENOMEM) << "refusing allocation " << k;
        EXPECT_EQ(result == 0, nuu_capable == 1);
        nu_free_nuu();
        EXPECT_EQ(Counting::live, 0) << "refusing allocation " << k;
        if (Counting::count < k) break;
    }
    _nu_set_ext_funcptr(NU_EXT_MALLOC, nullptr);
    _nu_set_ext_funcptr(NU_EXT_FREE, nullptr);
    EXPECT_GT(k, 2);
    nu_lc_unload(h);
}

#endif
