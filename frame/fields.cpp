// Readers of single text fields out of data files, and byte-string character descriptors.
// Character classes are those of the "C" locale whatever the process locale is.
#include "frame/frame.h"

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>

namespace {

inline int next_char(FILE *stream) { return _nu_ext_fgetc(stream); }
inline void push_back(int c, FILE *stream) {
    if (c != EOF) _nu_ext_ungetc(c, stream);
}

// Reads a decimal field into `text` (at most 40 characters kept): white space skipped, the
// first character kept whatever it is (so a sign is allowed), then digits; further digits
// are read and discarded. Returns whether a digit was seen.
bool scan_decimal(FILE *stream, char (&text)[41]) {
    int used = 0;
    bool digit = false;
    _nu_skip_whitespace(stream);
    int c = next_char(stream);
    if (c == EOF) {
        text[0] = '\0';
        return false;
    }
    text[used++] = static_cast<char>(c);
    digit = nus::c_isdigit(c);
    while (used < 40) {
        c = next_char(stream);
        if (!nus::c_isdigit(c)) {
            push_back(c, stream);
            c = EOF;
            break;
        }
        text[used++] = static_cast<char>(c);
        digit = true;
    }
    if (used == 40) {
        while (nus::c_isdigit(c = next_char(stream))) {
        }
        push_back(c, stream);
    }
    text[used] = '\0';
    return digit;
}

} // namespace

namespace nus {

bool header_line(FILE *stream, char (&line)[kHeaderLineSize]) {
    if (_nu_ext_fgets(line, kHeaderLineSize, stream) == nullptr) return false;
    const size_t length = std::strlen(line);
    if (length > 0) line[length - 1] = '\0';
    return true;
}

bool skip_line(FILE *stream) {
    char chunk[kHeaderLineSize];
    for (;;) {
        if (_nu_ext_fgets(chunk, sizeof chunk, stream) == nullptr) return false;
        const size_t length = std::strlen(chunk);
        if (length > 0 && chunk[length - 1] == '\n') return true;
    }
}

// Converts the kept text as strtol does in base 10 (an optional sign, digits, saturation at
// the limits of long), without its locale and whitespace handling: data files are read often.
bool read_decimal(FILE *stream, long *value) {
    char text[41];
    const bool digit = scan_decimal(stream, text);
    const bool negative = text[0] == '-';
    const char *p = text + (negative || text[0] == '+' ? 1 : 0);
    unsigned long magnitude = 0;
    const unsigned long limit = negative ? 0UL - static_cast<unsigned long>(LONG_MIN)
                                         : static_cast<unsigned long>(LONG_MAX);
    bool saturated = false;
    for (; c_isdigit(*p); ++p) {
        const unsigned long d = static_cast<unsigned long>(*p - '0');
        if (saturated || magnitude > (limit - d) / 10) {
            saturated = true;
            continue;
        }
        magnitude = magnitude * 10 + d;
    }
    if (saturated) magnitude = limit;
    *value = negative ? static_cast<long>(0UL - magnitude) : static_cast<long>(magnitude);
    return digit && (c_isdigit(text[0]) || text[0] == '-' || text[0] == '+');
}

} // namespace nus

NU_EXPORT int _nu_skip_whitespace(FILE *stream) {
    int c;
    while (nus::c_isspace(c = next_char(stream))) {
    }
    push_back(c, stream);
    return c;
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

// A character that is no hexadecimal digit contributes its own code: data files rely on
// this (a table terminator's newline lands in a count).
NU_EXPORT uint32_t _nu_get_hex(FILE *stream, int n) {
    uint32_t value = 0;
    if (n > 8) n = 8;
    for (int i = 0; i < n; ++i) {
        int c = next_char(stream);
        int digit = nus::c_hexvalue(c);
        value = value * 16 + static_cast<uint32_t>(digit >= 0 ? digit : c);
    }
    return value;
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
