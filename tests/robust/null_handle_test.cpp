// Every exported function that takes a handle or a conversion descriptor, called with a null
// one (and zeros, nulls for everything else): none may crash, and each returns what a failure
// of that function returns. The same calls with a loaded handle and null arguments must not
// crash either. Each call runs in a child process, so that a crash names its function. The
// list is checked against nus.h, so that a new function cannot be left out.
#include "support/support.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>

namespace {

template <typename T>
std::string show(T value) {
    if constexpr (std::is_pointer_v<T>) {
        return value == nullptr ? "null" : "pointer";
    } else if constexpr (std::is_floating_point_v<T>) {
        std::ostringstream text;
        text << value;
        return text.str();
    } else {
        return std::to_string(value);
    }
}

// Writable zeros for every pointer argument of a plausible call: an empty string of any
// code set, an empty wide string, room for output.
alignas(16) unsigned char zeros[1 << 16];

// (va_list, a pointer to a tagged type on x86_64, passes through the type traits below.)
#pragma GCC diagnostic ignored "-Wignored-attributes"
#pragma GCC diagnostic ignored "-Wattributes"

// An argument of a plausible call: a stream, zeros behind a pointer, 8 for a number.
template <typename T>
T plausible() {
    if constexpr (std::is_same_v<T, FILE *>) {
        return std::tmpfile();
    } else if constexpr (std::is_pointer_v<T> && std::is_function_v<std::remove_pointer_t<T>>) {
        return nullptr;
    } else if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<T>(zeros);
    } else if constexpr (std::is_arithmetic_v<T>) {
        return 8;
    } else {
        return T{};
    }
}

// The arguments after the first: zeros, or plausible values.
struct Zeros {
    template <typename T>
    static T make() { return T{}; }
};
struct Plausible {
    template <typename T>
    static T make() { return plausible<T>(); }
};

// Calls a function with the given first argument and the argument maker's value of every
// other parameter's type.
template <typename Args, typename R, typename First, typename... A>
std::string call_with(R (*fn)(First, A...), void *first) {
    if constexpr (std::is_void_v<R>) {
        fn(static_cast<First>(first), Args::template make<A>()...);
        return "void";
    } else {
        return show(fn(static_cast<First>(first), Args::template make<A>()...));
    }
}
template <typename Args, typename R, typename First, typename... A>
std::string call_with(R (*fn)(First, A..., ...), void *first) {
    return show(fn(static_cast<First>(first), Args::template make<A>()...));
}

template <typename R, typename First, typename... A>
constexpr bool takes_handle(R (*)(First, A...)) { return std::is_same_v<First, nu_locale_t>; }
template <typename R, typename First, typename... A>
constexpr bool takes_handle(R (*)(First, A..., ...)) { return std::is_same_v<First, nu_locale_t>; }

struct Entry {
    const char *name;
    std::string (*call)(void *);
    std::string (*call_plausible)(void *);
    bool takes_handle;   // the first parameter is a locale handle itself
};

#define F(fn) \
    Entry {                                                                       \
        #fn, [](void *first) { return call_with<Zeros>(&fn, first); },            \
            [](void *first) { return call_with<Plausible>(&fn, first); }, takes_handle(&fn) \
    }

