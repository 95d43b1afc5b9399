// The five converters on the hand-made objects of tests/data/cv9: what each writes, where it
// stops and why, the pointers and counts it leaves, and the caller's state across pieces.
#include "convert/convert.h"
#include "convert/convert_test_util.h"
#include "frame/frame.h"

using namespace nus_test;

namespace {

const std::string kNul(1, '\0');

TEST(SingleByte, ConvertsFromTheRootAndBuildsTheByteTableUpToTheFirstInvalidByte) {
    Cv cv = fixture("sb.cvo");
    nu_cv_rec *rec = cv;
    EXPECT_EQ(rec->convert, &nus::sb_miconv);
    // The byte table stops filling at 0x81, which has no conversion; its error stays.
    EXPECT_EQ(cv.error(), NU_EILSEQ);
    ASSERT_NE(rec->byte_table, nullptr);
    EXPECT_EQ(rec->byte_table['a'], 'A');
    EXPECT_EQ(rec->byte_table[0x80], '?');
    EXPECT_EQ(rec->byte_table[0x82], 0);

    Conv c = convert(cv, "abc 1", 10);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, "ABC 1");
    EXPECT_EQ(c.consumed, 5);
    EXPECT_EQ(c.left, 0);
    EXPECT_EQ(c.room, 5);
    EXPECT_EQ(c.irreversible, 0);

    c = convert(cv, "x\x80y", 10);
    EXPECT_EQ(c.out, "X?Y");
    EXPECT_EQ(c.irreversible, 1);

    c = convert(cv, "ab\x81" "c", 10);
    EXPECT_EQ(c.result, -1);
    EXPECT_EQ(c.error, NU_EILSEQ);
    EXPECT_EQ(c.out, "AB");
    EXPECT_EQ(c.consumed, 2);
    EXPECT_EQ(c.left, 2);
    EXPECT_EQ(c.room, 8);
}

TEST(SingleByte, RoomAndTerminator) {
    Cv cv = fixture("sb.cvo");
    Conv c = convert(cv, "abc", 3);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.room, 0);
    c = convert(cv, "abc", 2);
    EXPECT_EQ(c.result, -1);
    EXPECT_EQ(c.error, NU_E2BIG);
    EXPECT_EQ(c.out, "AB");
    EXPECT_EQ(c.consumed, 2);
    EXPECT_EQ(c.room, 0);
    c = convert(cv, "abc", 0);
    EXPECT_EQ(c.error, NU_E2BIG);
    EXPECT_EQ(c.consumed, 0);
    EXPECT_EQ(c.out, "");

    // Without an input length the terminating character is converted, counted, and ends it.
    c = convert(cv, "ab" + kNul + "cd", 10, false);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, "AB" + kNul);
    EXPECT_EQ(c.consumed, 3);
    EXPECT_EQ(c.room, 7);
    // With one, a NUL is an ordinary character.
    c = convert(cv, "ab" + kNul + "cd", 10);
    EXPECT_EQ(c.out, "AB" + kNul + "CD");
}

TEST(Multibyte, CharactersOfEveryLengthAndSubstitutes) {
    Cv cv = fixture("mb.cvo");
    EXPECT_EQ(static_cast<nu_cv_rec *>(cv)->convert, &nus::mb_miconv);
    Conv c = convert(cv, "a\xa1\xa1" "b\x8f\xa2\xaf", 20);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, "a\xe3\x80\x80" "b\xf0\x9f\x98\x80");
    EXPECT_EQ(c.consumed, 7);
    EXPECT_EQ(c.room, 20 - 9);
    EXPECT_EQ(c.irreversible, 0);
    c = convert(cv, "\xa1\xa4", 20);
    EXPECT_EQ(c.out, "?");
    EXPECT_EQ(c.irreversible, 1);
    EXPECT_DOUBLE_EQ(nu_iconv_expansion(cv), 1.5);
    EXPECT_EQ(nu_cv_outbuflen(cv, 10), 20);
}

