// Identifying a CD from its table of contents through a scripted provider:
// the requests that go out, progress and abort, and the album rows that
// come back.
#include <string>
#include <vector>

#include "log_capture.h"
#include "out_param.h"
#include "rvo_read.h"
#include "script_fixture.h"

namespace {

struct Progress {
    std::vector<std::string> events;
    bool abort_at_30 = false;
    bool find_inside = false;
    bool release_inside = false;
    std::vector<uint32_t> nested;
    std::string error_message_at_20;  // the recorded error when status 20 arrives
};

void on_status(void *data, zelto_cantrix_query_handle query, uint32_t status, uint32_t v1, uint32_t v2,
               uint8_t *abort) {
    auto *p = static_cast<Progress *>(data);
    p->events.push_back(std::to_string(status) + ":" + std::to_string(v1) + "/" + std::to_string(v2));
    if (status == 999) return;
    if (status == 20) {
        const char *message = nullptr;
        uint32_t source = 0;
        uint32_t mapped = zelto_manager_errorinfo_get(&source, nullptr, &message);
        p->error_message_at_20 = std::to_string(mapped) + "/" + std::to_string(source) + ":" + (message ? message : "");
    }
    if (p->abort_at_30 && status == 30) *abort = 1;
    if (p->find_inside) {
        zelto_rvo_handle response = nullptr;
        p->nested.push_back(zelto_cantrix_query_find_albums(query, &response));
    }
    if (p->release_inside) p->nested.push_back(zelto_cantrix_query_release(query));
}

class FindAlbumsTest : public ScriptedTest {
   protected:
    void SetUp() override {
        ScriptedTest::SetUp();
        ASSERT_EQ(zelto_cantrix_query_create(user_, on_status, &progress_, &query_), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(zelto_cantrix_query_release(query_), 0u);
        ScriptedTest::TearDown();
    }
    zelto_cantrix_query_handle query_ = nullptr;
    Progress progress_;
};

const char *const kToc = "150 14672 27367 41225";

TEST_F(FindAlbumsTest, CdIdentifiedEndToEnd) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    // The TOC lookup finds one partial album; the module completes it.
    answer(make_answer("zelto_result_single_match",
                       {make_album("Lanterns", "The Quiet Hours", 1,
                                   {{"zelto_val_tui", "1001"}, {"zelto_val_tui_tag", "T1001"},
                                    {"zelto_val_track_matched", "1"}})}));
    answer(make_answer("zelto_result_single_match",
                       {make_album("Lanterns", "The Quiet Hours", 3,
                                   {{"zelto_val_tui", "1001"}, {"zelto_val_full_result", "1"}})}));

    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(out(zelto_manager_rvo_get_context, response), "zelto_ctx_response_album");
    EXPECT_EQ(value_of(response, "zelto_val_resultcount"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_rangestart"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_rangeend"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_rangecount"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_decision"), "1");  // stays 1 even for a single match
    EXPECT_EQ(out(zelto_manager_rvo_data_flags, response), 0u);

    ASSERT_EQ(count_of(response, "zelto_ctx_album!"), 1u);
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1);
    EXPECT_EQ(value_of(album, "zelto_val_title"), "Lanterns");
    EXPECT_EQ(value_of(album, "zelto_val_artist"), "The Quiet Hours");
    EXPECT_EQ(value_of(album, "_sdkmgr_val_lookup_type"), "TOC");
    EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "SINGLE");
    EXPECT_EQ(value_of(album, "zelto_val_toc_album"), kToc);
    ASSERT_EQ(count_of(album, "zelto_ctx_track!"), 3u);
    std::vector<std::string> titles;
    for (uint32_t n = 1; n <= 3; ++n) {
        zelto_rvo_handle track = child_of(album, "zelto_ctx_track!", n);
        titles.push_back(value_of(track, "zelto_val_title"));
        zelto_manager_rvo_release(track);
    }
    EXPECT_EQ(titles, (std::vector<std::string>{"Lanterns 1", "Lanterns 2", "Lanterns 3"}));
    for (auto item : {album, response}) zelto_manager_rvo_release(item);

    // Two requests: the TOC lookup and the full-album lookup by tui.
    ASSERT_EQ(zelto_script_request_count(script_), 2u);
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_toc \"150 14672 27367 41225\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
    EXPECT_EQ(transcript(1),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_tui \"1001\" copy 1\n"
              "data CNX_1 zelto_lookup_data_tui_tag \"T1001\" copy 1\n"
              "data CNX_1 zelto_lookup_data_track_matched \"1\" copy 1\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");
}

