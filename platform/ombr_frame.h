// Shared machinery of the base packages: the error exit hook, the log
// message helper and the reference-counted package frame.
#ifndef OMBR_FRAME_H
#define OMBR_FRAME_H

#include <pthread.h>

#include <atomic>
#include <source_location>

#include "ombr/ombr_base.h"

namespace ombr {

// The error exit pattern. A failing status (bit 31) whose package has its
// error bit enabled is handed to the error hook, and what the hook returns
// is what the caller returns. Soft statuses and successes pass untouched.
inline uint32_t error_exit(uint32_t status, uint32_t line, const char *unit) {
    if (!OMBR_STATUS_FAILED(status)) return status;
    ombr_log_error_callback_t hook = g_ombr_log_error_callback;
    if (hook && (g_ombr_log_enabled_pkgs[OMBR_STATUS_PKG(status)] & OMBR_LOG_ERROR))
        return hook(line, unit, status, 0);
    return status;
}

// error_exit with the caller's source line; `unit` is the source unit name.
inline uint32_t fail(uint32_t status, const char *unit,
                     std::source_location where = std::source_location::current()) {
    return error_exit(status, where.line(), unit);
}

// Writes one message through the log hook if the package has `mask` enabled.
template <typename... Args>
inline void log_message(uint32_t package, uint32_t mask, uint32_t line, const char *unit, const char *format,
                        Args... args) {
    ombr_log_callback_t cb = g_ombr_log_callback;
    if (cb && package < 255 && (g_ombr_log_enabled_pkgs[package] & mask)) cb(line, unit, package, mask, format, args...);
}

// RAII guard for a spinlock record.
class SpinGuard {
   public:
    explicit SpinGuard(ombr_spinlock_t *lock) : lock_(lock) { ombr_spinlock_lock(lock_); }
    ~SpinGuard() { ombr_spinlock_unlock(lock_); }
    SpinGuard(const SpinGuard &) = delete;
    SpinGuard &operator=(const SpinGuard &) = delete;

   private:
    ombr_spinlock_t *lock_;
};

// Static state of one package: zero at load, zero again after the last
// shutdown. The count is changed under `init_lock` and read atomically, so
// initchecks may read it from any thread without the lock.
struct PackageState {
    ombr_spinlock_t init_lock;
    std::atomic<uint32_t> initialized;

    uint32_t count() const { return initialized.load(std::memory_order_acquire); }
};

constexpr const char *kVersion = "3.2.0.422";
constexpr const char *kBaseBuildDate = "2013-01-08 07:49-0800";

// Bring-up and take-down of all packages (and of the module) also hold one
// process-wide recursive lock, taken before a package's own lock. A
// package's lock record is destroyed and cleared after its last take-down;
// this lock makes sure that no other thread is taking it at that moment. It
// is recursive because a package's bring-up brings up the packages it needs.
inline pthread_mutex_t &frame_mutex() {
    static pthread_mutex_t mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    return mutex;
}

class FrameGuard {
   public:
    FrameGuard() { pthread_mutex_lock(&frame_mutex()); }
    ~FrameGuard() { pthread_mutex_unlock(&frame_mutex()); }
    FrameGuard(const FrameGuard &) = delete;
    FrameGuard &operator=(const FrameGuard &) = delete;
};

// Reference-counted bring-up: `init_func` runs at the first call only. A
// failing init function gives the plain number 10 and leaves the count at 0.
template <typename Init>
inline uint32_t package_initialize(PackageState &state, Init init_func) {
    FrameGuard frame;
    SpinGuard guard(&state.init_lock);
    if (state.count() == 0 && init_func() != 0) return 10;
    state.initialized.fetch_add(1, std::memory_order_acq_rel);
    return 0;
}

// Reference-counted take-down: 7 while down; `shutdown_func` runs when the
// count leaves 1, and its status is the result. The lock record is destroyed
// and cleared once the count is 0.
template <typename Shutdown>
inline uint32_t package_shutdown(PackageState &state, Shutdown shutdown_func) {
    if (state.count() == 0) return 7;
    FrameGuard frame;
    uint32_t status = 0;
    {
        SpinGuard guard(&state.init_lock);
        // Another take-down may have come first since the test above.
        if (state.count() == 0) return 7;
        if (state.count() == 1) status = shutdown_func();
        state.initialized.fetch_sub(1, std::memory_order_acq_rel);
    }
    if (state.count() == 0) {
        ombr_spinlock_delete(&state.init_lock);
        ombr_memory_memset(&state.init_lock, 0, sizeof state.init_lock);
    }
    return status;
}

}  // namespace ombr

// Defines the five frame functions of a package from its state and its
// init and shutdown functions.
#define OMBR_DEFINE_PACKAGE_FRAME(pkg, state, init_func, shutdown_func, build_date)                     \
    OMBR_API uint32_t ombr_##pkg##_initialize(void) { return ombr::package_initialize(state, init_func); } \
    OMBR_API uint32_t ombr_##pkg##_shutdown(void) { return ombr::package_shutdown(state, shutdown_func); } \
    OMBR_API uint32_t ombr_##pkg##_initchecks(void) { return state.count(); }                              \
    OMBR_API const char *ombr_##pkg##_get_version(void) { return ombr::kVersion; }                         \
    OMBR_API const char *ombr_##pkg##_get_build_date(void) { return build_date; }

#endif
