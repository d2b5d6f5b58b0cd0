// Module lifecycle, status mapping, the public entry and exit pattern, and
// the query handle.
#include "cantrix/cantrix_internal.h"
#include "cantrix/cantrix_requests.h"
#include "cantrix/cantrix_responses.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"

extern "C" {
const zelto_manager_table *g_cantrix_manager_interface = nullptr;
const zelto_errorinfo_interface *g_cantrix_errorinfo_interface = nullptr;
const zelto_handlemanager_interface *g_cantrix_handlemanager_interface = nullptr;
const zelto_userinfo_interface *g_cantrix_userinfo_interface = nullptr;
const zelto_rvo_interface *g_cantrix_rvo_interface = nullptr;
const zelto_lists_interface *g_cantrix_lists_interface = nullptr;
const zelto_serialization_interface *g_cantrix_serialization_interface = nullptr;
const zelto_dsp_interface *g_cantrix_dsp_interface = nullptr;
}

namespace {

using namespace cantrix;

constexpr const char *kModuleVersion = ombr::kVersion;
constexpr const char *kModuleBuildDate = "2013-01-08 07:56-0800";
constexpr uint32_t kLogPackageAlias = 0x31;

// Bring-up lock and count of the module, in the base packages' frame.
ombr::PackageState _g_module_frame;

// Writes a notice line to the module's package and to its alias package.
template <typename... Args>
void log_notice_twice(const char *format, Args... args) {
    ombr::log_message(kPackage, OMBR_LOG_NOTICE, 0, nullptr, format, args...);
    ombr::log_message(kLogPackageAlias, OMBR_LOG_NOTICE, 0, nullptr, format, args...);
}

// The base packages the module brings up, in bring-up order; take-down uses
// the same order.
struct BasePackage {
    uint32_t (*initialize)();
    uint32_t (*shutdown)();
};
constexpr BasePackage kBasePackages[] = {
    {ombr_memory_initialize, ombr_memory_shutdown}, {ombr_thread_initialize, ombr_thread_shutdown},
    {ombr_string_initialize, ombr_string_shutdown}, {ombr_datatypes_initialize, ombr_datatypes_shutdown},
    {ombr_hdo_initialize, ombr_hdo_shutdown},
};
constexpr size_t kBaseCount = sizeof kBasePackages / sizeof kBasePackages[0];

// Fetches one table into `slot` with mode 0.
template <typename Table>
uint32_t fetch_table(const zelto_manager_table *manager, const char *name, const Table *&slot) {
    const void *table = nullptr;
    uint32_t status = manager->interface_get(name, 0, 0, &table);
    if (status == 0) slot = static_cast<const Table *>(table);
    return status;
}

// Gives a held table back through its slot 0 and clears the pointer.
template <typename Table>
void release_table(const Table *&slot) {
    if (slot) {
        reinterpret_cast<const zelto_table_release_fn *>(slot)[0](slot);
        slot = nullptr;
    }
}

}  // namespace

// ---- Lifecycle -----------------------------------------------------------------

extern "C" uint32_t _cantrix_init_func(const zelto_manager_table *manager) {
    g_cantrix_manager_interface = manager;
    bool started[kBaseCount] = {};
    uint32_t status = 0;
    for (size_t i = 0; i < kBaseCount && status == 0; ++i) {
        status = kBasePackages[i].initialize();
        started[i] = status == 0;
    }
    if (status == 0) status = manager->register_package(kPackage, "ZELTO CNX");
    if (status == 0) status = fetch_table(manager, ZELTO_SERVICE_ERRORINFO, g_cantrix_errorinfo_interface);
    if (status == 0) status = fetch_table(manager, ZELTO_SERVICE_HANDLEMANAGER, g_cantrix_handlemanager_interface);
    if (status == 0) status = fetch_table(manager, ZELTO_SERVICE_USERINFO, g_cantrix_userinfo_interface);
    if (status == 0) status = fetch_table(manager, ZELTO_SERVICE_RVO, g_cantrix_rvo_interface);
    if (status == 0) status = fetch_table(manager, ZELTO_SERVICE_LISTS, g_cantrix_lists_interface);
    if (status == 0) status = fetch_table(manager, ZELTO_SERVICE_SERIALIZATION, g_cantrix_serialization_interface);
    if (status == 0) {
        // Signal processing is optional: without it the module still comes up.
        (void)fetch_table(manager, ZELTO_SERVICE_DSP, g_cantrix_dsp_interface);
        return 0;
    }
    _cantrix_shutdown_func(0);
    for (size_t i = 0; i < kBaseCount; ++i)
        if (started[i]) kBasePackages[i].shutdown();
    return ombr::fail(status, kUnit);
}

extern "C" uint32_t _cantrix_shutdown_func(uint32_t flag) {
    release_table(g_cantrix_dsp_interface);
    release_table(g_cantrix_serialization_interface);
    release_table(g_cantrix_lists_interface);
    release_table(g_cantrix_rvo_interface);
    release_table(g_cantrix_handlemanager_interface);
    release_table(g_cantrix_userinfo_interface);
    release_table(g_cantrix_errorinfo_interface);
    if (flag != 0)
        for (const BasePackage &pkg : kBasePackages) pkg.shutdown();
    return 0;
}

