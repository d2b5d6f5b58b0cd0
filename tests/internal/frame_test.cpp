// Package frames, locks and atomics of the base layer.
#include <atomic>
#include <thread>
#include <vector>

#include "cantrix_test.h"
#include "ombr/ombr_base.h"

namespace {

TEST(PackageFrame, ReferenceCountedBringUpAndTakeDown) {
    uint32_t mem_before = zelto_manager_memory_init_count();
    ASSERT_EQ(ombr_string_initchecks(), 0u);
    EXPECT_EQ(ombr_string_shutdown(), 7u);  // down: plain 7, nothing touched
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_before);

    EXPECT_EQ(ombr_string_initialize(), 0u);
    EXPECT_EQ(ombr_string_initialize(), 0u);
    EXPECT_EQ(ombr_string_initchecks(), 2u);
    // The init function ran once: memory was brought up once.
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_before + 1);
    EXPECT_EQ(ombr_string_shutdown(), 0u);
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_before + 1);
    EXPECT_EQ(ombr_string_shutdown(), 0u);
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_before);
    EXPECT_EQ(ombr_string_initchecks(), 0u);
    // The static lock was reset and works again.
    EXPECT_EQ(ombr_string_initialize(), 0u);
    EXPECT_EQ(ombr_string_shutdown(), 0u);
}

TEST(PackageFrame, FailedBringUpGivesTenAndUnwinds) {
    uint32_t mem_before = zelto_manager_memory_init_count();
    zelto_manager_memory_fail_initialize(1);
    EXPECT_EQ(ombr_hdo_initialize(), 10u);
    EXPECT_EQ(ombr_datatypes_initialize(), 10u);
    EXPECT_EQ(ombr_time_initialize(), 10u);
    zelto_manager_memory_fail_initialize(0);
    EXPECT_EQ(ombr_hdo_initchecks(), 0u);
    EXPECT_EQ(ombr_string_initchecks(), 0u);
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_before);

    // The whole chain comes up and goes down again.
    EXPECT_EQ(ombr_hdo_initialize(), 0u);
    EXPECT_EQ(ombr_datatypes_initchecks(), 1u);
    EXPECT_EQ(ombr_xml_initchecks(), 1u);
    EXPECT_EQ(ombr_time_initchecks(), 1u);
    EXPECT_EQ(ombr_random_initchecks(), 1u);
    EXPECT_EQ(ombr_fs_initchecks(), 1u);
    EXPECT_EQ(ombr_hdo_shutdown(), 0u);
    EXPECT_EQ(ombr_datatypes_initchecks(), 0u);
    EXPECT_EQ(ombr_fs_initchecks(), 0u);
    EXPECT_EQ(ombr_thread_initchecks(), 0u);
    EXPECT_EQ(ombr_string_initchecks(), 0u);
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_before);
}

