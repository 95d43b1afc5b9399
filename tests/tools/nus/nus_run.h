// Running the built nus tool on the generated data tree, and what its tests read its output
// with.
#pragma once

#include "support/run_tool.h"

#include <unistd.h>

#include <string>
#include <vector>

namespace nus_test {

// nus with `args`, `input` on its standard input and the build's data tree as TESSARONDIR
// (plus any `env` entries).
inline RunResult nus(const std::vector<std::string> &args, const std::string &input = {},
                     std::vector<std::string> env = {}) {
    env.push_back("TESSARONDIR=" NUS_DATA_DIR);
    return run_program(NUS_TOOL, args, input, env);
}

// The lines of a text, without their newlines.
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

} // namespace nus_test
