// String map: text values with their terminator, the value check on reads,
// copies and allocation failures.
#include <cstring>
#include <string>
#include <vector>

#include "datatypes_test_support.h"
#include "out_param.h"

namespace {

using StringmapTest = DatatypesTest;

uint32_t count_of(ombr_stringmap_t m) {
    uint32_t n = 0xFFFFFFFFu;
    EXPECT_EQ(ombr_stringmap_count(m, &n), 0u);
    return n;
}

std::vector<std::string> entries_of(ombr_stringmap_t m) {
    std::vector<std::string> out;
    const char *key = nullptr, *value = nullptr;
    for (uint32_t i = 0; ombr_stringmap_value_get(m, i, &key, &value) == 0; ++i)
        out.push_back(std::string(key) + "=" + (value ? value : "<null>"));
    return out;
}

TEST_F(StringmapTest, AddFindReplaceAndOrder) {
    ombr_stringmap_t m = nullptr;
    ASSERT_EQ(ombr_stringmap_create(&m, 0), 0u);
    ASSERT_EQ(ombr_stringmap_value_add(m, "k", "a"), 0u);
    ASSERT_EQ(ombr_stringmap_value_add(m, "other", "o"), 0u);
    ASSERT_EQ(ombr_stringmap_value_add(m, "K", "b"), 0u);
    EXPECT_EQ(count_of(m), 2u);
    const char *v = nullptr;
    EXPECT_EQ(out(ombr_stringmap_value_find, m, "k"), "b");
    EXPECT_EQ(entries_of(m), (std::vector<std::string>{"other=o", "k=b"}));
    // The empty text is stored with its terminator (size 1).
    ASSERT_EQ(ombr_stringmap_value_add(m, "empty", ""), 0u);
    void *raw = nullptr;
    EXPECT_EQ(out(ombr_hashtable_value_find_ex, _ombr_stringmap_get_table(m), "empty", 0, &raw), 1u);
    EXPECT_EQ(out(ombr_stringmap_value_find, m, "EMPTY"), "");
    // A null value is found with status 0 and a null output.
    ASSERT_EQ(ombr_stringmap_value_add(m, "none", nullptr), 0u);
    EXPECT_EQ(out(ombr_stringmap_value_find, m, "none"), "<null>");
    EXPECT_EQ(ombr_stringmap_value_find(m, "none", nullptr), 0u);
    v = "untouched";
    EXPECT_EQ(ombr_stringmap_value_find(m, "missing", &v), 0x100D0003u);
    EXPECT_STREQ(v, "untouched");
    EXPECT_EQ(ombr_stringmap_value_get(m, 4, nullptr, &v), 0x100D0361u);
    ASSERT_EQ(ombr_stringmap_value_delete(m, "OTHER"), 0u);
    EXPECT_EQ(ombr_stringmap_value_delete(m, "other"), 0x100D0003u);
    EXPECT_EQ(entries_of(m), (std::vector<std::string>{"k=b", "empty=", "none=<null>"}));
    ASSERT_EQ(ombr_stringmap_clear(m), 0u);
    EXPECT_EQ(count_of(m), 0u);
    EXPECT_EQ(ombr_stringmap_delete(m), 0u);
}

TEST_F(StringmapTest, ValueCheckRefusesEntriesThatAreNotTexts) {
    ombr_stringmap_t m = nullptr;
    ASSERT_EQ(ombr_stringmap_create(&m, 0), 0u);
    ombr_hashtable_t table = _ombr_stringmap_get_table(m);
    ASSERT_NE(table, nullptr);
    // Three bytes without a terminator, planted below the map.
    ASSERT_EQ(ombr_hashtable_value_add(table, "raw", "abc", 3, 1), 0u);
    const char *v = "untouched";
    const char *key = "untouched";
    EXPECT_EQ(ombr_stringmap_value_find(m, "raw", &v), 0x900D0360u);
    EXPECT_EQ(ombr_stringmap_value_get(m, 0, &key, &v), 0x900D0360u);
    EXPECT_STREQ(v, "untouched");
    EXPECT_STREQ(key, "untouched");
    // A terminator inside the value does not help: the last byte decides.
    ASSERT_EQ(ombr_hashtable_value_add(table, "inner", "a\0b", 3, 1), 0u);
    EXPECT_EQ(ombr_stringmap_value_find(m, "inner", &v), 0x900D0360u);
    ASSERT_EQ(ombr_hashtable_value_add(table, "ok", "ab", 3, 1), 0u);
    EXPECT_EQ(out(ombr_stringmap_value_find, m, "ok"), "ab");
    EXPECT_EQ(ombr_stringmap_delete(m), 0u);

    // By reference the map keeps the caller's text and its size at add time:
    // a text that lost its terminator is refused.
    ASSERT_EQ(ombr_stringmap_create(&m, OMBR_STRINGMAP_VALUE_BY_REFERENCE), 0u);
    char text[] = "abc";
    ASSERT_EQ(ombr_stringmap_value_add(m, "k", text), 0u);
    ASSERT_EQ(ombr_stringmap_value_find(m, "k", &v), 0u);
    EXPECT_EQ(v, text);
    text[3] = 'd';
    EXPECT_EQ(ombr_stringmap_value_find(m, "k", &v), 0x900D0360u);
    text[3] = '\0';
    text[1] = '\0';  // shorter text, last byte still the terminator
    EXPECT_EQ(out(ombr_stringmap_value_find, m, "k"), "a");
    EXPECT_EQ(ombr_stringmap_delete(m), 0u);
}

TEST_F(StringmapTest, ArgumentAndHandleChecks) {
    ombr_stringmap_t m = nullptr;
    uint32_t n = 0;
    FakeHandle fake;
    auto bad = fake.as<ombr_stringmap_t>();
    EXPECT_EQ(ombr_stringmap_create(nullptr, 0), 0x900D0001u);
    ASSERT_EQ(ombr_stringmap_create(&m, 0), 0u);
    EXPECT_EQ(ombr_stringmap_value_add(m, "", "v"), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_value_add(m, nullptr, "v"), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_value_add(nullptr, "k", "v"), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_value_add(bad, "k", "v"), 0x900D0321u);
    EXPECT_EQ(ombr_stringmap_value_find(nullptr, "k", nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_value_find(bad, "k", nullptr), 0x900D0321u);
    EXPECT_EQ(ombr_stringmap_value_get(nullptr, 0, nullptr, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_count(m, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_count(nullptr, &n), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_count(bad, &n), 0x900D0321u);
    EXPECT_EQ(ombr_stringmap_clear(bad), 0x900D0321u);
    EXPECT_EQ(ombr_stringmap_value_delete(nullptr, "k"), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_copy(nullptr, &m), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_copy(m, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_stringmap_delete(bad), 0x900D0321u);
    EXPECT_EQ(ombr_stringmap_delete(nullptr), 0u);
    EXPECT_EQ(ombr_stringmap_delete(m), 0u);

    ombr_datatypes_shutdown();
    m = nullptr;
    EXPECT_EQ(ombr_stringmap_create(&m, 0), 0x900D0007u);
    EXPECT_EQ(m, nullptr);
    ASSERT_EQ(ombr_datatypes_initialize(), 0u);
}

TEST_F(StringmapTest, ErrorHookNamesTheUnit) {
    ombr_stringmap_t m = nullptr;
    ASSERT_EQ(ombr_stringmap_create(&m, 0), 0u);
    install_hook(OMBR_PKG_DATATYPES);
    EXPECT_EQ(ombr_stringmap_value_find(m, "missing", nullptr), 0x100D0003u);
    EXPECT_TRUE(hook_records().empty());
    EXPECT_EQ(ombr_stringmap_count(m, nullptr), 0x900D0001u);
    ASSERT_EQ(hook_records().size(), 1u);
    EXPECT_EQ(hook_records()[0].unit, "ombr_stringmap");
    hook_records().clear();
    // A failure of the table passes through both units.
    EXPECT_EQ(ombr_stringmap_value_add(m, "", "v"), 0x900D0001u);
    ASSERT_EQ(hook_records().size(), 2u);
    EXPECT_EQ(hook_records()[0].unit, "ombr_hashtable");
    EXPECT_EQ(hook_records()[1].unit, "ombr_stringmap");
    g_ombr_log_error_callback = nullptr;
    EXPECT_EQ(ombr_stringmap_delete(m), 0u);
}

TEST_F(StringmapTest, CopyIsIndependent) {
    ombr_stringmap_t m = nullptr, c = nullptr;
    ASSERT_EQ(ombr_stringmap_create(&m, 0), 0u);
    ASSERT_EQ(ombr_stringmap_value_add(m, "a", "1"), 0u);
    ASSERT_EQ(ombr_stringmap_value_add(m, "b", nullptr), 0u);
    ASSERT_EQ(ombr_stringmap_copy(m, &c), 0u);
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(ombr_stringmap_value_add(m, "a", "changed"), 0u);
    EXPECT_EQ(entries_of(c), (std::vector<std::string>{"a=1", "b=<null>"}));
    ASSERT_EQ(ombr_stringmap_value_add(c, "A", "2"), 0u);  // same flags: replaces regardless of case
    EXPECT_EQ(count_of(c), 2u);
    for (auto item : {c, m}) EXPECT_EQ(ombr_stringmap_delete(item), 0u);
}

TEST_F(StringmapTest, AllocationFailures) {
    // Create: record, table record.
    uint64_t runs = for_each_allocation_failure([](uint64_t) {
        ombr_stringmap_t m = nullptr;
        uint32_t st = ombr_stringmap_create(&m, 0);
        if (st != 0) {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_EQ(m, nullptr);
        } else {
            EXPECT_EQ(ombr_stringmap_delete(m), 0u);
        }
    });
    EXPECT_EQ(runs, 2u);

    ombr_stringmap_t m = nullptr;
    ASSERT_EQ(ombr_stringmap_create(&m, 0), 0u);
    ASSERT_EQ(ombr_stringmap_value_add(m, "a", "1"), 0u);
    // Add of a new key (entry) and replacement of an existing one (entry).
    std::string current = "1";
    runs = for_each_allocation_failure([&](uint64_t n) {
        uint32_t st = ombr_stringmap_value_add(m, "b", "2");
        if (st != 0) {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_EQ(count_of(m), 1u);
        }
        std::string next = "r" + std::to_string(n);
        st = ombr_stringmap_value_add(m, "a", next.c_str());
        if (st == 0)
            current = next;
        else
            EXPECT_EQ(st, 0x900D0002u);
        const char *v = nullptr;
        ASSERT_EQ(ombr_stringmap_value_find(m, "a", &v), 0u);
        EXPECT_EQ(std::string(v), current);
    });
    EXPECT_EQ(runs, 2u);
    EXPECT_EQ(count_of(m), 2u);
    EXPECT_EQ(current, "r3");

    // Copy: map record, table record, array, two entries. A failing last
    // entry drops the copy quietly.
    runs = for_each_allocation_failure([&](uint64_t n) {
        ombr_stringmap_t c = nullptr;
        uint32_t st = ombr_stringmap_copy(m, &c);
        if (n <= 3) {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_EQ(c, nullptr);
        } else {
            EXPECT_EQ(st, 0u);
            if (n == 5) {
                EXPECT_EQ(c, nullptr);
            }
            if (n == 4) {
                ASSERT_NE(c, nullptr);
                EXPECT_EQ(entries_of(c), std::vector<std::string>{"a=r3"});
            }
        }
        EXPECT_EQ(ombr_stringmap_delete(c), 0u);
    });
    EXPECT_EQ(runs, 5u);
    EXPECT_EQ(entries_of(m), (std::vector<std::string>{"b=2", "a=r3"}));
    EXPECT_EQ(ombr_stringmap_delete(m), 0u);
}

}  // namespace
