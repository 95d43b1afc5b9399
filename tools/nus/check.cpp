// nus check: validates text in a locale's code set, reporting every invalid or truncated
// sequence by line, column and byte; optionally prints each line's display width.
#include "tools/nus/text_io.h"

#include <dirent.h>
#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kHelp =
    "Usage: nus check (-l LOCALE | --codeset CS) [--width] [--symbols] [FILE...]\n"
    "Check that the FILEs (standard input with none or with -) are valid text in the code set\n"
    "of LOCALE, or of CS (through the first installed locale of that code set). Each invalid\n"
    "or truncated sequence is reported on stderr as\n"
    "  FILE: line L, column C, byte B: invalid sequence 0x81 0x20 in sjis\n"
    "where C counts characters from 1 (an invalid sequence counts as one) and B counts bytes\n"
    "of the input from 1. A sequence ends with the byte that made it invalid; when that byte\n"
    "can start a character, checking goes on from it.\n\n"
    "  -l, --locale=LOCALE  locale name (ja_jp.sjis) or locale file name\n"
    "      --codeset=CS     code-set name or number (sjis, 8859-1, 819)\n"
    "  -w, --width          print each line's display width in columns, a tab and the line;\n"
    "                       characters without a width (controls such as tab) count 0, and\n"
    "                       a line with an invalid sequence shows '-'\n"
    "  -s, --symbols        print each line as the symbols of its characters (<U00C4>),\n"
    "                       from the character map of the code set (nus/cm3/xxxx.cmo);\n"
    "                       with --width after the width and a tab; a line with an invalid\n"
    "                       sequence or a character without a symbol shows '-'\n"
    "  -h, --help           show this help\n\n"
    "Exit status: 0 all valid, 1 something invalid (or an unknown locale or unreadable file),\n"
    "2 usage error.\n";

// The first locale file of the data tree written in code set `number`: "ll_tt/xxxx[mod].lco".
std::string locale_file_for(unsigned int number) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%04x", number);
    const std::string root = data_root() + "/nus/lc11";
    std::vector<std::string> found;
    DIR *top = opendir(root.c_str());
    if (top == nullptr) return {};
    while (const dirent *entry = readdir(top)) {
        const std::string dir = entry->d_name;
        if (dir.size() != 5 || dir[2] != '_') continue;
        DIR *inner = opendir((root + "/" + dir).c_str());
        if (inner == nullptr) continue;
        while (const dirent *file = readdir(inner)) {
            const std::string name = file->d_name;
            if (name.size() >= 8 && name.compare(0, 4, digits) == 0 &&
                name.compare(name.size() - 4, 4, ".lco") == 0)
                found.push_back(dir + "/" + name);
        }
        closedir(inner);
    }
    closedir(top);
    if (found.empty()) return {};
    return *std::min_element(found.begin(), found.end());
}

class Checker {
public:
    Checker(Locale &locale, std::string codeset, bool width, nu_cm_t symbols, Output &out)
        : locale_(locale), codeset_(std::move(codeset)), width_(width), symbols_(symbols),
          out_(out),
          terminator_(static_cast<std::size_t>(std::max(nu_mb_loc_min(locale), 1))) {}

    int run(std::FILE *stream, const char *name);

private:
    // Reports the bad sequences of a line; false when there was one.
    // A character cut by the newline is invalid (the newline broke it); one cut by the end of
    // the input is truncated.
    bool check_line(const unsigned char *line, std::size_t length, bool newline,
                    unsigned long long number, unsigned long long offset, const std::string &prefix);
    // The display width of a valid line.
    long line_width(const unsigned char *line, std::size_t length);

    Locale &locale_;
    std::string codeset_;
    bool width_;
    nu_cm_t symbols_;
    Output &out_;
    std::size_t terminator_;
    std::string scratch_;
};

bool Checker::check_line(const unsigned char *line, std::size_t length, bool newline,
                         unsigned long long number, unsigned long long offset,
                         const std::string &prefix) {
    bool valid = true;
    std::size_t from = 0, column = 1;
    BadSequence bad;
    while (find_bad_sequence(locale_, line, length, from, column, bad)) {
        valid = false;
        const bool cut = bad.truncated && !newline;
        const std::string bytes = hex_bytes(line + bad.offset, bad.length) +
                                  (bad.truncated && newline ? " 0x0A" : "");
        report(kDataError, "%sline %llu, column %zu, byte %llu: %s sequence %s in %s",
               prefix.c_str(), number, bad.column, offset + bad.offset + 1,
               cut ? "truncated" : "invalid", bytes.c_str(), codeset_.c_str());
        from = bad.offset + bad.length;
        column = bad.column + 1;
        if (bad.length > 1 && !bad.truncated) {
            // The byte that broke the sequence may begin a character of its own.
            const std::size_t last = bad.offset + bad.length - 1;
            const int budget = static_cast<int>(std::min<std::size_t>(length - last, 4));
            if (_tsn_nu_full_mblen(locale_, line + last, budget) > 0 ||
                (*_nu_ext_errno(locale_) == NU_EINVAL && length - last < 4))
                from = last;
        }
    }
    return valid;
}

