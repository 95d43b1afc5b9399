// The code-set registry: the built-in table, the registry file reader, name-to-number lookup
// and the process-wide caches; also the category keywords and the calendar table.
//
// The registry file is opened with the standard fopen (the plain data-file search, or the
// caller's path), so it is read with the standard stdio functions throughout, not with the
// external-function dispatchers: the stream never comes from an installed fopen.
#include "names/names.h"

#include <algorithm>
#include <cstdlib>

#include <sys/stat.h>

// The built-in registry. Kept exactly as it has always been, quirks included: "csid933"
// lacks the "c" of its siblings, "ccsid28709" maps to 29709 while "tchhstexsbcs" maps to
// 28709, "8859-5" shares 915 with "cyrillic-8bit", "eucjp" (5050) and "ujis" (0xE007)
// differ, and "greek" stands twice.
// The exported data objects take their C linkage and visibility from nus.h.
const nu_registry_entry nus_canned_registry[] = {
    {"ascii", 364}, {"c", 819}, {"posix", 819}, {"unitedstates", 437}, {"cp437", 437},
    {"8859-1", 819}, {"latin-1", 819}, {"korhstextsbcs", 833}, {"ccsid833", 833},
    {"korhstdbcs", 834}, {"ccsid834", 834}, {"tchhstdbcs", 835}, {"ccsid835", 835},
    {"schhstextsbcs", 836}, {"ccsid836", 836}, {"schhstdbcs", 837}, {"ccsid837", 837},
    {"pc-latin-1", 850}, {"pc-latin-2", 852}, {"pc-data-hebrew", 856}, {"pc-hebrew-saa", 856},
    {"pc-cyrillic", 866}, {"cis-1", 866}, {"pc866", 866}, {"8859-2", 912}, {"latin-2", 912},
    {"cyrillic-8bit", 915}, {"ccsid932", 932}, {"sjis-s", 932}, {"pc-sjis", 932},
    {"korhstmxexsbcs", 933}, {"csid933", 933}, {"schmxexsbcs", 935}, {"ccsid935", 935},
    {"tchhstmxexsbcs", 937}, {"ccsid937", 937}, {"tchhstexsbcs", 28709}, {"ccsid28709", 29709},
    {"8859-3", 0xE002}, {"latin-3", 0xE002}, {"8859-4", 0xE003}, {"latin-4", 0xE003},
    {"8859-5", 915}, {"latin-cyrillic", 915}, {"8859-6", 1089}, {"latin-arabic", 1089},
    {"8859-7", 813}, {"latin-greek", 813}, {"8859-8", 916}, {"latin-hebrew", 916}, {"8859-9", 920},
    {"latin-5", 920}, {"iso-7-german", 1011}, {"646de", 1011}, {"iso-7-danish", 1017},
    {"pc1046", 1046}, {"arabic-pc", 1046}, {"unicode", 0xE005}, {"east-europe", 1250},
    {"cp1250", 1250}, {"pc-slavic", 1251}, {"cp1251", 1251}, {"west-europe", 1252},
    {"cp1252", 1252}, {"pc-greek", 1253}, {"cp1253", 1253}, {"pc-latin5", 1254}, {"cp1254", 1254},
    {"pc-turkish", 1254}, {"pc-hebrew", 1255}, {"cp1255", 1255}, {"pc-arabic", 1256},
    {"cp1256", 1256}, {"sjis", 0xE006}, {"shift-jis", 0xE006}, {"ujis", 0xE007}, {"eucjp", 5050},
    {"big5", 0xE008}, {"big-5", 0xE008}, {"sbig5", 0xE009}, {"shift-big-5", 0xE009},
    {"ccdc", 0xE00A}, {"cccii", 0xE00B}, {"greek", 737}, {"greek", 737}, {"ksc", 0xE00C},
    {"ks5601", 0xE00C}, {"cp949", 0xE00C}, {"gb", 0xE00D}, {"gb2312-80", 0xE00D}, {"ebcdic", 37},
    {"ebcdic-us", 37}, {"chngcase", 0xE00E}, {"banga", 0xE00F}, {"shift1", 0xE010},
    {"rot13", 0xE011}, {"swap0to9", 0xE012}, {"pcwin", 0xE013}, {"qacvtest", 0xE015},
    {"swap09-nl", 0xE016}, {"qa-unix-client", 0xE017}, {"qa-unix-server", 0xE018},
    {"qa-win-client", 0xE019}, {"guobiao2312", 0xE00D}, {"mik", 0xE01A}, {"utf8", 0xE01C},
    {"thai", 0xE01D}, {"thai620", 0xE01D}, {"sopstw", 0xE01E}, {"euctw", 0xE01F}, {"cns", 0xE01F},
    {"cns-extended", 0xE022}, {"eucxtw", 0xE022}, {"tst", 0xE020}, {"qa-win-950", 0xE021},
    {"qa-win-932", 0xE023}, {"koi-8", 0xE026}, {"csk", 0xE027}, {"mazovia", 0xE028},
    {"maz", 0xE028}, {"roman8", 0xE029}, {"qa-win-unicode", 0xE02A}, {"qa-unix-big5", 0xE02B},
    {nullptr, 0},
};

