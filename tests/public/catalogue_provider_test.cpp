// The local catalogue as the module's lookup provider: identification by
// TOC through zelto_cantrix_query_find_albums (exact, shifted, perturbed),
// completion of a partial album by a second lookup, text searches, result
// ranges, abort, and the catalogue's own C API.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "module_fixture.h"
#include "out_param.h"
#include "release_json.h"
#include "rvo_read.h"
#include "zelto/zelto_catalogue.h"
#include "zelto/zelto_host_services.h"

namespace {

using namespace release_json;

// A catalogue built from releases written to a temporary file, installed
// for both lookup modes.
class CatalogueTest : public ModuleTest {
   protected:
    void SetUp() override {
        ModuleTest::SetUp();
        char dir[] = "/tmp/cantrix-catalogue-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        std::ofstream out(dir_ + "/releases.jsonl");
        out << release("alb-lanterns", "Lanterns of Glass", "Mira Solenne", "2004-05-01",
                       {{{150, 14672, 27367}, 41225, {{"Quiet Harbour", 193626}, {"Paper Comets", 169266},
                                                      {"The Long Thaw", 184773}}}})
            << "\n"
            << release("alb-strasse", "Straße der Lieder", "Jürgen Hößl", "2011-03-01",
                       {{{150, 22160, 40560}, 57220, {{"Abendglöckchen", 293466}, {"Über den Wiesen", 245000},
                                                      {"Mondnacht", 222000}}}})
            << "\n"
            << release("alb-northern", "Northern Lights", "The Lanterns", "1999-01-01",
                       {{{150, 20000, 40000}, 60000, {{"Aurora", 264000}, {"Polar Night", 266000},
                                                      {"Ice Field", 266000}}},
                        {{150, 30000}, 61000, {{"Midnight Sun", 398000}, {"Thaw", 412000}}}});
        for (int i = 1; i <= 12; ++i)
            out << "\n"
                << release("alb-page-" + std::to_string(i), "Harbour Songs Volume " + std::to_string(i),
                           "Paging Ensemble", "2020-01-01",
                           {{{150, 9000u + 100u * static_cast<uint32_t>(i)},
                             20000u + 300u * static_cast<uint32_t>(i),
                             {{"Opening", 120000}, {"Closing", 140000}}}});
        out.close();
        path_ = dir_ + "/test.catalogue";
        ASSERT_EQ(zelto_catalogue_open(path_.c_str(), ZELTO_CATALOGUE_OPEN_CREATE, &catalogue_), 0u);
        zelto_catalogue_import_report report{};
        ASSERT_EQ(zelto_catalogue_import(catalogue_, (dir_ + "/releases.jsonl").c_str(), nullptr, nullptr, &report),
                  0u);
        ASSERT_EQ(report.imported, 15u);
        ASSERT_EQ(zelto_catalogue_install(catalogue_, 0), 0u);
        ASSERT_EQ(zelto_manager_user_option_set(user_, "zelto_useroption_lookup_mode", "zelto_lookupmode_local"), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(zelto_catalogue_live_requests(catalogue_), 0u);
        EXPECT_EQ(zelto_catalogue_close(catalogue_), 0u);
        EXPECT_EQ(zelto_manager_lookup_get_provider(1), nullptr);
        EXPECT_EQ(zelto_manager_lookup_get_provider(2), nullptr);
        std::remove(path_.c_str());
        std::remove((dir_ + "/releases.jsonl").c_str());
        rmdir(dir_.c_str());
        ModuleTest::TearDown();
    }

    // Identification by TOC through the module; the response or null.
    zelto_rvo_handle find_toc(const char *toc, uint32_t *out_status = nullptr) {
        zelto_cantrix_query_handle query = nullptr;
        EXPECT_EQ(zelto_cantrix_query_create(user_, on_status, &events_, &query), 0u);
        EXPECT_EQ(zelto_cantrix_query_set_toc_string(query, toc), 0u);
        zelto_rvo_handle response = nullptr;
        const uint32_t status = zelto_cantrix_query_find_albums(query, &response);
        if (out_status) *out_status = status;
        EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
        return response;
    }

    static void on_status(void *data, zelto_cantrix_query_handle, uint32_t status, uint32_t v1, uint32_t v2,
                          uint8_t *abort) {
        auto *events = static_cast<std::vector<uint32_t> *>(data);
        if (status == ZELTO_CANTRIX_STATUS_RELEASE) return;
        events->push_back(status);
        (void)v1;
        (void)v2;
        if (abort && abort_at_ != 0 && status == abort_at_) *abort = 1;
    }

    std::string dir_, path_;
    zelto_catalogue *catalogue_ = nullptr;
    std::vector<uint32_t> events_;
    static inline uint32_t abort_at_ = 0;
};

std::string display(zelto_rvo_handle object, const char *key) {
    zelto_rvo_handle c = child_of(object, key, 1, 0);
    std::string text = value_of(c, "zelto_val_display");
    zelto_manager_rvo_release(c);
    return text;
}

std::string artist_display(zelto_rvo_handle object) {
    zelto_rvo_handle artist = child_of(object, "zelto_ctx_artist!", 1, 0);
    std::string text = display(artist, "zelto_ctx_name!off");
    zelto_manager_rvo_release(artist);
    return text;
}

// Titles of the tracks of an album, in order.
std::vector<std::string> track_titles(zelto_rvo_handle album) {
    std::vector<std::string> titles;
    const uint32_t n = count_of(album, "zelto_ctx_track!");
    for (uint32_t i = 1; i <= n; ++i) {
        zelto_rvo_handle t = child_of(album, "zelto_ctx_track!", i, 0);
        titles.push_back(value_of(t, "zelto_val_tracknumber") + " " + display(t, "zelto_ctx_title!off") + " " +
                         value_of(t, "zelto_val_duration"));
        zelto_manager_rvo_release(t);
    }
    return titles;
}

TEST_F(CatalogueTest, ExactTocIdentifiesTheAlbumInFull) {
    zelto_rvo_handle response = find_toc("150 14672 27367 41225");
    ASSERT_NE(response, nullptr);
    ASSERT_EQ(count_of(response, "zelto_ctx_album!"), 1u);
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1, 0);
    EXPECT_EQ(display(album, "zelto_ctx_title!off"), "Lanterns of Glass");
    EXPECT_EQ(artist_display(album), "Mira Solenne");
    EXPECT_EQ(value_of(album, "zelto_val_year"), "2004");
    EXPECT_EQ(value_of(album, "zelto_val_genre"), "folk");
    EXPECT_EQ(value_of(album, "zelto_val_tui"), "alb-lanterns");
    EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "SINGLE");
    EXPECT_EQ(value_of(album, "_sdkmgr_val_lookup_type"), "TOC");
    EXPECT_EQ(value_of(album, "zelto_val_toc_album"), "150 14672 27367 41225");
    // The single row was completed by a lookup by tui.
    EXPECT_EQ(value_of(album, "zelto_val_full_result"), "1");
    EXPECT_EQ(track_titles(album), (std::vector<std::string>{"1 Quiet Harbour 193626", "2 Paper Comets 169266",
                                                             "3 The Long Thaw 184773"}));
    // On a disc of its own the matched disc's tracks, numbered on the disc,
    // read exactly as the album's.
    zelto_rvo_handle disc = child_of(album, "zelto_ctx_disc!matching", 1, 0);
    EXPECT_EQ(track_titles(disc), track_titles(album));
    for (uint32_t i = 1; i <= 3; ++i) {
        zelto_rvo_handle on_album = child_of(album, "zelto_ctx_track!", i, 0);
        zelto_rvo_handle on_disc = child_of(disc, "zelto_ctx_track!", i, 0);
        const char *values[] = {ZELTO_VAL_TRACKNUMBER, ZELTO_VAL_TUI,      ZELTO_VAL_TUI_TAG, ZELTO_VAL_DISCNUMBER,
                                ZELTO_VAL_DURATION,    ZELTO_VAL_DISPLAY, nullptr};
        const char *children[] = {ZELTO_CHILD_TITLE_OFFICIAL, ZELTO_CHILD_ARTIST, ZELTO_CHILD_NAME_OFFICIAL, nullptr};
        char *a = nullptr, *d = nullptr;
        ASSERT_EQ(zelto_manager_rvo_dump(on_album, values, children, &a), 0u);
        ASSERT_EQ(zelto_manager_rvo_dump(on_disc, values, children, &d), 0u);
        EXPECT_STREQ(a, d);
        EXPECT_NE(std::string(a).find("zelto_val_tui"), std::string::npos);
        zelto_manager_text_free(a);
        zelto_manager_text_free(d);
        for (auto item : {on_album, on_disc}) zelto_manager_rvo_release(item);
    }
    for (auto item : {disc, album, response}) zelto_manager_rvo_release(item);
    // Progress: started, sent, found, one album built, ready, then the same
    // for the completion lookup.
    EXPECT_EQ(events_, (std::vector<uint32_t>{10, 20, 30, 40, 50, 100, 10, 20, 30, 40, 50, 100}));
}

