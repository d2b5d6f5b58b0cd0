// The format engine beside the system library's snprintf and fmt, on a mix
// of eight formats such as the library and its hosts write (numbers, times,
// identifiers, names, durations). One iteration formats all eight into a
// buffer. Before timing, the program checks that the engine's output equals
// the system library's, byte for byte, for every value used.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_ratio.h"
#include "ombr/ombr_string_printf.h"

namespace {

constexpr size_t kValues = 256;

struct Values {
    int i[kValues];
    unsigned u[kValues];
    unsigned hex[kValues];
    long long ll[kValues];
    double fixed[kValues];
    double generic[kValues];
    std::string name[kValues];
};

const Values &values() {
    static const Values v = [] {
        Values out;
        std::mt19937 rng(7);
        const char *const words[] = {"Mira Solene", "Lantern", "Harbour Lights", "Paper Comet", "Glass", "Nocturne",
                                     "Été", "Straße", "東京", "Op. 27 No. 2"};
        for (size_t k = 0; k < kValues; ++k) {
            out.i[k] = static_cast<int>(rng() % 200000) - 100000;
            out.u[k] = rng() % 100;
            out.hex[k] = static_cast<unsigned>(rng());
            out.ll[k] = static_cast<long long>(rng()) * 1000003LL - 99999999LL;
            out.fixed[k] = static_cast<double>(rng() % 10000000) / 1000.0 + 0.0004;
            out.generic[k] = static_cast<double>(rng() % 100000) / static_cast<double>(1 + rng() % 1000);
            out.name[k] = words[rng() % (sizeof words / sizeof words[0])];
        }
        return out;
    }();
    return v;
}

// The eight formats, written once for each engine.
#define MIX_FORMATS(CALL, V, k)                                                         \
    CALL("%d", V.i[k]);                                                                 \
    CALL("Track %02u of %u", V.u[k], V.u[((k) + 1) & (kValues - 1)]);                     \
    CALL("%s - %s", V.name[k].c_str(), V.name[((k) + 3) & (kValues - 1)].c_str());        \
    CALL("0x%08X", V.hex[k]);                                                           \
    CALL("%.3f", V.fixed[k]);                                                           \
    CALL("%g", V.generic[k]);                                                           \
    CALL("%-12s|%5d|", V.name[k].c_str(), V.i[k] % 1000);                               \
    CALL("%lld", V.ll[k])

#define FMT_FORMATS(CALL, V, k)                                                         \
    CALL("{}", V.i[k]);                                                                 \
    CALL("Track {:02} of {}", V.u[k], V.u[((k) + 1) & (kValues - 1)]);                    \
    CALL("{} - {}", V.name[k], V.name[((k) + 3) & (kValues - 1)]);                        \
    CALL("0x{:08X}", V.hex[k]);                                                         \
    CALL("{:.3f}", V.fixed[k]);                                                         \
    CALL("{:g}", V.generic[k]);                                                         \
    CALL("{:<12}|{:>5}|", V.name[k], V.i[k] % 1000);                                    \
    CALL("{}", V.ll[k])

// Checks that the engine and the system library agree on every value.
bool outputs_agree() {
    const Values &v = values();
    char ours[256], system[256];
    bool agree = true;
    for (size_t k = 0; k < kValues; ++k) {
#define CHECK(...)                                                                                  \
    do {                                                                                            \
        ombr_string_snprintf(ours, sizeof ours, __VA_ARGS__);                                       \
        std::snprintf(system, sizeof system, __VA_ARGS__);                                          \
        if (std::strcmp(ours, system) != 0) {                                                       \
            std::fprintf(stderr, "outputs differ: %s: \"%s\" against \"%s\"\n", #__VA_ARGS__, ours, \
                         system);                                                                   \
            agree = false;                                                                          \
        }                                                                                           \
    } while (0)
        MIX_FORMATS(CHECK, v, k);
#undef CHECK
    }
    return agree;
}

void BM_FormatMix_Ombr(benchmark::State &state) {
    const Values &v = values();
    char buffer[128];
    size_t k = 0;
    uint64_t bytes = 0;
    for (auto _ : state) {
#define CALL(...) bytes += ombr_string_snprintf(buffer, sizeof buffer, __VA_ARGS__), benchmark::DoNotOptimize(buffer)
        MIX_FORMATS(CALL, v, k);
#undef CALL
        k = (k + 1) & (kValues - 1);
    }
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 8);
}
BENCHMARK(BM_FormatMix_Ombr);

