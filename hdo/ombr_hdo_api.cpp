// The public HDO functions for nodes and values. Each has one form:
// the init test where needed, the argument tests, the magic test, the
// node's lock around the internal function, the outputs (with the
// references they carry), and every failing status through the error hook.
#include <initializer_list>

#include "hdo/ombr_hdo_internal.h"

using namespace ombr::hdo;

namespace {

constexpr const char *kUnit = "ombr_hdo_api";

uint32_t out(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::fail(status, kUnit, where);
}

// Steps 1 and 2 of the form: the init test if the function needs it, then
// the required arguments.
uint32_t precheck(bool needs_init, std::initializer_list<bool> present) {
    if (needs_init && !initialized()) return kNotInitialized;
    for (bool p : present)
        if (!p) return kInvalidArg;
    return 0;
}

constexpr bool kInit = true;
constexpr bool kNoInit = false;

// A handle's checks in the order of the form: the required arguments, then
// the handle's magic.
uint32_t check_handle(const hdo_value_handle *handle, std::initializer_list<bool> present = {}) {
    if (uint32_t status = precheck(kNoInit, present)) return status;
    if (!handle) return kInvalidArg;
    return handle->magic == kHandleMagic ? 0 : kBadMagic;
}

// A value handle's memory is had before anything changes; if no handle is
// wanted, nothing is allocated.
class PendingHandle {
   public:
    explicit PendingHandle(ombr_hdo_value_t *wanted) : wanted_(wanted) {
        if (wanted_) handle_ = _hdo_valuehandle_alloc();
    }
    ~PendingHandle() { ombr_memory_free(handle_); }
    PendingHandle(const PendingHandle &) = delete;
    PendingHandle &operator=(const PendingHandle &) = delete;
    bool failed() const { return wanted_ && !handle_; }
    // Binds the handle to node and value and hands it out, if wanted.
    void give(hdo_node *node, hdo_value *value) {
        if (!wanted_) return;
        _hdo_valuehandle_bind(handle_, node, value);
        *wanted_ = handle_;
        handle_ = nullptr;
    }

   private:
    ombr_hdo_value_t *wanted_;
    hdo_value_handle *handle_ = nullptr;
};

// Holds a reference on a node for the length of a call whose work may take
// the last one away from under the caller's feet (a child leaving the
// tree), and releases it once no lock is held.
class TreeHold {
   public:
    explicit TreeHold(hdo_node *node) : node_(node) { _ombr_hdo_addref(node_); }
    ~TreeHold() { _ombr_hdo_release(node_); }
    TreeHold(const TreeHold &) = delete;
    TreeHold &operator=(const TreeHold &) = delete;

   private:
    hdo_node *node_;
};

// The new-value family: a handle, if wanted, is had first; the node's lock
// is held around the creation.
template <typename Create>
uint32_t new_value(hdo_node *node, const char *name, ombr_hdo_value_t *out_handle, Create &&create) {
    if (uint32_t status = precheck(kInit, {node != nullptr, name != nullptr})) return status;
    PendingHandle handle(out_handle);
    if (handle.failed()) return node->magic == kNodeMagic ? kNoMemory : kBadMagic;
    return locked_call(node, [&]() -> uint32_t {
        hdo_value *value = nullptr;
        if (uint32_t status = create(&value)) return status;
        handle.give(node, value);
        return 0;
    });
}

}  // namespace

// ---- Nodes ------------------------------------------------------------------------------

OMBR_API uint32_t ombr_hdo_create(ombr_hdo_t *out_node) {
    if (uint32_t status = precheck(kInit, {out_node != nullptr})) return out(status);
    hdo_node *node = nullptr;
    if (uint32_t status = _ombr_hdo_create(&node)) return out(status);
    *out_node = node;
    return 0;
}

OMBR_API uint32_t ombr_hdo_clear(ombr_hdo_t node) {
    if (!node) return 0;
    return out(locked_call(node, [&] { return _ombr_hdo_clear(node); }));
}