extern "C" uint32_t _cantrix_map_error(uint32_t status) {
    if (status == 0) return 0;
    uint32_t package = OMBR_STATUS_PKG(status);
    uint32_t value = OMBR_STATUS_VALUE(status);
    if (package == kPackage) return status;
    if (value == 2) return kNoMemory;
    if (value == 3) return kNotFound;
    switch (package) {
        case 4:
        case 20: return ZELTO_CANTRIX_LOOKUP_FAILED;
        case 7: return ZELTO_CANTRIX_MANAGER_FAILED;
        case 14: return ZELTO_CANTRIX_SERIAL_FAILED;
        case 16: return ZELTO_CANTRIX_RVO_FAILED;
        case 21: return ZELTO_CANTRIX_LISTS_FAILED;
        default: return ZELTO_CANTRIX_FAILURE | value;
    }
}

OMBR_API uint32_t zelto_cantrix_initialize(const zelto_manager_table *manager) {
    constexpr const char *kFunction = "zelto_cantrix_initialize";
    if (!manager) return ombr::error_exit(kInvalidArg, 0, kFunction);
    if (manager->magic != ZELTO_MANAGER_MAGIC || !ombr_string_equal(manager->version, ZELTO_MANAGER_VERSION, 1))
        return ombr::error_exit(kBadManager, 0, kFunction);

    // The frame runs the bring-up at the first call only and counts the calls.
    if (ombr::package_initialize(_g_module_frame, [manager] { return _cantrix_init_func(manager); }) != 0)
        return ombr::error_exit(kInitFailed, 0, kFunction);

    log_notice_twice("Cantrix Initialize: Version %s  Built %s", kModuleVersion, kModuleBuildDate);
    return 0;
}

OMBR_API uint32_t zelto_cantrix_shutdown(void) {
    log_notice_twice("Cantrix Shutdown");
    // 7 while down; the last take-down gives the tables back and takes the
    // base packages down.
    const uint32_t working = ombr::package_shutdown(_g_module_frame, [] { return _cantrix_shutdown_func(1); });
    return ombr::error_exit(_cantrix_map_error(working), 0, "zelto_cantrix_shutdown");
}

OMBR_API uint32_t zelto_cantrix_initchecks(void) { return _g_module_frame.count(); }

const ombr_spinlock_t *cantrix::module_init_lock() { return &_g_module_frame.init_lock; }
OMBR_API const char *zelto_cantrix_get_version(void) { return kModuleVersion; }
OMBR_API const char *zelto_cantrix_get_build_date(void) { return kModuleBuildDate; }

// ---- The public pattern ------------------------------------------------------------

uint32_t cantrix::report_argument(const char *function, uint32_t status, bool info, const char *message) {
    if (info) errorinfo_set(status, status, function, message);
    return ombr::error_exit(status, 0, function);
}

uint32_t cantrix::check_query_handle(const char *function, const void *handle, const char *info_name,
                                     std::source_location where) {
    uint32_t working = handle ? g_cantrix_handlemanager_interface->handle_validate(handle, kQueryMagic) : kInvalidArg;
    if (working == 0) return 0;
    uint32_t mapped = _cantrix_map_error(working);
    errorinfo_set(mapped, working, info_name ? info_name : function, nullptr);
    return ombr::error_exit(mapped, where.line(), kUnit);
}

uint32_t cantrix::finish(const char *function, uint32_t working) {
    uint32_t mapped = _cantrix_map_error(working);
    errorinfo_set(mapped, working, function, nullptr);
    return ombr::error_exit(mapped, 0, function);
}

// ---- Query handle --------------------------------------------------------------------

extern "C" uint32_t _cantrix_clear_query(cantrix_query *query) {
    if (!query) return 0;
    g_cantrix_rvo_interface->rvo_release(query->input_rvo);
    query->input_rvo = nullptr;
    ombr_stringmap_delete(query->text_fields);
    query->text_fields = nullptr;
    ombr_vector_delete(query->toc_offsets);
    query->toc_offsets = nullptr;
    query->toc_starts_at_zero = 0;
    char **texts[] = {&query->fp_data, &query->fp_kind, &query->fp_algorithm_name, &query->fp_algorithm_version};
    for (char **text : texts) {
        ombr_string_free(*text);
        *text = nullptr;
    }
    // Generator and blocks can only exist while signal processing is there.
    if (g_cantrix_dsp_interface) {
        g_cantrix_dsp_interface->dsp_generator_release(query->fp_generator);
        query->fp_generator = nullptr;
        ombr_vector_delete(query->fp_blocks);
        query->fp_blocks = nullptr;
    }
    return 0;
}

