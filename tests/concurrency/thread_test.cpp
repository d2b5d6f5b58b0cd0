// Threads, names, the per-thread store and events, with their waits.
#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "platform_test.h"

namespace {

using platform_test::eventually;
using Clock = std::chrono::steady_clock;

int64_t elapsed_ms(Clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count();
}

// The thread package up for each test.
class ThreadTest : public LeakCheckedTest {
   protected:
    void SetUp() override {
        LeakCheckedTest::SetUp();
        ASSERT_EQ(ombr_thread_initialize(), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(ombr_thread_shutdown(), 0u);
        LeakCheckedTest::TearDown();
    }
};

// Values of the store that count how often they are freed.
std::atomic<int> g_freed{0};
void count_free(void *) { g_freed.fetch_add(1); }

// A procedure that waits for an event and then records what it saw.
struct Gate {
    ombr_event_t go = nullptr;
    std::atomic<int> ran{0};
    ombr_thread_id_t seen{};
};
void wait_for_gate(void *arg) {
    auto *gate = static_cast<Gate *>(arg);
    ombr_thread_event_wait(gate->go, OMBR_THREAD_WAIT_INFINITE);
    ombr_thread_get_id(nullptr, &gate->seen);
    gate->ran.fetch_add(1);
}

// ---- Threads ------------------------------------------------------------------------

TEST(ThreadPackage, CreateNeedsThePackage) {
    ASSERT_EQ(ombr_thread_initchecks(), 0u);
    ombr_thread_t t = nullptr;
    EXPECT_EQ(ombr_thread_create(wait_for_gate, 0, nullptr, &t), 0x90020007u);
    char name[4];
    EXPECT_EQ(ombr_thread_get_name(nullptr, name, sizeof name), 0x90020007u);
}

TEST_F(ThreadTest, CreateRunAndJoin) {
    Gate gate;
    ASSERT_EQ(ombr_thread_event_create(&gate.go, 1, 1), 0u);
    ombr_thread_t t = nullptr;
    EXPECT_EQ(ombr_thread_create(nullptr, 0, &gate, &t), 0x90020001u);
    ASSERT_EQ(ombr_thread_create(wait_for_gate, 256 * 1024, &gate, &t), 0u);
    ombr_thread_id_t id{};
    ASSERT_EQ(ombr_thread_get_id(t, &id), 0u);
    EXPECT_EQ(ombr_thread_wait_and_cleanup(t, OMBR_THREAD_WAIT_INFINITE), 0u);
    EXPECT_EQ(gate.ran.load(), 1);
    EXPECT_TRUE(pthread_equal(id, gate.seen));
    ombr_thread_id_t self{};
    ASSERT_EQ(ombr_thread_get_id(nullptr, &self), 0u);
    EXPECT_TRUE(pthread_equal(self, pthread_self()));
    EXPECT_EQ(ombr_thread_get_id(nullptr, nullptr), 0x90020001u);
    // A stack below the system's minimum.
    EXPECT_EQ(ombr_thread_create(wait_for_gate, 16, &gate, &t), 0x90020001u);
    EXPECT_EQ(ombr_thread_event_delete(gate.go), 0u);
}

TEST_F(ThreadTest, WaitWithATimeoutOnlyPolls) {
    Gate gate;
    ASSERT_EQ(ombr_thread_event_create(&gate.go, 0, 0), 0u);
    ombr_thread_t t = nullptr;
    ASSERT_EQ(ombr_thread_create(wait_for_gate, 0, &gate, &t), 0u);
    auto start = Clock::now();
    EXPECT_EQ(ombr_thread_wait_and_cleanup(t, 5000), 0x10020084u);
    EXPECT_LT(elapsed_ms(start), 2500);  // at once, not after 5 seconds
    ASSERT_EQ(ombr_thread_event_signal(gate.go), 0u);
    ASSERT_TRUE(eventually([&] { return gate.ran.load() == 1; }));
    // Finished: a poll now joins and cleans up.
    uint32_t st = 0;
    ASSERT_TRUE(eventually([&] { return (st = ombr_thread_wait_and_cleanup(t, 0)) != 0x10020084u; }));
    EXPECT_EQ(st, 0u);
    EXPECT_EQ(ombr_thread_event_delete(gate.go), 0u);
}

TEST_F(ThreadTest, DetachedRecordIsFreedWhenItsProcedureEnds) {
    const int64_t blocks = zelto_manager_memory_live_blocks();
    Gate gate;
    ASSERT_EQ(ombr_thread_event_create(&gate.go, 1, 1), 0u);
    ASSERT_EQ(ombr_thread_create(wait_for_gate, 0, &gate, nullptr), 0u);
    ASSERT_TRUE(eventually([&] { return gate.ran.load() == 1; }));
    EXPECT_TRUE(eventually([&] { return zelto_manager_memory_live_blocks() == blocks + 1; }));  // the event
    EXPECT_EQ(ombr_thread_event_delete(gate.go), 0u);
}

TEST_F(ThreadTest, HandleChecks) {
    alignas(8) unsigned char junk[512] = {};
    auto bad = reinterpret_cast<ombr_thread_t>(junk);
    ombr_thread_id_t id{};
    EXPECT_EQ(ombr_thread_wait_and_cleanup(nullptr, 0), 0x90020001u);
    EXPECT_EQ(ombr_thread_wait_and_cleanup(bad, 0), 0x90020321u);
    EXPECT_EQ(ombr_thread_set_priority(nullptr, 0), 0x90020001u);
    EXPECT_EQ(ombr_thread_set_priority(bad, 0), 0x90020321u);
    EXPECT_EQ(ombr_thread_get_id(bad, &id), 0x90020321u);
    EXPECT_EQ(ombr_thread_set_name(bad, "x"), 0x90020321u);
    EXPECT_EQ(ombr_thread_store_clear(bad), 0x90020321u);
}

TEST_F(ThreadTest, Priority) {
    Gate gate;
    ASSERT_EQ(ombr_thread_event_create(&gate.go, 0, 1), 0u);
    ombr_thread_t t = nullptr;
    ASSERT_EQ(ombr_thread_create(wait_for_gate, 0, &gate, &t), 0u);
    EXPECT_EQ(ombr_thread_set_priority(t, 6), 0x90020001u);
    EXPECT_EQ(ombr_thread_set_priority(t, -6), 0x90020001u);
    for (int p : {-5, 0, 5}) EXPECT_EQ(ombr_thread_set_priority(t, p), 0u) << p;
    ASSERT_EQ(ombr_thread_event_signal(gate.go), 0u);
    ASSERT_EQ(ombr_thread_wait_and_cleanup(t, OMBR_THREAD_WAIT_INFINITE), 0u);
    EXPECT_EQ(ombr_thread_event_delete(gate.go), 0u);
}

TEST_F(ThreadTest, SleepWaitsAtLeastThatLong) {
    auto start = Clock::now();
    EXPECT_EQ(ombr_thread_sleep(30), 0u);
    EXPECT_GE(elapsed_ms(start), 30);
    EXPECT_EQ(ombr_thread_sleep(0), 0u);
}

// A sleep cut short by a signal reports the system call's result, -1,
// through the thread map: the unknown system error.
TEST_F(ThreadTest, SleepInterruptedBySignal) {
    struct sigaction quiet{}, saved{};
    quiet.sa_handler = [](int) {};
    sigemptyset(&quiet.sa_mask);
    ASSERT_EQ(sigaction(SIGUSR1, &quiet, &saved), 0);
    std::atomic<uint32_t> status{1};
    std::atomic<bool> done{false};
    auto start = Clock::now();
    std::thread sleeper([&] {
        status = ombr_thread_sleep(20000);
        done = true;
    });
    while (!done) {
        pthread_kill(sleeper.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    sleeper.join();
    sigaction(SIGUSR1, &saved, nullptr);
    EXPECT_EQ(status.load(), 0x9002003Eu);
    EXPECT_LT(elapsed_ms(start), 10000);
}

TEST_F(ThreadTest, EveryAllocationFailureOfThreadCreation) {
    Gate gate;
    ASSERT_EQ(ombr_thread_event_create(&gate.go, 1, 1), 0u);
    const int64_t blocks = zelto_manager_memory_live_blocks();
    uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        ombr_thread_t t = nullptr;
        uint32_t st = ombr_thread_create(wait_for_gate, 0, &gate, &t);
        if (st != 0) {
            EXPECT_EQ(st, 0x90020002u);
            EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
            return;
        }
        EXPECT_EQ(ombr_thread_wait_and_cleanup(t, OMBR_THREAD_WAIT_INFINITE), 0u);
    });
    EXPECT_EQ(runs, 1u);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
    runs = for_each_allocation_failure([&](uint64_t) {
        ombr_event_t ev = nullptr;
        uint32_t st = ombr_thread_event_create(&ev, 0, 0);
        if (st != 0) {
            EXPECT_EQ(st, 0x90020002u);
            return;
        }
        EXPECT_EQ(ombr_thread_event_delete(ev), 0u);
    });
    EXPECT_EQ(runs, 1u);
    EXPECT_EQ(ombr_thread_event_delete(gate.go), 0u);
}

// ---- Names and the store ---------------------------------------------------------------

TEST_F(ThreadTest, Names) {
    char buf[16];
    // A thread never seen here has no record.
    std::thread([&] {
        EXPECT_EQ(ombr_thread_get_name(nullptr, buf, sizeof buf), 0x90020003u);
        EXPECT_EQ(ombr_thread_set_name(nullptr, "worker"), 0u);  // makes one
        std::memset(buf, '#', sizeof buf);
        EXPECT_EQ(ombr_thread_get_name(nullptr, buf, sizeof buf), 0u);
        EXPECT_STREQ(buf, "worker");
        // A short buffer takes what fits, unterminated.
        std::memset(buf, '#', sizeof buf);
        EXPECT_EQ(ombr_thread_get_name(nullptr, buf, 3), 0u);
        EXPECT_EQ(std::string(buf, 4), "wor#");
    }).join();

    Gate gate;
    ASSERT_EQ(ombr_thread_event_create(&gate.go, 0, 1), 0u);
    ombr_thread_t t = nullptr;
    ASSERT_EQ(ombr_thread_create(wait_for_gate, 0, &gate, &t), 0u);
    EXPECT_EQ(ombr_thread_get_name(t, buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "");  // never named
    EXPECT_EQ(ombr_thread_set_name(t, "first"), 0u);
    EXPECT_EQ(ombr_thread_set_name(t, "second name"), 0u);
    EXPECT_EQ(ombr_thread_get_name(t, buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "second name");
    EXPECT_EQ(ombr_thread_set_name(t, nullptr), 0x90020001u);
    EXPECT_EQ(ombr_thread_get_name(t, nullptr, 4), 0x90020001u);
    EXPECT_EQ(ombr_thread_get_name(t, buf, 0), 0x90020001u);
    ASSERT_EQ(ombr_thread_event_signal(gate.go), 0u);
    ASSERT_EQ(ombr_thread_wait_and_cleanup(t, OMBR_THREAD_WAIT_INFINITE), 0u);
    EXPECT_EQ(ombr_thread_event_delete(gate.go), 0u);
}

TEST_F(ThreadTest, StoreOfTheCallingThread) {
    g_freed = 0;
    int a = 1, b = 2;
    void *value = nullptr;
    std::thread([&] {
        EXPECT_EQ(ombr_thread_store_get(nullptr, &value), 0x90020003u);
        EXPECT_EQ(ombr_thread_store_clear(nullptr), 0u);  // no record is success
        EXPECT_EQ(ombr_thread_store_set(nullptr, &a, count_free), 0u);
        EXPECT_EQ(ombr_thread_store_get(nullptr, &value), 0u);
        EXPECT_EQ(value, &a);
        EXPECT_EQ(ombr_thread_store_set(nullptr, &b, count_free), 0u);
        EXPECT_EQ(g_freed.load(), 1);  // the first value's callback ran
        EXPECT_EQ(ombr_thread_store_set(nullptr, &b, count_free), 0u);
        EXPECT_EQ(g_freed.load(), 1);  // the same value again is not freed
        EXPECT_EQ(ombr_thread_store_clear(nullptr), 0u);
        EXPECT_EQ(g_freed.load(), 2);
        EXPECT_EQ(ombr_thread_store_get(nullptr, &value), 0x90020003u);
        EXPECT_EQ(ombr_thread_store_get(nullptr, nullptr), 0x90020001u);
        EXPECT_EQ(ombr_thread_store_set(nullptr, &a, count_free), 0u);
    }).join();
    EXPECT_EQ(g_freed.load(), 3);  // freed with the record at thread exit

    // The package's last take-down releases the calling thread's record.
    ASSERT_EQ(ombr_thread_store_set(nullptr, &a, count_free), 0u);
    ASSERT_EQ(ombr_thread_initialize(), 0u);
    ASSERT_EQ(ombr_thread_shutdown(), 0u);
    EXPECT_EQ(g_freed.load(), 3);  // not the last shutdown
    ASSERT_EQ(ombr_thread_shutdown(), 0u);
    EXPECT_EQ(g_freed.load(), 4);
    ASSERT_EQ(ombr_thread_initialize(), 0u);  // for the fixture's take-down
}

struct StoreCheck {
    ombr_event_t go;
    void *seen;
};
void read_own_store(void *arg) {
    auto *check = static_cast<StoreCheck *>(arg);
    ombr_thread_event_wait(check->go, OMBR_THREAD_WAIT_INFINITE);
    void *value = nullptr;
    if (ombr_thread_store_get(nullptr, &value) == 0) check->seen = value;
}

TEST_F(ThreadTest, StoreOfAThreadSetByItsCreator) {
    g_freed = 0;
    int v = 0;
    StoreCheck check{nullptr, nullptr};
    ASSERT_EQ(ombr_thread_event_create(&check.go, 0, 1), 0u);
    ombr_thread_t t = nullptr;
    ASSERT_EQ(ombr_thread_create(read_own_store, 0, &check, &t), 0u);
    ASSERT_EQ(ombr_thread_store_set(t, &v, count_free), 0u);
    ASSERT_EQ(ombr_thread_event_signal(check.go), 0u);
    ASSERT_EQ(ombr_thread_wait_and_cleanup(t, OMBR_THREAD_WAIT_INFINITE), 0u);
    EXPECT_EQ(check.seen, &v);
    EXPECT_EQ(g_freed.load(), 1);  // the record died with the last reference
    EXPECT_EQ(ombr_thread_event_delete(check.go), 0u);
}

TEST_F(ThreadTest, StoreAndNamePerThreadOnManyThreads) {
    constexpr int kThreads = 16, kRounds = 200;
    g_freed = 0;
    std::atomic<int> wrong{0};
    std::vector<int> values(kThreads);
    on_threads(kThreads, [&](int i) {
        const std::string name = "t" + std::to_string(i);
        for (int r = 0; r < kRounds; ++r) {
            if (ombr_thread_store_set(nullptr, &values[i], count_free) != 0) wrong++;
            if (ombr_thread_set_name(nullptr, name.c_str()) != 0) wrong++;
            void *value = nullptr;
            char buf[8];
            if (ombr_thread_store_get(nullptr, &value) != 0 || value != &values[i]) wrong++;
            if (ombr_thread_get_name(nullptr, buf, sizeof buf) != 0 || name != buf) wrong++;
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(g_freed.load(), kThreads);  // one final free per thread
}

// ---- Events ----------------------------------------------------------------------------

TEST_F(ThreadTest, AutoResetEventKeepsOneSignal) {
    ombr_event_t ev = nullptr;
    EXPECT_EQ(ombr_thread_event_create(nullptr, 0, 0), 0x90020001u);
    ASSERT_EQ(ombr_thread_event_create(&ev, 0, 0), 0u);
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0x10020084u);
    ASSERT_EQ(ombr_thread_event_signal(ev), 0u);
    ASSERT_EQ(ombr_thread_event_signal(ev), 0u);  // signals do not add up
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0u);
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0x10020084u);
    ASSERT_EQ(ombr_thread_event_signal(ev), 0u);
    ASSERT_EQ(ombr_thread_event_reset(ev), 0u);
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0x10020084u);
    auto start = Clock::now();
    EXPECT_EQ(ombr_thread_event_wait(ev, 60), 0x10020084u);
    EXPECT_GE(elapsed_ms(start), 59);
    EXPECT_EQ(ombr_thread_event_delete(ev), 0u);

    ASSERT_EQ(ombr_thread_event_create(&ev, 1, 0), 0u);  // initially set
    EXPECT_EQ(ombr_thread_event_wait(ev, OMBR_THREAD_WAIT_INFINITE), 0u);
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0x10020084u);
    EXPECT_EQ(ombr_thread_event_delete(ev), 0u);
    EXPECT_EQ(ombr_thread_event_delete(nullptr), 0u);
    EXPECT_EQ(ombr_thread_event_wait(nullptr, 0), 0x90020001u);
    EXPECT_EQ(ombr_thread_event_signal(nullptr), 0x90020001u);
    EXPECT_EQ(ombr_thread_event_reset(nullptr), 0x90020001u);
}

TEST_F(ThreadTest, ManualResetEventReleasesAllWaiters) {
    constexpr int kWaiters = 12;
    ombr_event_t ev = nullptr;
    ASSERT_EQ(ombr_thread_event_create(&ev, 0, 1), 0u);
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            if (ombr_thread_event_wait(ev, OMBR_THREAD_WAIT_INFINITE) == 0) passed++;
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(passed.load(), 0);
    ASSERT_EQ(ombr_thread_event_signal(ev), 0u);
    for (auto &w : waiters) w.join();
    EXPECT_EQ(passed.load(), kWaiters);
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0u);  // stays set
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0u);
    ASSERT_EQ(ombr_thread_event_reset(ev), 0u);
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0x10020084u);
    EXPECT_EQ(ombr_thread_event_delete(ev), 0u);
}

