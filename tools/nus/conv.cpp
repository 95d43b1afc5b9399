// nus conv: converts text between code sets through the library's conversion objects, a block
// at a time, with the shift state and any character cut by a block boundary carried over.
#include "tools/nus/text_io.h"

#include <getopt.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

namespace nus_cli {

namespace {

constexpr const char *kHelp =
    "Usage: nus conv -f FROM -t TO [-c] [FILE...]\n"
    "Convert text from the code set FROM to the code set TO and write it to standard output.\n"
    "FROM and TO are code-set names or numbers (sjis, 8859-1, 819) or locale names\n"
    "(ja_jp.sjis). With no FILE, or when FILE is -, read standard input. Each file is a text\n"
    "of its own: shift states start afresh at its beginning and are closed at its end.\n\n"
    "  -f, --from=FROM     code set of the input\n"
    "  -t, --to=TO         code set of the output\n"
    "  -c                  drop what cannot be converted and report how much on stderr\n"
    "  -h, --help          show this help\n\n"
    "Without -c the first invalid or truncated sequence stops the conversion with a message\n"
    "naming its line and byte (the input's first byte is byte 1; lines are counted by the\n"
    "source's newline: 0x0A, 0x25 in EBCDIC code sets, the unit 0x000A in 2-byte Unicode).\n"
    "With -c such a sequence is dropped up to the byte that broke it (that byte starts afresh\n"
    "unless it is invalid too) and the status stays 0. Characters written as substitutes\n"
    "because TO lacks them are counted on stderr.\n"
    "Exit status: 0 success, 1 invalid input, unknown code set or missing conversion or file,\n"
    "2 usage error.\n";

constexpr std::size_t kDefaultBlock = 64 * 1024;
constexpr int kProbeLimit = 8;  // longer than any character or shift sequence

// How the source code set writes a newline, for line numbers in messages.
enum class Newline { kByte0A, kByte25, kUnit0A };

Newline newline_of(unsigned int number) {
    switch (number) {
    case 37: case 833: case 834: case 835: case 836: case 837: case 933: case 935: case 937:
    case 28709: case 29709:
        return Newline::kByte25;  // EBCDIC: LF is 0x25 (0x15 is NEL)
    case 0xE005:
        return Newline::kUnit0A;  // "unicode": 2-byte little-endian units
    default:
        return Newline::kByte0A;
    }
}

class Converter {
public:
    Converter(nu_cv_t cv, bool skip, std::size_t block, std::string from_name, Newline newline,
              Output &out)
        : cv_(cv), skip_(skip), block_(block), from_(std::move(from_name)), newline_(newline),
          out_(out) {}

    // Converts one input to the end; kOk or kDataError (already reported).
    int run(std::FILE *stream, const char *name);

    long skipped() const { return skipped_; }
    long irreversible() const { return irreversible_; }

private:
    int error() const { return *_nu_ext_errno(cv_); }
    // One call of the converter over [in, in + length) into the output buffer (or only
    // counting): -1 on error, else 1 when a character was substituted, 0 when none was.
    int convert(nu_cv_state &state, const unsigned char *&in, int &length, bool count_only);
    // Converts a piece; what a cut-off last character leaves is moved to `carry`.
    int piece(const std::string &data, bool last, std::string &carry);
    // Drops what cannot be converted from a piece (with -c); the rest goes on to conversion.
    std::string strip(const std::string &data, bool last, std::string &carry);
    // Bytes up to and including the one that made the character at p invalid.
    int invalid_length(const nu_cv_state &state, const unsigned char *p, std::size_t left);
    // True when a character starting at p converts (given enough of what follows).
    bool converts(const nu_cv_state &state, const unsigned char *p, std::size_t left);
    // Characters among [p, p + length) that were written as substitutes.
    long count_irreversible(nu_cv_state state, const unsigned char *p, std::size_t length);
    void advance(const unsigned char *p, std::size_t length);
    int fail(const char *what, const unsigned char *p, std::size_t length, const char *tail);

