// The nus dispatcher: help, version, unknown commands.
#include "support/run_tool.h"

#include <gtest/gtest.h>

using nus_test::run_program;

TEST(NusTool, DispatcherHelpVersionAndUnknownCommands) {
    auto help = run_program(NUS_TOOL, {"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("Usage: nus COMMAND"), std::string::npos);
    for (const char *command : {"conv", "sort", "check", "info", "fmt", "money", "parse", "cal",
                                "bound", "key", "locales"})
        EXPECT_NE(help.out.find(std::string("  ") + command + " "), std::string::npos) << command;

    auto none = run_program(NUS_TOOL, {});
    EXPECT_EQ(none.status, 2);
    EXPECT_TRUE(none.out.empty());
    EXPECT_NE(none.err.find("Usage: nus COMMAND"), std::string::npos);

    auto unknown = run_program(NUS_TOOL, {"frobnicate"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "nus: unknown command 'frobnicate'\nTry 'nus --help'.\n");

    auto version = run_program(NUS_TOOL, {"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("nus ", 0), 0u);
}
