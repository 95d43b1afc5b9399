// Running the nus tool on the generated data tree, for the tests of its text subcommands.
#pragma once

#include "support/run_tool.h"

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace nus_test {

inline RunResult nus(const std::vector<std::string> &args, const std::string &input = {},
                     std::vector<std::string> env = {}) {
    env.push_back("TESSARONDIR=" NUS_DATA_DIR);
    return run_program(NUS_TOOL, args, input, env);
}

inline std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline std::vector<std::string> split_lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

} // namespace nus_test
