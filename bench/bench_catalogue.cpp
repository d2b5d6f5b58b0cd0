// Identification against a local catalogue of 100,000 generated albums:
// TOC identification and text search through zelto_cantrix_query_find_albums
// (lookup, response building and scoring), the provider's text search alone,
// and import throughput.
//
// The catalogue is generated once (tools/gen_synthetic_catalogue.py) and kept
// in the working directory as bench_catalogue_N.{jsonl,db} (N = 100000, or
// the environment's CANTRIX_BENCH_ALBUMS); run the benchmark from the build
// directory so that reruns reuse it.
#include <benchmark/benchmark.h>

#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"
#include "zelto/zelto_manager.h"

namespace {

// Albums of the catalogue: 100,000 unless CANTRIX_BENCH_ALBUMS says otherwise.
int album_count() {
    const char *n = std::getenv("CANTRIX_BENCH_ALBUMS");
    return n && std::atoi(n) > 0 ? std::atoi(n) : 100000;
}
const int kAlbums = album_count();
constexpr int kImportAlbums = 2000;

bool exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string source_root() {
    std::string file = __FILE__;  // .../bench/bench_catalogue.cpp
    return file.substr(0, file.rfind("/bench/"));
}

bool generate(int albums, const std::string &out) {
    if (exists(out)) return true;
    const std::string cmd = "python3 '" + source_root() + "/tools/gen_synthetic_catalogue.py' " +
                            std::to_string(albums) + " '" + out + ".tmp' && mv '" + out + ".tmp' '" + out + "'";
    return std::system(cmd.c_str()) == 0;
}

// The first number after `key` in `line` from `from` on, with its end.
bool number_after(const std::string &line, const char *key, size_t &pos, uint64_t &out) {
    pos = line.find(key, pos);
    if (pos == std::string::npos) return false;
    pos += std::strlen(key);
    while (pos < line.size() && (line[pos] == ' ' || line[pos] == '[')) ++pos;
    out = 0;
    bool any = false;
    while (pos < line.size() && line[pos] >= '0' && line[pos] <= '9') {
        out = out * 10 + static_cast<uint64_t>(line[pos++] - '0');
        any = true;
    }
    return any;
}

// The text of the first "key": "..." in a line (no escapes in generated data).
std::string text_after(const std::string &line, const char *key) {
    size_t pos = line.find(key);
    if (pos == std::string::npos) return "";
    pos = line.find('"', pos + std::strlen(key));
    if (pos == std::string::npos) return "";
    const size_t end = line.find('"', pos + 1);
    return end == std::string::npos ? "" : line.substr(pos + 1, end - pos - 1);
}

struct Sample {
    std::string toc, title, artist;
};

// Queries taken from every 97th generated release: its first disc's TOC,
// its title and its artist.
std::vector<Sample> samples(const std::string &jsonl) {
    std::vector<Sample> out;
    std::ifstream in(jsonl);
    std::string line;
    for (int i = 0; std::getline(in, line) && out.size() < 500; ++i) {
        if (i % 97) continue;
        Sample s;
        s.title = text_after(line, "\"title\":");
        s.artist = text_after(line, "\"name\":");
        // "offsets": [150, 27160, ...], "sectors": 235648
        const size_t open = line.find('[', line.find("\"offsets\":"));
        const size_t close = line.find(']', open);
        if (open == std::string::npos || close == std::string::npos) continue;
        std::string list = line.substr(open + 1, close - open - 1);
        for (char &c : list)
            if (c == ',') c = ' ';
        size_t pos = close;
        uint64_t sectors = 0;
        if (!number_after(line, "\"sectors\":", pos, sectors)) continue;
        s.toc = list + " " + std::to_string(sectors);
        // Collapse the double blanks left by ", ".
        std::string toc;
        for (char c : s.toc)
            if (c != ' ' || (!toc.empty() && toc.back() != ' ')) toc += c;
        s.toc = toc;
        out.push_back(s);
    }
    return out;
}

// Module, user and the 100,000-album catalogue, set up once.
struct World {
    zelto_catalogue *catalogue = nullptr;
    zelto_user *user = nullptr;
    std::vector<Sample> queries;
    double import_seconds = -1;  // when this run built the catalogue
    std::string error;

