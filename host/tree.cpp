// The host's own result trees: what lookup providers hand back. A node holds
// a context name, values and tagged children; a result object onto a node
// goes through a small view record that adds the object's data flags and
// locale. Also here: interned locale handles and the readable dump of
// result objects.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "host_internal.h"
#include "zelto/zelto_host_services.h"

namespace {

// Bump allocator of one node: its values, children and their texts live
// here until the node is deleted, so texts handed out never move and a node
// costs a few allocations instead of several per value.
class Arena {
 public:
    Arena() = default;
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;
    ~Arena() {
        while (blocks_) {
            Block *next = blocks_->next;
            ::operator delete(blocks_);
            blocks_ = next;
        }
    }

    // `size` bytes aligned for pointers.
    void *allocate(size_t size) {
        size = (size + kAlign - 1) & ~(kAlign - 1);
        if (static_cast<size_t>(end_ - next_) < size) grow(size);
        void *p = next_;
        next_ += size;
        return p;
    }
    const char *copy(const char *text, size_t length) {
        auto *p = static_cast<char *>(allocate(length + 1));
        std::memcpy(p, text, length);
        p[length] = '\0';
        return p;
    }
    template <typename T>
    T *make() {
        return new (allocate(sizeof(T))) T{};
    }

 private:
    static constexpr size_t kAlign = alignof(void *);
    struct Block {
        Block *next;
    };
    static constexpr size_t kHeader = (sizeof(Block) + kAlign - 1) & ~(kAlign - 1);

    void grow(size_t size) {
        const size_t bytes = std::max(size + kHeader, block_size_);
        if (block_size_ < 16384) block_size_ *= 2;
        auto *block = static_cast<Block *>(::operator new(bytes));
        block->next = blocks_;
        blocks_ = block;
        next_ = reinterpret_cast<char *>(block) + kHeader;
        end_ = reinterpret_cast<char *>(block) + bytes;
    }

    alignas(kAlign) char inline_[480];
    char *next_ = inline_;
    char *end_ = inline_ + sizeof inline_;
    Block *blocks_ = nullptr;
    size_t block_size_ = 512;
};

// Values and children are singly linked in insertion order; the structs
// and their texts live in the node's arena.
struct Value {
    Value *next;
    const char *key;
    const char *text;
    const char *language;  // canonical code (a static text), null for none
    uint32_t required;
};

}  // namespace

struct zelto_manager_tree;

namespace {

struct Child {
    Child *next;
    std::string_view base;  // "zelto_ctx_track"
    const char *const *tags;  // "matching", "off", ...
    uint32_t tag_count;
    zelto_manager_tree *node;
};

template <typename T>
struct List {
    T *first = nullptr;
    T *last = nullptr;
    void append(T *item) {
        if (last)
            last->next = item;
        else
            first = item;
        last = item;
    }
};

}  // namespace

struct zelto_manager_tree {
    uint32_t magic = host::kTreeMagic;
    std::atomic<uint32_t> refs{1};
    // Parents holding this node as a child: a node that no other node holds
    // cannot lie below anything, which spares most cycle checks.
    std::atomic<uint32_t> parents{0};
    const char *context = nullptr;  // in the arena, fixed at creation
    mutable host::SpinLock lock;
    List<Value> values;
    List<Child> children;
    bool has_number = false;
    bool registered = true;  // in the handle registry (see tree_create_inner)
    uint32_t number = 0;
    zelto_manager_tree *next_doomed = nullptr;  // see tree_drop
    Arena arena;

    // Answers are built and dropped node by node, dozens per lookup: freed
    // nodes are kept for reuse (up to a bound) instead of going back to
    // the heap each time.
    static void *operator new(size_t size);
    static void operator delete(void *p) noexcept;
};

namespace {

struct FreeNode {
    FreeNode *next;
};
// None kept under AddressSanitizer, so that it still sees every node's
// use after free.
#if defined(__SANITIZE_ADDRESS__)
constexpr uint32_t kKeptNodes = 0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr uint32_t kKeptNodes = 0;
#else
constexpr uint32_t kKeptNodes = 1024;
#endif
#else
constexpr uint32_t kKeptNodes = 1024;
#endif
host::SpinLock g_free_lock;
FreeNode *g_free_nodes = nullptr;
uint32_t g_free_count = 0;

}  // namespace

