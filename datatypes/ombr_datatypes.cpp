// The datatypes package frame (hash tables, string maps, vectors).
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_datatypes;
constexpr const char *kUnit = "ombr_datatypes";

// Memory, thread, string, random; on failure those started go down in the
// order string, thread, memory.
uint32_t datatypes_init_func() {
    bool memory = false, thread = false, string = false;
    if ((memory = ombr_memory_initialize() == 0) && (thread = ombr_thread_initialize() == 0) &&
        (string = ombr_string_initialize() == 0) && ombr_random_initialize() == 0)
        return 0;
    if (string) ombr_string_shutdown();
    if (thread) ombr_thread_shutdown();
    if (memory) ombr_memory_shutdown();
    return ombr::fail(10, kUnit);
}

uint32_t datatypes_shutdown_func() {
    ombr_random_shutdown();
    ombr_string_shutdown();
    ombr_thread_shutdown();
    ombr_memory_shutdown();
    return 0;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(datatypes, s_datatypes, datatypes_init_func, datatypes_shutdown_func,
                          "2013-01-08 07:50-0800")
