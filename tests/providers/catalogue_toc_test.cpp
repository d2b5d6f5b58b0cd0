// Catalogue: TOC texts, identification by TOC, identifier lookups, revisions.
#include <gtest/gtest.h>

#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <tuple>

#include "catalogue_fixtures.h"

using namespace catalogue;
using catalogue_test::add;
using catalogue_test::make_album;
using catalogue_test::open_memory;

namespace {

const std::vector<uint32_t> kToc = {150, 14672, 27367, 41225};

std::vector<uint32_t> shifted(std::vector<uint32_t> v, int32_t by) {
    for (auto &o : v) o = static_cast<uint32_t>(static_cast<int32_t>(o) + by);
    return v;
}

}  // namespace

TEST(CatalogueToc, ParseAndRender) {
    std::vector<uint32_t> v;
    ASSERT_TRUE(parse_toc("  150   14672 27367  41225 ", v).ok());
    EXPECT_EQ(v, kToc);
    EXPECT_EQ(toc_text(v), "150 14672 27367 41225");
    EXPECT_EQ(parse_toc("150", v).code, Code::invalid_argument);
    EXPECT_EQ(parse_toc("150 150", v).code, Code::invalid_argument);
    EXPECT_EQ(parse_toc("150 100", v).code, Code::invalid_argument);
    EXPECT_EQ(parse_toc("1000000 1000001", v).code, Code::invalid_argument);
    EXPECT_EQ(parse_toc("150,200", v).code, Code::invalid_argument);
    EXPECT_EQ(parse_toc("", v).code, Code::invalid_argument);
    ASSERT_TRUE(parse_toc("999999 1000000", v).ok());
    EXPECT_EQ(v.size(), 2u);
}

TEST(CatalogueToc, XmcdDiscId) {
    // Digit sums of 2, 195 and 364 seconds: 2 + 15 + 13 = 30; 547 s long; 3 tracks.
    EXPECT_EQ(xmcd_disc_id(kToc), "1e022303");
    EXPECT_EQ(xmcd_disc_id({150}), "");
}

TEST(CatalogueToc, ExactSingleAndResponseCode) {
    auto cat = open_memory();
    int64_t id = add(*cat, make_album("Lanterns of Glass", "Mira Solenne", {"A", "B", "C"}, kToc));
    add(*cat, make_album("Other", "Someone", {"A", "B", "C"}, {150, 15000, 30000, 45000}));
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 14672 27367 41225", {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::single);
    EXPECT_STREQ(response_code(r.kind), "zelto_result_single_match");
    ASSERT_EQ(r.hits.size(), 1u);
    EXPECT_EQ(r.total, 1u);
    EXPECT_EQ(r.range_start, 1u);
    EXPECT_EQ(r.range_end, 1u);
    EXPECT_EQ(r.hits[0].album_id, id);
    EXPECT_EQ(r.hits[0].score, 100u);
    EXPECT_EQ(r.hits[0].title, "Lanterns of Glass");
    EXPECT_EQ(r.hits[0].album_track_count, 3u);
    EXPECT_EQ(r.hits[0].toc, "150 14672 27367 41225");
}

