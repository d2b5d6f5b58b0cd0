// The records of the HDO package and the internal functions that its units
// share. Internal functions do the work without the public checks; they
// lock what they touch themselves, and locks are re-entrant.
#ifndef OMBR_HDO_INTERNAL_H
#define OMBR_HDO_INTERNAL_H

#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_hdo.h"
#include "platform/ombr_frame.h"

namespace ombr::hdo {

constexpr uint32_t kInvalidArg = OMBR_HDO_INVALID_ARG;
constexpr uint32_t kNoMemory = OMBR_HDO_NO_MEMORY;
constexpr uint32_t kNotInParent = OMBR_HDO_NOT_IN_PARENT;
constexpr uint32_t kNotFound = OMBR_HDO_NOT_FOUND;
constexpr uint32_t kRefused = OMBR_HDO_REFUSED;
constexpr uint32_t kNotInitialized = OMBR_HDO_NOT_INITIALIZED;
constexpr uint32_t kBufferTooSmall = OMBR_HDO_BUFFER_TOO_SMALL;
constexpr uint32_t kBadMagic = OMBR_HDO_BAD_MAGIC;
constexpr uint32_t kCorruptEntry = OMBR_HDO_CORRUPT_ENTRY;
constexpr uint32_t kWrongType = OMBR_HDO_WRONG_TYPE;
constexpr uint32_t kSharedNotFound = OMBR_HDO_SHARED_NOT_FOUND;
constexpr uint32_t kBadPath = OMBR_HDO_BAD_PATH;
constexpr uint32_t kLimit = OMBR_HDO_LIMIT;
constexpr uint32_t kMaxDepth = OMBR_HDO_MAX_DEPTH;

constexpr uint32_t kNodeMagic = 0xA12BCDEFu;
constexpr uint32_t kValueMagic = 0xABC12DEFu;
constexpr uint32_t kHandleMagic = 0xABCDE12Fu;

// Flag word of the children and values tables: several entries per key.
constexpr uint32_t kTableFlags = OMBR_HASHTABLE_MULTI_VALUE;
// Size tag stored with every child and value entry of an HDO table.
constexpr uint32_t kEntryTag = 0x48444F31u;
// End of a table read by position.
constexpr uint32_t kTableEnd = OMBR_DATATYPES_INDEX_RANGE;

// Not-found statuses of any package: low 16 bits 3, no failure bit.
constexpr bool is_not_found(uint32_t status) { return !OMBR_STATUS_FAILED(status) && OMBR_STATUS_VALUE(status) == 3; }
constexpr bool has(uint32_t word, uint32_t flag) { return (word & flag) != 0; }

}  // namespace ombr::hdo

struct hdo_value;

struct hdo_node {
    uint32_t magic;
    ombr_critsec_t lock;
    uint32_t ref_count;
    uint32_t *tree_ref;  // the tree counter, shared by all nodes of a tree
    ombr_stringmap_t attributes;
    ombr_hashtable_t values;
    ombr_hashtable_t children;
    uint32_t flags;
    uint32_t hidden_values;
    uint32_t hidden_children;
    hdo_node *parent;
};

struct hdo_value {
    uint32_t magic;
    ombr_critsec_t lock;
    int32_t ref_count;  // one for each table and each handle
    ombr_stringmap_t attributes;
    uint32_t type;
    const char *name;  // points behind the record
    uint32_t size;     // the number itself for OMBR_HDO_VALUE_INT
    void *data;
    uint32_t flags;
    ombr_hdo_release_fn release;
};

struct hdo_value_handle {
    uint32_t magic;
    hdo_node *node;
    hdo_value *value;
};

namespace ombr::hdo {

// Holds a node's or value's lock for a scope. A record without a lock is
// legal and gets a guard that does nothing.
class LockGuard {
   public:
    LockGuard() = default;
    explicit LockGuard(ombr_critsec_t lock) { acquire(lock); }
    ~LockGuard() { release(); }
    LockGuard(const LockGuard &) = delete;
    LockGuard &operator=(const LockGuard &) = delete;
    // Leaves what is held and enters `lock`; non-zero when entering failed.
    uint32_t acquire(ombr_critsec_t lock) {
        release();
        status_ = lock ? ombr_thread_critsec_enter(lock) : 0;
        lock_ = status_ == 0 ? lock : nullptr;
        return status_;
    }
    // Non-zero when entering failed: the scope must not touch the record.
    uint32_t status() const { return status_; }
    // Leaves early; the status of leaving.
    uint32_t release() {
        uint32_t status = lock_ ? ombr_thread_critsec_leave(lock_) : 0;
        lock_ = nullptr;
        return status;
    }

