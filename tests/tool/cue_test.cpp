// The TOC from CUE sheets: one file or several, hidden and generated
// pregaps, Enhanced CDs, and malformed sheets refused by line.
#include <gtest/gtest.h>

#include <map>

#include "tests/tool/disc_test_support.h"
#include "tool/disc/cue.h"

namespace {

using disc_test::audio_text;
using disc_test::layout;

// A disc of three tracks, "150 14672 27367 41225", as EAC writes a single-file sheet.
constexpr const char *kSingleFile = R"(REM GENRE Folk
REM DATE 2004
REM DISCID 1E022303
REM COMMENT "ExactAudioCopy v1.6"
CATALOG 0724384960650
PERFORMER "Mira Solenne"
TITLE "Lanterns of Glass"
FILE "Mira Solenne - Lanterns of Glass.wav" WAVE
  TRACK 01 AUDIO
    TITLE "Lanterns"
    PERFORMER "Mira Solenne"
    ISRC GBAYE0400001
    INDEX 01 00:00:00
  TRACK 02 AUDIO
    TITLE "Paper Comets"
    ISRC GBAYE0400002
    INDEX 00 03:11:47
    INDEX 01 03:13:47
  TRACK 03 AUDIO
    TITLE "Harbour Lights"
    INDEX 01 06:02:67
)";

disc::CueOptions with_leadout(uint32_t leadout) {
    disc::CueOptions o;
    o.leadout = leadout;
    return o;
}

disc::CueOptions with_lengths(std::map<std::string, uint32_t> lengths) {
    disc::CueOptions o;
    o.file_length = [lengths](const std::string &file) -> std::optional<uint32_t> {
        auto it = lengths.find(file);
        if (it == lengths.end()) return std::nullopt;
        return it->second;
    };
    return o;
}

TEST(Cue, SingleFileWithTheLeadOutGiven) {
    auto d = disc::read_cue(kSingleFile, with_leadout(41225));
    ASSERT_TRUE(d) << d.error().message;
    EXPECT_EQ(layout(*d), "1:150 2:14672 3:27367 leadout:41225");
    EXPECT_EQ(audio_text(*d), "1 3 41225 150 14672 27367");
    EXPECT_EQ(d->mcn, "0724384960650");
    EXPECT_EQ(d->tracks[0].isrc, "GBAYE0400001");
    EXPECT_EQ(d->tracks[1].isrc, "GBAYE0400002");
    EXPECT_EQ(d->tracks[2].isrc, "");
    EXPECT_TRUE(d->warnings.empty());
    EXPECT_EQ(disc::disc_ids(*d).freedb, "1e022303");
}

TEST(Cue, SingleFileWithItsLength) {
    auto d = disc::read_cue(kSingleFile, with_lengths({{"Mira Solenne - Lanterns of Glass.wav", 41075}}));
    ASSERT_TRUE(d) << d.error().message;
    EXPECT_EQ(layout(*d), "1:150 2:14672 3:27367 leadout:41225");
}

TEST(Cue, SameSheetInUtf16AndWithCrLf) {
    std::string crlf;
    for (const char *p = kSingleFile; *p; ++p) crlf += *p == '\n' ? std::string("\r\n") : std::string(1, *p);
    for (const std::string &bytes : {crlf, disc_test::utf16le_with_bom(crlf)}) {
        auto d = disc::read_cue(bytes, with_leadout(41225));
        ASSERT_TRUE(d) << d.error().message;
        EXPECT_EQ(layout(*d), "1:150 2:14672 3:27367 leadout:41225");
    }
}

// EAC's "multiple files with gaps": the pregap of track 2 at the end of the
// first file, times starting again in each file.
constexpr const char *kFilePerTrack = R"(FILE "01.wav" WAVE
  TRACK 01 AUDIO
    INDEX 01 00:00:00
  TRACK 02 AUDIO
    INDEX 00 03:11:47
FILE "02.wav" WAVE
    INDEX 01 00:00:00
FILE "03.wav" WAVE
  TRACK 03 AUDIO
    INDEX 01 00:00:00
)";