TEST_F(FindAlbumsTest, OptionsGoOutInTheirOrder) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    const char *const options[][2] = {
        {"zelto_cantrix_result_prefer_xid", "false"},  {"zelto_cantrix_single_result", "no"},
        {"zelto_cantrix_option_output", "full"},       {"zelto_query_option_enable_aim", "1"},
        {"zelto_cantrix_option_enable_link", "yes"},   {"zelto_cantrix_option_enable_sonic", "on"},
        {"zelto_cantrix_option_enable_globalids", "1"}, {"zelto_cantrix_option_enable_classical", "true"},
        {"zelto_cantrix_preferred_lang", "German"},    {"zelto_cantrix_option_additional_credits", "1"},
        {"zelto_cantrix_option_lookupmode", "zelto_lookupmode_online_nocache"},
        {"zelto_cantrix_result_range_start", "11"},    {"zelto_cantrix_result_range_size", "25"},
    };
    for (auto &option : options) ASSERT_EQ(zelto_cantrix_query_option_set(query_, option[0], option[1]), 0u);
    answer(make_answer("zelto_result_no_matches", {}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(value_of(response, "zelto_val_resultcount"), "0");
    EXPECT_EQ(value_of(response, "zelto_val_rangestart"), "0");
    EXPECT_EQ(value_of(response, "zelto_val_decision"), "0");
    EXPECT_EQ(out(zelto_manager_rvo_data_flags, response),
              0x400000u | 0x800000u | 0x1000000u | 0x4000000u | 0x8000000u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(transcript(0),
              "mode 1\n"
              "add zelto_lookup_type_album CNX_1 cnx 0\n"
              "data CNX_1 zelto_lookup_data_toc \"150 14672 27367 41225\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_start \"11\" copy 1\n"
              "data CNX_1 zelto_lookup_data_result_range_end \"35\" copy 1\n"
              "option CNX_1 zelto_lookup_option_link \"1\"\n"
              "option CNX_1 zelto_lookup_option_globalids \"1\"\n"
              "option CNX_1 zelto_lookup_option_class \"1\"\n"
              "option CNX_1 zelto_lookup_option_sonic \"1\"\n"
              "option CNX_1 zelto_lookup_option_playlist \"1\"\n"
              "option CNX_1 zelto_lookup_option_aim \"1\"\n"
              "option CNX_1 zelto_lookup_option_cache_usage \"zelto_lookup_option_value_cache_skip_read\"\n"
              "option CNX_1 zelto_lookup_option_language \"German\"\n"
              "option CNX_1 zelto_lookup_option_additionalcredits \"1\"\n"
              "option CNX_1 zelto_lookup_option_output \"full\"\n"
              "option CNX_1 zelto_lookup_option_result_single \"no\"\n"
              "option CNX_1 zelto_lookup_option_result_preferxid \"false\"\n"
              "execute user \"test-user\"\n"
              "get_result CNX_1\n"
              "release\n");

    // Cover art wins over single result; false credits stay at home; local mode.
    zelto_script_reset(script_);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_result_prefer_coverart", "0"), 0u);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_additional_credits", "false"), 0u);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_option_lookupmode", "zelto_lookupmode_local"), 0u);
    answer(make_answer("zelto_result_no_matches", {}));
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(zelto_script_request_mode(script_, 0), 2u);
    EXPECT_STREQ(zelto_script_request_option(script_, 0, "zelto_lookup_option_result_prefercover"), "0");
    EXPECT_EQ(zelto_script_request_option(script_, 0, "zelto_lookup_option_result_single"), nullptr);
    EXPECT_EQ(zelto_script_request_option(script_, 0, "zelto_lookup_option_additionalcredits"), nullptr);
    EXPECT_EQ(zelto_script_request_option(script_, 0, "zelto_lookup_option_cache_usage"), nullptr);
}

TEST_F(FindAlbumsTest, ProgressEventsReachTheApplication) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    uint32_t a = answer(make_answer("zelto_result_no_matches", {}));
    const uint32_t codes[] = {0, 1, 2, 8, 9, 10, 11, 12, 14};
    for (uint32_t code : codes) zelto_script_answer_event(script_, a, 16, code, 3, 7);
    zelto_script_answer_event(script_, a, 4, 9, 5, 6);  // counters only with kind 16
    zelto_script_answer_error(script_, a, 16, 0x90040042u, "provider hiccup");
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(progress_.events, (std::vector<std::string>{"10:0/0", "20:0/0", "30:3/7", "40:3/7", "50:0/0",
                                                          "100:0/0", "30:0/0"}));
}

