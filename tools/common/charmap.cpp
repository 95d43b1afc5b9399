// Reading POSIX charmaps.
#include "tools/common/charmap.h"
#include "tools/common/lines.h"

#include <zlib.h>

#include <cctype>
#include <sstream>

namespace nus::tools {

namespace {

constexpr uint32_t kMaxRange = 0x110000;

std::string trim(const std::string &s) {
    size_t a = 0, b = s.size();
    while (a < b && std::isspace(static_cast<unsigned char>(s[a]))) ++a;
    while (b > a && std::isspace(static_cast<unsigned char>(s[b - 1]))) --b;
    return s.substr(a, b - a);
}

// Reads "<name>" at position i; the name without brackets, or nothing.
std::optional<std::string> symbol_at(const std::string &s, size_t &i, char escape) {
    if (i >= s.size() || s[i] != '<') return std::nullopt;
    std::string name;
    for (size_t k = i + 1; k < s.size(); ++k) {
        if (s[k] == escape && k + 1 < s.size()) {
            name += s[++k];
            continue;
        }
        if (s[k] == '>') {
            i = k + 1;
            return name;
        }
        name += s[k];
    }
    return std::nullopt;
}

// Reads byte escapes (/xNN, /dNNN, /oNNN) at position i.
std::optional<std::string> bytes_at(const std::string &s, size_t &i, char escape) {
    std::string bytes;
    while (i + 1 < s.size() && s[i] == escape) {
        const char kind = s[i + 1];
        int base = kind == 'x' ? 16 : kind == 'd' ? 10 : kind == 'o' ? 8 : 0;
        if (base == 0) return std::nullopt;
        const int max_digits = base == 16 ? 2 : 3;
        size_t k = i + 2;
        int value = 0, digits = 0;
        while (k < s.size() && digits < max_digits) {
            const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(s[k])));
            int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : 99;
            if (d >= base) break;
            value = value * base + d;
            ++digits;
            ++k;
        }
        if (digits == 0 || value > 255) return std::nullopt;
        bytes += static_cast<char>(value);
        i = k;
    }
    if (bytes.empty() || bytes.size() > 4) return std::nullopt;
    return bytes;
}

// A symbol as a prefix and a number, for ranges.
struct Numbered {
    std::string prefix;
    uint32_t number;
    int digits;
    bool hex;
};

std::optional<Numbered> split_symbol(const std::string &symbol, bool hex) {
    size_t k = symbol.size();
    auto is_digit = [hex](char c) {
        return hex ? std::isxdigit(static_cast<unsigned char>(c)) != 0
                   : std::isdigit(static_cast<unsigned char>(c)) != 0;
    };
    while (k > 0 && is_digit(symbol[k - 1])) --k;
    // <U...> names are hexadecimal whatever the range mark; keep the U out of the digits.
    if (hex && k == 0 && !symbol.empty() && (symbol[0] == 'U' || symbol[0] == 'u')) k = 1;
    if (k == symbol.size() || symbol.size() - k > 8) return std::nullopt;
    Numbered n{symbol.substr(0, k), 0, static_cast<int>(symbol.size() - k), hex};
    n.number = static_cast<uint32_t>(std::stoul(symbol.substr(k), nullptr, hex ? 16 : 10));
    return n;
}

std::string numbered_symbol(const Numbered &n, uint32_t number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, n.hex ? "%0*X" : "%0*u", n.digits, number);
    return n.prefix + digits;
}

// Adds one to bytes taken as a big-endian number.
void increment(std::string &bytes) {
    for (size_t k = bytes.size(); k-- > 0;) {
        auto b = static_cast<unsigned char>(bytes[k]);
        bytes[k] = static_cast<char>(b + 1);
        if (b != 0xFF) break;
    }
}

} // namespace

