// The thread package frame, the re-entrant critical section and the
// writer-first read-write lock.
#include <cerrno>

#include "platform/ombr_frame.h"
#include "platform/ombr_thread_internal.h"

struct ombr_critsec {
    int32_t waiters;
    int32_t depth;
    pthread_t owner;
    pthread_cond_t cond;
    pthread_mutex_t mutex;
};

struct ombr_rwlock {
    pthread_mutex_t mutex;
    pthread_cond_t read_cond;
    pthread_cond_t write_cond;
    uint32_t readers;
    uint32_t writer;
    uint32_t waiting_readers;
    uint32_t waiting_writers;
};

namespace {

constexpr uint32_t kBadArg = 0x90020001u;
constexpr uint32_t kNoMemory = 0x90020002u;
constexpr uint32_t kBusy = 0x90020006u;

ombr::PackageState s_thread;
bool sb_my_thread_store_key = false;

// Frees the per-thread record left in the thread store at thread exit.
void free_thread_specific(void *value) { ombr_memory_free(value); }

uint32_t thread_init_func() {
    if (ombr_memory_initialize() != 0) return 10;
    if (g_ombr_thread_store_key == 0) {
        pthread_key_t key;
        int rc = pthread_key_create(&key, free_thread_specific);
        if (rc != 0) {
            ombr_memory_shutdown();
            return ombr::thread_map_error(rc);
        }
        g_ombr_thread_store_key = key;
        sb_my_thread_store_key = true;
    }
    return 0;
}

uint32_t thread_shutdown_func() {
    if (sb_my_thread_store_key) {
        pthread_key_delete(g_ombr_thread_store_key);
        g_ombr_thread_store_key = 0;
        sb_my_thread_store_key = false;
    }
    ombr_memory_shutdown();
    return 0;
}

// Locks a mutex; on failure unlocks it again and reports the lock error, or
// the unlock error if that failed as well.
uint32_t lock_or_report(pthread_mutex_t *m) {
    int rc = pthread_mutex_lock(m);
    if (rc == 0) return 0;
    int urc = pthread_mutex_unlock(m);
    return ombr::thread_map_error(urc != 0 ? urc : rc);
}

}  // namespace

uint32_t ombr::thread_map_error(int error) {
    switch (error) {
        case 0: return 0;
        case EPERM: return 0x90020284u;
        case ESRCH: return 0x90020003u;
        case EINTR: return 0x90020283u;
        case EAGAIN: return 0x90020282u;
        case ENOMEM: return 0x90020002u;
        case EFAULT:
        case EINVAL:
        case EOPNOTSUPP: return 0x90020001u;
        case EBUSY: return 0x90020006u;
        case EDEADLK: return 0x90020281u;
        case ETIMEDOUT: return 0x10020084u;
        default: return 0x9002003Eu;
    }
}

OMBR_DEFINE_PACKAGE_FRAME(thread, s_thread, thread_init_func, thread_shutdown_func, ombr::kBaseBuildDate)

// ---- Critical section -------------------------------------------------------

OMBR_API uint32_t ombr_thread_critsec_create(ombr_critsec_t *out_handle) {
    if (!out_handle) return kBadArg;
    auto *cs = static_cast<ombr_critsec *>(ombr_memory_alloc(sizeof(ombr_critsec)));
    if (!cs) return kNoMemory;
    ombr_memory_memset(cs, 0, sizeof *cs);
    int rc = pthread_mutex_init(&cs->mutex, nullptr);
    if (rc == 0) {
        rc = pthread_cond_init(&cs->cond, nullptr);
        if (rc != 0) pthread_mutex_destroy(&cs->mutex);
    }
    if (rc != 0) {
        ombr_memory_free(cs);
        return ombr::thread_map_error(rc);
    }
    *out_handle = cs;
    return 0;
}

OMBR_API uint32_t ombr_thread_critsec_delete(ombr_critsec_t cs) {
    if (!cs) return 0;
    uint32_t status = lock_or_report(&cs->mutex);
    if (status != 0) return status;
    bool busy = cs->waiters > 0 || (cs->depth > 0 && !pthread_equal(cs->owner, pthread_self()));
    pthread_mutex_unlock(&cs->mutex);
    if (busy) return kBusy;
    int rc = pthread_mutex_destroy(&cs->mutex);
    int rc2 = pthread_cond_destroy(&cs->cond);
    ombr_memory_free(cs);
    return ombr::thread_map_error(rc != 0 ? rc : rc2);
}

