// Identification of audio files against the local catalogue, measured on a
// generated corpus: accuracy per variant and for excerpts, the speed of
// fingerprinting, and the time of a lookup at growing catalogue sizes.
//
//   bench_audio_match --corpus DIR [--songs 1000] [--variants 1000] [--unknown 250]
//                     [--jobs 2] [--catalogues FILE,FILE...] [benchmark options]
//
// 1. Corpus (made once; DIR keeps a record per song, resumable): synthetic
//    songs of 2 to 5 minutes (tests/support/synth_song.h, seeds 1..N) as
//    FLAC originals, and for each the variants a real library holds,
//    encoded by the ffmpeg program: MP3 at 64 and 320 kbit/s, AAC at 96,
//    Opus at 48, gain of -6 and +6 dB, 5 s of silence before, the first
//    3 s cut, mono, 22.05 kHz; excerpts of 20 and 30 s at random offsets
//    (MP3 at 128 kbit/s); songs the catalogue does not hold (seeds from
//    100001) as whole MP3 files and excerpts. Every file is decoded and
//    fingerprinted through the module as `cantrix` does it, timed per
//    stage, and the record keeps the texts.
// 2. Catalogue: the originals' fingerprints stored as `cantrix catalogue
//    fingerprint` stores them (linked to tracks made from their tags).
// 3. Accuracy: every variant and excerpt of every song, and every unknown
//    query, set as fingerprint data and looked up through
//    zelto_cantrix_query_find_albums and the catalogue provider. Recall is the share whose first answer is the right track;
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
    int songs = 1000, unknown = 250, variants = 1000, jobs = 2;
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

// ---- 1. Corpus ------------------------------------------------------------------
//
// The audio of a song is made in a folder of its own, fingerprinted, and
// removed again (a thousand songs with their variants would fill 150 GB);
// what stays is a record per song with the fingerprint texts. Song 1's
// files stay for the speed runs.

struct QueryRecord {
    std::string group, expected, text;
    double offset_ms = NAN;  // where the query's audio starts in the track
    bool refused = false;
};

struct SongRecord {
    int number = 0;
    bool known = true;
    double seconds = 0;
    std::string original;  // fingerprint text of the original (known songs)
    std::vector<QueryRecord> queries;
    double decode_cpu = 0, fingerprint_cpu = 0, audio_seconds = 0;  // of the original
};

// Record of song n: "s0001.txt" (original and excerpts), "s0001.var.txt"
// (the variants), "u0001.txt" (a song the catalogue does not hold).
fs::path record_path(int n, bool known, bool variants = false) {
    return g_options.corpus / (known ? "songs" : "unknown") /
           ((known ? "s" : "u") + song_name(n).substr(1) + (variants ? ".var.txt" : ".txt"));
}

// Records are lines "KEY\tVALUE..." with the texts' newlines written as "|".
void save(const SongRecord &r, bool variants) {
    auto flat = [](std::string t) {
        for (char &c : t)
            if (c == '\n') c = '|';
        return t;
    };
    const fs::path path = record_path(r.number, r.known, variants);
    std::ofstream out(path.string() + ".part");
    if (!variants)
        out << "seconds\t" << r.seconds << "\ncpu\t" << r.decode_cpu << "\t" << r.fingerprint_cpu << "\t"
            << r.audio_seconds << "\noriginal\t" << flat(r.original) << "\n";
    for (const QueryRecord &q : r.queries)
        out << "query\t" << q.group << "\t" << q.expected << "\t" << q.offset_ms << "\t" << q.refused << "\t"
            << flat(q.text) << "\n";
    out.close();
    fs::rename(path.string() + ".part", path);
}

// Reads a record into `r` (queries are appended); false if there is none.
bool load(int n, bool known, bool variants, SongRecord &r) {
    std::ifstream in(record_path(n, known, variants));
    if (!in) return false;
    r.number = n;
    r.known = known;
    auto unflat = [](std::string t) {
        for (char &c : t)
            if (c == '|') c = '\n';
        return t;
    };
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> f;
        std::stringstream ss(line);
        for (std::string part; std::getline(ss, part, '\t');) f.push_back(part);
        if (f.empty()) continue;
        if (f[0] == "seconds" && f.size() > 1) r.seconds = std::atof(f[1].c_str());
        else if (f[0] == "cpu" && f.size() > 3) {
            r.decode_cpu = std::atof(f[1].c_str());
            r.fingerprint_cpu = std::atof(f[2].c_str());
            r.audio_seconds = std::atof(f[3].c_str());
        } else if (f[0] == "original" && f.size() > 1) r.original = unflat(f[1]);
        else if (f[0] == "query" && f.size() >= 5) {
            QueryRecord q;
            q.group = f[1];
            q.expected = f[2];
            q.offset_ms = f[3] == "nan" ? NAN : std::atof(f[3].c_str());
            q.refused = f[4] == "1";
            q.text = f.size() > 5 ? unflat(f[5]) : "";
            r.queries.push_back(q);
        }
    }
    return true;
}

