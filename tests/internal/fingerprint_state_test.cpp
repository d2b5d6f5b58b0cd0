// Fingerprint fields of the query against a scripted signal-processing
// table: what begin hands the generator, the complete rule of write, the
// end flag, the text built from the blocks, and where blocks are freed.
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "cantrix/cantrix_internal.h"
#include "module_fixture.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"
#include "out_param.h"

namespace {

// What the scripted service does and what it was asked.
struct Script {
    uint32_t create_status = 0;
    uint32_t algorithm = 0, rate = 0, format = 0, channels = 0, reserved = 99;
    zelto_dsp_block_callback callback = nullptr;
    void *callback_data = nullptr;
    uint32_t blocks_per_write = 0, blocks_at_end = 0;
    uint8_t complete = 0;
    uint32_t write_status = 0, end_flag = 0;
    const char *min_text = "2", *max_text = "3";
    uint32_t min_status = 0, max_status = 0;
    uint32_t text_status = 0;
    std::vector<std::vector<void *>> text_requests;  // arrays given to query_text
    std::string text = "  built text \n";
    uint32_t next_block = 1;
    std::vector<uintptr_t> freed;
    uint32_t releases = 0;
};
Script g_script;
int g_generator;  // the scripted generator's identity

uint32_t fake_release(const void *) { return 0; }
uint32_t fake_create(uint32_t algorithm, uint32_t rate, uint32_t format, uint32_t channels, uint32_t reserved,
                     zelto_dsp_block_callback callback, void *data, zelto_dsp_generator *out) {
    Script &s = g_script;
    s.algorithm = algorithm, s.rate = rate, s.format = format, s.channels = channels, s.reserved = reserved;
    s.callback = callback, s.callback_data = data;
    if (s.create_status) return s.create_status;
    *out = &g_generator;
    return 0;
}
uint32_t deliver(uint32_t count) {
    for (uint32_t i = 0; i < count; ++i)
        if (uint32_t status = g_script.callback(g_script.callback_data, 77, reinterpret_cast<void *>(
                                                                                 static_cast<uintptr_t>(g_script.next_block++ * 16))))
            return status;
    return 0;
}
uint32_t fake_write(zelto_dsp_generator g, const void *, uint32_t, uint32_t, uint32_t, uint8_t *complete) {
    if (g != &g_generator) return 0x90180001u;
    if (g_script.write_status) return g_script.write_status;
    *complete = g_script.complete;
    return deliver(g_script.blocks_per_write);
}
uint32_t fake_end(zelto_dsp_generator g, uint32_t *flag) {
    if (g != &g_generator) return 0x90180001u;
    *flag = g_script.end_flag;
    return deliver(g_script.blocks_at_end);
}
uint32_t fake_info(zelto_dsp_generator, const char *key, const char **out) {
    const bool max = std::strcmp(key, "zelto_dsp_info_maxblockreq") == 0;
    if (!max && std::strcmp(key, "zelto_dsp_info_minblockreq") != 0) return 0x10180003u;
    if (uint32_t status = max ? g_script.max_status : g_script.min_status) return status;
    *out = max ? g_script.max_text : g_script.min_text;
    return 0;
}
uint32_t fake_generator_release(zelto_dsp_generator g) {
    if (g) ++g_script.releases;
    return 0;
}
uint32_t fake_free(void *block) {
    g_script.freed.push_back(reinterpret_cast<uintptr_t>(block));
    return 0;
}
uint32_t fake_text(zelto_dsp_generator, void *const *blocks, uint32_t count, char **out) {
    g_script.text_requests.emplace_back(blocks, blocks + count);
    if (g_script.text_status) return g_script.text_status;
    *out = static_cast<char *>(ombr_memory_alloc(g_script.text.size() + 1));
    std::memcpy(*out, g_script.text.c_str(), g_script.text.size() + 1);
    return 0;
}
uint32_t fake_text_free(char *text) {
    ombr_memory_free(text);
    return 0;
}

zelto_dsp_interface make_fake() {
    zelto_dsp_interface t{};
    t.release = fake_release;
    t.dsp_generator_create = fake_create;
    t.dsp_generator_write = fake_write;
    t.dsp_generator_end = fake_end;
    t.dsp_generator_info = fake_info;
    t.dsp_generator_release = fake_generator_release;
    t.dsp_fingerprint_free = fake_free;
    t.dsp_fingerprint_query_text = fake_text;
    t.dsp_text_free = fake_text_free;
    return t;
}
const zelto_dsp_interface g_fake = make_fake();

class FingerprintStateTest : public ModuleTest {
   protected:
    void SetUp() override {
        ModuleTest::SetUp();
        g_script = Script{};
        saved_ = g_cantrix_dsp_interface;
        g_cantrix_dsp_interface = &g_fake;
        ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &query_), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(zelto_cantrix_query_release(query_), 0u);
        g_cantrix_dsp_interface = saved_;
        ModuleTest::TearDown();
    }
    uint32_t begin(const char *kind = "zelto_cantrix_fp_tvx", uint32_t bits = 16) {
        return zelto_cantrix_query_fingerprint_begin(query_, kind, 44100, bits, 2);
    }
    uint32_t block_count() {
        uint32_t count = 0;
        EXPECT_EQ(ombr_vector_count(query_->fp_blocks, &count), 0u);
        return count;
    }
    const zelto_dsp_interface *saved_ = nullptr;
    zelto_cantrix_query_handle query_ = nullptr;
};

