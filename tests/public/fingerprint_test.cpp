// Fingerprint input through the public API and the reference host's
// signal-processing service: the tests of begin in their order, streaming
// PCM in any cut, data in plain and serial form, how a fingerprint stands
// among the other inputs, allocation failures, and the lookups it makes.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "log_capture.h"
#include "script_fixture.h"
#include "test_audio.h"
#include "out_param.h"

namespace {

using test_audio::Signal;

constexpr uint32_t kInvalidArg = 0x90810001u;
constexpr uint32_t kNotInitialized = 0x90810007u;
constexpr uint32_t kUnsupported = 0x9081000bu;
constexpr uint32_t kInvalidData = 0x9081000cu;
constexpr uint32_t kNoService = 0x9081003fu;
constexpr uint32_t kInvalidUtf8 = 0x908103a0u;

class FingerprintTest : public WithQuery<ScriptedTest> {
   protected:
    void SetUp() override {
        WithQuery<ScriptedTest>::SetUp();
        if (!zelto_manager_dsp_table()) GTEST_SKIP() << "host built without Chromaprint";
    }
    // begin, write in chunks of `chunk` bytes (0: at once), end; the text.
    std::string generate(const char *kind, uint32_t rate, uint32_t bits, uint32_t channels,
                         const std::vector<uint8_t> &pcm, size_t chunk) {
        EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, kind, rate, bits, channels), 0u);
        if (chunk == 0) chunk = pcm.size();
        for (size_t at = 0; at < pcm.size(); at += chunk) {
            const auto size = static_cast<uint32_t>(std::min(chunk, pcm.size() - at));
            uint32_t status = zelto_cantrix_query_fingerprint_write(query_, pcm.data() + at, size, nullptr);
            if (status != 0) {
                ADD_FAILURE() << "write " << std::hex << status;
                break;
            }
        }
        EXPECT_EQ(zelto_cantrix_query_fingerprint_end(query_), 0u);
        return fp_data();
    }
    std::string fp_data() {
        const char *text = nullptr;
        uint32_t status = zelto_cantrix_query_get_fp_data(query_, &text);
        if (status != 0) return "status " + std::to_string(status);
        return text ? text : "<null>";
    }
    // A find whose answer is empty, for the transcript of its request.
    std::string find_albums_request() {
        answer(make_answer("zelto_result_no_matches", {}));
        zelto_rvo_handle response = nullptr;
        EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
        zelto_manager_rvo_release(response);
        return transcript(zelto_script_request_count(script_) - 1);
    }
};

TEST_F(FingerprintTest, BeginTestsInTheirOrder) {
    LogCapture log({0x81});
    const uint64_t calls = zelto_manager_errorinfo_calls();
    // Arguments come first and reach the hook only.
    struct {
        const char *kind;
        uint32_t rate, bits, channels;
    } zeros[] = {{"", 44100, 16, 2}, {nullptr, 44100, 16, 2}, {"zelto_cantrix_fp_tvx", 0, 16, 2},
                 {"zelto_cantrix_fp_tvx", 44100, 0, 2}, {"zelto_cantrix_fp_tvx", 44100, 24, 0}};
    for (auto &z : zeros)
        EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(nullptr, z.kind, z.rate, z.bits, z.channels), kInvalidArg);
    EXPECT_EQ(zelto_manager_errorinfo_calls(), calls);
    ASSERT_EQ(log.errors.size(), 5u);
    EXPECT_EQ(log.errors[0].unit, "zelto_cantrix_query_fingerprint_begin");
    EXPECT_EQ(log.errors[0].line, 0u);

    // Then the handle, then width and channels with their messages.
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(nullptr, "zelto_cantrix_fp_tvx", 44100, 24, 3), kInvalidArg);
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 44100, 24, 3), kUnsupported);
    EXPECT_EQ(last_error(), "9081000B/9081000B zelto_cantrix_query_fingerprint_begin | 24 bit audio samples unsupported");
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 44100, 16, 3), kUnsupported);
    EXPECT_EQ(last_error(), "9081000B/9081000B zelto_cantrix_query_fingerprint_begin | 3 channel audio unsupported");
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 44100, 64, 1), kUnsupported);
    EXPECT_EQ(last_error(), "9081000B/9081000B zelto_cantrix_query_fingerprint_begin | 64 bit audio samples unsupported");
    // A refused begin leaves the query as it was.
    EXPECT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_title", "kept"), 0u);
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 44100, 16, 5), kUnsupported);
    EXPECT_EQ(fp_data(), "<null>");
    EXPECT_THAT(find_albums_request(), ::testing::HasSubstr("\"kept\""));

    // An unknown kind is found inside the lock: the inputs are gone.
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "ZELTO_CANTRIX_FP_TVX", 44100, 16, 2), kInvalidArg);
    EXPECT_EQ(last_error(), "90810001/90810001 zelto_cantrix_query_fingerprint_begin | (null)");
    EXPECT_EQ(fp_data(), "<null>");
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x908101a4u);
    // A write without a generator is the service's refusal.
    const uint8_t pcm[4] = {};
    EXPECT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm, 4, nullptr), kInvalidArg);
    // A rate Chromaprint cannot take.
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 800, 16, 2), kUnsupported);
}

