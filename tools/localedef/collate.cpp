// The collation compiler. The LC_COLLATE statements are read as glibc's localedef reads them:
// one global order made of sections (an order_start names its section; sections follow each
// other in the order their first order_start appears), names used in an order without a
// declaration become collating symbols, reorder-after moves entries behind another one, and
// ".." between two characters stands for every code point in between. A character's weight at
// a level is the list of order positions of what it names there (itself when it names nothing).
//
// Those positions are then numbered per level into the library's 14-bit weights: only the
// positions that characters of the code set use are counted. A level that needs more than
// 14 bits (the fourth level of the common table, whose weights are the characters themselves;
// large ideograph blocks) gives one weight with the code tie-break bit to each run of positions
// that are each carried by one character alone and whose characters rise in code order, so the
// character code orders the run exactly as the positions do. A list of two or more weights
// becomes an expansion of characters that carry exactly those weights at that level. Rows are
// the distinct weight tuples.
#include "tools/localedef/collate.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>
#include <unordered_map>

namespace nus::tools {

namespace {

constexpr int kMaxLevels = 8;
constexpr size_t kMaxSequence = 15;       // characters of an element or expansion
constexpr size_t kMaxRows = 0x10000;
constexpr size_t kMaxExpansions = 0x4000;
constexpr uint32_t kMaxEllipsis = 0x110000;
// The two order positions of the level that follows a "position" level: a character weighed
// there, and one ignored there.
constexpr int kWeighedPlace = std::numeric_limits<int>::max() - 1;
constexpr int kIgnoredPlace = std::numeric_limits<int>::max();
// Above this many characters the library's load-time lists of ignorable and equivalent
// characters (which visit every character of the code set) are not asked for.
constexpr size_t kDerivedListLimit = 4096;

std::string where(const SourceLine &line) { return line.file + ":" + std::to_string(line.line) + ": "; }


std::string ucs_name(uint32_t cp) {
    char buf[16];
    std::snprintf(buf, sizeof buf, cp <= 0xFFFF ? "U%04X" : "U%08X", cp);
    return buf;
}

// <U0061> and <U00000061> are one character: names of code points are kept in one spelling.
std::string normal_name(const std::string &name) {
    if (name.size() >= 5 && name.size() <= 9 && name[0] == 'U' &&
        name.find_first_not_of("0123456789abcdefABCDEF", 1) == std::string::npos)
        return ucs_name(static_cast<uint32_t>(std::stoul(name.substr(1), nullptr, 16)));
    return name;
}

nu_wchar wide_of(const std::string &bytes) {
    nu_wchar wc = 0;
    for (unsigned char b : bytes) wc = (wc << 8) | b;
    return wc;
}

struct Token {
    enum Kind { symbol, string, word, semicolon, ellipsis } kind;
    std::string text;                 // symbol name, word, ".." or "..."
    std::vector<std::string> names;   // strings: one name per symbol or character
};

std::optional<std::string> tokenize(const SourceLine &line, std::vector<Token> &out) {
    const std::string &s = line.text;
    size_t i = 0;
    while (i < s.size()) {
        const char c = s[i];
        if (std::isspace(static_cast<unsigned char>(c))) {
            ++i;
        } else if (c == line.comment) {
            break;
        } else if (c == '<') {
            std::string name;
            size_t k = i + 1;
            for (; k < s.size() && s[k] != '>'; ++k) {
                if (s[k] == line.escape && k + 1 < s.size()) ++k;
                name += s[k];
            }
            if (k >= s.size()) return "unterminated symbolic name";
            out.push_back({Token::symbol, normal_name(name), {}});
            i = k + 1;
        } else if (c == '"') {
            Token t{Token::string, {}, {}};
            size_t k = i + 1;
            while (k < s.size() && s[k] != '"') {
                if (s[k] == line.escape && k + 1 < s.size()) {
                    ++k;
                    t.names.push_back(ucs_name(utf8_at(s, k)));
                } else if (s[k] == '<') {
                    const size_t close = s.find('>', k);
                    if (close == std::string::npos) return "unterminated symbolic name in a string";
                    t.names.push_back(normal_name(s.substr(k + 1, close - k - 1)));
                    k = close + 1;
                } else {
                    t.names.push_back(ucs_name(utf8_at(s, k)));
                }
            }
            if (k >= s.size()) return "unterminated string";
            out.push_back(std::move(t));
            i = k + 1;
        } else if (c == ';') {
            out.push_back({Token::semicolon, ";", {}});
            ++i;
        } else if (s.compare(i, 2, "..") == 0) {
            const bool bytes = s.compare(i, 3, "...") == 0;
            out.push_back({Token::ellipsis, bytes ? "..." : "..", {}});
            i += bytes ? 3 : 2;
        } else {
            size_t k = i;
            while (k < s.size() && !std::isspace(static_cast<unsigned char>(s[k])) && s[k] != ';' &&
                   s[k] != '"' && s[k] != '<' && s[k] != line.comment)
                ++k;
            out.push_back({Token::word, s.substr(i, k - i), {}});
            i = k;
        }
    }
    return std::nullopt;
}

// One weight field as written: IGNORE, the entry itself ("..", or nothing written), or names.
struct Field {
    bool ignore = false;
    bool self = false;
    std::vector<std::string> names;
};

struct Entry {
    enum Kind { symbol, character, element, undefined, sentinel } kind;
    std::string name;
    uint32_t ucs = 0;
    std::vector<std::string> from;   // an element's characters
    bool placed = false;
    bool weighted = false;
    std::vector<Field> weights;
    int prev = -1, next = -1, section = -1;
    const SourceLine *line = nullptr;
};

Entry make_entry(Entry::Kind kind, const std::string &name, uint32_t ucs, const SourceLine *line) {
    Entry e{kind, name, ucs, {}, false, false, {}, -1, -1, -1, line};
    return e;
}

struct Section {
    int sentinel;
    int tail;
    std::vector<bool> backward;
};

// A unit that gets a row: a character of the charmap or a collating element.
struct Unit {
    std::string bytes;                   // characters: their bytes
    std::vector<nu_wchar> chars;         // elements: their characters
    bool element = false;
    bool listed = true;                  // false: weighed as glibc weighs unlisted characters
    bool carrier = false;                // no character: a weight for expansions to name
    bool missing = false;                // stands for the scalar values of its length a UTF-8 charmap lacks
    nu_wchar code = 0;                   // the code the library reports for the tie-break
    int section = -1;
    std::vector<std::vector<int>> w;     // per level: order positions
};

class Compiler {
public:
    Compiler(const SourceLocale &s, const Charmap &c, CollateTables &t, std::vector<std::string> &w)
        : source_(s), charmap_(c), tables_(t), warnings_(w) {}

