// Character I/O on streams in single-byte, multibyte and fixed two-byte code sets: byte
// callbacks, temporary files, memory streams, and a scripted stream in the external-function
// table that provokes each failure.
#include "chars/chars.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }
std::string str(const void *p, size_t n) { return std::string(static_cast<const char *>(p), n); }
int take_error(nu_locale_t h) { return std::exchange(*_nu_ext_errno(h), 0); }
using Chars = std::vector<std::string>;
using Wide = std::vector<nu_wchar>;

// A byte source and sink for the generic reader and writer; the sink fails from its
// `fail_at`-th byte on.
struct Bytes {
    std::string data;
    int fail_at = -1;
    size_t pos = 0;
    static int get(void *p) {
        auto *b = static_cast<Bytes *>(p);
        return b->pos < b->data.size() ? static_cast<unsigned char>(b->data[b->pos++]) : -1;
    }
    static int put(int byte, void *p) {
        auto *b = static_cast<Bytes *>(p);
        if (b->fail_at >= 0 && static_cast<int>(b->data.size()) >= b->fail_at) return -1;
        b->data.push_back(static_cast<char>(byte));
        return 0;
    }
};

// A stream in the fgetc, feof, ferror and fwrite slots: its bytes, then -1 with the chosen
// indicator raised (or none); writes take `room` bytes in all.
struct Scripted {
    enum End { eof, error, neither } end;
    std::string in, out;
    size_t pos = 0, room = SIZE_MAX;
    bool eof_set = false, error_set = false;
    nus_test::ExtTableGuard guard;

    Scripted(std::string bytes, End how) : end(how), in(std::move(bytes)) {
        current = this;
        nu_setextfunc(nullptr, NU_EXT_FGETC, reinterpret_cast<nu_extfunc>(&fgetc_));
        nu_setextfunc(nullptr, NU_EXT_FEOF, reinterpret_cast<nu_extfunc>(&feof_));
        nu_setextfunc(nullptr, NU_EXT_FERROR, reinterpret_cast<nu_extfunc>(&ferror_));
        nu_setextfunc(nullptr, NU_EXT_FWRITE, reinterpret_cast<nu_extfunc>(&fwrite_));
    }
    FILE *file() { return reinterpret_cast<FILE *>(this); }

    static inline Scripted *current = nullptr;
    static int fgetc_(FILE *) {
        Scripted *s = current;
        if (s->pos < s->in.size()) return static_cast<unsigned char>(s->in[s->pos++]);
        s->eof_set = s->end == eof;
        s->error_set = s->end == error;
        return -1;
    }
    static int feof_(FILE *) { return current->eof_set; }
    static int ferror_(FILE *) { return current->error_set; }
    static size_t fwrite_(const void *p, size_t size, size_t count, FILE *) {
        const size_t n = std::min(size * count, current->room);
        current->out.append(static_cast<const char *>(p), n);
        current->room -= n;
        return n / size;
    }
};

// Hand-made code sets with characters that end in 0A but are no newline: ASCII plus 8E 0A
// and 8E A1 (shortest character one byte), or 00 00-7F plus 0A 0A (two bytes).
class HandMade {
public:
    explicit HandMade(bool fixed_two) {
        if (nu_create_null_locale_4(&h_) != 0) std::abort();
        _nu_free_multi(h_->ctype.class_table);
        static const uint16_t zero16 = 0;
        const uint16_t mask = 1;
        multi_t *table = _nu_create_multi(2, 0, &zero16);
        auto add = [&](std::vector<unsigned char> bytes) {
            multi_key key{static_cast<int>(bytes.size()), {}};
            std::copy(bytes.begin(), bytes.end(), key.bytes);
            if (_nu_insert_desc_multi(&key, &mask, table) != 0) std::abort();
        };
        for (unsigned char b = 0; b < 0x80; ++b) fixed_two ? add({0, b}) : add({b});
        for (const auto &c : fixed_two ? Chars{"\n\n"} : Chars{"\x8E\n", "\x8E\xA1"}) {
            add(std::vector<unsigned char>(c.begin(), c.end()));
        }
        h_->ctype.class_table = table;
        h_->single_byte = 0;
    }
    ~HandMade() { nu_lc_unload(h_); }
    operator nu_locale_t() const { return h_; }

private:
    nu_locale_t h_ = nullptr;
};

