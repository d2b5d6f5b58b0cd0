// Allocation-failure sweeps of the flows that the other suites leave out:
// track, match and lyric finds, the find by an earlier result, the answers
// of the catalogue provider, walking a whole response, releases, and one
// whole flow from initialise to shutdown. Every run with an injected
// failure ends in a failure status with no output, or in a success whose
// response reads cleanly; nothing is left allocated either way.
#include <functional>
#include <memory>
#include <string>

#include "response_walk.h"
#include "rvo_read.h"
#include "script_fixture.h"
#include "temp_catalogue.h"

namespace {

using Find = uint32_t (*)(zelto_cantrix_query_handle, zelto_rvo_handle *);

struct SweepCounts {
    uint64_t runs = 0, failed = 0, succeeded = 0;
};

// Runs `flow` with each allocation failing in turn. The flow makes its
// query, gives it its input and returns the find's status and response.
// A failure must be "no memory" with no response; a success must walk
// without a problem. Blocks, result objects and trees return to where they
// were after every run.
SweepCounts sweep_find(const std::function<uint32_t(zelto_rvo_handle *)> &flow,
                       const std::function<void()> &before_each = {}) {
    SweepCounts counts;
    const int64_t blocks = zelto_manager_memory_live_blocks();
    const uint32_t objects = zelto_manager_rvo_live_count();
    counts.runs = for_each_allocation_failure([&](uint64_t n) {
        zelto_manager_memory_fail_nth(0);
        if (before_each) before_each();
        zelto_manager_memory_fail_nth(n);
        zelto_rvo_handle response = nullptr;
        const uint32_t status = flow(&response);
        const bool fired = zelto_manager_memory_failure_fired() != 0;
        zelto_manager_memory_fail_nth(0);
        if (status != 0) {
            EXPECT_TRUE(fired) << "allocation " << n;
            EXPECT_EQ(status, ZELTO_CANTRIX_NO_MEMORY) << "allocation " << n;
            EXPECT_EQ(response, nullptr) << "allocation " << n;
            ++counts.failed;
        } else {
            ASSERT_NE(response, nullptr) << "allocation " << n;
            const response_walk::Walk walk = response_walk::walk(response);
            EXPECT_TRUE(walk.problem.empty()) << "allocation " << n << ": " << walk.problem;
            zelto_manager_rvo_release(response);
            ++counts.succeeded;
        }
        EXPECT_EQ(zelto_manager_rvo_live_count(), objects) << "allocation " << n;
        EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks) << "allocation " << n;
    });
    return counts;
}

class FaultSweepTest : public ScriptedTest {
   protected:
    // One find on a new query set up by `input`.
    // A failing setter ends the flow with its status.
    uint32_t find_with(const std::function<uint32_t(zelto_cantrix_query_handle)> &input, Find find,
                       zelto_rvo_handle *response) {
        zelto_cantrix_query_handle query = nullptr;
        uint32_t status = zelto_cantrix_query_create(user_, nullptr, nullptr, &query);
        if (status != 0) return status;
        status = input(query);
        if (status == 0) status = find(query, response);
        EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
        return status;
    }
    static uint32_t text_fields(zelto_cantrix_query_handle query) {
        uint32_t status = zelto_cantrix_query_set_text(query, "zelto_cantrix_field_artist", "The Lanterns");
        if (status == 0) status = zelto_cantrix_query_set_text(query, "zelto_cantrix_field_title", "Harbour Lights");
        return status;
    }
    void answers(std::function<std::vector<zelto_manager_tree *>()> make) {
        zelto_script_reset(script_);
        for (zelto_manager_tree *tree : make()) answer(tree);
    }
};

zelto_manager_tree *track(const std::string &title, const std::string &artist, int number) {
    return make_displayed("zelto_ctx_track", title, artist, {{"zelto_val_tracknumber", std::to_string(number)}});
}

TEST_F(FaultSweepTest, TrackFind) {
    for (const char *single : {"0", "1"}) {
        SCOPED_TRACE(single);
        const SweepCounts counts = sweep_find(
            [&](zelto_rvo_handle *response) {
                return find_with(
                    [&](zelto_cantrix_query_handle q) {
                        const uint32_t status = text_fields(q);
                        return status ? status : zelto_cantrix_query_option_set(q, "zelto_cantrix_single_result", single);
                    },
                    zelto_cantrix_query_find_tracks, response);
            },
            [&] {
                answers([] {
                    return std::vector<zelto_manager_tree *>{make_answer(
                        "zelto_result_fuzzy_matches",
                        {track("Harbour Lights", "Lanterns", 1), track("Harbor", "Someone", 2)}, "zelto_ctx_track!")};
                });
            });
        EXPECT_GT(counts.failed, 5u);
    }
    zelto_script_reset(script_);
}

