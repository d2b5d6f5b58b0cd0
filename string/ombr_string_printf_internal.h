// Internals of the format engine, shared with the internal tests.
#ifndef OMBR_STRING_PRINTF_INTERNAL_H
#define OMBR_STRING_PRINTF_INTERNAL_H

#include <stdarg.h>
#include <stdint.h>

#include "ombr/ombr_string_printf.h"

extern "C" {

// Formats into the accumulator. Always 0: failed appends are dropped, so a
// text that cannot grow comes out short.
uint32_t _ombr_string_printf(ombr_string_accum_t accum, const char *format, va_list args);

// Formats into a new text (*out_text, released with ombr_string_free).
// Returns length + 1, 0 for an empty text (still handed out), or -1 on
// failure with *out_text untouched.
int32_t _ombr_string_mvprintf(char **out_text, const char *format, va_list args);

}  // extern "C"

#endif
