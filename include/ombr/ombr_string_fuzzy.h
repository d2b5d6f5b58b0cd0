/*
 * Bigram similarity of UTF-8 texts: how alike two texts are, from 0 to 100,
 * by the Dice coefficient of their multisets of adjacent character pairs.
 *
 * Only 'A' to 'Z' are folded to lower case; every other character compares
 * as it is (normalise first for accent or width folding). With skip_space
 * set, bytes 0x01 to 0x20 separate words, which are compared as separate
 * units, so the same words in another order still score high.
 */
#ifndef OMBR_STRING_FUZZY_H
#define OMBR_STRING_FUZZY_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

/* A table of bigram entries. An entry packs two code points cut to 16 bits:
 * the low half is the first character, the high half the second. A high
 * half of 0 stands for the border of a word, so a word of n characters
 * gives n + 1 entries. */
typedef struct ombr_bigram_table {
    uint32_t count;    /* entries in use */
    uint32_t *entries; /* the entries; ascending in tables made by ombr_string_create_bigram_table */
} ombr_bigram_table;

/* Similarity of two texts, 0 to 100. A null or empty text gives 0 and
 * leaves the outputs alone. The outputs, both optional, take the common
 * entries in percent of each text's own entries. Never allocates for texts
 * below 200 bytes; any failure gives 0. */
OMBR_API uint32_t ombr_string_fuzzycmp_ex(const char *text_a, const char *text_b, uint8_t skip_space,
                                          uint32_t *out_percent_a, uint32_t *out_percent_b);

/* Prepares a sorted table of the text for repeated comparison. Status 0,
 * 0x90050001 for a null out_table, 0x90050002 for no memory. The table is
 * one block, released with ombr_memory_free. */
OMBR_API uint32_t ombr_string_create_bigram_table(const char *text, uint8_t skip_space,
                                                  ombr_bigram_table **out_table);

/* Similarity of two sorted tables, 0 to 100; 0 if either is null. The
 * tables are only read. */
OMBR_API uint32_t ombr_string_bigram_table_cmp(const ombr_bigram_table *table_a, const ombr_bigram_table *table_b);

OMBR_END_DECLS

#endif
