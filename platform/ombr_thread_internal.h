// Internal helpers of the thread package shared with its other units.
#ifndef OMBR_THREAD_INTERNAL_H
#define OMBR_THREAD_INTERNAL_H

#include <pthread.h>

#include <cstdint>

namespace ombr {

// Maps the result of a POSIX thread call to a thread-package status.
uint32_t thread_map_error(int error);

// Locks a mutex; on failure unlocks it again and reports the lock error, or
// the unlock error if that failed as well.
uint32_t thread_lock_or_report(pthread_mutex_t *mutex);

}  // namespace ombr

#endif
