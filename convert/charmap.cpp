// Character maps: the symbolic names of a code set's characters, read from a character map
// object file (".cmo"), and the conversions of text to symbols ("<U00C4><U0042>") and back.
//
// The file, after its header, holds one line "MIN MAX COUNT POOL" (the shortest and longest
// character in bytes, the number of characters, the bytes of all symbols with one terminator
// each) and then COUNT lines "HEX SYMBOL": the character's bytes as two hexadecimal digits
// each, a blank, its symbol. The characters stand in increasing byte order, each once, so
// that the map is searched by bytes as it is read; a second index orders it by symbol.
#include "frame/frame.h"

#include <algorithm>

struct nu_cm_rec {
    int32_t min_length;      // the shortest character: the terminator's length
    int32_t max_length;
    uint32_t count;
    uint32_t unused;
    struct Entry {
        uint8_t bytes[4];
        uint8_t length;
        uint8_t symbol_length;
        uint16_t unused;
        uint32_t symbol;     // offset into the pool
    } *entries;              // by bytes
    uint32_t *by_symbol;     // entry numbers by symbol
    char *pool;              // the symbols, each with its terminator
};

namespace {

using nus::set_error;
using Entry = nu_cm_rec::Entry;

constexpr const char kFileType[] = "FILE_TYPE=character_map_object";
constexpr const char kVersionKey[] = "COMPILER_VERSION=";
constexpr const char kHeaderLengthKey[] = "HEADER_LENGTH=";
constexpr long kMaxHeaderLines = 1000;
constexpr long kMaxCount = 1L << 21;           // more characters than any code set has
constexpr int kMaxSymbol = NU_CM_SYMBOL_MAX;    // characters of one symbol

bool is_symbol_char(int c) { return c > ' ' && c < 0x7F && c != '<' && c != '>'; }

// The header: its type, this library's version of the format, its length. NU_EVERSION for
// another version, NU_EBADFILE for anything else.
int read_header(FILE *stream) {
    char line[nus::kHeaderLineSize];
    if (!nus::header_line(stream, line) || std::strcmp(line, kFileType) != 0) return NU_EBADFILE;
    if (!nus::header_line(stream, line) ||
        std::strncmp(line, kVersionKey, sizeof kVersionKey - 1) != 0)
        return NU_EBADFILE;
    if (std::strcmp(line + sizeof kVersionKey - 1, nu_cm_version()) != 0) return NU_EVERSION;
    if (!nus::header_line(stream, line) ||
        std::strncmp(line, kHeaderLengthKey, sizeof kHeaderLengthKey - 1) != 0)
        return NU_EBADFILE;
    long lines = 0;
    const char *digits = line + sizeof kHeaderLengthKey - 1;
    if (!nus::c_isdigit(static_cast<unsigned char>(*digits))) return NU_EBADFILE;
    for (; nus::c_isdigit(static_cast<unsigned char>(*digits)); ++digits)
        if ((lines = lines * 10 + (*digits - '0')) > kMaxHeaderLines) return NU_EBADFILE;
    if (*digits != '\0' || lines < 3) return NU_EBADFILE;
    for (long i = 4; i <= lines; ++i)
        if (!nus::skip_line(stream)) return NU_EBADFILE;
    return 0;
}

int compare_bytes(const uint8_t *a, int an, const uint8_t *b, int bn) {
    const int c = std::memcmp(a, b, static_cast<size_t>(std::min(an, bn)));
    return c != 0 ? c : an - bn;
}

// One "HEX SYMBOL" line into e and the pool at *used (room bytes in all).
bool read_entry(FILE *stream, Entry &e, char *pool, uint32_t room, uint32_t *used) {
    int c;
    e.length = 0;
    while ((c = _nu_ext_fgetc(stream)) != EOF && nus::c_hexvalue(c) >= 0) {
        const int low = nus::c_hexvalue(_nu_ext_fgetc(stream));
        if (low < 0 || e.length == 4) return false;
        e.bytes[e.length++] = static_cast<uint8_t>(nus::c_hexvalue(c) * 16 + low);
    }
    if (e.length == 0 || (c != ' ' && c != '\t')) return false;
    e.symbol = *used;
    int n = 0;
    while (is_symbol_char(c = _nu_ext_fgetc(stream))) {
        if (n == kMaxSymbol || *used + 1 >= room) return false;
        pool[(*used)++] = static_cast<char>(c);
        ++n;
    }
    if (n == 0 || c != '\n') return false;
    pool[(*used)++] = '\0';
    e.symbol_length = static_cast<uint8_t>(n);
    return true;
}

// The counts line and the entries: 0, NU_EBADFILE for anything malformed, or NU_ENOMEM.
int read_body(FILE *stream, nu_cm_rec *cm) {
    long min = 0, max = 0, count = 0, pool = 0;
    if (!nus::read_decimal(stream, &min) || !nus::read_decimal(stream, &max) ||
        !nus::read_decimal(stream, &count) || !nus::read_decimal(stream, &pool) ||
        !nus::skip_line(stream))
        return NU_EBADFILE;
    if (min < 1 || max < min || max > 4 || count < 1 || count > kMaxCount || pool < 2 * count ||
        pool > (kMaxSymbol + 1) * count)
        return NU_EBADFILE;
    cm->min_length = static_cast<int32_t>(min);
    cm->max_length = static_cast<int32_t>(max);
    cm->entries = nus::alloc_array<Entry>(static_cast<size_t>(count));
    cm->by_symbol = nus::alloc_array<uint32_t>(static_cast<size_t>(count));
    cm->pool = nus::alloc_array<char>(static_cast<size_t>(pool));
    if (cm->entries == nullptr || cm->by_symbol == nullptr || cm->pool == nullptr)
        return NU_ENOMEM;
    uint32_t used = 0;
    for (long i = 0; i < count; ++i) {
        Entry &e = cm->entries[i];
        if (!read_entry(stream, e, cm->pool, static_cast<uint32_t>(pool), &used) ||
            e.length < min || e.length > max)
            return NU_EBADFILE;
        // Increasing byte order, each character once.
        if (i > 0) {
            const Entry &p = cm->entries[i - 1];
            if (compare_bytes(p.bytes, p.length, e.bytes, e.length) >= 0) return NU_EBADFILE;
        }
        cm->by_symbol[i] = static_cast<uint32_t>(i);
        cm->count = static_cast<uint32_t>(i + 1);
    }
    const char *names = cm->pool;
    std::sort(cm->by_symbol, cm->by_symbol + count, [cm, names](uint32_t a, uint32_t b) {
        return std::strcmp(names + cm->entries[a].symbol, names + cm->entries[b].symbol) < 0;
    });
    // A symbol names one character.
    for (long i = 1; i < count; ++i)
        if (std::strcmp(names + cm->entries[cm->by_symbol[i - 1]].symbol,
                        names + cm->entries[cm->by_symbol[i]].symbol) == 0)
            return NU_EBADFILE;
    return 0;
}

void free_map(nu_cm_rec *cm) {
    if (cm == nullptr) return;
    _nu_free_ptr(cm->entries);
    _nu_free_ptr(cm->by_symbol);
    _nu_free_ptr(cm->pool);
    _nu_free_ptr(cm);
}

// The character whose bytes begin at p (at most n bytes), or null.
const Entry *find_bytes(const nu_cm_rec *cm, const uint8_t *p, long n) {
    for (int length = cm->min_length; length <= cm->max_length && length <= n; ++length) {
        const Entry *first = cm->entries, *last = cm->entries + cm->count;
        const Entry *at = std::lower_bound(first, last, 0, [&](const Entry &e, int) {
            return compare_bytes(e.bytes, e.length, p, length) < 0;
        });
        if (at != last && compare_bytes(at->bytes, at->length, p, length) == 0) return at;
    }
    return nullptr;
}

const Entry *find_symbol(const nu_cm_rec *cm, const char *symbol, size_t n) {
    const uint32_t *first = cm->by_symbol, *last = cm->by_symbol + cm->count;
    auto compare = [&](uint32_t index) {
        const Entry &e = cm->entries[index];
        const int c = std::strncmp(cm->pool + e.symbol, symbol, n);
        return c != 0 ? c : static_cast<int>(e.symbol_length) - static_cast<int>(n);
    };
    const uint32_t *at = std::lower_bound(first, last, 0, [&](uint32_t index, int) {
        return compare(index) < 0;
    });
    return at != last && compare(*at) == 0 ? &cm->entries[*at] : nullptr;
}

bool is_terminator(const nu_cm_rec *cm, const uint8_t *p) {
    for (int i = 0; i < cm->min_length; ++i)
        if (p[i] != 0) return false;
    return true;
}

int fail(nu_locale_t h, int code) {
    set_error(h, code);
    return -1;
}

} // namespace

