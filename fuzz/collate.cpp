// Collation on random bytes, valid and invalid, in a single-byte, a Shift-JIS, a UTF-8 and the
// Thai locale: comparisons agree with themselves reversed and with sort-key order, sort keys
// stay inside the room they are given, bounds and neighbours stay inside their buffers.
#include "fuzz/fuzz.h"

#include <algorithm>

namespace {

using nus_fuzz::Exact;

int sign(int v) { return (v > 0) - (v < 0); }

int error_of(nu_locale_t h) { return *_nu_ext_errno(h); }

// The sort key of a terminated string, or nullopt-like empty with ok false on failure.
struct Key {
    bool ok = false;
    std::string bytes;
};

// The Thai method writes at most 256 bytes of a key (and then no terminator) while it
// answers the key's full length.
constexpr int kThaiKeyLimit = 256;

Key sort_key(nu_locale_t h, const unsigned char *s, bool thai) {
    Key k;
    *_nu_ext_errno(h) = 0;
    const int need = nu_full_mbsxfrm(h, nullptr, s, 0);
    if (need < 0 || error_of(h) != 0 || need > 1 << 20) return k;
    Exact out(static_cast<size_t>(need) + 1);
    const int again = nu_full_mbsxfrm(h, out.get(), s, need + 1);
    NUS_FUZZ_CHECK(again == need);
    if (!thai || need < kThaiKeyLimit) NUS_FUZZ_CHECK(out.get()[need] == 0);
    k.ok = error_of(h) == 0;
    k.bytes.assign(out.chars(), static_cast<size_t>(need));
    return k;
}

// A string up to its first terminator, as the null-terminated functions see it.
std::string cut(const std::string &s, int zeros) {
    for (size_t i = 0; i + static_cast<size_t>(zeros) <= s.size(); i += 1) {
        if (s.compare(i, static_cast<size_t>(zeros), std::string(static_cast<size_t>(zeros), '\0')) == 0)
            return s.substr(0, i);
    }
    return s;
}

} // namespace

NUS_FUZZ_TARGET(collate) {
    static const char *const specs[] = {"de_de.8859-1", "ja_jp.sjis", "en_us.utf8",
                                        "th_th.tis620"};
    nus_fuzz::Input in(data, size);
    const uint8_t choice = in.byte();
    nu_locale_t h = nus_fuzz::locale(specs[choice % 4]);
    if (h == nullptr) return 0;
    const bool thai = nu_IsSpecialLocale(h) == 1;
    const uint8_t ops = in.byte();
    const int room = in.range(0, 40);
    const int zeros = nu_mb_loc_min(h);
    std::string a = in.piece();
    std::string b = in.rest();
    if (b.size() > 256) b.resize(256);
    Exact az = nus_fuzz::terminated(a, zeros), bz = nus_fuzz::terminated(b, zeros);
    // The Thai method reads counted texts up to their zero bytes too (the lengths only choose
    // the form), so they get their terminators there.
    Exact ac = thai ? nus_fuzz::terminated(a, zeros) : Exact(a);
    Exact bc = thai ? nus_fuzz::terminated(b, zeros) : Exact(b);
    const int la = static_cast<int>(a.size()), lb = static_cast<int>(b.size());

    // Comparisons, both ways round, with lengths (no terminator in reach) and without.
    *_nu_ext_errno(h) = 0;
    const int ab = _tsn_nu_full_mbscoll(h, ac.get(), la, bc.get(), lb);
    const int e1 = error_of(h);
    const int ba = _tsn_nu_full_mbscoll(h, bc.get(), lb, ac.get(), la);
    const int e2 = error_of(h);
    if (e1 == 0 && e2 == 0) NUS_FUZZ_CHECK(sign(ab) == -sign(ba));

    *_nu_ext_errno(h) = 0;
    const int nab = nu_full_mbscoll(h, az.get(), bz.get());
    const bool compared = error_of(h) == 0;
    if (thai) {
        *_nu_ext_errno(h) = 0;
        (void)_nu_thaismocoll(h, az.get(), bz.get());
        (void)_tsn_nu_thaismoncoll(h, ac.get(), la, bc.get(), lb);
        (void)nu_iscompchar_thai(h, az.get());
    }

    // Sort keys order as the comparison does (not so in the Thai method, whose comparison
    // drops trailing blanks and weighs tone marks differently from its keys).
    const Key ka = sort_key(h, az.get(), thai), kb = sort_key(h, bz.get(), thai);
    if (compared && ka.ok && kb.ok && !thai) {
        NUS_FUZZ_CHECK(sign(ka.bytes.compare(kb.bytes)) == sign(nab));
    }
    // A key cut by the room: the result still says what the whole key needs.
    if (ka.ok) {
        Exact small(static_cast<size_t>(room));
        *_nu_ext_errno(h) = 0;
        const int need = nu_full_mbsxfrm(h, small.get(), az.get(), room);
        NUS_FUZZ_CHECK(need == static_cast<int>(ka.bytes.size()));
        const size_t kept = std::min({static_cast<size_t>(room), ka.bytes.size(),
                                      static_cast<size_t>(kThaiKeyLimit)});
        NUS_FUZZ_CHECK(ka.bytes.compare(0, kept, small.chars(), kept) == 0);
    }
    if (thai) {
        Exact out(static_cast<size_t>(room));
        (void)_nu_thaismoxfrm(h, az.get(), out.get(), room);
    }

    // Bounds and neighbours look at every character of the code set: kept to the smaller
    // code sets, and to short strings.
    if ((ops & 1) != 0 && choice % 4 != 2 && a.size() <= 8) {
        const std::string s = cut(a, zeros);
        Exact sz = nus_fuzz::terminated(s, zeros);
        Exact out(static_cast<size_t>(room));
        *_nu_ext_errno(h) = 0;
        const int n = nu_mbsCollBound(h, sz.get(), (ops & 2) != 0, out.get(), room);
        if (n >= 0) NUS_FUZZ_CHECK(n < room);
        Exact key(static_cast<size_t>(room));
        (void)nu_mbsSortKeyCollBound(h, sz.get(), (ops & 2) != 0, key.get(), room);
        Exact next(128);
        const int whole = (ops & 4) != 0;
        if (thai) {
            (void)nu_primweight_thai(h, sz.get(), whole, next.get(), (ops & 2) != 0 ? 1 : 2);
        } else {
            (void)nu_iscompchar(h, sz.get());
            (void)nu_nextprimweight(h, sz.get(), whole, next.get());
            (void)nu_prevprimweight(h, sz.get(), whole, next.get());
        }
    }
    return 0;
}
