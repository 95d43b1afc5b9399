// The nus command-line tool: what its subcommands share. Each subcommand lives in its own file
// and is reached through one entry `int run_NAME(int argc, char **argv)` where argv[0] is the
// subcommand's name; it returns the process exit status.
#pragma once

#include <nus.h>

#include <cstdio>
#include <functional>
#include <string>

namespace nus_cli {

// Exit statuses of every subcommand.
enum Exit { kOk = 0, kDataError = 1, kUsage = 2 };

// Name of the running subcommand, for messages ("nus: conv: ...").
extern const char *g_command;

// "nus: CMD: message" on stderr; returns `status`.
[[gnu::format(printf, 2, 3)]] int report(int status, const char *format, ...);
// The same line without an exit status (warnings, counts).
[[gnu::format(printf, 1, 2)]] void warn(const char *format, ...);
// A usage error: the message, then "Try 'nus CMD --help'."; returns kUsage.
[[gnu::format(printf, 1, 2)]] int usage_error(const char *format, ...);

// getopt_long over a subcommand's own arguments: starts the scan afresh with getopt's own
// messages off (the option strings begin with ':').
void start_options();
// The usage error for what getopt_long returned other than an option of the subcommand: ':'
// (an option without its argument) or '?' (an unknown option); returns kUsage.
int option_error(int option, char **argv);

// True (after printing `help` to stdout) when the arguments hold -h or --help.
bool wants_help(int argc, char **argv, const char *help);

// The symbolic name and a few words for a library error code ("NU_ENOFILE (data file not
// found)").
std::string error_text(int code);

// The data tree the library searches: TESSARONDIR when set and non-empty, else the library's
// default installation root.
std::string data_root();

// A locale handle loaded from a locale name ("de_de.8859-1") or a locale file name, released
// at the end of its scope.
class Locale {
public:
    Locale() = default;
    ~Locale();
    Locale(const Locale &) = delete;
    Locale &operator=(const Locale &) = delete;
    // Loads every category; on failure reports "cannot load locale ..." and returns false.
    bool load(const char *spec);
    nu_locale_t get() const { return handle_; }
    operator nu_locale_t() const { return handle_; }
    int error() const { return *_nu_ext_errno(handle_); }

private:
    nu_locale_t handle_ = nullptr;
};

// Runs `each` on every input in turn: the named files, "-" or no names meaning stdin. A file
// that cannot be opened is reported and counted as a data error; the walk goes on. Returns
// the worst status seen (the callback's own or kDataError).
int for_each_input(int count, char **names,
                   const std::function<int(std::FILE *stream, const char *name)> &each);

// The subcommands.
int run_conv(int argc, char **argv);
int run_sort(int argc, char **argv);
int run_check(int argc, char **argv);
int run_locales(int argc, char **argv);
int run_info(int argc, char **argv);
int run_fmt(int argc, char **argv);
int run_money(int argc, char **argv);
int run_parse(int argc, char **argv);
int run_cal(int argc, char **argv);
int run_date(int argc, char **argv);
int run_bound(int argc, char **argv);
int run_key(int argc, char **argv);

} // namespace nus_cli
