// The host's services through the shared manager library, as an application
// sees them: a scripted provider answers a request made through the
// manager's table, and the answer is walked through the result-object table.
#include <gtest/gtest.h>

#include <string>

#include "zelto/zelto_cantrix.h"
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
    for (auto item : {track, album}) zelto_manager_tree_release(item);
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

namespace {

// Every code the module hands an application has its own name; words the
// table does not know fall back by severity.
TEST(StatusText, NamesTheCodesApplicationsReceive) {
    const struct {
        uint32_t status;
        const char *text;
    } cases[] = {
        {0, "success"},
        {0x90810001u, "invalid argument"},
        {0x10810003u, "not found"},
        {0x90810006u, "query busy"},
        {0x90810007u, "module not initialised"},
        {0x9081003fu, "no lookup provider for this mode"},
        {0x908100c4u, "invalid TOC"},
        {0x908101a4u, "no suitable input for this search"},
        {0x90810361u, "invalid result range"},
        {0x90810400u, "lookup service failure"},
        {0x90810402u, "list service failure"},
        {0x90810403u, "result-object service failure"},
        {0x90810404u, "manager failure"},
        {0x90810405u, "serialisation failure"},
        {0x90040009u, "lookup aborted"},
        {0x90040008u, "catalogue database failure"},
        {0x90810777u, "failure"},
        {0x10810777u, "soft status"},
    };
    for (const auto &c : cases) EXPECT_STREQ(zelto_manager_status_text(c.status), c.text) << std::hex << c.status;

    const uint32_t module_codes[] = {
        ZELTO_CANTRIX_INVALID_ARG,        ZELTO_CANTRIX_NO_MEMORY,       ZELTO_CANTRIX_RESULT_NO_OBJECT,
        ZELTO_CANTRIX_NOT_FOUND,          ZELTO_CANTRIX_BUSY,            ZELTO_CANTRIX_NOT_INITIALIZED,
        ZELTO_CANTRIX_INIT_FAILED,        ZELTO_CANTRIX_UNSUPPORTED,     ZELTO_CANTRIX_INVALID_DATA,
        ZELTO_CANTRIX_NO_SERVICE,         ZELTO_CANTRIX_INVALID_TOC,     ZELTO_CANTRIX_FP_KIND_UNSENDABLE,
        ZELTO_CANTRIX_NO_SUITABLE_INPUT,  ZELTO_CANTRIX_BAD_MANAGER,     ZELTO_CANTRIX_RANGE_INVALID,
        ZELTO_CANTRIX_INVALID_UTF8,       ZELTO_CANTRIX_LOOKUP_FAILED,   ZELTO_CANTRIX_LISTS_FAILED,
        ZELTO_CANTRIX_RVO_FAILED,         ZELTO_CANTRIX_MANAGER_FAILED,  ZELTO_CANTRIX_SERIAL_FAILED,
    };
    for (uint32_t code : module_codes) {
        const std::string text = zelto_manager_status_text(code);
        EXPECT_NE(text, "failure") << std::hex << code;
        EXPECT_NE(text, "soft status") << std::hex << code;
    }
}

}  // namespace
