// Text identification through a scripted provider: the searches' requests,
// scores, ordering and single-result choices, and every find operation's
// refusals.
#include <string>
#include <vector>

#include "log_capture.h"
#include "rvo_read.h"
#include "script_fixture.h"

namespace {

class TextSearchTest : public WithQuery<ScriptedTest> {
   protected:
    void text(const char *field, const char *value) {
        ASSERT_EQ(zelto_cantrix_query_set_text(query_, field, value), 0u) << field;
    }
    // Titles and scores of the rows under a child key, in order.
    std::vector<std::string> rows(zelto_rvo_handle response, const char *key, const char *name_key) {
        std::vector<std::string> out;
        const uint32_t count = count_of(response, key);
        for (uint32_t i = 1; i <= count; ++i) {
            zelto_rvo_handle row = child_of(response, key, i);
            out.push_back(value_of(row, name_key) + "=" + value_of(row, "zelto_val_txtmatchscore"));
            zelto_manager_rvo_release(row);
        }
        return out;
    }
    // rows() of the response of a find operation that must succeed.
    using Find = uint32_t (*)(zelto_cantrix_query_handle, zelto_rvo_handle *);
    std::vector<std::string> found_rows(Find find, const char *key, const char *name_key) {
        zelto_rvo_handle response = nullptr;
        EXPECT_EQ(find(query_, &response), 0u);
        std::vector<std::string> out = response ? rows(response, key, name_key) : std::vector<std::string>{};
        zelto_manager_rvo_release(response);
        return out;
    }
};

zelto_manager_tree *album(const std::string &title, const std::string &artist, const KeyValues &values = {}) {
    KeyValues all = {{"zelto_val_name", title}};
    all.insert(all.end(), values.begin(), values.end());
    return make_displayed("zelto_ctx_album", title, artist, all);
}

TEST_F(TextSearchTest, AlbumSearchRequestAndScoresInProviderOrder) {
    text("zelto_cantrix_field_artist", "The Lanterns");
    text("zelto_cantrix_field_album", "Harbour Lights");
    text("zelto_cantrix_field_composer", "Ann Other");
    text("zelto_cantrix_field_lyric", "not sent by this search");
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_enable_link", "1"), 0u);
    zelto_manager_tree *answer_tree =
        make_answer("zelto_result_fuzzy_matches",
                    {album("Something Else", "Nobody"), album("Harbour Lights", "Lanterns"),
                     album("Harbor Lights", "The Lanterns")});
    zelto_manager_tree_add_value(answer_tree, "zelto_val_rangestart", "1");
    zelto_manager_tree_add_value(answer_tree, "zelto_val_rangeend", "3");
    zelto_manager_tree_add_value(answer_tree, "zelto_val_rangecount", "40");
    answer(answer_tree);
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
              "data CNX_1 zelto_lookup_data_album_title \"Harbour Lights\" copy 1\n"
              "data CNX_1 zelto_lookup_data_artist \"The Lanterns\" copy 1\n"
              "data CNX_1 zelto_lookup_data_composer \"Ann Other\" copy 1\n"
              "option CNX_1 zelto_lookup_option_link \"1\"\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
    EXPECT_EQ(value_of(response, "zelto_val_rangecount"), "40");  // the provider's range values
    EXPECT_EQ(value_of(response, "zelto_val_rangeend"), "3");
    std::vector<std::string> got = rows(response, "zelto_ctx_album!", "zelto_val_name");
    ASSERT_EQ(got.size(), 3u);
    // Provider order is kept; "The Lanterns" against "Lanterns" is 100 after normalisation.
    EXPECT_EQ(got[1], "Harbour Lights=100");
    EXPECT_EQ(got[0].substr(0, 15), "Something Else=");
    EXPECT_NE(got[0], "Something Else=100");
    zelto_rvo_handle first = child_of(response, "zelto_ctx_album!", 2);
    EXPECT_EQ(value_of(first, "_sdkmgr_val_lookup_type"), "TEXT");
    EXPECT_EQ(value_of(first, "_sdkmgr_val_match_type"), "FUZZY");
    for (auto item : {first, response}) zelto_manager_rvo_release(item);
}

TEST_F(TextSearchTest, SingleModeReturnsTheBestAlbumCompleted) {
    text("zelto_cantrix_field_artist", "The Lanterns");
    text("zelto_cantrix_field_album", "Harbour Lights");
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_single_result", "1"), 0u);
    zelto_manager_tree *best = album("Harbour Lights", "The Lanterns",
                                     {{"zelto_val_tui", "42"}, {"zelto_val_tui_tag", "t42"},
                                      {"zelto_val_albumtrackcnt", "12"}, {"zelto_val_track_matched", "7"},
                                      {"zelto_val_track_matched_pos", "2"}});
    adopt(best, "zelto_ctx_track!matching", make_displayed("zelto_ctx_track", "Seven", "The Lanterns",
                                                           {{"zelto_val_tracknumber", "7"}}));
    answer(make_answer("zelto_result_fuzzy_matches", {album("Other", "People"), best, album("Harbour", "Lanterns")}));
    answer(make_answer("zelto_result_single_match",
                       {make_album("Harbour Lights", "The Lanterns", 12, {{"zelto_val_full_result", "1"}})}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(value_of(response, "zelto_val_resultcount"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_rangestart"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_rangecount"), "1");
    zelto_rvo_handle row = child_of(response, "zelto_ctx_album!", 1);
    EXPECT_EQ(count_of(row, "zelto_ctx_track!"), 12u);  // completed by a second lookup
    EXPECT_EQ(value_of(row, "zelto_val_txtmatchscore"), "100");
    EXPECT_EQ(value_of(row, "zelto_val_track_matched"), "7");  // moved into the row's map
    EXPECT_EQ(value_of(row, "zelto_val_track_matched_pos"), "2");
    for (auto item : {row, response}) zelto_manager_rvo_release(item);
    EXPECT_STREQ(zelto_script_request_data(script_, 1, "zelto_lookup_data_tui"), "42");
    EXPECT_STREQ(zelto_script_request_data(script_, 1, "zelto_lookup_data_track_matched"), "7");
}

TEST_F(TextSearchTest, CompleteAlbumNeedsNoSecondLookup) {
    text("zelto_cantrix_field_title", "Seven");
    zelto_manager_tree *one = make_album("Twelve", "X", 12, {{"zelto_val_albumtrackcnt", "12"}});
    answer(make_answer("zelto_result_single_match", {one}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(zelto_script_request_count(script_), 1u);
    // Only a title given and no matching track: score 0.
    EXPECT_EQ(rows(response, "zelto_ctx_album!", "zelto_val_title"), std::vector<std::string>{"Twelve=0"});
    zelto_manager_rvo_release(response);
}

TEST_F(TextSearchTest, NothingUsableIsRefusedAfterOptions) {
    text("zelto_cantrix_field_lyric", "only a lyric title");
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_output", "x"), 0u);
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_matches(query_, &response), 0x908101a4u);
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_text_match CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
              "option CNX_1 zelto_lookup_option_output \"x\"\n"
              "release\n");
    // The same query works with the lyric search, which sends the lyric title.
    answer(make_answer("zelto_result_no_matches", {}, "zelto_ctx_lyric!"));
    ASSERT_EQ(zelto_cantrix_query_find_lyrics(query_, &response), 0u);
    EXPECT_EQ(transcript(1),
              "mode 1\n"
              "add zelto_lookup_type_lyric CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
              "data CNX_1 zelto_lookup_data_lyric_title \"only a lyric title\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
    zelto_manager_rvo_release(response);
}

TEST_F(TextSearchTest, LyricSearchPrefersTheTitleAndSkipsDataFlags) {
    text("zelto_cantrix_field_lyric", "lyric title");
    text("zelto_cantrix_field_title", "Song Title");
    text("zelto_cantrix_field_artist", "Singer");
    text("zelto_cantrix_field_fragment", "la la la");
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_enable_link", "1"), 0u);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_preferred_lang", "eng"), 0u);
    answer(make_answer("zelto_result_no_matches", {}, "zelto_ctx_lyric!"));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_lyrics(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_lyric CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
              "data CNX_1 zelto_lookup_data_lyric_artist \"Singer\" copy 1\n"
              "data CNX_1 zelto_lookup_data_lyric_title \"Song Title\" copy 1\n"
              "data CNX_1 zelto_lookup_data_lyric_fragment \"la la la\" copy 1\n"
              "option CNX_1 zelto_lookup_option_language \"eng\"\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
}

TEST_F(TextSearchTest, PresetSearchesForEachKind) {
    text("zelto_cantrix_field_composer", "not sent by presets");
    text("zelto_cantrix_field_title", "T");
    text("zelto_cantrix_field_fragment", "F");
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_search_preset", "classical"), 0u);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_enable_aim", "1"), 0x90810001u);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_query_option_enable_aim", "1"), 0u);
    answer(make_answer("zelto_result_no_matches", {}));
    answer(make_answer("zelto_result_no_matches", {}, "zelto_ctx_track!"));
    answer(make_answer("zelto_result_no_matches", {}, "zelto_ctx_lyric!"));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    ASSERT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    ASSERT_EQ(zelto_cantrix_query_find_lyrics(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    const char *types[] = {"zelto_lookup_type_album", "zelto_lookup_type_track", "zelto_lookup_type_lyric"};
    for (uint32_t i = 0; i < 3; ++i)
        EXPECT_EQ(transcript(i), std::string("mode 1\n"
                                             "add ") + types[i] + " CNX_1 cnx 0\n"
                                 "option CNX_1 zelto_lookup_option_preset \"classical\"\n"
                                 "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
                                 "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
                                 "data CNX_1 zelto_lookup_data_track_title \"T\" copy 1\n"
                                 "data CNX_1 zelto_lookup_data_lyric_fragment \"F\" copy 1\n"
                                 "execute user \"test-user\"\n"
                                 "get_result CNX_1\n"
                                 "release\n");
}

TEST_F(TextSearchTest, TrackFindScoresAndSingleModeTakesTheFirst) {
    text("zelto_cantrix_field_title", "Night Drive");
    text("zelto_cantrix_field_artist", "Lumen");
    answer(make_answer("zelto_result_fuzzy_matches",
                       {make_displayed("zelto_ctx_track", "Day Walk", "Other"),
                        make_displayed("zelto_ctx_track", "Night Drive", "Lumen"),
                        make_displayed("zelto_ctx_track", "Night Drive", "")},
                       "zelto_ctx_track!"));
    std::vector<std::string> got = found_rows(zelto_cantrix_query_find_tracks, "zelto_ctx_track!", "_sdkmgr_val_lookup_type");
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[1], "TEXT=100");
    EXPECT_EQ(got[2], "TEXT=100");  // no artist display: the title alone counts

    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_single_result", "yes"), 0u);
    answer(make_answer("zelto_result_fuzzy_matches",
                       {make_displayed("zelto_ctx_track", "Day Walk", "Other", {{"zelto_val_name", "first"}}),
                        make_displayed("zelto_ctx_track", "Night Drive", "Lumen", {{"zelto_val_name", "best"}})},
                       "zelto_ctx_track!"));
    got = found_rows(zelto_cantrix_query_find_tracks, "zelto_ctx_track!", "zelto_val_name");
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].substr(0, 6), "first=");  // tracks are never sorted
}

