// Conversion descriptors: opening by locale specifications, code-set numbers or names, the
// reading of conversion object files, the choice of converter, and unloading.
#include "convert/convert.h"
#include "frame/multi.h"
#include "locale/nuu.h"

#include <cmath>

namespace nus {

nu_cv_rec cd_enomem = {NU_ENOMEM, {}, 0, 0, {}, 0, 0, 0, 0, 0, 0, 0, 0.0f, {}, {}, {}, 0, {}, 0, {}, 0};
nu_cv_rec cd_fileerr = {NU_ENOFILE, {}, 0, 0, {}, 0, 0, 0, 0, 0, 0, 0, 0.0f, {}, {}, {}, 0, {}, 0, {}, 0};
nu_cv_rec cd_einval = {NU_EINVAL, {}, 0, 0, {}, 0, 0, 0, 0, 0, 0, 0, 0.0f, {}, {}, {}, 0, {}, 0, {}, 0};

bool is_fixed_descriptor(const nu_cv_rec *cv) {
    return cv == &cd_enomem || cv == &cd_fileerr || cv == &cd_einval;
}

namespace {

constexpr const char kFileType[] = "FILE_TYPE=codeset_conversion_object";
constexpr const char kVersionLine[] = "COMPILER_VERSION=9";
constexpr const char kHeaderLengthKey[] = "HEADER_LENGTH=";
constexpr long kMaxHeaderLines = 1000; // more is not a header but damage
constexpr int kMaxSpecial = 4;
constexpr double kMaxExpansion = 64.0;



bool read_header(FILE *stream) {
    char line[kHeaderLineSize];
    if (!header_line(stream, line)) return false;
    if (std::strcmp(line, kFileType) != 0) {
        nu_message("Invalid CVO file. Wrong FILE_TYPE.");
        return false;
    }
    if (!header_line(stream, line)) return false;
    if (std::strcmp(line, kVersionLine) != 0) {
        nu_message("Invalid CVO file. Wrong Version.");
        return false;
    }
    if (!header_line(stream, line) ||
        std::strncmp(line, kHeaderLengthKey, sizeof kHeaderLengthKey - 1) != 0) {
        return false;
    }
    const char *digits = std::strchr(line, '=') + 1;
    long lines = 0;
    if (!c_isdigit(static_cast<unsigned char>(*digits))) return false;
    for (; c_isdigit(static_cast<unsigned char>(*digits)); ++digits) {
        lines = lines * 10 + (*digits - '0');
        if (lines > kMaxHeaderLines) return false;
    }
    for (long i = 4; i <= lines; ++i) {
        if (!skip_line(stream)) return false;
    }
    return true;
}

bool decimal_field(FILE *stream, int32_t *out) {
    long value = 0;
    if (!read_decimal(stream, &value) || value < INT32_MIN || value > INT32_MAX) return false;
    *out = static_cast<int32_t>(value);
    return true;
}

// A special sequence: one hexadecimal digit n, then n bytes as 2n digits.
bool special_field(FILE *stream, int32_t *length, unsigned char *bytes) {
    _nu_skip_whitespace(stream);
    const uint32_t n = _nu_get_hex(stream, 1);
    if (n > kMaxSpecial) return false;
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t b = _nu_get_hex(stream, 2);
        if (b > 0xFF) return false;
        bytes[i] = static_cast<unsigned char>(b);
    }
    *length = static_cast<int32_t>(n);
    return true;
}

bool fields(FILE *stream, nu_cv_rec *cv) {
    if (!decimal_field(stream, &cv->source_stateful) ||
        !decimal_field(stream, &cv->target_stateful)) {
        return false;
    }
    for (int i = 0; i < 4; ++i) {
        if (!special_field(stream, &cv->special_len[i], cv->special[i])) return false;
    }
    int32_t *lengths[] = {&cv->target_min_len, &cv->target_max_len, &cv->unused1,
                          &cv->unused2,        &cv->source_min_len, &cv->source_max_len,
                          &cv->build_byte_table};
    for (int32_t *field : lengths) {
        if (!decimal_field(stream, field)) return false;
    }
    _nu_skip_whitespace(stream);
    const double expansion = _nu_get_dbl(stream);
    if (!(expansion >= 0.0 && expansion <= kMaxExpansion)) return false;
    cv->expansion = static_cast<float>(expansion);
    return true;
}

// A conversion record: byte 0, then as many target bytes as its count says; the rest of the
// slot is zero. A count beyond the slot is refused.
int record_reader(FILE *stream, void *dest, unsigned int desc_size) {
    unsigned char *rec = static_cast<unsigned char *>(dest);
    std::memset(rec, 0, desc_size);
    const uint32_t flags = _nu_get_hex(stream, 2);
    if (flags > 0xFF) return -1;
    const unsigned count = flags & kCvCount;
    if (count + 1 > desc_size) return -1;
    rec[0] = static_cast<unsigned char>(flags);
    for (unsigned i = 1; i <= count; ++i) {
        const uint32_t b = _nu_get_hex(stream, 2);
        if (b > 0xFF) return -1;
        rec[i] = static_cast<unsigned char>(b);
    }
    return 0;
}

bool target_length_ok(const nu_cv_rec *cv) {
    if (cv->target_max_len >= 1 && cv->target_max_len <= 4) return true;
    nu_message("cv->target_max_len should be in range 1..4");
    return false;
}

// Creates a table of records for the descriptor and reads it; false with the error set.
bool read_table(FILE *stream, nu_cv_rec *cv, multi_t **table) {
    const unsigned char zero[5] = {};
    *table = _nu_create_multi(static_cast<unsigned>(cv->target_max_len) + 1, 0, zero);
    if (*table == nullptr) {
        set_error(cv, NU_ENOMEM);
        return false;
    }
    if (_nu_fscanf_multi(stream, *table, MULTI_MAX_DEPTH, record_reader) != 0) {
        set_error(cv, _nu_multi_err(*table));
        return false;
    }
    return true;
}

// Allocates a cleared descriptor with room for its first-byte records, or hands out
// cd_enomem.
nu_cv_rec *new_descriptor(nu_cv_t *out) {
    CvBlock *block = alloc_zeroed<CvBlock>(1);
    nu_cv_rec *cv = block != nullptr ? &block->rec : nullptr;
    *out = cv != nullptr ? cv : &cd_enomem;
    return cv;
}

// Reads the file into a descriptor made by new_descriptor and copies out its first bytes.
// The reader leaves the stream open when it fails; whoever opened it closes it.
int read_into_block(FILE *stream, nu_cv_rec *cv) {
    if (read_cv_file(stream, cv) != 0) {
        if (stream != nullptr) _nu_ext_fclose(stream);
        return -1;
    }
    build_fast_root(reinterpret_cast<CvBlock *>(cv));
    return 0;
}

bool is_fixed_width(int32_t min, int32_t max) { return min == max && (min == 2 || min == 4); }

// The companion library converts the pair (target, source) when it is loaded and says so.
bool companion_converts(unsigned target, unsigned source) {
    return nus::nuu_active() && target != NU_UNKNOWN_CODESET && source != NU_UNKNOWN_CODESET &&
           nus::call_nuu_useIcuCvtCall()(target, source) == 1;
}

// A descriptor whose conversion the companion performs: 1, or -1 with the companion's
// status (or `code` when given) in the descriptor's slot.
int open_companion(nu_cv_t *out, unsigned target, unsigned source, int code) {
    nu_cv_rec *cv = new_descriptor(out);
    if (cv == nullptr) return -1;
    nuu_status status = 0;
    nuu_cv *converter = nus::call_nuu_cv_open()(target, source, &status);
    if (converter == nullptr) {
        set_error(cv, code != 0 ? code : status > 0 ? status : NU_ENOFILE);
        return -1;
    }
    cv->nuu_cv = converter;
    cv->nuu_in_use = 1;
    return 1;
}

} // namespace