const Entry entries[] = {
    F(nu_setextfunc), F(nu_ext_errno), F(_nu_ext_errno), F(nu_create_null_locale_4),
    F(nu_make_null_category), F(nu_createlocale2_4), F(nu_createlocale_4), F(nu_lc_unload),
    F(nu_free_category), F(nu_path_search1), F(nu_path_search), F(nu_path_search_no_ext),
    F(nu_open_file), F(_nu_retrieve_wchar_multi_nl), F(nu_cs_name2cs_num), F(nu_cache_registry),
    F(_nu_next_cs_number_from_registry), F(nu_lc_spec2lc_fname), F(_nu_is_xopen_spec),
    F(nu_lc_spec2msg_dname), F(nu_lc_fname2lc_pieces), F(nu_lc_pieces2lc_spec),
    F(_nu_lc_short_spec2lc_short_norm), F(nu_lc_spec2cs_num), F(nu_cs_nums2cv_fname),
    F(nu_full_mblen), F(_tsn_nu_full_mblen), F(nu_full_mbtowc), F(_tsn_nu_full_mbtowc),
    F(nu_full_wctomb), F(nu_wclen), F(_tsn_nu_im_mbfstowcfs), F(_nu_im_mbstowcs),
    F(_tsn_nu_is_mbfstowcfs), F(_nu_is_mbstowcs), F(_tsn_nu_full_wcstombs), F(nu_full_wcstombs),
    F(_tsn_nu_is_wcstombs), F(_nu_is_wcstombs), F(_nu_im_mbslen), F(_tsn_nu_im_mbfslen),
    F(nu_mbsbytes), F(nu_mbsterm), F(nu_mb_loc_min), F(nu_mb_loc_max), F(nu_setlocale_4),
    F(nu_lc_load), F(nu_copy_cat), F(nu_free_nonshared_loc), F(nu_init_nuu), F(nu_localeconv),
    F(_nuu_mbscoll), F(_nuu_mbfscoll), F(_nuu_mbsxfrm), F(nu_nuu_locale),
    F(nu_nl_langinfo), F(nu_wc_nl_langinfo), F(nu_time_name), F(nu_time_era), F(nu_time_week),
    F(_nu_init_numeric), F(_nu_init_monetary),
    F(_nu_init_messages), F(_nu_copy_numeric), F(_nu_copy_monetary), F(_nu_copy_messages),
    F(nu_ctype), F(_nu_im_iswctype), F(_nu_im_ismctype), F(_tsn_nu_im_ismctype),
    F(_nu_im_towupper), F(_nu_im_towlower), F(_nu_im_tomupper), F(_nu_im_tomlower),
    F(_tsn_nu_im_tomupper), F(_tsn_nu_im_tomlower), F(nu_tombsupper), F(nu_tombslower),
    F(nu_towcsupper), F(nu_towcslower), F(nu_case_conv_outbuflen), F(nu_full_mbsnext),
    F(_tsn_nu_full_mbsnext), F(nu_full_mbsprev), F(nu_full_getmbsi), F(nu_getmbsinull),
    F(nu_full_putmbsi), F(nu_mbcreplace), F(nu_ismbsterm), F(nu_mbsbytes_nt), F(nu_mbsntslen),
    F(_tsn_nu_mbsntslen), F(nu_mbsntsbytes), F(_tsn_nu_mbsntsbytes), F(nu_wcsntslen),
    F(_tsn_nu_wcsntslen), F(nu_wcsntstrunc), F(nu_mbsp), F(nu_mbsntstrunc), F(nu_wcwidth),
    F(nu_mbwidth), F(nu_wcswidth), F(nu_mbswidth), F(nu_wcspwidth), F(nu_mbspwidth),
    F(nu_full_mbscpy), F(_tsn_nu_mbscpy), F(nu_full_mbscat), F(_tsn_nu_mbscat), F(nu_mbsncpy),
    F(_tsn_nu_mbsncpy), F(nu_mbsncat), F(_tsn_nu_mbsncat), F(_tsn_nu_wcscpy), F(_tsn_nu_wcscat),
    F(_tsn_nu_wcsncpy), F(_tsn_nu_wcsncat), F(nu_full_mbschr), F(_tsn_nu_mbschr),
    F(nu_full_mbsrchr), F(_tsn_nu_mbsrchr), F(nu_full_mbsmbs), F(_tsn_nu_mbsmbs),
    F(nu_full_mbsspn), F(nu_full_mbscspn), F(nu_full_mbspbrk), F(_tsn_nu_mbsspn),
    F(_tsn_nu_mbscspn), F(_tsn_nu_mbspbrk), F(nu_wcschr), F(nu_wcsrchr), F(_tsn_nu_wcschr),
    F(_tsn_nu_wcsrchr), F(nu_wcsspn), F(nu_wcscspn), F(nu_wcswcs), F(nu_wcspbrk),
    F(_tsn_nu_wcsspn), F(_tsn_nu_wcscspn), F(_tsn_nu_wcswcs), F(_tsn_nu_wcspbrk), F(nu_wcsxfrm),
    F(nu_full_mbsxfrm), F(_tsn_nu_full_wcscoll), F(nu_full_wcscoll), F(_tsn_nu_im_mbfscoll),
    F(_nu_im_mbscoll), F(nu_full_mbscoll), F(_tsn_nu_full_mbscoll), F(_nu_sl_wctomb),
    F(_nu_is_mbscoll_back), F(_tsn_nu_is_mbfscoll_back), F(_nu_is_mbscoll_exp),
    F(_tsn_nu_is_mbfscoll_exp), F(_nu_is_mbscoll_elem), F(_tsn_nu_is_mbfscoll_elem),
    F(_nu_is_mbscoll_exp_elem), F(_tsn_nu_is_mbfscoll_exp_elem), F(nu_full_mbscmp),
    F(_tsn_nu_mbscmp), F(nu_full_mbsncmp), F(_nu_thaismocoll), F(_tsn_nu_thaismoncoll),
    F(_nu_thaismoxfrm), F(nu_iscompchar_thai), F(nu_primweight_thai), F(nu_getpassdirection),
    F(nu_IsSpecialLocale), F(nu_iscompchar), F(nu_nextprimweight), F(nu_prevprimweight),
    F(nu_mbsCollBound), F(nu_mbsSortKeyCollBound), F(nu_cal_gregorian_to_local),
    F(nu_cal_local_to_gregorian), F(nu_alt_getcentury), F(nu_cv_load), F(nu_cv_open),
    F(nu_iconv_open), F(nu_iconv_open1), F(nu_cv_unload), F(nu_cv_mconv), F(nu_miconv),
    F(nu_mconvlen), F(nu_iconv_expansion), F(nu_cv_outbuflen), F(nu_getmb), F(nu_full_fgetmb),
    F(nu_full_fgetwc), F(nu_fgetmbs), F(nu_fgetwcs), F(nu_putmb), F(_tsn_nu_putmb), F(nu_fputmb),
    F(nu_fputwc), F(nu_fputmbs), F(nu_fputwcs), F(nu_full_charoffset), F(_nu_cache_mb_string),
    F(_nu_cache_wc_string), F(_nu_validate_mb_string), F(_nu_validate_wc_string),
    F(_nu_free_mb_cache), F(_nu_free_wc_cache), F(nu_wcsfnum), F(nu_mbsfnum), F(nu_wcsfnum1),
    F(_nu_scan_format_modifiers), F(_nu_format_decimal), F(_nu_get_mbstring), F(nu_wcstol),
    F(nu_wcstoul), F(nu_mbstol), F(nu_mbstoul), F(nu_ltowcs), F(nu_ultowcs), F(nu_ltombs),
    F(nu_ultombs), F(nu_iswgrpsymb), F(nu_iswcdecml), F(nu_wcstod_num_mon), F(nu_wcstod),
    F(nu_mbstod), F(nu_wcsfmon), F(nu_mbsfmon), F(nu_wcsfmon1), F(nu_wcspmon), F(nu_mbspmon),
    F(nu_wcspmon1), F(_nu_compare_wc_to_mb), F(nu_wcsftime), F(nu_mbsftime), F(nu_wcsptime),
    F(nu_mbsptime), F(nu_time_normalize), F(nu_time_isoweek), F(nu_time_localweek),
    F(nu_time_first_weekday), F(nu_time_expand_year), F(nu_cs_num2cs_name), F(nu_is_lc_spec),
    F(nu_lc_spec2lc_short), F(nu_lc_short2lc_long), F(nu_lc_spec2lc_norm), F(nu_lc_spec2category),
    F(nu_lc_fname2lc_spec), F(nu_cm_load), F(nu_mbstosyms), F(nu_symstombs), F(nu_wcspnum),
    F(nu_mbspnum), F(nu_wcspnum1),
};
#undef F

