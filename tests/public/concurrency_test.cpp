// Several threads at once (CTest label concurrency, run under
// ThreadSanitizer): queries on several threads against the scripted
// provider and against one catalogue, a second thread on a query whose find
// is running, and initialise/shutdown from zero on several threads.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "response_walk.h"
#include "script_fixture.h"
#include "temp_catalogue.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 20;

// One find on a new query of the user; the walk of its response.
template <typename Setup, typename Find>
response_walk::Walk find_and_walk(zelto_user *user, Setup setup, Find find, uint32_t *out_status) {
    zelto_cantrix_query_handle query = nullptr;
    if (zelto_cantrix_query_create(user, nullptr, nullptr, &query) != 0) return {"", "query create failed", 0, 0};
    setup(query);
    zelto_rvo_handle response = nullptr;
    *out_status = find(query, &response);
    response_walk::Walk walk;
    if (response) {
        walk = response_walk::walk(response);
        zelto_manager_rvo_release(response);
    }
    zelto_cantrix_query_release(query);
    return walk;
}

class ConcurrencyScriptedTest : public ScriptedTest {};

TEST_F(ConcurrencyScriptedTest, QueriesOnSeveralThreadsShareOneProvider) {
    for (int i = 0; i < kThreads * kRounds; ++i)
        answer(make_answer("zelto_result_fuzzy_matches",
                           {make_displayed("zelto_ctx_album", "Harbour Lights", "The Lanterns"),
                            make_displayed("zelto_ctx_album", "Harbor", "Someone")}));
    std::atomic<int> failures{0};
    on_threads(kThreads, [&](int t) {
        for (int round = 0; round < kRounds; ++round) {
            uint32_t status = 1;
            const bool by_text = (t + round) % 2 == 0;
            const response_walk::Walk walk = find_and_walk(
                user_,
                [&](zelto_cantrix_query_handle q) {
                    if (by_text) {
                        zelto_cantrix_query_set_text(q, "zelto_cantrix_field_artist", "The Lanterns");
                        zelto_cantrix_query_set_text(q, "zelto_cantrix_field_album", "Harbour Lights");
                    } else {
                        zelto_cantrix_query_set_toc_string(q, "150 14672 27367 41225");
                    }
                    zelto_cantrix_query_option_set(q, "zelto_cantrix_preferred_lang", "eng");
                },
                [](zelto_cantrix_query_handle q, zelto_rvo_handle *r) { return zelto_cantrix_query_find_albums(q, r); },
                &status);
            if (status != 0 || walk.rows != 2 || !walk.problem.empty()) ++failures;
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(zelto_script_answers_pending(script_), 0u);
    EXPECT_EQ(zelto_script_request_count(script_), static_cast<uint32_t>(kThreads * kRounds));
    zelto_script_reset(script_);
}

// A find on one thread is inside its status callback while a second thread
// calls the same query: its find and its release are refused as busy, its
// setter waits for the find to end and then goes through.
struct BusyRendezvous {
    std::mutex mutex;
    std::condition_variable changed;
    bool inside = false, tried = false;
    int callbacks = 0;
};

void hold_inside(void *data, zelto_cantrix_query_handle, uint32_t status, uint32_t, uint32_t, uint8_t *) {
    auto *r = static_cast<BusyRendezvous *>(data);
    if (status == ZELTO_CANTRIX_STATUS_RELEASE) return;
    std::unique_lock<std::mutex> lock(r->mutex);
    if (r->callbacks++ != 0) return;
    r->inside = true;
    r->changed.notify_all();
    r->changed.wait_for(lock, std::chrono::seconds(20), [r] { return r->tried; });
}

TEST_F(ConcurrencyScriptedTest, SecondThreadOnAQueryWhoseFindRuns) {
    uint32_t index = answer(make_answer("zelto_result_fuzzy_matches",
                                        {make_album("A", "B", 1), make_album("C", "D", 1)}));
    ASSERT_EQ(zelto_script_answer_event(script_, index, 16, 1, 0, 0), 0u);
    answer(make_answer("zelto_result_no_matches", {}));

    BusyRendezvous rendezvous;
    zelto_cantrix_query_handle query = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, hold_inside, &rendezvous, &query), 0u);
    ASSERT_EQ(zelto_cantrix_query_set_toc_string(query, "150 14672 27367 41225"), 0u);

    uint32_t find_status = 1;
    zelto_rvo_handle response = nullptr;
    std::thread finder([&] { find_status = zelto_cantrix_query_find_albums(query, &response); });

    uint32_t busy_find = 0, busy_release = 0, set_status = 1;
    std::thread setter;
    {
        std::unique_lock<std::mutex> lock(rendezvous.mutex);
        ASSERT_TRUE(rendezvous.changed.wait_for(lock, std::chrono::seconds(20), [&] { return rendezvous.inside; }));
    }
    zelto_rvo_handle refused = nullptr;
    busy_find = zelto_cantrix_query_find_albums(query, &refused);
    busy_release = zelto_cantrix_query_release(query);
    // The setter blocks on the query's lock until the find has ended.
    setter = std::thread([&] { set_status = zelto_cantrix_query_set_toc_string(query, "150 300"); });
    {
        std::lock_guard<std::mutex> lock(rendezvous.mutex);
        rendezvous.tried = true;
    }
    rendezvous.changed.notify_all();
    finder.join();
    setter.join();

    EXPECT_EQ(busy_find, ZELTO_CANTRIX_BUSY);
    EXPECT_EQ(refused, nullptr);
    EXPECT_EQ(busy_release, ZELTO_CANTRIX_BUSY);
    EXPECT_EQ(find_status, 0u);
    EXPECT_EQ(set_status, 0u);
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response_walk::walk(response).rows, 2u);
    zelto_manager_rvo_release(response);
    // The running find sent the TOC it started with; the next one the new TOC.
    EXPECT_STREQ(zelto_script_request_data(script_, 0, "zelto_lookup_data_toc"), "150 14672 27367 41225");
    ASSERT_EQ(zelto_cantrix_query_find_albums(query, &response), 0u);
    zelto_manager_rvo_release(response);
    EXPECT_STREQ(zelto_script_request_data(script_, 1, "zelto_lookup_data_toc"), "150 300");
    EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
    zelto_script_reset(script_);
}

