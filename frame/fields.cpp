// Readers of single text fields out of data files, and byte-string character descriptors.
// Character classes are those of the "C" locale whatever the process locale is.
#include "frame/frame.h"

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>

namespace nus {

namespace {

thread_local InputBlock *t_input = nullptr;

constexpr int kLineSize = 4096;   // one fgets call reads at most this much, its NUL included
// A refill stops after this much: reading far ahead of a section that ends soon (a small
// category read alone) would cost more calls than it saves.
constexpr size_t kFillTarget = 1024;

constexpr int kFileSlots[] = {NU_EXT_FCLOSE, NU_EXT_FEOF,  NU_EXT_FERROR, NU_EXT_FGETC,
                              NU_EXT_FGETS,  NU_EXT_FOPEN, NU_EXT_FSEEK,  NU_EXT_FTELL,
                              NU_EXT_GETC,   NU_EXT_UNGETC};

bool default_file_functions() {
    if (_nu_ext_func == 0) return true;
    for (int slot : kFileSlots)
        if (_nu_get_ext_funcptr(slot) != nullptr) return false;
    return true;
}

// Reads lines into the block, from its start, until it holds kFillTarget bytes or the file
// ends. fgets tells the length of what it read only through the NUL it adds, and a line may
// hold NUL bytes of its own: each line is read where the block holds nothing but newlines,
// so that the NUL fgets added is the last one there (the bytes after it are still newlines,
// and a line holds no newline before its end). What a fill wrote is made newlines again
// before the next one.
void fill(InputBlock *in) {
    unsigned char *const start = in->data;
    if (in->dirty > 0) std::memset(start, '\n', in->dirty);
    size_t used = 0;
    in->dirty = 0;
    while (!in->done && used < kFillTarget && in->size - used >= static_cast<size_t>(kLineSize)) {
        char *line = reinterpret_cast<char *>(start + used);
        if (_nu_ext_fgets(line, kLineSize, in->stream) == nullptr) {
            // The contents are unspecified after a read error.
            in->dirty = used + kLineSize;
            in->done = true;
            break;
        }
        size_t n = std::strlen(line);
        if (n + 1 < static_cast<size_t>(kLineSize) && (n == 0 || line[n - 1] != '\n')) {
            // NUL bytes in the line, or the end of the file.
            const void *nul = memrchr(line, '\0', kLineSize);
            n = nul != nullptr ? static_cast<size_t>(static_cast<const char *>(nul) - line) : n;
            if (_nu_ext_feof(in->stream) != 0 || _nu_ext_ferror(in->stream) != 0) in->done = true;
        }
        used += n;
        in->dirty = used + 1;
        in->offset += static_cast<long>(n);
    }
    in->pos = start;
    in->end = start + used;
}

} // namespace

InputBlock *attached_input(FILE *stream) {
    InputBlock *in = t_input;
    return in != nullptr && in->stream == stream ? in : nullptr;
}

int refill_input(InputBlock *in) {
    if (in->done) return EOF;
    fill(in);
    return in->pos < in->end ? *in->pos++ : EOF;
}

BlockInput::BlockInput(FILE *stream) {
    if (stream == nullptr || attached_input(stream) != nullptr || !default_file_functions())
        return;
    const long offset = _nu_ext_ftell(stream);
    if (offset < 0) return;
    // One byte before the block takes a character pushed back right after a refill. A fill
    // stops once it holds kFillTarget bytes, so the block needs room for one line more.
    auto *memory = alloc_array<unsigned char>(1 + kFillTarget + kLineSize);
    if (memory == nullptr) return;   // read character by character
    block_.stream = stream;
    block_.data = memory + 1;
    block_.size = kFillTarget + kLineSize;
    block_.dirty = block_.size;
    block_.pos = block_.end = block_.data;
    block_.offset = offset;
    block_.outer = t_input;
    t_input = &block_;
    attached_ = true;
}

BlockInput::~BlockInput() {
    if (!attached_) return;
    const long unread = block_.end - block_.pos;
    if (unread > 0) _nu_ext_fseek(block_.stream, block_.offset - unread, SEEK_SET);
    t_input = block_.outer;
    _nu_free_ptr(block_.data - 1);
}

char *stream_gets(char *buffer, int size, FILE *stream) {
    InputBlock *in = attached_input(stream);
    if (in == nullptr) return _nu_ext_fgets(buffer, size, stream);
    if (buffer == nullptr || size < 1) return nullptr;
    int used = 0;
    while (used < size - 1) {
        if (in->pos == in->end && refill_input(in) != EOF) --in->pos;
        if (in->pos == in->end) break;
        const size_t room = static_cast<size_t>(size - 1 - used);
        const size_t have = static_cast<size_t>(in->end - in->pos);
        size_t take = have < room ? have : room;
        const void *newline = std::memchr(in->pos, '\n', take);
        if (newline != nullptr) take = static_cast<size_t>(static_cast<const unsigned char *>(newline) - in->pos) + 1;
        std::memcpy(buffer + used, in->pos, take);
        in->pos += take;
        used += static_cast<int>(take);
        if (newline != nullptr) break;
    }
    if (used == 0) return nullptr;
    buffer[used] = '\0';
    return buffer;
}

long stream_tell(FILE *stream) {
    InputBlock *in = attached_input(stream);
    if (in == nullptr) return _nu_ext_ftell(stream);
    return in->offset - static_cast<long>(in->end - in->pos);
}

int stream_seek(FILE *stream, long offset) {
    InputBlock *in = attached_input(stream);
    if (in == nullptr) return _nu_ext_fseek(stream, offset, SEEK_SET);
    in->pos = in->end = in->data;
    in->done = false;
    const int result = _nu_ext_fseek(stream, offset, SEEK_SET);
    in->offset = result == 0 ? offset : _nu_ext_ftell(stream);
    return result;
}

} // namespace nus

