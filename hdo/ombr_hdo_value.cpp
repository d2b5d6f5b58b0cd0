// HDO values: typed, named leaves of a node with attributes of their own,
// reference counted apart from nodes so that copies can share them, and the
// copy-on-write rule that splits a shared value when it is written.
#include "hdo/ombr_hdo_internal.h"
#include "ombr/ombr_string.h"

using namespace ombr::hdo;

namespace {

constexpr const char *kUnit = "ombr_hdo_value";

uint32_t out(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::fail(status, kUnit, where);
}

// A value is shared when more than one table and one handle hold it.
constexpr int32_t kSharedAt = 3;

// New data for a value, prepared before the value is touched. Owned
// allocations are freed if the write does not happen.
struct NewData {
    uint32_t type = OMBR_HDO_VALUE_NONE;
    void *data = nullptr;
    uint32_t size = 0;
    ombr_hdo_release_fn release = nullptr;
    bool owned = false;

    void discard() {
        if (owned) ombr_memory_free(data);
        data = nullptr;
    }
};

uint32_t prepare_string(const char *text, NewData *data) {
    data->type = OMBR_HDO_VALUE_STRING;
    data->size = ombr_string_bytelen(text);
    if (data->size != 0) {
        data->data = ombr_memory_alloc(data->size);
        if (!data->data) return kNoMemory;
        ombr_memory_memcpy(data->data, text, data->size);
        data->owned = true;
    }
    return 0;
}

uint32_t prepare_binary(const void *bytes, uint32_t size, NewData *data) {
    data->type = OMBR_HDO_VALUE_BINARY;
    if (bytes && size) {
        data->data = ombr_memory_alloc(size);
        if (!data->data) return kNoMemory;
        ombr_memory_memcpy(data->data, bytes, size);
        data->owned = true;
        data->size = size;
    }
    return 0;
}

void store(hdo_value *value, const NewData &data) {
    value->type = data.type;
    value->data = data.data;
    value->size = data.size;
    value->release = data.release;
}

// The common form of the four setdata functions: lock node then value,
// refuse on a read-only node, write in place or split a shared value.
uint32_t write_data(hdo_value_handle *handle, uint32_t (*prepare)(const void *, NewData *), const void *context,
                    NewData data) {
    if (!handle) return out(kInvalidArg);
    LockGuard node_guard(handle->node->lock);
    if (node_guard.status()) return out(node_guard.status());
    hdo_value *value = handle->value;
    LockGuard value_guard(value->lock);
    if (value_guard.status()) return out(value_guard.status());
    if (has(handle->node->flags, OMBR_HDO_READONLY)) return out(kRefused);
    if (prepare) {
        if (uint32_t status = prepare(context, &data)) {
            data.discard();
            return out(status);
        }
    }
    hdo_value *target = value;
    if (value->ref_count < kSharedAt) {
        _hdo_value_clear(value);
    } else if (uint32_t status = _hdo_value_newreference(handle, &target)) {
        data.discard();
        return out(status);
    }
    store(target, data);
    value_guard.release();
    return out(node_guard.release());
}

uint32_t values_table(hdo_node *node) {
    if (node->values) return 0;
    return ombr_hashtable_create(&node->values, kTableFlags, _hdo_value_release_callback);
}

// Runs a value attribute operation under the value's lock.
template <typename Work>
uint32_t with_value_lock(hdo_value *value, Work &&work) {
    LockGuard guard(value->lock);
    if (guard.status()) return guard.status();
    uint32_t status = work();
    uint32_t left = guard.release();
    return status ? status : left;
}

// A shared value's existing attributes cannot change: there is no split
// for attributes, and all holders would see the change.
uint32_t check_shared_attribute(const hdo_value *value, const char *name) {
    if (value->ref_count < kSharedAt || !value->attributes) return 0;
    uint32_t status = ombr_stringmap_value_find(value->attributes, name, nullptr);
    if (status == 0) return kRefused;
    return is_not_found(status) ? 0 : status;
}

}  // namespace

uint32_t ombr::hdo::checked_value(void *entry, uint32_t size, hdo_value **out_value) {
    auto *value = static_cast<hdo_value *>(entry);
    if (size != kEntryTag || !value || value->magic != kValueMagic) return kCorruptEntry;
    *out_value = value;
    return 0;
}

