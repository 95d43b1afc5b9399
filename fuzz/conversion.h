// Conversion calls with their bookkeeping checked: the input and output pointers, the input
// length and the room move together and stay inside the caller's buffers (which are exactly
// sized, so the address sanitizer sees any byte beyond them).
#pragma once

#include "fuzz/fuzz.h"
#include "convert/cv_rec.h"

namespace nus_fuzz {

struct Call {
    int result = 0;
    int error = 0;
    size_t consumed = 0;
    std::string output;
    int irreversible = 0;
};

// One nu_cv_mconv on `input` (with its length) into `room` bytes.
inline Call convert_piece(nu_cv_t cv, nu_cv_state *state, const std::string &input, int room) {
    Exact in(input);
    Exact out(static_cast<size_t>(room));
    unsigned char *in_p = in.get();
    unsigned char *out_p = out.get();
    int inlen = static_cast<int>(input.size());
    int left = room;
    Call c;
    c.irreversible = -1;
    *_nu_ext_errno(cv) = 0;
    c.result = nu_cv_mconv(cv, state, &in_p, &inlen, &out_p, &left, &c.irreversible);
    c.error = *_nu_ext_errno(cv);
    NUS_FUZZ_CHECK(c.result == 0 || c.result == -1);
    NUS_FUZZ_CHECK(in_p >= in.get() && in_p <= in.get() + input.size());
    c.consumed = static_cast<size_t>(in_p - in.get());
    NUS_FUZZ_CHECK(inlen == static_cast<int>(input.size() - c.consumed));
    NUS_FUZZ_CHECK(out_p >= out.get() && out_p <= out.get() + room);
    NUS_FUZZ_CHECK(left == room - static_cast<int>(out_p - out.get()));
    NUS_FUZZ_CHECK(c.irreversible == 0 || c.irreversible == 1);
    if (c.result == 0) {
        NUS_FUZZ_CHECK(c.consumed == input.size());
    } else {
        NUS_FUZZ_CHECK(c.error == NU_EILSEQ || c.error == NU_EINVAL || c.error == NU_E2BIG);
    }
    c.output.assign(reinterpret_cast<const char *>(out.get()),
                    static_cast<size_t>(out_p - out.get()));
    if (std::getenv("NUS_FUZZ_TRACE") != nullptr) {
        std::fprintf(stderr, "convert %zu bytes, room %d, state %s reset %d flush %d:", input.size(),
                     room, state != nullptr ? "yes" : "no", state != nullptr ? state->reset : -1,
                     state != nullptr ? state->flush : -1);
        for (unsigned char b : input) std::fprintf(stderr, " %02x", b);
        std::fprintf(stderr, " -> result %d error %d consumed %zu out", c.result, c.error,
                     c.consumed);
        for (unsigned char b : c.output) std::fprintf(stderr, " %02x", b);
        std::fprintf(stderr, "\n");
    }
    return c;
}

// The counting form agrees with a conversion into room enough.
inline void check_count(nu_cv_t cv, const nu_cv_state *state, const std::string &input,
                        const Call &converted, int room) {
    nu_cv_state copy{};
    if (state != nullptr) copy = *state;
    Exact in(input);
    int left = room;
    int irreversible = -1;
    *_nu_ext_errno(cv) = 0;
    const int result = nu_mconvlen(cv, state != nullptr ? &copy : nullptr, in.get(),
                                   static_cast<int>(input.size()), &left, &irreversible);
    NUS_FUZZ_CHECK(result == converted.result);
    NUS_FUZZ_CHECK(*_nu_ext_errno(cv) == converted.error || result == 0);
    NUS_FUZZ_CHECK(room - left == static_cast<int>(converted.output.size()));
}

// A text converted in pieces of the fuzzer's choosing, with rooms of its choosing, the way a
// caller streams it: bytes not converted (a character cut by the piece's end, or no room)
// go again at the front of the next piece. With `faithful`, the state is reset on the first
// call only and flushed on the last, and the result must equal the conversion of the whole
// text in one call; otherwise resets and flushes are random.
inline void convert_in_pieces(nu_cv_t cv, Input &in, bool faithful, bool with_state) {
    struct Piece {
        std::string bytes;
        int room;
        uint8_t flags;
    };
    std::vector<Piece> pieces;
    std::string text;
    while (!in.empty() && pieces.size() < 64) {
        const int length = in.range(0, 24);
        const int room = in.range(0, 48);
        const uint8_t flags = in.byte();
        pieces.push_back({in.bytes(static_cast<size_t>(length)), room, flags});
        text += pieces.back().bytes;
    }
    // The last call that brings new bytes, and every one after it, ends the text.
    size_t last_bytes = 0;
    for (size_t i = 0; i < pieces.size(); ++i)
        if (!pieces[i].bytes.empty()) last_bytes = i;
    // Without a state every call of a stateful conversion is a text of its own.
    if (cv->source_stateful != 0 || cv->target_stateful != 0) with_state = with_state || faithful;
    nu_cv_state state{1, 0, 0, 0};
    nu_cv_state *sp = with_state ? &state : nullptr;
    std::string pending, output;
    bool stopped = false;
    size_t converted = 0;
    for (size_t i = 0; i < pieces.size() && !stopped; ++i) {
        pending += pieces[i].bytes;
        if (faithful) {
            state.reset = i == 0 ? 1 : 0;
            state.flush = i >= last_bytes ? 1 : 0;
        } else {
            state.reset = pieces[i].flags & 1;
            state.flush = (pieces[i].flags >> 1) & 1;
            if (pieces[i].flags & 4) sp = nullptr;
            else if (with_state) sp = &state;
        }
        const Call c = convert_piece(cv, sp, pending, pieces[i].room);
        output += c.output;
        converted += c.consumed;
        pending.erase(0, c.consumed);
        if (c.result != 0 && c.error == NU_EILSEQ) {
            if (faithful) stopped = true;
            else pending.erase(0, 1);
        }
    }
    if (!faithful) return;
    if (!stopped && !pending.empty()) {
        state.reset = 0;
        state.flush = 1;
        const Call c = convert_piece(cv, sp, pending, static_cast<int>(8 * pending.size() + 16));
        output += c.output;
        converted += c.consumed;
    }
    if (text.empty()) return;
    nu_cv_state whole_state{1, 1, 0, 0};
    const int room = static_cast<int>(8 * text.size() + 16);
    nu_cv_state count_state = whole_state;
    const Call whole = convert_piece(cv, with_state ? &whole_state : nullptr, text, room);
    check_count(cv, with_state ? &count_state : nullptr, text, whole, room);
    NUS_FUZZ_CHECK(whole.consumed == converted);
    NUS_FUZZ_CHECK(whole.output == output);
}

} // namespace nus_fuzz
