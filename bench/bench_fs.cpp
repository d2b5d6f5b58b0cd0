// Files of the base layer beside plain POSIX calls, in the same run:
//  - sequential 1 MiB writes and reads of a 256 MiB file;
//  - random 4 KiB positioned reads of that file;
//  - random 4 KiB positioned reads over 1,000 files: POSIX with 1,000
//    descriptors open, the library with no limit, and the library with a
//    limit of 16 descriptors, where nearly every read takes a descriptor
//    from an idle file (close, open, fstat): the cost of eviction.
// The files live in a temporary directory (under $TMPDIR or /tmp), which is
// removed at the end. Ratios of CPU times (median of the repetitions) are
// printed at the end: on a shared machine they compare better than wall
// times. The file data sits in the page cache, so the system calls and
// the copies are measured, not the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ombr/ombr_fs.h"

namespace {

constexpr uint64_t kBigSize = 256ull << 20;
constexpr uint32_t kChunk = 1u << 20;
constexpr uint32_t kPage = 4096;
constexpr int kManyFiles = 1000;
constexpr uint32_t kManySize = 64u << 10;  // each of the 1,000 files
constexpr const char *kManyLimit = "16";

std::string g_dir;

std::string big_path() { return g_dir + "/big"; }
std::string many_path(int i) { return g_dir + "/m" + std::to_string(i); }

void fail(const char *what) {
    std::fprintf(stderr, "bench_fs: %s failed\n", what);
    std::exit(1);
}

// The 256 MiB file and the 1,000 small files, written once with POSIX.
void make_files() {
    std::vector<char> chunk(kChunk);
    for (uint32_t i = 0; i < kChunk; ++i) chunk[i] = static_cast<char>(i * 31 + 7);
    int fd = open(big_path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) fail("creating the big file");
    for (uint64_t at = 0; at < kBigSize; at += kChunk)
        if (write(fd, chunk.data(), kChunk) != static_cast<ssize_t>(kChunk)) fail("writing the big file");
    close(fd);
    for (int i = 0; i < kManyFiles; ++i) {
        fd = open(many_path(i).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0 || write(fd, chunk.data(), kManySize) != static_cast<ssize_t>(kManySize)) fail("writing a file");
        close(fd);
    }
}

ombr_file_t ombr_open(const std::string &path, uint32_t flags) {
    ombr_file_t f = nullptr;
    if (ombr_fs_file_open(path.c_str(), flags, OMBR_FS_ATTR_READ | OMBR_FS_ATTR_WRITE, &f) != 0) fail("ombr open");
    return f;
}

// ---- Sequential 1 MiB steps over 256 MiB ------------------------------------------

void BM_SequentialWrite_Posix(benchmark::State &state) {
    std::vector<char> chunk(kChunk, 'w');
    int fd = open(big_path().c_str(), O_WRONLY);
    for (auto _ : state) {
        lseek(fd, 0, SEEK_SET);
        for (uint64_t at = 0; at < kBigSize; at += kChunk)
            if (write(fd, chunk.data(), kChunk) != static_cast<ssize_t>(kChunk)) fail("write");
    }
    close(fd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigSize));
}

void BM_SequentialWrite_Ombr(benchmark::State &state) {
    std::vector<char> chunk(kChunk, 'w');
    ombr_file_t f = ombr_open(big_path(), OMBR_FS_FLAG_WRITE);
    for (auto _ : state) {
        ombr_fs_file_seek(f, 0, OMBR_FS_SEEK_START);
        for (uint64_t at = 0; at < kBigSize; at += kChunk) {
            uint32_t written = 0;
            if (ombr_fs_file_write(f, chunk.data(), kChunk, &written) != 0 || written != kChunk) fail("ombr write");
        }
    }
    ombr_fs_file_close(f);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigSize));
}

void BM_SequentialRead_Posix(benchmark::State &state) {
    std::vector<char> chunk(kChunk);
    int fd = open(big_path().c_str(), O_RDONLY);
    for (auto _ : state) {
        lseek(fd, 0, SEEK_SET);
        for (uint64_t at = 0; at < kBigSize; at += kChunk)
            if (read(fd, chunk.data(), kChunk) != static_cast<ssize_t>(kChunk)) fail("read");
        benchmark::DoNotOptimize(chunk.data());
    }
    close(fd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigSize));
}

void BM_SequentialRead_Ombr(benchmark::State &state) {
    std::vector<char> chunk(kChunk);
    ombr_file_t f = ombr_open(big_path(), OMBR_FS_FLAG_READ);
    for (auto _ : state) {
        ombr_fs_file_seek(f, 0, OMBR_FS_SEEK_START);
        for (uint64_t at = 0; at < kBigSize; at += kChunk) {
            uint32_t got = 0;
            if (ombr_fs_file_read(f, chunk.data(), kChunk, &got) != 0 || got != kChunk) fail("ombr read");
        }
        benchmark::DoNotOptimize(chunk.data());
    }
    ombr_fs_file_close(f);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigSize));
}

// ---- Random 4 KiB reads of the big file --------------------------------------------------