TEST(FingerprintModuleDown, EveryEntryWithTheInitialisedTest) {
    const uint8_t pcm[4] = {};
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(nullptr, "zelto_cantrix_fp_tvx", 44100, 16, 2), kNotInitialized);
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(nullptr, "abc", "zelto_cantrix_fp_tvx"), kNotInitialized);
    EXPECT_EQ(zelto_cantrix_query_get_fp_data(nullptr, nullptr), kNotInitialized);
    // Write and end have no initialised test: without tables the service test fails.
    EXPECT_EQ(zelto_cantrix_query_fingerprint_write(nullptr, pcm, 4, nullptr), kNoService);
    EXPECT_EQ(zelto_cantrix_query_fingerprint_end(nullptr), kNoService);
}

class NoDspTest : public WithQuery<ScriptedTest> {
   protected:
    void before_initialize() override { zelto_manager_service_enable("_zelto_dsp_interface", 0); }
};

TEST_F(NoDspTest, FourFunctionsFailAndDataStillWorks) {
    const uint8_t pcm[4] = {};
    const std::string message = "9081003F/9081003F %s | DSP module has not been initialized";
    auto expect = [&](uint32_t status, const char *function) {
        EXPECT_EQ(status, kNoService) << function;
        std::string want = message;
        want.replace(want.find("%s"), 2, function);
        EXPECT_EQ(last_error(), want);
    };
    expect(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 44100, 16, 2),
           "zelto_cantrix_query_fingerprint_begin");
    expect(zelto_cantrix_query_fingerprint_write(query_, pcm, 4, nullptr), "zelto_cantrix_query_fingerprint_write");
    expect(zelto_cantrix_query_fingerprint_end(query_), "zelto_cantrix_query_fingerprint_end");
    // The service test follows the argument tests, and comes before the width test.
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "", 44100, 16, 2), kInvalidArg);
    EXPECT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 44100, 24, 2), kNoService);
    // Data needs no signal processing, but reading it back does.
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "opaque fingerprint", "zelto_cantrix_fp_tvx"), 0u);
    const char *text = nullptr;
    expect(zelto_cantrix_query_get_fp_data(query_, &text), "zelto_cantrix_query_get_fp_data");
    EXPECT_EQ(text, nullptr);
    // ... and the find operations send it.
    answer(make_answer("zelto_result_no_matches", {}));
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_THAT(transcript(0), ::testing::HasSubstr(
                                   "add zelto_lookup_type_track CNX_1 cnx 0\n"
                                   "data CNX_1 zelto_lookup_data_tvx_querydata \"opaque fingerprint\" copy 1\n"));
}

