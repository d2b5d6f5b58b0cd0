// The TOC from rip logs of EAC, XLD, whipper and cyanrip, written here in
// each ripper's layout, and malformed logs refused by line.
#include <gtest/gtest.h>

#include "tests/tool/disc_test_support.h"
#include "tool/disc/rip_log.h"

namespace {

using disc_test::audio_text;
using disc_test::layout;

// The three-track disc "150 14672 27367 41225" (MusicBrainz disc ID
// xyJBxyfybLWr1uGvUALDEQEuQwQ-, freedb 1e022303 by libdiscid).
constexpr const char *kMusicBrainzId = "xyJBxyfybLWr1uGvUALDEQEuQwQ-";
constexpr const char *kFreedbId = "1e022303";

constexpr const char *kEac = R"(Exact Audio Copy V1.6 from 23. October 2020

EAC extraction logfile from 21. March 2021, 14:03

Mira Solenne / Lanterns of Glass

Used drive  : HL-DT-STBD-RE  WH16NS40   Adapter: 0  ID: 1

Read mode               : Secure
Utilize accurate stream : Yes
Defeat audio cache      : Yes
Make use of C2 pointers : No

Read offset correction                      : 6
Overread into Lead-In and Lead-Out          : No


TOC of the extracted CD

     Track |   Start  |  Length  | Start sector | End sector 
    ---------------------------------------------------------
        1  |  0:00.00 |  3:13.47 |         0    |    14521   
        2  |  3:13.47 |  2:49.20 |     14522    |    27216   
        3  |  6:02.67 |  3:04.58 |     27217    |    41074   


Range status and errors

Selected range

     Filename C:\Music\Mira Solenne - Lanterns of Glass.wav

     Peak level 98.0 %
     Copy CRC 5A3B1C2D
     Copy OK

No errors occurred

End of status report
)";

// EAC in another language: the table is found by its shape.
constexpr const char *kEacGerman = R"(Exact Audio Copy V1.6 from 23. October 2020

EAC Auslese-Logdatei vom 21. März 2021, 14:03

TOC der ausgelesenen CD

     Titel |  Start  |  Länge  | Startsektor | Endsektor 
    ---------------------------------------------------------
        1  |  0:00.00 |  3:13.47 |         0    |    14521   
        2  |  3:13.47 |  2:49.20 |     14522    |    27216   
        3  |  6:02.67 |  3:04.58 |     27217    |    41074   
)";

constexpr const char *kXld = R"(X Lossless Decoder version 20191004 (152.2)

XLD extraction logfile from 2021-03-21 14:03:42 +0100

Mira Solenne / Lanterns of Glass

Used drive : PIONEER BD-RW   BDR-XD05 (revision 1.10)

Ripper mode             : XLD Secure Ripper
Disable audio cache     : OK
Make use of C2 pointers : NO
Read offset correction  : 48

TOC of the extracted CD
     Track |   Start  |  Length  | Start sector | End sector 
    ---------------------------------------------------------
        1  | 00:00:00 | 03:13:47 |         0    |    14521   
        2  | 03:13:47 | 02:49:20 |     14522    |    27216   
        3  | 06:02:67 | 03:04:58 |     27217    |    41074   

AccurateRip Summary (DiscID: 00047b2a-0012f1f5-1e022303)
    Track 01 : OK (A1, v1+v2, confidence 4+7/11)
)";

constexpr const char *kWhipper = R"(Log created by: whipper 0.10.0 (internal logger)
Log creation date: 2021-03-21T13:32:59Z

Ripping phase information:
  Drive: HL-DT-STBD-RE  WH16NS40 (revision 1.05)
  Extraction engine: cdparanoia cdparanoia III 10.2 libcdio 2.1.0 x86_64-pc-linux-gnu
  Defeat audio cache: true
  Read offset correction: 6
  Overread into lead-out: false
  Gap detection: cdrdao 1.2.4
  CD-R detected: false

CD metadata:
  Release:
    Artist: Mira Solenne
    Title: Lanterns of Glass
  CDDB Disc ID: 1e022303
  MusicBrainz Disc ID: xyJBxyfybLWr1uGvUALDEQEuQwQ-
  MusicBrainz lookup URL: https://musicbrainz.org/cdtoc/attach?toc=1+3+41225+150+14672+27367&tracks=3&id=xyJBxyfybLWr1uGvUALDEQEuQwQ-

