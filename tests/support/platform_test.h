// Helpers of the thread and file tests: a fixture with the file package up
// and a private temporary directory, descriptor counts from /proc/self/fd,
// and small POSIX readers and writers to check what the library did.
#ifndef PLATFORM_TEST_H
#define PLATFORM_TEST_H

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "cantrix_test.h"
#include "ombr/ombr_fs.h"
#include "ombr/ombr_thread.h"

namespace platform_test {

// Counts descriptors of this process from `lowest` up whose target lies
// under a prefix, through one listing of /proc/self/fd kept open, so that
// counting makes no new descriptor.
class FdCounter {
   public:
    explicit FdCounter(std::string prefix, int lowest = 0)
        : prefix_(std::move(prefix)), lowest_(lowest), dir_(opendir("/proc/self/fd")) {}
    ~FdCounter() {
        if (dir_) closedir(dir_);
    }
    FdCounter(const FdCounter &) = delete;
    FdCounter &operator=(const FdCounter &) = delete;
    int count() {
        if (!dir_) return -1;
        rewinddir(dir_);
        int count = 0;
        while (const dirent *e = readdir(dir_)) {
            if (e->d_name[0] == '.' || std::atoi(e->d_name) < lowest_) continue;
            char link[4096];
            ssize_t n = readlinkat(dirfd(dir_), e->d_name, link, sizeof link - 1);
            if (n <= 0) continue;
            link[n] = 0;
            if (std::strncmp(link, prefix_.c_str(), prefix_.size()) == 0) ++count;
        }
        return count;
    }

   private:
    std::string prefix_;
    int lowest_;
    DIR *dir_;
};

inline int count_fds_under(const std::string &prefix) { return FdCounter(prefix).count(); }

// All descriptors of this process, the one used for counting not included.
inline int count_all_fds() {
    int count = 0;
    DIR *d = opendir("/proc/self/fd");
    if (!d) return -1;
    while (const dirent *e = readdir(d))
        if (e->d_name[0] != '.') ++count;
    closedir(d);
    return count - 1;
}

inline std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void write_file(const std::string &path, const std::string &data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << data;
}

// Polls `done` for up to five seconds.
template <typename Pred>
bool eventually(Pred done) {
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The file package up for the test's length, a fresh temporary directory,
// no descriptor limit, and descriptor 0 on /dev/null: closing a file that
// lost its descriptor closes descriptor 0, which must not hit anything the
// test process holds.
class FsTest : public LeakCheckedTest {
   protected:
    void SetUp() override {
        LeakCheckedTest::SetUp();
        saved_stdin_ = dup(0);
        int null_fd = open("/dev/null", O_RDONLY);
        dup2(null_fd, 0);
        close(null_fd);
        ASSERT_EQ(ombr_fs_initialize(), 0u);
        char pattern[] = "/tmp/cantrix-fs-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        fds_before_ = count_all_fds();
    }
    void TearDown() override {
        ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, "0");
        EXPECT_EQ(count_fds_under(dir_), 0) << "descriptors left open";
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
        EXPECT_EQ(ombr_fs_shutdown(), 0u);
        if (saved_stdin_ >= 0) {
            dup2(saved_stdin_, 0);
            close(saved_stdin_);
        }
        LeakCheckedTest::TearDown();
    }

    std::string path(const std::string &name) const { return dir_ + "/" + name; }
    int fds_here() const { return count_fds_under(dir_); }
    void set_limit(uint32_t limit) {
        ASSERT_EQ(ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, std::to_string(limit).c_str()), 0u);
    }

    // Opens for read and write, creating.
    ombr_file_t open_rw(const std::string &name, uint32_t extra = 0) {
        ombr_file_t f = nullptr;
        EXPECT_EQ(ombr_fs_file_open(path(name).c_str(),
                                    OMBR_FS_FLAG_READ | OMBR_FS_FLAG_WRITE | OMBR_FS_FLAG_CREATE | extra,
                                    OMBR_FS_ATTR_READ | OMBR_FS_ATTR_WRITE, &f),
                  0u);
        return f;
    }

    std::string dir_;
    int fds_before_ = 0;
    int saved_stdin_ = -1;
};

// Writes all of `data` at the file's position.
inline uint32_t write_all(ombr_file_t f, const std::string &data) {
    uint32_t written = 0;
    uint32_t st = ombr_fs_file_write(f, data.data(), static_cast<uint32_t>(data.size()), &written);
    if (st == 0 && written != data.size()) return 0xFFFFFFFFu;
    return st;
}

// Reads up to `size` bytes at the file's position.
inline std::string read_some(ombr_file_t f, uint32_t size) {
    std::string out(size, '\0');
    uint32_t got = 0;
    if (ombr_fs_file_read(f, out.data(), size, &got) != 0) return "<error>";
    out.resize(got);
    return out;
}

}  // namespace platform_test

#endif
