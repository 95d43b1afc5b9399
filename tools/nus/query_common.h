// What the query subcommands (info, fmt, money, parse, cal, bound, key) share: a small
// command-line parser, the locale's text shown to people (escaped, hex, UTF-8), and the
// shortest decimal form of a double.
#pragma once

#include "tools/nus/nus_tool.h"

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace nus_cli {

// One option a subcommand accepts: "--name", optionally "-c", with or without a value.
struct OptionSpec {
    const char *name; // long name without the dashes
    char letter;      // short form, or 0
    bool takes_value;
};

// The options and operands of a subcommand's arguments (argv[0] is the subcommand).
// Options and operands may be mixed; "--" ends the options. An option begins with "--" or
// with "-" and an ASCII letter, so "-", "-42", "-.5" and "-$5" are operands.
class Arguments {
public:
    // false after a usage message (the caller returns kUsage).
    bool parse(int argc, char **argv, std::initializer_list<OptionSpec> specs);
    bool has(std::string_view name) const;
    // The last value given for the option, or null.
    const char *value(std::string_view name) const;
    const std::vector<const char *> &operands() const { return operands_; }

private:
    std::vector<std::pair<std::string, const char *>> given_;
    std::vector<const char *> operands_;
};

// Parses the arguments and loads the locale named by -l/--locale. Returns kOk, or the
// status to exit with (kUsage after a usage message, kDataError when the locale does not
// load).
int load_locale_option(const Arguments &args, Locale &locale);

// Text in the locale's code set converted to UTF-8 for display, when the library has a
// conversion to UTF-8 for it. Bytes that do not convert become U+FFFD.
class Utf8View {
public:
    // `codeset` is the locale's code-set name ("8859-1", "sjis", "utf8").
    explicit Utf8View(const char *codeset);
    ~Utf8View();
    Utf8View(const Utf8View &) = delete;
    Utf8View &operator=(const Utf8View &) = delete;
    std::string operator()(std::string_view text) const;
    // False when no conversion was found (text is then shown byte for byte, with
    // non-ASCII bytes replaced).
    bool available() const { return identity_ || cv_ != nullptr; }

private:
    nu_cv_t cv_ = nullptr;
    bool identity_ = false;
};

// "61 62 63" (lower-case hex, separated by `gap`, which may be empty).
std::string hex_bytes(std::string_view bytes, const char *gap = " ");
// True when every byte is printable ASCII.
bool plain_ascii(std::string_view bytes);
// Text between double quotes with \" \\ \t \n and \xNN for control bytes; other bytes as
// they are.
std::string quoted(std::string_view bytes);
// A JSON string literal (the text must be UTF-8).
std::string json_string(std::string_view utf8);
// The shortest text that reads back as the same double: plain decimals ("1234567.891",
// "-500", "0.1") for ordinary magnitudes, else the exponent form ("1e+300"); "inf", "nan".
std::string shortest_double(double value);
// Lower-case ASCII copy.
std::string lower_ascii(std::string_view text);

} // namespace nus_cli
