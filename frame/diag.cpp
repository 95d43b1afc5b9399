// The diagnostic log: NUSLOG appends messages to ./nus.log, NUSDEBUG prints them.
//
// The log deliberately uses the standard getenv and fopen rather than the external-function
// table: it has to work while an embedding program's own functions are being debugged.
#include "frame/frame.h"

#include <cstdarg>
#include <cstdlib>
#include <ctime>

namespace {

int nus_debug_initialized = 0;
int nus_logging = 0;
int nus_popups = 0;
FILE *nus_log_file = nullptr;

// An older debug-file pair, kept only so that _nu_exit_utilities can close it.
int pg_have_debug_file = 0;
FILE *pg_debug_file = nullptr;

constexpr const char kLogName[] = "nus.log";

// On means: first character o or O, second exactly n. "ON" and "oN" stay off, as they
// always have.
bool is_on(const char *value) {
    return value != nullptr && (value[0] == 'o' || value[0] == 'O') && value[1] == 'n';
}

} // namespace

NU_EXPORT void nu_init_debug(void) {
    if (is_on(std::getenv("NUSLOG"))) {
        nus_logging = 1;
        nus_log_file = std::fopen(kLogName, "a");
        if (nus_log_file != nullptr) {
            char when[64] = "\n";
            std::time_t now = std::time(nullptr);
            if (ctime_r(&now, when) == nullptr) when[0] = '\n', when[1] = '\0';
            std::fprintf(nus_log_file, "----\n");
            std::fprintf(nus_log_file, "NUS log started %s", when);
            std::fprintf(nus_log_file, "----\n");
            std::fclose(nus_log_file);
            nus_log_file = nullptr;
        }
    }
    if (is_on(std::getenv("NUSDEBUG"))) nus_popups = 1;
}

// One open and close per message, so that the log survives a crash of the caller. The
// stream is the message's own: threads that log at once each write and close their own
// (a shared stream variable let one thread close another's stream), and the line goes out
// in one write, so that lines interleave whole.
NU_EXPORT void nu_message(const char *text) {
    if (!nus_debug_initialized) {
        nu_init_debug();
        nus_debug_initialized = 1;
    }
    if (text == nullptr) text = "";
    if (nus_logging) {
        if (FILE *log = std::fopen(kLogName, "a")) {
            std::fprintf(log, "%s\n", text);
            std::fclose(log);
        }
    }
    if (nus_popups) std::printf("%s: %s\n", "NUS", text);
}

NU_EXPORT void _nu_exit_utilities(void) {
    if (pg_have_debug_file) {
        if (pg_debug_file != nullptr) _nu_ext_fclose(pg_debug_file);
        pg_debug_file = nullptr;
        pg_have_debug_file = 0;
    }
}

namespace nus {

// Forgets the environment read so far, so that the next message reads it again.
void reset_debug_state() {
    nus_debug_initialized = 0;
    nus_logging = 0;
    nus_popups = 0;
}

} // namespace nus

namespace nus {

void messagef(const char *format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (length >= 0) {
        Scratch<char, 512> text(static_cast<size_t>(length) + 1);
        if (text.ok()) {
            std::vsnprintf(text.data(), text.size(), format, again);
            nu_message(text.data());
        }
    }
    va_end(again);
}

} // namespace nus