TEST_F(FaultSweepTest, MatchFind) {
    const SweepCounts counts = sweep_find(
        [&](zelto_rvo_handle *response) { return find_with(text_fields, zelto_cantrix_query_find_matches, response); },
        [&] {
            answers([] {
                zelto_manager_tree *album = make_displayed("zelto_ctx_album", "Harbour Lights", "Lanterns",
                                                           {{"_sdkmgr_val_text_match_album_score", "80"},
                                                            {"_sdkmgr_val_text_match_track_score", "50"}});
                zelto_manager_tree *who = make_node("zelto_ctx_contributor",
                                                    {{"_sdkmgr_val_text_match_contrib_score", "95"},
                                                     {"zelto_val_collab_result", "1"}});
                return std::vector<zelto_manager_tree *>{make_answer("zelto_result_fuzzy_matches", {album, who},
                                                                     "zelto_ctx_response_match!",
                                                                     "zelto_ctx_response_match")};
            });
        });
    EXPECT_GT(counts.failed, 5u);
    zelto_script_reset(script_);
}

TEST_F(FaultSweepTest, LyricFind) {
    for (const char *single : {"0", "1"}) {
        SCOPED_TRACE(single);
        const SweepCounts counts = sweep_find(
            [&](zelto_rvo_handle *response) {
                return find_with(
                    [&](zelto_cantrix_query_handle q) {
                        uint32_t status = text_fields(q);
                        if (status == 0)
                            status = zelto_cantrix_query_set_text(q, "zelto_cantrix_field_fragment", "harbour lights");
                        return status ? status : zelto_cantrix_query_option_set(q, "zelto_cantrix_single_result", single);
                    },
                    zelto_cantrix_query_find_lyrics, response);
            },
            [&] {
                answers([] {
                    return std::vector<zelto_manager_tree *>{make_answer(
                        "zelto_result_fuzzy_matches",
                        {make_displayed("zelto_ctx_lyric", "Harbour Lights", "Lanterns"),
                         make_displayed("zelto_ctx_lyric", "Other", "Nobody")},
                        "zelto_ctx_lyric!", "zelto_ctx_response_lyric")};
                });
            });
        EXPECT_GT(counts.failed, 5u);
    }
    zelto_script_reset(script_);
}

TEST_F(FaultSweepTest, FindByAnEarlierResult) {
    // The earlier result: an album of another answer, as the application
    // got it; the find looks it up again in full by its tui.
    zelto_manager_tree *earlier = make_album("Only", "One", 2, {{"zelto_val_tui", "7"}, {"zelto_val_tui_tag", "T7"}});
    zelto_rvo_handle object = nullptr;
    ASSERT_EQ(zelto_manager_tree_to_rvo(earlier, user_, "zelto_locale_music", 0xFFFFFFFFu, &object), 0u);
    zelto_manager_tree_release(earlier);
    for (Find find : {zelto_cantrix_query_find_albums, zelto_cantrix_query_find_tracks}) {
        const SweepCounts counts = sweep_find(
            [&](zelto_rvo_handle *response) {
                return find_with([&](zelto_cantrix_query_handle q) { return zelto_cantrix_query_set_rvo(q, object); },
                                 find, response);
            },
            [&] {
                answers([] {
                    return std::vector<zelto_manager_tree *>{make_answer(
                        "zelto_result_single_match", {make_album("Only", "One", 2, {{"zelto_val_full_result", "1"}})})};
                });
            });
        EXPECT_GT(counts.failed, 3u);
    }
    zelto_manager_rvo_release(object);
    zelto_script_reset(script_);
}

// A walk's text without the lines of the values a find puts into a row's
// info map.
std::string without_info_values(const std::string &text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        at = end == std::string::npos ? text.size() : end + 1;
        if (line.find("zelto_val_txtmatchscore =") == std::string::npos &&
            line.find("_sdkmgr_val_") == std::string::npos && line.find("zelto_val_toc_album =") == std::string::npos)
            out += line + "\n";
    }
    return out;
}