std::string utf8_bytes(uint32_t cp) {
    std::string s;
    if (cp < 0x80) {
        s += static_cast<char>(cp);
    } else if (cp < 0x800) {
        s += static_cast<char>(0xC0 | (cp >> 6));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        s += static_cast<char>(0xE0 | (cp >> 12));
        s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        s += static_cast<char>(0xF0 | (cp >> 18));
        s += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        s += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return s;
}

std::optional<uint32_t> ucs_of_symbol(const std::string &symbol) {
    if (symbol.size() != 5 && symbol.size() != 9) return std::nullopt;
    if (symbol[0] != 'U') return std::nullopt;
    uint32_t value = 0;
    for (size_t k = 1; k < symbol.size(); ++k) {
        const char c = symbol[k];
        if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
        value = value * 16 + static_cast<uint32_t>(std::isdigit(static_cast<unsigned char>(c))
                                                       ? c - '0'
                                                       : std::tolower(c) - 'a' + 10);
    }
    return value;
}

bool read_text_file(const std::string &path, std::string &out) {
    gzFile f = gzopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    out.clear();
    char buffer[65536];
    int n;
    while ((n = gzread(f, buffer, sizeof buffer)) > 0) out.append(buffer, static_cast<size_t>(n));
    const bool ok = n == 0;
    gzclose(f);
    return ok;
}

const CharmapEntry *Charmap::find(const std::string &symbol) const {
    auto it = by_symbol_.find(symbol);
    return it == by_symbol_.end() ? nullptr : &entries[it->second];
}

const CharmapEntry *Charmap::find_ucs(uint32_t ucs) const {
    auto it = by_ucs_.find(ucs);
    return it == by_ucs_.end() ? nullptr : &entries[it->second];
}

int Charmap::width(uint32_t ucs) const {
    auto it = widths_.upper_bound(ucs);
    if (it == widths_.begin()) return default_width_;
    --it;
    return ucs <= it->second.first ? it->second.second : default_width_;
}

void Charmap::each_missing_scalar(const std::function<void(uint32_t)> &visit) const {
    if (code_set_name != "UTF-8") return;
    auto listed = by_ucs_.begin();
    for (uint32_t cp = 0; cp < 0x110000; ++cp) {
        if (cp == 0xD800) cp = 0xE000;   // surrogates are no characters
        while (listed != by_ucs_.end() && listed->first < cp) ++listed;
        if (listed == by_ucs_.end() || listed->first != cp) visit(cp);
    }
}

void Charmap::index() {
    by_symbol_.clear();
    by_ucs_.clear();
    for (size_t i = 0; i < entries.size(); ++i) {
        by_symbol_.emplace(entries[i].symbol, i);
        if (entries[i].ucs) by_ucs_.emplace(*entries[i].ucs, i);
    }
}

std::optional<Diagnostic> read_charmap(const std::string &path, Charmap &out) {
    std::string text;
    if (!read_text_file(path, text)) return Diagnostic{path, 0, "cannot read the charmap"};
    char comment = '#';
    char escape = '\\';
    const std::vector<LogicalLine> lines = logical_lines(text, comment, escape);
    enum class Where { header, charmap, width, other } where = Where::header;
    out = Charmap{};
    auto fail = [&](size_t k, const std::string &message) {
        return Diagnostic{path, lines[k].number, message};
    };
    for (size_t k = 0; k < lines.size(); ++k) {
        const std::string line = trim(lines[k].text);
        if (line.empty() || line[0] == comment) continue;
        if (line == "CHARMAP") {
            where = Where::charmap;
            continue;
        }
        if (line == "END CHARMAP" || line == "END WIDTH") {
            where = Where::other;
            continue;
        }
        if (line == "WIDTH") {
            where = Where::width;
            continue;
        }
        if (line.rfind("WIDTH_DEFAULT", 0) == 0) {
            out.default_width_ = std::atoi(line.c_str() + 13);
            continue;
        }
        if (where == Where::header) {
            std::istringstream words(line);
            std::string key, value;
            words >> key >> value;
            if (key == "<code_set_name>") out.code_set_name = value;
            else if (key == "<mb_cur_min>" || key == "<mb_cur_max>") {
                // A length in bytes (UTF-8's charmap still says 6).
                const int n = value.size() == 1 ? value[0] - '0' : -1;
                if (n < 1 || n > 6) return fail(k, key + " must be a number from 1 to 6");
                (key == "<mb_cur_min>" ? out.mb_cur_min : out.mb_cur_max) = n;
            }
            continue;
        }
        if (where == Where::other) continue;
        size_t i = 0;
        const auto first = symbol_at(line, i, escape);
        if (!first) return fail(k, "expected a symbolic name in angle brackets");
        std::optional<std::string> last;
        bool hex = true;
        if (line.compare(i, 3, "...") == 0 || line.compare(i, 2, "..") == 0) {
            const bool three = line.compare(i, 3, "...") == 0;
            i += three ? 3 : 2;
            hex = !three || ucs_of_symbol(*first).has_value();
            last = symbol_at(line, i, escape);
            if (!last) return fail(k, "a range needs a second symbolic name");
        }
        while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
        if (where == Where::width) {
            const int w = std::atoi(line.c_str() + i);
            const auto a = ucs_of_symbol(*first);
            const auto b = last ? ucs_of_symbol(*last) : a;
            if (a && b && *a <= *b) out.widths_[*a] = {*b, w};
            continue;
        }
        auto bytes = bytes_at(line, i, escape);
        if (!bytes) return fail(k, "bad byte sequence for <" + *first + ">");
        if (!last) {
            out.entries.push_back({*first, *bytes, ucs_of_symbol(*first)});
            continue;
        }
        const auto from = split_symbol(*first, hex);
        const auto to = split_symbol(*last, hex);
        if (!from || !to || from->prefix != to->prefix || to->number < from->number ||
            to->number - from->number >= kMaxRange)
            return fail(k, "bad range <" + *first + "> to <" + *last + ">");
        // A range of code points written in UTF-8 steps through the encoding, not through
        // the bytes as a number: <U0002B820>..<U0002B85F> /xf0/xab/xa0/xa0 crosses from
        // trail byte bf to the next lead's 80.
        const auto first_ucs = ucs_of_symbol(*first);
        const bool utf8 = first_ucs && *bytes == utf8_bytes(*first_ucs);
        for (uint32_t n = from->number;; ++n) {
            const std::string symbol = numbered_symbol(*from, n);
            const auto ucs = ucs_of_symbol(symbol);
            if (utf8 && ucs) *bytes = utf8_bytes(*ucs);
            out.entries.push_back({symbol, *bytes, ucs});
            if (n == to->number) break;
            increment(*bytes);
        }
    }
    if (out.entries.empty()) return Diagnostic{path, 0, "no CHARMAP section"};
    if (out.mb_cur_min > out.mb_cur_max)
        return Diagnostic{path, 0, "<mb_cur_min> is greater than <mb_cur_max>"};
    out.index();
    return std::nullopt;
}

std::optional<Diagnostic> name_from_list(const std::string &list_file, const std::string &key,
                                         std::string &name) {
    name.clear();
    std::string text;
    if (!read_text_file(list_file, text)) return Diagnostic{list_file, 0, "cannot read the list of names"};
    auto lower = [](std::string s) {
        for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return s;
    };
    const std::string wanted = lower(key);
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        std::istringstream words(line);
        std::string first, second, extra;
        if (!(words >> first) || first[0] == '#') continue;
        if (!(words >> second) || (words >> extra))
            return Diagnostic{list_file, number, "expected two names"};
        if (lower(first) == wanted) {
            name = second;
            return std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<Diagnostic> registry_name_of_charmap(const std::string &names_file,
                                                  const std::string &charmap_name,
                                                  std::string &name) {
    return name_from_list(names_file, charmap_name, name);
}

} // namespace nus::tools
