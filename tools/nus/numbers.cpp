// Placeholder: filled in by the subcommand's own change.
#include "tools/nus/nus_tool.h"

namespace nus_cli {
int run_fmt(int, char **) { return report(kUsage, "not implemented yet"); }
int run_money(int, char **) { return report(kUsage, "not implemented yet"); }
int run_parse(int, char **) { return report(kUsage, "not implemented yet"); }
} // namespace nus_cli