TEST_F(CatalogueTest, ShiftedAndPerturbedTocsAreFuzzyMatches) {
    for (const char *toc : {"300 14822 27517 41375", "182 14700 27390 41260", "150 14700 27340 41250"}) {
        SCOPED_TRACE(toc);
        zelto_rvo_handle response = find_toc(toc);
        ASSERT_NE(response, nullptr);
        ASSERT_EQ(count_of(response, "zelto_ctx_album!"), 1u);
        zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1, 0);
        EXPECT_EQ(value_of(album, "zelto_val_tui"), "alb-lanterns");
        EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "FUZZY");
        EXPECT_EQ(value_of(album, "zelto_val_toc_album"), toc);
        for (auto item : {album, response}) zelto_manager_rvo_release(item);
    }
}

TEST_F(CatalogueTest, UnknownTocIsNoMatch) {
    uint32_t status = 1;
    // Same track count, far-off lengths; and a track count no disc has.
    for (const char *toc : {"150 50000 90000 150000", "150 14672 27367 41225 50000 60000"}) {
        zelto_rvo_handle response = find_toc(toc, &status);
        EXPECT_EQ(status, 0u);
        ASSERT_NE(response, nullptr);
        EXPECT_EQ(count_of(response, "zelto_ctx_album!"), 0u);
        EXPECT_EQ(value_of(response, "zelto_val_rangecount"), "0");
        zelto_manager_rvo_release(response);
    }
}

