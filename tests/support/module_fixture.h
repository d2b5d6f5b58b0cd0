// Fixture that brings the module up against the reference host with one
// user, and checks on the way out that nothing was leaked: heap blocks,
// handles, service table references and user references.
#ifndef MODULE_FIXTURE_H
#define MODULE_FIXTURE_H

#include <cstdio>
#include <string>

#include "cantrix_test.h"
#include "zelto/zelto_cantrix.h"
#include "zelto/zelto_manager.h"

// The error information recorded by the last public call:
// "MAPPED/SOURCE function | message", the statuses in hex.
inline std::string last_error() {
    const char *function = nullptr, *message = nullptr;
    uint32_t source = 0;
    const uint32_t mapped = zelto_manager_errorinfo_get(&source, &function, &message);
    char head[32];
    std::snprintf(head, sizeof head, "%08X/%08X", mapped, source);
    return std::string(head) + " " + (function ? function : "(null)") + " | " + (message ? message : "(null)");
}

class ModuleTest : public ::testing::Test {
   protected:
    void SetUp() override {
        zelto_manager_services_reset();
        before_initialize();
        blocks_before_ = zelto_manager_memory_live_blocks();
        handles_before_ = zelto_manager_handle_count();
        ASSERT_EQ(zelto_cantrix_initialize(zelto_manager_get_table()), 0u);
        blocks_up_ = zelto_manager_memory_live_blocks();
        ASSERT_EQ(zelto_manager_user_create("test-user", &user_), 0u);
    }
    void TearDown() override {
        zelto_manager_memory_fail_nth(0);
        EXPECT_EQ(zelto_manager_user_refcount(user_), 1u) << "user references left behind";
        zelto_manager_user_release(user_);
        EXPECT_EQ(zelto_cantrix_shutdown(), 0u);
        EXPECT_EQ(zelto_cantrix_initchecks(), 0u);
        EXPECT_EQ(zelto_manager_service_refs(nullptr), 0) << "service tables not given back";
        EXPECT_EQ(zelto_manager_handle_count(), handles_before_) << "query handles left registered";
        EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks_before_) << "heap blocks leaked";
        zelto_manager_services_reset();
    }

    // Runs after the services are reset and before the module comes up.
    virtual void before_initialize() {}

    zelto_user *user_ = nullptr;
    int64_t blocks_before_ = 0;
    int64_t blocks_up_ = 0;  // with the module up (its packages hold a few blocks)
    uint32_t handles_before_ = 0;
};

// Adds one query, without status callback, created for the fixture's user
// and released before the fixture's own checks.
template <typename Base>
class WithQuery : public Base {
   protected:
    void SetUp() override {
        Base::SetUp();
        ASSERT_EQ(zelto_cantrix_query_create(this->user_, nullptr, nullptr, &query_), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(zelto_cantrix_query_release(query_), 0u);
        Base::TearDown();
    }
    zelto_cantrix_query_handle query_ = nullptr;
};

#endif