void *zelto_manager_tree::operator new(size_t size) {
    {
        std::lock_guard<host::SpinLock> guard(g_free_lock);
        if (FreeNode *node = g_free_nodes) {
            g_free_nodes = node->next;
            --g_free_count;
            return node;
        }
    }
    return ::operator new(size);
}

void zelto_manager_tree::operator delete(void *p) noexcept {
    if (!p) return;
    {
        std::lock_guard<host::SpinLock> guard(g_free_lock);
        if (g_free_count < kKeptNodes) {
            auto *node = static_cast<FreeNode *>(p);
            node->next = g_free_nodes;
            g_free_nodes = node;
            ++g_free_count;
            return;
        }
    }
    ::operator delete(p);
}

namespace {

std::atomic<uint32_t> g_tree_live{0};

constexpr const char kCtxPrefix[] = ZELTO_CTX_PREFIX;
constexpr size_t kCtxPrefixLength = sizeof(kCtxPrefix) - 1;

bool live_tree(const zelto_manager_tree *tree) { return tree && host::handles_valid(tree, host::kTreeMagic); }

void tree_retain(zelto_manager_tree *tree) { ++tree->refs; }

// Drops one reference; the last one deletes the node and drops its
// children's, iteratively so that deep trees do not recurse: nodes whose
// last reference went wait on a stack linked through the nodes themselves.
void tree_drop(zelto_manager_tree *tree) {
    if (--tree->refs != 0) return;
    zelto_manager_tree *doomed = tree;
    while (doomed) {
        zelto_manager_tree *node = doomed;
        doomed = node->next_doomed;
        if (node->registered) host::handles_remove(node);
        for (Child *child = node->children.first; child; child = child->next) {
            --child->node->parents;
            if (--child->node->refs == 0) {
                child->node->next_doomed = doomed;
                doomed = child->node;
            }
        }
        delete node;
        --g_tree_live;
    }
}

// Compared in line, byte by byte: every key added or read passes here,
// and the prefixes are short. A shorter text differs at its terminator.
template <size_t N>
bool starts_with(const char *text, const char (&prefix)[N]) {
    for (size_t i = 0; i + 1 < N; ++i)
        if (text[i] != prefix[i]) return false;
    return true;
}

bool is_value_key(const char *key) {
    static constexpr char kVal[] = ZELTO_VAL_PREFIX;
    static constexpr char kSdk[] = ZELTO_SDKMGR_VAL_PREFIX;
    return starts_with(key, kVal) || starts_with(key, kSdk);
}

// Splits "zelto_ctx_track!matching" into base and selector. A child key must
// begin with "zelto_ctx_", have a name, and contain the "!".
bool split_child_key(const char *key, std::string_view *base, std::string_view *selector, bool bang_required) {
    if (!starts_with(key, kCtxPrefix)) return false;
    const char *bang = std::strchr(key, '!');
    if (!bang) {
        if (bang_required) return false;
        bang = key + std::strlen(key);
    }
    if (bang == key + kCtxPrefixLength) return false;
    *base = std::string_view(key, static_cast<size_t>(bang - key));
    *selector = *bang ? std::string_view(bang + 1) : std::string_view();
    return true;
}

// ---- Locales ------------------------------------------------------------------

struct Locale {
    uint32_t magic = 0x10CA1E00u;
    std::string language;
};

std::mutex g_locale_mutex;
std::map<std::string, Locale *> &locales() {
    static auto *m = new std::map<std::string, Locale *>;
    return *m;
}

// The language of a locale handle, or null for one the host did not make.
const std::string *locale_language(zelto_locale_handle handle) {
    if (!handle) return nullptr;
    std::lock_guard<std::mutex> guard(g_locale_mutex);
    for (auto &entry : locales())
        if (entry.second == handle) return &entry.second->language;
    return nullptr;
}

// ---- Views: the records behind tree objects --------------------------------------

struct View {
    zelto_manager_tree *node;
    uint32_t flags;
    std::atomic<zelto_locale_handle> locale;
};

extern const zelto_rvo_provider g_provider;

View *make_view(zelto_manager_tree *node, uint32_t flags, zelto_locale_handle locale) {
    tree_retain(node);
    auto *view = new View{node, flags, {}};
    view->locale.store(locale);
    return view;
}

// The values of a key that a view sees, in order: those its data flags
// allow, narrowed to the view's language, else to those without one, when
// any match. `visit` gets each in turn and may stop the walk by returning
// false. Returns the number seen, and sets *withheld when the key has values
// that the flags hide all of. Caller holds the lock.
template <typename Visit>
uint32_t visible_values(const View *view, const char *key, bool *withheld, Visit visit) {
    const zelto_manager_tree *node = view->node;
    uint32_t any = 0, allowed = 0, in_language = 0, plain = 0;
    const std::string *language = nullptr;
    const zelto_locale_handle locale = view->locale.load();
    if (locale) language = locale_language(locale);
    auto allows = [&](const Value *value) { return (view->flags & value->required) == value->required; };
    auto speaks = [&](const Value *value) { return value->language && *language == value->language; };
    for (const Value *value = node->values.first; value; value = value->next) {
        if (std::strcmp(value->key, key) != 0) continue;
        ++any;
        if (!allows(value)) continue;
        ++allowed;
        if (!value->language)
            ++plain;
        else if (language && speaks(value))
            ++in_language;
    }
    *withheld = any != 0 && allowed == 0;
    if (allowed == 0) return 0;
    enum class Pick { by_language, without_language, all };
    const Pick pick = in_language ? Pick::by_language : plain ? Pick::without_language : Pick::all;
    for (const Value *value = node->values.first; value; value = value->next) {
        if (std::strcmp(value->key, key) != 0 || !allows(value)) continue;
        if (pick == Pick::by_language && !speaks(value)) continue;
        if (pick == Pick::without_language && value->language) continue;
        if (!visit(value)) break;
    }
    return pick == Pick::by_language ? in_language : pick == Pick::without_language ? plain : allowed;
}

bool has_tag(const Child &child, std::string_view tag) {
    for (uint32_t i = 0; i < child.tag_count; ++i)
        if (child.tags[i] == tag) return true;
    return false;
}

// Number of a node for "!number": explicit, else "zelto_val_<name>number".
bool node_number(zelto_manager_tree *node, std::string_view base, uint32_t *out) {
    std::lock_guard<host::SpinLock> guard(node->lock);
    if (node->has_number) {
        *out = node->number;
        return true;
    }
    std::string key = ZELTO_VAL_PREFIX;
    key.append(base.substr(kCtxPrefixLength));
    key += "number";
    for (const Value *value = node->values.first; value; value = value->next) {
        if (key != value->key) continue;
        const std::string_view text = value->text;
        if (text.empty() || text.size() > 10) return false;
        uint64_t n = 0;
        for (char c : text) {
            if (c < '0' || c > '9') return false;
            n = n * 10 + static_cast<uint64_t>(c - '0');
        }
        if (n > 0xFFFFFFFFu) return false;
        *out = static_cast<uint32_t>(n);
        return true;
    }
    return false;
}

// The children that a key selects, in order, handed to `visit` with their
// number for "!number" (0 otherwise) until it returns false. Returns the
// number visited (all of them when `visit` never stops). Caller holds the node's lock.
template <typename Visit>
uint32_t select_children(zelto_manager_tree *node, std::string_view base, std::string_view selector, Visit visit) {
    uint32_t seen = 0;
    if (selector == "number") {
        for (const Child *child = node->children.first; child; child = child->next) {
            uint32_t n = 0;
            if (child->base != base || !node_number(child->node, base, &n)) continue;
            ++seen;
            if (!visit(child->node, n)) break;
        }
        return seen;
    }
    for (const Child *child = node->children.first; child; child = child->next) {
        if (child->base != base || !(selector.empty() || has_tag(*child, selector))) continue;
        ++seen;
        if (!visit(child->node, 0u)) return seen;
    }
    if (seen == 0 && selector == "off") {
        // A base with no child tagged official: its first child stands for it.
        for (const Child *child = node->children.first; child; child = child->next) {
            if (child->base == base) {
                visit(child->node, 0u);
                return 1;
            }
        }
    }
    return seen;
}

// ---- Provider slots ------------------------------------------------------------

uint32_t tp_get_context(void *record, const char **out_context) {
    auto *view = static_cast<View *>(record);
    if (!view || !out_context) return ZELTO_RVO_BAD_ARG;
    *out_context = view->node->context;  // fixed at creation
    return 0;
}

uint32_t tp_get_value_count(void *record, const char *key, uint32_t *out_count) {
    auto *view = static_cast<View *>(record);
    if (!view || !key || !out_count || !is_value_key(key)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<host::SpinLock> guard(view->node->lock);
    bool withheld = false;
    *out_count = visible_values(view, key, &withheld, [](const Value *) { return true; });
    return 0;
}

// The ordinal-th of the values visible_values would visit, found in one
// walk: the ordinal-th of each of its three picks is noted on the way and
// the pick chosen at the end. Caller holds the lock.
const Value *nth_visible_value(const View *view, const char *key, uint32_t ordinal, bool *withheld) {
    const std::string *language = nullptr;
    if (const zelto_locale_handle locale = view->locale.load()) language = locale_language(locale);
    uint32_t any = 0, allowed = 0, in_language = 0, plain = 0;
    const Value *nth_allowed = nullptr, *nth_in_language = nullptr, *nth_plain = nullptr;
    for (const Value *value = view->node->values.first; value; value = value->next) {
        if (std::strcmp(value->key, key) != 0) continue;
        ++any;
        if ((view->flags & value->required) != value->required) continue;
        if (++allowed == ordinal) nth_allowed = value;
        if (!value->language) {
            if (++plain == ordinal) nth_plain = value;
        } else if (language && *language == value->language) {
            if (++in_language == ordinal) nth_in_language = value;
        }
    }
    *withheld = any != 0 && allowed == 0;
    return in_language ? nth_in_language : plain ? nth_plain : nth_allowed;
}

uint32_t tp_get_value(void *record, const char *key, uint32_t ordinal, const char **out_value) {
    auto *view = static_cast<View *>(record);
    if (!view || !key || !out_value || !is_value_key(key)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<host::SpinLock> guard(view->node->lock);
    bool withheld = false;
    const Value *found = nth_visible_value(view, key, ordinal, &withheld);  // none for ordinal 0
    if (withheld) return ZELTO_RVO_WITHHELD;
    if (!found) return ZELTO_RVO_NOT_FOUND;
    *out_value = found->text;
    return 0;
}

uint32_t tp_get_child_count(void *record, const char *key, uint32_t *out_count) {
    auto *view = static_cast<View *>(record);
    std::string_view base, selector;
    if (!view || !key || !out_count || !split_child_key(key, &base, &selector, true)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<host::SpinLock> guard(view->node->lock);
    *out_count = select_children(view->node, base, selector, [](zelto_manager_tree *, uint32_t) { return true; });
    return 0;
}

uint32_t tp_get_child(void *record, const char *key, uint32_t ordinal, uint8_t /*flag*/, void **out_child,
                      const zelto_rvo_provider **out_provider) {
    auto *view = static_cast<View *>(record);
    std::string_view base, selector;
    if (!view || !key || !out_child || !out_provider || !split_child_key(key, &base, &selector, true))
        return ZELTO_RVO_BAD_ARG;
    if (ordinal == 0) return ZELTO_RVO_NOT_FOUND;
    zelto_manager_tree *found = nullptr;
    {
        std::lock_guard<host::SpinLock> guard(view->node->lock);
        // "!number" picks the child numbered `ordinal`, any other selector
        // the ordinal-th child.
        const bool by_number = selector == "number";
        uint32_t seen = 0;
        select_children(view->node, base, selector, [&](zelto_manager_tree *node, uint32_t number) {
            if (by_number ? number != ordinal : ++seen != ordinal) return true;
            found = node;
            return false;
        });
        if (!found) return ZELTO_RVO_NOT_FOUND;
        *out_child = make_view(found, view->flags, view->locale.load());
    }
    *out_provider = &g_provider;
    return 0;
}

// Keys of a node's values in the order of their first appearance. Caller
// holds the lock.
std::vector<const char *> value_keys(const zelto_manager_tree *node) {
    std::vector<const char *> keys;
    for (const Value *value = node->values.first; value; value = value->next) {
        bool seen = false;
        for (const char *k : keys) seen = seen || std::strcmp(k, value->key) == 0;
        if (!seen) keys.push_back(value->key);
    }
    return keys;
}

// Enumerates the visible values of all keys, in the order of their keys'
// first appearance: the index-th gives the key as name and the text.
uint32_t tp_render_value(void *record, uint32_t index, const char **out_name, const char **out_value) {
    auto *view = static_cast<View *>(record);
    if (!view || !out_name || !out_value) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<host::SpinLock> guard(view->node->lock);
    uint32_t n = 0;
    const Value *found = nullptr;
    for (const char *k : value_keys(view->node)) {
        bool withheld = false;
        visible_values(view, k, &withheld, [&](const Value *value) {
            if (n++ != index) return true;
            found = value;
            return false;
        });
        if (found) {
            *out_name = found->key;
            *out_value = found->text;
            return 0;
        }
    }
    return ZELTO_RVO_NOT_FOUND;
}

uint32_t tp_set_locale(void *record, zelto_locale_handle locale) {
    auto *view = static_cast<View *>(record);
    if (!view) return ZELTO_RVO_BAD_ARG;
    if (locale && !locale_language(locale)) return ZELTO_RVO_BAD_ARG;
    view->locale.store(locale);
    return 0;
}

uint32_t tp_get_locale(void *record, zelto_locale_handle *out_locale) {
    auto *view = static_cast<View *>(record);
    if (!view || !out_locale) return ZELTO_RVO_BAD_ARG;
    *out_locale = view->locale.load();
    return 0;
}

uint32_t tp_release(void *record) {
    auto *view = static_cast<View *>(record);
    if (!view) return 0;
    tree_drop(view->node);
    delete view;
    return 0;
}

const zelto_rvo_provider g_provider = {
    .reserved0 = nullptr,
    .get_context = tp_get_context,
    .get_child_count = tp_get_child_count,
    .get_child = tp_get_child,
    .get_value_count = tp_get_value_count,
    .get_value = tp_get_value,
    .reserved6 = nullptr,
    .render_value = tp_render_value,
    .set_locale = tp_set_locale,
    .get_locale = tp_get_locale,
    .release = tp_release,
};

// True if `target` is `root` or lies below it. A target that no node
// holds as a child lies below nothing.
bool reaches(zelto_manager_tree *root, const zelto_manager_tree *target) {
    if (root == target) return true;
    if (target->parents.load() == 0) return false;
    std::vector<zelto_manager_tree *> pending{root};
    while (!pending.empty()) {
        zelto_manager_tree *node = pending.back();
        pending.pop_back();
        if (node == target) return true;
        std::lock_guard<host::SpinLock> guard(node->lock);
        for (const Child *child = node->children.first; child; child = child->next) pending.push_back(child->node);
    }
    return false;
}

// ---- Dump ------------------------------------------------------------------------

}  // namespace

void host::append_quoted(std::string &out, const char *text) {
    out += '"';
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(text); *p; ++p) {
        switch (*p) {
            case '\\': out += "\\\\"; break;
            case '"': out += "\\\""; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            default:
                if (*p < 0x20 || *p == 0x7F) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\x%02X", *p);
                    out += buf;
                } else {
                    out += static_cast<char>(*p);
                }
        }
    }
    out += '"';
}

namespace {

// Foreign providers may serve endless chains of children; the dump stops there.
constexpr int kMaxDepth = 64;

struct Dumper {
    const char *const *value_keys;
    const char *const *child_keys;
    std::string out;
    uint32_t failure = 0;  // the first read that failed; the dump then stops

