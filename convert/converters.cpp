// The five converters and the dispatch. Every converter runs one loop: look the next source
// character up, check its record, check the room, write its target bytes, advance; they
// differ only in how a character is found and how its bytes are written.
#include "convert/convert.h"
#include "frame/multi.h"
#include "locale/nuu.h"

#include <bit>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nus {

namespace {

constexpr int kUnbounded = 0x7FFFFFFF;

struct Found {
    const unsigned char *rec; // null: no character (error says why)
    int length;               // bytes of the source character
    int error;
};

// The table walk of the frame's text lookups, inlined here because conversion is the
// library's hottest loop: one flag, one offset and one pointer read per byte.
[[gnu::always_inline]] inline Found walk_from(const multi_t *t, const multi_arr_t *node,
                                              const unsigned char *s, int i, int count) {
    for (;; ++i) {
        if (i >= count) return {nullptr, i, NU_EINVAL};
        const unsigned b = s[i];
        const unsigned char *flags = node->flag_arr;
        const unsigned flag = flags != nullptr ? flags[b] : MULTI_INVALID;
        if (flag != MULTI_MORE) {
            if (flag != MULTI_LAST) return {nullptr, i + 1, NU_EILSEQ};
            const unsigned char *rec = node->data_arr != nullptr
                                           ? node->data_arr + (size_t{b} << t->shift)
                                           : t->default_desc;
            return {rec, i + 1, 0};
        }
        node = node->next_arr[node->offset_arr[b]];
    }
}

[[gnu::always_inline]] inline Found walk(const multi_t *t, const unsigned char *s, int count) {
    return walk_from(t, t->root, s, 0, count);
}

// The same lookup as walk(), starting from first-byte entries.
[[gnu::always_inline]] inline Found find_from(const FastEntry *entries, const multi_t *t,
                                              const unsigned char *s, int count) {
    const FastEntry &e = entries[s[0]];
    if (e.kind == kFastChar || e.kind == kFastOther) return {e.rec, 1, 0};
    if (e.kind == kFastInvalid) return {nullptr, 1, NU_EILSEQ};
    return walk_from(t, e.child, s, 1, count);
}

[[gnu::always_inline]] inline unsigned char *put(unsigned char *o, const unsigned char *bytes,
                                                 int n) {
    switch (n) {
    case 4: o[3] = bytes[3]; [[fallthrough]];
    case 3: o[2] = bytes[2]; [[fallthrough]];
    case 2: o[1] = bytes[1]; [[fallthrough]];
    case 1: o[0] = bytes[0]; [[fallthrough]];
    default: break;
    }
    return o + n;
}

// Writes 1 to 4 bytes, and not one after them: the first and the last (the same byte for
// one), and those between only for three or four, so that the one- and two-byte characters
// of most text take no branch.
[[gnu::always_inline]] inline void put_some(unsigned char *o, const unsigned char *bytes,
                                            unsigned n) {
    o[0] = bytes[0];
    o[n - 1] = bytes[n - 1];
    if (n > 2) {
        o[1] = bytes[1];
        o[2] = bytes[2];
    }
}

// The arguments every converter needs; false (NU_EBADARG) when one is missing.
bool arguments_ok(nu_cv_rec *cv, unsigned char **in, int *room) {
    if (in == nullptr || *in == nullptr || room == nullptr) {
        set_error(cv, NU_EBADARG);
        return false;
    }
    return true;
}

void fail(nu_cv_rec *cv, int code, const char *message) {
    nu_message(message);
    set_error(cv, code);
}

// The general multibyte converter.
struct Multibyte {
    const multi_t *t;
    Found find(const unsigned char *s, int left) const { return walk(t, s, left); }
    static int need(const unsigned char *rec) { return rec[0] & kCvCount; }
    static unsigned char *write(unsigned char *o, const unsigned char *rec, int) {
        return put(o, rec + 1, rec[0] & kCvCount);
    }
    static int used(const unsigned char *rec) { return rec[0] & kCvCount; }
};

// Single-byte source and target: the record straight from the root's data.
struct SingleByte {
    const unsigned char *data; // the root's data array, or null
    const unsigned char *fallback;
    uint32_t shift;
    Found find(const unsigned char *s, int) const {
        const unsigned char *rec = data != nullptr ? data + (size_t{s[0]} << shift) : fallback;
        return {rec, 1, 0};
    }
    static int need(const unsigned char *) { return 1; }
    static unsigned char *write(unsigned char *o, const unsigned char *rec, int) {
        *o = rec[1];
        return o + 1;
    }
    static int used(const unsigned char *) { return 1; }
};

// A source of 2- or 4-byte little-endian code units.
struct LittleEndianSource {
    nu_cv_rec *cv;
    Found find(const unsigned char *s, int left) const {
        const int width = cv->source_min_len == 4 && cv->source_max_len == 4 ? 4 : 2;
        const void *rec = _nu_retrieve_little_endian_unicode_limit(s, cv->table, left, cv);
        if (rec == nullptr) return {nullptr, width, *_nu_ext_errno(cv)};
        return {static_cast<const unsigned char *>(rec), width, 0};
    }
    static int need(const unsigned char *rec) { return rec[0] & kCvCount; }
    static unsigned char *write(unsigned char *o, const unsigned char *rec, int) {
        return put(o, rec + 1, rec[0] & kCvCount);
    }
    static int used(const unsigned char *rec) { return rec[0] & kCvCount; }
};

// A target of 2- or 4-byte little-endian code units: the record's bytes in reverse order.
struct LittleEndianTarget {
    const multi_t *t;
    bool wide;   // 4-byte units
    Found find(const unsigned char *s, int left) const { return walk(t, s, left); }
    // Deliberate: the room asked for is 2 bytes even for 4-byte units.
    static int need(const unsigned char *) { return 2; }
    // A 4-byte unit passes the 2-byte room check with 2 or 3 bytes of room: it is counted
    // whole, but only the bytes that fit in the room are stored.
    unsigned char *write(unsigned char *o, const unsigned char *rec, int space) const {
        if (wide) {
            const unsigned char unit[4] = {rec[4], rec[3], rec[2], rec[1]};
            for (int i = 0; i < 4 && i < space; ++i) o[i] = unit[i];
            return o + 4;
        }
        o[0] = rec[2];
        o[1] = rec[1];
        return o + 2;
    }
    int used(const unsigned char *) const { return wide ? 4 : 2; }
};

// Where a conversion stands while it runs.
struct Position {
    const unsigned char *s;
    int left;
    unsigned char *o;
    int space;
    unsigned substituted;   // the flags of the converted characters, or-ed
    bool ended;             // the terminating character was converted
};

// Copies the bytes below 0x80 at the start of s other than x and y, at most n of them, and
// returns how many: sixteen at a time where SSE2 is there, eight otherwise, the last few
// exactly. Every load comes before the stores that could overlap it, so that a conversion in
// place (the output never ahead of the input) reads the input as it was.
template <bool Except>
[[gnu::always_inline]] inline int copy_ascii(unsigned char *o, const unsigned char *s, int n,
                                             unsigned char x, unsigned char y) {
    int i = 0;
    bool found = false;   // n is where the run ends
#if defined(__SSE2__)
    const __m128i vx = _mm_set1_epi8(static_cast<char>(x));
    const __m128i vy = _mm_set1_epi8(static_cast<char>(y));
    for (; i + 16 <= n; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i));
        const __m128i stop =
            Except ? _mm_or_si128(v, _mm_or_si128(_mm_cmpeq_epi8(v, vx), _mm_cmpeq_epi8(v, vy)))
                   : v;
        const unsigned high = static_cast<unsigned>(_mm_movemask_epi8(stop));
        if (high != 0) {
            n = i + std::countr_zero(high);
            found = true;
            break;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o + i), v);
    }
