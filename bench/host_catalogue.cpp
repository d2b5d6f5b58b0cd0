// Measures the catalogue on a large catalogue file (made and imported by
// bench/run_host_catalogue.sh and bench/run_catalogue_scale.sh), with the
// peers a user would otherwise pick, over the same data in the same run:
//  - plain FTS5: the catalogue's own album index asked for the folded query
//    words, best 10 by bm25, first answer taken as is;
//  - a duration cube: an R*Tree over five buckets of summed track lengths
//    (SQLite's R*Tree has at most five dimensions), the track count and TOC
//    beside it, candidates checked with the catalogue's tolerances;
//  - a minimal loader: the catalogue's release parser, one row per album
//    and per TOC, no text indexes.
//
//   host_catalogue import DB RELEASES.jsonl       import and report throughput
//   host_catalogue peer_import DB RELEASES.jsonl  the minimal loader
//   host_catalogue bench DB [benchmark flags]     lookups and searches
//
// found_share counts queries with any answer; first_right counts those
// whose first answer is the album the query was made from or one the query
// cannot tell from it (the same title for a title, the same artist for an
// artist: generated titles repeat). The searches run once per sample.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <random>
#include <tuple>

#include "bench/bench_ratio.h"
#include "providers/catalogue/store/catalogue.h"

using namespace catalogue;