TEST_F(FindAlbumsTest, ErrorEventIsRecordedAndAbortIsHonoured) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    uint32_t a = answer(make_answer("zelto_result_no_matches", {}));
    zelto_script_answer_event(script_, a, 16, 1, 0, 0);
    zelto_script_answer_event(script_, a, 16, 9, 1, 4);
    zelto_script_answer_event(script_, a, 16, 9, 2, 4);
    progress_.abort_at_30 = true;
    LogCapture log({0x81}, OMBR_LOG_ERROR | OMBR_LOG_DETAIL);
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x90810400u);  // the provider's abort status, mapped
    EXPECT_EQ(response, nullptr);
    EXPECT_EQ(progress_.events, (std::vector<std::string>{"10:0/0", "30:1/4"}));
    ASSERT_EQ(log.messages.size(), 1u);
    EXPECT_EQ(log.messages[0].text, "Provided callback aborted the Cantrix lookup request.");
    EXPECT_EQ(log.messages[0].level, OMBR_LOG_DETAIL);
    EXPECT_NE(transcript(0).find("aborted after event 2"), std::string::npos);

    // The query is usable again; an error event is recorded with its text,
    // and the application is not called for it.
    progress_.abort_at_30 = false;
    progress_.events.clear();
    a = answer(make_answer("zelto_result_no_matches", {}));
    zelto_script_answer_error(script_, a, 0, 0x90420042u, "provider hiccup");
    zelto_script_answer_event(script_, a, 0, 8, 0, 0);
    zelto_script_answer_status(script_, a, 0x90420042u);
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x90810042u);
    EXPECT_EQ(progress_.events, (std::vector<std::string>{"20:0/0"}));
    EXPECT_EQ(progress_.error_message_at_20,
              std::to_string(0x90420042u) + "/" + std::to_string(0x90420042u) + ":provider hiccup");
}

TEST_F(FindAlbumsTest, NestedFindAndReleaseAreRefusedAsBusy) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    uint32_t a = answer(make_answer("zelto_result_no_matches", {}));
    zelto_script_answer_event(script_, a, 16, 1, 0, 0);
    progress_.find_inside = true;
    progress_.release_inside = true;
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(progress_.nested, (std::vector<uint32_t>{0x90810006u, 0x90810006u}));
    zelto_manager_rvo_release(response);
    progress_.find_inside = progress_.release_inside = false;
}

TEST_F(FindAlbumsTest, SingleModeKeepsTheFirstOfFiveAndCompletesIt) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_single_result", "true"), 0u);
    std::vector<zelto_manager_tree *> albums;
    for (int i = 1; i <= 5; ++i)
        albums.push_back(make_album("Album " + std::to_string(i), "Artist", 1, {{"zelto_val_tui", std::to_string(i)},
                                                                                 {"zelto_val_tui_tag", "t"}}));
    answer(make_answer("zelto_result_fuzzy_matches", albums));
    answer(make_answer("zelto_result_single_match", {make_album("Album 1", "Artist", 9, {{"zelto_val_full_result", "1"}})}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(value_of(response, "zelto_val_resultcount"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_rangeend"), "1");
    EXPECT_EQ(value_of(response, "zelto_val_rangecount"), "1");
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1);
    EXPECT_EQ(count_of(album, "zelto_ctx_track!"), 9u);
    EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "FUZZY");
    for (auto item : {album, response}) zelto_manager_rvo_release(item);
    EXPECT_STREQ(zelto_script_request_data(script_, 1, "zelto_lookup_data_tui"), "1");
    EXPECT_STREQ(zelto_script_request_option(script_, 0, "zelto_lookup_option_result_single"), "true");
}

TEST_F(FindAlbumsTest, TwoAlbumsOrAFullOneNeedNoSecondLookup) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    answer(make_answer("zelto_result_multiexact_matches",
                       {make_album("A", "X", 1, {{"zelto_val_tui", "1"}}), make_album("B", "Y", 1, {{"zelto_val_tui", "2"}})}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    EXPECT_EQ(value_of(response, "zelto_val_resultcount"), "2");
    EXPECT_EQ(value_of(response, "zelto_val_rangeend"), "2");
    zelto_rvo_handle second = child_of(response, "zelto_ctx_album!", 2);
    EXPECT_EQ(value_of(second, "zelto_val_title"), "B");
    EXPECT_EQ(value_of(second, "_sdkmgr_val_match_type"), "MULTI");
    for (auto item : {second, response}) zelto_manager_rvo_release(item);
    EXPECT_EQ(zelto_script_request_count(script_), 1u);

    answer(make_answer("zelto_result_single_match", {make_album("C", "Z", 4, {{"zelto_val_full_result", "true"}})}));
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(zelto_script_request_count(script_), 2u);
}

TEST_F(FindAlbumsTest, NoNewRevisionGivesAPresentNullMatchType) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    answer(make_answer("zelto_result_no_new_rev", {make_album("Same", "Old", 2, {{"zelto_val_full_result", "1"}})}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_rvo_handle album = child_of(response, "zelto_ctx_album!", 1);
    EXPECT_EQ(out(zelto_manager_rvo_value_count, album, "_sdkmgr_val_match_type"), 1u);
    EXPECT_EQ(value_of(album, "_sdkmgr_val_match_type"), "<null>");
    for (auto item : {album, response}) zelto_manager_rvo_release(item);
}

TEST_F(FindAlbumsTest, NothingToSearchWith) {
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x908101a4u);
    const char *function = nullptr, *message = nullptr;
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, &function, &message), 0x908101a4u);
    EXPECT_STREQ(function, "zelto_cantrix_query_find_albums");
    EXPECT_EQ(message, nullptr);  // the closing records the code once more, without message
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, nullptr), 0x90810001u);
    EXPECT_EQ(zelto_cantrix_query_find_albums(nullptr, &response), 0x90810001u);
    EXPECT_EQ(zelto_script_request_count(script_), 0u);
}