#endif
    constexpr uint64_t kOnes = 0x0101010101010101ull, kHighs = 0x8080808080808080ull;
    // The lowest byte equal to b is flagged exactly (higher flags may be false).
    auto equal = [](uint64_t word, unsigned char b) {
        const uint64_t t = word ^ (kOnes * b);
        return (t - kOnes) & ~t & kHighs;
    };
    for (; !found && i + 8 <= n; i += 8) {
        uint64_t word;
        std::memcpy(&word, s + i, 8);
        const uint64_t high = (word & kHighs) | (Except ? equal(word, x) | equal(word, y) : 0);
        if (high != 0) {
            n = i + std::countr_zero(high) / 8;
            found = true;
            break;
        }
        std::memcpy(o + i, &word, 8);
    }
    if (!found) {
        int end = i;
        while (end < n && s[end] < 0x80 && s[end] != x && s[end] != y) ++end;
        n = end;
    }
    // The last bytes of the run (fewer than sixteen): two overlapping words where they fill
    // them, else one at a time.
    const int rest = n - i;
    if (rest >= 8) {
        uint64_t a, b;
        std::memcpy(&a, s + i, 8);
        std::memcpy(&b, s + n - 8, 8);
        std::memcpy(o + i, &a, 8);
        std::memcpy(o + n - 8, &b, 8);
    } else if (rest >= 4) {
        uint32_t a, b;
        std::memcpy(&a, s + i, 4);
        std::memcpy(&b, s + n - 4, 4);
        std::memcpy(o + i, &a, 4);
        std::memcpy(o + n - 4, &b, 4);
    } else {
        for (; i < n; ++i) o[i] = s[i];
    }
    return n;
}

