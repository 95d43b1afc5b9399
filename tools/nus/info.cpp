// nus info: what a loaded locale holds, as a caller of the library can ask it: the code set
// and its character lengths, class and case counts, the collation method and its levels,
// the numeric and monetary conventions, the messages' answers, the calendar. Printed as a
// readable outline or, with --json, as one JSON object.
#include "tools/nus/query_common.h"

#include <climits>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kHelp =
    "Usage: nus info -l LOCALE [--json] [CATEGORY...]\n"
    "Describe a loaded locale: everything the library answers about it.\n"
    "\n"
    "Categories (all of them when none is named):\n"
    "  ctype     code set, shortest and longest character in bytes, the number of\n"
    "            characters in each class, the characters with case mappings\n"
    "  collate   collation method (as_specified: table-driven, multi-level;\n"
    "            thai_smo: Thai rules; none: code order; companion: the companion\n"
    "            library's collator), levels and their directions\n"
    "  numeric   decimal point, thousands separator, grouping, signs\n"
    "  monetary  currency symbols, separators, grouping, signs, fraction digits and\n"
    "            the placement values (n/a where the locale gives none)\n"
    "  messages  the expressions and words for yes and no\n"
    "  time      the calendar of the locale's dates, its formats (%c %x %X %r, the\n"
    "            date(1) and era formats), day and month names (and the second month\n"
    "            list where the locale has one), eras, alternative digits and week\n"
    "\n"
    "What is counted: in a single-byte code set, the 256 byte values; in a multibyte\n"
    "one, every character the code set's decoding table admits (all byte sequences of\n"
    "up to 4 bytes that the library decodes as one character). A character is counted\n"
    "in every class it belongs to; alnum is alpha or digit. Case mappings: the pairs\n"
    "of an upper-case and a lower-case form (a letter and its partner share one), and\n"
    "the characters whose upper-case (lower-case) form differs from themselves.\n"
    "The examples format -1234567.891 with \"%'.3f\" (numeric), \"%n\" and \"%i\"\n"
    "(monetary).\n"
    "Companion (shown only when NU_USENUU is set and the companion Unicode library\n"
    "serves the locale): the companion's locale that serves the characters (ctype) and\n"
    "the collation (collate); \"tables\" where the locale's own tables serve.\n"
    "\n"
    "Options:\n"
    "  -l, --locale LOCALE  the locale, by name (de_de.8859-1) or file name,\n"
    "                       or a list naming the file of each of the six categories:\n"
    "                       \"NU_CTYPE = de_de/0333.lco ; NU_COLLATE = ... ; \" (the\n"
    "                       keywords NU_CTYPE, NU_COLLATE, NU_NUMERIC, NU_MONETARY,\n"
    "                       NU_TIME, NU_MESSAGES; \"files\" shows the names)\n"
    "      --json           one JSON object instead of the outline; texts in UTF-8\n"
    "  -h, --help           this help\n"
    "\n"
    "In the outline, texts are shown in UTF-8 between quotes, followed by their bytes in\n"
    "the locale's code set when they are not plain ASCII.\n"
    "Exit status: 0 success, 1 the locale does not load, 2 usage error.\n";

constexpr double kExample = -1234567.891;

// A tree of values, printed as an outline or as JSON.
struct Node {
    enum Kind { kNull, kBool, kNumber, kText, kList, kObject };
    Kind kind = kNull;
    bool flag = false;
    long long number = 0;
    std::string text;  // UTF-8
    std::string bytes; // the locale's own bytes of a locale text
    bool from_locale = false;
    std::vector<Node> items;
    std::vector<std::pair<std::string, Node>> members;

    static Node null() { return Node{}; }
    static Node boolean(bool value) {
        Node n;
        n.kind = kBool;
        n.flag = value;
        return n;
    }
    static Node integer(long long value) {
        Node n;
        n.kind = kNumber;
        n.number = value;
        return n;
    }
    static Node plain(std::string value) {
        Node n;
        n.kind = kText;
        n.text = std::move(value);
        return n;
    }
    static Node object() {
        Node n;
        n.kind = kObject;
        return n;
    }
    static Node list() {
        Node n;
        n.kind = kList;
        return n;
    }
    Node &add(const char *name, Node value) {
        members.emplace_back(name, std::move(value));
        return members.back().second;
    }
};

