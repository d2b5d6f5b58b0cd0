// String map: a hash table whose values are texts stored with their
// terminator. Reads check that an entry really is a text before handing it
// out.
#include "datatypes/ombr_datatypes_internal.h"

using namespace ombr::dt;

namespace {
constexpr const char *kUnit = "ombr_stringmap";
}

struct ombr_stringmap {
    uint32_t magic;
    ombr_hashtable_t table;
    uint32_t flags;
};

namespace {

uint32_t check_map(const ombr_stringmap *map) {
    if (!map) return kInvalidArg;
    if (map->magic != kStringmapMagic) return kBadMagic;
    return 0;
}

// A text value is either absent (null, size 0) or ends with its terminator.
uint32_t check_text(const void *value, uint32_t size) {
    if (value) {
        if (size == 0 || static_cast<const char *>(value)[size - 1] != '\0') return kInconsistent;
    } else if (size != 0) {
        return kInconsistent;
    }
    return 0;
}

}  // namespace

OMBR_API uint32_t ombr_stringmap_create(ombr_stringmap_t *out_map, uint32_t flags) {
    if (ombr_datatypes_initchecks() == 0) return ombr::fail(kNotInitialized, kUnit);
    if (!out_map) return ombr::fail(kInvalidArg, kUnit);
    auto *map = alloc_record<ombr_stringmap>();
    if (!map) return ombr::fail(kNoMemory, kUnit);
    if (uint32_t status = ombr_hashtable_create(&map->table, flags, nullptr)) {
        ombr_memory_free(map);
        return ombr::fail(status, kUnit);
    }
    map->magic = kStringmapMagic;
    map->flags = flags;
    *out_map = map;
    return 0;
}

OMBR_API uint32_t ombr_stringmap_delete(ombr_stringmap_t map) {
    if (!map) return 0;
    if (map->magic != kStringmapMagic) return ombr::fail(kBadMagic, kUnit);
    if (uint32_t status = ombr_hashtable_delete(map->table)) return ombr::fail(status, kUnit);
    ombr_memory_free(map);
    return 0;
}

OMBR_API uint32_t ombr_stringmap_value_add(ombr_stringmap_t map, const char *key, const char *value) {
    if (uint32_t status = check_map(map)) return ombr::fail(status, kUnit);
    const uint8_t copy = (map->flags & OMBR_STRINGMAP_VALUE_BY_REFERENCE) ? 0 : 1;
    return ombr::fail(ombr_hashtable_value_add(map->table, key, value, ombr_string_bytelen(value), copy), kUnit);
}

OMBR_API uint32_t ombr_stringmap_value_find(ombr_stringmap_t map, const char *key, const char **out_value) {
    if (uint32_t status = check_map(map)) return ombr::fail(status, kUnit);
    void *value = nullptr;
    uint32_t size = 0;
    if (uint32_t status = ombr_hashtable_value_find_ex(map->table, key, 0, &value, &size))
        return ombr::fail(status, kUnit);
    if (uint32_t status = check_text(value, size)) return ombr::fail(status, kUnit);
    if (out_value) *out_value = static_cast<const char *>(value);
    return 0;
}

OMBR_API uint32_t ombr_stringmap_value_get(ombr_stringmap_t map, uint32_t position, const char **out_key,
                                           const char **out_value) {
    if (uint32_t status = check_map(map)) return ombr::fail(status, kUnit);
    const char *key = nullptr;
    void *value = nullptr;
    uint32_t size = 0;
    if (uint32_t status = ombr_hashtable_value_get(map->table, position, &key, &value, &size))
        return ombr::fail(status, kUnit);
    if (uint32_t status = check_text(value, size)) return ombr::fail(status, kUnit);
    if (out_key) *out_key = key;
    if (out_value) *out_value = static_cast<const char *>(value);
    return 0;
}

OMBR_API uint32_t ombr_stringmap_value_delete(ombr_stringmap_t map, const char *key) {
    if (uint32_t status = check_map(map)) return ombr::fail(status, kUnit);
    return ombr::fail(ombr_hashtable_value_delete(map->table, key), kUnit);
}

OMBR_API uint32_t ombr_stringmap_count(ombr_stringmap_t map, uint32_t *out_count) {
    if (uint32_t status = check_map(map)) return ombr::fail(status, kUnit);
    if (!out_count) return ombr::fail(kInvalidArg, kUnit);
    return ombr::fail(ombr_hashtable_count(map->table, out_count), kUnit);
}

OMBR_API uint32_t ombr_stringmap_clear(ombr_stringmap_t map) {
    if (uint32_t status = check_map(map)) return ombr::fail(status, kUnit);
    return ombr::fail(ombr_hashtable_clear(map->table), kUnit);
}

OMBR_API uint32_t ombr_stringmap_copy(ombr_stringmap_t source, ombr_stringmap_t *out_map) {
    if (!source || !out_map) return ombr::fail(kInvalidArg, kUnit);
    auto *map = alloc_record<ombr_stringmap>();
    if (!map) return ombr::fail(kNoMemory, kUnit);
    if (uint32_t status = ombr_hashtable_copy(source->table, &map->table)) {
        ombr_memory_free(map);
        return ombr::fail(status, kUnit);
    }
    if (!map->table) {
        // The table copy failed quietly; so does the map copy.
        ombr_memory_free(map);
        return 0;
    }
    map->magic = kStringmapMagic;
    map->flags = source->flags;
    *out_map = map;
    return 0;
}

ombr_hashtable_t _ombr_stringmap_get_table(ombr_stringmap_t map) { return check_map(map) ? nullptr : map->table; }