// Runs one call in a child process: its result text, or "crash" when the child died.
std::string in_child(std::string (*call)(void *), void *first) {
    int pipe_ends[2];
    if (pipe(pipe_ends) != 0) return "no pipe";
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(pipe_ends[0]);
        const std::string result = call(first);
        if (write(pipe_ends[1], result.data(), result.size()) < 0) _exit(3);
        _exit(0);
    }
    close(pipe_ends[1]);
    std::string result;
    char buffer[256];
    ssize_t n;
    while ((n = read(pipe_ends[0], buffer, sizeof buffer)) > 0) result.append(buffer, static_cast<size_t>(n));
    close(pipe_ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "crash";
    return result;
}

// What a call with a null handle returns where it is not a failure's -1 (a count or a
// character) or null (a pointer).
const std::map<std::string, std::string> &null_handle_results() {
    static const std::map<std::string, std::string> results = [] {
        std::map<std::string, std::string> r;
        // Comparisons answer 0, as do class tests and the measures that report an illegal
        // string as 0.
        for (const char *name :
             {"_nu_compare_wc_to_mb", "_nu_im_ismctype", "_nu_im_iswctype", "_nu_im_mbscoll",
              "_nu_is_mbscoll_back", "_nu_is_mbscoll_elem", "_nu_is_mbscoll_exp",
              "_nu_is_mbscoll_exp_elem", "_nu_thaismocoll", "_tsn_nu_full_mbscoll",
              "_tsn_nu_full_wcscoll", "_tsn_nu_im_ismctype", "_tsn_nu_im_mbfscoll",
              "_tsn_nu_is_mbfscoll_back", "_tsn_nu_is_mbfscoll_elem", "_tsn_nu_is_mbfscoll_exp",
              "_tsn_nu_is_mbfscoll_exp_elem", "_tsn_nu_mbscmp", "_tsn_nu_thaismoncoll",
              "nu_full_mbscmp", "nu_full_mbscoll", "nu_full_mbsncmp", "nu_full_wcscoll",
              "nu_IsSpecialLocale", "nu_ctype", "nu_ismbsterm", "nu_mbsbytes", "nu_mbsbytes_nt",
              "nu_alt_getcentury", "nu_iconv_expansion", "nu_cv_outbuflen", "_nu_is_xopen_spec",
              "nu_is_lc_spec", "_nuu_mbscoll", "_nuu_mbfscoll"})
            r[name] = "0";
        // Sentinels of their own: a conversion's out-of-range value, the unknown code set, a
        // wide character's failure.
        r["nu_mbstol"] = r["nu_wcstol"] = r["nu_mbstoul"] = r["nu_wcstoul"] = "2147483647";
        r["nu_mbstod"] = show(2147483647.0);
        r["nu_wcstod"] = r["nu_wcstod_num_mon"] = "0";
        r["nu_iswgrpsymb"] = r["nu_iswcdecml"] = "0";
        r["nu_cs_name2cs_num"] = r["nu_lc_spec2cs_num"] = r["_nu_next_cs_number_from_registry"] =
            "57344";
        r["nu_full_fgetwc"] = r["nu_fputwc"] = "4294967295";
        r["_nu_im_towupper"] = r["_nu_im_towlower"] = "8";   // unchanged
        // Work that needs no handle: the wide string functions (which take a null handle by
        // design), the search, the registry, the error lookup, the Thai key, the copy into
        // a single-byte code set; and the functions that only change the process's state.
        for (const char *name :
             {"_tsn_nu_wcscpy", "_tsn_nu_wcscat", "_tsn_nu_wcsncpy", "_tsn_nu_wcsncat",
              "_tsn_nu_wcsspn", "_tsn_nu_wcscspn", "_tsn_nu_wcspbrk", "_tsn_nu_wcswcs",
              "_tsn_nu_wcschr", "_tsn_nu_wcsrchr", "_tsn_nu_wcsntslen", "nu_wcsspn", "nu_wcscspn",
              "nu_wcswcs", "nu_wcspbrk", "nu_wcschr", "nu_wcsrchr", "nu_wcsntstrunc",
              "nu_path_search", "nu_path_search1", "nu_path_search_no_ext", "nu_open_file",
              "nu_cache_registry", "nu_ext_errno", "_nu_ext_errno", "_nu_thaismoxfrm",
              "_tsn_nu_is_mbfstowcfs", "_nu_is_mbstowcs", "nu_setextfunc", "nu_init_nuu",
              "nu_cs_nums2cv_fname"})
            r[name] = "";
        return r;
    }();
    return results;
}

