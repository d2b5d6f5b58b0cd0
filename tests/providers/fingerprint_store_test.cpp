// The catalogue's fingerprint store: linking by tags, by a given track and
// by MusicBrainz identifiers, files recognised by content, refusals that
// leave earlier entries alone, and matching against what was stored.
#include <gtest/gtest.h>

#include "catalogue_fixtures.h"
#include "fingerprint_test_support.h"
#include "providers/catalogue/store/catalogue.h"

namespace {

using catalogue::FingerprintAdded;
using catalogue_test::open_memory;
using Outcome = FingerprintAdded::Outcome;

catalogue::FingerprintEntry entry(const std::string &content, uint64_t seed, const std::string &album,
                                  const std::string &title, uint32_t number) {
    catalogue::FingerprintEntry e;
    e.print = fp_test::print(fp_test::walk(seed, 1200), 148);
    e.content_id = content;
    e.name = "/music/" + title + ".flac";
    e.tags.album = album;
    e.tags.artist = "Ana Reyes";
    e.tags.title = title;
    e.tags.track_number = number;
    return e;
}

class FingerprintStoreTest : public ::testing::Test {
   protected:
    FingerprintAdded add(const catalogue::FingerprintEntry &e) {
        FingerprintAdded out;
        catalogue::Status st = cat->add_fingerprint(e, out);
        EXPECT_TRUE(st.ok()) << st.message;
        return out;
    }
    catalogue::FingerprintCounts counts() {
        catalogue::FingerprintCounts c;
        EXPECT_TRUE(cat->fingerprint_counts(c).ok());
        return c;
    }
    catalogue::FingerprintResult match(const std::vector<uint32_t> &items) {
        catalogue::FingerprintResult r;
        catalogue::Status st = cat->match_fingerprint(fp_test::print(items), r);
        EXPECT_TRUE(st.ok()) << st.message;
        return r;
    }
    std::unique_ptr<catalogue::Catalogue> cat = open_memory();
};

TEST_F(FingerprintStoreTest, AnEmptyCatalogueKnowsAndFindsNothing) {
    bool known = true;
    EXPECT_TRUE(cat->fingerprint_known("abc", known).ok());
    EXPECT_FALSE(known);
    EXPECT_EQ(match(fp_test::walk(1, 300)).kind, catalogue::MatchKind::none);
    EXPECT_EQ(counts().prints, 0u);
}

TEST_F(FingerprintStoreTest, TagsMakeOneAlbumWhoseTracksFollowTheirNumbersAndTitles) {
    const FingerprintAdded first = add(entry("c1", 1, "Night Drive", "Neon", 1));
    EXPECT_EQ(first.outcome, Outcome::added);
    EXPECT_TRUE(first.created_album);
    EXPECT_TRUE(first.created_track);
    EXPECT_EQ(first.track_tui, first.album_tui + "-1-1");
    EXPECT_EQ(first.title, "Neon");
    EXPECT_EQ(first.artist, "Ana Reyes");
    EXPECT_EQ(first.album_title, "Night Drive");

    struct Case {
        const char *content, *title;
        uint32_t number;
        bool created;
        uint32_t number_after;
    } cases[] = {
        {"c2", "Rain", 2, true, 2},
        {"c3", "neon", 0, false, 1},    // the same title is the same track
        {"c4", "Other", 2, true, 3},    // number 2 is taken by another title
        {"c5", "Late", 0, true, 4},     // no number: the next free one
    };
    for (const Case &c : cases) {
        const FingerprintAdded a = add(entry(c.content, 10 + c.number_after + (c.created ? 0 : 100), "night  drive!",
                                             c.title, c.number));
        EXPECT_EQ(a.album_tui, first.album_tui) << c.title;
        EXPECT_FALSE(a.created_album);
        EXPECT_EQ(a.created_track, c.created) << c.title;
        EXPECT_EQ(a.track_number, c.number_after) << c.title;
    }
    catalogue::IdentifierHit hit;
    ASSERT_TRUE(cat->lookup_tui(first.album_tui, "", hit).ok());
    catalogue::Album album;
    ASSERT_TRUE(cat->get_album(hit.album_id, album).ok());
    EXPECT_EQ(album.track_count(), 4u);
    EXPECT_EQ(album.source, "tags");
    EXPECT_EQ(counts().prints, 5u);

    // Without any tags: the file name is the title, in an album of unknowns.
    catalogue::FingerprintEntry bare;
    bare.print = fp_test::print(fp_test::walk(500, 400));
    bare.content_id = "c6";
    bare.name = "/music/loose/Track 07.mp3";
    const FingerprintAdded loose = add(bare);
    EXPECT_EQ(loose.title, "Track 07");
    EXPECT_EQ(loose.album_title, "Unknown album");
    EXPECT_EQ(loose.artist, "Unknown artist");
}

TEST_F(FingerprintStoreTest, FilesAreRecognisedByContentAndPrintsStoredOnce) {
    const FingerprintAdded first = add(entry("same-bytes", 1, "A", "One", 1));
    const auto before = counts();
    // The same content under another name changes nothing.
    catalogue::FingerprintEntry again = entry("same-bytes", 1, "Other album", "Renamed", 9);
    const FingerprintAdded second = add(again);
    EXPECT_EQ(second.outcome, Outcome::known_file);
    EXPECT_EQ(second.track_tui, first.track_tui);
    EXPECT_EQ(counts().prints, before.prints);
    EXPECT_EQ(counts().files, before.files);
    // Other bytes (new tags, say) with identical audio: recorded, linked as before.
    const FingerprintAdded third = add(entry("retagged", 1, "Other album", "Renamed", 9));
    EXPECT_EQ(third.outcome, Outcome::same_print);
    EXPECT_EQ(third.track_tui, first.track_tui);
    EXPECT_EQ(counts().prints, before.prints);
    EXPECT_EQ(counts().files, before.files + 1);
    EXPECT_EQ(counts().postings, 1200u);
}

TEST_F(FingerprintStoreTest, RefusalsLeaveEarlierEntriesAlone) {
    add(entry("kept", 1, "A", "One", 1));
    const int64_t album = catalogue_test::add(*cat, catalogue_test::make_album("Real", "Band", {"X", "Y"}));
    catalogue::Album real;
    ASSERT_TRUE(cat->get_album(album, real).ok());

    struct Case {
        catalogue::FingerprintEntry e;
        catalogue::Code code;
    };
    std::vector<Case> cases;
    cases.push_back({entry("", 2, "A", "Two", 2), catalogue::Code::invalid_argument});
    cases.push_back({entry("silent", 3, "A", "Silence", 3), catalogue::Code::invalid_argument});
    cases.back().e.print.items.assign(2000, 627964279u);
    cases.push_back({entry("short", 4, "A", "Short", 4), catalogue::Code::invalid_argument});
    cases.back().e.print.items.resize(20);
    cases.push_back({entry("album-tui", 5, "A", "Five", 5), catalogue::Code::invalid_argument});
    cases.back().e.track_tui = real.tui;
    cases.push_back({entry("no-track", 6, "A", "Six", 6), catalogue::Code::not_found});
    cases.back().e.track_tui = "no-such-track";
    for (const Case &c : cases) {
        FingerprintAdded out;
        const catalogue::Status st = cat->add_fingerprint(c.e, out);
        EXPECT_EQ(st.code, c.code) << c.e.content_id << ": " << st.message;
        EXPECT_TRUE(out.track_tui.empty());
    }
    EXPECT_EQ(counts().prints, 1u);
    EXPECT_EQ(counts().files, 1u);
    bool known = false;
    ASSERT_TRUE(cat->fingerprint_known("kept", known).ok());
    EXPECT_TRUE(known);
    // A given track is linked as it is.
    catalogue::FingerprintEntry linked = entry("linked", 7, "ignored", "ignored", 1);
    linked.track_tui = real.discs[0].tracks[1].tui;
    const FingerprintAdded a = add(linked);
    EXPECT_EQ(a.title, "Y");
    EXPECT_EQ(a.artist, "Band");
    EXPECT_FALSE(a.created_track);
}

TEST_F(FingerprintStoreTest, MusicBrainzIdentifiersNameImportedTracks) {
    catalogue::ImportReport report;
    ASSERT_TRUE(cat->import_musicbrainz_text(
                       R"({"id": "rel-1", "title": "Harbour", "artist-credit": [{"name": "Lio"}], "media": [
                           {"position": 1, "tracks": [{"id": "trk-1", "position": 1, "title": "Tide"},
                                                      {"id": "trk-2", "position": 2, "title": "Salt"}]},
                           {"position": 2, "tracks": [{"id": "trk-3", "position": 1, "title": "Gulls"}]}]})",
                       report)
                    .ok());
    struct Case {
        const char *track_id, *release_id;
        uint32_t disc, number;
        const char *tui;  // empty: none
    } cases[] = {
        {"trk-2", "", 0, 0, "rel-1-1-2"},
        {"trk-2", "other", 2, 1, "rel-1-1-2"},  // the track id wins
        {"", "rel-1", 2, 1, "rel-1-2-1"},
        {"", "rel-1", 0, 1, "rel-1-1-1"},       // no disc number: disc 1
        {"unknown", "rel-1", 3, 1, ""},
        {"", "", 1, 1, ""},
    };
    for (const Case &c : cases) {
        catalogue::AudioTags tags;
        tags.mb_release_track_id = c.track_id;
        tags.mb_release_id = c.release_id;
        tags.disc_number = c.disc;
        tags.track_number = c.number;
        std::string tui;
        const catalogue::Status st = cat->track_for_musicbrainz(tags, tui);
        if (*c.tui) {
            EXPECT_TRUE(st.ok()) << st.message;
            EXPECT_EQ(tui, c.tui);
        } else {
            EXPECT_EQ(st.code, catalogue::Code::not_found);
        }
    }
}