namespace {

inline int next_char(FILE *stream) { return nus::Chars(stream).get(); }
inline void push_back(int c, FILE *stream) { nus::Chars(stream).unget(c); }

} // namespace

namespace nus {

bool header_line(FILE *stream, char (&line)[kHeaderLineSize]) {
    if (stream_gets(line, kHeaderLineSize, stream) == nullptr) return false;
    const size_t length = std::strlen(line);
    if (length > 0) line[length - 1] = '\0';
    return true;
}

bool skip_line(FILE *stream) {
    char chunk[kHeaderLineSize];
    for (;;) {
        if (stream_gets(chunk, sizeof chunk, stream) == nullptr) return false;
        const size_t length = std::strlen(chunk);
        if (length > 0 && chunk[length - 1] == '\n') return true;
    }
}

// Converts the kept text as strtol does in base 10 (an optional sign, digits, saturation at
// the limits of long), without its locale and whitespace handling: data files are read often.
bool read_decimal(FILE *stream, long *value) {
    Chars in(stream);
    return read_decimal(in, value);
}

namespace {

// The unread bytes of a block as a character source. Running past them sets `short_read`:
// the field did not end inside them and is read again from the stream.
struct Window {
    const unsigned char *p;
    const unsigned char *end;
    bool short_read = false;
    int get() {
        if (p < end) return *p++;
        short_read = true;
        return EOF;
    }
    void unget(int c) {
        if (c != EOF) --p;
    }
};

// A decimal field: white space skipped, the first character kept whatever it is (so a sign
// is allowed), then digits; of these only the first 40 characters count, further digits are
// read and discarded. The value is converted as strtol does in base 10 (an optional sign,
// digits, saturation at the limits of long), without its locale and white-space handling:
// data files are read often. True when a digit was seen after a digit or sign.
template <typename Source>
[[gnu::always_inline]] inline bool parse_decimal(Source &in, long *value) {
    int c;
    while ((c = in.get()) == ' ' || (c >= '\t' && c <= '\r')) {
    }
    const bool negative = c == '-';
    const bool counts = negative || c == '+' || c_isdigit(c);
    bool digit = c_isdigit(c);
    const unsigned long limit = negative ? 0UL - static_cast<unsigned long>(LONG_MIN)
                                         : static_cast<unsigned long>(LONG_MAX);
    unsigned long magnitude = 0;
    bool saturated = false;
    auto add = [&](int ch) {
        const unsigned long d = static_cast<unsigned long>(ch - '0');
        if (saturated || magnitude > (limit - d) / 10) saturated = true;
        else magnitude = magnitude * 10 + d;
    };
    if (c != EOF) {
        if (digit) add(c);
        int kept = 1;
        while (c_isdigit(c = in.get())) {
            digit = true;
            if (kept < 40) {
                if (counts) add(c);
                ++kept;
            }
        }
        in.unget(c);
    }
    if (saturated) magnitude = limit;
    *value = negative ? static_cast<long>(0UL - magnitude) : static_cast<long>(magnitude);
    return digit && counts;
}

} // namespace

bool read_decimal_field(Chars &in, long *value) {
    if (InputBlock *block = in.block()) {
        Window window{block->pos, block->end};
        long parsed;
        const bool digits = parse_decimal(window, &parsed);
        if (!window.short_read) {
            block->pos = const_cast<unsigned char *>(window.p);
            *value = parsed;
            return digits;
        }
    }
    return parse_decimal(in, value);
}

int ub2_reader(FILE *stream, void *dest, unsigned int) {
    Chars in(stream);
    const uint32_t value = get_hex(in, 4);
    const uint16_t v = static_cast<uint16_t>(value);
    std::memcpy(dest, &v, sizeof v);
    return value > 0xFFFF ? -1 : 0;
}

} // namespace nus

