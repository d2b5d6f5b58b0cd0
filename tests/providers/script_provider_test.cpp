// The scriptable lookup provider driven the way the module drives a
// provider: table from the manager by mode, request, add, data, options,
// execute with events, result, release.
#include <cstring>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "zelto/zelto_script_provider.h"

namespace {

struct Seen {
    uint32_t kind, code, value1;
    uintptr_t value2;
};

// Callback of the test: records events and sets the abort flag at a chosen event.
struct Listener {
    std::vector<Seen> events;
    size_t abort_at = 0;  // 1-based event number, 0 = never
    static void callback(void *data, const zelto_lookup_status *status, uint8_t *abort_flag) {
        auto *self = static_cast<Listener *>(data);
        self->events.push_back({status->kind, status->code, status->value1, status->value2});
        if (self->events.size() == self->abort_at) *abort_flag = 1;
    }
};

class ScriptTest : public HostObjectsTest {
   protected:
    void SetUp() override {
        HostObjectsTest::SetUp();
        ASSERT_EQ(zelto_script_create(&script_), 0u);
        ASSERT_EQ(zelto_script_install(script_, 0), 0u);
        ASSERT_EQ(zelto_manager_user_create("alice", &user_), 0u);
    }
    void TearDown() override {
        zelto_script_destroy(script_);
        EXPECT_EQ(zelto_manager_lookup_get_provider(1), nullptr);
        EXPECT_EQ(zelto_manager_lookup_get_provider(2), nullptr);
        zelto_manager_user_release(user_);
        HostObjectsTest::TearDown();
    }

    const zelto_lookup_interface *fetch(uint32_t mode) {
        const void *table = nullptr;
        EXPECT_EQ(zelto_manager_get_table()->interface_get("_zelto_lookup_interface", mode, 0, &table), 0u);
        return static_cast<const zelto_lookup_interface *>(table);
    }

    // An album answer with one track.
    static zelto_manager_tree *album(const char *title) {
        zelto_manager_tree *a = make_node("zelto_ctx_response_album", {{"_sdkmgr_val_response_code", "zelto_result_single_match"}});
        zelto_manager_tree *al = make_node("zelto_ctx_album", {{"zelto_val_title", title}});
        zelto_manager_tree_add_value_ex(al, "zelto_val_xid", "x-1", nullptr, ZELTO_DATA_LINK);
        adopt(a, "zelto_ctx_album!", al);
        return a;
    }

    zelto_script *script_ = nullptr;
    zelto_user *user_ = nullptr;
};

TEST_F(ScriptTest, ManagerHandsOutTheTableOfEachModeWithCountedReferences) {
    int32_t before = zelto_manager_service_refs("_zelto_lookup_interface");
    const zelto_lookup_interface *online = fetch(1);
    const zelto_lookup_interface *local = fetch(2);
    EXPECT_EQ(online, zelto_script_table(script_, 1));
    EXPECT_EQ(local, zelto_script_table(script_, 2));
    EXPECT_NE(online, local);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), before + 2);
    const void *table = nullptr;
    EXPECT_EQ(zelto_manager_get_table()->interface_get("_zelto_lookup_interface", 0, 0, &table), 0x90070001u);
    EXPECT_EQ(zelto_manager_get_table()->interface_get("_zelto_lookup_interface", 3, 0, &table), 0x90070001u);
    // Unslotted places stay empty.
    EXPECT_EQ(online->reserved1, nullptr);
    EXPECT_EQ(online->reserved5, nullptr);
    EXPECT_EQ(online->reserved6, nullptr);
    EXPECT_EQ(online->reserved10, nullptr);

    // Removing the provider of a mode: the manager has no table for it, and
    // one given out earlier can still be released.
    EXPECT_EQ(zelto_manager_lookup_set_provider(2, nullptr), 0u);
    EXPECT_EQ(zelto_manager_get_table()->interface_get("_zelto_lookup_interface", 2, 0, &table),
              ZELTO_MANAGER_NO_SERVICE);
    online->lookup_release(online);
    local->lookup_release(local);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), before);
    EXPECT_EQ(zelto_manager_lookup_set_provider(3, online), 0x90070001u);
}