    std::optional<std::string> run() {
        if (auto error = read_statements()) return error;
        if (levels_ == 0) code_order();
        number_positions();
        if (auto error = make_units()) return error;
        if (auto error = split_position_levels()) return error;
        choose_directions();
        add_carriers();
        return assign_weights();
    }

private:
    // ---- reading -------------------------------------------------------------------------

    int lookup(const std::string &name) const {
        auto it = index_.find(name);
        return it == index_.end() ? -1 : it->second;
    }

    int add_entry(Entry e) {
        entries_.push_back(std::move(e));
        const int n = static_cast<int>(entries_.size()) - 1;
        if (entries_[n].kind != Entry::sentinel) index_.emplace(entries_[n].name, n);
        return n;
    }

    // The entry an order line names: a character (by code point, or by a charmap name), a
    // declared element or symbol, or else a symbol made for it, as glibc does.
    int entry_for(const std::string &name, const SourceLine &line) {
        if (int e = lookup(name); e >= 0) return e;
        if (name.size() >= 5 && name[0] == 'U' && normal_name(name) == name &&
            name.find_first_not_of("0123456789ABCDEF", 1) == std::string::npos)
            return add_entry(make_entry(Entry::character, name, static_cast<uint32_t>(std::stoul(name.substr(1), nullptr, 16)), &line));
        if (const CharmapEntry *c = charmap_.find(name); c != nullptr && c->ucs) {
            const int e = entry_for(ucs_name(*c->ucs), line);
            index_.emplace(name, e);
            return e;
        }
        return add_entry(make_entry(Entry::symbol, name, 0, &line));
    }

    int new_section(const std::string &name) {
        Entry s = make_entry(Entry::sentinel, name, 0, nullptr);
        s.placed = true;
        const int node = add_entry(std::move(s));
        const int number = static_cast<int>(sections_.size());
        if (!sections_.empty()) {
            const int last = sections_.back().tail;
            entries_[node].prev = last;
            entries_[last].next = node;
        }
        entries_[node].section = number;
        sections_.push_back({node, node, std::vector<bool>(kMaxLevels, false)});
        section_index_[name] = number;
        return number;
    }

    void unlink(int x) {
        Entry &e = entries_[x];
        Section &s = sections_[e.section];
        if (s.tail == x) s.tail = e.prev;
        entries_[e.prev].next = e.next;
        if (e.next >= 0) entries_[e.next].prev = e.prev;
        e.prev = e.next = -1;
        e.placed = false;
    }

    void insert_after(int x, int after) {
        Entry &e = entries_[x];
        Entry &a = entries_[after];
        e.prev = after;
        e.next = a.next;
        if (a.next >= 0) entries_[a.next].prev = x;
        a.next = x;
        e.section = a.section;
        e.placed = true;
        if (sections_[a.section].tail == after) sections_[a.section].tail = x;
    }

    // Places an entry: behind the reorder cursor, or at the end of the current section.
    std::optional<std::string> place(int x, const SourceLine &line) {
        if (entries_[x].placed) {
            if (cursor_ < 0) {
                warnings_.push_back(where(line) + "<" + entries_[x].name + "> is already in the order; this line is ignored");
                return std::nullopt;
            }
            if (x == cursor_) return std::nullopt;
            unlink(x);
        }
        if (cursor_ >= 0) {
            insert_after(x, cursor_);
            cursor_ = x;
            return std::nullopt;
        }
        if (current_ < 0) current_ = section_index_.count("") ? section_index_[""] : new_section("");
        insert_after(x, sections_[current_].tail);
        return std::nullopt;
    }

