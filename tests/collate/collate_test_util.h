// Small helpers of the collation tests: wide strings, sort keys as strings, signs.
#pragma once

#include "support/collate_fixture.h"

#include <random>
#include <string>
#include <vector>

namespace nus_test {

inline const unsigned char *u(const char *s) { return reinterpret_cast<const unsigned char *>(s); }
inline const unsigned char *u(const std::string &s) { return u(s.c_str()); }

// One wide character per byte, then a wide null.
inline std::vector<nu_wchar> wide(const std::string &s) {
    std::vector<nu_wchar> w;
    for (unsigned char c : s) w.push_back(c);
    w.push_back(0);
    return w;
}

inline int sign(int v) { return (v > 0) - (v < 0); }

// The whole sort key of s (multibyte), without its terminator.
inline std::string key(nu_locale_t h, const std::string &s) {
    const int n = nu_full_mbsxfrm(h, nullptr, u(s), 0);
    if (n < 0) return "<error>";
    std::string out(static_cast<size_t>(n) + 1, '\0');
    nu_full_mbsxfrm(h, reinterpret_cast<unsigned char *>(out.data()), u(s), n + 1);
    out.resize(static_cast<size_t>(n));
    return out;
}

inline int key_order(nu_locale_t h, const std::string &a, const std::string &b) {
    return sign(key(h, a).compare(key(h, b)));
}

// A random string of `length` bytes drawn from `alphabet`.
inline std::string random_string(std::mt19937 &rng, const std::string &alphabet, int length) {
    std::string s;
    std::uniform_int_distribution<size_t> pick(0, alphabet.size() - 1);
    for (int i = 0; i < length; ++i) s.push_back(alphabet[pick(rng)]);
    return s;
}

} // namespace nus_test