   private:
    ombr_critsec_t lock_ = nullptr;
    uint32_t status_ = 0;
};

bool initialized();

// The public form around the work on a node: the magic test, then the
// node's lock held around the work. A failure to leave the lock replaces
// the work's result.
template <typename Work>
uint32_t locked_call(hdo_node *node, Work &&work) {
    if (node->magic != kNodeMagic) return kBadMagic;
    LockGuard guard(node->lock);
    if (guard.status()) return guard.status();
    const uint32_t status = work();
    const uint32_t left = guard.release();
    return left ? left : status;
}

// Parent pointers are read without the child's lock on the way to a root,
// so they are written and read atomically.
inline hdo_node *parent_of(const hdo_node *node) { return __atomic_load_n(&node->parent, __ATOMIC_ACQUIRE); }
inline void set_parent(hdo_node *node, hdo_node *parent) { __atomic_store_n(&node->parent, parent, __ATOMIC_RELEASE); }

// Reads a table entry's pointer and checks its size tag and magic word.
uint32_t checked_node(void *entry, uint32_t size, hdo_node **out_node);
uint32_t checked_value(void *entry, uint32_t size, hdo_value **out_value);

}  // namespace ombr::hdo

// ---- Nodes (ombr_hdo_node) ----------------------------------------------------------
uint32_t _ombr_hdo_create(hdo_node **out_node);
uint32_t _ombr_hdo_clear(hdo_node *node);
uint32_t _ombr_hdo_addref(hdo_node *node);
uint32_t _ombr_hdo_release(hdo_node *node);
uint32_t _ombr_hdo_set_flags(hdo_node *node, uint32_t mask, uint32_t bits);
uint32_t _ombr_hdo_attribute_set(hdo_node *node, const char *name, const char *text);
uint32_t _ombr_hdo_attribute_get(hdo_node *node, const char *name, const char **out_text);
uint32_t _ombr_hdo_attribute_delete(hdo_node *node, const char *name);
uint32_t _ombr_hdo_attribute_count(hdo_node *node, uint32_t *out_count);
uint32_t _ombr_hdo_attribute_enum(hdo_node *node, uint32_t index, const char **out_name, const char **out_text);
uint32_t _ombr_hdo_attribute_clearall(hdo_node *node);
uint32_t _ombr_hdo_child_set(hdo_node *parent, const char *key, hdo_node *child, uint32_t flags);
uint32_t _ombr_hdo_child_get(hdo_node *node, const char *key, uint32_t ordinal, hdo_node **out_child);
uint32_t _ombr_hdo_child_remove(hdo_node *node, const char *key, uint32_t ordinal, hdo_node **out_child);
uint32_t _ombr_hdo_child_count(hdo_node *node, const char *key, uint32_t *out_count);
uint32_t _ombr_hdo_child_enum(hdo_node *node, uint32_t index, const char **out_key, hdo_node **out_child);
uint32_t _ombr_hdo_child_detach(hdo_node *child);
uint32_t _ombr_hdo_parent_get(hdo_node *node, hdo_node **out_parent);
uint32_t _hdo_deletenode(hdo_node *node);
extern "C" void _hdo_deletenode_callback(void *entry, uint32_t size);
// Count of nodes between the node and its root (0 for a root).
uint32_t _hdo_node_depth(const hdo_node *node);

// ---- Values (ombr_hdo_value) ------------------------------------------------------------
uint32_t _hdo_value_create(const char *name, hdo_value **out_value);
uint32_t _hdo_value_add(hdo_node *node, hdo_value *value, uint32_t flags);
uint32_t _ombr_hdo_value_addref(hdo_value *value);
uint32_t _ombr_hdo_value_release(hdo_value *value);
extern "C" void _hdo_value_release_callback(void *entry, uint32_t size);
void _hdo_value_clear(hdo_value *value);
uint32_t _ombr_hdo_new_value(hdo_node *node, const char *name, uint32_t flags, hdo_value **out_value);
uint32_t _ombr_hdo_new_value_string(hdo_node *node, const char *name, const char *text, uint32_t flags,
                                    hdo_value **out_value);
