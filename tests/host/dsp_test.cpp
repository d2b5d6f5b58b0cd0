// The signal-processing service on Chromaprint: generator arguments, block
// delivery, sample conversion, the query text forms against Chromaprint's
// own fingerprint of the same audio, failure paths, and the "ZTFP" writer.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "cantrix_test.h"
#include "host_fixture.h"
#include "test_audio.h"
#include "zelto/zelto_host_services.h"

#if CANTRIX_HAVE_CHROMAPRINT
#include <chromaprint.h>

namespace {

using test_audio::Signal;

// Collects the blocks a generator delivers; can refuse the next ones.
struct Sink {
    std::vector<void *> blocks;
    std::vector<uint32_t> writes_at_delivery;  // value of `writes` at each delivery
    uint32_t writes = 0;
    uint32_t refuse = 0;  // blocks to refuse with kRefused before accepting again
};
constexpr uint32_t kRefused = 0x90AA0002u;

uint32_t on_block(void *data, uint32_t ignored, void *block) {
    auto *sink = static_cast<Sink *>(data);
    EXPECT_EQ(ignored, 0u);
    if (sink->refuse != 0) {
        --sink->refuse;
        return kRefused;
    }
    sink->blocks.push_back(block);
    sink->writes_at_delivery.push_back(sink->writes);
    return 0;
}

class DspTest : public HostObjectsTest {
   protected:
    void SetUp() override {
        HostObjectsTest::SetUp();
        dsp_ = zelto_manager_dsp_table();
        ASSERT_NE(dsp_, nullptr);
        generators_ = zelto_manager_dsp_live_generators();
        blocks_ = zelto_manager_dsp_live_blocks();
        memory_ = zelto_manager_memory_live_blocks();
    }
    void TearDown() override {
        zelto_manager_memory_fail_nth(0);
        if (dsp_) {
            EXPECT_EQ(zelto_manager_dsp_live_generators(), generators_) << "generators leaked";
            EXPECT_EQ(zelto_manager_dsp_live_blocks(), blocks_) << "blocks leaked";
            EXPECT_EQ(zelto_manager_memory_live_blocks(), memory_) << "heap blocks leaked";
        }
        HostObjectsTest::TearDown();
    }

    zelto_dsp_generator create(uint32_t algorithm, uint32_t rate, uint32_t format, uint32_t channels, Sink &sink) {
        zelto_dsp_generator g = nullptr;
        EXPECT_EQ(dsp_->dsp_generator_create(algorithm, rate, format, channels, 0, on_block, &sink, &g), 0u);
        return g;
    }
    // Writes `pcm` in chunks of `chunk` bytes (0: all at once).
    void write(zelto_dsp_generator g, Sink &sink, const std::vector<uint8_t> &pcm, size_t chunk) {
        if (chunk == 0) chunk = pcm.size();
        for (size_t at = 0; at < pcm.size(); at += chunk) {
            ++sink.writes;
            uint8_t complete = 9;
            ASSERT_EQ(dsp_->dsp_generator_write(g, pcm.data() + at, static_cast<uint32_t>(std::min(chunk, pcm.size() - at)),
                                                0, 0, &complete),
                      0u);
            ASSERT_LE(complete, 1);
        }
    }
    std::string text(zelto_dsp_generator g, const std::vector<void *> &blocks) {
        char *out = nullptr;
        uint32_t status =
            dsp_->dsp_fingerprint_query_text(g, blocks.data(), static_cast<uint32_t>(blocks.size()), &out);
        if (status != 0) return "status " + std::to_string(status);
        std::string result = out;
        EXPECT_EQ(dsp_->dsp_text_free(out), 0u);
        return result;
    }
    void free_all(zelto_dsp_generator g, Sink &sink) {
        for (void *block : sink.blocks) EXPECT_EQ(dsp_->dsp_fingerprint_free(block), 0u);
        sink.blocks.clear();
        EXPECT_EQ(dsp_->dsp_generator_release(g), 0u);
    }
    // The whole road: create, write in chunks, end, text, free.
    std::string fingerprint(uint32_t algorithm, uint32_t rate, uint32_t bits, uint32_t channels,
                            const std::vector<uint8_t> &pcm, size_t chunk) {
        Sink sink;
        zelto_dsp_generator g = create(algorithm, rate, bits == 8 ? 1 : bits == 16 ? 2 : 3, channels, sink);
        write(g, sink, pcm, chunk);
        uint32_t flag = 7;
        EXPECT_EQ(dsp_->dsp_generator_end(g, &flag), 0u);
        EXPECT_EQ(flag, 0u);
        std::string out = text(g, sink.blocks);
        free_all(g, sink);
        return out;
    }

