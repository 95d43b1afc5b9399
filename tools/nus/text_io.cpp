// Helpers of the text subcommands: sizes, byte dumps, code-set names, buffered output.
#include "tools/nus/text_io.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace nus_cli {

bool parse_size(const char *text, std::size_t &value) {
    if (text == nullptr || *text < '0' || *text > '9') return false;
    errno = 0;
    char *end = nullptr;
    const unsigned long long number = std::strtoull(text, &end, 10);
    if (errno != 0) return false;
    unsigned long long scale = 1;
    switch (*end) {
    case '\0': break;
    case 'b': case 'B': scale = 1; ++end; break;
    case 'k': case 'K': scale = 1ull << 10; ++end; break;
    case 'm': case 'M': scale = 1ull << 20; ++end; break;
    case 'g': case 'G': scale = 1ull << 30; ++end; break;
    default: return false;
    }
    if (*end != '\0' || number == 0 || number > SIZE_MAX / scale) return false;
    value = static_cast<std::size_t>(number * scale);
    return true;
}

bool parse_count(const char *text, long &value) {
    if (text == nullptr || *text < '0' || *text > '9') return false;
    errno = 0;
    char *end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || number < 1 || number > 0x7FFFFFFFL) return false;
    value = number;
    return true;
}

std::string hex_bytes(const unsigned char *bytes, std::size_t length) {
    std::string text;
    char one[8];
    for (std::size_t i = 0; i < length; ++i) {
        std::snprintf(one, sizeof one, i == 0 ? "0x%02X" : " 0x%02X", bytes[i]);
        text += one;
    }
    return text;
}

std::string codeset_of(std::string_view spec) {
    const std::size_t dot = spec.find('.');
    if (dot == std::string_view::npos) return std::string(spec);
    std::string_view rest = spec.substr(dot + 1);
    const std::size_t at = rest.find('@');
    return std::string(at == std::string_view::npos ? rest : rest.substr(0, at));
}

bool Output::open(const char *path) {
    std::FILE *f = std::fopen(path, "w");
    if (f == nullptr) {
        report(kDataError, "cannot write %s: %s", path, std::strerror(errno));
        return false;
    }
    stream_ = f;
    path_ = path;
    return true;
}

void Output::flush() {
    if (!buffer_.empty() && std::fwrite(buffer_.data(), 1, buffer_.size(), stream_) != buffer_.size())
        failed_ = true;
    buffer_.clear();
}

bool Output::finish() {
    flush();
    if (std::fflush(stream_) != 0 || std::ferror(stream_)) failed_ = true;
    if (stream_ != stdout) {
        if (std::fclose(stream_) != 0) failed_ = true;
        stream_ = stdout;
    }
    if (failed_)
        report(kDataError, "write error%s%s: %s", path_.empty() ? "" : " on ", path_.c_str(),
               std::strerror(errno));
    return !failed_;
}

std::size_t read_block(std::FILE *stream, const char *name, std::string &buffer,
                       std::size_t size, bool &error) {
    const std::size_t old = buffer.size();
    buffer.resize(old + size);
    const std::size_t got = std::fread(buffer.data() + old, 1, size, stream);
    buffer.resize(old + got);
    if (got < size && std::ferror(stream)) {
        report(kDataError, "%s: read error: %s", std::strcmp(name, "-") == 0 ? "standard input" : name,
               std::strerror(errno));
        error = true;
    }
    return got;
}

std::string input_prefix(const char *name) {
    if (std::strcmp(name, "-") == 0) return {};
    return std::string(name) + ": ";
}

} // namespace nus_cli

namespace nus_cli {

bool find_bad_sequence(nu_locale_t locale, const unsigned char *text, std::size_t length,
                       std::size_t from, std::size_t column, BadSequence &bad) {
    constexpr std::size_t kLongest = 4;
    std::size_t at = from;
    while (at < length) {
        const std::size_t left = length - at;
        const int budget = static_cast<int>(std::min(left, kLongest));
        const int step = _tsn_nu_full_mblen(locale, text + at, budget);
        if (step > 0) {
            at += static_cast<std::size_t>(step);
            ++column;
            continue;
        }
        bad.offset = at;
        bad.column = column;
        bad.truncated = false;
        if (*_nu_ext_errno(locale) == NU_EINVAL && left < kLongest) {
            bad.truncated = true;
            bad.length = left;
            return true;
        }
        // Grow the budget until the decoder stops asking for more: that byte broke it.
        bad.length = 1;
        for (int n = 1; n <= budget; ++n) {
            bad.length = static_cast<std::size_t>(n);
            if (_tsn_nu_full_mblen(locale, text + at, n) < 0 &&
                *_nu_ext_errno(locale) != NU_EINVAL)
                break;
        }
        return true;
    }
    return false;
}

} // namespace nus_cli

namespace nus_cli {

std::string locale_codeset(const char *spec) {
    const std::string_view text(spec);
    if (text.size() > 4 && text.substr(text.size() - 4) == ".lco") {
        const std::size_t slash = text.rfind('/', text.size() - 5);
        const std::string tail(slash != std::string_view::npos && slash >= 5
                                   ? text.substr(slash - 5) : text);
        char lang[6], codeset[6], modifier[5];
        if (nu_lc_fname2lc_pieces(nullptr, tail.c_str(), lang, codeset, modifier) == 0)
            return codeset;
        return std::string(text);
    }
    return codeset_of(text);
}

} // namespace nus_cli