uint32_t _hdo_value_create(const char *name, hdo_value **out_value) {
    const uint32_t name_bytes = ombr_string_bytelen(name);
    const size_t total = sizeof(hdo_value) + name_bytes;
    auto *value = static_cast<hdo_value *>(ombr_memory_alloc(total));
    if (!value) return out(kNoMemory);
    ombr_memory_memset(value, 0, total);
    value->magic = kValueMagic;
    if (uint32_t status = ombr_thread_critsec_create(&value->lock)) {
        ombr_memory_free(value);
        return out(status);
    }
    value->ref_count = 1;
    char *copy = reinterpret_cast<char *>(value + 1);
    if (name_bytes) ombr_memory_memcpy(copy, name, name_bytes);
    value->name = copy;
    *out_value = value;
    return 0;
}

void _hdo_value_clear(hdo_value *value) {
    if (value->type == OMBR_HDO_VALUE_STRING || value->type == OMBR_HDO_VALUE_BINARY)
        ombr_memory_free(value->data);
    else if (value->type == OMBR_HDO_VALUE_POINTER && value->release)
        value->release(value->data, value->size);
    value->data = nullptr;
    value->size = 0;
    value->type = OMBR_HDO_VALUE_NONE;
    value->release = nullptr;
}

uint32_t _ombr_hdo_value_addref(hdo_value *value) {
    return out(with_value_lock(value, [&] {
        value->ref_count += 1;
        return 0u;
    }));
}

uint32_t _ombr_hdo_value_release(hdo_value *value) {
    if (!value) return 0;
    int32_t remaining = 0;
    if (uint32_t status = with_value_lock(value, [&] {
            remaining = --value->ref_count;
            return 0u;
        }))
        return out(status);
    if (remaining != 0) return 0;
    _hdo_value_clear(value);
    uint32_t status = ombr_stringmap_delete(value->attributes);
    ombr_thread_critsec_delete(value->lock);
    value->magic = 0;
    ombr_memory_free(value);
    return out(status);
}

extern "C" void _hdo_value_release_callback(void *entry, uint32_t size) {
    hdo_value *value = nullptr;
    if (checked_value(entry, size, &value) == 0) _ombr_hdo_value_release(value);
}

uint32_t _hdo_value_add(hdo_node *node, hdo_value *value, uint32_t flags) {
    if (!node || !value) return out(kInvalidArg);
    if (has(node->flags, OMBR_HDO_READONLY)) return out(kRefused);
    if (!node->values) {
        if (uint32_t status = values_table(node)) return out(status);
    } else if (has(flags, OMBR_HDO_REPLACE | OMBR_HDO_SINGLE)) {
        if (has(node->flags, OMBR_HDO_SINGLE)) {
            if (ombr_hashtable_value_find_ex(node->values, value->name, 0, nullptr, nullptr) == 0)
                return out(kRefused);
        } else {
            // Replaces the name's first value, which the table releases. The
            // flags are not recorded on this path.
            uint32_t status = ombr_hashtable_value_update_ex(node->values, value->name, 0, value, kEntryTag, 0);
            if (!is_not_found(status)) return out(status);
        }
    }
    if (uint32_t status = ombr_hashtable_value_add(node->values, value->name, value, kEntryTag, 0)) return out(status);
    value->flags = flags;
    if (has(flags, OMBR_HDO_HIDDEN)) node->hidden_values += 1;
    return 0;
}

// ---- New values ---------------------------------------------------------------------------

uint32_t _ombr_hdo_new_value(hdo_node *node, const char *name, uint32_t flags, hdo_value **out_value) {
    hdo_value *value = nullptr;
    if (uint32_t status = _hdo_value_create(name, &value)) return out(status);
    if (uint32_t status = _hdo_value_add(node, value, flags)) {
        _ombr_hdo_value_release(value);
        return out(status);
    }
    if (out_value) *out_value = value;
    return 0;
}

namespace {

// The string and binary forms fill the value before it is added; from then
// on the value owns the data.
uint32_t new_value_with_data(hdo_node *node, const char *name, uint32_t flags, NewData &data,
                             hdo_value **out_value) {
    hdo_value *value = nullptr;
    if (uint32_t status = _hdo_value_create(name, &value)) return status;
    store(value, data);
    data.owned = false;
    if (uint32_t status = _hdo_value_add(node, value, flags)) {
        _ombr_hdo_value_release(value);
        return status;
    }
    if (out_value) *out_value = value;
    return 0;
}

}  // namespace

uint32_t _ombr_hdo_new_value_string(hdo_node *node, const char *name, const char *text, uint32_t flags,
                                    hdo_value **out_value) {
    NewData data;
    if (uint32_t status = prepare_string(text, &data)) return out(status);
    uint32_t status = new_value_with_data(node, name, flags, data, out_value);
    if (status) data.discard();
    return out(status);
}