TEST_F(ScriptTest, RecordsEveryCallInOrder) {
    zelto_manager_tree *answer = album("Kind of Blue");
    ASSERT_EQ(zelto_script_answer(script_, answer, nullptr), 0u);
    zelto_manager_tree_release(answer);
    const zelto_lookup_interface *table = fetch(2);
    zelto_lookup_request request = nullptr;
    ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
    EXPECT_EQ(zelto_script_live_requests(script_), 1u);
    EXPECT_EQ(table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0), 0u);
    EXPECT_EQ(table->lookup_request_set_option(request, "CNX_1", "zelto_lookup_option_preset", "fast"), 0u);
    char buffer[32];
    std::strcpy(buffer, "1");
    EXPECT_EQ(table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_result_range_start", buffer, 1), 0u);
    std::strcpy(buffer, "10");  // the caller reuses its buffer: the value was copied
    EXPECT_EQ(table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_result_range_end", buffer, 1), 0u);
    EXPECT_EQ(table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_track_matched", nullptr, 1), 0u);
    EXPECT_EQ(table->lookup_request_set_option(request, "CNX_1", "zelto_lookup_option_language", "eng"), 0u);
    EXPECT_EQ(table->lookup_request_execute(request, user_), 0u);
    zelto_rvo_handle result = nullptr;
    EXPECT_EQ(table->lookup_request_get_result(request, "CNX_2", &result), ZELTO_SCRIPT_NO_RESULT);
    ASSERT_EQ(table->lookup_request_get_result(request, "CNX_1", &result), 0u);
    EXPECT_EQ(table->lookup_request_release(request), 0u);
    EXPECT_EQ(table->lookup_request_release(nullptr), 0u);
    table->lookup_release(table);

    ASSERT_EQ(zelto_script_request_count(script_), 1u);
    EXPECT_STREQ(zelto_script_request_text(script_, 0),
                 "mode 2\n"
                 "add zelto_lookup_type_album CNX_1 cnx 0\n"
                 "option CNX_1 zelto_lookup_option_preset \"fast\"\n"
                 "data CNX_1 zelto_lookup_data_result_range_start \"1\" copy 1\n"
                 "data CNX_1 zelto_lookup_data_result_range_end \"10\" copy 1\n"
                 "data CNX_1 zelto_lookup_data_track_matched null copy 1\n"
                 "option CNX_1 zelto_lookup_option_language \"eng\"\n"
                 "execute user \"alice\"\n"
                 "get_result CNX_2 -> 0x10040003\n"
                 "get_result CNX_1\n"
                 "release\n");
    EXPECT_EQ(zelto_script_request_mode(script_, 0), 2u);
    EXPECT_EQ(zelto_script_request_user(script_, 0), user_);
    EXPECT_STREQ(zelto_script_request_lookup_type(script_, 0), "zelto_lookup_type_album");
    EXPECT_STREQ(zelto_script_request_data(script_, 0, "zelto_lookup_data_result_range_end"), "10");
    EXPECT_EQ(zelto_script_request_data(script_, 0, "zelto_lookup_data_toc"), nullptr);
    EXPECT_STREQ(zelto_script_request_option(script_, 0, "zelto_lookup_option_language"), "eng");
    EXPECT_EQ(zelto_script_request_call_count(script_, 0), 10u);
    const char *name = nullptr, *id = nullptr, *key = nullptr, *value = nullptr;
    uint32_t number = 9, status = 9;
    ASSERT_EQ(zelto_script_request_call(script_, 0, 0, &name, &id, &key, &value, &number, &status), 0u);
    EXPECT_STREQ(name, "add");
    EXPECT_STREQ(id, "CNX_1");
    EXPECT_STREQ(key, "zelto_lookup_type_album");
    EXPECT_STREQ(value, "cnx");
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(status, 0u);
    ASSERT_EQ(zelto_script_request_call(script_, 0, 4, &name, &id, &key, &value, &number, &status), 0u);
    EXPECT_STREQ(name, "data");
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(zelto_script_request_call(script_, 0, 10, &name, nullptr, nullptr, nullptr, nullptr, nullptr),
              ZELTO_SCRIPT_NO_RESULT);
    EXPECT_EQ(zelto_script_live_requests(script_), 0u);

    // The result outlives the request; it carries the user given to execute.
    EXPECT_EQ(zelto_manager_user_refcount(user_), 2u);
    zelto_rvo_handle child = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(result, "zelto_ctx_album!", 1, 1, &child), 0u);
    const char *title = nullptr;
    EXPECT_EQ(zelto_manager_rvo_value_get(child, "zelto_val_title", 1, &title), 0u);
    EXPECT_STREQ(title, "Kind of Blue");
    // No link option was set: the link value is withheld.
    EXPECT_EQ(zelto_manager_rvo_value_get(child, "zelto_val_xid", 1, &title), ZELTO_RVO_WITHHELD);
    zelto_manager_rvo_release(child);
    zelto_manager_rvo_release(result);
}

TEST_F(ScriptTest, GetResultGivesANewReferenceEachTimeWithOptionFlags) {
    zelto_manager_tree *answer = album("A");
    zelto_script_answer(script_, answer, nullptr);
    zelto_manager_tree_release(answer);
    const zelto_lookup_interface *table = fetch(1);
    zelto_lookup_request request = nullptr;
    ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
    table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0);
    table->lookup_request_set_option(request, "CNX_1", "zelto_lookup_option_link", "1");
    table->lookup_request_set_option(request, "CNX_1", "zelto_lookup_option_class", "false");
    ASSERT_EQ(table->lookup_request_execute(request, nullptr), 0u);
    zelto_rvo_handle first = nullptr, second = nullptr;
    ASSERT_EQ(table->lookup_request_get_result(request, "CNX_1", &first), 0u);
    ASSERT_EQ(table->lookup_request_get_result(request, "CNX_1", &second), 0u);
    EXPECT_NE(first, second);
    table->lookup_request_release(request);
    uint32_t flags = 0;
    zelto_manager_rvo_data_flags(first, &flags);
    EXPECT_EQ(flags, ZELTO_DATA_LINK);
    const char *group = nullptr;
    zelto_manager_rvo_locale_group(first, &group);
    EXPECT_STREQ(group, "zelto_locale_music");
    zelto_rvo_handle child = nullptr;
    ASSERT_EQ(zelto_manager_rvo_child_get(second, "zelto_ctx_album!", 1, 1, &child), 0u);
    const char *xid = nullptr;
    EXPECT_EQ(zelto_manager_rvo_value_get(child, "zelto_val_xid", 1, &xid), 0u);
    EXPECT_STREQ(xid, "x-1");
    EXPECT_STREQ(zelto_script_request_text(script_, 0),
                 "mode 1\n"
                 "add zelto_lookup_type_album CNX_1 cnx 0\n"
                 "option CNX_1 zelto_lookup_option_link \"1\"\n"
                 "option CNX_1 zelto_lookup_option_class \"false\"\n"
                 "execute user null\n"
                 "get_result CNX_1\n"
                 "get_result CNX_1\n"
                 "release\n");
    zelto_manager_rvo_release(child);
    zelto_manager_rvo_release(first);
    zelto_manager_rvo_release(second);
    table->lookup_release(table);
}

