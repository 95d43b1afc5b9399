// nus-cvdef: compiles a code-set conversion object.
//
//   nus-cvdef -f FROM -t TO [-o FILE.cvo | --tree ROOT] [--iconv] [-F NAME] [-T NAME]
//             [--registry FILE] [--names FILE]
//   nus-cvdef --list FILE --tree ROOT [--registry FILE] [--names FILE]
//
// FROM and TO are charmaps (paths, or names in /usr/share/i18n/charmaps), or with --iconv
// code-set names of the system's iconv. -F and -T give the registry names of the two code
// sets; for charmaps they default to the charmap names file (data/charmap-names), else to the
// charmap's name in lower case. The registry and the names file default to the installed
// copies in share/nus beside an installed tool, else to the source tree's. With --tree the
// object is written twice under ROOT/nus/cv9: named by the two code-set numbers (source
// first: ssssTTTT.cvo) and by the two names (FROM-NAME_TO-NAME.cvo). --list compiles many
// pairs, one per line: "FROM TO", or "iconv FROM TO FROM-NAME TO-NAME"; '#' starts a comment.
#include "tools/common/install_paths.h"
#include "tools/cvdef/cvdef.h"

#include "nus.h"

#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

namespace fs = std::filesystem;
using namespace nus::tools;

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: nus-cvdef -f FROM -t TO [-o FILE.cvo | --tree ROOT] [--iconv] [-F NAME] "
                 "[-T NAME] [--registry FILE] [--names FILE]\n"
                 "       nus-cvdef --list FILE --tree ROOT [--registry FILE] [--names FILE]\n");
    return 1;
}

struct Job {
    std::string from, to, from_name, to_name, output, tree;
    bool iconv = false;
};

struct Settings {
    std::string registry = default_input("registry", NUS_DEFAULT_REGISTRY);
    std::string names = default_input("charmap-names", NUS_DEFAULT_CHARMAP_NAMES);
};

std::string find_charmap(const std::string &name) {
    if (fs::exists(name)) return name;
    for (const std::string &candidate : {"/usr/share/i18n/charmaps/" + name,
                                         "/usr/share/i18n/charmaps/" + name + ".gz"})
        if (fs::exists(candidate)) return candidate;
    return name;
}

// Charmaps read once per run.
class Charmaps {
public:
    std::optional<std::string> get(const std::string &name, const Charmap *&out) {
        const std::string path = find_charmap(name);
        auto it = cache_.find(path);
        if (it == cache_.end()) {
            auto map = std::make_unique<Charmap>();
            if (auto error = read_charmap(path, *map)) return error->text();
            it = cache_.emplace(path, std::move(map)).first;
        }
        out = it->second.get();
        return std::nullopt;
    }

private:
    std::map<std::string, std::unique_ptr<Charmap>> cache_;
};

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// Writes `text` to `path` through a temporary file: all or nothing.
std::optional<std::string> write_file(const std::string &path, const Conversion &c,
                                      const std::vector<std::string> &header) {
    std::error_code ignored;
    fs::create_directories(fs::path(path).parent_path(), ignored);
    const std::string temporary = path + ".part";
    FILE *out = std::fopen(temporary.c_str(), "w");
    if (out == nullptr) return path + ": cannot write";
    auto error = write_conversion(out, c, header);
    const bool closed = std::fclose(out) == 0;
    if (error || !closed) {
        fs::remove(temporary, ignored);
        return path + ": " + (error ? *error : std::string("write error"));
    }
    fs::rename(temporary, path, ignored);
    if (ignored) {
        fs::remove(temporary, ignored);
        return path + ": cannot write";
    }
    return std::nullopt;
}

