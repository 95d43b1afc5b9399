// Multibyte and wide string functions with random text, lengths, counts and buffers, in a
// single-byte, two double-byte, an EUC (up to three bytes) and a UTF-8 locale. Counted strings
// sit in heap blocks of exactly their length, so no function may look for a terminator there.
#include "fuzz/fuzz.h"

#include <algorithm>

namespace {

using nus_fuzz::Exact;
using nus_fuzz::Input;

bool within(const void *p, const Exact &block, size_t length) {
    const auto *b = static_cast<const unsigned char *>(p);
    return b >= block.get() && b <= block.get() + length;
}

void clear(nu_locale_t h) { *_nu_ext_errno(h) = 0; }

// Characters: stepping, decoding and encoding back.
void characters(nu_locale_t h, const std::string &s) {
    Exact block(s);
    size_t at = 0;
    while (at < s.size()) {
        const int left = static_cast<int>(s.size() - at);
        clear(h);
        const unsigned char *next = _tsn_nu_full_mbsnext(h, block.get() + at, left);
        nu_wchar wc = 0;
        const int used = _tsn_nu_full_mbtowc(h, &wc, block.get() + at, left);
        const int length = _tsn_nu_full_mblen(h, block.get() + at, left);
        if (next == nullptr) {
            NUS_FUZZ_CHECK(length < 0);
            ++at;
            continue;
        }
        NUS_FUZZ_CHECK(next > block.get() + at && within(next, block, s.size()));
        NUS_FUZZ_CHECK(length == next - (block.get() + at));
        if (used > 0) {
            NUS_FUZZ_CHECK(used == length);
            Exact back(4);
            const int written = nu_full_wctomb(h, back.get(), wc);
            NUS_FUZZ_CHECK(written == length);
            NUS_FUZZ_CHECK(std::memcmp(back.get(), block.get() + at, static_cast<size_t>(length)) == 0);
            NUS_FUZZ_CHECK(nu_wclen(h, wc) == length);
        }
        at += static_cast<size_t>(length);
    }
}

// Whole strings to wide characters and back, into rooms of the fuzzer's size.
void conversions(nu_locale_t h, const std::string &s, int count, int room) {
    const bool single = nu_mb_loc_max(h) == 1;
    const int zeros = nu_mb_loc_min(h);
    Exact counted(s);
    Exact wide(static_cast<size_t>(count + 1) * sizeof(nu_wchar));
    auto *ws = reinterpret_cast<nu_wchar *>(wide.get());
    clear(h);
    const int n = single ? _tsn_nu_is_mbfstowcfs(h, ws, counted.get(), static_cast<int>(s.size()), count)
                         : _tsn_nu_im_mbfstowcfs(h, ws, counted.get(), static_cast<int>(s.size()), count);
    // Kept for compatibility: a counted conversion that runs out of room answers count + 1.
    NUS_FUZZ_CHECK(n <= count + (single ? 0 : 1));
    const int stored = std::min(n, count);
    if (stored > 0) {
        Exact bytes(static_cast<size_t>(room));
        const int m = single ? _tsn_nu_is_wcstombs(h, bytes.get(), ws, stored, room)
                             : _tsn_nu_full_wcstombs(h, bytes.get(), ws, stored, room);
        NUS_FUZZ_CHECK(m <= room);
    }
    Exact terminated = nus_fuzz::terminated(s, zeros);
    const int chars = single ? -1 : _nu_im_mbslen(h, terminated.get());
    (void)_tsn_nu_im_mbfslen(h, counted.get(), static_cast<int>(s.size()));
    const int bytes = nu_mbsbytes(h, terminated.get());
    NUS_FUZZ_CHECK(bytes >= 0 && bytes <= static_cast<int>(s.size()) + zeros);
    if (chars >= 0) {
        Exact all(static_cast<size_t>(chars + 1) * sizeof(nu_wchar));
        auto *w = reinterpret_cast<nu_wchar *>(all.get());
        const int got = _nu_im_mbstowcs(h, w, terminated.get(), chars + 1);
        if (got >= 0) {
            NUS_FUZZ_CHECK(got == chars);
            w[got] = 0;
            Exact again(static_cast<size_t>(bytes > 0 ? bytes : 1));
            const int put = nu_full_wcstombs(h, again.get(), w, bytes > 0 ? bytes : 1);
            if (bytes > 0) NUS_FUZZ_CHECK(put == bytes - zeros);
            (void)nu_wcswidth(h, w, count);
            (void)nu_wcsntslen(h, w);
            (void)_tsn_nu_wcsntslen(h, w, got);
            (void)nu_wcschr(h, w, static_cast<nu_wchar>(count));
            (void)_tsn_nu_wcsrchr(h, w, got, static_cast<nu_wchar>(count));
            (void)nu_wcspwidth(h, w, w + got);
            nu_wcsntstrunc(h, w);
        }
    }
}

// Copies and concatenations into blocks of exactly the size they need.
void copies(nu_locale_t h, const std::string &d, const std::string &s, int count) {
    const int zeros = nu_mb_loc_min(h);
    const int dn = static_cast<int>(d.size()), sn = static_cast<int>(s.size());
    {
        Exact src(s), dst(s.size());
        clear(h);
        const int n = _tsn_nu_mbscpy(h, dst.get(), src.get(), sn);
        NUS_FUZZ_CHECK(n <= sn);
    }
    {
        Exact src(s), dst(d + std::string(s.size(), '\x7f'));
        const int n = _tsn_nu_mbscat(h, dst.get(), dn, src.get(), sn);
        NUS_FUZZ_CHECK(n <= dn + sn);
    }
    {
        Exact src(s), dst(s.size());
        const int n = _tsn_nu_mbsncpy(h, dst.get(), src.get(), sn, count);
        NUS_FUZZ_CHECK(n <= sn);
        Exact cat(d + std::string(s.size(), '\x7f'));
        const int m = _tsn_nu_mbsncat(h, cat.get(), dn, src.get(), sn, count);
        NUS_FUZZ_CHECK(m <= dn + sn);
    }
    // Terminated forms: the sizes come from the library's own measures.
    Exact st = nus_fuzz::terminated(s, zeros);
    const int bytes = nu_mbsbytes(h, st.get());
    if (bytes > 0) {
        Exact dst(static_cast<size_t>(bytes));
        NUS_FUZZ_CHECK(nu_full_mbscpy(h, dst.get(), st.get()) == dst.get());
        Exact dt = nus_fuzz::terminated(d, zeros);
        const int dbytes = nu_mbsbytes_nt(h, dt.get());
        if (dbytes >= 0) {
            Exact cat(static_cast<size_t>(dbytes + bytes));
            std::memcpy(cat.get(), dt.get(), static_cast<size_t>(dbytes) + static_cast<size_t>(zeros));
            (void)nu_full_mbscat(h, cat.get(), st.get());
        }
        const unsigned char *stop = nu_getmbsinull(h, st.get(), count);
        if (stop != nullptr) {
            NUS_FUZZ_CHECK(within(stop, st, s.size() + static_cast<size_t>(zeros)));
            Exact part(static_cast<size_t>(stop - st.get()) + static_cast<size_t>(zeros));
            (void)nu_mbsncpy(h, part.get(), st.get(), count);
        }
    }
}

// Searches and spans, counted and terminated.
void searches(nu_locale_t h, const std::string &s, const std::string &t) {
    const int zeros = nu_mb_loc_min(h);
    const int sn = static_cast<int>(s.size()), tn = static_cast<int>(t.size());
    Exact sc(s), tc(t);
    clear(h);
    const unsigned char *p = _tsn_nu_mbschr(h, sc.get(), sn, tc.get(), tn);
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, sc, s.size()));
    p = _tsn_nu_mbsrchr(h, sc.get(), sn, tc.get(), tn);
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, sc, s.size()));
    p = _tsn_nu_mbsmbs(h, sc.get(), sn, tc.get(), tn);
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, sc, s.size()));
    // The counted set functions decode every character with the whole length as budget, so
    // an incomplete last character is completed from up to three bytes after the span (kept
    // for compatibility): those bytes are there, and nothing beyond them.
    Exact padded(s + "\x81\x81\x81");
    p = _tsn_nu_mbspbrk(h, padded.get(), sn, tc.get(), tn);
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, padded, s.size()));
    NUS_FUZZ_CHECK(_tsn_nu_mbsspn(h, padded.get(), sn, tc.get(), tn) <= sn);
    NUS_FUZZ_CHECK(_tsn_nu_mbscspn(h, padded.get(), sn, tc.get(), tn) <= sn);

    Exact st = nus_fuzz::terminated(s, zeros), tt = nus_fuzz::terminated(t, zeros);
    const size_t reach = s.size() + static_cast<size_t>(zeros);
    p = nu_full_mbschr(h, st.get(), tt.get());
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, st, reach));
    p = nu_full_mbsrchr(h, st.get(), tt.get());
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, st, reach));
    p = nu_full_mbsmbs(h, st.get(), tt.get());
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, st, reach));
    p = nu_full_mbspbrk(h, st.get(), tt.get());
    if (p != nullptr) NUS_FUZZ_CHECK(within(p, st, reach));
    (void)nu_full_mbsspn(h, st.get(), tt.get());
    (void)nu_full_mbscspn(h, st.get(), tt.get());
    (void)nu_full_mbscmp(h, st.get(), tt.get());
    (void)_tsn_nu_mbscmp(h, sc.get(), sn, tc.get(), tn);
    (void)nu_full_mbsncmp(h, st.get(), tt.get(), tn);
}