uint32_t _ombr_hdo_new_value_int(hdo_node *node, const char *name, uint32_t number, uint32_t flags,
                                 hdo_value **out_value);
uint32_t _ombr_hdo_new_value_binary(hdo_node *node, const char *name, const void *bytes, uint32_t size,
                                    uint32_t flags, hdo_value **out_value);
uint32_t _ombr_hdo_new_value_pointer(hdo_node *node, const char *name, void *pointer, uint32_t size, uint32_t flags,
                                     ombr_hdo_release_fn release, hdo_value **out_value);
uint32_t _ombr_hdo_value_set(hdo_node *node, const char *key, hdo_value *value);
uint32_t _ombr_hdo_value_get(hdo_node *node, const char *name, uint32_t ordinal, hdo_value **out_value);
uint32_t _ombr_hdo_value_remove(hdo_node *node, const char *name, uint32_t ordinal, hdo_value **out_value);
uint32_t _ombr_hdo_value_count(hdo_node *node, const char *name, uint32_t *out_count);
uint32_t _ombr_hdo_value_enum(hdo_node *node, uint32_t index, hdo_value **out_value);
uint32_t _ombr_hdo_valuehandle_create(hdo_node *node, hdo_value *value, hdo_value_handle **out_handle);
// A handle in two steps, so that its memory can be had before anything
// changes: allocate, then bind (which adds the node's and value's references).
hdo_value_handle *_hdo_valuehandle_alloc();
void _hdo_valuehandle_bind(hdo_value_handle *handle, hdo_node *node, hdo_value *value);
uint32_t _ombr_hdo_value_setdata_string(hdo_value_handle *handle, const char *text);
uint32_t _ombr_hdo_value_setdata_int(hdo_value_handle *handle, uint32_t number);
uint32_t _ombr_hdo_value_setdata_binary(hdo_value_handle *handle, const void *bytes, uint32_t size);
uint32_t _ombr_hdo_value_setdata_pointer(hdo_value_handle *handle, void *pointer, uint32_t size,
                                         ombr_hdo_release_fn release);
uint32_t _ombr_hdo_value_getdata_string(hdo_value_handle *handle, const char **out_text);
uint32_t _ombr_hdo_value_getdata_int(hdo_value_handle *handle, uint32_t *out_number);
uint32_t _ombr_hdo_value_getdata_binary(hdo_value_handle *handle, const void **out_bytes, uint32_t *out_size);
uint32_t _ombr_hdo_value_getdata_pointer(hdo_value_handle *handle, void **out_pointer, uint32_t *out_size);
uint32_t _hdo_value_newreference(hdo_value_handle *handle, hdo_value **out_value);
uint32_t _ombr_hdo_value_attribute_set(hdo_value *value, const char *name, const char *text);
uint32_t _ombr_hdo_value_attribute_get(hdo_value *value, const char *name, const char **out_text);
uint32_t _ombr_hdo_value_attribute_delete(hdo_value *value, const char *name);
uint32_t _ombr_hdo_value_attribute_count(hdo_value *value, uint32_t *out_count);
uint32_t _ombr_hdo_value_attribute_enum(hdo_value *value, uint32_t index, const char **out_name,
                                        const char **out_text);

// ---- Copy (ombr_hdo_copy) --------------------------------------------------------------
uint32_t _ombr_hdo_copy(hdo_node *source, hdo_node **out_node, uint8_t deep);
uint32_t _ombr_hdo_child_copy(hdo_node *source, hdo_node *target, uint8_t deep);

// ---- HPath (ombr_hdo_hpath) -------------------------------------------------------------
uint32_t _ombr_hdo_get_count_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t *out_count);
uint32_t _ombr_hdo_get_string_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t ordinal,
                                       const char **out_text);
uint32_t _ombr_hdo_get_value_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t ordinal,
                                      hdo_value **out_value);
uint32_t _ombr_hdo_get_child_by_hpath(hdo_node *node, const char *path, hdo_node *params, uint32_t ordinal,
                                      hdo_node **out_child);

#endif