uint32_t _ombr_hdo_new_value_binary(hdo_node *node, const char *name, const void *bytes, uint32_t size,
                                    uint32_t flags, hdo_value **out_value) {
    NewData data;
    if (uint32_t status = prepare_binary(bytes, size, &data)) return out(status);
    data.size = size;  // stored even when nothing was copied
    uint32_t status = new_value_with_data(node, name, flags, data, out_value);
    if (status) data.discard();
    return out(status);
}

uint32_t _ombr_hdo_new_value_int(hdo_node *node, const char *name, uint32_t number, uint32_t flags,
                                 hdo_value **out_value) {
    hdo_value *value = nullptr;
    if (uint32_t status = _ombr_hdo_new_value(node, name, flags, &value)) return out(status);
    value->type = OMBR_HDO_VALUE_INT;
    value->size = number;
    if (out_value) *out_value = value;
    return 0;
}

uint32_t _ombr_hdo_new_value_pointer(hdo_node *node, const char *name, void *pointer, uint32_t size, uint32_t flags,
                                     ombr_hdo_release_fn release, hdo_value **out_value) {
    hdo_value *value = nullptr;
    if (uint32_t status = _ombr_hdo_new_value(node, name, flags, &value)) return out(status);
    value->type = OMBR_HDO_VALUE_POINTER;
    value->data = pointer;
    value->size = size;
    value->release = release;
    if (out_value) *out_value = value;
    return 0;
}

// ---- Values in tables -------------------------------------------------------------------

uint32_t _ombr_hdo_value_set(hdo_node *node, const char *key, hdo_value *value) {
    if (!node || !value) return out(kInvalidArg);
    if (has(node->flags, OMBR_HDO_READONLY)) {
        // The caller's reference is consumed.
        _ombr_hdo_value_release(value);
        return out(kRefused);
    }
    if (uint32_t status = _ombr_hdo_value_addref(value)) return out(status);
    uint32_t status = 0;
    bool add = true;
    if (!node->values) {
        status = values_table(node);
        add = status == 0;
    } else if (has(value->flags, OMBR_HDO_REPLACE | OMBR_HDO_SINGLE)) {
        if (has(node->flags, OMBR_HDO_SINGLE)) {
            status = ombr_hashtable_value_find_ex(node->values, key, 0, nullptr, nullptr);
            if (status == 0) {
                _ombr_hdo_value_release(value);
                return out(kRefused);
            }
            // Not present: the value is not added, and the not-found status
            // is the result.
            add = false;
        } else {
            status = ombr_hashtable_value_update_ex(node->values, key, 0, value, kEntryTag, 0);
            if (status == 0) return 0;
            if (!is_not_found(status)) {
                _ombr_hdo_value_release(value);
                return out(status);
            }
            status = 0;
        }
    }
    if (add && (status = ombr_hashtable_value_add(node->values, key, value, kEntryTag, 0))) {
        _ombr_hdo_value_release(value);
        return out(status);
    }
    if (has(value->flags, OMBR_HDO_HIDDEN)) node->hidden_values += 1;
    if (status == 0) return 0;
    _ombr_hdo_value_release(value);
    return out(status);
}

uint32_t _ombr_hdo_value_get(hdo_node *node, const char *name, uint32_t ordinal, hdo_value **out_value) {
    if (!node || !out_value) return out(kInvalidArg);
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->values) return kNotFound;
    void *entry = nullptr;
    uint32_t size = 0;
    uint32_t status = 0;
    if (!name || !*name) {
        // No name: the ordinal is a position in the whole table.
        status = ombr_hashtable_value_get(node->values, ordinal, nullptr, &entry, &size);
        if (status == kTableEnd) return kNotFound;
    } else {
        status = ombr_hashtable_value_find_ex(node->values, name, ordinal, &entry, &size);
    }
    hdo_value *value = nullptr;
    if (status == 0) status = checked_value(entry, size, &value);
    if (status) return out(status);
    *out_value = value;
    return out(guard.release());
}

uint32_t _ombr_hdo_value_remove(hdo_node *node, const char *name, uint32_t ordinal, hdo_value **out_value) {
    if (!node || !name) return out(kInvalidArg);
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->values) return out(kNotInParent);
    void *entry = nullptr;
    uint32_t size = 0;
    uint32_t status = ombr_hashtable_value_remove_ex(node->values, name, ordinal, &entry, &size);
    hdo_value *value = nullptr;
    if (status == 0) status = checked_value(entry, size, &value);
    if (status) return out(status);
    // hidden_values is left as it is.
    if (out_value)
        *out_value = value;
    else
        _ombr_hdo_value_release(value);
    return out(guard.release());
}