// Positions, trailing blanks, widths and case.
void positions(nu_locale_t h, const std::string &s, int count) {
    const int zeros = nu_mb_loc_min(h);
    Exact st = nus_fuzz::terminated(s, zeros);
    const size_t reach = s.size() + static_cast<size_t>(zeros);
    const size_t at = s.empty() ? 0 : static_cast<size_t>(count) % (s.size() + 1);
    clear(h);
    const unsigned char *prev = nu_full_mbsprev(h, st.get(), st.get() + at);
    if (prev != nullptr) NUS_FUZZ_CHECK(prev >= st.get() && prev < st.get() + at);
    int len = -1;
    (void)nu_full_charoffset(h, st.get(), st.get() + at, &len);
    (void)nu_mbsntslen(h, st.get());
    (void)_tsn_nu_mbsntslen(h, st.get(), static_cast<int>(s.size()));
    (void)nu_mbsntsbytes(h, st.get());
    Exact counted(s);
    const int nb = _tsn_nu_mbsntsbytes(h, counted.get(), static_cast<int>(s.size()));
    NUS_FUZZ_CHECK(nb <= static_cast<int>(s.size()));
    const unsigned char *blank = nu_mbsp(h, st.get());
    if (blank != nullptr) NUS_FUZZ_CHECK(within(blank, st, reach));
    (void)nu_mbswidth(h, st.get(), count);
    (void)nu_mbspwidth(h, st.get(), st.get() + at);
    (void)nu_mbwidth(h, st.get());
    (void)nu_ismbsterm(h, st.get());
    (void)nu_mbsntstrunc(h, st.get());

    Exact again = nus_fuzz::terminated(s, zeros);
    const int room = nu_case_conv_outbuflen(h, static_cast<int>(s.size()) + zeros);
    if (room > 0 && room < 1 << 16) {
        Exact out(static_cast<size_t>(room));
        (void)nu_tombsupper(h, out.get(), again.get());
        (void)nu_tombslower(h, out.get(), again.get());
    }
}

