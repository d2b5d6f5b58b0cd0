// Bigram similarity of UTF-8 texts. Each text becomes a table of entries,
// one per pair of adjacent characters plus one per word border; the score
// is the Dice coefficient of the two multisets of entries, in percent.
//
// ombr_string_fuzzycmp_ex compares two texts once: titles below 200 bytes
// stay in tables on the stack and the tables are searched unsorted, which is
// quadratic but cheap at these lengths. ombr_string_create_bigram_table and
// ombr_string_bigram_table_cmp serve many comparisons against one text:
// tables are sorted once and compared by a merge walk.
#include <cstddef>

#include "string/ombr_string_fuzzy_internal.h"
#include "string/ombr_string_internal.h"

using namespace ombr::fuzzy;

namespace {

constexpr uint32_t kLow16 = 0xFFFFu;

// The one case folding of this comparison: 'A' to 'Z' only.
constexpr uint32_t fold(uint32_t c) { return ombr::str::fold_ascii(c); }

constexpr bool is_blank(uint32_t c) { return c >= 0x01 && c <= 0x20; }

// A text's entries on the stack, or in a heap block from 200 bytes on; the
// heap block goes with the slot.
class TableSlot {
   public:
    TableSlot() = default;
    TableSlot(const TableSlot &) = delete;
    TableSlot &operator=(const TableSlot &) = delete;
    ~TableSlot() { ombr_memory_free(heap_); }

    // Presets count to byte_length + 1. False for no memory.
    bool prepare(const char *text, uint32_t byte_length) {
        if (byte_length < kLocalEntries) {
            // Entries are left as the stack had them: filling writes them.
            local_.count = byte_length + 1;
            local_.entries = storage_;
            table_ = &local_;
            return true;
        }
        heap_ = _bigram_create_table(text, byte_length);
        table_ = heap_;
        return heap_ != nullptr;
    }

    // Fills the table. A text that yields no entry keeps its preset count;
    // its entries then read as 0, as they do in a zeroed heap table.
    void fill(const char *text, uint8_t skip_space) {
        if (_bigram_fill_table(text, table_, skip_space) == 0 && table_ == &local_)
            ombr_memory_memset(storage_, 0, sizeof(uint32_t) * local_.count);
    }

    ombr_bigram_table *table() const { return table_; }

   private:
    ombr_bigram_table *table_ = nullptr;
    ombr_bigram_table *heap_ = nullptr;
    ombr_bigram_table local_{};
    uint32_t storage_[kLocalEntries];
};

// Quicksort of e[lo..hi] inclusive: median of three, insertion sort for
// short runs, recursion on the smaller side so the depth stays logarithmic.
void quicksort_range(uint32_t *e, ptrdiff_t lo, ptrdiff_t hi) {
    while (hi - lo >= 16) {
        const ptrdiff_t mid = lo + (hi - lo) / 2;
        auto swap = [e](ptrdiff_t i, ptrdiff_t j) {
            const uint32_t t = e[i];
            e[i] = e[j];
            e[j] = t;
        };
        if (e[mid] < e[lo]) swap(mid, lo);
        if (e[hi] < e[lo]) swap(hi, lo);
        if (e[hi] < e[mid]) swap(hi, mid);
        const uint32_t pivot = e[mid];
        ptrdiff_t i = lo, j = hi;
        while (i <= j) {
            while (e[i] < pivot) ++i;
            while (e[j] > pivot) --j;
            if (i <= j) swap(i++, j--);
        }
        if (j - lo < hi - i) {
            quicksort_range(e, lo, j);
            lo = i;
        } else {
            quicksort_range(e, i, hi);
            hi = j;
        }
    }
    for (ptrdiff_t i = lo + 1; i <= hi; ++i) {
        const uint32_t v = e[i];
        ptrdiff_t j = i;
        for (; j > lo && e[j - 1] > v; --j) e[j] = e[j - 1];
        e[j] = v;
    }
}

}  // namespace

extern "C" ombr_bigram_table *_bigram_create_table(const char *text, uint32_t byte_length) {
    if (byte_length == 0) byte_length = ombr_string_bytelen_nonull(text);
    // byte_length * 4 + 16 bytes where the header is two 32-bit words; a
    // wider header takes its extra bytes on top, never from the entries.
    constexpr uint64_t kSlack = 16 - 2 * sizeof(uint32_t);
    const uint64_t size = static_cast<uint64_t>(byte_length) * 4 + kSlack + sizeof(ombr_bigram_table);
    if (byte_length >= 0x3FFFFFF0u || size > SIZE_MAX) return nullptr;
    auto *table = static_cast<ombr_bigram_table *>(ombr_memory_alloc(static_cast<size_t>(size)));
    if (!table) return nullptr;
    ombr_memory_memset(table, 0, static_cast<size_t>(size));
    table->count = byte_length + 1;
    table->entries = reinterpret_cast<uint32_t *>(table + 1);
    return table;
}

