// HDO nodes: creation, the tree counter that keeps a whole tree alive as
// one, attributes, and attaching, finding and removing children.
//
// All nodes of a tree share one heap word, the tree counter, which holds
// the sum of their reference counts. A node's references move between
// counters under the node's own lock whenever it changes trees, so the
// counter is exact at every moment; whoever brings it to 0 deletes the
// tree from its root.
#include "hdo/ombr_hdo_internal.h"
#include "ombr/ombr_string.h"

using namespace ombr::hdo;

namespace {

constexpr const char *kUnit = "ombr_hdo_node";

uint32_t out(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::fail(status, kUnit, where);
}

// A node's references leave one counter and join another (either may be
// null). The caller holds the node's lock.
void move_references(const hdo_node *node, uint32_t *to, uint32_t *from) {
    if (node->ref_count == 0) return;
    if (to) ombr_atomic_add(to, node->ref_count);
    if (from) ombr_atomic_add(from, 0u - node->ref_count);
}

// Runs work(child) on each child of a node, by position, with the child's
// lock held inside the parent's (which the caller holds); stops at the
// first failure.
template <typename Work>
uint32_t for_each_child(hdo_node *node, Work &&work) {
    if (!node->children) return 0;
    uint32_t count = 0;
    if (uint32_t status = ombr_hashtable_count(node->children, &count)) return status;
    for (uint32_t position = 0; position < count; ++position) {
        void *entry = nullptr;
        uint32_t size = 0;
        uint32_t status = ombr_hashtable_value_get(node->children, position, nullptr, &entry, &size);
        if (status == kTableEnd) break;
        hdo_node *child = nullptr;
        if (status || (status = checked_node(entry, size, &child))) return status;
        LockGuard guard(child->lock);
        if ((status = guard.status()) || (status = work(child))) return status;
    }
    return 0;
}

// Gives the node and its descendants the counter `word`, moving each
// node's references over from `old_word`. The caller holds the node's lock;
// each child is locked inside its parent.
uint32_t _hdo_setchildnode_treeref(hdo_node *node, uint32_t *word, uint32_t *old_word) {
    node->tree_ref = word;
    move_references(node, word, old_word);
    return out(for_each_child(node, [&](hdo_node *child) { return _hdo_setchildnode_treeref(child, word, old_word); }));
}

// Levels below the node, counted up to `limit` + 1 at most. Locks each
// child inside its parent.
uint32_t node_height(hdo_node *node, uint32_t limit, uint32_t *out_height) {
    uint32_t height = 0;
    const uint32_t status = for_each_child(node, [&](hdo_node *child) -> uint32_t {
        if (height == 0) height = 1;
        if (limit == 0) return 0;
        uint32_t below = 0;
        if (uint32_t failed = node_height(child, limit - 1, &below)) return failed;
        if (below + 1 > height) height = below + 1;
        return 0;
    });
    *out_height = height;
    return status;
}

// Takes a child that has already left its parent's table out of the
// parent's tree: it becomes the root of a tree of its own, counted by
// `word` (allocated by the caller so that nothing can fail half way).
void _hdo_detach_node(hdo_node *child, uint32_t *word) {
    LockGuard guard(child->lock);
    hdo_node *parent = parent_of(child);
    if (!parent) {
        ombr_memory_free(word);
        return;
    }
    uint32_t *old_word = child->tree_ref;
    set_parent(child, nullptr);
    *word = 0;
    _hdo_setchildnode_treeref(child, word, old_word);
    if (has(child->flags, OMBR_HDO_HIDDEN) && parent->hidden_children > 0) parent->hidden_children -= 1;
}

uint32_t *new_counter_word() { return static_cast<uint32_t *>(ombr_memory_alloc(sizeof(uint32_t))); }

// Nodes whose deletion is pending on this thread, linked through `parent`.
// Deleting a tree frees its nodes one after the other instead of by
// recursion, so that no depth of tree can exhaust the stack.
thread_local hdo_node *t_pending = nullptr;
thread_local bool t_deleting = false;
// Marks a pending node that owns its tree counter (a root).
constexpr uint32_t kOwnsCounter = 0x80000000u;

uint32_t delete_one(hdo_node *node) {
    uint32_t status = 0;
    if (node->attributes) status = ombr_stringmap_delete(node->attributes);
    if (node->values) status = ombr_hashtable_delete(node->values);
    // Each child's deletion is queued by the table's callback.
    if (node->children) status = ombr_hashtable_delete(node->children);
    if (has(node->flags, kOwnsCounter)) ombr_memory_free(node->tree_ref);
    ombr_thread_critsec_delete(node->lock);
    node->magic = 0;
    ombr_memory_free(node);
    return status;
}

}  // namespace