TEST_F(CatalogueTest, PartialDiscOfTwoIsCompletedWithAllTracksAndTheMatchedOnesMarked) {
    zelto_rvo_handle response = find_toc("150 30000 61000");
    ASSERT_NE(response, nullptr);
    ASSERT_EQ(count_of(response, "zelto_ctx_album!"), 1u);
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1, 0);
    EXPECT_EQ(value_of(album, "zelto_val_tui"), "alb-northern");
    EXPECT_EQ(value_of(album, "zelto_val_full_result"), "1");
    EXPECT_EQ(value_of(album, "zelto_val_albumtrackcnt"), "5");
    // The TOC answer held disc 2 only; the completion brought all five.
    EXPECT_EQ(track_titles(album),
              (std::vector<std::string>{"1 Aurora 264000", "2 Polar Night 266000", "3 Ice Field 266000",
                                        "4 Midnight Sun 398000", "5 Thaw 412000"}));
    // The completion lookup carried the matched track: the first of disc 2.
    EXPECT_EQ(value_of(album, "zelto_val_track_matched"), "4");
    zelto_rvo_handle matching = child_of(album, "zelto_ctx_track!matching", 1, 0);
    EXPECT_EQ(display(matching, "zelto_ctx_title!off"), "Midnight Sun");
    EXPECT_EQ(value_of(matching, "zelto_val_discnumber"), "2");
    zelto_manager_rvo_release(matching);
    // The disc that matched, on its own: its number among the release's
    // discs, its TOC, its tracks numbered on it.
    EXPECT_EQ(value_of(album, "zelto_val_disccount"), "2");
    EXPECT_EQ(value_of(album, "zelto_val_disc_matched"), "2");
    EXPECT_EQ(value_of(album, "zelto_val_toc"), "150 30000 61000");
    ASSERT_EQ(count_of(album, "zelto_ctx_disc!"), 1u);
    zelto_rvo_handle disc = child_of(album, "zelto_ctx_disc!matching", 1, 0);
    EXPECT_EQ(value_of(disc, "zelto_val_discnumber"), "2");
    EXPECT_EQ(value_of(disc, "zelto_val_toc"), "150 30000 61000");
    EXPECT_EQ(track_titles(disc), (std::vector<std::string>{"1 Midnight Sun 398000", "2 Thaw 412000"}));
    for (auto item : {disc, album, response}) zelto_manager_rvo_release(item);
}

TEST_F(CatalogueTest, AbortFromTheStatusCallbackStopsTheLookup) {
    abort_at_ = 30;
    uint32_t status = 0;
    zelto_rvo_handle response = find_toc("150 14672 27367 41225", &status);
    abort_at_ = 0;
    EXPECT_EQ(response, nullptr);
    EXPECT_NE(status, 0u);
    uint32_t source = 0;
    zelto_manager_errorinfo_get(&source, nullptr, nullptr);
    EXPECT_EQ(source, ZELTO_CATALOGUE_ABORTED);
    // Nothing after the event that asked to stop.
    EXPECT_EQ(events_, (std::vector<uint32_t>{10, 20, 30}));
}