    static std::optional<std::string> parse_fields(const std::vector<Token> &t, size_t i,
                                                   std::vector<Field> &out) {
        Field f;
        bool any = false;
        for (; i <= t.size(); ++i) {
            if (i == t.size() || t[i].kind == Token::semicolon) {
                if (!any) f.self = true;
                out.push_back(std::move(f));
                f = Field{};
                any = false;
                continue;
            }
            any = true;
            switch (t[i].kind) {
            case Token::word:
                if (t[i].text == "IGNORE") {
                    f.ignore = true;
                } else {
                    for (size_t k = 0; k < t[i].text.size();)
                        f.names.push_back(ucs_name(utf8_at(t[i].text, k)));
                }
                break;
            case Token::symbol: f.names.push_back(t[i].text); break;
            case Token::string: f.names.insert(f.names.end(), t[i].names.begin(), t[i].names.end()); break;
            case Token::ellipsis: f.self = true; break;
            default: break;
            }
            if (f.ignore && (!f.names.empty() || f.self)) return "IGNORE cannot be combined with other weights";
        }
        return std::nullopt;
    }

    std::optional<std::string> order_line(const std::vector<Token> &t, const SourceLine &line) {
        std::vector<Field> fields;
        const bool weighted = t.size() > 1;
        if (weighted) {
            if (auto error = parse_fields(t, 1, fields)) return where(line) + *error;
            if (levels_ > 0 && static_cast<int>(fields.size()) > levels_)
                return where(line) + "more weights than the " + std::to_string(levels_) + " levels of the order";
        }
        if (t[0].kind == Token::ellipsis) {
            if (last_char_ < 0) return where(line) + "an ellipsis must follow a character";
            ellipsis_ = {entries_[last_char_].ucs, weighted, fields, &line};
            pending_ellipsis_ = true;
            return std::nullopt;
        }
        int x;
        if (t[0].kind == Token::word && t[0].text == "UNDEFINED") {
            x = lookup("UNDEFINED");
            if (x < 0) x = add_entry(make_entry(Entry::undefined, "UNDEFINED", 0, &line));
        } else if (t[0].kind == Token::symbol) {
            x = entry_for(t[0].text, line);
        } else if (t[0].kind == Token::word) {
            size_t k = 0;
            const uint32_t cp = utf8_at(t[0].text, k);
            if (k != t[0].text.size()) return where(line) + "unknown statement \"" + t[0].text + "\"";
            x = entry_for(ucs_name(cp), line);
        } else {
            return where(line) + "an order line must begin with a name";
        }
        if (pending_ellipsis_) {
            pending_ellipsis_ = false;
            if (entries_[x].kind != Entry::character || entries_[x].ucs <= ellipsis_.from ||
                entries_[x].ucs - ellipsis_.from > kMaxEllipsis)
                return where(line) + "an ellipsis must lie between two characters in rising order";
            // glibc's "..." counts in bytes of the charmap; the sources use it only where byte
            // and code-point order agree, so both run over code points here.
            for (uint32_t cp = ellipsis_.from + 1; cp < entries_[x].ucs; ++cp) {
                const int y = entry_for(ucs_name(cp), line);
                if (auto error = place(y, line)) return error;
                if (ellipsis_.weighted) {
                    entries_[y].weighted = true;
                    entries_[y].weights = ellipsis_.fields;
                }
            }
        }
        if (auto error = place(x, line)) return error;
        if (weighted) {
            entries_[x].weighted = true;
            entries_[x].weights = std::move(fields);
        }
        if (entries_[x].line == nullptr) entries_[x].line = &line;
        last_char_ = entries_[x].kind == Entry::character ? x : -1;
        return std::nullopt;
    }

    std::optional<std::string> order_start(const std::vector<Token> &t, const SourceLine &line) {
        size_t i = 1;
        std::string name;
        if (i < t.size() && t[i].kind == Token::symbol) {
            name = t[i].text;
            ++i;
            if (i < t.size() && t[i].kind == Token::semicolon) ++i;
        }
        std::vector<bool> backward;
        for (; i < t.size(); ++i) {
            if (t[i].kind == Token::semicolon) continue;
            if (t[i].kind != Token::word) return where(line) + "expected a direction";
            bool forward = false, back = false, position = false;
            size_t a = 0;
            const std::string &w = t[i].text;
            while (a <= w.size()) {
                size_t b = w.find(',', a);
                if (b == std::string::npos) b = w.size();
                const std::string part = w.substr(a, b - a);
                if (part == "forward") forward = true;
                else if (part == "backward") back = true;
                else if (part == "position") position = true;
                else return where(line) + "unknown direction \"" + part + "\"";
                a = b + 1;
            }
            if (forward && back) return where(line) + "a level cannot go both forward and backward";
            backward.push_back(back);
            if (position && backward.size() <= position_levels_.size()) position_levels_[backward.size() - 1] = true;
        }
        if (backward.empty()) backward.push_back(false);
        const int count = static_cast<int>(backward.size());
        if (count > kMaxLevels) return where(line) + "more than 8 levels";
        if (levels_ == 0) levels_ = count;
        else if (count != levels_)
            return where(line) + "this order has " + std::to_string(count) + " levels, an earlier one " + std::to_string(levels_);
        auto it = section_index_.find(name);
        current_ = it != section_index_.end() ? it->second : new_section(name);
        for (int l = 0; l < count; ++l) sections_[current_].backward[l] = backward[l];
        cursor_ = -1;
        return std::nullopt;
    }

