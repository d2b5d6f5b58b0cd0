// Identification of audio files against the local catalogue, measured on a
// generated corpus: accuracy per variant and for excerpts, the speed of
// fingerprinting, and the time of a lookup at growing catalogue sizes.
//
//   bench_audio_match --corpus DIR [--songs 1000] [--unknown 250] [--jobs 2]
//                     [--catalogues FILE,FILE...] [benchmark options]
//
// 1. Corpus (made once, kept in DIR): synthetic songs of 2 to 5 minutes
//    (tests/support/synth_song.h, seeds 1..N) as FLAC originals, and for
//    each the variants a real library holds, encoded by the ffmpeg program:
//    MP3 at 64 and 320 kbit/s, AAC at 96, Opus at 48, gain of -6 and +6 dB,
//    5 s of silence before, the first 3 s cut, mono, 22.05 kHz. Excerpts of
//    20 and 30 s at random offsets (MP3 at 128 kbit/s). Songs the catalogue
//    does not hold (seeds from 100001): whole files and excerpts.
// 2. Catalogue: the originals fingerprinted the way `cantrix catalogue
//    fingerprint` does (decoding, the module's fingerprint input, the
//    catalogue's store), timed per stage.
// 3. Accuracy: every variant and excerpt of every song, and every unknown
//    query, through zelto_cantrix_query_find_albums and the catalogue
//    provider. Recall is the share whose first answer is the right track;
//    a wrong answer is a first answer naming another track; precision
//    counts queries with no wrong track among the answers at all.
// 4. Speed (Google Benchmark): fingerprinting decoded audio through the
//    module against Chromaprint alone; a lookup through the module and the
//    provider against a brute-force scan of all fingerprints (the peer a
//    user would write), and lookups in the larger catalogues named by
//    --catalogues (made by host_audio_index from this one).
#include <benchmark/benchmark.h>
#include <chromaprint.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_ratio.h"
#include "tests/support/synth_song.h"
#include "tool/audio/decoder.h"
#include "tool/audio/fingerprinter.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"
#include "zelto/zelto_manager.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    fs::path corpus;
    int songs = 1000, unknown = 250, jobs = 2;
    std::vector<std::string> catalogues;  // larger catalogues for the lookup timings
};
Options g_options;

struct Variant {
    const char *name, *ext, *args;
};
// The lossy encoders run at their fastest settings (LAME's quality 9, the
// AAC encoder's fast coder, Opus complexity 3): the corpus is made in half
// the time, and the files sound worse than a careful encoder's, which makes
// the test harder, not easier.
constexpr Variant kVariants[] = {
    {"mp3_64k", "mp3", "-c:a libmp3lame -b:a 64k -compression_level 9"},
    {"mp3_320k", "mp3", "-c:a libmp3lame -b:a 320k -compression_level 9"},
    {"aac_96k", "m4a", "-c:a aac -aac_coder fast -b:a 96k"},
    {"opus_48k", "opus", "-c:a libopus -b:a 48k -compression_level 3"},
    {"gain_-6dB", "flac", "-af volume=-6dB -c:a flac"},
    {"gain_+6dB", "flac", "-af volume=6dB -c:a flac"},
    {"silence_5s_before", "flac", "-af adelay=5000:all=1 -c:a flac"},
    {"first_3s_cut", "flac", "-ss 3 -c:a flac"},
    {"mono", "flac", "-ac 1 -c:a flac"},
    {"resampled_22050", "flac", "-ar 22050 -c:a flac"},
};
constexpr double kExcerpts[] = {20, 30};

std::string song_name(int n) {
    char text[16];
    std::snprintf(text, sizeof text, "s%04d", n);
    return text;
}
std::string title_of(int n) { return "Song " + std::to_string(n); }

// Deterministic offset of excerpt `length` of song `n` within `seconds`.
double excerpt_offset(int n, double length, double seconds) {
    synth::Random r(static_cast<uint64_t>(n) * 7919 + static_cast<uint64_t>(length));
    return std::floor(r.range(0, std::max(0.0, seconds - length - 1)) * 1000) / 1000;
}

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// Runs `work(i)` for i in [first, last) on `jobs` threads.
template <typename Work>
void parallel(int first, int last, int jobs, Work work) {
    std::atomic<int> next{first};
    std::vector<std::thread> threads;
    for (int j = 0; j < jobs; ++j)
        threads.emplace_back([&] {
            for (int i; (i = next++) < last;) work(i);
        });
    for (auto &t : threads) t.join();
}

