// The host's own result trees: what lookup providers hand back. A node holds
// a context name, values and tagged children; a result object onto a node
// goes through a small view record that adds the object's data flags and
// locale. Also here: interned locale handles and the readable dump of
// result objects.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host_internal.h"
#include "zelto/zelto_host_services.h"

namespace {

struct Value {
    std::string key;
    std::string text;
    std::string language;  // canonical code, empty for none
    uint32_t required = 0;
};

}  // namespace

struct zelto_manager_tree;

namespace {

struct Child {
    std::string base;               // "zelto_ctx_track"
    std::vector<std::string> tags;  // "matching", "off", ...
    zelto_manager_tree *node = nullptr;
};

}  // namespace

struct zelto_manager_tree {
    uint32_t magic = host::kTreeMagic;
    std::atomic<uint32_t> refs{1};
    std::string context;
    mutable std::mutex mutex;
    // Held by pointer so that texts handed out stay put while values are added.
    std::vector<std::unique_ptr<Value>> values;
    std::vector<Child> children;
    bool has_number = false;
    uint32_t number = 0;
};

namespace {

std::atomic<uint32_t> g_tree_live{0};

constexpr const char kCtxPrefix[] = ZELTO_CTX_PREFIX;

bool live_tree(const zelto_manager_tree *tree) { return tree && host::handles_valid(tree, host::kTreeMagic); }

void tree_retain(zelto_manager_tree *tree) { ++tree->refs; }

void tree_drop(zelto_manager_tree *tree) {
    // Children are released iteratively so that deep trees do not recurse.
    std::vector<zelto_manager_tree *> pending{tree};
    while (!pending.empty()) {
        zelto_manager_tree *node = pending.back();
        pending.pop_back();
        if (--node->refs != 0) continue;
        host::handles_remove(node);
        for (Child &child : node->children) pending.push_back(child.node);
        delete node;
        --g_tree_live;
    }
}

bool starts_with(const char *text, const char *prefix) { return std::strncmp(text, prefix, std::strlen(prefix)) == 0; }

bool is_value_key(const char *key) {
    return starts_with(key, ZELTO_VAL_PREFIX) || starts_with(key, ZELTO_SDKMGR_VAL_PREFIX);
}

// Splits "zelto_ctx_track!matching" into base and selector. A child key must
// begin with "zelto_ctx_", have a name, and contain the "!".
bool split_child_key(const char *key, std::string *base, std::string *selector, bool bang_required) {
    if (!starts_with(key, kCtxPrefix)) return false;
    const char *bang = std::strchr(key, '!');
    if (!bang) {
        if (bang_required) return false;
        bang = key + std::strlen(key);
    }
    if (bang == key + sizeof(kCtxPrefix) - 1) return false;
    base->assign(key, bang);
    selector->assign(*bang ? bang + 1 : bang);
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

// The values of a key that a view sees, in order. Sets *withheld when the key
// has values that the view's data flags hide all of. Caller holds the lock.
std::vector<const Value *> visible_values(const View *view, const char *key, bool *withheld) {
    std::vector<const Value *> allowed;
    bool any = false;
    for (auto &value : view->node->values) {
        if (value->key != key) continue;
        any = true;
        if ((view->flags & value->required) == value->required) allowed.push_back(value.get());
    }
    *withheld = any && allowed.empty();
    if (allowed.empty()) return allowed;
    const std::string *language = locale_language(view->locale.load());
    std::vector<const Value *> chosen;
    if (language)
        for (const Value *value : allowed)
            if (value->language == *language) chosen.push_back(value);
    if (chosen.empty())
        for (const Value *value : allowed)
            if (value->language.empty()) chosen.push_back(value);
    return chosen.empty() ? allowed : chosen;
}

bool has_tag(const Child &child, const std::string &tag) {
    for (auto &t : child.tags)
        if (t == tag) return true;
    return false;
}

// Number of a node for "!number": explicit, else "zelto_val_<name>number".
bool node_number(zelto_manager_tree *node, const std::string &base, uint32_t *out) {
    std::lock_guard<std::mutex> guard(node->mutex);
    if (node->has_number) {
        *out = node->number;
        return true;
    }
    std::string key = ZELTO_VAL_PREFIX + base.substr(sizeof(kCtxPrefix) - 1) + "number";
    for (auto &value : node->values) {
        if (value->key != key) continue;
        const std::string &text = value->text;
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

// Children that a key selects, in order. For "!number" each entry is paired
// with its number. Caller holds the node's lock.
struct Selected {
    zelto_manager_tree *node;
    uint32_t number;
};

std::vector<Selected> select_children(zelto_manager_tree *node, const std::string &base, const std::string &selector) {
    std::vector<Selected> out;
    if (selector == "number") {
        for (auto &child : node->children) {
            uint32_t n = 0;
            if (child.base == base && node_number(child.node, base, &n)) out.push_back({child.node, n});
        }
        return out;
    }
    for (auto &child : node->children)
        if (child.base == base && (selector.empty() || has_tag(child, selector))) out.push_back({child.node, 0});
    if (out.empty() && selector == "off") {
        // A base with no child tagged official: its first child stands for it.
        for (auto &child : node->children) {
            if (child.base == base) {
                out.push_back({child.node, 0});
                break;
            }
        }
    }
    return out;
}

// ---- Provider slots ------------------------------------------------------------

uint32_t tp_get_context(void *record, const char **out_context) {
    auto *view = static_cast<View *>(record);
    if (!view || !out_context) return ZELTO_RVO_BAD_ARG;
    *out_context = view->node->context.c_str();  // fixed at creation
    return 0;
}

uint32_t tp_get_value_count(void *record, const char *key, uint32_t *out_count) {
    auto *view = static_cast<View *>(record);
    if (!view || !key || !out_count || !is_value_key(key)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<std::mutex> guard(view->node->mutex);
    bool withheld = false;
    *out_count = static_cast<uint32_t>(visible_values(view, key, &withheld).size());
    return 0;
}

uint32_t tp_get_value(void *record, const char *key, uint32_t ordinal, const char **out_value) {
    auto *view = static_cast<View *>(record);
    if (!view || !key || !out_value || !is_value_key(key)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<std::mutex> guard(view->node->mutex);
    bool withheld = false;
    auto values = visible_values(view, key, &withheld);
    if (withheld) return ZELTO_RVO_WITHHELD;
    if (ordinal == 0 || ordinal > values.size()) return ZELTO_RVO_NOT_FOUND;
    *out_value = values[ordinal - 1]->text.c_str();
    return 0;
}

uint32_t tp_get_child_count(void *record, const char *key, uint32_t *out_count) {
    auto *view = static_cast<View *>(record);
    std::string base, selector;
    if (!view || !key || !out_count || !split_child_key(key, &base, &selector, true)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<std::mutex> guard(view->node->mutex);
    *out_count = static_cast<uint32_t>(select_children(view->node, base, selector).size());
    return 0;
}

uint32_t tp_get_child(void *record, const char *key, uint32_t ordinal, uint8_t /*flag*/, void **out_child,
                      const zelto_rvo_provider **out_provider) {
    auto *view = static_cast<View *>(record);
    std::string base, selector;
    if (!view || !key || !out_child || !out_provider || !split_child_key(key, &base, &selector, true))
        return ZELTO_RVO_BAD_ARG;
    if (ordinal == 0) return ZELTO_RVO_NOT_FOUND;
    zelto_manager_tree *found = nullptr;
    {
        std::lock_guard<std::mutex> guard(view->node->mutex);
        auto selected = select_children(view->node, base, selector);
        if (selector == "number") {
            for (auto &entry : selected) {
                if (entry.number == ordinal) {
                    found = entry.node;
                    break;
                }
            }
        } else if (ordinal <= selected.size()) {
            found = selected[ordinal - 1].node;
        }
        if (!found) return ZELTO_RVO_NOT_FOUND;
        *out_child = make_view(found, view->flags, view->locale.load());
    }
    *out_provider = &g_provider;
    return 0;
}

// Enumerates the visible values of all keys, in the order of their keys'
// first appearance: the index-th gives the key as name and the text.
uint32_t tp_render_value(void *record, uint32_t index, const char **out_name, const char **out_value) {
    auto *view = static_cast<View *>(record);
    if (!view || !out_name || !out_value) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<std::mutex> guard(view->node->mutex);
    std::vector<const std::string *> keys;
    for (auto &value : view->node->values) {
        bool seen = false;
        for (auto *k : keys) seen = seen || *k == value->key;
        if (!seen) keys.push_back(&value->key);
    }
    uint32_t n = 0;
    for (auto *k : keys) {
        bool withheld = false;
        for (const Value *value : visible_values(view, k->c_str(), &withheld)) {
            if (n++ == index) {
                *out_name = value->key.c_str();
                *out_value = value->text.c_str();
                return 0;
            }
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

// True if `target` is `root` or lies below it.
bool reaches(zelto_manager_tree *root, const zelto_manager_tree *target) {
    std::vector<zelto_manager_tree *> pending{root};
    while (!pending.empty()) {
        zelto_manager_tree *node = pending.back();
        pending.pop_back();
        if (node == target) return true;
        std::lock_guard<std::mutex> guard(node->mutex);
        for (auto &child : node->children) pending.push_back(child.node);
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
            std::lock_guard<std::mutex> guard(node->mutex);
            for (auto &value : node->values) {
                bool seen = false;
                for (auto &k : keys) seen = seen || k == value->key;
                if (!seen) keys.push_back(value->key);
            }
            for (auto &child : node->children) {
                std::string joined;
                for (auto &tag : child.tags) joined += (joined.empty() ? "" : ",") + tag;
                auto it = bases.begin();
                while (it != bases.end() && it->first != child.base) ++it;
                if (it == bases.end()) {
                    bases.push_back({child.base, {}});
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

HOST_EXPORT uint32_t zelto_manager_tree_create(const char *context, zelto_manager_tree **out_tree) {
    if (!context || !*context || !out_tree) return ZELTO_RVO_BAD_ARG;
    auto *tree = new zelto_manager_tree;
    tree->context = context;
    host::handles_add(tree, host::kTreeMagic);
    ++g_tree_live;
    *out_tree = tree;
    return 0;
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

HOST_EXPORT uint32_t zelto_manager_tree_add_value_ex(zelto_manager_tree *tree, const char *key, const char *text,
                                                     const char *language, uint32_t required_flags) {
    if (!live_tree(tree) || !key || !text || !is_value_key(key)) return ZELTO_RVO_BAD_ARG;
    auto value = std::make_unique<Value>();
    if (language) {
        const char *code = host::language_canonical(language);
        if (!code) return ZELTO_LISTS_UNKNOWN;
        value->language = code;
    }
    value->key = key;
    value->text = text;
    value->required = required_flags;
    std::lock_guard<std::mutex> guard(tree->mutex);
    tree->values.push_back(std::move(value));
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_tree_add_value(zelto_manager_tree *tree, const char *key, const char *text) {
    return zelto_manager_tree_add_value_ex(tree, key, text, nullptr, 0);
}

HOST_EXPORT uint32_t zelto_manager_tree_add_child(zelto_manager_tree *tree, const char *key,
                                                  zelto_manager_tree *child) {
    std::string base, selector;
    if (!live_tree(tree) || !live_tree(child) || !key || !split_child_key(key, &base, &selector, false))
        return ZELTO_RVO_BAD_ARG;
    Child entry;
    entry.base = base;
    size_t start = 0;
    while (start < selector.size()) {
        size_t comma = selector.find(',', start);
        if (comma == std::string::npos) comma = selector.size();
        std::string tag = selector.substr(start, comma - start);
        if (tag.empty() || tag == "number") return ZELTO_RVO_BAD_ARG;
        entry.tags.push_back(tag);
        start = comma + 1;
    }
    if (!selector.empty() && selector.back() == ',') return ZELTO_RVO_BAD_ARG;
    if (reaches(child, tree)) return ZELTO_RVO_BAD_ARG;
    tree_retain(child);
    entry.node = child;
    std::lock_guard<std::mutex> guard(tree->mutex);
    tree->children.push_back(std::move(entry));
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_tree_set_number(zelto_manager_tree *tree, uint32_t number) {
    if (!live_tree(tree)) return ZELTO_RVO_BAD_ARG;
    std::lock_guard<std::mutex> guard(tree->mutex);
    tree->has_number = true;
    tree->number = number;
    return 0;
}

HOST_EXPORT const char *zelto_manager_tree_context(const zelto_manager_tree *tree) {
    return live_tree(tree) ? tree->context.c_str() : nullptr;
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