TEST_F(CatalogueTest, OnlineModeIsAnsweredByTheCatalogueToo) {
    ASSERT_EQ(zelto_manager_user_option_set(user_, "zelto_useroption_lookup_mode", "zelto_lookupmode_online"), 0u);
    zelto_rvo_handle response = find_toc("150 22160 40560 57220");
    ASSERT_NE(response, nullptr);
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1, 0);
    EXPECT_EQ(display(album, "zelto_ctx_title!off"), "Straße der Lieder");
    EXPECT_EQ(artist_display(album), "Jürgen Hößl");
    for (auto item : {album, response}) zelto_manager_rvo_release(item);
}

// ---- Requests sent straight to the provider table, as the module sends them -----------

class ProviderRequest {
   public:
    ProviderRequest(const zelto_lookup_interface *table, const char *type) : table_(table) {
        EXPECT_EQ(table_->lookup_request_create(table_, callback, this, &request_), 0u);
        EXPECT_EQ(table_->lookup_request_add(request_, type, "CNX_1", "cnx", 0), 0u);
    }
    ~ProviderRequest() {
        zelto_manager_rvo_release(result_);
        EXPECT_EQ(table_->lookup_request_release(request_), 0u);
    }
    ProviderRequest &data(const char *key, const char *text) {
        EXPECT_EQ(table_->lookup_request_set_data(request_, "CNX_1", key, text, 1), 0u);
        return *this;
    }
    ProviderRequest &option(const char *key, const char *text) {
        EXPECT_EQ(table_->lookup_request_set_option(request_, "CNX_1", key, text), 0u);
        return *this;
    }
    uint32_t execute(void *user) {
        const uint32_t status = table_->lookup_request_execute(request_, user);
        if (status == 0) {
            EXPECT_EQ(table_->lookup_request_get_result(request_, "CNX_1", &result_), 0u);
        }
        return status;
    }
    zelto_rvo_handle result() const { return result_; }
    std::vector<uint32_t> codes;
    std::vector<std::string> errors;
    uint32_t abort_at = 0;

   private:
    static void callback(void *data, const zelto_lookup_status *status, uint8_t *abort) {
        auto *self = static_cast<ProviderRequest *>(data);
        EXPECT_EQ(status->kind, 16u);
        self->codes.push_back(status->code);
        if (status->code == 13) self->errors.push_back(reinterpret_cast<const char *>(status->value2));
        if (self->abort_at == status->code) *abort = 1;
    }
    const zelto_lookup_interface *table_;
    zelto_lookup_request request_ = nullptr;
    zelto_rvo_handle result_ = nullptr;
};

// Album titles under "zelto_ctx_album!" of a provider answer.
std::vector<std::string> album_titles(zelto_rvo_handle response, const char *key = "zelto_ctx_album!") {
    std::vector<std::string> titles;
    const uint32_t n = count_of(response, key);
    for (uint32_t i = 1; i <= n; ++i) {
        zelto_rvo_handle a = child_of(response, key, i, 0);
        titles.push_back(display(a, "zelto_ctx_title!off"));
        zelto_manager_rvo_release(a);
    }
    return titles;
}

TEST_F(CatalogueTest, TextSearchFindsMisspeltAndUnaccentedInputAsPartialAlbums) {
    const zelto_lookup_interface *table = zelto_catalogue_lookup_table(catalogue_);
    ASSERT_NE(table, nullptr);
    {
        ProviderRequest r(table, "zelto_lookup_type_album");
        r.data("zelto_lookup_data_album_artist", "Jurgen Hossl").data("zelto_lookup_data_album_title", "Strasse");
        ASSERT_EQ(r.execute(user_), 0u);
        EXPECT_EQ(value_of(r.result(), "_sdkmgr_val_response_code"), "zelto_result_single_match");
        EXPECT_EQ(album_titles(r.result()), (std::vector<std::string>{"Straße der Lieder"}));
    }
    {
        ProviderRequest r(table, "zelto_lookup_type_album");
        r.data("zelto_lookup_data_album_title", "Lantrens of Glas")
            .data("zelto_lookup_data_track_title", "Paper Comet");
        ASSERT_EQ(r.execute(user_), 0u);
        ASSERT_EQ(album_titles(r.result()), (std::vector<std::string>{"Lanterns of Glass"}));
        zelto_rvo_handle album = child_of(r.result(), "zelto_ctx_album!", 1, 0);
        // Partial: the matched track only, the real track count beside it.
        EXPECT_EQ(value_of(album, "zelto_val_full_result"), "0");
        EXPECT_EQ(value_of(album, "zelto_val_albumtrackcnt"), "3");
        EXPECT_EQ(value_of(album, "zelto_val_track_matched"), "2");
        EXPECT_EQ(track_titles(album), (std::vector<std::string>{"2 Paper Comets 169266"}));
        EXPECT_EQ(count_of(album, "zelto_ctx_track!matching"), 1u);
        zelto_manager_rvo_release(album);
    }
    EXPECT_EQ(zelto_catalogue_live_requests(catalogue_), 0u);
}

