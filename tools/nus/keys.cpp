// nus key and nus bound: sort keys in hex, and the collation bounds of a prefix that an
// index range scan over sort keys starts and stops at.
#include "tools/nus/query_common.h"

#include <cstring>
#include <string>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kKeyHelp =
    "Usage: nus key -l LOCALE [--primary] STRING...\n"
    "Print the sort key of each STRING under the locale's collation, in hex, one per\n"
    "line. Sort keys compare byte by byte (as memcmp or strcmp do) in the order in\n"
    "which the locale collates the strings; hex text compares the same way.\n"
    "\n"
    "Options:\n"
    "  -l, --locale LOCALE  the locale, by name (de_de.8859-1) or file name\n"
    "      --primary        the primary key only (the first level: letters without\n"
    "                       accents and case)\n"
    "  -h, --help           this help\n"
    "\n"
    "STRING is in the locale's code set.\n"
    "Exit status: 0 success, 1 a STRING that is not valid in the locale's code set or\n"
    "a locale that does not load, 2 usage error.\n";

constexpr const char *kBoundHelp =
    "Usage: nus bound -l LOCALE [--lower|--upper] PREFIX\n"
    "Collation bounds of PREFIX: the two strings, and their sort keys, between which\n"
    "every string that begins with PREFIX sorts.\n"
    "\n"
    "The lower bound is PREFIX with its last collation unit (a character, or a\n"
    "collating element such as a contraction) replaced by the unit just before it in\n"
    "primary order (ignoring accents and case); the upper bound, by the unit just\n"
    "after it. So for every string S that begins with PREFIX:\n"
    "    key(lower) <= key(S) <= key(upper)\n"
    "To find such strings in an index of sort keys, read from the lower bound's key\n"
    "to the upper bound's key and keep the rows that do begin with PREFIX: the range\n"
    "also holds strings that sort between the bounds without the prefix (those that\n"
    "begin with the lower bound, for one). Where PREFIX ends in the beginning of a\n"
    "collating element, the bounds lie outside the element as well. A PREFIX whose\n"
    "last character is ignored at the first level (a space or a punctuation mark in\n"
    "many locales), or is a Thai leading vowel (which sorts after the consonant that\n"
    "follows it), has no such bounds: the command warns; bound it without that\n"
    "character.\n"
    "\n"
    "Output: a line per bound (both unless --lower or --upper is given): \"lower\" or\n"
    "\"upper\", the bound (in the locale's code set) and its sort key in hex, separated\n"
    "by tabs. When no unit lies beyond the last one in that direction, the line reads\n"
    "\"(none)\" and \"start\" or \"end\": the scan starts at the beginning, or runs to\n"
    "the end, of the index.\n"
    "\n"
    "Options:\n"
    "  -l, --locale LOCALE  the locale, by name (de_de.8859-1) or file name\n"
    "      --lower          the lower bound only\n"
    "      --upper          the upper bound only\n"
    "  -h, --help           this help\n"
    "\n"
    "Exit status: 0 success, 1 a PREFIX that is not valid in the locale's code set or\n"
    "a locale that does not load, 2 usage error.\n";

// The sort key of `text` (nu_full_mbsxfrm), or false with the handle's error code set.
bool sort_key(nu_locale_t h, const char *text, std::string &key) {
    const unsigned char *s = reinterpret_cast<const unsigned char *>(text);
    *_nu_ext_errno(h) = 0;
    const int needed = nu_full_mbsxfrm(h, nullptr, s, 0);
    if (needed < 0) return false;
    std::vector<unsigned char> buffer(static_cast<size_t>(needed) + 1);
    const int n = nu_full_mbsxfrm(h, buffer.data(), s, static_cast<int>(buffer.size()));
    if (n < 0) return false;
    key.assign(reinterpret_cast<char *>(buffer.data()), static_cast<size_t>(n));
    return true;
}

// The key cut after its first level, as nu_get_prim_coll_weight leaves it.
std::string primary(const std::string &key) {
    std::vector<unsigned char> buffer(key.begin(), key.end());
    buffer.push_back(0);
    nu_get_prim_coll_weight(buffer.data());
    return std::string(reinterpret_cast<char *>(buffer.data()));
}

// A string the locale's decoder accepts from start to end.
bool valid_text(nu_locale_t h, const char *text) {
    const unsigned char *p = reinterpret_cast<const unsigned char *>(text);
    while (*p != 0) {
        *_nu_ext_errno(h) = 0;
        const int n =
            nu_full_mblen(h, p, static_cast<int>(std::strlen(reinterpret_cast<const char *>(p))));
        if (n <= 0) return false;
        p += n;
    }
    return true;
}

int invalid_text(nu_locale_t h, const char *text) {
    const int code = *_nu_ext_errno(h);
    return report(kDataError, "'%s' is not valid text in the locale's code set%s%s", text,
                  code != 0 ? ": " : "", code != 0 ? error_text(code).c_str() : "");
}

