// Exact decimal digits of doubles and exact reading of short decimal texts, for the common
// cases where the system formatter and strtod would give the same result more slowly.
#include "numeric/numeric.h"

#include <array>
#include <cmath>
#include <cstring>

namespace {

constexpr uint64_t kPow10[] = {1ULL,
                               10ULL,
                               100ULL,
                               1000ULL,
                               10000ULL,
                               100000ULL,
                               1000000ULL,
                               10000000ULL,
                               100000000ULL,
                               1000000000ULL,
                               10000000000ULL,
                               100000000000ULL,
                               1000000000000ULL,
                               10000000000000ULL,
                               100000000000000ULL,
                               1000000000000000ULL,
                               10000000000000000ULL,
                               100000000000000000ULL,
                               1000000000000000000ULL,
                               10000000000000000000ULL};

constexpr double kExactPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                  1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

#if !defined(__SIZEOF_INT128__)
// A 128-bit unsigned value in two halves (the 32-bit target has no native one).
struct U128 {
    uint64_t hi, lo;
};

U128 multiply(uint64_t a, uint64_t b) {
    const uint64_t a0 = a & 0xFFFFFFFFu, a1 = a >> 32, b0 = b & 0xFFFFFFFFu, b1 = b >> 32;
    const uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    const uint64_t middle = (p00 >> 32) + (p01 & 0xFFFFFFFFu) + (p10 & 0xFFFFFFFFu);
    return {p11 + (p01 >> 32) + (p10 >> 32) + (middle >> 32), (middle << 32) | (p00 & 0xFFFFFFFFu)};
}

// The bits of x below bit k (0 < k < 128) compared with 2^(k-1): -1, 0 or 1.
int compare_remainder_with_half(const U128 &x, int k) {
    uint64_t rhi, rlo, half_hi, half_lo;
    if (k >= 64) {
        rhi = k == 64 ? 0 : x.hi & ((uint64_t{1} << (k - 64)) - 1);
        rlo = x.lo;
        half_hi = k == 64 ? 0 : uint64_t{1} << (k - 65);
        half_lo = k == 64 ? uint64_t{1} << 63 : 0;
    } else {
        rhi = 0;
        rlo = x.lo & ((uint64_t{1} << k) - 1);
        half_hi = 0;
        half_lo = uint64_t{1} << (k - 1);
    }
    if (rhi != half_hi) return rhi < half_hi ? -1 : 1;
    if (rlo != half_lo) return rlo < half_lo ? -1 : 1;
    return 0;
}
#endif

} // namespace