TEST_F(ScriptTest, QueuedAnswersServeSuccessiveRequests) {
    zelto_manager_tree *partial = album("Partial");
    zelto_manager_tree *full = album("Full");
    uint32_t i0 = 9, i1 = 9;
    zelto_script_answer(script_, partial, &i0);
    zelto_script_answer(script_, full, &i1);
    zelto_manager_tree_release(partial);
    zelto_manager_tree_release(full);
    EXPECT_EQ(i0, 0u);
    EXPECT_EQ(i1, 1u);
    EXPECT_EQ(zelto_script_answers_pending(script_), 2u);
    const zelto_lookup_interface *table = fetch(1);
    std::vector<std::string> titles;
    for (int round = 0; round < 3; ++round) {
        zelto_lookup_request request = nullptr;
        ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
        table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0);
        ASSERT_EQ(table->lookup_request_execute(request, user_), 0u);
        zelto_rvo_handle result = nullptr;
        uint32_t status = table->lookup_request_get_result(request, "CNX_1", &result);
        if (status == 0) {
            char *text = nullptr;
            zelto_manager_rvo_dump(result, nullptr, nullptr, &text);
            titles.push_back(std::string(text).find("Full") != std::string::npos ? "Full" : "Partial");
            zelto_manager_text_free(text);
            zelto_manager_rvo_release(result);
        } else {
            // Nothing queued any more: execute succeeds, there is no result.
            EXPECT_EQ(status, ZELTO_SCRIPT_NO_RESULT);
            titles.push_back("none");
        }
        table->lookup_request_release(request);
    }
    EXPECT_EQ(titles, (std::vector<std::string>{"Partial", "Full", "none"}));
    EXPECT_EQ(zelto_script_answers_pending(script_), 0u);
    EXPECT_EQ(zelto_script_request_count(script_), 3u);
    table->lookup_release(table);
}

