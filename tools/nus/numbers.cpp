// nus fmt, nus money, nus parse: the library's number and money formatters and readers on
// the command line. Arguments and results are text in the locale's code set; the numbers
// given to fmt and money are written the C way ("-1234567.891").
#include "tools/nus/query_common.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kFmtHelp =
    "Usage: nus fmt -l LOCALE FORMAT NUMBER...\n"
    "Format each NUMBER with FORMAT under the locale's numeric conventions (decimal\n"
    "point, thousands separator, grouping, signs), one result per line.\n"
    "\n"
    "FORMAT holds exactly one conversion, with text around it copied (%% is a %):\n"
    "  %d %i %u %o %x %X %b %q  a 32-bit integer (b: base 2, q: base 4; a negative\n"
    "                           value in any base but u is written as a sign and\n"
    "                           its magnitude)\n"
    "  %e %E %f %g %G           a double; only %f groups thousands\n"
    "  %c %s                    the argument's first character, or the argument itself\n"
    "Flags: ' (group thousands), - (left-justify), +, space, # and 0; then a width in\n"
    "display columns and a precision (\"%'.2f\", \"%08d\", \"%-10s\"). \"l\" or \"h\" may\n"
    "stand before the conversion letter (\"%hd\": the low 16 bits).\n"
    "NUMBER is written the C way: 42, -1234567.891, 1e6, inf, nan.\n"
    "\n"
    "Options:\n"
    "  -l, --locale LOCALE  the locale, by name (de_de.8859-1) or file name\n"
    "  -h, --help           this help\n"
    "\n"
    "Example: nus fmt -l de_de.8859-1 \"%'.2f\" 1234567.891   prints 1.234.567,89\n"
    "Exit status: 0 success, 1 a NUMBER that is not a number or does not fit, or a\n"
    "locale that does not load (the other NUMBERs are still formatted), 2 usage error\n"
    "(also a FORMAT the library rejects).\n";

constexpr const char *kMoneyHelp =
    "Usage: nus money -l LOCALE FORMAT AMOUNT...\n"
    "Format each AMOUNT with FORMAT under the locale's monetary conventions (currency\n"
    "symbols, separators, grouping, signs, fraction digits and their placement), one\n"
    "result per line.\n"
    "\n"
    "FORMAT holds exactly one conversion, with text around it copied (%% is a %):\n"
    "  %n  with the national currency symbol and fraction digits\n"
    "  %i  with the international ones\n"
    "Flags: =F (fill character F), ^ (no grouping), + (signs as the locale places\n"
    "them), ( (negative amounts in parentheses), ! (no currency symbol), - (left-\n"
    "justify); then a field width, #N (N digits before the decimal point, filled on\n"
    "the left) and .N (N fraction digits): \"%n\", \"%(#8.2n\", \"%=*^-20i\".\n"
    "AMOUNT is written the C way: 1234567.891, -5, 0.5.\n"
    "\n"
    "Options:\n"
    "  -l, --locale LOCALE  the locale, by name (de_de.8859-1) or file name\n"
    "  -h, --help           this help\n"
    "\n"
    "Example: nus money -l en_us.8859-1 %n -1234.567   prints -$1,234.57\n"
    "Exit status: 0 success, 1 an AMOUNT that is not a number or a locale that does\n"
    "not load, 2 usage error (also a FORMAT the library rejects).\n";

constexpr const char *kParseHelp =
    "Usage: nus parse -l LOCALE [-g] [--integer [--base N] | --money [--format F]] TEXT...\n"
    "Read a number written the locale's way at the start of each TEXT and print the\n"
    "value read and the text left unread, one line per TEXT:\n"
    "    value 1234567.891, unread \" EUR\"\n"
    "\n"
    "Kinds of number:\n"
    "  (default)         a decimal number with the locale's numeric decimal point and\n"
    "                    signs, and an exponent (\"-1234,5e3\" in de_de)\n"
    "  --integer         a whole number; --base N reads it in base N (2 to 36, or 0\n"
    "                    for C notation: 0x1f, 017); the default base is 10\n"
    "  --money           an amount with the locale's monetary symbols and placement,\n"
    "                    matched by the format F: %n (the default) for the national\n"
    "                    currency symbol, %i for the international one; the symbol\n"
    "                    may be left out of the TEXT\n"
    "Options:\n"
    "  -l, --locale LOCALE  the locale, by name (de_de.8859-1) or file name\n"
    "  -g, --grouping       read thousands separators: a number longer than a group\n"
    "                       must then have one at every group boundary (\"1.234.567\",\n"
    "                       not \"1234567\", in de_de); with --integer the number must\n"
    "                       also end the TEXT\n"
    "      --integer, --base N, --money, --format F   as above\n"
    "  -h, --help           this help\n"
    "\n"
    "TEXT is in the locale's code set; the unread rest is shown between quotes with\n"
    "\\\" \\\\ \\t \\n and \\xNN for control bytes.\n"
    "Exit status: 0 every TEXT began with a number, 1 one did not (no digits, a\n"
    "misplaced separator, out of range) or the locale does not load, 2 usage error.\n";

