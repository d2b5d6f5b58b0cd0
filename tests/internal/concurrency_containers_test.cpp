// Thread-safe hash tables and vectors under several threads at once (CTest
// label concurrency, run under ThreadSanitizer): writers, readers and
// removers on one container end in the state a single thread would leave.
#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "datatypes_test_support.h"
#include "out_param.h"

namespace {

constexpr int kThreads = 4;
constexpr int kPerThread = 500;

class ConcurrencyContainers : public DatatypesTest {};

TEST_F(ConcurrencyContainers, HashTableWritersReadersAndRemovers) {
    ombr_hashtable_t table = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&table, OMBR_HASHTABLE_THREADSAFE | OMBR_HASHTABLE_MULTI_VALUE, nullptr), 0u);
    std::atomic<int> wrong{0};
    on_threads(kThreads, [&](int t) {
        for (int i = 0; i < kPerThread; ++i) {
            const std::string key = "k" + std::to_string(t) + "_" + std::to_string(i);
            const std::string shared = "shared" + std::to_string(i % 7);
            if (ombr_hashtable_value_add(table, key.c_str(), key.c_str(), uint32_t(key.size() + 1), 1) != 0) ++wrong;
            if (ombr_hashtable_value_add(table, shared.c_str(), key.c_str(), uint32_t(key.size() + 1), 1) != 0)
                ++wrong;
            void *value = nullptr;
            if (ombr_hashtable_value_find_ex(table, key.c_str(), 0, &value, nullptr) != 0 || !value ||
                key != static_cast<const char *>(value))
                ++wrong;
            uint32_t count = 0;
            ombr_hashtable_value_count(table, shared.c_str(), &count);
            const char *any_key = nullptr;
            ombr_hashtable_value_get(table, uint32_t(i), &any_key, nullptr, nullptr);
            // Every other key of this thread goes again.
            if (i % 2 == 1) {
                const std::string previous = "k" + std::to_string(t) + "_" + std::to_string(i - 1);
                if (ombr_hashtable_value_delete(table, previous.c_str()) != 0) ++wrong;
            }
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    uint32_t count = 0;
    ASSERT_EQ(ombr_hashtable_count(table, &count), 0u);
    // The count is of values: the keys left and every shared value.
    EXPECT_EQ(count, uint32_t(kThreads * kPerThread / 2 + kThreads * kPerThread));
    uint32_t shared = 0;
    for (int s = 0; s < 7; ++s) {
        uint32_t n = 0;
        ombr_hashtable_value_count(table, ("shared" + std::to_string(s)).c_str(), &n);
        shared += n;
    }
    EXPECT_EQ(shared, uint32_t(kThreads * kPerThread));
    EXPECT_EQ(ombr_hashtable_delete(table), 0u);
}

TEST_F(ConcurrencyContainers, StringMapWritersAndReaders) {
    ombr_stringmap_t map = nullptr;
    ASSERT_EQ(ombr_stringmap_create(&map, OMBR_HASHTABLE_THREADSAFE), 0u);
    std::atomic<int> wrong{0};
    on_threads(kThreads, [&](int t) {
        for (int i = 0; i < kPerThread; ++i) {
            const std::string key = "m" + std::to_string(t) + "_" + std::to_string(i);
            if (ombr_stringmap_value_add(map, key.c_str(), key.c_str()) != 0) ++wrong;
            const char *value = nullptr;
            if (ombr_stringmap_value_find(map, key.c_str(), &value) != 0 || !value || key != value) ++wrong;
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(out(ombr_stringmap_count, map), uint32_t(kThreads * kPerThread));
    EXPECT_EQ(ombr_stringmap_delete(map), 0u);
}

TEST_F(ConcurrencyContainers, VectorAddersReadersAndRemovers) {
    ombr_vector_t vector = nullptr;
    ASSERT_EQ(ombr_vector_create(&vector, OMBR_VECTOR_THREADSAFE, nullptr, nullptr), 0u);
    std::atomic<int> wrong{0};
    // Each call is atomic, a pair of calls is not: another thread's remove
    // between a find and a remove would shift the index found, and one
    // between a count and a read of the last index would put that index
    // past the end. Removes hold the lock alone; pairs that read share it;
    // adds only grow the vector and need none.
    std::shared_mutex removing;
    on_threads(kThreads, [&](int t) {
        for (int i = 1; i <= kPerThread; ++i) {
            const uintptr_t entry = uintptr_t(t) * 100000u + uintptr_t(i);
            if (ombr_vector_add(vector, entry) != 0) ++wrong;
            uint32_t index = 0;
            if (ombr_vector_find_literal(vector, entry, &index) != 0) ++wrong;
            uintptr_t read = 0;
            uint32_t count = 0;
            {
                std::shared_lock<std::shared_mutex> reading(removing);
                ombr_vector_count(vector, &count);
                if (count == 0 || ombr_vector_getindex(vector, count - 1, &read) != 0 || read == 0) ++wrong;
            }
            // Each thread takes out its own entries divisible by five.
            if (i % 5 == 0) {
                std::lock_guard<std::shared_mutex> guard(removing);
                if (ombr_vector_find_literal(vector, entry, &index) != 0 ||
                    ombr_vector_removeindex(vector, index, &read) != 0 || read != entry)
                    ++wrong;
            }
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    uint32_t count = 0;
    ASSERT_EQ(ombr_vector_count(vector, &count), 0u);
    EXPECT_EQ(count, uint32_t(kThreads * kPerThread * 4 / 5));
    // Each thread's entries stay in the order it added them.
    std::vector<uintptr_t> last(kThreads, 0);
    for (uint32_t i = 0; i < count; ++i) {
        uintptr_t entry = 0;
        ASSERT_EQ(ombr_vector_getindex(vector, i, &entry), 0u);
        const size_t t = entry / 100000u;
        ASSERT_LT(t, last.size());
        EXPECT_GT(entry, last[t]);
        EXPECT_NE(entry % 5, 0u);
        last[t] = entry;
    }
    EXPECT_EQ(ombr_vector_delete(vector), 0u);
}

}  // namespace
