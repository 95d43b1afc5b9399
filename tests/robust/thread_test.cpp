// Threads: eight threads each load their own handles from the same locale files and run
// classification, string, collation, formatting, calendar and conversion functions at once,
// sharing one loaded conversion descriptor and the categories of one handle (copied into a
// handle of their own) read-only. Every result must equal the one a single thread computed
// first. The process-wide setup (external functions, diagnostics, registry cache) is done
// before the threads start, as the library asks; built with ThreadSanitizer (make tsan) the
// same program shows any shared write.
#include "frame/frame.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

using nus_test::EnvGuard;

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

const char *const kLocales[] = {"de_de.8859-1", "ja_jp.sjis", "en_us.utf8", "th_th.tis620"};

// Words of each locale's code set (the Shift-JIS words in that encoding, the UTF-8 and Thai
// ones in theirs) for the string and collation work.
std::vector<std::string> words_for(const char *spec) {
    const std::string s(spec);
    if (s == "ja_jp.sjis")
        return {"\x93\xfa\x96\x7b\x8c\xea", "\x83\x4a\x83\x5e\x83\x4a\x83\x69", "abc", "ABC",
                "\x82\xa0\x82\xa2"};
    if (s == "en_us.utf8")
        return {"na\xc3\xafve", "Na\xc3\xafve", "\xc3\xa9t\xc3\xa9", "ete", "zebra"};
    if (s == "th_th.tis620")
        return {"\xa1\xd2\xc3", "\xe0\xa1\xd2", "\xa1\xd3", "abc", "ABC"};
    return {"M\xfc" "ller", "Mueller", "stra\xdf" "e", "Strasse", "zebra"};
}

// Everything one locale's work produces, as text, so that two runs compare with ==.
std::string work(nu_locale_t h, const char *spec, nu_cv_t cv, const std::string &cv_input) {
    std::string out;
    char buf[512];
    auto add = [&](const std::string &s) { out += s + "\n"; };
    const std::vector<std::string> words = words_for(spec);

    // Classification and case.
    const int alpha = nu_ctype(h, "alpha"), upper = nu_ctype(h, "upper");
    for (const std::string &w : words) {
        std::string line;
        for (const unsigned char *p = u(w.c_str()); *p != 0;) {
            nu_wchar wc = 0;
            const int n = nu_full_mbtowc(h, &wc, p, static_cast<int>(std::strlen(
                                                     reinterpret_cast<const char *>(p))));
            if (n <= 0) break;
            line += std::to_string(_nu_im_iswctype(h, wc, alpha)) +
                    std::to_string(_nu_im_iswctype(h, wc, upper)) + ":" +
                    std::to_string(_nu_im_towupper(h, wc)) + " ";
            p += n;
        }
        unsigned char up[256] = {};
        nu_tombsupper(h, up, u(w.c_str()));
        line += std::string(reinterpret_cast<char *>(up));
        add(line);
    }
    // Strings: lengths, widths, search.
    for (const std::string &w : words) {
        const unsigned char *s = u(w.c_str());
        const unsigned char *second = nu_full_mbsnext(h, s);
        add(std::to_string(nu_mbsbytes(h, s)) + " " +
            std::to_string(nu_mbswidth(h, s, static_cast<int>(w.size()))) + " " +
            std::to_string(second != nullptr ? second - s : -1) + " " +
            std::to_string(nu_full_mbsspn(h, s, u(w.substr(0, 2).c_str()))));
    }
    // Collation: every pair compared, and each word's sort key.
    for (const std::string &a : words) {
        std::string line;
        for (const std::string &b : words) {
            const int r = nu_full_mbscoll(h, u(a.c_str()), u(b.c_str()));
            line += r < 0 ? '<' : r > 0 ? '>' : '=';
        }
        unsigned char key[1024];
        const int n = nu_full_mbsxfrm(h, key, u(a.c_str()), sizeof key);
        for (int i = 0; i < n && i < static_cast<int>(sizeof key); ++i) line += std::to_string(key[i]) + ",";
        add(line);
    }
    // Numbers and money.
    nu_mbsfnum(h, buf, sizeof buf, "%'d|%'.2f|%e|%-8s|%x", 1234567, -98765.4321, 6.02e23,
               words[0].c_str(), 48879);
    add(buf);
    nu_mbsfmon(h, buf, sizeof buf, "%n|%i|%=*#10.2n", 1234567.891, -42.5, 77.0);
    add(buf);
    const nu_lconv *lc = nu_localeconv(h);
    add(std::string(lc->decimal_point) + lc->thousands_sep + lc->currency_symbol);
    // Calendars: the handle's own, and the fixed conversions.
    nu_time_rec greg{};
    greg.mday = 14;
    greg.month = 4;
    greg.year = 2026 - 1900;
    nu_time_rec local{}, hebrew{}, islamic{};
    nu_cal_gregorian_to_local(h, &greg, &local);
    nu_cal_gregorian_to_hebrew(&greg, &hebrew);
    nu_cal_gregorian_to_islamic(&greg, &islamic);
    add(std::to_string(local.year) + "-" + std::to_string(local.month) + " " +
        std::to_string(hebrew.year) + "-" + std::to_string(hebrew.month) + "-" +
        std::to_string(hebrew.mday) + " " + std::to_string(islamic.year) + "-" +
        std::to_string(islamic.month) + "-" + std::to_string(islamic.mday));
    // Conversion through the shared descriptor, with this caller's own state.
    std::string converted(cv_input.size() * 4 + 8, '\0');
    nu_cv_state state{1, 1, 0, 0};
    unsigned char *in = reinterpret_cast<unsigned char *>(const_cast<char *>(cv_input.data()));
    unsigned char *o = reinterpret_cast<unsigned char *>(converted.data());
    int inlen = static_cast<int>(cv_input.size());
    int room = static_cast<int>(converted.size());
    int irreversible = 0;
    const int r = nu_cv_mconv(cv, &state, &in, &inlen, &o, &room, &irreversible);
    converted.resize(converted.size() - static_cast<size_t>(room));
    add(std::to_string(r) + " " + std::to_string(irreversible) + " " + converted);
    return out;
}

