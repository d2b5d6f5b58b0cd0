// Hash table: chained buckets of single-block entries (fields, key text and
// copied value in one allocation), an insertion-order list for reads by
// position, several values per key on request, and deferral of replaced
// entries that a reader may still hold in thread-safe tables.
#include <bit>
#include <cstddef>

#include "datatypes/ombr_datatypes_internal.h"
#include "datatypes/ombr_hashtable_key.h"

using namespace ombr::dt;

namespace {
constexpr const char *kUnit = "ombr_hashtable";
constexpr uint32_t kUnknownLength = 0xFFFFFFFFu;
constexpr uint32_t kInitialBuckets = 16;
constexpr uint32_t kMaxBuckets = 0x80000000u;
// Internal result of a resize whose allocation failed while an array is in
// place: the table keeps its array and the add goes on.
constexpr uint32_t kKeptOldArray = 1;
}  // namespace

// What a lookup reads (the value, the chain link, the hash, the key's
// length, the key text) lies at the end of the fields, on 64-bit targets
// from a multiple of 16 on, and next to the key text, so that a hit on a short key touches one
// cache line for half of the blocks' possible alignments and two for the
// others; the order list and the chain's back links come first.
struct alignas(8) hashtable_item {
    hashtable_item *bucket_prev;
    hashtable_item *bucket_tail;  // valid in a chain's first item only
    hashtable_item *order_next;
    hashtable_item *order_prev;
    const char *key;
    uint32_t value_size;
    uint8_t value_copied;
    uint8_t chain_prefix;  // valid in a chain's first item only, see additem
    uint8_t accessed;
    void *value;
    hashtable_item *bucket_next;
    uint32_t hash;
    uint32_t key_length;  // bytes of a copied key before its terminator; kUnknownLength for keys by reference
    // key text, then the copied value, follow in the same block

    char *text_area() { return reinterpret_cast<char *>(this + 1); }
    const char *text_area() const { return reinterpret_cast<const char *>(this + 1); }
};
static_assert(sizeof(void *) != 8 || offsetof(hashtable_item, value) % 16 == 0);

struct ombr_hashtable {
    uint32_t magic;
    ombr_critsec_t lock;
    ombr_spinlock_t cursor_lock;
    uint32_t flags;
    ombr_hashtable_free_value_t free_value;
    hashtable_item *order_head;
    hashtable_item *order_tail;
    hashtable_item *deferred;
    uint32_t count;
    hashtable_item *cursor_item;
    uint32_t cursor_index;
    // Where the last find by a non-zero ordinal stopped, so that finding
    // ordinals 0, 1, 2 ... of one key costs one step each. Guarded by
    // cursor_lock and cleared by every add and removal.
    hashtable_item *find_item;
    uint32_t find_ordinal;
    uint32_t bucket_count;
    uint32_t used_buckets;
    uint32_t collisions;
    hashtable_item **buckets;

    bool has(uint32_t flag) const { return (flags & flag) != 0; }
    bool ignore_case() const { return !has(OMBR_HASHTABLE_CASE_SENSITIVE); }
    hashtable_item **bucket_of(uint32_t hash) const { return &buckets[hash & (bucket_count - 1)]; }
};

namespace {

using item_t = hashtable_item;

uint32_t check_table(const ombr_hashtable *table) {
    if (!table) return kInvalidArg;
    if (table->magic != kHashtableMagic) return kBadMagic;
    return 0;
}

bool bad_key(const char *key) { return !key || key[0] == '\0'; }

void reset_cursor(ombr_hashtable *table) {
    ombr::SpinGuard guard(&table->cursor_lock);
    table->cursor_item = table->order_head;
    table->cursor_index = 0;
    table->find_item = nullptr;
}

// What the items of a chain before its last one hold, kept in the chain's
// first item: the collision test of an add only needs to know whether they
// all share the first item's hash.
constexpr uint8_t kPrefixUniform = 0;  // all share the first item's hash
constexpr uint8_t kPrefixMixed = 1;    // at least two hashes
constexpr uint8_t kPrefixUnknown = 2;  // to be found out by a walk

}  // namespace