uint32_t _ombr_hdo_value_count(hdo_node *node, const char *name, uint32_t *out_count) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    uint32_t count = 0;
    if (node->values) {
        uint32_t status = 0;
        if (!name || !*name) {
            status = ombr_hashtable_count(node->values, &count);
            count = count > node->hidden_values ? count - node->hidden_values : 0;
        } else {
            status = ombr_hashtable_value_count(node->values, name, &count);
        }
        if (status) return out(status);
    }
    *out_count = count;
    return out(guard.release());
}

uint32_t _ombr_hdo_value_enum(hdo_node *node, uint32_t index, hdo_value **out_value) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->values) return kNotFound;
    // index counts visible values. Without hidden values it is the position
    // itself, which the table's cursor reads in constant time.
    uint32_t position = node->hidden_values == 0 ? index : 0;
    uint32_t remaining = node->hidden_values == 0 ? 0 : index;
    for (;; ++position) {
        void *entry = nullptr;
        uint32_t size = 0;
        uint32_t status = ombr_hashtable_value_get(node->values, position, nullptr, &entry, &size);
        if (status == kTableEnd) return kNotFound;
        hdo_value *value = nullptr;
        if (status == 0) status = checked_value(entry, size, &value);
        if (status) return out(status);
        if (has(value->flags, OMBR_HDO_HIDDEN)) continue;
        if (remaining-- == 0) {
            *out_value = value;
            return out(guard.release());
        }
    }
}

hdo_value_handle *_hdo_valuehandle_alloc() {
    auto *handle = static_cast<hdo_value_handle *>(ombr_memory_alloc(sizeof(hdo_value_handle)));
    if (handle) ombr_memory_memset(handle, 0, sizeof *handle);
    return handle;
}

void _hdo_valuehandle_bind(hdo_value_handle *handle, hdo_node *node, hdo_value *value) {
    handle->magic = kHandleMagic;
    handle->node = node;
    handle->value = value;
    _ombr_hdo_addref(node);
    _ombr_hdo_value_addref(value);
}

uint32_t _ombr_hdo_valuehandle_create(hdo_node *node, hdo_value *value, hdo_value_handle **out_handle) {
    if (!node || !value || !out_handle) return out(kInvalidArg);
    hdo_value_handle *handle = _hdo_valuehandle_alloc();
    if (!handle) return out(kNoMemory);
    _hdo_valuehandle_bind(handle, node, value);
    *out_handle = handle;
    return 0;
}

// ---- Data ------------------------------------------------------------------------------------

uint32_t _ombr_hdo_value_setdata_string(hdo_value_handle *handle, const char *text) {
    auto prepare = [](const void *context, NewData *data) {
        return prepare_string(static_cast<const char *>(context), data);
    };
    return write_data(handle, prepare, text, NewData{});
}

uint32_t _ombr_hdo_value_setdata_int(hdo_value_handle *handle, uint32_t number) {
    NewData data;
    data.type = OMBR_HDO_VALUE_INT;
    data.size = number;
    return write_data(handle, nullptr, nullptr, data);
}

uint32_t _ombr_hdo_value_setdata_binary(hdo_value_handle *handle, const void *bytes, uint32_t size) {
    struct Bytes {
        const void *bytes;
        uint32_t size;
    } given{bytes, size};
    auto prepare = [](const void *context, NewData *data) {
        const auto *b = static_cast<const Bytes *>(context);
        return prepare_binary(b->bytes, b->size, data);
    };
    return write_data(handle, prepare, &given, NewData{});
}

uint32_t _ombr_hdo_value_setdata_pointer(hdo_value_handle *handle, void *pointer, uint32_t size,
                                         ombr_hdo_release_fn release) {
    NewData data;
    data.type = OMBR_HDO_VALUE_POINTER;
    data.data = pointer;
    data.size = size;
    data.release = release;
    return write_data(handle, nullptr, nullptr, data);
}

namespace {

// The getdata functions read under the node's lock, after the type test.
template <typename Read>
uint32_t read_data(hdo_value_handle *handle, uint32_t type, Read &&read) {
    if (!handle) return out(kInvalidArg);
    LockGuard guard(handle->node->lock);
    if (guard.status()) return out(guard.status());
    const hdo_value *value = handle->value;
    if (value->type != type) return out(kWrongType);
    read(value);
    return out(guard.release());
}

}  // namespace

uint32_t _ombr_hdo_value_getdata_string(hdo_value_handle *handle, const char **out_text) {
    return read_data(handle, OMBR_HDO_VALUE_STRING,
                     [&](const hdo_value *value) { *out_text = static_cast<const char *>(value->data); });
}

