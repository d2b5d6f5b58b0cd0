// Module fixture with a scripted lookup provider installed for both modes,
// plus builders for the result trees a provider answers with.
#ifndef SCRIPT_FIXTURE_H
#define SCRIPT_FIXTURE_H

#include <string>
#include <utility>
#include <vector>

#include "module_fixture.h"
#include "tree_build.h"
#include "zelto/zelto_script_provider.h"

// An album with numbered tracks "<title> 1".."<title> n".
inline zelto_manager_tree *make_album(const std::string &title, const std::string &artist, int tracks,
                                      const KeyValues &extra = {}) {
    KeyValues values = {{"zelto_val_title", title}, {"zelto_val_artist", artist}};
    values.insert(values.end(), extra.begin(), extra.end());
    zelto_manager_tree *album = make_node("zelto_ctx_album", values);
    for (int n = 1; n <= tracks; ++n)
        adopt(album, "zelto_ctx_track!",
              make_node("zelto_ctx_track", {{"zelto_val_tracknumber", std::to_string(n)},
                                            {"zelto_val_title", title + " " + std::to_string(n)}}));
    return album;
}

// Gives a node the display structure the scoring reads: a title child
// "zelto_ctx_title!off" and an artist child with a name "zelto_ctx_name!off",
// each with "zelto_val_display". Empty texts add nothing.
inline void add_displays(zelto_manager_tree *node, const std::string &title, const std::string &artist) {
    if (!title.empty()) adopt(node, "zelto_ctx_title!off", make_node("zelto_ctx_title", {{"zelto_val_display", title}}));
    if (!artist.empty()) {
        zelto_manager_tree *who = make_node("zelto_ctx_artist");
        adopt(who, "zelto_ctx_name!off", make_node("zelto_ctx_name", {{"zelto_val_display", artist}}));
        adopt(node, "zelto_ctx_artist!", who);
    }
}

// A node with displays and extra values.
inline zelto_manager_tree *make_displayed(const char *context, const std::string &title, const std::string &artist,
                                          const KeyValues &values = {}) {
    zelto_manager_tree *node = make_node(context, values);
    add_displays(node, title, artist);
    return node;
}

// A provider's answer: a response code and albums under "zelto_ctx_album!".
inline zelto_manager_tree *make_answer(const char *response_code, std::vector<zelto_manager_tree *> albums,
                                       const char *child_key = "zelto_ctx_album!",
                                       const char *context = "zelto_ctx_response") {
    zelto_manager_tree *root = make_node(context, {{"_sdkmgr_val_response_code", response_code}});
    for (auto *album : albums) adopt(root, child_key, album);
    return root;
}

class ScriptedTest : public ModuleTest {
   protected:
    void SetUp() override {
        ModuleTest::SetUp();
        ASSERT_EQ(zelto_script_create(&script_), 0u);
        ASSERT_EQ(zelto_script_install(script_, 0), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(zelto_script_live_requests(script_), 0u) << "requests not released";
        // The module gives its lookup tables back at query release.
        EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), 0);
        zelto_script_destroy(script_);
        EXPECT_EQ(zelto_manager_tree_live_count(), 0u) << "tree nodes leaked";
        EXPECT_EQ(zelto_manager_rvo_live_count(), 0u) << "result objects leaked";
        ModuleTest::TearDown();
    }
    // Queues an answer and drops the caller's reference on its tree.
    uint32_t answer(zelto_manager_tree *tree) {
        uint32_t index = 0;
        EXPECT_EQ(zelto_script_answer(script_, tree, &index), 0u);
        zelto_manager_tree_release(tree);
        return index;
    }
    std::string transcript(uint32_t request) {
        const char *text = zelto_script_request_text(script_, request);
        return text ? text : "<none>";
    }
    zelto_script *script_ = nullptr;
};

#endif