// Everything the outline and the JSON need to know about the locale's texts.
struct Context {
    nu_locale_t handle;
    const Utf8View &utf8;

    Node text(const char *bytes) const {
        if (bytes == nullptr) return Node::null();
        Node n;
        n.kind = Node::kText;
        n.bytes = bytes;
        n.text = utf8(n.bytes);
        n.from_locale = true;
        return n;
    }
};

// ---- ctype ---------------------------------------------------------------------------------

struct ClassName {
    const char *name;
    int mask;
};

constexpr ClassName kClasses[] = {
    {"upper", NU_CLASS_UPPER}, {"lower", NU_CLASS_LOWER}, {"alpha", NU_CLASS_ALPHA},
    {"digit", NU_CLASS_DIGIT}, {"alnum", NU_CLASS_ALNUM}, {"xdigit", NU_CLASS_XDIGIT},
    {"space", NU_CLASS_SPACE}, {"blank", NU_CLASS_BLANK}, {"punct", NU_CLASS_PUNCT},
    {"graph", NU_CLASS_GRAPH}, {"print", NU_CLASS_PRINT}, {"cntrl", NU_CLASS_CNTRL},
};

// Classes a locale may define beside the standard ones: the locale compiler's full_width
// and those the system's locale sources define. No interface lists a locale's own class
// names, so these are asked for by name.
constexpr const char *kOwnClassNames[] = {"full_width", "combining", "combining_level3", "hanzi"};

// Calls `each` with every character of the code set, as its wide value (the big-endian
// concatenation of its bytes). Single-byte code sets: the 256 byte values (valid or not);
// multibyte ones: the byte sequences the decoder accepts as one character.
void for_each_character(nu_locale_t h, bool single_byte,
                        const std::function<void(nu_wchar, bool valid)> &each) {
    unsigned char bytes[5] = {};
    if (single_byte) {
        for (int b = 0; b < 256; ++b) {
            bytes[0] = static_cast<unsigned char>(b);
            each(static_cast<nu_wchar>(b), _tsn_nu_full_mblen(h, bytes, 1) == 1);
        }
        return;
    }
    std::function<void(int, nu_wchar)> walk = [&](int depth, nu_wchar prefix) {
        for (int b = 0; b < 256; ++b) {
            bytes[depth] = static_cast<unsigned char>(b);
            *_nu_ext_errno(h) = 0;
            const int length = _tsn_nu_full_mblen(h, bytes, depth + 1);
            const nu_wchar wc = (prefix << 8) | static_cast<nu_wchar>(b);
            if (length == depth + 1)
                each(wc, true);
            else if (length < 0 && *_nu_ext_errno(h) == NU_EINVAL && depth + 1 < 4)
                walk(depth + 1, wc);
        }
    };
    walk(0, 0);
    *_nu_ext_errno(h) = 0;
}