namespace {

// A wide copy of a narrow literal, made at compile time.
template <size_t N>
struct WideText {
    nu_wchar text[N];
    constexpr explicit WideText(const char (&narrow)[N]) : text{} {
        for (size_t i = 0; i < N; ++i) text[i] = static_cast<unsigned char>(narrow[i]);
    }
};

// The names keep their final newline in both forms.
constexpr WideText kGregorian("gregorian\n");
constexpr WideText kHebrew("hebrew\n");
constexpr WideText kIslamic("islamic\n");
constexpr WideText kArabic("arabic\n");

} // namespace

const nu_calendar_entry nus_canned_calendars[] = {
    {"gregorian\n", kGregorian.text, 1},
    {"hebrew\n", kHebrew.text, 2},
    {"islamic\n", kIslamic.text, 3},
    {"arabic\n", kArabic.text, 4},
    {nullptr, nullptr, 0},
};

nu_registry_node *nus_registry_list_cache = nullptr;
const nu_registry_entry *nus_registry_array_cache = nullptr;

namespace nus::names {
RegistryMemory registry_memory = {&std::malloc, &std::free};
} // namespace nus::names

namespace {

using nus::names::c_isgraph;
using nus::names::c_tolower;
using nus::names::kNameSize;
using nus::names::kUnknownCodeset;

// The longest registry line the reader goes through: a line without end (a device such as
// /dev/zero named as the registry) is damage, not a registry.
constexpr long kMaxLineLength = 64 * 1024;

enum class LineEnd { newline, end_of_file, overlong };

// Characters of the registry file one at a time, as the exported readers take them.
struct StreamChars {
    FILE *stream;
    int get() { return std::fgetc(stream); }
    void unget(int c) {
        if (c != EOF) std::ungetc(c, stream);
    }
};

// The same characters read in blocks: the lookups that read the whole file from a stream
// of their own go through it, a call per block instead of one per character. The stream is
// left unbuffered, so that a block is one read of the file, with no copy in between.
class BlockChars {
public:
    explicit BlockChars(FILE *stream) : stream_(stream) { std::setvbuf(stream, nullptr, _IONBF, 0); }
    int get() {
        if (pos_ < len_ || more()) return static_cast<unsigned char>(buffer_[pos_++]);
        return EOF;
    }
    void unget(int c) {
        if (c != EOF && pos_ > 0) --pos_;
    }
    // Reads up to and including a newline, which may come after at most `limit` other
    // characters.
    LineEnd skip_line(long limit) {
        long n = 0;
        while (pos_ < len_ || more()) {
            const size_t room = static_cast<size_t>(limit + 1 - n);
            const size_t have = std::min(len_ - pos_, room);
            const void *newline = std::memchr(buffer_ + pos_, '\n', have);
            if (newline != nullptr) {
                pos_ = static_cast<size_t>(static_cast<const char *>(newline) - buffer_) + 1;
                return LineEnd::newline;
            }
            pos_ += have;
            n += static_cast<long>(have);
            if (n > limit) return LineEnd::overlong;
        }
        return LineEnd::end_of_file;
    }