OMBR_API uint32_t ombr_hdo_addref(ombr_hdo_t node) {
    if (uint32_t status = precheck(kInit, {})) return out(status);
    if (!node) return 0;
    if (node->magic != kNodeMagic) return out(kBadMagic);
    return out(_ombr_hdo_addref(node));
}

OMBR_API uint32_t ombr_hdo_release(ombr_hdo_t node) {
    if (!node) return 0;
    if (node->magic != kNodeMagic) return out(kBadMagic);
    // The release may free the node and its lock: it locks for itself.
    return out(_ombr_hdo_release(node));
}

OMBR_API uint32_t ombr_hdo_set_flags(ombr_hdo_t node, uint32_t mask, uint32_t bits) {
    if (!node) return 0;
    return out(locked_call(node, [&] { return _ombr_hdo_set_flags(node, mask, bits); }));
}

OMBR_API uint32_t ombr_hdo_attribute_set(ombr_hdo_t node, const char *name, const char *text) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, name != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_attribute_set(node, name, text); }));
}

OMBR_API uint32_t ombr_hdo_attribute_get(ombr_hdo_t node, const char *name, const char **out_text) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, name != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_attribute_get(node, name, out_text); }));
}

OMBR_API uint32_t ombr_hdo_attribute_delete(ombr_hdo_t node, const char *name) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, name != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_attribute_delete(node, name); }));
}

OMBR_API uint32_t ombr_hdo_attribute_count(ombr_hdo_t node, uint32_t *out_count) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, out_count != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_attribute_count(node, out_count); }));
}

OMBR_API uint32_t ombr_hdo_attribute_enum(ombr_hdo_t node, uint32_t index, const char **out_name,
                                          const char **out_text) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_attribute_enum(node, index, out_name, out_text); }));
}

OMBR_API uint32_t ombr_hdo_attribute_clearall(ombr_hdo_t node) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_attribute_clearall(node); }));
}

// ---- Children -----------------------------------------------------------------------------

OMBR_API uint32_t ombr_hdo_child_set(ombr_hdo_t parent, const char *key, ombr_hdo_t child, uint32_t flags) {
    if (uint32_t status = precheck(kNoInit, {parent != nullptr, key != nullptr, child != nullptr}))
        return out(status);
    if (parent->magic != kNodeMagic || child->magic != kNodeMagic) return out(kBadMagic);
    if (!has(flags, OMBR_HDO_REPLACE))
        return out(locked_call(parent, [&] { return _ombr_hdo_child_set(parent, key, child, flags); }));
    // A replaced child leaves the tree; both trees stay held meanwhile.
    TreeHold parent_hold(parent), child_hold(child);
    return out(locked_call(parent, [&] { return _ombr_hdo_child_set(parent, key, child, flags); }));
}

OMBR_API uint32_t ombr_hdo_child_get(ombr_hdo_t node, const char *key, uint32_t ordinal, ombr_hdo_t *out_child) {
    if (uint32_t status = precheck(kInit, {node != nullptr, key != nullptr, out_child != nullptr}))
        return out(status);
    return out(locked_call(node, [&]() -> uint32_t {
        hdo_node *child = nullptr;
        if (uint32_t status = _ombr_hdo_child_get(node, key, ordinal, &child)) return status;
        _ombr_hdo_addref(child);
        *out_child = child;
        return 0;
    }));
}

OMBR_API uint32_t ombr_hdo_child_remove(ombr_hdo_t node, const char *key, uint32_t ordinal, ombr_hdo_t *out_child) {
    if (uint32_t status = precheck(kInit, {node != nullptr, key != nullptr})) return out(status);
    if (node->magic != kNodeMagic) return out(kBadMagic);
    TreeHold hold(node);
    return out(locked_call(node, [&]() -> uint32_t {
        hdo_node *child = nullptr;
        if (uint32_t status = _ombr_hdo_child_remove(node, key, ordinal, &child)) return status;
        if (out_child)
            *out_child = child;
        else
            _ombr_hdo_release(child);
        return 0;
    }));
}

