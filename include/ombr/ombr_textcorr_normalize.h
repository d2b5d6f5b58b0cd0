/*
 * Text normalisation: turns a title or artist text into a comparison key
 * (lower case, no accents, no articles or punctuation, numbers and Roman
 * numerals spelled in English, Japanese and Chinese variants folded).
 */
#ifndef OMBR_TEXTCORR_NORMALIZE_H
#define OMBR_TEXTCORR_NORMALIZE_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

/* Status words of the text correlation package. */
#define OMBR_TEXTCORR_ERR_INVALID_ARG 0x900B0001u
#define OMBR_TEXTCORR_ERR_NO_MEMORY 0x900B0002u
#define OMBR_TEXTCORR_ERR_NO_MATCH 0x900B0004u
#define OMBR_TEXTCORR_NOTHING_LEFT 0x100B01A2u

/* Bit 0 of the option word: token mode (hiragana stays as it is). */
#define OMBR_TEXTCORR_OPTION_TOKEN 0x1u

/*
 * Normalises zero-terminated UCS-2 `text` in host byte order. `keep` is a
 * zero-terminated UCS-2 list of characters that the character passes leave
 * alone, or null. `flags` 0 runs only the character fold; any other value
 * runs every pass. `out_text` receives new UCS-2 text in host order, freed
 * with ombr_memory_free. A text of which nothing is left comes back as a
 * copy of the input.
 */
OMBR_API uint32_t ombr_textcorr_normalize_text(const uint16_t *text, uint16_t **out_text, const uint16_t *keep,
                                               uint32_t flags, uint32_t option);

/* The same for zero-terminated UTF-8; `out_text` is freed with ombr_string_free. */
OMBR_API uint32_t ombr_textcorr_normalize_utf8_text(const char *text, char **out_text, uint32_t flags,
                                                    uint32_t option);

/* In place, for `count` units: FF01..FF5E become their ASCII forms. */
OMBR_API void ombr_textcorr_normalize_do_full_width_to_half_width(uint16_t *text, uint32_t count);

OMBR_END_DECLS

#endif