    // Passes over the next line when it lies whole in the block and names a code set other
    // than `work` (lower case): what reading its name and skipping the line would do. False,
    // with nothing read, for any other line.
    bool pass_other_line(const char *work) {
        const char *p = buffer_ + pos_;
        const char *const end = buffer_ + len_;
        const void *found = std::memchr(p, '\n', static_cast<size_t>(end - p));
        if (found == nullptr) return false;
        const char *const newline = static_cast<const char *>(found);
        while (p < newline && nus::c_isspace(static_cast<unsigned char>(*p))) ++p;
        if (p == newline || *p == '#') return false;
        const char *name = p;
        const char *w = work;
        bool same = true;
        for (; p < newline && c_isgraph(static_cast<unsigned char>(*p)); ++p, ++w) {
            same = same && *w != '\0' && c_tolower(static_cast<unsigned char>(*p)) == *w;
        }
        if (p - name >= kNameSize - 1 || (same && *w == '\0')) return false;
        pos_ = static_cast<size_t>(newline + 1 - buffer_);
        return true;
    }

private:
    // Reads the next block; false at the end of the file.
    bool more() {
        if (ended_) return false;
        // The last character stays in front, so that a character read can be pushed back.
        if (len_ > 0) {
            buffer_[0] = buffer_[len_ - 1];
            pos_ = len_ = 1;
        }
        const size_t n = std::fread(buffer_ + len_, 1, sizeof buffer_ - len_, stream_);
        if (n == 0) {
            ended_ = true;
            return false;
        }
        len_ += n;
        return true;
    }

    FILE *stream_;
    size_t pos_ = 0;
    size_t len_ = 0;
    bool ended_ = false;
    char buffer_[8192];
};

// Skips white space and returns the next character, pushed back.
template <typename Chars>
int skip_space(Chars &in) {
    int c;
    while (nus::c_isspace(c = in.get())) {
    }
    in.unget(c);
    return c;
}

// Reads up to and including a newline.
LineEnd skip_line_checked(StreamChars &in) {
    int c;
    for (long n = 0; (c = in.get()) != EOF; ++n) {
        if (c == '\n') return LineEnd::newline;
        if (n >= kMaxLineLength) return LineEnd::overlong;
    }
    return LineEnd::end_of_file;
}
LineEnd skip_line_checked(BlockChars &in) { return in.skip_line(kMaxLineLength); }

// Reads up to and including a newline; false when the end of the file (or of the longest
// line) comes first.
template <typename Chars>
bool skip_line(Chars &in) { return skip_line_checked(in) == LineEnd::newline; }

// The next code-set name, lower-cased, after white space and comment lines; 0 at the end, or
// when the name does not fit or ends the file.
template <typename Chars>
int next_name(Chars &in, char *buffer, int size) {
    int c = skip_space(in);
    while (c == '#') {
        if (!skip_line(in)) return 0;   // a comment running to the end of the file
        c = skip_space(in);
    }
    if (c == EOF) return 0;
    int length = 0;
    while (c_isgraph(c = in.get())) {
        if (length == size - 1) return 0;   // no room for the terminating zero
        buffer[length++] = static_cast<char>(c_tolower(c));
    }
    buffer[length] = '\0';
    if (c == EOF) return 0;                 // a name must not end the file
    in.unget(c);
    return 1;
}

// The number after a name, or the unknown code set with error 11.
template <typename Chars>
unsigned next_number(void *handle, Chars &in) {
    skip_space(in);
    int c = in.get();
    if (!nus::c_isdigit(c)) {
        in.unget(c);
        nus::set_error_if(handle, NU_EBADFILE);
        return kUnknownCodeset;
    }
    uint16_t number = 0;
    do {
        number = static_cast<uint16_t>(number * 10 + (c - '0'));   // wraps at 16 bits
    } while (nus::c_isdigit(c = in.get()));
    if (c == EOF) {
        nus::set_error_if(handle, NU_EBADFILE);
        return kUnknownCodeset;
    }
    in.unget(c);
    return number;
}

// The registry file: the caller's path when it is not empty, else the data-file search. A
// directory opens for reading but cannot be read: it counts as a file that cannot be opened.
FILE *open_registry(void *handle, const char *path) {
    FILE *stream = path != nullptr && path[0] != '\0'
                       ? std::fopen(path, "r")
                       : nu_path_search_no_ext(handle, "registry", "cm", "3");
    struct stat st;
    if (stream != nullptr && fstat(fileno(stream), &st) == 0 && S_ISDIR(st.st_mode)) {
        std::fclose(stream);
        return nullptr;
    }
    return stream;
}

void free_list(nu_registry_node *node) {
    while (node != nullptr) {
        nu_registry_node *next = node->next;
        nus::names::registry_memory.release(node->name);
        nus::names::registry_memory.release(node);
        node = next;
    }
}

// Lower-cases at most kNameSize - 1 characters of `name` into `work`.
void lower_name(const char *name, char (&work)[kNameSize]) {
    int i = 0;
    for (; i < kNameSize - 1 && name[i] != '\0'; ++i)
        work[i] = static_cast<char>(c_tolower(static_cast<unsigned char>(name[i])));
    work[i] = '\0';
}

// The value of an all-digits text when it is below 0x10000.
bool small_number(const char *text, unsigned *value) {
    if (_nu_all_decimal_digits(text) == 0) return false;
    unsigned long v = 0;
    for (const char *p = text; *p != '\0'; ++p) {
        v = v * 10 + static_cast<unsigned>(*p - '0');
        if (v >= 0x10000) return false;
    }
    *value = static_cast<unsigned>(v);
    return true;
}

enum class FileLookup { found, absent, failed };

// Searches the registry file for `work`. On `found` the number (possibly unknown, with error
// 11 set) is in *number; `failed` means the error code is already dealt with.
FileLookup search_file(void *handle, const char *work, const char *path, unsigned *number) {
    FILE *stream = open_registry(handle, path);
    if (stream == nullptr) {
        if (handle != nullptr && *_nu_ext_errno(handle) != NU_ENOMEM)
            nus::set_error(handle, NU_EBADFMT);
        return FileLookup::failed;
    }
    char name[kNameSize];
    BlockChars in(stream);
    for (;;) {
        if (in.pass_other_line(work)) continue;
        if (next_name(in, name, kNameSize) == 0) break;
        if (std::strcmp(name, work) == 0) {
            *number = next_number(handle, in);
            std::fclose(stream);
            return FileLookup::found;
        }
        if (!skip_line(in)) {
            // A last line without its newline.
            std::fclose(stream);
            nus::set_error_if(handle, NU_EBADFILE);
            return FileLookup::failed;
        }
    }
    std::fclose(stream);
    return FileLookup::absent;
}

bool search_list(const nu_registry_node *node, const char *work, unsigned *number) {
    for (; node != nullptr; node = node->next) {
        if (std::strcmp(node->name, work) == 0) {
            *number = node->number;
            return true;
        }
    }
    return false;
}

bool search_table(const nu_registry_entry *table, const char *work, unsigned *number) {
    for (; table != nullptr && table->name != nullptr; ++table) {
        if (std::strcmp(table->name, work) == 0) {
            *number = table->number;
            return true;
        }
    }
    return false;
}

// Installs the built-in table after a failed caching, with the failure's code.
const void *install_canned(void *handle, int code) {
    nus::set_error_if(handle, code);
    nus_registry_list_cache = nullptr;
    nus_registry_array_cache = nus_canned_registry;
    return nus_canned_registry;
}

} // namespace

