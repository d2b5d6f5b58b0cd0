// Internals of the bigram similarity, reachable from the internal tests:
// table creation and filling, the two ways of counting common entries, the
// two sorts and the shell sort's gap rule.
#ifndef OMBR_STRING_FUZZY_INTERNAL_H
#define OMBR_STRING_FUZZY_INTERNAL_H

#include <cstdint>

#include "ombr/ombr_string_fuzzy.h"

namespace ombr::fuzzy {

// Texts shorter than this many bytes are compared in tables on the stack.
constexpr uint32_t kLocalEntries = 200;

// The shell sort's next gap: 2 becomes 1, any other gap is divided by 2.2
// with the fraction cut off (computed exactly as gap * 5 / 11); 0 ends.
constexpr uint32_t next_shellsort_gap(uint32_t gap) {
    if (gap == 2) return 1;
    return static_cast<uint32_t>(static_cast<uint64_t>(gap) * 5 / 11);
}

// Dice coefficient in percent: common * 200 / (count_a + count_b), in
// 32-bit unsigned arithmetic. 0 for an empty pair rather than a trap.
constexpr uint32_t similarity(uint32_t common, uint32_t count_a, uint32_t count_b) {
    const uint32_t total = count_a + count_b;
    return total ? common * 200u / total : 0;
}

}  // namespace ombr::fuzzy

extern "C" {

// One zeroed block of byte_length * 4 + 16 bytes (on 64-bit hosts 8 more,
// for the wider header) holding the header and its entries, with count
// byte_length + 1. A byte_length of 0 means the text's own. Null for no
// memory.
ombr_bigram_table *_bigram_create_table(const char *text, uint32_t byte_length);

// Fills the table with the text's entries and sets count to the number
// written; the table must hold byte length + 1 entries. A text that ends or
// fails before its first character (with skip_space: its first non-blank)
// leaves the table untouched. Returns the number of entries written.
uint32_t _bigram_fill_table(const char *text, ombr_bigram_table *table, uint8_t skip_space);

// Size of the multiset intersection, by search. Entries that match are
// overwritten by the last of their table: both arrays are destroyed, the
// count fields stay.
uint32_t _bigram_compare_tables_unsorted(ombr_bigram_table *table_a, ombr_bigram_table *table_b);

// Size of the multiset intersection of two ascending tables, by merge walk.
uint32_t _bigram_compare_tables_sorted(const ombr_bigram_table *table_a, const ombr_bigram_table *table_b);

// ombr_string_fuzzycmp_ex for two texts below 200 bytes (0 for longer or
// empty ones) with every pair counted through the chained hash of the first
// text's entries rather than the bit rows: a second reference for the tests.
uint32_t _bigram_fuzzycmp_hashed(const char *text_a, const char *text_b, uint8_t skip_space,
                                 uint32_t *out_percent_a, uint32_t *out_percent_b);

// Sort the entries ascending as unsigned values. The library sorts with
// the shell sort; the quicksort is kept beside it.
void _bigram_table_shellsort(ombr_bigram_table *table);
void _bigram_table_quicksort(ombr_bigram_table *table);

}  // extern "C"

#endif
