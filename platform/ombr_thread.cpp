// The thread package: its frame, thread records with a shared reference
// count, waits, names and the per-thread value store.
//
// A record is referenced by the creator's handle, by the running thread and
// by the thread-specific key, whose destructor drops the key's reference at
// thread exit. Threads not started here get a small record (no join
// objects) the first time they name themselves or use their store.
#include <sched.h>

#include <cerrno>
#include <ctime>

#include "ombr/ombr_thread.h"
#include "platform/ombr_frame.h"
#include "platform/ombr_thread_internal.h"

struct ombr_thread {
    uint32_t magic;
    uint32_t ref_count;
    pthread_mutex_t name_lock;  // guards name, finished and start-up
    pthread_t id;
    char *name;
    uint8_t finished;
    uint8_t has_join_sync;
    ombr_thread_proc_t proc;
    void *arg;
    void *store_value;
    ombr_thread_store_free_t store_free;
    pthread_mutex_t done_lock;
    uint8_t done;
    pthread_cond_t done_cond;
};

namespace {

constexpr uint32_t kBadArg = OMBR_THREAD_ERR_INVALID_ARG;
constexpr uint32_t kNoMemory = OMBR_THREAD_ERR_NO_MEMORY;
constexpr uint32_t kNotFound = OMBR_THREAD_ERR_NOT_FOUND;
constexpr uint32_t kNotInitialized = OMBR_THREAD_ERR_NOT_INITIALIZED;
constexpr uint32_t kBadMagic = OMBR_THREAD_ERR_BAD_MAGIC;
constexpr int32_t kLowestPriority = -5;
constexpr int32_t kHighestPriority = 5;

ombr::PackageState s_thread;
bool sb_my_thread_store_key = false;

using ombr::thread_map_error;

// Drops one reference; the last one runs the store's callback and frees the
// record with everything it owns.
void free_thread_t(ombr_thread *t) {
    uint32_t left = 1;
    if (ombr_atomic_dec(&t->ref_count, &left) != 0 || left != 0) return;
    if (t->store_value && t->store_free) t->store_free(t->store_value);
    ombr_memory_free(t->name);
    pthread_mutex_destroy(&t->name_lock);
    if (t->has_join_sync) {
        pthread_mutex_destroy(&t->done_lock);
        pthread_cond_destroy(&t->done_cond);
    }
    t->magic = 0;
    ombr_memory_free(t);
}

// Destructor of the thread-specific key: the key's reference goes.
void free_thread_specific(void *value) {
    if (value) free_thread_t(static_cast<ombr_thread *>(value));
}

// A record with one reference and its name lock; with join objects for a
// thread started here.
uint32_t new_record(bool join_sync, ombr_thread **out) {
    auto *t = static_cast<ombr_thread *>(ombr_memory_alloc(sizeof(ombr_thread)));
    if (!t) return kNoMemory;
    ombr_memory_memset(t, 0, sizeof *t);
    int rc = pthread_mutex_init(&t->name_lock, nullptr);
    if (rc == 0 && join_sync) {
        rc = pthread_mutex_init(&t->done_lock, nullptr);
        if (rc == 0) {
            rc = pthread_cond_init(&t->done_cond, nullptr);
            if (rc != 0) pthread_mutex_destroy(&t->done_lock);
        }
        if (rc != 0) pthread_mutex_destroy(&t->name_lock);
    }
    if (rc != 0) {
        ombr_memory_free(t);
        return thread_map_error(rc);
    }
    t->magic = OMBR_THREAD_MAGIC;
    t->ref_count = 1;
    t->has_join_sync = join_sync ? 1 : 0;
    *out = t;
    return 0;
}

// The calling thread's record from the key, or null.
ombr_thread *current_record() {
    auto *t = static_cast<ombr_thread *>(pthread_getspecific(g_ombr_thread_store_key));
    return t && t->magic == OMBR_THREAD_MAGIC ? t : nullptr;
}

// Gives a thread that was not started here a record under the key.
uint32_t thread_add_specific(ombr_thread **out) {
    ombr_thread *t = nullptr;
    uint32_t status = new_record(false, &t);
    if (status != 0) return status;
    t->id = pthread_self();
    int rc = pthread_setspecific(g_ombr_thread_store_key, t);
    if (rc != 0) {
        free_thread_t(t);
        return thread_map_error(rc);
    }
    *out = t;
    return 0;
}

// The record a function works on: the handle's, or with a null handle the
// caller's, made on demand when `create` is set.
uint32_t resolve(ombr_thread_t handle, bool create, ombr_thread **out) {
    if (handle) {
        if (handle->magic != OMBR_THREAD_MAGIC) return kBadMagic;
        *out = handle;
        return 0;
    }
    if (s_thread.initialized == 0) return kNotInitialized;
    *out = current_record();
    if (*out) return 0;
    return create ? thread_add_specific(out) : kNotFound;
}

uint32_t checked_handle(ombr_thread_t handle) {
    if (!handle) return kBadArg;
    return handle->magic == OMBR_THREAD_MAGIC ? 0 : kBadMagic;
}

void *ombr_thread_proc(void *arg) {
    auto *t = static_cast<ombr_thread *>(arg);
    // The creator holds the name lock until it has finished with the record.
    pthread_mutex_lock(&t->name_lock);
    pthread_mutex_unlock(&t->name_lock);
    if (pthread_setspecific(g_ombr_thread_store_key, t) == 0) ombr_atomic_inc(&t->ref_count, nullptr);
    t->proc(t->arg);
    pthread_mutex_lock(&t->name_lock);
    t->finished = 1;
    pthread_mutex_unlock(&t->name_lock);
    pthread_mutex_lock(&t->done_lock);
    t->done = 1;
    pthread_cond_signal(&t->done_cond);
    pthread_mutex_unlock(&t->done_lock);
    free_thread_t(t);
    return nullptr;  // the key's destructor runs next and drops its reference
}

uint32_t thread_init_func() {
    if (ombr_memory_initialize() != 0) return 10;
    if (g_ombr_thread_store_key == 0) {
        pthread_key_t key;
        int rc = pthread_key_create(&key, free_thread_specific);
        if (rc != 0) {
            ombr_memory_shutdown();
            return thread_map_error(rc);
        }
        g_ombr_thread_store_key = key;
        sb_my_thread_store_key = true;
    }
    return 0;
}

uint32_t thread_shutdown_func() {
    if (ombr_thread *own = current_record()) {
        pthread_setspecific(g_ombr_thread_store_key, nullptr);
        free_thread_t(own);
    }
    if (sb_my_thread_store_key) {
        pthread_key_delete(g_ombr_thread_store_key);
        g_ombr_thread_store_key = 0;
        sb_my_thread_store_key = false;
    }
    ombr_memory_shutdown();
    return 0;
}

}  // namespace