TEST_F(ScriptTest, EventsReachTheCallbackInOrder) {
    uint32_t index = 0;
    zelto_script_answer(script_, nullptr, &index);
    zelto_script_answer_event(script_, index, 0, 1, 0, 0);
    zelto_script_answer_event(script_, index, 16, 9, 3, 10);
    zelto_script_answer_error(script_, index, 0, 0x90040321u, "service unavailable");
    zelto_script_answer_error(script_, index, 0, 0x90040322u, nullptr);
    zelto_script_answer_event(script_, index, 0, 12, 0, 0);
    EXPECT_EQ(zelto_script_answer_event(script_, 5, 0, 1, 0, 0), ZELTO_SCRIPT_BAD_ARG);
    const zelto_lookup_interface *table = fetch(1);
    Listener listener;
    zelto_lookup_request request = nullptr;
    ASSERT_EQ(table->lookup_request_create(table, &Listener::callback, &listener, &request), 0u);
    table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0);
    EXPECT_EQ(table->lookup_request_execute(request, user_), 0u);
    ASSERT_EQ(listener.events.size(), 5u);
    EXPECT_EQ(listener.events[0].code, 1u);
    EXPECT_EQ(listener.events[1].kind, 16u);
    EXPECT_EQ(listener.events[1].code, 9u);
    EXPECT_EQ(listener.events[1].value1, 3u);
    EXPECT_EQ(listener.events[1].value2, 10u);
    EXPECT_EQ(listener.events[2].code, 13u);
    EXPECT_EQ(listener.events[2].value1, 0x90040321u);
    EXPECT_STREQ(reinterpret_cast<const char *>(listener.events[2].value2), "service unavailable");
    EXPECT_EQ(listener.events[3].value2, 0u);
    EXPECT_EQ(listener.events[4].code, 12u);
    // No result tree was queued.
    zelto_rvo_handle result = nullptr;
    EXPECT_EQ(table->lookup_request_get_result(request, "CNX_1", &result), ZELTO_SCRIPT_NO_RESULT);
    table->lookup_request_release(request);
    table->lookup_release(table);
}

TEST_F(ScriptTest, AbortStopsEventsAndFailsExecute) {
    zelto_manager_tree *answer = album("A");
    uint32_t index = 0;
    zelto_script_answer(script_, answer, &index);
    zelto_manager_tree_release(answer);
    for (uint32_t code : {1u, 8u, 9u, 12u}) zelto_script_answer_event(script_, index, 0, code, 0, 0);
    const zelto_lookup_interface *table = fetch(1);
    Listener listener;
    listener.abort_at = 2;
    zelto_lookup_request request = nullptr;
    ASSERT_EQ(table->lookup_request_create(table, &Listener::callback, &listener, &request), 0u);
    table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0);
    EXPECT_EQ(table->lookup_request_execute(request, user_), ZELTO_SCRIPT_ABORTED);
    EXPECT_EQ(listener.events.size(), 2u);
    zelto_rvo_handle result = nullptr;
    EXPECT_EQ(table->lookup_request_get_result(request, "CNX_1", &result), ZELTO_SCRIPT_NO_RESULT);
    table->lookup_request_release(request);
    EXPECT_STREQ(zelto_script_request_text(script_, 0),
                 "mode 1\n"
                 "add zelto_lookup_type_album CNX_1 cnx 0\n"
                 "execute user \"alice\" -> 0x90040009\n"
                 "aborted after event 2\n"
                 "get_result CNX_1 -> 0x10040003\n"
                 "release\n");
    table->lookup_release(table);
}