// Makes the files of one pass over a song with one ffmpeg run, fingerprints
// them and keeps the record. The first pass makes the original and the
// excerpts (a known song) or the whole file and the excerpts (an unknown
// one); the second the variants of a known song.
void make_song(int n, bool known, bool variants) {
    SongRecord record;
    if (load(n, known, variants, record)) return;
    record = SongRecord{};
    record.number = n;
    record.known = known;
    const std::string name = (known ? "s" : "u") + song_name(n).substr(1);
    const fs::path dir = g_options.corpus / "work" / name;
    fs::create_directories(dir);
    const uint64_t seed = known ? static_cast<uint64_t>(n) : 100000u + static_cast<uint64_t>(n);
    const synth::Song song = synth::make_song(seed);
    record.seconds = song.seconds();
    const fs::path wav = dir / "song.wav";
    synth::write_wav(wav.string(), synth::to_s16(song.samples), song.rate, song.channels);
    std::ostringstream cmd;
    cmd << "ffmpeg -nostdin -v error -y -i '" << wav.string() << "'";
    struct Planned {
        std::string group, file;
        double offset_ms;
    };
    std::vector<Planned> planned;
    auto out = [&](const std::string &args, const std::string &file) { cmd << " " << args << " '" << (dir / file).string() << "'"; };
    if (variants) {
        for (const Variant &v : kVariants) {
            const std::string file = std::string(v.name) + "." + v.ext;
            out(v.args, file);
            const std::string group = v.name;
            planned.push_back({group, file, group == "silence_5s_before" ? -5000.0 : group == "first_3s_cut" ? 3000.0 : 0.0});
        }
    } else {
        if (known) {
            out("-c:a flac -metadata title='" + title_of(n) + "'", "original.flac");
        } else {
            out("-c:a libmp3lame -b:a 128k -compression_level 9", "whole.mp3");
            planned.push_back({"unknown_whole", "whole.mp3", NAN});
        }
        for (double length : kExcerpts) {
            const double at = excerpt_offset(n, length, song.seconds());
            char args[96];
            std::snprintf(args, sizeof args, "-ss %.3f -t %.0f -c:a libmp3lame -b:a 128k -compression_level 9", at, length);
            const std::string file = "x" + std::to_string(static_cast<int>(length)) + ".mp3";
            out(args, file);
            planned.push_back({std::string(known ? "" : "unknown_") + "excerpt_" + std::to_string(static_cast<int>(length)) + "s",
                               file, known ? at * 1000 : NAN});
        }
    }
    if (!run(cmd.str())) std::fprintf(stderr, "ffmpeg failed for %s\n", name.c_str());
    fs::remove(wav);

    thread_local Session session;
    audio::Limits query_limits;
    query_limits.max_seconds = audio::kIdentifySeconds;  // as `cantrix identify --audio`
    if (known && !variants) {
        const auto f = audio::fingerprint_file(session.query, (dir / "original.flac").string(), {});
        if (!f.decode.ok) std::fprintf(stderr, "%s original: %s\n", name.c_str(), f.decode.error.c_str());
        record.original = f.text;
        record.decode_cpu = f.decode_seconds;
        record.fingerprint_cpu = f.fingerprint_seconds;
        record.audio_seconds = f.decode.info.seconds;
    }
    for (const Planned &p : planned) {
        const auto f = audio::fingerprint_file(session.query, (dir / p.file).string(), query_limits);
        QueryRecord q{p.group, known ? title_of(n) : "", f.text, p.offset_ms, !f.decode.ok};
        if (!f.decode.ok) std::fprintf(stderr, "%s %s: %s\n", name.c_str(), p.file.c_str(), f.decode.error.c_str());
        record.queries.push_back(q);
    }
    save(record, variants);
    if (!(known && n == 1)) fs::remove_all(dir);
}

// Originals and excerpts of all songs and the unknown songs first, then the
// variants song by song: a run stopped early leaves a full catalogue and
// the variants of the songs done so far (the report counts what exists).
void make_corpus() {
    fs::create_directories(g_options.corpus / "songs");
    fs::create_directories(g_options.corpus / "unknown");
    const double start = now();
    std::atomic<int> made{0};
    auto pass = [&](const char *what, int count, bool known, bool variants) {
        made = 0;
        parallel(1, count + 1, g_options.jobs, [&](int n) {
            make_song(n, known, variants);
            if (++made % 50 == 0) std::fprintf(stderr, "corpus %s: %d of %d (%.0f s)\n", what, made.load(), count, now() - start);
        });
    };
    pass("originals", g_options.songs, true, false);
    pass("unknown songs", g_options.unknown, false, false);
    pass("variants", g_options.variants, true, true);
    std::fprintf(stderr, "corpus ready in %.0f s\n", now() - start);
}

