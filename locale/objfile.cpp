// The locale object file: its header, the section markers, and the reading of a whole file
// or of one category's section into a handle.
#include "collate/collate.h"
#include "locale/locale.h"
#include "time/category.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr const char kFileType[] = "FILE_TYPE=locale_object";
constexpr const char kVersionKey[] = "COMPILER_VERSION=";
constexpr int kCodesetFieldSize = 21;  // at most 20 characters, the newline included

// Marker lines, indexed by category number.
constexpr const char *category_markers[] = {
    nullptr, nullptr, "### LC_CTYPE\n", "### LC_COLLATE\n", "### LC_NUMERIC\n",
    "### LC_MONETARY\n", "### LC_TIME\n", "### LC_MESSAGES\n"};



// Reads lines until one is exactly the category's marker, newline included. Only a chunk that
// starts a line can be a marker, so a marker text at the end of a longer line does not count;
// the chunks are large because the sections passed over can be long (a UTF-8 CTYPE table).
bool find_marker(FILE *stream, int category) {
    const char *marker = category_markers[category];
    char chunk[4096];
    bool at_line_start = true;
    while (nus::stream_gets(chunk, sizeof chunk, stream) != nullptr) {
        const size_t length = std::strlen(chunk);
        if (at_line_start && std::strcmp(chunk, marker) == 0) return true;
        at_line_start = length > 0 && chunk[length - 1] == '\n';
    }
    return false;
}

// How a section is read, and what is said when that fails.
struct Section {
    int (*read)(FILE *stream, nu_locale_rec *h, int *error);  // 0 on success
    int (*init)(nu_locale_rec *h);                             // null: nothing to initialise
    const char *read_failed;
    const char *init_failed;
};

int read_numeric_section(FILE *stream, nu_locale_rec *h, int *error) {
    return _nu_read_numeric(stream, h, error) == 0 ? 0 : 1;
}
int read_monetary_section(FILE *stream, nu_locale_rec *h, int *error) {
    return _nu_read_monetary(stream, h, error) == 0 ? 0 : 1;
}
int read_messages_section(FILE *stream, nu_locale_rec *h, int *error) {
    return _nu_read_messages(stream, h, error) == 0 ? 0 : 1;
}

// The CTYPE reader sets the handle's error itself.
int read_ctype_section(FILE *stream, nu_locale_rec *h, int *error) {
    const int result = nus::read_ctype(stream, h);
    *error = h->error;
    return result;
}
// The COLLATE reader sets the handle's error itself; an unknown method line stores none.
int read_collate_section(FILE *stream, nu_locale_rec *h, int *error) {
    const int result = nus::read_collate(stream, h);
    *error = h->error;
    return result != 0 ? 1 : 0;
}
int read_time_section(FILE *stream, nu_locale_rec *h, int *error) {
    return _nu_read_time(stream, h, error) == 0 ? 0 : 1;
}

const Section &section(int category) {
    static const Section sections[] = {
        {read_ctype_section, nullptr, nullptr, nullptr},
        {read_collate_section, nullptr, nullptr, nullptr},
        {read_numeric_section, nus::init_numeric_info, "Failed to read numeric information\n",
         "Failed to initialize numeric information\n"},
        {read_monetary_section, nus::init_monetary_info,
         "Failed to read monetary information\n", "Failed to initialize monetary information\n"},
        {read_time_section, nus::init_time_info, "Failed to read time information\n",
         "Failed to initialize time information\n"},
        {read_messages_section, nus::init_message_info, "Failed to read messages information\n",
         "Failed to initialize messages information\n"},
    };
    return sections[nus::cat_index(category)];
}

// Reads one category's section from the current position; 0 on success, 1 on failure.
int read_section(FILE *stream, nu_locale_rec *h, int category, bool single) {
    const Section &s = section(category);
    int error = 0;
    if (s.read(stream, h, &error) != 0) {
        if (s.read_failed != nullptr) {
            nus::set_error(h, error);
            // Kept for compatibility: a single MESSAGES category that fails to read reports
            // the initialisation text.
            nu_message(single && category == NU_MESSAGES ? s.init_failed : s.read_failed);
        }
        return 1;
    }
    if (s.init != nullptr && s.init(h) < 1) {
        nu_message(s.init_failed);
        return 1;
    }
    return 0;
}

} // namespace

