// Internal state and shared helpers of the query module.
#ifndef CANTRIX_INTERNAL_H
#define CANTRIX_INTERNAL_H

#include <atomic>
#include <source_location>

#include "ombr/ombr_base.h"
#include "platform/ombr_frame.h"
#include "zelto/zelto_cantrix.h"

struct ombr_stringmap;
struct ombr_vector;

// The record behind a query handle. All fields are zero when it is new.
struct cantrix_query {
    uint32_t magic;
    ombr_critsec_t lock;
    void *user;
    zelto_cantrix_status_callback callback;
    void *callback_data;
    uint8_t busy;
    ombr_stringmap *options;
    uint32_t data_flags;
    const char *lookup_mode;  // borrowed, never freed
    const zelto_lookup_interface *lookup;
    zelto_rvo_handle input_rvo;
    ombr_stringmap *text_fields;
    ombr_vector *toc_offsets;
    // A first offset of 0, which only the add call accepts, is held here:
    // the vector stores no entry of 0. The table is then 0 followed by the
    // vector's numbers.
    uint8_t toc_starts_at_zero;
    char *fp_data;
    char *fp_kind;
    char *fp_algorithm_name;
    char *fp_algorithm_version;
    zelto_dsp_generator fp_generator;
    ombr_vector *fp_blocks;
    uint32_t fp_min_block;
    uint32_t fp_max_block;
    uint32_t fp_end_flag;
};

// The busy flag is read by other threads without the query's lock (a find
// on another thread tests it before it waits for the lock), so every access
// is atomic; relaxed order is enough, as the flag only says whether the
// callback runs now. The field stays one byte.
inline bool query_busy(const cantrix_query *query) {
    return std::atomic_ref<uint8_t>(const_cast<uint8_t &>(query->busy)).load(std::memory_order_relaxed) != 0;
}
inline void set_query_busy(cantrix_query *query, bool busy) {
    std::atomic_ref<uint8_t>(query->busy).store(busy ? 1 : 0, std::memory_order_relaxed);
}

extern "C" {
// Service tables held from bring-up to take-down.
extern const zelto_manager_table *g_cantrix_manager_interface;
extern const zelto_errorinfo_interface *g_cantrix_errorinfo_interface;
extern const zelto_handlemanager_interface *g_cantrix_handlemanager_interface;
extern const zelto_userinfo_interface *g_cantrix_userinfo_interface;
extern const zelto_rvo_interface *g_cantrix_rvo_interface;
extern const zelto_lists_interface *g_cantrix_lists_interface;
extern const zelto_serialization_interface *g_cantrix_serialization_interface;
extern const zelto_dsp_interface *g_cantrix_dsp_interface;

uint32_t _cantrix_init_func(const zelto_manager_table *manager);
uint32_t _cantrix_shutdown_func(uint32_t flag);
uint32_t _cantrix_map_error(uint32_t status);
uint32_t _cantrix_clear_query(cantrix_query *query);
uint32_t _cantrix_free_query(cantrix_query *query);
// The match type ("SINGLE", ...) of a provider's response code, or null.
uint32_t _cantrix_map_response_code(zelto_rvo_handle object, const char **out_text);
uint32_t _cantrix_create_fp_query_str(cantrix_query *query);
uint32_t _cantrix_fingerprint_generated(void *query, uint32_t ignored, void *block);
void _cantrix_fingerprint_vector_delete(uintptr_t block);
}