uint32_t ombr::hdo::checked_node(void *entry, uint32_t size, hdo_node **out_node) {
    auto *node = static_cast<hdo_node *>(entry);
    if (size != kEntryTag || !node || node->magic != kNodeMagic) return kCorruptEntry;
    *out_node = node;
    return 0;
}

uint32_t ombr::hdo::count_entries(ombr_hashtable_t table, const char *name, uint32_t hidden, uint32_t *out_count) {
    uint32_t count = 0;
    if (table) {
        if (name && *name) {
            if (uint32_t status = ombr_hashtable_value_count(table, name, &count)) return status;
        } else {
            if (uint32_t status = ombr_hashtable_count(table, &count)) return status;
            count = count > hidden ? count - hidden : 0;
        }
    }
    *out_count = count;
    return 0;
}

uint32_t _hdo_node_depth(const hdo_node *node) {
    uint32_t depth = 0;
    for (const hdo_node *up = parent_of(node); up; up = parent_of(up)) ++depth;
    return depth;
}

uint32_t _hdo_deletenode(hdo_node *node) {
    // The counter word belongs to the root; children share it.
    node->flags = parent_of(node) ? node->flags & ~kOwnsCounter : node->flags | kOwnsCounter;
    if (t_deleting) {
        node->parent = t_pending;
        t_pending = node;
        return 0;
    }
    t_deleting = true;
    uint32_t status = delete_one(node);
    while (hdo_node *next = t_pending) {
        t_pending = next->parent;
        delete_one(next);
    }
    t_deleting = false;
    return out(status);
}

extern "C" void _hdo_deletenode_callback(void *entry, uint32_t size) {
    hdo_node *node = nullptr;
    if (checked_node(entry, size, &node) == 0) _hdo_deletenode(node);
}

uint32_t _ombr_hdo_create(hdo_node **out_node) {
    if (!out_node) return out(kInvalidArg);
    auto *node = static_cast<hdo_node *>(ombr_memory_alloc(sizeof(hdo_node)));
    if (!node) return out(kNoMemory);
    ombr_memory_memset(node, 0, sizeof *node);
    node->magic = kNodeMagic;
    if (uint32_t status = ombr_thread_critsec_create(&node->lock)) {
        ombr_memory_free(node);
        return out(status);
    }
    node->ref_count = 1;
    *out_node = node;
    return 0;
}

uint32_t _ombr_hdo_addref(hdo_node *node) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    node->ref_count += 1;
    if (node->tree_ref) ombr_atomic_inc(node->tree_ref, nullptr);
    return out(guard.release());
}

uint32_t _ombr_hdo_release(hdo_node *node) {
    uint32_t remaining = 0;
    decltype(node->tree_ref) tree_ref = nullptr;
    {
        LockGuard guard(node->lock);
        if (guard.status()) return out(guard.status());
        node->ref_count -= 1;
        remaining = node->ref_count;
        tree_ref = node->tree_ref;
        if (uint32_t status = guard.release()) return out(status);
    }
    // The tree's count goes down only once this node's lock is free: the
    // thread that takes it to 0 deletes every node with its lock, so no
    // other thread may still be inside one.
    if (tree_ref) ombr_atomic_dec(tree_ref, &remaining);
    if (remaining != 0) return 0;
    // No reference is left anywhere in the tree: delete it from its root.
    hdo_node *root = node;
    while (hdo_node *up = parent_of(root)) root = up;
    return out(_hdo_deletenode(root));
}

uint32_t _ombr_hdo_clear(hdo_node *node) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    uint32_t status = 0;
    if (node->values) status = ombr_hashtable_clear(node->values);
    if (status == 0 && node->children) status = ombr_hashtable_clear(node->children);
    if (status) return out(status);
    return out(guard.release());
}

uint32_t _ombr_hdo_set_flags(hdo_node *node, uint32_t mask, uint32_t bits) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    node->flags = (node->flags & ~mask) | (bits & mask);
    if (uint32_t status = for_each_child(node, [&](hdo_node *child) { return _ombr_hdo_set_flags(child, mask, bits); }))
        return out(status);
    return out(guard.release());
}

// ---- Attributes -----------------------------------------------------------------------

uint32_t _ombr_hdo_attribute_set(hdo_node *node, const char *name, const char *text) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->attributes) {
        if (uint32_t status = ombr_stringmap_create(&node->attributes, 0)) return out(status);
    }
    if (uint32_t status = ombr_stringmap_value_add(node->attributes, name, text)) return out(status);
    return out(guard.release());
}

