// Reading POSIX locale definitions.
#include "tools/common/source.h"
#include "tools/common/lines.h"

#include <cctype>
#include <filesystem>
#include <set>

namespace nus::tools {

namespace {

constexpr int kMaxCopyDepth = 16;
constexpr size_t kMaxIncludes = 256;
constexpr uint32_t kMaxRange = 0x110000;

const std::set<std::string> kStandardClasses = {"upper", "lower", "alpha", "digit", "space",
                                                "cntrl", "punct", "graph", "print", "xdigit",
                                                "blank"};

enum class Kind { symbol, string, word, punct, range };

struct Token {
    Kind kind;
    std::string text;    // symbol name, word, or punctuation character
    UString chars;       // strings
    int step = 1;        // ranges: ..(n)..
};


class Reader {
public:
    Reader(std::string search_dir, SourceLocale &out) : search_dir_(std::move(search_dir)), out_(out) {}

    std::optional<Diagnostic> read(const std::string &path, const std::string &only_category,
                                   int depth) {
        if (depth > kMaxCopyDepth) return Diagnostic{path, 0, "copy nested too deeply"};
        std::string text;
        if (!read_text_file(path, text)) return Diagnostic{path, 0, "cannot read the file"};
        char comment = '#', escape = '\\';
        const std::vector<LogicalLine> lines = logical_lines(text, comment, escape);
        std::string category;
        int category_line = 0;
        bool translit = false;
        for (const auto &[number, line] : lines) {
            // Categories the library does not read (LC_ADDRESS and the like) are passed over
            // to their END line.
            if (!category.empty() && !is_read(category)) {
                const size_t a = line.find_first_not_of(" \t");
                if (a != std::string::npos && line.compare(a, 4, "END ") == 0) {
                    const size_t b = line.find_first_not_of(" \t", a + 4);
                    const std::string name = b == std::string::npos ? "" : line.substr(b, line.find_first_of(" \t", b) - b);
                    if (name == category) category.clear();
                }
                continue;
            }
            // LC_COLLATE is kept as written, `copy` followed in place, for the collation
            // compiler (its strings hold collating symbols that are no characters).
            if (category == "LC_COLLATE") {
                const size_t a = line.find_first_not_of(" \t");
                if (a == std::string::npos) continue;
                if (line.compare(a, 4, "END ") != 0 && line.compare(a, 4, "END\t") != 0) {
                    if ((!only_category.empty() && only_category != category) || translit_only_)
                        continue;
                    mark_present(category);
                    if (line.compare(a, 4, "copy") == 0 && a + 4 < line.size() &&
                        std::isspace(static_cast<unsigned char>(line[a + 4]))) {
                        const size_t open = line.find('"', a);
                        const size_t close = open == std::string::npos ? open : line.find('"', open + 1);
                        if (close == std::string::npos)
                            return Diagnostic{path, number, "copy needs a file name in quotes"};
                        const std::string name = line.substr(open + 1, close - open - 1);
                        // A locale whose collation was read once already is not read
                        // again: its statements are in place (om_ET copies am_ET and om_KE,
                        // which both copy iso14651_t1). glibc's localedef also reads each
                        // copied locale once and shares what it read.
                        if (!collate_copies_.insert(name).second) continue;
                        const std::string file = locate(path, name);
                        if (file.empty())
                            return Diagnostic{path, number, "cannot find \"" + name + "\" to copy"};
                        if (auto error = read(file, category, depth + 1)) return error;
                        continue;
                    }
                    out_.collate.push_back({path, number, line, comment, escape});
                    continue;
                }
            }
            std::vector<Token> tokens;
            if (auto error = tokenize(line, comment, escape, tokens)) {
                return Diagnostic{path, number, *error};
            }
            if (tokens.empty()) continue;
            const std::string &first = tokens[0].text;
            if (tokens[0].kind == Kind::word && first.rfind("LC_", 0) == 0 && category.empty()) {
                category = first;
                category_line = number;
                continue;
            }
            if (first == "END" && tokens.size() > 1) {
                if (tokens[1].text != category)
                    return Diagnostic{path, number, "END " + tokens[1].text + " closes " +
                                                        (category.empty() ? "nothing" : category)};
                category.clear();
                translit = false;
                continue;
            }
            if (category.empty()) continue;   // outside categories: nothing to read
            if (!only_category.empty() && category != only_category) continue;
            if (first == "translit_start") translit = true;
            if (first == "translit_end") {
                translit = false;
                continue;
            }
            if (translit) {
                if (auto error = translit_line(path, tokens)) return Diagnostic{path, number, *error};
                continue;
            }
            if (translit_only_) continue;
            if (first == "copy") {
                if (tokens.size() < 2 || tokens[1].kind != Kind::string)
                    return Diagnostic{path, number, "copy needs a file name in quotes"};
                const std::string name = narrow(tokens[1].chars);
                const std::string file = locate(path, name);
                if (file.empty())
                    return Diagnostic{path, number, "cannot find \"" + name + "\" to copy"};
                if (auto error = read(file, category, depth + 1)) return error;
                mark_present(category);
                continue;
            }
            mark_present(category);
            if (auto error = keyword(category, tokens)) return Diagnostic{path, number, *error};
        }
        if (!category.empty()) return Diagnostic{path, category_line, category + " is not closed"};
        return std::nullopt;
    }

private:
    static bool is_read(const std::string &category) {
        return category == "LC_CTYPE" || category == "LC_COLLATE" || category == "LC_NUMERIC" ||
               category == "LC_MONETARY" || category == "LC_MESSAGES" || category == "LC_TIME";
    }

