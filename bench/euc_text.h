// The text the decoding benchmarks share: 1 MiB of printable ASCII mixed with two-byte EUC
// characters of rows B0-CE (valid in every EUC-JP decoder), zero-terminated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace nus_bench {

inline constexpr size_t kTextSize = size_t{1} << 20;

struct EucText {
    std::vector<unsigned char> bytes;   // kTextSize bytes and a terminating zero
    int chars = 0;
};

inline const EucText &euc_text() {
    static const EucText t = [] {
        EucText out;
        out.bytes.reserve(kTextSize + 1);
        std::mt19937 rng(12345);
        while (out.bytes.size() < kTextSize) {
            if (out.bytes.size() + 2 <= kTextSize && rng() % 2 == 0) {
                out.bytes.push_back(static_cast<unsigned char>(0xB0 + rng() % 31));
                out.bytes.push_back(static_cast<unsigned char>(0xA1 + rng() % 94));
            } else {
                out.bytes.push_back(static_cast<unsigned char>(0x20 + rng() % 95));
            }
            ++out.chars;
        }
        out.bytes.push_back(0);
        return out;
    }();
    return t;
}

} // namespace nus_bench
