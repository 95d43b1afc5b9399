// nus locales: the locales and code-set conversions of the data tree, as two tables.
#include "tools/nus/text_io.h"

#include <dirent.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kHelp =
    "Usage: nus locales\n"
    "List the locales (DATA/nus/lc11) and code-set conversions (DATA/nus/cv9) of the data\n"
    "tree, where DATA is TESSARONDIR or the installed data.\n\n"
    "Locales: the name to load (language_territory.codeset[@modifier], with the code\n"
    "set the file names), the code-set number it stands for in the registry, and the file.\n"
    "Conversions: source and target code sets with their registry numbers, and the files\n"
    "that hold the conversion (one named by the numbers, one by the names). A name the\n"
    "registry does not know, or whose number differs from the file name's, is marked '?'.\n\n"
    "  -h, --help   show this help\n\n"
    "Exit status: 0 success, 1 no data tree, 2 usage error.\n";

std::vector<std::string> list_dir(const std::string &path) {
    std::vector<std::string> names;
    if (DIR *dir = opendir(path.c_str())) {
        while (const dirent *entry = readdir(dir))
            if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The header lines after the first three ("KEY=value"), and for a locale file the code-set
// name that follows them.
struct Header {
    std::map<std::string, std::string> fields;
    std::string codeset;
    bool good = false;
};

Header read_header(const std::string &path, bool locale) {
    Header header;
    std::ifstream in(path, std::ios::binary);
    std::string line;
    if (!std::getline(in, line) || line.compare(0, 10, "FILE_TYPE=") != 0) return header;
    if (!std::getline(in, line) || !std::getline(in, line)) return header;
    const std::size_t eq = line.find('=');
    if (eq == std::string::npos) return header;
    const int count = std::atoi(line.c_str() + eq + 1);
    for (int i = 3; i < count && std::getline(in, line); ++i) {
        const std::size_t at = line.find('=');
        if (at != std::string::npos) header.fields[line.substr(0, at)] = line.substr(at + 1);
    }
    if (locale) {
        while (std::getline(in, line) && line.find_first_not_of(" \t\r") == std::string::npos) {
        }
        const std::size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos) return header;
        header.codeset = line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
    }
    header.good = true;
    return header;
}

unsigned int registry_number(const std::string &name) {
    return name.empty() ? NU_UNKNOWN_CODESET : nu_cs_name2cs_num(nullptr, name.c_str(), nullptr);
}

std::string number_text(unsigned int number) {
    return number == NU_UNKNOWN_CODESET ? "?" : std::to_string(number);
}

void print_table(Output &out, const std::vector<std::vector<std::string>> &rows) {
    std::vector<std::size_t> width;
    for (const auto &row : rows)
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (width.size() <= i) width.push_back(0);
            width[i] = std::max(width[i], row[i].size());
        }
    for (const auto &row : rows) {
        std::string line = " ";
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += ' ';
            line += row[i];
            if (i + 1 < row.size()) line.append(width[i] - row[i].size() + 1, ' ');
        }
        line += '\n';
        out.write(line);
    }
}

// The locale table; the number of files listed.
std::size_t list_locales(Output &out, const std::string &root) {
    std::vector<std::vector<std::string>> rows{{"LOCALE", "CODE SET", "NUMBER", "FILE"}};
    for (const std::string &dir : list_dir(root)) {
        if (dir == "default.lco") {
            const Header h = read_header(root + "/" + dir, true);
            rows.push_back({"(default)", h.good ? h.codeset : "?",
                            number_text(registry_number(h.codeset)), dir});
            continue;
        }
        for (const std::string &file : list_dir(root + "/" + dir)) {
            const std::string relative = dir + "/" + file;
            char lang[8] = "", number[8] = "", modifier[8] = "";
            if (file.size() < 5 || file.compare(file.size() - 4, 4, ".lco") != 0 ||
                nu_lc_fname2lc_pieces(nullptr, relative.c_str(), lang, number, modifier) != 0)
                continue;
            const Header h = read_header(root + "/" + relative, true);
            const unsigned int from_name = registry_number(h.codeset);
            const bool agrees = from_name == static_cast<unsigned int>(std::atoi(number));
            std::string spec = dir + "." + (h.good && agrees ? h.codeset : number);
            if (*modifier != '\0') spec += std::string("@") + modifier;
            rows.push_back({spec, h.good ? h.codeset : "?", agrees ? number : std::string(number) + " ?",
                            relative});
        }
    }
    print_table(out, rows);
    return rows.size() - 1;
}

