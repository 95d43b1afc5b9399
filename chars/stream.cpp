// Character I/O on streams: whole characters of the locale's code set read through a byte
// source or the external fgetc, written through a byte sink or the external fwrite, and the
// character boundary around a byte position. A handle whose characters the companion Unicode
// library serves reads them through the companion (nu_getmb, nu_full_fgetwc: UTF-32).
#include "chars/chars.h"
#include "locale/nuu.h"

namespace {

int min_length(const nu_locale_rec *h) { return _nu_multi_min_length(h->ctype.class_table); }

void store(int *out, int value) {
    if (out != nullptr) *out = value;
}

// The byte sink and source over the external-function table.
int local_fputc(int byte, void *stream) {
    const auto b = static_cast<unsigned char>(byte);
    return _nu_ext_fwrite(&b, 1, 1, static_cast<FILE *>(stream)) == 1 ? 0 : -1;
}

int local_fgetc(void *stream) { return _nu_ext_fgetc(static_cast<FILE *>(stream)); }

// Whether a character of `length` bytes is the newline of a code set whose shortest character
// has `min` bytes: that many bytes, all zero but a final 0x0A.
bool ismbnl(const unsigned char *bytes, int min, int length) {
    if (length != min || min < 1 || min > MULTI_MAX_DEPTH) return false;
    for (int i = 0; i < min - 1; ++i) {
        if (bytes[i] != 0) return false;
    }
    return bytes[min - 1] == 0x0A;
}

// Reads one character byte by byte along the CTYPE table into buf (4 bytes). The status is 0,
// NU_EEOF when the source ends before the first byte, NU_EINVAL when it ends inside a
// character, NU_EILSEQ for an illegal byte; *len is the bytes taken in every case.
int read_char(const nu_locale_rec *h, unsigned char *buf, nu_getbyte_fn getbyte, void *stream,
              int *len) {
    const multi_t *table = h->ctype.class_table;
    const multi_arr_t *node = table != nullptr ? table->root : nullptr;
    int taken = 0;
    for (;;) {
        const int c = getbyte(stream);
        if (c < 0) {
            *len = taken;
            return taken == 0 ? NU_EEOF : NU_EINVAL;
        }
        const auto b = static_cast<unsigned char>(c);
        buf[taken++] = b;
        const unsigned char flag =
            node != nullptr && node->flag_arr != nullptr ? node->flag_arr[b] : MULTI_INVALID;
        if (flag == MULTI_LAST) {
            *len = taken;
            return 0;
        }
        if (flag != MULTI_MORE || taken == MULTI_MAX_DEPTH) {
            *len = taken;
            return NU_EILSEQ;
        }
        node = node->next_arr[node->offset_arr[b]];
    }
}

// One byte of a single-byte handle for the line readers: -1 at end of file. A read that gives
// 0xFF (or -1, whose low byte it is) ends the line only when the end-of-file indicator is set;
// otherwise it is the character 0xFF. Deliberate: kept for compatibility with callers that
// rely on an erroring stream yielding 0xFF bytes until their buffer is full.
int line_byte(FILE *stream) {
    const int c = _nu_ext_fgetc(stream);
    if ((c & 0xFF) == 0xFF && _nu_ext_feof(stream)) return -1;
    return c & 0xFF;
}

// One character from the external fgetc as a wide character; the status is 0 or the error of
// nu_full_fgetwc. An ended source is told apart by the stream's indicators.
int read_wide(const nu_locale_rec *h, FILE *stream, nu_wchar *wc) {
    unsigned char buf[MULTI_MAX_DEPTH];
    int len = 0;
    const int status = read_char(h, buf, local_fgetc, stream, &len);
    if (status == NU_EEOF || status == NU_EINVAL) {
        return _nu_ext_feof(stream) ? status : _nu_ext_ferror(stream) ? NU_EIO : NU_EREAD;
    }
    if (status != 0) return status;
    nu_wchar value = 0;
    for (int i = 0; i < len; ++i) value = (value << 8) | buf[i];
    *wc = value;
    return 0;
}

// Writes the character at s through putbyte; `counted` measures the null character as a
// character of its own instead of writing a terminator for it.
int put_char(nu_locale_rec *h, const unsigned char *s, int n, nu_putbyte_fn putbyte,
             void *stream, int *written, bool counted) {
    store(written, 0);
    if (s == nullptr) return -1;
    if (n < 0) n = nu_mb_loc_max(h);
    int length;
    if (h->single_byte) {
        length = counted || s[0] != 0 ? 1 : 0;
    } else {
        length = counted ? _tsn_nu_full_mblen(h, s, n) : nu_full_mblen(h, s, n);
        if (length < 0) return -1;
    }
    if (length == 0) {
        // The null character: the terminator, and on failure nothing counts as written.
        const int m = min_length(h);
        for (int i = 0; i < m; ++i) {
            if (putbyte(0, stream) < 0) {
                nus::set_error(h, NU_EIO);
                return -1;
            }
        }
        store(written, m);
        return 0;
    }
    for (int i = 0; i < length; ++i) {
        if (putbyte(s[i], stream) < 0) {
            nus::set_error(h, NU_EIO);
            store(written, i);
            return -1;
        }
    }
    store(written, length);
    return 0;
}

// Encodes wc (a single-byte handle takes its low byte: deliberate) and writes it.
bool put_wide(nu_locale_rec *h, nu_wchar wc, FILE *stream) {
    unsigned char scratch[2 * MULTI_MAX_DEPTH] = {};
    if (h->single_byte) {
        scratch[0] = static_cast<unsigned char>(wc);
    } else if (nus::encode(h, scratch, wc) < 0) {
        return false;
    }
    int written;
    return put_char(h, scratch, MULTI_MAX_DEPTH, local_fputc, stream, &written, false) == 0;
}

} // namespace