TEST_F(TextSearchTest, MatchResponsesCombineProviderScores) {
    text("zelto_cantrix_field_artist", "Someone");
    auto scored_album = [](const char *name, const char *a, const char *c, const char *t) {
        return make_node("zelto_ctx_album", {{"zelto_val_name", name},
                                             {"_sdkmgr_val_text_match_album_score", a},
                                             {"_sdkmgr_val_text_match_contrib_score", c},
                                             {"_sdkmgr_val_text_match_track_score", t}});
    };
    answer(make_answer("zelto_result_fuzzy_matches",
                       {scored_album("A90", "90", "0", "0"),
                        make_node("zelto_ctx_contributor", {{"zelto_val_name", "C95"},
                                                            {"_sdkmgr_val_text_match_contrib_score", "95"},
                                                            {"zelto_val_collab_result", "true"}}),
                        scored_album("A130", "80", "10", "50"), scored_album("B90", "90", "0", "0")},
                       "zelto_ctx_response_match!", "zelto_ctx_response_match"));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_matches(query_, &response), 0u);
    EXPECT_EQ(rows(response, "zelto_ctx_response_match!", "zelto_val_name"),
              (std::vector<std::string>{"A130=130", "C95=" + failed_read(0x100D0003u), "A90=90", "B90=90"}));
    zelto_rvo_handle contributor = child_of(response, "zelto_ctx_contributor!", 1);
    EXPECT_EQ(value_of(contributor, "zelto_val_collab_result"), "true");  // the object's own value wins
    zelto_manager_rvo_release(contributor);
    EXPECT_EQ(count_of(response, "zelto_ctx_album!"), 3u);
    zelto_manager_rvo_release(response);

    // Single mode keeps the best; an unknown context in last place fails the response.
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_single_result", "1"), 0u);
    answer(make_answer("zelto_result_fuzzy_matches", {scored_album("low", "10", "0", "0"), scored_album("high", "95", "0", "0")},
                       "zelto_ctx_response_match!", "zelto_ctx_response_match"));
    ASSERT_EQ(zelto_cantrix_query_find_matches(query_, &response), 0u);
    EXPECT_EQ(rows(response, "zelto_ctx_response_match!", "zelto_val_name"), std::vector<std::string>{"high=95"});
    EXPECT_EQ(value_of(response, "zelto_val_rangeend"), "1");
    zelto_manager_rvo_release(response);
    answer(make_answer("zelto_result_fuzzy_matches", {scored_album("a", "10", "0", "0"), make_node("zelto_ctx_track")},
                       "zelto_ctx_response_match!", "zelto_ctx_response_match"));
    EXPECT_EQ(zelto_cantrix_query_find_matches(query_, &response), 0x9081000bu);
}

