// Identification by sound through the module and the local catalogue:
// fingerprints stored with zelto_catalogue_fingerprint_add, excerpts found
// by the album and track finds with their score and offset, the plain text
// set as data, the XML description sent to the provider, and refusals.
#include <string>
#include <vector>

#include "module_fixture.h"
#include "out_param.h"
#include "rvo_read.h"
#include "synth_song.h"
#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"

namespace {

constexpr uint32_t kRate = 44100;

// 16-bit stereo PCM of `seconds` of song `seed` from `from` seconds on.
std::vector<int16_t> pcm(uint64_t seed, double from, double seconds) {
    static std::vector<std::vector<float>> songs(8);
    auto &song = songs[seed];
    if (song.empty()) song = synth::make_song(seed, 45).samples;
    const auto first = static_cast<size_t>(from * kRate) * 2;
    const auto count = std::min(static_cast<size_t>(seconds * kRate) * 2, song.size() - first);
    std::vector<float> part(song.begin() + static_cast<std::ptrdiff_t>(first),
                            song.begin() + static_cast<std::ptrdiff_t>(first + count));
    return synth::to_s16(part);
}

class CatalogueFingerprintTest : public WithQuery<ModuleTest> {
   protected:
    void SetUp() override {
        WithQuery<ModuleTest>::SetUp();
        if (!zelto_manager_dsp_table()) GTEST_SKIP() << "host built without Chromaprint";
        ASSERT_EQ(zelto_catalogue_open(":memory:", 0, &catalogue_), 0u);
        ASSERT_EQ(zelto_catalogue_install(catalogue_, 0), 0u);
        ASSERT_EQ(zelto_manager_user_option_set(user_, "zelto_useroption_lookup_mode", "zelto_lookupmode_local"), 0u);
        // Songs 1 to 3 as tracks 1 to 3 of one album, made from their tags.
        for (uint64_t seed = 1; seed <= 3; ++seed) store(seed, "song-" + std::to_string(seed), 0);
    }
    void TearDown() override {
        if (catalogue_) {
            EXPECT_EQ(zelto_catalogue_live_requests(catalogue_), 0u);
            EXPECT_EQ(zelto_catalogue_close(catalogue_), 0u);
        }
        WithQuery<ModuleTest>::TearDown();
    }

    std::string fingerprint(const std::vector<int16_t> &samples) {
        EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", kRate, 16, 2), 0u);
        EXPECT_EQ(zelto_cantrix_query_fingerprint_write(query_, samples.data(),
                                                        static_cast<uint32_t>(samples.size() * 2), nullptr),
                  0u);
        EXPECT_EQ(zelto_cantrix_query_fingerprint_end(query_), 0u);
        const char *text = nullptr;
        EXPECT_EQ(zelto_cantrix_query_get_fp_data(query_, &text), 0u);
        return text ? text : "";
    }

    zelto_catalogue_fingerprint_result store(uint64_t seed, const std::string &content, double from,
                                             const char *album = "Night Drive") {
        const std::string text = fingerprint(pcm(seed, from, 45));
        const std::string title = "Title " + std::to_string(seed);
        zelto_catalogue_audio_tags tags{};
        tags.title = title.c_str();
        tags.artist = "Ana Reyes";
        tags.album = album;
        tags.track_number = static_cast<uint32_t>(seed);
        zelto_catalogue_fingerprint_entry e{text.c_str(), content.c_str(), "x.flac", nullptr, &tags};
        zelto_catalogue_fingerprint_result r{};
        EXPECT_EQ(zelto_catalogue_fingerprint_add(catalogue_, &e, &r), 0u) << zelto_catalogue_last_message(catalogue_);
        return r;
    }

