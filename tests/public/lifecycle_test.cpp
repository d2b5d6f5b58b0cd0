// Bring-up and take-down of the module, the public entry pattern and the
// query handle's life.
#include <string>
#include <vector>

#include "log_capture.h"
#include "module_fixture.h"
#include "zelto/zelto_host_services.h"

namespace {

const char *const kFetchedTables[] = {
    "_zelto_errorinfo_interface", "_zelto_handlemanager_interface", "_zelto_userinfo_interface",
    "_zelto_rvo_interface",       "_zelto_listmanager_interface",   "_zelto_serialization_interface",
};

TEST(Lifecycle, VersionAndDateWorkWhileDown) {
    EXPECT_STREQ(zelto_cantrix_get_version(), "3.2.0.422");
    EXPECT_STREQ(zelto_cantrix_get_build_date(), "2013-01-08 07:56-0800");
    EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
}

TEST(Lifecycle, InitialiseTwiceShutDownTwice) {
    LogCapture log({0x81, 0x31});
    uint32_t mem = zelto_manager_memory_init_count();
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    EXPECT_STREQ(zelto_manager_package_name(129), "ZELTO CNX");
    int32_t refs = zelto_manager_service_refs(nullptr);
    // The six required tables, and signal processing where the host has it.
    EXPECT_EQ(refs, zelto_manager_dsp_table() ? 7 : 6);
    uint32_t mem_up = zelto_manager_memory_init_count();
    EXPECT_GT(mem_up, mem);

    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    EXPECT_EQ(zelto_cantrix_initchecks(), 2u);
    EXPECT_EQ(zelto_manager_service_refs(nullptr), refs);  // no second bring-up
    EXPECT_EQ(zelto_manager_memory_init_count(), mem_up);

    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
    EXPECT_EQ(zelto_cantrix_initchecks(), 1u);
    EXPECT_EQ(zelto_manager_service_refs(nullptr), refs);  // tables stay until the last shutdown
    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
    EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
    EXPECT_EQ(zelto_manager_service_refs(nullptr), 0);
    EXPECT_EQ(zelto_manager_memory_init_count(), mem);

    // Each initialise logs to 0x81 and 0x31, each shutdown likewise.
    std::vector<std::string> texts;
    for (auto &m : log.messages) {
        EXPECT_EQ(m.line, 0u);
        EXPECT_EQ(m.unit, "(null)");
        EXPECT_EQ(m.level, OMBR_LOG_NOTICE);
        texts.push_back(std::to_string(m.package) + ":" + m.text);
    }
    const std::string init = "Cantrix Initialize: Version 3.2.0.422  Built 2013-01-08 07:56-0800";
    std::vector<std::string> expected = {"129:" + init, "49:" + init, "129:" + init, "49:" + init,
                                         "129:Cantrix Shutdown", "49:Cantrix Shutdown",
                                         "129:Cantrix Shutdown", "49:Cantrix Shutdown"};
    EXPECT_EQ(texts, expected);
    EXPECT_TRUE(log.errors.empty());

    // The lock record was reset: the module comes up again.
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
}

TEST(Lifecycle, BadManagerTables) {
    LogCapture log({0x81});
    EXPECT_EQ(zelto_cantrix_initialize(nullptr), 0x90810001u);
    zelto_manager_table bad = *zelto_manager_get_table();
    bad.magic = 0x1EEEEEE2u;
    EXPECT_EQ(zelto_cantrix_initialize(&bad), 0x90810320u);
    bad = *zelto_manager_get_table();
    bad.version = "3.2.1";
    EXPECT_EQ(zelto_cantrix_initialize(&bad), 0x90810320u);
    bad.version = "3.2.0 ";
    EXPECT_EQ(zelto_cantrix_initialize(&bad), 0x90810320u);
    EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
    ASSERT_EQ(log.errors.size(), 4u);
    for (auto &e : log.errors) {
        EXPECT_EQ(e.line, 0u);
        EXPECT_EQ(e.unit, "zelto_cantrix_initialize");
    }
    EXPECT_EQ(log.errors[0].package, 0x90810001u);
    EXPECT_EQ(log.errors[1].package, 0x90810320u);
}

TEST(Lifecycle, FailedBringUpAtEachTableLeavesModuleDown) {
    int64_t blocks = zelto_manager_memory_live_blocks();
    uint32_t mem = zelto_manager_memory_init_count();
    for (const char *name : kFetchedTables) {
        SCOPED_TRACE(name);
        zelto_manager_services_reset();
        zelto_manager_service_enable(name, 0);
        LogCapture log({0x81, 0x07});
        EXPECT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0x9081000au);
        EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
        EXPECT_EQ(zelto_manager_service_refs(nullptr), 0);  // tables fetched so far were given back
        EXPECT_EQ(zelto_manager_memory_init_count(), mem);  // base packages taken down again
        // The failing step's status goes to the hook with the source unit,
        // then the caller's status with the function's name.
        ASSERT_EQ(log.errors.size(), 2u);
        EXPECT_EQ(log.errors[0].unit, "zelto_cantrix");
        EXPECT_EQ(log.errors[0].package, ZELTO_MANAGER_NO_SERVICE);
        EXPECT_GT(log.errors[0].line, 0u);
        EXPECT_EQ(log.errors[1].unit, "zelto_cantrix_initialize");
        EXPECT_EQ(log.errors[1].package, 0x9081000au);
    }
    zelto_manager_services_reset();
    zelto_manager_register_fail(0x90070001u);
    EXPECT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0x9081000au);
    zelto_manager_register_fail(0);
    zelto_manager_memory_fail_initialize(1);
    EXPECT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0x9081000au);
    zelto_manager_memory_fail_initialize(0);
    EXPECT_EQ(zelto_manager_memory_init_count(), mem);

    // A later initialise works.
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
}