TEST(Multibyte, IllegalAndCutOffSequencesStopOnTheCharacter) {
    Cv cv = fixture("mb.cvo");
    struct Case {
        std::string in;
        int error, consumed;
        std::string out;
    } cases[] = {
        {"ab\xff", NU_EILSEQ, 2, "ab"},
        {"a\xa1\x41", NU_EILSEQ, 1, "a"},
        {"a\x8f\xa2\xb0", NU_EILSEQ, 1, "a"},
        {"\x80", NU_EILSEQ, 0, ""},
    };
    for (const Case &k : cases) {
        Guarded g(k.in);   // a read past the input faults
        int length = static_cast<int>(k.in.size()), room = 20, irreversible = -1;
        unsigned char buffer[20];
        unsigned char *p = g.data, *o = buffer;
        EXPECT_EQ(nu_miconv(cv, &p, &length, &o, &room, &irreversible), -1);
        EXPECT_EQ(cv.error(), k.error);
        EXPECT_EQ(p - g.data, k.consumed);
        EXPECT_EQ(length, static_cast<int>(k.in.size()) - k.consumed);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer), o - buffer), k.out);
    }
    // A text cut at every position: whole characters before the cut are converted, a
    // character cut in two is reported (7) with the pointer on its first byte.
    const std::string text = "a\xa1\xa2\x8f\xa2\xafz";
    const int starts[] = {0, 1, 3, 6, 7};
    for (size_t n = 0; n <= text.size(); ++n) {
        Guarded g(text.substr(0, n));
        int length = static_cast<int>(n), room = 20, irreversible = -1;
        unsigned char buffer[20];
        unsigned char *p = g.data, *o = buffer;
        const int result = nu_miconv(cv, &p, &length, &o, &room, &irreversible);
        const bool boundary = std::find(std::begin(starts), std::end(starts), int(n)) != std::end(starts);
        EXPECT_EQ(result, boundary ? 0 : -1) << n;
        if (!boundary) {
            EXPECT_EQ(cv.error(), NU_EINVAL) << n;
            const int start = *(std::upper_bound(std::begin(starts), std::end(starts), int(n)) - 1);
            EXPECT_EQ(p - g.data, start) << n;
            EXPECT_EQ(length, int(n) - start) << n;
        }
    }
}

TEST(Multibyte, RoomOfExactlyTheCharacter) {
    Cv cv = fixture("mb.cvo");
    Conv c = convert(cv, "\xa1\xa1", 3);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.room, 0);
    c = convert(cv, "x\xa1\xa1", 3);
    EXPECT_EQ(c.result, -1);
    EXPECT_EQ(c.error, NU_E2BIG);
    EXPECT_EQ(c.consumed, 1);
    EXPECT_EQ(c.out, "x");
    EXPECT_EQ(c.room, 2);
    // Counting only: no output pointer, the room still goes down.
    unsigned char in[] = "a\xa1\xa1";
    int room = 100, irreversible = -1;
    EXPECT_EQ(nu_mconvlen(cv, nullptr, in, 3, &room, &irreversible), 0);
    EXPECT_EQ(room, 96);
    room = 100;
    EXPECT_EQ(nu_mconvlen(cv, nullptr, in, -1, &room, &irreversible), 0);   // with the NUL
    EXPECT_EQ(room, 95);
}