    static std::string title(zelto_rvo_handle o) {
        zelto_rvo_handle t = child_of(o, "zelto_ctx_title!off", 1, 0);
        const std::string text = value_of(t, "zelto_val_display");
        zelto_manager_rvo_release(t);
        return text;
    }
    zelto_catalogue *catalogue_ = nullptr;
};

TEST_F(CatalogueFingerprintTest, AnExcerptFindsItsAlbumAndTrackWithScoreAndOffset) {
    fingerprint(pcm(2, 12, 22));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    ASSERT_EQ(count_of(response, "zelto_ctx_album!"), 1u);
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1, 0);
    EXPECT_EQ(title(album), "Night Drive");
    EXPECT_EQ(count_of(album, "zelto_ctx_track!"), 3u);  // the full album, no second lookup
    EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "SINGLE");
    EXPECT_EQ(value_of(album, "_sdkmgr_val_lookup_type"), "FP");
    zelto_rvo_handle track = child_of(album, "zelto_ctx_track!matching", 1, 0);
    EXPECT_EQ(title(track), "Title 2");
    const int offset = std::stoi(value_of(track, ZELTO_CATALOGUE_VAL_FP_OFFSET));
    EXPECT_NEAR(offset, 12000, 130);
    EXPECT_GE(std::stoi(value_of(track, ZELTO_CATALOGUE_VAL_FP_SCORE)), 90);
    EXPECT_EQ(value_of(album, ZELTO_CATALOGUE_VAL_FP_SCORE), value_of(track, ZELTO_CATALOGUE_VAL_FP_SCORE));
    EXPECT_NEAR(std::stoi(value_of(track, ZELTO_CATALOGUE_VAL_FP_COMPARED)), 19000, 1500);
    for (auto item : {track, album, response}) zelto_manager_rvo_release(item);

    // The track find answers with the track itself.
    ASSERT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0u);
    ASSERT_EQ(count_of(response, "zelto_ctx_track!"), 1u);
    track = child_of(response, "zelto_ctx_track!", 1, 0);
    EXPECT_EQ(title(track), "Title 2");
    EXPECT_NEAR(std::stoi(value_of(track, ZELTO_CATALOGUE_VAL_FP_OFFSET)), 12000, 130);
    for (auto item : {track, response}) zelto_manager_rvo_release(item);
}

TEST_F(CatalogueFingerprintTest, StoredTextSetAsDataFindsTheSameAndStrangersFindNothing) {
    const std::string text = fingerprint(pcm(3, 5, 30));
    ASSERT_EQ(zelto_cantrix_query_set_fp_data(query_, text.c_str(), "zelto_cantrix_fp_tvx"), 0u);
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0u);
    ASSERT_EQ(count_of(response, "zelto_ctx_track!"), 1u);
    zelto_rvo_handle track = child_of(response, "zelto_ctx_track!", 1, 0);
    EXPECT_EQ(title(track), "Title 3");
    for (auto item : {track, response}) zelto_manager_rvo_release(item);

    fingerprint(pcm(7, 0, 40));  // never stored
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(count_of(response, "zelto_ctx_album!"), 0u);
    EXPECT_EQ(value_of(response, "zelto_val_resultcount"), "0");
    zelto_manager_rvo_release(response);
}

TEST_F(CatalogueFingerprintTest, TheSameRecordingOnTwoAlbumsIsAMultipleMatch) {
    // Another rip of it: the audio starts a little later, so the fingerprint differs.
    const auto copy = store(1, "compilation-copy", 0.4, "Best Of");
    EXPECT_EQ(copy.outcome, ZELTO_CATALOGUE_FP_ADDED);
    EXPECT_EQ(copy.created_album, 1);
    fingerprint(pcm(1, 20, 20));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    ASSERT_EQ(count_of(response, "zelto_ctx_album!"), 2u);
    for (uint32_t i = 1; i <= 2; ++i) {
        zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", i, 0);
        EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "MULTI");
        zelto_manager_rvo_release(album);
    }
    zelto_manager_rvo_release(response);
}

