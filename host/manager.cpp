// The manager table and its service registry: interface_get hands out the
// service tables by name, counting references so that tests can check that
// the module gives every table back.
#include <cstring>
#include <map>
#include <set>
#include <mutex>
#include <string>
#include <strings.h>

#include "host_internal.h"
#include "zelto/zelto_host_services.h"

namespace {

struct Service {
    const void *table = nullptr;
    bool enabled = true;
    uint32_t fail_status = 0;
    int32_t refs = 0;
    // Services whose table depends on the mode of interface_get (the lookup
    // provider) keep one table per mode instead of `table`.
    bool by_mode = false;
    std::map<uint32_t, const void *> mode_tables;
};

struct Registry {
    std::mutex mutex;
    std::map<std::string, Service> services;
    std::map<uint32_t, std::string> packages;
    std::set<const void *> retired;  // lookup tables no longer installed
    uint32_t register_fail = 0;
};

// Built on first use so that the tables of the other units already exist.
Registry &registry() {
    static Registry *r = [] {
        auto *reg = new Registry;
        reg->services[ZELTO_SERVICE_ERRORINFO].table = host::errorinfo_table();
        reg->services[ZELTO_SERVICE_HANDLEMANAGER].table = host::handles_table();
        reg->services[ZELTO_SERVICE_USERINFO].table = host::users_table();
        reg->services[ZELTO_SERVICE_RVO].table = host::rvo_table();
        reg->services[ZELTO_SERVICE_LISTS].table = host::lists_table();
        reg->services[ZELTO_SERVICE_SERIALIZATION].table = host::serialization_table();
        // Signal processing exists only in a host built with Chromaprint.
        if (const void *dsp = host::dsp_table()) reg->services[ZELTO_SERVICE_DSP].table = dsp;
        reg->services[ZELTO_SERVICE_LOOKUP].by_mode = true;
        return reg;
    }();
    return *r;
}

uint32_t interface_get(const char *name, uint32_t mode, uint32_t /*reserved*/, const void **out_table) {
    if (!name || !out_table) return ZELTO_MANAGER_BAD_ARG;
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    auto it = r.services.find(name);
    if (it == r.services.end() || !it->second.enabled) return ZELTO_MANAGER_NO_SERVICE;
    const void *table = it->second.table;
    if (it->second.by_mode) {
        if (mode != ZELTO_PROVIDER_MODE_ONLINE && mode != ZELTO_PROVIDER_MODE_LOCAL) return ZELTO_MANAGER_BAD_ARG;
        auto m = it->second.mode_tables.find(mode);
        table = m == it->second.mode_tables.end() ? nullptr : m->second;
    }
    if (!table) return ZELTO_MANAGER_NO_SERVICE;
    if (it->second.fail_status) return it->second.fail_status;
    ++it->second.refs;
    *out_table = table;
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
    .magic = ZELTO_MANAGER_MAGIC,
    .version = ZELTO_MANAGER_VERSION,
    .interface_get = interface_get,
    .reserved3 = nullptr,
    .reserved4 = nullptr,
    .register_package = register_package,
};

}  // namespace

namespace host {

uint32_t table_release(const void *table) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    for (auto &entry : r.services) {
        bool match = entry.second.table == table;
        for (auto &m : entry.second.mode_tables) match = match || m.second == table;
        if (match) {
            --entry.second.refs;
            return 0;
        }
    }
    // A provider table that was installed and removed again: still callable.
    if (r.retired.count(table)) {
        --r.services[ZELTO_SERVICE_LOOKUP].refs;
        return 0;
    }
    return ZELTO_MANAGER_BAD_ARG;
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

HOST_EXPORT uint32_t zelto_manager_lookup_set_provider(uint32_t mode, const zelto_lookup_interface *table) {
    if (mode != ZELTO_PROVIDER_MODE_ONLINE && mode != ZELTO_PROVIDER_MODE_LOCAL) return ZELTO_MANAGER_BAD_ARG;
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    auto &tables = r.services[ZELTO_SERVICE_LOOKUP].mode_tables;
    auto it = tables.find(mode);
    if (it != tables.end()) {
        r.retired.insert(it->second);
        tables.erase(it);
    }
    if (table) {
        tables[mode] = table;
        r.retired.erase(table);
    }
    return 0;
}

HOST_EXPORT const zelto_lookup_interface *zelto_manager_lookup_get_provider(uint32_t mode) {
    Registry &r = registry();
    std::lock_guard<std::mutex> guard(r.mutex);
    auto &tables = r.services[ZELTO_SERVICE_LOOKUP].mode_tables;
    auto it = tables.find(mode);
    return it == tables.end() ? nullptr : static_cast<const zelto_lookup_interface *>(it->second);
}

HOST_EXPORT uint32_t zelto_manager_table_release(const void *table) { return host::table_release(table); }