namespace cantrix {

constexpr uint32_t kPackage = ZELTO_CANTRIX_PACKAGE;
constexpr uint32_t kQueryMagic = 0x77ADDA77u;
constexpr const char *kUnit = "zelto_cantrix";

// Status codes of the module, by their public names.
constexpr uint32_t kInvalidArg = ZELTO_CANTRIX_INVALID_ARG;
constexpr uint32_t kNoMemory = ZELTO_CANTRIX_NO_MEMORY;
constexpr uint32_t kNoObject = ZELTO_CANTRIX_RESULT_NO_OBJECT;
constexpr uint32_t kNotFound = ZELTO_CANTRIX_NOT_FOUND;
constexpr uint32_t kBusy = ZELTO_CANTRIX_BUSY;
constexpr uint32_t kNotInitialized = ZELTO_CANTRIX_NOT_INITIALIZED;
constexpr uint32_t kInitFailed = ZELTO_CANTRIX_INIT_FAILED;
constexpr uint32_t kUnsupported = ZELTO_CANTRIX_UNSUPPORTED;
constexpr uint32_t kInvalidData = ZELTO_CANTRIX_INVALID_DATA;
constexpr uint32_t kNoService = ZELTO_CANTRIX_NO_SERVICE;
constexpr uint32_t kInvalidToc = ZELTO_CANTRIX_INVALID_TOC;
constexpr uint32_t kFpKindUnsendable = ZELTO_CANTRIX_FP_KIND_UNSENDABLE;
constexpr uint32_t kNoSuitableInput = ZELTO_CANTRIX_NO_SUITABLE_INPUT;
constexpr uint32_t kBadManager = ZELTO_CANTRIX_BAD_MANAGER;
constexpr uint32_t kRangeInvalid = ZELTO_CANTRIX_RANGE_INVALID;
constexpr uint32_t kInvalidUtf8 = ZELTO_CANTRIX_INVALID_UTF8;

// Fingerprint kinds: the generator's algorithm number, and whether the text
// is an XML description with algorithm data (sent as fpx data with the
// algorithm's name and version) or opaque (sent as tvx data).
struct FingerprintKind {
    const char *name;
    uint32_t algorithm;
    bool xml;
};
inline constexpr FingerprintKind kFingerprintKinds[] = {
    {ZELTO_CANTRIX_FP_TVX, 1, false},     {ZELTO_CANTRIX_FP_FILE, 1, false},
    {ZELTO_CANTRIX_FP_ZFPX, 3, true},     {ZELTO_CANTRIX_FP_3STREAM, 3, true},
    {ZELTO_CANTRIX_FP_6STREAM, 5, true},
};

// The row of a kind text, with case (`ignore_case` 0) or without; null if
// the text is no kind.
const FingerprintKind *find_fingerprint_kind(const char *name, uint32_t ignore_case);

// The module's bring-up lock record, for tests of its reset.
const ombr_spinlock_t *module_init_lock();

// errorinfo_set through the held table.
inline void errorinfo_set(uint32_t mapped, uint32_t source, const char *function, const char *message) {
    g_cantrix_errorinfo_interface->errorinfo_set(mapped, source, function, message);
}

// A failure found before any work (argument tests): mapped already, line 0
// and the function's name in the place of the source unit. With `info` the
// error-information service records it as well.
uint32_t report_argument(const char *function, uint32_t status, bool info, const char *message = nullptr);

// The handle test of the public pattern. `info_name` is the function name
// given to errorinfo_set (normally the function's own name).
uint32_t check_query_handle(const char *function, const void *handle, const char *info_name = nullptr,
                            std::source_location where = std::source_location::current());

// The exit of the public pattern: map, record, and pass a failure through
// the error hook with line 0 and the function's name.
uint32_t finish(const char *function, uint32_t working);

// Holds a query's critical section for the life of the guard.
class QueryLock {
   public:
    explicit QueryLock(cantrix_query *query) : lock_(query ? query->lock : nullptr) {
        if (lock_) ombr_thread_critsec_enter(lock_);
    }
    ~QueryLock() {
        if (lock_) ombr_thread_critsec_leave(lock_);
    }
    QueryLock(const QueryLock &) = delete;
    QueryLock &operator=(const QueryLock &) = delete;

   private:
    ombr_critsec_t lock_;
};

inline constexpr auto no_argument_tests = [] { return 0u; };

// The whole public pattern for a function on a query handle: initialised
// test, argument tests (`check_args` returns 0 or an already reported
// status), handle test, tests that need a valid handle (`check_after`),
// work under the query's lock, exit.
template <typename CheckArgs, typename Work, typename CheckAfter = decltype(no_argument_tests)>
uint32_t query_call(const char *function, zelto_cantrix_query_handle handle, CheckArgs check_args, Work work,
                    const char *info_name = nullptr,
                    std::source_location where = std::source_location::current(),
                    CheckAfter check_after = no_argument_tests) {
    if (zelto_cantrix_initchecks() == 0) return ombr::error_exit(kNotInitialized, 0, function);
    if (uint32_t status = check_args()) return status;
    if (uint32_t status = check_query_handle(function, handle, info_name, where)) return status;
    if (uint32_t status = check_after()) return status;
    uint32_t working;
    {
        QueryLock guard(handle);
        working = work(handle);
    }
    return finish(function, working);
}

}  // namespace cantrix

#endif