extern "C" uint32_t _cantrix_free_query(cantrix_query *query) {
    if (!query) return 0;
    _cantrix_clear_query(query);
    ombr_stringmap_delete(query->options);
    g_cantrix_userinfo_interface->userinfo_release(query->user);
    if (query->lookup) query->lookup->lookup_release(query->lookup);
    ombr_thread_critsec_delete(query->lock);
    ombr_memory_free(query);
    return 0;
}

OMBR_API uint32_t zelto_cantrix_query_create(zelto_user_handle user, zelto_cantrix_status_callback callback,
                                             void *callback_data, zelto_cantrix_query_handle *out_query) {
    constexpr const char *kFunction = "zelto_cantrix_query_create";
    if (zelto_cantrix_initchecks() == 0) return ombr::error_exit(kNotInitialized, 0, kFunction);
    if (!out_query) return report_argument(kFunction, kInvalidArg, true);

    uint32_t working = user ? g_cantrix_handlemanager_interface->handle_validate_user(user) : kInvalidArg;
    if (working != 0) {
        uint32_t mapped = _cantrix_map_error(working);
        errorinfo_set(mapped, working, kFunction, nullptr);
        return ombr::fail(mapped, kUnit);
    }

    auto *query = static_cast<cantrix_query *>(ombr_memory_alloc(sizeof(cantrix_query)));
    if (!query) return finish(kFunction, kNoMemory);
    ombr_memory_memset(query, 0, sizeof *query);
    query->magic = kQueryMagic;
    query->user = user;
    query->callback = callback;
    query->callback_data = callback_data;
    g_cantrix_userinfo_interface->userinfo_addref(user);
    // A user without this option leaves the mode null, which acts as online.
    (void)g_cantrix_userinfo_interface->userinfo_option_get(user, ZELTO_USEROPTION_LOOKUP_MODE, &query->lookup_mode);

    working = ombr_thread_critsec_create(&query->lock);
    if (working == 0) working = g_cantrix_handlemanager_interface->handle_add(query);
    if (working != 0) {
        _cantrix_free_query(query);
        return finish(kFunction, working);
    }
    *out_query = query;
    return finish(kFunction, 0);
}

OMBR_API uint32_t zelto_cantrix_query_release(zelto_cantrix_query_handle query) {
    constexpr const char *kFunction = "zelto_cantrix_query_release";
    if (zelto_cantrix_initchecks() == 0) return ombr::error_exit(kNotInitialized, 0, kFunction);
    if (!query) return 0;
    if (uint32_t status = check_query_handle(kFunction, query)) return status;
    if (query->callback) {
        if (query_busy(query))
            return report_argument(kFunction, kBusy, true,
                                   "Cannot call zelto_cantrix_query_release within own callback");
        uint8_t abort = 0;
        set_query_busy(query, true);
        query->callback(query->callback_data, query, ZELTO_CANTRIX_STATUS_RELEASE, 0, 0, &abort);
        set_query_busy(query, false);
    }
    g_cantrix_handlemanager_interface->handle_remove(query);
    _cantrix_free_query(query);
    return 0;
}

// ---- Query options -----------------------------------------------------------------------

