// The format engine beside the system library's snprintf.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "ombr/ombr_string_printf.h"

namespace {

void BM_OmbrIntStringHex(benchmark::State &state) {
    char buffer[128];
    int i = 0;
    for (auto _ : state) {
        uint32_t n = ombr_string_snprintf(buffer, sizeof buffer, "%d %s %x", i, "track title", 0xBEEF + i);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        ++i;
    }
}
BENCHMARK(BM_OmbrIntStringHex);

void BM_SystemIntStringHex(benchmark::State &state) {
    char buffer[128];
    int i = 0;
    for (auto _ : state) {
        int n = std::snprintf(buffer, sizeof buffer, "%d %s %x", i, "track title", 0xBEEF + i);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        ++i;
    }
}
BENCHMARK(BM_SystemIntStringHex);

void BM_OmbrFixed3(benchmark::State &state) {
    char buffer[128];
    double v = 1234.5678;
    for (auto _ : state) {
        uint32_t n = ombr_string_snprintf(buffer, sizeof buffer, "%.3f", v);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        v += 0.001;
    }
}
BENCHMARK(BM_OmbrFixed3);

void BM_SystemFixed3(benchmark::State &state) {
    char buffer[128];
    double v = 1234.5678;
    for (auto _ : state) {
        int n = std::snprintf(buffer, sizeof buffer, "%.3f", v);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buffer);
        v += 0.001;
    }
}
BENCHMARK(BM_SystemFixed3);

}  // namespace

BENCHMARK_MAIN();