TOC:
  1:
    Start: 00:00:00
    Length: 03:13:47
    Start sector: 0
    End sector: 14521

  2:
    Start: 03:13:47
    Length: 02:49:20
    Start sector: 14522
    End sector: 27216

  3:
    Start: 06:02:67
    Length: 03:04:58
    Start sector: 27217
    End sector: 41074

Tracks:
  1:
    Filename: ./Mira Solenne - Lanterns of Glass/01. Mira Solenne - Lanterns.flac
    Peak level: 0.912353
)";

constexpr const char *kCyanrip = R"(cyanrip 0.9.0 (git-a1b2c3d)
System device:  /dev/sr0
Device model:   HL-DT-ST BD-RE  WH16NS40
Offset:         +6 samples
Paranoia level: max
Disc tracks:    3
Tracks to rip:  all
DiscID:         xyJBxyfybLWr1uGvUALDEQEuQwQ-
CDDB ID:        1e022303

Track 1 ripped and encoded successfully!
    Preemphasis:   none
    Start LSN:     0
    End LSN:       14521
Track 2 ripped and encoded successfully!
    Preemphasis:   none
    Start LSN:     14522
    End LSN:       27216
Track 3 ripped and encoded successfully!
    Preemphasis:   none
    Start LSN:     27217
    End LSN:       41074
)";

TEST(RipLog, EachRipper) {
    struct Case {
        const char *name;
        std::string bytes;
        disc::Ripper ripper;
        const char *stated_musicbrainz, *stated_freedb;
    };
    const Case cases[] = {
        {"EAC", kEac, disc::Ripper::eac, "", ""},
        {"EAC in UTF-16", disc_test::utf16le_with_bom(kEac), disc::Ripper::eac, "", ""},
        {"EAC in German", kEacGerman, disc::Ripper::eac, "", ""},
        {"XLD", kXld, disc::Ripper::xld, "", kFreedbId},
        {"whipper", kWhipper, disc::Ripper::whipper, kMusicBrainzId, kFreedbId},
        {"cyanrip", kCyanrip, disc::Ripper::cyanrip, kMusicBrainzId, kFreedbId},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto log = disc::read_rip_log(c.bytes);
        ASSERT_TRUE(log) << "line " << log.error().line << ": " << log.error().message;
        EXPECT_EQ(log->ripper, c.ripper);
        EXPECT_EQ(layout(log->disc), "1:150 2:14672 3:27367 leadout:41225");
        EXPECT_EQ(log->disc.stated_musicbrainz, c.stated_musicbrainz);
        EXPECT_EQ(log->disc.stated_freedb, c.stated_freedb);
        EXPECT_TRUE(log->disc.warnings.empty());
        const disc::DiscIds ids = disc::disc_ids(log->disc);
        EXPECT_EQ(ids.musicbrainz, kMusicBrainzId);
        EXPECT_EQ(ids.freedb, kFreedbId);
    }
    EXPECT_STREQ(disc::ripper_name(disc::Ripper::whipper), "whipper");
}