// The whole run; with `logging`, every thread's messages also go to nus.log (in a
// directory of the test's own).
void run_threads(bool logging) {
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    EnvGuard path("NU_PATH", std::nullopt);
    EnvGuard log("NUSLOG", logging ? std::optional<std::string>("on") : std::nullopt);
    nus_test::TempDir dir;
    nus_test::CwdGuard cwd(dir.path());
    // The process-wide setup, before any thread starts: the registry cache, the diagnostic
    // switches (read by the first message) and the external-function table (left at its
    // defaults, but fixed from here on).
    int32_t scratch = 0;
    nu_cache_registry(&scratch, nullptr);
    nus::reset_debug_state();
    nu_message("threads: setup done");

    nu_cv_t cv = nullptr;
    if (nu_iconv_open(&cv, "utf8", "sjis") != 1 && cv == nullptr) {
        nu_free_registry_cache();
        nus::reset_debug_state();
        GTEST_SKIP() << "the data tree has not been compiled (build the 64-bit tree)";
    }
    ASSERT_EQ(*_nu_ext_errno(cv), 0);
    const std::string cv_input = "\x93\xfa\x96\x7b\x8c\xea \x83\x4a\x83\x5e\x83\x4a\x83\x69 abc";

    // The reference results, from a single thread; and the shared handle.
    std::vector<std::string> expected;
    for (const char *spec : kLocales) {
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_lc_load(&h, spec, nullptr, nullptr), 0) << spec;
        expected.push_back(work(h, spec, cv, cv_input));
        nu_lc_unload(h);
    }
    nu_locale_t shared = nullptr;
    ASSERT_EQ(nu_lc_load(&shared, "ja_jp.sjis", nullptr, nullptr), 0);
    const std::string shared_expected = work(shared, "ja_jp.sjis", cv, cv_input);

    constexpr int kThreads = 8;
    constexpr int kRounds = 3;
    std::atomic<int> mismatches{0}, failures{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) std::this_thread::yield();
            for (int round = 0; round < kRounds; ++round) {
                // Own handles, loaded from the same files as every other thread's.
                for (size_t i = 0; i < std::size(kLocales); ++i) {
                    const size_t which = (i + static_cast<size_t>(t)) % std::size(kLocales);
                    nu_locale_t h = nullptr;
                    if (nu_lc_load(&h, kLocales[which], nullptr, nullptr) != 0) {
                        ++failures;
                        nu_lc_unload(h);
                        continue;
                    }
                    if (work(h, kLocales[which], cv, cv_input) != expected[which]) ++mismatches;
                    nu_lc_unload(h);
                }
                // The shared handle's categories, copied into a handle of this thread.
                nu_locale_t copy = nullptr;
                if (nu_create_null_locale_4(&copy) != 0 || nu_copy_cat(copy, shared, NU_ALL) != 0) {
                    ++failures;
                } else if (work(copy, "ja_jp.sjis", cv, cv_input) != shared_expected) {
                    ++mismatches;
                }
                nu_free_nonshared_loc(copy);
            }
        });
    }
    go = true;
    for (std::thread &th : threads) th.join();

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(*_nu_ext_errno(cv), 0) << "a conversion that succeeded wrote the shared slot";
    nu_lc_unload(shared);
    nu_cv_unload(cv);
    nu_free_registry_cache();
    if (logging) {
        // Every message is a whole line: writers never shared a stream.
        const std::string log = nus_test::read_file(dir.path() / "nus.log");
        EXPECT_NE(log.find("threads: setup done\n"), std::string::npos);
        EXPECT_GT(std::count(log.begin(), log.end(), '\n'), kThreads * kRounds);
    }
    nus::reset_debug_state();
}