bool run(const std::string &command) { return std::system((command + " 2>&1").c_str()) == 0; }

// ---- 1. Corpus ------------------------------------------------------------------

// Song n's original, variants and excerpts, made by one ffmpeg run each.
void make_song_files(int n, bool known) {
    const fs::path dir = g_options.corpus / (known ? "songs" : "unknown");
    const std::string name = known ? song_name(n) : "u" + song_name(n).substr(1);
    const fs::path done = dir / (name + ".done");
    if (fs::exists(done)) return;
    const uint64_t seed = known ? static_cast<uint64_t>(n) : 100000u + static_cast<uint64_t>(n);
    const synth::Song song = synth::make_song(seed);
    const fs::path wav = dir / (name + ".wav");
    synth::write_wav(wav.string(), synth::to_s16(song.samples), song.rate, song.channels);
    std::ostringstream cmd;
    cmd << "ffmpeg -nostdin -v error -y -i '" << wav.string() << "'";
    auto out = [&](const std::string &args, const std::string &file) { cmd << " " << args << " '" << (dir / file).string() << "'"; };
    if (known) {
        out("-c:a flac -metadata title='" + title_of(n) + "'", name + ".flac");
        for (const Variant &v : kVariants) out(v.args, name + "." + v.name + "." + v.ext);
    } else {
        out("-c:a libmp3lame -b:a 128k -compression_level 9", name + ".whole.mp3");
    }
    std::string offsets;
    for (double length : kExcerpts) {
        const double at = excerpt_offset(n, length, song.seconds());
        char args[96];
        std::snprintf(args, sizeof args, "-ss %.3f -t %.0f -c:a libmp3lame -b:a 128k -compression_level 9", at, length);
        out(args, name + ".x" + std::to_string(static_cast<int>(length)) + ".mp3");
        offsets += std::to_string(static_cast<int>(length)) + " " + std::to_string(at) + "\n";
    }
    if (!run(cmd.str())) std::fprintf(stderr, "ffmpeg failed for %s\n", name.c_str());
    fs::remove(wav);
    std::ofstream(done) << song.seconds() << "\n" << offsets;
}

void make_corpus() {
    fs::create_directories(g_options.corpus / "songs");
    fs::create_directories(g_options.corpus / "unknown");
    const double start = now();
    std::atomic<int> made{0};
    parallel(1, g_options.songs + 1, g_options.jobs, [&](int n) {
        make_song_files(n, true);
        if (++made % 50 == 0) std::fprintf(stderr, "corpus: %d songs (%.0f s)\n", made.load(), now() - start);
    });
    parallel(1, g_options.unknown + 1, g_options.jobs, [&](int n) { make_song_files(n, false); });
    std::fprintf(stderr, "corpus ready in %.0f s\n", now() - start);
}

// ---- Module session per thread ------------------------------------------------------

struct Session {
    zelto_user *user = nullptr;
    zelto_cantrix_query_handle query = nullptr;
    Session() {
        zelto_manager_user_create("bench", &user);
        zelto_manager_user_option_set(user, "zelto_useroption_lookup_mode", "zelto_lookupmode_local");
        zelto_cantrix_query_create(user, nullptr, nullptr, &query);
    }
    ~Session() {
        zelto_cantrix_query_release(query);
        zelto_manager_user_release(user);
    }
};

zelto_catalogue *g_catalogue = nullptr;
std::vector<std::string> g_texts;  // fingerprint texts of the originals, by song number

// ---- 2. Catalogue -----------------------------------------------------------------

struct StageTimes {
    double audio = 0, decode = 0, fingerprint = 0, store = 0;
};

