// Where nus-localedef and nus-cvdef find their hand-kept inputs, the code-set registry, the
// charmap names file and the locale modifiers file, when no option names them: an installed tool takes the copies its
// installation put in share/nus beside it; a tool run from its build tree takes the source
// tree's data/ files it was built from.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

// The share folder relative to the folder of the installed tool (set by the install rules).
#ifndef NUS_INSTALLED_SHARE
#define NUS_INSTALLED_SHARE "../share/nus"
#endif

namespace nus::tools {

// `name` in the installed share folder when the running program has one beside it, else
// `built_in` (a path into the source tree).
inline std::string default_input(const char *name, const char *built_in) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const std::filesystem::path installed =
            (self.parent_path() / NUS_INSTALLED_SHARE / name).lexically_normal();
        if (std::filesystem::is_regular_file(installed, error)) return installed.string();
    }
    return built_in;
}

} // namespace nus::tools
