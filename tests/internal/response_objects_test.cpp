// Response and result records walked through the host's result-object
// service, as an application walks a find operation's answer.
#include <string>

#include "cantrix/cantrix_rvo.h"
#include "module_fixture.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_string.h"
#include "out_param.h"
#include "rvo_read.h"
#include "tree_build.h"
#include "zelto/zelto_host_services.h"

namespace {

class ResponseObjectsTest : public ModuleTest {
   protected:
    // Wraps a tree node as a result object with no data flags.
    zelto_rvo_handle object_of(zelto_manager_tree *node) {
        zelto_rvo_handle object = nullptr;
        EXPECT_EQ(zelto_manager_tree_to_rvo(node, nullptr, "zelto_locale_music", 0, &object), 0u);
        zelto_manager_tree_release(node);
        return object;
    }
    ombr_stringmap_t info_map(std::initializer_list<std::pair<const char *, const char *>> values) {
        ombr_stringmap_t map = nullptr;
        EXPECT_EQ(ombr_stringmap_create(&map, 0), 0u);
        for (auto &kv : values) EXPECT_EQ(ombr_stringmap_value_add(map, kv.first, kv.second), 0u);
        return map;
    }
    // Wraps a response record in a result object the way a find operation does.
    zelto_rvo_handle wrap(cantrix_response *response) {
        zelto_rvo_handle object = nullptr;
        EXPECT_EQ(zelto_manager_rvo_create(response, &g_cantrix_rvo_response_provider, user_, "zelto_locale_music", 0,
                                           &object),
                  0u);
        return object;
    }
    uint32_t child_count(zelto_rvo_handle object, const char *key, uint32_t expect = 0) {
        uint32_t count = 12345;
        EXPECT_EQ(zelto_manager_rvo_child_count(object, key, &count), expect) << key;
        return count;
    }
};

TEST_F(ResponseObjectsTest, AlbumResponseCountsChildrenAndFallsBackToInfo) {
    cantrix_response *response = nullptr;
    ASSERT_EQ(_cantrix_rvo_alloc_response("zelto_ctx_response_album", 2, &response), 0u);
    response->rows[0].object = object_of(make_node("zelto_ctx_album", {{"zelto_val_title", "Night Train"}}));
    response->rows[0].info = info_map({{"zelto_val_txtmatchscore", "87"}, {"zelto_val_title", "from info"}});
    response->rows[1].object = object_of(make_node("zelto_ctx_album", {{"zelto_val_title", "Dawn"}}));
    response->range_start_text = ombr_string_strdup("1");
    response->decision = 1;
    zelto_rvo_handle answer = wrap(response);

    const char *context = nullptr;
    EXPECT_EQ(zelto_manager_rvo_get_context(answer, &context), 0u);
    EXPECT_STREQ(context, "zelto_ctx_response_album");
    EXPECT_EQ(value_of(answer, "zelto_val_resultcount"), "2");
    EXPECT_EQ(value_of(answer, "zelto_val_resultcount", 2), failed_read(0x10810003u));
    EXPECT_EQ(value_of(answer, "zelto_val_rangestart"), "1");
    EXPECT_EQ(value_of(answer, "zelto_val_rangeend", 1), failed_read(0x10810003u));  // never set
    EXPECT_EQ(value_of(answer, "zelto_val_decision"), "1");
    EXPECT_EQ(value_of(answer, "zelto_val_unknown", 1), failed_read(0x9081000bu));
    EXPECT_EQ(child_count(answer, "zelto_ctx_album!"), 2u);
    EXPECT_EQ(child_count(answer, "zelto_ctx_track!", 0x9081000bu), 12345u);  // key and context must agree

    zelto_rvo_handle album = nullptr;
    EXPECT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 0, 1, &album), 0x10810003u);
    EXPECT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 3, 1, &album), 0x10810003u);
    ASSERT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 1, 1, &album), 0u);
    // The object wins; what it lacks comes from the row's info map at ordinal 1.
    EXPECT_EQ(value_of(album, "zelto_val_title"), "Night Train");
    EXPECT_EQ(value_of(album, "zelto_val_txtmatchscore"), "87");
    EXPECT_EQ(value_of(album, "zelto_val_txtmatchscore", 2), failed_read(0x10100003u));
    EXPECT_EQ(out(zelto_manager_rvo_value_count, album, "zelto_val_txtmatchscore"), 1u);
    EXPECT_EQ(out(zelto_manager_rvo_value_count, album, "zelto_val_nothing"), 0u);
    const char *name = "unset", *text = "unset";
    EXPECT_EQ(out(zelto_manager_rvo_render_value, album, 0, &name), "87");
    EXPECT_STREQ(name, "MATCH_SCORE");
    EXPECT_EQ(zelto_manager_rvo_render_value(album, 1, &name, &text), 0x10820003u);

    zelto_rvo_handle second = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 2, 1, &second), 0u);
    name = text = "unset";
    EXPECT_EQ(zelto_manager_rvo_render_value(second, 0, &name, &text), 0u);  // no score: outputs untouched
    EXPECT_STREQ(name, "unset");

    // A result outlives its response.
    EXPECT_EQ(zelto_manager_rvo_release(answer), 0u);
    EXPECT_EQ(value_of(album, "zelto_val_title"), "Night Train");
    for (auto item : {album, second}) EXPECT_EQ(zelto_manager_rvo_release(item), 0u);
    EXPECT_EQ(zelto_manager_tree_live_count(), 0u);
    EXPECT_EQ(zelto_manager_rvo_live_count(), 0u);
}