NU_EXPORT int nu_cm_load(nu_locale_t h, nu_cm_t *out, unsigned int codeset,
                         const char *directory) {
    if (nus::no_handle(h)) return -1;
    if (out == nullptr) return fail(h, NU_EBADARG);
    *out = nullptr;
    if (codeset > 0xFFFF || codeset == NU_UNKNOWN_CODESET) return fail(h, NU_EBADARG);
    // "<directory><mark>xxxx.cmo", or "xxxx.cmo" along the data-file search.
    char name[300];
    size_t n = 0;
    if (directory != nullptr && directory[0] != '\0') {
        n = std::strlen(directory);
        if (n > sizeof name - 16) return fail(h, NU_EINVAL);
        std::memcpy(name, directory, n);
        name[n++] = static_cast<char>(NU_PATH_MARK);
    }
    static constexpr char kHex[] = "0123456789abcdef";
    for (int shift = 12; shift >= 0; shift -= 4) name[n++] = kHex[(codeset >> shift) & 0xF];
    std::memcpy(name + n, ".cmo", 5);
    FILE *stream = nu_path_search(h, name, "cm", nu_cm_version());
    if (stream == nullptr) return -1;   // NU_ENOFILE, or NU_ENOMEM, stored by the search
    int code = read_header(stream);
    nu_cm_rec *cm = nullptr;
    if (code == 0) {
        cm = nus::alloc_zeroed<nu_cm_rec>(1);
        if (cm == nullptr) code = NU_ENOMEM;
        else code = read_body(stream, cm);
    }
    _nu_ext_fclose(stream);
    if (code != 0) {
        free_map(cm);
        nus::messagef("Character map %s not loaded (error %d)", name, code);
        return fail(h, code);
    }
    *out = cm;
    return 0;
}