// Eight threads load the same file at once, with no handle of it loaded before, and again
// while one is: every handle works alike, the later ones all use the tables of the one that
// stays, and the releases in any order free each table once (ThreadSanitizer and the leak
// checker watch the reference counts).
TEST(Threads, EightThreadsLoadOneFile) {
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR));
    EnvGuard path("NU_PATH", std::nullopt);
    int32_t scratch = 0;
    nu_cache_registry(&scratch, nullptr);
    const char *spec = "en_us.utf8";
    nu_locale_t first = nullptr;
    if (nu_lc_load(&first, spec, nullptr, nullptr) != 0) {
        nu_lc_unload(first);
        nu_free_registry_cache();
        GTEST_SKIP() << "the data tree has not been compiled (build the 64-bit tree)";
    }
    const std::string expected = work(first, spec, nullptr, "");
    nu_lc_unload(first);
    first = nullptr;
    for (const bool keep_first : {false, true}) {
        if (keep_first) {
            ASSERT_EQ(nu_lc_load(&first, spec, nullptr, nullptr), 0);
        }
        constexpr int kThreads = 8;
        std::vector<nu_locale_t> handles(kThreads, nullptr);
        std::atomic<int> mismatches{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                while (!go.load()) std::this_thread::yield();
                if (nu_lc_load(&handles[t], spec, nullptr, nullptr) != 0 ||
                    work(handles[t], spec, nullptr, "") != expected)
                    ++mismatches;
            });
        }
        go = true;
        for (std::thread &th : threads) th.join();
        EXPECT_EQ(mismatches.load(), 0);
        if (keep_first) {
            for (nu_locale_t h : handles) EXPECT_EQ(h->coll.table, first->coll.table);
        }
        // Released from four threads at once, each taking one from either end.
        threads.clear();
        for (int t = 0; t < kThreads / 2; ++t)
            threads.emplace_back([&, t] {
                nu_lc_unload(handles[kThreads - 1 - t]);
                nu_lc_unload(handles[t]);
            });
        for (std::thread &th : threads) th.join();
    }
    EXPECT_EQ(work(first, spec, nullptr, ""), expected);
    nu_lc_unload(first);
    nu_free_registry_cache();
}

TEST(Threads, HandlesLoadedAndUsedConcurrently) { run_threads(false); }

TEST(Threads, WithTheDiagnosticLogOn) { run_threads(true); }

} // namespace
