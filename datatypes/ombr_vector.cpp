// Vector of pointer-sized entries that can be kept sorted by a compare
// callback and searched by bisection, and the general in-place sort.
#include <cstddef>

#include "datatypes/ombr_datatypes_internal.h"

using namespace ombr::dt;

namespace {
constexpr const char *kUnit = "ombr_vector";
constexpr uint32_t kSortInvalidArg = OMBR_SORT_INVALID_ARG;
constexpr uint32_t kFirstCapacity = 8;
constexpr uint32_t kLinearGrowth = 0x100000;
}  // namespace

struct ombr_vector {
    uint32_t magic;
    ombr_critsec_t lock;
    uintptr_t *entries;
    uint32_t capacity;
    uint32_t count;
    uint32_t flags;
    ombr_vector_compare_t compare_value;
    ombr_vector_free_t free_entry;

    bool sorted() const { return (flags & OMBR_VECTOR_SORTED) != 0; }
    void set_sorted(bool on) { flags = on ? (flags | OMBR_VECTOR_SORTED) : (flags & ~OMBR_VECTOR_SORTED); }
};

namespace {

// Handle test; a wrong magic word gives `bad_magic`, which differs by
// operation.
uint32_t check_vector(const ombr_vector *vector, uint32_t bad_magic) {
    if (!vector) return kInvalidArg;
    if (vector->magic != kVectorMagic) return bad_magic;
    return 0;
}

int32_t compare_raw(uintptr_t a, uintptr_t b) { return a > b ? 1 : (a < b ? -1 : 0); }

// The compare step: the callback's answer; with literal set, its ties are
// broken by the raw values. Without a callback the raw values decide.
int32_t _ombr_vector_comparevalues(const ombr_vector *vector, uintptr_t a, uintptr_t b, bool literal) {
    if (vector->compare_value) {
        const int32_t r = vector->compare_value(a, b);
        if (r != 0 || !literal) return r;
    }
    return compare_raw(a, b);
}

int32_t _ombr_vector_qsort_compare(const void *a, const void *b, void *context) {
    return _ombr_vector_comparevalues(static_cast<const ombr_vector *>(context), *static_cast<const uintptr_t *>(a),
                                      *static_cast<const uintptr_t *>(b), true);
}

// Resizes `entries` to exactly `capacity` slots, zeroing the new ones.
uint32_t _ombr_vector_resize(ombr_vector *vector, uint32_t capacity) {
    if (static_cast<size_t>(capacity) > SIZE_MAX / sizeof(uintptr_t)) return kNoMemory;
    void *block = ombr_memory_realloc(vector->entries, static_cast<size_t>(capacity) * sizeof(uintptr_t));
    if (!block) return kNoMemory;
    vector->entries = static_cast<uintptr_t *>(block);
    if (capacity > vector->capacity)
        ombr_memory_memset(vector->entries + vector->capacity, 0,
                           static_cast<size_t>(capacity - vector->capacity) * sizeof(uintptr_t));
    vector->capacity = capacity;
    return 0;
}

// Makes room for one more entry: 8 slots first, doubling up to 0x100000,
// then steps of 0x100000.
uint32_t _ombr_vector_grow(ombr_vector *vector) {
    if (vector->capacity >= vector->count + 1) return 0;
    uint32_t capacity;
    if (vector->capacity == 0)
        capacity = kFirstCapacity;
    else if (vector->capacity < kLinearGrowth)
        capacity = vector->capacity * 2;
    else if (vector->capacity <= UINT32_MAX - kLinearGrowth)
        capacity = vector->capacity + kLinearGrowth;
    else
        return kNoMemory;
    return _ombr_vector_resize(vector, capacity);
}

uint32_t _ombr_vector_insertcore(ombr_vector *vector, uint32_t index, uintptr_t entry, bool check) {
    if (entry == 0) return kInvalidArg;
    if (uint32_t status = _ombr_vector_grow(vector)) return status;
    uintptr_t *slots = vector->entries;
    ombr_memory_memmove(slots + index + 1, slots + index, static_cast<size_t>(vector->count - index) * sizeof(uintptr_t));
    slots[index] = entry;
    vector->count += 1;
    if (check && vector->sorted()) {
        if (index > 0 && _ombr_vector_comparevalues(vector, entry, slots[index - 1], true) < 0)
            vector->set_sorted(false);
        if (index + 1 < vector->count && _ombr_vector_comparevalues(vector, slots[index + 1], entry, true) < 0)
            vector->set_sorted(false);
    }
    return 0;
}

// Finds an entry: bisection on a sorted vector, a scan from 0 otherwise.
// Not found leaves in *position where the entry belongs (sorted) or
// `count` (unsorted).
uint32_t _ombr_vector_findvalue(const ombr_vector *vector, uintptr_t entry, bool literal, uint32_t *position) {
    if (entry == 0) return kInvalidArg;
    const uintptr_t *slots = vector->entries;
    if (!vector->sorted()) {
        for (uint32_t i = 0; i < vector->count; ++i) {
            if (_ombr_vector_comparevalues(vector, slots[i], entry, literal) == 0) {
                *position = i;
                return 0;
            }
        }
        *position = vector->count;
        return kNotFound;
    }
    if (vector->count == 0) {
        *position = 0;
        return kNotFound;
    }
    int64_t hi = int64_t(vector->count) - 1, lo = -1;
    while (vector->count > 1 && hi - lo > 1) {
        const int64_t middle = (hi + lo) / 2;
        const int32_t c = _ombr_vector_comparevalues(vector, slots[middle], entry, literal);
        if (c == 0) {
            *position = uint32_t(middle);
            return 0;
        }
        if (c < 0)
            lo = middle;
        else
            hi = middle;
    }
    const int32_t c = _ombr_vector_comparevalues(vector, slots[hi], entry, literal);
    if (c == 0) {
        *position = uint32_t(hi);
        return 0;
    }
    *position = uint32_t(c < 0 ? hi + 1 : hi);
    return kNotFound;
}

// From a match at p, gallops back to the first of the run of equal entries:
// doubling steps while they land on equals, halving when they overshoot.
uint32_t _ombr_vector_first_of_equals(const ombr_vector *vector, uintptr_t entry, uint32_t p) {
    uint32_t step = 1;
    while (p >= step) {
        if (_ombr_vector_comparevalues(vector, vector->entries[p - step], entry, false) == 0) {
            p -= step;
            if (p == 0) break;
            step *= 2;
            if (step > p) step = p;
        } else {
            if (step == 1) break;
            step /= 2;
        }
    }
    return p;
}

void clear_entries(ombr_vector *vector) {
    if (vector->free_entry)
        for (uint32_t i = 0; i < vector->count; ++i) vector->free_entry(vector->entries[i]);
    if (vector->entries)
        ombr_memory_memset(vector->entries, 0, static_cast<size_t>(vector->capacity) * sizeof(uintptr_t));
    vector->count = 0;
}

// Takes the entry at index out; later entries move down and the vacated
// last slot is zeroed.
uintptr_t take_entry(ombr_vector *vector, uint32_t index) {
    uintptr_t *slots = vector->entries;
    const uintptr_t entry = slots[index];
    ombr_memory_memmove(slots + index, slots + index + 1,
                        static_cast<size_t>(vector->count - index - 1) * sizeof(uintptr_t));
    vector->count -= 1;
    slots[vector->count] = 0;
    return entry;
}

}  // namespace

