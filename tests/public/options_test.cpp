// Query options: value tests, defaults, case rules, shared bits and the
// write-only keys.
#include <string>

#include "log_capture.h"
#include "module_fixture.h"
#include "out_param.h"

namespace {

class OptionsTest : public WithQuery<ModuleTest> {
   protected:
    uint32_t set(const char *key, const char *value) { return zelto_cantrix_query_option_set(query_, key, value); }
    std::string get(const char *key, uint32_t expect_status = 0) {
        const char *value = reinterpret_cast<const char *>(0x1);
        EXPECT_EQ(zelto_cantrix_query_option_get(query_, key, &value), expect_status) << key;
        if (expect_status != 0) {
            EXPECT_EQ(value, reinterpret_cast<const char *>(0x1)) << "out value written on failure";
            return "<failed>";
        }
        return value ? value : "<null>";
    }
};

TEST_F(OptionsTest, DefaultsOfAFreshQuery) {
    EXPECT_EQ(get("zelto_cantrix_option_lookupmode"), "<null>");  // user without a mode option
    EXPECT_EQ(get("zelto_cantrix_result_range_start"), "1");
    EXPECT_EQ(get("zelto_cantrix_result_range_size"), "<null>");
    EXPECT_EQ(get("zelto_cantrix_preferred_lang"), "<null>");
    for (const char *key : {"zelto_cantrix_option_enable_classical", "zelto_cantrix_option_enable_globalids",
                            "zelto_cantrix_option_enable_dsp", "zelto_cantrix_option_enable_sonic",
                            "zelto_cantrix_option_enable_playlist", "zelto_cantrix_option_enable_link",
                            "zelto_query_option_enable_aim", "zelto_cantrix_single_result",
                            "zelto_cantrix_result_prefer_xid", "zelto_cantrix_result_prefer_coverart",
                            "zelto_cantrix_option_revision_check"})
        EXPECT_EQ(get(key), "false") << key;
    // Write-only keys and unknown keys cannot be read.
    EXPECT_EQ(get("zelto_cantrix_option_search_preset", 0x90810001u), "<failed>");
    EXPECT_EQ(get("zelto_cantrix_option_output", 0x90810001u), "<failed>");
    EXPECT_EQ(get("zelto_cantrix_option_additional_credits", 0x90810001u), "<failed>");
    EXPECT_EQ(get("zelto_cantrix_no_such_option", 0x90810001u), "<failed>");
}

TEST_F(OptionsTest, WriteOnlyKeysAreStoredButNotReadable) {
    EXPECT_EQ(set("zelto_cantrix_option_output", "xml"), 0u);
    EXPECT_EQ(set("zelto_cantrix_option_search_preset", "preset1"), 0u);
    EXPECT_EQ(set("zelto_cantrix_option_additional_credits", "true"), 0u);
    EXPECT_EQ(get("zelto_cantrix_option_output", 0x90810001u), "<failed>");
    EXPECT_EQ(get("zelto_cantrix_option_search_preset", 0x90810001u), "<failed>");
}

TEST_F(OptionsTest, RangeValueTests) {
    EXPECT_EQ(set("zelto_cantrix_result_range_start", "0"), 0x90810361u);
    EXPECT_EQ(set("zelto_cantrix_result_range_start", "-5"), 0x90810361u);
    EXPECT_EQ(set("zelto_cantrix_result_range_start", "abc"), 0x90810361u);
    EXPECT_EQ(set("zelto_cantrix_result_range_start", nullptr), 0x90810361u);
    EXPECT_EQ(get("zelto_cantrix_result_range_start"), "1");  // refused values leave no trace
    EXPECT_EQ(set("zelto_cantrix_result_range_start", "3x"), 0u);
    EXPECT_EQ(get("zelto_cantrix_result_range_start"), "3x");  // stored as given
    EXPECT_EQ(set("zelto_cantrix_result_range_size", "0"), 0x90810361u);
    EXPECT_EQ(set("zelto_cantrix_result_range_size", "25"), 0u);
    EXPECT_EQ(get("zelto_cantrix_result_range_size"), "25");
    EXPECT_EQ(set("zelto_cantrix_result_range_size", "30"), 0u);  // a second set replaces the first
    EXPECT_EQ(get("zelto_cantrix_result_range_size"), "30");
}

TEST_F(OptionsTest, LookupModeMindsCase) {
    EXPECT_EQ(set("zelto_cantrix_option_lookupmode", "zelto_lookupmode_local"), 0u);
    EXPECT_EQ(get("zelto_cantrix_option_lookupmode"), "zelto_lookupmode_local");
    {
        LogCapture log({0x81});
        EXPECT_EQ(set("zelto_cantrix_option_lookupmode", "ZELTO_LOOKUPMODE_LOCAL"), 0x90810001u);
        // Reported twice: by the value test with its source line, then at the exit.
        ASSERT_EQ(log.errors.size(), 2u);
        EXPECT_EQ(log.errors[0].unit, "zelto_cantrix");
        EXPECT_GT(log.errors[0].line, 0u);
        EXPECT_EQ(log.errors[1].unit, "zelto_cantrix_query_option_set");
        EXPECT_EQ(log.errors[1].line, 0u);
    }
    EXPECT_EQ(set("zelto_cantrix_option_lookupmode", nullptr), 0x90810001u);
    EXPECT_EQ(set("zelto_cantrix_option_lookupmode", "zelto_lookupmode_online_nocache"), 0u);
    EXPECT_EQ(get("zelto_cantrix_option_lookupmode"), "zelto_lookupmode_online_nocache");
}

TEST_F(OptionsTest, KeysIgnoreCase) {
    EXPECT_EQ(set("ZELTO_CANTRIX_SINGLE_RESULT", "yes"), 0u);
    EXPECT_EQ(get("zelto_cantrix_single_result"), "yes");  // not normalised
    EXPECT_EQ(get("Zelto_Cantrix_Single_Result"), "yes");
}

TEST_F(OptionsTest, UnknownKeyAndArguments) {
    uint64_t calls = zelto_manager_errorinfo_calls();
    {
        LogCapture log({0x81});
        EXPECT_EQ(set("", "1"), 0x90810001u);  // hook only
        EXPECT_EQ(set(nullptr, "1"), 0x90810001u);
        EXPECT_EQ(zelto_manager_errorinfo_calls(), calls);
        ASSERT_EQ(log.errors.size(), 2u);
        EXPECT_EQ(log.errors[0].unit, "zelto_cantrix_query_option_set");
    }
    EXPECT_EQ(set("zelto_cantrix_unknown", "1"), 0x90810001u);
    const char *function = nullptr, *message = nullptr;
    EXPECT_EQ(zelto_manager_errorinfo_get(nullptr, &function, &message), 0x90810001u);
    EXPECT_STREQ(function, "zelto_cantrix_query_option_set");
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(zelto_cantrix_query_option_get(query_, "zelto_cantrix_single_result", nullptr), 0x90810001u);
    EXPECT_EQ(zelto_cantrix_query_option_get(query_, "", nullptr), 0x90810001u);
    const char *value = nullptr;
    EXPECT_EQ(zelto_cantrix_query_option_get(nullptr, "zelto_cantrix_single_result", &value), 0x90810001u);
    EXPECT_EQ(zelto_cantrix_query_option_set(nullptr, "zelto_cantrix_single_result", "1"), 0x90810001u);
}

TEST_F(OptionsTest, LanguageMustBeKnownToTheListService) {
    EXPECT_EQ(set("zelto_cantrix_preferred_lang", "Klingonish"), 0x9081000cu);
    EXPECT_EQ(get("zelto_cantrix_preferred_lang"), "<null>");
    EXPECT_EQ(set("zelto_cantrix_preferred_lang", "ger"), 0u);
    EXPECT_EQ(get("zelto_cantrix_preferred_lang"), "ger");
}

TEST_F(OptionsTest, UserLookupModeIsTakenAtCreation) {
    ASSERT_EQ(zelto_manager_user_option_set(user_, "zelto_useroption_lookup_mode", "anything at all"), 0u);
    zelto_cantrix_query_handle other = nullptr;
    ASSERT_EQ(zelto_cantrix_query_create(user_, nullptr, nullptr, &other), 0u);
    // unchecked
    EXPECT_EQ(out(zelto_cantrix_query_option_get, other, "zelto_cantrix_option_lookupmode"), "anything at all");
    EXPECT_EQ(zelto_cantrix_query_release(other), 0u);
}

TEST_F(OptionsTest, AllocationFailureLeavesTheQueryUsable) {
    for_each_allocation_failure([&](uint64_t) {
        uint32_t status = set("zelto_cantrix_result_range_size", "12");
        if (zelto_manager_memory_failure_fired())
            EXPECT_EQ(status, 0x90810002u);
        else
            EXPECT_EQ(status, 0u);
    });
    EXPECT_EQ(get("zelto_cantrix_result_range_size"), "12");
}

}  // namespace
