// Helpers shared by the tests: leak checks through the host's block count
// and a driver that fails each allocation of an operation in turn.
#ifndef CANTRIX_TEST_H
#define CANTRIX_TEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "zelto/zelto_manager.h"

// Fixture that fails the test if it leaves heap blocks behind.
class LeakCheckedTest : public ::testing::Test {
   protected:
    void SetUp() override { blocks_before_ = zelto_manager_memory_live_blocks(); }
    void TearDown() override {
        zelto_manager_memory_fail_nth(0);
        EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks_before_) << "heap blocks leaked";
    }
    int64_t blocks_before_ = 0;
};

// Runs `attempt(n)` with the n-th allocation failing, for n = 1, 2, ...,
// until a run completes without reaching an n-th allocation. Returns how
// many runs had an injected failure.
template <typename Attempt>
uint64_t for_each_allocation_failure(Attempt &&attempt, uint64_t limit = 100000) {
    uint64_t n = 1;
    for (; n <= limit; ++n) {
        zelto_manager_memory_fail_nth(n);
        attempt(n);
        bool fired = zelto_manager_memory_failure_fired() != 0;
        zelto_manager_memory_fail_nth(0);
        if (!fired) break;
    }
    EXPECT_LE(n, limit) << "operation never completed without an injected failure";
    return n - 1;
}

// Runs `work(t)` on `count` threads at once, t = 0 .. count - 1, and joins them.
template <typename Work>
void on_threads(int count, Work work) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) threads.emplace_back(work, t);
    for (auto &thread : threads) thread.join();
}

#endif