namespace {

enum class ValueTest { none, mode, range, language, flag };

struct OptionRow {
    const char *key;
    ValueTest test;
    uint32_t flag_bit;          // data_flags bit of a boolean option
    const char *default_value;  // what get gives while the option is unset
    bool readable;
};

// Keys in the order they are matched; keys compare without regard to case.
constexpr OptionRow kOptions[] = {
    {ZELTO_CANTRIX_OPTION_LOOKUP_MODE, ValueTest::mode, 0, nullptr, true},
    {ZELTO_CANTRIX_OPTION_RANGE_START, ValueTest::range, 0, "1", true},
    {ZELTO_CANTRIX_OPTION_RANGE_SIZE, ValueTest::range, 0, nullptr, true},
    {ZELTO_CANTRIX_OPTION_PREFERRED_LANG, ValueTest::language, 0, nullptr, true},
    {ZELTO_CANTRIX_OPTION_ENABLE_CLASSICAL, ValueTest::flag, ZELTO_DATA_CLASSICAL, "false", true},
    {ZELTO_CANTRIX_OPTION_ENABLE_GLOBALIDS, ValueTest::flag, ZELTO_DATA_GLOBALIDS, "false", true},
    {ZELTO_CANTRIX_OPTION_ENABLE_DSP, ValueTest::flag, ZELTO_DATA_PLAYLIST, "false", true},
    {ZELTO_CANTRIX_OPTION_ENABLE_SONIC, ValueTest::flag, ZELTO_DATA_PLAYLIST, "false", true},
    {ZELTO_CANTRIX_OPTION_ENABLE_PLAYLIST, ValueTest::flag, ZELTO_DATA_PLAYLIST, "false", true},
    {ZELTO_CANTRIX_OPTION_ENABLE_LINK, ValueTest::flag, ZELTO_DATA_LINK, "false", true},
    {ZELTO_CANTRIX_OPTION_ENABLE_AIM, ValueTest::flag, ZELTO_DATA_AIM, "false", true},
    {ZELTO_CANTRIX_OPTION_SINGLE_RESULT, ValueTest::none, 0, "false", true},
    {ZELTO_CANTRIX_OPTION_PREFER_XID, ValueTest::none, 0, "false", true},
    {ZELTO_CANTRIX_OPTION_PREFER_COVERART, ValueTest::none, 0, "false", true},
    {ZELTO_CANTRIX_OPTION_REVISION_CHECK, ValueTest::none, 0, "false", true},
    {ZELTO_CANTRIX_OPTION_SEARCH_PRESET, ValueTest::none, 0, nullptr, false},
    {ZELTO_CANTRIX_OPTION_OUTPUT, ValueTest::none, 0, nullptr, false},
    {ZELTO_CANTRIX_OPTION_ADDITIONAL_CREDITS, ValueTest::none, 0, nullptr, false},
};

const OptionRow *find_option(const char *key) {
    for (const OptionRow &row : kOptions)
        if (ombr_string_equal(row.key, key, 1)) return &row;
    return nullptr;
}

// The module's own constant for a mode text, compared with case; null if
// the text is no mode.
const char *mode_constant(const char *value) {
    const char *const modes[] = {ZELTO_LOOKUPMODE_ONLINE, ZELTO_LOOKUPMODE_ONLINE_NOCACHE, ZELTO_LOOKUPMODE_LOCAL};
    for (const char *mode : modes)
        if (ombr_string_equal(mode, value, 0)) return mode;
    return nullptr;
}

// Applies the row's value test and side effect; 0 or the refusal's code.
uint32_t apply_option(cantrix_query *query, const OptionRow &row, const char *value) {
    switch (row.test) {
        case ValueTest::mode: {
            const char *mode = mode_constant(value);
            if (!mode) return ombr::fail(kInvalidArg, kUnit);
            query->lookup_mode = mode;
            return 0;
        }
        case ValueTest::range:
            return ombr_string_atoi32(value) >= 1 ? 0 : kRangeInvalid;
        case ValueTest::language: {
            const char *text = nullptr;
            return g_cantrix_lists_interface->list_language_get(value, &text) == 0 ? 0 : kInvalidData;
        }
        case ValueTest::flag:
            if (ombr_string_atobool(value))
                query->data_flags |= row.flag_bit;
            else
                query->data_flags &= ~row.flag_bit;
            return 0;
        case ValueTest::none:
            return 0;
    }
    return 0;
}

}  // namespace

OMBR_API uint32_t zelto_cantrix_query_option_set(zelto_cantrix_query_handle query, const char *key,
                                                 const char *value) {
    constexpr const char *kFunction = "zelto_cantrix_query_option_set";
    return query_call(
        kFunction, query,
        [&] { return ombr_string_isempty(key) ? report_argument(kFunction, kInvalidArg, false) : 0u; },
        [&](cantrix_query *q) -> uint32_t {
            if (!q->options) {
                uint32_t status = ombr_stringmap_create(&q->options, 0);
                if (status != 0) return status;
            }
            const OptionRow *row = find_option(key);
            if (!row) return kInvalidArg;
            if (uint32_t status = apply_option(q, *row, value)) return status;
            return ombr_stringmap_value_add(q->options, key, value);
        });
}

OMBR_API uint32_t zelto_cantrix_query_option_get(zelto_cantrix_query_handle query, const char *key,
                                                 const char **out_value) {
    constexpr const char *kFunction = "zelto_cantrix_query_option_get";
    return query_call(
        kFunction, query,
        [&] {
            return ombr_string_isempty(key) || !out_value ? report_argument(kFunction, kInvalidArg, true) : 0u;
        },
        [&](cantrix_query *q) -> uint32_t {
            const OptionRow *row = find_option(key);
            if (!row || !row->readable) return kInvalidArg;
            const char *value = row->test == ValueTest::mode ? q->lookup_mode : row->default_value;
            const char *stored = nullptr;
            if (q->options && ombr_stringmap_value_find(q->options, key, &stored) == 0) value = stored;
            *out_value = value;
            return 0;
        });
}

// ---- TOC input ------------------------------------------------------------------------------

namespace {
constexpr uint32_t kMaxAddedOffsets = 100;
constexpr uint32_t kMaxTocStringValue = 1000000;
}  // namespace

OMBR_API uint32_t zelto_cantrix_query_add_toc_offset(zelto_cantrix_query_handle query, uint32_t offset) {
    return query_call("zelto_cantrix_query_add_toc_offset", query, no_argument_tests,
                      [&](cantrix_query *q) -> uint32_t {
                          if (!q->toc_offsets && !q->fp_data) {
                              _cantrix_clear_query(q);
                              uint32_t status = ombr_vector_create(&q->toc_offsets, 0, nullptr, nullptr);
                              if (status != 0) return status;
                          }
                          uint32_t stored = 0;
                          ombr_vector_count(q->toc_offsets, &stored);
                          const uint32_t count = stored + q->toc_starts_at_zero;
                          if (count >= kMaxAddedOffsets) return kInvalidToc;
                          if (count != 0) {
                              uintptr_t last = 0;  // the leading 0 when the vector is empty
                              if (stored != 0) ombr_vector_getindex(q->toc_offsets, stored - 1, &last);
                              if (last >= offset) return kInvalidToc;
                          }
                          // A first 0 is kept beside the vector, which takes no 0.
                          if (offset == 0 && q->toc_offsets) {
                              q->toc_starts_at_zero = 1;
                              return 0;
                          }
                          // With fingerprint data and no vector this fails: no vector was made.
                          return ombr_vector_add(q->toc_offsets, offset);
                      });
}

