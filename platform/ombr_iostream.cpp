// The stream package frame.
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_iostream;
uint32_t iostream_init_func() { return ombr_memory_initialize(); }
uint32_t iostream_shutdown_func() {
    ombr_memory_shutdown();
    return 0;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(iostream, s_iostream, iostream_init_func, iostream_shutdown_func, ombr::kBaseBuildDate)