TEST_F(FindAlbumsTest, ResponseWithoutCode) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    answer(make_node("zelto_ctx_response"));
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x10810003u);
    EXPECT_EQ(response, nullptr);
    answer(nullptr);  // no result object at all
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x10810003u);

}

TEST_F(FindAlbumsTest, MissingProvider) {
    // A query whose first lookup finds no provider holds no table.
    zelto_manager_lookup_set_provider(1, nullptr);
    zelto_cantrix_query_handle fresh = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &fresh), 0u);
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(fresh, kToc), 0u);
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(fresh, &response), 0x9081003fu);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), 0);
    EXPECT_EQ(zelto_cantrix_query_release(fresh), 0u);

    // A query that had a table keeps pointing at it after giving it back
    // and failing to fetch a new one, so its release gives it back again.
    zelto_script_install(script_, 1);
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    answer(make_answer("zelto_result_no_matches", {}));
    ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), 1);
    zelto_manager_lookup_set_provider(1, nullptr);
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x9081003fu);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), 0);
    zelto_script_install(script_, 1);
    EXPECT_EQ(zelto_cantrix_query_release(query_), 0u);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), -1);
    // Balance the host's count for the fixture's final check.
    const void *table = nullptr;
    ASSERT_EQ(zelto_manager_get_table()->interface_get("_zelto_lookup_interface", 1, 0, &table), 0u);
    ASSERT_EQ(zelto_cantrix_query_create(user_, on_status, &progress_, &query_), 0u);
}

TEST_F(FindAlbumsTest, EveryProviderFailureLeavesTheQueryUsable) {
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query_, kToc), 0u);
    const uint32_t slots[] = {ZELTO_SCRIPT_SLOT_CREATE, ZELTO_SCRIPT_SLOT_ADD, ZELTO_SCRIPT_SLOT_SET_DATA,
                              ZELTO_SCRIPT_SLOT_EXECUTE, ZELTO_SCRIPT_SLOT_GET_RESULT};
    for (uint32_t slot : slots) {
        SCOPED_TRACE(slot);
        zelto_script_fail(script_, slot, 0x90420077u, 1);
        answer(make_answer("zelto_result_no_matches", {}));
        zelto_rvo_handle response = nullptr;
        EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x90810077u);
        EXPECT_EQ(response, nullptr);
        EXPECT_EQ(zelto_script_live_requests(script_), 0u);
        zelto_script_reset(script_);
        answer(make_answer("zelto_result_no_matches", {}));
        ASSERT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0u);
        zelto_manager_rvo_release(response);
        zelto_script_reset(script_);
    }
    // A failing option set ends the lookup too.
    ASSERT_EQ(zelto_cantrix_query_option_set(query_, "zelto_cantrix_single_result", "1"), 0u);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_SET_OPTION, 0x90420078u, 1);
    zelto_rvo_handle response = nullptr;
    EXPECT_EQ(zelto_cantrix_query_find_albums(query_, &response), 0x90810078u);
}

}  // namespace