Node ctype_section(const Context &c, const char *codeset) {
    nu_locale_t h = c.handle;
    Node section = Node::object();
    const int shortest = nu_mb_loc_min(h);
    const int longest = nu_mb_loc_max(h);
    const bool single_byte = longest == 1;
    section.add("code_set", Node::plain(codeset != nullptr ? codeset : "unknown"));
    section.add("min_length", Node::integer(shortest));
    section.add("max_length", Node::integer(longest));
    section.add("single_byte", Node::boolean(single_byte));
    section.add("counted_over",
                Node::plain(single_byte ? "the 256 byte values"
                                        : "the characters the decoding table admits"));

    long long characters = 0;
    long long class_counts[std::size(kClasses)] = {};
    int own_masks[std::size(kOwnClassNames)] = {};
    long long own_counts[std::size(kOwnClassNames)] = {};
    for (size_t i = 0; i < std::size(kOwnClassNames); ++i) {
        const int mask = nu_ctype(h, kOwnClassNames[i]);
        own_masks[i] = mask >= 2048 ? mask : 0;
    }
    long long to_upper = 0, to_lower = 0;
    // A letter and its partner share one pair (upper form, lower form), as the locale keeps
    // them; a character without a mapping stands for itself in its pair.
    std::set<std::pair<nu_wchar, nu_wchar>> pairs;
    for_each_character(h, single_byte, [&](nu_wchar wc, bool valid) {
        if (valid) ++characters;
        for (size_t i = 0; i < std::size(kClasses); ++i)
            if (_nu_im_iswctype(h, wc, kClasses[i].mask) != 0) ++class_counts[i];
        for (size_t i = 0; i < std::size(kOwnClassNames); ++i)
            if (own_masks[i] != 0 && _nu_im_iswctype(h, wc, own_masks[i]) != 0) ++own_counts[i];
        const nu_wchar up = _nu_im_towupper(h, wc), low = _nu_im_towlower(h, wc);
        if (up != wc) ++to_upper;
        if (low != wc) ++to_lower;
        if (up != wc || low != wc) pairs.emplace(up, low);
    });
    section.add("characters", Node::integer(characters));
    Node &classes = section.add("classes", Node::object());
    for (size_t i = 0; i < std::size(kClasses); ++i)
        classes.add(kClasses[i].name, Node::integer(class_counts[i]));
    Node &own = section.add("locale_classes", Node::object());
    for (size_t i = 0; i < std::size(kOwnClassNames); ++i)
        if (own_masks[i] != 0) own.add(kOwnClassNames[i], Node::integer(own_counts[i]));
    Node &cases = section.add("case_mappings", Node::object());
    cases.add("pairs", Node::integer(static_cast<long long>(pairs.size())));
    cases.add("to_upper", Node::integer(to_upper));
    cases.add("to_lower", Node::integer(to_lower));
    cases.add("output_bytes_per_byte", Node::integer(nu_case_conv_outbuflen(h, 1)));
    return section;
}

// ---- collate -------------------------------------------------------------------------------

Node collate_section(const Context &c) {
    nu_locale_t h = c.handle;
    Node section = Node::object();
    // Collated by the companion library: its collator's levels are its own.
    if (nu_nuu_locale(h, NU_COLLATE) != nullptr) {
        section.add("method", Node::plain("companion"));
        section.add("levels", Node::null());
        section.add("directions", Node::null());
        return section;
    }
    if (nu_IsSpecialLocale(h) == 1) {
        section.add("method", Node::plain("thai_smo"));
        section.add("levels", Node::null());
        section.add("directions", Node::null());
        return section;
    }
    Node directions = Node::list();
    for (int level = 1; level <= 8; ++level) {
        *_nu_ext_errno(h) = 0;
        const int direction = nu_getpassdirection(h, level);
        if (direction == 1)
            directions.items.push_back(Node::plain("forward"));
        else if (direction == 2)
            directions.items.push_back(Node::plain("backward"));
        else if (*_nu_ext_errno(h) == NU_ECODESET)
            directions.items.push_back(Node::plain("undefined"));
        else
            break;
    }
    *_nu_ext_errno(h) = 0;
    const long long levels = static_cast<long long>(directions.items.size());
    section.add("method", Node::plain(levels > 0 ? "as_specified" : "none"));
    section.add("levels", Node::integer(levels));
    section.add("directions", std::move(directions));
    return section;
}

// ---- numeric and monetary ------------------------------------------------------------------

Node grouping(const char *sizes) {
    if (sizes == nullptr) return Node::null();
    Node list = Node::list();
    for (const char *g = sizes; *g != '\0'; ++g) list.items.push_back(Node::integer(*g));
    return list;
}

Node small_value(char value) { return value == CHAR_MAX ? Node::null() : Node::integer(value); }

// The example formatted with one of the library's formatters, or null when it fails.
Node example(const Context &c, bool money, const char *format) {
    char out[256];
    const int n = money ? nu_mbsfmon(c.handle, out, sizeof out, format, kExample)
                        : nu_mbsfnum(c.handle, out, sizeof out, format, kExample);
    *_nu_ext_errno(c.handle) = 0;
    return n < 0 ? Node::null() : c.text(out);
}