    static std::string narrow(const UString &s) {
        std::string out;
        for (uint32_t c : s) out += static_cast<char>(c < 0x80 ? c : '?');
        return out;
    }

    std::string locate(const std::string &from, const std::string &name) const {
        namespace fs = std::filesystem;
        for (const fs::path &dir : {fs::path(from).parent_path(), fs::path(search_dir_)}) {
            std::error_code ignored;
            if (fs::is_regular_file(dir / name, ignored)) return (dir / name).string();
        }
        return {};
    }

    void mark_present(const std::string &category) {
        for (const auto &c : out_.present)
            if (c == category) return;
        out_.present.push_back(category);
    }

    static std::optional<std::string> tokenize(const std::string &line, char comment, char escape,
                                               std::vector<Token> &tokens) {
        size_t i = 0;
        while (i < line.size()) {
            const char c = line[i];
            if (std::isspace(static_cast<unsigned char>(c))) {
                ++i;
            } else if (c == comment) {
                return std::nullopt;   // a comment runs to the end of the line
            } else if (c == '<') {
                std::string name;
                size_t k = i + 1;
                for (; k < line.size() && line[k] != '>'; ++k) {
                    if (line[k] == escape && k + 1 < line.size()) ++k;
                    name += line[k];
                }
                if (k >= line.size()) return "unterminated symbolic name";
                tokens.push_back({Kind::symbol, name, {}, 1});
                i = k + 1;
            } else if (c == '"') {
                Token t{Kind::string, {}, {}, 1};
                size_t k = i + 1;
                while (k < line.size() && line[k] != '"') {
                    if (line[k] == escape && k + 1 < line.size()) {
                        t.chars.push_back(static_cast<unsigned char>(line[k + 1]));
                        k += 2;
                    } else if (line[k] == '<') {
                        const size_t close = line.find('>', k);
                        if (close == std::string::npos) return "unterminated symbolic name in a string";
                        const auto ucs = ucs_of_symbol(line.substr(k + 1, close - k - 1));
                        if (!ucs) return "unknown symbolic name <" + line.substr(k + 1, close - k - 1) + "> in a string";
                        t.chars.push_back(*ucs);
                        k = close + 1;
                    } else {
                        t.chars.push_back(utf8_at(line, k));
                    }
                }
                if (k >= line.size()) return "unterminated string";
                tokens.push_back(t);
                i = k + 1;
            } else if (c == '.' && line.compare(i, 2, "..") == 0) {
                Token t{Kind::range, "..", {}, 1};
                if (line.compare(i, 3, "..(") == 0) {
                    const size_t close = line.find(")..", i);
                    if (close == std::string::npos) return "bad range step";
                    t.step = std::atoi(line.c_str() + i + 3);
                    if (t.step < 1) return "bad range step";
                    i = close + 3;
                } else {
                    i += line.compare(i, 3, "...") == 0 ? 3 : 2;
                }
                tokens.push_back(t);
            } else if (c == ';' || c == ',' || c == '(' || c == ')') {
                tokens.push_back({Kind::punct, std::string(1, c), {}, 1});
                ++i;
            } else {
                size_t k = i;
                while (k < line.size() && !std::isspace(static_cast<unsigned char>(line[k])) &&
                       line[k] != ';' && line[k] != ',' && line[k] != '"' && line[k] != '<')
                    ++k;
                tokens.push_back({Kind::word, line.substr(i, k - i), {}, 1});
                i = k;
            }
        }
        return std::nullopt;
    }