// The value of four bytes read in memory order, first byte lowest.
[[gnu::always_inline]] inline uint32_t little_endian(uint32_t word) {
    if constexpr (std::endian::native == std::endian::big) return __builtin_bswap32(word);
    return word;
}

// Writes n (1 to 3) bytes packed low byte first, and no more, without a branch on n.
[[gnu::always_inline]] inline void put_packed(unsigned char *o, uint32_t bytes, unsigned n) {
    o[0] = static_cast<unsigned char>(bytes);
    o[n >> 1] = static_cast<unsigned char>(bytes >> (8 * (n >> 1)));
    o[n - 1] = static_cast<unsigned char>(bytes >> (8 * (n - 1)));
}

// A single-byte source with two-byte high bytes (CvBlock::two_byte_highs), 64 bytes at a
// time while at least 80 remain and the room holds twice that: each 16-byte block stored
// where its output starts (the number of high bytes before it found by counting bits), then,
// in order, each high byte's pair written and the 16 bytes after it stored after the pair.
// A store may run ahead of its block's output with bytes that a later store replaces, by up
// to 16 bytes past the last block's output. Those are the output places of the next 16
// characters, which the text has, every byte of which converts and which the room left
// (at least 32) holds: the conversion goes on over them, so that nothing after the output
// changes. The output must not overlap the text.
[[gnu::always_inline]] inline void expand_highs(const CvBlock *block, Position &p) {
#if defined(__SSE2__)
    const unsigned char *s = p.s;
    unsigned char *o = p.o;
    int left = p.left;
    int space = p.space;
    if (left < 80 || space < 160) return;
    const uint16_t *pairs = block->high_pairs;
    do {
        const __m128i v0 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s));
        const __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + 16));
        const __m128i v2 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + 32));
        const __m128i v3 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + 48));
        const uint32_t low = static_cast<uint32_t>(_mm_movemask_epi8(v0)) |
                             static_cast<uint32_t>(_mm_movemask_epi8(v1)) << 16;
        const uint32_t high = static_cast<uint32_t>(_mm_movemask_epi8(v2)) |
                              static_cast<uint32_t>(_mm_movemask_epi8(v3)) << 16;
        // The high bytes of each 16-byte block, then those of each block and the ones
        // before it.
        auto block_counts = [](auto bits) {
            using Word = decltype(bits);
            constexpr Word k55 = static_cast<Word>(0x5555555555555555ull);
            constexpr Word k33 = static_cast<Word>(0x3333333333333333ull);
            constexpr Word k0F = static_cast<Word>(0x0F0F0F0F0F0F0F0Full);
            constexpr Word k00FF = static_cast<Word>(0x00FF00FF00FF00FFull);
            Word c = bits - ((bits >> 1) & k55);
            c = (c & k33) + ((c >> 2) & k33);
            c = (c + (c >> 4)) & k0F;
            return (c + (c >> 8)) & k00FF;
        };
        unsigned before1, before2, before3, all;
        if constexpr (sizeof(void *) == 8) {
            const uint64_t c = block_counts(uint64_t{high} << 32 | low) * 0x0001000100010001ull;
            before1 = static_cast<unsigned>(c) & 0xFFu;
            before2 = static_cast<unsigned>(c >> 16) & 0xFFu;
            before3 = static_cast<unsigned>(c >> 32) & 0xFFu;
            all = static_cast<unsigned>(c >> 48) & 0xFFu;
        } else {
            const uint32_t c = block_counts(low) * 0x00010001u;
            const uint32_t d = block_counts(high) * 0x00010001u;
            before1 = c & 0xFFu;
            before2 = (c >> 16) & 0xFFu;
            before3 = before2 + (d & 0xFFu);
            all = before2 + ((d >> 16) & 0xFFu);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o), v0);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o + 16 + before1), v1);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o + 32 + before2), v2);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(o + 48 + before3), v3);
        unsigned char *at = o;   // where byte 0 of the text goes, given the pairs so far
        auto pairs_of = [&](auto bits, const unsigned char *from) {
            for (; bits != 0; bits &= bits - 1) {
                const unsigned i = static_cast<unsigned>(std::countr_zero(bits));
                std::memcpy(at + (from - s) + i, &pairs[from[i] - 0x80], 2);
                const __m128i after = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + i + 1));
                _mm_storeu_si128(reinterpret_cast<__m128i *>(at + (from - s) + i + 2), after);
                ++at;
            }
        };
        // In the order of the text: a later store replaces what an earlier one put too far.
        if constexpr (sizeof(void *) == 8) {
            pairs_of(uint64_t{high} << 32 | low, s);
        } else {
            pairs_of(low, s);
            pairs_of(high, s + 32);
        }
        s += 64;
        o += 64 + all;
        left -= 64;
        space -= static_cast<int>(64 + all);
    } while (left >= 80 && space >= 160);
    p.substituted |= kCvValid;
    p.s = s;
    p.left = left;
    p.o = o;
    p.space = space;