Node numeric_section(const Context &c, const nu_lconv *conv) {
    Node section = Node::object();
    section.add("decimal_point", c.text(conv->decimal_point));
    section.add("thousands_sep", c.text(conv->thousands_sep));
    section.add("grouping", grouping(conv->grouping));
    section.add("positive_sign", c.text(conv->positive_sign));
    section.add("negative_sign", c.text(conv->negative_sign));
    section.add("example", example(c, false, "%'.3f"));
    return section;
}

Node monetary_section(const Context &c, const nu_lconv *conv) {
    Node section = Node::object();
    section.add("int_curr_symbol", c.text(conv->int_curr_symbol));
    section.add("currency_symbol", c.text(conv->currency_symbol));
    section.add("mon_decimal_point", c.text(conv->mon_decimal_point));
    section.add("mon_thousands_sep", c.text(conv->mon_thousands_sep));
    section.add("mon_grouping", grouping(conv->mon_grouping));
    section.add("positive_sign", c.text(conv->mon_positive_sign));
    section.add("negative_sign", c.text(conv->mon_negative_sign));
    section.add("int_frac_digits", small_value(conv->int_frac_digits));
    section.add("frac_digits", small_value(conv->frac_digits));
    section.add("p_cs_precedes", small_value(conv->p_cs_precedes));
    section.add("p_sep_by_space", small_value(conv->p_sep_by_space));
    section.add("n_cs_precedes", small_value(conv->n_cs_precedes));
    section.add("n_sep_by_space", small_value(conv->n_sep_by_space));
    section.add("p_sign_posn", small_value(conv->p_sign_posn));
    section.add("n_sign_posn", small_value(conv->n_sign_posn));
    section.add("example_national", example(c, true, "%n"));
    section.add("example_international", example(c, true, "%i"));
    return section;
}

// ---- messages and time ---------------------------------------------------------------------

// Items of nu_nl_langinfo.
constexpr int kItemYesWord = 57;
constexpr int kItemNoWord = 58;
constexpr int kItemCodeSet = 60;
constexpr int kItemYesExpr = 71;
constexpr int kItemNoExpr = 72;
constexpr int kItemCalendar = 73;

Node messages_section(const Context &c) {
    Node section = Node::object();
    section.add("yesexpr", c.text(nu_nl_langinfo(c.handle, kItemYesExpr)));
    section.add("noexpr", c.text(nu_nl_langinfo(c.handle, kItemNoExpr)));
    section.add("yesstr", c.text(nu_nl_langinfo(c.handle, kItemYesWord)));
    section.add("nostr", c.text(nu_nl_langinfo(c.handle, kItemNoWord)));
    return section;
}

// The texts of items first .. first + count - 1.
Node item_list(const Context &c, int first, int count) {
    Node list = Node::list();
    for (int i = 0; i < count; ++i) list.items.push_back(c.text(nu_nl_langinfo(c.handle, first + i)));
    return list;
}

// A list of nu_time_name until its end.
Node name_list(const Context &c, int which) {
    Node list = Node::list();
    for (int i = 0;; ++i) {
        const char *name = nu_time_name(c.handle, which, i);
        if (name == nullptr) break;
        list.items.push_back(c.text(name));
    }
    return list;
}

std::string era_date(int32_t year, int32_t month, int32_t day) {
    if (year == INT32_MIN) return "open (the past)";
    if (year == INT32_MAX) return "open (the future)";
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", static_cast<int>(year),
                  static_cast<int>(month), static_cast<int>(day));
    return text;
}

