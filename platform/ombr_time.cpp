// The time package frame.
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_time;

// Brings up memory, then string; a failing string package takes memory down.
uint32_t time_init_func() {
    if (ombr_memory_initialize() != 0) return 10;
    if (ombr_string_initialize() != 0) {
        ombr_memory_shutdown();
        return 10;
    }
    return 0;
}

uint32_t time_shutdown_func() {
    ombr_string_shutdown();
    ombr_memory_shutdown();
    return 0;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(time, s_time, time_init_func, time_shutdown_func, ombr::kBaseBuildDate)
