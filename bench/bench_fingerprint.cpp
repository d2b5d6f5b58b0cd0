// Fingerprinting three minutes of 44.1 kHz stereo 16-bit music through the
// module and the host's signal-processing service, against Chromaprint
// called directly on the same samples in the same run. Both write the audio
// in the same pieces (one second, or all at once) and end with the encoded
// fingerprint. The ratio of the two times is printed at the end; the
// budget is 1.05.
#include <benchmark/benchmark.h>

#include <chromaprint.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/bench_ratio.h"
#include "tests/support/test_audio.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_host_services.h"
#include "zelto/zelto_manager.h"

namespace {

constexpr uint32_t kRate = 44100;
constexpr uint32_t kChannels = 2;

const std::vector<int16_t> &music() {
    static const std::vector<int16_t> samples = [] {
        const auto pcm = test_audio::pcm(test_audio::Signal::chords, kRate, kChannels, 16, 180);
        std::vector<int16_t> out(pcm.size() / 2);
        std::memcpy(out.data(), pcm.data(), pcm.size());
        return out;
    }();
    return samples;
}

// Samples per write: one second of audio, or everything (range 0).
size_t piece(const benchmark::State &state) {
    return state.range(0) == 0 ? music().size() : static_cast<size_t>(state.range(0)) * kRate * kChannels;
}

void BM_Chromaprint(benchmark::State &state) {
    const auto &samples = music();
    const size_t step = piece(state);
    size_t length = 0;
    for (auto _ : state) {
        ChromaprintContext *ctx = chromaprint_new(CHROMAPRINT_ALGORITHM_TEST2);
        chromaprint_start(ctx, kRate, kChannels);
        for (size_t at = 0; at < samples.size(); at += step)
            chromaprint_feed(ctx, samples.data() + at, static_cast<int>(std::min(step, samples.size() - at)));
        chromaprint_finish(ctx);
        char *fingerprint = nullptr;
        chromaprint_get_fingerprint(ctx, &fingerprint);
        length = std::strlen(fingerprint);
        chromaprint_dealloc(fingerprint);
        chromaprint_free(ctx);
    }
    state.counters["fp_chars"] = static_cast<double>(length);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * samples.size() * 2));
}

void BM_ModuleAndHost(benchmark::State &state) {
    const auto &samples = music();
    const size_t step = piece(state);
    zelto_cantrix_initialize(zelto_manager_get_table());
    zelto_user *user = nullptr;
    zelto_manager_user_create("bench", &user);
    zelto_cantrix_query_handle query = nullptr;
    zelto_cantrix_query_create(user, nullptr, nullptr, &query);
    size_t length = 0;
    const int64_t before = zelto_manager_memory_live_blocks();
    for (auto _ : state) {
        if (zelto_cantrix_query_fingerprint_begin(query, ZELTO_CANTRIX_FP_TVX, kRate, 16, kChannels) != 0)
            state.SkipWithError("begin failed");
        for (size_t at = 0; at < samples.size(); at += step)
            zelto_cantrix_query_fingerprint_write(query, samples.data() + at,
                                                  static_cast<uint32_t>(std::min(step, samples.size() - at) * 2),
                                                  nullptr);
        zelto_cantrix_query_fingerprint_end(query);
        const char *text = nullptr;
        zelto_cantrix_query_get_fp_data(query, &text);
        length = text ? std::strlen(text) : 0;
    }
    // What the query holds after end: the generator, the blocks of items
    // with their vector, the kind and the text, but no samples.
    state.counters["heap_blocks_held"] = static_cast<double>(zelto_manager_memory_live_blocks() - before);
    state.counters["text_chars"] = static_cast<double>(length);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * samples.size() * 2));
    zelto_cantrix_query_release(query);
    zelto_manager_user_release(user);
    zelto_cantrix_shutdown();
}

BENCHMARK(BM_Chromaprint)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ModuleAndHost)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->MinTime(1.0);

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    music();  // made once, outside the timings
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const char *arg : {"1", "0"}) {
        const double direct = reporter.time(std::string("BM_Chromaprint/") + arg + "/min_time:1.000");
        const double module = reporter.time(std::string("BM_ModuleAndHost/") + arg + "/min_time:1.000");
        if (direct > 0 && module > 0)
            std::printf("writes of %s: module and host / Chromaprint, CPU time = %.3f (budget 1.05)\n",
                        std::string(arg) == "1" ? "one second" : "all samples", module / direct);
    }
    benchmark::Shutdown();
    return 0;
}