TEST_F(ScriptTest, AnswerStatusFailsExecuteAfterItsEvents) {
    zelto_manager_tree *answer = album("A");
    uint32_t index = 0;
    zelto_script_answer(script_, answer, &index);
    zelto_manager_tree_release(answer);
    zelto_script_answer_event(script_, index, 0, 1, 0, 0);
    zelto_script_answer_status(script_, index, 0x90040404u);
    const zelto_lookup_interface *table = fetch(1);
    Listener listener;
    zelto_lookup_request request = nullptr;
    table->lookup_request_create(table, &Listener::callback, &listener, &request);
    table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0);
    EXPECT_EQ(table->lookup_request_execute(request, user_), 0x90040404u);
    EXPECT_EQ(listener.events.size(), 1u);
    zelto_rvo_handle result = nullptr;
    EXPECT_EQ(table->lookup_request_get_result(request, "CNX_1", &result), ZELTO_SCRIPT_NO_RESULT);
    table->lookup_request_release(request);
    table->lookup_release(table);
}

TEST_F(ScriptTest, InjectedFailuresOnEverySlot) {
    const zelto_lookup_interface *table = fetch(1);
    zelto_lookup_request request = nullptr;
    // Create fails at the second call only; a failed create makes no request.
    ASSERT_EQ(zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_CREATE, 0x90040002u, 2), 0u);
    ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
    table->lookup_request_release(request);
    request = nullptr;
    EXPECT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0x90040002u);
    EXPECT_EQ(request, nullptr);
    ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
    EXPECT_EQ(zelto_script_calls(script_, ZELTO_SCRIPT_SLOT_CREATE), 3u);
    EXPECT_EQ(zelto_script_request_count(script_), 2u);

    zelto_manager_tree *answer = album("A");
    zelto_script_answer(script_, answer, nullptr);
    zelto_manager_tree_release(answer);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_ADD, 0x90040005u, 0);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_SET_DATA, 0x90040006u, 2);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_SET_OPTION, 0x90040007u, 1);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_EXECUTE, 0x90040008u, 1);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_GET_RESULT, 0x9004000Au, 1);
    EXPECT_EQ(table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0), 0x90040005u);
    EXPECT_EQ(table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0), 0x90040005u);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_ADD, 0, 0);
    EXPECT_EQ(table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0), 0u);
    EXPECT_EQ(table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_toc", "150 300", 1), 0u);
    EXPECT_EQ(table->lookup_request_set_data(request, "CNX_1", "zelto_lookup_data_rev", "7", 1), 0x90040006u);
    EXPECT_EQ(table->lookup_request_set_option(request, "CNX_1", "zelto_lookup_option_link", "1"), 0x90040007u);
    EXPECT_EQ(table->lookup_request_execute(request, user_), 0x90040008u);
    // The failed execute took no answer; the next one does.
    EXPECT_EQ(zelto_script_answers_pending(script_), 1u);
    EXPECT_EQ(table->lookup_request_execute(request, user_), 0u);
    EXPECT_EQ(zelto_script_answers_pending(script_), 0u);
    zelto_rvo_handle result = nullptr;
    EXPECT_EQ(table->lookup_request_get_result(request, "CNX_1", &result), 0x9004000Au);
    ASSERT_EQ(table->lookup_request_get_result(request, "CNX_1", &result), 0u);
    zelto_manager_rvo_release(result);
    table->lookup_request_release(request);
    EXPECT_STREQ(zelto_script_request_text(script_, 1),
                 "mode 1\n"
                 "add zelto_lookup_type_album CNX_1 cnx 0 -> 0x90040005\n"
                 "add zelto_lookup_type_album CNX_1 cnx 0 -> 0x90040005\n"
                 "add zelto_lookup_type_album CNX_1 cnx 0\n"
                 "data CNX_1 zelto_lookup_data_toc \"150 300\" copy 1\n"
                 "data CNX_1 zelto_lookup_data_rev \"7\" copy 1 -> 0x90040006\n"
                 "option CNX_1 zelto_lookup_option_link \"1\" -> 0x90040007\n"
                 "execute user \"alice\" -> 0x90040008\n"
                 "execute user \"alice\"\n"
                 "get_result CNX_1 -> 0x9004000A\n"
                 "get_result CNX_1\n"
                 "release\n");
    // Failed calls are not found by the lookups of successful ones.
    EXPECT_EQ(zelto_script_request_data(script_, 1, "zelto_lookup_data_rev"), nullptr);
    EXPECT_EQ(zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_RELEASE, 1, 0), ZELTO_SCRIPT_BAD_ARG);
    EXPECT_EQ(zelto_script_fail(script_, 5, 1, 0), ZELTO_SCRIPT_BAD_ARG);
    table->lookup_release(table);
}

