// Spinlocks (blocking mutexes kept under their historic name) and the atomic
// word operations, which all share one process-wide mutex.
#include "platform/ombr_frame.h"

namespace {

constexpr uint32_t kBadArg = 0x901F0001u;
constexpr uint32_t kLockFailed = 0x901F003Cu;

// All-zero is a usable default mutex on this platform, so the atomics work
// even if ombr_atomic_initialize is never called.
pthread_mutex_t g_atomic_mutex = PTHREAD_MUTEX_INITIALIZER;
ombr::PackageState s_atomic;

uint32_t atomic_init_func() { return pthread_mutex_init(&g_atomic_mutex, nullptr) != 0 ? kLockFailed : 0; }
uint32_t atomic_shutdown_func() { return pthread_mutex_destroy(&g_atomic_mutex) != 0 ? kLockFailed : 0; }

// Runs `op` on the word under g_atomic_mutex.
template <typename Op>
uint32_t with_atomic_mutex(uint32_t *word, Op op) {
    if (!word) return kBadArg;
    if (pthread_mutex_lock(&g_atomic_mutex) != 0) return kLockFailed;
    op(*word);
    if (pthread_mutex_unlock(&g_atomic_mutex) != 0) return kLockFailed;
    return 0;
}

}  // namespace

OMBR_API uint32_t ombr_spinlock_init(ombr_spinlock_t *lock) {
    if (!lock) return kBadArg;
    pthread_mutex_init(&lock->mutex, nullptr);
    return 0;
}

OMBR_API uint32_t ombr_spinlock_lock(ombr_spinlock_t *lock) {
    if (!lock) return kBadArg;
    pthread_mutex_lock(&lock->mutex);
    return 0;
}

OMBR_API uint32_t ombr_spinlock_unlock(ombr_spinlock_t *lock) {
    if (!lock) return kBadArg;
    pthread_mutex_unlock(&lock->mutex);
    return 0;
}

OMBR_API uint32_t ombr_spinlock_delete(ombr_spinlock_t *lock) {
    if (lock) pthread_mutex_destroy(&lock->mutex);
    return 0;
}

OMBR_API uint32_t ombr_atomic_initialize(void) { return ombr::package_initialize(s_atomic, atomic_init_func); }
OMBR_API uint32_t ombr_atomic_shutdown(void) { return ombr::package_shutdown(s_atomic, atomic_shutdown_func); }
OMBR_API uint32_t ombr_atomic_initchecks(void) { return s_atomic.count(); }

OMBR_API uint32_t ombr_atomic_set(uint32_t *word, uint32_t value) {
    return with_atomic_mutex(word, [&](uint32_t &w) { w = value; });
}

OMBR_API uint32_t ombr_atomic_add(uint32_t *word, uint32_t value) {
    return with_atomic_mutex(word, [&](uint32_t &w) { w += value; });
}

OMBR_API uint32_t ombr_atomic_read(uint32_t *word, uint32_t *out_value) {
    uint32_t v = 0;
    uint32_t status = with_atomic_mutex(word, [&](uint32_t &w) { v = w; });
    if (status == 0 && out_value) *out_value = v;
    return status;
}

// The new value is written out after the mutex is released.
OMBR_API uint32_t ombr_atomic_inc(uint32_t *word, uint32_t *out_new_value) {
    uint32_t v = 0;
    uint32_t status = with_atomic_mutex(word, [&](uint32_t &w) { v = ++w; });
    if (status == 0 && out_new_value) *out_new_value = v;
    return status;
}

OMBR_API uint32_t ombr_atomic_dec(uint32_t *word, uint32_t *out_new_value) {
    uint32_t v = 0;
    uint32_t status = with_atomic_mutex(word, [&](uint32_t &w) { v = --w; });
    if (status == 0 && out_new_value) *out_new_value = v;
    return status;
}
