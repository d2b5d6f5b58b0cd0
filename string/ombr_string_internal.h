// Internals of the string package shared by its units (and reachable from
// the internal tests): the accumulator record, the UTF-8 tables and the
// decoding, encoding, comparison and copy cores.
#ifndef OMBR_STRING_INTERNAL_H
#define OMBR_STRING_INTERNAL_H

#include <cstdint>

#include "ombr/ombr_string.h"

// The accumulator record. It may sit at the start of a caller's buffer, in
// which case the text follows it in that buffer until it outgrows it.
struct ombr_string_accum {
    uint32_t length;         // bytes held, no terminator
    uint32_t capacity;       // bytes available at data
    char *data;              // the text, terminated once something was appended
    uint8_t record_on_heap;  // the record itself must be freed
    uint8_t data_on_heap;    // data must be freed and may be reallocated
};

namespace ombr::str {

constexpr uint32_t kInvalidArg = OMBR_STRING_ERR_INVALID_ARG;
constexpr uint32_t kNoMemory = OMBR_STRING_ERR_NO_MEMORY;
constexpr uint32_t kBufferTooSmall = OMBR_STRING_ERR_BUFFER_TOO_SMALL;
constexpr uint32_t kInvalidUtf8 = OMBR_STRING_ERR_INVALID_UTF8;
constexpr uint32_t kOddUcs2 = OMBR_STRING_ERR_ODD_UCS2;
constexpr uint32_t kConvertNoMemory = OMBR_STRING_ERR_CONVERT_NO_MEMORY;

// Lead byte b starts a sequence of i + 1 bytes when (b & ~utflmasktab[i])
// equals utfmarktab[i]. Only one to three byte sequences exist here, so
// code points stop at 0xFFFF; 0x80-0xBF and 0xF0 and above lead nothing.
inline constexpr unsigned char utfmarktab[3] = {0x00, 0xC0, 0xE0};
inline constexpr unsigned char utflmasktab[3] = {0x7F, 0x1F, 0x0F};

// Sequence size announced by a lead byte, 1 to 3, or 0 if it leads nothing.
constexpr uint32_t lead_size(unsigned char b) {
    for (uint32_t i = 0; i < 3; ++i)
        if ((b & static_cast<unsigned char>(~utflmasktab[i])) == utfmarktab[i]) return i + 1;
    return 0;
}

constexpr bool is_continuation(unsigned char b) { return (b & 0xC0) == 0x80; }

constexpr uint16_t swap16(uint16_t v) { return static_cast<uint16_t>((v >> 8) | (v << 8)); }

constexpr bool is_ascii_upper(uint32_t c) { return c >= 'A' && c <= 'Z'; }
constexpr uint32_t fold_ascii(uint32_t c) { return is_ascii_upper(c) ? c + ('a' - 'A') : c; }

inline const unsigned char *bytes_of(const char *s) { return reinterpret_cast<const unsigned char *>(s); }

// Decodes the character at p: returns its code point and sets *size to the
// bytes it takes, or to 0 for an invalid or truncated sequence (a
// terminator inside a sequence fails the continuation test, so a text is
// never read past its end). Inline for the hot loops; _utf8_get_next_char
// is this step behind a cursor.
inline uint32_t decode_utf8(const unsigned char *p, uint32_t *size) {
    const unsigned char b = p[0];
    if (b < 0x80) {
        *size = 1;
        return b;
    }
    if ((b & 0xE0) == 0xC0) {
        if (!is_continuation(p[1])) {
            *size = 0;
            return 0;
        }
        *size = 2;
        return (static_cast<uint32_t>(b & 0x1F) << 6) | (p[1] & 0x3Fu);
    }
    if ((b & 0xF0) == 0xE0) {
        if (!is_continuation(p[1]) || !is_continuation(p[2])) {
            *size = 0;
            return 0;
        }
        *size = 3;
        return (static_cast<uint32_t>(b & 0x0F) << 12) | (static_cast<uint32_t>(p[1] & 0x3F) << 6) | (p[2] & 0x3Fu);
    }
    *size = 0;
    return 0;
}

// The limit value meaning "no limit" for the character-counting cores.
constexpr uint32_t kNoLimit = 0xFFFFFFFFu;

}  // namespace ombr::str

extern "C" {

// Grows the accumulator so that `need` bytes fit; the new capacity is
// need * 2. 0x90050002 leaves the old data intact.
uint32_t _ombr_string_accum_resize(ombr_string_accum_t accum, uint32_t need);

// Decodes the character at *cursor into *out_code_point and moves the
// cursor past it (past the terminator too, which decodes to 0). An invalid
// or truncated sequence gives 0x900503A0 and leaves the cursor alone.
uint32_t _utf8_get_next_char(const char **cursor, uint32_t *out_code_point);

// Size of the character starting at text: 1 below 0x80, else 2 or 3 by its
// lead byte, or 0x900503A0. Continuation bytes are not looked at.
uint32_t _utf8_get_next_char_size(const char *text, uint32_t *out_size);

// Encodes code_point into buffer without a terminator. The buffer must be
// larger than the encoding (one spare byte), else 0x90050008.
uint32_t _utf8_set_next_char(char *buffer, uint32_t size, uint32_t code_point, uint32_t *out_written);

// The comparison core of every ordering function. Compares a with b by code
// point, at most `limit` characters (0xFFFFFFFF: no limit); without
// `byte_exact`, 'A' to 'Z' count as 'a' to 'z' on both sides. Outputs, all
// optional: the difference of the first unequal code points (or +1 / -1 for
// the longer text), the number of equal characters, and where each cursor
// stopped. A decoding failure ends the comparison and is the result.
uint32_t _ombr_string_utf8_compare(const char *a, const char *b, uint32_t limit, uint8_t byte_exact,
                                   int32_t *out_difference, uint32_t *out_equal_count, const char **out_end_a,
                                   const char **out_end_b);

// The one bounded copy: whole characters of src, at most `limit` of them,
// into size bytes at dest, always terminated (even for size 0 or 1, which
// write the terminator at dest). Returns the bytes copied, terminator excluded.
uint32_t _ombr_string_utf8_copy(char *dest, uint32_t size, const char *src, uint32_t limit);

}  // extern "C"

#endif