void build_catalogue(const fs::path &path) {
    fs::remove(path);
    fs::remove(path.string() + "-wal");
    fs::remove(path.string() + "-shm");
    if (zelto_catalogue_open(path.c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &g_catalogue) != 0) std::exit(1);
    g_texts.assign(static_cast<size_t>(g_options.songs) + 1, "");
    StageTimes times;
    std::mutex mutex;
    const double start = now();
    parallel(1, g_options.songs + 1, g_options.jobs, [&](int n) {
        thread_local Session session;
        const fs::path file = g_options.corpus / "songs" / (song_name(n) + ".flac");
        const audio::Fingerprinted f = audio::fingerprint_file(session.query, file.string(), {});
        if (!f.decode.ok) {
            std::fprintf(stderr, "%s: %s\n", file.c_str(), f.decode.error.c_str());
            return;
        }
        const std::string title = title_of(n), album = "Corpus " + std::to_string((n - 1) / 10 + 1);
        zelto_catalogue_audio_tags tags{};
        tags.title = title.c_str();
        tags.artist = "Corpus Artist";
        tags.album = album.c_str();
        tags.track_number = static_cast<uint32_t>((n - 1) % 10 + 1);
        const std::string content = "bench-" + std::to_string(n);
        zelto_catalogue_fingerprint_entry e{f.text.c_str(), content.c_str(), file.c_str(), nullptr, &tags};
        std::lock_guard<std::mutex> guard(mutex);
        timespec a{}, b{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
        if (zelto_catalogue_fingerprint_add(g_catalogue, &e, nullptr) != 0)
            std::fprintf(stderr, "%s: %s\n", file.c_str(), zelto_catalogue_last_message(g_catalogue));
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
        times.store += static_cast<double>(b.tv_sec - a.tv_sec) + static_cast<double>(b.tv_nsec - a.tv_nsec) * 1e-9;
        times.audio += f.decode.info.seconds;
        times.decode += f.decode_seconds;
        times.fingerprint += f.fingerprint_seconds;
        g_texts[static_cast<size_t>(n)] = f.text;
    });
    const double cpu = times.decode + times.fingerprint + times.store;
    std::printf("\n## Fingerprinting %d songs into the catalogue (%.0f s of audio, %.0f s wall on %d threads)\n\n",
                g_options.songs, times.audio, now() - start, g_options.jobs);
    std::printf("| stage | CPU seconds | x real time on one core |\n|---|---|---|\n");
    std::printf("| decoding (FLAC) and conversion to 11025 Hz mono | %.1f | %.0fx |\n", times.decode, times.audio / times.decode);
    std::printf("| fingerprint (module and host service) | %.1f | %.0fx |\n", times.fingerprint, times.audio / times.fingerprint);
    std::printf("| storing with the index | %.1f | %.0fx |\n", times.store, times.audio / times.store);
    std::printf("| all | %.1f | %.0fx |\n", cpu, times.audio / cpu);
    struct stat st {};
    stat(path.c_str(), &st);
    zelto_catalogue_fingerprint_info info{};
    zelto_catalogue_fingerprint_counts(g_catalogue, &info);
    std::printf("\ncatalogue: %llu fingerprints, %llu index postings, %.1f MB\n",
                static_cast<unsigned long long>(info.fingerprints), static_cast<unsigned long long>(info.postings),
                static_cast<double>(st.st_size) / 1e6);
}

// ---- 3. Accuracy --------------------------------------------------------------------

struct Answer {
    std::string title;  // first answer's matched track, empty for no match
    uint32_t score = 0;
    int64_t offset_ms = 0;
    bool any_wrong = false;
    double seconds = 0;  // the find operation, wall
};

std::string value(zelto_rvo_handle o, const char *key) {
    const char *v = nullptr;
    return o && zelto_manager_rvo_value_get(o, key, 1, &v) == 0 && v ? v : "";
}
zelto_rvo_handle child(zelto_rvo_handle o, const char *key, uint32_t ordinal = 1) {
    zelto_rvo_handle c = nullptr;
    if (!o || zelto_manager_rvo_child_get(o, key, ordinal, 0, &c) != 0) return nullptr;
    return c;
}
std::string title(zelto_rvo_handle o) {
    zelto_rvo_handle t = child(o, "zelto_ctx_title!off");
    std::string text = value(t, "zelto_val_display");
    zelto_manager_rvo_release(t);
    return text;
}

// The find operation on a query that holds a fingerprint, and its answers.
Answer find(zelto_cantrix_query_handle query, const std::string &expected) {
    Answer a;
    zelto_rvo_handle response = nullptr;
    const double start = now();
    const uint32_t status = zelto_cantrix_query_find_albums(query, &response);
    a.seconds = now() - start;
    if (status != 0) {
        std::fprintf(stderr, "find failed: 0x%08X\n", status);
        return a;
    }
    uint32_t rows = 0;
    zelto_manager_rvo_child_count(response, "zelto_ctx_album!", &rows);
    for (uint32_t i = 1; i <= rows; ++i) {
        zelto_rvo_handle album = child(response, "zelto_ctx_album!", i);
        zelto_rvo_handle track = child(album, "zelto_ctx_track!matching");
        const std::string t = title(track);
        if (i == 1) {
            a.title = t;
            a.score = static_cast<uint32_t>(std::atoi(value(track, ZELTO_CATALOGUE_VAL_FP_SCORE).c_str()));
            a.offset_ms = std::atoll(value(track, ZELTO_CATALOGUE_VAL_FP_OFFSET).c_str());
        }
        if (t != expected) a.any_wrong = true;
        zelto_manager_rvo_release(track);
        zelto_manager_rvo_release(album);
    }
    zelto_manager_rvo_release(response);
    return a;
}

struct Tally {
    int queries = 0, right = 0, wrong = 0, none = 0, any_wrong = 0, refused = 0;
    std::vector<double> offset_errors_ms, scores, lookup_ms;
};

double percentile(std::vector<double> v, double p) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5))];
}