// The same music in one write, in writes of 1000 samples and of one sample
// gives the same text, whatever the width, rate and channel count.
TEST_F(FingerprintTest, SameTextHoweverTheAudioIsCut) {
    struct Row {
        Signal signal;
        uint32_t rate, bits, channels;
        const char *kind;
    } rows[] = {
        {Signal::chords, 11025, 8, 1, "zelto_cantrix_fp_tvx"},
        {Signal::melody, 22050, 16, 2, "zelto_cantrix_fp_file"},
        {Signal::noise, 44100, 32, 2, "zelto_cantrix_fp_tvx"},
        {Signal::chords, 48000, 16, 1, "zelto_cantrix_fp_file"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(test_audio::name(row.signal)) + " " + std::to_string(row.rate));
        // One-sample writes are slow through the handle checks: a shorter
        // piece at the low rate and 8 seconds elsewhere.
        const double seconds = row.rate == 11025 ? 10 : 8;
        const auto pcm = test_audio::pcm(row.signal, row.rate, row.channels, row.bits, seconds);
        const std::string whole = generate(row.kind, row.rate, row.bits, row.channels, pcm, 0);
        EXPECT_THAT(whole, ::testing::MatchesRegex("DURATION=[0-9]+\nFINGERPRINT=[-_A-Za-z0-9]+"));
        EXPECT_THAT(whole, ::testing::StartsWith("DURATION=" + std::to_string(static_cast<int>(seconds)) + "\n"));
        EXPECT_EQ(generate(row.kind, row.rate, row.bits, row.channels, pcm, 1000 * row.bits / 8 * row.channels),
                  whole);
        if (row.rate <= 22050) {
            EXPECT_EQ(generate(row.kind, row.rate, row.bits, row.channels, pcm, row.bits / 8), whole);
        }
    }
}

TEST_F(FingerprintTest, PartialTextBetweenWriteAndEnd) {
    const auto pcm = test_audio::pcm(Signal::melody, 11025, 1, 16, 30);
    ASSERT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 11025, 16, 1), 0u);
    EXPECT_EQ(fp_data(), "<null>") << "no blocks yet";
    ASSERT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm.data(), static_cast<uint32_t>(pcm.size() / 2), nullptr),
              0u);
    const std::string partial = fp_data();
    EXPECT_THAT(partial, ::testing::StartsWith("DURATION=15\nFINGERPRINT="));
    ASSERT_EQ(zelto_cantrix_query_fingerprint_write(query_, pcm.data() + pcm.size() / 2,
                                                    static_cast<uint32_t>(pcm.size() / 2), nullptr),
              0u);
    ASSERT_EQ(zelto_cantrix_query_fingerprint_end(query_), 0u);
    const std::string full = fp_data();
    EXPECT_THAT(full, ::testing::StartsWith("DURATION=30\nFINGERPRINT="));
    EXPECT_GT(full.size(), partial.size() + 100);
    EXPECT_EQ(fp_data(), full) << "rebuilt the same after end";
    EXPECT_EQ(zelto_cantrix_query_get_fp_data(query_, nullptr), 0u);
}

TEST_F(FingerprintTest, CompleteAfterAFullLengthOfAudio) {
    const auto second = test_audio::pcm(Signal::chords, 8000, 1, 8, 1);
    ASSERT_EQ(zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 8000, 8, 1), 0u);
    for (int s = 1; s <= 122; ++s) {
        EXPECT_EQ(out(zelto_cantrix_query_fingerprint_write, query_, second.data(), 8000), s >= 120 ? 1 : 0) << s;
    }
    ASSERT_EQ(zelto_cantrix_query_fingerprint_end(query_), 0u);
    EXPECT_THAT(fp_data(), ::testing::StartsWith("DURATION=122\n"));
}

TEST_F(FingerprintTest, TooLittleAudioGivesNoFingerprint) {
    const auto pcm = test_audio::pcm(Signal::chords, 44100, 2, 16, 1);
    EXPECT_EQ(generate("zelto_cantrix_fp_tvx", 44100, 16, 2, pcm, 0), "<null>");
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x908101a4u);
}

TEST_F(FingerprintTest, PlainDataStandsAsGiven) {
    LogCapture log({0x81});
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "", "zelto_cantrix_fp_tvx"), kInvalidArg);
    EXPECT_EQ(last_error(), "90810001/90810001 zelto_cantrix_query_set_fp_data | (null)");
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "abc", nullptr), kInvalidArg);
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "bad \xC3(", "zelto_cantrix_fp_tvx"), kInvalidUtf8);
    EXPECT_EQ(last_error(), "908103A0/908103A0 zelto_cantrix_query_set_fp_data | 'fp_data' parameter invalid UTF8");
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(nullptr, "abc", "zelto_cantrix_fp_tvx"), kInvalidArg);

    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, " \t DURATION=8\nFINGERPRINT=AQAA  \n", "zelto_cantrix_fp_tvx"),
              0u);
    EXPECT_EQ(fp_data(), "DURATION=8\nFINGERPRINT=AQAA");
    EXPECT_EQ(find_albums_request(),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_tvx_querydata \"DURATION=8\\nFINGERPRINT=AQAA\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
    // Kinds are not tested here; the lookup finds an unknown one out.
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "abc", "another kind"), 0u);
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x908101a3u);
    // A short text that only starts like the prefix is plain.
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "ZTF", "zelto_cantrix_fp_file"), 0u);
    EXPECT_EQ(fp_data(), "ZTF");
}

