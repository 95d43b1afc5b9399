// Allocation failures swept through every operation that allocates: for each k, the k-th
// allocation of the operation is refused (the others succeed), until k passes the number the
// operation makes when nothing fails. Every refusal must end in code 3 (NU_ENOMEM) where the
// caller can read it, nothing may be left allocated once the handle or descriptor is released,
// and the release itself must work whatever state the failure left behind.
#include "support/support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace {

using nus_test::EnvGuard;

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

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
    long bad_frees() const { return bad_frees_; }

private:
    static void *allocate(size_t size) {
        SlotAllocator *s = self_;
        if (++s->count_ == s->refuse_) {
            s->refused_ = true;
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

    // Runs `op` once unarmed to learn its allocation count n (at least `min_allocations`),
    // then once for every k in 1..n with the k-th allocation refused. `op` returns the error
    // code the caller sees for a failed run and 0 for success, and releases what it made. The
    // count starts with `op`, or, when `staged`, where it calls start() after a setup of its own.
    void sweep(const std::string &what, const std::function<int()> &op, long min_allocations = 1,
               bool staged = false) {
        SlotAllocator alloc;
        alloc_ = &alloc;
        k_ = 0;
        alloc.arm(0);
        ASSERT_EQ(op(), 0) << what << ": fails without any refusal";
        const long n = alloc.count();
        ASSERT_GE(n, min_allocations) << what;
        ASSERT_EQ(alloc.live(), 0u) << what << ": leaks without any refusal";
        for (long k = 1; k <= n; ++k) {
            k_ = k;
            alloc.arm(staged ? 0 : k);
            const int code = op();
            ASSERT_TRUE(alloc.refused()) << what << " k=" << k;
            EXPECT_EQ(code, NU_ENOMEM) << what << ": refusing allocation " << k << " of " << n;
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

// The locale object file name of a specification, as nu_setlocale_4 takes it.
std::string file_of(const char *spec) {
    int32_t scratch = 0;
    char name[NU_LC_FNAME_SIZE(0)];
    return nu_lc_spec2lc_fname(&scratch, spec, name, nullptr, nullptr) == 0 ? name : spec;
}

// The code a failed creation or load leaves where the caller reads it, after which the handle
// is released. A handle that succeeded is released too and reports 0.
int release_handle(int result, nu_locale_t h) {
    const int code = h == nullptr ? -1 : *_nu_ext_errno(h);
    nu_lc_unload(h);
    return result == 0 ? 0 : code;
}

TEST_F(AllocFailure, HandleCreationAndWholeLoads) {
    sweep("nu_create_null_locale_4", [] {
        nu_locale_t h = nullptr;
        const int r = nu_create_null_locale_4(&h);
        // The null categories' tables: a refusal there leaves the handle, with code 3.
        if (r == 0 && *_nu_ext_errno(h) != 0) return release_handle(-1, h);
        return release_handle(r, h);
    });
    sweep("nu_createlocale_4", [] {
        nu_locale_t h = nullptr;
        const int r = nu_createlocale_4(&h);
        return release_handle(r, h);
    }, 10);
    // Single-byte, multibyte with a multi-level collation, UTF-8, Thai.
    // (A whole UTF-8 locale makes some 10^4 allocations: its categories are swept one by one
    // below.)
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
        for (int category = NU_CTYPE; category <= NU_MESSAGES; ++category) {
            if (std::string(first) == "en_us.utf8" && category == NU_CTYPE) continue;  // 10^4 blocks
            const std::string what = std::string(second) + " category " + std::to_string(category);
            sweep(what + " load", [&, category] {
                nu_locale_t h = nullptr;
                if (nu_create_null_locale_4(&h) != 0) return -1;
                char *names = category == NU_CTYPE ? nullptr : nu_setlocale_4(h, NU_CTYPE, to.c_str());
                nu_destroystring(names);
                start();
                names = nu_setlocale_4(h, category, to.c_str());
                const int code = names != nullptr ? 0 : *_nu_ext_errno(h);
                nu_destroystring(names);
                nu_lc_unload(h);
                return code;
            }, 1, true);
            sweep(what + " reload", [&, category] {
                nu_locale_t h = nullptr;
                if (nu_lc_load(&h, from.c_str(), nullptr, nullptr) != 0) {
                    nu_lc_unload(h);
                    return -1;
                }
                start();
                char *names = nu_setlocale_4(h, category, to.c_str());
                int code = names != nullptr ? 0 : *_nu_ext_errno(h);
                nu_destroystring(names);
                // Whatever the failure left, the handle still answers and releases cleanly.
                if (nu_mb_loc_max(h) < 1) code = -2;
                nu_lc_unload(h);
                return code;
            }, 1, true);
        }
    }
}

TEST_F(AllocFailure, CopiedCategories) {
    for (int category : {NU_ALL, NU_CTYPE, NU_COLLATE, NU_NUMERIC, NU_MONETARY, NU_TIME,
                         NU_MESSAGES}) {
        // The source's CTYPE first when a later category is copied alone into a null handle.
        sweep("copy " + std::to_string(category), [this, category] {
            nu_locale_t src = nullptr, dst = nullptr;
            if (nu_lc_load(&src, "de_de.8859-1", nullptr, nullptr) != 0 ||
                nu_create_null_locale_4(&dst) != 0) {
                nu_lc_unload(src);
                nu_lc_unload(dst);
                return -1;
            }
            start();
            const int r = nu_copy_cat(dst, src, category);
            const int code = r == 0 ? 0 : *_nu_ext_errno(dst);
            nu_free_nonshared_loc(dst);
            nu_lc_unload(src);
            return code;
        }, 0, true);
    }
}

TEST_F(AllocFailure, ConversionOpen) {
    for (auto [target, source] : {std::pair{"utf8", "8859-1"}, std::pair{"utf8", "sjis"},
                                  std::pair{"ujis", "sjis"}}) {
        sweep(source, [target = target, source = source] {
            nu_cv_t cv = nullptr;
            const int r = nu_iconv_open(&cv, target, source);
            const int code = r == 0 ? 0 : (cv == nullptr ? -1 : *_nu_ext_errno(cv));
            nu_cv_unload(cv);
            return code;
        });
    }
    sweep("nu_cv_load", [] {
        nu_cv_t cv = nullptr;
        const int r = nu_cv_load(&cv, "en_us.utf8", "ja_jp.sjis", nullptr, nullptr);
        const int code = r == 1 ? 0 : (cv == nullptr ? -1 : *_nu_ext_errno(cv));
        nu_cv_unload(cv);
        return code;
    });
}

// Comparison, sort keys and formatting work in place up to a fixed size and take memory
// above it: long strings in each locale kind, with a handle loaded before the sweep.
TEST_F(AllocFailure, LongStringsInCollationAndFormatting) {
    for (const char *spec : {"de_de.8859-1", "ja_jp.sjis", "en_us.utf8", "th_th.tis620"}) {
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, spec, nullptr, nullptr), 0) << spec;
        std::string a, b;
        for (int i = 0; i < 3000; ++i) a += static_cast<char>('a' + i % 26);
        b = a;
        b.back() = 'A';
        std::vector<unsigned char> key(64 * 1024);
        auto slot = [h] { return *_nu_ext_errno(h); };

        sweep((std::string(spec) + " coll").c_str(), [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_full_mbscoll(h, u(a.c_str()), u(b.c_str()));
            return slot() != 0 ? slot() : (r != 0 ? 0 : -1);
        }, 0);
        sweep((std::string(spec) + " xfrm").c_str(), [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_full_mbsxfrm(h, key.data(), u(a.c_str()), static_cast<int>(key.size()));
            return r < 0 || slot() != 0 ? slot() : 0;
        }, 0);
        std::vector<char> out(20000);
        const std::string format = a + " %s %'d %.3f";
        sweep((std::string(spec) + " fnum").c_str(), [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_mbsfnum(h, out.data(), static_cast<int>(out.size()), format.c_str(),
                                     b.c_str(), 1234567, 3.25);
            return r < 0 ? slot() : 0;
        });
        std::vector<nu_wchar> wide(20000);
        const std::vector<nu_wchar> wide_format = [&] {
            std::vector<nu_wchar> w(a.begin(), a.end());
            for (char c : std::string(" %d")) w.push_back(static_cast<nu_wchar>(c));
            w.push_back(0);
            return w;
        }();
        sweep((std::string(spec) + " wcsfnum").c_str(), [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_wcsfnum(h, wide.data(), static_cast<int>(wide.size()),
                                     wide_format.data(), 42);
            return r < 0 ? slot() : 0;
        }, 0);
        const std::string money = a + " %n";
        sweep((std::string(spec) + " fmon").c_str(), [&] {
            *_nu_ext_errno(h) = 0;
            const int r = nu_mbsfmon(h, out.data(), static_cast<int>(out.size()), money.c_str(),
                                     1234567.89);
            return r < 0 ? slot() : 0;
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
        auto build = [&](auto cache, auto free_cache, auto *root) {
            int code = 0;
            for (size_t i = 0; i < words.size() && code == 0; ++i) {
                *_nu_ext_errno(h) = 0;
                if (cache(h, root, u(words[i].c_str()), static_cast<uint32_t>(i)) != 0)
                    code = *_nu_ext_errno(h);
            }
            free_cache(h, *root);
            *root = nullptr;
            return code;
        };
        nu_mb_cache_node *mb = nullptr;
        nu_wc_cache_node *wc = nullptr;
        sweep((std::string(spec) + " mb cache").c_str(),
              [&] { return build(_nu_cache_mb_string, _nu_free_mb_cache, &mb); }, 8);
        sweep((std::string(spec) + " wc cache").c_str(),
              [&] { return build(_nu_cache_wc_string, _nu_free_wc_cache, &wc); }, 8);
        nu_lc_unload(h);
    }
}

} // namespace
