// Internal interfaces between the parts of the reference host.
#ifndef ZELTO_HOST_INTERNAL_H
#define ZELTO_HOST_INTERNAL_H

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "zelto/zelto_host_services.h"

#define HOST_EXPORT extern "C" __attribute__((visibility("default")))

namespace host {

// A lock for critical sections of a few dozen instructions (a registry
// lookup, an append to a tree node): far cheaper than a mutex when free,
// and a waiter gives up the processor instead of spinning hard.
class SpinLock {
 public:
    void lock() noexcept {
        while (busy_.exchange(true, std::memory_order_acquire))
            while (busy_.load(std::memory_order_relaxed)) std::this_thread::yield();
    }
    void unlock() noexcept { busy_.store(false, std::memory_order_release); }

 private:
    std::atomic<bool> busy_{false};
};

// Magic words of the host's own handles, kept in the handle registry.
constexpr uint32_t kUserMagic = 0x05E4A11Bu;
constexpr uint32_t kRvoMagic = 0x0B1EC7EDu;
constexpr uint32_t kTreeMagic = 0x07EE7EEDu;

// True for the magic words of the host's own objects, which the handle
// count leaves out (it counts what the module registers).
constexpr bool is_host_magic(uint32_t magic) {
    return magic == kUserMagic || magic == kRvoMagic || magic == kTreeMagic;
}

// Slot 0 of every table the host hands out: gives back one reference.
uint32_t table_release(const void *table);

// Installs a provider's table for mode 1 or 2, or for both with mode 0;
// `table_for` gives the table of a mode. Another mode is refused.
template <typename TableFor>
uint32_t install_provider(uint32_t mode, TableFor table_for) {
    if (mode > ZELTO_PROVIDER_MODE_LOCAL) return ZELTO_LOOKUP_BAD_ARG;
    for (uint32_t m = ZELTO_PROVIDER_MODE_ONLINE; m <= ZELTO_PROVIDER_MODE_LOCAL; ++m)
        if (mode == 0 || mode == m)
            if (uint32_t status = zelto_manager_lookup_set_provider(m, table_for(m))) return status;
    return 0;
}

// Removes a provider's tables from every mode where they are installed.
template <typename TableFor>
void uninstall_provider(TableFor table_for) {
    for (uint32_t m = ZELTO_PROVIDER_MODE_ONLINE; m <= ZELTO_PROVIDER_MODE_LOCAL; ++m)
        if (zelto_manager_lookup_get_provider(m) == table_for(m)) zelto_manager_lookup_set_provider(m, nullptr);
}

// Adds or replaces a named service table (for services that register
// themselves from their own unit).
void register_service(const char *name, const void *table);

// Tables of the individual services.
const void *errorinfo_table();
const void *handles_table();
const void *users_table();
const void *rvo_table();
const void *lists_table();
const void *serialization_table();
// Null when the host was built without Chromaprint.
const void *dsp_table();

// The provider table and record behind a live result object; false if the
// handle is not a live object.
bool rvo_inner(const void *object, void **out_record, const zelto_rvo_provider **out_provider);

// Name of a live host user, or null for anything else.
const char *user_name(const void *user);

// Appends text in double quotes, escaping backslash, quote and control bytes
// (\\, \", \n, \t, \xHH); the escapes of the readable dumps.
void append_quoted(std::string &out, const char *text);

// Canonical three-letter code of a language in any accepted form, or null.
const char *language_canonical(const char *language);

// zelto_manager_tree_add_value_ex and _add_child for trees the caller made
// and holds, without looking them up in the handle registry (the catalogue
// provider builds its answers through these).
uint32_t tree_add_value(zelto_manager_tree *tree, const char *key, const char *text, const char *language = nullptr,
                        uint32_t required_flags = 0);
uint32_t tree_add_child(zelto_manager_tree *tree, const char *key, zelto_manager_tree *child);
// The same, and zelto_manager_tree_create, for contexts and keys that are
// constants of this library (string literals): the node keeps the pointer
// instead of a copy. The value's text has `length` bytes.
uint32_t tree_create_constant(const char *context, zelto_manager_tree **out_tree);
uint32_t tree_add_constant_value(zelto_manager_tree *tree, const char *key, const char *text, size_t length);
uint32_t tree_add_constant_child(zelto_manager_tree *tree, const char *key, zelto_manager_tree *child);
// tree_create_constant for a node that will only ever hang below another
// node: it stays out of the handle registry (a registration and a removal
// per node of an answer), so the exported tree calls refuse it as a handle.
// The node is reached through its parent's result objects as any other.
uint32_t tree_create_inner(const char *context, zelto_manager_tree **out_tree);
// zelto_manager_tree_release of a reference the caller holds (null: nothing).
void tree_release_held(zelto_manager_tree *tree);

// Handle registry shared by the handle manager, users and result objects.
void handles_add(const void *p, uint32_t magic);
void handles_remove(const void *p);
bool handles_valid(const void *p, uint32_t magic);

}  // namespace host

#endif
