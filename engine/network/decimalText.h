// Reading decimal numbers exactly and fast. Tables in network files are
// long runs of short decimals; most of them fit the exact fast path below,
// and the rest go to the standard library.
#pragma once

#include <charconv>

// Powers of ten that doubles hold exactly.
inline constexpr double kVekExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                  1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

inline bool VEK_isDecimalDigit(char c) { return static_cast<unsigned char>(c - '0') < 10; }

// A plain decimal number at [first, last): optional '-', digits, optional
// fraction and exponent. Returns the end of the number, or null when the text
// does not start with one. The value is the correctly rounded double.
inline const char* VEK_scanDecimal(const char* first, const char* last, double& value) {
    const char* p = first;
    bool negative = false;
    if (p < last && *p == '-') {
        negative = true;
        ++p;
    }
    unsigned long long mantissa = 0;
    int digits = 0;  // all digits read, leading zeros too
    int scale = 0;   // decimal exponent of the mantissa's last digit
    while (p < last && VEK_isDecimalDigit(*p)) {
        mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
        ++digits;
        ++p;
    }
    if (p < last && *p == '.') {
        ++p;
        while (p < last && VEK_isDecimalDigit(*p)) {
            mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
            ++digits;
            --scale;
            ++p;
        }
    }
    if (digits == 0) return nullptr;
    if (p < last && (*p == 'e' || *p == 'E')) {
        const char* e = p + 1;
        bool eNegative = false;
        if (e < last && (*e == '-' || *e == '+')) {
            eNegative = *e == '-';
            ++e;
        }
        if (e < last && VEK_isDecimalDigit(*e)) {
            int exponent = 0;
            while (e < last && VEK_isDecimalDigit(*e)) {
                if (exponent < 100000) exponent = exponent * 10 + (*e - '0');
                ++e;
            }
            scale += eNegative ? -exponent : exponent;
            p = e;
        }
    }
    // Up to 19 digits the mantissa is exact; with it below 2^53 and a power
    // of ten that doubles hold exactly, one operation rounds correctly.
    // Anything else goes to the library.
    if (digits <= 19 && mantissa < (1ULL << 53) && scale >= -22 && scale <= 22) {
        if (mantissa == 0) {
            // Sparse tables are mostly zeros: no division for them.
            value = negative ? -0.0 : 0.0;
            return p;
        }
        double m = static_cast<double>(mantissa);
        double v = scale < 0 ? m / kVekExactPowersOfTen[-scale] : m * kVekExactPowersOfTen[scale];
        value = negative ? -v : v;
        return p;
    }
    auto r = std::from_chars(first, p, value);
    // Out of range is left to the full parser, which knows what to make of it.
    return r.ec == std::errc() && r.ptr == p ? p : nullptr;
}