TEST_F(FingerprintStateTest, BeginHandsTheGeneratorItsAudioAndCallback) {
    struct {
        const char *kind;
        uint32_t bits, algorithm, format;
    } rows[] = {{"zelto_cantrix_fp_tvx", 8, 1, 1},     {"zelto_cantrix_fp_file", 16, 1, 2},
                {"zelto_cantrix_fp_zfpx", 32, 3, 3},   {"zelto_cantrix_fp_3stream", 16, 3, 2},
                {"zelto_cantrix_fp_6stream", 8, 5, 1}};
    for (auto &row : rows) {
        ASSERT_EQ(begin(row.kind, row.bits), 0u) << row.kind;
        EXPECT_EQ(g_script.algorithm, row.algorithm);
        EXPECT_EQ(g_script.format, row.format);
        EXPECT_EQ(g_script.rate, 44100u);
        EXPECT_EQ(g_script.channels, 2u);
        EXPECT_EQ(g_script.reserved, 0u);
        EXPECT_EQ(g_script.callback, &_cantrix_fingerprint_generated);
        EXPECT_EQ(g_script.callback_data, query_);
        EXPECT_EQ(query_->fp_generator, &g_generator);
        EXPECT_STREQ(query_->fp_kind, row.kind);
        EXPECT_NE(query_->fp_kind, row.kind) << "a copy";
        EXPECT_EQ(query_->fp_min_block, 2u);
        EXPECT_EQ(query_->fp_max_block, 3u);
        EXPECT_EQ(block_count(), 0u);
    }
    EXPECT_EQ(g_script.releases, 4u) << "each begin drops the generator before";
}

TEST_F(FingerprintStateTest, BeginFailuresInsideTheLock) {
    // Unknown kind: inputs cleared, an empty blocks vector and no generator.
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_title", "t"), 0u);
    EXPECT_EQ(begin("zelto_cantrix_fp_unknown"), 0x90810001u);
    EXPECT_EQ(query_->text_fields, nullptr);
    ASSERT_NE(query_->fp_blocks, nullptr);
    EXPECT_EQ(query_->fp_generator, nullptr);
    EXPECT_EQ(query_->fp_kind, nullptr);

    // The generator cannot be made: the mapped status, inputs cleared.
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_title", "t"), 0u);
    g_script.create_status = 0x9018000Bu;
    EXPECT_EQ(begin(), 0x9081000Bu);
    EXPECT_EQ(query_->text_fields, nullptr);
    EXPECT_EQ(query_->fp_generator, nullptr);
    g_script.create_status = 0;

    // The minimum is only stored; the maximum's failure is the result.
    g_script.min_status = 0x90180005u;
    g_script.max_text = "12";
    query_->fp_min_block = 5;
    EXPECT_EQ(begin(), 0u);
    EXPECT_EQ(query_->fp_min_block, 5u);
    EXPECT_EQ(query_->fp_max_block, 12u);
    g_script.max_status = 0x90180005u;
    EXPECT_EQ(begin(), 0x90810005u);
    EXPECT_STREQ(query_->fp_kind, "zelto_cantrix_fp_tvx");
}

