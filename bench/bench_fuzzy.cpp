// Bigram similarity: pairs of titles per second, short ones (stack tables)
// and ones of 200 bytes and more (heap tables), and one query title against
// a catalogue of 1000 titles, pairwise against prepared sorted tables. The
// peers on the same pairs: a bit-parallel LCS ratio (written here, the
// usual word-parallel algorithm over bytes) and edlib's edit distance.
#include <benchmark/benchmark.h>
#include <edlib.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ombr/ombr_string.h"
#include "ombr/ombr_string_fuzzy.h"
#include "bench/bench_ratio.h"
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
const char *pick(std::mt19937 &rng, T (&list)[N], size_t n = N) {
    return list[std::uniform_int_distribution<size_t>(0, n - 1)(rng)];
}

// The first 21 words are plain ASCII.
constexpr size_t kAsciiWords = 21;

// A title of two to five words with an optional article and suffix: 10 to
// 60 bytes, the ordinary case.
std::string short_title(std::mt19937 &rng, bool ascii_only = false) {
    std::string s;
    if (rng() % 2) s = std::string(pick(rng, kArticles)) + " ";
    const size_t words = 2 + rng() % 4;
    for (size_t i = 0; i < words; ++i) {
        if (i) s += ' ';
        s += ascii_only ? pick(rng, kWords, kAsciiWords) : pick(rng, kWords);
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

// Kinds of titles: 0 short, 1 long, 2 short and plain ASCII.
std::vector<std::string> make_titles(size_t count, int64_t kind, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<std::string> out;
    out.reserve(count);
    for (size_t i = 0; i < count; ++i) out.push_back(kind == 1 ? long_title(rng) : short_title(rng, kind == 2));
    return out;
}

struct StringPackage {
    StringPackage() { ombr_string_initialize(); }
    ~StringPackage() { ombr_string_shutdown(); }
};

// Pairs per second; range(0): 0 short titles, 1 long titles, 2 short ASCII
// titles; range(1): skip_space.
void BM_FuzzyCompare(benchmark::State &state) {
    StringPackage package;
    const bool long_ones = state.range(0) == 1;
    const auto skip_space = static_cast<uint8_t>(state.range(1));
    const auto a = make_titles(1024, state.range(0), 1), b = make_titles(1024, state.range(0), 2);
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
    state.SetLabel(long_ones ? "200-400 bytes, heap tables" : state.range(0) == 2 ? "ASCII, 10-60 bytes" : "10-60 bytes");
}
BENCHMARK(BM_FuzzyCompare)->Args({0, 0})->Args({0, 1})->Args({1, 0})->Args({1, 1})->Args({2, 0});

// LCS length of two byte strings by the bit-parallel algorithm (Allison and
// Dix, Hyyrö): one 64-bit word per 64 bytes of a, match masks per byte
// value set for a and cleared again afterwards.
class BitParallelLcs {
   public:
    BitParallelLcs() { std::memset(masks_, 0, sizeof masks_); }

    size_t length(const std::string &a, const std::string &b) {
        const size_t words = (a.size() + 63) / 64;
        if (words > kMaxWords) return 0;
        for (size_t i = 0; i < a.size(); ++i) masks_[static_cast<uint8_t>(a[i])][i >> 6] |= uint64_t{1} << (i & 63);
        if (words == 1) {
            // The usual case of a title: one word, no carries.
            uint64_t v = ~uint64_t{0};
            for (unsigned char c : b) {
                const uint64_t u = v & masks_[c][0];
                v = (v + u) | (v - u);
            }
            const uint64_t valid = a.size() == 64 ? ~uint64_t{0} : (uint64_t{1} << a.size()) - 1;
            for (unsigned char c : a) masks_[c][0] = 0;
            return static_cast<size_t>(std::popcount(~v & valid));
        }
        uint64_t s[kMaxWords];
        for (size_t w = 0; w < words; ++w) s[w] = ~uint64_t{0};
        for (unsigned char c : b) {
            uint64_t carry = 0;
            for (size_t w = 0; w < words; ++w) {
                const uint64_t u = s[w] & masks_[c][w];
                const uint64_t sum = s[w] + u + carry;
                carry = (sum < s[w]) || (carry && sum == s[w]);
                s[w] = sum | (s[w] - u);
            }
        }
        size_t lcs = 0;
        for (size_t w = 0; w < words; ++w) {
            const uint64_t valid = (w + 1) * 64 <= a.size() ? ~uint64_t{0} : (uint64_t{1} << (a.size() % 64)) - 1;
            lcs += static_cast<size_t>(std::popcount(~s[w] & valid));
        }
        for (unsigned char c : a)
            for (size_t w = 0; w < words; ++w) masks_[c][w] = 0;
        return lcs;
    }

    // Similarity in percent, 2 * LCS / (|a| + |b|).
    // Out of line, so that callgrind can count its instructions per pair.
    [[gnu::noinline]] uint32_t ratio(const std::string &a, const std::string &b) {
        const size_t total = a.size() + b.size();
        return total ? static_cast<uint32_t>(200 * length(a, b) / total) : 0;
    }

   private:
    static constexpr size_t kMaxWords = 8;
    uint64_t masks_[256][kMaxWords];
};

// The peers on the same pairs as BM_FuzzyCompare: range(0) short or long
// titles.
void BM_LcsRatio(benchmark::State &state) {
    const auto a = make_titles(1024, state.range(0), 1), b = make_titles(1024, state.range(0), 2);
    static BitParallelLcs lcs;
    size_t i = 0;
    uint64_t sum = 0;
    for (auto _ : state) {
        sum += lcs.ratio(a[i % a.size()], b[(i * 7) % b.size()]);
        ++i;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetLabel("bit-parallel LCS ratio");
}
BENCHMARK(BM_LcsRatio)->Arg(0)->Arg(1)->Arg(2);

void BM_EdlibDistance(benchmark::State &state) {
    const auto a = make_titles(1024, state.range(0), 1), b = make_titles(1024, state.range(0), 2);
    size_t i = 0;
    uint64_t sum = 0;
    for (auto _ : state) {
        const std::string &x = a[i % a.size()], &y = b[(i * 7) % b.size()];
        EdlibAlignResult r = edlibAlign(x.data(), static_cast<int>(x.size()), y.data(), static_cast<int>(y.size()),
                                        edlibDefaultAlignConfig());
        sum += static_cast<uint64_t>(r.editDistance);
        edlibFreeAlignResult(r);
        ++i;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.SetLabel("edlib edit distance");
}
BENCHMARK(BM_EdlibDistance)->Arg(0)->Arg(1);

// One query against 1000 catalogue titles with the pairwise function; an
// iteration is the whole catalogue.
void BM_OneAgainstCatalogueUnsorted(benchmark::State &state) {
    StringPackage package;
    const bool long_ones = state.range(0) != 0;
    const auto catalogue = make_titles(1000, long_ones ? 1 : 0, 3);
    const auto queries = make_titles(64, long_ones ? 1 : 0, 4);
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
    const auto catalogue = make_titles(1000, long_ones ? 1 : 0, 3);
    const auto queries = make_titles(64, long_ones ? 1 : 0, 4);
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
    const auto titles = make_titles(1024, long_ones ? 1 : 0, 5);
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
    for (const std::string &title : make_titles(256, 1, 6)) {
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

int main(int argc, char **argv) {
    return bench::run_with_ratios(
        argc, argv,
        {{"BM_FuzzyCompare/0/0", "BM_LcsRatio/0", "short titles, against a bit-parallel LCS ratio"},
         {"BM_FuzzyCompare/0/1", "BM_LcsRatio/0", "short titles in word mode, against the LCS ratio"},
         {"BM_FuzzyCompare/0/0", "BM_EdlibDistance/0", "short titles, against edlib"},
         {"BM_FuzzyCompare/2/0", "BM_LcsRatio/2", "short ASCII titles, against the LCS ratio"},
         {"BM_FuzzyCompare/1/0", "BM_LcsRatio/1", "long titles, against the LCS ratio"},
         {"BM_FuzzyCompare/1/0", "BM_EdlibDistance/1", "long titles, against edlib"}});
}