// Bring-up and take-down of a package that brings up others, racing on
// several threads: the counts end where they began.
TEST(PackageFrame, ConcurrentBringUpAndTakeDownKeepTheCounts) {
    ASSERT_EQ(ombr_datatypes_initchecks(), 0u);
    const uint32_t mem_before = zelto_manager_memory_init_count();
    std::atomic<int> failures{0};
    on_threads(4, [&](int) {
        for (int i = 0; i < 200; ++i) {
            if (ombr_datatypes_initialize() != 0 || ombr_string_initchecks() == 0) ++failures;
            if (ombr_datatypes_shutdown() != 0) ++failures;
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(ombr_datatypes_initchecks(), 0u);
    EXPECT_EQ(ombr_string_initchecks(), 0u);
    EXPECT_EQ(ombr_thread_initchecks(), 0u);
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_before);
}

TEST(PackageFrame, VersionsAndBuildDates) {
    EXPECT_STREQ(ombr_thread_get_version(), "3.2.0.422");
    EXPECT_STREQ(ombr_hdo_get_version(), "3.2.0.422");
    EXPECT_STREQ(ombr_string_get_build_date(), "2013-01-08 07:49-0800");
    EXPECT_STREQ(ombr_fs_get_build_date(), "2013-01-08 07:49-0800");
    EXPECT_STREQ(ombr_datatypes_get_build_date(), "2013-01-08 07:50-0800");
    EXPECT_STREQ(ombr_hdo_get_build_date(), "2013-01-08 07:55-0800");
}

TEST(StringFrame, EqualAndFree) {
    const char *s = "Abc";
    EXPECT_TRUE(ombr_string_equal(s, s, 0));
    EXPECT_FALSE(ombr_string_equal(nullptr, "a", 0));
    EXPECT_FALSE(ombr_string_equal("a", nullptr, 1));
    EXPECT_TRUE(ombr_string_equal(nullptr, nullptr, 0));
    EXPECT_TRUE(ombr_string_equal("zelto_CANTRIX", "ZELTO_cantrix", 1));
    EXPECT_FALSE(ombr_string_equal("zelto_CANTRIX", "ZELTO_cantrix", 0));
    EXPECT_FALSE(ombr_string_equal("abc", "abcd", 1));
    // Only ASCII letters fold: '[' (0x5B) and '{' (0x7B) stay apart.
    EXPECT_FALSE(ombr_string_equal("[", "{", 1));
    EXPECT_FALSE(ombr_string_equal("\xC3\xA9", "\xC3\x89", 1));
    ombr_string_free(nullptr);
}

TEST(Atomics, OperationsAndNullWords) {
    uint32_t w = 0, out = 99;
    EXPECT_EQ(ombr_atomic_set(nullptr, 1), 0x901F0001u);
    EXPECT_EQ(ombr_atomic_read(nullptr, &out), 0x901F0001u);
    EXPECT_EQ(ombr_atomic_set(&w, 5), 0u);
    EXPECT_EQ(ombr_atomic_add(&w, 3), 0u);
    EXPECT_EQ(ombr_atomic_read(&w, &out), 0u);
    EXPECT_EQ(out, 8u);
    EXPECT_EQ(ombr_atomic_inc(&w, nullptr), 0u);  // null out still increments
    EXPECT_EQ(w, 9u);
    EXPECT_EQ(ombr_atomic_dec(&w, &out), 0u);
    EXPECT_EQ(out, 8u);

    uint32_t counter = 0;
    on_threads(4, [&](int) {
        for (int i = 0; i < 5000; ++i) ombr_atomic_inc(&counter, nullptr);
    });
    EXPECT_EQ(counter, 20000u);
}

TEST(Spinlock, NullLocks) {
    EXPECT_EQ(ombr_spinlock_init(nullptr), 0x901F0001u);
    EXPECT_EQ(ombr_spinlock_lock(nullptr), 0x901F0001u);
    EXPECT_EQ(ombr_spinlock_unlock(nullptr), 0x901F0001u);
    EXPECT_EQ(ombr_spinlock_delete(nullptr), 0u);
}

TEST(CriticalSection, ReentrantOwnershipAndDelete) {
    int64_t blocks = zelto_manager_memory_live_blocks();
    EXPECT_EQ(ombr_thread_critsec_create(nullptr), 0x90020001u);
    EXPECT_EQ(ombr_thread_critsec_enter(nullptr), 0x90020001u);
    EXPECT_EQ(ombr_thread_critsec_leave(nullptr), 0x90020001u);
    EXPECT_EQ(ombr_thread_critsec_delete(nullptr), 0u);

    ombr_critsec_t cs = nullptr;
    ASSERT_EQ(ombr_thread_critsec_create(&cs), 0u);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(ombr_thread_critsec_enter(cs), 0u);
    ASSERT_EQ(ombr_thread_critsec_leave(cs), 0u);
    ASSERT_EQ(ombr_thread_critsec_leave(cs), 0u);

    std::atomic<int> entered{0}, entering{0};
    std::atomic<uint32_t> foreign_leave{1};
    std::thread other([&] {
        foreign_leave = ombr_thread_critsec_leave(cs);  // not the owner: no effect
        entering = 1;
        ombr_thread_critsec_enter(cs);
        entered = 1;
        ombr_thread_critsec_leave(cs);
    });
    // Deleting is the only probe for a waiter, and without one it succeeds
    // for the owner: probe only once the other thread has had ample time to
    // block in enter.
    while (!entering) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    while (true) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        if (ombr_thread_critsec_delete(cs) == 0x90020006u) break;  // a waiter: busy
    }
    EXPECT_EQ(entered.load(), 0);  // still held once by this thread
    EXPECT_EQ(foreign_leave.load(), 0u);
    ASSERT_EQ(ombr_thread_critsec_leave(cs), 0u);  // third leave releases it
    other.join();
    EXPECT_EQ(entered.load(), 1);

    // An owner may delete a section it holds.
    ASSERT_EQ(ombr_thread_critsec_enter(cs), 0u);
    EXPECT_EQ(ombr_thread_critsec_delete(cs), 0u);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
}

TEST(CriticalSection, CreateWithoutMemory) {
    ombr_critsec_t cs = nullptr;
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(ombr_thread_critsec_create(&cs), 0x90020002u);
    EXPECT_EQ(cs, nullptr);
    ombr_rwlock_t rw = nullptr;
    zelto_manager_memory_fail_nth(1);
    EXPECT_EQ(ombr_thread_rwlock_create(&rw), 0x90020002u);
    EXPECT_EQ(rw, nullptr);
}

TEST(ReadWriteLock, WritersFirstAndInvalidUnlock) {
    ombr_rwlock_t rw = nullptr;
    ASSERT_EQ(ombr_thread_rwlock_create(&rw), 0u);
    EXPECT_EQ(ombr_thread_rwlock_unlock(rw), 0x90020001u);  // nobody holds it
    EXPECT_EQ(ombr_thread_rwlock_unlock(nullptr), 0x90020001u);

    ASSERT_EQ(ombr_thread_rwlock_readlock(rw), 0u);
    std::atomic<int> order{0}, writer_at{0}, reader_at{0};
    std::thread writer([&] {
        ombr_thread_rwlock_writelock(rw);
        writer_at = ++order;
        ombr_thread_rwlock_unlock(rw);
    });
    // The writer then waits (a generous pause: on a loaded machine a new
    // thread can take tens of milliseconds to run).
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    std::thread reader([&] {
        ombr_thread_rwlock_readlock(rw);  // blocks behind the waiting writer
        reader_at = ++order;
        ombr_thread_rwlock_unlock(rw);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_EQ(order.load(), 0);
    ASSERT_EQ(ombr_thread_rwlock_unlock(rw), 0u);
    writer.join();
    reader.join();
    EXPECT_EQ(writer_at.load(), 1);
    EXPECT_EQ(reader_at.load(), 2);
    EXPECT_EQ(ombr_thread_rwlock_delete(rw), 0u);
    EXPECT_EQ(ombr_thread_rwlock_delete(nullptr), 0u);
}

}  // namespace
