// Memory layer of the reference host: the module's only source of heap
// memory. It counts live blocks and can fail a chosen allocation so that
// every error path of the library can be driven in tests.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "ombr/ombr_base.h"
#include "zelto/zelto_manager.h"

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {
std::atomic<int64_t> g_live{0};
std::atomic<uint64_t> g_allocs{0};
std::atomic<uint64_t> g_fail_at{0};  // allocation number that fails, 0 = none
std::atomic<int> g_fired{0};
std::atomic<int> g_fail_init{0};
std::atomic<uint32_t> g_init_count{0};

// Counts one allocation attempt and tells whether it must fail.
bool next_allocation_fails() {
    uint64_t n = ++g_allocs;
    uint64_t target = g_fail_at.load();
    if (target != 0 && n == target) {
        g_fail_at.store(0);
        g_fired.store(1);
        return true;
    }
    return false;
}
}  // namespace

EXPORT uint32_t ombr_memory_initialize(void) {
    if (g_fail_init.load()) return 0x90010002u;
    ++g_init_count;
    return 0;
}

EXPORT uint32_t ombr_memory_shutdown(void) {
    uint32_t c = g_init_count.load();
    while (c != 0 && !g_init_count.compare_exchange_weak(c, c - 1)) {
    }
    return c == 0 ? 7u : 0u;
}

EXPORT void *ombr_memory_alloc(size_t size) {
    if (next_allocation_fails()) return nullptr;
    void *p = std::malloc(size == 0 ? 1 : size);
    if (p) ++g_live;
    return p;
}

EXPORT void *ombr_memory_realloc(void *block, size_t size) {
    if (next_allocation_fails()) return nullptr;
    void *p = std::realloc(block, size == 0 ? 1 : size);
    if (p && !block) ++g_live;
    return p;
}

EXPORT void ombr_memory_free(void *block) {
    if (!block) return;
    --g_live;
    std::free(block);
}

EXPORT void *ombr_memory_memset(void *dest, int byte, size_t size) { return std::memset(dest, byte, size); }
EXPORT void *ombr_memory_memcpy(void *dest, const void *src, size_t size) { return std::memcpy(dest, src, size); }
EXPORT void *ombr_memory_memmove(void *dest, const void *src, size_t size) { return std::memmove(dest, src, size); }
EXPORT int ombr_memory_memcmp(const void *a, const void *b, size_t size) { return std::memcmp(a, b, size); }

EXPORT int64_t zelto_manager_memory_live_blocks(void) { return g_live.load(); }
EXPORT uint64_t zelto_manager_memory_alloc_count(void) { return g_allocs.load(); }

EXPORT void zelto_manager_memory_fail_nth(uint64_t n) {
    if (n != 0) g_fired.store(0);  // disarming keeps the record of a failure that fired
    g_fail_at.store(n == 0 ? 0 : g_allocs.load() + n);
}

EXPORT int zelto_manager_memory_failure_fired(void) { return g_fired.load(); }
EXPORT void zelto_manager_memory_fail_initialize(int fail) { g_fail_init.store(fail ? 1 : 0); }
EXPORT uint32_t zelto_manager_memory_init_count(void) { return g_init_count.load(); }
