// Scriptable lookup provider: answers set up by a test, every request
// recorded call by call, events sent through the request callback, abort
// honoured, and any slot made to fail on demand.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/host_internal.h"
#include "zelto/zelto_script_provider.h"

namespace {

struct Event {
    uint32_t kind, code, value1;
    uintptr_t value2;
};

struct Answer {
    zelto_manager_tree *tree = nullptr;  // one reference held
    std::vector<Event> events;
    std::deque<std::string> texts;  // error texts that value2 points into
    uint32_t status = 0;
};

// One recorded call. `has_*` tell a null text from an empty one.
struct Call {
    std::string name, id, key, value;
    bool has_id = false, has_key = false, has_value = false;
    uint32_t number = 0;
    uint32_t status = 0;
    std::string note;  // extra line after the call ("aborted after event 2")
};

struct Record {
    uint32_t mode = 0;
    void *user = nullptr;
    std::vector<std::unique_ptr<Call>> calls;
    std::string text;
};

struct Failure {
    uint32_t status = 0;
    uint32_t nth = 0;
    uint32_t calls = 0;
};

constexpr uint32_t kSlots = 12;

}  // namespace

struct zelto_script;

// The request handle the module holds.
struct zelto_lookup_request_s {
    zelto_script *script = nullptr;
    Record *record = nullptr;
    zelto_lookup_callback callback = nullptr;
    void *callback_data = nullptr;
    std::vector<std::string> ids;  // identifiers declared by add
    uint32_t flags = 0;            // data flags from the options
    void *user = nullptr;
    zelto_manager_tree *result = nullptr;  // one reference held
};

struct zelto_script {
    // One table per mode; a table pointer leads back to its script. The
    // tables outlive the script (see zelto_script_destroy).
    zelto_lookup_interface *tables = nullptr;
    std::mutex mutex;
    std::deque<std::unique_ptr<Answer>> answers;  // all answers; `next` is the first not taken
    size_t next = 0;
    std::vector<std::unique_ptr<Record>> records;
    Failure failures[kSlots];
    uint32_t calls[kSlots] = {};
    uint32_t live_requests = 0;
};