OMBR_API uint32_t zelto_cantrix_query_set_toc_string(zelto_cantrix_query_handle query, const char *toc_string) {
    constexpr const char *kFunction = "zelto_cantrix_query_set_toc_string";
    if (zelto_cantrix_initchecks() == 0) return ombr::error_exit(kNotInitialized, 0, kFunction);
    if (ombr_string_isempty(toc_string)) return report_argument(kFunction, kInvalidArg, true);
    if (!ombr_string_isvalid(toc_string))
        return report_argument(kFunction, kInvalidUtf8, true, "toc_string parameter invalid UTF8");
    if (uint32_t status = check_query_handle(kFunction, query, "\"zelto_cantrix_query_set_toc_string\""))
        return status;

    uint32_t working = 0;
    uint32_t counted = 0;
    char *copy = nullptr;
    {
        QueryLock guard(query);
        if (query->fp_data) {
            ombr_vector_delete(query->toc_offsets);
            query->toc_offsets = nullptr;
            query->toc_starts_at_zero = 0;
        } else {
            _cantrix_clear_query(query);
        }
        copy = ombr_string_strdup(toc_string);
        working = copy ? ombr_vector_create(&query->toc_offsets, 0, nullptr, nullptr) : kNoMemory;
        // Numbers accepted before a bad token stay in the vector.
        char *save = nullptr;
        char delimiter = 0;
        uint32_t previous = 0;
        for (char *token = working == 0 ? ombr_string_strtok(copy, " ", &save, &delimiter) : nullptr; token;
             token = ombr_string_strtok(nullptr, " ", &save, &delimiter)) {
            uint32_t value = ombr_string_atou32(token);
            if (value > kMaxTocStringValue || value <= previous) {
                working = kInvalidToc;
                break;
            }
            working = ombr_vector_add(query->toc_offsets, value);
            if (working != 0) break;
            previous = value;
            ++counted;
        }
    }
    if (working == 0 && counted < 2) {
        ombr_string_free(copy);
        errorinfo_set(kInvalidToc, kInvalidToc, kFunction, toc_string);
        return ombr::error_exit(kInvalidToc, 0, toc_string);
    }
    ombr_string_free(copy);
    return finish(kFunction, working);
}

// ---- Find operations ----------------------------------------------------------------------

extern "C" uint32_t _cantrix_map_response_code(zelto_rvo_handle object, const char **out_text) {
    static constexpr struct {
        const char *code;
        const char *match_type;
    } kCodes[] = {
        {ZELTO_RESULT_NO_MATCHES, ZELTO_MATCH_TYPE_NONE},
        {ZELTO_RESULT_SINGLE_MATCH, ZELTO_MATCH_TYPE_SINGLE},
        {ZELTO_RESULT_FUZZY_MATCHES, ZELTO_MATCH_TYPE_FUZZY},
        {ZELTO_RESULT_MULTIEXACT_MATCHES, ZELTO_MATCH_TYPE_MULTI},
        {ZELTO_RESULT_NO_NEW_REV, nullptr},
    };
    const char *code = nullptr;
    uint32_t status = g_cantrix_rvo_interface->rvo_value_get(object, ZELTO_VAL_RESPONSE_CODE, 1, &code);
    if (status != 0) return ombr::fail(status, kUnit);
    const char *match_type = nullptr;
    for (const auto &row : kCodes)
        if (ombr_string_equal(row.code, code, 1)) match_type = row.match_type;
    if (out_text) *out_text = match_type;
    return 0;
}