OMBR_API uint32_t ombr_vector_create(ombr_vector_t *out_vector, uint32_t flags, ombr_vector_compare_t compare,
                                     ombr_vector_free_t free_entry) {
    if (ombr_datatypes_initchecks() == 0) return ombr::fail(kNotInitialized, kUnit);
    if (!out_vector) return ombr::fail(kInvalidArg, kUnit);
    auto *vector = alloc_record<ombr_vector>();
    if (!vector) return ombr::fail(kNoMemory, kUnit);
    vector->magic = kVectorMagic;
    vector->flags = flags;
    vector->compare_value = compare;
    vector->free_entry = free_entry;
    if (flags & OMBR_VECTOR_THREADSAFE) {
        if (uint32_t status = ombr_thread_critsec_create(&vector->lock)) {
            ombr_memory_free(vector);
            return ombr::fail(status, kUnit);
        }
    }
    *out_vector = vector;
    return 0;
}

OMBR_API uint32_t ombr_vector_clear(ombr_vector_t vector) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    clear_entries(vector);
    return 0;
}

OMBR_API uint32_t ombr_vector_delete(ombr_vector_t vector) {
    if (!vector) return 0;
    if (vector->magic != kVectorMagic) return ombr::fail(kBadHandle, kUnit);
    {
        SectionGuard guard(vector->lock);
        if (guard.status()) return ombr::fail(guard.status(), kUnit);
        // The section is re-entrant: clear takes it again.
        if (uint32_t status = ombr_vector_clear(vector)) return ombr::fail(status, kUnit);
    }
    ombr_thread_critsec_delete(vector->lock);
    ombr_memory_free(vector->entries);
    ombr_memory_free(vector);
    return 0;
}