    std::optional<std::string> statement(const std::vector<Token> &t, const SourceLine &line) {
        const std::string &key = t[0].kind == Token::word ? t[0].text : std::string();
        if (key == "collating-symbol") {
            for (size_t i = 1; i < t.size(); ++i)
                if (t[i].kind == Token::symbol && lookup(t[i].text) < 0)
                    add_entry(make_entry(Entry::symbol, t[i].text, 0, &line));
            return std::nullopt;
        }
        if (key == "collating-element") {
            if (t.size() < 4 || t[1].kind != Token::symbol || t[2].text != "from" || t[3].kind != Token::string)
                return where(line) + "expected collating-element <name> from \"characters\"";
            if (lookup(t[1].text) >= 0) return where(line) + "<" + t[1].text + "> is already defined";
            if (t[3].names.size() < 2) return where(line) + "a collating element needs at least two characters";
            {
                Entry e = make_entry(Entry::element, t[1].text, 0, &line);
                e.from = t[3].names;
                add_entry(std::move(e));
            }
            return std::nullopt;
        }
        if (key == "order_start") return order_start(t, line);
        if (key == "order_end") {
            current_ = -1;
            cursor_ = -1;
            return std::nullopt;
        }
        if (key == "reorder-after") {
            if (t.size() < 2 || t[1].kind != Token::symbol) return where(line) + "reorder-after needs a name";
            const int y = lookup(t[1].text);
            if (y < 0 || !entries_[y].placed) return where(line) + "<" + t[1].text + "> is not in the order";
            cursor_ = y;
            return std::nullopt;
        }
        if (key == "reorder-end") {
            cursor_ = -1;
            return std::nullopt;
        }
        if (key == "script") {
            if (t.size() < 2 || t[1].kind != Token::symbol) return where(line) + "script needs a name";
            return std::nullopt;   // sections take their place from their first order_start
        }
        if (key == "reorder-sections-after" || key == "reorder-sections-end" || key == "symbol-equivalence")
            return where(line) + key + " is not supported";
        return order_line(t, line);
    }

    std::optional<std::string> read_statements() {
        // Conditionals: each level holds (active, a branch was taken).
        std::vector<std::pair<bool, bool>> conditions;
        std::set<std::string> defined;
        for (const SourceLine &line : source_.collate) {
            std::vector<Token> t;
            if (auto error = tokenize(line, t)) return where(line) + *error;
            if (t.empty()) continue;
            const bool active = conditions.empty() || conditions.back().first;
            const std::string key = t[0].kind == Token::word ? t[0].text : std::string();
            if (key == "ifdef" || key == "ifndef") {
                if (t.size() < 2) return where(line) + key + " needs a name";
                const bool holds = defined.count(t[1].text) == (key == "ifdef" ? 1u : 0u);
                conditions.emplace_back(active && holds, holds);
                continue;
            }
            if (key == "else" || key == "elifdef" || key == "elifndef" || key == "endif") {
                if (conditions.empty()) return where(line) + key + " without ifdef";
                if (key == "endif") {
                    conditions.pop_back();
                    continue;
                }
                const bool outer = conditions.size() < 2 || conditions[conditions.size() - 2].first;
                bool holds = !conditions.back().second;
                if (key != "else") {
                    if (t.size() < 2) return where(line) + key + " needs a name";
                    holds = holds && defined.count(t[1].text) == (key == "elifdef" ? 1u : 0u);
                }
                conditions.back() = {outer && holds, conditions.back().second || holds};
                continue;
            }
            if (!active) continue;
            if (key == "define") {
                if (t.size() < 2) return where(line) + "define needs a name";
                defined.insert(t[1].text);
                continue;
            }
            if (auto error = statement(t, line)) return error;
        }
        if (!conditions.empty()) return "LC_COLLATE: an ifdef is not closed by endif";
        if (pending_ellipsis_) return where(*ellipsis_.line) + "an ellipsis must be followed by a character";
        return std::nullopt;
    }

    // No order at all: one level, the characters of the charmap in the order of their bytes.
    void code_order() {
        levels_ = 1;
        std::vector<const CharmapEntry *> sorted;
        for (const CharmapEntry &c : charmap_.entries)
            if (c.ucs) sorted.push_back(&c);
        std::sort(sorted.begin(), sorted.end(),
                  [](const CharmapEntry *a, const CharmapEntry *b) { return a->bytes < b->bytes; });
        const int s = new_section("");
        for (const CharmapEntry *c : sorted) {
            const int x = lookup(ucs_name(*c->ucs)) >= 0 ? lookup(ucs_name(*c->ucs))
                                                          : add_entry(make_entry(Entry::character, ucs_name(*c->ucs), *c->ucs, nullptr));
            if (!entries_[x].placed) insert_after(x, sections_[s].tail);
        }
    }

    // ---- numbering -------------------------------------------------------------------------

    void number_positions() {
        position_.assign(entries_.size(), -1);
        if (sections_.empty()) return;
        int p = 0;
        for (int x = sections_.front().sentinel; x >= 0; x = entries_[x].next)
            if (entries_[x].kind != Entry::sentinel) position_[x] = p++;
    }