// ---- reading ------------------------------------------------------------------------------

NU_EXPORT int nu_getmb(nu_locale_t h, unsigned char *buf, nu_getbyte_fn getbyte, void *stream,
                       int *len) {
    if (nus::no_handle(h) || nus::missing(h, buf) ||
        (getbyte == nullptr && nus::bad_argument(h)))
        return -1;
    if (nus::nuu_chars(h))
        return nus::nuu_call(h, nus::kNuuCtype, nus::call_nuu_getmb(), buf, getbyte, stream, len);
    int taken = 0;
    const int status = read_char(h, buf, getbyte, stream, &taken);
    store(len, taken);
    if (status != 0) {
        nus::set_error(h, status);
        return -1;
    }
    return 0;
}

NU_EXPORT int nu_full_fgetmb(nu_locale_t h, unsigned char *buf, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, buf, stream)) return -1;
    int len = 0;
    if (nu_getmb(h, buf, local_fgetc, stream, &len) == 0) return len;
    if (_nu_ext_feof(stream)) {
        nus::set_error(h, NU_EEOF);
    } else if (_nu_ext_ferror(stream)) {
        nus::set_error(h, NU_EIO);
    }
    return -1;
}

NU_EXPORT nu_wchar nu_full_fgetwc(nu_locale_t h, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, stream)) return static_cast<nu_wchar>(-1);
    if (nus::nuu_chars(h))
        return nus::nuu_call(h, nus::kNuuCtype, nus::call_nuu_fgetuc32(), static_cast<void *>(stream));
    nu_wchar wc = 0;
    const int status = read_wide(h, stream, &wc);
    if (status != 0) {
        nus::set_error(h, status);
        return static_cast<nu_wchar>(-1);
    }
    return wc;
}

// A line up to and including its newline, then the terminator. Characters read before a
// failure stay in buf, unterminated.
NU_EXPORT unsigned char *nu_fgetmbs(nu_locale_t h, unsigned char *buf, int size, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, buf, stream)) return nullptr;
    const int m = min_length(h);
    const bool single = h->single_byte != 0;
    unsigned char c[MULTI_MAX_DEPTH];
    long used = 0;
    for (;;) {
        int len;
        if (single) {
            const int b = line_byte(stream);
            if (b < 0) {
                nus::set_error(h, NU_EEOF);
                return nullptr;
            }
            c[0] = static_cast<unsigned char>(b);
            len = 1;
        } else {
            len = nu_full_fgetmb(h, c, stream);
            if (len < 0) return nullptr;
        }
        if (used + len > size) {
            nus::set_error(h, NU_E2BIG);
            return nullptr;
        }
        std::memcpy(buf + used, c, static_cast<size_t>(len));
        used += len;
        if (ismbnl(c, m, len)) {
            if (used + m > size) {
                nus::set_error(h, NU_E2BIG);
                return nullptr;
            }
            nu_mbsterm(h, buf + used);
            return buf;
        }
    }
}