int read_cv_file(FILE *stream, nu_cv_rec *cv) {
    if (stream == nullptr || !read_header(stream)) {
        set_error(cv, NU_ENOFILE);
        return -1;
    }
    if (!fields(stream, cv)) {
        set_error(cv, NU_EBADFILE);
        return -1;
    }
    // Kept for compatibility: a target length out of range fails without an error code.
    if (!target_length_ok(cv)) return -1;
    if (!read_table(stream, cv, &cv->table)) return -1;
    if (cv->source_stateful != 0) {
        if (!target_length_ok(cv)) return -1;
        if (!read_table(stream, cv, &cv->shift_table)) return -1;
    }
    _nu_ext_fclose(stream);
    set_iconv_fps(cv);
    nu_message("CVO file loaded successfully.");
    return 0;
}

namespace {

// The record a node gives a last byte, or null when the byte ends no character there.
const unsigned char *record_of(const multi_t *t, const multi_arr_t *node, unsigned b) {
    if (node == nullptr || node->flag_arr == nullptr || node->flag_arr[b] != MULTI_LAST) {
        return nullptr;
    }
    return node->data_arr != nullptr ? node->data_arr + (size_t{b} << t->shift) : t->default_desc;
}

// True for the record of a character that converts plainly to `count` bytes.
bool plain(const unsigned char *rec, unsigned count) {
    return rec != nullptr && rec[0] == (kCvValid | count);
}

// The packed characters of a first byte's node (second bytes ending characters); null
// without memory, and the walk then decides for all of them.
const uint32_t *pack_pairs(const multi_t *t, const multi_arr_t *child) {
    uint32_t *pairs = alloc_zeroed<uint32_t>(256);
    if (pairs == nullptr) return nullptr;
    for (unsigned b = 0; b < 256; ++b) {
        const unsigned char *rec = record_of(t, child, b);
        if (rec == nullptr) continue;
        const unsigned count = rec[0] & kCvCount;
        if (count == 0 || count > 3 || !plain(rec, count)) continue;
        uint32_t packed = count;
        for (unsigned i = 0; i < count; ++i) packed |= uint32_t{rec[1 + i]} << (8 * (i + 1));
        pairs[b] = packed;
    }
    return pairs;
}

// The three-byte table of a UTF-8 source, when every first byte E0-EF starts characters of
// three bytes and the target has characters of two.
void build_utf8_three(CvBlock *block) {
    if (block->rec.target_max_len < 2 || block->rec.source_stateful != 0 ||
        block->rec.target_stateful != 0) {
        return;
    }
    for (unsigned b0 = 0xE0; b0 <= 0xEF; ++b0) {
        if (block->root[b0].kind != kFastMore || block->root[b0].grand == nullptr) return;
    }
    uint16_t *three = alloc_zeroed<uint16_t>(size_t{1} << 16);
    if (three == nullptr) return;
    const multi_t *t = block->rec.table;
    for (unsigned b0 = 0xE0; b0 <= 0xEF; ++b0) {
        for (unsigned b1 = 0x80; b1 <= 0xBF; ++b1) {
            const multi_arr_t *node = block->root[b0].grand[b1];
            for (unsigned b2 = 0x80; b2 <= 0xBF; ++b2) {
                const unsigned char *rec = record_of(t, node, b2);
                if (!plain(rec, 2)) continue;
                three[utf8_three_index(b0, b1, b2)] =
                    static_cast<uint16_t>(rec[1] | (unsigned{rec[2]} << 8));
            }
        }
    }
    block->utf8_three = three;
}

void fill_entries(const multi_t *t, FastEntry *entries, bool stateful) {
    const multi_arr_t *root = t->root;
    for (unsigned b = 0; b < 256; ++b) {
        FastEntry &e = entries[b];
        e = FastEntry{};
        const unsigned flag = root->flag_arr != nullptr ? root->flag_arr[b] : MULTI_INVALID;
        if (flag == MULTI_MORE) {
            e.kind = kFastMore;
            e.child = root->next_arr[root->offset_arr[b]];
            // Characters of three bytes or more: their third byte's nodes by second byte.
            // Without memory for them the walk simply starts at the second byte.
            if (e.child->child_count > 0 &&
                (e.grand = alloc_zeroed<const multi_arr_t *>(256)) != nullptr) {
                for (unsigned b2 = 0; b2 < 256; ++b2) {
                    if (e.child->flag_arr[b2] == MULTI_MORE) {
                        e.grand[b2] = e.child->next_arr[e.child->offset_arr[b2]];
                    }
                }
            } else if (e.child->child_count == 0) {
                e.pairs = pack_pairs(t, e.child);
            }
        } else if (flag == MULTI_LAST) {
            const unsigned char *rec = root->data_arr != nullptr
                                           ? root->data_arr + (size_t{b} << t->shift)
                                           : t->default_desc;
            const unsigned flags = rec[0];
            const bool runs = (flags & kCvInvalidMask) != 0 && (flags & kCvCount) != 0 &&
                              !(stateful && (flags & (kCvSourceShift | kCvTargetShifted)) != 0);
            e.kind = runs ? kFastChar : kFastOther;
            e.count = static_cast<unsigned char>(flags & kCvCount);
            std::memcpy(e.rec, rec, 1 + (flags & kCvCount));
        }
    }
}

} // namespace

