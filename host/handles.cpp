// Handle manager: a registry of live handles by address and magic word.
// Validation looks the address up without touching it, so a stale or
// foreign pointer is refused rather than dereferenced.
#include <mutex>
#include <unordered_map>

#include "host_internal.h"

namespace {

constexpr uint32_t kInvalid = 0x90090321u;  // handle package, bad handle
constexpr uint32_t kBadArg = 0x90090001u;

std::mutex g_mutex;
std::unordered_map<const void *, uint32_t> &live() {
    static auto *m = new std::unordered_map<const void *, uint32_t>;
    return *m;
}

uint32_t handle_add(void *record) {
    if (!record) return kBadArg;
    host::handles_add(record, *static_cast<const uint32_t *>(record));
    return 0;
}

uint32_t handle_remove(void *record) {
    if (!record) return kBadArg;
    host::handles_remove(record);
    return 0;
}

uint32_t handle_validate(const void *record, uint32_t magic) {
    if (!record) return kBadArg;
    return host::handles_valid(record, magic) ? 0 : kInvalid;
}

uint32_t handle_validate_user(const void *user) {
    if (!user) return kBadArg;
    return host::handles_valid(user, host::kUserMagic) ? 0 : kInvalid;
}

uint32_t handle_validate_rvo(const void *rvo) {
    if (!rvo) return kBadArg;
    return host::handles_valid(rvo, host::kRvoMagic) ? 0 : kInvalid;
}

const zelto_handlemanager_interface g_table = {
    .release = host::table_release,
    .handle_add = handle_add,
    .handle_remove = handle_remove,
    .handle_validate = handle_validate,
    .reserved4 = nullptr,
    .handle_validate_user = handle_validate_user,
    .handle_validate_rvo = handle_validate_rvo,
};

}  // namespace

namespace host {

const void *handles_table() { return &g_table; }

void handles_add(const void *p, uint32_t magic) {
    std::lock_guard<std::mutex> guard(g_mutex);
    live()[p] = magic;
}

void handles_remove(const void *p) {
    std::lock_guard<std::mutex> guard(g_mutex);
    live().erase(p);
}

bool handles_valid(const void *p, uint32_t magic) {
    std::lock_guard<std::mutex> guard(g_mutex);
    auto it = live().find(p);
    return it != live().end() && it->second == magic;
}

}  // namespace host

HOST_EXPORT uint32_t zelto_manager_handle_count(void) {
    std::lock_guard<std::mutex> guard(g_mutex);
    uint32_t n = 0;
    for (auto &entry : live())
        if (!host::is_host_magic(entry.second)) ++n;
    return n;
}