// The stream readers, on a memory stream of the text, into buffers of the fuzzer's size.
void streams(nu_locale_t h, std::string s, int size) {
    if (s.empty()) return;
    {
        FILE *f = fmemopen(s.data(), s.size(), "r");
        if (f == nullptr) return;
        Exact buf(static_cast<size_t>(size));
        for (int i = 0; i < 16 && nu_fgetmbs(h, buf.get(), size, f) != nullptr; ++i) {
        }
        std::fclose(f);
    }
    {
        FILE *f = fmemopen(s.data(), s.size(), "r");
        if (f == nullptr) return;
        Exact buf(static_cast<size_t>(size) * sizeof(nu_wchar));
        for (int i = 0; i < 16; ++i) {
            if (nu_fgetwcs(h, reinterpret_cast<nu_wchar *>(buf.get()), size, f) == nullptr) break;
        }
        std::fclose(f);
    }
    {
        FILE *f = fmemopen(s.data(), s.size(), "r");
        if (f == nullptr) return;
        Exact mb(4);
        for (size_t i = 0; i <= s.size(); ++i) {
            if (nu_full_fgetmb(h, mb.get(), f) < 0) break;
        }
        std::fclose(f);
    }
}

} // namespace

NUS_FUZZ_TARGET(strings) {
    static const char *const specs[] = {"de_de.8859-1", "ja_jp.sjis", "ja_jp.ujis",
                                        "en_us.utf8", "zh_tw.big5"};
    Input in(data, size);
    nu_locale_t h = nus_fuzz::locale(specs[in.byte() % 5]);
    if (h == nullptr) return 0;
    const uint8_t op = in.byte() % 6;
    const int count = in.range(-2, 40);
    const int room = in.range(0, 64);
    const std::string a = in.piece();
    const std::string b = in.rest().substr(0, 512);
    switch (op) {
    case 0: characters(h, a + b); break;
    case 1: conversions(h, a + b, std::max(count, 0), room); break;
    case 2: copies(h, a, b, count); break;
    case 3: searches(h, b, a); break;
    case 4: positions(h, a + b, count); break;
    default: streams(h, a + b, std::max(room, 1)); break;
    }
    return 0;
}