namespace {

using key::KeyHash;

[[gnu::always_inline]] inline KeyHash hash_key(const char *key, bool case_sensitive) {
    return case_sensitive ? key::hash<false>(key) : key::hash<true>(key);
}

// Key equality as ombr_string_equal decides it (byte for byte, or with 'a'
// to 'z' folded); equal keys have equal lengths either way, so a copied
// key's length rules most candidates out, and keys that are the same byte
// for byte need no folding.
inline bool same_key(const hashtable_item *item, const char *key, const KeyHash &kh, uint8_t ignore_case) {
    if (item->key_length == kh.length) {
        // A copied key is the item's own text.
        if (key::same_bytes(item->text_area(), key, kh.length)) return true;
        return ignore_case && ombr_string_equal(item->text_area(), key, 1);
    }
    if (item->key_length != kUnknownLength) return false;
    return ombr_string_equal(item->key, key, ignore_case) != 0;
}

// The ordinal-th item with this key, in chain (= insertion) order. A find
// by a later ordinal of the key of the last one goes on from where that one
// stopped.
[[gnu::always_inline]] inline uint32_t _ombr_hashtable_finditem(ombr_hashtable *table, const char *key, KeyHash kh, uint32_t ordinal,
                                         hashtable_item **out_item) {
    if (table->count == 0) return kNotFound;
    const uint8_t ignore = table->ignore_case() ? 1 : 0;
    hashtable_item *item = *table->bucket_of(kh.hash);
    if (ordinal == 0) {
        for (; item; item = item->bucket_next) {
            if (item->hash == kh.hash && same_key(item, key, kh, ignore)) {
                *out_item = item;
                return 0;
            }
        }
        return kNotFound;
    }
    uint32_t skip = ordinal;
    {
        ombr::SpinGuard guard(&table->cursor_lock);
        hashtable_item *last = table->find_item;
        if (last && table->find_ordinal <= ordinal && last->hash == kh.hash && same_key(last, key, kh, ignore)) {
            item = last;
            skip = ordinal - table->find_ordinal;
        }
    }
    for (; item; item = item->bucket_next) {
        if (item->hash != kh.hash || !same_key(item, key, kh, ignore)) continue;
        if (skip-- == 0) {
            ombr::SpinGuard guard(&table->cursor_lock);
            table->find_item = item;
            table->find_ordinal = ordinal;
            *out_item = item;
            return 0;
        }
    }
    return kNotFound;
}

// Whether the items of a chain before its last one share the first's hash.
uint8_t chain_prefix_of(const hashtable_item *first) {
    for (const hashtable_item *cur = first; cur->bucket_next; cur = cur->bucket_next)
        if (cur->hash != first->hash) return kPrefixMixed;
    return kPrefixUniform;
}

}  // namespace

uint32_t _ombr_hashtable_genhash(const char *key, bool case_sensitive) { return hash_key(key, case_sensitive).hash; }