TEST_F(FingerprintStoreTest, MatchesGiveTracksWithOffsetsAndKinds) {
    const FingerprintAdded one = add(entry("c1", 1, "A", "One", 1));
    const FingerprintAdded two = add(entry("c2", 2, "A", "Two", 2));
    const std::vector<uint32_t> song = fp_test::walk(2, 1200);
    catalogue::FingerprintResult r = match(std::vector<uint32_t>(song.begin() + 400, song.begin() + 560));
    ASSERT_EQ(r.hits.size(), 1u);
    EXPECT_EQ(r.kind, catalogue::MatchKind::single);
    EXPECT_EQ(r.hits[0].track_tui, two.track_tui);
    EXPECT_EQ(r.hits[0].score, 100u);
    EXPECT_EQ(r.hits[0].offset_ms, 49524);  // 400 items of 1365 samples at 11025 Hz
    EXPECT_EQ(r.hits[0].compared_ms, 19810u);

    // The same recording on another album: two strong hits.
    catalogue::FingerprintEntry copy = entry("c3", 2, "B", "Two", 1);
    copy.print.items = fp_test::with_errors(copy.print.items, 0.01, 3);
    const FingerprintAdded other = add(copy);
    r = match(song);
    ASSERT_EQ(r.hits.size(), 2u);
    EXPECT_EQ(r.kind, catalogue::MatchKind::multi_exact);
    EXPECT_EQ(r.hits[0].track_tui, two.track_tui);
    EXPECT_EQ(r.hits[1].track_tui, other.track_tui);
    EXPECT_GT(r.hits[0].score, r.hits[1].score);

    // Tracks that leave the catalogue leave the answers.
    catalogue::IdentifierHit hit;
    ASSERT_TRUE(cat->lookup_tui(other.album_tui, "", hit).ok());
    ASSERT_TRUE(cat->remove_album(hit.album_id).ok());
    r = match(song);
    ASSERT_EQ(r.hits.size(), 1u);
    EXPECT_EQ(r.kind, catalogue::MatchKind::single);
    EXPECT_NE(one.track_tui, r.hits[0].track_tui);

    // Removed by its identifier, an album takes its tracks' prints along.
    EXPECT_EQ(counts().prints, 3u);
    catalogue::AlbumListEntry removed;
    ASSERT_TRUE(cat->remove_album(one.album_tui, removed).ok());
    EXPECT_EQ(removed.tracks, 2u);
    EXPECT_EQ(counts().prints, 1u);
    EXPECT_EQ(match(song).kind, catalogue::MatchKind::none);
}

}  // namespace