    World() {
        const std::string base = "bench_catalogue_" + std::to_string(kAlbums);
        if (!generate(kAlbums, base + ".jsonl")) {
            error = "cannot generate " + base + ".jsonl";
            return;
        }
        if (!exists(base + ".db")) {
            // Built under a temporary name so that an interrupted run leaves no half catalogue.
            std::remove((base + ".db.tmp").c_str());
            if (zelto_catalogue_open((base + ".db.tmp").c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &catalogue) != 0) {
                error = "cannot create the catalogue";
                return;
            }
            const auto t0 = std::chrono::steady_clock::now();
            if (zelto_catalogue_import(catalogue, (base + ".jsonl").c_str(), nullptr, nullptr, nullptr) != 0) {
                error = std::string("import failed: ") + zelto_catalogue_last_message(catalogue);
                return;
            }
            import_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            zelto_catalogue_close(catalogue);
            catalogue = nullptr;
            std::rename((base + ".db.tmp").c_str(), (base + ".db").c_str());
        }
        if (zelto_catalogue_open((base + ".db").c_str(), 0, &catalogue) != 0) {
            error = "cannot open the catalogue";
            return;
        }
        queries = samples(base + ".jsonl");
        zelto_cantrix_initialize(zelto_manager_get_table());
        zelto_catalogue_install(catalogue, 0);
        zelto_manager_user_create("bench", &user);
        zelto_manager_user_option_set(user, "zelto_useroption_lookup_mode", "zelto_lookupmode_local");
    }
};

World &world() {
    static World w;
    return w;
}

bool ready(benchmark::State &state) {
    World &w = world();
    if (!w.error.empty() || w.queries.empty()) {
        state.SkipWithError(w.error.empty() ? "no queries" : w.error.c_str());
        return false;
    }
    if (w.import_seconds > 0) state.counters["first_import_albums_per_s"] = kAlbums / w.import_seconds;
    return true;
}

// One find through the module; releases everything, returns the rows.
template <typename Setup>
uint32_t find_albums(Setup setup, uint32_t *out_status) {
    zelto_cantrix_query_handle query = nullptr;
    zelto_cantrix_query_create(world().user, nullptr, nullptr, &query);
    setup(query);
    zelto_rvo_handle response = nullptr;
    *out_status = zelto_cantrix_query_find_albums(query, &response);
    uint32_t rows = 0;
    if (*out_status == 0) zelto_manager_rvo_child_count(response, "zelto_ctx_album!", &rows);
    zelto_manager_rvo_release(response);
    zelto_cantrix_query_release(query);
    return rows;
}

void BM_TocIdentification(benchmark::State &state) {
    if (!ready(state)) return;
    const auto &q = world().queries;
    size_t i = 0, found = 0;
    for (auto _ : state) {
        uint32_t status = 0;
        const Sample &s = q[i++ % q.size()];
        found += find_albums([&](zelto_cantrix_query_handle h) { zelto_cantrix_query_set_toc_string(h, s.toc.c_str()); },
                             &status) > 0;
        if (status != 0) {
            state.SkipWithError("find_albums failed");
            return;
        }
    }
    state.counters["found_share"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_TocIdentification)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

void BM_TextSearchFindAlbums(benchmark::State &state) {
    if (!ready(state)) return;
    const auto &q = world().queries;
    size_t i = 0;
    for (auto _ : state) {
        uint32_t status = 0;
        const Sample &s = q[i++ % q.size()];
        find_albums(
            [&](zelto_cantrix_query_handle h) {
                zelto_cantrix_query_set_text(h, "zelto_cantrix_field_artist", s.artist.c_str());
                zelto_cantrix_query_set_text(h, "zelto_cantrix_field_album", s.title.c_str());
            },
            &status);
        if (status == ZELTO_CANTRIX_NO_SUITABLE_INPUT) {
            state.SkipWithError("this build of the module does not search by text");
            return;
        }
        if (status != 0) {
            state.SkipWithError("find_albums failed");
            return;
        }
    }
}
BENCHMARK(BM_TextSearchFindAlbums)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

// The provider's part of a text search: the request as the module sends
// it, executed, its answer fetched and released.
void BM_TextSearchProvider(benchmark::State &state) {
    if (!ready(state)) return;
    const auto &q = world().queries;
    const zelto_lookup_interface *t = zelto_catalogue_lookup_table(world().catalogue);
    size_t i = 0, found = 0;
    for (auto _ : state) {
        const Sample &s = q[i++ % q.size()];
        zelto_lookup_request r = nullptr;
        t->lookup_request_create(t, nullptr, nullptr, &r);
        t->lookup_request_add(r, "zelto_lookup_type_album", "CNX_1", "cnx", 0);
        t->lookup_request_set_data(r, "CNX_1", "zelto_lookup_data_result_range_start", "1", 1);
        t->lookup_request_set_data(r, "CNX_1", "zelto_lookup_data_result_range_end", "10", 1);
        t->lookup_request_set_data(r, "CNX_1", "zelto_lookup_data_album_title", s.title.c_str(), 1);
        t->lookup_request_set_data(r, "CNX_1", "zelto_lookup_data_artist", s.artist.c_str(), 1);
        zelto_rvo_handle result = nullptr;
        if (t->lookup_request_execute(r, world().user) != 0 ||
            t->lookup_request_get_result(r, "CNX_1", &result) != 0) {
            state.SkipWithError("provider search failed");
            t->lookup_request_release(r);
            return;
        }
        uint32_t rows = 0;
        zelto_manager_rvo_child_count(result, "zelto_ctx_album!", &rows);
        found += rows > 0;
        zelto_manager_rvo_release(result);
        t->lookup_request_release(r);
    }
    state.counters["found_share"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_TextSearchProvider)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);

// Import of 2,000 generated albums into a new catalogue file.
void BM_Import(benchmark::State &state) {
    const std::string jsonl = "bench_catalogue_" + std::to_string(kImportAlbums) + ".jsonl";
    if (!generate(kImportAlbums, jsonl)) {
        state.SkipWithError("cannot generate the import file");
        return;
    }
    const std::string db = "bench_catalogue_import.db";
    for (auto _ : state) {
        state.PauseTiming();
        std::remove(db.c_str());
        zelto_catalogue *c = nullptr;
        zelto_catalogue_open(db.c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &c);
        state.ResumeTiming();
        zelto_catalogue_import_report report{};
        if (zelto_catalogue_import(c, jsonl.c_str(), nullptr, nullptr, &report) != 0 ||
            report.imported != kImportAlbums) {
            state.SkipWithError("import failed");
            zelto_catalogue_close(c);
            return;
        }
        state.PauseTiming();
        zelto_catalogue_close(c);
        state.ResumeTiming();
    }
    std::remove(db.c_str());
    state.SetItemsProcessed(state.iterations() * kImportAlbums);
}
BENCHMARK(BM_Import)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