namespace {

std::mutex g_scripts_mutex;
std::unordered_set<zelto_script *> &scripts() {
    static auto *s = new std::unordered_set<zelto_script *>;
    return *s;
}
std::unordered_set<zelto_lookup_request_s *> &requests() {
    static auto *s = new std::unordered_set<zelto_lookup_request_s *>;
    return *s;
}

// Tables of destroyed scripts: kept so that a holder can still call them
// (requests are refused, release still counts).
std::vector<zelto_lookup_interface *> &retired_tables() {
    static auto *v = new std::vector<zelto_lookup_interface *>;
    return *v;
}

bool live_script(zelto_script *script) {
    std::lock_guard<std::mutex> guard(g_scripts_mutex);
    return script && scripts().count(script);
}

zelto_lookup_request_s *live_request(zelto_lookup_request request) {
    std::lock_guard<std::mutex> guard(g_scripts_mutex);
    return request && requests().count(request) ? request : nullptr;
}

// Script and mode behind a table handed to request_create.
zelto_script *script_of(const zelto_lookup_interface *table, uint32_t *out_mode) {
    std::lock_guard<std::mutex> guard(g_scripts_mutex);
    for (zelto_script *script : scripts()) {
        for (uint32_t i = 0; i < 2; ++i) {
            if (&script->tables[i] == table) {
                *out_mode = i + 1;
                return script;
            }
        }
    }
    return nullptr;
}

// Counts a call of a slot and tells the status it must fail with, or 0.
// Caller holds the script's lock.
uint32_t injected(zelto_script *script, uint32_t slot) {
    ++script->calls[slot];
    Failure &f = script->failures[slot];
    if (!f.status) return 0;
    ++f.calls;
    if (f.nth == 0) return f.status;
    if (f.calls != f.nth) return 0;
    uint32_t status = f.status;
    f = Failure{};
    return status;
}

Call *record_call(Record *record, const char *name, const char *id, const char *key, const char *value,
                  uint32_t number, uint32_t status) {
    if (!record) return nullptr;  // the script was reset while the request was open
    auto call = std::make_unique<Call>();
    call->name = name;
    call->has_id = id != nullptr;
    call->id = id ? id : "";
    call->has_key = key != nullptr;
    call->key = key ? key : "";
    call->has_value = value != nullptr;
    call->value = value ? value : "";
    call->number = number;
    call->status = status;
    record->calls.push_back(std::move(call));
    return record->calls.back().get();
}

bool is_true(const char *value) { return value && std::strcmp(value, "1") == 0; }

uint32_t option_flag(const char *key) {
    static const struct {
        const char *key;
        uint32_t flag;
    } kFlags[] = {
        {ZELTO_LOOKUP_OPTION_LINK, ZELTO_DATA_LINK},         {ZELTO_LOOKUP_OPTION_GLOBALIDS, ZELTO_DATA_GLOBALIDS},
        {ZELTO_LOOKUP_OPTION_PLAYLIST, ZELTO_DATA_PLAYLIST}, {ZELTO_LOOKUP_OPTION_CLASS, ZELTO_DATA_CLASSICAL},
        {ZELTO_LOOKUP_OPTION_AIM, ZELTO_DATA_AIM},
    };
    for (auto &entry : kFlags)
        if (std::strcmp(entry.key, key) == 0) return entry.flag;
    return 0;
}

// ---- Table slots ---------------------------------------------------------------

uint32_t request_create(const zelto_lookup_interface *table, zelto_lookup_callback callback, void *callback_data,
                        zelto_lookup_request *out_request) {
    uint32_t mode = 0;
    zelto_script *script = table ? script_of(table, &mode) : nullptr;
    if (!script || !out_request) return ZELTO_SCRIPT_BAD_ARG;
    std::lock_guard<std::mutex> guard(script->mutex);
    if (uint32_t status = injected(script, ZELTO_SCRIPT_SLOT_CREATE)) return status;
    auto record = std::make_unique<Record>();
    record->mode = mode;
    auto *request = new zelto_lookup_request_s;
    request->script = script;
    request->record = record.get();
    request->callback = callback;
    request->callback_data = callback_data;
    script->records.push_back(std::move(record));
    ++script->live_requests;
    {
        std::lock_guard<std::mutex> g(g_scripts_mutex);
        requests().insert(request);
    }
    *out_request = request;
    return 0;
}

uint32_t request_add(zelto_lookup_request handle, const char *lookup_type, const char *request_id, const char *group,
                     uint32_t group_flag) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!request) return ZELTO_SCRIPT_BAD_ARG;
    zelto_script *script = request->script;
    std::lock_guard<std::mutex> guard(script->mutex);
    uint32_t status = injected(script, ZELTO_SCRIPT_SLOT_ADD);
    if (!status && (!lookup_type || !request_id || !group)) status = ZELTO_SCRIPT_BAD_ARG;
    record_call(request->record, "add", request_id, lookup_type, group, group_flag, status);
    if (!status) request->ids.push_back(request_id);
    return status;
}

uint32_t request_set_data(zelto_lookup_request handle, const char *request_id, const char *key, const char *value,
                          uint32_t copy_flag) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!request) return ZELTO_SCRIPT_BAD_ARG;
    zelto_script *script = request->script;
    std::lock_guard<std::mutex> guard(script->mutex);
    uint32_t status = injected(script, ZELTO_SCRIPT_SLOT_SET_DATA);
    if (!status && (!request_id || !key)) status = ZELTO_SCRIPT_BAD_ARG;
    record_call(request->record, "data", request_id, key, value, copy_flag, status);
    return status;
}