#else
    (void)block;
    (void)p;
#endif
}

// Converts as far as valid characters go, from the first-byte records (a descriptor opened by
// the library has them). A character writes at most four bytes, so it stops while the room is
// below four rather than checking the room for each; an invalid or cut-off character is left
// to the general loop, which reports it. In a conversion with shift states it stops before any
// character that changes a state. It writes exactly the characters' bytes: what follows the
// output may be the caller's, or, converting in place, input still to be read.
template <bool Stateful = false>
[[gnu::always_inline]] inline void fast_run(const FastEntry *root, const CvBlock *ascii_runs,
                                            const uint16_t *utf8_three, const multi_t *t,
                                            bool counted, Position &p) {
    const bool ascii = ascii_runs != nullptr && ascii_runs->ascii_identity && counted;
    const unsigned char x = ascii ? ascii_runs->ascii_except[0] : 0;
    const unsigned char y = ascii ? ascii_runs->ascii_except[1] : 0;
    auto runs_from = [&](unsigned b) { return ascii && b < 0x80 && b != x && b != y; };
    // The three-byte table reads four bytes at once: only where the text's length is known.
    if (!counted) utf8_three = nullptr;
    const unsigned char *s = p.s;
    int left = p.left;
    unsigned char *o = p.o;
    int space = p.space;
    unsigned substituted = p.substituted;
    while (left > 0 && space >= 4) {
        // Runs of ASCII that convert to themselves are copied.
        if (runs_from(s[0])) {
            const int most = left < space ? left : space;
            // Without exceptions both are 0x80, which the high bits find anyway.
            const int k = x == 0x80 ? copy_ascii<false>(o, s, most, x, y)
                                    : copy_ascii<true>(o, s, most, x, y);
            s += k;
            o += k;
            left -= k;
            space -= k;
            if (left == 0 || space < 4) break;
        }
        // Runs of three-byte UTF-8 characters with two-byte targets, from their table.
        // Four bytes are read (the fourth only when the text has it), so that one mask tells
        // a lead byte E0-EF followed by two continuation bytes.
        if (utf8_three != nullptr) {
            while (left >= 4) {
                uint32_t word;
                std::memcpy(&word, s, 4);
                word = little_endian(word);
                if ((word & 0xC0C0F0u) != 0x8080E0u) break;
                const uint16_t bytes =
                    utf8_three[((word & 0x0Fu) << 12) | ((word >> 2) & 0xFC0u) | ((word >> 16) & 0x3Fu)];
                if (bytes == 0) break;
                o[0] = static_cast<unsigned char>(bytes);
                o[1] = static_cast<unsigned char>(bytes >> 8);
                o += 2;
                space -= 2;
                s += 3;
                left -= 3;
                if (space < 4) break;
            }
            if (left <= 0 || space < 4) break;
            if (runs_from(s[0])) continue;
        }
        const FastEntry &e = root[s[0]];
        unsigned flags;
        int n, length;
        if (e.kind == kFastChar) {
            flags = e.rec[0];
            n = e.count;
            put_some(o, e.rec + 1, e.count);
            length = 1;
        } else if (e.kind != kFastMore) {
            break;
        } else if (uint32_t packed; e.pairs != nullptr && left >= 2 &&
                                    (packed = e.pairs[s[1]]) != 0) {
            // A two-byte character that converts plainly.
            n = static_cast<int>(packed & kPairCount);
            put_packed(o, packed >> 8, static_cast<unsigned>(n));
            flags = kCvValid;
            length = 2;
        } else {
            // The rest of the walk, from the second byte, or from the third when the first
            // two lead to a node of their own.
            const multi_arr_t *node = e.child;
            unsigned b;
            unsigned flag;
            if (e.grand == nullptr) {
                // No character longer than two bytes starts here.
                if (left < 2) break;
                b = s[1];
                flag = node->flag_arr != nullptr ? node->flag_arr[b] : MULTI_INVALID;
                length = 2;
            } else {
                length = 1;
                flag = MULTI_MORE;
                if (left >= 3 && e.grand[s[1]] != nullptr) {
                    node = e.grand[s[1]];
                    length = 2;
                }
                b = 0;
                while (flag == MULTI_MORE && length < left) {
                    b = s[length++];
                    flag = node->flag_arr != nullptr ? node->flag_arr[b] : MULTI_INVALID;
                    if (flag == MULTI_MORE) node = node->next_arr[node->offset_arr[b]];
                }
            }
            if (flag != MULTI_LAST) break;   // cut off or invalid: the general loop says which
            const unsigned char *rec = node->data_arr != nullptr
                                           ? node->data_arr + (size_t{b} << t->shift)
                                           : t->default_desc;
            flags = rec[0];
            if ((flags & kCvInvalidMask) == 0) break;
            if (Stateful && (flags & (kCvSourceShift | kCvTargetShifted)) != 0) break;
            n = static_cast<int>(flags & kCvCount);
            put(o, rec + 1, n);
        }
        substituted |= flags;
        o += n;
        space -= n;
        s += length;
        left -= length;
        if (!counted && (flags & kCvEnd) != 0) {
            p.ended = true;
            break;
        }
    }
    p.s = s;
    p.left = left;
    p.o = o;
    p.space = space;
    p.substituted = substituted;
}

