/*
 * Containers of the base layer: the hash table (text keys to opaque values,
 * insertion order kept, several values per key on request), the string map
 * (text keys to text values) and the vector of pointer-sized words with its
 * sort.
 *
 * All functions return a status word (0 on success); outputs are written on
 * success only. The datatypes package (ombr_datatypes_initialize) must be up
 * to create a container.
 */
#ifndef OMBR_DATATYPES_H
#define OMBR_DATATYPES_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

/* ---- Statuses ------------------------------------------------------------- */

#define OMBR_DATATYPES_INVALID_ARG 0x900D0001u
#define OMBR_DATATYPES_NO_MEMORY 0x900D0002u
#define OMBR_DATATYPES_NOT_FOUND 0x100D0003u /* soft */
#define OMBR_DATATYPES_NOT_INITIALIZED 0x900D0007u
#define OMBR_DATATYPES_STOPPED 0x900D01A0u
#define OMBR_DATATYPES_BAD_HANDLE 0x900D0320u
#define OMBR_DATATYPES_BAD_MAGIC 0x900D0321u
#define OMBR_DATATYPES_INCONSISTENT 0x900D0360u
#define OMBR_DATATYPES_INDEX_RANGE 0x100D0361u /* soft */
#define OMBR_DATATYPES_KEY_PRESENT 0x900D0368u
#define OMBR_SORT_INVALID_ARG 0x900F0001u

/* ---- Hash table ------------------------------------------------------------ */

typedef struct ombr_hashtable *ombr_hashtable_t;

#define OMBR_HASHTABLE_THREADSAFE 0x01u
#define OMBR_HASHTABLE_CASE_SENSITIVE 0x10u
#define OMBR_HASHTABLE_NO_REPLACE 0x20u
#define OMBR_HASHTABLE_MULTI_VALUE 0x40u
#define OMBR_HASHTABLE_FREE_AT_ONCE 0x80u
#define OMBR_HASHTABLE_KEY_BY_REFERENCE 0x100u

/* Runs when an entry with a non-null value dies; for a copied value it gets
 * the pointer into the entry. */
typedef void (*ombr_hashtable_free_value_t)(void *value, uint32_t size);

OMBR_API uint32_t ombr_hashtable_create(ombr_hashtable_t *out_table, uint32_t flags,
                                        ombr_hashtable_free_value_t free_value);
OMBR_API uint32_t ombr_hashtable_delete(ombr_hashtable_t table);
OMBR_API uint32_t ombr_hashtable_clear(ombr_hashtable_t table);
/* Copies all entries. Returns 0 but leaves *out_table unwritten when the
 * last entry could not be copied: test the output. */
OMBR_API uint32_t ombr_hashtable_copy(ombr_hashtable_t source, ombr_hashtable_t *out_table);
OMBR_API uint32_t ombr_hashtable_count(ombr_hashtable_t table, uint32_t *out_count);
/* With copy set the value's bytes are copied into the entry; otherwise the
 * pointer is stored and size is only a tag. Value and size are both zero or
 * both non-zero. */
OMBR_API uint32_t ombr_hashtable_value_add(ombr_hashtable_t table, const char *key, const void *value,
                                           uint32_t size, uint8_t copy);
OMBR_API uint32_t ombr_hashtable_value_update_ex(ombr_hashtable_t table, const char *key, uint32_t ordinal,
                                                 const void *value, uint32_t size, uint8_t copy);
OMBR_API uint32_t ombr_hashtable_value_delete(ombr_hashtable_t table, const char *key);
OMBR_API uint32_t ombr_hashtable_value_remove_ex(ombr_hashtable_t table, const char *key, uint32_t ordinal,
                                                 void **out_value, uint32_t *out_size);
OMBR_API uint32_t ombr_hashtable_value_find_ex(ombr_hashtable_t table, const char *key, uint32_t ordinal,
                                               void **out_value, uint32_t *out_size);
OMBR_API uint32_t ombr_hashtable_value_count(ombr_hashtable_t table, const char *key, uint32_t *out_count);
OMBR_API uint32_t ombr_hashtable_value_get(ombr_hashtable_t table, uint32_t position, const char **out_key,
                                           void **out_value, uint32_t *out_size);

/* ---- String map ------------------------------------------------------------ */