long Checker::line_width(const unsigned char *line, std::size_t length) {
    scratch_.assign(reinterpret_cast<const char *>(line), length);
    scratch_.append(terminator_, '\0');
    const auto *s = reinterpret_cast<const unsigned char *>(scratch_.data());
    if (std::memchr(line, 0, length) == nullptr) {
        const int all = nu_mbswidth(locale_, s, static_cast<int>(length));
        if (all >= 0) return all;
    }
    // Some character has no width (or a null character would end the string): one at a time,
    // through the wide character (the multibyte form gives any one-byte character width 1).
    long sum = 0;
    for (std::size_t at = 0; at < length;) {
        nu_wchar wc = 0;
        const int budget = static_cast<int>(std::min<std::size_t>(length - at, 4));
        const int step = _tsn_nu_full_mblen(locale_, s + at, budget);
        if (step <= 0) break;
        if (s[at] != 0 && nu_full_mbtowc(locale_, &wc, s + at, step) > 0) {
            const int w = nu_wcwidth(locale_, wc);
            if (w > 0) sum += w;
        }
        at += static_cast<std::size_t>(step);
    }
    return sum;
}

int Checker::run(std::FILE *stream, const char *name) {
    const std::string prefix = input_prefix(name);
    char *buffer = nullptr;
    std::size_t capacity = 0;
    unsigned long long number = 0, offset = 0;
    int status = kOk;
    ssize_t got;
    while ((got = getline(&buffer, &capacity, stream)) > 0) {
        std::size_t length = static_cast<std::size_t>(got);
        const bool newline = buffer[length - 1] == '\n';
        if (newline) --length;
        const auto *line = reinterpret_cast<const unsigned char *>(buffer);
        const bool valid = check_line(line, length, newline, ++number, offset, prefix);
        if (!valid) status = kDataError;
        if (width_) {
            const std::string w = valid ? std::to_string(line_width(line, length)) : "-";
            out_.write(w);
            out_.write("\t", 1);
            if (symbols_ == nullptr) {
                out_.write(buffer, length);
                out_.write("\n", 1);
            }
        }
        if (symbols_ != nullptr) {
            scratch_.assign(length * (NU_CM_SYMBOL_MAX + 2) + 1, '\0');
            const int n = valid ? nu_mbstosyms(locale_, symbols_, scratch_.data(),
                                               static_cast<int>(scratch_.size()), buffer,
                                               static_cast<int>(length))
                                : -1;
            if (valid && n < 0) {
                status = kDataError;
                report(kDataError, "%sline %llu: a character without a symbol in %s",
                       prefix.c_str(), number, codeset_.c_str());
            }
            out_.write(n >= 0 ? scratch_.c_str() : "-", n >= 0 ? static_cast<std::size_t>(n) : 1);
            out_.write("\n", 1);
        }
        offset += static_cast<unsigned long long>(got);
    }
    const bool failed = std::ferror(stream) != 0;
    std::free(buffer);
    if (failed)
        return report(kDataError, "%s: read error: %s",
                      std::strcmp(name, "-") == 0 ? "standard input" : name, std::strerror(errno));
    return status;
}

} // namespace

int run_check(int argc, char **argv) {
    if (wants_help(argc, argv, kHelp)) return kOk;
    static const option kOptions[] = {
        {"locale", required_argument, nullptr, 'l'},
        {"codeset", required_argument, nullptr, 'C'},
        {"width", no_argument, nullptr, 'w'},
        {"symbols", no_argument, nullptr, 's'},
        {nullptr, 0, nullptr, 0}};
    const char *spec = nullptr;
    const char *codeset = nullptr;
    bool width = false, symbols = false;
    start_options();
    int option;
    while ((option = getopt_long(argc, argv, ":l:ws", kOptions, nullptr)) != -1) {
        switch (option) {
        case 'l': spec = optarg; break;
        case 'C': codeset = optarg; break;
        case 'w': width = true; break;
        case 's': symbols = true; break;
        default: return option_error(option, argv);
        }
    }
    if ((spec == nullptr) == (codeset == nullptr))
        return usage_error("give exactly one of -l LOCALE and --codeset CS");

    std::string file;
    std::string name;
    unsigned int number = NU_UNKNOWN_CODESET;
    if (codeset != nullptr) {
        number = nu_lc_spec2cs_num(nullptr, codeset, nullptr);
        if (number == NU_UNKNOWN_CODESET) return report(kDataError, "unknown code set '%s'", codeset);
        file = locale_file_for(number);
        if (file.empty())
            return report(kDataError, "no locale in code set %s under %s/nus/lc11", codeset,
                          data_root().c_str());
        spec = file.c_str();
        name = codeset;
    } else {
        name = locale_codeset(spec);
        // A locale name, or a locale file name ("ll_tt/xxxx.lco") through its normal form.
        char normal[NU_LC_SPEC_LIST_SIZE];
        number = nu_lc_spec2cs_num(nullptr, spec, nullptr);
        if (number == NU_UNKNOWN_CODESET && nu_lc_fname2lc_spec(nullptr, spec, normal, nullptr) == 0)
            number = nu_lc_spec2cs_num(nullptr, normal, nullptr);
    }
    Locale locale;
    if (!locale.load(spec)) return kDataError;
    nu_cm_t map = nullptr;
    if (symbols && nu_cm_load(locale, &map, number, nullptr) != 0) {
        return report(kDataError, "no character map for %s (nus/cm3 under %s): error %d",
                      name.c_str(), data_root().c_str(), locale.error());
    }
    struct Unload {
        nu_cm_t map;
        ~Unload() { nu_cm_unload(map); }
    } unload{map};
    Output out;
    Checker checker(locale, name, width, map, out);
    int status = for_each_input(argc - optind, argv + optind, [&](std::FILE *stream, const char *input) {
        return checker.run(stream, input);
    });
    if (!out.finish()) status = kDataError;
    return status;
}

} // namespace nus_cli
