// nus-localedef: compiles a POSIX locale definition against a charmap into a locale object
// file.
//
//   nus-localedef -i SOURCE -f CHARMAP [-c CODESET] [-o FILE.lco | --tree ROOT]
//                 [--registry FILE] [--names FILE] [--modifiers FILE] [--widths CHARMAP]
//                 [--calendar hebrew|islamic]
//
// SOURCE and CHARMAP are paths, or names looked up in /usr/share/i18n/locales and
// /usr/share/i18n/charmaps. CODESET is the registry name written into the file; by default it comes
// from the charmap names file (data/charmap-names), else it is the charmap's name in lower case,
// which the registry must know. The registry, the names file and the modifiers file default to
// the installed copies in share/nus beside an installed tool, else to the source tree's. With --tree the file goes to
// ROOT/nus/lc11/<language>_<territory>/<code-set number><modifier>.lco. A locale name has a
// two-letter language and territory and a modifier of at most four letters and digits; a
// longer modifier of a source (sr_RS@latin) is replaced by the short one the modifiers file
// (data/locale-modifiers) gives it, and a source that no locale name fits (ast_ES, eo) is
// compiled with -o to a file that the library loads by its file name.
//
// --calendar shows the locale's dates in the Hebrew or the Islamic calendar: the month and day
// names come from ICU's data for the source's language, the rest of LC_TIME from the source.
// With --tree the calendar is the locale name's modifier, shortened by the modifiers file
// (he_il.utf8@hebr, ar_sa.utf8@isla).
#include "tools/common/install_paths.h"
#include "tools/localedef/calendar.h"
#include "tools/localedef/compile.h"

#include "nus.h"

#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;
using namespace nus::tools;

