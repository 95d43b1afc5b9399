// What the nus subcommands share: messages, locale loading, the walk over input files.
#include "tools/nus/nus_tool.h"

#include <cstdarg>
#include <cstdlib>
#include <cerrno>
#include <cstring>
#include <getopt.h>

namespace nus_cli {

const char *g_command = "nus";

namespace {

void vline(const char *format, va_list args) {
    std::fprintf(stderr, "nus: %s: ", g_command);
    std::vfprintf(stderr, format, args);
    std::fputc('\n', stderr);
}

} // namespace

int report(int status, const char *format, ...) {
    va_list args;
    va_start(args, format);
    vline(format, args);
    va_end(args);
    return status;
}

void warn(const char *format, ...) {
    va_list args;
    va_start(args, format);
    vline(format, args);
    va_end(args);
}

int usage_error(const char *format, ...) {
    va_list args;
    va_start(args, format);
    vline(format, args);
    va_end(args);
    std::fprintf(stderr, "Try 'nus %s --help'.\n", g_command);
    return kUsage;
}

void start_options() {
    opterr = 0;
    optind = 1;
}

int option_error(int option, char **argv) {
    if (option == ':') return usage_error("option '%s' needs an argument", argv[optind - 1]);
    if (optopt != 0) return usage_error("unknown option '-%c'", optopt);
    return usage_error("unknown option '%s'", argv[optind - 1]);
}

bool wants_help(int argc, char **argv, const char *help) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) break;
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(help, stdout);
            return true;
        }
    }
    return false;
}

std::string error_text(int code) {
    struct Name {
        int code;
        const char *name;
        const char *words;
    };
    static constexpr Name kNames[] = {
        {NU_EILSEQ, "NU_EILSEQ", "invalid byte sequence"},
        {NU_EBADARG, "NU_EBADARG", "bad argument"},
        {NU_ENOMEM, "NU_ENOMEM", "out of memory"},
        {NU_ENOWIDTH, "NU_ENOWIDTH", "no display width"},
        {NU_EPOSITION, "NU_EPOSITION", "bad position"},
        {NU_ERANGE, "NU_ERANGE", "no digits or out of range"},
        {NU_EINVAL, "NU_EINVAL", "incomplete character or malformed name"},
        {NU_ENOFILE, "NU_ENOFILE", "data file not found"},
        {NU_EBADVAL, "NU_EBADVAL", "argument out of its domain"},
        {NU_EBADFILE, "NU_EBADFILE", "data file malformed"},
        {NU_ECODESET, "NU_ECODESET", "categories of different code sets"},
        {NU_EIO, "NU_EIO", "read or write error"},
        {NU_E2BIG, "NU_E2BIG", "output too small"},
        {NU_EBADFMT, "NU_EBADFMT", "bad format or registry not opened"},
        {NU_EEOF, "NU_EEOF", "end of file inside a character"},
        {NU_EFORMAT, "NU_EFORMAT", "format and input disagree"},
        {NU_EMDAY, "NU_EMDAY", "day of month out of range"},
        {NU_EMONTH, "NU_EMONTH", "month out of range"},
        {NU_EYEAR, "NU_EYEAR", "year out of range"},
        // time formatting and parsing
        {NU_EFRACTION, "NU_EFRACTION", "fraction of a second out of range"},
        {NU_ESECOND, "NU_ESECOND", "seconds out of range"},
        {NU_EMINUTE, "NU_EMINUTE", "minutes out of range"},
        {NU_EHOUR, "NU_EHOUR", "hour out of range"},
        {NU_EWDAY, "NU_EWDAY", "day of week out of range"},
        {NU_EYDAY, "NU_EYDAY", "day of year out of range"},
        {NU_EPFRACTION, "NU_EPFRACTION", "fraction of a second not found"},
        {NU_EPSECOND, "NU_EPSECOND", "seconds not found"},
        {NU_EPMINUTE, "NU_EPMINUTE", "minutes not found"},
        {NU_EPHOUR, "NU_EPHOUR", "hour or am/pm not found"},
        {NU_EPMDAY, "NU_EPMDAY", "day not found"},
        {NU_EPWDAY, "NU_EPWDAY", "day of week not found or contradicting the date"},
        {NU_EPMONTH, "NU_EPMONTH", "month number not found"},
        {NU_EPYEAR, "NU_EPYEAR", "year or century not found"},
        {NU_EPERA, "NU_EPERA", "era name or year not found"},
        {NU_EMODIFIER, "NU_EMODIFIER", "malformed modifier"},
        {NU_ENOMATCH, "NU_ENOMATCH", "text does not match the format"},
        {NU_EPMONNAME, "NU_EPMONNAME", "month name not found"},
    };
    for (const Name &n : kNames)
        if (n.code == code) return std::string(n.name) + " (" + n.words + ")";
    return "error " + std::to_string(code);
}

std::string data_root() {
    const char *root = std::getenv("TESSARONDIR");
    if (root != nullptr && *root != '\0') return root;
    return "/usr/tessaron";
}

Locale::~Locale() { nu_lc_unload(handle_); }

bool Locale::load(const char *spec) {
    nu_lc_unload(handle_);
    handle_ = nullptr;
    if (nu_lc_load(&handle_, spec, nullptr, nullptr) == 0) return true;
    const int code = handle_ != nullptr ? *_nu_ext_errno(handle_) : NU_ENOMEM;
    report(kDataError, "cannot load locale '%s' from %s: %s", spec, data_root().c_str(),
           error_text(code).c_str());
    nu_lc_unload(handle_);
    handle_ = nullptr;
    return false;
}

int for_each_input(int count, char **names,
                   const std::function<int(std::FILE *stream, const char *name)> &each) {
    if (count == 0) return each(stdin, "-");
    int worst = kOk;
    for (int i = 0; i < count; ++i) {
        int status;
        if (std::strcmp(names[i], "-") == 0) {
            status = each(stdin, "-");
        } else {
            std::FILE *stream = std::fopen(names[i], "rb");
            if (stream == nullptr) {
                status = report(kDataError, "%s: %s", names[i], std::strerror(errno));
            } else {
                status = each(stream, names[i]);
                std::fclose(stream);
            }
        }
        if (status > worst) worst = status;
    }
    return worst;
}

} // namespace nus_cli