void free_fast_root(CvBlock *block) {
    for (FastEntry *entries : {block->root, block->shift_root}) {
        for (int b = 0; b < 256; ++b) {
            _nu_free_ptr(entries[b].grand);
            entries[b].grand = nullptr;
            _nu_free_ptr(const_cast<uint32_t *>(entries[b].pairs));
            entries[b].pairs = nullptr;
        }
    }
    _nu_free_ptr(const_cast<uint16_t *>(block->utf8_three));
    block->utf8_three = nullptr;
}

void build_fast_root(CvBlock *block) {
    const bool stateful = block->rec.source_stateful != 0 || block->rec.target_stateful != 0;
    fill_entries(block->rec.table, block->root, stateful);
    if (block->rec.shift_table != nullptr) {
        fill_entries(block->rec.shift_table, block->shift_root, stateful);
    }
    int except = 0;
    block->ascii_except[0] = block->ascii_except[1] = 0x80;
    for (unsigned b = 0; b < 0x80; ++b) {
        const FastEntry &e = block->root[b];
        // A plain record: valid, one byte, the terminator's end bit aside.
        if (e.kind != kFastChar || (e.rec[0] & ~kCvEnd) != (kCvValid | 1) || e.rec[1] != b) {
            if (except < 2) block->ascii_except[except] = static_cast<unsigned char>(b);
            ++except;
        }
    }
    if (except == 1) block->ascii_except[1] = block->ascii_except[0];
    block->ascii_identity = except <= 2;
    block->two_byte_highs = except == 0;
    for (unsigned b = 0x80; b < 0x100; ++b) {
        const FastEntry &e = block->root[b];
        if (e.kind != kFastChar || e.rec[0] != (kCvValid | 2)) block->two_byte_highs = false;
        block->high_pairs[b - 0x80] = static_cast<uint16_t>(e.rec[1] | (unsigned{e.rec[2]} << 8));
    }
    build_utf8_three(block);
    block->rec.unused3 = kFastRootMark;
}