uint32_t ombr::thread_map_error(int error) {
    switch (error) {
        case 0: return 0;
        case EPERM: return OMBR_THREAD_ERR_NOT_PERMITTED;
        case ESRCH: return OMBR_THREAD_ERR_NOT_FOUND;
        case EINTR: return OMBR_THREAD_ERR_INTERRUPTED;
        case EAGAIN: return OMBR_THREAD_ERR_TRY_AGAIN;
        case ENOMEM: return OMBR_THREAD_ERR_NO_MEMORY;
        case EFAULT:
        case EINVAL:
        case EOPNOTSUPP: return OMBR_THREAD_ERR_INVALID_ARG;
        case EBUSY: return OMBR_THREAD_ERR_BUSY;
        case EDEADLK: return OMBR_THREAD_ERR_DEADLOCK;
        case ETIMEDOUT: return OMBR_THREAD_TIMED_OUT;
        default: return OMBR_THREAD_ERR_UNKNOWN;
    }
}

OMBR_DEFINE_PACKAGE_FRAME(thread, s_thread, thread_init_func, thread_shutdown_func, ombr::kBaseBuildDate)

// ---- Threads ----------------------------------------------------------------------

OMBR_API uint32_t ombr_thread_create(ombr_thread_proc_t proc, uint32_t stack_size, void *arg,
                                     ombr_thread_t *out_handle) {
    if (s_thread.initialized == 0) return kNotInitialized;
    if (!proc) return kBadArg;
    ombr_thread *t = nullptr;
    uint32_t status = new_record(true, &t);
    if (status != 0) return status;
    t->proc = proc;
    t->arg = arg;
    pthread_attr_t attr;
    int rc = pthread_attr_init(&attr);
    if (rc != 0) {
        free_thread_t(t);
        return thread_map_error(rc);
    }
    if (stack_size != 0) rc = pthread_attr_setstacksize(&attr, stack_size);
    if (rc == 0) {
        pthread_mutex_lock(&t->name_lock);
        rc = pthread_create(&t->id, &attr, ombr_thread_proc, t);
        if (rc == 0) {
            if (out_handle) {
                *out_handle = t;
                ombr_atomic_inc(&t->ref_count, nullptr);
            } else {
                pthread_detach(t->id);
            }
        }
        pthread_mutex_unlock(&t->name_lock);
    }
    pthread_attr_destroy(&attr);
    if (rc != 0) free_thread_t(t);
    return thread_map_error(rc);
}

// Maps -5..5 linearly onto the minimum..maximum of the thread's policy.
OMBR_API uint32_t ombr_thread_set_priority(ombr_thread_t handle, int32_t priority) {
    uint32_t status = checked_handle(handle);
    if (status != 0) return status;
    if (priority < kLowestPriority || priority > kHighestPriority) return kBadArg;
    pthread_mutex_lock(&handle->name_lock);
    int rc = 0;
    if (!handle->finished) {
        int policy = 0;
        sched_param param{};
        rc = pthread_getschedparam(handle->id, &policy, &param);
        if (rc == 0) {
            const int lo = sched_get_priority_min(policy);
            const int hi = sched_get_priority_max(policy);
            param.sched_priority = (priority - kLowestPriority) * (hi - lo) / (kHighestPriority - kLowestPriority) + lo;
            rc = pthread_setschedparam(handle->id, policy, &param);
        }
    }
    pthread_mutex_unlock(&handle->name_lock);
    return thread_map_error(rc);
}