namespace {

// What one find operation holds between its opening and its closing.
struct FindState {
    cantrix_query *query;
    ombr_stringmap *info;        // may be null
    zelto_rvo_handle object;     // the lookup's object, released at the close
    cantrix_response *response;  // the record to wrap
};

// Adds a value to the info map when there is one.
uint32_t info_add(FindState &find, const char *key, const char *value) {
    return find.info ? ombr_stringmap_value_add(find.info, key, value) : 0;
}

// A branch that finds nothing to search with.
uint32_t no_suitable_input(const char *function, const char *message) {
    errorinfo_set(kNoSuitableInput, kNoSuitableInput, function, message);
    return kNoSuitableInput;
}

constexpr const char *kBusyOnHandle = "Cantrix query already in progress on this handle";

// What sets the four find operations apart at their opening and closing.
struct FindFrame {
    const char *function;
    const char *busy_message;
    const char *busy_hook_name;  // the name the error hook hears for a busy query
    bool info_required;          // an info map that cannot be made ends the call
    bool releases_object;        // the closing gives the lookup's object back
};

// The opening and closing shared by the find operations. `body` chooses
// the branch, runs lookup and processing, and leaves the lookup's object
// and the response record in the state. Matches and lyrics give the object
// back in their body, so their closing makes no second release.
template <typename Body>
uint32_t run_find(const FindFrame &frame, zelto_cantrix_query_handle query, zelto_rvo_handle *out_response, Body body) {
    const char *function = frame.function;
    if (zelto_cantrix_initchecks() == 0) return ombr::error_exit(kNotInitialized, 0, function);
    if (!out_response) return report_argument(function, kInvalidArg, true);
    if (uint32_t status = check_query_handle(function, query)) return status;
    if (query_busy(query)) {
        errorinfo_set(kBusy, kBusy, function, frame.busy_message);
        return ombr::error_exit(kBusy, 0, frame.busy_hook_name);
    }
    FindState find{query, nullptr, nullptr, nullptr};
    uint32_t working = ombr_stringmap_create(&find.info, 0);
    if (working != 0) {
        find.info = nullptr;
        if (frame.info_required) return finish(function, working);
        working = 0;
    }
    {
        QueryLock guard(query);
        const char *language = nullptr;
        if (query->options && g_cantrix_lists_interface && find.info &&
            ombr_stringmap_value_find(query->options, ZELTO_CANTRIX_OPTION_PREFERRED_LANG, &language) == 0) {
            const char *yielded = nullptr;
            (void)g_cantrix_lists_interface->list_language_get(language, &yielded);
            if (yielded) info_add(find, ZELTO_VAL_LOOKUP_LANG, yielded);
        }
        working = body(find);
        if (working == 0) {
            zelto_rvo_handle object = nullptr;
            working = g_cantrix_rvo_interface->rvo_create(find.response, &g_cantrix_rvo_response_provider, query->user,
                                                          ZELTO_LOCALE_GROUP_MUSIC, query->data_flags, &object);
            if (working == 0)
                *out_response = object;
            else
                _cantrix_rvo_response_release(find.response);
        }
    }
    ombr_stringmap_delete(find.info);
    if (frame.releases_object) g_cantrix_rvo_interface->rvo_release(find.object);
    return finish(function, working);
}

// The search preset of a query, or null when it is absent or empty.
const char *search_preset(const cantrix_query *query) {
    const char *preset = nullptr;
    if (!query->options || ombr_stringmap_value_find(query->options, ZELTO_CANTRIX_OPTION_SEARCH_PRESET, &preset) != 0)
        return nullptr;
    return ombr_string_isempty(preset) ? nullptr : preset;
}

// Keys an input object passes on to the results found through it.
constexpr const char *kInheritedKeys[] = {
    ZELTO_VAL_LOOKUP_TYPE, ZELTO_VAL_MATCH_TYPE,    ZELTO_VAL_LOOKUP_LANG,
    ZELTO_VAL_TOC_ALBUM,   ZELTO_VAL_TXTMATCHSCORE, ZELTO_VAL_ALB_WORKORDERS,
};

}  // namespace

OMBR_API uint32_t zelto_cantrix_query_find_albums(zelto_cantrix_query_handle query, zelto_rvo_handle *out_response) {
    constexpr const char *kFunction = "zelto_cantrix_query_find_albums";
    constexpr FindFrame kFrame{kFunction, kBusyOnHandle, kFunction, false, true};
    return run_find(kFrame, query, out_response, [&](FindState &find) -> uint32_t {
        cantrix_query *q = find.query;
        const char *match_type = nullptr;
        uint32_t status = 0;
        const char *preset = search_preset(q);
        if (preset || (q->text_fields && !q->input_rvo)) {
            if ((status = info_add(find, ZELTO_VAL_LOOKUP_TYPE, ZELTO_LOOKUP_BY_TEXT))) return status;
            status = preset ? _cantrix_perform_presetsearch(q, 1, preset, &find.object)
                            : _cantrix_perform_albumsearch(q, 1, &find.object);
            if (status != 0) return status;
            if ((status = _cantrix_map_response_code(find.object, &match_type))) return status;
            if ((status = info_add(find, ZELTO_VAL_MATCH_TYPE, match_type))) return status;
            return _cantrix_process_search_response(q, find.object, find.info, &find.response);
        }
        if (q->input_rvo) {
            if ((status = _cantrix_perform_rvolookup(q, 1, &find.object))) return status;
            if ((status = _cantrix_map_response_code(find.object, &match_type))) return status;
            if (find.info) {
                info_add(find, ZELTO_VAL_MATCH_TYPE, match_type);
                info_add(find, ZELTO_VAL_LOOKUP_TYPE, ZELTO_LOOKUP_BY_TUI);
                // The input object's history wins over the new values.
                for (const char *key : kInheritedKeys) {
                    const char *value = nullptr;
                    if (g_cantrix_rvo_interface->rvo_value_get(q->input_rvo, key, 1, &value) == 0)
                        info_add(find, key, value);
                }
            }
            return _cantrix_process_album_response(q, find.object, find.info, nullptr, &find.response);
        }
        const bool toc = q->toc_offsets != nullptr;
        if (!toc && !q->fp_data)
            return no_suitable_input(kFunction, "No suitable input provided to perform Album search");
        if ((status = info_add(find, ZELTO_VAL_LOOKUP_TYPE, toc ? ZELTO_LOOKUP_BY_TOC : ZELTO_LOOKUP_BY_FP)))
            return status;
        status = toc ? _cantrix_perform_toclookup(q, 1, &find.object) : _cantrix_perform_fpxlookup(q, 1, &find.object);
        if (status != 0) return status;
        if ((status = _cantrix_map_response_code(find.object, &match_type))) return status;
        if ((status = info_add(find, ZELTO_VAL_MATCH_TYPE, match_type))) return status;
        if (toc) {
            char text[1024];
            ombr_memory_memset(text, 0, sizeof text);
            if ((status = _cantrix_build_toc_string(q, text, sizeof text))) return status;
            if ((status = info_add(find, ZELTO_VAL_TOC_ALBUM, text))) return status;
        }
        return _cantrix_process_album_response(q, find.object, find.info, nullptr, &find.response);
    });
}