void BM_FormatMix_Glibc(benchmark::State &state) {
    const Values &v = values();
    char buffer[128];
    size_t k = 0;
    uint64_t bytes = 0;
    for (auto _ : state) {
#define CALL(...) bytes += std::snprintf(buffer, sizeof buffer, __VA_ARGS__), benchmark::DoNotOptimize(buffer)
        MIX_FORMATS(CALL, v, k);
#undef CALL
        k = (k + 1) & (kValues - 1);
    }
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 8);
}
BENCHMARK(BM_FormatMix_Glibc);

void BM_FormatMix_Fmt(benchmark::State &state) {
    const Values &v = values();
    char buffer[128];
    size_t k = 0;
    uint64_t bytes = 0;
    for (auto _ : state) {
#define CALL(...)                                                                      \
    do {                                                                               \
        auto r = fmt::format_to_n(buffer, sizeof buffer - 1, __VA_ARGS__);             \
        *r.out = 0;                                                                    \
        bytes += r.size;                                                               \
        benchmark::DoNotOptimize(buffer);                                              \
    } while (0)
        FMT_FORMATS(CALL, v, k);
#undef CALL
        k = (k + 1) & (kValues - 1);
    }
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 8);
}
BENCHMARK(BM_FormatMix_Fmt);

// Single formats, to see where the mix spends its time: 0 integers and text,
// 1 "%.3f", 2 "%g".
void BM_Single_Ombr(benchmark::State &state) {
    const Values &v = values();
    char buffer[128];
    size_t k = 0;
    for (auto _ : state) {
        uint32_t n = 0;
        switch (state.range(0)) {
            case 0: n = ombr_string_snprintf(buffer, sizeof buffer, "%d %s %x", v.i[k], v.name[k].c_str(), v.hex[k]); break;
            case 1: n = ombr_string_snprintf(buffer, sizeof buffer, "%.3f", v.fixed[k]); break;
            default: n = ombr_string_snprintf(buffer, sizeof buffer, "%g", v.generic[k]); break;
        }
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        k = (k + 1) & (kValues - 1);
    }
}
BENCHMARK(BM_Single_Ombr)->Arg(0)->Arg(1)->Arg(2);

void BM_Single_Glibc(benchmark::State &state) {
    const Values &v = values();
    char buffer[128];
    size_t k = 0;
    for (auto _ : state) {
        int n = 0;
        switch (state.range(0)) {
            case 0: n = std::snprintf(buffer, sizeof buffer, "%d %s %x", v.i[k], v.name[k].c_str(), v.hex[k]); break;
            case 1: n = std::snprintf(buffer, sizeof buffer, "%.3f", v.fixed[k]); break;
            default: n = std::snprintf(buffer, sizeof buffer, "%g", v.generic[k]); break;
        }
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        k = (k + 1) & (kValues - 1);
    }
}
BENCHMARK(BM_Single_Glibc)->Arg(0)->Arg(1)->Arg(2);

}  // namespace

int main(int argc, char **argv) {
    // CANTRIX_BENCH_NO_CHECK=1 skips the check, so that instruction counts
    // under callgrind cover the timed calls only.
    if (!std::getenv("CANTRIX_BENCH_NO_CHECK") && !outputs_agree()) return 1;
    return bench::run_with_ratios(argc, argv,
                                  {{"BM_FormatMix_Ombr", "BM_FormatMix_Glibc", "mix of 8 formats, against glibc snprintf"},
                                   {"BM_FormatMix_Ombr", "BM_FormatMix_Fmt", "mix of 8 formats, against fmt::format_to_n"},
                                   {"BM_Single_Ombr/0", "BM_Single_Glibc/0", "\"%d %s %x\", against glibc"},
                                   {"BM_Single_Ombr/1", "BM_Single_Glibc/1", "\"%.3f\", against glibc"},
                                   {"BM_Single_Ombr/2", "BM_Single_Glibc/2", "\"%g\", against glibc"}});
}