    // The positions an entry weighs at a level.
    std::optional<std::string> weights_of(int x, int level, std::vector<int> &out) {
        out.clear();
        const Entry &e = entries_[x];
        const Field *f = e.weighted && level < static_cast<int>(e.weights.size()) ? &e.weights[level] : nullptr;
        if (f == nullptr || f->self) {
            out.push_back(position_[x]);
            return std::nullopt;
        }
        if (f->ignore) return std::nullopt;
        for (const std::string &name : f->names) {
            const int y = lookup(name);
            if (y < 0 || position_[y] < 0)
                return (e.line ? where(*e.line) : std::string()) + "the weight <" + name + "> of <" + e.name + "> has no place in the order";
            out.push_back(position_[y]);
        }
        return std::nullopt;
    }

    std::optional<std::string> unit_weights(int x, Unit &u) {
        u.w.resize(static_cast<size_t>(levels_));
        for (int l = 0; l < levels_; ++l)
            if (auto error = weights_of(x, l, u.w[static_cast<size_t>(l)])) return error;
        u.section = entries_[x].section;
        return std::nullopt;
    }

    std::optional<std::string> make_units() {
        std::vector<size_t> unlisted;
        for (const CharmapEntry &c : charmap_.entries) {
            Unit u;
            u.bytes = c.bytes;
            u.code = wide_of(c.bytes);
            const int x = c.ucs ? lookup(ucs_name(*c.ucs)) : -1;
            if (x >= 0 && entries_[x].kind == Entry::character && position_[x] >= 0) {
                if (auto error = unit_weights(x, u)) return error;
            } else {
                unlisted.push_back(units_.size());
                u.listed = false;
            }
            units_.push_back(std::move(u));
        }
        // The scalar values a UTF-8 charmap lacks are characters the order does not list: one
        // unit for each length of their bytes stands for them.
        std::array<bool, 5> lengths{};
        charmap_.each_missing_scalar([&](uint32_t cp) {
            const std::string bytes = utf8_bytes(cp);
            if (lengths[bytes.size()]) return;
            lengths[bytes.size()] = true;
            Unit u;
            u.bytes = bytes;
            u.code = wide_of(bytes);
            u.listed = false;
            u.missing = true;
            unlisted.push_back(units_.size());
            units_.push_back(std::move(u));
        });
        if (!unlisted.empty()) {
            // glibc's strcoll weighs each byte of a character the order does not list like the
            // first listed character of its byte table (the lowest bytes after NUL): a
            // three-byte character weighs as that character three times. UNDEFINED in the order
            // does not change that (glibc's wide-character tables use its place, the multibyte
            // ones that strcoll reads do not).
            const Unit *first = nullptr;
            for (const Unit &u : units_)
                if (!u.w.empty() && u.bytes[0] != '\0' && (first == nullptr || u.bytes < first->bytes)) first = &u;
            const std::vector<std::vector<int>> base = first ? first->w : std::vector<std::vector<int>>(static_cast<size_t>(levels_));
            for (size_t i : unlisted) {
                Unit &u = units_[i];
                u.w.assign(static_cast<size_t>(levels_), {});
                for (int l = 0; l < levels_; ++l)
                    for (size_t k = 0; k < u.bytes.size(); ++k)
                        u.w[static_cast<size_t>(l)].insert(u.w[static_cast<size_t>(l)].end(), base[static_cast<size_t>(l)].begin(), base[static_cast<size_t>(l)].end());
            }
            unlisted_ = unlisted.size();
        }
        characters_ = units_.size();
        // Elements whose characters the code set has all; glibc takes the longest match, the
        // library the first in table order, so longer elements are listed first.
        std::vector<std::pair<int, Unit>> elements;
        for (size_t x = 0; x < entries_.size(); ++x) {
            const Entry &e = entries_[x];
            if (e.kind != Entry::element || position_[x] < 0) continue;
            Unit u;
            u.element = true;
            u.code = 1;   // the library reports an element as character 1
            bool complete = true;
            for (const std::string &name : e.from) {
                const int c = lookup(name);
                const CharmapEntry *m = c >= 0 && entries_[c].kind == Entry::character ? charmap_.find_ucs(entries_[c].ucs)
                                                                                       : charmap_.find(name);
                if (m == nullptr) {
                    complete = false;
                    break;
                }
                u.chars.push_back(wide_of(m->bytes));
            }
            if (!complete) continue;
            if (u.chars.size() > kMaxSequence) {
                warnings_.push_back(where(*e.line) + "<" + e.name + "> has more than 15 characters and is left out");
                continue;
            }
            if (auto error = unit_weights(static_cast<int>(x), u)) return error;
            elements.emplace_back(position_[x], std::move(u));
        }
        std::stable_sort(elements.begin(), elements.end(), [](const auto &a, const auto &b) {
            return a.second.chars.size() > b.second.chars.size();
        });
        for (auto &e : elements) units_.push_back(std::move(e.second));
        return std::nullopt;
    }