TEST(LittleEndian, TwoAndFourByteSourcesAreReadLowByteFirst) {
    Cv cv = fixture("le2src.cvo");
    EXPECT_EQ(static_cast<nu_cv_rec *>(cv)->convert, &nus::little_endian_unicode_source_miconv);
    Conv c = convert(cv, std::string("A\0\xe9\0\0\x4e", 6), 20);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, "A\xc3\xa9\xe4\xb8\x80");
    c = convert(cv, std::string("A\0B", 3), 20);
    EXPECT_EQ(c.result, -1);
    EXPECT_EQ(c.error, NU_EINVAL);
    EXPECT_EQ(c.consumed, 2);
    EXPECT_EQ(c.out, "A");
    c = convert(cv, std::string("A\0\x43\0", 4), 20);
    EXPECT_EQ(c.error, NU_EILSEQ);
    EXPECT_EQ(c.consumed, 2);
    c = convert(cv, std::string("A\0\0\0B\0", 6), 20, false);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, std::string("A\0", 2));
    EXPECT_EQ(c.consumed, 4);

    Cv wide = fixture("le4src.cvo");
    c = convert(wide, std::string("A\0\0\0\x00\xf6\x01\x00", 8), 20);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, "A\xf0\x9f\x98\x80");
    c = convert(wide, std::string("A\0\0", 3), 20);
    EXPECT_EQ(c.error, NU_EINVAL);
    EXPECT_EQ(c.consumed, 0);
}

TEST(LittleEndian, TargetsAreWrittenLowByteFirstWithTheTwoByteRoomCheck) {
    Cv cv = fixture("le2tgt.cvo");
    EXPECT_EQ(static_cast<nu_cv_rec *>(cv)->convert, &nus::little_endian_unicode_target_miconv);
    Conv c = convert(cv, "A\xc3\xa9\xe4\xb8\x80", 6);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, std::string("A\0\xe9\0\0\x4e", 6));
    EXPECT_EQ(c.room, 0);
    c = convert(cv, "AA", 3);
    EXPECT_EQ(c.error, NU_E2BIG);
    EXPECT_EQ(c.consumed, 1);
    EXPECT_EQ(c.room, 1);

    // Four-byte units: four bytes written although only two are asked for.
    Cv wide = fixture("le4tgt.cvo");
    unsigned char in[] = "A\xf0\x9f\x98\x80";
    unsigned char buffer[16] = {};
    unsigned char *p = in, *o = buffer;
    int length = 5, room = 2, irreversible = -1;
    EXPECT_EQ(nu_miconv(wide, &p, &length, &o, &room, &irreversible), -1);
    EXPECT_EQ(wide.error(), NU_E2BIG);
    EXPECT_EQ(o - buffer, 4);
    EXPECT_EQ(room, -2);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer), 4), std::string("A\0\0\0", 4));
    p = in + 1;
    o = buffer;
    length = 4;
    room = 4;
    EXPECT_EQ(nu_miconv(wide, &p, &length, &o, &room, &irreversible), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer), 4), std::string("\x00\xf6\x01\x00", 4));
}

// ---- shift states ------------------------------------------------------------------------------

const std::string kMixed = "\xc1\x0e\x4c\x41\x40\x40\x0f\xc2\x0e\x4c\x41\x0f\x40";
const std::string kMixedUtf8 = "A\xe4\xb8\x80\xe3\x80\x80" "B\xe4\xb8\x80 ";

TEST(Stateful, SourceShiftsBetweenItsTwoTables) {
    Cv cv = fixture("ssrc.cvo");
    Conv c = convert(cv, kMixed, 40);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, kMixedUtf8);
    EXPECT_EQ(c.irreversible, 0);
    // A shift into the state in force changes nothing; a substitute in the shifted table.
    c = convert(cv, "\x0f\xc1\x0e\x0e\x4c\x42\x0f", 40);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, "A?");
    EXPECT_EQ(c.irreversible, 1);
    // A single byte is not a character of the shifted state.
    c = convert(cv, "\x0e\xc1", 40);
    EXPECT_EQ(c.error, NU_EILSEQ);
    EXPECT_EQ(c.consumed, 1);
}