// One bound: the line to print, or a failure status.
int bound_line(nu_locale_t h, const char *prefix, bool upper, std::string &line) {
    const unsigned char *s = reinterpret_cast<const unsigned char *>(prefix);
    const char *name = upper ? "upper" : "lower";
    std::vector<unsigned char> text(std::strlen(prefix) + 64);
    int n;
    for (;;) {
        *_nu_ext_errno(h) = 0;
        n = nu_mbsCollBound(h, s, upper ? 1 : 0, text.data(), static_cast<int>(text.size()));
        if (n != -1 || *_nu_ext_errno(h) != NU_E2BIG || text.size() > (1u << 20)) break;
        text.resize(text.size() * 2);
    }
    if (n == -2) {
        line = std::string(name) + "\t(none)\t" + (upper ? "end" : "start");
        return kOk;
    }
    if (n < 0)
        return report(kDataError, "no %s bound for '%s': %s", name, prefix,
                      error_text(*_nu_ext_errno(h)).c_str());
    std::vector<unsigned char> key(256);
    int k;
    for (;;) {
        *_nu_ext_errno(h) = 0;
        k = nu_mbsSortKeyCollBound(h, s, upper ? 1 : 0, key.data(), static_cast<int>(key.size()));
        if (k < 0 || k < static_cast<int>(key.size())) break;
        key.resize(static_cast<size_t>(k) + 1);
    }
    if (k < 0)
        return report(kDataError, "no sort key for the %s bound of '%s': %s", name, prefix,
                      error_text(*_nu_ext_errno(h)).c_str());
    line = std::string(name) + "\t" +
           std::string(reinterpret_cast<char *>(text.data()), static_cast<size_t>(n)) + "\t" +
           hex_bytes(std::string_view(reinterpret_cast<char *>(key.data()), static_cast<size_t>(k)),
                     "");
    return kOk;
}

// Why the bounds of `text` do not enclose the strings that begin with it, or null when they
// do: its last character weighs nothing at the first level (a space or a punctuation mark
// in many locales), or is a Thai leading vowel, which sorts after the consonant that follows
// it. The neighbours of such a character bound nothing.
const char *unbounded_ending(nu_locale_t h, const char *text) {
    const unsigned char *p = reinterpret_cast<const unsigned char *>(text);
    const unsigned char *last = p;
    while (*p != 0) {
        const int n = nu_full_mblen(h, p, 4);
        if (n <= 0) return nullptr;
        last = p;
        p += n;
    }
    if (nu_IsSpecialLocale(h) == 1) {
        // TIS-620 leading vowels: E0 to E4.
        return p - last == 1 && *last >= 0xE0 && *last <= 0xE4
                   ? "is a Thai leading vowel, which sorts after the consonant that follows it"
                   : nullptr;
    }
    std::string key;
    const std::string character(reinterpret_cast<const char *>(last),
                                static_cast<size_t>(p - last));
    return sort_key(h, character.c_str(), key) && !key.empty() && primary(key).empty()
               ? "is ignored at the first level"
               : nullptr;
}

} // namespace

int run_key(int argc, char **argv) {
    if (wants_help(argc, argv, kKeyHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv, {{"locale", 'l', true}, {"primary", 0, false}})) return kUsage;
    if (args.operands().empty()) return usage_error("no STRING given");
    Locale locale;
    if (const int status = load_locale_option(args, locale); status != kOk) return status;
    nu_locale_t h = locale.get();
    int worst = kOk;
    for (const char *text : args.operands()) {
        std::string key;
        if (!valid_text(h, text) || !sort_key(h, text, key)) {
            worst = invalid_text(h, text);
            continue;
        }
        if (args.has("primary")) key = primary(key);
        std::printf("%s\n", hex_bytes(key, "").c_str());
    }
    return worst;
}

int run_bound(int argc, char **argv) {
    if (wants_help(argc, argv, kBoundHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv, {{"locale", 'l', true}, {"lower", 0, false}, {"upper", 0, false}}))
        return kUsage;
    const auto &operands = args.operands();
    if (operands.empty()) return usage_error("no PREFIX given");
    if (operands.size() > 1)
        return usage_error("one PREFIX at a time ('%s' is one too many)", operands[1]);
    if (*operands[0] == '\0')
        return usage_error("the PREFIX is empty: every string begins with it");
    Locale locale;
    if (const int status = load_locale_option(args, locale); status != kOk) return status;
    nu_locale_t h = locale.get();
    const char *prefix = operands[0];
    if (!valid_text(h, prefix)) return invalid_text(h, prefix);
    if (const char *why = unbounded_ending(h, prefix))
        warn("the last character of '%s' %s: the bounds do not enclose the strings that "
             "begin with it (bound the prefix without it instead)",
             prefix, why);
    const bool lower = args.has("lower") || !args.has("upper");
    const bool upper = args.has("upper") || !args.has("lower");
    for (bool up : {false, true}) {
        if ((up && !upper) || (!up && !lower)) continue;
        std::string line;
        if (const int status = bound_line(h, prefix, up, line); status != kOk) return status;
        line += '\n';
        std::fwrite(line.data(), 1, line.size(), stdout);
    }
    return kOk;
}

} // namespace nus_cli