TEST_F(TextSearchTest, LyricScoresAverageWithAPerfectField) {
    // The fragment scores 100; the artist and title scores join it.
    struct Case {
        const char *artist, *title, *row_title, *row_artist, *want;
    };
    const Case cases[] = {
        {nullptr, nullptr, "Any", "Body", "TEXT=100"},
        {"qzxvkw", "qzxv", "qzxy", "qzxvkwy", "TEXT=80"},  // (80 + 60 + 100) / 3
        {"Body", "zzzz", "Any", "Body", "TEXT=66"},        // (100 + 0 + 100) / 3
    };
    text("zelto_cantrix_field_fragment", "words");
    for (const Case &c : cases) {
        if (c.artist) text("zelto_cantrix_field_artist", c.artist);
        if (c.title) text("zelto_cantrix_field_title", c.title);
        answer(make_answer("zelto_result_fuzzy_matches", {make_displayed("zelto_ctx_lyric", c.row_title, c.row_artist)},
                           "zelto_ctx_lyric!"));
        EXPECT_EQ(found_rows(zelto_cantrix_query_find_lyrics, "zelto_ctx_lyric!", "_sdkmgr_val_lookup_type"),
                  std::vector<std::string>{c.want});
    }
    // In single mode the winner loses its map, even alone.
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_single_result", "1"), 0u);
    answer(make_answer("zelto_result_fuzzy_matches", {make_displayed("zelto_ctx_lyric", "Any", "Body")},
                       "zelto_ctx_lyric!"));
    EXPECT_EQ(found_rows(zelto_cantrix_query_find_lyrics, "zelto_ctx_lyric!", "zelto_val_display"),
              std::vector<std::string>{failed_read(0x10100003u) + "=" + failed_read(0x10100003u)});
}

