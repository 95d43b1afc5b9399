// nus-cmdef: compiles a character map object.
//
//   nus-cmdef -f CHARMAP (-o FILE.cmo | --tree ROOT) [-c NAME] [--registry FILE] [--names FILE]
//   nus-cmdef --locales FILE --tree ROOT [--registry FILE] [--names FILE]
//
// CHARMAP is a charmap (a path, or a name in /usr/share/i18n/charmaps). -c gives the registry
// name of its code set; it defaults to the charmap names file (data/charmap-names), else to
// the charmap's name in lower case. With --tree the object is written as
// ROOT/nus/cm3/xxxx.cmo, xxxx the code set's number in four hexadecimal digits. --locales
// compiles the charmap of every line of a locale list ("LOCALE CHARMAP [CODESET]", '#'
// comments; the list of the default locales), each code set once.
#include "tools/cmdef/cmdef.h"
#include "tools/common/install_paths.h"

#include "nus.h"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace fs = std::filesystem;
using namespace nus::tools;

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: nus-cmdef -f CHARMAP (-o FILE.cmo | --tree ROOT) [-c NAME] "
                 "[--registry FILE] [--names FILE]\n"
                 "       nus-cmdef --locales FILE --tree ROOT [--registry FILE] [--names FILE]\n");
    return 2;
}

struct Settings {
    std::string registry = default_input("registry", NUS_DEFAULT_REGISTRY);
    std::string names = default_input("charmap-names", NUS_DEFAULT_CHARMAP_NAMES);
};

struct Job {
    std::string charmap, name, output, tree;
};

std::string find_charmap(const std::string &name) {
    if (fs::exists(name)) return name;
    for (const std::string &candidate : {"/usr/share/i18n/charmaps/" + name,
                                         "/usr/share/i18n/charmaps/" + name + ".gz"})
        if (fs::exists(candidate)) return candidate;
    return name;
}

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The registry number of a name, or NU_UNKNOWN_CODESET.
unsigned number_of(const std::string &name, const Settings &settings) {
    int32_t slot = 0;
    return nu_cs_name2cs_num(&slot, name.c_str(), settings.registry.c_str());
}

std::optional<std::string> run(Job job, const Settings &settings, std::set<unsigned> *done) {
    Charmap charmap;
    const std::string path = find_charmap(job.charmap);
    if (auto error = read_charmap(path, charmap)) return error->text();
    if (job.name.empty()) {
        if (auto error = registry_name_of_charmap(settings.names, charmap.code_set_name, job.name))
            return error->text();
        if (job.name.empty()) job.name = lower(charmap.code_set_name);
    }
    if (!job.tree.empty()) {
        const unsigned number = number_of(job.name, settings);
        if (number == NU_UNKNOWN_CODESET)
            return "the registry " + settings.registry + " does not know the code set \"" +
                   job.name + "\" (give -c)";
        if (done != nullptr && !done->insert(number).second) return std::nullopt;
        char file[16];
        std::snprintf(file, sizeof file, "%04x.cmo", number);
        job.output = (fs::path(job.tree) / "nus" / ("cm" + std::string(nu_cm_version())) / file)
                         .string();
    }
    const CharacterMap map = character_map_of(charmap);
    std::error_code ignored;
    if (fs::path(job.output).has_parent_path())
        fs::create_directories(fs::path(job.output).parent_path(), ignored);
    // Through a temporary file: all or nothing.
    const std::string temporary = job.output + ".part";
    FILE *out = std::fopen(temporary.c_str(), "w");
    if (out == nullptr) return job.output + ": cannot write";
    auto error = write_character_map(out, map, {"CODESET=" + job.name,
                                                "SOURCE_VERSION=" + charmap.code_set_name});
    const bool closed = std::fclose(out) == 0;
    if (error || !closed) {
        fs::remove(temporary, ignored);
        return job.output + ": " + (error ? *error : std::string("write error"));
    }
    fs::rename(temporary, job.output, ignored);
    if (ignored) return job.output + ": cannot write";
    std::printf("%s: %s, %zu characters, %zu charmap entries left out\n", job.output.c_str(),
                job.name.c_str(), map.chars.size(), map.left_out);
    return std::nullopt;
}

int fail(const std::string &message) {
    std::fprintf(stderr, "nus-cmdef: %s\n", message.c_str());
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    Job job;
    Settings settings;
    std::string locales;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&](std::string &to) {
            if (i + 1 >= argc) return false;
            to = argv[++i];
            return true;
        };
        bool ok = true;
        if (a == "-f") ok = next(job.charmap);
        else if (a == "-c") ok = next(job.name);
        else if (a == "-o") ok = next(job.output);
        else if (a == "--tree") ok = next(job.tree);
        else if (a == "--locales") ok = next(locales);
        else if (a == "--registry") ok = next(settings.registry);
        else if (a == "--names") ok = next(settings.names);
        else return usage();
        if (!ok) return usage();
    }
    if (locales.empty()) {
        if (job.charmap.empty() || job.output.empty() == job.tree.empty()) return usage();
        if (auto error = run(job, settings, nullptr)) return fail(*error);
        return 0;
    }
    if (job.tree.empty() || !job.charmap.empty() || !job.output.empty()) return usage();
    std::ifstream in(locales);
    if (!in) return fail(locales + ": cannot read");
    std::set<unsigned> done;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (const size_t hash = line.find('#'); hash != std::string::npos) line.erase(hash);
        std::istringstream words(line);
        std::vector<std::string> w;
        // Options of the locale compiler ("calendar=hebrew") say nothing of the code set.
        for (std::string word; words >> word;)
            if (word.find('=') == std::string::npos) w.push_back(word);
        if (w.empty()) continue;
        if (w.size() < 2 || w.size() > 3)
            return fail(locales + ":" + std::to_string(number) +
                        ": expected \"LOCALE CHARMAP [CODESET]\"");
        Job each;
        each.tree = job.tree;
        each.charmap = w[1];
        if (w.size() == 3) each.name = w[2];
        if (auto error = run(each, settings, &done))
            return fail(locales + ":" + std::to_string(number) + ": " + *error);
    }
    return 0;
}
