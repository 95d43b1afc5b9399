// Placeholder: filled in by the subcommand's own change.
#include "tools/nus/nus_tool.h"

namespace nus_cli {
int run_locales(int, char **) { return report(kUsage, "not implemented yet"); }
} // namespace nus_cli