TEST_F(CatalogueTest, TextSearchHonoursTheResultRange) {
    const zelto_lookup_interface *table = zelto_catalogue_lookup_table(catalogue_);
    std::vector<std::string> seen;
    for (const char *start : {"1", "6", "11"}) {
        SCOPED_TRACE(start);
        ProviderRequest r(table, "zelto_lookup_type_album");
        const std::string end = std::to_string(std::atoi(start) + 4);
        r.data("zelto_lookup_data_result_range_start", start)
            .data("zelto_lookup_data_result_range_end", end.c_str())
            .data("zelto_lookup_data_album_artist", "Paging Ensemble");
        ASSERT_EQ(r.execute(user_), 0u);
        EXPECT_EQ(value_of(r.result(), "zelto_val_rangestart"), start);
        EXPECT_EQ(value_of(r.result(), "zelto_val_rangeend"), std::string(start) == "11" ? "12" : end);
        EXPECT_EQ(value_of(r.result(), "zelto_val_rangecount"), "12");
        for (auto &t : album_titles(r.result())) seen.push_back(t);
    }
    // Three pages cover the twelve albums once each.
    ASSERT_EQ(seen.size(), 12u);
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
    // Single result asks for one.
    ProviderRequest r(table, "zelto_lookup_type_album");
    r.data("zelto_lookup_data_album_artist", "Paging Ensemble").option("zelto_lookup_option_result_single", "1");
    ASSERT_EQ(r.execute(user_), 0u);
    EXPECT_EQ(count_of(r.result(), "zelto_ctx_album!"), 1u);
}

TEST_F(CatalogueTest, TrackMatchAndLyricLookups) {
    const zelto_lookup_interface *table = zelto_catalogue_lookup_table(catalogue_);
    {
        ProviderRequest r(table, "zelto_lookup_type_track");
        r.data("zelto_lookup_data_track_title", "Midnigt Sun");
        ASSERT_EQ(r.execute(user_), 0u);
        ASSERT_GE(count_of(r.result(), "zelto_ctx_track!"), 1u);
        zelto_rvo_handle t = child_of(r.result(), "zelto_ctx_track!", 1, 0);
        EXPECT_EQ(display(t, "zelto_ctx_title!off"), "Midnight Sun");
        EXPECT_EQ(artist_display(t), "The Lanterns");
        EXPECT_EQ(value_of(t, "zelto_val_duration"), "398000");
        zelto_manager_rvo_release(t);
    }
    {
        ProviderRequest r(table, "zelto_lookup_type_text_match");
        r.data("zelto_lookup_data_artist", "The Lanterns");
        ASSERT_EQ(r.execute(user_), 0u);
        zelto_rvo_handle root = r.result();
        EXPECT_EQ(out(zelto_manager_rvo_get_context, root), "zelto_ctx_response_match");
        const uint32_t n = count_of(root, "zelto_ctx_response_match!");
        ASSERT_GE(n, 1u);
        bool contributor = false;
        for (uint32_t i = 1; i <= n; ++i) {
            zelto_rvo_handle c = child_of(root, "zelto_ctx_response_match!", i, 0);
            const char *ctx = nullptr;
            zelto_manager_rvo_get_context(c, &ctx);
            if (std::string(ctx) == "zelto_ctx_contributor") {
                contributor = contributor || display(c, "zelto_ctx_name!off") == "The Lanterns";
                EXPECT_TRUE(has_value(c, "_sdkmgr_val_text_match_contrib_score"));
                EXPECT_TRUE(has_value(c, "zelto_val_collab_result"));
            } else {
                EXPECT_STREQ(ctx, "zelto_ctx_album");
                EXPECT_TRUE(has_value(c, "_sdkmgr_val_text_match_album_score"));
            }
            zelto_manager_rvo_release(c);
        }
        EXPECT_TRUE(contributor);
    }
    {
        // No lyrics in this catalogue: an empty answer, not a failure.
        ProviderRequest r(table, "zelto_lookup_type_lyric");
        r.data("zelto_lookup_data_lyric_fragment", "harbour");
        ASSERT_EQ(r.execute(user_), 0u);
        EXPECT_EQ(value_of(r.result(), "_sdkmgr_val_response_code"), "zelto_result_no_matches");
        EXPECT_EQ(count_of(r.result(), "zelto_ctx_lyric!"), 0u);
    }
}

