// The locale compiler's writer: CTYPE tables, COLLATE (collate.cpp), NUMERIC, MONETARY,
// TIME (time.cpp) and MESSAGES, in the layout the library reads.
#include "tools/localedef/compile.h"
#include "tools/localedef/collate.h"

#include "nus.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <set>

namespace nus::tools {

namespace {

constexpr uint16_t kStandardMasks[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024};
constexpr const char *kStandardNames[] = {"upper", "lower", "alpha", "digit", "space", "cntrl",
                                          "punct", "graph", "print", "xdigit", "blank"};
constexpr int kOwnClassLimit = 5;   // 2048 << n stays within 16 bits for n = 0..4
constexpr int32_t kNotAvailable = 2147483647;

void print_u16(FILE *stream, const void *desc) {
    uint16_t v;
    std::memcpy(&v, desc, sizeof v);
    std::fprintf(stream, "%04x", v);
}

nu_wchar wide_of(const std::string &bytes) {
    nu_wchar wc = 0;
    for (unsigned char b : bytes) wc = (wc << 8) | b;
    return wc;
}

struct TableOwner {
    multi_t *t;
    ~TableOwner() { _nu_free_multi(t); }
};

// A table over every character of the charmap with a 16-bit value each.
std::optional<std::string> write_table(FILE *out, const Charmap &charmap,
                                       const std::map<std::string, uint16_t> &values,
                                       CompileReport &report, bool count) {
    const uint16_t zero = 0;
    TableOwner table{_nu_create_multi(2, 0, &zero)};
    if (table.t == nullptr) return "out of memory";
    for (const CharmapEntry &e : charmap.entries) {
        multi_key key{static_cast<int32_t>(e.bytes.size()), {0, 0, 0, 0}};
        std::memcpy(key.bytes, e.bytes.data(), e.bytes.size());
        auto it = values.find(e.bytes);
        const uint16_t value = it == values.end() ? 0 : it->second;
        if (_nu_insert_desc_multi(&key, value != 0 ? &value : nullptr, table.t) != 0) {
            if (count) report.warnings.push_back("<" + e.symbol + "> conflicts with a longer or shorter character and is left out");
            continue;
        }
        if (count) ++report.characters;
    }
    if (_nu_compress_multi(table.t) != 0) return "out of memory";
    _nu_fprintf_multi(out, table.t, print_u16);
    return std::nullopt;
}

class Writer {
public:
    Writer(const SourceLocale &s, const Charmap &c, FILE *o, CompileReport &r)
        : source(s), charmap(c), out(o), report(r) {}

    // The first string value of a keyword, in the code set; empty (with a warning) when
    // absent or not representable.
    std::string text(const char *category, const char *key) {
        const auto *values = source.values(category, key);
        if (values == nullptr || values->empty() || !values->front().is_string) return {};
        auto bytes = encode(charmap, source, values->front().text);
        if (!bytes) {
            report.warnings.push_back(std::string(category) + " " + key +
                                      ": a character is not in the code set; left empty");
            return {};
        }
        return *bytes;
    }

    long number(const char *category, const char *key) {
        const auto *values = source.values(category, key);
        if (values == nullptr || values->empty() || values->front().is_string) return -1;
        return values->front().number;
    }

    void grouping(const char *category, const char *key) {
        const auto *values = source.values(category, key);
        std::vector<long> sizes;
        if (values != nullptr)
            for (const Value &v : *values)
                if (!v.is_string) sizes.push_back(v.number);
        if (sizes.size() > 15) sizes.resize(15);
        std::fprintf(out, "%zu", sizes.size());
        for (long size : sizes) std::fprintf(out, " %ld", size);
        std::fputc('\n', out);
    }

