// Text fields and object input: their tests, messages and how they
// displace other inputs.
#include <string>

#include "log_capture.h"
#include "rvo_read.h"
#include "script_fixture.h"

namespace {

using TextInputTest = WithQuery<ScriptedTest>;

TEST_F(TextInputTest, FieldTestsInTheirOrder) {
    LogCapture log({0x81});
    EXPECT_EQ(zelto_cantrix_query_set_text(query_, "", "x"), 0x90810001u);
    EXPECT_EQ(last_error(), "90810001/90810001 zelto_cantrix_query_set_text | "
                            "zelto_cantrix_query_set_text 'search_field' parameter empty");
    EXPECT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_artist", "bad \xC3"), 0x908103a0u);
    EXPECT_EQ(last_error(), "908103A0/908103A0 zelto_cantrix_query_set_text | "
                            "zelto_cantrix_query_set_text 'search_text' parameter invalid UTF8");
    // The UTF-8 test comes before the handle test.
    EXPECT_EQ(zelto_cantrix_query_set_text(nullptr, "zelto_cantrix_field_artist", "\xFF"), 0x908103a0u);
    EXPECT_EQ(zelto_cantrix_query_set_text(nullptr, "zelto_cantrix_field_artist", "ok"), 0x90810001u);
    // Unknown field: the message stands where the function name goes.
    EXPECT_EQ(zelto_cantrix_query_set_text(query_, "ZELTO_CANTRIX_FIELD_ARTIST", "x"), 0x90810001u);
    EXPECT_EQ(last_error(), "90810001/90810001 zelto_cantrix_query_set_text invalid search_field parameter: '%s' | "
                            "ZELTO_CANTRIX_FIELD_ARTIST");
    ASSERT_EQ(log.errors.size(), 5u);
    EXPECT_EQ(log.errors[4].unit, "zelto_cantrix_query_set_text");
    EXPECT_EQ(log.errors[4].line, 0u);
}

TEST_F(TextInputTest, FieldsDisplaceOtherInputs) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672 27367 41225"), 0u);
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_artist", nullptr), 0u);
    // The TOC is gone: the find takes the text branch, whose search has no
    // usable field and is not executed.
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x908101a4u);
    EXPECT_EQ(zelto_script_request_lookup_type(script_, 0), std::string("zelto_lookup_type_album"));
    EXPECT_EQ(zelto_script_request_data(script_, 0, "zelto_lookup_data_toc"), nullptr);
    EXPECT_EQ(transcript(0).find("execute"), std::string::npos);
    // Setting a TOC again drops the text.
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672 27367 41225"), 0u);
    answer(make_answer("zelto_result_no_matches", {}));
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
}

TEST_F(TextInputTest, ObjectInputFindsItsFullAlbumWithItsHistory) {
    // A first answer by TOC gives two partial albums.
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, "150 14672 27367 41225"), 0u);
    answer(make_answer("zelto_result_fuzzy_matches",
                       {make_album("First", "A", 1, {{"zelto_val_tui", "11"}, {"zelto_val_tui_tag", "t11"}}),
                        make_album("Second", "B", 1,
                                   {{"_sdkmgr_val_mui", "22"}, {"_sdkmgr_val_muitag", "m22"},
                                    {"zelto_val_track_matched", "1"}})}));
    zelto_rvo_handle first = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &first), 0u);
    zelto_rvo_handle second = child_of(first, "zelto_ctx_album!", 2);
    zelto_manager_rvo_release(first);

    // The second album is used as input; the application drops its reference.
    ASSERT_EQ(zelto_cantrix_query_set_rvo(query_, second), 0u);
    ASSERT_EQ(zelto_cantrix_query_set_rvo(query_, second), 0u);  // again: the first reference is dropped
    zelto_manager_rvo_release(second);
    answer(make_answer("zelto_result_single_match",
                       {make_album("Second", "B", 5, {{"zelto_val_full_result", "1"}})}));
    zelto_rvo_handle answer_object = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &answer_object), 0u);
    EXPECT_EQ(transcript(1),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_mui \"22\" copy 1\n"
              "data CNX_1 zelto_lookup_data_media_id \"m22\" copy 1\n"
              "data CNX_1 zelto_lookup_data_track_matched \"1\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
    zelto_rvo_handle album = child_of(answer_object, "zelto_ctx_album!", 1);
    // The input's lookup type, match type and TOC win over the new lookup's.
    EXPECT_EQ(value_of(album, "_sdkmgr_val_lookup_type"), "TOC");
    EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "FUZZY");
    EXPECT_EQ(value_of(album, "zelto_val_toc_album"), "150 14672 27367 41225");
    EXPECT_EQ(count_of(album, "zelto_ctx_track!"), 5u);
    for (auto item : {album, answer_object}) zelto_manager_rvo_release(item);

    // Bad objects.
    EXPECT_EQ(zelto_cantrix_query_set_rvo(query_, nullptr), 0x90810001u);
    int not_an_object = 0;
    EXPECT_EQ(zelto_cantrix_query_set_rvo(query_, reinterpret_cast<zelto_rvo_handle>(&not_an_object)), 0x90810321u);
}