OMBR_API uint32_t ombr_vector_count(ombr_vector_t vector, uint32_t *out_count) {
    if (!out_count) return ombr::fail(kInvalidArg, kUnit);
    if (!vector) {
        *out_count = 0;
        return 0;
    }
    if (vector->magic != kVectorMagic) return ombr::fail(kBadMagic, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    *out_count = vector->count;
    return 0;
}

OMBR_API uint32_t ombr_vector_add(ombr_vector_t vector, uintptr_t entry) {
    if (uint32_t status = check_vector(vector, kBadHandle)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    uint32_t position = vector->count;
    if (vector->sorted()) {
        // Found or not, the position keeps the order: equal entries sit
        // side by side, and the sorted bit survives.
        const uint32_t status = _ombr_vector_findvalue(vector, entry, true, &position);
        if (status != 0 && status != kNotFound) return ombr::fail(status, kUnit);
    }
    return ombr::fail(_ombr_vector_insertcore(vector, position, entry, false), kUnit);
}

OMBR_API uint32_t ombr_vector_insert(ombr_vector_t vector, uint32_t index, uintptr_t entry) {
    if (uint32_t status = check_vector(vector, kBadHandle)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    if (index > vector->count) return kIndexRange;
    return ombr::fail(_ombr_vector_insertcore(vector, index, entry, true), kUnit);
}

OMBR_API uint32_t ombr_vector_getindex(ombr_vector_t vector, uint32_t index, uintptr_t *out_entry) {
    if (!out_entry) return ombr::fail(kInvalidArg, kUnit);
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    if (index >= vector->count) return kIndexRange;
    *out_entry = vector->entries[index];
    return 0;
}

OMBR_API uint32_t ombr_vector_removeindex(ombr_vector_t vector, uint32_t index, uintptr_t *out_entry) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    if (index >= vector->count) return kIndexRange;
    const uintptr_t entry = take_entry(vector, index);
    if (out_entry) *out_entry = entry;
    return 0;
}

OMBR_API uint32_t ombr_vector_deleteindex(ombr_vector_t vector, uint32_t index) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    uintptr_t entry = 0;
    const uint32_t status = ombr_vector_removeindex(vector, index, &entry);
    if (status == 0 && vector->free_entry) vector->free_entry(entry);
    return ombr::fail(status, kUnit);
}

OMBR_API uint32_t ombr_vector_find(ombr_vector_t vector, uintptr_t entry, uint32_t *out_index) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    uint32_t position = 0;
    const uint32_t status = _ombr_vector_findvalue(vector, entry, false, &position);
    if (status != 0) return ombr::fail(status, kUnit);
    // A scan already stops at the first equal entry; bisection may land
    // anywhere in a run of equals.
    if (vector->sorted()) position = _ombr_vector_first_of_equals(vector, entry, position);
    if (out_index) *out_index = position;
    return 0;
}

OMBR_API uint32_t ombr_vector_find_literal(ombr_vector_t vector, uintptr_t entry, uint32_t *out_index) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    uint32_t position = 0;
    if (vector->sorted()) {
        const uint32_t status = _ombr_vector_findvalue(vector, entry, true, &position);
        if (status != 0) return ombr::fail(status, kUnit);
    } else {
        // The raw value alone, whatever the callback says.
        if (entry == 0) return ombr::fail(kInvalidArg, kUnit);
        while (position < vector->count && vector->entries[position] != entry) ++position;
        if (position == vector->count) return kNotFound;
    }
    if (out_index) *out_index = position;
    return 0;
}

OMBR_API uint32_t ombr_vector_sort(ombr_vector_t vector, ombr_vector_compare_t compare, uint8_t force) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    if (compare != vector->compare_value) {
        vector->compare_value = compare;
        vector->set_sorted(false);
    }
    if (compare && (force || !vector->sorted())) {
        if (vector->count != 0) {
            const uint32_t status = ombr_utils_qsort(vector->entries, vector->count, sizeof(uintptr_t),
                                                     _ombr_vector_qsort_compare, vector);
            if (status != 0) return ombr::fail(status, kUnit);
        }
        vector->set_sorted(true);
    }
    return 0;
}

OMBR_API uint32_t ombr_vector_foreach(ombr_vector_t vector, ombr_vector_foreach_t callback, void *context) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return ombr::fail(status, kUnit);
    if (!callback) return ombr::fail(kInvalidArg, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    // count is read at each step: the callback may change the vector.
    for (uint32_t i = 0; i < vector->count; ++i)
        if (callback(context, vector->entries[i]) == 0) return ombr::fail(kStopped, kUnit);
    return 0;
}

