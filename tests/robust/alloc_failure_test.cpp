// Allocation failures swept through every operation that allocates: for each k, the k-th
// allocation of the operation is refused (the others succeed), until k passes the number the
// operation makes when nothing fails. Every refusal must end in code 3 (NU_ENOMEM) where the
// caller can read it, nothing may be left allocated once the handle or descriptor is released,
// and the release itself must work whatever state the failure left behind.
#include "frame/handle.h"
#include "time/category.h"
#include "support/support.h"

#include "frame/handle.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace {

using nus_test::EnvGuard;

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

// Called at every refusal: a place for a debugger's breakpoint when a sweep fails.
[[gnu::noinline]] void refusing(long k) { asm volatile("" : : "r"(k) : "memory"); }

// A malloc and a free installed in slots 13 and 8 that count what passes through them, can
// refuse one chosen allocation, and know every block they handed out: a free of anything else
// (a double free, a pointer the library did not get from the slot) is recorded.
class SlotAllocator {
public:
    SlotAllocator() {
        self_ = this;
        nu_setextfunc(nullptr, NU_EXT_MALLOC, reinterpret_cast<nu_extfunc>(&allocate));
        nu_setextfunc(nullptr, NU_EXT_FREE, reinterpret_cast<nu_extfunc>(&release));
    }
    ~SlotAllocator() {
        _nu_set_ext_funcptr(NU_EXT_MALLOC, nullptr);
        _nu_set_ext_funcptr(NU_EXT_FREE, nullptr);
        for (void *p : live_) std::free(p);   // keep the leak checker on the first report
        self_ = nullptr;
    }
    SlotAllocator(const SlotAllocator &) = delete;
    SlotAllocator &operator=(const SlotAllocator &) = delete;

    // Starts counting from zero; the allocation numbered `k` (1-based) from now is refused,
    // none when k is 0.
    void arm(long k) {
        count_ = 0;
        refuse_ = k;
        refused_ = false;
    }
    long count() const { return count_; }
    bool refused() const { return refused_; }
    size_t live() const { return live_.size(); }

    // Neither counts nor refuses while it lives: for the test's own look at a result.
    struct Pause {
        Pause() {
            if (self_ != nullptr) ++self_->paused_;
        }
        ~Pause() {
            if (self_ != nullptr) --self_->paused_;
        }
    };
    long bad_frees() const { return bad_frees_; }

private:
    static void *allocate(size_t size) {
        SlotAllocator *s = self_;
        if (s->paused_ == 0 && ++s->count_ == s->refuse_) {
            s->refused_ = true;
            refusing(s->count_);
            return nullptr;
        }
        void *p = std::malloc(size);
        s->live_.insert(p);
        return p;
    }
    static void release(void *p) {
        SlotAllocator *s = self_;
        if (p == nullptr) return;
        if (s->live_.erase(p) == 0) {
            ++s->bad_frees_;   // not ours, or already freed: leave it alone
            return;
        }
        std::free(p);
    }

    static inline SlotAllocator *self_ = nullptr;
    std::set<void *> live_;
    long count_ = 0;
    long refuse_ = 0;
    bool refused_ = false;
    long bad_frees_ = 0;
    int paused_ = 0;
};

// What an operation left for its caller: the code (0 for success) and a print of its result.
struct Outcome {
    int code = 0;
    std::string print;
};

