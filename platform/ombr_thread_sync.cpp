// Synchronisation objects of the thread package: the re-entrant critical
// section, the writer-first read-write lock and events.
#include <sys/time.h>

#include <cerrno>
#include <ctime>

#include "ombr/ombr_thread.h"
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

struct ombr_event {
    uint8_t signalled;
    uint8_t manual_reset;
    pthread_mutex_t mutex;
    pthread_cond_t cond;
};

namespace {

constexpr uint32_t kBadArg = OMBR_THREAD_ERR_INVALID_ARG;
constexpr uint32_t kNoMemory = OMBR_THREAD_ERR_NO_MEMORY;
constexpr uint32_t kBusy = OMBR_THREAD_ERR_BUSY;

using ombr::thread_lock_or_report;
using ombr::thread_map_error;

// Allocates a zeroed record of type T, or null.
template <typename T>
T *alloc_zeroed() {
    auto *record = static_cast<T *>(ombr_memory_alloc(sizeof(T)));
    if (record) ombr_memory_memset(record, 0, sizeof(T));
    return record;
}

// Initialises a mutex and `count` condition variables; on a failure destroys
// what was made and returns the system error.
int init_mutex_and_conds(pthread_mutex_t *mutex, pthread_cond_t *const *conds, int count) {
    int rc = pthread_mutex_init(mutex, nullptr);
    if (rc != 0) return rc;
    for (int i = 0; i < count; ++i) {
        rc = pthread_cond_init(conds[i], nullptr);
        if (rc != 0) {
            while (i-- > 0) pthread_cond_destroy(conds[i]);
            pthread_mutex_destroy(mutex);
            return rc;
        }
    }
    return 0;
}

// Makes a record whose mutex and condition variables are given by `parts`,
// and hands it out; the allocation and system failures map to statuses.
template <typename T, typename Parts>
uint32_t create_sync_record(T **out_handle, Parts parts) {
    if (!out_handle) return kBadArg;
    T *record = alloc_zeroed<T>();
    if (!record) return kNoMemory;
    pthread_mutex_t *mutex = nullptr;
    pthread_cond_t *conds[2] = {};
    int count = parts(record, &mutex, conds);
    int rc = init_mutex_and_conds(mutex, conds, count);
    if (rc != 0) {
        ombr_memory_free(record);
        return thread_map_error(rc);
    }
    *out_handle = record;
    return 0;
}

}  // namespace

uint32_t ombr::thread_lock_or_report(pthread_mutex_t *mutex) {
    int rc = pthread_mutex_lock(mutex);
    if (rc == 0) return 0;
    int urc = pthread_mutex_unlock(mutex);
    return ombr::thread_map_error(urc != 0 ? urc : rc);
}

// ---- Critical section -------------------------------------------------------

OMBR_API uint32_t ombr_thread_critsec_create(ombr_critsec_t *out_handle) {
    return create_sync_record(out_handle, [](ombr_critsec *cs, pthread_mutex_t **mutex, pthread_cond_t **conds) {
        *mutex = &cs->mutex;
        conds[0] = &cs->cond;
        return 1;
    });
}

OMBR_API uint32_t ombr_thread_critsec_delete(ombr_critsec_t cs) {
    if (!cs) return 0;
    uint32_t status = thread_lock_or_report(&cs->mutex);
    if (status != 0) return status;
    bool busy = cs->waiters > 0 || (cs->depth > 0 && !pthread_equal(cs->owner, pthread_self()));
    pthread_mutex_unlock(&cs->mutex);
    if (busy) return kBusy;
    int rc = pthread_mutex_destroy(&cs->mutex);
    int rc2 = pthread_cond_destroy(&cs->cond);
    ombr_memory_free(cs);
    return thread_map_error(rc != 0 ? rc : rc2);
}