// The message a refused find recorded before its closing cleared it.
std::string refusal(uint32_t expected) {
    const char *function = nullptr, *message = nullptr;
    uint32_t source = 0;
    uint32_t mapped = zelto_manager_errorinfo_history(1, &source, &function, &message);
    EXPECT_EQ(mapped, expected);
    EXPECT_EQ(source, expected);
    return std::string(function ? function : "(null)") + ": " + (message ? message : "(null)");
}

TEST_F(TextSearchTest, EveryNoSuitableInputMessage) {
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x908101a4u);
    EXPECT_EQ(refusal(0x908101a4u),
              "zelto_cantrix_query_find_albums: No suitable input provided to perform Album search");
    EXPECT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0x908101a4u);
    EXPECT_EQ(refusal(0x908101a4u),
              "zelto_cantrix_query_find_tracks: No suitable input provided to perform Track search");
    EXPECT_EQ(zelto_cantrix_query_find_matches(query_, &response), 0x908101a4u);
    EXPECT_EQ(refusal(0x908101a4u),
              "zelto_cantrix_query_find_matches: No input text provided to perform match search");
    EXPECT_EQ(zelto_cantrix_query_find_lyrics(query_, &response), 0x908101a4u);
    EXPECT_EQ(refusal(0x908101a4u), "zelto_cantrix_query_find_lyrics: No input text provided to perform Lyric search");
    // The closing records the code once more, without message.
    const char *message = "unset";
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, nullptr, &message), 0x908101a4u);
    EXPECT_EQ(message, nullptr);

    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672"), 0u);
    EXPECT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0x908101a4u);  // a TOC is no track input
    EXPECT_EQ(zelto_script_request_count(script_), 0u);
    zelto_manager_tree *node = make_album("Rev", "R", 1, {{"zelto_val_tui", "5"}, {"zelto_val_tui_tag", "t"}});
    zelto_rvo_handle object = nullptr;
    ASSERT_EQ(zelto_manager_tree_to_rvo(node, nullptr, "zelto_locale_music", 0, &object), 0u);
    zelto_manager_tree_release(node);
    ASSERT_EQ(zelto_cantrix_query_set_rvo(query_, object), 0u);
    zelto_manager_rvo_release(object);
    EXPECT_EQ(zelto_cantrix_query_find_lyrics(query_, &response), 0x9081000bu);
    EXPECT_EQ(refusal(0x9081000bu), "zelto_cantrix_query_find_lyrics: Cannot perform Lyric query by ID");
}