// Each signal of an auto-reset event frees exactly one of many waiters.
TEST_F(ThreadTest, AutoResetEventFreesOneWaiterPerSignal) {
    constexpr int kWaiters = 10;
    ombr_event_t ev = nullptr;
    ASSERT_EQ(ombr_thread_event_create(&ev, 0, 0), 0u);
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            if (ombr_thread_event_wait(ev, OMBR_THREAD_WAIT_INFINITE) == 0) passed++;
        });
    for (int i = 1; i <= kWaiters; ++i) {
        ASSERT_EQ(ombr_thread_event_signal(ev), 0u);
        ASSERT_TRUE(eventually([&] { return passed.load() >= i; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_EQ(passed.load(), i);
    }
    for (auto &w : waiters) w.join();
    EXPECT_EQ(ombr_thread_event_wait(ev, 0), 0x10020084u);
    EXPECT_EQ(ombr_thread_event_delete(ev), 0u);
}

// Producers and consumers hand items over through an auto-reset event with
// short timeouts; every item is taken exactly once and timeouts are soft.
TEST_F(ThreadTest, EventUnderContentionWithTimeouts) {
    constexpr int kProducers = 4, kConsumers = 6, kItems = 2000;
    ombr_event_t ev = nullptr;
    ASSERT_EQ(ombr_thread_event_create(&ev, 0, 0), 0u);
    std::mutex m;
    std::vector<int> queue;
    std::set<int> taken;
    std::atomic<int> produced{0}, timeouts{0}, bad{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int p = 0; p < kProducers; ++p)
        threads.emplace_back([&, p] {
            for (int i = p; i < kItems; i += kProducers) {
                {
                    std::lock_guard<std::mutex> lock(m);
                    queue.push_back(i);
                }
                produced++;
                if (ombr_thread_event_signal(ev) != 0) bad++;
            }
        });
    for (int c = 0; c < kConsumers; ++c)
        threads.emplace_back([&] {
            for (;;) {
                uint32_t st = ombr_thread_event_wait(ev, 5);
                if (st == 0x10020084u) timeouts++;
                else if (st != 0) bad++;
                std::lock_guard<std::mutex> lock(m);
                while (!queue.empty()) {
                    if (!taken.insert(queue.back()).second) bad++;
                    queue.pop_back();
                }
                if (done && queue.empty()) return;
            }
        });
    for (int p = 0; p < kProducers; ++p) threads[p].join();
    done = true;
    for (size_t i = kProducers; i < threads.size(); ++i) threads[i].join();
    EXPECT_EQ(bad.load(), 0);
    EXPECT_EQ(taken.size(), static_cast<size_t>(kItems));
    EXPECT_EQ(ombr_thread_event_delete(ev), 0u);
}

}  // namespace