NU_EXPORT int _nu_skip_whitespace(FILE *stream) {
    nus::Chars in(stream);
    return nus::skip_whitespace(in);
}

NU_EXPORT long _nu_get_int(FILE *stream) {
    long value;
    nus::read_decimal(stream, &value);
    return value;
}

// Keeps the first character, then digits, "E", "e", "." and "-" (deliberately not "+"), up to
// 80 characters; the stopping character is pushed back unless the limit stopped the reading.
NU_EXPORT double _nu_get_dbl(FILE *stream) {
    char text[81];
    int used = 0;
    _nu_skip_whitespace(stream);
    int c = next_char(stream);
    if (c != EOF) text[used++] = static_cast<char>(c);
    while (used < 80 && c != EOF) {
        c = next_char(stream);
        if (nus::c_isdigit(c) || c == 'E' || c == 'e' || c == '.' || c == '-') {
            text[used++] = static_cast<char>(c);
        } else {
            push_back(c, stream);
            break;
        }
    }
    text[used] = '\0';
    // Data files always use "."; convert with the process's decimal point.
    const char *point = std::localeconv()->decimal_point;
    if (point != nullptr && point[0] != '\0' && point[0] != '.' && point[1] == '\0') {
        for (int i = 0; i < used; ++i) {
            if (text[i] == '.') text[i] = point[0];
        }
    }
    return std::strtod(text, nullptr);
}

NU_EXPORT uint32_t _nu_get_hex(FILE *stream, int n) {
    nus::Chars in(stream);
    return nus::get_hex(in, n);
}

NU_EXPORT int _nu_get_hex_digit(FILE *stream) {
    int digit = nus::c_hexvalue(next_char(stream));
    return digit >= 0 ? digit : 0;
}

NU_EXPORT int _nu_get_hex_byte(FILE *stream) {
    int high = _nu_get_hex_digit(stream);
    return high * 16 + _nu_get_hex_digit(stream);
}

NU_EXPORT int _nu_get_str(char *buffer, int size, FILE *stream) {
    if (buffer == nullptr || size < 1) return 0;
    int used = 0;
    while (used < size - 1) {
        int c = next_char(stream);
        if (c == EOF) break;
        if (nus::c_isspace(c)) {
            push_back(c, stream);
            break;
        }
        buffer[used++] = static_cast<char>(c);
    }
    buffer[used] = '\0';
    return 0;
}

// ---- character descriptors ----------------------------------------------------------------

namespace {
inline int desc_length(const nu_chardesc *d) {
    return d->length < 0 ? 0 : d->length > 4 ? 4 : d->length;
}
} // namespace

NU_EXPORT int _nu_desc_eq(const nu_chardesc *a, const nu_chardesc *b) {
    if (a->length != b->length) return 0;
    return std::memcmp(a->bytes, b->bytes, static_cast<size_t>(desc_length(a))) == 0 ? 1 : 0;
}

NU_EXPORT nu_wchar _nu_desc_to_nu_wchar(const nu_chardesc *d) {
    nu_wchar wc = 0;
    for (int i = 0; i < desc_length(d); ++i) wc = (wc << 8) | d->bytes[i];
    return wc;
}

// Adds delta to the bytes taken as a big-endian base-256 number; a carry or borrow out of
// the first byte is dropped.
NU_EXPORT void _nu_desc_offset(const nu_chardesc *src, long delta, nu_chardesc *dst) {
    *dst = *src;
    const int length = desc_length(src);
    if (delta == 0 || length == 0) return;
    const bool subtract = delta < 0;
    unsigned long remaining = subtract ? 0UL - static_cast<unsigned long>(delta)
                                       : static_cast<unsigned long>(delta);
    unsigned carry = 0;
    for (int i = length - 1; i >= 0 && (remaining != 0 || carry != 0); --i) {
        const unsigned step = static_cast<unsigned>(remaining & 0xFFu) + carry;
        remaining >>= 8;
        const unsigned byte = dst->bytes[i];
        if (subtract) {
            carry = byte < step ? 1 : 0;
            dst->bytes[i] = static_cast<unsigned char>(byte + 256 * carry - step);
        } else {
            const unsigned sum = byte + step;
            carry = sum >> 8;
            dst->bytes[i] = static_cast<unsigned char>(sum);
        }
    }
}
