// The query subcommands' shared pieces: argument parsing, text shown to people, doubles.
#include "tools/nus/query_common.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace nus_cli {

namespace {

// Options are "-x..." with an ASCII letter and "--..."; "-", "-42", "-.5", "-inf", "-1e3"
// and "-$5" are operands (negative numbers and amounts).
bool looks_like_option(const char *arg) {
    if (arg[0] != '-' || !(std::isalpha(static_cast<unsigned char>(arg[1])) || arg[1] == '-'))
        return false;
    char *end = nullptr;
    std::strtod(arg, &end);
    return *end != '\0';
}

const OptionSpec *find_long(std::initializer_list<OptionSpec> specs, std::string_view name) {
    for (const OptionSpec &s : specs)
        if (name == s.name) return &s;
    return nullptr;
}

const OptionSpec *find_short(std::initializer_list<OptionSpec> specs, char letter) {
    for (const OptionSpec &s : specs)
        if (s.letter != 0 && s.letter == letter) return &s;
    return nullptr;
}

} // namespace

bool Arguments::parse(int argc, char **argv, std::initializer_list<OptionSpec> specs) {
    given_.clear();
    operands_.clear();
    bool options_ended = false;
    for (int i = 1; i < argc; ++i) {
        const char *arg = argv[i];
        if (options_ended || !looks_like_option(arg)) {
            operands_.push_back(arg);
            continue;
        }
        if (std::strcmp(arg, "--") == 0) {
            options_ended = true;
            continue;
        }
        if (arg[1] == '-') {
            std::string_view body(arg + 2);
            const size_t equals = body.find('=');
            const std::string_view name = body.substr(0, equals);
            const OptionSpec *spec = find_long(specs, name);
            if (spec == nullptr) {
                usage_error("unknown option '--%.*s'", static_cast<int>(name.size()), name.data());
                return false;
            }
            if (!spec->takes_value) {
                if (equals != std::string_view::npos) {
                    usage_error("option '--%s' takes no value", spec->name);
                    return false;
                }
                given_.emplace_back(spec->name, nullptr);
            } else if (equals != std::string_view::npos) {
                given_.emplace_back(spec->name, arg + 2 + equals + 1);
            } else if (i + 1 < argc) {
                given_.emplace_back(spec->name, argv[++i]);
            } else {
                usage_error("option '--%s' needs a value", spec->name);
                return false;
            }
            continue;
        }
        // One or more short options: "-g", "-lde_de.8859-1", "-l de_de.8859-1", "-gl x".
        for (const char *p = arg + 1; *p != '\0'; ++p) {
            const OptionSpec *spec = find_short(specs, *p);
            if (spec == nullptr) {
                usage_error("unknown option '-%c' (put '--' before operands that begin with '-')",
                            *p);
                return false;
            }
            if (!spec->takes_value) {
                given_.emplace_back(spec->name, nullptr);
                continue;
            }
            if (p[1] != '\0') {
                given_.emplace_back(spec->name, p + 1);
            } else if (i + 1 < argc) {
                given_.emplace_back(spec->name, argv[++i]);
            } else {
                usage_error("option '-%c' needs a value", *p);
                return false;
            }
            break;
        }
    }
    return true;
}

bool Arguments::has(std::string_view name) const {
    for (const auto &g : given_)
        if (g.first == name) return true;
    return false;
}

const char *Arguments::value(std::string_view name) const {
    const char *found = nullptr;
    for (const auto &g : given_)
        if (g.first == name) found = g.second;
    return found;
}

int load_locale_option(const Arguments &args, Locale &locale) {
    const char *spec = args.value("locale");
    if (spec == nullptr) return usage_error("no locale given (-l LOCALE, e.g. -l de_de.8859-1)");
    if (*spec == '\0') return usage_error("empty locale name");
    return locale.load(spec) ? kOk : kDataError;
}