// The conversion table; the number of files listed.
std::size_t list_conversions(Output &out, const std::string &root) {
    struct Pair {
        std::string from, to;
        std::vector<std::string> files;
    };
    std::map<std::pair<unsigned int, unsigned int>, Pair> pairs;
    std::size_t count = 0;
    for (const std::string &file : list_dir(root)) {
        if (file.size() < 5 || file.compare(file.size() - 4, 4, ".cvo") != 0) continue;
        const Header h = read_header(root + "/" + file, false);
        std::string from = h.fields.count("SOURCE_CODESET") ? h.fields.at("SOURCE_CODESET") : "";
        std::string to = h.fields.count("TARGET_CODESET") ? h.fields.at("TARGET_CODESET") : "";
        const std::string stem = file.substr(0, file.size() - 4);
        unsigned int source, target;
        if (stem.size() == 8 && stem.find_first_not_of("0123456789abcdef") == std::string::npos) {
            source = static_cast<unsigned int>(std::stoul(stem.substr(0, 4), nullptr, 16));
            target = static_cast<unsigned int>(std::stoul(stem.substr(4), nullptr, 16));
        } else {
            const std::size_t cut = stem.find('_');
            if (cut == std::string::npos) continue;
            if (from.empty()) from = stem.substr(0, cut);
            if (to.empty()) to = stem.substr(cut + 1);
            source = registry_number(stem.substr(0, cut));
            target = registry_number(stem.substr(cut + 1));
        }
        Pair &p = pairs[{source, target}];
        if (p.from.empty()) p.from = from;
        if (p.to.empty()) p.to = to;
        p.files.push_back(file);
        ++count;
    }
    std::vector<std::vector<std::string>> rows{{"FROM", "TO", "NUMBERS", "FILES"}};
    std::vector<std::vector<std::string>> body;
    for (const auto &[numbers, p] : pairs) {
        auto show = [](const std::string &name, unsigned int) {
            return name.empty() ? std::string("?") : name;
        };
        const bool known = registry_number(p.from) == numbers.first &&
                           registry_number(p.to) == numbers.second;
        std::string files;
        for (const std::string &f : p.files) files += (files.empty() ? "" : " ") + f;
        body.push_back({show(p.from, numbers.first), show(p.to, numbers.second),
                        number_text(numbers.first) + " > " + number_text(numbers.second) +
                            (known ? "" : " ?"),
                        files});
    }
    std::sort(body.begin(), body.end());
    rows.insert(rows.end(), body.begin(), body.end());
    print_table(out, rows);
    return count;
}

} // namespace

int run_locales(int argc, char **argv) {
    if (wants_help(argc, argv, kHelp)) return kOk;
    if (argc > 1) {
        if (argv[1][0] == '-') return usage_error("unknown option '%s'", argv[1]);
        return usage_error("unexpected argument '%s'", argv[1]);
    }
    const std::string root = data_root() + "/nus";
    const std::string locales = root + "/lc11", conversions = root + "/cv9";
    if (list_dir(locales).empty() && list_dir(conversions).empty())
        return report(kDataError, "no locales or conversions under %s", root.c_str());
    Output out;
    out.write("Locales in " + locales + ":\n");
    const std::size_t nl = list_locales(out, locales);
    out.write("\nConversions in " + conversions + ":\n");
    const std::size_t nc = list_conversions(out, conversions);
    out.write("\n" + std::to_string(nl) + " locale file" + (nl == 1 ? "" : "s") + ", " +
              std::to_string(nc) + " conversion file" + (nc == 1 ? "" : "s") + ".\n");
    return out.finish() ? kOk : kDataError;
}

} // namespace nus_cli