NU_EXPORT int _nu_next_cs_name_from_registry(FILE *stream, char *buffer, int size) {
    if (stream == nullptr || buffer == nullptr || size <= 0) return 0;
    StreamChars in{stream};
    return next_name(in, buffer, size);
}

NU_EXPORT unsigned int _nu_next_cs_number_from_registry(void *handle, FILE *stream) {
    if (stream == nullptr) {
        nus::set_error_if(handle, NU_EBADFILE);
        return kUnknownCodeset;
    }
    StreamChars in{stream};
    return next_number(handle, in);
}

NU_EXPORT unsigned int nu_cs_name2cs_num(void *handle, const char *name, const char *registry) {
    if (name == nullptr) {
        nus::set_error_if(handle, NU_EINVAL);
        return kUnknownCodeset;
    }
    char work[kNameSize];
    lower_name(name, work);
    unsigned number = kUnknownCodeset;
    if (nus_registry_list_cache != nullptr) {
        if (search_list(nus_registry_list_cache, work, &number)) return number;
    } else if (nus_registry_array_cache != nullptr) {
        if (search_table(nus_registry_array_cache, work, &number)) return number;
    } else {
        switch (search_file(handle, work, registry, &number)) {
        case FileLookup::found: return number;
        case FileLookup::failed: return kUnknownCodeset;
        case FileLookup::absent: break;
        }
    }
    if (small_number(work, &number)) return number;   // a code set named by its number
    nus::set_error_if(handle, NU_EINVAL);
    return kUnknownCodeset;
}