// The provider table directly, as a lookup by an XML description arrives.
TEST_F(CatalogueFingerprintTest, TheProviderReadsXmlDescriptionsAndRefusesBadData) {
    const zelto_dsp_interface *dsp = zelto_manager_dsp_table();
    zelto_dsp_generator generator = nullptr;
    std::vector<void *> blocks;
    auto collect = [](void *data, uint32_t, void *block) -> uint32_t {
        static_cast<std::vector<void *> *>(data)->push_back(block);
        return 0;
    };
    ASSERT_EQ(dsp->dsp_generator_create(3, kRate, ZELTO_DSP_FORMAT_S16, 2, 0, collect, &blocks, &generator), 0u);
    const std::vector<int16_t> samples = pcm(1, 8, 25);
    uint8_t complete = 0;
    ASSERT_EQ(dsp->dsp_generator_write(generator, samples.data(), static_cast<uint32_t>(samples.size() * 2), 0, 0, &complete), 0u);
    uint32_t flag = 0;
    ASSERT_EQ(dsp->dsp_generator_end(generator, &flag), 0u);
    char *xml = nullptr;
    ASSERT_EQ(dsp->dsp_fingerprint_query_text(generator, blocks.data(), static_cast<uint32_t>(blocks.size()), &xml), 0u);
    const std::string description = xml;
    dsp->dsp_text_free(xml);
    for (void *b : blocks) dsp->dsp_fingerprint_free(b);
    dsp->dsp_generator_release(generator);

    const zelto_lookup_interface *table = zelto_catalogue_lookup_table(catalogue_);
    struct Case {
        std::string text;
        const char *version;
        uint32_t status;
        const char *message;
    } cases[] = {
        {description, "2", 0, ""},
        {description, "5", ZELTO_CATALOGUE_INVALID_DATA, "does not match its data"},
        {"<FINGERPRINT><DATA>AQAAAQE</DATA></FINGERPRINT>", "2", ZELTO_CATALOGUE_INVALID_DATA, "without ALGORITHM"},
        {"DURATION=3\nFINGERPRINT=!!", "", ZELTO_CATALOGUE_INVALID_DATA, "not base64"},
    };
    for (const Case &c : cases) {
        zelto_lookup_request request = nullptr;
        ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
        ASSERT_EQ(table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "audio-block", 1), 0u);
        table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_fpx_algname", "chromaprint", 0);
        table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_fpx_algver", c.version, 0);
        table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_fpx_querydata", c.text.c_str(), 0);
        EXPECT_EQ(table->lookup_request_execute(request, user_), c.status) << c.text;
        EXPECT_NE(std::string(zelto_catalogue_last_message(catalogue_)).find(c.message), std::string::npos)
            << zelto_catalogue_last_message(catalogue_);
        if (c.status == 0) {
            zelto_rvo_handle result = nullptr;
            ASSERT_EQ(table->lookup_request_get_result(request, "CNX_1", &result), 0u);
            EXPECT_EQ(value_of(result, "_sdkmgr_val_response_code"), "zelto_result_single_match");
            zelto_rvo_handle album = child_of(result, "zelto_ctx_album!", 1, 0);
            zelto_rvo_handle track = child_of(album, "zelto_ctx_track!matching", 1, 0);
            EXPECT_EQ(title(track), "Title 1");
            EXPECT_NEAR(std::stoi(value_of(track, ZELTO_CATALOGUE_VAL_FP_OFFSET)), 8000, 130);
            for (auto item : {track, album, result}) zelto_manager_rvo_release(item);
        }
        EXPECT_EQ(table->lookup_request_release(request), 0u);
    }
}

TEST_F(CatalogueFingerprintTest, AddRefusesWhatCannotBeStoredAndKeepsEarlierEntries) {
    zelto_catalogue_fingerprint_info before{};
    ASSERT_EQ(zelto_catalogue_fingerprint_counts(catalogue_, &before), 0u);
    EXPECT_EQ(before.fingerprints, 3u);
    const std::string good = fingerprint(pcm(4, 0, 30));
    const std::string short_text = fingerprint(pcm(4, 0, 4));
    struct Case {
        const char *text, *content, *tui, *message;
    } cases[] = {
        {"FINGERPRINT=@@", "a", nullptr, "not base64"},
        {short_text.c_str(), "b", nullptr, "too short or silent"},
        {good.c_str(), "", nullptr, "empty content identifier"},
        {good.c_str(), "c", "no-such-track", "no album or track"},
    };
    for (const Case &c : cases) {
        zelto_catalogue_fingerprint_entry e{c.text, c.content, "f.mp3", c.tui, nullptr};
        EXPECT_EQ(zelto_catalogue_fingerprint_add(catalogue_, &e, nullptr), ZELTO_CATALOGUE_INVALID_DATA);
        EXPECT_NE(std::string(zelto_catalogue_last_message(catalogue_)).find(c.message), std::string::npos)
            << zelto_catalogue_last_message(catalogue_);
    }
    zelto_catalogue_fingerprint_info after{};
    ASSERT_EQ(zelto_catalogue_fingerprint_counts(catalogue_, &after), 0u);
    EXPECT_EQ(after.fingerprints, before.fingerprints);
    EXPECT_EQ(after.files, before.files);
    EXPECT_EQ(out(zelto_catalogue_fingerprint_known, catalogue_, "song-2"), 1);
    // A content seen before changes nothing, whatever else the entry says.
    zelto_catalogue_fingerprint_entry again{good.c_str(), "song-2", "renamed.mp3", nullptr, nullptr};
    zelto_catalogue_fingerprint_result r{};
    ASSERT_EQ(zelto_catalogue_fingerprint_add(catalogue_, &again, &r), 0u);
    EXPECT_EQ(r.outcome, ZELTO_CATALOGUE_FP_KNOWN_FILE);
    EXPECT_STREQ(r.title, "Title 2");
    const char *tui = nullptr;
    zelto_catalogue_audio_tags tags{};
    tags.mb_release_track_id = "none";
    EXPECT_EQ(zelto_catalogue_track_by_musicbrainz(catalogue_, &tags, &tui), ZELTO_CATALOGUE_NO_RESULT);
}

}  // namespace