template <typename Converter>
int convert_loop(nu_cv_rec *cv, const Converter &c, unsigned char **in, int *inlen,
                 unsigned char **out, int *room, int *irreversible,
                 const CvBlock *root = nullptr) {
    if (irreversible != nullptr) *irreversible = 0;
    if (!arguments_ok(cv, in, room)) return -1;
    const bool counted = inlen != nullptr;
    Position p{*in, counted ? *inlen : kUnbounded, out != nullptr ? *out : nullptr, *room, 0,
               false};
    int result = 0;
    if (p.o == nullptr) root = nullptr;   // counting only: the general loop
    if (root != nullptr && root->two_byte_highs && counted &&
        (reinterpret_cast<uintptr_t>(p.o) >= reinterpret_cast<uintptr_t>(p.s) + p.left ||
         reinterpret_cast<uintptr_t>(p.s) >= reinterpret_cast<uintptr_t>(p.o) + p.space)) {
        expand_highs(root, p);
    }
    while (p.left > 0) {
        if (root != nullptr) {
            fast_run(root->root, root, root->utf8_three, cv->table, counted, p);
            if (p.left <= 0 || p.ended) break;
        }
        const Found f = c.find(p.s, p.left);
        if (f.rec == nullptr) {
            fail(cv, f.error, "Error in Translation.");
            result = -1;
            break;
        }
        const unsigned flags = f.rec[0];
        if ((flags & kCvInvalidMask) == 0) {
            fail(cv, NU_EILSEQ, "Error in Translation (NU_EILSEQ)");
            result = -1;
            break;
        }
        p.substituted |= flags;
        if (p.space < c.need(f.rec)) {
            fail(cv, NU_E2BIG, "Error in Translation (NU_E2BIG)");
            result = -1;
            break;
        }
        if (p.o != nullptr) p.o = c.write(p.o, f.rec, p.space);
        p.space -= c.used(f.rec);
        p.s += f.length;
        p.left -= f.length;
        if (!counted && (flags & kCvEnd) != 0) break;
    }
    *in = const_cast<unsigned char *>(p.s);
    if (counted) *inlen = p.left;
    if (out != nullptr) *out = p.o;
    *room = p.space;
    if (irreversible != nullptr && (p.substituted & kCvIrreversible) != 0) *irreversible = 1;
    return result;
}

} // namespace