uint32_t _ombr_hdo_attribute_get(hdo_node *node, const char *name, const char **out_text) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->attributes) return kNotFound;
    const char *text = nullptr;
    if (uint32_t status = ombr_stringmap_value_find(node->attributes, name, &text)) return out(status);
    if (out_text) *out_text = text;
    return out(guard.release());
}

uint32_t _ombr_hdo_attribute_delete(hdo_node *node, const char *name) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->attributes) return kNotFound;
    if (uint32_t status = ombr_stringmap_value_delete(node->attributes, name)) return out(status);
    return out(guard.release());
}

uint32_t _ombr_hdo_attribute_count(hdo_node *node, uint32_t *out_count) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    uint32_t count = 0;
    if (node->attributes) {
        if (uint32_t status = ombr_stringmap_count(node->attributes, &count)) return out(status);
    }
    *out_count = count;
    return out(guard.release());
}

uint32_t _ombr_hdo_attribute_enum(hdo_node *node, uint32_t index, const char **out_name, const char **out_text) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->attributes) return kNotFound;
    if (uint32_t status = ombr_stringmap_value_get(node->attributes, index, out_name, out_text)) return out(status);
    return out(guard.release());
}

uint32_t _ombr_hdo_attribute_clearall(hdo_node *node) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (node->attributes) {
        if (uint32_t status = ombr_stringmap_delete(node->attributes)) return out(status);
        node->attributes = nullptr;
    }
    return out(guard.release());
}

// ---- Children ------------------------------------------------------------------------------

uint32_t _ombr_hdo_child_set(hdo_node *parent, const char *key, hdo_node *child, uint32_t flags) {
    if (!parent || !child || parent == child) return out(kInvalidArg);
    LockGuard parent_guard(parent->lock);
    if (parent_guard.status()) return out(parent_guard.status());
    LockGuard child_guard(child->lock);
    if (child_guard.status()) return out(child_guard.status());
    uint32_t status = 0;

    // A replacing attach first takes the key's first child out of the tree.
    if (has(flags, OMBR_HDO_REPLACE) && parent->children) {
        uint32_t *word = new_counter_word();
        void *entry = nullptr;
        uint32_t size = 0;
        uint32_t removed = word ? ombr_hashtable_value_remove_ex(parent->children, key, 0, &entry, &size) : kNoMemory;
        hdo_node *old = nullptr;
        if (removed == 0) removed = checked_node(entry, size, &old);
        if (removed == 0) {
            _ombr_hdo_addref(old);
            _hdo_detach_node(old, word);
            _ombr_hdo_release(old);
        } else {
            ombr_memory_free(word);
            if (!is_not_found(removed)) status = removed;
        }
    }

    // A child that belongs to a tree stays there and a deep copy of it is
    // attached instead. The root of the parent's own tree counts as such a
    // child, since attaching it would close a cycle.
    hdo_node *attach = child;
    hdo_node *copy = nullptr;
    LockGuard copy_guard;
    if (parent_of(child) || (child->tree_ref && child->tree_ref == parent->tree_ref)) {
        if (uint32_t copied = _ombr_hdo_copy(child, &copy, 1)) return out(copied);
        child_guard.release();
        if (uint32_t locked = copy_guard.acquire(copy->lock)) {
            _ombr_hdo_release(copy);
            return out(locked);
        }
        attach = copy;
    }

    if (!parent->children && status == 0)
        status = ombr_hashtable_create(&parent->children, kTableFlags, _hdo_deletenode_callback);

    // No tree may nest deeper than kMaxDepth.
    if (status == 0) {
        const uint32_t depth = _hdo_node_depth(parent) + 1;
        uint32_t height = 0;
        status = depth > kMaxDepth ? kLimit : node_height(attach, kMaxDepth - depth, &height);
        if (status == 0 && depth + height > kMaxDepth) status = kLimit;
    }

    uint32_t *parent_word = parent->tree_ref;
    if (status == 0 && !parent_word && !(parent_word = new_counter_word())) status = kNoMemory;
    if (status == 0) status = ombr_hashtable_value_add(parent->children, key, attach, kEntryTag, 0);
    if (status == 0) {
        if (!parent->tree_ref) {
            ombr_atomic_set(parent_word, parent->ref_count);
            parent->tree_ref = parent_word;
        }
        uint32_t *old_word = attach->tree_ref;
        set_parent(attach, parent);
        _hdo_setchildnode_treeref(attach, parent_word, old_word);
        ombr_memory_free(old_word);
        attach->flags = flags;
        if (has(flags, OMBR_HDO_HIDDEN)) parent->hidden_children += 1;
    } else if (parent_word != parent->tree_ref) {
        ombr_memory_free(parent_word);
    }

    // The copy's creation reference goes: the tree owns it now (or, if it
    // could not be attached, it dies).
    if (copy) {
        copy_guard.release();
        _ombr_hdo_release(copy);
    }
    child_guard.release();
    if (status) return out(status);
    return out(parent_guard.release());
}