// The same in wide characters; size counts wide characters. A single-byte handle also keeps
// every byte read in its handle word.
NU_EXPORT nu_wchar *nu_fgetwcs(nu_locale_t h, nu_wchar *ws, int size, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, ws, stream)) return nullptr;
    const bool single = h->single_byte != 0;
    long used = 0;
    for (;;) {
        nu_wchar wc;
        if (single) {
            const int b = line_byte(stream);
            if (b < 0) {
                nus::set_error(h, NU_EEOF);
                return nullptr;
            }
            h->reserved2 = b;
            wc = static_cast<nu_wchar>(b);
        } else {
            const int status = read_wide(h, stream, &wc);
            if (status != 0) {
                nus::set_error(h, status);
                return nullptr;
            }
        }
        const long need = wc == 10 ? 2 : 1;
        if (used + need > size) {
            nus::set_error(h, NU_E2BIG);
            return nullptr;
        }
        ws[used++] = wc;
        if (wc == 10) {
            ws[used] = 0;
            return ws;
        }
    }
}

// ---- writing ------------------------------------------------------------------------------

NU_EXPORT int nu_putmb(nu_locale_t h, const unsigned char *s, int n, nu_putbyte_fn putbyte,
                       void *stream, int *written) {
    if (nus::no_handle(h) || nus::missing(h, s) ||
        (putbyte == nullptr && nus::bad_argument(h)))
        return -1;
    return put_char(h, s, n, putbyte, stream, written, false);
}

NU_EXPORT int _tsn_nu_putmb(nu_locale_t h, const unsigned char *s, int n,
                            nu_putbyte_fn putbyte, void *stream, int *written) {
    if (nus::no_handle(h) || nus::missing(h, s) ||
        (putbyte == nullptr && nus::bad_argument(h)))
        return -1;
    return put_char(h, s, n, putbyte, stream, written, true);
}

NU_EXPORT const unsigned char *nu_fputmb(nu_locale_t h, const unsigned char *s, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, s, stream)) return nullptr;
    int written;
    return nu_putmb(h, s, MULTI_MAX_DEPTH, local_fputc, stream, &written) == 0 ? s : nullptr;
}

NU_EXPORT nu_wchar nu_fputwc(nu_locale_t h, nu_wchar wc, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, stream)) return static_cast<nu_wchar>(-1);
    return put_wide(h, wc, stream) ? wc : static_cast<nu_wchar>(-1);
}

// The string without its terminator in one write.
NU_EXPORT int nu_fputmbs(nu_locale_t h, const unsigned char *s, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, s, stream)) return -1;
    const int bytes = nu_mbsbytes(h, s);
    if (bytes < 1) return -1;
    const auto count = static_cast<size_t>(bytes - min_length(h));
    if (_nu_ext_fwrite(s, 1, count, stream) != count) {
        nus::set_error(h, NU_EIO);
        return -1;
    }
    return 0;
}

NU_EXPORT int nu_fputwcs(nu_locale_t h, const nu_wchar *ws, FILE *stream) {
    if (nus::no_handle(h) || nus::missing(h, ws, stream)) return -1;
    for (; *ws != 0; ++ws) {
        if (!put_wide(h, *ws, stream)) return -1;
    }
    return 0;
}

// ---- boundaries ---------------------------------------------------------------------------

// How far p lies into the character that holds it; *len is that character's length. The null
// character counts with its own length, so p may point into the terminator.
NU_EXPORT int nu_full_charoffset(nu_locale_t h, const unsigned char *s, const unsigned char *p,
                                 int *len) {
    if (nus::no_handle(h) || nus::missing(h, s, p)) return -1;
    store(len, 0);
    if (p < s) {
        nus::set_error(h, NU_EINVAL);
        return -1;
    }
    const bool single = h->single_byte != 0;
    const multi_t *table = h->ctype.class_table;
    for (;;) {
        int step = 1;
        if (!single) {
            const nus::Walk w = nus::walk(table, s, MULTI_MAX_DEPTH);
            if (w.status != 0) {
                nus::set_error(h, NU_EILSEQ);
                return -1;
            }
            step = w.length;
        }
        if (p - s < step) {
            store(len, step);
            return static_cast<int>(p - s);
        }
        s += step;
    }
}