    // At a level with glibc's "position" rule, a character ignored there still counts: strcoll
    // compares how many ignored characters stand before each weighed one (more sorts later)
    // before it compares that weight, and passes over ignored characters at the end. The
    // library's level walk has no counterpart, so the level is followed by one of its own that
    // marks each character as weighed or ignored there (ignored sorting after): strings whose
    // weights agree at the level are then ordered by where their ignored characters stand,
    // as glibc orders them. The two differ only for strings whose ignored characters stand in
    // different places and whose weights differ after that place: glibc decides by the places,
    // the library by the weights.
    std::optional<std::string> split_position_levels() {
        for (int l = levels_ - 1; l >= 0; --l) {
            if (!position_levels_[static_cast<size_t>(l)]) continue;
            if (levels_ == kMaxLevels) return std::string("LC_COLLATE: no room for the position rule beyond 8 levels");
            const auto at = static_cast<size_t>(l);
            for (Unit &u : units_) {
                // A character the order does not list is weighed byte by byte (make_units).
                const size_t count = u.listed ? 1 : u.bytes.size();
                u.w.insert(u.w.begin() + l + 1, std::vector<int>(count, u.w[at].empty() ? kIgnoredPlace : kWeighedPlace));
            }
            for (Section &s : sections_) s.backward.insert(s.backward.begin() + l + 1, false);
            ++levels_;
        }
        return std::nullopt;
    }

    // One direction per level for the whole locale: glibc keeps one per section, the library
    // one per level, so a level goes backward when most characters weighed there belong to
    // sections that walk it backward (the common table's punctuation section is such a
    // minority at the second level).
    void choose_directions() {
        std::vector<long> votes(static_cast<size_t>(levels_), 0);
        for (const Unit &u : units_) {
            if (u.section < 0) continue;
            for (int l = 0; l < levels_; ++l)
                if (!u.w[static_cast<size_t>(l)].empty()) votes[static_cast<size_t>(l)] += sections_[u.section].backward[l] ? 1 : -1;
        }
        tables_.directions.clear();
        for (int l = 0; l < levels_; ++l) tables_.directions.push_back(votes[static_cast<size_t>(l)] > 0 ? 2 : 1);
    }

    // ---- weights -------------------------------------------------------------------------

    // An expansion names characters whose weights stand for the weights of a list. A weight
    // that no character carries alone (the common table's symbols for the parts of an
    // ideograph's implicit weight, accents whose combining character the code set lacks) gets
    // a carrier: a byte sequence that is no character of the code set (its first byte begins
    // none) with a row of its own in the collation table, which text never reaches but an
    // expansion can name. A single-byte code set has no byte to spare; there such lists keep
    // a weight of their own (assign_weights).
    void add_carriers() {
        std::set<unsigned char> leads;
        size_t longest = 0;
        for (const CharmapEntry &c : charmap_.entries) {
            leads.insert(static_cast<unsigned char>(c.bytes[0]));
            longest = std::max(longest, c.bytes.size());
        }
        int lead = 0xFF;
        while (lead > 0x80 && leads.count(static_cast<unsigned char>(lead)) != 0) --lead;
        if (longest < 2 || leads.count(static_cast<unsigned char>(lead)) != 0) return;
        std::set<std::pair<int, int>> needed;   // (level, position)
        for (int l = 0; l < levels_; ++l) {
            const auto L = static_cast<size_t>(l);
            std::set<int> carried;
            for (const Unit &u : units_)
                if (!u.element && u.w[L].size() == 1) carried.insert(u.w[L][0]);
            for (const Unit &u : units_)
                if (u.w[L].size() > 1)
                    for (int p : u.w[L])
                        if (carried.count(p) == 0) needed.emplace(l, p);
        }
        uint32_t count = 0;
        for (const auto &[level, position] : needed) {
            Unit u;
            u.carrier = true;
            u.bytes = {static_cast<char>(lead), static_cast<char>(count >> 16), static_cast<char>(count >> 8),
                       static_cast<char>(count)};
            ++count;
            u.code = wide_of(u.bytes);
            u.w.assign(static_cast<size_t>(levels_), {});
            u.w[static_cast<size_t>(level)].push_back(position);
            units_.push_back(std::move(u));
        }
        tables_.carriers = count;
    }

    // A list of two or more weights becomes an expansion of the characters (or carriers) that
    // carry each of its weights alone. Where that cannot be (in a single-byte code set, which
    // has no carriers, the common table's accents whose combining characters it lacks), the
    // list gets a weight of its own, ranked among the level's weights as glibc compares lists:
    // by their first differing weight, a list before its own extensions. That is exact as
    // long as no string continues a proper beginning of such a list with other weights, as
    // glibc compares a string's weights one by one.
    // Of two characters carrying a weight alone, the one an expansion names: a character the
    // order lists before one that only borrows its weights, then the lower code, NUL last.
    static bool preferred(const Unit &a, const Unit &b) {
        if (a.carrier != b.carrier) return b.carrier;
        if (a.listed != b.listed) return a.listed;
        return a.code - 1 < b.code - 1;
    }