// Replaces the first occurrence of `from` in `text`.
std::string edited(std::string text, const std::string &from, const std::string &to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

// An Enhanced CD: a data track 11,400 sectors after the audio session.
TEST(RipLog, EnhancedCdDataTrackByItsGap) {
    const std::string eac = edited(kEac, "        3  |  6:02.67 |  3:04.58 |     27217    |    41074   \n",
                                   "        3  |  6:02.67 |  3:04.58 |     27217    |    41074   \n"
                                   "        4  | 11:39.50 |  2:00.00 |     52475    |    61474   \n");
    const std::string whipper = edited(kWhipper, "\nTracks:\n",
                                       "  4:\n    Start: 11:39:50\n    Length: 02:00:00\n    Start sector: 52475\n"
                                       "    End sector: 61474\n\nTracks:\n");
    for (const std::string &text : {eac, whipper}) {
        auto log = disc::read_rip_log(text);
        ASSERT_TRUE(log) << "line " << log.error().line << ": " << log.error().message;
        EXPECT_EQ(layout(log->disc), "1:150 2:14672 3:27367 4:52625d leadout:61625");
        EXPECT_EQ(audio_text(log->disc), "1 3 41225 150 14672 27367");
        const disc::DiscIds ids = disc::disc_ids(log->disc);
        EXPECT_EQ(ids.musicbrainz, kMusicBrainzId);
        // Every track, as rippers report it; libdiscid gives the same number
        // when handed all four tracks as if they were audio.
        EXPECT_EQ(ids.freedb, "26033304");
        disc::AudioToc all{1, 4, 61625, {150, 14672, 27367, 52625}};
        EXPECT_EQ(disc::libdiscid_ids(all).freedb, "26033304");
    }
}

TEST(RipLog, Refusals) {
    const std::string row3 = "        3  |  6:02.67 |  3:04.58 |     27217    |    41074   ";
    struct Case {
        const char *name;
        std::string text;
        size_t line;
        const char *message;
    };
    const Case cases[] = {
        {"unknown ripper", "My Ripper 1.0\nTOC\n", 1, "not a log of EAC, XLD, whipper or cyanrip"},
        {"no table", "Exact Audio Copy V1.6\n\nNo TOC here\n", 0,
         "no TOC table (Track | Start | Length | Start sector | End sector) in the log"},
        {"empty table", edited(kEac, "        1  |", "\n        1  |"), 22, "the TOC table has no rows"},
        {"frames above 74", edited(kEac, "6:02.67 |  3:04.58", "6:02.67 |  3:04.75"), 24, "frames 75 above 74 in 3:04.75"},
        {"seconds above 59", edited(kEac, "2  |  3:13.47", "2  |  3:63.47"), 23,
         "seconds 63 above 59 in 3:63.47"},
        {"missing track", edited(kEac, "        2  |  3:13.47 |  2:49.20 |     14522    |    27216   \n", ""), 23,
         "track 3 follows track 1: a track is missing"},
        {"track numbers", edited(kEac, "        3  |  6:02.67", "        5  |  6:02.67"), 24,
         "track 5 follows track 2: a track is missing"},
        {"gap inside a session", edited(kEac, row3, "        3  |  6:04.00 |  3:03.50 |     27300    |    41074   "), 24,
         "track 3 starts 83 sectors after track 2 ends: tracks of a session adjoin, and a new session starts at least "
         "11400 sectors later"},
        {"time and sector disagree", edited(kEac, row3, "        3  |  6:02.67 |  3:04.58 |     27000    |    41074   "),
         24, "track 3: start time 6:02.67 is not its start sector 27000"},
        {"length and sectors disagree", edited(kEac, row3, "        3  |  6:02.67 |  3:04.57 |     27217    |    41074   "),
         24, "track 3: length 3:04.57 does not match sectors 27217 to 41074"},
        {"overlap", edited(kEac, row3, "        3  |  6:00.00 |  3:07.50 |     27000    |    41074   "), 24,
         "track 3 starts at sector 27000, before track 2 ends (27216)"},
        {"end before start", edited(kEac, "|    27216   ", "|    14000   "), 23,
         "track 2 ends (sector 14000) before it starts (14522)"},
        {"not a row", edited(kEac, row3, "        3  |  6:02.67 |  3:04.58 |     27217"), 24,
         "not a row of the TOC table (track | start | length | start sector | end sector)"},
        {"not a number", edited(kEac, "|     27217    |", "|     27x17    |"), 24, "start sector \"27x17\" is not a number"},
        {"whipper without TOC", "Log created by: whipper 0.10.0\n\nTracks:\n", 0, "no \"TOC:\" section in the whipper log"},
        {"whipper bad sector", edited(kWhipper, "Start sector: 14522", "Start sector: -1"), 31,
         "Start sector: \"-1\" is not a number"},
        {"whipper end missing", edited(kWhipper, "    End sector: 27216\n", ""), 28, "track 2 lacks its start or end sector"},
        {"cyanrip partial", edited(kCyanrip, "Disc tracks:    3", "Disc tracks:    11"), 6,
         "the disc has 11 tracks but the log shows 3 (a partial rip?): the TOC needs them all"},
        {"UTF-16 cut in half", disc_test::utf16le_with_bom(kEac).substr(0, 301), 7,
         "UTF-16 text ends in half a character (odd byte count)"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(disc_test::refusal(disc::read_rip_log(c.text)), disc_test::refusal(c.line, c.message)) << c.name;
}

TEST(RipLog, SeveralLogsInOneFileUseTheFirst) {
    auto log = disc::read_rip_log(std::string(kEac) + "\n" + kEac);
    ASSERT_TRUE(log);
    EXPECT_EQ(layout(log->disc), "1:150 2:14672 3:27367 leadout:41225");
    EXPECT_EQ(log->disc.warnings,
              std::vector<std::string>{"the log holds 2 TOC tables (several logs in one file?); the first is used"});
}

}  // namespace