TEST_F(ScriptTest, ForeignAndStaleRequestsAreRefused) {
    const zelto_lookup_interface *table = fetch(1);
    zelto_lookup_request request = nullptr;
    ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
    EXPECT_EQ(table->lookup_request_release(request), 0u);
    EXPECT_EQ(table->lookup_request_add(request, "t", "CNX_1", "cnx", 0), ZELTO_SCRIPT_BAD_ARG);
    EXPECT_EQ(table->lookup_request_release(request), ZELTO_SCRIPT_BAD_ARG);
    // A copy of the table is not the script's table.
    zelto_lookup_interface copy = *table;
    EXPECT_EQ(table->lookup_request_create(&copy, nullptr, nullptr, &request), ZELTO_SCRIPT_BAD_ARG);
    EXPECT_EQ(table->lookup_request_create(table, nullptr, nullptr, nullptr), ZELTO_SCRIPT_BAD_ARG);
    table->lookup_release(table);
}

TEST_F(ScriptTest, ResetForgetsEverythingAndOpenRequestsKeepWorking) {
    const zelto_lookup_interface *table = fetch(1);
    zelto_manager_tree *answer = album("A");
    zelto_script_answer(script_, answer, nullptr);
    zelto_manager_tree_release(answer);
    zelto_script_fail(script_, ZELTO_SCRIPT_SLOT_EXECUTE, 0x90040008u, 0);
    zelto_lookup_request request = nullptr;
    ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
    ASSERT_EQ(zelto_script_reset(script_), 0u);
    EXPECT_EQ(zelto_script_request_count(script_), 0u);
    EXPECT_EQ(zelto_script_answers_pending(script_), 0u);
    EXPECT_EQ(zelto_script_calls(script_, ZELTO_SCRIPT_SLOT_CREATE), 0u);
    EXPECT_EQ(table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0), 0u);
    EXPECT_EQ(table->lookup_request_execute(request, user_), 0u);
    EXPECT_EQ(zelto_script_live_requests(script_), 1u);
    EXPECT_EQ(table->lookup_request_release(request), 0u);
    EXPECT_EQ(zelto_script_live_requests(script_), 0u);
    EXPECT_EQ(zelto_script_request_text(script_, 0), nullptr);
    table->lookup_release(table);
}

TEST_F(ScriptTest, DestroyUninstallsAndDropsOpenRequests) {
    zelto_script *other = nullptr;
    ASSERT_EQ(zelto_script_create(&other), 0u);
    ASSERT_EQ(zelto_script_install(other, 1), 0u);
    EXPECT_EQ(zelto_manager_lookup_get_provider(1), zelto_script_table(other, 1));
    EXPECT_EQ(zelto_manager_lookup_get_provider(2), zelto_script_table(script_, 2));
    zelto_manager_tree *answer = album("A");
    zelto_script_answer(other, answer, nullptr);
    zelto_manager_tree_release(answer);
    int32_t refs = zelto_manager_service_refs("_zelto_lookup_interface");
    const zelto_lookup_interface *table = fetch(1);
    EXPECT_EQ(table, zelto_script_table(other, 1));
    zelto_lookup_request request = nullptr;
    ASSERT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), 0u);
    table->lookup_request_add(request, "zelto_lookup_type_album", "CNX_1", "cnx", 0);
    table->lookup_request_execute(request, user_);
    zelto_script_destroy(other);
    EXPECT_EQ(zelto_manager_lookup_get_provider(1), nullptr);
    EXPECT_EQ(zelto_manager_lookup_get_provider(2), zelto_script_table(script_, 2));
    // The table is still callable by whoever holds it.
    EXPECT_EQ(table->lookup_request_release(request), ZELTO_SCRIPT_BAD_ARG);
    EXPECT_EQ(table->lookup_request_create(table, nullptr, nullptr, &request), ZELTO_SCRIPT_BAD_ARG);
    EXPECT_EQ(zelto_script_table(other, 1), nullptr);
    table->lookup_release(table);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_lookup_interface"), refs);
    zelto_script_destroy(nullptr);
    ASSERT_EQ(zelto_script_install(script_, 1), 0u);
}

}  // namespace