int mb_miconv(nu_cv_rec *cv, void *, unsigned char **in, int *inlen, unsigned char **out,
              int *room, int *irreversible) {
    return convert_loop(cv, Multibyte{cv->table}, in, inlen, out, room, irreversible,
                        fast_block(cv));
}

int sb_miconv(nu_cv_rec *cv, void *, unsigned char **in, int *inlen, unsigned char **out,
              int *room, int *irreversible) {
    const multi_t *t = cv->table;
    const SingleByte c{t->root->data_arr, t->default_desc, t->shift};
    return convert_loop(cv, c, in, inlen, out, room, irreversible);
}

int little_endian_unicode_source_miconv(nu_cv_rec *cv, void *, unsigned char **in, int *inlen,
                                        unsigned char **out, int *room, int *irreversible) {
    return convert_loop(cv, LittleEndianSource{cv}, in, inlen, out, room, irreversible);
}

int little_endian_unicode_target_miconv(nu_cv_rec *cv, void *, unsigned char **in, int *inlen,
                                        unsigned char **out, int *room, int *irreversible) {
    const bool wide = cv->target_min_len == 4 && cv->target_max_len == 4;
    return convert_loop(cv, LittleEndianTarget{cv->table, wide}, in, inlen, out, room,
                        irreversible);
}

// Shift states on either side. The state changes a character brings are kept only once the
// character has been written, so that a character refused for want of room (or cut off)
// can be resubmitted in the state it was first met in.
int mb_smiconv(nu_cv_rec *cv, void *state_arg, unsigned char **in, int *inlen,
               unsigned char **out, int *room, int *irreversible) {
    nu_cv_state *state = static_cast<nu_cv_state *>(state_arg);
    if (irreversible != nullptr) *irreversible = 0;
    if (!arguments_ok(cv, in, room)) return -1;
    if (state->reset != 0) {
        state->source_shift = 0;
        state->target_shift = 0;
    }
    const unsigned char *s = *in;
    const bool counted = inlen != nullptr;
    int left = counted ? *inlen : kUnbounded;
    unsigned char *o = out != nullptr ? *out : nullptr;
    int space = *room;
    unsigned substituted = 0;
    int result = 0;
    int source_shift = state->source_shift != 0 ? 1 : 0;
    int target_shift = state->target_shift != 0 ? 1 : 0;
    const int shift_out_len = cv->special_len[0];
    const int shift_in_len = cv->special_len[1];
    const CvBlock *block = fast_block(cv);
    while (left > 0) {
        const bool shifted = source_shift != 0 && cv->shift_table != nullptr;
        // Characters that leave both states alone, while the target is unshifted, convert
        // as in the multibyte converter.
        if (block != nullptr && o != nullptr && target_shift == 0) {
            Position p{s, left, o, space, substituted, false};
            fast_run<true>(shifted ? block->shift_root : block->root,
                           shifted ? nullptr : block, nullptr,
                           shifted ? cv->shift_table : cv->table, counted, p);
            s = p.s;
            left = p.left;
            o = p.o;
            space = p.space;
            substituted = p.substituted;
            if (left <= 0 || p.ended) break;
            // A shift-out or shift-in of the source that writes nothing (the target stays
            // unshifted): the state changes and the runs go on.
            const FastEntry &e = (shifted ? block->shift_root : block->root)[s[0]];
            if (e.kind == kFastOther && e.rec[0] == (kCvValid | kCvSourceShift)) {
                source_shift ^= 1;
                substituted |= e.rec[0];
                ++s;
                --left;
                continue;
            }
        }
        const multi_t *t = shifted ? cv->shift_table : cv->table;
        const Found f = block != nullptr
                            ? find_from(shifted ? block->shift_root : block->root, t, s, left)
                            : walk(t, s, left);
        if (f.rec == nullptr) {
            fail(cv, f.error, "Error in Translation.");
            result = -1;
            break;
        }
        const unsigned flags = f.rec[0];
        if ((flags & kCvInvalidMask) == 0) {
            fail(cv, NU_EILSEQ, "Error in Translation (NU_EILSEQ)");
            result = -1;
            break;
        }
        substituted |= flags;
        const int next_source = (flags & kCvSourceShift) != 0 ? source_shift ^ 1 : source_shift;
        const int wanted = (flags & kCvTargetShifted) != 0 ? 1 : 0;
        const unsigned char *before = nullptr;
        int before_len = 0;
        if (wanted != target_shift) {
            before = wanted != 0 ? cv->special[0] : cv->special[1];
            before_len = wanted != 0 ? shift_out_len : shift_in_len;
        }
        const bool last = counted ? left - f.length <= 0 : (flags & kCvEnd) != 0;
        // The state stays shifted; the shift-in only closes the text.
        const int after_len = state->flush != 0 && wanted != 0 && last ? shift_in_len : 0;
        const int count = flags & kCvCount;
        if (space < before_len + count + after_len) {
            fail(cv, NU_E2BIG, "Error in Translation (NU_E2BIG)");
            result = -1;
            break;
        }
        if (o != nullptr) {
            o = put(o, before, before_len);
            o = put(o, f.rec + 1, count);
            o = put(o, cv->special[1], after_len);
        }
        space -= before_len + count + after_len;
        source_shift = next_source;
        target_shift = wanted;
        s += f.length;
        left -= f.length;
        if (!counted && (flags & kCvEnd) != 0) break;
    }
    state->source_shift = source_shift;
    state->target_shift = target_shift;
    *in = const_cast<unsigned char *>(s);
    if (counted) *inlen = left;
    if (out != nullptr) *out = o;
    *room = space;
    if (irreversible != nullptr && (substituted & kCvIrreversible) != 0) *irreversible = 1;
    return result;
}

} // namespace nus