TEST_F(FingerprintTest, SerialDataThatCannotBeDecoded) {
    // The decode status, mapped (the serialisation service's package maps to 0x90810405) ...
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "ZTFPxyz", "zelto_cantrix_fp_tvx"), 0x90810405u);
    EXPECT_EQ(fp_data(), "<null>");
    // ... but for the kind that must be a description, invalid data.
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "ZTFPxyz", "zelto_cantrix_fp_zfpx"), kInvalidData);
    EXPECT_EQ(fp_data(), "<null>");
    // A payload that decodes but is no XML description.
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "ZTFPYWJj", "zelto_cantrix_fp_tvx"), kInvalidData);
    EXPECT_EQ(fp_data(), "abc");
    // Plain text that is no XML under the description kind.
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, "abc", "zelto_cantrix_fp_zfpx"), kInvalidData);
    EXPECT_EQ(fp_data(), "abc");
    EXPECT_EQ(zelto_manager_serial_live_blocks(), 0u);
}

TEST_F(FingerprintTest, FingerprintAmongTheOtherInputs) {
    const auto pcm = test_audio::pcm(Signal::chords, 22050, 1, 16, 12);
    // A fingerprint drops text input, and text input drops the fingerprint.
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_album", "x"), 0u);
    const std::string text = generate("zelto_cantrix_fp_tvx", 22050, 16, 1, pcm, 0);
    EXPECT_THAT(find_albums_request(), ::testing::Not(::testing::HasSubstr("\"x\"")));
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_album", "x"), 0u);
    EXPECT_EQ(fp_data(), "<null>");

    // Beside a TOC both stand, and the TOC lookup sends the fingerprint too.
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672 27367 41225"), 0u);
    EXPECT_EQ(generate("zelto_cantrix_fp_tvx", 22050, 16, 1, pcm, 0), text);
    EXPECT_EQ(find_albums_request(),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_toc \"150 14672 27367 41225\" copy 1\n"
              "data CNX_1 zelto_lookup_data_tvx_querydata \"" +
                  text.substr(0, text.find('\n')) + "\\n" + text.substr(text.find('\n') + 1) +
                  "\" copy 1\n"
                  "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
                  "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
                  "execute user \"test-user\"\n"
                  "get_result CNX_1\n"
                  "release\n");
    // Data set beside the TOC writes over the fingerprint's text, and the
    // lookup sends it; the generator and its blocks stay, though, so reading
    // the text back rebuilds it from them.
    ASSERT_EQ(zelto_cantrix_query_set_fp_data(query_, "other", "zelto_cantrix_fp_tvx"), 0u);
    EXPECT_THAT(find_albums_request(), ::testing::HasSubstr("zelto_lookup_data_toc \"150 14672 27367 41225\" copy 1\n"
                                                            "data CNX_1 zelto_lookup_data_tvx_querydata \"other\""));
    EXPECT_EQ(fp_data(), text);
    // A TOC string set over fingerprint data keeps the fingerprint; a text
    // input drops both.
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 20000"), 0u);
    EXPECT_EQ(fp_data(), text);
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_album", "x"), 0u);
    ASSERT_EQ(zelto_cantrix_query_set_fp_data(query_, "other", "zelto_cantrix_fp_tvx"), 0u);
    EXPECT_EQ(fp_data(), "other");
}