namespace {

constexpr size_t kSamples = 500;
std::unique_ptr<Catalogue> g_cat;
std::vector<std::vector<uint32_t>> g_tocs;
std::vector<std::string> g_titles, g_track_titles, g_artists;
std::vector<int64_t> g_ids;  // album of each sample

// Whether a first answer is right for sample k under search mode `mode`.
bool right_answer(size_t k, int mode, int64_t id, const std::string &title, const std::string &artist) {
    if (id == g_ids[k]) return true;
    if (mode == 2 || mode == 3) return fold(artist) == fold(g_artists[k]) && (mode == 3 || fold(title) == fold(g_titles[k]));
    return fold(title) == fold(g_titles[k]);
}
sqlite3 *g_peer = nullptr;   // the catalogue file, read-only, with the cube attached

void load_samples(uint64_t albums) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int64_t> pick(1, static_cast<int64_t>(albums));
    while (g_tocs.size() < kSamples) {
        Album a;
        const int64_t id = pick(rng);
        if (!g_cat->get_album(id, a).ok() || a.discs[0].tocs.empty()) continue;
        g_tocs.push_back(a.discs[0].tocs[0].offsets);
        g_ids.push_back(id);
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

void shares(benchmark::State &state, size_t found, size_t right) {
    state.counters["found_share"] = static_cast<double>(found) / static_cast<double>(state.iterations());
    state.counters["first_right"] = static_cast<double>(right) / static_cast<double>(state.iterations());
}

// The TOC of sample k as a query: as stored, shifted, perturbed, or with a
// lead-out far off (no match).
std::vector<uint32_t> query_toc(size_t k, int mode) {
    std::vector<uint32_t> toc = g_tocs[k];
    if (mode == 1)
        for (auto &o : toc) o += 57;
    if (mode == 2) toc[toc.size() / 2] += 40, toc.back() -= 60;
    if (mode == 3) toc.back() += 5000;
    return toc;
}

void toc_bench(benchmark::State &state, int mode) {
    size_t i = 0, found = 0, right = 0;
    for (auto _ : state) {
        const size_t k = i++ % g_tocs.size();
        const std::vector<uint32_t> toc = query_toc(k, mode % 10);
        TocResult r;
        if (mode >= 10)
            g_cat->lookup_toc_linear(toc, {1, 10}, r);
        else
            g_cat->lookup_toc(toc, {1, 10}, r);
        found += r.kind != MatchKind::none;
        right += !r.hits.empty() && r.hits[0].album_id == g_ids[k];
        benchmark::DoNotOptimize(r);
    }
    shares(state, found, right);
}

void search_bench(benchmark::State &state, int mode) {
    size_t i = 0, found = 0, right = 0;
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
        right += !r.hits.empty() && right_answer(k, mode, r.hits[0].album_id, r.hits[0].title, r.hits[0].artist);
        benchmark::DoNotOptimize(r);
    }
    shares(state, found, right);
}

// ---- Peers ---------------------------------------------------------------------

// A prepared statement of the peer connection, finalized at scope end.
struct PeerQuery {
    sqlite3_stmt *s = nullptr;
    explicit PeerQuery(const char *sql) {
        if (sqlite3_prepare_v2(g_peer, sql, -1, &s, nullptr) != SQLITE_OK) s = nullptr;
    }
    ~PeerQuery() { sqlite3_finalize(s); }
};

// The folded words of a text, each quoted: FTS5's implicit AND.
std::string fts_words(std::string_view text) {
    std::string out;
    for (const auto &w : fold_words(text)) {
        if (!out.empty()) out += ' ';
        out += '"' + w + '"';
    }
    return out;
}

// Plain FTS5 over the catalogue's album index: modes as search_bench's
// (title, misspelt title; 3: artist).
void fts_peer_bench(benchmark::State &state, int mode) {
    PeerQuery q(mode == 3 ? "SELECT f.rowid, a.title, a.artist FROM cat.album_fts f JOIN cat.albums a ON a.id = f.rowid"
                            " WHERE album_fts MATCH 'artist : (' || ?1 || ')' ORDER BY f.rank LIMIT 10"
                          : "SELECT f.rowid, a.title, a.artist FROM cat.album_fts f JOIN cat.albums a ON a.id = f.rowid"
                            " WHERE album_fts MATCH 'title : (' || ?1 || ')' ORDER BY f.rank LIMIT 10");
    if (!q.s) return state.SkipWithError(sqlite3_errmsg(g_peer));
    size_t i = 0, found = 0, right = 0;
    for (auto _ : state) {
        const size_t k = i++ % g_titles.size();
        const std::string words =
            fts_words(mode == 3 ? g_artists[k] : mode == 1 ? misspell(g_titles[k]) : g_titles[k]);
        sqlite3_bind_text(q.s, 1, words.c_str(), -1, SQLITE_TRANSIENT);
        std::vector<std::tuple<int64_t, std::string, std::string>> rows;
        while (sqlite3_step(q.s) == SQLITE_ROW)
            rows.emplace_back(sqlite3_column_int64(q.s, 0), reinterpret_cast<const char *>(sqlite3_column_text(q.s, 1)),
                              reinterpret_cast<const char *>(sqlite3_column_text(q.s, 2)));
        sqlite3_reset(q.s);
        found += !rows.empty();
        right += !rows.empty() && right_answer(k, mode, std::get<0>(rows[0]), std::get<1>(rows[0]), std::get<2>(rows[0]));
        benchmark::DoNotOptimize(rows);
    }
    shares(state, found, right);
}

// The duration cube: five buckets of consecutive tracks, each the sum of
// their lengths (the last one ends at the lead-out).
constexpr size_t kBuckets = 5;
void cube_buckets(const std::vector<uint32_t> &o, int64_t (&b)[kBuckets], int64_t (&slack)[kBuckets]) {
    const size_t n = o.size() - 1;
    for (size_t k = 0; k < kBuckets; ++k) {
        const size_t from = k * n / kBuckets, to = (k + 1) * n / kBuckets;
        b[k] = int64_t{o[to]} - o[from];
        // Two track starts move by at most twice the per-track deviation
        // against each other; the lead-out by the length tolerance more.
        slack[k] = from == to ? 0 : 2 * int64_t{kTocMaxTrackDeviation} + (to == n ? kTocMaxLengthDeviation : 0);
    }
}

bool build_cube() {
    int64_t rows = 0;
    {
        PeerQuery q("SELECT count(*) FROM cube");
        if (q.s && sqlite3_step(q.s) == SQLITE_ROW) rows = sqlite3_column_int64(q.s, 0);
    }
    if (rows > 0) return true;
    if (sqlite3_exec(g_peer, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) return false;
    PeerQuery read("SELECT id, album_id, toc FROM cat.tocs");
    PeerQuery write("INSERT INTO cube VALUES(?1, ?2, ?2, ?3, ?3, ?4, ?4, ?5, ?5, ?6, ?6, ?7, ?8, ?9)");
    if (!read.s || !write.s) return false;
    std::vector<uint32_t> o;
    while (sqlite3_step(read.s) == SQLITE_ROW) {
        const char *text = reinterpret_cast<const char *>(sqlite3_column_text(read.s, 2));
        if (!parse_toc(text, o).ok()) continue;
        int64_t b[kBuckets], slack[kBuckets];
        cube_buckets(o, b, slack);
        sqlite3_bind_int64(write.s, 1, sqlite3_column_int64(read.s, 0));
        for (size_t k = 0; k < kBuckets; ++k) sqlite3_bind_int64(write.s, static_cast<int>(2 + k), b[k]);
        sqlite3_bind_int64(write.s, 7, static_cast<int64_t>(o.size() - 1));
        sqlite3_bind_int64(write.s, 8, sqlite3_column_int64(read.s, 1));
        sqlite3_bind_text(write.s, 9, text, -1, SQLITE_TRANSIENT);
        if (sqlite3_step(write.s) != SQLITE_DONE) return false;
        sqlite3_reset(write.s);
    }
    return sqlite3_exec(g_peer, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
}

// The peer's tolerance test and closeness (the catalogue's rules).
bool cube_match(const std::vector<uint32_t> &q, const std::vector<uint32_t> &s, uint64_t &closeness) {
    if (q.size() != s.size()) return false;
    std::vector<int64_t> d(q.size());
    for (size_t i = 0; i < q.size(); ++i) d[i] = int64_t{q[i]} - s[i];
    std::vector<int64_t> sorted = d;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>((d.size() - 1) / 2), sorted.end());
    const int64_t shift = sorted[(d.size() - 1) / 2];
    if (std::llabs(shift) > kTocMaxShift) return false;
    uint64_t total = 0;
    for (size_t i = 0; i < d.size(); ++i) {
        const auto dev = static_cast<uint64_t>(std::llabs(d[i] - shift));
        if (i + 1 < d.size() && dev > kTocMaxTrackDeviation) return false;
        total += dev;
    }
    if (std::llabs((d.back() - d.front())) > kTocMaxLengthDeviation) return false;
    closeness = total + static_cast<uint64_t>(std::llabs(shift)) / 10;
    return true;
}

void cube_peer_bench(benchmark::State &state, int mode) {
    PeerQuery q("SELECT album_id, toc FROM cube WHERE b0_lo BETWEEN ?1 AND ?2 AND b1_lo BETWEEN ?3 AND ?4"
                " AND b2_lo BETWEEN ?5 AND ?6 AND b3_lo BETWEEN ?7 AND ?8 AND b4_lo BETWEEN ?9 AND ?10"
                " AND tracks = ?11");
    if (!q.s) return state.SkipWithError(sqlite3_errmsg(g_peer));
    size_t i = 0, found = 0, right = 0;
    std::vector<uint32_t> stored;
    for (auto _ : state) {
        const size_t k = i++ % g_tocs.size();
        const std::vector<uint32_t> toc = query_toc(k, mode);
        int64_t b[kBuckets], slack[kBuckets];
        cube_buckets(toc, b, slack);
        for (size_t j = 0; j < kBuckets; ++j) {
            sqlite3_bind_int64(q.s, static_cast<int>(1 + 2 * j), b[j] - slack[j]);
            sqlite3_bind_int64(q.s, static_cast<int>(2 + 2 * j), b[j] + slack[j]);
        }
        sqlite3_bind_int64(q.s, 11, static_cast<int64_t>(toc.size() - 1));
        std::vector<std::pair<uint64_t, int64_t>> hits;
        while (sqlite3_step(q.s) == SQLITE_ROW) {
            uint64_t closeness = 0;
            if (parse_toc(reinterpret_cast<const char *>(sqlite3_column_text(q.s, 1)), stored).ok() &&
                cube_match(toc, stored, closeness))
                hits.emplace_back(closeness, sqlite3_column_int64(q.s, 0));
        }
        sqlite3_reset(q.s);
        std::sort(hits.begin(), hits.end());
        found += !hits.empty();
        right += !hits.empty() && hits[0].second == g_ids[k];
        benchmark::DoNotOptimize(hits);
    }
    shares(state, found, right);
}

// Opens the peers' connection: the cube file DB.cube (made on first use),
// with the catalogue attached read-only.
bool open_peer(const std::string &db) {
    if (sqlite3_open((db + ".cube").c_str(), &g_peer) != SQLITE_OK) return false;
    const std::string sql = "ATTACH 'file:" + db + "?mode=ro' AS cat;"
                            "CREATE VIRTUAL TABLE IF NOT EXISTS cube USING rtree_i32(id, b0_lo, b0_hi, b1_lo, b1_hi,"
                            " b2_lo, b2_hi, b3_lo, b3_hi, b4_lo, b4_hi, +tracks INTEGER, +album_id INTEGER, +toc TEXT);";
    return sqlite3_exec(g_peer, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK && build_cube();
}

// The minimal loader: same parser, one row per album and per TOC, no text
// indexes, one transaction per 10,000 albums.
int peer_import(const char *db, const char *jsonl) {
    std::remove(db);
    sqlite3 *out = nullptr;
    if (sqlite3_open(db, &out) != SQLITE_OK) return 1;
    sqlite3_exec(out,
                 "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
                 "CREATE TABLE albums(id INTEGER PRIMARY KEY, title TEXT, artist TEXT);"
                 "CREATE TABLE tocs(id INTEGER PRIMARY KEY, album_id INTEGER, toc TEXT); BEGIN;",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt *album = nullptr, *toc = nullptr;
    sqlite3_prepare_v2(out, "INSERT INTO albums(title, artist) VALUES(?, ?)", -1, &album, nullptr);
    sqlite3_prepare_v2(out, "INSERT INTO tocs(album_id, toc) VALUES(?, ?)", -1, &toc, nullptr);
    std::ifstream in(jsonl);
    std::string line;
    uint64_t albums = 0;
    const auto t0 = std::chrono::steady_clock::now();
    while (std::getline(in, line)) {
        Album a;
        if (!parse_musicbrainz_release(line, a).ok()) continue;
        sqlite3_bind_text(album, 1, a.title.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(album, 2, a.artist.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_step(album);
        sqlite3_reset(album);
        const int64_t id = sqlite3_last_insert_rowid(out);
        for (const auto &d : a.discs)
            for (const auto &t : d.tocs) {
                sqlite3_bind_int64(toc, 1, id);
                sqlite3_bind_text(toc, 2, toc_text(t.offsets).c_str(), -1, SQLITE_TRANSIENT);
                sqlite3_step(toc);
                sqlite3_reset(toc);
            }
        if (++albums % 10000 == 0) sqlite3_exec(out, "COMMIT; BEGIN;", nullptr, nullptr, nullptr);
    }
    sqlite3_exec(out, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_finalize(album);
    sqlite3_finalize(toc);
    sqlite3_close(out);
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("peer loader: %llu albums in %.1f s: %.0f albums/s\n", (unsigned long long)albums, s, albums / s);
    return 0;
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

// Bytes this process has written to storage so far (Linux), or 0.
uint64_t written_bytes() {
    std::ifstream io("/proc/self/io");
    std::string key;
    uint64_t value = 0;
    while (io >> key >> value)
        if (key == "write_bytes:") return value;
    return 0;
}

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s import|peer_import DB RELEASES.jsonl | bench DB [flags]\n", argv[0]);
        return 2;
    }
    std::string mode = argv[1];
    if (mode == "peer_import") return argc < 4 ? 2 : peer_import(argv[2], argv[3]);
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
        const double cpu0 = cpu_seconds();
        st = g_cat->import_musicbrainz_file(argv[3], report, [&](const ImportProgress &p) {
            bytes = p.bytes_done;
            if (p.records_done % 20000 == 0) std::fprintf(stderr, "%llu records\n", (unsigned long long)p.records_done);
            return true;
        });
        double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        const double cpu = cpu_seconds() - cpu0;
        if (!st.ok()) {
            std::fprintf(stderr, "%s\n", st.message.c_str());
            return 1;
        }
        g_cat.reset();  // the last checkpoint counts too
        struct stat info {};
        stat(argv[2], &info);
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const double n = static_cast<double>(report.imported);
        std::printf("imported %llu of %llu records (%llu skipped) in %.1f s: %.0f releases/s, %.1f MB/s"
                    " (word list refresh included)\n",
                    (unsigned long long)report.imported, (unsigned long long)report.records,
                    (unsigned long long)report.skipped, s, n / s, bytes / s / 1e6);
        std::printf("cpu %.3f ms per album; database %.0f bytes per album; written %.1f MB for %.1f MB of"
                    " database; peak resident %.1f MB\n",
                    cpu * 1e3 / n, static_cast<double>(info.st_size) / n, written_bytes() / 1e6,
                    static_cast<double>(info.st_size) / 1e6, static_cast<double>(usage.ru_maxrss) / 1024.0);
        return 0;
    }
    uint64_t albums = 0;
    g_cat->album_count(albums);
    if (albums == 0) return 1;
    load_samples(albums);
    if (!open_peer(argv[2])) {
        std::fprintf(stderr, "peer: %s\n", g_peer ? sqlite3_errmsg(g_peer) : "cannot open");
        return 1;
    }
    std::printf("catalogue of %llu albums\n", (unsigned long long)albums);
    benchmark::RegisterBenchmark("toc/exact", toc_bench, 0)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("toc/shifted", toc_bench, 1)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("toc/perturbed", toc_bench, 2)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("toc/no_match", toc_bench, 3)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    // The scan the shape index replaced: every TOC of the same track count
    // and length window (the reference of the differential tests).
    benchmark::RegisterBenchmark("toc_linear/shifted", toc_bench, 11)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("toc_linear/perturbed", toc_bench, 12)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("toc_linear/no_match", toc_bench, 13)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("peer_cube/shifted", cube_peer_bench, 1)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("peer_cube/perturbed", cube_peer_bench, 2)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("peer_cube/no_match", cube_peer_bench, 3)->Unit(benchmark::kMicrosecond)->Iterations(8 * kSamples);
    benchmark::RegisterBenchmark("search/album_title", search_bench, 0)->Unit(benchmark::kMillisecond)->Iterations(kSamples);
    benchmark::RegisterBenchmark("search/album_title_misspelt", search_bench, 1)->Unit(benchmark::kMillisecond)->Iterations(kSamples);
    benchmark::RegisterBenchmark("search/track_title_and_artist", search_bench, 2)->Unit(benchmark::kMillisecond)->Iterations(kSamples);
    benchmark::RegisterBenchmark("search/artist_albums", search_bench, 3)->Unit(benchmark::kMillisecond)->Iterations(kSamples);
    benchmark::RegisterBenchmark("peer_fts/album_title", fts_peer_bench, 0)->Unit(benchmark::kMillisecond)->Iterations(kSamples);
    benchmark::RegisterBenchmark("peer_fts/album_title_misspelt", fts_peer_bench, 1)->Unit(benchmark::kMillisecond)->Iterations(kSamples);
    benchmark::RegisterBenchmark("peer_fts/artist_albums", fts_peer_bench, 3)->Unit(benchmark::kMillisecond)->Iterations(kSamples);
    benchmark::RegisterBenchmark("search/artists", artist_bench)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("search/long_word", long_word_bench)
        ->Arg(3000)
        ->Arg(100000)
        ->Arg(1000000)
        ->Unit(benchmark::kMillisecond);
    // The benchmark flags follow the mode and the catalogue.
    std::vector<char *> flags{argv[0]};
    for (int i = 3; i < argc; ++i) flags.push_back(argv[i]);
    // Runs of fixed iterations carry them in their names.
    const std::string tocs = "/iterations:" + std::to_string(8 * kSamples),
                      searches = "/iterations:" + std::to_string(kSamples);
    const int rc = bench::run_with_ratios(
        static_cast<int>(flags.size()), flags.data(),
        {{"toc/shifted" + tocs, "toc_linear/shifted" + tocs, "fuzzy TOC, shifted: the linear scan it replaced"},
         {"toc/no_match" + tocs, "toc_linear/no_match" + tocs, "TOC without a match: the linear scan"},
         {"toc/shifted" + tocs, "peer_cube/shifted" + tocs, "fuzzy TOC, shifted: duration cube"},
         {"toc/perturbed" + tocs, "peer_cube/perturbed" + tocs, "fuzzy TOC, perturbed: duration cube"},
         {"toc/no_match" + tocs, "peer_cube/no_match" + tocs, "TOC without a match: duration cube"},
         {"search/album_title" + searches, "peer_fts/album_title" + searches, "album title: plain FTS5"},
         {"search/album_title_misspelt" + searches, "peer_fts/album_title_misspelt" + searches,
          "misspelt album title: plain FTS5"},
         {"search/artist_albums" + searches, "peer_fts/artist_albums" + searches, "artist only: plain FTS5"}});
    sqlite3_close(g_peer);
    return rc;
}