Utf8View::Utf8View(const char *codeset) {
    if (codeset == nullptr) return;
    const std::string name = lower_ascii(codeset);
    if (name == "utf8" || name == "utf-8") {
        identity_ = true;
        return;
    }
    nu_cv_t cv = nullptr;
    const int opened = nu_cv_load(&cv, "utf8", codeset, nullptr, nullptr);
    if (opened == 1)
        cv_ = cv;
    else if (opened == 0)
        identity_ = true;
    else
        nu_cv_unload(cv); // frees a descriptor whose reading failed; leaves the fixed ones
}

Utf8View::~Utf8View() {
    if (cv_ != nullptr) nu_cv_unload(cv_);
}

std::string Utf8View::operator()(std::string_view text) const {
    if (identity_) return std::string(text);
    std::string result;
    if (cv_ == nullptr) {
        for (char c : text)
            result += (static_cast<unsigned char>(c) < 0x80) ? std::string(1, c) : "\xEF\xBF\xBD";
        return result;
    }
    std::string in(text);
    size_t at = 0;
    while (at < in.size()) {
        unsigned char *ip = reinterpret_cast<unsigned char *>(in.data() + at);
        int inlen = static_cast<int>(in.size() - at);
        unsigned char buffer[512];
        unsigned char *op = buffer;
        int room = static_cast<int>(sizeof buffer);
        int irreversible = 0;
        const int status = nu_cv_mconv(cv_, nullptr, &ip, &inlen, &op, &room, &irreversible);
        result.append(reinterpret_cast<char *>(buffer), static_cast<size_t>(op - buffer));
        const size_t done = static_cast<size_t>(ip - reinterpret_cast<unsigned char *>(in.data()));
        if (status == 0 && done >= in.size()) break;
        if (status != 0 && *_nu_ext_errno(cv_) == NU_E2BIG && done > at) {
            at = done;
            continue;
        }
        // An invalid or cut-off character: show a replacement and go on after its first byte.
        result += "\xEF\xBF\xBD";
        at = (done > at ? done : at) + 1;
    }
    return result;
}

std::string hex_bytes(std::string_view bytes, const char *gap) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) out += gap;
        const unsigned char b = static_cast<unsigned char>(bytes[i]);
        out += kDigits[b >> 4];
        out += kDigits[b & 15];
    }
    return out;
}

bool plain_ascii(std::string_view bytes) {
    for (char c : bytes) {
        const unsigned char b = static_cast<unsigned char>(c);
        if (b < 0x20 || b >= 0x7f) return false;
    }
    return true;
}

namespace {

// bytes in double quotes, with quotes, backslashes, tabs and newlines escaped by a backslash
// and other control bytes as \u00NN (JSON) or \xNN.
std::string escaped(std::string_view bytes, bool json) {
    std::string out = "\"";
    for (char c : bytes) {
        const unsigned char b = static_cast<unsigned char>(c);
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\t': out += "\\t"; break;
        case '\n': out += "\\n"; break;
        default:
            if (b < 0x20 || b == 0x7f) {
                char escape[8];
                if (json) std::snprintf(escape, sizeof escape, "\\u%04x", b);
                else std::snprintf(escape, sizeof escape, "\\x%02x", b);
                out += escape;
            } else {
                out += c;
            }
        }
    }
    return out + "\"";
}

} // namespace

std::string quoted(std::string_view bytes) { return escaped(bytes, false); }

std::string json_string(std::string_view utf8) { return escaped(utf8, true); }

std::string shortest_double(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char text[512];
    // Plain decimals for the magnitudes people write that way, else the exponent form.
    const double magnitude = std::fabs(value);
    if (magnitude == 0 || (magnitude >= 1e-6 && magnitude < 1e17)) {
        for (int precision = 0; precision <= 24; ++precision) {
            std::snprintf(text, sizeof text, "%.*f", precision, value);
            if (std::strtod(text, nullptr) == value) return text;
        }
    }
    for (int precision = 1; precision <= 17; ++precision) {
        std::snprintf(text, sizeof text, "%.*g", precision, value);
        if (std::strtod(text, nullptr) == value) break;
    }
    return text;
}

std::string lower_ascii(std::string_view text) {
    std::string out(text);
    for (char &c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

} // namespace nus_cli