void set_iconv_fps(nu_cv_rec *cv) {
    const bool stateless = cv->source_stateful == 0 && cv->target_stateful == 0;
    if (cv->source_stateful == 0 && is_fixed_width(cv->source_min_len, cv->source_max_len)) {
        cv->convert = little_endian_unicode_source_miconv;
    } else if (cv->target_stateful == 0 &&
               is_fixed_width(cv->target_min_len, cv->target_max_len)) {
        cv->convert = little_endian_unicode_target_miconv;
    } else if (stateless && cv->source_max_len == 1 && cv->target_max_len == 1) {
        cv->convert = sb_miconv;
        if (cv->build_byte_table == 0) {
            cv->byte_table = alloc_zeroed<unsigned char>(256);
            if (cv->byte_table != nullptr) {
                unsigned char bytes[256];
                for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
                unsigned char *in = bytes;
                unsigned char *out = cv->byte_table;
                int length = 256, room = 256, irreversible = 0;
                // A byte without conversion stops the filling; its error stays in the slot.
                sb_miconv(cv, nullptr, &in, &length, &out, &room, &irreversible);
            }
        }
    } else {
        cv->convert = mb_miconv;
    }
}

void lc_spec2cs_name(const char *spec, char *out) {
    out[0] = '\0';
    if (spec == nullptr) return;
    const char *dot = std::strchr(spec, '.');
    if (dot == nullptr) return;
    const char *start = dot + 1;
    size_t length = 0;
    while (start[length] != '\0' && start[length] != ' ' && start[length] != '@') {
        if (++length >= kCsNameBuffer - 1) return;
    }
    std::memcpy(out, start, length);
    out[length] = '\0';
}

} // namespace nus

using namespace nus;

namespace {

// Searches a conversion file along the data-file search and reads it: 0 or -1.
int search_and_read(nu_cv_rec *cv, const char *name) {
    FILE *stream = nu_path_search(cv, name, "cv", nu_cv_version());
    return read_into_block(stream, cv);
}

} // namespace

NU_EXPORT int nu_iconv_open1(nu_cv_t *out, const char *name) {
    if (out == nullptr) return -1;
    nu_cv_rec *cv = new_descriptor(out);
    if (cv == nullptr) return -1;
    if (name == nullptr) {
        set_error(cv, NU_ENOFILE);
        return -1;
    }
    return search_and_read(cv, name);
}