// The data tree of the build as the only place searched, with the registry cached before
// anything is swept (the cache is process-wide setup and comes from the standard allocator).
class AllocFailure : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string lc = std::string(NUS_DATA_DIR) + "/nus/lc11/de_de/0333.lco";
        if (FILE *f = std::fopen(lc.c_str(), "r")) std::fclose(f);
        else GTEST_SKIP() << "the data tree has not been compiled (build the 64-bit tree)";
        int32_t scratch = 0;
        nu_cache_registry(&scratch, nullptr);
    }
    void TearDown() override { nu_free_registry_cache(); }

    // Runs `op` once unarmed to learn its allocation count n (at least `min_allocations`)
    // and what it produces, then once for every k in 1..n with the k-th allocation refused.
    // `op` releases what it made and returns the code the caller sees (0 for success) with a
    // print of its result. A refused run must report 3, or, when the operation recovered from
    // the refusal by itself, succeed with the very result of the unarmed run. The count starts
    // with `op`, or, when `staged`, where it calls start() after a setup of its own.
    // With `sampled`, only the first 60 allocations are all refused in turn, and after them
    // about 40 spread over the rest (for the largest tables, whose every step is alike).
    void sweep(const std::string &what, const std::function<Outcome()> &op,
               long min_allocations = 1, bool staged = false, bool sampled = false) {
        SlotAllocator alloc;
        alloc_ = &alloc;
        k_ = 0;
        alloc.arm(0);
        const Outcome clean = op();
        ASSERT_EQ(clean.code, 0) << what << ": fails without any refusal";
        const long n = alloc.count();
        ASSERT_GE(n, min_allocations) << what;
        if (std::getenv("NUS_SWEEP_VERBOSE") != nullptr) std::printf("%s: %ld\n", what.c_str(), n);
        ASSERT_EQ(alloc.live(), 0u) << what << ": leaks without any refusal";
        const long stride = sampled && n > 60 ? std::max(1L, (n - 60) / 40) : 1;
        for (long k = 1; k <= n; k += k < 60 ? 1 : stride) {
            k_ = k;
            alloc.arm(staged ? 0 : k);
            const Outcome refused = op();
            ASSERT_TRUE(alloc.refused()) << what << " k=" << k;
            if (refused.code == 0)
                EXPECT_EQ(refused.print, clean.print)
                    << what << ": a different result after refusing allocation " << k << " of " << n;
            else
                EXPECT_EQ(refused.code, NU_ENOMEM)
                    << what << ": refusing allocation " << k << " of " << n;
            EXPECT_EQ(alloc.live(), 0u) << what << ": leak after refusing allocation " << k;
            EXPECT_EQ(alloc.bad_frees(), 0) << what << ": bad free after refusing " << k;
            if (HasFailure()) break;   // one k is enough to show a path
        }
        alloc_ = nullptr;
    }
    void start() { alloc_->arm(k_); }

    SlotAllocator *alloc_ = nullptr;
    long k_ = 0;
    EnvGuard root_{"TESSARONDIR", std::string(NUS_DATA_DIR)};
    EnvGuard path_{"NU_PATH", std::nullopt};
    EnvGuard all_{"NU_ALL", std::nullopt};
    EnvGuard lang_{"NU_LANG", std::nullopt};
};

// The locale object file name of a locale name, as nu_setlocale_4 takes it.
std::string file_of(const char *spec) {
    int32_t scratch = 0;
    char name[NU_LC_FNAME_SIZE(0)];
    return nu_lc_spec2lc_fname(&scratch, spec, name, nullptr, nullptr) == 0 ? name : spec;
}

// A print of what a handle holds: its categories' names, its code-set bounds, a comparison,
// a sort key, a case conversion and a formatted number, each through its own tables.
// The error slot is left as it was.
std::string fingerprint(nu_locale_t h) {
    SlotAllocator::Pause pause;
    const int saved = *_nu_ext_errno(h);
    std::string print;
    char *names = nu_setlocale_4(h, NU_ALL, nullptr);
    print += names != nullptr ? names : "<no names>";
    nu_destroystring(names);
    print += " " + std::to_string(nu_mb_loc_min(h)) + "-" + std::to_string(nu_mb_loc_max(h));
    print += " " + std::to_string(nu_full_mbscoll(h, u("Abc"), u("abd")));
    unsigned char key[256] = {};
    const int n = nu_full_mbsxfrm(h, key, u("Zebra"), sizeof key);
    for (int i = 0; i < n && i < static_cast<int>(sizeof key); ++i) print += std::to_string(key[i]) + ".";
    unsigned char upper[64] = {};
    nu_tombsupper(h, upper, u("stra\xdf" "e"));
    print += reinterpret_cast<char *>(upper);
    char number[64] = {};
    nu_mbsfnum(h, number, sizeof number, "%'.2f", 1234567.5);
    print += number;
    const nu_lconv *lc = nu_localeconv(h);
    auto text = [](const char *t) { return std::string(t != nullptr ? t : "<null>"); };
    if (lc != nullptr) print += text(lc->currency_symbol) + text(lc->mon_decimal_point);
    // TIME: texts, their wide twins, the era table, the digits and a name through the
    // parser's cache of month names.
    for (int item : {0, 1, 26, 35, 61, 67, 73}) {
        print += text(nu_nl_langinfo(h, item));
        const nu_wchar *w = nu_wc_nl_langinfo(h, item);
        print += std::to_string(w != nullptr ? std::char_traits<nu_wchar>::length(w) : 0) + ";";
    }
    nu_era_segment era{};
    print += std::to_string(nu_time_era(h, 0, &era)) + text(era.name) + text(nu_time_name(h, 4, 1));
    int len = -1;
    uint32_t value = 0;
    const int found = _nu_validate_mb_string(h, h->time.mb_cache[nus::kCacheMonths],
                                             u(nu_time_name(h, 0, 11) != nullptr ? nu_time_name(h, 0, 11) : ""),
                                             &len, &value);
    print += std::to_string(found) + "/" + std::to_string(len) + "/" + std::to_string(value);
    *_nu_ext_errno(h) = saved;
    return print;
}

