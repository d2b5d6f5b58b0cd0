// Pieces shared by the containers: statuses, the optional table lock and
// the handle test. Also the read-only views that tests use.
#ifndef OMBR_DATATYPES_INTERNAL_H
#define OMBR_DATATYPES_INTERNAL_H

#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"
#include "platform/ombr_frame.h"

namespace ombr::dt {

constexpr uint32_t kInvalidArg = OMBR_DATATYPES_INVALID_ARG;
constexpr uint32_t kNoMemory = OMBR_DATATYPES_NO_MEMORY;
constexpr uint32_t kNotFound = OMBR_DATATYPES_NOT_FOUND;
constexpr uint32_t kNotInitialized = OMBR_DATATYPES_NOT_INITIALIZED;
constexpr uint32_t kStopped = OMBR_DATATYPES_STOPPED;
constexpr uint32_t kBadHandle = OMBR_DATATYPES_BAD_HANDLE;
constexpr uint32_t kBadMagic = OMBR_DATATYPES_BAD_MAGIC;
constexpr uint32_t kInconsistent = OMBR_DATATYPES_INCONSISTENT;
constexpr uint32_t kIndexRange = OMBR_DATATYPES_INDEX_RANGE;
constexpr uint32_t kKeyPresent = OMBR_DATATYPES_KEY_PRESENT;

constexpr uint32_t kHashtableMagic = 0x12ABCDEFu;
constexpr uint32_t kStringmapMagic = 0x1ABCDEF2u;
constexpr uint32_t kVectorMagic = 0xABCDEF12u;

// Holds a container's re-entrant critical section for a scope. A container
// without a lock (not thread-safe) gets a guard that does nothing.
class SectionGuard {
   public:
    explicit SectionGuard(ombr_critsec_t section)
        : section_(section), status_(section ? ombr_thread_critsec_enter(section) : 0) {}
    ~SectionGuard() {
        if (section_ && status_ == 0) ombr_thread_critsec_leave(section_);
    }
    SectionGuard(const SectionGuard &) = delete;
    SectionGuard &operator=(const SectionGuard &) = delete;
    // Non-zero when entering failed; the scope must not touch the container.
    uint32_t status() const { return status_; }

   private:
    ombr_critsec_t section_;
    uint32_t status_;
};

// Allocates a zeroed record of type T.
template <typename T>
T *alloc_record() {
    void *block = ombr_memory_alloc(sizeof(T));
    if (block) ombr_memory_memset(block, 0, sizeof(T));
    return static_cast<T *>(block);
}

}  // namespace ombr::dt

// The hash of a key as the table computes it.
uint32_t _ombr_hashtable_genhash(const char *key, bool case_sensitive);

// Sizes of a hash table, for tests and diagnostics.
struct ombr_hashtable_stats {
    uint32_t bucket_count;
    uint32_t used_buckets;
    uint32_t collisions;
    uint32_t deferred;
};
uint32_t _ombr_hashtable_get_stats(ombr_hashtable_t table, ombr_hashtable_stats *out_stats);
// Chains whose first item describes the hashes before their last item
// wrongly (the add's collision test relies on it); 0 in a sound table.
uint32_t _ombr_hashtable_check_chains(ombr_hashtable_t table, uint32_t *out_bad_chains);

// The hash table under a string map, for tests that plant foreign entries.
ombr_hashtable_t _ombr_stringmap_get_table(ombr_stringmap_t map);

// Capacity and flag word of a vector, for tests.
uint32_t _ombr_vector_get_state(ombr_vector_t vector, uint32_t *out_capacity, uint32_t *out_flags);

#endif
