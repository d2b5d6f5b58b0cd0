// Status mapping into the module's package.
#include <atomic>

#include "cantrix/cantrix_internal.h"
#include "cantrix_test.h"
#include "zelto/zelto_manager.h"

namespace {

TEST(MapError, EveryRowOfTheTable) {
    struct Row {
        uint32_t in, out;
    } rows[] = {
        {0, 0},
        {0x90810361u, 0x90810361u},  // own package: unchanged
        {0x10810003u, 0x10810003u},
        {0x900d0002u, 0x90810002u},  // out of memory in any package
        {0x90030002u, 0x90810002u},
        {0x100d0003u, 0x10810003u},  // not found becomes soft
        {0x90020003u, 0x10810003u},
        {0x10820003u, 0x10810003u},
        {0x90040005u, 0x90810400u},  // services behind the manager
        {0x90140005u, 0x90810400u},
        {0x90070009u, 0x90810404u},
        {0x900e0009u, 0x90810405u},
        {0x90100009u, 0x90810403u},
        {0x90150009u, 0x90810402u},
        {0x900d0320u, 0x90810320u},  // otherwise: error value kept
        {0x100d0361u, 0x90810361u},  // a soft foreign status becomes a failure
        {7u, 0x90810007u},
        {10u, 0x9081000au},
        {0x90070002u, 0x90810002u},  // error value 2 wins over the package rule
        {0x90140003u, 0x10810003u},
    };
    for (const Row &row : rows) EXPECT_EQ(_cantrix_map_error(row.in), row.out) << std::hex << row.in;
}

bool all_zero(const ombr_spinlock_t *lock) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(lock);
    for (size_t i = 0; i < sizeof *lock; ++i)
        if (bytes[i] != 0) return false;
    return true;
}

TEST(ModuleLock, RecordIsZeroAfterTheLastShutdown) {
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
    EXPECT_TRUE(all_zero(cantrix::module_init_lock()));
    EXPECT_EQ(zelto_cantrix_shutdown(), 0x90810007u);
    EXPECT_TRUE(all_zero(cantrix::module_init_lock()));
}

// Initialise and shutdown racing on several threads: every call is counted
// once, the bring-up runs once per up phase, and the module ends down with
// its lock record cleared and every service table given back.
TEST(ModuleLock, ConcurrentInitialiseAndShutdownKeepTheCount) {
    ASSERT_EQ(zelto_cantrix_initchecks(), 0u);
    const int32_t refs_before = zelto_manager_service_refs(nullptr);
    constexpr int kThreads = 4, kRounds = 150;
    std::atomic<int> failures{0};
    on_threads(kThreads, [&](int) {
        for (int i = 0; i < kRounds; ++i) {
            if (zelto_cantrix_initialize(zelto_manager_get_table()) != 0) ++failures;
            if (zelto_cantrix_initchecks() == 0) ++failures;  // this thread's call still counts
            if (zelto_cantrix_shutdown() != 0) ++failures;
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
    EXPECT_EQ(zelto_manager_service_refs(nullptr), refs_before);
    EXPECT_TRUE(all_zero(cantrix::module_init_lock()));
}

}  // namespace

// The system error maps of the thread and file packages.
#include <cerrno>

#include "platform/ombr_fs_internal.h"
#include "platform/ombr_thread_internal.h"

namespace {

TEST(MapError, ThreadAndFileSystemErrors) {
    struct Row {
        int error;
        uint32_t status;
    };
    const Row thread_rows[] = {
        {0, 0},
        {EPERM, 0x90020284u},
        {ESRCH, 0x90020003u},
        {EINTR, 0x90020283u},
        {EAGAIN, 0x90020282u},
        {ENOMEM, 0x90020002u},
        {EFAULT, 0x90020001u},
        {EINVAL, 0x90020001u},
        {EOPNOTSUPP, 0x90020001u},
        {EBUSY, 0x90020006u},
        {EDEADLK, 0x90020281u},
        {ETIMEDOUT, 0x10020084u},  // soft
        {ENOENT, 0x9002003Eu},     // any other
        {-1, 0x9002003Eu},
    };
    for (const Row &r : thread_rows) EXPECT_EQ(ombr::thread_map_error(r.error), r.status) << r.error;
    const Row fs_rows[] = {
        {EPERM, 0x90030040u},
        {EACCES, 0x90030040u},
        {ENOENT, 0x90030041u},
        {ENOTDIR, 0x90030041u},
        {ENXIO, 0x9003000Bu},
        {EBADF, 0x90030045u},
        {EEXIST, 0x90030042u},
        {EISDIR, 0x90030046u},
        {EINVAL, 0x90030001u},
        {89, 0x90030001u},
        {EMFILE, 0x90030044u},
        {ENOSPC, 0x90030043u},
        {ENOTEMPTY, 0x10030050u},  // soft
        {0, 0x9003003Eu},          // any other, 0 included
        {ENAMETOOLONG, 0x9003003Eu},
        {EFBIG, 0x9003003Eu},
        {ENFILE, 0x9003003Eu},
    };
    for (const Row &r : fs_rows) EXPECT_EQ(ombr::fs_map_error(r.error), r.status) << r.error;
}

}  // namespace