NU_EXPORT const void *nu_cache_registry(void *handle, const char *registry) {
    free_list(nus_registry_list_cache);
    nus_registry_list_cache = nullptr;
    nus_registry_array_cache = nullptr;

    FILE *stream = open_registry(handle, registry);
    if (stream == nullptr) return install_canned(handle, NU_EBADFMT);

    nu_registry_node *head = nullptr;
    nu_registry_node **tail = &head;
    char name[kNameSize];
    BlockChars in(stream);
    while (next_name(in, name, kNameSize) != 0) {
        const nus::names::RegistryMemory &memory = nus::names::registry_memory;
        auto *node = static_cast<nu_registry_node *>(memory.alloc(sizeof(nu_registry_node)));
        char *copy = node != nullptr ? static_cast<char *>(memory.alloc(kNameSize)) : nullptr;
        if (copy == nullptr) {
            if (node != nullptr) memory.release(node);
            std::fclose(stream);
            free_list(head);
            return install_canned(handle, NU_ENOMEM);
        }
        std::memcpy(copy, name, std::strlen(name) + 1);
        node->name = copy;
        node->next = nullptr;
        node->number = next_number(handle, in);
        if (node->number == kUnknownCodeset) {
            std::fclose(stream);
            free_list(node);
            free_list(head);
            return install_canned(handle, NU_EBADFILE);
        }
        *tail = node;
        tail = &node->next;
        const LineEnd end = skip_line_checked(in);
        if (end == LineEnd::overlong) {
            std::fclose(stream);
            free_list(head);
            return install_canned(handle, NU_EBADFILE);
        }
        if (end == LineEnd::end_of_file) break;   // the last line may lack its newline here
    }
    std::fclose(stream);
    nus_registry_list_cache = head;
    return &nus_registry_list_cache;
}

NU_EXPORT const nu_registry_entry **nu_free_registry_cache(void) {
    free_list(nus_registry_list_cache);
    nus_registry_list_cache = nullptr;
    nus_registry_array_cache = nullptr;
    return &nus_registry_array_cache;
}

namespace {

struct Keyword {
    const char *text;
    int length;
};

// In the order of their numbers, 1 to 6.
constexpr Keyword kKeywords[] = {
    {"NU_CTYPE", 8},    {"NU_COLLATE", 10},  {"NU_TIME", 7},
    {"NU_MONETARY", 11}, {"NU_NUMERIC", 10}, {"NU_MESSAGES", 11},
};

} // namespace

NU_EXPORT int _nu_is_category(const char *text, int *length) {
    if (text == nullptr) return 0;
    for (int i = 0; i < 6; ++i) {
        const Keyword &k = kKeywords[i];
        if (std::strncmp(text, k.text, static_cast<size_t>(k.length)) == 0) {
            if (length != nullptr) *length = k.length;
            return i + 1;
        }
    }
    return 0;
}

NU_EXPORT int _nu_all_decimal_digits(const char *text) {
    if (text == nullptr || text[0] == '\0') return 0;
    for (; *text != '\0'; ++text) {
        if (!nus::c_isdigit(static_cast<unsigned char>(*text))) return 0;
    }
    return 1;
}

// "c" and "posix" name locales rather than code sets: a code set's name is never one of them.
static bool names_a_locale(const char *name) {
    return std::strcmp(name, "c") == 0 || std::strcmp(name, "posix") == 0;
}

NU_EXPORT int nu_cs_num2cs_name(void *handle, unsigned int number, char *out,
                                const char *registry) {
    if (out == nullptr || number >= 0x10000 || number == kUnknownCodeset) {
        nus::set_error_if(handle, NU_EINVAL);
        return -1;
    }
    auto found = [&](const char *name) {
        std::memcpy(out, name, std::strlen(name) + 1);
        return 0;
    };
    if (nus_registry_list_cache != nullptr) {
        for (const nu_registry_node *n = nus_registry_list_cache; n != nullptr; n = n->next)
            if (n->number == number && !names_a_locale(n->name)) return found(n->name);
    } else if (nus_registry_array_cache != nullptr) {
        for (const nu_registry_entry *e = nus_registry_array_cache; e->name != nullptr; ++e)
            if (e->number == number && !names_a_locale(e->name)) return found(e->name);
    } else {
        FILE *stream = open_registry(handle, registry);
        if (stream == nullptr) {
            if (handle != nullptr && *_nu_ext_errno(handle) != NU_ENOMEM)
                nus::set_error(handle, NU_EBADFMT);
            return -1;
        }
        char name[kNameSize];
        bool damaged = false;
        BlockChars in(stream);
        while (next_name(in, name, kNameSize) != 0) {
            const unsigned n = next_number(handle, in);
            if (n == kUnknownCodeset) {
                damaged = true;   // NU_EBADFILE stored
                break;
            }
            if (n == number && !names_a_locale(name)) {
                std::fclose(stream);
                return found(name);
            }
            if (!skip_line(in)) break;
        }
        std::fclose(stream);
        if (damaged) return -1;
    }
    nus::set_error_if(handle, NU_EINVAL);
    return -1;
}
