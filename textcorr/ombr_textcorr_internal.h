// Internal interfaces of the text correlation package.
//
// Wide text is a zero-terminated array of 16-bit units. While the normaliser
// runs the units are stored big-endian in memory; only the functions that
// order or widen/narrow text look at the byte order, the others treat a unit
// as an opaque 16-bit value.
#ifndef OMBR_TEXTCORR_INTERNAL_H
#define OMBR_TEXTCORR_INTERNAL_H

#include <stdint.h>

#include "ombr/ombr_base.h"
#include "string/ombr_string_internal.h"

// Statuses of the package.
constexpr uint32_t kTextcorrInvalidArgument = 0x900B0001u;
constexpr uint32_t kTextcorrNoMemory = 0x900B0002u;

// ---- Wide text (ombr_textcorr_wstring.cpp) ----------------------------------

typedef uint16_t uni_char;

uint32_t strlen_uni(const uni_char *text);
uni_char *strcpy_uni(uni_char *dest, const uni_char *src);
// Difference of the first differing units, each read as big-endian.
int32_t strcmp_uni(const uni_char *a, const uni_char *b);
int32_t strncmp_uni(const uni_char *a, const uni_char *b, uint32_t n);
// First place of `unit`; the terminator is never found.
uni_char *strchr_uni(const uni_char *text, uni_char unit);
void swap_uni_str(uni_char *text);

// New wide text from at most `n` bytes (0: the character length of `ascii`);
// each byte becomes the low byte of a big-endian unit. Free with
// ombr_memory_free. 0 or kTextcorrNoMemory.
uint32_t asc_to_uni(const char *ascii, uni_char **out_text, uint32_t n);
// New 8-bit text from the low bytes of at most `n` big-endian units
// (0: strlen_uni). Free with ombr_memory_free. 0 or kTextcorrNoMemory.
uint32_t uni_to_asc(const uni_char *text, char **out_ascii, uint32_t n);

// Growing wide buffer. `capacity` is in bytes; one unit is always kept free
// for the terminator.
struct uni_string {
    uni_char *text;
    int32_t length;
    uint32_t capacity;
};

uint32_t create_us(uni_string *buffer, const uni_char *text);
void destroy_us(uni_string *buffer);
uint32_t grow_us(uni_string *buffer, int32_t units);
// The functions below return the buffer's text, or null when growing failed.
uni_char *strcat_us(uni_string *buffer, const uni_char *text);
uni_char *strcpy_us(uni_string *buffer, const uni_char *text);
uni_char *straddc_us(uni_string *buffer, uni_char unit);
uni_char *straddclen_us(uni_string *buffer, const uni_char *text, int32_t n);
uni_char *strrep_us(uni_string *buffer, int32_t index, int32_t count, const uni_char *text);

// The low-level UCS-2 / UTF-8 conversions (ucs2_to_utf8, utf8_to_ucs2) and
// is_little_endian are the string package's (string/ombr_string_internal.h).

// ---- Number words (ombr_textcorr_numbers.cpp) -------------------------------

// Spells a string of decimal digits as English words into `out` (`size`
// bytes), flat ("one thousand one") or prose ("one thousand and one").
// Returns the characters written, or -1 for bad input or more than 66
// significant digits. A full buffer ends the text early.
int32_t num_to_word_prim(const char *digits, char *out, int32_t size, int flat);
int32_t num_to_word(const char *digits, char *out, int32_t size);
// Flat words of `count` units of wide digits as new wide text (free with
// ombr_memory_free). 0, kTextcorrNoMemory, or kTextcorrInvalidArgument when
// the digits are refused.
uint32_t num_to_word_uni(const uni_char *text, uni_char **out_text, uint32_t count);

#endif
