// What the text subcommands of nus (conv, sort, check, locales) share: option parsing, sizes,
// byte dumps for messages, code-set names, and buffered reading and writing.
#pragma once

#include "tools/nus/nus_tool.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace nus_cli {

// A size with an optional suffix K, M or G (powers of 1024), or B for bytes: "64K", "300M".
// False for anything else, zero included.
bool parse_size(const char *text, std::size_t &value);

// A positive decimal count below 2^31.
bool parse_count(const char *text, long &value);

// "0x81 0x20": the bytes of an invalid or truncated sequence, for messages.
std::string hex_bytes(const unsigned char *bytes, std::size_t length);

// The code-set part of a locale name ("ja_jp.sjis@mod" gives "sjis"); a text without
// a "." is taken as a code-set name already.
std::string codeset_of(std::string_view spec);

// Where in an input a byte lies, for messages: lines counted from 1, bytes from 1 (the first
// byte of the input is byte 1, as cmp counts).
struct Position {
    std::uint64_t line = 1;
    std::uint64_t byte = 1;
};

// Standard output through a large buffer of its own; remembers a failed write.
class Output {
public:
    Output() { buffer_.reserve(kSize); }
    ~Output() {
        flush();
        if (stream_ != stdout) std::fclose(stream_);
    }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    // Writes to the file at `path` (made or emptied now) instead of standard output; false
    // (after reporting it) when it cannot be opened. Nothing must have been written yet.
    bool open(const char *path);
    void write(const void *data, std::size_t length) {
        buffer_.append(static_cast<const char *>(data), length);
        if (buffer_.size() >= kSize) flush();
    }
    void write(std::string_view text) { write(text.data(), text.size()); }
    // Flushes; false (after reporting "write error") when any write failed.
    bool finish();

private:
    static constexpr std::size_t kSize = 1 << 16;
    void flush();
    std::string buffer_;
    std::FILE *stream_ = stdout;
    std::string path_;
    bool failed_ = false;
};

// Reads up to `size` bytes (fewer only at the end of the stream) and appends them to `buffer`;
// the number read. A read error is reported ("NAME: read error") and sets `error`.
std::size_t read_block(std::FILE *stream, const char *name, std::string &buffer,
                       std::size_t size, bool &error);

// The prefix of a message about a place in an input: "" for standard input, "NAME: " for a file.
std::string input_prefix(const char *name);

} // namespace nus_cli

namespace nus_cli {

// The first sequence of a text that is not a valid character of the locale's code set.
struct BadSequence {
    std::size_t offset = 0;   // bytes before it
    std::size_t column = 1;   // characters before it, plus one
    std::size_t length = 0;   // bytes up to and including the one that made it invalid
    bool truncated = false;   // the text ends inside a character
};

// Scans [text, text + length) character by character from `from` (a character boundary, the
// `column` characters before it already counted); true and the first bad sequence when there
// is one. Null characters count as characters.
bool find_bad_sequence(nu_locale_t locale, const unsigned char *text, std::size_t length,
                       std::size_t from, std::size_t column, BadSequence &bad);

} // namespace nus_cli

namespace nus_cli {

// The code set of a locale named by a locale name ("sjis" for ja_jp.sjis) or by a locale
// file name ("57350" for ja_jp/e006.lco), for messages.
std::string locale_codeset(const char *spec);

} // namespace nus_cli
