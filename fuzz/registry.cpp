// The registry file: lookups straight from the file and from the cache made of it agree, and
// the name and number readers stay inside their buffers.
#include "fuzz/fuzz.h"

#include <cctype>

namespace {

// The first word of each line, as the registry's names are written.
std::vector<std::string> names_in(const std::string &text) {
    std::vector<std::string> names;
    size_t i = 0;
    while (i < text.size() && names.size() < 8) {
        size_t end = text.find('\n', i);
        if (end == std::string::npos) end = text.size();
        size_t a = i;
        while (a < end && std::isspace(static_cast<unsigned char>(text[a]))) ++a;
        size_t b = a;
        while (b < end && std::isgraph(static_cast<unsigned char>(text[b]))) ++b;
        if (b > a) names.push_back(text.substr(a, b - a));
        i = end + 1;
    }
    return names;
}

// True when every line is blank, a comment, or a name of at most 21 characters, blanks and a
// number, and the text ends with a newline. Only then do the file and the cache agree: on a
// line without a number, a lookup straight from the file reads the next line's first word as
// the number and goes on from that line, while caching skips the whole of it.
bool well_formed(const std::string &text) {
    if (!text.empty() && text.back() != '\n') return false;
    size_t i = 0;
    while (i < text.size()) {
        const size_t end = text.find('\n', i);
        size_t a = i;
        while (a < end && std::isspace(static_cast<unsigned char>(text[a]))) ++a;
        if (a < end && text[a] != '#') {
            size_t b = a;
            while (b < end && std::isgraph(static_cast<unsigned char>(text[b]))) ++b;
            size_t c = b;
            while (c < end && (text[c] == ' ' || text[c] == '\t')) ++c;
            if (b - a > 21 || c == b || c == end || !std::isdigit(static_cast<unsigned char>(text[c])))
                return false;
        }
        i = end + 1;
    }
    return true;
}

bool in_list(const std::string &name, unsigned *number) {
    std::string lower;
    for (char c : name.substr(0, 21)) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const nu_registry_node *n = nus_registry_list_cache; n != nullptr; n = n->next) {
        if (lower == n->name) {
            *number = n->number;
            return true;
        }
    }
    return false;
}

} // namespace

NUS_FUZZ_TARGET(registry) {
    nus_fuzz::environment();
    const nu_locale_t handle = nus_fuzz::null_handle();
    nus_fuzz::Input in(data, size);
    const int buffer_size = in.range(1, 30);
    const std::string text = in.rest();
    const std::string path = nus_fuzz::write_scratch("registry", text);

    std::vector<std::string> names = names_in(text);
    for (const char *fixed : {"ascii", "819", "utf8", "70000"}) names.emplace_back(fixed);

    nu_free_registry_cache();
    std::vector<unsigned> direct;
    for (const std::string &name : names) {
        *_nu_ext_errno(handle) = 0;
        direct.push_back(nu_cs_name2cs_num(handle, name.c_str(), path.c_str()));
        NUS_FUZZ_CHECK(direct.back() <= 0xFFFF);
    }

    const bool regular = well_formed(text);
    const void *cache = nu_cache_registry(handle, path.c_str());
    if (cache == &nus_registry_list_cache) {
        for (size_t i = 0; i < names.size(); ++i) {
            const unsigned cached = nu_cs_name2cs_num(handle, names[i].c_str(), nullptr);
            unsigned listed;
            if (direct[i] != 0xE000 && regular) NUS_FUZZ_CHECK(cached == direct[i]);
            if (in_list(names[i], &listed)) {
                NUS_FUZZ_CHECK(cached == listed);
                if (regular) NUS_FUZZ_CHECK(direct[i] == listed);
            }
        }
    } else {
        NUS_FUZZ_CHECK(cache == nus_canned_registry);
        NUS_FUZZ_CHECK(nu_cs_name2cs_num(handle, "ascii", nullptr) == 364);
    }
    nu_free_registry_cache();

    // The readers on their own, with a name buffer of the fuzzed size.
    FILE *f = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    if (f == nullptr) return 0;
    nus_fuzz::Exact buffer(static_cast<size_t>(buffer_size));
    for (int entries = 0; entries < 64; ++entries) {
        if (_nu_next_cs_name_from_registry(f, buffer.chars(), buffer_size) == 0) break;
        NUS_FUZZ_CHECK(std::memchr(buffer.get(), 0, buffer.size()) != nullptr);
        if (_nu_next_cs_number_from_registry(handle, f) == 0xE000) break;
        int c;
        while ((c = std::fgetc(f)) != EOF && c != '\n') {
        }
        if (c == EOF) break;
    }
    std::fclose(f);
    return 0;
}