namespace {

uint32_t _ombr_hashtable_createitem(const ombr_hashtable *table, uint32_t hash, const char *key, const void *value,
                                    uint32_t size, uint8_t copy, item_t **out_item) {
    if ((value == nullptr) != (size == 0)) return kInvalidArg;
    const bool by_reference = table->has(OMBR_HASHTABLE_KEY_BY_REFERENCE);
    const size_t key_bytes = by_reference ? 0 : ombr_string_bytelen(key);
    const bool copy_value = copy && size != 0;
    // The copied value starts at the next multiple of 8 beyond the key text.
    const size_t value_offset = by_reference ? 0 : key_bytes + 8 - (key_bytes % 8);
    size_t total = sizeof(item_t) + key_bytes;
    if (copy_value) {
        if (size > SIZE_MAX - sizeof(item_t) - value_offset) return kNoMemory;
        total = sizeof(item_t) + value_offset + size;
    }
    // A copied key's text is compared a block at a time.
    if (!by_reference && total < sizeof(item_t) + key::kTextReadable) total = sizeof(item_t) + key::kTextReadable;
    auto *item = static_cast<item_t *>(ombr_memory_alloc(total));
    if (!item) return kNoMemory;
    ombr_memory_memset(item, 0, total);
    item->hash = hash;
    item->key_length = by_reference ? kUnknownLength : static_cast<uint32_t>(key_bytes - 1);
    item->value_copied = copy ? 1 : 0;
    item->value_size = size;
    if (by_reference) {
        item->key = key;
    } else {
        ombr_memory_memcpy(item->text_area(), key, key_bytes);
        item->key = item->text_area();
    }
    if (copy_value) {
        item->value = item->text_area() + value_offset;
        ombr_memory_memcpy(item->value, value, size);
    } else if (!copy) {
        item->value = const_cast<void *>(value);
    }
    *out_item = item;
    return 0;
}

void _ombr_hashtable_freeitem(const ombr_hashtable *table, item_t *item) {
    if (item->value && table->free_value) table->free_value(item->value, item->value_size);
    ombr_memory_free(item);
}

// Replaces the bucket array by a zeroed one of n buckets and forgets all
// items; the caller adds them again.
uint32_t _ombr_hashtable_setsize(ombr_hashtable *table, uint32_t n) {
    if (static_cast<size_t>(n) > SIZE_MAX / sizeof(item_t *)) return table->buckets ? kKeptOldArray : kNoMemory;
    const size_t bytes = static_cast<size_t>(n) * sizeof(item_t *);
    auto **array = static_cast<item_t **>(ombr_memory_alloc(bytes));
    if (!array) return table->buckets ? kKeptOldArray : kNoMemory;
    ombr_memory_memset(array, 0, bytes);
    ombr_memory_free(table->buckets);
    table->buckets = array;
    table->bucket_count = n;
    table->used_buckets = 0;
    table->collisions = 0;
    table->order_head = nullptr;
    table->order_tail = nullptr;
    table->count = 0;
    ombr::SpinGuard guard(&table->cursor_lock);
    table->cursor_item = nullptr;
    table->cursor_index = 0;
    table->find_item = nullptr;
    return 0;
}

uint32_t _ombr_hashtable_additem(ombr_hashtable *table, item_t *item) {
    // Growth is driven by occupied buckets plus appends into mixed chains.
    const uint32_t load = table->used_buckets + table->collisions;
    const uint32_t threshold = (load * 4) / 3;
    if (threshold >= table->bucket_count) {
        uint32_t n = kInitialBuckets;
        while (threshold >= n && n < kMaxBuckets) n <<= 1;
        if (n != table->bucket_count) {
            item_t *old = table->order_head;
            const uint32_t status = _ombr_hashtable_setsize(table, n);
            if (status == kNoMemory) return status;
            if (status == 0) {
                for (item_t *next; old; old = next) {
                    next = old->order_next;
                    const uint32_t readd = _ombr_hashtable_additem(table, old);
                    if (readd != 0) return readd;
                }
            }
        }
    }

    item->order_next = nullptr;
    item->order_prev = table->order_tail;
    if (table->order_tail)
        table->order_tail->order_next = item;
    else
        table->order_head = item;
    table->order_tail = item;

    item->bucket_next = nullptr;
    item_t **bucket = table->bucket_of(item->hash);
    item_t *first = *bucket;
    if (!first) {
        item->bucket_prev = nullptr;
        item->bucket_tail = item;
        item->chain_prefix = kPrefixUniform;
        *bucket = item;
        table->used_buckets += 1;
    } else {
        // An append counts a collision when an item of the chain that has a
        // successor differs in hash from the new one; a chain's last item is
        // never compared, and a chain of one never counts. What the items
        // before the last hold is kept in the first, so the test needs no
        // walk: a uniform prefix differs exactly when its hash does.
        uint8_t prefix = first->chain_prefix;
        if (prefix == kPrefixUnknown) prefix = chain_prefix_of(first);
        const item_t *last = first->bucket_tail;
        if (last != first && (prefix == kPrefixMixed || first->hash != item->hash)) table->collisions += 1;
        // The old last item joins the prefix.
        if (prefix == kPrefixUniform && last->hash != first->hash) prefix = kPrefixMixed;
        first->chain_prefix = prefix;
        item->bucket_tail = nullptr;
        item->bucket_prev = first->bucket_tail;
        first->bucket_tail->bucket_next = item;
        first->bucket_tail = item;
    }
    reset_cursor(table);
    table->count += 1;
    return 0;
}

void _ombr_hashtable_removeitem(ombr_hashtable *table, item_t *item) {
    item_t **bucket = table->bucket_of(item->hash);
    item_t *first = *bucket;
    // A uniform prefix stays uniform when an item leaves; a mixed one may
    // not, and is found out again at the next append.
    const uint8_t prefix = first->chain_prefix == kPrefixUniform ? kPrefixUniform : kPrefixUnknown;
    first->chain_prefix = prefix;
    if (item == first) {
        item_t *next = item->bucket_next;
        *bucket = next;
        if (next) {
            next->bucket_tail = item->bucket_tail;
            next->bucket_prev = nullptr;
            next->chain_prefix = prefix;
        } else {
            table->used_buckets -= 1;
        }
    } else {
        item->bucket_prev->bucket_next = item->bucket_next;
        if (item->bucket_next)
            item->bucket_next->bucket_prev = item->bucket_prev;
        else
            first->bucket_tail = item->bucket_prev;
    }
    if (item->order_prev)
        item->order_prev->order_next = item->order_next;
    else
        table->order_head = item->order_next;
    if (item->order_next)
        item->order_next->order_prev = item->order_prev;
    else
        table->order_tail = item->order_prev;
    item->bucket_next = item->bucket_prev = item->bucket_tail = nullptr;
    item->order_next = item->order_prev = nullptr;
    reset_cursor(table);
    table->count -= 1;
}


// Adds a fresh item; on failure the item dies without its value reaching
// the callback, since the value still belongs to the caller.
uint32_t add_or_discard(ombr_hashtable *table, item_t *item) {
    const uint32_t status = _ombr_hashtable_additem(table, item);
    if (status != 0) {
        item->value = nullptr;
        _ombr_hashtable_freeitem(table, item);
    }
    return status;
}


// Replaces an item by a new one with the same key: the entry moves to the
// end of the order list and of its chain.
uint32_t _ombr_hashtable_updateitem(ombr_hashtable *table, item_t *old, const void *value, uint32_t size,
                                    uint8_t copy) {
    item_t *fresh = nullptr;
    uint32_t status = _ombr_hashtable_createitem(table, old->hash, old->key, value, size, copy, &fresh);
    if (status != 0) return status;
    _ombr_hashtable_removeitem(table, old);
    status = add_or_discard(table, fresh);
    if (status != 0) {
        // Only reachable if the table could not keep its array; put the old
        // entry back so that nothing is lost.
        _ombr_hashtable_additem(table, old);
        return status;
    }
    if (table->has(OMBR_HASHTABLE_THREADSAFE) && !table->has(OMBR_HASHTABLE_FREE_AT_ONCE) && old->accessed) {
        old->bucket_next = table->deferred;
        table->deferred = old;
    } else {
        _ombr_hashtable_freeitem(table, old);
    }
    return 0;
}


void clear_items(ombr_hashtable *table) {
    for (item_t *item = table->order_head, *next; item; item = next) {
        next = item->order_next;
        _ombr_hashtable_freeitem(table, item);
    }
    for (item_t *item = table->deferred, *next; item; item = next) {
        next = item->bucket_next;
        _ombr_hashtable_freeitem(table, item);
    }
    if (table->buckets) ombr_memory_memset(table->buckets, 0, table->bucket_count * sizeof(item_t *));
    // collisions stays: it falls only when the array is replaced.
    table->used_buckets = 0;
    table->order_head = table->order_tail = nullptr;
    table->deferred = nullptr;
    table->count = 0;
    ombr::SpinGuard guard(&table->cursor_lock);
    table->cursor_item = nullptr;
    table->cursor_index = 0;
    table->find_item = nullptr;
}

// Argument tests shared by the keyed operations.
uint32_t check_keyed(const ombr_hashtable *table, const char *key) {
    if (uint32_t status = check_table(table)) return status;
    return bad_key(key) ? kInvalidArg : 0;
}

}  // namespace