// Every query of the corpus through the find operation. A query's offset
// is where its audio starts in the track, ms (NaN where not checked).
void query_files(std::map<std::string, Tally> &tallies) {
    struct Query {
        std::string group, file, expected;
        double offset_ms;
    };
    std::vector<Query> queries;
    for (int n = 1; n <= g_options.songs; ++n) {
        const std::string name = song_name(n);
        const fs::path dir = g_options.corpus / "songs";
        for (const Variant &v : kVariants) {
            const double offset = std::string(v.name) == "silence_5s_before" ? -5000 : std::string(v.name) == "first_3s_cut" ? 3000 : 0;
            queries.push_back({v.name, (dir / (name + "." + v.name + "." + v.ext)).string(), title_of(n), offset});
        }
        std::ifstream in(dir / (name + ".done"));
        double seconds = 0, length = 0, at = 0;
        in >> seconds;
        while (in >> length >> at)
            queries.push_back({"excerpt_" + std::to_string(static_cast<int>(length)) + "s",
                               (dir / (name + ".x" + std::to_string(static_cast<int>(length)) + ".mp3")).string(),
                               title_of(n), at * 1000});
    }
    for (int n = 1; n <= g_options.unknown; ++n) {
        const std::string name = "u" + song_name(n).substr(1);
        const fs::path dir = g_options.corpus / "unknown";
        queries.push_back({"unknown_whole", (dir / (name + ".whole.mp3")).string(), "", NAN});
        for (double length : kExcerpts)
            queries.push_back({"unknown_excerpt_" + std::to_string(static_cast<int>(length)) + "s",
                               (dir / (name + ".x" + std::to_string(static_cast<int>(length)) + ".mp3")).string(), "", NAN});
    }
    std::mutex mutex;
    std::atomic<int> done{0};
    const double start = now();
    audio::Limits limits;
    limits.max_seconds = 600;  // as `cantrix identify --audio`
    parallel(0, static_cast<int>(queries.size()), g_options.jobs, [&](int i) {
        thread_local Session session;
        const Query &q = queries[static_cast<size_t>(i)];
        const audio::Fingerprinted f = audio::fingerprint_file(session.query, q.file, limits);
        Answer a;
        if (f.decode.ok) a = find(session.query, q.expected);
        std::lock_guard<std::mutex> guard(mutex);
        Tally &t = tallies[q.group];
        ++t.queries;
        if (!f.decode.ok) {
            ++t.refused;
            std::fprintf(stderr, "%s: %s\n", q.file.c_str(), f.decode.error.c_str());
            return;
        }
        t.lookup_ms.push_back(a.seconds * 1000);
        if (a.title.empty()) ++t.none;
        else if (a.title == q.expected) ++t.right;
        else ++t.wrong;
        if (a.any_wrong && !a.title.empty()) ++t.any_wrong;
        if (!a.title.empty()) t.scores.push_back(a.score);
        if (a.title == q.expected && !std::isnan(q.offset_ms)) t.offset_errors_ms.push_back(std::fabs(static_cast<double>(a.offset_ms) - q.offset_ms));
        if (++done % 1000 == 0) std::fprintf(stderr, "queries: %d of %zu (%.0f s)\n", done.load(), queries.size(), now() - start);
    });
}