    // Characters of a class list: symbols, ranges of symbols, separated by ";".
    static std::optional<std::string> char_list(const std::vector<Token> &t, size_t i,
                                                std::vector<uint32_t> &out) {
        for (; i < t.size(); ++i) {
            if (t[i].kind == Kind::punct && t[i].text == ";") continue;
            if (t[i].kind != Kind::symbol) return "expected a character, found \"" + t[i].text + "\"";
            const auto first = ucs_of_symbol(t[i].text);
            if (i + 2 < t.size() && t[i + 1].kind == Kind::range) {
                const auto last = ucs_of_symbol(t[i + 2].text);
                if (!first || !last || *last < *first || *last - *first >= kMaxRange)
                    return "bad range <" + t[i].text + "> to <" + t[i + 2].text + ">";
                for (uint32_t c = *first; c <= *last; c += static_cast<uint32_t>(t[i + 1].step))
                    out.push_back(c);
                i += 2;
            } else if (first) {
                out.push_back(*first);
            }
        }
        return std::nullopt;
    }

    static std::optional<std::string> pair_list(const std::vector<Token> &t, size_t i,
                                                std::vector<std::pair<uint32_t, uint32_t>> &out) {
        for (; i < t.size(); ++i) {
            if (t[i].kind == Kind::punct && t[i].text == ";") continue;
            if (i + 4 >= t.size() || t[i].text != "(" || t[i + 1].kind != Kind::symbol ||
                t[i + 2].text != "," || t[i + 3].kind != Kind::symbol || t[i + 4].text != ")")
                return "expected (<from>,<to>)";
            const auto a = ucs_of_symbol(t[i + 1].text);
            const auto b = ucs_of_symbol(t[i + 3].text);
            if (a && b) out.emplace_back(*a, *b);
            i += 4;
        }
        return std::nullopt;
    }

    std::optional<std::string> keyword(const std::string &category, const std::vector<Token> &t) {
        const std::string &key = t[0].text;
        if (category == "LC_CTYPE") {
            if (kStandardClasses.count(key)) return char_list(t, 1, out_.classes[key]);
            if (key == "class") {
                if (t.size() < 2 || t[1].kind != Kind::string) return "class needs a name in quotes";
                const std::string name = narrow(t[1].chars);
                if (!out_.classes.count(name) && !kStandardClasses.count(name))
                    out_.own_classes.push_back(name);
                return char_list(t, 2, out_.classes[name]);
            }
            if (key == "toupper") return pair_list(t, 1, out_.toupper);
            if (key == "tolower") return pair_list(t, 1, out_.tolower);
            return std::nullopt;   // map, outdigit, charclass, include of transliterations...
        }
        if (category != "LC_NUMERIC" && category != "LC_MONETARY" && category != "LC_MESSAGES" &&
            category != "LC_TIME")
            return std::nullopt;   // categories the library does not read
        std::vector<Value> values;
        for (size_t i = 1; i < t.size(); ++i) {
            if (t[i].kind == Kind::punct && t[i].text == ";") continue;
            Value v;
            if (t[i].kind == Kind::string) {
                v.is_string = true;
                v.text = t[i].chars;
            } else if (t[i].kind == Kind::word) {
                char *end = nullptr;
                v.number = std::strtol(t[i].text.c_str(), &end, 10);
                if (end == t[i].text.c_str() || *end != '\0')
                    return "expected a number or a string after " + key;
            } else if (t[i].kind == Kind::symbol) {
                const auto c = ucs_of_symbol(t[i].text);
                if (!c) return "unknown symbolic name <" + t[i].text + ">";
                v.is_string = true;
                v.text = {*c};
            } else {
                return "unexpected \"" + t[i].text + "\" after " + key;
            }
            values.push_back(v);
        }
        // Definitions are taken in file order: a copy comes first, what follows it overrides.
        out_.categories[category][key] = values;
        return std::nullopt;
    }

