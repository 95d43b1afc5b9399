// The Thai collation method: comparison and sort keys of TIS-620 text by a fixed algorithm
// rather than tables, and the Thai answers of the primary-weight functions.
//
// Consonants decide first; a leading vowel, written before its consonant, is weighed after
// it; tone marks and diacritics decide only between texts that are otherwise equal. The text
// is taken as TIS-620 bytes and is not validated.
#include "chars/chars.h"
#include "collate/collate.h"

namespace {

constexpr int kKeyLimit = 256;   // the longest sort key ever written, and the work buffers

constexpr bool is_consonant(unsigned c) { return c >= 0xA1 && c <= 0xCE; }
constexpr bool is_leading_vowel(unsigned c) { return c >= 0xE0 && c <= 0xE4; }
// Tone marks and diacritics as the comparison sees them ...
constexpr bool is_tone(unsigned c) { return c >= 0xE7 && c <= 0xEC; }

// ... and as the sort key sees them (0xED and 0xEE as well): 2 leading vowel, 3 tone mark or
// diacritic, 1 anything else.
constexpr int ChType(unsigned c) {
    return is_leading_vowel(c) ? 2 : c >= 0xE7 && c <= 0xEE ? 3 : 1;
}

// The code of a tone mark or diacritic in the sort key's tone list.
constexpr unsigned char Ch2Int(unsigned c) {
    if (c == 0xD1) return 0x80;
    if (c == 0xD2) return 0xD1;
    if (c >= 0xD3 && c <= 0xDA) return static_cast<unsigned char>(c - 0xD3 + 0x81);
    if (c >= 0xE7 && c <= 0xEE) return static_cast<unsigned char>(c - 0xE7 + 0x8E);
    return static_cast<unsigned char>(c);
}

// The order of the texts where they stop being equal: leading vowels are looked through to
// the consonant they belong to, which decides; the vowels decide only after it.
int checkvowel(const unsigned char *p1, const unsigned char *p2) {
    const unsigned c1 = *p1, c2 = *p2;
    const bool l1 = is_leading_vowel(c1), l2 = is_leading_vowel(c2);
    auto skip = [](const unsigned char *p) {
        while (is_leading_vowel(*p) || is_tone(*p)) ++p;
        return static_cast<int>(*p);
    };
    if (!l1 && !l2) return static_cast<int>(c1) - static_cast<int>(c2);
    if (l1 && l2) {
        const int vowels = static_cast<int>(c1) - static_cast<int>(c2);
        const int b1 = skip(p1), b2 = skip(p2);
        return b1 != b2 ? b1 - b2 : vowels;
    }
    if (l1) {
        const int b1 = skip(p1);
        return b1 == static_cast<int>(c2) ? 1 : b1 - static_cast<int>(c2);
    }
    const int b2 = skip(p2);
    return b2 == static_cast<int>(c1) ? -1 : static_cast<int>(c1) - b2;
}

bool only_spaces(const unsigned char *p) {
    while (*p == ' ') ++p;
    return *p == 0;
}

// Negative, 0 or positive. Tone marks are stepped over; the first difference they make is
// kept and decides only when the rest is equal. Trailing spaces do not count.
int bythcmpr(const unsigned char *p1, const unsigned char *p2) {
    int d = 0;
    for (;;) {
        const unsigned c1 = *p1, c2 = *p2;
        if (c1 == c2 && c1 != 0) {
            ++p1;
            ++p2;
            continue;
        }
        const bool t1 = is_tone(c1), t2 = is_tone(c2);
        if (t1 && !t2) {
            if (d == 0) d = 1;
            ++p1;
        } else if (t1 && t2) {
            if (d == 0) d = static_cast<int>(c1) - static_cast<int>(c2);
            ++p1;
            ++p2;
        } else if (t2) {
            if (d == 0) d = -1;
            ++p2;
        } else {
            break;
        }
    }
    if (*p1 == 0) return *p2 == 0 || only_spaces(p2) ? d : -1;
    if (*p2 == 0) return only_spaces(p1) ? d : 1;
    return checkvowel(p1, p2);
}

// The two parts of a sort key: the main text (a leading vowel moved after the character that
// follows it, tone marks and diacritics left out) and the tone list (per tone mark, its
// position in the main text counted from 1 and its Ch2Int code). Each part is stored up to
// `cap` bytes and a terminator; the full lengths are returned whatever was stored. A position
// is one byte: past 255 it wraps, and a position of 0 ends the tone list as its terminator
// would.
struct SortText {
    int main_length = 0;
    int tone_length = 0;
};

SortText CchSortText(const unsigned char *src, unsigned char *main, unsigned char *tones,
                     int cap) {
    SortText t;
    bool tones_ended = false;
    auto put_main = [&](unsigned char c) {
        if (t.main_length < cap) main[t.main_length] = c;
        ++t.main_length;
    };
    auto put_tone = [&](unsigned char position, unsigned char code) {
        if (tones_ended) return;
        if (position == 0) {
            tones_ended = true;
            return;
        }
        for (unsigned char c : {position, code}) {
            if (tones != nullptr && t.tone_length < cap) tones[t.tone_length] = c;
            ++t.tone_length;
        }
    };
    unsigned char position = 1;
    unsigned char pending = 0;   // a leading vowel waiting for its character
    for (const unsigned char *p = src; *p != 0; ++p) {
        switch (ChType(*p)) {
        case 2:
            ++position;
            if (pending == 0) {
                pending = *p;
            } else {
                put_main(*p);
                put_main(pending);
                pending = 0;
                ++position;
            }
            break;
        case 3:
            put_tone(position, Ch2Int(*p));
            break;
        default:
            put_main(*p);
            if (pending != 0) put_main(pending);
            pending = 0;
            ++position;
            break;
        }
    }
    if (pending != 0) put_main(pending);
    if (t.main_length < cap) main[t.main_length] = 0;
    if (tones != nullptr && t.tone_length < cap) tones[t.tone_length] = 0;
    return t;
}

// The sort key of src: the main text followed by the tone list. At most n bytes (never more
// than 256) are copied into dst as strncpy copies them: zero-padded, and not terminated when
// the key takes n bytes or more. The result is the key's full length.
int thai_strxfrm(const unsigned char *src, unsigned char *dst, int n) {
    if (n > kKeyLimit) n = kKeyLimit;
    unsigned char main[kKeyLimit + 1], tones[kKeyLimit + 1];
    const SortText t = CchSortText(src, main, tones, kKeyLimit);
    if (dst != nullptr && n > 0) {
        int i = 0;
        for (int k = 0; k < t.main_length && i < n; ++k) dst[i++] = main[k];
        for (int k = 0; k < t.tone_length && i < n; ++k) dst[i++] = tones[k];
        while (i < n) dst[i++] = 0;
    }
    return t.main_length + t.tone_length;
}

int fail(nu_locale_rec *h, int code, int result) {
    nus::set_error(h, code);
    return result;
}

// ---- the Thai neighbour in primary order ---------------------------------------------------

// The primary key of a text: the main text of its sort key (tone marks and diacritics carry
// no primary weight). Stored in `key` (room for `cap` bytes and a terminator); its length.
int primary_key(const unsigned char *s, unsigned char *key, int cap) {
    return CchSortText(s, key, nullptr, cap).main_length;
}

// strcmp order of two keys given with their lengths (keys hold no zero byte).
int key_compare(const unsigned char *a, int alen, const unsigned char *b, int blen) {
    const int common = alen < blen ? alen : blen;
    const int c = common > 0 ? std::memcmp(a, b, static_cast<size_t>(common)) : 0;
    if (c != 0) return c;
    return (alen > blen) - (alen < blen);
}

bool is_one_byte_char(nu_locale_rec *h, unsigned char b) {
    const unsigned char s[2] = {b, 0};
    const int saved = h->error;
    const int length = nu_full_mblen(h, s, 1);
    h->error = saved;
    return length == 1;
}

} // namespace