uint32_t request_set_option(zelto_lookup_request handle, const char *request_id, const char *key, const char *value) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!request) return ZELTO_SCRIPT_BAD_ARG;
    zelto_script *script = request->script;
    std::lock_guard<std::mutex> guard(script->mutex);
    uint32_t status = injected(script, ZELTO_SCRIPT_SLOT_SET_OPTION);
    if (!status && (!request_id || !key)) status = ZELTO_SCRIPT_BAD_ARG;
    record_call(request->record, "option", request_id, key, value, 0, status);
    if (!status) {
        uint32_t flag = option_flag(key);
        if (is_true(value))
            request->flags |= flag;
        else
            request->flags &= ~flag;
    }
    return status;
}

uint32_t request_execute(zelto_lookup_request handle, void *user) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!request) return ZELTO_SCRIPT_BAD_ARG;
    zelto_script *script = request->script;
    std::vector<Event> events;
    uint32_t final_status = 0;
    Call *call = nullptr;
    {
        std::lock_guard<std::mutex> guard(script->mutex);
        uint32_t status = injected(script, ZELTO_SCRIPT_SLOT_EXECUTE);
        call = record_call(request->record, "execute", nullptr, nullptr, host::user_name(user), 0, status);
        if (request->record) request->record->user = user;
        request->user = user;
        zelto_manager_tree_release(request->result);
        request->result = nullptr;
        if (status) return status;
        if (script->next < script->answers.size()) {
            Answer &answer = *script->answers[script->next++];
            events = answer.events;
            final_status = answer.status;
            if (answer.tree && zelto_manager_tree_addref(answer.tree) == 0) request->result = answer.tree;
        }
    }
    // Events go out without the lock: the callback may call back into the host.
    uint8_t abort_flag = 0;
    for (size_t i = 0; i < events.size() && request->callback; ++i) {
        zelto_lookup_status record{events[i].kind, events[i].code, events[i].value1, events[i].value2};
        request->callback(request->callback_data, &record, &abort_flag);
        if (abort_flag == 1) {
            std::lock_guard<std::mutex> guard(script->mutex);
            if (request->record) call->note = "aborted after event " + std::to_string(i + 1);
            final_status = ZELTO_SCRIPT_ABORTED;
            break;
        }
    }
    if (final_status != 0) {
        std::lock_guard<std::mutex> guard(script->mutex);
        if (request->record) call->status = final_status;
        zelto_manager_tree_release(request->result);
        request->result = nullptr;
    }
    return final_status;
}

uint32_t request_get_result(zelto_lookup_request handle, const char *request_id, zelto_rvo_handle *out_result) {
    zelto_lookup_request_s *request = live_request(handle);
    if (!request) return ZELTO_SCRIPT_BAD_ARG;
    zelto_script *script = request->script;
    zelto_manager_tree *tree = nullptr;
    uint32_t status = 0;
    {
        std::lock_guard<std::mutex> guard(script->mutex);
        status = injected(script, ZELTO_SCRIPT_SLOT_GET_RESULT);
        if (!status && (!request_id || !out_result)) status = ZELTO_SCRIPT_BAD_ARG;
        if (!status) {
            bool declared = false;
            for (auto &id : request->ids) declared = declared || id == request_id;
            if (!declared || !request->result) status = ZELTO_SCRIPT_NO_RESULT;
        }
        record_call(request->record, "get_result", request_id, nullptr, nullptr, 0, status);
        if (status) return status;
        tree = request->result;
        zelto_manager_tree_addref(tree);
    }
    status = zelto_manager_tree_to_rvo(tree, request->user, ZELTO_LOCALE_GROUP_MUSIC, request->flags, out_result);
    zelto_manager_tree_release(tree);
    return status;
}

uint32_t request_release(zelto_lookup_request handle) {
    if (!handle) return 0;
    zelto_lookup_request_s *request = live_request(handle);
    if (!request) return ZELTO_SCRIPT_BAD_ARG;
    {
        std::lock_guard<std::mutex> g(g_scripts_mutex);
        requests().erase(request);
    }
    zelto_script *script = request->script;
    {
        std::lock_guard<std::mutex> guard(script->mutex);
        ++script->calls[ZELTO_SCRIPT_SLOT_RELEASE];
        record_call(request->record, "release", nullptr, nullptr, nullptr, 0, 0);
        --script->live_requests;
    }
    zelto_manager_tree_release(request->result);
    delete request;
    return 0;
}

