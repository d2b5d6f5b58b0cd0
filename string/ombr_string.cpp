// The string package frame and the two string operations the frame itself
// needs: key equality and freeing of duplicated texts.
#include "platform/ombr_frame.h"

namespace {

ombr::PackageState s_string;

uint32_t string_init_func() { return ombr_memory_initialize(); }
uint32_t string_shutdown_func() {
    ombr_memory_shutdown();
    return 0;
}

inline unsigned char upper_ascii(unsigned char c) { return (c >= 'a' && c <= 'z') ? c - ('a' - 'A') : c; }

}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(string, s_string, string_init_func, string_shutdown_func, ombr::kBaseBuildDate)

OMBR_API uint32_t ombr_string_equal(const char *a, const char *b, uint8_t ignore_case) {
    if (a == b) return 1;
    if (!a || !b) return 0;
    const auto *pa = reinterpret_cast<const unsigned char *>(a);
    const auto *pb = reinterpret_cast<const unsigned char *>(b);
    for (;; ++pa, ++pb) {
        unsigned char ca = *pa, cb = *pb;
        if (ignore_case) {
            ca = upper_ascii(ca);
            cb = upper_ascii(cb);
        }
        if (ca != cb) return 0;
        if (ca == 0) return 1;
    }
}

OMBR_API void ombr_string_free(void *block) { ombr_memory_free(block); }