OMBR_API uint32_t ombr_thread_critsec_enter(ombr_critsec_t cs) {
    if (!cs) return kBadArg;
    uint32_t status = lock_or_report(&cs->mutex);
    if (status != 0) return status;
    pthread_t self = pthread_self();
    while (cs->depth >= 1 && !pthread_equal(cs->owner, self)) {
        cs->waiters += 1;
        int rc = pthread_cond_wait(&cs->cond, &cs->mutex);
        cs->waiters -= 1;
        if (rc != 0) {
            int urc = pthread_mutex_unlock(&cs->mutex);
            return ombr::thread_map_error(urc != 0 ? urc : rc);
        }
    }
    cs->depth += 1;
    cs->owner = self;
    return ombr::thread_map_error(pthread_mutex_unlock(&cs->mutex));
}

OMBR_API uint32_t ombr_thread_critsec_leave(ombr_critsec_t cs) {
    if (!cs) return kBadArg;
    uint32_t status = lock_or_report(&cs->mutex);
    if (status != 0) return status;
    int brc = 0;
    if (cs->depth > 0 && pthread_equal(cs->owner, pthread_self())) {
        cs->depth -= 1;
        if (cs->depth < 1 && cs->waiters > 0) brc = pthread_cond_broadcast(&cs->cond);
    }
    int urc = pthread_mutex_unlock(&cs->mutex);
    return ombr::thread_map_error(urc != 0 ? urc : brc);
}

// ---- Read-write lock ----------------------------------------------------------

OMBR_API uint32_t ombr_thread_rwlock_create(ombr_rwlock_t *out_handle) {
    if (!out_handle) return kBadArg;
    auto *rw = static_cast<ombr_rwlock *>(ombr_memory_alloc(sizeof(ombr_rwlock)));
    if (!rw) return kNoMemory;
    ombr_memory_memset(rw, 0, sizeof *rw);
    int rc = pthread_mutex_init(&rw->mutex, nullptr);
    if (rc == 0) {
        rc = pthread_cond_init(&rw->read_cond, nullptr);
        if (rc == 0) {
            rc = pthread_cond_init(&rw->write_cond, nullptr);
            if (rc != 0) pthread_cond_destroy(&rw->read_cond);
        }
        if (rc != 0) pthread_mutex_destroy(&rw->mutex);
    }
    if (rc != 0) {
        ombr_memory_free(rw);
        return ombr::thread_map_error(rc);
    }
    *out_handle = rw;
    return 0;
}

OMBR_API uint32_t ombr_thread_rwlock_readlock(ombr_rwlock_t rw) {
    if (!rw) return kBadArg;
    uint32_t status = lock_or_report(&rw->mutex);
    if (status != 0) return status;
    if (rw->writer != 0 || rw->waiting_writers != 0) {
        rw->waiting_readers += 1;
        while (rw->writer != 0 || rw->waiting_writers != 0) pthread_cond_wait(&rw->read_cond, &rw->mutex);
        rw->waiting_readers -= 1;
    }
    rw->readers += 1;
    return ombr::thread_map_error(pthread_mutex_unlock(&rw->mutex));
}

OMBR_API uint32_t ombr_thread_rwlock_writelock(ombr_rwlock_t rw) {
    if (!rw) return kBadArg;
    uint32_t status = lock_or_report(&rw->mutex);
    if (status != 0) return status;
    if (rw->readers != 0 || rw->writer != 0) {
        rw->waiting_writers += 1;
        while (rw->readers != 0 || rw->writer != 0) pthread_cond_wait(&rw->write_cond, &rw->mutex);
        rw->waiting_writers -= 1;
    }
    rw->writer = 1;
    return ombr::thread_map_error(pthread_mutex_unlock(&rw->mutex));
}

OMBR_API uint32_t ombr_thread_rwlock_unlock(ombr_rwlock_t rw) {
    if (!rw) return kBadArg;
    uint32_t status = lock_or_report(&rw->mutex);
    if (status != 0) return status;
    int rc = 0;
    if (rw->writer != 0) {
        rw->writer = 0;
        if (rw->waiting_writers != 0)
            rc = pthread_cond_signal(&rw->write_cond);
        else if (rw->waiting_readers != 0)
            rc = pthread_cond_broadcast(&rw->read_cond);
    } else if (rw->readers != 0) {
        rw->readers -= 1;
        if (rw->waiting_writers != 0) rc = pthread_cond_signal(&rw->write_cond);
    } else {
        rc = EINVAL;  // nobody holds the lock
    }
    int urc = pthread_mutex_unlock(&rw->mutex);
    return ombr::thread_map_error(rc != 0 ? rc : urc);
}

OMBR_API uint32_t ombr_thread_rwlock_delete(ombr_rwlock_t rw) {
    if (!rw) return 0;
    pthread_cond_destroy(&rw->write_cond);
    pthread_cond_destroy(&rw->read_cond);
    pthread_mutex_destroy(&rw->mutex);
    ombr_memory_free(rw);
    return 0;
}