TEST_F(FaultSweepTest, WalkingAWholeResponse) {
    answer(make_answer("zelto_result_fuzzy_matches",
                       {make_album("Harbour Lights", "Lanterns", 3), make_album("Harbor", "Someone", 2)}));
    zelto_rvo_handle response = nullptr;
    ASSERT_EQ(find_with(text_fields, zelto_cantrix_query_find_albums, &response), 0u);
    const std::string clean = response_walk::walk(response).text;
    const int64_t blocks = zelto_manager_memory_live_blocks();
    uint64_t failed_walks = 0, partial_walks = 0;
    for_each_allocation_failure([&](uint64_t n) {
        const response_walk::Walk walk = response_walk::walk(response);
        zelto_manager_memory_fail_nth(0);
        // A read that ran out of memory says so. A row handed out while its
        // info map could not be copied lacks the values of that map (the
        // copy's failure is ignored): every other line reads as without
        // the failure.
        if (walk.failure != 0) {
            EXPECT_EQ(walk.failure, ZELTO_CANTRIX_NO_MEMORY) << "allocation " << n << ": " << walk.problem;
            ++failed_walks;
        } else if (walk.text != clean) {
            EXPECT_EQ(without_info_values(walk.text), without_info_values(clean)) << "allocation " << n;
            ++partial_walks;
        }
        EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks) << "allocation " << n;
    });
    EXPECT_GT(failed_walks + partial_walks, 3u);
    EXPECT_EQ(response_walk::walk(response).text, clean);
    zelto_manager_rvo_release(response);
    zelto_script_reset(script_);
}

void count_release(void *data, zelto_cantrix_query_handle, uint32_t status, uint32_t, uint32_t, uint8_t *) {
    if (status == ZELTO_CANTRIX_STATUS_RELEASE) ++*static_cast<int *>(data);
}

// Releases allocate nothing, so no failure can strike them: the sweep ends
// after its first run, with everything given back.
TEST_F(FaultSweepTest, ReleasesOfQueriesAndResponses) {
    const int64_t blocks = zelto_manager_memory_live_blocks();
    const uint64_t runs = for_each_allocation_failure([&](uint64_t n) {
        // A query holding every kind of input state and a response.
        zelto_manager_memory_fail_nth(0);
        int releases = 0;
        zelto_cantrix_query_handle query = nullptr;
        ASSERT_EQ(zelto_cantrix_query_create(user_, count_release, &releases, &query), 0u);
        ASSERT_EQ(zelto_cantrix_query_option_set(query, "zelto_cantrix_single_result", "1"), 0u);
        ASSERT_EQ(zelto_cantrix_query_set_text(query, "zelto_cantrix_field_artist", "The Lanterns"), 0u);
        zelto_script_reset(script_);
        answer(make_answer("zelto_result_fuzzy_matches", {make_album("A", "B", 1), make_album("C", "D", 1)}));
        zelto_rvo_handle response = nullptr;
        ASSERT_EQ(zelto_cantrix_query_find_albums(query, &response), 0u);
        zelto_rvo_handle row = child_of(response, "zelto_ctx_album!", 1);

        zelto_manager_memory_fail_nth(n);
        EXPECT_EQ(zelto_cantrix_query_release(query), 0u) << "allocation " << n;
        EXPECT_EQ(zelto_manager_rvo_release(response), 0u) << "allocation " << n;
        EXPECT_EQ(zelto_manager_rvo_release(row), 0u) << "allocation " << n;
        zelto_manager_memory_fail_nth(0);
        EXPECT_EQ(releases, 1);
        EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks) << "allocation " << n;
    });
    EXPECT_EQ(runs, 0u);
    zelto_script_reset(script_);
}

TEST_F(FaultSweepTest, CatalogueProviderAnswers) {
    TempCatalogue catalogue(TempCatalogue::sample());
    ASSERT_EQ(zelto_manager_user_option_set(user_, "zelto_useroption_lookup_mode", "zelto_lookupmode_local"), 0u);
    struct Flow {
        const char *toc;
        Find find;
    };
    for (const Flow &flow : {Flow{"150 14672 27367 41225", zelto_cantrix_query_find_albums},
                             Flow{nullptr, zelto_cantrix_query_find_albums},
                             Flow{nullptr, zelto_cantrix_query_find_tracks},
                             Flow{nullptr, zelto_cantrix_query_find_matches}}) {
        const SweepCounts counts = sweep_find([&](zelto_rvo_handle *response) {
            return find_with(
                [&](zelto_cantrix_query_handle q) {
                    if (flow.toc) return zelto_cantrix_query_set_toc_string(q, flow.toc);
                    uint32_t status = zelto_cantrix_query_set_text(q, "zelto_cantrix_field_artist", "The Lanterns");
                    if (status == 0) status = zelto_cantrix_query_set_text(q, "zelto_cantrix_field_album", "Northern Lights");
                    return status;
                },
                flow.find, response);
        });
        EXPECT_GT(counts.failed, 3u);
        EXPECT_EQ(zelto_catalogue_live_requests(catalogue.get()), 0u);
    }
}