// The plausible call is left out where zeros are not what the function takes: the caches
// would free them.
bool takes_plausible(const Entry &e) { return std::string(e.name).find("_free_") == std::string::npos; }

TEST(NullHandle, EveryFunctionFailsQuietly) {
    for (const Entry &e : entries) {
        EXPECT_NE(in_child(e.call, nullptr), "crash") << e.name << " with null arguments";
        if (!takes_plausible(e)) continue;
        const std::string got = in_child(e.call_plausible, nullptr);
        const auto known = null_handle_results().find(e.name);
        if (known != null_handle_results().end()) {
            if (known->second.empty()) {
                EXPECT_NE(got, "crash") << e.name;
            } else {
                EXPECT_EQ(got, known->second) << e.name;
            }
        } else {
            EXPECT_TRUE(got == "-1" || got == "null" || got == "void") << e.name << " gives " << got;
        }
    }
}

// With a loaded handle and nulls and zeros for everything else, nothing crashes either.
TEST(NullHandle, NullArgumentsWithALoadedHandle) {
    for (const char *name : {"de_de.8859-1", "ja_jp.sjis"}) {
        NUS_LOAD_OR_SKIP(loc, name);
        for (const Entry &e : entries) {
            if (e.takes_handle) {
                EXPECT_NE(in_child(e.call, loc.h), "crash") << name << ": " << e.name;
            }
        }
    }
}

// Every exported function whose first parameter is a handle or a descriptor is in the list.
TEST(NullHandle, TheListCoversTheHeader) {
    std::ifstream header(NUS_SOURCE_DIR "/include/nus.h");
    std::stringstream text;
    text << header.rdbuf();
    const std::string all = text.str();
    std::set<std::string> listed;
    for (const Entry &e : entries) listed.insert(e.name);
    const std::regex declaration(
        R"(NU_API[^;(]*?\b(\w+)\(\s*(const\s+)?(nu_locale_t|nu_cv_t|void\s*\*\s*(handle|conversion|h|cv)\b))");
    int found = 0;
    for (auto it = std::sregex_iterator(all.begin(), all.end(), declaration); it != std::sregex_iterator(); ++it) {
        ++found;
        EXPECT_TRUE(listed.count((*it)[1].str())) << (*it)[1].str() << " is not in the list";
    }
    EXPECT_EQ(found, static_cast<int>(listed.size()));
}

} // namespace
