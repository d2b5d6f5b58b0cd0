// The random-number package frame. It brings up the file package and does
// not look at its status.
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_random;
constexpr const char *kUnit = "ombr_random";

uint32_t random_init_func() {
    (void)ombr_fs_initialize();
    return 0;
}

uint32_t random_shutdown_func() {
    ombr_fs_shutdown();
    return 0;
}
}  // namespace

OMBR_API uint32_t ombr_random_initialize(void) { return ombr::package_initialize(s_random, random_init_func); }
OMBR_API uint32_t ombr_random_shutdown(void) {
    return ombr::fail(ombr::package_shutdown(s_random, random_shutdown_func), kUnit);
}
OMBR_API uint32_t ombr_random_initchecks(void) { return s_random.count(); }
OMBR_API const char *ombr_random_get_version(void) { return ombr::kVersion; }
OMBR_API const char *ombr_random_get_build_date(void) { return ombr::kBaseBuildDate; }