// Each script holds two copies, one per mode, so that a table leads back to
// its script and mode.
constexpr zelto_lookup_interface kTable = {
    .lookup_release = host::table_release,
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

void clear_answers(zelto_script *script) {
    for (auto &answer : script->answers) zelto_manager_tree_release(answer->tree);
    script->answers.clear();
    script->next = 0;
}

Answer *answer_at(zelto_script *script, uint32_t index) {
    return index < script->answers.size() ? script->answers[index].get() : nullptr;
}

Record *record_at(zelto_script *script, uint32_t index) {
    return index < script->records.size() ? script->records[index].get() : nullptr;
}

void append_text(std::string &out, bool present, const std::string &text, bool quoted) {
    if (!present) {
        out += "null";
    } else if (quoted) {
        host::append_quoted(out, text.c_str());
    } else {
        out += text;
    }
}

std::string transcript(const Record &record) {
    std::string out = "mode " + std::to_string(record.mode) + "\n";
    for (auto &c : record.calls) {
        out += c->name;
        if (c->name == "add") {
            out += ' ';
            append_text(out, c->has_key, c->key, false);
            out += ' ';
            append_text(out, c->has_id, c->id, false);
            out += ' ';
            append_text(out, c->has_value, c->value, false);
            out += ' ' + std::to_string(c->number);
        } else if (c->name == "data" || c->name == "option") {
            out += ' ';
            append_text(out, c->has_id, c->id, false);
            out += ' ';
            append_text(out, c->has_key, c->key, false);
            out += ' ';
            append_text(out, c->has_value, c->value, true);
            if (c->name == "data") out += " copy " + std::to_string(c->number);
        } else if (c->name == "execute") {
            out += " user ";
            append_text(out, c->has_value, c->value, true);
        } else if (c->name == "get_result") {
            out += ' ';
            append_text(out, c->has_id, c->id, false);
        }
        if (c->status) {
            char buf[24];
            std::snprintf(buf, sizeof buf, " -> 0x%08X", c->status);
            out += buf;
        }
        out += '\n';
        if (!c->note.empty()) out += c->note + "\n";
    }
    return out;
}

// First successful call of a kind with a key, or null.
const Call *find_call(const Record &record, const char *name, const char *key) {
    for (auto &c : record.calls)
        if (c->status == 0 && c->name == name && (!key || (c->has_key && c->key == key))) return c.get();
    return nullptr;
}

}  // namespace

// ---- Script API ------------------------------------------------------------------

HOST_EXPORT uint32_t zelto_script_create(zelto_script **out_script) {
    if (!out_script) return ZELTO_SCRIPT_BAD_ARG;
    auto *script = new zelto_script;
    script->tables = new zelto_lookup_interface[2]{kTable, kTable};
    {
        std::lock_guard<std::mutex> guard(g_scripts_mutex);
        scripts().insert(script);
    }
    *out_script = script;
    return 0;
}

HOST_EXPORT void zelto_script_destroy(zelto_script *script) {
    if (!live_script(script)) return;
    host::uninstall_provider([&](uint32_t mode) { return &script->tables[mode - 1]; });
    {
        std::lock_guard<std::mutex> guard(g_scripts_mutex);
        scripts().erase(script);
        retired_tables().push_back(script->tables);
        // Requests still open lose their script: they are refused from now on.
        for (auto it = requests().begin(); it != requests().end();) {
            if ((*it)->script == script) {
                zelto_manager_tree_release((*it)->result);
                delete *it;
                it = requests().erase(it);
            } else {
                ++it;
            }
        }
    }
    clear_answers(script);
    delete script;
}

HOST_EXPORT const zelto_lookup_interface *zelto_script_table(zelto_script *script, uint32_t mode) {
    if (!live_script(script) || (mode != 1 && mode != 2)) return nullptr;
    return &script->tables[mode - 1];
}