TEST_F(FingerprintTest, FingerprintFromPcmGoesOutAsTvxData) {
    const auto pcm = test_audio::pcm(Signal::melody, 44100, 2, 16, 15);
    const std::string text = generate("zelto_cantrix_fp_file", 44100, 16, 2, pcm, 4096);
    answer(make_answer("zelto_result_no_matches", {}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    std::string escaped = text;
    escaped.replace(escaped.find('\n'), 1, "\\n");
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_track CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_tvx_querydata \"" + escaped + "\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
}

// ---- XML descriptions ----------------------------------------------------------

constexpr const char kDescription[] =
    "<FP><ALGORITHM><NAME>chromaprint</NAME><VERSION>2</VERSION></ALGORITHM><DATA>AQAA</DATA></FP>";

class XmlDescriptionTest : public FingerprintTest {
   protected:
    void SetUp() override {
        FingerprintTest::SetUp();
        if (IsSkipped()) return;
        // Descriptions are read through the HDO XML bridge and HPath.
        ASSERT_EQ(zelto_cantrix_query_set_fp_data(query_, kDescription, "zelto_cantrix_fp_zfpx"), 0u);
    }
    // The lookup lines of an album find by fingerprint description.
    static std::string fpx_lines(const std::string &version, const std::string &text) {
        return "add zelto_lookup_type_album CNX_1 audio-block 1\n"
               "data CNX_1 zelto_lookup_data_fpx_algname \"chromaprint\" copy 1\n"
               "data CNX_1 zelto_lookup_data_fpx_algver \"" + version + "\" copy 1\n"
               "data CNX_1 zelto_lookup_data_fpx_querydata \"" + text + "\" copy 1\n";
    }
};

TEST_F(XmlDescriptionTest, FromPcmTheAlgorithmGoesOutWithTheDescription) {
    struct {
        const char *kind;
        const char *version;
    } rows[] = {{"zelto_cantrix_fp_zfpx", "2"}, {"zelto_cantrix_fp_3stream", "2"}, {"zelto_cantrix_fp_6stream", "5"}};
    const auto pcm = test_audio::pcm(Signal::melody, 22050, 2, 16, 15);
    for (auto &row : rows) {
        const std::string text = generate(row.kind, 22050, 16, 2, pcm, 5000);
        EXPECT_THAT(text, ::testing::StartsWith(std::string("<FINGERPRINT><ALGORITHM><NAME>chromaprint</NAME><VERSION>") +
                                                row.version + "</VERSION></ALGORITHM><DURATION>15</DURATION><DATA>"));
        EXPECT_THAT(find_albums_request(), ::testing::HasSubstr(fpx_lines(row.version, text)));
    }
}

TEST_F(XmlDescriptionTest, SerialFormRoundTrip) {
    const auto pcm = test_audio::pcm(Signal::chords, 48000, 1, 32, 12);
    const std::string text = generate("zelto_cantrix_fp_6stream", 48000, 32, 1, pcm, 0);
    char *serial = nullptr;
    ASSERT_EQ(zelto_manager_fp_serialize(text.c_str(), &serial), 0u);
    // Set under another kind: the description makes it zfpx.
    ASSERT_EQ(zelto_cantrix_query_set_fp_data(query_, serial, "zelto_cantrix_fp_tvx"), 0u);
    zelto_manager_text_free(serial);
    EXPECT_EQ(fp_data(), text);
    EXPECT_THAT(find_albums_request(), ::testing::HasSubstr(fpx_lines("5", text)));
    EXPECT_EQ(zelto_manager_serial_live_blocks(), 0u);
}

TEST_F(XmlDescriptionTest, PlainDescriptionsAndTheirAlgorithmParts) {
    // A description given plain under a tvx kind becomes zfpx.
    ASSERT_EQ(zelto_cantrix_query_set_fp_data(query_, kDescription, "zelto_cantrix_fp_tvx"), 0u);
    EXPECT_THAT(find_albums_request(), ::testing::HasSubstr(fpx_lines("2", kDescription)));
    // Without its ALGORITHM parts: invalid data, the text set.
    const char *no_version = "<FP><ALGORITHM><NAME>n</NAME></ALGORITHM></FP>";
    EXPECT_EQ(zelto_cantrix_query_set_fp_data(query_, no_version, "zelto_cantrix_fp_tvx"), kInvalidData);
    EXPECT_EQ(fp_data(), no_version);
}

// Runs `prepare`, then `op` with its n-th allocation failing, for n = 1, 2,
// ... until `op` runs through; `failed(status, n)` checks each failure.
// Returns the number of failures.
template <typename Prepare, typename Op, typename Failed>
uint64_t sweep(Prepare prepare, Op op, Failed failed) {
    for (uint64_t n = 1; n < 10000; ++n) {
        prepare();
        zelto_manager_memory_fail_nth(n);
        const uint32_t status = op();
        const bool fired = zelto_manager_memory_failure_fired() != 0;
        zelto_manager_memory_fail_nth(0);
        if (!fired) {
            EXPECT_EQ(status, 0u);
            return n - 1;
        }
        failed(status, n);
    }
    ADD_FAILURE() << "never ran through";
    return 0;
}

// Every allocation of begin, write, end and set data failing in turn: a
// failure status, nothing leaked (the fixture checks), and the query still
// usable; a write or end that failed is not lost for the fingerprint.
TEST_F(FingerprintTest, AllocationFailuresInEachStep) {
    const auto pcm = test_audio::pcm(Signal::chords, 11025, 2, 16, 12);
    const auto size = static_cast<uint32_t>(pcm.size());
    const std::string expected = generate("zelto_cantrix_fp_tvx", 11025, 16, 2, pcm, 0);
    ASSERT_NE(expected, "<null>");
    auto begin = [&] { return zelto_cantrix_query_fingerprint_begin(query_, "zelto_cantrix_fp_tvx", 11025, 16, 2); };
    auto write = [&] { return zelto_cantrix_query_fingerprint_write(query_, pcm.data(), size, nullptr); };
    auto end = [&] { return zelto_cantrix_query_fingerprint_end(query_); };

    uint64_t failures = sweep([&] { ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_title", "t"), 0u); },
                              begin, [&](uint32_t status, uint64_t n) {
                                  EXPECT_EQ(status, 0x90810002u) << n;
                                  // Nothing half-made is left: the fingerprint still works.
                                  EXPECT_EQ(begin(), 0u);
                                  EXPECT_EQ(write(), 0u);
                                  EXPECT_EQ(end(), 0u);
                                  EXPECT_EQ(fp_data(), expected);
                              });
    EXPECT_EQ(failures, 4u) << "the blocks vector and its lock, the generator, the kind";

    failures = sweep([&] { ASSERT_EQ(begin(), 0u); }, write, [&](uint32_t status, uint64_t n) {
        EXPECT_EQ(status, 0x90810002u) << n;
        EXPECT_EQ(end(), 0u);
        EXPECT_EQ(fp_data(), expected) << "after failure " << n;
    });
    EXPECT_GE(failures, 2u) << "each block, and the vector growing";

    failures = sweep([&] { ASSERT_EQ(begin(), 0u); ASSERT_EQ(write(), 0u); }, end, [&](uint32_t status, uint64_t n) {
        EXPECT_EQ(status, 0x90810002u) << n;
        EXPECT_EQ(end(), 0u) << "end can be called again";
        EXPECT_EQ(fp_data(), expected) << "after failure " << n;
    });
    EXPECT_GE(failures, 3u) << "last block, pointer array, text, copy";

    failures = sweep([] {}, [&] { return zelto_cantrix_query_set_fp_data(query_, "  plain data ", "zelto_cantrix_fp_tvx"); },
                     [&](uint32_t status, uint64_t n) {
                         // A plain text that fails to parse as XML (here for want of
                         // memory) is no failure: it stands under the caller's kind.
                         if (status == 0)
                             EXPECT_EQ(fp_data(), "plain data") << n;
                         else
                             EXPECT_EQ(status, 0x90810002u) << n;
                     });
    EXPECT_EQ(fp_data(), "plain data");
    EXPECT_GE(failures, 2u) << "data and kind, and the parse attempt";
}

}  // namespace

// Reading a description's algorithm parts with each allocation failing in
// turn (parse, path evaluation, the copies): invalid data or no memory,
// nothing leaked, and the next set reads the description in full.
TEST_F(FingerprintTest, AllocationFailuresReadingADescription) {
    auto set = [&] { return zelto_cantrix_query_set_fp_data(query_, kDescription, "zelto_cantrix_fp_zfpx"); };
    const uint64_t failures = sweep([] {}, set, [&](uint32_t status, uint64_t n) {
        EXPECT_TRUE(status == 0x90810002u || status == kInvalidData) << std::hex << status << " at " << std::dec << n;
    });
    EXPECT_GT(failures, 4u);
    EXPECT_THAT(find_albums_request(), ::testing::HasSubstr("zelto_lookup_data_fpx_algname \"chromaprint\""));
}
