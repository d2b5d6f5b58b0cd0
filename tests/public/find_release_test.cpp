// How often the find operations give the lookup's object back: the module
// runs against a manager whose result-object table counts rvo_release calls.
#include <cstring>
#include <string>

#include "script_fixture.h"

namespace {

const zelto_rvo_interface *g_rvo = nullptr;
zelto_rvo_interface g_counting_rvo;
int g_answer_releases = 0;  // releases of a provider's answer (a "zelto_ctx_response..." object)
int g_null_releases = 0;

uint32_t counting_release(zelto_rvo_handle object) {
    const char *context = nullptr;
    if (!object)
        ++g_null_releases;
    else if (g_rvo->rvo_get_context(object, &context) == 0 && std::strncmp(context, "zelto_ctx_response", 18) == 0)
        ++g_answer_releases;
    return g_rvo->rvo_release(object);
}

uint32_t release_counting_table(const void *) { return g_rvo->release(g_rvo); }

uint32_t counting_interface_get(const char *name, uint32_t mode, uint32_t reserved, const void **out_table) {
    uint32_t status = zelto_manager_get_table()->interface_get(name, mode, reserved, out_table);
    if (status == 0 && std::strcmp(name, "_zelto_rvo_interface") == 0) {
        g_rvo = static_cast<const zelto_rvo_interface *>(*out_table);
        g_counting_rvo = *g_rvo;
        g_counting_rvo.release = release_counting_table;
        g_counting_rvo.rvo_release = counting_release;
        *out_table = &g_counting_rvo;
    }
    return status;
}

class FindReleaseTest : public ::testing::Test {
   protected:
    void SetUp() override {
        manager_ = *zelto_manager_get_table();
        manager_.interface_get = counting_interface_get;
        ASSERT_EQ(zelto_cantrix_initialize(&manager_), 0u);
        ASSERT_EQ(zelto_manager_user_create("counting", &user_), 0u);
        ASSERT_EQ(zelto_script_create(&script_), 0u);
        ASSERT_EQ(zelto_script_install(script_, 0), 0u);
        ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &query_), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(zelto_cantrix_query_release(query_), 0u);
        zelto_script_destroy(script_);
        zelto_manager_user_release(user_);
        EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
        EXPECT_EQ(zelto_manager_service_refs(nullptr), 0);
        EXPECT_EQ(zelto_manager_rvo_live_count(), 0u);
    }
    // Runs a find operation on a queued answer and counts its releases.
    void find(uint32_t (*operation)(zelto_cantrix_query_handle, zelto_rvo_handle *), zelto_manager_tree *answer_tree,
              uint32_t expected_status = 0) {
        if (answer_tree) {
            ASSERT_EQ(zelto_script_answer(script_, answer_tree, nullptr), 0u);
            zelto_manager_tree_release(answer_tree);
        }
        g_answer_releases = g_null_releases = 0;
        zelto_rvo_handle response = nullptr;
        EXPECT_EQ(operation(query_, &response), expected_status);
        zelto_manager_rvo_release(response);
    }
    zelto_manager_table manager_{};
    zelto_user *user_ = nullptr;
    zelto_script *script_ = nullptr;
    zelto_cantrix_query_handle query_ = nullptr;
};

// Matches and lyrics give the lookup's object back themselves: one release
// of the answer and no second call.
TEST_F(FindReleaseTest, MatchesAndLyricsReleaseTheObjectOnce) {
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_artist", "Mira"), 0u);
    find(zelto_cantrix_query_find_matches,
         make_answer("zelto_result_no_matches", {}, "zelto_ctx_response_match!", "zelto_ctx_response_match"));
    EXPECT_EQ(g_answer_releases, 1);
    EXPECT_EQ(g_null_releases, 0);

    find(zelto_cantrix_query_find_lyrics, make_answer("zelto_result_no_matches", {}, "zelto_ctx_lyric!"));
    EXPECT_EQ(g_answer_releases, 1);
    EXPECT_EQ(g_null_releases, 0);

    // A failing lookup leaves no object: one call, with null, and no second.
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_EXECUTE, 0x90420077u, 1);
    find(zelto_cantrix_query_find_lyrics, nullptr, 0x90810077u);
    EXPECT_EQ(g_answer_releases, 0);
    EXPECT_EQ(g_null_releases, 1);
}

// Albums and tracks release it in the common closing, also when there is
// none (a null object).
TEST_F(FindReleaseTest, AlbumsAndTracksReleaseInTheClosing) {
    ASSERT_EQ(zelto_cantrix_query_set_text(query_, "zelto_cantrix_field_artist", "Mira"), 0u);
    find(zelto_cantrix_query_find_albums, make_answer("zelto_result_no_matches", {}));
    EXPECT_EQ(g_answer_releases, 1);
    EXPECT_EQ(g_null_releases, 0);
    find(zelto_cantrix_query_find_tracks, make_answer("zelto_result_no_matches", {}, "zelto_ctx_track!"));
    EXPECT_EQ(g_answer_releases, 1);

    zelto_cantrix_query_handle empty = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &empty), 0u);
    std::swap(empty, query_);
    find(zelto_cantrix_query_find_albums, nullptr, 0x908101a4u);
    EXPECT_EQ(g_null_releases, 1);
    std::swap(empty, query_);
    EXPECT_EQ(zelto_cantrix_query_release(empty), 0u);
}

}  // namespace