OMBR_API uint32_t ombr_hdo_child_count(ombr_hdo_t node, const char *key, uint32_t *out_count) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, out_count != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_child_count(node, key, out_count); }));
}

OMBR_API uint32_t ombr_hdo_child_enum(ombr_hdo_t node, uint32_t index, const char **out_key, ombr_hdo_t *out_child) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr})) return out(status);
    return out(locked_call(node, [&]() -> uint32_t {
        const char *key = nullptr;
        hdo_node *child = nullptr;
        if (uint32_t status = _ombr_hdo_child_enum(node, index, &key, &child)) return status;
        if (out_key) *out_key = key;
        if (out_child) {
            _ombr_hdo_addref(child);
            *out_child = child;
        }
        return 0;
    }));
}

OMBR_API uint32_t ombr_hdo_child_detach(ombr_hdo_t child) {
    if (uint32_t status = precheck(kNoInit, {child != nullptr})) return out(status);
    if (child->magic != kNodeMagic) return out(kBadMagic);
    // Locks are taken parent first inside; the child's own lock is not held
    // around the call, which would reverse that order.
    return out(_ombr_hdo_child_detach(child));
}

OMBR_API uint32_t ombr_hdo_parent_get(ombr_hdo_t node, ombr_hdo_t *out_parent) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, out_parent != nullptr})) return out(status);
    hdo_node *parent = nullptr;
    if (uint32_t status = locked_call(node, [&] { return _ombr_hdo_parent_get(node, &parent); })) return out(status);
    // The parent's reference is added once the child's lock is left, so that
    // no child lock is ever held while a parent's is taken.
    _ombr_hdo_addref(parent);
    *out_parent = parent;
    return 0;
}

// ---- Values -------------------------------------------------------------------------------

OMBR_API uint32_t ombr_hdo_new_value(ombr_hdo_t node, const char *name, uint32_t flags, ombr_hdo_value_t *out_handle) {
    return out(new_value(node, name, out_handle,
                         [&](hdo_value **value) { return _ombr_hdo_new_value(node, name, flags, value); }));
}

OMBR_API uint32_t ombr_hdo_new_value_string(ombr_hdo_t node, const char *name, const char *text, uint32_t flags,
                                            ombr_hdo_value_t *out_handle) {
    return out(new_value(node, name, out_handle, [&](hdo_value **value) {
        return _ombr_hdo_new_value_string(node, name, text, flags, value);
    }));
}

OMBR_API uint32_t ombr_hdo_new_value_int(ombr_hdo_t node, const char *name, int32_t number, uint32_t flags,
                                         ombr_hdo_value_t *out_handle) {
    return out(new_value(node, name, out_handle, [&](hdo_value **value) {
        return _ombr_hdo_new_value_int(node, name, static_cast<uint32_t>(number), flags, value);
    }));
}

OMBR_API uint32_t ombr_hdo_new_value_uint(ombr_hdo_t node, const char *name, uint32_t number, uint32_t flags,
                                          ombr_hdo_value_t *out_handle) {
    return out(new_value(node, name, out_handle, [&](hdo_value **value) {
        return _ombr_hdo_new_value_int(node, name, number, flags, value);
    }));
}

OMBR_API uint32_t ombr_hdo_new_value_binary(ombr_hdo_t node, const char *name, const void *bytes, uint32_t size,
                                            uint32_t flags, ombr_hdo_value_t *out_handle) {
    return out(new_value(node, name, out_handle, [&](hdo_value **value) {
        return _ombr_hdo_new_value_binary(node, name, bytes, size, flags, value);
    }));
}

OMBR_API uint32_t ombr_hdo_new_value_pointer(ombr_hdo_t node, const char *name, void *pointer, uint32_t size,
                                             uint32_t flags, ombr_hdo_release_fn release,
                                             ombr_hdo_value_t *out_handle) {
    return out(new_value(node, name, out_handle, [&](hdo_value **value) {
        return _ombr_hdo_new_value_pointer(node, name, pointer, size, flags, release, value);
    }));
}