Node time_section(const Context &c) {
    Node section = Node::object();
    const char *calendar = nu_nl_langinfo(c.handle, kItemCalendar);
    if (calendar == nullptr) {
        section.add("calendar", Node::null());
    } else {
        std::string name(calendar);
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
        section.add("calendar", Node::plain(name));
    }
    section.add("date_time_format", c.text(nu_nl_langinfo(c.handle, 0)));
    static constexpr const char *kFormats[] = {
        "date_format",          "time_format",     "time_format_ampm", "am",
        "pm",                   "date_cmd_format", "era_date_time_format",
        "era_date_format",      "era_time_format", "era_year"};
    for (int i = 0; i < 10; ++i) section.add(kFormats[i], c.text(nu_nl_langinfo(c.handle, 61 + i)));
    section.add("days", item_list(c, 8, 7));
    section.add("abbreviated_days", item_list(c, 1, 7));
    section.add("months", name_list(c, 0));
    section.add("abbreviated_months", name_list(c, 1));
    section.add("second_months", name_list(c, 2));
    section.add("second_abbreviated_months", name_list(c, 3));
    section.add("alternative_digits", name_list(c, 4));
    Node eras = Node::object();
    nu_era_segment e{};
    const int count = nu_time_era(c.handle, 0, &e);
    for (int i = 0; i < count && nu_time_era(c.handle, i, &e) >= 0; ++i) {
        Node era = Node::object();
        era.add("name", c.text(e.name));
        era.add("format", c.text(e.format));
        era.add("start", Node::plain(era_date(e.start_year, e.start_month, e.start_day)));
        era.add("end", Node::plain(era_date(e.end_year, e.end_month, e.end_day)));
        era.add("offset", Node::integer(e.offset));
        era.add("direction", Node::integer(e.direction));
        eras.members.emplace_back(std::to_string(i + 1), std::move(era));
    }
    section.add("eras", std::move(eras));
    int32_t week[5] = {};
    Node w = Node::object();
    if (nu_time_week(c.handle, week) == 0) {
        w.add("days", Node::integer(week[0]));
        w.add("first_day", Node::integer(week[1]));
        w.add("first_week_days", Node::integer(week[2]));
        w.add("first_weekday", Node::integer(week[3]));
        w.add("first_workday", Node::integer(week[4]));
    }
    section.add("week", std::move(w));
    *_nu_ext_errno(c.handle) = 0;
    return section;
}

// "NU_CTYPE = de_de/0333.lco ; NU_COLLATE = ... ; " as {ctype: ..., collate: ...}.
Node files(const char *query) {
    Node object = Node::object();
    if (query == nullptr) return object;
    static constexpr std::pair<const char *, const char *> kKeys[] = {
        {"NU_CTYPE", "ctype"},       {"NU_COLLATE", "collate"}, {"NU_NUMERIC", "numeric"},
        {"NU_MONETARY", "monetary"}, {"NU_TIME", "time"},       {"NU_MESSAGES", "messages"},
    };
    std::string_view rest(query);
    while (!rest.empty()) {
        const size_t end = rest.find(" ; ");
        const std::string_view item = rest.substr(0, end);
        const size_t equals = item.find(" = ");
        if (equals != std::string_view::npos) {
            const std::string_view key = item.substr(0, equals);
            for (const auto &[keyword, name] : kKeys)
                if (key == keyword)
                    object.add(name, Node::plain(std::string(item.substr(equals + 3))));
        }
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 3);
    }
    return object;
}

// ---- printing ------------------------------------------------------------------------------

std::string label(const std::string &key) {
    std::string out = key;
    for (char &ch : out)
        if (ch == '_') ch = ' ';
    return out;
}

std::string outline_value(const Node &n) {
    switch (n.kind) {
    case Node::kNull: return "n/a";
    case Node::kBool: return n.flag ? "yes" : "no";
    case Node::kNumber: return std::to_string(n.number);
    case Node::kText:
        if (!n.from_locale) return n.text;
        if (plain_ascii(n.bytes)) return quoted(n.text);
        return quoted(n.text) + " (bytes " + hex_bytes(n.bytes) + ")";
    case Node::kList: {
        if (n.items.empty()) return "none";
        std::string out;
        for (const Node &item : n.items) out += (out.empty() ? "" : " ") + outline_value(item);
        return out;
    }
    case Node::kObject: break;
    }
    return {};
}

void outline(const Node &object, int indent, std::string &out) {
    size_t width = 0;
    for (const auto &[key, value] : object.members)
        if (value.kind != Node::kObject) width = std::max(width, key.size());
    for (const auto &[key, value] : object.members) {
        out.append(static_cast<size_t>(indent), ' ');
        out += label(key) + ":";
        if (value.kind == Node::kObject) {
            out += value.members.empty() ? " none\n" : "\n";
            outline(value, indent + 2, out);
            continue;
        }
        out.append(width - key.size() + 1, ' ');
        out += outline_value(value) + "\n";
    }
}