TEST(Lifecycle, MissingSignalProcessingIsNoFailure) {
    zelto_manager_services_reset();
    zelto_manager_service_enable("_zelto_dsp_interface", 0);
    ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
    EXPECT_EQ(zelto_manager_service_refs("_zelto_dsp_interface"), 0);
    EXPECT_EQ(zelto_manager_service_refs(nullptr), 6);
    EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
    EXPECT_EQ(zelto_manager_service_refs(nullptr), 0);
    zelto_manager_services_reset();
}

TEST(Lifecycle, ShutdownWhileDown) {
    LogCapture log({0x81, 0x31});
    uint64_t info_calls = zelto_manager_errorinfo_calls();
    EXPECT_EQ(zelto_cantrix_shutdown(), 0x90810007u);
    ASSERT_EQ(log.messages.size(), 2u);
    EXPECT_EQ(log.messages[0].text, "Cantrix Shutdown");
    EXPECT_EQ(log.messages[0].package, 0x81u);
    EXPECT_EQ(log.messages[1].package, 0x31u);
    ASSERT_EQ(log.errors.size(), 1u);
    EXPECT_EQ(log.errors[0].unit, "zelto_cantrix_shutdown");
    EXPECT_EQ(log.errors[0].line, 0u);
    EXPECT_EQ(zelto_manager_errorinfo_calls(), info_calls);  // no error-information call
}

TEST(Lifecycle, PublicFunctionsRefuseWhileDown) {
    LogCapture log({0x81});
    uint64_t info_calls = zelto_manager_errorinfo_calls();
    zelto_cantrix_query_handle query = nullptr;
    zelto_user *user = nullptr;
    ASSERT_EQ(zelto_manager_user_create("u", &user), 0u);
    EXPECT_EQ(zelto_cantrix_query_create(user, nullptr, nullptr, &query), 0x90810007u);
    EXPECT_EQ(query, nullptr);
    EXPECT_EQ(zelto_cantrix_query_release(nullptr), 0x90810007u);
    EXPECT_EQ(zelto_manager_errorinfo_calls(), info_calls);
    ASSERT_EQ(log.errors.size(), 2u);
    EXPECT_EQ(log.errors[0].unit, "zelto_cantrix_query_create");
    EXPECT_EQ(log.errors[1].unit, "zelto_cantrix_query_release");
    zelto_manager_user_release(user);
}

class QueryHandleTest : public ModuleTest {};

struct CallbackLog {
    std::vector<uint32_t> statuses;
    std::vector<uint32_t> nested_release;
    bool release_inside = false;
};

void record_callback(void *data, zelto_cantrix_query_handle query, uint32_t status, uint32_t v1, uint32_t v2,
                     uint8_t *abort) {
    auto *log = static_cast<CallbackLog *>(data);
    log->statuses.push_back(status);
    EXPECT_EQ(v1, 0u);
    EXPECT_EQ(v2, 0u);
    ASSERT_NE(abort, nullptr);
    EXPECT_EQ(*abort, 0);
    if (log->release_inside) log->nested_release.push_back(zelto_cantrix_query_release(query));
}