NU_EXPORT int _nu_thaismocoll(nu_locale_t h, const unsigned char *s1, const unsigned char *s2) {
    if (s1 == nullptr || s2 == nullptr) return h != nullptr ? fail(h, NU_EBADARG, 0) : 0;
    return bythcmpr(s1, s2);
}

// The lengths choose only the form; the texts are read up to their zero bytes either way.
NU_EXPORT int _tsn_nu_thaismoncoll(nu_locale_t h, const unsigned char *s1, int len1,
                                   const unsigned char *s2, int len2) {
    if ((len1 == -1) != (len2 == -1)) return h != nullptr ? fail(h, NU_ELENGTHS, 0) : 0;
    return _nu_thaismocoll(h, s1, s2);
}

// Source first, destination second, although it is installed as the handle's sort-key
// pointer, whose callers pass the destination first: kept so for compatibility.
NU_EXPORT int _nu_thaismoxfrm(nu_locale_t h, unsigned char *src, const unsigned char *dst, int n) {
    if (src == nullptr) return h != nullptr ? fail(h, NU_EBADARG, -1) : -1;
    return thai_strxfrm(src, const_cast<unsigned char *>(dst), n);
}

// 1 not part of a longer unit, 2 the end of a unit (a consonant, with the leading vowel
// before it), 3 waiting for more (a leading vowel or a tone mark); -1 on failure.
NU_EXPORT int nu_iscompchar_thai(nu_locale_t h, const unsigned char *s) {
    if (h == nullptr) return -1;
    if (s == nullptr) return fail(h, NU_EBADARG, -1);
    const int count = h->single_byte ? static_cast<int>(std::strlen(reinterpret_cast<const char *>(s)))
                                     : _nu_im_mbslen(h, s);
    if (count < 0) return -1;
    if (count == 0) return 1;
    if (count == 1) {
        const unsigned c = s[0];
        if (is_consonant(c)) return 2;
        return is_leading_vowel(c) || is_tone(c) ? 3 : 1;
    }
    // The bytes, not the characters: in a code set of two-byte characters a Thai test of
    // the last bytes must still stay inside the string.
    const auto bytes = static_cast<size_t>(nus::text_bytes(h, s));
    if (bytes < 2) return 1;
    const unsigned last = s[bytes - 1];
    if (is_leading_vowel(last) || is_tone(last)) return 3;
    if (is_leading_vowel(s[bytes - 2]) && is_consonant(last)) return 2;
    return is_consonant(last) ? 2 : 1;
}

