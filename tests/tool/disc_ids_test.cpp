// Disc IDs against the TOCs and IDs that open projects publish in their test
// suites, the audio session of unusual discs, and disc ID recognition.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tool/disc/disc.h"
#include "tool/disc/toc_text.h"

namespace {

using disc::AudioToc;
using disc::Disc;
using disc::Track;

struct Vector {
    const char *source;
    const char *toc;  // "first last lead-out offsets..."
    const char *musicbrainz;
    const char *freedb;
};

// libdiscid, test/test_put.c: a 22-track disc through discid_put.
// python-discid, test_discid.py: "Guano Apes - Don't give Me Names, without
//   last data track" (an Enhanced CD given by its audio session).
// libcddb, tests/check_discid.sh: "cddb_query calc 3826 11 150 28615 ...",
//   a disc of 3826 seconds (lead-out 3826 * 75 = 286950) and ID 920ef00b;
//   libcddb publishes no MusicBrainz ID, so that one is libdiscid's.
constexpr Vector kPublished[] = {
    {"libdiscid test_put.c",
     "1 22 303602 150 9700 25887 39297 53795 63735 77517 94877 107270 123552 135522 148422 161197 174790 "
     "192022 205545 218010 228700 239590 255470 266932 288750",
     "xUp1F2NkfP8s8jaeFn_Av3jNEI4-", "370fce16"},
    {"python-discid test_discid.py",
     "1 15 258725 150 17510 33275 45910 57805 78310 94650 109580 132010 149160 165115 177710 203325 215555 "
     "235590",
     "TqvKjMu7dMliSfmVEBtrL7sBSno-", "b60d770f"},
    {"libcddb check_discid.sh",
     "1 11 286950 150 28615 51027 75835 102620 121460 148977 175697 204322 231082 268002", nullptr, "920ef00b"},
};

Disc parsed(const char *toc) {
    auto d = disc::parse_toc_text(toc);
    EXPECT_TRUE(d) << toc << ": " << d.error().message;
    return d ? *d : Disc{};
}

std::vector<uint32_t> offsets_of(const Disc &d) {
    std::vector<uint32_t> v;
    for (const Track &t : d.tracks) v.push_back(t.offset);
    return v;
}

TEST(DiscIds, PublishedVectors) {
    for (const Vector &v : kPublished) {
        SCOPED_TRACE(v.source);
        const Disc d = parsed(v.toc);
        const disc::DiscIds ids = disc::disc_ids(d);
        if (v.musicbrainz) {
            EXPECT_EQ(ids.musicbrainz, v.musicbrainz);
        }
        EXPECT_EQ(ids.freedb, v.freedb);
        EXPECT_EQ(ids.note, "");
        // The freedb ID computed here for Enhanced CDs agrees with libdiscid's.
        EXPECT_EQ(disc::freedb_id_text(disc::freedb_id(offsets_of(d), *d.leadout)), v.freedb);
    }
}

TEST(DiscIds, BothFormsOfOneTocGiveOneId) {
    const Disc a = parsed("150 28615 51027 75835 102620 121460 148977 175697 204322 231082 268002 286950");
    const Disc b = parsed(kPublished[2].toc);
    EXPECT_EQ(disc::disc_ids(a).musicbrainz, disc::disc_ids(b).musicbrainz);
    EXPECT_EQ(disc::disc_ids(a).freedb, "920ef00b");
}

// The python-discid disc is an Enhanced CD: its data track lies 11,400
// frames after the audio lead-out, and with it listed the MusicBrainz ID is
// still that of the audio session, while the freedb ID covers all 16 tracks.
TEST(DiscIds, EnhancedCdKeepsTheAudioSessionForMusicBrainz) {
    Disc d = parsed(kPublished[1].toc);
    const uint32_t data_offset = 258725 + disc::kSessionGapFrames;
    d.tracks.push_back(Track{16, data_offset, true, {}});
    d.leadout = 300000;
    d.audio_leadout.reset();
    auto toc = disc::audio_session(d);
    ASSERT_TRUE(toc) << toc.error().message;
    EXPECT_EQ(toc->leadout, 258725u);
    EXPECT_EQ(toc->last, 15u);
    const disc::DiscIds ids = disc::disc_ids(d);
    EXPECT_EQ(ids.musicbrainz, "TqvKjMu7dMliSfmVEBtrL7sBSno-");
    std::vector<uint32_t> all = offsets_of(d);
    EXPECT_EQ(ids.freedb, disc::freedb_id_text(disc::freedb_id(all, 300000)));
    EXPECT_EQ(ids.freedb.substr(6), "10");  // 16 tracks
    EXPECT_NE(ids.freedb, "b60d770f");
}

// Worked by hand: starts at 2, 200 and 400 seconds (digit sums 2 + 2 + 4),
// 598 seconds from the first track to a lead-out at 600, three tracks.
TEST(DiscIds, FreedbIdOverEveryTrackWorkedByHand) {
    Disc d;
    d.tracks = {Track{1, 150, false, {}}, Track{2, 15000, false, {}}, Track{3, 30000, true, {}}};
    d.leadout = 45000;
    EXPECT_EQ(disc::disc_ids(d).freedb, "08025603");
    EXPECT_EQ(disc::freedb_id({150, 15000, 30000}, 45000), 0x08025603u);
    // Without the disc's own lead-out there is nothing to compute it from.
    d.leadout.reset();
    EXPECT_EQ(disc::disc_ids(d).freedb, "");
    EXPECT_NE(disc::disc_ids(d).note, "");
}

// A mixed-mode disc (data track 1): the audio session starts at track 2,
// which libdiscid takes as a first track number of 2.
TEST(DiscIds, LeadingDataTrackMovesTheFirstTrack) {
    Disc d;
    d.tracks = {Track{1, 150, true, {}}, Track{2, 20000, false, {}}, Track{3, 40000, false, {}}};
    d.leadout = 60000;
    auto toc = disc::audio_session(d);
    ASSERT_TRUE(toc);
    EXPECT_EQ(toc->musicbrainz_text(), "2 3 60000 20000 40000");
    const disc::DiscIds ids = disc::disc_ids(d);
    EXPECT_EQ(ids.musicbrainz, disc::libdiscid_ids(*toc).musicbrainz);
    EXPECT_EQ(ids.freedb, disc::freedb_id_text(disc::freedb_id({150, 20000, 40000}, 60000)));
}

// A disc whose first track is 3 (the second disc of a set numbered on):
// libdiscid's ID for "3 13 ..." differs from the same offsets as tracks 1
// to 11, since the track numbers are hashed too.
TEST(DiscIds, FirstTrackOtherThanOneAsLibdiscidHandlesIt) {
    const Disc one = parsed(kPublished[2].toc);
    const Disc three = parsed("3 13 286950 150 28615 51027 75835 102620 121460 148977 175697 204322 231082 268002");
    auto toc = disc::audio_session(three);
    ASSERT_TRUE(toc);
    EXPECT_EQ(toc->first, 3u);
    EXPECT_EQ(toc->musicbrainz_text(), "3 13 286950 150 28615 51027 75835 102620 121460 148977 175697 204322 231082 268002");
    const disc::DiscIds ids = disc::disc_ids(three);
    EXPECT_EQ(ids.musicbrainz.size(), 28u);
    EXPECT_NE(ids.musicbrainz, disc::disc_ids(one).musicbrainz);
    EXPECT_EQ(ids.freedb.size(), 8u);
}

TEST(DiscIds, AudioSessionRefusals) {
    struct Case {
        const char *name;
        Disc disc;
        const char *message;
    };
    const Case cases[] = {
        {"only data", Disc{{Track{1, 150, true, {}}}, 5000, {}, {}, {}, {}, {}}, "the disc has no audio track"},
        {"no lead-out", Disc{{Track{1, 150, false, {}}}, {}, {}, {}, {}, {}, {}}, "the lead-out is unknown"},
        {"data too close",
         Disc{{Track{1, 150, false, {}}, Track{2, 11000, true, {}}}, 20000, {}, {}, {}, {}, {}},
         "data track 2 at frame 11000 leaves no room for the 11400-frame gap after audio track 1"},
        {"disagreeing audio lead-out",
         Disc{{Track{1, 150, false, {}}, Track{2, 30000, true, {}}}, 40000, 20000u, {}, {}, {}, {}},
         "the audio lead-out 20000 is not 11400 frames before data track 2 (18600)"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto toc = disc::audio_session(c.disc);
        ASSERT_FALSE(toc);
        EXPECT_EQ(toc.error().message, c.message);
        EXPECT_EQ(disc::disc_ids(c.disc).musicbrainz, "");
        EXPECT_EQ(disc::disc_ids(c.disc).note, c.message);
    }
}

TEST(DiscIds, LibdiscidRefusalIsReported) {
    // libdiscid takes discs of up to 90 minutes.
    const disc::DiscIds ids = disc::disc_ids(parsed("150 430000"));
    EXPECT_EQ(ids.musicbrainz, "");
    EXPECT_EQ(ids.note, "libdiscid refused the TOC: Disc too long");
}

TEST(DiscIds, Kinds) {
    struct Case {
        const char *id;
        disc::DiscIdKind kind;
    };
    const Case cases[] = {
        {"xUp1F2NkfP8s8jaeFn_Av3jNEI4-", disc::DiscIdKind::musicbrainz},
        {"hoM41cVCHeAGwI4xdzp5d5Cmm.4-", disc::DiscIdKind::musicbrainz},
        {"920ef00b", disc::DiscIdKind::freedb},
        {"920EF00B", disc::DiscIdKind::freedb},
        {"920ef00", disc::DiscIdKind::none},
        {"920ef00g", disc::DiscIdKind::none},
        {"xUp1F2NkfP8s8jaeFn_Av3jNEI4=", disc::DiscIdKind::none},  // standard base64 padding
        {"xUp1F2NkfP8s8jaeFn/Av3jNEI4-", disc::DiscIdKind::none},
        {"xUp1F2NkfP8s8jaeFn_Av3jNEI4", disc::DiscIdKind::none},
        {"", disc::DiscIdKind::none},
    };
    for (const Case &c : cases) EXPECT_EQ(disc::disc_id_kind(c.id), c.kind) << c.id;
}

// ---- The sample catalogue --------------------------------------------------------
// Its generator (tools/gen_sample_catalogue.py) computes MusicBrainz disc IDs
// with Python's hashlib and freedb IDs by its own arithmetic: every one must
// be what libdiscid gives for the same TOC.

std::filesystem::path sample_dir() {
    return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() / "data" / "sample";
}

TEST(DiscIds, SampleCatalogueAgreesWithLibdiscid) {
    std::vector<std::string> records;
    std::ifstream lines(sample_dir() / "releases.jsonl");
    ASSERT_TRUE(lines) << sample_dir();
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) records.push_back(line);
    for (const auto &entry : std::filesystem::directory_iterator(sample_dir() / "releases")) {
        std::ifstream f(entry.path());
        records.emplace_back(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }
    size_t checked = 0;
    for (const std::string &text : records) {
        const auto release = nlohmann::json::parse(text);
        for (const auto &medium : release.value("media", nlohmann::json::array()))
            for (const auto &d : medium.value("discs", nlohmann::json::array())) {
                std::string toc = "1 " + std::to_string(d["offsets"].size()) + " " + std::to_string(d["sectors"].get<int>());
                for (const auto &o : d["offsets"]) toc += " " + std::to_string(o.get<int>());
                EXPECT_EQ(disc::disc_ids(parsed(toc.c_str())).musicbrainz, d["id"].get<std::string>()) << toc;
                ++checked;
            }
    }
    EXPECT_GE(checked, 30u);
}

TEST(DiscIds, SampleXmcdDiscIdsAgreeWithLibdiscid) {
    size_t checked = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(sample_dir() / "xmcd")) {
        if (!entry.is_regular_file()) continue;
        std::ifstream f(entry.path());
        std::vector<uint32_t> offsets;
        uint32_t seconds = 0;
        std::string id;
        bool in_offsets = false;
        for (std::string line; std::getline(f, line);) {
            if (line.rfind("# Track frame offsets:", 0) == 0) {
                in_offsets = true;
            } else if (in_offsets && line.size() > 1 && line[0] == '#' &&
                       line.find_first_of("0123456789") != std::string::npos) {
                offsets.push_back(static_cast<uint32_t>(std::stoul(line.substr(1))));
            } else {
                in_offsets = false;
            }
            if (line.rfind("# Disc length:", 0) == 0) seconds = static_cast<uint32_t>(std::stoul(line.substr(14)));
            if (line.rfind("DISCID=", 0) == 0) id = line.substr(7, 8);
        }
        ASSERT_FALSE(offsets.empty()) << entry.path();
        std::string toc;
        for (uint32_t o : offsets) toc += std::to_string(o) + " ";
        toc += std::to_string(seconds * disc::kFramesPerSecond);
        EXPECT_EQ(disc::disc_ids(parsed(toc.c_str())).freedb, id) << entry.path();
        ++checked;
    }
    EXPECT_GE(checked, 3u);
}

}  // namespace
