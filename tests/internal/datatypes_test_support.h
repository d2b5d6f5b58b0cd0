// Fixture and helpers shared by the container tests.
#ifndef DATATYPES_TEST_SUPPORT_H
#define DATATYPES_TEST_SUPPORT_H

#include <string>
#include <vector>

#include "cantrix_test.h"
#include "datatypes/ombr_datatypes_internal.h"

// Brings the datatypes package up around each test and checks for leaks.
class DatatypesTest : public LeakCheckedTest {
   protected:
    void SetUp() override {
        ASSERT_EQ(ombr_datatypes_initialize(), 0u);
        LeakCheckedTest::SetUp();
    }
    void TearDown() override {
        g_ombr_log_error_callback = nullptr;
        g_ombr_log_enabled_pkgs[OMBR_PKG_DATATYPES] = 0;
        g_ombr_log_enabled_pkgs[OMBR_PKG_SORT] = 0;
        LeakCheckedTest::TearDown();
        ombr_datatypes_shutdown();
    }
};

// Records the calls of the error hook and hands each status back.
struct HookRecord {
    uint32_t line;
    std::string unit;
    uint32_t status;
};
inline std::vector<HookRecord> &hook_records() {
    static std::vector<HookRecord> records;
    return records;
}
inline uint32_t recording_hook(uint32_t line, const char *unit, uint32_t status, uint32_t) {
    hook_records().push_back({line, unit ? unit : "", status});
    return status;
}
// Installs the recording hook for a package byte.
inline void install_hook(uint32_t package) {
    hook_records().clear();
    g_ombr_log_error_callback = recording_hook;
    g_ombr_log_enabled_pkgs[package] |= OMBR_LOG_ERROR;
}

// A record whose first word is not the handle's magic word.
struct FakeHandle {
    uint32_t magic = 0x0BADF00Du;
    uint32_t pad[31] = {};
    template <typename H>
    H as() {
        return reinterpret_cast<H>(this);
    }
};

#endif