using namespace nus;

NU_EXPORT int nu_cv_mconv(nu_cv_t cv, nu_cv_state *state, unsigned char **in, int *inlen,
                          unsigned char **out, int *room, int *irreversible) {
    if (cv == nullptr) return -1;
    if (cv->nuu_in_use == 1) {
        // The companion converts: the flush word (1 without a state) and the caller's
        // arguments, its positive status into the descriptor's slot.
        nuu_status status = 0;
        const int result = nus::call_nuu_cv_conv()(
            static_cast<nuu_cv *>(cv->nuu_cv), state != nullptr ? state->flush : 1,
            const_cast<const unsigned char **>(in), inlen, out, room, irreversible, &status);
        if (status > 0) set_error(cv, status);
        return result;
    }
    // The fixed failure descriptors convert nothing; their slots keep their codes.
    if (cv->convert == nullptr || cv->table == nullptr) return -1;
    if (cv->source_stateful == 0 && cv->target_stateful == 0) {
        return cv->convert(cv, state, in, inlen, out, room, irreversible);
    }
    nu_cv_state fresh{1, 1, 0, 0};
    return mb_smiconv(cv, state != nullptr ? state : &fresh, in, inlen, out, room, irreversible);
}

NU_EXPORT int nu_miconv(nu_cv_t cv, unsigned char **in, int *inlen, unsigned char **out,
                        int *room, int *irreversible) {
    return nu_cv_mconv(cv, nullptr, in, inlen, out, room, irreversible);
}

NU_EXPORT int nu_mconvlen(nu_cv_t cv, nu_cv_state *state, const unsigned char *in, int inlen,
                          int *room, int *irreversible) {
    unsigned char *p = const_cast<unsigned char *>(in);
    int length = inlen;
    // Counting leaves the caller's state as it was.
    nu_cv_state copy{};
    if (state != nullptr) copy = *state;
    return nu_cv_mconv(cv, state != nullptr ? &copy : nullptr, &p, inlen < 0 ? nullptr : &length,
                       nullptr, room, irreversible);
}