// ---- Text and object input ----------------------------------------------------------------

namespace {

// The text fields a query accepts, compared exactly at set time.
constexpr const char *kTextFields[] = {
    ZELTO_CANTRIX_FIELD_ARTIST,       ZELTO_CANTRIX_FIELD_ALBUM,    ZELTO_CANTRIX_FIELD_TITLE,
    ZELTO_CANTRIX_FIELD_COMPOSER,     ZELTO_CANTRIX_FIELD_FRAGMENT, ZELTO_CANTRIX_FIELD_ALBUM_ARTIST,
    ZELTO_CANTRIX_FIELD_TRACK_ARTIST, ZELTO_CANTRIX_FIELD_LYRIC,
};

bool is_text_field(const char *field) {
    for (const char *known : kTextFields)
        if (ombr_string_equal(known, field, 0)) return true;
    return false;
}

}  // namespace

OMBR_API uint32_t zelto_cantrix_query_set_text(zelto_cantrix_query_handle query, const char *search_field,
                                               const char *search_text) {
    constexpr const char *kFunction = "zelto_cantrix_query_set_text";
    return query_call(
        kFunction, query,
        [&]() -> uint32_t {
            if (ombr_string_isempty(search_field))
                return report_argument(kFunction, kInvalidArg, true,
                                       "zelto_cantrix_query_set_text 'search_field' parameter empty");
            if (!ombr_string_isvalid(search_text))
                return report_argument(kFunction, kInvalidUtf8, true,
                                       "zelto_cantrix_query_set_text 'search_text' parameter invalid UTF8");
            return 0;
        },
        [&](cantrix_query *q) -> uint32_t {
            if (!q->text_fields) {
                _cantrix_clear_query(q);
                uint32_t status = ombr_stringmap_create(&q->text_fields, 0);
                if (status != 0) return status;
            }
            return ombr_stringmap_value_add(q->text_fields, search_field, search_text);
        },
        nullptr, std::source_location::current(),
        // The field test follows the handle test and stands outside the lock.
        [&]() -> uint32_t {
            if (is_text_field(search_field)) return 0;
            // The message text takes the function name's place and the
            // caller's field text the format's; kept as the service sees it.
            g_cantrix_errorinfo_interface->errorinfo_set_format(
                kInvalidArg, kInvalidArg, "zelto_cantrix_query_set_text invalid search_field parameter: '%s'",
                search_field);
            return ombr::error_exit(kInvalidArg, 0, kFunction);
        });
}

OMBR_API uint32_t zelto_cantrix_query_set_rvo(zelto_cantrix_query_handle query, zelto_rvo_handle object) {
    constexpr const char *kFunction = "zelto_cantrix_query_set_rvo";
    return query_call(
        kFunction, query, no_argument_tests,
        [&](cantrix_query *q) -> uint32_t {
            _cantrix_clear_query(q);
            q->input_rvo = object;
            g_cantrix_rvo_interface->rvo_addref(object);
            return 0;
        },
        nullptr, std::source_location::current(),
        [&]() -> uint32_t {
            uint32_t working = object ? g_cantrix_handlemanager_interface->handle_validate_rvo(object) : kInvalidArg;
            if (working == 0) return 0;
            uint32_t mapped = _cantrix_map_error(working);
            errorinfo_set(mapped, working, kFunction, nullptr);
            return ombr::fail(mapped, kUnit);
        });
}

