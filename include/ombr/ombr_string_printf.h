/*
 * The base layer's own formatter: printf-style formatting into a string
 * accumulator, a caller's buffer or a new text. Numbers are rendered here,
 * without the system library.
 *
 * Conversions: d i u x X o b p c s w f e E g G %, flags - + space # ! 0,
 * width and precision (also *), lengths h hh l ll. %w is the first word of
 * a text, %b binary, %p the hex digits of a pointer, %!g keeps one decimal.
 * The printf format attribute is deliberately absent: the compiler would
 * refuse these extra conversions.
 */
#ifndef OMBR_STRING_PRINTF_H
#define OMBR_STRING_PRINTF_H

#include <stdarg.h>

#include "ombr/ombr_string.h"

OMBR_BEGIN_DECLS

/* Formats into dest (size bytes, always terminated, cut at a byte).
 * Returns the full length + 1, also when cut; 0 for an empty result,
 * a null dest or size 0. */
OMBR_API uint32_t ombr_string_snprintf(char *dest, uint32_t size, const char *format, ...);
OMBR_API uint32_t ombr_string_vsnprintf(char *dest, uint32_t size, const char *format, va_list args);

/* New text, released with ombr_string_free; null for a null format or on failure. */
OMBR_API char *ombr_string_mprintf(const char *format, ...);
OMBR_API char *ombr_string_vmprintf(const char *format, va_list args);

/* Appends formatted text to an accumulator. Null accumulator 0x90050001. */
OMBR_API uint32_t ombr_string_accum_append_format(ombr_string_accum_t accum, const char *format, ...);
OMBR_API uint32_t ombr_string_accum_append_vformat(ombr_string_accum_t accum, const char *format, va_list args);

OMBR_END_DECLS

#endif