void report_accuracy(const std::map<std::string, Tally> &tallies) {
    std::printf("\n## Accuracy (%d songs in the catalogue, %d songs not in it)\n\n", g_options.songs, g_options.unknown);
    std::printf("| queries | n | right first (recall) | wrong first | no match | with any wrong track | median score | offset error median / max ms | lookup median / p95 ms |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|\n");
    std::vector<std::string> order;
    for (const Variant &v : kVariants) order.push_back(v.name);
    for (double length : kExcerpts) order.push_back("excerpt_" + std::to_string(static_cast<int>(length)) + "s");
    order.push_back("unknown_whole");
    for (double length : kExcerpts) order.push_back("unknown_excerpt_" + std::to_string(static_cast<int>(length)) + "s");
    for (const std::string &name : order) {
        auto it = tallies.find(name);
        if (it == tallies.end()) continue;
        const Tally &t = it->second;
        const double n = t.queries;
        const bool unknown = name.rfind("unknown", 0) == 0;
        std::printf("| %s | %d | %s | %d | %d (%.2f%%) | %d | %.0f | %.0f / %.0f | %.1f / %.1f |\n", name.c_str(), t.queries,
                    unknown ? "-" : (std::to_string(t.right) + " (" + std::to_string(100.0 * t.right / n).substr(0, 5) + "%)").c_str(),
                    t.wrong, t.none, 100.0 * t.none / n, t.any_wrong, percentile(t.scores, 0.5),
                    percentile(t.offset_errors_ms, 0.5), percentile(t.offset_errors_ms, 1.0),
                    percentile(t.lookup_ms, 0.5), percentile(t.lookup_ms, 0.95));
        if (t.refused) std::printf("|  (%d files refused by the decoder) | | | | | | | | |\n", t.refused);
    }
    std::fflush(stdout);
}

// ---- 4. Speed -------------------------------------------------------------------------

// Decoded samples of one song, for the fingerprinting runs.
const std::vector<int16_t> &decoded_song() {
    static const std::vector<int16_t> samples = [] {
        std::vector<int16_t> out;
        audio::decode_file((g_options.corpus / "songs" / (song_name(1) + ".mp3_320k.mp3")).string(), {},
                           [&](const int16_t *s, size_t n) {
                               out.insert(out.end(), s, s + n);
                               return true;
                           });
        return out;
    }();
    return samples;
}