TEST(CatalogueToc, MultipleExactMatchesInAlbumOrder) {
    auto cat = open_memory();
    int64_t a = add(*cat, make_album("First Pressing", "X", {"A", "B", "C"}, kToc));
    int64_t b = add(*cat, make_album("Second Release", "Y", {"A", "B", "C"}, kToc));
    // A near one is not listed once exact matches exist.
    add(*cat, make_album("Near", "Z", {"A", "B", "C"}, shifted(kToc, 10)));
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc(kToc, {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::multi_exact);
    EXPECT_STREQ(response_code(r.kind), "zelto_result_multiexact_matches");
    ASSERT_EQ(r.hits.size(), 2u);
    EXPECT_EQ(r.hits[0].album_id, a);
    EXPECT_EQ(r.hits[1].album_id, b);
    // Paging: the second alone.
    ASSERT_TRUE(cat->lookup_toc(kToc, {2, 5}, r).ok());
    EXPECT_EQ(r.total, 2u);
    ASSERT_EQ(r.hits.size(), 1u);
    EXPECT_EQ(r.hits[0].album_id, b);
    EXPECT_EQ(r.range_start, 2u);
    EXPECT_EQ(r.range_end, 2u);
    // Past the end: nothing, total kept.
    ASSERT_TRUE(cat->lookup_toc(kToc, {3, 5}, r).ok());
    EXPECT_EQ(r.total, 2u);
    EXPECT_TRUE(r.hits.empty());
    EXPECT_EQ(r.range_start, 0u);
}

TEST(CatalogueToc, ShiftedTocIsFuzzy) {
    auto cat = open_memory();
    int64_t id = add(*cat, make_album("Lanterns of Glass", "Mira Solenne", {"A", "B", "C"}, kToc));
    for (int32_t by : {32, -100, 3000, static_cast<int32_t>(kTocMaxShift)}) {
        TocResult r;
        ASSERT_TRUE(cat->lookup_toc(shifted(kToc, by), {1, 10}, r).ok());
        EXPECT_EQ(r.kind, MatchKind::fuzzy) << by;
        EXPECT_STREQ(response_code(r.kind), "zelto_result_fuzzy_matches");
        ASSERT_EQ(r.hits.size(), 1u) << by;
        EXPECT_EQ(r.hits[0].album_id, id);
        EXPECT_EQ(r.hits[0].shift, by);
        EXPECT_EQ(r.hits[0].total_deviation, 0u);
        EXPECT_EQ(r.hits[0].score, 99u - static_cast<uint32_t>(std::abs(by)) / 10 / 30);
    }
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc(shifted(kToc, static_cast<int32_t>(kTocMaxShift) + 1), {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::none);
    EXPECT_STREQ(response_code(r.kind), "zelto_result_no_matches");
}

TEST(CatalogueToc, PerturbedTracksWithinTolerance) {
    auto cat = open_memory();
    add(*cat, make_album("Lanterns of Glass", "Mira Solenne", {"A", "B", "C"}, kToc));
    TocResult r;
    // One track 40 frames late, lead-out 74 frames short (length kept in whole seconds).
    ASSERT_TRUE(cat->lookup_toc({150, 14712, 27367, 41151}, {1, 10}, r).ok());
    ASSERT_EQ(r.kind, MatchKind::fuzzy);
    EXPECT_EQ(r.hits[0].shift, 0);
    EXPECT_EQ(r.hits[0].max_deviation, 74u);
    EXPECT_EQ(r.hits[0].total_deviation, 114u);
    EXPECT_EQ(r.hits[0].score, 99u - 114u / 30);
    // Shift and perturbation together: the median difference is the shift.
    ASSERT_TRUE(cat->lookup_toc({182, 14704 + 100, 27399, 41257}, {1, 10}, r).ok());
    ASSERT_EQ(r.kind, MatchKind::fuzzy);
    EXPECT_EQ(r.hits[0].shift, 32);
    EXPECT_EQ(r.hits[0].max_deviation, 100u);
    // A track beyond the per-track tolerance.
    ASSERT_TRUE(cat->lookup_toc({150, 14672 + kTocMaxTrackDeviation + 1, 27367, 41225}, {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::none);
    // Program length beyond its tolerance.
    ASSERT_TRUE(cat->lookup_toc({150, 14672, 27367, 41225 + kTocMaxLengthDeviation + 1}, {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::none);
    ASSERT_TRUE(cat->lookup_toc({150, 14672, 27367, 41225 + kTocMaxLengthDeviation}, {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::fuzzy);
}

TEST(CatalogueToc, WrongTrackCountDoesNotMatch) {
    auto cat = open_memory();
    add(*cat, make_album("Lanterns of Glass", "Mira Solenne", {"A", "B", "C"}, kToc));
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 14672 41225", {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::none);
    EXPECT_EQ(r.total, 0u);
    ASSERT_TRUE(cat->lookup_toc("150 14672 27367 35000 41225", {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::none);
}

TEST(CatalogueToc, FuzzyHitsRankByCloseness) {
    auto cat = open_memory();
    int64_t far = add(*cat, make_album("Far", "X", {"A", "B", "C"}, {150, 14672 + 120, 27367, 41225}));
    int64_t near = add(*cat, make_album("Near", "Y", {"A", "B", "C"}, {150, 14672 + 10, 27367, 41225}));
    int64_t mid = add(*cat, make_album("Mid", "Z", {"A", "B", "C"}, {150, 14672 + 60, 27367, 41225}));
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc(kToc, {1, 10}, r).ok());
    ASSERT_EQ(r.kind, MatchKind::fuzzy);
    ASSERT_EQ(r.hits.size(), 3u);
    EXPECT_EQ(r.hits[0].album_id, near);
    EXPECT_EQ(r.hits[1].album_id, mid);
    EXPECT_EQ(r.hits[2].album_id, far);
    EXPECT_GT(r.hits[0].score, r.hits[1].score);
    EXPECT_GT(r.hits[1].score, r.hits[2].score);
}

TEST(CatalogueToc, MultiDiscAndSecondPressing) {
    auto cat = open_memory();
    Album a = make_album("Box", "Band", {"A", "B", "C"}, kToc);
    a.discs[0].tocs.push_back({shifted(kToc, 500), "pressing-2", ""});
    Disc second;
    second.number = 2;
    second.tracks = a.discs[0].tracks;
    second.tocs.push_back({{150, 20000, 40000, 60000}, "", ""});
    a.discs.push_back(second);
    ASSERT_TRUE(cat->add_album(a).ok());
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 20000 40000 60000", {1, 10}, r).ok());
    ASSERT_EQ(r.kind, MatchKind::single);
    EXPECT_EQ(r.hits[0].disc_number, 2u);
    EXPECT_EQ(r.hits[0].disc_count, 2u);
    EXPECT_EQ(r.hits[0].album_track_count, 6u);
    ASSERT_TRUE(cat->lookup_toc(shifted(kToc, 500), {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::single);
    EXPECT_EQ(r.hits[0].disc_number, 1u);
    // Near both TOCs of disc 1: listed once.
    ASSERT_TRUE(cat->lookup_toc(shifted(kToc, 250), {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::fuzzy);
    EXPECT_EQ(r.hits.size(), 1u);
}

TEST(CatalogueToc, BadArguments) {
    auto cat = open_memory();
    TocResult r;
    EXPECT_EQ(cat->lookup_toc("150", {1, 10}, r).code, Code::invalid_argument);
    EXPECT_EQ(cat->lookup_toc(std::vector<uint32_t>{200, 100}, {1, 10}, r).code, Code::invalid_argument);
    EXPECT_EQ(cat->lookup_toc(kToc, {0, 10}, r).code, Code::invalid_argument);
    EXPECT_EQ(cat->lookup_toc(kToc, {5, 4}, r).code, Code::invalid_argument);
}

TEST(CatalogueIdentifiers, TuiTagAndTracks) {
    auto cat = open_memory();
    Album a = make_album("Lanterns of Glass", "Mira Solenne", {"Quiet Harbour", "Paper Comets", "The Long Thaw"}, kToc);
    a.tui = "rel-1";
    a.revision = 3;
    ASSERT_TRUE(cat->add_album(a).ok());
    EXPECT_FALSE(a.tag.empty());
    IdentifierHit hit;
    ASSERT_TRUE(cat->lookup_tui("rel-1", a.tag, hit).ok());
    EXPECT_EQ(hit.kind, IdentifierHit::Kind::album);
    EXPECT_EQ(hit.album_id, a.id);
    EXPECT_EQ(hit.revision, 3u);
    ASSERT_TRUE(cat->lookup_tui("rel-1", "", hit).ok());
    Status st = cat->lookup_tui("rel-1", "badtag", hit);
    EXPECT_EQ(st.code, Code::not_found);
    EXPECT_NE(st.message.find("tag"), std::string::npos);
    EXPECT_EQ(cat->lookup_tui("nope", "", hit).code, Code::not_found);
    EXPECT_EQ(cat->lookup_tui("", "", hit).code, Code::invalid_argument);

    const Track &t2 = a.discs[0].tracks[1];
    EXPECT_EQ(t2.tui, "rel-1-1-2");
    ASSERT_TRUE(cat->lookup_tui(t2.tui, t2.tag, hit).ok());
    EXPECT_EQ(hit.kind, IdentifierHit::Kind::track);
    EXPECT_EQ(hit.track_id, t2.id);
    EXPECT_EQ(hit.album_id, a.id);
    EXPECT_EQ(hit.track_number, 2u);
    EXPECT_EQ(hit.disc_number, 1u);
    EXPECT_EQ(cat->lookup_tui(t2.tui, a.tag, hit).code, Code::not_found);
}

TEST(CatalogueIdentifiers, MediaIds) {
    auto cat = open_memory();
    Album a = make_album("Lanterns of Glass", "Mira Solenne", {"A", "B", "C"});
    a.discs[0].tocs.push_back({kToc, "Xq1.disc-id-", ""});
    ASSERT_TRUE(cat->add_album(a).ok());
    EXPECT_EQ(a.discs[0].tocs[0].mui, "1e022303");  // derived from the TOC
    IdentifierHit hit;
    ASSERT_TRUE(cat->lookup_media("1e022303", "", hit).ok());
    EXPECT_EQ(hit.album_id, a.id);
    EXPECT_EQ(hit.disc_number, 1u);
    EXPECT_EQ(hit.track_id, a.discs[0].tracks[0].id);
    ASSERT_TRUE(cat->lookup_media("", "Xq1.disc-id-", hit).ok());
    ASSERT_TRUE(cat->lookup_media("1e022303", "Xq1.disc-id-", hit).ok());
    EXPECT_EQ(cat->lookup_media("1e022303", "other", hit).code, Code::not_found);
    EXPECT_EQ(cat->lookup_media("", "", hit).code, Code::invalid_argument);
}

TEST(CatalogueIdentifiers, RevisionsCheckAndReplace) {
    auto cat = open_memory();
    Album a = make_album("Old Title", "Band", {"One", "Two"}, {150, 10000, 20000});
    a.tui = "rel-9";
    a.revision = 3;
    ASSERT_TRUE(cat->add_album(a).ok());
    RevisionCheck rc = RevisionCheck::unknown;
    ASSERT_TRUE(cat->check_revision("rel-9", a.tag, 2, rc).ok());
    EXPECT_EQ(rc, RevisionCheck::newer);
    ASSERT_TRUE(cat->check_revision("rel-9", "", 3, rc).ok());
    EXPECT_EQ(rc, RevisionCheck::not_newer);
    EXPECT_STREQ(kResponseNoNewRevision, "zelto_result_no_new_rev");
    ASSERT_TRUE(cat->check_revision("rel-9-1-2", "", 3, rc).ok());  // a track answers for its album
    EXPECT_EQ(rc, RevisionCheck::not_newer);
    EXPECT_EQ(cat->check_revision("rel-x", "", 1, rc).code, Code::not_found);
    EXPECT_EQ(rc, RevisionCheck::unknown);

    // An older revision is refused, the stored album stays.
    Album older = make_album("Older Title", "Band", {"One", "Two"}, {150, 10000, 20000});
    older.tui = "rel-9";
    older.revision = 2;
    Status st = cat->add_album(older);
    EXPECT_EQ(st.code, Code::bad_record);
    EXPECT_NE(st.message.find("older"), std::string::npos);

    // A newer one replaces it, tracks and indexes included.
    Album newer = make_album("New Title", "Band", {"Uno", "Dos", "Tres"}, {150, 9000, 18000, 27000});
    newer.tui = "rel-9";
    newer.revision = 4;
    bool replaced = false;
    ASSERT_TRUE(cat->add_album(newer, &replaced).ok());
    EXPECT_TRUE(replaced);
    uint64_t count = 0;
    ASSERT_TRUE(cat->album_count(count).ok());
    EXPECT_EQ(count, 1u);
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 10000 20000", {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::none);
    AlbumSearchResult s;
    TextQuery q;
    q.album_title = "Old Title";
    ASSERT_TRUE(cat->search_albums(q, {1, 10}, s).ok());
    EXPECT_EQ(s.total, 0u);
    q.album_title = "New Title";
    ASSERT_TRUE(cat->search_albums(q, {1, 10}, s).ok());
    EXPECT_EQ(s.total, 1u);
    Album back;
    ASSERT_TRUE(cat->get_album(newer.id, back).ok());
    EXPECT_EQ(back.revision, 4u);
    EXPECT_EQ(back.discs[0].tracks.size(), 3u);
    EXPECT_EQ(cat->get_album(a.id, back).code, Code::not_found);
}

TEST(CatalogueStore, RejectsInconsistentAlbums) {
    auto cat = open_memory();
    Album none = make_album("", "X", {"A"});
    EXPECT_EQ(cat->add_album(none).code, Code::bad_record);
    Album nodisc = make_album("T", "X", {"A"});
    nodisc.discs.clear();
    EXPECT_EQ(cat->add_album(nodisc).code, Code::bad_record);
    Album toomany = make_album("T", "X", {"A", "B"}, {150, 200, 300, 400});
    Status st = cat->add_album(toomany);
    EXPECT_EQ(st.code, Code::bad_record);
    EXPECT_NE(st.message.find("4 offsets for 2 tracks"), std::string::npos) << st.message;
    Album falling = make_album("T", "X", {"A", "B"}, {150, 100, 300});
    EXPECT_EQ(cat->add_album(falling).code, Code::bad_record);
    // A TOC of fewer tracks than the disc (audio part of an enhanced CD) is fine.
    Album enhanced = make_album("T", "X", {"A", "B", "Data"}, {150, 5000, 9000});
    EXPECT_TRUE(cat->add_album(enhanced).ok());
    uint64_t n = 0;
    ASSERT_TRUE(cat->album_count(n).ok());
    EXPECT_EQ(n, 1u);
}

TEST(CatalogueStore, RoundTripAndPersistence) {
    char dir_template[] = "/tmp/catalogue_test_XXXXXX";
    ASSERT_NE(mkdtemp(dir_template), nullptr);
    std::string path = std::string(dir_template) + "/cat.db";
    int64_t id = 0;
    {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(path, cat).ok());
        Album a = make_album("Café Noir", "Élodie Marchetti", {"Rue des Étoiles", "Déjà Minuit"}, {150, 9000, 20000});
        a.year = 1999;
        a.genre = "jazz";
        a.contributors.push_back({"Anselm Drüwe", "Drüwe, Anselm", "composer", "mb-1", false, 0});
        a.discs[0].tracks[1].artist = "Guest Singer";
        a.discs[0].tracks[1].duration_ms = 123456;
        ASSERT_TRUE(cat->begin().ok());
        ASSERT_TRUE(cat->add_album(a).ok());
        ASSERT_TRUE(cat->commit().ok());
        id = a.id;
    }
    std::unique_ptr<Catalogue> cat;
    ASSERT_TRUE(Catalogue::open(path, cat).ok());
    Album b;
    ASSERT_TRUE(cat->get_album(id, b).ok());
    EXPECT_EQ(b.title, "Café Noir");
    EXPECT_EQ(b.year, 1999u);
    EXPECT_EQ(b.genre, "jazz");
    ASSERT_EQ(b.contributors.size(), 2u);
    EXPECT_EQ(b.contributors[1].name, "Anselm Drüwe");
    EXPECT_EQ(b.contributors[1].role, "composer");
    ASSERT_EQ(b.discs.size(), 1u);
    ASSERT_EQ(b.discs[0].tocs.size(), 1u);
    EXPECT_EQ(b.discs[0].tocs[0].offsets, (std::vector<uint32_t>{150, 9000, 20000}));
    ASSERT_EQ(b.discs[0].tracks.size(), 2u);
    EXPECT_EQ(b.discs[0].tracks[1].artist, "Guest Singer");
    EXPECT_EQ(b.discs[0].tracks[1].duration_ms, 123456u);
    TocResult r;
    ASSERT_TRUE(cat->lookup_toc("150 9000 20000", {1, 10}, r).ok());
    EXPECT_EQ(r.kind, MatchKind::single);
    // Rolled back work is gone.
    ASSERT_TRUE(cat->begin().ok());
    Album temp = make_album("Temp", "X", {"A"});
    ASSERT_TRUE(cat->add_album(temp).ok());
    ASSERT_TRUE(cat->rollback().ok());
    uint64_t n = 0;
    ASSERT_TRUE(cat->album_count(n).ok());
    EXPECT_EQ(n, 1u);
    EXPECT_EQ(cat->commit().code, Code::invalid_argument);
    ASSERT_TRUE(cat->remove_album(id).ok());
    EXPECT_EQ(cat->remove_album(id).code, Code::not_found);
    cat.reset();
    std::filesystem::remove_all(dir_template);
    std::unique_ptr<Catalogue> bad;
    EXPECT_EQ(Catalogue::open("/nonexistent-dir/x/cat.db", bad).code, Code::database);
    EXPECT_EQ(bad, nullptr);
}

// ---- The TOC shape index against the linear scan ---------------------------------

namespace {

// Both lookups of `toc` over a few pages; every field of every hit agrees.
void expect_same_answers(Catalogue &cat, const std::vector<uint32_t> &toc, size_t &found) {
    for (Range range : {Range{1, 10}, Range{2, 4}, Range{1, 1000}}) {
        TocResult fast, slow;
        ASSERT_TRUE(cat.lookup_toc(toc, range, fast).ok());
        ASSERT_TRUE(cat.lookup_toc_linear(toc, range, slow).ok());
        const std::string what = toc_text(toc);
        ASSERT_NO_FATAL_FAILURE(catalogue_test::expect_same_page(fast, slow, what));
        for (size_t i = 0; i < fast.hits.size(); ++i) {
            const TocHit &a = fast.hits[i], &b = slow.hits[i];
            EXPECT_EQ(std::tie(a.album_id, a.disc_id, a.disc_number, a.disc_count, a.album_track_count, a.tui, a.tag,
                               a.title, a.artist, a.toc, a.score, a.shift, a.max_deviation, a.total_deviation),
                      std::tie(b.album_id, b.disc_id, b.disc_number, b.disc_count, b.album_track_count, b.tui, b.tag,
                               b.title, b.artist, b.toc, b.score, b.shift, b.max_deviation, b.total_deviation))
                << what << " hit " << i;
        }
        if (range.end == 1000) found += fast.total;
    }
}

// Offsets near `base`: shifted as a whole and each moved a little, kept rising.
std::vector<uint32_t> near(const std::vector<uint32_t> &base, std::mt19937 &rng, int32_t max_shift, int32_t wobble) {
    std::uniform_int_distribution<int32_t> shift(-max_shift, max_shift), move(-wobble, wobble);
    const int32_t by = shift(rng);
    std::vector<uint32_t> out;
    for (uint32_t o : base) {
        int64_t v = int64_t{o} + by + move(rng);
        if (!out.empty() && v <= out.back()) v = out.back() + 1;
        out.push_back(static_cast<uint32_t>(v));
    }
    return out;
}

}  // namespace

// Many discs close to a few shapes (so that tolerance edges, equal
// closeness, several TOCs of one disc and multi-disc albums all occur),
// then queries near them, before and after removals.
TEST(CatalogueToc, ShapeIndexAgreesWithLinearScan) {
    auto cat = open_memory();
    std::mt19937 rng(20);
    std::vector<std::vector<uint32_t>> bases;
    for (size_t tracks = 1; tracks <= 6; ++tracks)
        for (int variant = 0; variant < 3; ++variant) {
            std::vector<uint32_t> b{10000};
            for (size_t t = 0; t < tracks; ++t) b.push_back(b.back() + 2000 + static_cast<uint32_t>(rng() % 600));
            bases.push_back(b);
        }
    std::vector<int64_t> ids;
    for (int i = 0; i < 300; ++i) {
        Album a;
        a.title = "Album " + std::to_string(i);
        a.artist = "Artist";
        for (uint32_t number = 1; number <= 1 + static_cast<uint32_t>(i % 7 == 0); ++number) {
            Disc d;
            d.number = number;
            const auto &base = bases[rng() % bases.size()];
            d.tocs.push_back({near(base, rng, 5000, 160), "", ""});
            if (i % 5 == 0) d.tocs.push_back({near(base, rng, 5000, 160), "", ""});
            for (size_t t = 1; t < d.tocs[0].offsets.size(); ++t) {
                Track tr;
                tr.number = static_cast<uint32_t>(t);
                tr.title = "T";
                d.tracks.push_back(tr);
            }
            a.discs.push_back(d);
        }
        ids.push_back(add(*cat, a));
    }
    size_t found = 0;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < 400; ++i) expect_same_answers(*cat, near(bases[rng() % bases.size()], rng, 5000, 200), found);
        // A third of the albums go; their TOCs must leave the index too.
        for (size_t i = 0; pass == 0 && i < ids.size(); i += 3) ASSERT_TRUE(cat->remove_album(ids[i]).ok());
    }
    EXPECT_GT(found, 1000u);  // the queries do meet many discs
}

// A catalogue of the schema before the TOC shape index: opened for writing,
// it is indexed in place; opened read-only, the linear scan answers.
TEST(CatalogueToc, EarlierSchemaGetsItsShapeIndex) {
    char path[] = "/tmp/catalogue_shape_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::remove(path);
    const std::vector<uint32_t> stored = {150, 14672, 27367, 41225}, query = {182, 14704 + 100, 27399, 41257};
    {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(path, cat).ok());
        add(*cat, make_album("Lanterns of Glass", "Mira Solenne", {"A", "B", "C"}, stored));
    }
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(path, &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db,
                           "DROP TRIGGER tocs_shape_delete; DROP TABLE toc_shape;"
                           " UPDATE meta SET value = '3' WHERE key = 'schema'; PRAGMA user_version = 3;",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    for (OpenMode mode : {OpenMode::read_only, OpenMode::read_write}) {
        std::unique_ptr<Catalogue> cat;
        ASSERT_TRUE(Catalogue::open(path, cat, mode).ok());
        TocResult r;
        ASSERT_TRUE(cat->lookup_toc(query, {1, 10}, r).ok());
        ASSERT_EQ(r.kind, MatchKind::fuzzy);
        EXPECT_EQ(r.hits[0].shift, 32);
        EXPECT_EQ(r.hits[0].max_deviation, 100u);
    }
    ASSERT_EQ(sqlite3_open(path, &db), SQLITE_OK);
    sqlite3_stmt *q = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db,
                                 "SELECT (SELECT value FROM meta WHERE key = 'schema'), (SELECT count(*) FROM toc_shape),"
                                 " (SELECT tracks_lo || ' ' || length_lo || ' ' || first_lo || ' ' || second_lo || ' ' ||"
                                 " third_lo FROM toc_shape)",
                                 -1, &q, nullptr),
              SQLITE_OK);
    ASSERT_EQ(sqlite3_step(q), SQLITE_ROW);
    EXPECT_STREQ(reinterpret_cast<const char *>(sqlite3_column_text(q, 0)), std::to_string(catalogue::kSchemaVersion).c_str());
    EXPECT_EQ(sqlite3_column_int(q, 1), 1);
    // Three tracks: the first two end before the lead-out.
    EXPECT_STREQ(reinterpret_cast<const char *>(sqlite3_column_text(q, 2)), "3 41075 14522 12695 0");
    sqlite3_finalize(q);
    sqlite3_close(db);
    std::remove(path);
    std::remove((std::string(path) + "-wal").c_str());
    std::remove((std::string(path) + "-shm").c_str());
}

// Identifying a disc reads its album twice; the second read may be the
// copy of the first, never once the file has changed since, through this
// catalogue or another connection.
TEST(CatalogueToc, RereadAlbumFollowsChanges) {
    char path[] = "/tmp/catalogue_reread_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::remove(path);
    std::unique_ptr<Catalogue> cat;
    ASSERT_TRUE(Catalogue::open(path, cat).ok());
    const int64_t id = add(*cat, make_album("Lanterns of Glass", "Mira Solenne", {"A", "B", "C"}, kToc));
    const int64_t other = add(*cat, make_album("Other", "Someone", {"A"}, {150, 15000}));
    Album a;
    ASSERT_TRUE(cat->get_album(id, a).ok());
    ASSERT_TRUE(cat->get_album(id, a).ok());
    EXPECT_EQ(a.title, "Lanterns of Glass");
    EXPECT_EQ(a.discs[0].tracks.size(), 3u);
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(path, &db), SQLITE_OK);
    const std::string rename = "UPDATE albums SET title = 'Renamed' WHERE id = " + std::to_string(id);
    ASSERT_EQ(sqlite3_exec(db, rename.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    ASSERT_TRUE(cat->get_album(id, a).ok());
    EXPECT_EQ(a.title, "Renamed");
    ASSERT_TRUE(cat->get_album(other, a).ok());
    EXPECT_EQ(a.title, "Other");
    ASSERT_TRUE(cat->remove_album(other).ok());
    EXPECT_EQ(cat->get_album(other, a).code, Code::not_found);
    cat.reset();
    for (const char *suffix : {"", "-wal", "-shm"}) std::remove((std::string(path) + suffix).c_str());
}