TEST(Cue, OneFilePerTrackNeedsTheLengths) {
    auto d = disc::read_cue(kFilePerTrack, with_lengths({{"01.wav", 14522}, {"02.wav", 12695}, {"03.wav", 13858}}));
    ASSERT_TRUE(d) << d.error().message;
    EXPECT_EQ(layout(*d), "1:150 2:14672 3:27367 leadout:41225");

    auto unknown = disc::read_cue(kFilePerTrack, with_leadout(41225));
    ASSERT_FALSE(unknown);
    EXPECT_EQ(unknown.error().line, 6u);
    EXPECT_EQ(unknown.error().message, "a second FILE: the length of \"01.wav\" is needed, since times start again in each file");

    auto short_file = disc::read_cue(kFilePerTrack, with_lengths({{"01.wav", 14000}}));
    ASSERT_FALSE(short_file);
    EXPECT_EQ(short_file.error().line, 6u);
    EXPECT_EQ(short_file.error().message, "\"01.wav\" is shorter than its INDEX times");
}

TEST(Cue, HiddenTrackAndGeneratedPregap) {
    auto d = disc::read_cue(R"(FILE "a.wav" WAVE
  TRACK 01 AUDIO
    INDEX 00 00:00:00
    INDEX 01 00:32:00
  TRACK 02 AUDIO
    PREGAP 00:02:00
    INDEX 01 01:00:00
    POSTGAP 00:01:00
  TRACK 03 AUDIO
    INDEX 01 02:00:00
)",
                            with_lengths({{"a.wav", 13500}}));
    ASSERT_TRUE(d) << d.error().message;
    // Track 1 starts after 32 s of hidden audio; track 2 after 2 s of silence
    // that no file holds; track 3 after 1 more second of it.
    EXPECT_EQ(layout(*d), "1:2550 2:4800 3:9375 leadout:13875");
}

// An Enhanced CD as one image: the data track's material follows the audio
// directly in the file; on the disc it lies 11,400 frames after the audio
// session's lead-out.
constexpr const char *kEnhanced = R"(FILE "disc.bin" BINARY
  TRACK 01 AUDIO
    INDEX 01 00:00:00
  TRACK 02 AUDIO
    INDEX 01 03:13:47
  TRACK 03 MODE1/2352
    INDEX 00 09:07:50
    INDEX 01 09:09:50
)";

TEST(Cue, EnhancedCdImage) {
    auto d = disc::read_cue(kEnhanced, with_lengths({{"disc.bin", 41075 + 150 + 9000}}));
    ASSERT_TRUE(d) << d.error().message;
    EXPECT_EQ(layout(*d), "1:150 2:14672 3:52625d leadout:61625");
    EXPECT_EQ(audio_text(*d), "1 2 41225 150 14672");

    // Without the image's length the audio session is still known, the
    // whole disc's lead-out (and with it the freedb ID) is not.
    auto partial = disc::read_cue(kEnhanced);
    ASSERT_TRUE(partial) << partial.error().message;
    EXPECT_EQ(audio_text(*partial), "1 2 41225 150 14672");
    EXPECT_EQ(disc::disc_ids(*partial).freedb, "");
    EXPECT_EQ(disc::disc_ids(*partial).musicbrainz, disc::disc_ids(*d).musicbrainz);

    auto disagreeing = disc::read_cue(kEnhanced, with_leadout(41000));
    ASSERT_FALSE(disagreeing);
    EXPECT_EQ(disagreeing.error().line, 6u);
    EXPECT_EQ(disagreeing.error().message, "the data track puts the audio lead-out at 41225, not at the lead-out given (41000)");
}

