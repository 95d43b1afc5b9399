// nus: the command-line face of the library. `nus COMMAND [OPTIONS] [ARGS]`.
#include "tools/nus/nus_tool.h"

#include <cstring>

namespace {

struct Command {
    const char *name;
    int (*run)(int, char **);
    const char *summary;
};

constexpr Command kCommands[] = {
    {"conv", nus_cli::run_conv, "convert text between code sets"},
    {"sort", nus_cli::run_sort, "sort lines by a locale's collation"},
    {"check", nus_cli::run_check, "validate text in a code set; display widths"},
    {"info", nus_cli::run_info, "describe a loaded locale"},
    {"fmt", nus_cli::run_fmt, "format numbers"},
    {"money", nus_cli::run_money, "format amounts of money"},
    {"parse", nus_cli::run_parse, "read numbers and amounts written in a locale"},
    {"cal", nus_cli::run_cal, "convert dates between calendars"},
    {"date", nus_cli::run_date, "write and read dates and times in a locale"},
    {"bound", nus_cli::run_bound, "collation bounds of a prefix"},
    {"key", nus_cli::run_key, "sort key of a string"},
    {"locales", nus_cli::run_locales, "list the locales and conversions installed"},
};

void print_help(std::FILE *out) {
    std::fprintf(out,
                 "Usage: nus COMMAND [OPTIONS] [ARGUMENTS]\n"
                 "Locale-aware text tools on the nuslib library.\n\n"
                 "Commands:\n");
    for (const Command &c : kCommands) std::fprintf(out, "  %-8s %s\n", c.name, c.summary);
    std::fprintf(out,
                 "\n'nus COMMAND --help' describes a command. Locales are named as in\n"
                 "de_de.8859-1 and found under TESSARONDIR (now %s).\n"
                 "Exit status: 0 success, 1 data error, 2 usage error.\n",
                 nus_cli::data_root().c_str());
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        print_help(stderr);
        return nus_cli::kUsage;
    }
    const char *name = argv[1];
    if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0 ||
        std::strcmp(name, "help") == 0) {
        print_help(stdout);
        return nus_cli::kOk;
    }
    if (std::strcmp(name, "--version") == 0) {
        std::printf("nus %s (locale objects %s, conversions %s)\n", nu_version(),
                    nu_lc_version(), nu_cv_version());
        return nus_cli::kOk;
    }
    for (const Command &c : kCommands) {
        if (std::strcmp(name, c.name) == 0) {
            nus_cli::g_command = c.name;
            return c.run(argc - 1, argv + 1);
        }
    }
    std::fprintf(stderr, "nus: unknown command '%s'\nTry 'nus --help'.\n", name);
    return nus_cli::kUsage;
}
