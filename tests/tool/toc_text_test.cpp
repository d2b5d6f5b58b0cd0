// TOCs typed as text: both forms, their detection, and the refusals.
#include <gtest/gtest.h>

#include "tests/tool/disc_test_support.h"
#include "tool/disc/toc_text.h"

namespace {

using disc::TocForm;

std::string audio_text(const disc::Expected<disc::Disc> &d) {
    if (!d) return "error: " + d.error().message;
    auto toc = disc::audio_session(*d);
    return toc ? toc->musicbrainz_text() : "error: " + toc.error().message;
}

TEST(TocText, Accepted) {
    struct Case {
        const char *text;
        TocForm form;
        const char *musicbrainz;  // the audio session in "first last lead-out offsets" form
    };
    const Case cases[] = {
        {"150 14672 27367 41225", TocForm::automatic, "1 3 41225 150 14672 27367"},
        {"1 3 41225 150 14672 27367", TocForm::automatic, "1 3 41225 150 14672 27367"},
        {"1+3+41225+150+14672+27367", TocForm::automatic, "1 3 41225 150 14672 27367"},
        {"  150\t14672   27367 41225  ", TocForm::automatic, "1 3 41225 150 14672 27367"},
        {"150 41225", TocForm::automatic, "1 1 41225 150"},
        {"1 1 41225 150", TocForm::automatic, "1 1 41225 150"},
        // A drive's logical sectors typed as offsets: the first track at 0.
        {"0 14522 27217 41075", TocForm::automatic, "1 3 41075 0 14522 27217"},
        {"4 5 90000 150 40000", TocForm::automatic, "4 5 90000 150 40000"},
        // Rising numbers read in the MusicBrainz form when asked for it.
        {"1 2 3 4", TocForm::offsets, "1 3 4 1 2 3"},
        {"1 2 300 150 200", TocForm::musicbrainz, "1 2 300 150 200"},
    };
    for (const Case &c : cases) EXPECT_EQ(audio_text(disc::parse_toc_text(c.text, c.form)), c.musicbrainz) << c.text;
}

TEST(TocText, Refused) {
    struct Case {
        const char *text;
        TocForm form;
        const char *message;
    };
    const Case cases[] = {
        {"", TocForm::automatic, "the TOC is empty"},
        {"   ", TocForm::automatic, "the TOC is empty"},
        {"150", TocForm::automatic, "a TOC needs at least one track offset and the lead-out"},
        {"150 100", TocForm::automatic, "number 2 (100) is not greater than number 1 (150)"},
        {"150 150", TocForm::automatic, "number 2 (150) is not greater than number 1 (150)"},
        {"12 abc", TocForm::automatic, "\"abc\" is not a number"},
        {"150,14672,41225", TocForm::automatic, "\"150,14672,41225\" is not a number"},
        {"150 -5", TocForm::automatic, "\"-5\" is not a number"},
        {"150 450001", TocForm::automatic, "number 2 lies beyond 100 minutes (450000 frames)"},
        {"150 99999999999999999999", TocForm::automatic, "number 2 lies beyond 100 minutes (450000 frames)"},
        // Looks like the MusicBrainz form: its own reasons.
        {"1 3 41225 150 27367 14672", TocForm::automatic,
         "the offset of track 3 (14672) is not greater than the one before (27367)"},
        {"1 2 400 150 500", TocForm::automatic, "the lead-out (400) is not after the last offset (500)"},
        {"1 3 41225 150 14672", TocForm::musicbrainz, "tracks 1 to 3 need 3 offsets, the text has 2"},
        {"0 3 41225 150 14672 27367", TocForm::musicbrainz,
         "first and last track (0, 3) must be track numbers 1 to 99, the first not above the last"},
        {"3 1 41225 150", TocForm::musicbrainz,
         "first and last track (3, 1) must be track numbers 1 to 99, the first not above the last"},
        {"1 1 400", TocForm::musicbrainz, "the MusicBrainz form needs first track, last track, lead-out and an offset"},
        {"1 3 41225 150 14672 27367", TocForm::offsets, "number 4 (150) is not greater than number 3 (41225)"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(disc_test::refusal(disc::parse_toc_text(c.text, c.form)), disc_test::refusal(0, c.message)) << c.text;
}

TEST(TocText, HundredTracksAreTooMany) {
    std::string text;
    for (int i = 0; i <= 100; ++i) text += std::to_string(150 + i * 1000) + " ";
    auto d = disc::parse_toc_text(text);
    ASSERT_FALSE(d);
    EXPECT_EQ(d.error().message, "100 track offsets; a CD has at most 99 tracks");
    text = text.substr(0, text.rfind(' ', text.size() - 2));  // 99 tracks and the lead-out
    EXPECT_TRUE(disc::parse_toc_text(text));
}

TEST(TocText, FormNames) {
    EXPECT_EQ(disc::toc_form_named("offsets"), TocForm::offsets);
    EXPECT_EQ(disc::toc_form_named("musicbrainz"), TocForm::musicbrainz);
    EXPECT_EQ(disc::toc_form_named("mb"), TocForm::musicbrainz);
    EXPECT_EQ(disc::toc_form_named("auto"), TocForm::automatic);
    EXPECT_EQ(disc::toc_form_named("MB"), std::nullopt);
    EXPECT_EQ(disc::toc_form_named(""), std::nullopt);
}

TEST(TocText, BothTextsOfAnAudioToc) {
    auto d = disc::parse_toc_text("1 3 41225 150 14672 27367");
    ASSERT_TRUE(d);
    auto toc = disc::audio_session(*d);
    ASSERT_TRUE(toc);
    EXPECT_EQ(toc->offsets_text(), "150 14672 27367 41225");
    EXPECT_EQ(toc->musicbrainz_text(), "1 3 41225 150 14672 27367");
}

}  // namespace