TEST(Stateful, PiecesSplitAnywhereGiveTheWholeText) {
    Cv cv = fixture("ssrc.cvo");
    for (size_t cut = 0; cut <= kMixed.size(); ++cut) {
        nu_cv_state state{1, 0, 1, 1};   // reset clears the shift words left by a caller
        std::string out;
        Conv c = convert(cv, kMixed.substr(0, cut), 40, true, &state);
        out += c.out;
        std::string rest = kMixed.substr(c.consumed);
        if (c.result != 0) {
            // Only a two-byte character cut in two stops the first piece.
            EXPECT_EQ(c.error, NU_EINVAL) << cut;
            EXPECT_EQ(c.left, 1) << cut;
        }
        state.reset = 0;
        state.flush = 1;
        c = convert(cv, rest, 40, true, &state);
        EXPECT_EQ(c.result, 0) << cut;
        out += c.out;
        EXPECT_EQ(out, kMixedUtf8) << cut;
    }
}

TEST(Stateful, TargetShiftSequencesFlushAndRoom) {
    Cv cv = fixture("stgt.cvo");
    const std::string text = "A\xe4\xb8\x80\xe3\x80\x80" "B\xe4\xb8\x80";
    const std::string whole = "\xc1\x0e\x4c\x41\x40\x40\x0f\xc2\x0e\x4c\x41\x0f";
    // Without a state: one piece, reset and flushed.
    Conv c = convert(cv, text, 40);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.out, whole);
    EXPECT_EQ(c.room, 40 - static_cast<int>(whole.size()));
    // Without an input length the terminator is the last character: shift-in before it is
    // written as a character of the initial state.
    c = convert(cv, "\xe4\xb8\x80" + kNul + "A", 40, false);
    EXPECT_EQ(c.out, "\x0e\x4c\x41\x0f" + kNul);

    // Pieces: the state stays shifted between calls; flush closes the text.
    nu_cv_state state{1, 0, 0, 0};
    c = convert(cv, "A\xe4\xb8\x80", 40, true, &state);
    EXPECT_EQ(c.out, "\xc1\x0e\x4c\x41");
    EXPECT_EQ(state.target_shift, 1);
    state.reset = 0;
    c = convert(cv, "\xe3\x80\x80", 40, true, &state);
    EXPECT_EQ(c.out, "\x40\x40");
    state.flush = 1;
    c = convert(cv, "\xe4\xb8\x80", 40, true, &state);
    EXPECT_EQ(c.out, "\x4c\x41\x0f");
    EXPECT_EQ(state.target_shift, 1);   // the shift-in closes the text; the word stays
    // Reset on the next text starts it in the initial state again.
    state = {1, 1, 0, 1};
    c = convert(cv, "\xe4\xb8\x80", 40, true, &state);
    EXPECT_EQ(c.out, "\x0e\x4c\x41\x0f");

    // The room must hold shift-out, the character and shift-in together.
    state = {1, 1, 0, 0};
    c = convert(cv, "\xe4\xb8\x80", 4, true, &state);
    EXPECT_EQ(c.result, 0);
    EXPECT_EQ(c.room, 0);
    state = {1, 1, 0, 0};
    c = convert(cv, "\xe4\xb8\x80", 3, true, &state);
    EXPECT_EQ(c.result, -1);
    EXPECT_EQ(c.error, NU_E2BIG);
    EXPECT_EQ(c.consumed, 0);
    EXPECT_EQ(c.out, "");
    EXPECT_EQ(state.target_shift, 0);   // a refused character leaves the state alone
    // Leaving the shifted state needs room for the shift-in as well.
    state = {0, 0, 0, 1};
    c = convert(cv, "A", 1, true, &state);
    EXPECT_EQ(c.error, NU_E2BIG);
    EXPECT_EQ(state.target_shift, 1);
    c = convert(cv, "A", 2, true, &state);
    EXPECT_EQ(c.out, "\x0f\xc1");
    EXPECT_EQ(state.target_shift, 0);
}

