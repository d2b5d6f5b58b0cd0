// The random-number package: its frame, which brings up the file package
// without looking at its status, and a small linear congruential sequence.
#include "ombr/ombr_random.h"
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_random;
constexpr const char *kUnit = "ombr_random";

// The shared sequence; callers share it without a lock.
int32_t s_ombr_random_rand_seed = OMBR_RANDOM_INITIAL_SEED;

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
OMBR_API uint32_t ombr_random_initchecks(void) { return s_random.initialized; }
OMBR_API const char *ombr_random_get_version(void) { return ombr::kVersion; }
OMBR_API const char *ombr_random_get_build_date(void) { return ombr::kBaseBuildDate; }

OMBR_API uint32_t ombr_random_rand(int32_t *seed) {
    int32_t *word = seed ? seed : &s_ombr_random_rand_seed;
    // Wrapping 32-bit arithmetic, done unsigned.
    const uint32_t next = static_cast<uint32_t>(*word) * 214013u + 2531011u;
    *word = static_cast<int32_t>(next);
    return (next >> 16) & 0x7FFFu;
}
