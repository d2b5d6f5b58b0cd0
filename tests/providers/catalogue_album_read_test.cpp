// Catalogue: reading an album back. Tracks and credits are read unordered
// and sorted in memory; the reference reading has SQLite sort them. Both
// must give the same album, field by field, whatever order the rows were
// stored in. A read may leave the credits out and shares the catalogue's
// copy of the album.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "catalogue_fixtures.h"

namespace {

using namespace catalogue;
using namespace catalogue_test;

Contributor credit(const char *name, const char *role) { return {name, "", role, "", false, 0}; }

// Two discs stored out of order: tracks listed against their numbers, two
// tracks of one number on each disc, several credits on the album and on
// some tracks (one nameless, which is not stored).
Album shuffled_album(const std::string &title) {
    Album a = make_album(title, "Mira Solenne", {"C", "A", "B2", "B1"}, {150, 14672, 27367, 41225, 52000});
    const uint32_t numbers[] = {3, 1, 2, 2};
    for (size_t i = 0; i < 4; ++i) a.discs[0].tracks[i].number = numbers[i];
    a.contributors.push_back(credit("Ode Varga", "composer"));
    a.contributors.push_back(credit("", "producer"));
    a.contributors.push_back(credit("Lio Brandt", "producer"));
    a.discs[0].tracks[2].contributors = {credit("Ode Varga", "composer"), credit("Mira Solenne", "performer")};
    a.discs[0].tracks[3].contributors = {credit("Lio Brandt", "performer")};
    Disc second;
    second.number = 2;
    second.title = "Bonus";
    for (uint32_t n : {2u, 1u, 1u}) {
        Track t;
        t.number = n;
        t.title = "Bonus " + std::to_string(second.tracks.size());
        t.contributors = {credit("Ode Varga", "lyricist")};
        second.tracks.push_back(t);
    }
    a.discs.push_back(second);
    // Tracks of one number need their own identifiers.
    int n = 0;
    for (Disc &d : a.discs)
        for (Track &t : d.tracks) t.tui = title + " track " + std::to_string(++n);
    return a;
}

std::vector<std::string> titles(const Disc &disc) {
    std::vector<std::string> out;
    for (const Track &t : disc.tracks) out.push_back(t.title);
    return out;
}

TEST(CatalogueAlbumRead, AgreesWithReference) {
    auto cat = open_memory();
    const int64_t first = add(*cat, shuffled_album("Lanterns of Glass"));
    const int64_t plain = add(*cat, make_album("Other", "Someone", {"A"}, {150, 15000}));
    const int64_t second = add(*cat, shuffled_album("Glass Again"));
    for (int64_t id : {first, plain, second}) {
        SCOPED_TRACE(id);
        Album reference, copy;
        ASSERT_TRUE(cat->get_album_reference(id, reference).ok());
        ASSERT_TRUE(cat->get_album(id, copy).ok());
        EXPECT_TRUE(copy == reference);
        std::shared_ptr<const Album> shared;
        ASSERT_TRUE(cat->get_album(id, shared, Catalogue::AlbumRead::full).ok());
        EXPECT_TRUE(*shared == reference);
    }
    // The order itself: tracks by number, tracks of one number as stored;
    // credits as listed, the nameless one left out.
    Album a;
    ASSERT_TRUE(cat->get_album(second, a).ok());
    EXPECT_EQ(titles(a.discs[0]), (std::vector<std::string>{"A", "B2", "B1", "C"}));
    EXPECT_EQ(titles(a.discs[1]), (std::vector<std::string>{"Bonus 1", "Bonus 2", "Bonus 0"}));
    ASSERT_EQ(a.contributors.size(), 3u);
    EXPECT_EQ(a.contributors[1].name, "Ode Varga");
    EXPECT_EQ(a.contributors[2].role, "producer");
    ASSERT_EQ(a.discs[0].tracks[1].contributors.size(), 2u);
    EXPECT_EQ(a.discs[0].tracks[1].contributors[0].role, "composer");
    EXPECT_EQ(a.discs[0].tracks[2].contributors[0].name, "Lio Brandt");
    EXPECT_EQ(a.discs[1].tracks[2].contributors[0].role, "lyricist");
    Album missing;
    EXPECT_EQ(cat->get_album_reference(999, missing).code, Code::not_found);
}

// A read without credits leaves them out; a full read after it reads them
// (never the copy without them), and a read without credits may then
// share the full copy. A shared album stays as it was read.
TEST(CatalogueAlbumRead, CreditsOnlyWhenAsked) {
    auto cat = open_memory();
    const int64_t id = add(*cat, shuffled_album("Lanterns of Glass"));
    const int64_t other = add(*cat, make_album("Other", "Someone", {"A"}, {150, 15000}));
    Album reference;
    ASSERT_TRUE(cat->get_album_reference(id, reference).ok());

    std::shared_ptr<const Album> bare, full, again;
    ASSERT_TRUE(cat->get_album(id, bare, Catalogue::AlbumRead::without_credits).ok());
    EXPECT_TRUE(bare->contributors.empty());
    for (const Disc &d : bare->discs)
        for (const Track &t : d.tracks) EXPECT_TRUE(t.contributors.empty());
    Album stripped = reference;
    stripped.contributors.clear();
    for (Disc &d : stripped.discs)
        for (Track &t : d.tracks) t.contributors.clear();
    EXPECT_TRUE(*bare == stripped);

    ASSERT_TRUE(cat->get_album(id, full, Catalogue::AlbumRead::full).ok());
    EXPECT_TRUE(*full == reference);
    ASSERT_TRUE(cat->get_album(id, again, Catalogue::AlbumRead::without_credits).ok());
    EXPECT_EQ(again.get(), full.get());

    // Another album read, then the first renamed: the albums already
    // handed out do not change, and the next read sees the new title.
    ASSERT_TRUE(cat->get_album(other, again, Catalogue::AlbumRead::full).ok());
    EXPECT_EQ(again->title, "Other");
    Album renamed = shuffled_album("Lanterns of Glass");
    renamed.tui = reference.tui;
    renamed.revision = 2;
    renamed.title = "Lanterns Renamed";
    ASSERT_TRUE(cat->add_album(renamed).ok());
    EXPECT_TRUE(*full == reference);
    EXPECT_TRUE(stripped == *bare);
    ASSERT_TRUE(cat->get_album(renamed.id, again, Catalogue::AlbumRead::without_credits).ok());
    EXPECT_EQ(again->title, "Lanterns Renamed");
}

}  // namespace