    std::optional<std::string> assign_weights() {
        const size_t n = units_.size();
        std::vector<std::vector<uint16_t>> tuple(n, std::vector<uint16_t>(static_cast<size_t>(levels_)));
        std::map<std::vector<nu_wchar>, uint16_t> expansion_index;
        tables_.tie_runs.assign(static_cast<size_t>(levels_), 0);
        uint16_t largest = kFirstWeight;
        for (int l = 0; l < levels_; ++l) {
            const size_t L = static_cast<size_t>(l);
            // Every position used at this level: how often, and the character that carries it
            // alone (see preferred()).
            std::unordered_map<int, std::pair<int, long>> use;   // position -> (uses, owner unit)
            for (size_t i = 0; i < n; ++i)
                for (int p : units_[i].w[L]) {
                    auto &[count, owner] = use.try_emplace(p, 0, -1L).first->second;
                    ++count;
                    if (units_[i].w[L].size() == 1 && !units_[i].element &&
                        (owner < 0 || preferred(units_[i], units_[static_cast<size_t>(owner)])))
                        owner = static_cast<long>(i);
                }
            std::vector<bool> compound(n, false);
            std::set<std::vector<int>> keys;
            for (size_t i = 0; i < n; ++i) {
                const std::vector<int> &w = units_[i].w[L];
                compound[i] = w.size() > 1 && std::any_of(w.begin(), w.end(), [&](int p) { return use[p].second < 0; });
                if (compound[i]) {
                    keys.insert(w);
                    ++tables_.compounds;
                } else {
                    for (int p : w) keys.insert({p});
                }
            }
            const bool runs = keys.size() > static_cast<size_t>(kLastWeight - kFirstWeight + 1);
            std::map<std::vector<int>, uint16_t> weight;
            uint32_t next = kFirstWeight;
            nu_wchar run_code = 0;
            bool in_run = false, full = false;
            for (const std::vector<int> &key : keys) {
                const auto [count, owner] = use[key[0]];
                if (runs && key.size() == 1 && count == 1 && owner >= 0) {
                    const nu_wchar code = units_[static_cast<size_t>(owner)].code;
                    if (!in_run || code <= run_code) {   // a new run
                        if ((full = next > kLastWeight)) break;
                        ++tables_.tie_runs[L];
                        ++next;
                    }
                    in_run = true;
                    run_code = code;
                    weight[key] = static_cast<uint16_t>(kCodeTieBit | (next - 1));
                    continue;
                }
                in_run = false;
                if ((full = next > kLastWeight)) break;
                weight[key] = static_cast<uint16_t>(next++);
            }
            if (full)
                return "LC_COLLATE: level " + std::to_string(l + 1) + " needs more than " +
                       std::to_string(kLastWeight - kFirstWeight + 1) + " weights";
            largest = std::max<uint16_t>(largest, static_cast<uint16_t>(next - 1));
            for (size_t i = 0; i < n; ++i) {
                const std::vector<int> &w = units_[i].w[L];
                if (w.empty()) {
                    tuple[i][L] = kIgnoreWeight;
                } else if (w.size() == 1 || compound[i]) {
                    tuple[i][L] = weight[w.size() == 1 ? std::vector<int>{w[0]} : w];
                } else {
                    // The characters that carry each weight of the list alone.
                    std::vector<nu_wchar> chars;
                    for (int p : w) chars.push_back(units_[static_cast<size_t>(use[p].second)].code);
                    if (chars.size() > kMaxSequence) {
                        chars.resize(kMaxSequence);
                        ++tables_.truncated;
                    }
                    auto [it, added] = expansion_index.emplace(chars, static_cast<uint16_t>(tables_.expansions.size()));
                    if (added) {
                        if (tables_.expansions.size() >= kMaxExpansions) return std::string("LC_COLLATE: more than 16384 expansions");
                        tables_.expansions.push_back(chars);
                    }
                    tuple[i][L] = static_cast<uint16_t>(kExpansionBit | it->second);
                }
            }
        }
        tables_.largest = largest;
        if (tables_.truncated > 0)
            warnings_.push_back("LC_COLLATE: " + std::to_string(tables_.truncated) +
                                " weight lists are longer than 15 and keep their first 15 weights");
        // Rows: the distinct tuples.
        std::map<std::vector<uint16_t>, uint16_t> row_of;
        // Rows that make the library's reader list characters (all ignorable, or one
        // expansion at every level) make it visit every character of the code set at load.
        bool listing = false;
        for (size_t i = 0; i < n; ++i) {
            auto [it, added] = row_of.emplace(tuple[i], static_cast<uint16_t>(tables_.weights.size()));
            if (added) {
                if (tables_.weights.size() >= kMaxRows) return std::string("LC_COLLATE: more than 65536 distinct weight rows");
                tables_.weights.push_back(tuple[i]);
                const uint16_t first = tuple[i][0];
                listing = listing || std::all_of(tuple[i].begin(), tuple[i].end(), [&](uint16_t v) {
                              return v == first && (v == kIgnoreWeight || (v & kExpansionBit) != 0);
                          });
            }
            if (units_[i].element) tables_.elements.emplace_back(units_[i].chars, it->second);
            else tables_.rows[units_[i].bytes] = it->second;
            if (units_[i].missing) tables_.missing_rows[units_[i].bytes.size()] = it->second;
        }
        tables_.weights_only = listing && charmap_.entries.size() > kDerivedListLimit;
        // The collation table gives row 0 to a character entered without a value, and stores
        // no values for a byte array that holds only row 0: the four-byte scalar values a
        // UTF-8 charmap lacks (whole planes of them) take row 0.
        if (const int r = tables_.missing_rows[4]; r > 0) {
            auto swap_rows = [r](uint16_t &row) { row = row == 0 ? static_cast<uint16_t>(r) : row == r ? 0 : row; };
            std::swap(tables_.weights[0], tables_.weights[static_cast<size_t>(r)]);
            for (auto &entry : tables_.rows) swap_rows(entry.second);
            for (auto &element : tables_.elements) swap_rows(element.second);
            for (int &m : tables_.missing_rows)
                if (m == 0 || m == r) m = m == 0 ? r : 0;
        }
        return std::nullopt;
    }

