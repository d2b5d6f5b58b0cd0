// Bigram similarity: pairs of titles per second, short ones (stack tables)
// and ones of 200 bytes and more (heap tables), and one query title against
// a catalogue of 1000 titles, unsorted per pair against prepared sorted
// tables.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "ombr/ombr_string.h"
#include "ombr/ombr_string_fuzzy.h"
#include "string/ombr_string_fuzzy_internal.h"

namespace {

const char *const kWords[] = {"Love",     "Night",   "Heart",    "Dream",   "Fire",    "Rain",    "Summer",
                              "Song",     "Blue",    "Dancing",  "Lights",  "Road",    "River",   "Stars",
                              "Harbour",  "Lanterns", "Waiting", "Home",    "Broken",  "Forever", "Children",
                              "Corazón",  "Canción", "Été",      "Mädchen", "Straße",  "Noël",    "Über",
                              "Любовь",   "Ночь",    "Звезда",   "東京",    "夜空",    "さくら",  "傳說"};
const char *const kArticles[] = {"The", "A", "Of", "And", "In", "My", "Your"};
const char *const kSuffixes[] = {" (Live)", " - Remastered", " feat. A$AP Rock", " [Demo]", " Pt. II",
                                 " Vol. 3", ", Op. 27",      " (1999 Mix)",     "",        ""};

template <typename T, size_t N>
const char *pick(std::mt19937 &rng, T (&list)[N]) {
    return list[std::uniform_int_distribution<size_t>(0, N - 1)(rng)];
}

// A title of two to five words with an optional article and suffix: 10 to
// 60 bytes, the ordinary case.
std::string short_title(std::mt19937 &rng) {
    std::string s;
    if (rng() % 2) s = std::string(pick(rng, kArticles)) + " ";
    const size_t words = 2 + rng() % 4;
    for (size_t i = 0; i < words; ++i) {
        if (i) s += ' ';
        s += pick(rng, kWords);
    }
    return s + pick(rng, kSuffixes);
}

// A long work title, as classical releases have: 200 to about 400 bytes.
std::string long_title(std::mt19937 &rng) {
    std::string s;
    const size_t target = 200 + rng() % 200;
    while (s.size() < target) {
        if (!s.empty()) s += ": ";
        s += short_title(rng);
    }
    return s;
}

std::vector<std::string> make_titles(size_t count, bool long_ones, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<std::string> out;
    out.reserve(count);
    for (size_t i = 0; i < count; ++i) out.push_back(long_ones ? long_title(rng) : short_title(rng));
    return out;
}

struct StringPackage {
    StringPackage() { ombr_string_initialize(); }
    ~StringPackage() { ombr_string_shutdown(); }
};

// Pairs per second; range(0): 0 short titles, 1 long titles; range(1): skip_space.
void BM_FuzzyCompare(benchmark::State &state) {
    StringPackage package;
    const bool long_ones = state.range(0) != 0;
    const auto skip_space = static_cast<uint8_t>(state.range(1));
    const auto a = make_titles(1024, long_ones, 1), b = make_titles(1024, long_ones, 2);
    size_t i = 0, bytes = 0;
    uint64_t sum = 0;
    for (auto _ : state) {
        const std::string &x = a[i % a.size()], &y = b[(i * 7) % b.size()];
        sum += ombr_string_fuzzycmp_ex(x.c_str(), y.c_str(), skip_space, nullptr, nullptr);
        bytes += x.size() + y.size();
        ++i;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.SetLabel(long_ones ? "200-400 bytes, heap tables" : "10-60 bytes, stack tables");
}
BENCHMARK(BM_FuzzyCompare)->Args({0, 0})->Args({0, 1})->Args({1, 0})->Args({1, 1});

// One query against 1000 catalogue titles with the pairwise function; an
// iteration is the whole catalogue.
void BM_OneAgainstCatalogueUnsorted(benchmark::State &state) {
    StringPackage package;
    const bool long_ones = state.range(0) != 0;
    const auto catalogue = make_titles(1000, long_ones, 3);
    const auto queries = make_titles(64, long_ones, 4);
    size_t q = 0;
    uint64_t sum = 0;
    for (auto _ : state) {
        const std::string &query = queries[q++ % queries.size()];
        for (const std::string &title : catalogue) sum += ombr_string_fuzzycmp_ex(query.c_str(), title.c_str(), 0, nullptr, nullptr);
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * catalogue.size()));
    state.SetLabel(long_ones ? "long titles" : "short titles");
}
BENCHMARK(BM_OneAgainstCatalogueUnsorted)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// The same with the catalogue's tables prepared once: an iteration builds
// the query's table, compares it with all 1000 and frees it.
void BM_OneAgainstCatalogueSorted(benchmark::State &state) {
    StringPackage package;
    const bool long_ones = state.range(0) != 0;
    const auto catalogue = make_titles(1000, long_ones, 3);
    const auto queries = make_titles(64, long_ones, 4);
    std::vector<ombr_bigram_table *> tables;
    for (const std::string &title : catalogue) {
        ombr_bigram_table *t = nullptr;
        if (ombr_string_create_bigram_table(title.c_str(), 0, &t) != 0) {
            state.SkipWithError("table creation failed");
            return;
        }
        tables.push_back(t);
    }
    size_t q = 0;
    uint64_t sum = 0;
    for (auto _ : state) {
        ombr_bigram_table *query = nullptr;
        if (ombr_string_create_bigram_table(queries[q++ % queries.size()].c_str(), 0, &query) != 0) {
            state.SkipWithError("table creation failed");
            break;
        }
        for (const ombr_bigram_table *t : tables) sum += ombr_string_bigram_table_cmp(query, t);
        ombr_memory_free(query);
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * catalogue.size()));
    state.SetLabel(long_ones ? "long titles" : "short titles");
    for (ombr_bigram_table *t : tables) ombr_memory_free(t);
}
BENCHMARK(BM_OneAgainstCatalogueSorted)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// Preparing a sorted table: allocation, filling and the shell sort.
void BM_CreateBigramTable(benchmark::State &state) {
    StringPackage package;
    const bool long_ones = state.range(0) != 0;
    const auto titles = make_titles(1024, long_ones, 5);
    size_t i = 0;
    for (auto _ : state) {
        ombr_bigram_table *t = nullptr;
        if (ombr_string_create_bigram_table(titles[i++ % titles.size()].c_str(), 0, &t) != 0) {
            state.SkipWithError("table creation failed");
            break;
        }
        benchmark::DoNotOptimize(t->entries);
        ombr_memory_free(t);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetLabel(long_ones ? "long titles" : "short titles");
}
BENCHMARK(BM_CreateBigramTable)->Arg(0)->Arg(1);

// The sort alone, on the entries of long titles: the shell sort that the
// library uses, range(0) 0, against the quicksort kept beside it, 1.
void BM_SortTable(benchmark::State &state) {
    StringPackage package;
    const bool quick = state.range(0) != 0;
    std::vector<std::vector<uint32_t>> filled;
    for (const std::string &title : make_titles(256, true, 6)) {
        ombr_bigram_table *t = nullptr;
        if (ombr_string_create_bigram_table(title.c_str(), 0, &t) != 0) {
            state.SkipWithError("table creation failed");
            return;
        }
        // Refill unsorted: the sort under test starts from text order.
        std::vector<uint32_t> entries(t->count + 8);
        ombr_bigram_table view{static_cast<uint32_t>(entries.size()), entries.data()};
        _bigram_fill_table(title.c_str(), &view, 0);
        entries.resize(view.count);
        filled.push_back(std::move(entries));
        ombr_memory_free(t);
    }
    std::vector<uint32_t> work;
    size_t i = 0, entries = 0;
    for (auto _ : state) {
        const auto &source = filled[i++ % filled.size()];
        work.assign(source.begin(), source.end());
        ombr_bigram_table t{static_cast<uint32_t>(work.size()), work.data()};
        if (quick)
            _bigram_table_quicksort(&t);
        else
            _bigram_table_shellsort(&t);
        benchmark::DoNotOptimize(work.data());
        entries += work.size();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["entries"] = static_cast<double>(entries) / static_cast<double>(state.iterations());
    state.SetLabel(quick ? "quicksort" : "shell sort");
}
BENCHMARK(BM_SortTable)->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