// Releases sharing one TOC carry what tells their editions apart; lyrics
// name the album and track they belong to.
// Tracks credited to the album's artist and a track with a guest credit:
// each reads its own artist, on the album and on the matched disc alike,
// and every node of the answer goes with its release.
TEST_F(CatalogueTest, TrackArtistsReadAsCreditedAndTheAnswerLeavesNoNodes) {
    const std::string releases = dir_ + "/guest.jsonl";
    std::ofstream(releases)
        << R"({"id": "guest-1", "title": "Night Ferry", "date": "2002", "artist-credit": [{"name": "Ilse Varga"}],)"
        << R"( "media": [{"position": 1, "format": "CD", "discs": [{"id": "g1", "offsets": [150, 17000, 33000], "sectors": 51000}],)"
        << R"( "tracks": [{"position": 1, "title": "Dock"}, {"position": 2, "title": "Wake",)"
        << R"( "artist-credit": [{"name": "Tomas Brekke"}]}, {"position": 3, "title": "Pier"}]}]})"
        << "\n";
    ASSERT_EQ(zelto_catalogue_import(catalogue_, releases.c_str(), nullptr, nullptr, nullptr), 0u);
    std::remove(releases.c_str());
    const uint32_t trees = zelto_manager_tree_live_count();
    zelto_rvo_handle response = find_toc("150 17000 33000 51000");
    ASSERT_NE(response, nullptr);
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1, 0);
    EXPECT_EQ(artist_display(album), "Ilse Varga");
    zelto_rvo_handle disc = child_of(album, ZELTO_CHILD_DISC_MATCHING, 1, 0);
    for (zelto_rvo_handle holder : {album, disc}) {
        std::vector<std::string> artists;
        for (uint32_t i = 1; i <= count_of(holder, "zelto_ctx_track!"); ++i) {
            zelto_rvo_handle t = child_of(holder, "zelto_ctx_track!", i, 0);
            artists.push_back(artist_display(t));
            zelto_manager_rvo_release(t);
        }
        EXPECT_EQ(artists, (std::vector<std::string>{"Ilse Varga", "Tomas Brekke", "Ilse Varga"}));
    }
    for (auto item : {disc, album, response}) zelto_manager_rvo_release(item);
    EXPECT_EQ(zelto_manager_tree_live_count(), trees);
}

