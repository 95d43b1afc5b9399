// Running the built nus tool on the generated data tree, for the tests of the query
// subcommands (info, fmt, money, parse, cal, bound, key).
#pragma once

#include "support/run_tool.h"

#include <string>
#include <unistd.h>
#include <vector>

namespace nus_query_test {

inline nus_test::RunResult nus(const std::vector<std::string> &args,
                               const std::string &input = {}) {
    return nus_test::run_program(NUS_TOOL, args, input, {"TESSARONDIR=" NUS_DATA_DIR});
}

// The standard output's lines, without their newlines.
inline std::vector<std::string> lines(const std::string &text) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

// The usage-error shape every subcommand shares: the message, then the pointer to --help.
inline std::string usage(const std::string &command, const std::string &message) {
    return "nus: " + command + ": " + message + "\nTry 'nus " + command + " --help'.\n";
}

inline bool have_python() { return access("/usr/bin/python3", X_OK) == 0; }

} // namespace nus_query_test