HOST_EXPORT uint32_t zelto_script_install(zelto_script *script, uint32_t mode) {
    if (!live_script(script)) return ZELTO_SCRIPT_BAD_ARG;
    return host::install_provider(mode, [&](uint32_t m) { return &script->tables[m - 1]; });
}

HOST_EXPORT uint32_t zelto_script_reset(zelto_script *script) {
    if (!live_script(script)) return ZELTO_SCRIPT_BAD_ARG;
    std::lock_guard<std::mutex> guard(script->mutex);
    clear_answers(script);
    // Open requests keep working but no longer record.
    {
        std::lock_guard<std::mutex> g(g_scripts_mutex);
        for (auto *request : requests())
            if (request->script == script) request->record = nullptr;
    }
    script->records.clear();
    for (auto &f : script->failures) f = Failure{};
    for (auto &c : script->calls) c = 0;
    return 0;
}

HOST_EXPORT uint32_t zelto_script_answer(zelto_script *script, zelto_manager_tree *result, uint32_t *out_index) {
    if (!live_script(script)) return ZELTO_SCRIPT_BAD_ARG;
    if (result && zelto_manager_tree_addref(result) != 0) return ZELTO_SCRIPT_BAD_ARG;
    std::lock_guard<std::mutex> guard(script->mutex);
    auto answer = std::make_unique<Answer>();
    answer->tree = result;
    script->answers.push_back(std::move(answer));
    if (out_index) *out_index = static_cast<uint32_t>(script->answers.size() - 1);
    return 0;
}

HOST_EXPORT uint32_t zelto_script_answer_event(zelto_script *script, uint32_t index, uint32_t kind, uint32_t code,
                                               uint32_t value1, uint32_t value2) {
    if (!live_script(script)) return ZELTO_SCRIPT_BAD_ARG;
    std::lock_guard<std::mutex> guard(script->mutex);
    Answer *answer = answer_at(script, index);
    if (!answer) return ZELTO_SCRIPT_BAD_ARG;
    answer->events.push_back({kind, code, value1, value2});
    return 0;
}

HOST_EXPORT uint32_t zelto_script_answer_error(zelto_script *script, uint32_t index, uint32_t kind,
                                               uint32_t error_code, const char *text) {
    if (!live_script(script)) return ZELTO_SCRIPT_BAD_ARG;
    std::lock_guard<std::mutex> guard(script->mutex);
    Answer *answer = answer_at(script, index);
    if (!answer) return ZELTO_SCRIPT_BAD_ARG;
    uintptr_t pointer = 0;
    if (text) {
        answer->texts.emplace_back(text);
        pointer = reinterpret_cast<uintptr_t>(answer->texts.back().c_str());
    }
    answer->events.push_back({kind, ZELTO_LOOKUP_EVENT_ERROR, error_code, pointer});
    return 0;
}

HOST_EXPORT uint32_t zelto_script_answer_status(zelto_script *script, uint32_t index, uint32_t status) {
    if (!live_script(script)) return ZELTO_SCRIPT_BAD_ARG;
    std::lock_guard<std::mutex> guard(script->mutex);
    Answer *answer = answer_at(script, index);
    if (!answer) return ZELTO_SCRIPT_BAD_ARG;
    answer->status = status;
    return 0;
}

HOST_EXPORT uint32_t zelto_script_answers_pending(zelto_script *script) {
    if (!live_script(script)) return 0;
    std::lock_guard<std::mutex> guard(script->mutex);
    return static_cast<uint32_t>(script->answers.size() - script->next);
}