NU_EXPORT void nu_cm_unload(nu_cm_t cm) { free_map(cm); }

NU_EXPORT int nu_cm_info(nu_cm_t cm, int *min_length, int *max_length) {
    if (cm == nullptr) return -1;
    if (min_length != nullptr) *min_length = cm->min_length;
    if (max_length != nullptr) *max_length = cm->max_length;
    return static_cast<int>(cm->count);
}

NU_EXPORT int nu_mbstosyms(nu_locale_t h, nu_cm_t cm, char *out, int size, const char *mbs,
                           int length) {
    if (nus::no_handle(h)) return -1;
    if (cm == nullptr || out == nullptr || mbs == nullptr) return fail(h, NU_EBADARG);
    if (length < -1 || size < 1) return fail(h, NU_EBADVAL);
    const auto *p = reinterpret_cast<const uint8_t *>(mbs);
    // Without a length the string ends with its terminator, as many zero bytes as the
    // shortest character, at a character boundary: in a code set whose characters are all
    // at least two bytes long, at a multiple of that length.
    long total = length;
    if (total < 0)
        for (total = 0; !is_terminator(cm, p + total);) total += cm->min_length;
    long written = 0;
    for (long at = 0; at < total;) {
        const Entry *e = find_bytes(cm, p + at, total - at);
        if (e == nullptr) {
            out[written] = '\0';
            return fail(h, NU_ENOSYM);
        }
        if (written + e->symbol_length + 2 + 1 > size) {
            out[written] = '\0';
            return fail(h, NU_E2BIG);
        }
        out[written++] = '<';
        std::memcpy(out + written, cm->pool + e->symbol, e->symbol_length);
        written += e->symbol_length;
        out[written++] = '>';
        at += e->length;
    }
    out[written] = '\0';
    return static_cast<int>(written);
}

NU_EXPORT int nu_symstombs(nu_locale_t h, nu_cm_t cm, char *out, int size, const char *syms) {
    if (nus::no_handle(h)) return -1;
    if (cm == nullptr || out == nullptr || syms == nullptr) return fail(h, NU_EBADARG);
    const int terminator = cm->min_length;
    if (size < terminator) return fail(h, NU_EBADVAL);
    long written = 0;
    auto finish = [&](int code) {
        // The text so far, terminated: as much of the terminator as the room leaves.
        for (int i = 0; i < terminator && written + i < size; ++i) out[written + i] = 0;
        if (code != 0) return fail(h, code);
        return static_cast<int>(written);
    };
    for (const char *s = syms; *s != '\0';) {
        if (*s != '<') return finish(NU_EINVAL);
        size_t n = 1;
        while (is_symbol_char(static_cast<unsigned char>(s[n]))) ++n;
        if (s[n] != '>' || n == 1 || n - 1 > static_cast<size_t>(kMaxSymbol))
            return finish(NU_EINVAL);
        const Entry *e = find_symbol(cm, s + 1, n - 1);
        if (e == nullptr) return finish(NU_ENOSYM);
        if (written + e->length + terminator > size) return finish(NU_E2BIG);
        std::memcpy(out + written, e->bytes, e->length);
        written += e->length;
        s += n + 1;
    }
    return finish(0);
}