    // A read that worked. Soft statuses (nothing under the key, withheld)
    // and "no such key here" (error value 0x000B in any package) are
    // skipped; any other failure ends the dump with that status.
    bool ok(uint32_t status) {
        if (status == 0) return true;
        if ((status & 0x80000000u) != 0 && (status & 0xFFFFu) != 0x000Bu && failure == 0) failure = status;
        return false;
    }

    void line(int depth, const std::string &text) {
        out.append(static_cast<size_t>(depth) * 2, ' ');
        out += text;
        out += '\n';
    }

    void values(zelto_rvo_handle object, const char *key, int depth) {
        uint32_t count = 0;
        if (!ok(zelto_manager_rvo_value_count(object, key, &count))) return;
        for (uint32_t i = 1; i <= count && failure == 0; ++i) {
            const char *text = nullptr;
            if (!ok(zelto_manager_rvo_value_get(object, key, i, &text)) || !text) continue;
            std::string l = key;
            l += " = ";
            host::append_quoted(l, text);
            line(depth, l);
        }
    }

    void children(zelto_rvo_handle object, const char *key, int depth, const std::vector<std::string> *tags) {
        uint32_t count = 0;
        if (!ok(zelto_manager_rvo_child_count(object, key, &count))) return;
        for (uint32_t i = 1; i <= count && failure == 0; ++i) {
            zelto_rvo_handle child = nullptr;
            if (!ok(zelto_manager_rvo_child_get(object, key, i, 1, &child))) continue;
            std::string l = key;
            l += ' ';
            l += std::to_string(i);
            if (tags && i - 1 < tags->size() && !(*tags)[i - 1].empty()) l += " {" + (*tags)[i - 1] + "}";
            line(depth, l);
            walk(child, depth + 1);
            zelto_manager_rvo_release(child);
        }
    }