namespace nus::num {

bool fixed_digits(double value, int precision, char *out, int room) {
    if (!(value >= 0) || !std::isfinite(value) || precision < 0 || precision > 17) return false;
    // The scaled value must fit in 64 bits.
    static constexpr auto kLimit = [] {
        std::array<double, 18> limit{};
        for (size_t i = 0; i < limit.size(); ++i) limit[i] = 1.8e19 / static_cast<double>(kPow10[i]);
        return limit;
    }();
    if (value >= kLimit[static_cast<size_t>(precision)]) return false;
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const int biased = static_cast<int>(bits >> 52);   // the sign bit is clear
    // value = mantissa * 2^e exactly; a subnormal value is below any digit shown.
    const uint64_t mantissa = (bits & 0xFFFFFFFFFFFFFull) | (biased != 0 ? uint64_t{1} << 52 : 0);
    const int e = (biased != 0 ? biased : 1) - 1075;
    uint64_t q;
#if defined(__SIZEOF_INT128__)
    using u128 = unsigned __int128;
    const u128 product = static_cast<u128>(mantissa) * kPow10[precision];
    if (e >= 0) {
        if (e >= 64 || (product >> (64 - e)) != 0) return false;
        q = static_cast<uint64_t>(product) << e;
    } else if (const int k = -e; k >= 128) {
        q = 0;   // below half a unit of the last digit
    } else {
        const u128 whole = product >> k;
        if ((whole >> 64) != 0) return false;
        q = static_cast<uint64_t>(whole);
        const u128 rest = product - (whole << k), half = u128{1} << (k - 1);
        if (rest > half || (rest == half && (q & 1) != 0)) ++q;
    }
#else
    const U128 product = multiply(mantissa, kPow10[precision]);
    if (e >= 0) {
        if (product.hi != 0 || e >= 64 || (e > 0 && (product.lo >> (64 - e)) != 0)) return false;
        q = product.lo << e;
    } else if (const int k = -e; k >= 128) {
        q = 0;   // below half a unit of the last digit
    } else {
        q = k >= 64 ? product.hi >> (k - 64)
                    : (product.lo >> k) | (k == 0 ? 0 : product.hi << (64 - k));
        if (k < 64 && (product.hi >> k) != 0) return false;
        const int c = compare_remainder_with_half(product, k);
        if (c > 0 || (c == 0 && (q & 1) != 0)) ++q;
    }
#endif
    // The digits from the last, two at a time, then zeros up to one before the point.
    char digits[24];
    char *d = digits + sizeof digits;
    while (q >= 100) {
        const auto pair = static_cast<unsigned>(q % 100);
        q /= 100;
        d -= 2;
        std::memcpy(d, nus::kDigitPairs + 2 * pair, 2);
    }
    if (q >= 10) {
        d -= 2;
        std::memcpy(d, nus::kDigitPairs + 2 * q, 2);
    } else {
        *--d = static_cast<char>('0' + q);
    }
    int n = static_cast<int>(digits + sizeof digits - d);
    for (; n <= precision; ++n) *--d = '0';
    const int length = n + (precision > 0 ? 1 : 0);
    if (length + 1 > room) return false;
    const int whole = n - precision;
    for (int i = 0; i < whole; ++i) out[i] = d[i];
    if (precision > 0) {
        out[whole] = '.';
        for (int i = 0; i < precision; ++i) out[whole + 1 + i] = d[whole + i];
    }
    out[length] = 0;
    return true;
}

bool fast_decimal(const char *text, double *value) {
    const char *p = text;
    const bool negative = *p == '-';
    if (negative) ++p;
    uint64_t mantissa = 0;
    int significant = 0, scale = 0, digits = 0;
    for (; c_isdigit(*p); ++p, ++digits) {
        if (mantissa == 0 && *p == '0') continue;
        if (++significant > 15) return false;
        mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
    }
    if (*p == '.') {
        for (++p; c_isdigit(*p); ++p, ++digits) {
            --scale;
            if (mantissa == 0 && *p == '0') continue;
            if (++significant > 15) return false;
            mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
        }
    }
    if (digits == 0) return false;
    if (*p == 'e' || *p == 'E') {
        ++p;
        const bool minus = *p == '-';
        if (*p == '-' || *p == '+') ++p;
        if (!c_isdigit(*p)) return false;
        int e = 0;
        for (; c_isdigit(*p); ++p) {
            e = e * 10 + (*p - '0');
            if (e > 400) return false;
        }
        scale += minus ? -e : e;
    }
    if (*p != 0) return false;
    double v;
#if defined(__FLT_EVAL_METHOD__) && __FLT_EVAL_METHOD__ != 0
    // Extended-precision arithmetic (x87) would round twice: only exact results are taken.
    if (mantissa != 0 && !(scale >= 0 && scale <= 15 && mantissa < kPow10[15 - scale])) return false;
#endif
    if (mantissa == 0) v = 0.0;
    else if (scale >= 0 && scale <= 22) v = static_cast<double>(mantissa) * kExactPow10[scale];
    else if (scale < 0 && scale >= -22) v = static_cast<double>(mantissa) / kExactPow10[-scale];
    else return false;
    // A product above 2^53 would be rounded twice only if the mantissa were inexact; with at
    // most 15 digits it is exact and the one multiplication or division rounds correctly.
    *value = negative ? -v : v;
    return true;
}

} // namespace nus::num