TEST_F(CatalogueTest, EditionsOfOneTocAndWhereLyricsBelong) {
    const std::string releases = dir_ + "/editions.jsonl", lyrics = dir_ + "/lyrics.jsonl";
    std::ofstream(releases)
        << R"({"id": "ed-uk", "title": "Salt Roads", "date": "1999-03-02", "country": "GB", "barcode": "5012345678900",)"
        << R"( "artist-credit": [{"name": "Ilse Varga"}], "label-info": [{"catalog-number": "HH 101", "label": {"name": "Harbour House"}}],)"
        << R"( "media": [{"position": 1, "format": "CD", "discs": [{"id": "s1", "offsets": [150, 21000, 42000], "sectors": 63000}],)"
        << R"( "tracks": [{"position": 1, "title": "Tide"}, {"position": 2, "title": "Brine"}, {"position": 3, "title": "Gull"}]}]})"
        << "\n"
        << R"({"id": "ed-us", "title": "Salt Roads", "date": "1999-05", "country": "US", "artist-credit": [{"name": "Ilse Varga"}],)"
        << R"( "media": [{"position": 1, "format": "Enhanced CD", "discs": [{"id": "s1", "offsets": [150, 21000, 42000], "sectors": 63000}],)"
        << R"( "tracks": [{"position": 1, "title": "Tide"}, {"position": 2, "title": "Brine"}, {"position": 3, "title": "Gull"}]}]})"
        << "\n";
    std::ofstream(lyrics) << R"({"title": "Brine", "artist": "Ilse Varga", "release": "ed-uk", "track": 2, "text": "Salt on the window"})"
                          << "\n"
                          << R"({"title": "Lost", "artist": "Ilse Varga", "release": "gone-1", "disc": 2, "track": 4, "text": "Salt"})"
                          << "\n";
    for (const std::string &file : {releases, lyrics})
        ASSERT_EQ(zelto_catalogue_import(catalogue_, file.c_str(), nullptr, nullptr, nullptr), 0u);
    std::remove(releases.c_str());
    std::remove(lyrics.c_str());

    zelto_rvo_handle response = find_toc("150 21000 42000 63000");
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(count_of(response, "zelto_ctx_album!"), 2u);
    const char *keys[] = {ZELTO_VAL_COUNTRY, ZELTO_VAL_RELEASE_DATE, ZELTO_VAL_LABEL, ZELTO_VAL_CATALOG_NUMBER,
                          ZELTO_VAL_BARCODE, ZELTO_VAL_FORMAT};
    const std::vector<std::string> editions = {"GB|1999-03-02|Harbour House|HH 101|5012345678900|CD|CD",
                                               "US|1999-05||||Enhanced CD|Enhanced CD"};
    for (uint32_t i = 1; i <= 2; ++i) {
        zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", i, 0);
        zelto_rvo_handle disc = child_of(album, ZELTO_CHILD_DISC_MATCHING, 1, 0);
        std::string edition;
        for (const char *key : keys) edition += (has_value(album, key) ? value_of(album, key) : "") + "|";
        edition += value_of(disc, ZELTO_VAL_FORMAT);
        EXPECT_EQ(edition, editions[i - 1]);
        EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "MULTI");
        zelto_manager_rvo_release(disc);
        zelto_manager_rvo_release(album);
    }
    zelto_manager_rvo_release(response);

    ProviderRequest r(zelto_catalogue_lookup_table(catalogue_), "zelto_lookup_type_lyric");
    r.data("zelto_lookup_data_lyric_fragment", "salt");
    ASSERT_EQ(r.execute(user_), 0u);
    ASSERT_EQ(count_of(r.result(), "zelto_ctx_lyric!"), 2u);
    // The album and track as children where the catalogue holds them, else
    // only the numbers.
    std::vector<std::string> places;
    for (uint32_t i = 1; i <= 2; ++i) {
        zelto_rvo_handle lyric = child_of(r.result(), "zelto_ctx_lyric!", i, 0);
        std::string place = display(lyric, ZELTO_CHILD_TITLE_OFFICIAL) + ": " + value_of(lyric, ZELTO_VAL_ALBUM_TUI) +
                            " " + value_of(lyric, ZELTO_VAL_DISCNUMBER) + "/" + value_of(lyric, ZELTO_VAL_TRACKNUMBER);
        if (count_of(lyric, ZELTO_CHILD_ALBUM) == 1 && count_of(lyric, ZELTO_CHILD_TRACK) == 1) {
            zelto_rvo_handle album = child_of(lyric, ZELTO_CHILD_ALBUM, 1, 0);
            zelto_rvo_handle track = child_of(lyric, ZELTO_CHILD_TRACK, 1, 0);
            place += " " + value_of(album, ZELTO_VAL_TUI) + " " + artist_display(album) + " - " +
                     display(album, ZELTO_CHILD_TITLE_OFFICIAL) + ", " + value_of(track, ZELTO_VAL_DISCNUMBER) + "/" +
                     value_of(track, ZELTO_VAL_TRACKNUMBER) + " " + display(track, ZELTO_CHILD_TITLE_OFFICIAL);
            zelto_manager_rvo_release(track);
            zelto_manager_rvo_release(album);
        } else {
            place += " children " + std::to_string(count_of(lyric, ZELTO_CHILD_ALBUM) + count_of(lyric, ZELTO_CHILD_TRACK));
        }
        places.push_back(place);
        zelto_manager_rvo_release(lyric);
    }
    std::sort(places.begin(), places.end());
    EXPECT_EQ(places, (std::vector<std::string>{"Brine: ed-uk 1/2 ed-uk Ilse Varga - Salt Roads, 1/2 Brine",
                                                "Lost: gone-1 2/4 children 0"}));
}

TEST_F(CatalogueTest, RevisionCheckAndIdentifierLookups) {
    const zelto_lookup_interface *table = zelto_catalogue_lookup_table(catalogue_);
    {
        ProviderRequest r(table, "zelto_lookup_type_album");
        r.data("zelto_lookup_data_tui", "alb-strasse").data("zelto_lookup_data_rev", "1");
        ASSERT_EQ(r.execute(user_), 0u);
        EXPECT_EQ(value_of(r.result(), "_sdkmgr_val_response_code"), "zelto_result_no_new_rev");
        EXPECT_EQ(count_of(r.result(), "zelto_ctx_album!"), 0u);
    }
    {
        ProviderRequest r(table, "zelto_lookup_type_track");
        r.data("zelto_lookup_data_tui", "alb-northern").data("zelto_lookup_data_track_matched", "5");
        ASSERT_EQ(r.execute(user_), 0u);
        ASSERT_EQ(count_of(r.result(), "zelto_ctx_track!"), 1u);
        zelto_rvo_handle t = child_of(r.result(), "zelto_ctx_track!matching", 1, 0);
        EXPECT_EQ(display(t, "zelto_ctx_title!off"), "Thaw");
        zelto_manager_rvo_release(t);
    }
    {
        ProviderRequest r(table, "zelto_lookup_type_album");
        r.data("zelto_lookup_data_tui", "no-such-album");
        ASSERT_EQ(r.execute(user_), 0u);
        EXPECT_EQ(value_of(r.result(), "_sdkmgr_val_response_code"), "zelto_result_no_matches");
    }
}