NU_EXPORT int nu_iconv_open(nu_cv_t *out, const char *target, const char *source) {
    if (out == nullptr) return -1;
    constexpr size_t kNameSize = 1024;
    if (target == nullptr || source == nullptr || std::strcmp(target, source) == 0 ||
        std::strlen(source) + 1 + std::strlen(target) + 4 >= kNameSize) {
        *out = &cd_fileerr;
        return -1;
    }
    char name[kNameSize];
    const size_t source_length = std::strlen(source), target_length = std::strlen(target);
    std::memcpy(name, source, source_length);
    name[source_length] = '_';
    std::memcpy(name + source_length + 1, target, target_length);
    std::memcpy(name + source_length + 1 + target_length, ".cvo", 5);
    return nu_iconv_open1(out, name);
}

NU_EXPORT int nu_cv_open(nu_cv_t *out, const char *target_spec, const char *source_spec) {
    if (out == nullptr) return -1;
    char target[kCsNameBuffer], source[kCsNameBuffer];
    lc_spec2cs_name(target_spec, target);
    lc_spec2cs_name(source_spec, source);
    if (nu_init_nuu(nullptr) != 0 || target[0] == '\0' || source[0] == '\0') {
        *out = &cd_fileerr;
        return -1;
    }
    if (std::strcmp(target, source) == 0) {
        *out = nullptr;
        return 0;
    }
    if (nus::nuu_active()) {
        int32_t scratch = 0;
        const unsigned target_number = nu_lc_spec2cs_num(&scratch, target_spec, nullptr);
        const unsigned source_number = nu_lc_spec2cs_num(&scratch, source_spec, nullptr);
        if (companion_converts(target_number, source_number))
            return open_companion(out, target_number, source_number, 0);
    }
    return nu_iconv_open(out, target, source) == -1 ? -1 : 1;
}

NU_EXPORT int nu_cv_load(nu_cv_t *out, const char *target_spec, const char *source_spec,
                         const char *registry, const char *directory) {
    if (out == nullptr) return -1;
    if (nu_init_nuu(nullptr) != 0) {
        *out = &cd_fileerr;
        return -1;
    }
    int32_t scratch = 0;
    const unsigned target = nu_lc_spec2cs_num(&scratch, target_spec, registry);
    const unsigned source = nu_lc_spec2cs_num(&scratch, source_spec, registry);
    if (target == NU_UNKNOWN_CODESET || source == NU_UNKNOWN_CODESET) {
        *out = &cd_einval;
        return -1;
    }
    if (target == source) {
        *out = nullptr;
        return 0;
    }
    const size_t dir_length = directory != nullptr ? std::strlen(directory) : 0;
    Scratch<char, 256> name(dir_length + 14);
    if (!name.ok()) {
        *out = &cd_enomem;
        return -1;
    }
    nu_cs_nums2cv_fname(nullptr, source, target, name.data(), directory);
    if (unicode_collate == 1 && companion_converts(target, source))
        return open_companion(out, target, source, NU_ENOFILE);
    nu_cv_rec *cv = new_descriptor(out);
    if (cv == nullptr) return -1;
    const int result = directory != nullptr ? read_into_block(nu_open_file(cv, name.data()), cv)
                                            : search_and_read(cv, name.data());
    return result == 0 ? 1 : -1;
}

NU_EXPORT int nu_cv_unload(nu_cv_t cv) {
    if (cv == nullptr) return -1;
    if (is_fixed_descriptor(cv)) return 0;
    if (fast_block(cv) != nullptr) free_fast_root(reinterpret_cast<CvBlock *>(cv));
    if (cv->nuu_in_use == 1) {
        nus::call_nuu_cv_close()(static_cast<nuu_cv *>(cv->nuu_cv));
    } else {
        _nu_free_multi(cv->table);
        _nu_free_multi(cv->shift_table);
        _nu_free_ptr(cv->byte_table);
    }
    _nu_free_ptr(cv);
    return 0;
}

NU_EXPORT double nu_iconv_expansion(nu_cv_t cv) {
    if (cv != nullptr && cv->nuu_in_use == 1)
        return nus::call_nuu_iconv_expansion()(static_cast<nuu_cv *>(cv->nuu_cv));
    return cv != nullptr ? static_cast<double>(cv->expansion) : 0.0;
}

NU_EXPORT int nu_cv_outbuflen(nu_cv_t cv, int length) {
    const double expansion = nu_iconv_expansion(cv);
    int whole = static_cast<int>(expansion);
    if (expansion - whole > 0.0) ++whole;
    return whole * length;
}
