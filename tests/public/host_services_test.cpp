// The host's services through the shared manager library, as an application
// sees them: a scripted provider answers a request made through the
// manager's table, and the answer is walked through the result-object table.
#include <gtest/gtest.h>

#include <string>

#include "zelto/zelto_host_services.h"
#include "zelto/zelto_script_provider.h"

namespace {

TEST(HostServicesPublic, ScriptedAnswerWalkedThroughTheTables) {
    uint32_t rvos = zelto_manager_rvo_live_count(), trees = zelto_manager_tree_live_count();
    zelto_script *script = nullptr;
    ASSERT_EQ(zelto_script_create(&script), 0u);
    ASSERT_EQ(zelto_script_install(script, 1), 0u);

    zelto_manager_tree *response = nullptr, *album = nullptr, *track = nullptr;
    ASSERT_EQ(zelto_manager_tree_create("zelto_ctx_response_album", &response), 0u);
    ASSERT_EQ(zelto_manager_tree_create("zelto_ctx_album", &album), 0u);
    ASSERT_EQ(zelto_manager_tree_create("zelto_ctx_track", &track), 0u);
    zelto_manager_tree_add_value(response, "_sdkmgr_val_response_code", "zelto_result_single_match");
    zelto_manager_tree_add_value(track, "zelto_val_tracknumber", "7");
    zelto_manager_tree_add_child(album, "zelto_ctx_track!matching", track);
    zelto_manager_tree_add_child(response, "zelto_ctx_album!", album);
    zelto_manager_tree_release(track);
    zelto_manager_tree_release(album);
    ASSERT_EQ(zelto_script_answer(script, response, nullptr), 0u);
    zelto_manager_tree_release(response);

    const zelto_manager_table *manager = zelto_manager_get_table();
    const void *lookup_table = nullptr, *rvo_table = nullptr;
    ASSERT_EQ(manager->interface_get("_zelto_lookup_interface", 1, 0, &lookup_table), 0u);
    ASSERT_EQ(manager->interface_get("_zelto_rvo_interface", 0, 0, &rvo_table), 0u);
    const auto *lookup = static_cast<const zelto_lookup_interface *>(lookup_table);
    const auto *rvo = static_cast<const zelto_rvo_interface *>(rvo_table);

    zelto_lookup_request request = nullptr;
    ASSERT_EQ(lookup->lookup_request_create(lookup, nullptr, nullptr, &request), 0u);
    ASSERT_EQ(lookup->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0), 0u);
    ASSERT_EQ(lookup->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_toc", "150 300", 1), 0u);
    ASSERT_EQ(lookup->lookup_request_execute(request, nullptr), 0u);
    zelto_rvo_handle result = nullptr;
    ASSERT_EQ(lookup->lookup_request_get_result(request, "CNX_1", &result), 0u);
    EXPECT_EQ(lookup->lookup_request_release(request), 0u);

    const char *code = nullptr;
    EXPECT_EQ(rvo->rvo_value_get(result, "_sdkmgr_val_response_code", 1, &code), 0u);
    EXPECT_STREQ(code, "zelto_result_single_match");
    zelto_rvo_handle first = nullptr, matched = nullptr;
    ASSERT_EQ(rvo->rvo_child_get(result, "zelto_ctx_album!", 1, 1, &first), 0u);
    ASSERT_EQ(rvo->rvo_child_get(first, "zelto_ctx_track!number", 7, 1, &matched), 0u);
    const char *number = nullptr;
    EXPECT_EQ(rvo->rvo_value_get(matched, "zelto_val_tracknumber", 1, &number), 0u);
    EXPECT_STREQ(number, "7");
    EXPECT_EQ(rvo->rvo_value_get(matched, "zelto_val_tracknumber", 2, &number), ZELTO_RVO_NOT_FOUND);
    rvo->rvo_release(matched);
    rvo->rvo_release(first);
    rvo->rvo_release(result);

    EXPECT_STREQ(zelto_script_request_text(script, 0),
                 "mode 1\n"
                 "add zelto_lookup_type_album CNX_1 cnx 0\n"
                 "data CNX_1 zelto_lookup_data_toc \"150 300\" copy 1\n"
                 "execute user null\n"
                 "get_result CNX_1\n"
                 "release\n");
    lookup->lookup_release(lookup);
    rvo->release(rvo);
    zelto_script_destroy(script);
    EXPECT_EQ(zelto_manager_rvo_live_count(), rvos);
    EXPECT_EQ(zelto_manager_tree_live_count(), trees);
}

}  // namespace