namespace {

int usage() {
    std::fprintf(stderr, "usage: nus-localedef -i SOURCE -f CHARMAP [-c CODESET] "
                         "[-o FILE.lco | --tree ROOT] [--registry FILE] [--names FILE] "
                         "[--modifiers FILE] [--widths CHARMAP] [--calendar hebrew|islamic]\n");
    return 1;
}

int fail(const std::string &message) {
    std::fprintf(stderr, "%s\n", message.c_str());
    return 1;
}

std::string find_file(const std::string &name, const char *dir, const char *suffix) {
    if (fs::exists(name)) return name;
    for (const std::string &candidate : {std::string(dir) + name, std::string(dir) + name + suffix})
        if (fs::exists(candidate)) return candidate;
    return name;
}

bool is_alpha(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

// ll_TT: the language and territory a locale file name is made of.
bool names_language_and_territory(const std::string &name) {
    return name.size() == 5 && is_alpha(name[0]) && is_alpha(name[1]) && name[2] == '_' &&
           is_alpha(name[3]) && is_alpha(name[4]);
}

} // namespace

int main(int argc, char **argv) {
    std::string source_arg, charmap_arg, codeset, output, tree, calendar;
    std::string registry = default_input("registry", NUS_DEFAULT_REGISTRY);
    std::string names = default_input("charmap-names", NUS_DEFAULT_CHARMAP_NAMES);
    std::string modifiers = default_input("locale-modifiers", NUS_DEFAULT_LOCALE_MODIFIERS);
    std::string widths_arg = "/usr/share/i18n/charmaps/UTF-8.gz";
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&](std::string &to) {
            if (i + 1 >= argc) return false;
            to = argv[++i];
            return true;
        };
        bool ok = true;
        if (a == "-i") ok = next(source_arg);
        else if (a == "-f") ok = next(charmap_arg);
        else if (a == "-c") ok = next(codeset);
        else if (a == "-o") ok = next(output);
        else if (a == "--tree") ok = next(tree);
        else if (a == "--registry") ok = next(registry);
        else if (a == "--names") ok = next(names);
        else if (a == "--modifiers") ok = next(modifiers);
        else if (a == "--widths") ok = next(widths_arg);
        else if (a == "--calendar") ok = next(calendar);
        else return usage();
        if (!ok) return usage();
    }
    if (source_arg.empty() || charmap_arg.empty() || output.empty() == tree.empty()) return usage();
    const auto started = std::chrono::steady_clock::now();

    const std::string source_path = find_file(source_arg, "/usr/share/i18n/locales/", "");
    const std::string charmap_path = find_file(charmap_arg, "/usr/share/i18n/charmaps/", ".gz");
    Charmap charmap;
    if (auto error = read_charmap(charmap_path, charmap)) return fail(error->text());
    Charmap widths;
    if (auto error = read_charmap(widths_arg, widths)) return fail(error->text());
    SourceLocale source;
    if (auto error = read_locale_source(source_path, source)) return fail(error->text());

    CalendarNames calendar_names_of;
    if (!calendar.empty()) {
        if (auto error = calendar_names(calendar, fs::path(source_path).filename().string(),
                                        calendar_names_of))
            return fail(source_path + ":1: " + *error);
    }

    if (codeset.empty()) {
        if (auto error = registry_name_of_charmap(names, charmap.code_set_name, codeset))
            return fail(error->text());
    }
    if (codeset.empty()) {
        for (char c : charmap.code_set_name) codeset += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    int32_t error_slot = 0;
    const unsigned number = nu_cs_name2cs_num(&error_slot, codeset.c_str(), registry.c_str());
    if (number == 0xE000u)
        return fail(charmap_path + ":1: the registry " + registry + " does not know the code set \"" + codeset + "\" (give -c)");

    std::string renamed;   // the note that a long modifier was replaced
    if (!tree.empty()) {
        // The locale's name comes from the source file: language_territory[@modifier].
        const std::string source_name = fs::path(source_path).filename().string();
        std::string name = source_name, modifier;
        if (const size_t at = name.find('@'); at != std::string::npos) {
            modifier = name.substr(at + 1);
            name = name.substr(0, at);
        }
        if (!calendar.empty()) {
            if (!modifier.empty())
                return fail(source_path + ":1: the calendar would be the locale name's modifier, "
                            "which \"" + modifier + "\" already is; give -o FILE.lco");
            modifier = calendar;
        }
        const std::string use_o = "; give -o FILE.lco to compile it to a file of its own, which "
                                  "the library loads by that file name";
        if (!names_language_and_territory(name))
            return fail(source_path + ":1: \"" + name + "\" cannot name a locale file, whose names have a "
                        "two-letter language and territory (de_DE)" + use_o);
        if (modifier.size() > 4) {
            std::string short_form;
            if (auto error = name_from_list(modifiers, modifier, short_form)) return fail(error->text());
            if (short_form.empty())
                return fail(source_path + ":1: the modifier \"" + modifier + "\" has more than four characters "
                            "and " + modifiers + " gives it no short form" + use_o);
            renamed = source_name + ": the modifier \"" + modifier + "\" has more than four characters; the "
                      "locale is named " + name + "." + codeset + "@" + short_form + " (" + modifiers + ")";
            modifier = short_form;
        }
        const std::string spec = name + "." + codeset + (modifier.empty() ? "" : "@" + modifier);
        char file[256];
        if (nu_lc_spec2lc_fname(&error_slot, spec.c_str(), file, registry.c_str(), nullptr) != 0)
            return fail(source_path + ":1: no locale file name for \"" + spec + "\"" + use_o);
        output = (fs::path(tree) / "nus" / ("lc" + std::string(nu_lc_version())) / file).string();
    }
    std::error_code ignored;
    fs::create_directories(fs::path(output).parent_path(), ignored);
    const std::string temporary = output + ".part";
    FILE *out = std::fopen(temporary.c_str(), "w");
    if (out == nullptr) return fail(output + ":1: cannot write");
    CompileOptions options{codeset, fs::path(source_path).filename().string(), &widths,
                           calendar.empty() ? nullptr : &calendar_names_of};
    CompileReport report;
    const auto error = compile_locale(source, charmap, options, out, report);
    const bool written = std::fclose(out) == 0;
    if (error || !written) {
        fs::remove(temporary, ignored);
        return fail(source_path + ":1: " + (error ? *error : std::string("write error")));
    }
    fs::rename(temporary, output, ignored);
    if (ignored) {
        fs::remove(temporary, ignored);
        return fail(output + ":1: cannot write");
    }
    for (const std::string &w : report.warnings)
        std::fprintf(stderr, "%s: warning: %s\n", source_path.c_str(), w.c_str());
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
    std::printf("%s: %zu characters, %zu case pairs, %.0f ms\n", output.c_str(), report.characters,
                report.case_pairs, ms);
    if (!renamed.empty()) std::printf("%s\n", renamed.c_str());
    return 0;
}