void find_matches_inside(void *, zelto_cantrix_query_handle query, uint32_t status, uint32_t, uint32_t, uint8_t *) {
    if (status == 999) return;
    LogCapture log({0x81});
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_matches(query, &response), 0x90810006u);
    const char *function = nullptr, *message = nullptr;
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, &function, &message), 0x90810006u);
    EXPECT_STREQ(function, "zelto_cantrix_query_find_matches");
    EXPECT_STREQ(message, "Cantrix query already in progress on this handle");
    ASSERT_EQ(log.errors.size(), 1u);
    EXPECT_EQ(log.errors[0].unit, "zelto_cantrix_query_find_lyrics");  // the hook names the lyric find
    EXPECT_EQ(zelto_cantrix_query_find_lyrics(query, &response), 0x90810006u);
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, nullptr, &message), 0x90810006u);
    EXPECT_STREQ(message, "Cantrix query already in progress");
}

TEST_F(TextSearchTest, BusyMatchFindNamesTheLyricFindInTheLog) {
    zelto_cantrix_query_handle busy = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, find_matches_inside, nullptr, &busy), 0u);
    ASSERT_EQ(zelto_cantrix_query_set_text(busy, "zelto_cantrix_field_artist", "A"), 0u);
    uint32_t a = answer(make_answer("zelto_result_no_matches", {}, "zelto_ctx_response_match!", "zelto_ctx_response_match"));
    zelto_script_answer_event(script_, a, 16, 1, 0, 0);
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_matches(busy, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(zelto_cantrix_query_release(busy), 0u);
}

TEST_F(TextSearchTest, AllocationFailureAtEachStepOfATextFind) {
    text("zelto_cantrix_field_artist", "The Lanterns");
    text("zelto_cantrix_field_album", "Harbour Lights");
    int64_t blocks = zelto_manager_memory_live_blocks();
    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        zelto_script_reset(script_);
        answer(make_answer("zelto_result_fuzzy_matches", {album("Harbour Lights", "Lanterns"), album("Harbor", "X")}));
        zelto_rvo_handle response = nullptr;
        uint32_t status = zelto_cantrix_query_find_albums(query_, &response);
        zelto_manager_memory_fail_nth(0);
        if (status != 0) {
            EXPECT_EQ(status, 0x90810002u);
            EXPECT_EQ(response, nullptr);
        } else {
            zelto_manager_rvo_release(response);
        }
        EXPECT_EQ(zelto_manager_rvo_live_count(), 0u);
        EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
    });
    EXPECT_GT(failures, 5u);
    zelto_script_reset(script_);
}

}  // namespace