TEST_F(CatalogueTest, BadRequestsFailWithAnErrorEvent) {
    const zelto_lookup_interface *table = zelto_catalogue_lookup_table(catalogue_);
    {
        ProviderRequest r(table, "zelto_lookup_type_album");
        r.data("zelto_lookup_data_toc", "150 100");
        EXPECT_EQ(r.execute(user_), ZELTO_CATALOGUE_INVALID_DATA);
        EXPECT_EQ(r.codes, (std::vector<uint32_t>{1, 8, 13}));
        ASSERT_EQ(r.errors.size(), 1u);
        EXPECT_FALSE(r.errors[0].empty());
    }
    {
        ProviderRequest r(table, "zelto_lookup_type_album");
        r.data("zelto_lookup_data_album_title", "x").data("zelto_lookup_data_result_range_start", "9")
            .data("zelto_lookup_data_result_range_end", "3");
        EXPECT_EQ(r.execute(user_), ZELTO_CATALOGUE_INVALID_DATA);
    }
    {
        ProviderRequest r(table, "zelto_lookup_type_video");
        EXPECT_EQ(r.execute(user_), ZELTO_CATALOGUE_UNSUPPORTED);
        zelto_rvo_handle none = nullptr;
        EXPECT_EQ(table->lookup_request_get_result(nullptr, "CNX_1", &none), ZELTO_CATALOGUE_BAD_ARG);
    }
    {
        ProviderRequest r(table, "zelto_lookup_type_album");
        r.data("zelto_lookup_data_album_artist", "Paging Ensemble");
        r.abort_at = 10;  // after the first album is built
        EXPECT_EQ(r.execute(user_), ZELTO_CATALOGUE_ABORTED);
        EXPECT_EQ(r.codes, (std::vector<uint32_t>{1, 8, 9, 10}));
        EXPECT_EQ(r.result(), nullptr);
    }
    EXPECT_EQ(table->lookup_request_release(nullptr), 0u);
}

TEST_F(CatalogueTest, InfoCountsAndReopening) {
    zelto_catalogue_info info{};
    ASSERT_EQ(zelto_catalogue_get_info(catalogue_, &info), 0u);
    EXPECT_EQ(info.albums, 15u);
    EXPECT_EQ(info.discs, 16u);
    EXPECT_EQ(info.tracks, 3u + 3u + 5u + 12u * 2u);
    EXPECT_EQ(info.lyrics, 0u);
    zelto_catalogue *second = nullptr;
    ASSERT_EQ(zelto_catalogue_open(path_.c_str(), 0, &second), 0u);
    zelto_catalogue_info again{};
    ASSERT_EQ(zelto_catalogue_get_info(second, &again), 0u);
    EXPECT_EQ(again.albums, 15u);
    EXPECT_EQ(zelto_catalogue_close(second), 0u);
    // An in-memory catalogue counts the same, from the catalogue itself.
    zelto_catalogue *memory = nullptr;
    ASSERT_EQ(zelto_catalogue_open(":memory:", 0, &memory), 0u);
    ASSERT_EQ(zelto_catalogue_import(memory, (dir_ + "/releases.jsonl").c_str(), nullptr, nullptr, nullptr), 0u);
    zelto_catalogue_info in_memory{};
    ASSERT_EQ(zelto_catalogue_get_info(memory, &in_memory), 0u);
    EXPECT_EQ(std::vector<uint64_t>({in_memory.albums, in_memory.discs, in_memory.tocs, in_memory.tracks,
                                     in_memory.artists, in_memory.lyrics}),
              std::vector<uint64_t>({info.albums, info.discs, info.tocs, info.tracks, info.artists, info.lyrics}));
    EXPECT_EQ(in_memory.tocs, 16u);
    EXPECT_EQ(zelto_catalogue_close(memory), 0u);
    // A closed catalogue is refused; a missing file is reported as such.
    EXPECT_EQ(zelto_catalogue_get_info(second, &again), ZELTO_CATALOGUE_BAD_ARG);
    zelto_catalogue *missing = nullptr;
    EXPECT_EQ(zelto_catalogue_open((dir_ + "/absent.catalogue").c_str(), 0, &missing), ZELTO_CATALOGUE_NO_FILE);
    EXPECT_EQ(missing, nullptr);
    EXPECT_EQ(zelto_catalogue_import(catalogue_, (dir_ + "/absent.json").c_str(), nullptr, nullptr, nullptr),
              ZELTO_CATALOGUE_IO_ERROR);
    EXPECT_EQ(zelto_catalogue_install(catalogue_, 3), ZELTO_CATALOGUE_BAD_ARG);
}

}  // namespace