OMBR_API uint32_t ombr_hashtable_create(ombr_hashtable_t *out_table, uint32_t flags,
                                        ombr_hashtable_free_value_t free_value) {
    if (ombr_datatypes_initchecks() == 0) return ombr::fail(kNotInitialized, kUnit);
    if (!out_table) return ombr::fail(kInvalidArg, kUnit);
    auto *table = alloc_record<ombr_hashtable>();
    if (!table) return ombr::fail(kNoMemory, kUnit);
    table->magic = kHashtableMagic;
    table->flags = flags;
    table->free_value = free_value;
    if (flags & OMBR_HASHTABLE_THREADSAFE) {
        if (uint32_t status = ombr_thread_critsec_create(&table->lock)) {
            ombr_memory_free(table);
            return ombr::fail(status, kUnit);
        }
    }
    ombr_spinlock_init(&table->cursor_lock);
    *out_table = table;
    return 0;
}

OMBR_API uint32_t ombr_hashtable_clear(ombr_hashtable_t table) {
    if (uint32_t status = check_table(table)) return ombr::fail(status, kUnit);
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    clear_items(table);
    return 0;
}

OMBR_API uint32_t ombr_hashtable_delete(ombr_hashtable_t table) {
    if (!table) return 0;
    if (table->magic != kHashtableMagic) return ombr::fail(kBadMagic, kUnit);
    {
        SectionGuard guard(table->lock);
        if (guard.status()) return ombr::fail(guard.status(), kUnit);
        // The section is re-entrant: clear takes it again.
        if (uint32_t status = ombr_hashtable_clear(table)) return ombr::fail(status, kUnit);
    }
    ombr_thread_critsec_delete(table->lock);
    ombr_spinlock_delete(&table->cursor_lock);
    ombr_memory_free(table->buckets);
    ombr_memory_free(table);
    return 0;
}