OMBR_API uint32_t ombr_hdo_value_set(ombr_hdo_t node, const char *key, ombr_hdo_value_t handle) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, key != nullptr, handle != nullptr})) return out(status);
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(locked_call(node, [&]() -> uint32_t {
        // Refused before the internal function, which would consume a
        // reference that the caller's handle still counts on.
        if (has(node->flags, OMBR_HDO_READONLY)) return kRefused;
        return _ombr_hdo_value_set(node, key, handle->value);
    }));
}

OMBR_API uint32_t ombr_hdo_value_get(ombr_hdo_t node, const char *name, uint32_t ordinal,
                                     ombr_hdo_value_t *out_handle) {
    if (uint32_t status = precheck(kInit, {node != nullptr})) return out(status);
    PendingHandle handle(out_handle);
    if (handle.failed()) return out(node->magic == kNodeMagic ? kNoMemory : kBadMagic);
    return out(locked_call(node, [&]() -> uint32_t {
        hdo_value *value = nullptr;
        if (uint32_t status = _ombr_hdo_value_get(node, name, ordinal, &value)) return status;
        handle.give(node, value);
        return 0;
    }));
}

OMBR_API uint32_t ombr_hdo_value_remove(ombr_hdo_t node, const char *name, uint32_t ordinal,
                                        ombr_hdo_value_t *out_handle) {
    if (uint32_t status = precheck(kInit, {node != nullptr, name != nullptr})) return out(status);
    PendingHandle handle(out_handle);
    if (handle.failed()) return out(node->magic == kNodeMagic ? kNoMemory : kBadMagic);
    return out(locked_call(node, [&]() -> uint32_t {
        hdo_value *value = nullptr;
        if (uint32_t status = _ombr_hdo_value_remove(node, name, ordinal, &value)) return status;
        // The table's reference goes to the handle, or is dropped.
        handle.give(node, value);
        _ombr_hdo_value_release(value);
        return 0;
    }));
}

OMBR_API uint32_t ombr_hdo_value_count(ombr_hdo_t node, const char *name, uint32_t *out_count) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr, out_count != nullptr})) return out(status);
    return out(locked_call(node, [&] { return _ombr_hdo_value_count(node, name, out_count); }));
}

OMBR_API uint32_t ombr_hdo_value_enum(ombr_hdo_t node, uint32_t index, const char **out_name,
                                      ombr_hdo_value_t *out_handle) {
    if (uint32_t status = precheck(kNoInit, {node != nullptr})) return out(status);
    PendingHandle handle(out_handle);
    if (handle.failed()) return out(node->magic == kNodeMagic ? kNoMemory : kBadMagic);
    return out(locked_call(node, [&]() -> uint32_t {
        hdo_value *value = nullptr;
        if (uint32_t status = _ombr_hdo_value_enum(node, index, &value)) return status;
        if (out_name) *out_name = value->name;
        handle.give(node, value);
        return 0;
    }));
}

OMBR_API uint32_t ombr_hdo_value_release(ombr_hdo_value_t handle) {
    if (!handle) return 0;
    if (handle->magic != kHandleMagic) return out(kBadMagic);
    hdo_node *node = handle->node;
    hdo_value *value = handle->value;
    handle->magic = 0;
    ombr_memory_free(handle);
    _ombr_hdo_release(node);
    return out(_ombr_hdo_value_release(value));
}

OMBR_API uint32_t ombr_hdo_value_setdata_string(ombr_hdo_value_t handle, const char *text) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_setdata_string(handle, text));
}

OMBR_API uint32_t ombr_hdo_value_setdata_int(ombr_hdo_value_t handle, int32_t number) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_setdata_int(handle, static_cast<uint32_t>(number)));
}

OMBR_API uint32_t ombr_hdo_value_setdata_uint(ombr_hdo_value_t handle, uint32_t number) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_setdata_int(handle, number));
}

