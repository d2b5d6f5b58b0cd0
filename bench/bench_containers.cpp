// Hash table against std::unordered_map<std::string, std::string> and
// absl::flat_hash_map (add, find by key, read by position / iteration) with
// short keys, and ombr_utils_qsort against std::sort. Prints the ratios.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/bench_ratio.h"
#include "ombr/ombr_datatypes.h"

namespace {

// Short keys such as "k3f9a1" and short values, shuffled.
const std::vector<std::string> &keys(size_t n) {
    static std::unordered_map<size_t, std::vector<std::string>> cache;
    auto &k = cache[n];
    if (k.empty()) {
        std::mt19937 rng(42);
        k.reserve(n);
        for (size_t i = 0; i < n; ++i) {
            char buf[16];
            std::snprintf(buf, sizeof buf, "k%zx", i * 2654435761u % 0xFFFFFFFu);
            k.emplace_back(buf);
        }
        std::shuffle(k.begin(), k.end(), rng);
    }
    return k;
}
// The same keys in another order, so that lookups do not follow the order
// in which entries were allocated.
const std::vector<std::string> &lookup_order(size_t n) {
    static std::unordered_map<size_t, std::vector<std::string>> cache;
    auto &k = cache[n];
    if (k.empty()) {
        k = keys(n);
        std::mt19937 rng(4242);
        std::shuffle(k.begin(), k.end(), rng);
    }
    return k;
}
constexpr const char kValue[] = "value";

ombr_hashtable_t build_table(const std::vector<std::string> &k) {
    ombr_hashtable_t t = nullptr;
    ombr_hashtable_create(&t, 0, nullptr);
    for (auto &key : k) ombr_hashtable_value_add(t, key.c_str(), kValue, sizeof kValue, 1);
    return t;
}

void BM_Hashtable_Add(benchmark::State &state) {
    const auto &k = keys(size_t(state.range(0)));
    for (auto _ : state) {
        ombr_hashtable_t t = build_table(k);
        benchmark::DoNotOptimize(t);
        state.PauseTiming();
        ombr_hashtable_delete(t);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

void BM_StdMap_Add(benchmark::State &state) {
    const auto &k = keys(size_t(state.range(0)));
    for (auto _ : state) {
        auto *m = new std::unordered_map<std::string, std::string>;
        for (auto &key : k) (*m)[key] = kValue;
        benchmark::DoNotOptimize(m);
        state.PauseTiming();
        delete m;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

// One pass of hits over all keys, out of line for each map so that a
// callgrind run can count instructions per hit (bench/count_hits.sh).
[[gnu::noinline]] void hit_all_ombr(ombr_hashtable_t t, const std::vector<std::string> &probe) {
    for (auto &key : probe) {
        void *v = nullptr;
        ombr_hashtable_value_find_ex(t, key.c_str(), 0, &v, nullptr);
        benchmark::DoNotOptimize(v);
    }
}

template <typename Map>
[[gnu::noinline]] void hit_all_map(const Map &m, const std::vector<std::string> &probe) {
    for (auto &key : probe) {
        auto it = m.find(key);
        benchmark::DoNotOptimize(it);
    }
}

void BM_Hashtable_Find(benchmark::State &state) {
    const auto &k = keys(size_t(state.range(0)));
    ombr_hashtable_t t = build_table(k);
    const auto &probe = lookup_order(k.size());
    for (auto _ : state) hit_all_ombr(t, probe);
    ombr_hashtable_delete(t);
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

void BM_StdMap_Find(benchmark::State &state) {
    const auto &k = keys(size_t(state.range(0)));
    std::unordered_map<std::string, std::string> m;
    for (auto &key : k) m[key] = kValue;
    const auto &probe = lookup_order(k.size());
    for (auto _ : state) hit_all_map(m, probe);
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

void BM_AbslMap_Find(benchmark::State &state) {
    const auto &k = keys(size_t(state.range(0)));
    absl::flat_hash_map<std::string, std::string> m;
    for (auto &key : k) m[key] = kValue;
    const auto &probe = lookup_order(k.size());
    for (auto _ : state) hit_all_map(m, probe);
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

// Sequential read by position goes through the cursor: one step a read.
void BM_Hashtable_GetByPosition(benchmark::State &state) {
    const auto &k = keys(size_t(state.range(0)));
    ombr_hashtable_t t = build_table(k);
    const uint32_t n = uint32_t(k.size());
    for (auto _ : state) {
        for (uint32_t i = 0; i < n; ++i) {
            const char *key = nullptr;
            void *v = nullptr;
            ombr_hashtable_value_get(t, i, &key, &v, nullptr);
            benchmark::DoNotOptimize(v);
        }
    }
    ombr_hashtable_delete(t);
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

// The unordered map has no positions; its iteration is the nearest walk.
void BM_StdMap_Iterate(benchmark::State &state) {
    const auto &k = keys(size_t(state.range(0)));
    std::unordered_map<std::string, std::string> m;
    for (auto &key : k) m[key] = kValue;
    for (auto _ : state) {
        for (auto &entry : m) benchmark::DoNotOptimize(entry.second.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

std::vector<uint32_t> random_u32(size_t n) {
    std::mt19937 rng(7);
    std::vector<uint32_t> v(n);
    for (auto &x : v) x = uint32_t(rng());
    return v;
}

int32_t compare_u32(const void *a, const void *b, void *) {
    const uint32_t x = *static_cast<const uint32_t *>(a), y = *static_cast<const uint32_t *>(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}

void BM_Qsort(benchmark::State &state) {
    const auto source = random_u32(size_t(state.range(0)));
    std::vector<uint32_t> data;
    for (auto _ : state) {
        state.PauseTiming();
        data = source;
        state.ResumeTiming();
        ombr_utils_qsort(data.data(), uint32_t(data.size()), 4, compare_u32, nullptr);
        benchmark::DoNotOptimize(data.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

// std::sort with the same out-of-line comparison, and with an inlined one.
void BM_StdSort_Callback(benchmark::State &state) {
    const auto source = random_u32(size_t(state.range(0)));
    std::vector<uint32_t> data;
    int32_t (*volatile cmp)(const void *, const void *, void *) = compare_u32;
    for (auto _ : state) {
        state.PauseTiming();
        data = source;
        state.ResumeTiming();
        std::sort(data.begin(), data.end(), [cmp](const uint32_t &a, const uint32_t &b) { return cmp(&a, &b, nullptr) < 0; });
        benchmark::DoNotOptimize(data.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

void BM_StdSort(benchmark::State &state) {
    const auto source = random_u32(size_t(state.range(0)));
    std::vector<uint32_t> data;
    for (auto _ : state) {
        state.PauseTiming();
        data = source;
        state.ResumeTiming();
        std::sort(data.begin(), data.end());
        benchmark::DoNotOptimize(data.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

}  // namespace

BENCHMARK(BM_Hashtable_Add)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdMap_Add)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Hashtable_Find)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdMap_Find)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbslMap_Find)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Hashtable_GetByPosition)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdMap_Iterate)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Qsort)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdSort_Callback)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdSort)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv) {
    if (ombr_datatypes_initialize() != 0) return 1;
    const int status = bench::run_with_ratios(
        argc, argv,
        {{"BM_Hashtable_Find/100000", "BM_StdMap_Find/100000", "hits, 100,000 keys, against std::unordered_map"},
         {"BM_Hashtable_Find/1000000", "BM_StdMap_Find/1000000", "hits, 1,000,000 keys, against std::unordered_map"},
         {"BM_Hashtable_Find/100000", "BM_AbslMap_Find/100000", "hits, 100,000 keys, against absl::flat_hash_map"},
         {"BM_Hashtable_Find/1000000", "BM_AbslMap_Find/1000000", "hits, 1,000,000 keys, against absl::flat_hash_map"},
         {"BM_Hashtable_Add/100000", "BM_StdMap_Add/100000", "adds, 100,000 keys, against std::unordered_map"},
         {"BM_Hashtable_GetByPosition/100000", "BM_StdMap_Iterate/100000",
          "reads by position against iteration, 100,000 keys"}});
    ombr_datatypes_shutdown();
    return status;
}