TEST_F(ResponseObjectsTest, MatchResponseFiltersByObjectContext) {
    cantrix_response *response = nullptr;
    ASSERT_EQ(_cantrix_rvo_alloc_response("zelto_ctx_response_match", 3, &response), 0u);
    response->rows[0].object = object_of(make_node("zelto_ctx_contributor", {{"zelto_val_name", "A"}}));
    response->rows[1].object = object_of(make_node("zelto_ctx_album", {{"zelto_val_title", "B"}}));
    response->rows[2].object = object_of(make_node("zelto_ctx_contributor", {{"zelto_val_name", "C"}}));
    zelto_rvo_handle answer = wrap(response);
    EXPECT_EQ(child_count(answer, "zelto_ctx_response_match!"), 3u);
    EXPECT_EQ(child_count(answer, "zelto_ctx_album!"), 1u);
    EXPECT_EQ(child_count(answer, "zelto_ctx_contributor!"), 2u);
    EXPECT_EQ(child_count(answer, "zelto_ctx_lyric!", 0x9081000bu), 12345u);
    zelto_rvo_handle child = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_contributor!", 2, 1, &child), 0u);
    EXPECT_EQ(value_of(child, "zelto_val_name"), "C");
    zelto_manager_rvo_release(child);
    EXPECT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 2, 1, &child), 0x10810003u);
    zelto_manager_rvo_release(answer);
}

TEST_F(ResponseObjectsTest, EmptyResponseAndResultWithoutObject) {
    cantrix_response *response = nullptr;
    ASSERT_EQ(_cantrix_rvo_alloc_response("zelto_ctx_response_album", 0, &response), 0u);
    EXPECT_EQ(response->rows, nullptr);
    zelto_rvo_handle answer = wrap(response);
    EXPECT_EQ(value_of(answer, "zelto_val_resultcount"), "0");
    EXPECT_EQ(value_of(answer, "zelto_val_decision"), "0");
    zelto_rvo_handle child = nullptr;
    EXPECT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 1, 1, &child), 0x10810003u);
    zelto_manager_rvo_release(answer);

    // A row with no object: its result answers values from info alone.
    ASSERT_EQ(_cantrix_rvo_alloc_response("zelto_ctx_response_album", 1, &response), 0u);
    response->rows[0].info = info_map({{"_sdkmgr_val_lookup_type", "TOC"}});
    answer = wrap(response);
    ASSERT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 1, 1, &child), 0u);
    EXPECT_EQ(value_of(child, "_sdkmgr_val_lookup_type"), "TOC");
    const char *context = nullptr;
    EXPECT_EQ(zelto_manager_rvo_get_context(child, &context), 0x90810003u);
    EXPECT_EQ(out(zelto_manager_rvo_get_locale, child), nullptr);
    for (auto item : {child, answer}) zelto_manager_rvo_release(item);

    EXPECT_EQ(_cantrix_rvo_alloc_response("", 1, &response), 0x90810001u);
    EXPECT_EQ(_cantrix_rvo_alloc_response("x", 1, nullptr), 0x90810001u);
}

TEST_F(ResponseObjectsTest, MatchingTracksNamedByNumber) {
    zelto_manager_tree *album = make_node("zelto_ctx_album", {{"zelto_val_track_matched", "2"},
                                                         {"zelto_val_track_matched", "3"}});
    for (int n = 1; n <= 3; ++n) {
        std::string title = "Track " + std::to_string(n);
        zelto_manager_tree *track = make_node("zelto_ctx_track", {{"zelto_val_tracknumber", std::to_string(n).c_str()},
                                                             {"zelto_val_title", title.c_str()}});
        zelto_manager_tree_add_child(album, "zelto_ctx_track!", track);
        zelto_manager_tree_release(track);
    }
    cantrix_response *response = nullptr;
    ASSERT_EQ(_cantrix_rvo_alloc_response("zelto_ctx_response_album", 1, &response), 0u);
    response->rows[0].object = object_of(album);
    zelto_rvo_handle answer = wrap(response);
    zelto_rvo_handle result = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(answer, "zelto_ctx_album!", 1, 1, &result), 0u);
    EXPECT_EQ(child_count(result, "zelto_ctx_track!matching"), 2u);
    EXPECT_EQ(child_count(result, "zelto_ctx_track!"), 3u);
    zelto_rvo_handle track = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(result, "zelto_ctx_track!matching", 2, 1, &track), 0u);
    EXPECT_EQ(value_of(track, "zelto_val_title"), "Track 3");
    zelto_manager_rvo_release(track);
    EXPECT_EQ(zelto_manager_rvo_child_get(result, "zelto_ctx_track!matching", 3, 1, &track), 0x10810003u);
    for (auto item : {result, answer}) zelto_manager_rvo_release(item);
}

}  // namespace