OMBR_API uint32_t ombr_hashtable_count(ombr_hashtable_t table, uint32_t *out_count) {
    if (uint32_t status = check_table(table)) return ombr::fail(status, kUnit);
    if (!out_count) return ombr::fail(kInvalidArg, kUnit);
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    *out_count = table->count;
    return 0;
}

OMBR_API uint32_t ombr_hashtable_value_add(ombr_hashtable_t table, const char *key, const void *value,
                                           uint32_t size, uint8_t copy) {
    if (uint32_t status = check_keyed(table, key)) return ombr::fail(status, kUnit);
    const KeyHash kh = hash_key(key, !table->ignore_case());
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    if (!table->has(OMBR_HASHTABLE_MULTI_VALUE)) {
        item_t *existing = nullptr;
        if (_ombr_hashtable_finditem(table, key, kh, 0, &existing) == 0) {
            if (table->has(OMBR_HASHTABLE_NO_REPLACE)) return ombr::fail(kKeyPresent, kUnit);
            return ombr::fail(_ombr_hashtable_updateitem(table, existing, value, size, copy), kUnit);
        }
    }
    item_t *item = nullptr;
    if (uint32_t status = _ombr_hashtable_createitem(table, kh.hash, key, value, size, copy, &item))
        return ombr::fail(status, kUnit);
    return ombr::fail(add_or_discard(table, item), kUnit);
}

OMBR_API uint32_t ombr_hashtable_value_update_ex(ombr_hashtable_t table, const char *key, uint32_t ordinal,
                                                 const void *value, uint32_t size, uint8_t copy) {
    if (uint32_t status = check_keyed(table, key)) return ombr::fail(status, kUnit);
    const KeyHash kh = hash_key(key, !table->ignore_case());
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    item_t *item = nullptr;
    if (_ombr_hashtable_finditem(table, key, kh, ordinal, &item) != 0) return kNotFound;
    return ombr::fail(_ombr_hashtable_updateitem(table, item, value, size, copy), kUnit);
}

OMBR_API uint32_t ombr_hashtable_value_delete(ombr_hashtable_t table, const char *key) {
    if (uint32_t status = check_keyed(table, key)) return ombr::fail(status, kUnit);
    const KeyHash kh = hash_key(key, !table->ignore_case());
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    item_t *item = nullptr;
    if (_ombr_hashtable_finditem(table, key, kh, 0, &item) != 0) return kNotFound;
    _ombr_hashtable_removeitem(table, item);
    _ombr_hashtable_freeitem(table, item);
    return 0;
}

