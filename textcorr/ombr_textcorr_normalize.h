// Internal entry points of the normaliser, for the package and its tests.
#ifndef OMBR_TEXTCORR_NORMALIZE_INTERNAL_H
#define OMBR_TEXTCORR_NORMALIZE_INTERNAL_H

#include <stdint.h>

#include "ombr/ombr_textcorr_normalize.h"
#include "textcorr/ombr_textcorr_internal.h"

// Pass switches of normalize_text_uni_prim.
enum : uint32_t {
    NORM_STOP_WORDS = 0x001,
    NORM_CONTRACTIONS = 0x002,
    NORM_REPLACE_PAIRS = 0x004,
    NORM_PLURAL_S = 0x008,
    NORM_CONSOLIDATE = 0x010,
    NORM_NUMBER_WORDS = 0x020,
    NORM_ROMAN = 0x040,
    NORM_COLLAPSE_REPEATS = 0x080,
    NORM_PUNCTUATION = 0x100,
};

// Flags of the second try when nothing is left of a text.
constexpr uint32_t kNormRetryFlags = NORM_CONSOLIDATE | NORM_PUNCTUATION;

// The pipeline on big-endian wide text. `out` gets new big-endian text
// (free with ombr_memory_free). 0, OMBR_TEXTCORR_NOTHING_LEFT, or a failure.
uint32_t normalize_text_uni_prim(const uni_char *text, uni_char **out, const uni_char *keep, uint32_t flags,
                                 uint32_t token_mode);

// The pipeline on host-order wide text: byte-swaps copies of the text and
// the keep list on a little-endian host, and the result back.
uint32_t normalize_text_uni_le_prim(const uni_char *text, uni_char **out, const uni_char *keep, uint32_t flags,
                                    uint32_t token_mode);

#endif
