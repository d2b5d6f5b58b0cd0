// Numbers in text: the system library's integer conversions at 32-bit word
// width, the layer's own decimal reader for doubles, booleans, integer
// rendering, and character classes.
#include <cctype>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cstdlib>

#include "string/ombr_string_internal.h"

using namespace ombr::str;

namespace {

constexpr bool is_digit(unsigned char c) { return c >= '0' && c <= '9'; }

// Whether the system conversions would see a minus sign: blanks as isspace
// knows them, then the sign.
bool has_minus_sign(const char *s) {
    while (std::isspace(static_cast<unsigned char>(*s))) ++s;
    return *s == '-';
}

// Renders the digits of a magnitude from the lowest up, at most `room`
// characters, and returns how many were written. The magnitude may be the
// overflowed negation of the smallest 32-bit integer, whose lowest "digit"
// is then '(' ('0' - 8): that rendering is kept.
template <typename T>
uint32_t low_digits(T value, char *out, uint32_t room) {
    uint32_t n = 0;
    do {
        out[n++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value > 0 && n < room);
    return n;
}

void reverse_bytes(char *p, uint32_t n) {
    for (uint32_t i = 0, j = n; i + 1 < j; ++i, --j) {
        char t = p[i];
        p[i] = p[j - 1];
        p[j - 1] = t;
    }
}

}  // namespace

// The system conversions, at the width of this platform's 32-bit long: on a
// wider long the result is clamped or wrapped as the 32-bit call would do.
OMBR_API int32_t ombr_string_strtol(const char *s, char **end, int32_t base) {
    if (!s) {
        if (end) *end = nullptr;
        return 0;
    }
    long value = std::strtol(s, end, base);
    if constexpr (sizeof(long) > sizeof(int32_t)) {
        if (value > INT32_MAX) {
            errno = ERANGE;
            return INT32_MAX;
        }
        if (value < INT32_MIN) {
            errno = ERANGE;
            return INT32_MIN;
        }
    }
    return static_cast<int32_t>(value);
}

OMBR_API uint32_t ombr_string_strtoul(const char *s, char **end, int32_t base) {
    if (!s) {
        if (end) *end = nullptr;
        return 0;
    }
    if (base == 10) {
        // A text of one to nine decimal digits and nothing else (TOC
        // offsets, counts) reads to what the system call gives, without it.
        uint32_t value = 0, n = 0;
        while (n < 10 && is_digit(bytes_of(s)[n])) value = value * 10 + (bytes_of(s)[n++] - '0');
        if (n > 0 && n < 10 && s[n] == 0) {
            if (end) *end = const_cast<char *>(s + n);
            return value;
        }
    }
    if constexpr (sizeof(unsigned long) > sizeof(uint32_t)) {
        const int saved_errno = errno;
        errno = 0;
        unsigned long value = std::strtoul(s, end, base);
        const bool overflow = errno == ERANGE;
        if (errno == 0) errno = saved_errno;
        // A negated text wraps in 32 bits; a magnitude beyond 32 bits clamps.
        const unsigned long magnitude = has_minus_sign(s) ? 0 - value : value;
        if (overflow || magnitude > UINT32_MAX) {
            errno = ERANGE;
            return UINT32_MAX;
        }
        return static_cast<uint32_t>(value);
    } else {
        return static_cast<uint32_t>(std::strtoul(s, end, base));
    }
}

OMBR_API uint64_t ombr_string_strtoull(const char *s, char **end, int32_t base) {
    if (!s) {
        if (end) *end = nullptr;
        return 0;
    }
    return std::strtoull(s, end, base);
}

OMBR_API int32_t ombr_string_atoi32(const char *s) { return s ? ombr_string_strtol(s, nullptr, 10) : 0; }

OMBR_API uint32_t ombr_string_atou32(const char *s) { return s ? ombr_string_strtoul(s, nullptr, 10) : 0; }

OMBR_API uint64_t ombr_string_atou64(const char *s) { return s ? ombr_string_strtoull(s, nullptr, 10) : 0; }

// Digits, one optional '.', and an exponent, accumulated in extended
// precision and scaled step by step. No blanks and no leading sign: any
// other byte ends the number.
OMBR_API double ombr_string_atof64(const char *s) {
    if (!s) return 0.0;
    // An exponent beyond this already drives any mantissa to 0 or infinity.
    constexpr int32_t kExponentCap = 100000;
    const unsigned char *p = bytes_of(s);
    long double value = 0.0L;
    int32_t exponent = 0;
    bool fraction = false;
    for (;; ++p) {
        if (is_digit(*p)) {
            value = value * 10.0L + (*p - '0');
            if (fraction) exponent -= 1;
        } else if (*p == '.' && !fraction) {
            fraction = true;
        } else {
            break;
        }
    }
    if (*p == 'e' || *p == 'E') {
        ++p;
        bool negative = false;
        if (*p == '+' || *p == '-') negative = *p++ == '-';
        int32_t e = 0;
        for (; is_digit(*p); ++p)
            if (e < kExponentCap) e = e * 10 + (*p - '0');
        exponent += negative ? -e : e;
    }
    for (; exponent > 0 && value != 0.0L && value <= LDBL_MAX; --exponent) value *= 10.0L;
    for (; exponent < 0 && value != 0.0L; ++exponent) value *= 0.1L;
    return static_cast<double>(value);
}

OMBR_API uint32_t ombr_string_atobool(const char *s) {
    if (!s) return 0;
    switch (s[0]) {
        case '0':
            return ombr_string_atou32(s) != 0;
        case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9':
            return 1;
        case 'o': case 'O':
            return ombr_string_equal(s, "on", 1);
        case 't': case 'T':
            return ombr_string_equal(s, "true", 1);
        case 'y': case 'Y':
            return ombr_string_equal(s, "y", 1) || ombr_string_equal(s, "yes", 1);
        default:
            return 0;
    }
}

// Keeps the low-order digits when the buffer is short; the '-' is written
// only if one character is left for it.
OMBR_API char *ombr_string_i32toa(int32_t value, char *buffer, uint32_t size) {
    if (!buffer || size == 0) return buffer;
    const uint32_t room = size - 1;
    uint32_t n = 0;
    if (room > 0) {
        // Negation through unsigned arithmetic: the smallest value stays itself.
        const auto magnitude = value < 0 ? static_cast<int32_t>(0u - static_cast<uint32_t>(value)) : value;
        n = low_digits(magnitude, buffer, room);
        if (value < 0 && n < room) buffer[n++] = '-';
        reverse_bytes(buffer, n);
    }
    buffer[n] = 0;
    return buffer;
}

OMBR_API char *ombr_string_u32toa(uint32_t value, char *buffer, uint32_t size) {
    if (!buffer || size == 0) return buffer;
    uint32_t n = 0;
    if (size > 1) {
        n = low_digits(value, buffer, size - 1);
        reverse_bytes(buffer, n);
    }
    buffer[n] = 0;
    return buffer;
}

OMBR_API int32_t ombr_string_isalpha(int32_t c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// The system library's classes and mappings, passed through without a range
// check as callers expect.
OMBR_API int32_t ombr_string_isdigit(int32_t c) { return std::isdigit(c); }
OMBR_API int32_t ombr_string_isspace(int32_t c) { return std::isspace(c); }
OMBR_API int32_t ombr_string_isxdigit(int32_t c) { return std::isxdigit(c); }
OMBR_API int32_t ombr_string_isalnum(int32_t c) { return std::isalnum(c); }
OMBR_API int32_t ombr_string_isprint(int32_t c) { return std::isprint(c); }
OMBR_API int32_t ombr_string_islower(int32_t c) { return std::islower(c); }
OMBR_API int32_t ombr_string_isupper(int32_t c) { return std::isupper(c); }

OMBR_API int32_t ombr_string_char_tolower(int32_t c) { return (c >= -128 && c <= 255) ? std::tolower(c) : c; }
OMBR_API int32_t ombr_string_char_toupper(int32_t c) { return (c >= -128 && c <= 255) ? std::toupper(c) : c; }