    const SourceLocale &source_;
    const Charmap &charmap_;
    CollateTables &tables_;
    std::vector<std::string> &warnings_;

    std::vector<Entry> entries_;
    std::unordered_map<std::string, int> index_;
    std::vector<Section> sections_;
    std::map<std::string, int> section_index_;
    int levels_ = 0;
    std::vector<bool> position_levels_ = std::vector<bool>(kMaxLevels, false);
    int current_ = -1;      // section that order lines go to
    int cursor_ = -1;       // reorder-after: the entry the next line goes behind
    int last_char_ = -1;    // the character of the previous order line, for ellipses
    struct {
        uint32_t from = 0;
        bool weighted = false;
        std::vector<Field> fields;
        const SourceLine *line = nullptr;
    } ellipsis_;
    bool pending_ellipsis_ = false;
    std::vector<int> position_;
    std::vector<Unit> units_;
    size_t characters_ = 0;
    size_t unlisted_ = 0;
};

void print_u16(FILE *stream, const void *desc) {
    uint16_t v;
    std::memcpy(&v, desc, sizeof v);
    std::fprintf(stream, "%04x", v);
}

struct TableOwner {
    multi_t *t;
    ~TableOwner() { _nu_free_multi(t); }
};

} // namespace

std::optional<std::string> build_collate(const SourceLocale &source, const Charmap &charmap,
                                         CollateTables &tables, std::vector<std::string> &warnings) {
    tables = CollateTables{};
    // The Thai code set is collated by the library's fixed Thai method, not by tables.
    if (charmap.code_set_name == "TIS-620") {
        tables.thai = true;
        return std::nullopt;
    }
    return Compiler(source, charmap, tables, warnings).run();
}

std::optional<std::string> write_collate(FILE *out, const CollateTables &tables) {
    if (tables.thai) {
        std::fprintf(out, "thai_smo\n");
        return std::nullopt;
    }
    std::fprintf(out, "as_specified\n");
    const uint16_t zero = 0;
    TableOwner table{_nu_create_multi(2, 0, &zero)};
    if (table.t == nullptr) return std::string("out of memory");
    // The characters of the code set and the carriers.
    auto insert = [&](const std::string &bytes, uint16_t row) {
        multi_key key{static_cast<int32_t>(bytes.size()), {0, 0, 0, 0}};
        std::memcpy(key.bytes, bytes.data(), bytes.size());
        // Row 0 is the table's default value; a character that conflicts with a longer or
        // shorter one is left out (the CTYPE table reports it).
        _nu_insert_desc_multi(&key, row != 0 ? &row : nullptr, table.t);
    };
    for (const auto &[bytes, row] : tables.rows) insert(bytes, row);
    // The scalar values the charmap lacks: those not among the rows (whose byte order is the
    // code order of UTF-8).
    if (std::any_of(tables.missing_rows.begin(), tables.missing_rows.end(), [](int r) { return r >= 0; })) {
        auto listed = tables.rows.begin();
        for (uint32_t cp = 0; cp < 0x110000; ++cp) {
            if (cp == 0xD800) cp = 0xE000;
            const std::string bytes = utf8_bytes(cp);
            while (listed != tables.rows.end() && listed->first < bytes) ++listed;
            const int row = tables.missing_rows[bytes.size()];
            if ((listed == tables.rows.end() || listed->first != bytes) && row >= 0) insert(bytes, static_cast<uint16_t>(row));
        }
    }
    if (_nu_compress_multi(table.t) != 0) return std::string("out of memory");
    _nu_fprintf_multi(out, table.t, print_u16);
    const size_t levels = tables.directions.size();
    std::fprintf(out, "%d %zu %zu %zu %zu %u\n", tables.weights_only ? 1 : 0, tables.weights.size() - 1,
                 levels, tables.elements.size(), tables.expansions.size(), tables.largest);
    for (uint16_t d : tables.directions) std::fprintf(out, "%04x", d);
    std::fputc('\n', out);
    for (const auto &[chars, row] : tables.elements) {
        std::fprintf(out, "%zx%04x", chars.size(), row);
        for (nu_wchar c : chars) std::fprintf(out, " %08x", c);
        std::fputc('\n', out);
    }
    for (const auto &chars : tables.expansions) {
        std::fprintf(out, "%zx", chars.size());
        for (nu_wchar c : chars) std::fprintf(out, " %08x", c);
        std::fputc('\n', out);
    }
    for (const auto &row : tables.weights) {
        for (size_t l = 0; l < row.size(); ++l) std::fprintf(out, l == 0 ? "%04x" : " %04x", row[l]);
        std::fputc('\n', out);
    }
    return std::nullopt;
}

} // namespace nus::tools
