// Catalogue: albums listed a page at a time in artist and title order, and
// removed by identifier, through the exported calls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "zelto/zelto_catalogue.h"

namespace {

class CatalogueListing : public ::testing::Test {
   protected:
    void SetUp() override {
        ASSERT_EQ(zelto_catalogue_open(":memory:", ZELTO_CATALOGUE_OPEN_CREATE, &cat_), 0u);
        // Three releases, one of two discs, out of order.
        const char *json =
            R"([{"id": "r-b", "title": "Beta", "date": "2001", "artist-credit": [{"name": "zed"}],
                 "media": [{"position": 1, "tracks": [{"position": 1, "title": "x"}]}]},
                {"id": "r-a", "title": "Alpha", "artist-credit": [{"name": "Zed"}],
                 "media": [{"position": 1, "tracks": [{"position": 1, "title": "x"}]},
                           {"position": 2, "tracks": [{"position": 1, "title": "y"}, {"position": 2, "title": "z"}]}]},
                {"id": "r-c", "title": "Gamma", "artist-credit": [{"name": "Ann"}],
                 "media": [{"position": 1, "tracks": [{"position": 1, "title": "x"}]}]}])";
        std::FILE *f = std::fopen(path_.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs(json, f);
        std::fclose(f);
        zelto_catalogue_import_report report{};
        ASSERT_EQ(zelto_catalogue_import(cat_, path_.c_str(), nullptr, nullptr, &report), 0u);
        ASSERT_EQ(report.imported, 3u);
    }
    void TearDown() override {
        zelto_catalogue_close(cat_);
        std::remove(path_.c_str());
    }
    // "tui title year discs/tracks" of each album of a page.
    std::vector<std::string> page(uint32_t start, uint32_t count, uint32_t *total = nullptr) {
        uint32_t listed = 99, all = 99;
        EXPECT_EQ(zelto_catalogue_list_albums(cat_, start, count, &listed, &all), 0u);
        if (total) *total = all;
        std::vector<std::string> out;
        zelto_catalogue_album_entry e{};
        for (uint32_t i = 0; i < listed; ++i) {
            EXPECT_EQ(zelto_catalogue_listed_album(cat_, i, &e), 0u);
            out.push_back(std::string(e.tui) + " " + e.artist + "/" + e.title + " " + std::to_string(e.year) + " " +
                          std::to_string(e.discs) + "/" + std::to_string(e.tracks));
        }
        EXPECT_EQ(zelto_catalogue_listed_album(cat_, listed, &e), ZELTO_CATALOGUE_NO_RESULT);
        return out;
    }
    zelto_catalogue *cat_ = nullptr;
    std::string path_ = "listing-" + std::to_string(getpid()) + ".json";
};

using Page = std::vector<std::string>;

TEST_F(CatalogueListing, PagesInArtistAndTitleOrder) {
    uint32_t total = 0;
    EXPECT_EQ(page(1, 10, &total), (Page{"r-c Ann/Gamma 0 1/1", "r-a Zed/Alpha 0 2/3", "r-b zed/Beta 2001 1/1"}));
    EXPECT_EQ(total, 3u);
    EXPECT_EQ(page(2, 1), (Page{"r-a Zed/Alpha 0 2/3"}));
    EXPECT_EQ(page(3, 0xFFFFFFFFu), (Page{"r-b zed/Beta 2001 1/1"}));
    EXPECT_EQ(page(4, 10, &total), Page{});
    EXPECT_EQ(total, 3u);
    uint32_t listed = 0;
    EXPECT_EQ(zelto_catalogue_list_albums(cat_, 0, 10, &listed, &total), ZELTO_CATALOGUE_BAD_ARG);
    EXPECT_EQ(zelto_catalogue_list_albums(cat_, 1, 0, &listed, &total), ZELTO_CATALOGUE_BAD_ARG);
}

TEST_F(CatalogueListing, RemovalTakesTheWholeAlbumOnce) {
    zelto_catalogue_album_entry removed{};
    ASSERT_EQ(zelto_catalogue_remove_album(cat_, "r-a", &removed), 0u);
    EXPECT_STREQ(removed.title, "Alpha");
    EXPECT_EQ(removed.tracks, 3u);
    EXPECT_EQ(zelto_catalogue_remove_album(cat_, "r-a", nullptr), ZELTO_CATALOGUE_NO_RESULT);
    EXPECT_EQ(zelto_catalogue_remove_album(cat_, "", nullptr), ZELTO_CATALOGUE_BAD_ARG);
    EXPECT_EQ(page(1, 10), (Page{"r-c Ann/Gamma 0 1/1", "r-b zed/Beta 2001 1/1"}));
    zelto_catalogue_info info{};
    ASSERT_EQ(zelto_catalogue_get_info(cat_, &info), 0u);
    EXPECT_EQ(info.discs, 2u);
    EXPECT_EQ(info.tracks, 2u);
}

}  // namespace