// ---- conversion specifications -------------------------------------------------------------

enum class FormatKind { kNumber, kMoney, kMoneyParse };

struct Conversion {
    char letter = 0;
    bool wide = false; // "l" or "L" before the letter
};

// Length of the character at p in the locale (at least 1, so that a bad byte moves on).
int char_length(nu_locale_t h, const char *p) {
    const int n = nu_full_mblen(h, reinterpret_cast<const unsigned char *>(p), 4);
    *_nu_ext_errno(h) = 0;
    return n > 0 ? n : 1;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Finds the one conversion of `format`; false after a usage message.
bool scan_format(nu_locale_t h, const char *format, FormatKind kind, Conversion &found) {
    const char *letters = kind == FormatKind::kNumber ? "diuoxXbqeEfgGcs" : "in";
    int count = 0;
    for (const char *p = format; *p != '\0';) {
        if (*p != '%') {
            p += char_length(h, p);
            continue;
        }
        if (p[1] == '%') {
            p += 2;
            continue;
        }
        const char *start = p++;
        const char *q = p;
        while (is_digit(*q)) ++q;
        if (q != p && *q == '$') {
            usage_error("positional conversions (%%N$) are not supported in FORMAT");
            return false;
        }
        if (kind == FormatKind::kMoney) {
            for (;;) {
                if (*p == '=') {
                    if (p[1] == '\0') break;
                    p += 1 + char_length(h, p + 1);
                } else if (std::strchr("+(^!-", *p) != nullptr && *p != '\0') {
                    ++p;
                } else {
                    break;
                }
            }
            while (is_digit(*p)) ++p;
            if (*p == '#')
                for (++p; is_digit(*p);) ++p;
        } else {
            while (*p != '\0' && std::strchr(" #'+-", *p) != nullptr) ++p;
            if (*p == '0') ++p;
            if (*p == '*') {
                usage_error("'*' widths are not supported: write the width in FORMAT");
                return false;
            }
            while (is_digit(*p)) ++p;
        }
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                usage_error("'*' precisions are not supported: write the precision in FORMAT");
                return false;
            }
            while (is_digit(*p)) ++p;
        }
        Conversion c;
        if (kind == FormatKind::kNumber && *p != '\0' && std::strchr("lLhH", *p) != nullptr) {
            c.wide = *p == 'l' || *p == 'L';
            ++p;
        }
        if (*p == '\0') {
            usage_error("FORMAT ends inside the conversion '%s'", start);
            return false;
        }
        if (std::strchr(letters, *p) == nullptr) {
            const int n = char_length(h, p);
            usage_error("unknown conversion '%.*s' in FORMAT (%s)", n, p,
                        kind == FormatKind::kNumber ? "d i u o x X b q e E f g G c s" : "n or i");
            return false;
        }
        c.letter = *p++;
        found = c;
        ++count;
    }
    if (count != 1) {
        usage_error("FORMAT must hold exactly one conversion, not %d", count);
        return false;
    }
    return true;
}

// Library errors that mean the format was refused rather than the value.
bool format_error(int code) {
    return code == NU_EFORMAT || code == NU_EBADFMT || code == NU_EMODIFIER || code == NU_EBADCONV;
}

// Runs `format_into(buffer, size)` with a buffer grown while the library answers E2BIG.
// Returns the bytes written, or -1 with the handle's error code telling why.
template <typename Formatter>
int format_grown(nu_locale_t h, std::string &out, Formatter format_into) {
    for (size_t size = 256;; size *= 2) {
        out.assign(size, '\0');
        *_nu_ext_errno(h) = 0;
        const int n = format_into(out.data(), static_cast<int>(size));
        if (n >= 0) {
            out.resize(static_cast<size_t>(n));
            return n;
        }
        if (*_nu_ext_errno(h) != NU_E2BIG || size >= (1u << 16)) return -1;
    }
}

// The status and message of a failed formatting call.
int formatting_failure(nu_locale_t h, const char *format, const char *argument) {
    const int code = *_nu_ext_errno(h);
    if (format_error(code))
        return usage_error("FORMAT '%s' refused: %s", format, error_text(code).c_str());
    if (code == NU_E2BIG)
        return report(kDataError,
                      "cannot format '%s': the result is too long (a floating "
                      "conversion's width and text are limited to 99 characters)",
                      argument);
    return report(kDataError, "cannot format '%s': %s", argument,
                  code == 0 ? "the library gave no reason" : error_text(code).c_str());
}