// The code a creation or load leaves where the caller reads it (0 for success), with the
// handle's print; the handle is then released, whatever state it is in.
Outcome release_handle(int result, nu_locale_t h) {
    Outcome out;
    out.code = h == nullptr ? -1 : *_nu_ext_errno(h);
    if (result == 0) {
        out.code = out.code == NU_ENOMEM ? out.code : 0;
        out.print = fingerprint(h);
    } else if (out.code == 0) {
        out.code = -1;   // a failure without a code
    }
    nu_lc_unload(h);
    return out;
}

TEST_F(AllocFailure, HandleCreationAndWholeLoads) {
    sweep("nu_create_null_locale_4", [] {
        nu_locale_t h = nullptr;
        const int r = nu_create_null_locale_4(&h);
        return release_handle(r, h);
    });
    sweep("nu_createlocale_4", [] {
        nu_locale_t h = nullptr;
        const int r = nu_createlocale_4(&h);
        return release_handle(r, h);
    }, 10);
    // Single-byte, multibyte with a multi-level collation, Thai. (A whole UTF-8 locale makes
    // some 10^4 allocations: its categories are swept one by one below.)
    for (const char *spec : {"de_de.8859-1", "ja_jp.sjis", "th_th.tis620"}) {
        sweep(spec, [spec] {
            nu_locale_t h = nullptr;
            const int r = nu_lc_load(&h, spec, nullptr, nullptr);
            return release_handle(r, h);
        }, 10);
    }
}

TEST_F(AllocFailure, PerCategoryLoadsAndReloads) {
    // Loads into a handle holding only the CTYPE of the same file, and reloads of a loaded
    // handle from another locale of its code set (the category is freed, then read anew).
    const std::pair<const char *, const char *> pairs[] = {{"ja_jp.sjis", "ja_jp.sjis"},
                                                           {"de_de.8859-1", "fr_fr.8859-1"},
                                                           {"en_us.utf8", "de_de.utf8"}};
    for (auto [first, second] : pairs) {
        const std::string from = file_of(first), to = file_of(second);
        const bool utf8 = std::string(first) == "en_us.utf8";
        for (int category = NU_CTYPE; category <= NU_MESSAGES; ++category) {
            if (utf8 && category == NU_CTYPE) continue;   // 10^4 blocks, alike
            const bool sampled = utf8 && category == NU_COLLATE;
            const std::string what = std::string(second) + " category " + std::to_string(category);
            sweep(what + " load", [&, category] {
                nu_locale_t h = nullptr;
                if (nu_create_null_locale_4(&h) != 0) return Outcome{-1, {}};
                char *names = category == NU_CTYPE ? nullptr : nu_setlocale_4(h, NU_CTYPE, to.c_str());
                nu_destroystring(names);
                *_nu_ext_errno(h) = 0;
                start();
                names = nu_setlocale_4(h, category, to.c_str());
                const bool loaded = names != nullptr;
                nu_destroystring(names);
                return release_handle(loaded ? 0 : -1, h);
            }, 1, true, sampled);
            sweep(what + " reload", [&, category] {
                // The CTYPE and the category from the first locale, then the category anew.
                nu_locale_t h = nullptr;
                if (nu_create_null_locale_4(&h) != 0) return Outcome{-1, {}};
                nu_destroystring(nu_setlocale_4(h, NU_CTYPE, from.c_str()));
                if (category != NU_CTYPE) nu_destroystring(nu_setlocale_4(h, category, from.c_str()));
                *_nu_ext_errno(h) = 0;
                start();
                char *names = nu_setlocale_4(h, category, to.c_str());
                const bool loaded = names != nullptr;
                const int code = *_nu_ext_errno(h);
                nu_destroystring(names);
                // Whatever the failure left, the handle still answers and releases cleanly.
                const std::string print = fingerprint(h);
                nu_lc_unload(h);
                return Outcome{loaded ? (code == NU_ENOMEM ? code : 0) : (code != 0 ? code : -1),
                               print};
            }, 1, true, sampled);
        }
    }
}