fs::path song_file(const std::string &file) { return g_options.corpus / "work" / "s0001" / file; }

zelto_catalogue *g_catalogue = nullptr;
std::vector<SongRecord> g_songs, g_unknown;

// ---- 2. Catalogue -----------------------------------------------------------------

void build_catalogue(const fs::path &path) {
    for (const char *tail : {"", "-wal", "-shm"}) fs::remove(path.string() + tail);
    if (zelto_catalogue_open(path.c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &g_catalogue) != 0) std::exit(1);
    double audio = 0, decode = 0, fingerprint = 0, store = 0;
    const double start = now();
    for (const SongRecord &r : g_songs) {
        const int n = r.number;
        const std::string title = title_of(n), album = "Corpus " + std::to_string((n - 1) / 10 + 1);
        zelto_catalogue_audio_tags tags{};
        tags.title = title.c_str();
        tags.artist = "Corpus Artist";
        tags.album = album.c_str();
        tags.track_number = static_cast<uint32_t>((n - 1) % 10 + 1);
        const std::string content = "bench-" + std::to_string(n);
        zelto_catalogue_fingerprint_entry e{r.original.c_str(), content.c_str(), content.c_str(), nullptr, &tags};
        timespec a{}, b{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
        if (zelto_catalogue_fingerprint_add(g_catalogue, &e, nullptr) != 0)
            std::fprintf(stderr, "song %d: %s\n", n, zelto_catalogue_last_message(g_catalogue));
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
        store += static_cast<double>(b.tv_sec - a.tv_sec) + static_cast<double>(b.tv_nsec - a.tv_nsec) * 1e-9;
        audio += r.audio_seconds;
        decode += r.decode_cpu;
        fingerprint += r.fingerprint_cpu;
    }
    const double cpu = decode + fingerprint + store;
    std::printf("\n## Fingerprinting %zu songs into the catalogue (%.0f s of audio; store %.0f s wall)\n\n",
                g_songs.size(), audio, now() - start);
    std::printf("| stage | CPU seconds | x real time on one core |\n|---|---|---|\n");
    std::printf("| decoding (FLAC) and conversion to 11025 Hz mono | %.1f | %.0fx |\n", decode, audio / decode);
    std::printf("| fingerprint (module and host service) | %.1f | %.0fx |\n", fingerprint, audio / fingerprint);
    std::printf("| storing with the index | %.1f | %.0fx |\n", store, audio / store);
    std::printf("| all | %.1f | %.0fx |\n", cpu, audio / cpu);
    zelto_catalogue_fingerprint_info info{};
    zelto_catalogue_fingerprint_counts(g_catalogue, &info);
    zelto_catalogue_close(g_catalogue);  // written out, then opened again for the lookups
    std::printf("\ncatalogue: %llu fingerprints, %llu index postings, %.1f MB\n",
                static_cast<unsigned long long>(info.fingerprints), static_cast<unsigned long long>(info.postings),
                static_cast<double>(fs::file_size(path)) / 1e6);
    if (zelto_catalogue_open(path.c_str(), 0, &g_catalogue) != 0) std::exit(1);
}

// ---- 3. Accuracy --------------------------------------------------------------------

struct Answer {
    std::string title;  // first answer's matched track, empty for no match
    uint32_t score = 0;
    int64_t offset_ms = 0;
    bool any_wrong = false;
    double seconds = 0;  // the find operation, CPU time of the thread (the machine may be shared)
};

double thread_cpu() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

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

// The album find with a fingerprint text set as data, as `cantrix identify
// --audio` runs it after fingerprinting, and its answers.
Answer find(zelto_cantrix_query_handle query, const std::string &text, const std::string &expected) {
    Answer a;
    zelto_rvo_handle response = nullptr;
    const double start = thread_cpu();
    uint32_t status = zelto_cantrix_query_set_fp_data(query, text.c_str(), audio::kFingerprintKind);
    if (status == 0) status = zelto_cantrix_query_find_albums(query, &response);
    a.seconds = thread_cpu() - start;
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

void run_queries(std::map<std::string, Tally> &tallies) {
    std::vector<const QueryRecord *> queries;
    for (const auto *set : {&g_songs, &g_unknown})
        for (const SongRecord &r : *set)
            for (const QueryRecord &q : r.queries) queries.push_back(&q);
    std::mutex mutex;
    parallel(0, static_cast<int>(queries.size()), g_options.jobs, [&](int i) {
        thread_local Session session;
        const QueryRecord &q = *queries[static_cast<size_t>(i)];
        Answer a;
        if (!q.refused) a = find(session.query, q.text, q.expected);
        std::lock_guard<std::mutex> guard(mutex);
        Tally &t = tallies[q.group];
        ++t.queries;
        if (q.refused) {
            ++t.refused;
            return;
        }
        t.lookup_ms.push_back(a.seconds * 1000);
        if (a.title.empty()) ++t.none;
        else if (a.title == q.expected) ++t.right;
        else ++t.wrong;
        if (a.any_wrong && !a.title.empty()) ++t.any_wrong;
        if (!a.title.empty()) t.scores.push_back(a.score);
        if (a.title == q.expected && !std::isnan(q.offset_ms))
            t.offset_errors_ms.push_back(std::fabs(static_cast<double>(a.offset_ms) - q.offset_ms));
    });
}

void report_accuracy(const std::map<std::string, Tally> &tallies) {
    std::printf("\n## Accuracy (%zu songs in the catalogue, %zu songs not in it)\n\n", g_songs.size(), g_unknown.size());
    std::printf("| queries | n | right first (recall) | wrong first | no match | with a wrong track among the answers | score median / min | offset error median / max ms (over 1 s) | lookup CPU median / p95 ms |\n");
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
        char recall[48] = "-";
        if (!unknown) std::snprintf(recall, sizeof recall, "%d (%.2f%%)", t.right, 100.0 * t.right / n);
        std::printf("| %s | %d | %s | %d | %d (%.2f%%) | %d | %.0f / %.0f | %.0f / %.0f (%d) | %.1f / %.1f |\n", name.c_str(),
                    t.queries, recall, t.wrong, t.none, 100.0 * t.none / n, t.any_wrong, percentile(t.scores, 0.5), percentile(t.scores, 0.0),
                    percentile(t.offset_errors_ms, 0.5), percentile(t.offset_errors_ms, 1.0),
                    static_cast<int>(std::count_if(t.offset_errors_ms.begin(), t.offset_errors_ms.end(), [](double e) { return e > 1000; })),
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
        audio::decode_file(song_file("mp3_320k.mp3").string(), {},
                           [&](const int16_t *s, size_t n) {
                               out.insert(out.end(), s, s + n);
                               return true;
                           });
        return out;
    }();
    return samples;
}

void BM_Decode(benchmark::State &state) {
    const std::string file = song_file("mp3_320k.mp3").string();
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

// Query texts for the lookup runs: the 30 s excerpts and the 64 kbit/s MP3
// files of the first 100 songs, in turn.
const std::vector<std::string> &lookup_texts() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> out;
        for (size_t i = 0; i < g_songs.size() && i < 100; ++i)
            for (const QueryRecord &q : g_songs[i].queries)
                if ((q.group == "excerpt_30s" || q.group == "mp3_64k") && !q.refused) out.push_back(q.text);
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
        for (const SongRecord &r : g_songs) {
            const std::string &t = r.original;
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
        else if (a == "--variants") g_options.variants = std::atoi(next().c_str());
        else if (a == "--jobs") g_options.jobs = std::max(1, std::atoi(next().c_str()));
        else if (a == "--catalogues") {
            std::stringstream list(next());
            for (std::string item; std::getline(list, item, ',');)
                if (!item.empty()) g_options.catalogues.push_back(item);
        } else rest.push_back(argv[i]);
    }
    if (g_options.corpus.empty()) {
        std::fprintf(stderr, "usage: bench_audio_match --corpus DIR [--songs N] [--variants N] [--unknown N] [--jobs N] [--catalogues F,...]\n");
        return 2;
    }
    zelto_cantrix_initialize(zelto_manager_get_table());
    make_corpus();
    g_options.variants = std::min(g_options.variants, g_options.songs);
    for (int n = 1; n <= g_options.songs; ++n) {
        SongRecord r;
        if (!load(n, true, false, r) || r.original.empty()) continue;
        load(n, true, true, r);
        g_songs.push_back(std::move(r));
    }
    for (int n = 1; n <= g_options.unknown; ++n) {
        SongRecord r;
        if (load(n, false, false, r)) g_unknown.push_back(std::move(r));
    }
    build_catalogue(g_options.corpus / "bench.catalogue");
    zelto_catalogue_install(g_catalogue, 0);
    std::map<std::string, Tally> tallies;
    run_queries(tallies);
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