bool read_double(const char *text, double &value) {
    if (*text == '\0') return false;
    char *end = nullptr;
    errno = 0;
    value = std::strtod(text, &end);
    return *end == '\0' && errno != ERANGE;
}

void print_line(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
}

// The characters of a multibyte string as wide characters (for %lc and %ls).
bool widen(nu_locale_t h, const char *text, std::vector<nu_wchar> &wide) {
    wide.clear();
    const unsigned char *p = reinterpret_cast<const unsigned char *>(text);
    while (*p != 0) {
        nu_wchar wc = 0;
        const int n = nu_full_mbtowc(h, &wc, p, 4);
        if (n <= 0) return false;
        wide.push_back(wc);
        p += n;
    }
    wide.push_back(0);
    return true;
}

} // namespace

int run_fmt(int argc, char **argv) {
    if (wants_help(argc, argv, kFmtHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv, {{"locale", 'l', true}})) return kUsage;
    const auto &operands = args.operands();
    if (operands.empty()) return usage_error("no FORMAT given");
    if (operands.size() < 2) return usage_error("no NUMBER given");
    Locale locale;
    if (const int status = load_locale_option(args, locale); status != kOk) return status;
    nu_locale_t h = locale.get();
    const char *format = operands[0];
    Conversion c;
    if (!scan_format(h, format, FormatKind::kNumber, c)) return kUsage;

    const bool integer = std::strchr("diuoxXbq", c.letter) != nullptr;
    const bool floating = std::strchr("eEfgG", c.letter) != nullptr;
    int worst = kOk;
    std::string out;
    for (size_t i = 1; i < operands.size(); ++i) {
        const char *arg = operands[i];
        int n;
        if (integer) {
            char *end = nullptr;
            errno = 0;
            const long long value = std::strtoll(arg, &end, 10);
            if (*arg == '\0' || *end != '\0') {
                worst = report(kDataError, "'%s' is not a whole number (%%%c takes one)", arg,
                               c.letter);
                continue;
            }
            const bool fits =
                errno != ERANGE && (c.letter == 'u' ? value >= 0 && value <= UINT32_MAX
                                                    : value >= INT32_MIN && value <= INT32_MAX);
            if (!fits) {
                worst = report(kDataError, "'%s' does not fit in 32 bits (%%%c takes %s)", arg,
                               c.letter,
                               c.letter == 'u' ? "0 to 4294967295" : "-2147483648 to 2147483647");
                continue;
            }
            // The library reads a 32-bit int for every integer conversion.
            const int word = static_cast<int>(static_cast<uint32_t>(value));
            n = format_grown(h, out, [&](char *buffer, int size) {
                return nu_mbsfnum(h, buffer, size, format, word);
            });
        } else if (floating) {
            double value;
            if (!read_double(arg, value)) {
                worst = report(kDataError, "'%s' is not a number", arg);
                continue;
            }
            n = format_grown(h, out, [&](char *buffer, int size) {
                return nu_mbsfnum(h, buffer, size, format, value);
            });
        } else if (c.wide) {
            std::vector<nu_wchar> wide;
            if (!widen(h, arg, wide) || (c.letter == 'c' && wide.size() < 2)) {
                worst = report(kDataError, "'%s' is not a character string of the locale", arg);
                continue;
            }
            n = format_grown(h, out, [&](char *buffer, int size) {
                return c.letter == 'c'
                           ? nu_mbsfnum(h, buffer, size, format, static_cast<int>(wide[0]))
                           : nu_mbsfnum(h, buffer, size, format, wide.data());
            });
        } else {
            if (c.letter == 'c' && *arg == '\0') {
                worst = report(kDataError, "an empty argument has no character for %%c");
                continue;
            }
            n = format_grown(h, out, [&](char *buffer, int size) {
                return nu_mbsfnum(h, buffer, size, format, arg);
            });
        }
        if (n < 0) {
            const int status = formatting_failure(h, format, arg);
            if (status == kUsage) return kUsage;
            worst = status;
            continue;
        }
        print_line(out);
    }
    return worst;
}

int run_money(int argc, char **argv) {
    if (wants_help(argc, argv, kMoneyHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv, {{"locale", 'l', true}})) return kUsage;
    const auto &operands = args.operands();
    if (operands.empty()) return usage_error("no FORMAT given");
    if (operands.size() < 2) return usage_error("no AMOUNT given");
    Locale locale;
    if (const int status = load_locale_option(args, locale); status != kOk) return status;
    nu_locale_t h = locale.get();
    const char *format = operands[0];
    Conversion c;
    if (!scan_format(h, format, FormatKind::kMoney, c)) return kUsage;

    int worst = kOk;
    std::string out;
    for (size_t i = 1; i < operands.size(); ++i) {
        double amount;
        if (!read_double(operands[i], amount)) {
            worst = report(kDataError, "'%s' is not an amount", operands[i]);
            continue;
        }
        const int n = format_grown(h, out, [&](char *buffer, int size) {
            return nu_mbsfmon(h, buffer, size, format, amount);
        });
        if (n < 0) {
            const int status = formatting_failure(h, format, operands[i]);
            if (status == kUsage) return kUsage;
            worst = status;
            continue;
        }
        print_line(out);
    }
    return worst;
}