    nu_cv_t cv_;
    bool skip_;
    std::size_t block_;
    std::string from_;
    Newline newline_;
    Output &out_;
    std::string buffer_;
    nu_cv_state state_{};
    bool first_ = true;
    bool substituted_ = false;  // the last call converted a character to a substitute
    std::string prefix_;
    Position at_;
    long skipped_ = 0;
    long irreversible_ = 0;
};

int Converter::convert(nu_cv_state &state, const unsigned char *&in, int &length,
                       bool count_only) {
    int room = count_only ? INT_MAX : static_cast<int>(buffer_.size());
    unsigned char *out = reinterpret_cast<unsigned char *>(buffer_.data());
    unsigned char *cursor = const_cast<unsigned char *>(in);
    int irreversible = 0;
    const int result = nu_cv_mconv(cv_, &state, &cursor, &length, count_only ? nullptr : &out,
                                   &room, &irreversible);
    in = cursor;
    substituted_ = irreversible != 0;
    if (!count_only)
        out_.write(buffer_.data(),
                   static_cast<std::size_t>(out - reinterpret_cast<unsigned char *>(buffer_.data())));
    return result < 0 ? -1 : irreversible;
}

bool Converter::converts(const nu_cv_state &state, const unsigned char *p, std::size_t left) {
    for (int k = 1; k <= kProbeLimit && static_cast<std::size_t>(k) <= left; ++k) {
        nu_cv_state probe = state;
        probe.reset = probe.flush = 0;
        const unsigned char *in = p;
        int length = k;
        if (convert(probe, in, length, true) >= 0) return true;
        if (error() != NU_EINVAL) return false;
    }
    return true;  // cut off by the end of what we have: not known to be invalid
}

int Converter::invalid_length(const nu_cv_state &state, const unsigned char *p,
                              std::size_t left) {
    int k = 1;
    for (; k <= kProbeLimit && static_cast<std::size_t>(k) <= left; ++k) {
        nu_cv_state probe = state;
        probe.reset = probe.flush = 0;
        const unsigned char *in = p;
        int length = k;
        if (convert(probe, in, length, true) < 0 && error() != NU_EINVAL) return k;
    }
    return std::min(k - 1, static_cast<int>(left));
}

long Converter::count_irreversible(nu_cv_state state, const unsigned char *p,
                                   std::size_t length) {
    long count = 0;
    std::size_t at = 0;
    state.flush = 0;
    while (at < length) {
        int k = 1;
        for (; k <= kProbeLimit && at + k <= length; ++k) {
            nu_cv_state probe = state;
            const unsigned char *in = p + at;
            int left = k;
            const int result = convert(probe, in, left, true);
            if (result >= 0) {
                count += result;
                state = probe;
                state.reset = 0;
                break;
            }
            if (error() != NU_EINVAL) return count + 1;  // cannot happen: it converted before
        }
        at += static_cast<std::size_t>(k);
    }
    return count;
}

void Converter::advance(const unsigned char *p, std::size_t length) {
    switch (newline_) {
    case Newline::kByte0A:
        at_.line += static_cast<std::uint64_t>(std::count(p, p + length, 0x0A));
        break;
    case Newline::kByte25:
        at_.line += static_cast<std::uint64_t>(std::count(p, p + length, 0x25));
        break;
    case Newline::kUnit0A:
        // Units start at even offsets of the input; a piece may begin on an odd one only when
        // the previous piece cut a unit, which is carried over, so pieces start on units.
        for (std::size_t i = 0; i + 1 < length; i += 2)
            if (p[i] == 0x0A && p[i + 1] == 0) ++at_.line;
        break;
    }
    at_.byte += length;
}

int Converter::fail(const char *what, const unsigned char *p, std::size_t length,
                    const char *tail) {
    return report(kDataError, "%sline %llu, byte %llu: %s %s in %s%s", prefix_.c_str(),
                  static_cast<unsigned long long>(at_.line),
                  static_cast<unsigned long long>(at_.byte), what, hex_bytes(p, length).c_str(),
                  from_.c_str(), tail);
}

std::string Converter::strip(const std::string &data, bool last, std::string &carry) {
    std::string kept;
    kept.reserve(data.size());
    nu_cv_state state = state_;
    state.reset = first_ ? 1 : 0;
    state.flush = 0;
    const auto *base = reinterpret_cast<const unsigned char *>(data.data());
    std::size_t at = 0;
    while (at < data.size()) {
        const unsigned char *in = base + at;
        int length = static_cast<int>(data.size() - at);
        const int result = convert(state, in, length, true);
        state.reset = 0;
        const std::size_t done = static_cast<std::size_t>(in - (base + at));
        kept.append(data, at, done);
        at += done;
        if (result >= 0) break;
        if (error() == NU_EINVAL) {  // a character cut off by the end of the piece
            if (!last) carry.assign(data, at, std::string::npos);
            else ++skipped_;
            break;
        }
        if (error() != NU_EILSEQ) break;  // left for the conversion to report
        const std::size_t left = data.size() - at;
        int drop = invalid_length(state, base + at, left);
        if (drop > 1 && converts(state, base + at + drop - 1, left - drop + 1)) --drop;
        ++skipped_;
        at += static_cast<std::size_t>(drop);
    }
    return kept;
}

int Converter::piece(const std::string &whole, bool last, std::string &carry) {
    carry.clear();
    const std::string data = skip_ ? strip(whole, last, carry) : std::string();
    const std::string &text = skip_ ? data : whole;
    const auto *in = reinterpret_cast<const unsigned char *>(text.data());
    int length = static_cast<int>(text.size());
    while (length > 0) {
        nu_cv_state before = state_;
        state_.reset = first_ ? 1 : 0;
        state_.flush = last ? 1 : 0;
        before.reset = state_.reset;
        first_ = false;
        const unsigned char *start = in;
        const int result = convert(state_, in, length, false);
        const std::size_t done = static_cast<std::size_t>(in - start);
        if (substituted_ && done > 0) irreversible_ += count_irreversible(before, start, done);
        advance(start, done);
        if (result >= 0) break;
        const int code = error();
        if (code == NU_E2BIG) {
            if (done == 0) buffer_.resize(buffer_.size() * 2);
            continue;
        }
        if (code == NU_EINVAL) {
            if (!last) {
                carry.assign(reinterpret_cast<const char *>(in), static_cast<std::size_t>(length));
                return kOk;
            }
            return fail("truncated sequence", in, static_cast<std::size_t>(length),
                        " at end of input");
        }
        if (code == NU_EILSEQ)
            return fail("invalid sequence", in,
                        static_cast<std::size_t>(invalid_length(state_, in, static_cast<std::size_t>(length))),
                        "");
        return report(kDataError, "%sline %llu, byte %llu: conversion failed: %s", prefix_.c_str(),
                      static_cast<unsigned long long>(at_.line),
                      static_cast<unsigned long long>(at_.byte), error_text(code).c_str());
    }
    return kOk;
}

int Converter::run(std::FILE *stream, const char *name) {
    prefix_ = input_prefix(name);
    at_ = Position{};
    state_ = nu_cv_state{};
    first_ = true;
    bool read_error = false;
    std::string carry, next, current;
    read_block(stream, name, current, block_, read_error);
    while (!read_error) {
        // A short block is the end of the stream; a full one may be followed by nothing.
        next.clear();
        if (current.size() == block_) read_block(stream, name, next, block_, read_error);
        if (read_error) break;
        const bool last = next.empty();
        std::string whole = std::move(carry);
        whole += current;
        if (whole.empty()) break;
        const std::size_t room = static_cast<std::size_t>(
            std::max(nu_cv_outbuflen(cv_, static_cast<int>(whole.size())), 0));
        if (buffer_.size() < room + 64) buffer_.resize(room + 64);
        carry.clear();
        const int status = piece(whole, last, carry);
        if (status != kOk) return status;
        if (last) break;
        current.swap(next);
    }
    return read_error ? kDataError : kOk;
}

// Copies an input unchanged: both sides name the same code set.
int copy_input(std::FILE *stream, const char *name, Output &out, std::size_t block) {
    std::string buffer;
    bool error = false;
    while (true) {
        buffer.clear();
        if (read_block(stream, name, buffer, block, error) == 0) break;
        out.write(buffer);
    }
    return error ? kDataError : kOk;
}

int open_conversion(nu_cv_t &cv, const char *from, const char *to) {
    int result = nu_cv_load(&cv, to, from, nullptr, nullptr);
    if (result >= 0) return result;
    int code = *_nu_ext_errno(cv);
    nu_cv_unload(cv);
    cv = nullptr;
    if (code == NU_EINVAL) {
        for (const char *spec : {from, to})
            if (nu_lc_spec2cs_num(nullptr, spec, nullptr) == NU_UNKNOWN_CODESET)
                return report(kDataError, "unknown code set or locale '%s'", spec), -1;
    }
    if (code == NU_ENOFILE) {  // no file under the code-set numbers: try the named one
        result = nu_cv_open(&cv, codeset_of(to).c_str(), codeset_of(from).c_str());
        if (result >= 0) return result;
        code = *_nu_ext_errno(cv);
        nu_cv_unload(cv);
        cv = nullptr;
    }
    if (code == NU_ENOFILE)
        report(kDataError, "no conversion from %s to %s under %s", from, to,
               data_root().c_str());
    else
        report(kDataError, "cannot load the conversion from %s to %s: %s", from, to,
               error_text(code).c_str());
    return -1;
}

} // namespace

int run_conv(int argc, char **argv) {
    if (wants_help(argc, argv, kHelp)) return kOk;
    static const option kOptions[] = {
        {"from", required_argument, nullptr, 'f'},
        {"to", required_argument, nullptr, 't'},
        {"block-size", required_argument, nullptr, 'B'},  // for tests: the read size
        {nullptr, 0, nullptr, 0}};
    const char *from = nullptr;
    const char *to = nullptr;
    bool skip = false;
    std::size_t block = kDefaultBlock;
    start_options();
    int option;
    while ((option = getopt_long(argc, argv, ":f:t:c", kOptions, nullptr)) != -1) {
        switch (option) {
        case 'f': from = optarg; break;
        case 't': to = optarg; break;
        case 'c': skip = true; break;
        case 'B':
            if (!parse_size(optarg, block) || block > (1u << 30))
                return usage_error("invalid block size '%s'", optarg);
            break;
        default: return option_error(option, argv);
        }
    }
    if (from == nullptr) return usage_error("missing -f FROM");
    if (to == nullptr) return usage_error("missing -t TO");

    nu_cv_t cv = nullptr;
    const int opened = open_conversion(cv, from, to);
    if (opened < 0) return kDataError;
    Output out;
    int status;
    if (opened == 0) {
        status = for_each_input(argc - optind, argv + optind, [&](std::FILE *stream, const char *name) {
            return copy_input(stream, name, out, block);
        });
    } else {
        Converter converter(cv, skip, block, codeset_of(from),
                            newline_of(nu_lc_spec2cs_num(nullptr, from, nullptr)), out);
        status = for_each_input(argc - optind, argv + optind, [&](std::FILE *stream, const char *name) {
            return converter.run(stream, name);
        });
        if (converter.skipped() > 0)
            warn("%ld invalid sequence%s dropped", converter.skipped(),
                 converter.skipped() == 1 ? "" : "s");
        if (converter.irreversible() > 0)
            warn("%ld character%s written as substitute%s (no equivalent in %s)",
                 converter.irreversible(), converter.irreversible() == 1 ? "" : "s",
                 converter.irreversible() == 1 ? "" : "s", codeset_of(to).c_str());
        nu_cv_unload(cv);
    }
    if (!out.finish() && status == kOk) status = kDataError;
    return status;
}

} // namespace nus_cli