void json(const Node &n, int indent, std::string &out) {
    switch (n.kind) {
    case Node::kNull: out += "null"; return;
    case Node::kBool: out += n.flag ? "true" : "false"; return;
    case Node::kNumber: out += std::to_string(n.number); return;
    case Node::kText: out += json_string(n.text); return;
    case Node::kList:
        out += "[";
        for (size_t i = 0; i < n.items.size(); ++i) {
            if (i > 0) out += ", ";
            json(n.items[i], indent, out);
        }
        out += "]";
        return;
    case Node::kObject:
        if (n.members.empty()) {
            out += "{}";
            return;
        }
        out += "{\n";
        for (size_t i = 0; i < n.members.size(); ++i) {
            out.append(static_cast<size_t>(indent + 2), ' ');
            out += json_string(n.members[i].first) + ": ";
            json(n.members[i].second, indent + 2, out);
            out += i + 1 < n.members.size() ? ",\n" : "\n";
        }
        out.append(static_cast<size_t>(indent), ' ');
        out += "}";
        return;
    }
}

constexpr const char *kCategoryNames[] = {"ctype",    "collate",  "numeric",
                                          "monetary", "messages", "time"};

} // namespace

int run_info(int argc, char **argv) {
    if (wants_help(argc, argv, kHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv, {{"locale", 'l', true}, {"json", 0, false}})) return kUsage;
    std::vector<std::string> wanted;
    for (const char *operand : args.operands()) {
        const std::string name = lower_ascii(operand);
        bool known = false;
        for (const char *c : kCategoryNames) known = known || name == c;
        if (!known)
            return usage_error("unknown category '%s' (ctype, collate, numeric, monetary, "
                               "messages, time)",
                               operand);
        bool seen = false;
        for (const std::string &w : wanted) seen = seen || w == name;
        if (!seen) wanted.push_back(name);
    }
    if (wanted.empty()) wanted.assign(std::begin(kCategoryNames), std::end(kCategoryNames));

    Locale locale;
    if (const int status = load_locale_option(args, locale); status != kOk) return status;
    nu_locale_t h = locale.get();
    const char *codeset = nu_nl_langinfo(h, kItemCodeSet);
    const Utf8View utf8(codeset);
    const Context context{h, utf8};

    Node root = Node::object();
    root.add("locale", Node::plain(args.value("locale")));
    root.add("code_set", Node::plain(codeset != nullptr ? codeset : "unknown"));
    char *query = nu_setlocale_4(h, NU_ALL, nullptr);
    root.add("files", files(query));
    nu_destroystring(query);
    // Shown when the companion library serves the locale.
    if (nu_nuu_locale(h, NU_CTYPE) != nullptr || nu_nuu_locale(h, NU_COLLATE) != nullptr) {
        Node companion = Node::object();
        for (const auto &[category, name] :
             {std::pair{NU_CTYPE, "ctype"}, {NU_COLLATE, "collate"}}) {
            const char *served = nu_nuu_locale(h, category);
            companion.add(name, Node::plain(served != nullptr ? served : "tables"));
        }
        root.add("companion", companion);
    }

    const nu_lconv *conv = nu_localeconv(h);
    for (const std::string &name : wanted) {
        if (name == "ctype")
            root.add("ctype", ctype_section(context, codeset));
        else if (name == "collate")
            root.add("collate", collate_section(context));
        else if (name == "numeric")
            root.add("numeric", numeric_section(context, conv));
        else if (name == "monetary")
            root.add("monetary", monetary_section(context, conv));
        else if (name == "messages")
            root.add("messages", messages_section(context));
        else
            root.add("time", time_section(context));
    }

    std::string out;
    if (args.has("json")) {
        json(root, 0, out);
        out += "\n";
    } else {
        outline(root, 0, out);
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    if (!utf8.available())
        warn("no conversion from %s to UTF-8: non-ASCII text shown as U+FFFD",
             codeset != nullptr ? codeset : "the locale's code set");
    return kOk;
}

} // namespace nus_cli