OMBR_API uint32_t ombr_vector_set_min_size(ombr_vector_t vector, uint32_t capacity) {
    if (uint32_t status = check_vector(vector, kBadHandle)) return ombr::fail(status, kUnit);
    SectionGuard guard(vector->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    if (vector->capacity >= capacity) return 0;
    return ombr::fail(_ombr_vector_resize(vector, capacity), kUnit);
}

uint32_t _ombr_vector_get_state(ombr_vector_t vector, uint32_t *out_capacity, uint32_t *out_flags) {
    if (uint32_t status = check_vector(vector, kBadMagic)) return status;
    SectionGuard guard(vector->lock);
    if (guard.status()) return guard.status();
    if (out_capacity) *out_capacity = vector->capacity;
    if (out_flags) *out_flags = vector->flags;
    return 0;
}

// ---- Sort ------------------------------------------------------------------

namespace {

void swap_bytes(char *a, char *b, size_t size) {
    while (size--) {
        const char t = *a;
        *a++ = *b;
        *b++ = t;
    }
}

struct SortRange {
    char *lo;
    char *hi;
};

// Stack depth: the larger side is pushed and the smaller one worked on, so
// each level at least halves the range.
constexpr int kSortStackSize = 32;

}  // namespace

// Non-recursive quicksort (median of three, explicit stack) that leaves
// ranges of up to four elements to a final insertion pass.
OMBR_API uint32_t ombr_utils_qsort(void *base, uint32_t count, uint32_t size, ombr_utils_compare_t compare,
                                   void *context) {
    if (!base || !compare) return ombr::fail(kSortInvalidArg, kUnit);
    if (count == 0) return 0;
    // The pivot is copied out so that swaps cannot move it. Without memory
    // the array stays as it is and the call still succeeds.
    char *pivot = static_cast<char *>(ombr_memory_alloc(size));
    if (!pivot) return 0;
    auto cmp = [&](const char *a, const char *b) { return compare(a, b, context); };

    char *const first = static_cast<char *>(base);
    const size_t thresh = size_t(4) * size;

    if (count > 4) {
        SortRange stack[kSortStackSize];
        int top = 0;
        char *lo = first;
        char *hi = first + size_t(size) * (count - 1);
        for (;;) {
            char *middle = lo + size * ((size_t(hi - lo) / size) / 2);
            if (cmp(middle, lo) < 0) swap_bytes(middle, lo, size);
            if (cmp(hi, middle) < 0) {
                swap_bytes(middle, hi, size);
                if (cmp(middle, lo) < 0) swap_bytes(middle, lo, size);
            }
            ombr_memory_memcpy(pivot, middle, size);

            char *left = lo + size;
            char *right = hi - size;
            do {
                while (cmp(left, pivot) < 0) left += size;
                while (cmp(pivot, right) < 0) right -= size;
                if (left < right) {
                    swap_bytes(left, right, size);
                    left += size;
                    right -= size;
                } else if (left == right) {
                    left += size;
                    right -= size;
                    break;
                }
            } while (left <= right);

            if (size_t(right - lo) <= thresh) {
                if (size_t(hi - left) <= thresh) {
                    if (top == 0) break;
                    --top;
                    lo = stack[top].lo;
                    hi = stack[top].hi;
                } else {
                    lo = left;
                }
            } else if (size_t(hi - left) <= thresh) {
                hi = right;
            } else if (right - lo > hi - left) {
                stack[top++] = {lo, right};
                lo = left;
            } else {
                stack[top++] = {left, hi};
                hi = right;
            }
        }
    }

    // Insertion pass. The smallest of the first five elements is the
    // smallest of all (partitioning left no larger range at the front), and
    // serves as the sentinel that stops the backward scans.
    char *const end = first + size_t(size) * (count - 1);
    char *const run_limit = first + size_t(size) * (count - 1 < 4 ? count - 1 : 4);
    char *smallest = first;
    for (char *run = first + size; run <= run_limit; run += size)
        if (cmp(run, smallest) < 0) smallest = run;
    if (smallest != first) swap_bytes(smallest, first, size);

    for (char *run = first + size; (run += size) <= end;) {
        char *t = run - size;
        while (cmp(run, t) < 0) t -= size;
        t += size;
        if (t != run) {
            // Rotate the element at run down to t, byte by byte.
            for (char *trav = run + size; --trav >= run;) {
                const char c = *trav;
                char *high = trav;
                for (char *low = trav - size; low >= t; low -= size) {
                    *high = *low;
                    high = low;
                }
                *high = c;
            }
        }
    }
    ombr_memory_free(pivot);
    return 0;
}