OMBR_API uint32_t ombr_thread_critsec_enter(ombr_critsec_t cs) {
    if (!cs) return kBadArg;
    uint32_t status = thread_lock_or_report(&cs->mutex);
    if (status != 0) return status;
    pthread_t self = pthread_self();
    while (cs->depth >= 1 && !pthread_equal(cs->owner, self)) {
        cs->waiters += 1;
        int rc = pthread_cond_wait(&cs->cond, &cs->mutex);
        cs->waiters -= 1;
        if (rc != 0) {
            int urc = pthread_mutex_unlock(&cs->mutex);
            return thread_map_error(urc != 0 ? urc : rc);
        }
    }
    cs->depth += 1;
    cs->owner = self;
    return thread_map_error(pthread_mutex_unlock(&cs->mutex));
}

OMBR_API uint32_t ombr_thread_critsec_leave(ombr_critsec_t cs) {
    if (!cs) return kBadArg;
    uint32_t status = thread_lock_or_report(&cs->mutex);
    if (status != 0) return status;
    int brc = 0;
    if (cs->depth > 0 && pthread_equal(cs->owner, pthread_self())) {
        cs->depth -= 1;
        if (cs->depth < 1 && cs->waiters > 0) brc = pthread_cond_broadcast(&cs->cond);
    }
    int urc = pthread_mutex_unlock(&cs->mutex);
    return thread_map_error(urc != 0 ? urc : brc);
}

// ---- Read-write lock ----------------------------------------------------------

OMBR_API uint32_t ombr_thread_rwlock_create(ombr_rwlock_t *out_handle) {
    return create_sync_record(out_handle, [](ombr_rwlock *rw, pthread_mutex_t **mutex, pthread_cond_t **conds) {
        *mutex = &rw->mutex;
        conds[0] = &rw->read_cond;
        conds[1] = &rw->write_cond;
        return 2;
    });
}

OMBR_API uint32_t ombr_thread_rwlock_readlock(ombr_rwlock_t rw) {
    if (!rw) return kBadArg;
    uint32_t status = thread_lock_or_report(&rw->mutex);
    if (status != 0) return status;
    if (rw->writer != 0 || rw->waiting_writers != 0) {
        rw->waiting_readers += 1;
        while (rw->writer != 0 || rw->waiting_writers != 0) pthread_cond_wait(&rw->read_cond, &rw->mutex);
        rw->waiting_readers -= 1;
    }
    rw->readers += 1;
    return thread_map_error(pthread_mutex_unlock(&rw->mutex));
}

OMBR_API uint32_t ombr_thread_rwlock_writelock(ombr_rwlock_t rw) {
    if (!rw) return kBadArg;
    uint32_t status = thread_lock_or_report(&rw->mutex);
    if (status != 0) return status;
    if (rw->readers != 0 || rw->writer != 0) {
        rw->waiting_writers += 1;
        while (rw->readers != 0 || rw->writer != 0) pthread_cond_wait(&rw->write_cond, &rw->mutex);
        rw->waiting_writers -= 1;
    }
    rw->writer = 1;
    return thread_map_error(pthread_mutex_unlock(&rw->mutex));
}

OMBR_API uint32_t ombr_thread_rwlock_unlock(ombr_rwlock_t rw) {
    if (!rw) return kBadArg;
    uint32_t status = thread_lock_or_report(&rw->mutex);
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
    return thread_map_error(rc != 0 ? rc : urc);
}

OMBR_API uint32_t ombr_thread_rwlock_delete(ombr_rwlock_t rw) {
    if (!rw) return 0;
    pthread_cond_destroy(&rw->write_cond);
    pthread_cond_destroy(&rw->read_cond);
    pthread_mutex_destroy(&rw->mutex);
    ombr_memory_free(rw);
    return 0;
}

// ---- Events ---------------------------------------------------------------------

namespace {

// Wall clock now plus `timeout_ms`.
timespec deadline_after(uint32_t timeout_ms) {
    timeval now{};
    gettimeofday(&now, nullptr);
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(timeout_ms / 1000);
    long nsec = static_cast<long>(now.tv_usec) * 1000L + static_cast<long>(timeout_ms % 1000) * 1000000L;
    deadline.tv_sec += nsec / 1000000000L;
    deadline.tv_nsec = nsec % 1000000000L;
    return deadline;
}

bool clock_before(const timespec &deadline) {
    timeval now{};
    gettimeofday(&now, nullptr);
    long nsec = static_cast<long>(now.tv_usec) * 1000L;
    return now.tv_sec < deadline.tv_sec || (now.tv_sec == deadline.tv_sec && nsec < deadline.tv_nsec);
}

}  // namespace

