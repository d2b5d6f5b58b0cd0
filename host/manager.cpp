// The manager table and its service registry: interface_get hands out the
// service tables by name, counting references so that tests can check that
// the module gives every table back.
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <strings.h>

#include "host_internal.h"

namespace {

struct Service {
    const void *table = nullptr;
    bool enabled = true;
    uint32_t fail_status = 0;
    int32_t refs = 0;
};

struct Registry {
    std::mutex mutex;
    std::map<std::string, Service> services;
    std::map<uint32_t, std::string> packages;
    uint32_t register_fail = 0;
};

// Built on first use so that the tables of the other units already exist.
Registry &registry() {
    static Registry *r = [] {
        auto *reg = new Registry;
        reg->services["_zelto_errorinfo_interface"].table = host::errorinfo_table();
        reg->services["_zelto_handlemanager_interface"].table = host::handles_table();
        reg->services["_zelto_userinfo_interface"].table = host::users_table();
        return reg;
    }();
    return *r;
}

uint32_t interface_get(const char *name, uint32_t /*mode*/, uint32_t /*reserved*/, const void **out_table) {
    if (!name || !out_table) return 0x90070001u;
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    auto it = r.services.find(name);
    if (it == r.services.end() || !it->second.enabled || !it->second.table) return ZELTO_MANAGER_NO_SERVICE;
    if (it->second.fail_status) return it->second.fail_status;
    ++it->second.refs;
    *out_table = it->second.table;
    return 0;
}

uint32_t register_package(uint32_t number, const char *name) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    if (r.register_fail) return r.register_fail;
    r.packages[number] = name ? name : "";
    return 0;
}

const zelto_manager_table g_table = {
    ZELTO_MANAGER_MAGIC, ZELTO_MANAGER_VERSION, interface_get, nullptr, nullptr, register_package,
};

}  // namespace

namespace host {

uint32_t table_release(const void *table) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    for (auto &entry : r.services) {
        if (entry.second.table == table) {
            --entry.second.refs;
            return 0;
        }
    }
    return 0x90070001u;
}

// Adds a service table under a name; used by the services that register
// themselves (result objects, lists, lookup providers...).
void register_service(const char *name, const void *table) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    r.services[name].table = table;
}

}  // namespace host

HOST_EXPORT const zelto_manager_table *zelto_manager_get_table(void) { return &g_table; }

HOST_EXPORT void zelto_manager_service_enable(const char *name, int enabled) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    r.services[name].enabled = enabled != 0;
}

HOST_EXPORT void zelto_manager_service_fail(const char *name, uint32_t status) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    r.services[name].fail_status = status;
}

HOST_EXPORT void zelto_manager_services_reset(void) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    for (auto &entry : r.services) {
        entry.second.enabled = true;
        entry.second.fail_status = 0;
    }
    r.register_fail = 0;
}

HOST_EXPORT int32_t zelto_manager_service_refs(const char *name) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    int32_t total = 0;
    for (auto &entry : r.services)
        if (!name || entry.first == name) total += entry.second.refs;
    return total;
}

HOST_EXPORT void zelto_manager_register_fail(uint32_t status) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    r.register_fail = status;
}

HOST_EXPORT const char *zelto_manager_package_name(uint32_t number) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    auto it = r.packages.find(number);
    return it == r.packages.end() ? nullptr : it->second.c_str();
}
