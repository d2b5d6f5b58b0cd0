// The fingerprint command's loop: links by MusicBrainz id, by the module's
// text search and by tags, files recognised by content on a second run,
// bad files skipped with the rest going on.
#include <gtest/gtest.h>

#include <fstream>

#include "audio_test_support.h"
#include "tool/audio/library.h"
#include "zelto/zelto_manager.h"

namespace {

using audio::FileOutcome;
using audio_test::encode;
using audio_test::song_wav;
namespace fs = std::filesystem;

class LibraryTest : public ::testing::Test {
   protected:
    void SetUp() override {
        ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
        ASSERT_EQ(zelto_manager_user_create("library", &user_), 0u);
        ASSERT_EQ(zelto_manager_user_option_set(user_, "zelto_useroption_lookup_mode", "zelto_lookupmode_local"), 0u);
        ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &query_), 0u);
        ASSERT_EQ(zelto_catalogue_open(":memory:", 0, &catalogue_), 0u);
        ASSERT_EQ(zelto_catalogue_install(catalogue_, 0), 0u);
        const fs::path release = audio_test::work_dir() / "release.json";
        std::ofstream(release) << R"({"id": "rel-1", "title": "Harbour", "artist-credit": [{"name": "Lio"}], "media": [
            {"position": 1, "tracks": [{"id": "trk-1", "position": 1, "title": "Tide"},
                                       {"id": "trk-2", "position": 2, "title": "Salt Water"}]}]})";
        ASSERT_EQ(zelto_catalogue_import(catalogue_, release.c_str(), nullptr, nullptr, nullptr), 0u);
    }
    void TearDown() override {
        zelto_catalogue_close(catalogue_);
        zelto_cantrix_query_release(query_);
        zelto_manager_user_release(user_);
        zelto_cantrix_shutdown();
    }
    audio::LibrarySummary run(const std::vector<std::string> &operands) {
        return audio::fingerprint_library(catalogue_, user_, query_, operands, {}, {});
    }
    const FileOutcome &outcome(const audio::LibrarySummary &s, const std::string &name) {
        for (const FileOutcome &o : s.outcomes)
            if (fs::path(o.path).filename() == name) return o;
        ADD_FAILURE() << "no outcome for " << name;
        static const FileOutcome none;
        return none;
    }

    zelto_user *user_ = nullptr;
    zelto_cantrix_query_handle query_ = nullptr;
    zelto_catalogue *catalogue_ = nullptr;
};

TEST_F(LibraryTest, FilesLinkByIdentifierTextOrTagsAndASecondRunChangesNothing) {
    const fs::path dir = audio_test::work_dir() / "music";
    fs::create_directories(dir / "Night Drive");
    const auto tagged = [&](uint64_t seed, const std::string &file, const std::string &tags) {
        fs::rename(encode(song_wav(seed, 12), "tagged" + std::to_string(seed) + ".flac", "-c:a flac " + tags), dir / file);
    };
    tagged(11, "mb.flac", "-metadata title='Whatever' -metadata MUSICBRAINZ_RELEASETRACKID=trk-1");
    tagged(12, "text.flac", "-metadata title='Salt Water' -metadata artist=Lio -metadata album=Harbour");
    tagged(13, "Night Drive/01.flac", "-metadata title=Neon -metadata artist='Ana Reyes' -metadata album='Night Drive' -metadata track=1");
    tagged(14, "Night Drive/02.flac", "-metadata title=Rain -metadata artist='Ana Reyes' -metadata album='Night Drive' -metadata track=2");
    // Another copy of track 2 whose artist tag the text search cannot match;
    // its album and title tags still name the track.
    tagged(15, "Night Drive/03-again.flac",
           "-metadata title=rain -metadata artist='X' -metadata album_artist='Ana Reyes' -metadata album='Night Drive'");
    std::ofstream(dir / "broken.mp3") << "this is no audio";
    std::ofstream(dir / "cover.jpg") << "not looked at";

    const audio::LibrarySummary first = run({dir.string(), (dir / "missing.flac").string()});
    EXPECT_EQ(first.files, 6u);
    EXPECT_EQ(first.added, 5u);
    EXPECT_EQ(first.skipped, 1u);
    EXPECT_EQ(first.by_musicbrainz, 1u);
    EXPECT_EQ(first.by_text, 1u);
    EXPECT_EQ(first.by_tags, 1u);
    EXPECT_EQ(first.new_tracks, 2u);
    EXPECT_EQ(first.new_albums, 1u);
    ASSERT_EQ(first.missing.size(), 1u);
    EXPECT_EQ(outcome(first, "mb.flac").title, "Tide");
    EXPECT_EQ(outcome(first, "text.flac").link, FileOutcome::Link::text);
    EXPECT_EQ(outcome(first, "text.flac").text_score, 100u);
    EXPECT_EQ(outcome(first, "text.flac").album, "Harbour");
    EXPECT_EQ(outcome(first, "02.flac").track_number, 2u);
    EXPECT_EQ(outcome(first, "03-again.flac").title, "Rain");
    EXPECT_EQ(outcome(first, "broken.mp3").kind, FileOutcome::Kind::skipped);
    EXPECT_NE(outcome(first, "broken.mp3").reason.find("not a readable audio file"), std::string::npos);

    zelto_catalogue_fingerprint_info before{};
    ASSERT_EQ(zelto_catalogue_fingerprint_counts(catalogue_, &before), 0u);
    zelto_catalogue_info albums_before{};
    ASSERT_EQ(zelto_catalogue_get_info(catalogue_, &albums_before), 0u);
    // A renamed copy is recognised by its bytes; a lossless re-encoding by its audio.
    fs::copy_file(dir / "text.flac", dir / "renamed.flac");
    fs::rename(encode(dir / "mb.flac", "mb.wav", "-c:a pcm_s16le"), dir / "mb.wav");
    const audio::LibrarySummary second = run({dir.string()});
    EXPECT_EQ(second.added, 0u);
    EXPECT_EQ(second.unchanged, 6u);
    EXPECT_EQ(second.same_audio, 1u);
    EXPECT_EQ(second.skipped, 1u);
    EXPECT_EQ(outcome(second, "mb.wav").kind, FileOutcome::Kind::same_audio);
    EXPECT_EQ(outcome(second, "mb.wav").title, "Tide");
    zelto_catalogue_fingerprint_info after{};
    ASSERT_EQ(zelto_catalogue_fingerprint_counts(catalogue_, &after), 0u);
    EXPECT_EQ(after.fingerprints, before.fingerprints);
    EXPECT_EQ(after.files, before.files + 1);
    zelto_catalogue_info albums_after{};
    ASSERT_EQ(zelto_catalogue_get_info(catalogue_, &albums_after), 0u);
    EXPECT_EQ(albums_after.albums, albums_before.albums);
}

TEST_F(LibraryTest, TextSearchLinksOnlyAboveTheThreshold) {
    uint32_t score = 0;
    audio::Tags tags;
    tags.title = "Salt Water";
    tags.artist = "Lio";
    tags.album = "Harbour";
    EXPECT_EQ(audio::track_by_text(user_, tags, score), "rel-1-1-2");
    EXPECT_EQ(score, 100u);
    tags.title = "Tide";
    tags.artist = "Somebody Else Entirely";
    EXPECT_EQ(audio::track_by_text(user_, tags, score), "");
    EXPECT_LT(score, audio::kTextLinkThreshold);
    tags.title.clear();  // no title: no search
    EXPECT_EQ(audio::track_by_text(user_, tags, score), "");
    EXPECT_EQ(score, 0u);
}

}  // namespace