// With no limit the caller waits for the end. Any other timeout is a poll:
// the deadline is the epoch, so a running thread gives the timeout status
// at once and the handle stays. A finished thread is joined and the
// handle's reference dropped.
OMBR_API uint32_t ombr_thread_wait_and_cleanup(ombr_thread_t handle, uint32_t timeout_ms) {
    uint32_t status = checked_handle(handle);
    if (status != 0) return status;
    if (!handle->has_join_sync) return kBadArg;
    pthread_mutex_lock(&handle->done_lock);
    int rc = 0;
    const timespec epoch{};
    while (!handle->done) {
        rc = timeout_ms == OMBR_THREAD_WAIT_INFINITE ? pthread_cond_wait(&handle->done_cond, &handle->done_lock)
                                                     : pthread_cond_timedwait(&handle->done_cond, &handle->done_lock, &epoch);
        if (rc != 0) break;
    }
    if (!handle->done) {
        pthread_mutex_unlock(&handle->done_lock);
        return thread_map_error(rc);
    }
    rc = pthread_join(handle->id, nullptr);
    pthread_mutex_unlock(&handle->done_lock);
    if (rc == 0) free_thread_t(handle);
    return thread_map_error(rc);
}

OMBR_API uint32_t ombr_thread_sleep(uint32_t milliseconds) {
    timespec delay{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    return nanosleep(&delay, nullptr) == 0 ? 0 : thread_map_error(errno);
}

OMBR_API uint32_t ombr_thread_get_id(ombr_thread_t handle, ombr_thread_id_t *out_id) {
    if (!out_id) return kBadArg;
    if (!handle) {
        *out_id = pthread_self();
        return 0;
    }
    if (handle->magic != OMBR_THREAD_MAGIC) return kBadMagic;
    *out_id = handle->id;
    return 0;
}

// ---- Names ------------------------------------------------------------------------

OMBR_API uint32_t ombr_thread_set_name(ombr_thread_t handle, const char *name) {
    if (!name) return kBadArg;
    ombr_thread *t = nullptr;
    uint32_t status = resolve(handle, true, &t);
    if (status != 0) return status;
    size_t size = 0;
    while (name[size] != 0) ++size;
    ++size;
    auto *copy = static_cast<char *>(ombr_memory_alloc(size));
    if (!copy) return kNoMemory;
    ombr_memory_memcpy(copy, name, size);
    pthread_mutex_lock(&t->name_lock);
    char *old = t->name;
    t->name = copy;
    pthread_mutex_unlock(&t->name_lock);
    ombr_memory_free(old);
    return 0;
}

OMBR_API uint32_t ombr_thread_get_name(ombr_thread_t handle, char *buffer, uint32_t size) {
    if (!buffer || size == 0) return kBadArg;
    ombr_thread *t = nullptr;
    uint32_t status = resolve(handle, false, &t);
    if (status != 0) return status;
    pthread_mutex_lock(&t->name_lock);
    const char *name = t->name ? t->name : "";
    uint32_t length = 0;
    while (name[length] != 0) ++length;
    const uint32_t n = length + 1 < size ? length + 1 : size;
    ombr_memory_memcpy(buffer, name, n);
    pthread_mutex_unlock(&t->name_lock);
    return 0;
}

// ---- Thread store -------------------------------------------------------------------

OMBR_API uint32_t ombr_thread_store_set(ombr_thread_t handle, void *value, ombr_thread_store_free_t free_value) {
    ombr_thread *t = nullptr;
    uint32_t status = resolve(handle, true, &t);
    if (status != 0) return status;
    // Storing the value already held must not free it.
    if (t->store_value && t->store_free && t->store_value != value) t->store_free(t->store_value);
    t->store_value = value;
    t->store_free = free_value;
    return 0;
}

OMBR_API uint32_t ombr_thread_store_get(ombr_thread_t handle, void **out_value) {
    if (!out_value) return kBadArg;
    ombr_thread *t = nullptr;
    uint32_t status = resolve(handle, false, &t);
    if (status != 0) return status;
    if (!t->store_value) return kNotFound;
    *out_value = t->store_value;
    return 0;
}

OMBR_API uint32_t ombr_thread_store_clear(ombr_thread_t handle) {
    ombr_thread *t = nullptr;
    uint32_t status = resolve(handle, false, &t);
    if (status == kNotFound) return 0;
    if (status != 0) return status;
    void *value = t->store_value;
    ombr_thread_store_free_t free_value = t->store_free;
    t->store_value = nullptr;
    t->store_free = nullptr;
    if (value && free_value) free_value(value);
    return 0;
}
