// The slots of the catalogue's provider table, and the registry of live
// catalogues, requests and tables behind them: requests are collected,
// answered at execute (answers.cpp), and handed out as result objects.
#include <new>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "providers/catalogue/provider.h"
#include "host/host_internal.h"

namespace catalogue_provider {

namespace {

constexpr uint32_t kStarted = ZELTO_LOOKUP_EVENT_STARTED;
constexpr uint32_t kDone = ZELTO_LOOKUP_EVENT_DONE;
constexpr uint32_t kError = ZELTO_LOOKUP_EVENT_ERROR;

// ---- Registry of live catalogues, requests and tables ---------------------------------

std::mutex g_registry_mutex;
std::unordered_set<zelto_catalogue *> &catalogues() {
    static auto *s = new std::unordered_set<zelto_catalogue *>;
    return *s;
}
std::unordered_set<zelto_lookup_request_s *> &requests() {
    static auto *s = new std::unordered_set<zelto_lookup_request_s *>;
    return *s;
}

// Tables of closed catalogues, kept so that a holder can still call them.
std::vector<ProviderTable *> &retired_tables() {
    static auto *v = new std::vector<ProviderTable *>;
    return *v;
}

zelto_lookup_request_s *live_request(zelto_lookup_request r) {
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    return r && requests().count(r) ? r : nullptr;
}

// Owner of a table, if the table is a catalogue's and the catalogue is open.
zelto_catalogue *owner_of(const zelto_lookup_interface *table) {
    if (!table) return nullptr;
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    for (zelto_catalogue *c : catalogues())
        if (c->provider && &c->provider->table == table) return c;
    return nullptr;
}

// Gives back the answers of a request's lookups.
void drop_results(zelto_lookup_request_s &request) {
    for (auto &l : request.lookups) {
        zelto_manager_tree_release(l.result);
        l.result = nullptr;
    }
}

// ---- Table slots ------------------------------------------------------------------------

uint32_t request_create(const zelto_lookup_interface *table, zelto_lookup_callback callback, void *callback_data,
                        zelto_lookup_request *out_request) {
    zelto_catalogue *c = owner_of(table);
    if (!c || !out_request) return ZELTO_CATALOGUE_BAD_ARG;
    auto *request = new (std::nothrow) zelto_lookup_request_s;
    if (!request) return ZELTO_CATALOGUE_NO_MEMORY;
    request->table = reinterpret_cast<const ProviderTable *>(table);
    request->callback = callback;
    request->callback_data = callback_data;
    {
        std::lock_guard<std::mutex> guard(g_registry_mutex);
        try {
            requests().insert(request);
        } catch (const std::bad_alloc &) {
            delete request;
            return ZELTO_CATALOGUE_NO_MEMORY;
        }
    }
    {
        std::lock_guard<std::mutex> guard(c->mutex);
        ++c->live_requests;
    }
    *out_request = request;
    return 0;
}

// The open catalogue behind a live request, or null.
zelto_catalogue *catalogue_of(zelto_lookup_request_s *request) {
    return request ? owner_of(&request->table->table) : nullptr;
}

Lookup *lookup_of(zelto_lookup_request_s *request, const char *id) {
    for (auto &l : request->lookups)
        if (l.id == id) return &l;
    return nullptr;
}

uint32_t request_add(zelto_lookup_request handle, const char *lookup_type, const char *request_id, const char *group,
                     uint32_t group_flag) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!catalogue_of(request) || !lookup_type || !request_id || !*request_id) return ZELTO_CATALOGUE_BAD_ARG;
    try {
        if (Lookup *existing = lookup_of(request, request_id)) {
            existing->type = lookup_type;  // a second add under one identifier redeclares it
            return 0;
        }
        Lookup l;
        l.type = lookup_type;
        l.id = request_id;
        request->lookups.push_back(std::move(l));
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
    return 0;
}

uint32_t set_entry(zelto_lookup_request handle, const char *request_id, const char *key, const char *value,
                   bool option) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!catalogue_of(request) || !request_id || !key) return ZELTO_CATALOGUE_BAD_ARG;
    Lookup *l = lookup_of(request, request_id);
    if (!l) return ZELTO_CATALOGUE_BAD_ARG;
    auto &m = option ? l->options : l->data;
    try {
        if (value)
            m[key] = value;  // always copied: the caller may reuse its buffer
        else
            m.erase(key);
    } catch (const std::bad_alloc &) {
        return ZELTO_CATALOGUE_NO_MEMORY;
    }
    return 0;
}

uint32_t request_set_data(zelto_lookup_request handle, const char *request_id, const char *key, const char *value,
                          uint32_t copy_flag) {
    return set_entry(handle, request_id, key, value, false);
}

uint32_t request_set_option(zelto_lookup_request handle, const char *request_id, const char *key, const char *value) {
    return set_entry(handle, request_id, key, value, true);
}