class ConcurrencyCatalogueTest : public ModuleTest {
   protected:
    void SetUp() override {
        ModuleTest::SetUp();
        catalogue_ = std::make_unique<TempCatalogue>(TempCatalogue::sample());
        ASSERT_EQ(zelto_manager_user_option_set(user_, "zelto_useroption_lookup_mode", "zelto_lookupmode_local"), 0u);
    }
    void TearDown() override {
        catalogue_.reset();
        ModuleTest::TearDown();
    }
    std::unique_ptr<TempCatalogue> catalogue_;
};

TEST_F(ConcurrencyCatalogueTest, QueriesOnSeveralThreadsShareOneCatalogue) {
    struct Search {
        const char *toc, *artist, *album;
    };
    const Search searches[] = {{"150 14672 27367 41225", nullptr, nullptr},
                               {"150 22160 40560 57220", nullptr, nullptr},
                               {nullptr, "The Lanterns", "Northern Lights"},
                               {nullptr, "Mira", "lanterns of glas"}};
    auto run = [&](const Search &s, uint32_t *status) {
        return find_and_walk(
            user_,
            [&](zelto_cantrix_query_handle q) {
                if (s.toc) zelto_cantrix_query_set_toc_string(q, s.toc);
                if (s.artist) zelto_cantrix_query_set_text(q, "zelto_cantrix_field_artist", s.artist);
                if (s.album) zelto_cantrix_query_set_text(q, "zelto_cantrix_field_album", s.album);
            },
            [](zelto_cantrix_query_handle q, zelto_rvo_handle *r) { return zelto_cantrix_query_find_albums(q, r); },
            status);
    };
    // What each search reads on one thread is what it reads on any thread.
    std::vector<std::string> expected;
    for (const Search &s : searches) {
        uint32_t status = 1;
        const response_walk::Walk walk = run(s, &status);
        ASSERT_EQ(status, 0u);
        ASSERT_TRUE(walk.problem.empty()) << walk.problem;
        ASSERT_GE(walk.rows, 1u);
        expected.push_back(walk.text);
    }
    std::atomic<int> differences{0};
    on_threads(kThreads, [&](int t) {
        for (int round = 0; round < kRounds; ++round) {
            const size_t which = static_cast<size_t>(t + round) % std::size(searches);
            uint32_t status = 1;
            if (run(searches[which], &status).text != expected[which] || status != 0) ++differences;
        }
    });
    EXPECT_EQ(differences.load(), 0);
}

// Initialise and shutdown starting from zero on several threads: each pair
// succeeds, and the module and its packages end down with their locks
// reusable: the frame's bring-up and take-down are serialised, so the last
// shutdown never resets a lock record that another thread holds.
TEST(ConcurrencyLifecycle, InitializeAndShutdownFromZeroOnSeveralThreads) {
    zelto_manager_services_reset();
    ASSERT_EQ(zelto_cantrix_initchecks(), 0u);
    const int64_t blocks = zelto_manager_memory_live_blocks();
    std::atomic<int> failures{0};
    on_threads(kThreads, [&](int) {
        for (int round = 0; round < 50; ++round) {
            if (zelto_cantrix_initialize(zelto_manager_get_table()) != 0) ++failures;
            if (zelto_cantrix_initchecks() == 0) ++failures;
            if (zelto_cantrix_shutdown() != 0) ++failures;
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
    EXPECT_EQ(zelto_manager_service_refs(nullptr), 0);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
    // Up once more on one thread and down again.
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
    EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
    zelto_manager_services_reset();
}

}  // namespace