HOST_EXPORT uint32_t zelto_script_fail(zelto_script *script, uint32_t slot, uint32_t status, uint32_t nth) {
    if (!live_script(script) || slot >= kSlots) return ZELTO_SCRIPT_BAD_ARG;
    switch (slot) {
        case ZELTO_SCRIPT_SLOT_CREATE: case ZELTO_SCRIPT_SLOT_ADD: case ZELTO_SCRIPT_SLOT_SET_DATA:
        case ZELTO_SCRIPT_SLOT_SET_OPTION: case ZELTO_SCRIPT_SLOT_EXECUTE: case ZELTO_SCRIPT_SLOT_GET_RESULT:
            break;
        default:
            return ZELTO_SCRIPT_BAD_ARG;
    }
    std::lock_guard<std::mutex> guard(script->mutex);
    script->failures[slot] = Failure{status, status ? nth : 0, 0};
    return 0;
}

HOST_EXPORT uint32_t zelto_script_calls(zelto_script *script, uint32_t slot) {
    if (!live_script(script) || slot >= kSlots) return 0;
    std::lock_guard<std::mutex> guard(script->mutex);
    return script->calls[slot];
}

HOST_EXPORT uint32_t zelto_script_request_count(zelto_script *script) {
    if (!live_script(script)) return 0;
    std::lock_guard<std::mutex> guard(script->mutex);
    return static_cast<uint32_t>(script->records.size());
}

HOST_EXPORT uint32_t zelto_script_live_requests(zelto_script *script) {
    if (!live_script(script)) return 0;
    std::lock_guard<std::mutex> guard(script->mutex);
    return script->live_requests;
}

HOST_EXPORT const char *zelto_script_request_text(zelto_script *script, uint32_t index) {
    if (!live_script(script)) return nullptr;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    if (!record) return nullptr;
    record->text = transcript(*record);
    return record->text.c_str();
}

HOST_EXPORT uint32_t zelto_script_request_mode(zelto_script *script, uint32_t index) {
    if (!live_script(script)) return 0;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    return record ? record->mode : 0;
}

HOST_EXPORT void *zelto_script_request_user(zelto_script *script, uint32_t index) {
    if (!live_script(script)) return nullptr;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    return record ? record->user : nullptr;
}

HOST_EXPORT uint32_t zelto_script_request_call_count(zelto_script *script, uint32_t index) {
    if (!live_script(script)) return 0;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    return record ? static_cast<uint32_t>(record->calls.size()) : 0;
}

HOST_EXPORT uint32_t zelto_script_request_call(zelto_script *script, uint32_t index, uint32_t n, const char **out_name,
                                               const char **out_id, const char **out_key, const char **out_value,
                                               uint32_t *out_number, uint32_t *out_status) {
    if (!live_script(script)) return ZELTO_SCRIPT_BAD_ARG;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    if (!record || n >= record->calls.size()) return ZELTO_SCRIPT_NO_RESULT;
    const Call &c = *record->calls[n];
    if (out_name) *out_name = c.name.c_str();
    if (out_id) *out_id = c.has_id ? c.id.c_str() : nullptr;
    if (out_key) *out_key = c.has_key ? c.key.c_str() : nullptr;
    if (out_value) *out_value = c.has_value ? c.value.c_str() : nullptr;
    if (out_number) *out_number = c.number;
    if (out_status) *out_status = c.status;
    return 0;
}

HOST_EXPORT const char *zelto_script_request_lookup_type(zelto_script *script, uint32_t index) {
    if (!live_script(script)) return nullptr;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    const Call *c = record ? find_call(*record, "add", nullptr) : nullptr;
    return c && c->has_key ? c->key.c_str() : nullptr;
}

HOST_EXPORT const char *zelto_script_request_data(zelto_script *script, uint32_t index, const char *key) {
    if (!live_script(script) || !key) return nullptr;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    const Call *c = record ? find_call(*record, "data", key) : nullptr;
    return c && c->has_value ? c->value.c_str() : nullptr;
}

HOST_EXPORT const char *zelto_script_request_option(zelto_script *script, uint32_t index, const char *key) {
    if (!live_script(script) || !key) return nullptr;
    std::lock_guard<std::mutex> guard(script->mutex);
    Record *record = record_at(script, index);
    const Call *c = record ? find_call(*record, "option", key) : nullptr;
    return c && c->has_value ? c->value.c_str() : nullptr;
}
