// Signal-processing service ("_zelto_dsp_interface"): fingerprint generators
// on Chromaprint. A generator converts the application's samples to 16-bit
// on the way in (no copy is kept), feeds Chromaprint, takes the raw
// fingerprint items out as they appear and hands them to the block callback
// in blocks of ZELTO_DSP_BLOCK_ITEMS items, from inside the write call. The
// query text is built from the blocks' items at any time.
//
// Generators, blocks and texts come from ombr_memory_alloc, so the host's
// live-block count and failure injection cover them.
#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "host_internal.h"
#include "ombr/ombr_base.h"
#include "zelto/zelto_host_services.h"

namespace {

std::atomic<uint32_t> g_live_generators{0};
std::atomic<uint32_t> g_live_blocks{0};

}  // namespace

#if CANTRIX_HAVE_CHROMAPRINT

#include <chromaprint.h>

namespace {

constexpr uint32_t kGeneratorMagic = 0x6E4E7A70u;
constexpr uint32_t kBlockMagic = 0x0B10C4F9u;
constexpr uint32_t kStagingSamples = 4096;
constexpr uint32_t kUsefulSeconds = 10;
constexpr uint32_t kFullSeconds = 120;
constexpr uint32_t kMinSampleRate = 1001;  // Chromaprint refuses 1000 Hz and below
constexpr uint32_t kMaxSampleRate = 1000000;

// Chromaprint's context constructor is not reentrant in every FFT build.
std::mutex g_context_mutex;

struct Algorithm {
    uint32_t number;         // what dsp_generator_create is given
    int chromaprint;         // Chromaprint's algorithm
    const char *version;     // its number as Chromaprint's tools count (1-based)
    bool xml;                // query text is the XML description
};
constexpr Algorithm kAlgorithms[] = {
    {1, CHROMAPRINT_ALGORITHM_TEST2, "2", false},
    {3, CHROMAPRINT_ALGORITHM_TEST2, "2", true},
    {5, CHROMAPRINT_ALGORITHM_TEST5, "5", true},
};

const Algorithm *find_algorithm(uint32_t number) {
    for (const Algorithm &a : kAlgorithms)
        if (a.number == number) return &a;
    return nullptr;
}

// Bytes of one sample by sample format number; 0 for an unknown format.
constexpr uint32_t sample_bytes(uint32_t format) {
    return format == ZELTO_DSP_FORMAT_S8 ? 1 : format == ZELTO_DSP_FORMAT_S16 ? 2 : format == ZELTO_DSP_FORMAT_S32 ? 4 : 0;
}

struct Block {
    uint32_t magic;
    uint32_t algorithm;  // generator algorithm number
    uint32_t index;      // 0-based position among the generator's blocks
    uint32_t count;      // items that follow the header
    uint32_t *items() { return reinterpret_cast<uint32_t *>(this + 1); }
    const uint32_t *items() const { return reinterpret_cast<const uint32_t *>(this + 1); }
};

struct Generator {
    uint32_t magic = kGeneratorMagic;
    const Algorithm *algorithm = nullptr;
    uint32_t sample_rate = 0;
    uint32_t format = 0;
    uint32_t channels = 0;
    uint32_t frame_bytes = 0;
    zelto_dsp_block_callback callback = nullptr;
    void *callback_data = nullptr;
    ChromaprintContext *context = nullptr;
    uint64_t frames = 0;        // whole frames fed
    uint8_t carry[8] = {};      // bytes of a frame split across writes
    uint32_t carry_bytes = 0;
    bool ended = false;
    uint32_t blocks_delivered = 0;
    std::vector<uint32_t> pending;  // items not yet accepted by the callback
    size_t pending_start = 0;
    char min_text[12] = {};
    char max_text[12] = {};
    int16_t staging[kStagingSamples];
};

Generator *as_generator(zelto_dsp_generator handle) {
    auto *g = static_cast<Generator *>(handle);
    return g && g->magic == kGeneratorMagic ? g : nullptr;
}

// Items Chromaprint yields for `seconds` of audio: the first needs the
// algorithm's delay, each further one an item's duration.
uint32_t items_for(ChromaprintContext *context, uint32_t seconds) {
    const uint32_t delay = static_cast<uint32_t>(chromaprint_get_delay_ms(context));
    const uint32_t item = static_cast<uint32_t>(chromaprint_get_item_duration_ms(context));
    const uint32_t ms = seconds * 1000;
    return ms < delay || item == 0 ? 0 : (ms - delay) / item + 1;
}

uint32_t blocks_for(uint32_t items) { return (items + ZELTO_DSP_BLOCK_ITEMS - 1) / ZELTO_DSP_BLOCK_ITEMS; }

// Moves the items Chromaprint has computed so far into `pending`.
uint32_t harvest(Generator &g) {
    int size = 0;
    if (!chromaprint_get_raw_fingerprint_size(g.context, &size)) return ZELTO_DSP_FAILED;
    if (size <= 0) return 0;
    uint32_t *raw = nullptr;
    if (!chromaprint_get_raw_fingerprint(g.context, &raw, &size)) return ZELTO_DSP_FAILED;
    g.pending.insert(g.pending.end(), raw, raw + size);
    chromaprint_dealloc(raw);
    return chromaprint_clear_fingerprint(g.context) ? 0 : ZELTO_DSP_FAILED;
}

// Hands full blocks (and with `all` the last short one) to the callback.
// Items stay pending until the callback has accepted their block, so a
// failed delivery is tried again by the next write or end.
uint32_t deliver(Generator &g, bool all) {
    uint32_t status = 0;
    while (status == 0) {
        const size_t available = g.pending.size() - g.pending_start;
        if (available == 0 || (available < ZELTO_DSP_BLOCK_ITEMS && !all)) break;
        const uint32_t count = available < ZELTO_DSP_BLOCK_ITEMS ? static_cast<uint32_t>(available) : ZELTO_DSP_BLOCK_ITEMS;
        auto *block = static_cast<Block *>(ombr_memory_alloc(sizeof(Block) + count * sizeof(uint32_t)));
        if (!block) {
            status = ZELTO_DSP_NO_MEMORY;
            break;
        }
        block->magic = kBlockMagic;
        block->algorithm = g.algorithm->number;
        block->index = g.blocks_delivered;
        block->count = count;
        std::memcpy(block->items(), g.pending.data() + g.pending_start, count * sizeof(uint32_t));
        ++g_live_blocks;
        status = g.callback(g.callback_data, 0, block);
        if (status != 0) {
            block->magic = 0;
            ombr_memory_free(block);
            --g_live_blocks;
            break;
        }
        g.pending_start += count;
        ++g.blocks_delivered;
    }
    if (g.pending_start == g.pending.size()) {
        g.pending.clear();
        g.pending_start = 0;
    }
    return status;
}

bool feed16(Generator &g, const int16_t *samples, size_t count) {
    while (count > 0) {
        const int n = count > static_cast<size_t>(INT_MAX / 2) ? INT_MAX / 2 : static_cast<int>(count);
        if (!chromaprint_feed(g.context, samples, n)) return false;
        samples += n;
        count -= static_cast<size_t>(n);
    }
    return true;
}

// 16-bit value of one sample: 8-bit samples are unsigned around 128 (as in
// WAV files), 16- and 32-bit samples signed, all in native byte order.
int16_t to16(const uint8_t *p, uint32_t format) {
    switch (format) {
        case ZELTO_DSP_FORMAT_S8: return static_cast<int16_t>((static_cast<int>(*p) - 128) * 256);
        case ZELTO_DSP_FORMAT_S16: {
            int16_t v;
            std::memcpy(&v, p, sizeof v);
            return v;
        }
        default: {
            int32_t v;
            std::memcpy(&v, p, sizeof v);
            return static_cast<int16_t>(v >> 16);
        }
    }
}

// Feeds whole frames; aligned 16-bit audio goes to Chromaprint as it is,
// anything else through the staging buffer.
bool feed_frames(Generator &g, const uint8_t *data, size_t frames) {
    const uint32_t bytes = sample_bytes(g.format);
    const size_t samples = frames * g.channels;
    if (g.format == ZELTO_DSP_FORMAT_S16 && reinterpret_cast<uintptr_t>(data) % alignof(int16_t) == 0)
        return feed16(g, reinterpret_cast<const int16_t *>(data), samples);
    const size_t chunk = kStagingSamples - kStagingSamples % g.channels;
    for (size_t done = 0; done < samples;) {
        const size_t n = samples - done < chunk ? samples - done : chunk;
        for (size_t i = 0; i < n; ++i) g.staging[i] = to16(data + (done + i) * bytes, g.format);
        if (!feed16(g, g.staging, n)) return false;
        done += n;
    }
    return true;
}

uint32_t generator_create(uint32_t algorithm, uint32_t sample_rate, uint32_t sample_format, uint32_t channels,
                          uint32_t /*reserved*/, zelto_dsp_block_callback callback, void *callback_data,
                          zelto_dsp_generator *out_generator) {
    if (!callback || !out_generator) return ZELTO_DSP_BAD_ARG;
    const Algorithm *alg = find_algorithm(algorithm);
    if (!alg || sample_bytes(sample_format) == 0 || channels < 1 || channels > 2 || sample_rate < kMinSampleRate ||
        sample_rate > kMaxSampleRate)
        return ZELTO_DSP_UNSUPPORTED;
    void *memory = ombr_memory_alloc(sizeof(Generator));
    if (!memory) return ZELTO_DSP_NO_MEMORY;
    auto *g = new (memory) Generator;
    g->algorithm = alg;
    g->sample_rate = sample_rate;
    g->format = sample_format;
    g->channels = channels;
    g->frame_bytes = sample_bytes(sample_format) * channels;
    g->callback = callback;
    g->callback_data = callback_data;
    {
        std::lock_guard<std::mutex> guard(g_context_mutex);
        g->context = chromaprint_new(alg->chromaprint);
    }
    if (!g->context || !chromaprint_start(g->context, static_cast<int>(sample_rate), static_cast<int>(channels))) {
        g->magic = 0;
        if (g->context) {
            std::lock_guard<std::mutex> guard(g_context_mutex);
            chromaprint_free(g->context);
        }
        g->~Generator();
        ombr_memory_free(memory);
        return ZELTO_DSP_FAILED;
    }
    std::snprintf(g->min_text, sizeof g->min_text, "%u", blocks_for(items_for(g->context, kUsefulSeconds)));
    std::snprintf(g->max_text, sizeof g->max_text, "%u", blocks_for(items_for(g->context, kFullSeconds)));
    ++g_live_generators;
    *out_generator = g;
    return 0;
}

uint32_t generator_write(zelto_dsp_generator handle, const void *samples, uint32_t size, uint32_t /*reserved1*/,
                         uint32_t /*reserved2*/, uint8_t *out_complete) {
    Generator *g = as_generator(handle);
    if (!g || (!samples && size != 0)) return ZELTO_DSP_BAD_ARG;
    if (g->ended) return ZELTO_DSP_ENDED;
    const auto *data = static_cast<const uint8_t *>(samples);
    size_t left = size;
    // Complete a frame begun by an earlier write.
    if (g->carry_bytes != 0 && left != 0) {
        const size_t take = std::min<size_t>(g->frame_bytes - g->carry_bytes, left);
        std::memcpy(g->carry + g->carry_bytes, data, take);
        g->carry_bytes += static_cast<uint32_t>(take);
        data += take;
        left -= take;
        if (g->carry_bytes == g->frame_bytes) {
            if (!feed_frames(*g, g->carry, 1)) return ZELTO_DSP_FAILED;
            g->carry_bytes = 0;
            ++g->frames;
        }
    }
    const size_t frames = left / g->frame_bytes;
    if (frames != 0) {
        if (!feed_frames(*g, data, frames)) return ZELTO_DSP_FAILED;
        g->frames += frames;
        data += frames * g->frame_bytes;
        left -= frames * g->frame_bytes;
    }
    if (left != 0) {
        std::memcpy(g->carry, data, left);
        g->carry_bytes = static_cast<uint32_t>(left);
    }
    uint32_t status = harvest(*g);
    if (status == 0) status = deliver(*g, false);
    if (status == 0 && out_complete)
        *out_complete = g->frames >= static_cast<uint64_t>(kFullSeconds) * g->sample_rate ? 1 : 0;
    return status;
}

uint32_t generator_end(zelto_dsp_generator handle, uint32_t *out_flag) {
    Generator *g = as_generator(handle);
    if (!g) return ZELTO_DSP_BAD_ARG;
    if (!g->ended) {
        // A frame left incomplete by the last write is dropped.
        g->carry_bytes = 0;
        if (!chromaprint_finish(g->context)) return ZELTO_DSP_FAILED;
        g->ended = true;
    }
    uint32_t status = harvest(*g);
    if (status == 0) status = deliver(*g, true);
    if (status == 0 && out_flag) *out_flag = 0;
    return status;
}

uint32_t generator_info(zelto_dsp_generator handle, const char *key, const char **out_text) {
    Generator *g = as_generator(handle);
    if (!g || !key || !out_text) return ZELTO_DSP_BAD_ARG;
    if (std::strcmp(key, ZELTO_DSP_INFO_MINBLOCKREQ) == 0) {
        *out_text = g->min_text;
        return 0;
    }
    if (std::strcmp(key, ZELTO_DSP_INFO_MAXBLOCKREQ) == 0) {
        *out_text = g->max_text;
        return 0;
    }
    return ZELTO_DSP_UNKNOWN_KEY;
}

uint32_t generator_release(zelto_dsp_generator handle) {
    if (!handle) return 0;
    Generator *g = as_generator(handle);
    if (!g) return ZELTO_DSP_BAD_ARG;
    g->magic = 0;
    {
        std::lock_guard<std::mutex> guard(g_context_mutex);
        chromaprint_free(g->context);
    }
    g->~Generator();
    ombr_memory_free(g);
    --g_live_generators;
    return 0;
}

uint32_t fingerprint_free(void *handle) {
    if (!handle) return 0;
    auto *block = static_cast<Block *>(handle);
    if (block->magic != kBlockMagic) return ZELTO_DSP_BAD_ARG;
    block->magic = 0;
    ombr_memory_free(block);
    --g_live_blocks;
    return 0;
}

// A text of the host's memory layer, for dsp_text_free.
char *copy_text(const std::string &text) {
    auto *out = static_cast<char *>(ombr_memory_alloc(text.size() + 1));
    if (out) std::memcpy(out, text.c_str(), text.size() + 1);
    return out;
}

uint32_t fingerprint_query_text(zelto_dsp_generator handle, void *const *blocks, uint32_t count, char **out_text) {
    Generator *g = as_generator(handle);
    if (!g || (!blocks && count != 0) || !out_text) return ZELTO_DSP_BAD_ARG;
    std::vector<uint32_t> items;
    for (uint32_t i = 0; i < count; ++i) {
        const auto *block = static_cast<const Block *>(blocks[i]);
        if (!block) continue;  // entries the caller could not fill
        if (block->magic != kBlockMagic || block->algorithm != g->algorithm->number) return ZELTO_DSP_BAD_ARG;
        items.insert(items.end(), block->items(), block->items() + block->count);
    }
    if (items.empty()) return ZELTO_DSP_BAD_ARG;
    char *encoded = nullptr;
    int encoded_size = 0;
    if (!chromaprint_encode_fingerprint(items.data(), static_cast<int>(items.size()), g->algorithm->chromaprint,
                                        &encoded, &encoded_size, 1))
        return ZELTO_DSP_FAILED;
    const std::string data(encoded, static_cast<size_t>(encoded_size));
    chromaprint_dealloc(encoded);
    const std::string duration = std::to_string(g->frames / g->sample_rate);
    std::string text;
    if (g->algorithm->xml)
        text = std::string("<FINGERPRINT><ALGORITHM><NAME>" ZELTO_DSP_ALGORITHM_NAME "</NAME><VERSION>") +
               g->algorithm->version + "</VERSION></ALGORITHM><DURATION>" + duration + "</DURATION><DATA>" + data +
               "</DATA></FINGERPRINT>";
    else
        text = "DURATION=" + duration + "\nFINGERPRINT=" + data;
    char *out = copy_text(text);
    if (!out) return ZELTO_DSP_NO_MEMORY;
    *out_text = out;
    return 0;
}

uint32_t text_free(char *text) {
    ombr_memory_free(text);
    return 0;
}

zelto_dsp_interface make_table() {
    zelto_dsp_interface table{};
    table.release = host::table_release;
    table.dsp_generator_create = generator_create;
    table.dsp_generator_write = generator_write;
    table.dsp_generator_end = generator_end;
    table.dsp_generator_info = generator_info;
    table.dsp_generator_release = generator_release;
    table.dsp_fingerprint_free = fingerprint_free;
    table.dsp_fingerprint_query_text = fingerprint_query_text;
    table.dsp_text_free = text_free;
    return table;
}

const zelto_dsp_interface g_table = make_table();

}  // namespace

const void *host::dsp_table() { return &g_table; }

#else  // built without Chromaprint: the service is absent

const void *host::dsp_table() { return nullptr; }

#endif

HOST_EXPORT const zelto_dsp_interface *zelto_manager_dsp_table(void) {
    return static_cast<const zelto_dsp_interface *>(host::dsp_table());
}

HOST_EXPORT uint32_t zelto_manager_dsp_live_generators(void) { return g_live_generators.load(); }

HOST_EXPORT uint32_t zelto_manager_dsp_live_blocks(void) { return g_live_blocks.load(); }