    const zelto_dsp_interface *dsp_ = nullptr;
    uint32_t generators_ = 0, blocks_ = 0;
    int64_t memory_ = 0;
};

// Chromaprint's own raw fingerprint of 16-bit audio, and its encoded text.
struct Reference {
    std::vector<uint32_t> items;
    std::string encoded;
};
Reference chromaprint_reference(uint32_t algorithm, uint32_t rate, uint32_t channels, const std::vector<int16_t> &pcm) {
    Reference out;
    ChromaprintContext *ctx =
        chromaprint_new(algorithm == 5 ? CHROMAPRINT_ALGORITHM_TEST5 : CHROMAPRINT_ALGORITHM_TEST2);
    EXPECT_TRUE(chromaprint_start(ctx, static_cast<int>(rate), static_cast<int>(channels)));
    EXPECT_TRUE(chromaprint_feed(ctx, pcm.data(), static_cast<int>(pcm.size())));
    EXPECT_TRUE(chromaprint_finish(ctx));
    uint32_t *raw = nullptr;
    int size = 0;
    EXPECT_TRUE(chromaprint_get_raw_fingerprint(ctx, &raw, &size));
    out.items.assign(raw, raw + size);
    chromaprint_dealloc(raw);
    char *encoded = nullptr;
    EXPECT_TRUE(chromaprint_get_fingerprint(ctx, &encoded));
    out.encoded = encoded;
    chromaprint_dealloc(encoded);
    chromaprint_free(ctx);
    return out;
}

std::vector<int16_t> as16(const std::vector<uint8_t> &pcm) {
    std::vector<int16_t> out(pcm.size() / 2);
    std::memcpy(out.data(), pcm.data(), out.size() * 2);
    return out;
}

// The encoded fingerprint of a query text in either form; the rest of the
// text must be exactly the form's frame around a decimal duration.
std::string encoded_part(const std::string &text) {
    auto digits = [](const std::string &s) {
        return !s.empty() && s.find_first_not_of("0123456789") == std::string::npos;
    };
    auto url_base64 = [](const std::string &s) {
        return !s.empty() && s.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_") ==
                                 std::string::npos;
    };
    const std::string plain = "DURATION=", fp = "\nFINGERPRINT=";
    if (text.rfind(plain, 0) == 0) {
        const size_t at = text.find(fp);
        if (at != std::string::npos && digits(text.substr(plain.size(), at - plain.size())) &&
            url_base64(text.substr(at + fp.size())))
            return text.substr(at + fp.size());
    }
    for (const char *version : {"2", "5"}) {
        const std::string head = std::string("<FINGERPRINT><ALGORITHM><NAME>chromaprint</NAME><VERSION>") + version +
                                 "</VERSION></ALGORITHM><DURATION>";
        const std::string middle = "</DURATION><DATA>", tail = "</DATA></FINGERPRINT>";
        if (text.rfind(head, 0) != 0 || text.size() < head.size() + tail.size() ||
            text.compare(text.size() - tail.size(), tail.size(), tail) != 0)
            continue;
        const size_t at = text.find(middle, head.size());
        if (at == std::string::npos) continue;
        const std::string data = text.substr(at + middle.size(), text.size() - tail.size() - at - middle.size());
        if (digits(text.substr(head.size(), at - head.size())) && url_base64(data)) return data;
    }
    ADD_FAILURE() << "not a query text: " << text;
    return "";
}

TEST_F(DspTest, ServedByTheManagerWithEverySlotTheModuleCalls) {
    const void *table = nullptr;
    ASSERT_EQ(zelto_manager_get_table()->interface_get("_zelto_dsp_interface", 0, 0, &table), 0u);
    EXPECT_EQ(table, dsp_);
    for (auto slot : {(void *)dsp_->dsp_generator_create, (void *)dsp_->dsp_generator_write,
                      (void *)dsp_->dsp_generator_end, (void *)dsp_->dsp_generator_info,
                      (void *)dsp_->dsp_generator_release, (void *)dsp_->dsp_fingerprint_free,
                      (void *)dsp_->dsp_fingerprint_query_text, (void *)dsp_->dsp_text_free})
        EXPECT_NE(slot, nullptr);
    EXPECT_EQ(offsetof(zelto_dsp_interface, dsp_text_free), 15 * sizeof(void *));
    dsp_->release(dsp_);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_dsp_interface"), 0);
}

TEST_F(DspTest, CreateRefusesWhatChromaprintCannotTake) {
    struct Row {
        uint32_t algorithm, rate, format, channels;
        bool callback;
        uint32_t status;
    } rows[] = {
        {0, 44100, 2, 2, true, ZELTO_DSP_UNSUPPORTED},       {2, 44100, 2, 2, true, ZELTO_DSP_UNSUPPORTED},
        {4, 44100, 2, 2, true, ZELTO_DSP_UNSUPPORTED},       {6, 44100, 2, 2, true, ZELTO_DSP_UNSUPPORTED},
        {1, 44100, 0, 2, true, ZELTO_DSP_UNSUPPORTED},       {1, 44100, 4, 2, true, ZELTO_DSP_UNSUPPORTED},
        {1, 44100, 2, 0, true, ZELTO_DSP_UNSUPPORTED},       {1, 44100, 2, 3, true, ZELTO_DSP_UNSUPPORTED},
        {1, 1000, 2, 1, true, ZELTO_DSP_UNSUPPORTED},        {1, 1000001, 2, 1, true, ZELTO_DSP_UNSUPPORTED},
        {1, 44100, 2, 2, false, ZELTO_DSP_BAD_ARG},          {1, 1001, 2, 1, true, 0},
        {5, 1000000, 3, 2, true, 0},                         {3, 8000, 1, 1, true, 0},
    };
    for (const Row &row : rows) {
        Sink sink;
        zelto_dsp_generator g = nullptr;
        EXPECT_EQ(dsp_->dsp_generator_create(row.algorithm, row.rate, row.format, row.channels, 0,
                                             row.callback ? on_block : nullptr, &sink, &g),
                  row.status)
            << row.algorithm << " " << row.rate << " " << row.format << " " << row.channels;
        EXPECT_EQ(g != nullptr, row.status == 0);
        EXPECT_EQ(dsp_->dsp_generator_release(g), 0u);
    }
    EXPECT_EQ(dsp_->dsp_generator_release(nullptr), 0u);
}

TEST_F(DspTest, InfoGivesBlocksForUsefulAndFullLengthFingerprints) {
    struct Row {
        uint32_t algorithm;
        const char *min, *max;
    } rows[] = {{1, "2", "30"}, {3, "2", "30"}, {5, "3", "41"}};
    for (const Row &row : rows) {
        Sink sink;
        zelto_dsp_generator g = create(row.algorithm, 22050, 2, 1, sink);
        const char *text = nullptr;
        EXPECT_EQ(dsp_->dsp_generator_info(g, ZELTO_DSP_INFO_MINBLOCKREQ, &text), 0u);
        EXPECT_STREQ(text, row.min);
        EXPECT_EQ(dsp_->dsp_generator_info(g, ZELTO_DSP_INFO_MAXBLOCKREQ, &text), 0u);
        EXPECT_STREQ(text, row.max);
        EXPECT_EQ(dsp_->dsp_generator_info(g, "zelto_dsp_info_other", &text), ZELTO_DSP_UNKNOWN_KEY);
        EXPECT_EQ(dsp_->dsp_generator_info(nullptr, ZELTO_DSP_INFO_MAXBLOCKREQ, &text), ZELTO_DSP_BAD_ARG);
        free_all(g, sink);
    }
}

TEST_F(DspTest, BlocksArriveInsideWriteAsTheFingerprintGrows) {
    // 40 seconds of chords written a second at a time: blocks of 32 items
    // arrive from inside the writes once Chromaprint has computed them, the
    // last and shorter one from end, and together they hold Chromaprint's
    // whole fingerprint.
    const auto pcm = test_audio::pcm(Signal::chords, 11025, 1, 16, 40);
    const Reference reference = chromaprint_reference(1, 11025, 1, as16(pcm));
    Sink sink;
    zelto_dsp_generator g = create(1, 11025, 2, 1, sink);
    write(g, sink, pcm, 11025 * 2);
    const size_t during_write = sink.blocks.size();
    EXPECT_GE(during_write, reference.items.size() / 32 - 2);
    // Nothing comes before Chromaprint's delay and 32 items are covered.
    EXPECT_GE(sink.writes_at_delivery.front(), 7u);
    uint32_t flag = 1;
    ASSERT_EQ(dsp_->dsp_generator_end(g, &flag), 0u);
    EXPECT_EQ(flag, 0u);
    ASSERT_GT(sink.blocks.size(), during_write);
    struct Header {
        uint32_t magic, algorithm, index, count;
    };
    std::vector<uint32_t> items;
    for (size_t i = 0; i < sink.blocks.size(); ++i) {
        const auto *h = static_cast<const Header *>(sink.blocks[i]);
        EXPECT_EQ(h->index, i);
        EXPECT_EQ(h->algorithm, 1u);
        if (i + 1 < sink.blocks.size()) {
            EXPECT_EQ(h->count, ZELTO_DSP_BLOCK_ITEMS);
        }
        EXPECT_GE(h->count, 1u);
        const auto *first = reinterpret_cast<const uint32_t *>(h + 1);
        items.insert(items.end(), first, first + h->count);
    }
    EXPECT_EQ(items, reference.items);
    EXPECT_EQ(encoded_part(text(g, sink.blocks)), reference.encoded);
    // End again: nothing new, same text.
    const std::string first = text(g, sink.blocks);
    EXPECT_EQ(dsp_->dsp_generator_end(g, &flag), 0u);
    EXPECT_EQ(text(g, sink.blocks), first);
    uint8_t complete = 0;
    EXPECT_EQ(dsp_->dsp_generator_write(g, pcm.data(), 2, 0, 0, &complete), ZELTO_DSP_ENDED);
    free_all(g, sink);
}

TEST_F(DspTest, CompleteOnceAFullLengthOfAudioIsWritten) {
    const auto second = test_audio::pcm(Signal::melody, 8000, 1, 8, 1);
    Sink sink;
    zelto_dsp_generator g = create(1, 8000, 1, 1, sink);
    for (int s = 1; s <= 121; ++s) {
        uint8_t complete = 7;
        ASSERT_EQ(dsp_->dsp_generator_write(g, second.data(), static_cast<uint32_t>(second.size()), 0, 0, &complete), 0u);
        EXPECT_EQ(complete, s >= 120 ? 1 : 0) << s;
    }
    // Null complete pointer and empty writes are fine.
    EXPECT_EQ(dsp_->dsp_generator_write(g, second.data(), 0, 0, 0, nullptr), 0u);
    EXPECT_EQ(dsp_->dsp_generator_write(g, nullptr, 0, 0, 0, nullptr), 0u);
    EXPECT_EQ(dsp_->dsp_generator_write(g, nullptr, 4, 0, 0, nullptr), ZELTO_DSP_BAD_ARG);
    EXPECT_EQ(dsp_->dsp_generator_write(nullptr, second.data(), 4, 0, 0, nullptr), ZELTO_DSP_BAD_ARG);
    // Chromaprint lags a few seconds behind the audio: the 30 blocks of a
    // full-length fingerprint are complete after end.
    EXPECT_GE(sink.blocks.size(), 28u);
    EXPECT_LT(sink.blocks.size(), 30u);
    ASSERT_EQ(dsp_->dsp_generator_end(g, nullptr), 0u);
    EXPECT_EQ(sink.blocks.size(), 30u);
    free_all(g, sink);
}

// Every width, rate, channel count and signal: the text does not depend on
// how the audio was cut into writes (odd cuts split frames), and its
// fingerprint is Chromaprint's own for the same audio at 16 bits.
TEST_F(DspTest, TextIndependentOfChunkingAndEqualToChromaprint) {
    const uint32_t rates[] = {11025, 22050, 44100, 48000};
    const uint32_t widths[] = {8, 16, 32};
    int row = 0;
    for (uint32_t rate : rates)
        for (uint32_t bits : widths)
            for (uint32_t channels : {1u, 2u}) {
                const Signal signal = static_cast<Signal>(row++ % 3);
                const uint32_t algorithm = row % 3 == 0 ? 5 : row % 2 == 0 ? 3 : 1;
                const auto samples = test_audio::make(signal, rate, channels, 12, row);
                const auto pcm = test_audio::encode(samples, bits);
                SCOPED_TRACE(std::string(test_audio::name(signal)) + " " + std::to_string(rate) + " Hz " +
                             std::to_string(bits) + " bit " + std::to_string(channels) + " ch, algorithm " +
                             std::to_string(algorithm));
                const std::string whole = fingerprint(algorithm, rate, bits, channels, pcm, 0);
                EXPECT_EQ(fingerprint(algorithm, rate, bits, channels, pcm, 1000 * channels * bits / 8), whole);
                EXPECT_EQ(fingerprint(algorithm, rate, bits, channels, pcm, 4093), whole);  // splits frames
                EXPECT_THAT(whole, ::testing::HasSubstr(algorithm == 1 ? "DURATION=12\n" : "<DURATION>12</DURATION>"));
                // The same audio as 16-bit samples, straight into Chromaprint.
                std::vector<int16_t> pcm16(samples.size());
                for (size_t i = 0; i < samples.size(); ++i) {
                    const uint8_t *p = pcm.data() + i * (bits / 8);
                    if (bits == 8) pcm16[i] = static_cast<int16_t>((*p - 128) * 256);
                    if (bits == 16) std::memcpy(&pcm16[i], p, 2);
                    if (bits == 32) {
                        int32_t v;
                        std::memcpy(&v, p, 4);
                        pcm16[i] = static_cast<int16_t>(v >> 16);
                    }
                }
                EXPECT_EQ(encoded_part(whole), chromaprint_reference(algorithm, rate, channels, pcm16).encoded);
            }
}

TEST_F(DspTest, DifferentMusicGivesDifferentFingerprints) {
    std::vector<std::string> seen;
    for (Signal signal : {Signal::chords, Signal::melody, Signal::noise})
        for (uint32_t seed : {1u, 2u}) {
            const std::string text = fingerprint(1, 22050, 16, 1, test_audio::pcm(signal, 22050, 1, 16, 10, seed), 0);
            EXPECT_THAT(seen, ::testing::Not(::testing::Contains(text)));
            seen.push_back(text);
        }
}

TEST_F(DspTest, QueryTextOfSomeBlocksAndItsRefusals) {
    const auto pcm = test_audio::pcm(Signal::chords, 11025, 1, 16, 20);
    Sink sink;
    zelto_dsp_generator g = create(1, 11025, 2, 1, sink);
    write(g, sink, pcm, 0);
    ASSERT_GE(sink.blocks.size(), 3u);
    // Null entries are skipped: a text of blocks 0 and 2 equals the text
    // of the same two blocks given alone.
    std::vector<void *> gap = {sink.blocks[0], nullptr, sink.blocks[2]};
    EXPECT_EQ(text(g, gap), text(g, {sink.blocks[0], sink.blocks[2]}));
    EXPECT_NE(text(g, gap), text(g, {sink.blocks[0], sink.blocks[1]}));
    EXPECT_EQ(text(g, {nullptr, nullptr}), "status " + std::to_string(ZELTO_DSP_BAD_ARG));
    EXPECT_EQ(text(g, {}), "status " + std::to_string(ZELTO_DSP_BAD_ARG));
    EXPECT_EQ(text(nullptr, sink.blocks), "status " + std::to_string(ZELTO_DSP_BAD_ARG));
    uint32_t foreign[8] = {};
    EXPECT_EQ(text(g, {sink.blocks[0], foreign}), "status " + std::to_string(ZELTO_DSP_BAD_ARG));
    EXPECT_EQ(dsp_->dsp_fingerprint_free(foreign), ZELTO_DSP_BAD_ARG);
    EXPECT_EQ(dsp_->dsp_fingerprint_free(nullptr), 0u);
    // Blocks of another algorithm are refused.
    Sink other_sink;
    zelto_dsp_generator other = create(5, 11025, 2, 1, other_sink);
    EXPECT_EQ(text(other, sink.blocks), "status " + std::to_string(ZELTO_DSP_BAD_ARG));
    free_all(other, other_sink);
    free_all(g, sink);
}

// A refused block and a block that cannot be allocated fail the write that
// offered it; the items are offered again and the fingerprint loses nothing.
TEST_F(DspTest, FailedDeliveriesAreRetriedWithoutLoss) {
    const auto pcm = test_audio::pcm(Signal::noise, 22050, 2, 16, 15);
    const std::string expected = fingerprint(3, 22050, 16, 2, pcm, 0);
    const size_t blocks = (chromaprint_reference(3, 22050, 2, as16(pcm)).items.size() + 31) / 32;

    Sink sink;
    sink.refuse = 2;
    zelto_dsp_generator g = create(3, 22050, 2, 2, sink);
    uint8_t complete = 0;
    const uint32_t half = static_cast<uint32_t>(pcm.size() / 2) & ~3u;
    EXPECT_EQ(dsp_->dsp_generator_write(g, pcm.data(), half, 0, 0, &complete), kRefused);
    EXPECT_EQ(dsp_->dsp_generator_end(g, nullptr), kRefused) << "the end is refused too, and can be called again";
    EXPECT_EQ(dsp_->dsp_generator_write(g, pcm.data() + half, static_cast<uint32_t>(pcm.size()) - half, 0, 0,
                                        &complete),
              ZELTO_DSP_ENDED);
    free_all(g, sink);

    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        Sink s;
        zelto_dsp_generator gen = nullptr;
        uint32_t status = dsp_->dsp_generator_create(3, 22050, 2, 2, 0, on_block, &s, &gen);
        if (status != 0) {
            EXPECT_EQ(status, ZELTO_DSP_NO_MEMORY);
            return;
        }
        status = dsp_->dsp_generator_write(gen, pcm.data(), static_cast<uint32_t>(pcm.size()), 0, 0, &complete);
        EXPECT_TRUE(status == 0 || status == ZELTO_DSP_NO_MEMORY) << status;
        while ((status = dsp_->dsp_generator_end(gen, nullptr)) != 0) EXPECT_EQ(status, ZELTO_DSP_NO_MEMORY);
        char *out = nullptr;
        while ((status = dsp_->dsp_fingerprint_query_text(gen, s.blocks.data(), static_cast<uint32_t>(s.blocks.size()),
                                                          &out)) != 0)
            EXPECT_EQ(status, ZELTO_DSP_NO_MEMORY);
        EXPECT_EQ(out, expected);
        dsp_->dsp_text_free(out);
        free_all(gen, s);
    });
    EXPECT_EQ(failures, 1 + blocks + 1) << "the generator, each block and the text";
}