TEST_F(AllocFailure, CopiedCategories) {
    for (int category : {NU_ALL, NU_CTYPE, NU_COLLATE, NU_NUMERIC, NU_MONETARY, NU_TIME,
                         NU_MESSAGES}) {
        // Into a null handle, or into the emptied category of a handle of the same code set.
        sweep("copy " + std::to_string(category), [this, category] {
            nu_locale_t src = nullptr, dst = nullptr;
            if (nu_lc_load(&src, "de_de.8859-1", nullptr, nullptr) != 0 ||
                nu_lc_load(&dst, "fr_fr.8859-1", nullptr, nullptr) != 0) {
                nu_lc_unload(src);
                nu_lc_unload(dst);
                return Outcome{-1, {}};
            }
            if (category == NU_ALL) {
                nu_lc_unload(dst);
                nu_create_null_locale_4(&dst);
            } else {
                nu_free_category(dst, category);
            }
            *_nu_ext_errno(dst) = 0;
            start();
            const int r = nu_copy_cat(dst, src, category);
            Outcome out{*_nu_ext_errno(dst), {}};
            if (r != 0 && out.code == 0) out.code = -1;
            if (r == 0 && out.code != NU_ENOMEM) out.print = fingerprint(dst);
            if (category == NU_ALL) nu_free_nonshared_loc(dst);
            else nu_lc_unload(dst);   // frees its own categories; the copied one is borrowed
            nu_lc_unload(src);
            return out;
        }, 0, true);
    }
}

TEST_F(AllocFailure, ConversionOpen) {
    for (auto [target, source] : {std::pair{"utf8", "8859-1"}, std::pair{"utf8", "sjis"},
                                  std::pair{"ujis", "sjis"}}) {
        sweep(source, [target = target, source = source] {
            nu_cv_t cv = nullptr;
            const int r = nu_iconv_open(&cv, target, source);
            const Outcome out{r >= 0 ? 0 : (cv == nullptr ? -1 : *_nu_ext_errno(cv)), {}};
            nu_cv_unload(cv);
            return out;
        });
    }
    sweep("nu_cv_load", [] {
        nu_cv_t cv = nullptr;
        const int r = nu_cv_load(&cv, "en_us.utf8", "ja_jp.sjis", nullptr, nullptr);
        const Outcome out{r == 1 ? 0 : (cv == nullptr ? -1 : *_nu_ext_errno(cv)), {}};
        nu_cv_unload(cv);
        return out;
    });
}

TEST_F(AllocFailure, CharacterMapLoad) {
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    for (unsigned number : {0x0333u, 0xe006u}) {
        sweep("nu_cm_load " + std::to_string(number), [h, number] {
            *_nu_ext_errno(h) = 0;
            nu_cm_t cm = nullptr;
            Outcome out;
            if (nu_cm_load(h, &cm, number, nullptr) != 0) {
                out.code = *_nu_ext_errno(h);
                return out;
            }
            char symbols[64] = {};
            out.print = std::to_string(nu_cm_info(cm, nullptr, nullptr)) + " " +
                        std::to_string(nu_mbstosyms(h, cm, symbols, sizeof symbols, "Ab", -1)) +
                        symbols;
            nu_cm_unload(cm);
            return out;
        }, 4);
    }
    nu_lc_unload(h);
}