TEST_F(FingerprintStateTest, WriteIsCompleteByTheGeneratorOrByTheBlockCount) {
    const uint8_t pcm[8] = {};
    uint8_t complete = 7;
    g_script.max_text = "3";
    ASSERT_EQ(begin(), 0u);
    g_script.blocks_per_write = 1;
    for (uint32_t n = 1; n <= 4; ++n) {
        ASSERT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm, 8, &complete), 0u);
        EXPECT_EQ(block_count(), n);
        EXPECT_EQ(complete, n >= 3 ? 1 : 0) << n;
    }
    // The generator's own flag passes through.
    g_script.max_text = "100";
    ASSERT_EQ(begin(), 0u);
    g_script.complete = 1;
    ASSERT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm, 8, &complete), 0u);
    EXPECT_EQ(complete, 1);
    // A maximum of 0: every successful write is complete.
    g_script.max_text = "0";
    g_script.complete = 0;
    g_script.blocks_per_write = 0;
    ASSERT_EQ(begin(), 0u);
    complete = 0;
    EXPECT_EQ(out(zelto_cantrix_query_fingerprint_write, query_, pcm, 8), 1);
    EXPECT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm, 8, nullptr), 0u);
    // A failed write leaves the flag unwritten.
    g_script.write_status = 0x90180005u;
    complete = 7;
    EXPECT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm, 8, &complete), 0x90810005u);
    EXPECT_EQ(complete, 7);
}

TEST_F(FingerprintStateTest, EndBuildsTheTextFromAllBlocksInOrder) {
    const uint8_t pcm[8] = {};
    ASSERT_EQ(begin(), 0u);
    g_script.blocks_per_write = 2;
    g_script.blocks_at_end = 1;
    ASSERT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm, 8, nullptr), 0u);
    ASSERT_EQ(zelto_cantrix_query_fingerprint_end(query_), 0u);
    ASSERT_EQ(g_script.text_requests.size(), 1u);
    const std::vector<void *> expected = {reinterpret_cast<void *>(16), reinterpret_cast<void *>(32),
                                          reinterpret_cast<void *>(48)};
    EXPECT_EQ(g_script.text_requests[0], expected);
    EXPECT_STREQ(query_->fp_data, "built text");
    // get_fp_data rebuilds it every time.
    const char *text = nullptr;
    ASSERT_EQ(zelto_cantrix_query_get_fp_data(query_, &text), 0u);
    EXPECT_STREQ(text, "built text");
    EXPECT_EQ(g_script.text_requests.size(), 2u);
    // The text cannot be built: the mapped status, and no text.
    g_script.text_status = 0x90180001u;
    EXPECT_EQ(zelto_cantrix_query_get_fp_data(query_, &text), 0x90810001u);
    EXPECT_EQ(query_->fp_data, nullptr);
    // Dropping the input frees every block through the service, once.
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_title", "t"), 0u);
    EXPECT_EQ(g_script.freed, (std::vector<uintptr_t>{16, 32, 48}));
    EXPECT_EQ(query_->fp_blocks, nullptr);
    EXPECT_EQ(query_->fp_generator, nullptr);
    EXPECT_EQ(_cantrix_create_fp_query_str(nullptr), 0x90810001u);
}

TEST_F(FingerprintStateTest, EndWithoutBlocksOrWithFlagOneLeavesNoText) {
    ASSERT_EQ(begin(), 0u);
    ASSERT_EQ(zelto_cantrix_query_fingerprint_end(query_), 0u);
    EXPECT_EQ(query_->fp_data, nullptr);
    EXPECT_TRUE(g_script.text_requests.empty());

    ASSERT_EQ(begin(), 0u);
    g_script.blocks_at_end = 2;
    g_script.end_flag = 1;
    ASSERT_EQ(zelto_cantrix_query_fingerprint_end(query_), 0u);
    EXPECT_EQ(query_->fp_end_flag, 1u);
    EXPECT_EQ(query_->fp_data, nullptr);
    EXPECT_EQ(block_count(), 2u);
    EXPECT_EQ(out(zelto_cantrix_query_get_fp_data, query_), "<null>");
    EXPECT_TRUE(g_script.text_requests.empty());
}

TEST_F(FingerprintStateTest, BlockCallbackTakesNoQueryLock) {
    ASSERT_EQ(begin(), 0u);
    std::atomic<uint32_t> status{99};
    {
        // Another thread holds the query's lock, as a find operation would.
        cantrix::QueryLock held(query_);
        std::thread generator([&] { status = _cantrix_fingerprint_generated(query_, 0, reinterpret_cast<void *>(64)); });
        generator.join();
    }
    EXPECT_EQ(status.load(), 0u);
    EXPECT_EQ(block_count(), 1u);
}

}  // namespace
