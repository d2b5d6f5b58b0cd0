// Logical files outnumbering descriptors, on many threads at once.
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "platform/ombr_fs_internal.h"
#include "platform_test.h"

namespace {

using platform_test::FsTest;
using platform_test::read_file;

// Samples the descriptors held under the test directory until stopped and
// keeps the largest count seen. It opens no descriptor while it runs:
// closing an evicted file closes descriptor 0, whoever holds it. Logical
// files hold descriptors from 3 up; one that the system hands out at 0 to
// 2 is moved up at once, so for an instant the same open file has two
// numbers, and only the numbers from 3 up are counted.
class DescriptorWatch {
   public:
    explicit DescriptorWatch(std::string dir) : counter_(std::move(dir), 3), thread_([this] { run(); }) {}
    ~DescriptorWatch() { stop(); }
    int stop() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        return most_;
    }

   private:
    void run() {
        while (!stop_) {
            most_ = std::max(most_, counter_.count());
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    platform_test::FdCounter counter_;
    std::atomic<bool> stop_{false};
    int most_ = 0;
    std::thread thread_;
};

// 200 files over 8 descriptors shared by 8 threads. Each thread owns 25
// files (a file's position belongs to one user at a time) and writes and
// reads them at random positions; all threads compete for the same 8
// descriptors. Every byte is checked against each thread's model.
TEST_F(FsTest, TwoHundredFilesOverEightDescriptorsOnEightThreads) {
    constexpr int kThreads = 8, kFilesEach = 25, kLimit = 8, kSteps = 600, kSize = 256;
    set_limit(kLimit);
    std::vector<std::vector<ombr_file_t>> files(kThreads);
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kFilesEach; ++i) files[t].push_back(open_rw("t" + std::to_string(t) + "f" + std::to_string(i)));
    std::vector<std::vector<std::string>> models(kThreads, std::vector<std::string>(kFilesEach));
    std::atomic<int> failures{0};
    DescriptorWatch watch(dir_);
    on_threads(kThreads, [&](int t) {
        std::mt19937 rng(100 + t);
        for (int step = 0; step < kSteps && failures == 0; ++step) {
            const int i = static_cast<int>(rng() % kFilesEach);
            ombr_file_t f = files[t][i];
            std::string &m = models[t][i];
            const uint64_t at = rng() % (m.size() + 1);
            uint32_t n = 0;
            if (rng() % 2 == 0) {
                std::string data(1 + rng() % 32, static_cast<char>('a' + rng() % 26));
                if (at + data.size() > kSize) continue;
                bool positioned = rng() % 2 == 0;
                uint32_t st = positioned ? ombr_fs_file_write_at(f, at, data.data(), uint32_t(data.size()), &n)
                                         : (ombr_fs_file_seek(f, at, OMBR_FS_SEEK_START) |
                                            platform_test::write_all(f, data));
                if (st != 0) failures++;
                m.resize(std::max<size_t>(m.size(), at + data.size()));
                m.replace(at, data.size(), data);
            } else {
                char buf[48];
                uint32_t st = ombr_fs_file_read_at(f, at, buf, sizeof buf, &n);
                if (st != 0 || std::string(buf, n) != m.substr(at, sizeof buf)) failures++;
            }
        }
    });
    const int most = watch.stop();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_LE(most, kLimit);
    EXPECT_GT(most, 0);
    auto counts = ombr::fsmgr::counts();
    EXPECT_EQ(counts.handles, static_cast<uint32_t>(kLimit));
    EXPECT_EQ(counts.live + counts.open, static_cast<uint32_t>(kThreads * kFilesEach));
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kFilesEach; ++i) {
            ASSERT_EQ(ombr_fs_file_close(files[t][i]), 0u);
            EXPECT_EQ(read_file(path("t" + std::to_string(t) + "f" + std::to_string(i))), models[t][i]);
        }
    EXPECT_EQ(ombr::fsmgr::counts().handles, 0u);
}

// Threads that open, use and close their own files while the limit holds:
// opens wait for a slot or take one from an idle file.
TEST_F(FsTest, OpenAndCloseOnManyThreadsUnderALimit) {
    constexpr int kThreads = 8, kRounds = 60, kLimit = 4;
    set_limit(kLimit);
    std::atomic<int> failures{0};
    DescriptorWatch watch(dir_);
    on_threads(kThreads, [&](int t) {
        for (int r = 0; r < kRounds; ++r) {
            const std::string name = path("o" + std::to_string(t) + "_" + std::to_string(r % 3));
            const std::string text = std::to_string(t * 1000 + r);
            if (ombr_fs_file_write_to_file(name.c_str(), text.data(), uint32_t(text.size()), 0) != 0) failures++;
            void *block = nullptr;
            uint32_t size = 0;
            if (ombr_fs_file_read_to_buffer(name.c_str(), &block, &size, 0) != 0) {
                failures++;
                continue;
            }
            if (std::string(static_cast<char *>(block), size) != text) failures++;
            ombr_memory_free(block);
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_LE(watch.stop(), kLimit);
    EXPECT_EQ(ombr::fsmgr::counts().handles, 0u);
}

}  // namespace