OMBR_API uint32_t ombr_hashtable_value_remove_ex(ombr_hashtable_t table, const char *key, uint32_t ordinal,
                                                 void **out_value, uint32_t *out_size) {
    if (uint32_t status = check_keyed(table, key)) return ombr::fail(status, kUnit);
    const KeyHash kh = hash_key(key, !table->ignore_case());
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    item_t *item = nullptr;
    if (_ombr_hashtable_finditem(table, key, kh, ordinal, &item) != 0) return kNotFound;
    _ombr_hashtable_removeitem(table, item);
    if (item->value_copied) {
        // A copy dies with its entry; the caller gets nothing.
        if (out_value) *out_value = nullptr;
        if (out_size) *out_size = 0;
    } else {
        // Ownership of a by-reference value passes to the caller.
        if (out_value) *out_value = item->value;
        if (out_size) *out_size = item->value_size;
        item->value = nullptr;
        item->value_size = 0;
    }
    _ombr_hashtable_freeitem(table, item);
    return 0;
}

namespace {

// Every find that the hot path below does not take: other ordinals, tables
// with a lock, and the failures.
[[gnu::noinline]] uint32_t find_general(ombr_hashtable_t table, const char *key, uint32_t ordinal, void **out_value,
                                        uint32_t *out_size) {
    if (!table) return kNotFound;
    if (uint32_t status = check_keyed(table, key)) return ombr::fail(status, kUnit);
    const KeyHash kh = hash_key(key, !table->ignore_case());
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    item_t *item = nullptr;
    if (_ombr_hashtable_finditem(table, key, kh, ordinal, &item) != 0) return kNotFound;
    item->accessed = 1;
    if (out_value) *out_value = item->value;
    if (out_size) *out_size = item->value_size;
    return 0;
}

enum class Quick { kFound, kAbsent, kUnsure };

// The first item with a short key in a table that holds items, without a
// call; kUnsure where the general find must decide: a long key, a key by
// reference, or, in a table that ignores case, a key of the same hash and
// length that differs byte for byte.
template <bool kFold>
[[gnu::always_inline]] inline Quick quick_find(const ombr_hashtable *table, const char *key, item_t **out_item) {
    key::ShortKey sk;
    if (!key::hash_short<kFold>(key, sk)) return Quick::kUnsure;
    const KeyHash &kh = sk.kh;
    for (item_t *item = *table->bucket_of(kh.hash); item; item = item->bucket_next) {
        if (item->hash != kh.hash) continue;
        if (item->key_length != kh.length) {
            if (item->key_length == kUnknownLength) return Quick::kUnsure;
            continue;
        }
        if (key::same_short_text(item->text_area(), key, sk)) {
            *out_item = item;
            return Quick::kFound;
        }
        if (kFold) return Quick::kUnsure;
    }
    return Quick::kAbsent;
}

}  // namespace

OMBR_API uint32_t ombr_hashtable_value_find_ex(ombr_hashtable_t table, const char *key, uint32_t ordinal,
                                               void **out_value, uint32_t *out_size) {
    // The hot path, a find of the first entry by a short key in a table
    // without a lock, in full here and without a call: no lock, no cursor,
    // and nothing that can fail. Anything else goes the general way.
    if (table && table->magic == kHashtableMagic && !table->lock && ordinal == 0 && key && key[0] != '\0')
        [[likely]] {
        if (table->count == 0) return kNotFound;
        item_t *item = nullptr;
        const Quick quick =
            table->ignore_case() ? quick_find<true>(table, key, &item) : quick_find<false>(table, key, &item);
        if (quick == Quick::kFound) {
            // `accessed` is not set: it only decides whether an update
            // defers the old entry, which only thread-safe tables do, and a
            // table without a lock is not one. Hits thus read the fields
            // from `value` on, and write nothing.
            if (out_value) *out_value = item->value;
            if (out_size) *out_size = item->value_size;
            return 0;
        }
        if (quick == Quick::kAbsent) return kNotFound;
    }
    return find_general(table, key, ordinal, out_value, out_size);
}

OMBR_API uint32_t ombr_hashtable_value_count(ombr_hashtable_t table, const char *key, uint32_t *out_count) {
    if (uint32_t status = check_keyed(table, key)) return ombr::fail(status, kUnit);
    if (!out_count) return ombr::fail(kInvalidArg, kUnit);
    const KeyHash kh = hash_key(key, !table->ignore_case());
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    uint32_t n = 0;
    if (table->count != 0) {
        const uint8_t ignore = table->ignore_case() ? 1 : 0;
        for (item_t *item = *table->bucket_of(kh.hash); item; item = item->bucket_next)
            if (item->hash == kh.hash && same_key(item, key, kh, ignore)) ++n;
    }
    *out_count = n;
    return 0;
}

