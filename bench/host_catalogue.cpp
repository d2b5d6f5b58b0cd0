// Measures the catalogue on a large catalogue file (made and imported by
// bench/run_host_catalogue.sh).
//
//   catalogue_bench import DB RELEASES.jsonl   import and report throughput
//   catalogue_bench bench DB [benchmark flags]  lookups and searches
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <random>

#include "providers/catalogue/store/catalogue.h"

using namespace catalogue;

namespace {

std::unique_ptr<Catalogue> g_cat;
std::vector<std::vector<uint32_t>> g_tocs;
std::vector<std::string> g_titles, g_track_titles, g_artists;

void load_samples(uint64_t albums) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int64_t> pick(1, static_cast<int64_t>(albums));
    while (g_tocs.size() < 500) {
        Album a;
        if (!g_cat->get_album(pick(rng), a).ok()) continue;
        if (!a.discs[0].tocs.empty()) g_tocs.push_back(a.discs[0].tocs[0].offsets);
        g_titles.push_back(a.title);
        g_track_titles.push_back(a.discs[0].tracks[0].title);
        g_artists.push_back(a.artist);
    }
}

// A word with two neighbouring letters swapped.
std::string misspell(std::string s) {
    size_t longest = 0, at = 0;
    for (size_t i = 0, start = 0; i <= s.size(); ++i)
        if (i == s.size() || s[i] == ' ') {
            if (i - start > longest) longest = i - start, at = start;
            start = i + 1;
        }
    if (longest >= 5) std::swap(s[at + 2], s[at + 3]);
    return s;
}

void toc_bench(benchmark::State &state, int mode) {
    size_t i = 0, found = 0;
    for (auto _ : state) {
        std::vector<uint32_t> toc = g_tocs[i++ % g_tocs.size()];
        if (mode == 1)
            for (auto &o : toc) o += 57;  // shifted
        if (mode == 2) toc[toc.size() / 2] += 40, toc.back() -= 60;  // perturbed
        if (mode == 3) toc.back() += 5000;  // no match
        TocResult r;
        g_cat->lookup_toc(toc, {1, 10}, r);
        found += r.kind != MatchKind::none;
        benchmark::DoNotOptimize(r);
    }
    state.counters["found_share"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}

void search_bench(benchmark::State &state, int mode) {
    size_t i = 0, found = 0;
    for (auto _ : state) {
        size_t k = i++ % g_titles.size();
        TextQuery q;
        if (mode == 0) q.album_title = g_titles[k];
        if (mode == 1) q.album_title = misspell(g_titles[k]);
        if (mode == 2) q.track_title = g_track_titles[k], q.artist = g_artists[k];
        if (mode == 3) q.artist = g_artists[k];
        AlbumSearchResult r;
        g_cat->search_albums(q, {1, 10}, r);
        found += r.total > 0;
        benchmark::DoNotOptimize(r);
    }
    state.counters["found_share"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}

// One word of state.range(0) letters: the spelling correction and the text
// match must stay bounded in time and memory whatever its length. The peer
// in the same run is search/album_title_misspelt; max_rss_mb is the
// process's peak so far.
void long_word_bench(benchmark::State &state) {
    const std::string word(static_cast<size_t>(state.range(0)), 'q');
    for (auto _ : state) {
        TextQuery q;
        q.album_title = word;
        AlbumSearchResult r;
        g_cat->search_albums(q, {1, 10}, r);
        benchmark::DoNotOptimize(r);
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["max_rss_mb"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void artist_bench(benchmark::State &state) {
    size_t i = 0;
    for (auto _ : state) {
        ArtistSearchResult r;
        g_cat->search_artists(g_artists[i++ % g_artists.size()], {1, 10}, r);
        benchmark::DoNotOptimize(r);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s import DB RELEASES.jsonl | bench DB [flags]\n", argv[0]);
        return 2;
    }
    std::string mode = argv[1];
    Status st = Catalogue::open(argv[2], g_cat);
    if (!st.ok()) {
        std::fprintf(stderr, "%s\n", st.message.c_str());
        return 1;
    }
    if (mode == "import") {
        if (argc < 4) return 2;
        ImportReport report;
        uint64_t bytes = 0;
        auto t0 = std::chrono::steady_clock::now();
        st = g_cat->import_musicbrainz_file(argv[3], report, [&](const ImportProgress &p) {
            bytes = p.bytes_done;
            if (p.records_done % 20000 == 0) std::fprintf(stderr, "%llu records\n", (unsigned long long)p.records_done);
            return true;
        });
        double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (!st.ok()) {
            std::fprintf(stderr, "%s\n", st.message.c_str());
            return 1;
        }
        std::printf("imported %llu of %llu records (%llu skipped) in %.1f s: %.0f releases/s, %.1f MB/s"
                    " (word list refresh included)\n",
                    (unsigned long long)report.imported, (unsigned long long)report.records,
                    (unsigned long long)report.skipped, s, report.imported / s, bytes / s / 1e6);
        return 0;
    }
    uint64_t albums = 0;
    g_cat->album_count(albums);
    if (albums == 0) return 1;
    load_samples(albums);
    std::printf("catalogue of %llu albums\n", (unsigned long long)albums);
    benchmark::RegisterBenchmark("toc/exact", toc_bench, 0)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("toc/shifted", toc_bench, 1)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("toc/perturbed", toc_bench, 2)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("toc/no_match", toc_bench, 3)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("search/album_title", search_bench, 0)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("search/album_title_misspelt", search_bench, 1)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("search/track_title_and_artist", search_bench, 2)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("search/artist_albums", search_bench, 3)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("search/artists", artist_bench)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("search/long_word", long_word_bench)
        ->Arg(3000)
        ->Arg(100000)
        ->Arg(1000000)
        ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