    void walk(zelto_rvo_handle object, int depth) {
        if (depth > kMaxDepth) {
            line(depth, "...");
            return;
        }
        const char *context = nullptr;
        uint32_t status = zelto_manager_rvo_get_context(object, &context);
        const bool read = ok(status);
        if (failure != 0) return;
        if (read && context) {
            line(depth, context);
        } else {
            char buf[48];
            std::snprintf(buf, sizeof buf, "(no context: 0x%08X)", status);
            line(depth, buf);
        }
        void *record = nullptr;
        const zelto_rvo_provider *provider = nullptr;
        if (host::rvo_inner(object, &record, &provider) && provider == &g_provider) {
            walk_tree(object, static_cast<View *>(record)->node, depth);
            return;
        }
        for (const char *const *k = value_keys; k && *k; ++k) values(object, *k, depth + 1);
        for (const char *const *k = child_keys; k && *k; ++k) children(object, *k, depth + 1, nullptr);
    }

    // Keys of a node in the order of first appearance, with the tags of its
    // children, read under the lock; the walk itself goes through the
    // result-object service so that flags and locale apply.
    void walk_tree(zelto_rvo_handle object, zelto_manager_tree *node, int depth) {
        std::vector<std::string> keys;
        std::vector<std::pair<std::string, std::vector<std::string>>> bases;
        {
            std::lock_guard<host::SpinLock> guard(node->lock);
            for (const Value *value = node->values.first; value; value = value->next) {
                bool seen = false;
                for (auto &k : keys) seen = seen || k == value->key;
                if (!seen) keys.push_back(value->key);
            }
            for (const Child *child = node->children.first; child; child = child->next) {
                std::string joined;
                for (uint32_t i = 0; i < child->tag_count; ++i) {
                    if (i) joined += ',';
                    joined += child->tags[i];
                }
                auto it = bases.begin();
                while (it != bases.end() && it->first != child->base) ++it;
                if (it == bases.end()) {
                    bases.push_back({std::string(child->base), {}});
                    it = bases.end() - 1;
                }
                it->second.push_back(joined);
            }
        }
        for (auto &k : keys) values(object, k.c_str(), depth + 1);
        for (auto &b : bases) children(object, (b.first + "!").c_str(), depth + 1, &b.second);
    }
};

char *to_c_text(const std::string &text) {
    auto *out = static_cast<char *>(std::malloc(text.size() + 1));
    if (out) std::memcpy(out, text.c_str(), text.size() + 1);
    return out;
}

}  // namespace

// ---- Locales API ---------------------------------------------------------------------

HOST_EXPORT uint32_t zelto_manager_locale_get(const char *language, zelto_locale_handle *out_locale) {
    if (!language || !out_locale) return ZELTO_LISTS_BAD_ARG;
    const char *code = host::language_canonical(language);
    if (!code) return ZELTO_LISTS_UNKNOWN;
    std::lock_guard<std::mutex> guard(g_locale_mutex);
    Locale *&locale = locales()[code];
    if (!locale) {
        locale = new Locale;
        locale->language = code;
    }
    *out_locale = locale;
    return 0;
}

HOST_EXPORT const char *zelto_manager_locale_language(zelto_locale_handle locale) {
    const std::string *language = locale_language(locale);
    return language ? language->c_str() : nullptr;
}

// ---- Tree API ---------------------------------------------------------------------------

namespace {

// A new node of `context`, copied into its arena or, for a constant, kept;
// in the handle registry unless it is an inner node.
uint32_t create_tree(const char *context, bool constant, bool registered, zelto_manager_tree **out_tree) {
    if (!context || !*context || !out_tree) return ZELTO_RVO_BAD_ARG;
    auto *tree = new zelto_manager_tree;
    tree->context = constant ? context : tree->arena.copy(context, std::strlen(context));
    tree->registered = registered;
    if (registered) host::handles_add(tree, host::kTreeMagic);
    ++g_tree_live;
    *out_tree = tree;
    return 0;
}

}  // namespace

HOST_EXPORT uint32_t zelto_manager_tree_create(const char *context, zelto_manager_tree **out_tree) {
    return create_tree(context, false, true, out_tree);
}

uint32_t host::tree_create_constant(const char *context, zelto_manager_tree **out_tree) {
    return create_tree(context, true, true, out_tree);
}

uint32_t host::tree_create_inner(const char *context, zelto_manager_tree **out_tree) {
    return create_tree(context, true, false, out_tree);
}

HOST_EXPORT uint32_t zelto_manager_tree_addref(zelto_manager_tree *tree) {
    if (!live_tree(tree)) return ZELTO_RVO_BAD_ARG;
    tree_retain(tree);
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_tree_release(zelto_manager_tree *tree) {
    if (!tree) return 0;
    if (!live_tree(tree)) return ZELTO_RVO_BAD_ARG;
    tree_drop(tree);
    return 0;
}

void host::tree_release_held(zelto_manager_tree *tree) {
    if (tree) tree_drop(tree);
}

namespace {

// Appends a value; a constant key is kept, any other copied.
uint32_t add_value(zelto_manager_tree *tree, const char *key, bool constant_key, const char *text, size_t text_length,
                   const char *language, uint32_t required_flags) {
    if (!key || !text || !is_value_key(key)) return ZELTO_RVO_BAD_ARG;
    const char *code = nullptr;
    if (language && !(code = host::language_canonical(language))) return ZELTO_LISTS_UNKNOWN;
    std::lock_guard<host::SpinLock> guard(tree->lock);
    auto *value = tree->arena.make<Value>();
    value->key = constant_key ? key : tree->arena.copy(key, std::strlen(key));
    value->text = tree->arena.copy(text, text_length);
    value->language = code;
    value->required = required_flags;
    tree->values.append(value);
    return 0;
}

// Appends a child under `key`; a constant key's name and single tag are
// kept as they stand in it (the tag ends the key), any other copied.
uint32_t add_child(zelto_manager_tree *tree, const char *key, bool constant_key, zelto_manager_tree *child) {
    std::string_view base, selector;
    if (!key || !split_child_key(key, &base, &selector, false)) return ZELTO_RVO_BAD_ARG;
    // The selector's tags, comma separated; none may be empty or "number".
    auto each_tag = [&](auto visit) {
        size_t start = 0;
        while (start < selector.size()) {
            size_t comma = selector.find(',', start);
            if (comma == std::string_view::npos) comma = selector.size();
            visit(selector.substr(start, comma - start));
            start = comma + 1;
        }
    };
    uint32_t tag_count = 0;
    bool bad_tag = !selector.empty() && selector.back() == ',';
    each_tag([&](std::string_view tag) {
        bad_tag = bad_tag || tag.empty() || tag == "number";
        ++tag_count;
    });
    if (bad_tag) return ZELTO_RVO_BAD_ARG;
    if (reaches(child, tree)) return ZELTO_RVO_BAD_ARG;
    tree_retain(child);
    ++child->parents;
    std::lock_guard<host::SpinLock> guard(tree->lock);
    Arena &arena = tree->arena;
    auto *entry = arena.make<Child>();
    entry->base = constant_key ? base : std::string_view(arena.copy(base.data(), base.size()), base.size());
    if (tag_count) {
        auto *texts = static_cast<const char **>(arena.allocate(tag_count * sizeof(const char *)));
        if (constant_key && tag_count == 1)
            texts[entry->tag_count++] = selector.data();
        else
            each_tag([&](std::string_view tag) { texts[entry->tag_count++] = arena.copy(tag.data(), tag.size()); });
        entry->tags = texts;
    }
    entry->node = child;
    tree->children.append(entry);
    return 0;
}

}  // namespace

uint32_t host::tree_add_value(zelto_manager_tree *tree, const char *key, const char *text, const char *language,
                              uint32_t required_flags) {
    return add_value(tree, key, false, text, text ? std::strlen(text) : 0, language, required_flags);
}

uint32_t host::tree_add_constant_value(zelto_manager_tree *tree, const char *key, const char *text, size_t length) {
    return add_value(tree, key, true, text, length, nullptr, 0);
}

uint32_t host::tree_add_child(zelto_manager_tree *tree, const char *key, zelto_manager_tree *child) {
    return add_child(tree, key, false, child);
}

uint32_t host::tree_add_constant_child(zelto_manager_tree *tree, const char *key, zelto_manager_tree *child) {
    return add_child(tree, key, true, child);
}

HOST_EXPORT uint32_t zelto_manager_tree_add_value_ex(zelto_manager_tree *tree, const char *key, const char *text,
                                                     const char *language, uint32_t required_flags) {
    if (!live_tree(tree)) return ZELTO_RVO_BAD_ARG;
    return host::tree_add_value(tree, key, text, language, required_flags);
}

HOST_EXPORT uint32_t zelto_manager_tree_add_value(zelto_manager_tree *tree, const char *key, const char *text) {
    return zelto_manager_tree_add_value_ex(tree, key, text, nullptr, 0);
}

HOST_EXPORT uint32_t zelto_manager_tree_add_child(zelto_manager_tree *tree, const char *key,
                                                  zelto_manager_tree *child) {
    if (!live_tree(tree) || !live_tree(child)) return ZELTO_RVO_BAD_ARG;
    return host::tree_add_child(tree, key, child);
}

HOST_EXPORT uint32_t zelto_manager_tree_set_number(zelto_manager_tree *tree, uint32_t number) {
    if (!live_tree(tree)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<host::SpinLock> guard(tree->lock);
    tree->has_number = true;
    tree->number = number;
    return 0;
}

HOST_EXPORT const char *zelto_manager_tree_context(const zelto_manager_tree *tree) {
    return live_tree(tree) ? tree->context : nullptr;
}

HOST_EXPORT uint32_t zelto_manager_tree_to_rvo(zelto_manager_tree *tree, void *user, const char *locale_group,
                                               uint32_t data_flags, zelto_rvo_handle *out_object) {
    if (!live_tree(tree) || !out_object) return ZELTO_RVO_BAD_ARG;
    View *view = make_view(tree, data_flags, nullptr);
    uint32_t status = zelto_manager_rvo_create(view, &g_provider, user, locale_group, data_flags, out_object);
    if (status != 0) tp_release(view);
    return status;
}

HOST_EXPORT const zelto_rvo_provider *zelto_manager_tree_provider(void) { return &g_provider; }

HOST_EXPORT uint32_t zelto_manager_tree_live_count(void) { return g_tree_live.load(); }

HOST_EXPORT uint32_t zelto_manager_rvo_dump(zelto_rvo_handle object, const char *const *value_keys,
                                            const char *const *child_keys, char **out_text) {
    void *record = nullptr;
    const zelto_rvo_provider *provider = nullptr;
    if (!out_text || !host::rvo_inner(object, &record, &provider)) return ZELTO_RVO_BAD_ARG;
    Dumper dumper{value_keys, child_keys, {}};
    dumper.walk(object, 0);
    if (dumper.failure != 0) return dumper.failure;
    char *text = to_c_text(dumper.out);
    if (!text) return ZELTO_RVO_NO_MEMORY;
    *out_text = text;
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_tree_dump(zelto_manager_tree *tree, char **out_text) {
    if (!live_tree(tree) || !out_text) return ZELTO_RVO_BAD_ARG;
    zelto_rvo_handle object = nullptr;
    uint32_t status = zelto_manager_tree_to_rvo(tree, nullptr, "", 0xFFFFFFFFu, &object);
    if (status != 0) return status;
    status = zelto_manager_rvo_dump(object, nullptr, nullptr, out_text);
    zelto_manager_rvo_release(object);
    return status;
}

HOST_EXPORT void zelto_manager_text_free(char *text) { std::free(text); }