uint32_t _ombr_hdo_value_getdata_int(hdo_value_handle *handle, uint32_t *out_number) {
    return read_data(handle, OMBR_HDO_VALUE_INT, [&](const hdo_value *value) { *out_number = value->size; });
}

uint32_t _ombr_hdo_value_getdata_binary(hdo_value_handle *handle, const void **out_bytes, uint32_t *out_size) {
    return read_data(handle, OMBR_HDO_VALUE_BINARY, [&](const hdo_value *value) {
        if (out_bytes) *out_bytes = value->data;
        if (out_size) *out_size = value->size;
    });
}

uint32_t _ombr_hdo_value_getdata_pointer(hdo_value_handle *handle, void **out_pointer, uint32_t *out_size) {
    return read_data(handle, OMBR_HDO_VALUE_POINTER, [&](const hdo_value *value) {
        if (out_pointer) *out_pointer = value->data;
        if (out_size) *out_size = value->size;
    });
}

// ---- Copy on write --------------------------------------------------------------------------

uint32_t _hdo_value_newreference(hdo_value_handle *handle, hdo_value **out_value) {
    hdo_node *node = handle->node;
    hdo_value *value = handle->value;
    ombr::log_message(OMBR_PKG_HDO, OMBR_LOG_DETAIL, __LINE__, kUnit, "HDO value refcount=%d. Creating new ref value.",
                      value->ref_count);
    // The value's place in the handle's node: its name at some ordinal.
    uint32_t ordinal = 0;
    for (;; ++ordinal) {
        void *entry = nullptr;
        if (ombr_hashtable_value_find_ex(node->values, value->name, ordinal, &entry, nullptr) != 0)
            return out(kSharedNotFound);
        if (entry == value) break;
    }
    hdo_value *fresh = nullptr;
    if (uint32_t status = _hdo_value_create(value->name, &fresh)) return out(status);
    if (value->attributes) {
        // The copy reports success with no output when it runs out of memory.
        ombr_stringmap_copy(value->attributes, &fresh->attributes);
        if (!fresh->attributes) {
            _ombr_hdo_value_release(fresh);
            return out(kNoMemory);
        }
    }
    // The table's reference on the old value goes with the entry.
    if (uint32_t status = ombr_hashtable_value_update_ex(node->values, value->name, ordinal, fresh, kEntryTag, 0)) {
        _ombr_hdo_value_release(fresh);
        return out(status);
    }
    value->ref_count -= 1;  // the handle leaves it; its lock is held
    handle->value = fresh;
    _ombr_hdo_value_addref(fresh);
    *out_value = fresh;
    return 0;
}

// ---- Value attributes -----------------------------------------------------------------------

uint32_t _ombr_hdo_value_attribute_set(hdo_value *value, const char *name, const char *text) {
    return out(with_value_lock(value, [&]() -> uint32_t {
        if (uint32_t status = check_shared_attribute(value, name)) return status;
        if (!value->attributes) {
            if (uint32_t status = ombr_stringmap_create(&value->attributes, 0)) return status;
        }
        return ombr_stringmap_value_add(value->attributes, name, text);
    }));
}

uint32_t _ombr_hdo_value_attribute_get(hdo_value *value, const char *name, const char **out_text) {
    return out(with_value_lock(value, [&]() -> uint32_t {
        if (!value->attributes) return kNotFound;
        return ombr_stringmap_value_find(value->attributes, name, out_text);
    }));
}

uint32_t _ombr_hdo_value_attribute_delete(hdo_value *value, const char *name) {
    return out(with_value_lock(value, [&]() -> uint32_t {
        if (uint32_t status = check_shared_attribute(value, name)) return status;
        if (!value->attributes) return kNotFound;
        return ombr_stringmap_value_delete(value->attributes, name);
    }));
}

uint32_t _ombr_hdo_value_attribute_count(hdo_value *value, uint32_t *out_count) {
    return out(with_value_lock(value, [&]() -> uint32_t {
        uint32_t count = 0;
        if (value->attributes) {
            if (uint32_t status = ombr_stringmap_count(value->attributes, &count)) return status;
        }
        *out_count = count;
        return 0;
    }));
}

uint32_t _ombr_hdo_value_attribute_enum(hdo_value *value, uint32_t index, const char **out_name,
                                        const char **out_text) {
    return out(with_value_lock(value, [&]() -> uint32_t {
        if (!value->attributes) return kNotFound;
        return ombr_stringmap_value_get(value->attributes, index, out_name, out_text);
    }));
}
