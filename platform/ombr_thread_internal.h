// Internal helpers of the thread package shared with its other units.
#ifndef OMBR_THREAD_INTERNAL_H
#define OMBR_THREAD_INTERNAL_H

#include <cstdint>

namespace ombr {

// Maps the result of a POSIX thread call to a thread-package status.
uint32_t thread_map_error(int error);

}  // namespace ombr

#endif