    const SourceLocale &source;
    const Charmap &charmap;
    FILE *out;
    CompileReport &report;
};

std::optional<std::string> write_ctype(Writer &w, const CompileOptions &options) {
    CtypeTables tables;
    if (auto error = build_ctype(w.source, w.charmap, options, tables, w.report)) return error;
    if (auto error = write_table(w.out, w.charmap, tables.classes, w.report, true)) return error;
    std::fprintf(w.out, "%zu\n", tables.own_classes.size());
    for (size_t n = 0; n < tables.own_classes.size(); ++n)
        std::fprintf(w.out, "%zu %s\n", n, tables.own_classes[n].c_str());
    if (auto error = write_table(w.out, w.charmap, tables.case_of, w.report, false)) return error;
    // The expansion factor ends the line of the last pair (or of the count).
    std::fprintf(w.out, "%zu", tables.pairs.size());
    for (const auto &p : tables.pairs) std::fprintf(w.out, "\n%x %x", p.first, p.second);
    std::fprintf(w.out, " %g\n", tables.expansion);
    w.report.case_pairs = tables.pairs.size();
    w.report.expansion = tables.expansion;
    return std::nullopt;
}

} // namespace

// A string in the code set, or nothing when a character is missing from it. A character the
// code set lacks is replaced by the first of its transliterations whose characters it has all
// (EUR for the euro sign, a no-break space for a narrow one), as glibc's localedef does.
std::optional<std::string> encode(const Charmap &charmap, const SourceLocale &source,
                                  const UString &text) {
    std::string bytes;
    for (uint32_t c : text) {
        if (const CharmapEntry *e = charmap.find_ucs(c)) {
            bytes += e->bytes;
            continue;
        }
        const auto found = source.translit.find(c);
        if (found == source.translit.end()) return std::nullopt;
        bool replaced = false;
        for (const UString &alternative : found->second) {
            std::string piece;
            replaced = true;
            for (uint32_t a : alternative) {
                const CharmapEntry *e = charmap.find_ucs(a);
                if (e == nullptr) {
                    replaced = false;
                    break;
                }
                piece += e->bytes;
            }
            if (replaced) {
                bytes += piece;
                break;
            }
        }
        if (!replaced) return std::nullopt;
    }
    return bytes;
}

void write_string(FILE *out, const std::string &bytes) {
    std::fprintf(out, "%zu", bytes.size());
    if (!bytes.empty()) {
        std::fputc(' ', out);
        for (unsigned char b : bytes) std::fprintf(out, "%02x", b);
    }
    std::fputc('\n', out);
}

std::optional<std::string> build_ctype(const SourceLocale &source, const Charmap &charmap,
                                       const CompileOptions &options, CtypeTables &tables,
                                       CompileReport &report) {
    tables = CtypeTables{};
    // The locale's own classes: full_width first (from display widths), then those the
    // definition names, as long as their bits fit.
    std::vector<std::string> &own = tables.own_classes;
    const Charmap *widths = options.width_map;
    if (widths != nullptr) own.push_back("full_width");
    for (const std::string &name : source.own_classes) {
        if (static_cast<int>(own.size()) < kOwnClassLimit) own.push_back(name);
        else report.warnings.push_back("class \"" + name + "\" left out: only five classes of a locale's own fit");
    }
    std::map<uint32_t, uint16_t> masks;
    for (size_t k = 0; k < std::size(kStandardNames); ++k) {
        auto it = source.classes.find(kStandardNames[k]);
        if (it == source.classes.end()) continue;
        for (uint32_t c : it->second) masks[c] |= kStandardMasks[k];
    }
    for (size_t n = 0; n < own.size(); ++n) {
        const uint16_t bit = static_cast<uint16_t>(2048u << n);
        if (own[n] == "full_width") {
            for (const CharmapEntry &e : charmap.entries)
                if (e.ucs && widths->width(*e.ucs) == 2) masks[*e.ucs] |= bit;
            continue;
        }
        auto it = source.classes.find(own[n]);
        if (it != source.classes.end())
            for (uint32_t c : it->second) masks[c] |= bit;
    }
    std::map<std::string, uint16_t> &by_bytes = tables.classes;
    for (const CharmapEntry &e : charmap.entries)
        if (e.ucs) {
            auto it = masks.find(*e.ucs);
            if (it != masks.end()) by_bytes[e.bytes] = it->second;
        }
    // Case: each character points at the pair of its upper and lower forms (itself where
    // unmapped), so a letter and its partner share one pair and odd mappings get their own.
    std::map<uint32_t, uint32_t> upper, lower;
    for (auto [from, to] : source.toupper) upper[from] = to;
    for (auto [from, to] : source.tolower) lower[from] = to;
    std::map<std::pair<nu_wchar, nu_wchar>, uint16_t> pair_index;
    auto &pairs = tables.pairs;
    auto &case_of = tables.case_of;
    double &expansion = tables.expansion;
    for (const CharmapEntry &e : charmap.entries) {
        if (!e.ucs) continue;
        const CharmapEntry *up = nullptr, *low = nullptr;
        if (auto it = upper.find(*e.ucs); it != upper.end()) up = charmap.find_ucs(it->second);
        if (auto it = lower.find(*e.ucs); it != lower.end()) low = charmap.find_ucs(it->second);
        if ((up == nullptr || up == &e) && (low == nullptr || low == &e)) continue;
        const std::pair<nu_wchar, nu_wchar> p{wide_of(up != nullptr ? up->bytes : e.bytes),
                                              wide_of(low != nullptr ? low->bytes : e.bytes)};
        for (const CharmapEntry *m : {up, low})
            if (m != nullptr)
                expansion = std::max(expansion, static_cast<double>(m->bytes.size()) /
                                                    static_cast<double>(e.bytes.size()));
        auto [it, added] = pair_index.emplace(p, static_cast<uint16_t>(pairs.size() + 1));
        if (added) {
            if (pairs.size() >= 0xFFFE) return std::string("too many case pairs");
            pairs.push_back(p);
        }
        case_of[e.bytes] = it->second;
    }
    return std::nullopt;
}

std::optional<std::string> compile_locale(const SourceLocale &source, const Charmap &charmap,
                                          const CompileOptions &options, FILE *out,
                                          CompileReport &report) {
    if (options.codeset.empty() || options.codeset.size() > 19)
        return "the code-set name must have 1 to 19 characters";
    Writer w(source, charmap, out, report);
    std::fprintf(out, "FILE_TYPE=locale_object\nCOMPILER_VERSION=%s\nHEADER_LENGTH=4\n"
                      "SOURCE_VERSION=%s\n%s\n",
                 nu_lc_version(), options.source_name.c_str(), options.codeset.c_str());

    std::fprintf(out, "### LC_CTYPE\n");
    if (auto error = write_ctype(w, options)) return error;

    std::fprintf(out, "### LC_COLLATE\n");
    {
        CollateTables collation;
        if (auto error = build_collate(source, charmap, collation, report.warnings)) return error;
        if (auto error = write_collate(out, charmap, collation)) return error;
    }

    std::fprintf(out, "### LC_NUMERIC\n");
    write_string(out, w.text("LC_NUMERIC", "decimal_point"));
    write_string(out, w.text("LC_NUMERIC", "thousands_sep"));
    w.grouping("LC_NUMERIC", "grouping");
    write_string(out, w.text("LC_MONETARY", "positive_sign"));
    write_string(out, w.text("LC_MONETARY", "negative_sign"));

    std::fprintf(out, "### LC_MONETARY\n");
    for (const char *key : {"int_curr_symbol", "currency_symbol", "mon_decimal_point",
                            "mon_thousands_sep"})
        write_string(out, w.text("LC_MONETARY", key));
    w.grouping("LC_MONETARY", "mon_grouping");
    write_string(out, w.text("LC_MONETARY", "positive_sign"));
    write_string(out, w.text("LC_MONETARY", "negative_sign"));
    for (const char *key : {"int_frac_digits", "frac_digits", "p_cs_precedes", "p_sep_by_space",
                            "n_cs_precedes", "n_sep_by_space", "p_sign_posn", "n_sign_posn"}) {
        const long v = w.number("LC_MONETARY", key);
        std::fprintf(out, "%ld\n", v < 0 || v > 127 ? static_cast<long>(kNotAvailable) : v);
    }

    std::fprintf(out, "### LC_TIME\n");
    if (auto error = write_time(source, charmap, options, out, report)) return error;

    std::fprintf(out, "### LC_MESSAGES\n");
    for (const char *key : {"yesexpr", "noexpr", "yesstr", "nostr"})
        write_string(out, w.text("LC_MESSAGES", key));
    return std::nullopt;
}

} // namespace nus::tools
