// The process-wide pieces of the fuzz targets' support: locales kept loaded, the scratch
// directory.
#include "fuzz/fuzz.h"

#include <filesystem>
#include <fstream>
#include <cstdlib>
#include <map>

namespace nus_fuzz {

nu_locale_t locale(const char *spec) {
    // Never destroyed: the handles stay reachable until the process ends.
    static auto &loaded = *new std::map<std::string, nu_locale_t>;
    environment();
    auto it = loaded.find(spec);
    if (it == loaded.end()) {
        nu_locale_t h = nullptr;
        if (nu_lc_load(&h, spec, nullptr, nullptr) != 0) {
            nu_lc_unload(h);
            h = nullptr;
        }
        it = loaded.emplace(spec, h).first;
    }
    if (it->second != nullptr) *_nu_ext_errno(it->second) = 0;
    return it->second;
}

nu_locale_t null_handle() {
    static nu_locale_t handle = [] {
        nu_locale_t h = nullptr;
        if (nu_create_null_locale_4(&h) != 0) std::abort();
        return h;
    }();
    return handle;
}

namespace {

struct ScratchDir {
    std::string path;
    ScratchDir() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "nus-fuzz-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        path = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

} // namespace

const std::string &scratch_dir() {
    static ScratchDir dir;
    return dir.path;
}

std::string write_scratch(const std::string &name, const std::string &content) {
    const std::string path = scratch_dir() + "/" + name;
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    return path;
}

} // namespace nus_fuzz