// The unit next to s (direction 1) or before it (direction 2) in Thai primary order.
//
// The primary key of a text is the first part of its Thai sort key: consonants with their
// leading vowels moved after them, tone marks and diacritics (0xE7 to 0xEE) left out. The
// units searched are the one-byte characters of the code set that have a primary key (all but
// the tone marks and diacritics) and every leading vowel followed by a consonant. With K the
// primary key of s as it stands:
// - next: the unit with the smallest key above K that does not begin with K, so that every
//   text beginning with s sorts below it (after a consonant comes the next consonant, not the
//   same consonant with a leading vowel);
// - previous: the unit with the largest key below K.
// No two units share a key. s holding only tone marks has an empty key and no neighbour. As
// in nu_nextprimweight, whole is 0 exactly when s waits for more (it ends in a leading vowel
// or a tone mark), out receives the unit and its terminator, and the result is the byte
// length of its first character, -2 when there is no such unit, -1 on failure.
NU_EXPORT int nu_primweight_thai(nu_locale_t h, const unsigned char *s, int whole,
                                 unsigned char *out, int direction) {
    if (h == nullptr) return -1;
    if (s == nullptr || out == nullptr || (direction != 1 && direction != 2))
        return fail(h, NU_EBADARG, -1);
    const int kind = nu_iscompchar_thai(h, s);
    if (kind < 0) return -1;
    if ((whole != 0) == (kind == 3)) return fail(h, NU_EBADVAL, -1);

    const int text_length = nus::text_bytes(h, s);
    if (text_length < 0) return -1;
    const auto length = static_cast<size_t>(text_length);
    nus::Scratch<unsigned char, kKeyLimit> key_buffer(length + 1);
    if (!key_buffer.ok()) return fail(h, NU_ENOMEM, -1);
    unsigned char *key = key_buffer.data();
    const int klen = primary_key(s, key, static_cast<int>(length));
    if (klen == 0) return -2;

    unsigned char best[3] = {0, 0, 0};
    unsigned char best_key[2];
    int best_len = 0;
    auto consider = [&](const unsigned char *unit, const unsigned char *ukey, int ulen) {
        const int c = key_compare(ukey, ulen, key, klen);
        if (direction == 1) {
            const bool extends = ulen >= klen && std::memcmp(ukey, key, static_cast<size_t>(klen)) == 0;
            if (c <= 0 || extends) return;
            if (best_len != 0 && key_compare(ukey, ulen, best_key, best_len) >= 0) return;
        } else {
            if (c >= 0) return;
            if (best_len != 0 && key_compare(ukey, ulen, best_key, best_len) <= 0) return;
        }
        std::memcpy(best, unit, 3);
        std::memcpy(best_key, ukey, static_cast<size_t>(ulen));
        best_len = ulen;
    };
    bool valid[256] = {};
    for (int b = 1; b < 256; ++b) valid[b] = is_one_byte_char(h, static_cast<unsigned char>(b));
    for (int b = 1; b < 256; ++b) {
        if (!valid[b] || ChType(static_cast<unsigned>(b)) == 3) continue;
        const unsigned char unit[3] = {static_cast<unsigned char>(b), 0, 0};
        consider(unit, unit, 1);
    }
    for (unsigned v = 0xE0; v <= 0xE4; ++v)
        for (unsigned c = 0xA1; c <= 0xCE; ++c) {
            if (!valid[v] || !valid[c]) continue;
            const unsigned char unit[3] = {static_cast<unsigned char>(v),
                                           static_cast<unsigned char>(c), 0};
            const unsigned char ukey[2] = {static_cast<unsigned char>(c),
                                           static_cast<unsigned char>(v)};
            consider(unit, ukey, 2);
        }
    if (best_len == 0) return -2;
    std::strcpy(reinterpret_cast<char *>(out), reinterpret_cast<const char *>(best));
    return 1;
}