TEST(Dispatch, FailureDescriptorsAndMissingArguments) {
    nu_cv_t cv = nullptr;
    EXPECT_EQ(nu_iconv_open(&cv, "same", "same"), -1);
    unsigned char in[] = "a";
    unsigned char *p = in;
    int room = 10, length = 1, irreversible = 0;
    EXPECT_EQ(nu_miconv(cv, &p, &length, nullptr, &room, &irreversible), -1);
    EXPECT_EQ(*_nu_ext_errno(cv), NU_ENOFILE);
    EXPECT_EQ(nu_cv_unload(cv), 0);
    EXPECT_EQ(*_nu_ext_errno(cv), NU_ENOFILE);   // never freed, never changed
    EXPECT_EQ(nu_miconv(nullptr, &p, &length, nullptr, &room, &irreversible), -1);

    Cv sb = fixture("sb.cvo");
    EXPECT_EQ(nu_miconv(sb, nullptr, &length, nullptr, &room, &irreversible), -1);
    EXPECT_EQ(sb.error(), NU_EBADARG);
    EXPECT_EQ(nu_miconv(sb, &p, &length, nullptr, nullptr, &irreversible), -1);
    EXPECT_EQ(sb.error(), NU_EBADARG);
    // The irreversible flag may be left out.
    EXPECT_EQ(nu_miconv(sb, &p, &length, nullptr, &room, nullptr), 0);
    EXPECT_EQ(room, 9);
}

} // namespace

namespace {

// Long text goes through the runs of plain characters (eight ASCII bytes at a time, records
// copied out of the table); a bad byte anywhere, and a room ending anywhere, must still stop
// the conversion on the right character with the right counts.
TEST(Runs, ABadByteOrTheEndOfTheRoomAnywhereInALongText) {
    Cv cv = fixture("mb.cvo");
    std::string text, expected;
    for (int i = 0; i < 6; ++i) {
        text += "plain ascii text \xa1\xa1";
        expected += "plain ascii text \xe3\x80\x80";
    }
    for (size_t at = 0; at < text.size(); ++at) {
        std::string bad = text;
        bad.insert(at, "\xff");
        const Conv c = convert(cv, bad, 200);
        EXPECT_EQ(c.result, -1) << at;
        EXPECT_EQ(c.error, NU_EILSEQ) << at;
        // The bad byte follows whole characters only where it was put between them.
        EXPECT_LE(c.consumed, static_cast<int>(at)) << at;
        EXPECT_EQ(c.left, static_cast<int>(bad.size()) - c.consumed) << at;
        const Conv good = convert(cv, text.substr(0, c.consumed), 200);
        EXPECT_EQ(good.out, c.out) << at;
    }
    const Conv whole = convert(cv, text, 200);
    EXPECT_EQ(whole.out, expected);
    for (int room = 0; room <= static_cast<int>(expected.size()); ++room) {
        const Conv c = convert(cv, text, room);
        const bool fits = room == static_cast<int>(expected.size());
        EXPECT_EQ(c.result, fits ? 0 : -1) << room;
        EXPECT_EQ(c.out, expected.substr(0, c.out.size())) << room;
        EXPECT_EQ(c.room, room - static_cast<int>(c.out.size())) << room;
        // It stops only where the next character does not fit.
        if (!fits) {
            EXPECT_EQ(c.error, NU_E2BIG) << room;
            const int next = static_cast<unsigned char>(text[c.consumed]) == 0xa1 ? 3 : 1;
            EXPECT_LT(c.room, next) << room;
        }
    }
}

TEST(Runs, ShiftedRunsInALongMixedText) {
    Cv cv = fixture("ssrc.cvo");
    std::string text, expected;
    for (int i = 0; i < 5; ++i) {
        text += kMixed;
        expected += kMixedUtf8;
    }
    EXPECT_EQ(convert(cv, text, 400).out, expected);
    for (size_t cut = 0; cut < text.size(); ++cut) {
        nu_cv_state state{1, 0, 0, 0};
        Conv c = convert(cv, text.substr(0, cut), 400, true, &state);
        state.reset = 0;
        state.flush = 1;
        const Conv rest = convert(cv, text.substr(c.consumed), 400, true, &state);
        EXPECT_EQ(c.out + rest.out, expected) << cut;
    }
}

} // namespace