// From nothing to nothing: initialise, user, query, input (a TOC and a
// language), the find of a partial album completed by a second lookup,
// walk, release, shutdown, with each allocation of the module failing in
// turn.
// Wherever the failure strikes, the flow stops with that failure, gives back
// what it made, and the module is down at the end.
TEST(FaultSweepWholeFlow, InitializeToShutdown) {
    zelto_manager_services_reset();
    ASSERT_EQ(zelto_cantrix_initchecks(), 0u);
    zelto_script *script = nullptr;
    ASSERT_EQ(zelto_script_create(&script), 0u);
    ASSERT_EQ(zelto_script_install(script, 0), 0u);
    const int64_t blocks = zelto_manager_memory_live_blocks();
    uint64_t stopped = 0;
    for_each_allocation_failure([&](uint64_t n) {
        zelto_manager_memory_fail_nth(0);
        zelto_script_reset(script);
        // The TOC lookup finds one partial album; the second lookup
        // completes it by its tui.
        for (zelto_manager_tree *tree :
             {make_answer("zelto_result_single_match",
                          {make_album("Only", "One", 2, {{"zelto_val_tui", "7"}, {"zelto_val_tui_tag", "T7"}})}),
              make_answer("zelto_result_single_match",
                          {make_album("Only", "One", 2, {{"zelto_val_full_result", "1"}})})}) {
            ASSERT_EQ(zelto_script_answer(script, tree, nullptr), 0u);
            zelto_manager_tree_release(tree);
        }
        zelto_manager_memory_fail_nth(n);

        const char *step = "initialize";
        uint32_t status = zelto_cantrix_initialize(zelto_manager_get_table());
        const bool up = status == 0;
        zelto_user *user = nullptr;
        zelto_cantrix_query_handle query = nullptr;
        zelto_rvo_handle response = nullptr;
        auto then = [&](const char *name, auto call) {
            if (status != 0) return;
            step = name;
            status = call();
        };
        then("user", [&] { return zelto_manager_user_create("flow", &user); });
        then("query", [&] { return zelto_cantrix_query_create(user, nullptr, nullptr, &query); });
        then("toc", [&] { return zelto_cantrix_query_set_toc_string(query, "150 14672 27367 41225"); });
        then("language", [&] { return zelto_cantrix_query_option_set(query, "zelto_cantrix_preferred_lang", "eng"); });
        then("find", [&] { return zelto_cantrix_query_find_albums(query, &response); });
        then("walk", [&] { return response_walk::walk(response).failure; });
        const bool fired = zelto_manager_memory_failure_fired() != 0;
        zelto_manager_memory_fail_nth(0);
        if (status != 0) {
            ++stopped;
            EXPECT_TRUE(fired) << "allocation " << n << " " << step;
            EXPECT_TRUE(status == ZELTO_CANTRIX_NO_MEMORY || status == ZELTO_CANTRIX_INIT_FAILED)
                << "allocation " << n << " " << step << ": " << response_walk::hex(status);
            // Past the bring-up and the host's user, the module's own "no memory".
            if (std::string(step) != "initialize" && std::string(step) != "user") {
                EXPECT_EQ(status, ZELTO_CANTRIX_NO_MEMORY) << "allocation " << n << " " << step;
            }
            // No output from a failed call (a failed read leaves the response).
            if (std::string(step) != "walk") {
                EXPECT_EQ(response, nullptr) << "allocation " << n;
            }
        }
        if (response) {
            EXPECT_EQ(zelto_manager_rvo_release(response), 0u);
        }
        if (query) {
            EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
        }
        if (user) zelto_manager_user_release(user);
        if (up) {
            EXPECT_EQ(zelto_cantrix_shutdown(), 0u) << "allocation " << n;
        }
        EXPECT_EQ(zelto_cantrix_initchecks(), 0u) << "allocation " << n;
        EXPECT_EQ(zelto_manager_service_refs(nullptr), 0) << "allocation " << n;
        EXPECT_EQ(zelto_manager_rvo_live_count(), 0u) << "allocation " << n;
        EXPECT_EQ(zelto_script_live_requests(script), 0u) << "allocation " << n;
        EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks) << "allocation " << n;
    });
    EXPECT_GT(stopped, 10u);
    zelto_script_destroy(script);
    EXPECT_EQ(zelto_manager_tree_live_count(), 0u);
    zelto_manager_services_reset();
}

}  // namespace