OMBR_API uint32_t ombr_thread_event_create(ombr_event_t *out_handle, uint8_t initially_signalled,
                                           uint8_t manual_reset) {
    uint32_t status =
        create_sync_record(out_handle, [](ombr_event *ev, pthread_mutex_t **mutex, pthread_cond_t **conds) {
            *mutex = &ev->mutex;
            conds[0] = &ev->cond;
            return 1;
        });
    if (status == 0) {
        (*out_handle)->signalled = initially_signalled ? 1 : 0;
        (*out_handle)->manual_reset = manual_reset ? 1 : 0;
    }
    return status;
}

OMBR_API uint32_t ombr_thread_event_delete(ombr_event_t ev) {
    if (!ev) return 0;
    int rc = pthread_cond_destroy(&ev->cond);
    int rc2 = pthread_mutex_destroy(&ev->mutex);
    ombr_memory_free(ev);
    return thread_map_error(rc != 0 ? rc : rc2);
}

// A set event passes at once. Otherwise the caller waits until a wake-up
// finds the event set; a timed wait that wakes early for the timeout is
// repeated until the wall clock reaches the deadline. A manual-reset waiter
// returns on any wake-up, and a set event turns a wait error into success.
// An auto-reset event is clear again on every exit, also after a timeout.
OMBR_API uint32_t ombr_thread_event_wait(ombr_event_t ev, uint32_t timeout_ms) {
    if (!ev) return kBadArg;
    uint32_t status = thread_lock_or_report(&ev->mutex);
    if (status != 0) return status;
    const bool unlimited = timeout_ms == OMBR_THREAD_WAIT_INFINITE;
    const timespec deadline = unlimited ? timespec{} : deadline_after(timeout_ms);
    int rc = 0;
    if (!ev->signalled) {
        for (;;) {
            if (unlimited) {
                rc = pthread_cond_wait(&ev->cond, &ev->mutex);
            } else {
                rc = pthread_cond_timedwait(&ev->cond, &ev->mutex, &deadline);
                if (rc == ETIMEDOUT && clock_before(deadline)) continue;
            }
            if (rc != 0 || ev->signalled || ev->manual_reset) break;
        }
    }
    status = ev->signalled ? 0 : thread_map_error(rc);
    if (!ev->manual_reset) __atomic_store_n(&ev->signalled, 0, __ATOMIC_RELAXED);
    int urc = pthread_mutex_unlock(&ev->mutex);
    return status != 0 ? status : thread_map_error(urc);
}

// Signalling an auto-reset event that is already set changes nothing: the
// signals do not add up, and a waiter was woken when it was set. That case
// skips the lock. `signalled` is written atomically (under the mutex) for
// this one unlocked read.
OMBR_API uint32_t ombr_thread_event_signal(ombr_event_t ev) {
    if (!ev) return kBadArg;
    if (!ev->manual_reset && __atomic_load_n(&ev->signalled, __ATOMIC_ACQUIRE)) return 0;
    uint32_t status = thread_lock_or_report(&ev->mutex);
    if (status != 0) return status;
    __atomic_store_n(&ev->signalled, 1, __ATOMIC_RELEASE);
    int rc = ev->manual_reset ? pthread_cond_broadcast(&ev->cond) : pthread_cond_signal(&ev->cond);
    int urc = pthread_mutex_unlock(&ev->mutex);
    return thread_map_error(urc != 0 ? urc : rc);
}

OMBR_API uint32_t ombr_thread_event_reset(ombr_event_t ev) {
    if (!ev) return kBadArg;
    if (pthread_mutex_lock(&ev->mutex) != 0) return 0;
    __atomic_store_n(&ev->signalled, 0, __ATOMIC_RELAXED);
    pthread_mutex_unlock(&ev->mutex);
    return 0;
}