uint32_t request_execute(zelto_lookup_request handle, void *user) {
    zelto_lookup_request_s *request = live_request(handle);
    zelto_catalogue *c = catalogue_of(request);
    if (!c) return ZELTO_CATALOGUE_BAD_ARG;
    request->user = user;
    drop_results(*request);
    if (request->lookups.empty()) return fail(c, ZELTO_CATALOGUE_INVALID_DATA, "no lookup declared");
    Events events(*request);
    if (!events.send(kStarted)) return fail(c, ZELTO_CATALOGUE_ABORTED, "lookup aborted by the callback");
    for (auto &l : request->lookups) {
        std::string message;
        const uint32_t status = answer_lookup(*c->db, l, events, &l.result, message);
        if (status != 0) {
            // Report the failure through the callback, then return it.
            if (status != ZELTO_CATALOGUE_ABORTED)
                events.send(kError, status, reinterpret_cast<uintptr_t>(message.c_str()));
            drop_results(*request);
            return fail(c, status, message);
        }
    }
    if (!events.send(kDone)) {
        drop_results(*request);
        return fail(c, ZELTO_CATALOGUE_ABORTED, "lookup aborted by the callback");
    }
    return 0;
}

uint32_t request_get_result(zelto_lookup_request handle, const char *request_id, zelto_rvo_handle *out_result) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!catalogue_of(request) || !request_id || !out_result) return ZELTO_CATALOGUE_BAD_ARG;
    Lookup *l = lookup_of(request, request_id);
    if (!l || !l->result) return ZELTO_CATALOGUE_NO_RESULT;
    return zelto_manager_tree_to_rvo(l->result, request->user, ZELTO_LOCALE_GROUP_MUSIC, 0, out_result);
}

uint32_t request_release(zelto_lookup_request handle) {
    if (!handle) return 0;
    zelto_lookup_request_s *request = nullptr;
    {
        std::lock_guard<std::mutex> guard(g_registry_mutex);
        if (!requests().count(handle)) return ZELTO_CATALOGUE_BAD_ARG;
        requests().erase(handle);
        request = handle;
    }
    if (zelto_catalogue *c = catalogue_of(request)) {
        std::lock_guard<std::mutex> guard(c->mutex);
        --c->live_requests;
    }
    drop_results(*request);
    delete request;
    return 0;
}

constexpr zelto_lookup_interface kTable = {
    .lookup_release = zelto_manager_table_release,
    .reserved1 = nullptr,
    .lookup_request_create = request_create,
    .lookup_request_add = request_add,
    .lookup_request_set_data = request_set_data,
    .reserved5 = nullptr,
    .reserved6 = nullptr,
    .lookup_request_set_option = request_set_option,
    .lookup_request_execute = request_execute,
    .lookup_request_get_result = request_get_result,
    .reserved10 = nullptr,
    .lookup_request_release = request_release,
};

}  // namespace

uint32_t status_of(const catalogue::Status &s) {
    using catalogue::Code;
    switch (s.code) {
        case Code::ok: return 0;
        case Code::not_found: return ZELTO_CATALOGUE_NO_RESULT;
        case Code::invalid_argument: return ZELTO_CATALOGUE_INVALID_DATA;
        case Code::bad_record: return ZELTO_CATALOGUE_INVALID_DATA;
        case Code::io_error: return ZELTO_CATALOGUE_IO_ERROR;
        case Code::database: return ZELTO_CATALOGUE_DATABASE;
        case Code::no_memory: return ZELTO_CATALOGUE_NO_MEMORY;
        case Code::not_catalogue: return ZELTO_CATALOGUE_NOT_CATALOGUE;
    }
    return ZELTO_CATALOGUE_DATABASE;
}

uint32_t fail(zelto_catalogue *c, uint32_t status, std::string message) {
    std::lock_guard<std::mutex> guard(c->mutex);
    c->message = std::move(message);
    return status;
}

uint32_t fail(zelto_catalogue *c, const catalogue::Status &s) { return fail(c, status_of(s), s.message); }

ProviderTable *new_table(zelto_catalogue *owner) { return new ProviderTable{kTable, owner}; }

void register_catalogue(zelto_catalogue *c) {
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    catalogues().insert(c);
}

bool unregister_catalogue(zelto_catalogue *c) {
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    return catalogues().erase(c) != 0;
}

void retire_table(ProviderTable *table) {
    table->owner = nullptr;
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    try {
        retired_tables().push_back(table);
    } catch (const std::bad_alloc &) {
        // Left unreferenced: still callable, only unlisted.
    }
}

bool live(zelto_catalogue *c) {
    std::lock_guard<std::mutex> guard(g_registry_mutex);
    return c && catalogues().count(c) != 0;
}

}  // namespace catalogue_provider