TEST_F(QueryHandleTest, CreateAndReleaseWithReleaseCallback) {
    CallbackLog calls;
    zelto_cantrix_query_handle query = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, record_callback, &calls, &query), 0u);
    ASSERT_NE(query, nullptr);
    EXPECT_EQ(zelto_manager_user_refcount(user_), 2u);
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, nullptr, nullptr), 0u);  // success clears the record

    // A release from inside the 999 call is refused as busy; the outer one completes.
    calls.release_inside = true;
    LogCapture log({0x81});
    EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
    EXPECT_EQ(calls.statuses, std::vector<uint32_t>{999u});
    EXPECT_EQ(calls.nested_release, std::vector<uint32_t>{0x90810006u});
    const char *function = nullptr, *message = nullptr;
    uint32_t source = 0;
    EXPECT_EQ(zelto_manager_errorinfo_get(&source, &function, &message), 0x90810006u);
    EXPECT_STREQ(function, "zelto_cantrix_query_release");
    EXPECT_STREQ(message, "Cannot call zelto_cantrix_query_release within own callback");
    ASSERT_EQ(log.errors.size(), 1u);
    EXPECT_EQ(log.errors[0].package, 0x90810006u);
    EXPECT_EQ(log.errors[0].line, 0u);
    EXPECT_EQ(log.errors[0].unit, "zelto_cantrix_query_release");

    // The handle is gone: validation refuses it (mapped manager status).
    EXPECT_EQ(zelto_cantrix_query_release(query), 0x90810321u);
    EXPECT_EQ(zelto_manager_errorinfo_get(&source, &function, nullptr), 0x90810321u);
    EXPECT_EQ(source, 0x90090321u);
    EXPECT_STREQ(function, "zelto_cantrix_query_release");
    ASSERT_EQ(log.errors.size(), 2u);
    EXPECT_EQ(log.errors[1].unit, "zelto_cantrix");
    EXPECT_GT(log.errors[1].line, 0u);
}

TEST_F(QueryHandleTest, CreateArgumentsAndUserHandle) {
    LogCapture log({0x81});
    zelto_cantrix_query_handle query = nullptr;
    EXPECT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, nullptr), 0x90810001u);
    const char *function = nullptr;
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, &function, nullptr), 0x90810001u);
    EXPECT_STREQ(function, "zelto_cantrix_query_create");
    EXPECT_EQ(zelto_cantrix_query_create(nullptr, nullptr, nullptr, &query), 0x90810001u);
    int not_a_user = 0;
    EXPECT_EQ(zelto_cantrix_query_create(&not_a_user, nullptr, nullptr, &query), 0x90810321u);
    EXPECT_EQ(query, nullptr);
    ASSERT_EQ(log.errors.size(), 3u);
    EXPECT_EQ(log.errors[0].unit, "zelto_cantrix_query_create");
    EXPECT_EQ(log.errors[0].line, 0u);
    EXPECT_EQ(log.errors[1].unit, "zelto_cantrix");
    EXPECT_GT(log.errors[1].line, 0u);

    // The hook's return value is what the caller sees.
    log.error_override = 0x90810099u;
    EXPECT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, nullptr), 0x90810099u);

    // Without a callback, release makes no call; release of null is success.
    ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &query), 0u);
    EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
    EXPECT_EQ(zelto_cantrix_query_release(nullptr), 0u);
}

TEST_F(QueryHandleTest, AllocationFailureAtEveryStepOfCreate) {
    uint64_t failures = for_each_allocation_failure([&](uint64_t) {
        zelto_cantrix_query_handle query = nullptr;
        uint32_t status = zelto_cantrix_query_create(user_, nullptr, nullptr, &query);
        if (zelto_manager_memory_failure_fired()) {
            EXPECT_EQ(status, 0x90810002u);
            EXPECT_EQ(query, nullptr);
            EXPECT_EQ(zelto_manager_user_refcount(user_), 1u);
            EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks_up_);
        } else {
            ASSERT_EQ(status, 0u);
            EXPECT_EQ(zelto_cantrix_query_release(query), 0u);
        }
    });
    EXPECT_EQ(failures, 2u);  // the record and its critical section
}

}  // namespace