// The characters nu_getmb reads until the source ends.
Chars characters(nu_locale_t h, const std::string &bytes) {
    Bytes src{bytes};
    Chars out;
    unsigned char buf[4];
    int len = -1;
    while (nu_getmb(h, buf, &Bytes::get, &src, &len) == 0) out.push_back(str(buf, len));
    EXPECT_EQ(std::pair(take_error(h), len), std::pair(NU_EEOF, 0));
    return out;
}

} // namespace

TEST(StreamRead, GetmbSplitsAlongTheCodeSet) {
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    NUS_LOAD_OR_SKIP(ujis, "ja_jp.ujis");
    NUS_LOAD_OR_SKIP(utf8, "en_us.utf8");
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    EXPECT_EQ(characters(latin1, "a\xFF\n"), (Chars{"a", "\xFF", "\n"}));
    EXPECT_EQ(characters(sjis, "a\x82\xA0\xB1"), (Chars{"a", "\x82\xA0", "\xB1"}));
    EXPECT_EQ(characters(ujis, "\xA4\xA2\x8E\xB1\x8F\xB0\xA1"),
              (Chars{"\xA4\xA2", "\x8E\xB1", "\x8F\xB0\xA1"}));
    EXPECT_EQ(characters(utf8, "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
              (Chars{"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}));
    EXPECT_EQ(characters(fixed, str("\0A\x03\x91", 4)), (Chars{str("\0A", 2), "\x03\x91"}));
    // Ended inside a character: 7 with the bytes taken. An illegal byte: 1 (a lone 0A is one
    // where the shortest character has two bytes).
    for (auto [h, bytes, error, len] : {std::tuple{utf8.h, "\xE2\x82", NU_EINVAL, 2},
                                        std::tuple{utf8.h, "\xE2" "A", NU_EILSEQ, 2},
                                        std::tuple{fixed.h, "\n", NU_EILSEQ, 1}}) {
        Bytes src{bytes};
        unsigned char buf[4];
        int taken = -1;
        EXPECT_EQ(nu_getmb(h, buf, &Bytes::get, &src, &taken), -1);
        EXPECT_EQ(std::pair(take_error(h), taken), std::pair(error, len)) << bytes;
    }
}

TEST(StreamRead, FgetmbAndFgetwcNameTheStreamsState) {
    NUS_LOAD_OR_SKIP(utf8, "en_us.utf8");
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    struct Case {
        std::string bytes;
        Scripted::End end;
        int fgetmb_error, fgetwc_error;
    };
    // fgetmb keeps the reader's code unless an indicator is set; fgetwc tells all apart.
    for (const Case &c : {Case{"", Scripted::eof, NU_EEOF, NU_EEOF},
                          Case{"", Scripted::error, NU_EIO, NU_EIO},
                          Case{"", Scripted::neither, NU_EEOF, NU_EREAD},
                          Case{"\xE2", Scripted::eof, NU_EEOF, NU_EINVAL},
                          Case{"\xE2\x82", Scripted::error, NU_EIO, NU_EIO},
                          Case{"\xE2", Scripted::neither, NU_EINVAL, NU_EREAD},
                          Case{"\xFF", Scripted::eof, NU_EILSEQ, NU_EILSEQ}}) {
        SCOPED_TRACE(testing::PrintToString(c.bytes) + " end " + std::to_string(c.end));
        unsigned char buf[4];
        {
            Scripted s(c.bytes, c.end);
            EXPECT_EQ(nu_full_fgetmb(utf8, buf, s.file()), -1);
            EXPECT_EQ(take_error(utf8), c.fgetmb_error);
        }
        Scripted s(c.bytes, c.end);
        EXPECT_EQ(nu_full_fgetwc(utf8, s.file()), nu_wchar(-1));
        EXPECT_EQ(take_error(utf8), c.fgetwc_error);
    }
    // The wide character is the bytes concatenated: 00 41 is 0x41 in the fixed set.
    std::string text("\0A\x03\x91", 4), four("\xF0\x9F\x98\x80" "a");
    FILE *f = nus_test::text_stream(text), *g = nus_test::text_stream(four);
    EXPECT_EQ(nu_full_fgetwc(fixed, f), nu_wchar{0x41});
    EXPECT_EQ(nu_full_fgetwc(fixed, f), nu_wchar{0x391});
    unsigned char buf[4];
    EXPECT_EQ(nu_full_fgetmb(utf8, buf, g), 4);
    EXPECT_EQ(nu_full_fgetwc(utf8, g), nu_wchar{'a'});
    std::fclose(f);
    std::fclose(g);
    f = nus_test::text_stream(four);
    EXPECT_EQ(nu_full_fgetwc(utf8, f), nu_wchar{0xF09F9880});
    std::fclose(f);
}

TEST(StreamLines, FgetmbsReadsToTheNewlineAndTerminates) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    nus_test::TempDir dir;
    FILE *f = std::fopen(dir.write("lines", "a\x82\xA0\nb\nz\x82\xA0q").c_str(), "r");
    unsigned char buf[16];
    ASSERT_EQ(nu_fgetmbs(sjis, buf, 5, f), buf);                  // line and terminator just fit
    EXPECT_EQ(str(buf, 5), str("a\x82\xA0\n", 5));
    EXPECT_EQ(nu_fgetmbs(sjis, buf, 2, f), nullptr);              // "b\n" fits, its terminator not
    EXPECT_EQ(take_error(sjis), NU_E2BIG);
    EXPECT_EQ(nu_fgetmbs(sjis, buf, 2, f), nullptr);              // a character that does not fit
    EXPECT_EQ(take_error(sjis), NU_E2BIG);
    std::memset(buf, '.', sizeof buf);
    EXPECT_EQ(nu_fgetmbs(sjis, buf, sizeof buf, f), nullptr);     // end of file before a newline
    EXPECT_EQ(take_error(sjis), NU_EEOF);
    EXPECT_EQ(str(buf, 2), "q.");                                 // kept, unterminated
    std::fclose(f);

    // Shortest character two bytes: 00 0A ends the line, the terminator is 00 00.
    std::string two("\0A\0\n", 4);
    f = nus_test::text_stream(two);
    EXPECT_EQ(nu_fgetmbs(fixed, buf, 6, f), buf);
    EXPECT_EQ(str(buf, 6), str("\0A\0\n\0\0", 6));
    std::fclose(f);
}

TEST(StreamLines, NewlineIsTheShortestCharacterEndingIn0A) {
    HandMade multi(false), fixed(true);
    unsigned char buf[16];
    nu_wchar ws[8];
    std::string one("\x8E\n\x8E\xA1\nz"), two("\n\n\0a\0\n", 6);
    FILE *f = nus_test::text_stream(one);
    ASSERT_EQ(nu_fgetmbs(multi, buf, sizeof buf, f), buf);
    EXPECT_EQ(str(buf, 6), str("\x8E\n\x8E\xA1\n", 6));
    std::fclose(f);
    f = nus_test::text_stream(two);
    ASSERT_EQ(nu_fgetmbs(fixed, buf, 8, f), buf);
    EXPECT_EQ(str(buf, 8), two + str("\0", 2));
    std::fclose(f);
    f = nus_test::text_stream(two);
    ASSERT_EQ(nu_fgetwcs(fixed, ws, 4, f), ws);
    EXPECT_EQ(Wide(ws, ws + 4), (Wide{0x0A0A, 'a', 10, 0}));
    std::fclose(f);
}

TEST(StreamLines, FgetwcsAndTheSingleByteFFRule) {
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    NUS_LOAD_OR_SKIP(ujis, "ja_jp.ujis");
    nu_locale_t h = latin1;
    std::string text("\xFF\xE4\n\xFF");
    unsigned char buf[8];
    nu_wchar ws[8];
    FILE *f = nus_test::text_stream(text);
    ASSERT_EQ(nu_fgetmbs(h, buf, sizeof buf, f), buf);            // FF is a character
    EXPECT_EQ(str(buf, 4), str("\xFF\xE4\n", 4));
    EXPECT_EQ(nu_fgetwcs(h, ws, 8, f), nullptr);                  // FF, then end of file
    EXPECT_EQ(take_error(h), NU_EEOF);
    EXPECT_EQ(std::pair(ws[0], h->reserved2), std::pair(nu_wchar{0xFF}, 0xFF));
    std::fclose(f);
    f = nus_test::text_stream(text);
    EXPECT_EQ(nu_fgetwcs(h, ws, 3, f), nullptr);                  // no room for the wide null
    EXPECT_EQ(take_error(h), NU_E2BIG);
    std::fclose(f);
    {
        // Kept for compatibility: an ended read without the end-of-file indicator is the byte
        // FF, so the line fills the buffer.
        Scripted s("a", Scripted::error);
        EXPECT_EQ(nu_fgetmbs(h, buf, 3, s.file()), nullptr);
        EXPECT_EQ(take_error(h), NU_E2BIG);
        EXPECT_EQ(str(buf, 3), "a\xFF\xFF");
    }
    std::string euc("\xA4\xA2" "b\n\x8F\xB0\xA1");
    f = nus_test::text_stream(euc);
    ASSERT_EQ(nu_fgetwcs(ujis, ws, 4, f), ws);
    EXPECT_EQ(Wide(ws, ws + 4), (Wide{0xA4A2, 'b', 10, 0}));
    EXPECT_EQ(nu_fgetwcs(ujis, ws, 8, f), nullptr);
    EXPECT_EQ(std::pair(take_error(ujis), ws[0]), std::pair(NU_EEOF, nu_wchar{0x8FB0A1}));
    std::fclose(f);
    Scripted s("\xA4", Scripted::neither);
    EXPECT_EQ(nu_fgetwcs(ujis, ws, 8, s.file()), nullptr);
    EXPECT_EQ(take_error(ujis), NU_EREAD);
}

TEST(StreamWrite, PutmbWritesOneCharacter) {
    NUS_LOAD_OR_SKIP(utf8, "en_us.utf8");
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    int written = -1;
    Bytes sink;
    EXPECT_EQ(nu_putmb(utf8, u("\xE2\x82\xAC" "x"), -1, &Bytes::put, &sink, &written), 0);
    EXPECT_EQ(written, 3);
    EXPECT_EQ(nu_putmb(latin1, u("\xE4\xE4"), -1, &Bytes::put, &sink, &written), 0);
    EXPECT_EQ(nu_putmb(fixed, u("\0"), 2, &Bytes::put, &sink, &written), 0);
    EXPECT_EQ(written, 2);
    EXPECT_EQ(_tsn_nu_putmb(utf8, u(""), 1, &Bytes::put, &sink, &written), 0);
    EXPECT_EQ(sink.data, str("\xE2\x82\xAC\xE4\0\0\0", 7));
    // Decoding failures write nothing: too small a budget, an illegal byte, no string.
    EXPECT_EQ(nu_putmb(utf8, u("\xE2\x82\xAC"), 2, &Bytes::put, &sink, &written), -1);
    EXPECT_EQ(take_error(utf8), NU_EINVAL);
    EXPECT_EQ(nu_putmb(utf8, u("\xE2" "A"), 4, &Bytes::put, &sink, &written), -1);
    EXPECT_EQ(std::pair(take_error(utf8), written), std::pair(NU_EILSEQ, 0));
    EXPECT_EQ(nu_putmb(utf8, nullptr, 4, &Bytes::put, &sink, &written), -1);
    EXPECT_EQ(sink.data.size(), 7u);
    // A failing sink: the bytes before it count, except for the null character's.
    for (auto [h, s, tsn, count] : {std::tuple{utf8.h, "\xC3\xA9", false, 1},
                                    std::tuple{fixed.h, "\0", false, 0},
                                    std::tuple{fixed.h, "\0", true, 1}}) {
        Bytes failing{"", 1};
        EXPECT_EQ((tsn ? _tsn_nu_putmb : nu_putmb)(h, u(s), 4, &Bytes::put, &failing, &written), -1);
        EXPECT_EQ(std::pair(take_error(h), written), std::pair(NU_EIO, count)) << tsn;
    }
}

TEST(StreamWrite, FputFamily) {
    NUS_LOAD_OR_SKIP(sjis, "ja_jp.sjis");
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    nus_test::TempDir dir;
    const auto path = dir.path() / "out";
    FILE *f = std::fopen(path.c_str(), "w");
    const unsigned char *s = u("\x82\xA0z");
    EXPECT_EQ(nu_fputmb(sjis, s, f), s);
    EXPECT_EQ(nu_fputwc(sjis, 0x8140, f), nu_wchar{0x8140});
    EXPECT_EQ(nu_fputmbs(sjis, u("ab\x82\xA0"), f), 0);
    const nu_wchar ws[] = {'x', 0x82A0, 0}, bad[] = {'q', 0xFFFF, 'r', 0};
    EXPECT_EQ(nu_fputwcs(sjis, ws, f), 0);
    EXPECT_EQ(nu_fputwc(latin1, 0x1E4, f), nu_wchar{0x1E4});       // the low byte
    EXPECT_EQ(nu_fputwc(fixed, 'A', f), nu_wchar{'A'});             // 00 41
    EXPECT_EQ(nu_fputmbs(fixed, u("\x03\x91\0B\0"), f), 0);
    EXPECT_EQ(nu_fputwc(sjis, 0, f), 0u);                           // the terminator
    // Unencodable or illegal input writes nothing more.
    EXPECT_EQ(nu_fputwc(sjis, 0x8200, f), nu_wchar(-1));
    EXPECT_EQ(take_error(sjis), NU_EILSEQ);
    EXPECT_EQ(nu_fputwcs(sjis, bad, f), -1);
    EXPECT_EQ(take_error(sjis), NU_EILSEQ);
    EXPECT_EQ(nu_fputmbs(sjis, u("ok\x82"), f), -1);
    EXPECT_EQ(nu_fputmb(sjis, u("\x82" "A"), f), nullptr);
    EXPECT_EQ(take_error(sjis), NU_EILSEQ);
    std::fclose(f);
    EXPECT_EQ(nus_test::read_file(path),
              str("\x82\xA0\x81\x40" "ab\x82\xA0x\x82\xA0\xE4\0A\x03\x91\0B\0q", 20));
    // A stream opened for reading, and short writes.
    f = std::fopen(path.c_str(), "r");
    EXPECT_EQ(nu_fputmbs(sjis, u("ab"), f), -1);
    EXPECT_EQ(take_error(sjis), NU_EIO);
    EXPECT_EQ(nu_fputwc(sjis, 'a', f), nu_wchar(-1));
    EXPECT_EQ(take_error(sjis), NU_EIO);
    std::fclose(f);
    Scripted out("", Scripted::eof);
    out.room = 3;
    EXPECT_EQ(nu_fputmbs(sjis, u("abcd"), out.file()), -1);
    EXPECT_EQ(take_error(sjis), NU_EIO);
    out.room = 2;
    EXPECT_EQ(nu_fputwcs(sjis, ws, out.file()), -1);
    EXPECT_EQ(take_error(sjis), NU_EIO);
    EXPECT_EQ(out.out, "abcx\x82");
}

TEST(StreamOffset, CharoffsetFindsTheEnclosingCharacter) {
    NUS_LOAD_OR_SKIP(ujis, "ja_jp.ujis");
    NUS_LOAD_OR_SKIP(latin1, "de_de.8859-1");
    NUS_LOAD_OR_SKIP(fixed, "uc_uc/e005.lco");
    auto offset = [](nu_locale_t h, const unsigned char *s, int at) {
        int len = -1;
        const int result = nu_full_charoffset(h, s, s + at, &len);
        return std::pair(result, len);
    };
    const unsigned char *s = u("a\x8F\xB0\xA1\xA4\xA2");
    const std::vector<std::pair<int, int>> expected{{0, 1}, {0, 3}, {1, 3}, {2, 3},
                                                    {0, 2}, {1, 2}, {0, 1}};
    for (int i = 0; i < 7; ++i) EXPECT_EQ(offset(ujis, s, i), expected[i]) << i;
    EXPECT_EQ(offset(latin1, u("\xE4\xE4"), 1), std::pair(0, 1));
    EXPECT_EQ(offset(fixed, u("\0A\x03\x91\0"), 3), std::pair(1, 2));
    EXPECT_EQ(offset(ujis, s + 1, -1), std::pair(-1, 0));
    EXPECT_EQ(take_error(ujis), NU_EINVAL);
    EXPECT_EQ(offset(ujis, u("a\xA4" "b"), 2), std::pair(-1, 0));
    EXPECT_EQ(take_error(ujis), NU_EILSEQ);
}
