// The XML package frame.
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_xml;
constexpr const char *kUnit = "ombr_xml";

// Memory, string, time; on failure those started go down in the order
// memory, string, time.
uint32_t xml_init_func() {
    bool memory = false, string = false;
    if ((memory = ombr_memory_initialize() == 0) && (string = ombr_string_initialize() == 0) &&
        ombr_time_initialize() == 0)
        return 0;
    if (memory) ombr_memory_shutdown();
    if (string) ombr_string_shutdown();
    return ombr::fail(10, kUnit);
}

uint32_t xml_shutdown_func() {
    ombr_memory_shutdown();
    ombr_string_shutdown();
    ombr_time_shutdown();
    return 0;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(xml, s_xml, xml_init_func, xml_shutdown_func, ombr::kBaseBuildDate)