TEST(Cue, Refusals) {
    struct Case {
        const char *name;
        std::string sheet;
        size_t line;
        const char *message;
    };
    const Case cases[] = {
        {"frames above 74", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:75\n", 3, "frames 75 above 74 in 00:00:75"},
        {"seconds above 59", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:60:00\n", 3, "seconds 60 above 59 in 00:60:00"},
        {"not a time", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 1:2\n", 3, "\"1:2\" is not a time mm:ss:ff"},
        {"missing track", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nTRACK 03 AUDIO\nINDEX 01 01:00:00\n", 4,
         "TRACK 03 follows track 1: a track is missing"},
        {"repeated track", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nTRACK 01 AUDIO\nINDEX 01 01:00:00\n", 4,
         "TRACK 01 follows track 1"},
        {"times out of order", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 01:00:00\nTRACK 02 AUDIO\nINDEX 01 00:30:00\n", 5,
         "time 00:30:00 is not after the previous INDEX of this FILE"},
        {"track without INDEX 01", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 00 00:00:00\nTRACK 02 AUDIO\n", 4,
         "TRACK 02 begins before track 1 (line 2) has an INDEX 01"},
        {"last track without INDEX 01", "FILE \"a\" WAVE\nTRACK 01 AUDIO\n", 2, "track 1 has no INDEX 01"},
        {"INDEX before TRACK", "FILE \"a\" WAVE\nINDEX 01 00:00:00\n", 2, "INDEX before the first TRACK"},
        {"TRACK before FILE", "TRACK 01 AUDIO\n", 1, "TRACK before any FILE"},
        {"unknown type", "FILE \"a\" WAVE\nTRACK 01 VIDEO\n", 2, "unknown track type \"VIDEO\""},
        {"bad track number", "FILE \"a\" WAVE\nTRACK 100 AUDIO\n", 2, "TRACK needs a number 01 to 99 and a type"},
        {"track 00", "FILE \"a\" WAVE\nTRACK 00 AUDIO\n", 2, "TRACK needs a number 01 to 99 and a type"},
        {"unterminated quote", "FILE \"a WAVE\n", 1, "unterminated quote"},
        {"FILE without type", "FILE \"a\"\n", 1, "FILE needs a file name and a type"},
        {"INDEX 02 first", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 02 00:00:00\n", 3,
         "the first INDEX of a track must be 00 or 01"},
        {"INDEX repeated", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nINDEX 01 00:01:00\n", 4,
         "INDEX 01 after INDEX 1 of the same track"},
        {"PREGAP after INDEX", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nPREGAP 00:02:00\n", 4,
         "PREGAP must come once, before the track's INDEX lines"},
        {"POSTGAP before INDEX 01", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nPOSTGAP 00:02:00\n", 3,
         "POSTGAP must come once, after the track's INDEX 01"},
        {"no lead-out", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n", 0,
         "the CUE sheet does not tell where the last track ends: give the lead-out in frames"},
        {"no tracks", "REM nothing\nFILE \"a\" WAVE\n", 0, "no TRACK in the CUE sheet"},
        {"binary", std::string("FILE \"a\" WAVE\n\0\0", 16), 2, "NUL byte: not a text file (or UTF-16 without a byte order mark)"},
        {"beyond 100 minutes", "FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 100:00:00\n", 3,
         "time 100:00:00 lies beyond 100 minutes on the disc"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(disc_test::refusal(disc::read_cue(c.sheet)), disc_test::refusal(c.line, c.message)) << c.name;
}

TEST(Cue, EmptyPregapRepeatsItsTime) {
    auto d = disc::read_cue("FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nTRACK 02 AUDIO\n"
                            "INDEX 00 01:00:00\nINDEX 01 01:00:00\n",
                            with_leadout(9000));
    ASSERT_TRUE(d) << d.error().message;
    EXPECT_EQ(layout(*d), "1:150 2:4650 leadout:9000");
    auto same = disc::read_cue("FILE \"a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 01:00:00\nTRACK 02 AUDIO\n"
                               "INDEX 00 01:00:00\nINDEX 01 01:00:01\n",
                               with_leadout(9000));
    ASSERT_FALSE(same);
    EXPECT_EQ(same.error().line, 5u);
    EXPECT_EQ(same.error().message, "time 01:00:00 is not after the previous INDEX of this FILE");
}

TEST(Cue, LeadOutThatIsNotAfterTheLastTrack) {
    auto d = disc::read_cue(kSingleFile, with_leadout(27367));
    ASSERT_FALSE(d);
    EXPECT_EQ(d.error().message, "lead-out 27367 is not after the last track (27367)");
}

TEST(Cue, WarningsForWhatIsSkipped) {
    auto d = disc::read_cue(R"(CATALOG 12345
FILE "a.wav" WAVE
  TRACK 01 AUDIO
    ISRC XX-123
    FROBNICATE 1 2 3
    INDEX 01 00:00:00
)",
                            with_leadout(9000));
    ASSERT_TRUE(d) << d.error().message;
    EXPECT_EQ(d->mcn, "");
    EXPECT_EQ(d->tracks[0].isrc, "");
    const std::vector<std::string> expected{"line 1: CATALOG is not 13 digits; ignored",
                                            "line 4: ISRC is not 12 letters and digits; ignored",
                                            "line 5: unknown command \"FROBNICATE\" ignored"};
    EXPECT_EQ(d->warnings, expected);
}

}  // namespace