namespace nus {
// The code sets of `category` and CTYPE must have one number; the lookups use their own
// error slot, not the handle's.
bool same_codeset_as_ctype(nu_locale_rec *h, int category) {
    if (std::strcmp(h->codeset[nus::cat_index(category)], h->codeset[0]) == 0) return true;
    int32_t scratch = 0;
    const unsigned int mine = nu_cs_name2cs_num(&scratch, h->codeset[nus::cat_index(category)],
                                                nullptr);
    scratch = 0;
    const unsigned int ctype = nu_cs_name2cs_num(&scratch, h->codeset[0], nullptr);
    return mine == ctype;
}
} // namespace nus

namespace {
bool verify_codesets(nu_locale_rec *h, int category) {
    return nus::same_codeset_as_ctype(h, category);
}
} // namespace

namespace nus {

int read_file_header(FILE *stream, char *codeset_out, int *error) {
    char line[kHeaderLineSize];
    *error = 0;
    if (!header_line(stream, line) || std::strcmp(line, kFileType) != 0) {
        *error = NU_EBADFILE;
        return 0;
    }
    char version[sizeof kVersionKey + 8];
    std::snprintf(version, sizeof version, "%s%s", kVersionKey, nu_lc_version());
    if (!header_line(stream, line) || std::strcmp(line, version) != 0) {
        *error = NU_EVERSION;
        return 0;
    }
    const char *equals = nullptr;
    if (!header_line(stream, line) || (equals = std::strchr(line, '=')) == nullptr) {
        *error = NU_EBADFILE;
        return 0;
    }
    long lines = std::strtol(equals + 1, nullptr, 10);
    for (long i = 3; i < lines; ++i) {
        if (!skip_line(stream)) {
            *error = NU_EBADFILE;
            return 0;
        }
    }
    _nu_skip_whitespace(stream);
    char name[kCodesetFieldSize];
    if (stream_gets(name, sizeof name, stream) == nullptr) {
        *error = NU_EBADFILE;
        return 0;
    }
    // The last character read is taken for the newline: a 20-character name loses its last
    // character, which is why names are kept to 19 characters.
    const size_t length = std::strlen(name);
    if (length > 0) name[length - 1] = '\0';
    std::memcpy(codeset_out, name, std::strlen(name) + 1);
    return 1;
}

int read_locale_file(FILE *stream, nu_locale_rec *h) {
    const BlockInput block(stream);
    char codeset[kCodesetFieldSize];
    int error = 0;
    if (!read_file_header(stream, codeset, &error)) {
        set_error(h, error != 0 ? error : NU_EBADFILE);
        return 1;
    }
    for (auto &name : h->codeset) std::memcpy(name, codeset, sizeof codeset);
    for (int category = NU_CTYPE; category <= NU_MESSAGES; ++category) {
        if (!find_marker(stream, category)) {
            set_error(h, NU_EBADFILE);
            return 1;
        }
        if (read_section(stream, h, category, false) != 0) return 1;
    }
    return 0;
}

int read_one_category(nu_locale_rec *h, int category, FILE *stream, SectionResume *resume,
                      const char *name) {
    const BlockInput block(stream);
    const bool known = category >= NU_CTYPE && category <= NU_MESSAGES;
    char scratch[kCodesetFieldSize];
    char *codeset = known ? h->codeset[cat_index(category)] : scratch;
    int error = 0;
    if (!read_file_header(stream, codeset, &error)) {
        set_error(h, error != 0 ? error : NU_EBADFILE);
        return 1;
    }
    if (!known) return 0;
    if (!verify_codesets(h, category)) {
        set_error(h, NU_ECATCODESET);
        return 1;
    }
    // Sections come in category order: start after the last earlier section of this file
    // that this load has read, if the marker follows there; else search from the header on.
    const bool same_file = resume != nullptr && name != nullptr &&
                           std::strncmp(resume->name, name, sizeof resume->name) == 0;
    long start = 0;
    if (same_file)
        for (int c = NU_CTYPE; c < category; ++c) start = std::max(start, resume->after[cat_index(c)]);
    const long header_end = start > 0 ? stream_tell(stream) : 0;
    bool found = start > 0 && stream_seek(stream, start) == 0 && find_marker(stream, category);
    if (!found && start > 0) found = stream_seek(stream, header_end) == 0 && find_marker(stream, category);
    if (!found && start == 0) found = find_marker(stream, category);
    if (!found) {
        set_error(h, NU_EBADFILE);
        return 1;
    }
    const int result = read_section(stream, h, category, true);
    if (result == 0 && resume != nullptr && name != nullptr && std::strlen(name) < sizeof resume->name) {
        if (!same_file) {
            std::memset(resume, 0, sizeof *resume);
            std::memcpy(resume->name, name, std::strlen(name) + 1);
        }
        const long end = stream_tell(stream);
        resume->after[cat_index(category)] = end > 0 ? end : 0;
    }
    return result;
}

} // namespace nus