namespace {

// True when the text between start and end holds a digit or letter: something was read
// beyond blanks and a sign.
bool read_something(const char *start, const char *end) {
    for (const char *p = start; p < end; ++p)
        if ((*p >= '0' && *p <= '9') || ((*p | 0x20) >= 'a' && (*p | 0x20) <= 'z')) return true;
    return false;
}

// "value V, unread "REST"" for one TEXT; the status.
int parse_one(nu_locale_t h, const Arguments &args, const char *text, const char *money_format) {
    const bool grouping = args.has("grouping");
    *_nu_ext_errno(h) = 0;
    std::string value;
    const char *rest = nullptr;
    if (money_format != nullptr) {
        double amount = 0;
        rest = nu_mbspmon(h, text, money_format, &amount);
        if (rest == nullptr) {
            const int code = *_nu_ext_errno(h);
            if (format_error(code))
                return usage_error("format '%s' refused: %s", money_format,
                                   error_text(code).c_str());
            return report(kDataError, "'%s': no amount matching %s (%s)", text, money_format,
                          code == 0 ? "the locale has no placement for it"
                                    : error_text(code).c_str());
        }
        value = shortest_double(amount);
    } else if (args.has("integer")) {
        int base = 10;
        if (const char *b = args.value("base")) base = std::atoi(b);
        char *end = nullptr;
        const long number = nu_mbstol(h, text, &end, base, grouping ? 1 : 0);
        const int code = *_nu_ext_errno(h);
        if (code == NU_EINVAL || code == NU_ERANGE)
            return report(kDataError, "'%s': %s", text,
                          code == NU_EINVAL ? "thousands separators out of place or too long"
                                            : "no digits, or out of range");
        if (end == nullptr || !read_something(text, end))
            return report(kDataError, "'%s': no whole number at the start", text);
        value = std::to_string(number);
        rest = end;
    } else {
        char *end = nullptr;
        const double number = nu_mbstod(h, text, &end, grouping ? 1 : 0);
        const int code = *_nu_ext_errno(h);
        if (code == NU_EINVAL)
            return report(kDataError, "'%s': thousands separators out of place", text);
        if (code == NU_ERANGE)
            return report(kDataError, "'%s': %s", text,
                          *text == '\0' ? "empty text" : "out of range");
        if (end == nullptr || !read_something(text, end))
            return report(kDataError, "'%s': no number at the start", text);
        value = shortest_double(number);
        rest = end;
    }
    const std::string line = "value " + value + ", unread " + quoted(rest);
    print_line(line);
    return kOk;
}

} // namespace

int run_parse(int argc, char **argv) {
    if (wants_help(argc, argv, kParseHelp)) return kOk;
    Arguments args;
    if (!args.parse(argc, argv,
                    {{"locale", 'l', true},
                     {"grouping", 'g', false},
                     {"integer", 0, false},
                     {"base", 0, true},
                     {"money", 0, false},
                     {"format", 0, true}}))
        return kUsage;
    if (args.has("integer") && args.has("money"))
        return usage_error("--integer and --money exclude each other");
    if (args.has("base")) {
        if (!args.has("integer")) return usage_error("--base goes with --integer");
        const char *b = args.value("base");
        char *end = nullptr;
        const long base = std::strtol(b, &end, 10);
        if (*b == '\0' || *end != '\0' || base == 1 || base < 0 || base > 36)
            return usage_error("--base takes 0 or 2 to 36, not '%s'", b);
    }
    if (args.has("format") && !args.has("money")) return usage_error("--format goes with --money");
    if (args.operands().empty()) return usage_error("no TEXT given");
    Locale locale;
    if (const int status = load_locale_option(args, locale); status != kOk) return status;
    nu_locale_t h = locale.get();

    std::string money_format;
    if (args.has("money")) {
        money_format = args.value("format") != nullptr ? args.value("format")
                                                       : (args.has("grouping") ? "%'n" : "%n");
        Conversion c;
        if (!scan_format(h, money_format.c_str(), FormatKind::kMoneyParse, c)) return kUsage;
    }
    int worst = kOk;
    for (const char *text : args.operands()) {
        const int status =
            parse_one(h, args, text, money_format.empty() ? nullptr : money_format.c_str());
        if (status == kUsage) return kUsage;
        if (status > worst) worst = status;
    }
    return worst;
}

} // namespace nus_cli