std::optional<std::string> run(Job job, const Settings &settings, Charmaps &charmaps) {
    const auto started = std::chrono::steady_clock::now();
    Conversion c;
    if (job.iconv) {
        // A UTF-8 source has the characters of the UTF-8 charmap, as in the other conversions.
        const Charmap *utf8 = nullptr;
        if (auto error = charmaps.get("UTF-8", utf8)) return *error;
        if (auto error = conversion_from_iconv(job.from, job.to, c, utf8)) return *error;
        if (job.from_name.empty()) job.from_name = lower(job.from);
        if (job.to_name.empty()) job.to_name = lower(job.to);
    } else {
        const Charmap *from = nullptr, *to = nullptr;
        if (auto error = charmaps.get(job.from, from)) return *error;
        if (auto error = charmaps.get(job.to, to)) return *error;
        if (auto error = conversion_from_charmaps(*from, *to, c))
            return find_charmap(job.from) + ":1: " + *error;
        for (auto [charmap, name] : {std::pair{from, &job.from_name}, std::pair{to, &job.to_name}}) {
            if (!name->empty()) continue;
            if (auto error = registry_name_of_charmap(settings.names, charmap->code_set_name, *name))
                return error->text();
            if (name->empty()) *name = lower(charmap->code_set_name);
        }
    }
    const std::vector<std::string> header = {"SOURCE_CODESET=" + job.from_name,
                                             "TARGET_CODESET=" + job.to_name};
    std::vector<std::string> outputs;
    if (!job.tree.empty()) {
        int32_t slot = 0;
        const unsigned source = nu_cs_name2cs_num(&slot, job.from_name.c_str(), settings.registry.c_str());
        const unsigned target = nu_cs_name2cs_num(&slot, job.to_name.c_str(), settings.registry.c_str());
        for (auto [number, name] : {std::pair{source, &job.from_name}, std::pair{target, &job.to_name}}) {
            if (number == NU_UNKNOWN_CODESET)
                return "the registry " + settings.registry + " does not know the code set \"" + *name + "\" (give -F or -T)";
        }
        char file[32];
        nu_cs_nums2cv_fname(nullptr, source, target, file, nullptr);
        const fs::path dir = fs::path(job.tree) / "nus" / ("cv" + std::string(nu_cv_version()));
        outputs.push_back((dir / file).string());
        outputs.push_back((dir / (job.from_name + "_" + job.to_name + ".cvo")).string());
    } else {
        outputs.push_back(job.output);
    }
    for (const std::string &path : outputs) {
        if (auto error = write_file(path, c, header)) return *error;
    }
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
    std::printf("%s: %s -> %s, %zu characters, %zu substituted, %.0f ms\n", outputs.front().c_str(),
                job.from_name.c_str(), job.to_name.c_str(), c.initial.size() + c.shifted.size(),
                c.substituted, ms);
    return std::nullopt;
}

int fail(const std::string &message) {
    std::fprintf(stderr, "nus-cvdef: %s\n", message.c_str());
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    Job job;
    Settings settings;
    std::string list;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&](std::string &to) {
            if (i + 1 >= argc) return false;
            to = argv[++i];
            return true;
        };
        bool ok = true;
        if (a == "-f") ok = next(job.from);
        else if (a == "-t") ok = next(job.to);
        else if (a == "-F") ok = next(job.from_name);
        else if (a == "-T") ok = next(job.to_name);
        else if (a == "-o") ok = next(job.output);
        else if (a == "--tree") ok = next(job.tree);
        else if (a == "--iconv") job.iconv = true;
        else if (a == "--list") ok = next(list);
        else if (a == "--registry") ok = next(settings.registry);
        else if (a == "--names") ok = next(settings.names);
        else return usage();
        if (!ok) return usage();
    }
    Charmaps charmaps;
    if (list.empty()) {
        if (job.from.empty() || job.to.empty() || job.output.empty() == job.tree.empty()) return usage();
        if (auto error = run(job, settings, charmaps)) return fail(*error);
        return 0;
    }
    if (job.tree.empty() || !job.from.empty() || !job.to.empty()) return usage();
    std::ifstream in(list);
    if (!in) return fail(list + ": cannot read");
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (const size_t hash = line.find('#'); hash != std::string::npos) line.erase(hash);
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string word; words >> word;) w.push_back(word);
        if (w.empty()) continue;
        Job each;
        each.tree = job.tree;
        if (w.size() == 2) {
            each.from = w[0];
            each.to = w[1];
        } else if (w.size() == 5 && w[0] == "iconv") {
            each.iconv = true;
            each.from = w[1];
            each.to = w[2];
            each.from_name = w[3];
            each.to_name = w[4];
        } else {
            return fail(list + ":" + std::to_string(number) + ": expected \"FROM TO\" or \"iconv FROM TO FROM-NAME TO-NAME\"");
        }
        if (auto error = run(each, settings, charmaps))
            return fail(list + ":" + std::to_string(number) + ": " + *error);
    }
    return 0;
}