// Comparison, sort keys and formatting work in place up to a fixed size and take memory
// above it: long strings in each locale kind, with a handle loaded before the sweep.
TEST_F(AllocFailure, LongStringsInCollationAndFormatting) {
    for (const char *spec : {"de_de.8859-1", "ja_jp.sjis", "en_us.utf8", "th_th.tis620"}) {
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, spec, nullptr, nullptr), 0) << spec;
        // The first sort key of a handle caches per-character key bytes in it: made here,
        // with the handle's own allocator, not in the sweep.
        unsigned char warm[64];
        nu_full_mbsxfrm(h, warm, u("a"), sizeof warm);
        std::string a;
        for (int i = 0; i < 3000; ++i) a += static_cast<char>('a' + i % 26);
        std::string b = a;
        b.back() = 'A';
        std::vector<unsigned char> key(64 * 1024);
        std::vector<char> out(20000);
        std::vector<nu_wchar> wide(20000);
        std::vector<nu_wchar> wide_format(a.begin(), a.end());
        for (char c : std::string(" %d")) wide_format.push_back(static_cast<nu_wchar>(c));
        wide_format.push_back(0);
        const std::string format = a + " %s %'d %.3f", money = a + " %n";
        // The slot's code, or -1 for a failure without one; the result's print.
        auto outcome = [h](bool failed, std::string print) {
            const int code = *_nu_ext_errno(h);
            return Outcome{code != 0 ? code : failed ? -1 : 0, std::move(print)};
        };
        const std::string name(spec);

        sweep(name + " coll", [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_full_mbscoll(h, u(a.c_str()), u(b.c_str()));
            return outcome(false, std::to_string(r < 0 ? -1 : r > 0));
        }, 0);
        sweep(name + " xfrm", [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_full_mbsxfrm(h, key.data(), u(a.c_str()), static_cast<int>(key.size()));
            return outcome(r < 0, r < 0 ? "" : std::string(key.begin(), key.begin() + r));
        }, 0);
        sweep(name + " fnum", [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_mbsfnum(h, out.data(), static_cast<int>(out.size()), format.c_str(),
                                     b.c_str(), 1234567, 3.25);
            return outcome(r < 0, r < 0 ? "" : std::string(out.data(), static_cast<size_t>(r)));
        });
        sweep(name + " wcsfnum", [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_wcsfnum(h, wide.data(), static_cast<int>(wide.size()),
                                     wide_format.data(), 42);
            return outcome(r < 0, r < 0 ? "" : std::to_string(wide[static_cast<size_t>(r) - 1]));
        }, 0);
        // Dates: the widened format and text above the stack buffers, and the era cache
        // (made anew in each run) of a locale with eras.
        const std::string time_format = a + " %F %T %EY %Ec %a", time_text = a + " 2024-02-29";
        nu_time_rec t{};
        t.year = 124;
        t.month = t.month_name = 1;
        t.mday = 29;
        t.wday = 4;
        t.yday = 59;
        auto drop_era_cache = [h] {
            nus::free_era_cache(h);
        };
        sweep(name + " ftime", [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_mbsftime(h, out.data(), static_cast<int>(out.size()),
                                      time_format.c_str(), &t);
            Outcome o = outcome(r < 0, r < 0 ? "" : std::string(out.data(), static_cast<size_t>(r)));
            drop_era_cache();   // the handle's, released here so that each run makes its own
            return o;
        });
        const std::string parse_format = a + " %F";
        sweep(name + " ptime", [&] {
            *_nu_ext_errno(h) = 0;
            nu_time_rec back{};
            const char *end = nu_mbsptime(h, time_text.c_str(), parse_format.c_str(), &back);
            Outcome o = outcome(end == nullptr, end == nullptr ? "" : std::to_string(back.yday));
            drop_era_cache();
            return o;
        });
        sweep(name + " fmon", [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_mbsfmon(h, out.data(), static_cast<int>(out.size()), money.c_str(),
                                     1234567.89);
            return outcome(r < 0, r < 0 ? "" : std::string(out.data(), static_cast<size_t>(r)));
        }, 0);
        nu_lc_unload(h);
    }
}

TEST_F(AllocFailure, ValidationCaches) {
    for (const char *spec : {"de_de.8859-1", "ja_jp.sjis", "en_us.utf8"}) {
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, spec, nullptr, nullptr), 0) << spec;
        const std::vector<std::string> words = {"select", "SELECT2", "set", "settings", "update",
                                                "upsert", "delete", "del"};
        // Builds a trie of the words, looks each up again, frees it.
        auto build = [&](auto cache, auto validate, auto free_cache, auto *root, auto key) {
            Outcome out;
            for (size_t i = 0; i < words.size() && out.code == 0; ++i) {
                *_nu_ext_errno(h) = 0;
                if (cache(h, root, u(words[i].c_str()), static_cast<uint32_t>(i)) != 0)
                    out.code = *_nu_ext_errno(h) != 0 ? *_nu_ext_errno(h) : -1;
            }
            for (size_t i = 0; i < words.size() && out.code == 0; ++i) {
                int len = -1;
                uint32_t value = 0;
                const auto text = key(words[i]);
                const int r = validate(h, *root, text.data(), &len, &value);
                out.print += std::to_string(r) + ":" + std::to_string(len) + "=" +
                             std::to_string(value) + " ";
            }
            free_cache(h, *root);
            *root = nullptr;
            return out;
        };
        auto bytes = [](const std::string &w) { return std::vector<unsigned char>(w.begin(), w.end() + 1); };
        auto chars = [](const std::string &w) {
            std::vector<nu_wchar> ws(w.begin(), w.end());
            ws.push_back(0);
            return ws;
        };
        nu_mb_cache_node *mb = nullptr;
        nu_wc_cache_node *wc = nullptr;
        sweep(std::string(spec) + " mb cache", [&] {
            return build(_nu_cache_mb_string, _nu_validate_mb_string, _nu_free_mb_cache, &mb, bytes);
        }, 8);
        sweep(std::string(spec) + " wc cache", [&] {
            return build(_nu_cache_wc_string, _nu_validate_wc_string, _nu_free_wc_cache, &wc, chars);
        }, 8);
        nu_lc_unload(h);
    }
}

} // namespace