uint32_t _ombr_hdo_child_get(hdo_node *node, const char *key, uint32_t ordinal, hdo_node **out_child) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->children) return kNotFound;
    void *entry = nullptr;
    uint32_t size = 0;
    hdo_node *child = nullptr;
    uint32_t status = ombr_hashtable_value_find_ex(node->children, key, ordinal, &entry, &size);
    if (status || (status = checked_node(entry, size, &child))) return out(status);
    *out_child = child;
    return out(guard.release());
}

uint32_t _ombr_hdo_child_remove(hdo_node *node, const char *key, uint32_t ordinal, hdo_node **out_child) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->children) return kNotFound;
    uint32_t *word = new_counter_word();
    if (!word) return out(kNoMemory);
    void *entry = nullptr;
    uint32_t size = 0;
    hdo_node *child = nullptr;
    uint32_t status = ombr_hashtable_value_remove_ex(node->children, key, ordinal, &entry, &size);
    if (status || (status = checked_node(entry, size, &child))) {
        ombr_memory_free(word);
        return out(status);
    }
    _ombr_hdo_addref(child);
    _hdo_detach_node(child, word);
    if (out_child)
        *out_child = child;
    else
        _ombr_hdo_release(child);
    return out(guard.release());
}

uint32_t _ombr_hdo_child_count(hdo_node *node, const char *key, uint32_t *out_count) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (uint32_t status = count_entries(node->children, key, node->hidden_children, out_count)) return out(status);
    return out(guard.release());
}

uint32_t _ombr_hdo_child_enum(hdo_node *node, uint32_t index, const char **out_key, hdo_node **out_child) {
    LockGuard guard(node->lock);
    if (guard.status()) return out(guard.status());
    if (!node->children) return kNotFound;
    // index is a raw position; hidden children are stepped over forward.
    for (uint32_t position = index;; ++position) {
        const char *key = nullptr;
        void *entry = nullptr;
        uint32_t size = 0;
        uint32_t status = ombr_hashtable_value_get(node->children, position, &key, &entry, &size);
        if (status == kTableEnd) return kNotFound;
        hdo_node *child = nullptr;
        if (status == 0) status = checked_node(entry, size, &child);
        if (status) return out(status);
        if (has(child->flags, OMBR_HDO_HIDDEN)) continue;
        if (out_key) *out_key = key;
        if (out_child) *out_child = child;
        return out(guard.release());
    }
}

uint32_t _ombr_hdo_parent_get(hdo_node *node, hdo_node **out_parent) {
    hdo_node *parent = parent_of(node);
    if (!parent) return kNotFound;
    *out_parent = parent;
    return 0;
}

namespace {

// Where a child stands in its parent's table: its key, found by walking the
// visible children, then its ordinal under that key. The caller holds the
// parent's lock.
uint32_t locate_child(hdo_node *parent, const hdo_node *child, const char **out_key, uint32_t *out_ordinal) {
    uint32_t count = 0;
    if (uint32_t status = _ombr_hdo_child_count(parent, nullptr, &count)) return status;
    for (uint32_t index = 0; index < count; ++index) {
        const char *key = nullptr;
        hdo_node *found = nullptr;
        if (_ombr_hdo_child_enum(parent, index, &key, &found) != 0) break;
        if (found != child) continue;
        for (uint32_t ordinal = 0; ordinal < count; ++ordinal) {
            if (_ombr_hdo_child_get(parent, key, ordinal, &found) != 0) break;
            if (found != child) continue;
            *out_key = key;
            *out_ordinal = ordinal;
            return 0;
        }
        break;
    }
    return kNotInParent;
}

}  // namespace

uint32_t _ombr_hdo_child_detach(hdo_node *child) {
    hdo_node *parent = nullptr;
    uint32_t status = _ombr_hdo_parent_get(child, &parent);
    if (is_not_found(status)) return 0;
    if (status) return out(status);
    // The parent's tree must outlive the detach even if the caller holds
    // nothing in it but the child.
    if ((status = _ombr_hdo_addref(parent))) return out(status);
    {
        LockGuard guard(parent->lock);
        const char *key = nullptr;
        uint32_t ordinal = 0;
        status = guard.status();
        if (status == 0) status = locate_child(parent, child, &key, &ordinal);
        if (status == 0) status = _ombr_hdo_child_remove(parent, key, ordinal, nullptr);
    }
    _ombr_hdo_release(parent);
    return out(status);
}