extern "C" uint32_t _bigram_fill_table(const char *text, ombr_bigram_table *table, uint8_t skip_space) {
    // The preset count is the room in the table; a text never needs more
    // than its byte length + 1 entries, so the bound only guards misuse.
    const uint32_t room = table->count;
    uint32_t *const e = table->entries;
    uint32_t n = 0;
    const char *p = text;
    uint32_t c = 0;

    if (_utf8_get_next_char(&p, &c) != 0) return 0;
    if (skip_space) {
        while (c <= 0x20) {
            if (c == 0 || _utf8_get_next_char(&p, &c) != 0) return 0;
        }
    }
    if (room == 0) return 0;
    uint32_t prev = fold(c);
    e[n++] = prev & kLow16;  // the first character against the border
    while (prev != 0 && n < room) {
        if (_utf8_get_next_char(&p, &c) != 0) break;
        c = fold(c);
        if (skip_space && is_blank(c)) {
            // A word ended: its last character against the border, then the
            // next word's first character against the border.
            e[n++] = prev & kLow16;
            do {
                if (_utf8_get_next_char(&p, &c) != 0) c = 0;
            } while (is_blank(c));
            if (c == 0 || n >= room) break;
            prev = fold(c);
            e[n++] = prev & kLow16;
            continue;
        }
        // With c = 0 this is the last character against the border.
        e[n++] = ((c & kLow16) << 16) | (prev & kLow16);
        prev = c;
    }
    table->count = n;
    return n;
}

extern "C" uint32_t _bigram_compare_tables_unsorted(ombr_bigram_table *table_a, ombr_bigram_table *table_b) {
    uint32_t *const a = table_a->entries;
    uint32_t *const b = table_b->entries;
    uint32_t na = table_a->count, nb = table_b->count;
    uint32_t common = 0;
    uint32_t i = 0;
    while (i < na) {
        uint32_t j = 0;
        while (j < nb && b[j] != a[i]) ++j;
        if (j == nb) {
            ++i;
            continue;
        }
        // Take the pair out of both tables; position i is looked at again.
        ++common;
        a[i] = a[--na];
        b[j] = b[--nb];
    }
    return common;
}

extern "C" uint32_t _bigram_compare_tables_sorted(const ombr_bigram_table *table_a,
                                                  const ombr_bigram_table *table_b) {
    const uint32_t *const a = table_a->entries;
    const uint32_t *const b = table_b->entries;
    const uint32_t na = table_a->count, nb = table_b->count;
    uint32_t i = 0, j = 0, common = 0;
    while (i < na && j < nb) {
        if (a[i] < b[j]) {
            ++i;
        } else if (b[j] < a[i]) {
            ++j;
        } else {
            ++common;
            ++i;
            ++j;
        }
    }
    return common;
}

extern "C" void _bigram_table_shellsort(ombr_bigram_table *table) {
    uint32_t *const e = table->entries;
    const uint32_t n = table->count;
    for (uint32_t gap = n / 2; gap > 0; gap = next_shellsort_gap(gap)) {
        for (uint32_t i = gap; i < n; ++i) {
            const uint32_t v = e[i];
            uint32_t j = i;
            for (; j >= gap && e[j - gap] > v; j -= gap) e[j] = e[j - gap];
            e[j] = v;
        }
    }
}

extern "C" void _bigram_table_quicksort(ombr_bigram_table *table) {
    if (table->count > 1) quicksort_range(table->entries, 0, static_cast<ptrdiff_t>(table->count) - 1);
}

OMBR_API uint32_t ombr_string_fuzzycmp_ex(const char *text_a, const char *text_b, uint8_t skip_space,
                                          uint32_t *out_percent_a, uint32_t *out_percent_b) {
    const uint32_t bytes_a = ombr_string_bytelen_nonull(text_a);
    const uint32_t bytes_b = ombr_string_bytelen_nonull(text_b);
    if (bytes_a == 0 || bytes_b == 0) return 0;

    TableSlot slot_a, slot_b;
    if (!slot_a.prepare(text_a, bytes_a) || !slot_b.prepare(text_b, bytes_b)) return 0;
    slot_a.fill(text_a, skip_space);
    slot_b.fill(text_b, skip_space);

    ombr_bigram_table *a = slot_a.table();
    ombr_bigram_table *b = slot_b.table();
    const uint32_t count_a = a->count, count_b = b->count;
    const uint32_t common = _bigram_compare_tables_unsorted(a, b);
    if (out_percent_a) *out_percent_a = common * 100u / count_a;
    if (out_percent_b) *out_percent_b = common * 100u / count_b;
    return similarity(common, count_a, count_b);
}

OMBR_API uint32_t ombr_string_create_bigram_table(const char *text, uint8_t skip_space,
                                                  ombr_bigram_table **out_table) {
    if (!out_table) return ombr::str::kInvalidArg;
    ombr_bigram_table *table = _bigram_create_table(text, 0);
    if (!table) return ombr::str::kNoMemory;
    _bigram_fill_table(text, table, skip_space);
    _bigram_table_shellsort(table);
    *out_table = table;
    return 0;
}

OMBR_API uint32_t ombr_string_bigram_table_cmp(const ombr_bigram_table *table_a, const ombr_bigram_table *table_b) {
    if (!table_a || !table_b) return 0;
    return similarity(_bigram_compare_tables_sorted(table_a, table_b), table_a->count, table_b->count);
}