void BM_RandomRead4K_Posix(benchmark::State &state) {
    char page[kPage];
    std::mt19937_64 rng(1);
    int fd = open(big_path().c_str(), O_RDONLY);
    for (auto _ : state) {
        const off_t at = static_cast<off_t>(rng() % (kBigSize / kPage) * kPage);
        if (pread(fd, page, kPage, at) != kPage) fail("pread");
        benchmark::DoNotOptimize(page);
    }
    close(fd);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_RandomRead4K_Ombr(benchmark::State &state) {
    char page[kPage];
    std::mt19937_64 rng(1);
    ombr_file_t f = ombr_open(big_path(), OMBR_FS_FLAG_READ);
    for (auto _ : state) {
        const uint64_t at = rng() % (kBigSize / kPage) * kPage;
        uint32_t got = 0;
        if (ombr_fs_file_read_at(f, at, page, kPage, &got) != 0 || got != kPage) fail("ombr read_at");
        benchmark::DoNotOptimize(page);
    }
    ombr_fs_file_close(f);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// ---- Random 4 KiB reads over 1,000 files ------------------------------------------------------

void BM_ManyFilesRead4K_Posix(benchmark::State &state) {
    char page[kPage];
    std::mt19937_64 rng(2);
    std::vector<int> fds;
    for (int i = 0; i < kManyFiles; ++i) fds.push_back(open(many_path(i).c_str(), O_RDONLY));
    for (auto _ : state) {
        const int i = static_cast<int>(rng() % kManyFiles);
        const off_t at = static_cast<off_t>(rng() % (kManySize / kPage) * kPage);
        if (pread(fds[i], page, kPage, at) != kPage) fail("pread many");
        benchmark::DoNotOptimize(page);
    }
    for (int fd : fds) close(fd);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// Argument: the descriptor limit as text index (0: none, 1: 16).
void BM_ManyFilesRead4K_Ombr(benchmark::State &state) {
    char page[kPage];
    std::mt19937_64 rng(2);
    ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, state.range(0) == 0 ? "0" : kManyLimit);
    std::vector<ombr_file_t> files;
    for (int i = 0; i < kManyFiles; ++i) files.push_back(ombr_open(many_path(i), OMBR_FS_FLAG_READ));
    for (auto _ : state) {
        const int i = static_cast<int>(rng() % kManyFiles);
        const uint64_t at = rng() % (kManySize / kPage) * kPage;
        uint32_t got = 0;
        if (ombr_fs_file_read_at(files[i], at, page, kPage, &got) != 0 || got != kPage) fail("ombr read_at many");
        benchmark::DoNotOptimize(page);
    }
    for (ombr_file_t f : files) ombr_fs_file_close(f);
    ombr_fs_option_set(OMBR_FS_OPTION_MAX_HANDLES, "0");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

constexpr int kRepetitions = 5;
BENCHMARK(BM_SequentialWrite_Posix)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);
BENCHMARK(BM_SequentialWrite_Ombr)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);
BENCHMARK(BM_SequentialRead_Posix)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);
BENCHMARK(BM_SequentialRead_Ombr)->Unit(benchmark::kMillisecond)->Repetitions(kRepetitions);
BENCHMARK(BM_RandomRead4K_Posix)->Repetitions(kRepetitions);
BENCHMARK(BM_RandomRead4K_Ombr)->Repetitions(kRepetitions);
BENCHMARK(BM_ManyFilesRead4K_Posix)->Repetitions(kRepetitions);
BENCHMARK(BM_ManyFilesRead4K_Ombr)->Arg(0)->Arg(1)->Repetitions(kRepetitions);

// Keeps the median CPU time of every benchmark by name.
class RatioReporter : public benchmark::ConsoleReporter {
   public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (run.aggregate_name == "median") times_[run.run_name.str()] = run.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }
    double time(const std::string &name) const {
        auto it = times_.find(name + "/repeats:" + std::to_string(kRepetitions));
        return it == times_.end() ? 0 : it->second;
    }

   private:
    std::map<std::string, double> times_;
};

void print_ratio(const RatioReporter &r, const char *what, const std::string &ombr, const std::string &posix,
                 const char *budget) {
    const double a = r.time(ombr), b = r.time(posix);
    if (a > 0 && b > 0) std::printf("%-44s library / POSIX, CPU time = %.3f %s\n", what, a / b, budget);
}

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    // Closing a file that lost its descriptor closes descriptor 0.
    int null_fd = open("/dev/null", O_RDONLY);
    dup2(null_fd, 0);
    close(null_fd);
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/bench-fs-XXXXXX";
    if (!mkdtemp(pattern.data())) fail("mkdtemp");
    g_dir = pattern;
    if (ombr_fs_initialize() != 0) fail("ombr_fs_initialize");
    make_files();

    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    print_ratio(reporter, "sequential 1 MiB writes of 256 MiB:", "BM_SequentialWrite_Ombr", "BM_SequentialWrite_Posix",
                "(budget 1.10)");
    print_ratio(reporter, "sequential 1 MiB reads of 256 MiB:", "BM_SequentialRead_Ombr", "BM_SequentialRead_Posix",
                "(budget 1.10)");
    print_ratio(reporter, "random 4 KiB reads of 256 MiB:", "BM_RandomRead4K_Ombr", "BM_RandomRead4K_Posix",
                "(budget 1.10)");
    print_ratio(reporter, "random 4 KiB reads, 1,000 files, no limit:", "BM_ManyFilesRead4K_Ombr/0",
                "BM_ManyFilesRead4K_Posix", "");
    print_ratio(reporter, "random 4 KiB reads, 1,000 files, 16 fds:", "BM_ManyFilesRead4K_Ombr/1",
                "BM_ManyFilesRead4K_Posix", "(the cost of eviction)");
    const double evicting = reporter.time("BM_ManyFilesRead4K_Ombr/1"), posix = reporter.time("BM_ManyFilesRead4K_Posix");
    if (evicting > 0 && posix > 0)
        std::printf("eviction adds %.2f us of CPU time to a read (close, open and fstat)\n", (evicting - posix) / 1000.0);

    ombr_fs_shutdown();
    std::error_code ec;
    std::filesystem::remove_all(g_dir, ec);
    benchmark::Shutdown();
    return 0;
}
