// User service: reference-counted users with text options such as
// "zelto_useroption_lookup_mode".
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host_internal.h"

struct zelto_user {
    uint32_t magic = host::kUserMagic;
    std::atomic<uint32_t> refs{1};
    std::string name;
    std::mutex mutex;
    // Values are held by unique_ptr so that a text handed out stays put while
    // other options change.
    std::map<std::string, std::unique_ptr<std::string>> options;
    // Replaced or removed values live on until the user goes, since a text
    // handed out stays valid for the life of the user.
    std::vector<std::unique_ptr<std::string>> retired;
};

namespace {

constexpr uint32_t kBadArg = 0x90090001u;
constexpr uint32_t kNotFound = 0x10090003u;

bool live_user(const void *user) { return user && host::handles_valid(user, host::kUserMagic); }

uint32_t user_addref(zelto_user *user) {
    if (!live_user(user)) return kBadArg;
    ++user->refs;
    return 0;
}

uint32_t user_release(zelto_user *user) {
    if (!live_user(user)) return kBadArg;
    if (--user->refs == 0) {
        host::handles_remove(user);
        delete user;
    }
    return 0;
}

uint32_t userinfo_addref(void *user) { return user_addref(static_cast<zelto_user *>(user)); }
uint32_t userinfo_release(void *user) { return user_release(static_cast<zelto_user *>(user)); }

uint32_t userinfo_option_get(void *u, const char *key, const char **out_value) {
    auto *user = static_cast<zelto_user *>(u);
    if (!live_user(user) || !key || !out_value) return kBadArg;
    std::lock_guard<std::mutex> guard(user->mutex);
    auto it = user->options.find(key);
    if (it == user->options.end()) return kNotFound;
    *out_value = it->second->c_str();
    return 0;
}

const zelto_userinfo_interface g_table = {
    .release = host::table_release,
    .reserved1 = nullptr,
    .userinfo_addref = userinfo_addref,
    .userinfo_release = userinfo_release,
    .userinfo_option_get = userinfo_option_get,
};

}  // namespace

const void *host::users_table() { return &g_table; }

const char *host::user_name(const void *user) {
    return live_user(user) ? static_cast<const zelto_user *>(user)->name.c_str() : nullptr;
}

HOST_EXPORT uint32_t zelto_manager_user_create(const char *name, zelto_user **out_user) {
    if (!out_user) return kBadArg;
    auto *user = new zelto_user;
    user->name = name ? name : "";
    host::handles_add(user, host::kUserMagic);
    *out_user = user;
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_user_option_set(zelto_user *user, const char *key, const char *value) {
    if (!live_user(user) || !key) return kBadArg;
    std::lock_guard<std::mutex> guard(user->mutex);
    auto it = user->options.find(key);
    if (it != user->options.end()) {
        user->retired.push_back(std::move(it->second));
        user->options.erase(it);
    }
    if (value) user->options[key] = std::make_unique<std::string>(value);
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_user_addref(zelto_user *user) { return user_addref(user); }
HOST_EXPORT uint32_t zelto_manager_user_release(zelto_user *user) { return user_release(user); }

HOST_EXPORT uint32_t zelto_manager_user_refcount(const zelto_user *user) {
    if (!live_user(user)) return 0;
    return user->refs.load();
}