TEST_F(TextInputTest, RevisionCheckNeedsARevision) {
    zelto_manager_tree *node = make_album("Rev", "R", 1, {{"zelto_val_tui", "5"}, {"zelto_val_tui_tag", "t"}});
    zelto_rvo_handle object = nullptr;
    ASSERT_EQ(zelto_manager_tree_to_rvo(node, nullptr, "zelto_locale_music", 0, &object), 0u);
    zelto_manager_tree_release(node);
    ASSERT_EQ(zelto_cantrix_query_set_rvo(query_, object), 0u);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_revision_check", "yes"), 0u);
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x908101a4u);
    EXPECT_EQ(zelto_script_request_count(script_), 0u);
    zelto_manager_rvo_release(object);

    node = make_album("Rev", "R", 1, {{"zelto_val_tui", "5"}, {"zelto_val_tui_tag", "t"}, {"_sdkmgr_val_tui_rev", "3"}});
    ASSERT_EQ(zelto_manager_tree_to_rvo(node, nullptr, "zelto_locale_music", 0, &object), 0u);
    zelto_manager_tree_release(node);
    ASSERT_EQ(zelto_cantrix_query_set_rvo(query_, object), 0u);
    zelto_manager_rvo_release(object);
    answer(make_answer("zelto_result_no_new_rev", {}));
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_STREQ(zelto_script_request_data(script_, 0, "zelto_lookup_data_rev"), "3");
    zelto_manager_rvo_release(response);
}

}  // namespace

namespace {

class ObjectLookupTest : public TextInputTest {
   protected:
    // Sets an object of the given context and values as the query's input.
    void set_object(const char *context, const KeyValues &values) {
        zelto_manager_tree *node = make_node(context, values);
        zelto_rvo_handle object = nullptr;
        ASSERT_EQ(zelto_manager_tree_to_rvo(node, nullptr, "zelto_locale_music", 0, &object), 0u);
        zelto_manager_tree_release(node);
        ASSERT_EQ(zelto_cantrix_query_set_rvo(query_, object), 0u);
        zelto_manager_rvo_release(object);
    }
};

TEST_F(ObjectLookupTest, MatchedTrackTravelsByContext) {
    // A track's number goes out under the album's matched-track key.
    set_object("zelto_ctx_track", {{"zelto_val_tui", "9"}, {"zelto_val_tui_tag", "t9"}, {"zelto_val_tracknumber", "4"}});
    answer(make_answer("zelto_result_single_match", {}, "zelto_ctx_track!"));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_tracks(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_track CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_tui \"9\" copy 1\n"
              "data CNX_1 zelto_lookup_data_tui_tag \"t9\" copy 1\n"
              "data CNX_1 zelto_lookup_data_track_matched \"4\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");

    // Another context with a tui: one data call with a null value.
    set_object("zelto_ctx_contributor", {{"zelto_val_tui", "3"}, {"zelto_val_tui_tag", "c3"}});
    answer(make_answer("zelto_result_no_matches", {}));
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_NE(transcript(1).find("data CNX_1 zelto_lookup_data_track_matched null copy 1\n"), std::string::npos);

    // An album with a tui and no matched track sends no matched-track data.
    set_object("zelto_ctx_album", {{"zelto_val_tui", "5"}, {"zelto_val_tui_tag", "a5"}});
    answer(make_answer("zelto_result_no_matches", {}));
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(transcript(2).find("track_matched"), std::string::npos);

    // A contributor without a tui: the failed read ends the lookup, no mui fall-back.
    set_object("zelto_ctx_contributor", {{"_sdkmgr_val_mui", "1"}, {"_sdkmgr_val_muitag", "m"}});
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x10810003u);
    EXPECT_EQ(zelto_script_request_count(script_), 3u);
}

}  // namespace