TEST_F(DspTest, SerialFormOfADescription) {
    const std::string description = fingerprint(5, 44100, 16, 2, test_audio::pcm(Signal::chords, 44100, 2, 16, 8), 0);
    char *serial = nullptr;
    ASSERT_EQ(zelto_manager_fp_serialize(description.c_str(), &serial), 0u);
    ASSERT_EQ(std::string(serial, 4), ZELTO_ZTFP_SERIAL_PREFIX);
    // The payload is the serialisation service's text: decoding gives the description back.
    void *block = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(zelto_manager_serial_decode(serial + 4, &block, &size), 0u);
    EXPECT_EQ(std::string(static_cast<const char *>(block), size), description);
    zelto_manager_serial_free(block);
    zelto_manager_text_free(serial);

    ASSERT_EQ(zelto_manager_fp_serialize(" \n<a/>", &serial), 0u);
    EXPECT_STREQ(serial, "ZTFPIAo8YS8+");
    zelto_manager_text_free(serial);
    serial = nullptr;
    for (const char *refused : {"", "   ", "DURATION=8\nFINGERPRINT=AQAA", "x<a/>"})
        EXPECT_EQ(zelto_manager_fp_serialize(refused, &serial), ZELTO_SERIAL_BAD_ARG) << refused;
    EXPECT_EQ(zelto_manager_fp_serialize(nullptr, &serial), ZELTO_SERIAL_BAD_ARG);
    EXPECT_EQ(zelto_manager_fp_serialize("<a/>", nullptr), ZELTO_SERIAL_BAD_ARG);
    EXPECT_EQ(serial, nullptr);
}

}  // namespace

#else

TEST(DspTest, AbsentWithoutChromaprint) {
    EXPECT_EQ(zelto_manager_dsp_table(), nullptr);
    const void *table = nullptr;
    EXPECT_EQ(zelto_manager_get_table()->interface_get("_zelto_dsp_interface", 0, 0, &table), ZELTO_MANAGER_NO_SERVICE);
}

#endif