typedef struct ombr_stringmap *ombr_stringmap_t;

/* The hash table flags apply; in addition: */
#define OMBR_STRINGMAP_VALUE_BY_REFERENCE 0x1000u

OMBR_API uint32_t ombr_stringmap_create(ombr_stringmap_t *out_map, uint32_t flags);
OMBR_API uint32_t ombr_stringmap_delete(ombr_stringmap_t map);
/* A null value stores an entry without value. */
OMBR_API uint32_t ombr_stringmap_value_add(ombr_stringmap_t map, const char *key, const char *value);
OMBR_API uint32_t ombr_stringmap_value_find(ombr_stringmap_t map, const char *key, const char **out_value);
OMBR_API uint32_t ombr_stringmap_value_get(ombr_stringmap_t map, uint32_t position, const char **out_key,
                                           const char **out_value);
OMBR_API uint32_t ombr_stringmap_value_delete(ombr_stringmap_t map, const char *key);
OMBR_API uint32_t ombr_stringmap_count(ombr_stringmap_t map, uint32_t *out_count);
OMBR_API uint32_t ombr_stringmap_clear(ombr_stringmap_t map);
/* As ombr_hashtable_copy: 0 with *out_map unwritten when the entries could
 * not be copied. */
OMBR_API uint32_t ombr_stringmap_copy(ombr_stringmap_t source, ombr_stringmap_t *out_map);

/* ---- Vector and sort ------------------------------------------------------- */

typedef struct ombr_vector *ombr_vector_t;

#define OMBR_VECTOR_THREADSAFE 0x01u
#define OMBR_VECTOR_SORTED 0x10u

/* Entries are pointer-sized words: pointers or plain numbers. 0 is refused. */
typedef int32_t (*ombr_vector_compare_t)(uintptr_t a, uintptr_t b);
typedef void (*ombr_vector_free_t)(uintptr_t entry);
/* Returns 0 to stop the walk. */
typedef int32_t (*ombr_vector_foreach_t)(void *context, uintptr_t entry);

OMBR_API uint32_t ombr_vector_create(ombr_vector_t *out_vector, uint32_t flags, ombr_vector_compare_t compare,
                                     ombr_vector_free_t free_entry);
OMBR_API uint32_t ombr_vector_delete(ombr_vector_t vector);
OMBR_API uint32_t ombr_vector_clear(ombr_vector_t vector);
OMBR_API uint32_t ombr_vector_count(ombr_vector_t vector, uint32_t *out_count);
OMBR_API uint32_t ombr_vector_add(ombr_vector_t vector, uintptr_t entry);
OMBR_API uint32_t ombr_vector_insert(ombr_vector_t vector, uint32_t index, uintptr_t entry);
OMBR_API uint32_t ombr_vector_getindex(ombr_vector_t vector, uint32_t index, uintptr_t *out_entry);
OMBR_API uint32_t ombr_vector_removeindex(ombr_vector_t vector, uint32_t index, uintptr_t *out_entry);
OMBR_API uint32_t ombr_vector_deleteindex(ombr_vector_t vector, uint32_t index);
OMBR_API uint32_t ombr_vector_find(ombr_vector_t vector, uintptr_t entry, uint32_t *out_index);
OMBR_API uint32_t ombr_vector_find_literal(ombr_vector_t vector, uintptr_t entry, uint32_t *out_index);
OMBR_API uint32_t ombr_vector_sort(ombr_vector_t vector, ombr_vector_compare_t compare, uint8_t force);
OMBR_API uint32_t ombr_vector_foreach(ombr_vector_t vector, ombr_vector_foreach_t callback, void *context);
OMBR_API uint32_t ombr_vector_set_min_size(ombr_vector_t vector, uint32_t capacity);

/* Compare of two elements (pointers into the array or to a copy of one). */
typedef int32_t (*ombr_utils_compare_t)(const void *a, const void *b, void *context);

/* In-place quicksort, not stable. Errors are reported under the sorting
 * package byte; if its one element of scratch memory cannot be allocated
 * it returns 0 and leaves the array as it was. */
OMBR_API uint32_t ombr_utils_qsort(void *base, uint32_t count, uint32_t size, ombr_utils_compare_t compare,
                                   void *context);

OMBR_END_DECLS

#endif