OMBR_API uint32_t ombr_hdo_value_setdata_binary(ombr_hdo_value_t handle, const void *bytes, uint32_t size) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_setdata_binary(handle, bytes, size));
}

OMBR_API uint32_t ombr_hdo_value_setdata_pointer(ombr_hdo_value_t handle, void *pointer, uint32_t size,
                                                 ombr_hdo_release_fn release) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_setdata_pointer(handle, pointer, size, release));
}

OMBR_API uint32_t ombr_hdo_value_getdata_string(ombr_hdo_value_t handle, const char **out_text) {
    if (uint32_t status = check_handle(handle, {out_text != nullptr})) return out(status);
    return out(_ombr_hdo_value_getdata_string(handle, out_text));
}

OMBR_API uint32_t ombr_hdo_value_getdata_int(ombr_hdo_value_t handle, int32_t *out_number) {
    if (uint32_t status = check_handle(handle, {out_number != nullptr})) return out(status);
    return out(_ombr_hdo_value_getdata_int(handle, reinterpret_cast<uint32_t *>(out_number)));
}

OMBR_API uint32_t ombr_hdo_value_getdata_uint(ombr_hdo_value_t handle, uint32_t *out_number) {
    if (uint32_t status = check_handle(handle, {out_number != nullptr})) return out(status);
    return out(_ombr_hdo_value_getdata_int(handle, out_number));
}

OMBR_API uint32_t ombr_hdo_value_getdata_binary(ombr_hdo_value_t handle, const void **out_bytes, uint32_t *out_size) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_getdata_binary(handle, out_bytes, out_size));
}

OMBR_API uint32_t ombr_hdo_value_getdata_pointer(ombr_hdo_value_t handle, void **out_pointer, uint32_t *out_size) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_getdata_pointer(handle, out_pointer, out_size));
}

OMBR_API uint32_t ombr_hdo_value_getname(ombr_hdo_value_t handle, const char **out_name) {
    if (uint32_t status = check_handle(handle, {out_name != nullptr})) return out(status);
    *out_name = handle->value->name;
    return 0;
}

OMBR_API uint32_t ombr_hdo_value_gettype(ombr_hdo_value_t handle, uint32_t *out_type) {
    if (uint32_t status = check_handle(handle, {out_type != nullptr})) return out(status);
    *out_type = handle->value->type;
    return 0;
}

OMBR_API uint32_t ombr_hdo_value_attribute_set(ombr_hdo_value_t handle, const char *name, const char *text) {
    if (uint32_t status = check_handle(handle, {name != nullptr})) return out(status);
    return out(_ombr_hdo_value_attribute_set(handle->value, name, text));
}

OMBR_API uint32_t ombr_hdo_value_attribute_get(ombr_hdo_value_t handle, const char *name, const char **out_text) {
    if (uint32_t status = check_handle(handle, {name != nullptr})) return out(status);
    return out(_ombr_hdo_value_attribute_get(handle->value, name, out_text));
}

OMBR_API uint32_t ombr_hdo_value_attribute_delete(ombr_hdo_value_t handle, const char *name) {
    if (uint32_t status = check_handle(handle, {name != nullptr})) return out(status);
    return out(_ombr_hdo_value_attribute_delete(handle->value, name));
}

OMBR_API uint32_t ombr_hdo_value_attribute_count(ombr_hdo_value_t handle, uint32_t *out_count) {
    if (uint32_t status = check_handle(handle, {out_count != nullptr})) return out(status);
    return out(_ombr_hdo_value_attribute_count(handle->value, out_count));
}

OMBR_API uint32_t ombr_hdo_value_attribute_enum(ombr_hdo_value_t handle, uint32_t index, const char **out_name,
                                                const char **out_text) {
    if (uint32_t status = check_handle(handle)) return out(status);
    return out(_ombr_hdo_value_attribute_enum(handle->value, index, out_name, out_text));
}
