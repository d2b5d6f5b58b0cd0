// The HDO package frame: bring-up and take-down of the packages HDO needs.
#include "hdo/ombr_hdo_internal.h"

namespace {
ombr::PackageState s_hdo;
constexpr const char *kUnit = "ombr_hdo";

// Memory, string, thread, datatypes, xml; on failure those started go down
// in the same order.
uint32_t hdo_init_func() {
    bool memory = false, string = false, thread = false, datatypes = false;
    if ((memory = ombr_memory_initialize() == 0) && (string = ombr_string_initialize() == 0) &&
        (thread = ombr_thread_initialize() == 0) && (datatypes = ombr_datatypes_initialize() == 0) &&
        ombr_xml_initialize() == 0)
        return 0;
    if (memory) ombr_memory_shutdown();
    if (string) ombr_string_shutdown();
    if (thread) ombr_thread_shutdown();
    if (datatypes) ombr_datatypes_shutdown();
    return ombr::fail(10, kUnit);
}

uint32_t hdo_shutdown_func() {
    ombr_memory_shutdown();
    ombr_string_shutdown();
    ombr_thread_shutdown();
    ombr_datatypes_shutdown();
    ombr_xml_shutdown();
    return 0;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(hdo, s_hdo, hdo_init_func, hdo_shutdown_func, "2013-01-08 07:55-0800")

bool ombr::hdo::initialized() { return s_hdo.initialized != 0; }