void BM_Decode(benchmark::State &state) {
    const std::string file = (g_options.corpus / "songs" / (song_name(1) + ".mp3_320k.mp3")).string();
    double seconds = 0;
    for (auto _ : state) {
        const auto r = audio::decode_file(file, {}, [](const int16_t *, size_t) { return true; });
        seconds = r.info.seconds;
    }
    state.counters["x_real_time"] = benchmark::Counter(seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_FingerprintModule(benchmark::State &state) {
    const auto &samples = decoded_song();
    Session session;
    for (auto _ : state) {
        zelto_cantrix_query_fingerprint_begin(session.query, audio::kFingerprintKind, audio::kOutputRate, 16, 1);
        for (size_t at = 0; at < samples.size(); at += 4096)
            zelto_cantrix_query_fingerprint_write(session.query, samples.data() + at,
                                                  static_cast<uint32_t>(std::min<size_t>(4096, samples.size() - at) * 2), nullptr);
        zelto_cantrix_query_fingerprint_end(session.query);
        const char *text = nullptr;
        zelto_cantrix_query_get_fp_data(session.query, &text);
        benchmark::DoNotOptimize(text);
    }
    state.counters["x_real_time"] = benchmark::Counter(
        static_cast<double>(samples.size()) / audio::kOutputRate * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_FingerprintChromaprint(benchmark::State &state) {
    const auto &samples = decoded_song();
    for (auto _ : state) {
        ChromaprintContext *c = chromaprint_new(CHROMAPRINT_ALGORITHM_TEST2);
        chromaprint_start(c, static_cast<int>(audio::kOutputRate), 1);
        for (size_t at = 0; at < samples.size(); at += 4096)
            chromaprint_feed(c, samples.data() + at, static_cast<int>(std::min<size_t>(4096, samples.size() - at)));
        chromaprint_finish(c);
        char *text = nullptr;
        chromaprint_get_fingerprint(c, &text);
        benchmark::DoNotOptimize(text);
        chromaprint_dealloc(text);
        chromaprint_free(c);
    }
    state.counters["x_real_time"] = benchmark::Counter(
        static_cast<double>(samples.size()) / audio::kOutputRate * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// Query texts for the lookup runs: 30 s excerpts and whole MP3 files of
// known songs, in turn.
const std::vector<std::string> &lookup_texts() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> out;
        Session session;
        for (int n = 1; n <= std::min(g_options.songs, 100); ++n) {
            const std::string name = song_name(n);
            for (const std::string &file : {name + ".x30.mp3", name + ".mp3_64k.mp3"}) {
                const auto f = audio::fingerprint_file(session.query, (g_options.corpus / "songs" / file).string(), {});
                if (f.decode.ok) out.push_back(f.text);
            }
        }
        return out;
    }();
    return texts;
}

void lookup_loop(benchmark::State &state, zelto_catalogue *catalogue) {
    zelto_catalogue_install(catalogue, 0);
    const auto &texts = lookup_texts();
    Session session;
    size_t i = 0, found = 0;
    for (auto _ : state) {
        zelto_cantrix_query_set_fp_data(session.query, texts[i++ % texts.size()].c_str(), audio::kFingerprintKind);
        zelto_rvo_handle response = nullptr;
        zelto_cantrix_query_find_albums(session.query, &response);
        uint32_t rows = 0;
        zelto_manager_rvo_child_count(response, "zelto_ctx_album!", &rows);
        found += rows != 0;
        zelto_manager_rvo_release(response);
    }
    state.counters["found"] = static_cast<double>(found) / static_cast<double>(state.iterations());
    zelto_catalogue_install(g_catalogue, 0);
}

void BM_Lookup(benchmark::State &state) {
    zelto_catalogue *catalogue = g_catalogue;
    const size_t index = static_cast<size_t>(state.range(0));
    if (index > 0) {
        if (zelto_catalogue_open(g_options.catalogues[index - 1].c_str(), 0, &catalogue) != 0) {
            state.SkipWithError("cannot open catalogue");
            return;
        }
    }
    zelto_catalogue_fingerprint_info info{};
    zelto_catalogue_fingerprint_counts(catalogue, &info);
    state.SetLabel(std::to_string(info.fingerprints) + " fingerprints");
    lookup_loop(state, catalogue);
    if (catalogue != g_catalogue) zelto_catalogue_close(catalogue);
}

// The peer: every stored fingerprint in memory, the query slid over each
// at every offset, the best bit error rate over at least 40 items wins.
void BM_BruteForce(benchmark::State &state) {
    static const std::vector<std::vector<uint32_t>> stored = [] {
        std::vector<std::vector<uint32_t>> out;
        for (const std::string &t : g_texts) {
            const size_t at = t.find("FINGERPRINT=");
            if (at == std::string::npos) continue;
            uint32_t *raw = nullptr;
            int size = 0, algorithm = 0;
            const std::string data = t.substr(at + 12);
            if (chromaprint_decode_fingerprint(data.c_str(), static_cast<int>(data.size()), &raw, &size, &algorithm, 1)) {
                out.emplace_back(raw, raw + size);
                chromaprint_dealloc(raw);
            }
        }
        return out;
    }();
    std::vector<std::vector<uint32_t>> queries;
    for (const std::string &t : lookup_texts()) {
        const size_t at = t.find("FINGERPRINT=");
        uint32_t *raw = nullptr;
        int size = 0, algorithm = 0;
        const std::string data = t.substr(at + 12);
        if (chromaprint_decode_fingerprint(data.c_str(), static_cast<int>(data.size()), &raw, &size, &algorithm, 1)) {
            queries.emplace_back(raw, raw + size);
            chromaprint_dealloc(raw);
        }
    }
    size_t i = 0;
    for (auto _ : state) {
        const auto &q = queries[i++ % queries.size()];
        double best = 1;
        for (const auto &s : stored)
            for (long off = -static_cast<long>(q.size()) + 40; off < static_cast<long>(s.size()) - 40; ++off) {
                uint64_t bits = 0, n = 0;
                for (size_t j = static_cast<size_t>(std::max(0L, -off)); j < q.size() && static_cast<long>(j) + off < static_cast<long>(s.size()); ++j, ++n)
                    bits += static_cast<uint64_t>(std::popcount(q[j] ^ s[static_cast<size_t>(static_cast<long>(j) + off)]));
                if (n >= 40) best = std::min(best, static_cast<double>(bits) / (32.0 * static_cast<double>(n)));
            }
        benchmark::DoNotOptimize(best);
    }
    state.SetLabel(std::to_string(stored.size()) + " fingerprints");
}

}  // namespace

int main(int argc, char **argv) {
    std::vector<char *> rest = {argv[0]};
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto next = [&]() -> std::string { return i + 1 < argc ? argv[++i] : ""; };
        if (a == "--corpus") g_options.corpus = next();
        else if (a == "--songs") g_options.songs = std::atoi(next().c_str());
        else if (a == "--unknown") g_options.unknown = std::atoi(next().c_str());
        else if (a == "--jobs") g_options.jobs = std::max(1, std::atoi(next().c_str()));
        else if (a == "--catalogues") {
            std::stringstream list(next());
            for (std::string item; std::getline(list, item, ',');)
                if (!item.empty()) g_options.catalogues.push_back(item);
        } else rest.push_back(argv[i]);
    }
    if (g_options.corpus.empty()) {
        std::fprintf(stderr, "usage: bench_audio_match --corpus DIR [--songs N] [--unknown N] [--jobs N] [--catalogues F,...]\n");
        return 2;
    }
    make_corpus();
    zelto_cantrix_initialize(zelto_manager_get_table());
    build_catalogue(g_options.corpus / "bench.catalogue");
    zelto_catalogue_install(g_catalogue, 0);
    std::map<std::string, Tally> tallies;
    query_files(tallies);
    report_accuracy(tallies);

    benchmark::RegisterBenchmark("BM_Decode/mp3_320k", BM_Decode)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("BM_FingerprintModule", BM_FingerprintModule)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("BM_FingerprintChromaprint", BM_FingerprintChromaprint)->Unit(benchmark::kMillisecond);
    auto *lookup = benchmark::RegisterBenchmark("BM_Lookup", BM_Lookup)->Unit(benchmark::kMillisecond);
    for (size_t i = 0; i <= g_options.catalogues.size(); ++i) lookup->Arg(static_cast<int64_t>(i));
    benchmark::RegisterBenchmark("BM_BruteForce", BM_BruteForce)->Unit(benchmark::kMillisecond)->Iterations(5);
    int bargc = static_cast<int>(rest.size());
    benchmark::Initialize(&bargc, rest.data());
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios({{"BM_FingerprintModule", "BM_FingerprintChromaprint", "fingerprint: module and host vs Chromaprint alone"},
                           {"BM_Lookup/0", "BM_BruteForce/iterations:5", "lookup in the corpus catalogue vs brute-force scan"}});
    benchmark::Shutdown();
    zelto_catalogue_close(g_catalogue);
    zelto_cantrix_shutdown();
    return 0;
}