    // One line of a transliteration block: an include of another file's transliterations, or
    // a character with its replacements (symbols or strings separated by ";"). Entries whose
    // source is a sequence of characters, and the directives (translit_ignore,
    // default_missing), do not matter to a compiler of single strings and are passed over.
    std::optional<std::string> translit_line(const std::string &path, const std::vector<Token> &t) {
        if (t[0].kind == Kind::word && t[0].text == "include") {
            if (t.size() < 2 || t[1].kind != Kind::string)
                return "include needs a file name in quotes";
            const std::string name = narrow(t[1].chars);
            const std::string file = locate(path, name);
            if (file.empty()) return "cannot find \"" + name + "\" to include";
            includes_.push_back(file);
            return std::nullopt;
        }
        if (t[0].kind != Kind::symbol || t.size() < 2) return std::nullopt;
        const auto from = ucs_of_symbol(t[0].text);
        if (!from || out_.translit.count(*from)) return std::nullopt;
        std::vector<UString> alternatives;
        for (size_t i = 1; i < t.size(); ++i) {
            if (t[i].kind == Kind::punct && t[i].text == ";") continue;
            if (t[i].kind == Kind::string) {
                alternatives.push_back(t[i].chars);
            } else if (t[i].kind == Kind::symbol) {
                const auto c = ucs_of_symbol(t[i].text);
                if (!c) return std::nullopt;
                alternatives.push_back({*c});
            } else {
                return std::nullopt;   // a sequence as the source: not a single character
            }
        }
        out_.translit.emplace(*from, std::move(alternatives));
        return std::nullopt;
    }

public:
    // Reads the files that transliteration blocks included, breadth first: entries already
    // known keep their place. A file is read once.
    std::optional<Diagnostic> read_includes() {
        std::set<std::string> seen;
        translit_only_ = true;
        for (size_t k = 0; k < includes_.size() && k < kMaxIncludes; ++k) {
            const std::string file = includes_[k];   // a copy: reading appends to the list
            if (!seen.insert(file).second) continue;
            if (auto error = read(file, "LC_CTYPE", 0)) return error;
        }
        return std::nullopt;
    }

private:
    std::string search_dir_;
    SourceLocale &out_;
    std::vector<std::string> includes_;
    std::set<std::string> collate_copies_;   // names copied into LC_COLLATE so far
    bool translit_only_ = false;
};

} // namespace

const std::vector<Value> *SourceLocale::values(const std::string &category,
                                                const std::string &key) const {
    auto c = categories.find(category);
    if (c == categories.end()) return nullptr;
    auto k = c->second.find(key);
    return k == c->second.end() ? nullptr : &k->second;
}

std::optional<Diagnostic> read_locale_source(const std::string &path, SourceLocale &out,
                                             const std::string &search_dir) {
    out = SourceLocale{};
    Reader reader(search_dir, out);
    if (auto error = reader.read(path, "", 0)) return error;
    return reader.read_includes();
}

uint32_t utf8_at(const std::string &s, size_t &i) {
    const auto b = static_cast<unsigned char>(s[i]);
    int extra = b >= 0xF0 ? 3 : b >= 0xE0 ? 2 : b >= 0xC0 ? 1 : 0;
    if (i + static_cast<size_t>(extra) >= s.size()) extra = 0;
    uint32_t cp = extra == 0 ? b : b & (0x3F >> extra);
    for (int k = 1; k <= extra; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += static_cast<size_t>(extra) + 1;
    return cp;
}

} // namespace nus::tools