OMBR_API uint32_t ombr_hashtable_value_get(ombr_hashtable_t table, uint32_t position, const char **out_key,
                                           void **out_value, uint32_t *out_size) {
    if (uint32_t status = check_table(table)) return ombr::fail(status, kUnit);
    SectionGuard guard(table->lock);
    if (guard.status()) return ombr::fail(guard.status(), kUnit);
    item_t *item;
    uint32_t steps;
    {
        ombr::SpinGuard spin(&table->cursor_lock);
        if (table->cursor_item && table->cursor_index <= position) {
            item = table->cursor_item;
            steps = position - table->cursor_index;
        } else {
            item = table->order_head;
            steps = position;
        }
    }
    for (; item && steps; --steps) item = item->order_next;
    if (!item) return kIndexRange;
    item->accessed = 1;
    if (out_key) *out_key = item->key;
    if (out_value) *out_value = item->value;
    if (out_size) *out_size = item->value_size;
    ombr::SpinGuard spin(&table->cursor_lock);
    table->cursor_item = item;
    table->cursor_index = position;
    return 0;
}

namespace {

// Deletes a copy that is not handed out. Its values are shared with, or
// copied from, the source: no callback may run on them.
void discard_copy(ombr_hashtable_t copy) {
    for (item_t *item = copy->order_head; item; item = item->order_next) item->value = nullptr;
    ombr_hashtable_delete(copy);
}

}  // namespace

OMBR_API uint32_t ombr_hashtable_copy(ombr_hashtable_t source, ombr_hashtable_t *out_table) {
    if (uint32_t status = check_table(source)) return ombr::fail(status, kUnit);
    if (!out_table) return ombr::fail(kInvalidArg, kUnit);
    ombr_hashtable_t copy = nullptr;
    if (uint32_t status = ombr_hashtable_create(&copy, source->flags, source->free_value))
        return ombr::fail(status, kUnit);
    SectionGuard guard(source->lock);
    if (guard.status()) {
        ombr_hashtable_delete(copy);
        return ombr::fail(guard.status(), kUnit);
    }
    // A table that never held an entry has no array to size to.
    if (source->bucket_count != 0) {
        if (uint32_t status = _ombr_hashtable_setsize(copy, source->bucket_count)) {
            ombr_hashtable_delete(copy);
            return ombr::fail(status == kKeptOldArray ? kNoMemory : status, kUnit);
        }
    }
    // An entry that cannot be created is skipped; only the last entry's
    // status decides whether the copy is handed out. A failure is quiet.
    uint32_t last = 0;
    for (item_t *item = source->order_head; item; item = item->order_next) {
        item_t *fresh = nullptr;
        last = _ombr_hashtable_createitem(copy, item->hash, item->key, item->value, item->value_size,
                                          item->value_copied, &fresh);
        if (last != 0) continue;
        if (add_or_discard(copy, fresh) != 0) {
            discard_copy(copy);
            return 0;
        }
    }
    if (OMBR_STATUS_FAILED(last)) {
        discard_copy(copy);
        return 0;
    }
    *out_table = copy;
    return 0;
}

uint32_t _ombr_hashtable_check_chains(ombr_hashtable_t table, uint32_t *out_bad_chains) {
    if (uint32_t status = check_table(table)) return status;
    if (!out_bad_chains) return kInvalidArg;
    SectionGuard guard(table->lock);
    if (guard.status()) return guard.status();
    uint32_t bad = 0;
    for (uint32_t b = 0; b < table->bucket_count; ++b) {
        const item_t *first = table->buckets[b];
        if (first && first->chain_prefix != kPrefixUnknown && first->chain_prefix != chain_prefix_of(first)) ++bad;
    }
    *out_bad_chains = bad;
    return 0;
}

uint32_t _ombr_hashtable_get_stats(ombr_hashtable_t table, ombr_hashtable_stats *out_stats) {
    if (uint32_t status = check_table(table)) return status;
    if (!out_stats) return kInvalidArg;
    SectionGuard guard(table->lock);
    if (guard.status()) return guard.status();
    uint32_t deferred = 0;
    for (item_t *item = table->deferred; item; item = item->bucket_next) ++deferred;
    *out_stats = {table->bucket_count, table->used_buckets, table->collisions, deferred};
    return 0;
}