OMBR_API uint32_t zelto_cantrix_query_find_tracks(zelto_cantrix_query_handle query, zelto_rvo_handle *out_response) {
    constexpr const char *kFunction = "zelto_cantrix_query_find_tracks";
    constexpr FindFrame kFrame{kFunction, kBusyOnHandle, kFunction, false, true};
    return run_find(kFrame, query, out_response,
                    [&](FindState &find) -> uint32_t {
                        cantrix_query *q = find.query;
                        const char *preset = search_preset(q);
                        uint32_t status = 0;
                        // A TOC is no input for tracks.
                        const char *type = preset || (!q->input_rvo && q->text_fields) ? ZELTO_LOOKUP_BY_TEXT
                                           : q->input_rvo                              ? ZELTO_LOOKUP_BY_TUI
                                           : q->fp_data                                ? ZELTO_LOOKUP_BY_FP
                                                                                       : nullptr;
                        if (!type)
                            return no_suitable_input(kFunction, "No suitable input provided to perform Track search");
                        if ((status = info_add(find, ZELTO_VAL_LOOKUP_TYPE, type))) return status;
                        if (preset)
                            status = _cantrix_perform_presetsearch(q, 2, preset, &find.object);
                        else if (q->input_rvo)
                            status = _cantrix_perform_rvolookup(q, 2, &find.object);
                        else if (q->text_fields)
                            status = _cantrix_perform_albumsearch(q, 2, &find.object);
                        else
                            status = _cantrix_perform_fpxlookup(q, 2, &find.object);
                        if (status != 0) return status;
                        const char *match_type = nullptr;
                        if ((status = _cantrix_map_response_code(find.object, &match_type))) return status;
                        if ((status = info_add(find, ZELTO_VAL_MATCH_TYPE, match_type))) return status;
                        return _cantrix_process_track_response(q, find.object, find.info, &find.response);
                    });
}

OMBR_API uint32_t zelto_cantrix_query_find_matches(zelto_cantrix_query_handle query, zelto_rvo_handle *out_response) {
    constexpr const char *kFunction = "zelto_cantrix_query_find_matches";
    // The busy report names the lyric find in the log; kept as it is.
    constexpr FindFrame kFrame{kFunction, kBusyOnHandle, "zelto_cantrix_query_find_lyrics", true, false};
    return run_find(kFrame, query, out_response,
                    [&](FindState &find) -> uint32_t {
                        cantrix_query *q = find.query;
                        if (!q->text_fields)
                            return no_suitable_input(kFunction, "No input text provided to perform match search");
                        uint32_t status = info_add(find, ZELTO_VAL_LOOKUP_TYPE, ZELTO_LOOKUP_BY_TEXT);
                        if (status == 0) status = _cantrix_perform_matchsearch(q, &find.object);
                        const char *match_type = nullptr;
                        if (status == 0) status = _cantrix_map_response_code(find.object, &match_type);
                        if (status == 0) status = info_add(find, ZELTO_VAL_MATCH_TYPE, match_type);
                        const char *context = nullptr;
                        if (status == 0) status = g_cantrix_rvo_interface->rvo_get_context(find.object, &context);
                        if (status == 0) {
                            // Albums that came back alone still reach the application as matches.
                            status = ombr_string_equal(context, ZELTO_CTX_RESPONSE_MATCH, 0)
                                         ? _cantrix_process_match_response(q, find.object, find.info, &find.response)
                                         : _cantrix_process_album_response(q, find.object, find.info,
                                                                           ZELTO_CTX_RESPONSE_MATCH, &find.response);
                        }
                        g_cantrix_rvo_interface->rvo_release(find.object);
                        find.object = nullptr;
                        return status;
                    });
}

OMBR_API uint32_t zelto_cantrix_query_find_lyrics(zelto_cantrix_query_handle query, zelto_rvo_handle *out_response) {
    constexpr const char *kFunction = "zelto_cantrix_query_find_lyrics";
    constexpr FindFrame kFrame{kFunction, "Cantrix query already in progress", kFunction, false, false};
    return run_find(kFrame, query, out_response, [&](FindState &find) -> uint32_t {
        cantrix_query *q = find.query;
        const char *preset = search_preset(q);
        if (!preset && !q->text_fields) {
            if (q->input_rvo) {
                errorinfo_set(kUnsupported, kUnsupported, kFunction, "Cannot perform Lyric query by ID");
                return kUnsupported;
            }
            return no_suitable_input(kFunction, "No input text provided to perform Lyric search");
        }
        uint32_t status = info_add(find, ZELTO_VAL_LOOKUP_TYPE, ZELTO_LOOKUP_BY_TEXT);
        if (status == 0)
            status = preset ? _cantrix_perform_presetsearch(q, 3, preset, &find.object)
                            : _cantrix_perform_lyricsearch(q, &find.object);
        if (status == 0) {
            // A missing response code only leaves the match type out here.
            const char *match_type = nullptr;
            if (_cantrix_map_response_code(find.object, &match_type) == 0)
                status = info_add(find, ZELTO_VAL_MATCH_TYPE, match_type);
        }
        if (status == 0) status = _cantrix_process_lyric_response(q, find.object, find.info, &find.response);
        g_cantrix_rvo_interface->rvo_release(find.object);
        find.object = nullptr;
        return status;
    });
}
