// Hash table: growth points, order, multi-value ordinals, case folding,
// deferral of replaced entries, copies and allocation failures.
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "datatypes_test_support.h"
#include "out_param.h"

namespace {

using Stats = ombr_hashtable_stats;

Stats stats_of(ombr_hashtable_t t) {
    Stats s{};
    EXPECT_EQ(_ombr_hashtable_get_stats(t, &s), 0u);
    return s;
}

uint32_t count_of(ombr_hashtable_t t) {
    uint32_t n = 0xFFFFFFFFu;
    EXPECT_EQ(ombr_hashtable_count(t, &n), 0u);
    return n;
}

std::string find_text(ombr_hashtable_t t, const char *key, uint32_t ordinal = 0) {
    void *v = nullptr;
    uint32_t size = 0;
    uint32_t st = ombr_hashtable_value_find_ex(t, key, ordinal, &v, &size);
    if (st != 0) return "<" + std::to_string(st) + ">";
    return std::string(static_cast<const char *>(v), size ? size - 1 : 0);
}

uint32_t add_text(ombr_hashtable_t t, const char *key, const char *text) {
    return ombr_hashtable_value_add(t, key, text, static_cast<uint32_t>(std::strlen(text) + 1), 1);
}

std::vector<std::string> keys_in_order(ombr_hashtable_t t) {
    std::vector<std::string> keys;
    const char *key = nullptr;
    for (uint32_t i = 0; ombr_hashtable_value_get(t, i, &key, nullptr, nullptr) == 0; ++i) keys.emplace_back(key);
    return keys;
}

// Keys of the form "k<n>" whose hashes fall in distinct buckets of a table
// of `buckets` buckets, and whose hashes all differ.
std::vector<std::string> keys_in_distinct_buckets(uint32_t how_many, uint32_t buckets) {
    std::vector<std::string> keys;
    std::set<uint32_t> used;
    for (uint32_t n = 0; keys.size() < how_many; ++n) {
        std::string key = "k" + std::to_string(n);
        uint32_t b = _ombr_hashtable_genhash(key.c_str(), false) & (buckets - 1);
        if (used.insert(b).second) keys.push_back(key);
    }
    return keys;
}

// Keys with different hashes that all fall in bucket `bucket` of 16.
std::vector<std::string> keys_in_bucket(uint32_t how_many, uint32_t bucket) {
    std::vector<std::string> keys;
    std::set<uint32_t> hashes;
    for (uint32_t n = 0; keys.size() < how_many; ++n) {
        std::string key = "c" + std::to_string(n);
        uint32_t h = _ombr_hashtable_genhash(key.c_str(), false);
        if ((h & 15) == bucket && hashes.insert(h).second) keys.push_back(key);
    }
    return keys;
}

struct FreedValues {
    static std::vector<std::string> &log() {
        static std::vector<std::string> l;
        return l;
    }
    static void record(void *value, uint32_t size) {
        log().emplace_back(static_cast<const char *>(value), size ? size - 1 : 0);
    }
};

class HashtableTest : public DatatypesTest {
   protected:
    void SetUp() override {
        DatatypesTest::SetUp();
        FreedValues::log().clear();
    }
};

TEST_F(HashtableTest, HashIsDjb2WithAsciiUpperCaseFold) {
    // 5381 * 33 + 'A'
    EXPECT_EQ(_ombr_hashtable_genhash("A", false), 177638u);
    EXPECT_EQ(_ombr_hashtable_genhash("a", false), 177638u);
    EXPECT_EQ(_ombr_hashtable_genhash("a", true), 177670u);
    EXPECT_EQ(_ombr_hashtable_genhash("AB", false), 177638u * 33 + 66);
    // Bytes above 127 do not fold.
    EXPECT_NE(_ombr_hashtable_genhash("\xC3\xA9", false), _ombr_hashtable_genhash("\xC3\x89", false));
}

TEST_F(HashtableTest, FirstGrowthAtLoadTwelveWithSixteenBuckets) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, nullptr), 0u);
    EXPECT_EQ(stats_of(t).bucket_count, 0u);
    auto keys = keys_in_distinct_buckets(13, 16);
    for (int i = 0; i < 12; ++i) {
        ASSERT_EQ(add_text(t, keys[i].c_str(), "v"), 0u);
        EXPECT_EQ(stats_of(t).bucket_count, 16u) << "after " << i + 1 << " adds";
    }
    EXPECT_EQ(stats_of(t).used_buckets, 12u);
    EXPECT_EQ(stats_of(t).collisions, 0u);
    // Load 12: (12 * 4) / 3 = 16 >= 16, so the 13th add doubles first.
    ASSERT_EQ(add_text(t, keys[12].c_str(), "v"), 0u);
    EXPECT_EQ(stats_of(t).bucket_count, 32u);
    EXPECT_EQ(count_of(t), 13u);
    // The re-add kept the insertion order and every entry is still found.
    EXPECT_EQ(keys_in_order(t), keys);
    for (auto &k : keys) EXPECT_EQ(find_text(t, k.c_str()), "v");
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, CollisionsCountMixedChainsAndSurviveClear) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, nullptr), 0u);
    auto chain = keys_in_bucket(4, 3);
    ASSERT_EQ(add_text(t, chain[0].c_str(), "0"), 0u);
    ASSERT_EQ(add_text(t, chain[1].c_str(), "1"), 0u);  // chain of one: never counts
    EXPECT_EQ(stats_of(t).collisions, 0u);
    EXPECT_EQ(stats_of(t).used_buckets, 1u);
    ASSERT_EQ(add_text(t, chain[2].c_str(), "2"), 0u);
    EXPECT_EQ(stats_of(t).collisions, 1u);
    ASSERT_EQ(add_text(t, chain[3].c_str(), "3"), 0u);  // counted once per add
    EXPECT_EQ(stats_of(t).collisions, 2u);
    EXPECT_EQ(stats_of(t).used_buckets, 1u);

    // Removal does not lower collisions; the chain stays intact.
    EXPECT_EQ(ombr_hashtable_value_delete(t, chain[1].c_str()), 0u);
    EXPECT_EQ(stats_of(t).collisions, 2u);
    EXPECT_EQ(find_text(t, chain[2].c_str()), "2");
    EXPECT_EQ(find_text(t, chain[3].c_str()), "3");
    EXPECT_EQ(ombr_hashtable_value_delete(t, chain[3].c_str()), 0u);  // the chain's tail
    ASSERT_EQ(add_text(t, chain[1].c_str(), "1b"), 0u);
    EXPECT_EQ(find_text(t, chain[1].c_str()), "1b");

    EXPECT_EQ(ombr_hashtable_clear(t), 0u);
    Stats s = stats_of(t);
    EXPECT_EQ(s.bucket_count, 16u);
    EXPECT_EQ(s.used_buckets, 0u);
    EXPECT_EQ(s.collisions, 3u);
    EXPECT_EQ(count_of(t), 0u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, RefillingAfterClearStillGrows) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, nullptr), 0u);
    // Twelve keys in one bucket: 1 used bucket + 10 collisions = load 11.
    auto chain = keys_in_bucket(12, 5);
    for (auto &k : chain) ASSERT_EQ(add_text(t, k.c_str(), "x"), 0u);
    EXPECT_EQ(stats_of(t).bucket_count, 16u);
    EXPECT_EQ(stats_of(t).collisions, 10u);
    EXPECT_EQ(ombr_hashtable_clear(t), 0u);
    // Clear keeps the collisions: two keys in fresh buckets bring the load
    // to 12, and the third add grows, where an unused table needs twelve.
    auto fresh = keys_in_distinct_buckets(3, 16);
    for (int i = 0; i < 2; ++i) ASSERT_EQ(add_text(t, fresh[i].c_str(), "y"), 0u);
    EXPECT_EQ(stats_of(t).bucket_count, 16u);
    ASSERT_EQ(add_text(t, fresh[2].c_str(), "y"), 0u);
    EXPECT_EQ(stats_of(t).bucket_count, 32u);
    EXPECT_EQ(stats_of(t).collisions, 0u);  // the resize recounts
    EXPECT_EQ(count_of(t), 3u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, ManyKeysGrowFindAndReadInOrder) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, FreedValues::record), 0u);
    const int n = 20000;
    for (int i = 0; i < n; ++i) {
        std::string k = "key" + std::to_string(i);
        ASSERT_EQ(add_text(t, k.c_str(), std::to_string(i * 7).c_str()), 0u);
    }
    EXPECT_EQ(count_of(t), uint32_t(n));
    Stats s = stats_of(t);
    EXPECT_EQ(s.bucket_count & (s.bucket_count - 1), 0u);
    EXPECT_GT(s.bucket_count * 3, (s.used_buckets + s.collisions) * 3 / 4);
    for (int i = 0; i < n; i += 97) EXPECT_EQ(find_text(t, ("KEY" + std::to_string(i)).c_str()), std::to_string(i * 7));
    const char *key = nullptr;
    void *v = nullptr;
    uint32_t size = 0;
    for (int i = 0; i < n; ++i) {
        ASSERT_EQ(ombr_hashtable_value_get(t, uint32_t(i), &key, &v, &size), 0u);
        ASSERT_EQ(std::string(key), "key" + std::to_string(i));
    }
    EXPECT_EQ(ombr_hashtable_value_get(t, uint32_t(n), &key, &v, &size), 0x100D0361u);
    for (int i = 0; i < n; i += 2) ASSERT_EQ(ombr_hashtable_value_delete(t, ("key" + std::to_string(i)).c_str()), 0u);
    EXPECT_EQ(count_of(t), uint32_t(n / 2));
    EXPECT_EQ(FreedValues::log().size(), size_t(n / 2));
    ASSERT_EQ(ombr_hashtable_value_get(t, 0, &key, nullptr, nullptr), 0u);
    EXPECT_STREQ(key, "key1");
    EXPECT_EQ(find_text(t, "key2"), "<" + std::to_string(0x100D0003u) + ">");
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
    EXPECT_EQ(FreedValues::log().size(), size_t(n));
}

TEST_F(HashtableTest, UpdateMovesEntryToTheEnd) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, FreedValues::record), 0u);
    ASSERT_EQ(add_text(t, "a", "1"), 0u);
    ASSERT_EQ(add_text(t, "b", "2"), 0u);
    ASSERT_EQ(add_text(t, "c", "3"), 0u);
    ASSERT_EQ(add_text(t, "A", "10"), 0u);  // replaces "a"
    EXPECT_EQ(count_of(t), 3u);
    EXPECT_EQ(keys_in_order(t), (std::vector<std::string>{"b", "c", "a"}));  // the stored key text stays
    EXPECT_EQ(find_text(t, "a"), "10");
    EXPECT_EQ(FreedValues::log(), std::vector<std::string>{"1"});
    ASSERT_EQ(ombr_hashtable_value_update_ex(t, "B", 0, "20", 3, 1), 0u);
    EXPECT_EQ(keys_in_order(t), (std::vector<std::string>{"c", "a", "b"}));
    EXPECT_EQ(ombr_hashtable_value_update_ex(t, "b", 1, "x", 2, 1), 0x100D0003u);
    EXPECT_EQ(ombr_hashtable_value_update_ex(t, "zz", 0, "x", 2, 1), 0x100D0003u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, MultiValueOrdinals) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_MULTI_VALUE | OMBR_HASHTABLE_NO_REPLACE, nullptr), 0u);
    ASSERT_EQ(add_text(t, "k", "first"), 0u);
    ASSERT_EQ(add_text(t, "other", "o"), 0u);
    ASSERT_EQ(add_text(t, "K", "second"), 0u);  // no-replace is ignored with multi-value
    ASSERT_EQ(add_text(t, "k", "third"), 0u);
    EXPECT_EQ(out(ombr_hashtable_value_count, t, "k"), 3u);
    EXPECT_EQ(find_text(t, "k", 0), "first");
    EXPECT_EQ(find_text(t, "k", 2), "third");
    EXPECT_EQ(find_text(t, "k", 3), "<" + std::to_string(0x100D0003u) + ">");
    // Updating ordinal 0 moves that value behind the others.
    ASSERT_EQ(ombr_hashtable_value_update_ex(t, "k", 0, "first*", 7, 1), 0u);
    EXPECT_EQ(find_text(t, "k", 0), "second");
    EXPECT_EQ(find_text(t, "k", 1), "third");
    EXPECT_EQ(find_text(t, "k", 2), "first*");
    // Delete kills the first entry of the key.
    ASSERT_EQ(ombr_hashtable_value_delete(t, "k"), 0u);
    EXPECT_EQ(find_text(t, "k", 0), "third");
    EXPECT_EQ(keys_in_order(t), (std::vector<std::string>{"other", "k", "k"}));
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, CaseFoldingCoversAsciiOnly) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, nullptr), 0u);
    ASSERT_EQ(add_text(t, "Abc", "1"), 0u);
    ASSERT_EQ(add_text(t, "aBC", "2"), 0u);
    EXPECT_EQ(count_of(t), 1u);
    EXPECT_EQ(find_text(t, "ABC"), "2");
    ASSERT_EQ(add_text(t, "caf\xC3\xA9", "lower"), 0u);
    ASSERT_EQ(add_text(t, "CAF\xC3\x89", "upper"), 0u);  // differs above 127
    EXPECT_EQ(count_of(t), 3u);
    EXPECT_EQ(find_text(t, "Caf\xC3\xA9"), "lower");
    // '[' (0x5B) and '{' (0x7B) differ by 32 but are not letters.
    ASSERT_EQ(add_text(t, "[", "bracket"), 0u);
    EXPECT_EQ(find_text(t, "{"), "<" + std::to_string(0x100D0003u) + ">");
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);

    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_CASE_SENSITIVE, nullptr), 0u);
    ASSERT_EQ(add_text(t, "Abc", "1"), 0u);
    ASSERT_EQ(add_text(t, "abc", "2"), 0u);
    EXPECT_EQ(count_of(t), 2u);
    EXPECT_EQ(find_text(t, "Abc"), "1");
    EXPECT_EQ(find_text(t, "ABC"), "<" + std::to_string(0x100D0003u) + ">");
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, NoReplaceRefusesExistingKey) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_NO_REPLACE, nullptr), 0u);
    ASSERT_EQ(add_text(t, "k", "1"), 0u);
    EXPECT_EQ(add_text(t, "K", "2"), 0x900D0368u);
    EXPECT_EQ(find_text(t, "k"), "1");
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, ReadByPositionUsesAndResetsTheCursor) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, nullptr), 0u);
    for (int i = 0; i < 8; ++i) ASSERT_EQ(add_text(t, ("p" + std::to_string(i)).c_str(), std::to_string(i).c_str()), 0u);
    const char *key = nullptr;
    void *v = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(ombr_hashtable_value_get(t, 5, &key, &v, &size), 0u);
    EXPECT_STREQ(key, "p5");
    EXPECT_STREQ(static_cast<const char *>(v), "5");
    EXPECT_EQ(size, 2u);
    ASSERT_EQ(ombr_hashtable_value_get(t, 3, &key, nullptr, nullptr), 0u);  // behind the cursor
    EXPECT_STREQ(key, "p3");
    ASSERT_EQ(ombr_hashtable_value_get(t, 3, &key, nullptr, nullptr), 0u);  // at the cursor
    EXPECT_STREQ(key, "p3");
    ASSERT_EQ(ombr_hashtable_value_delete(t, "p0"), 0u);  // shifts positions, resets the cursor
    ASSERT_EQ(ombr_hashtable_value_get(t, 3, &key, nullptr, nullptr), 0u);
    EXPECT_STREQ(key, "p4");
    key = "untouched";
    EXPECT_EQ(ombr_hashtable_value_get(t, 7, &key, &v, &size), 0x100D0361u);
    EXPECT_STREQ(key, "untouched");
    EXPECT_EQ(ombr_hashtable_clear(t), 0u);
    EXPECT_EQ(ombr_hashtable_value_get(t, 0, &key, &v, &size), 0x100D0361u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, ArgumentAndHandleChecks) {
    ombr_hashtable_t t = nullptr;
    uint32_t n = 0;
    void *v = nullptr;
    FakeHandle fake;
    auto bad = fake.as<ombr_hashtable_t>();
    EXPECT_EQ(ombr_hashtable_create(nullptr, 0, nullptr), 0x900D0001u);
    ASSERT_EQ(ombr_hashtable_create(&t, 0, nullptr), 0u);
    // Find in a table that never held an entry: soft not found.
    EXPECT_EQ(ombr_hashtable_value_find_ex(t, "any", 0, &v, nullptr), 0x100D0003u);
    EXPECT_EQ(out(ombr_hashtable_value_count, t, "any"), 0u);
    int data = 7;
    EXPECT_EQ(ombr_hashtable_value_add(t, "k", nullptr, 4, 1), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_add(t, "k", &data, 0, 0), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_add(t, "", &data, 4, 1), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_add(t, nullptr, &data, 4, 1), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_add(nullptr, "k", &data, 4, 1), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_add(bad, "k", &data, 4, 1), 0x900D0321u);
    EXPECT_EQ(count_of(t), 0u);
    // A key with no value at all is an entry without value.
    EXPECT_EQ(ombr_hashtable_value_add(t, "empty", nullptr, 0, 1), 0u);
    uint32_t size = 9;
    v = &data;
    EXPECT_EQ(out(ombr_hashtable_value_find_ex, t, "empty", 0, &v), 0u);
    EXPECT_EQ(v, nullptr);

    EXPECT_EQ(ombr_hashtable_value_find_ex(nullptr, "k", 0, &v, nullptr), 0x100D0003u);
    EXPECT_EQ(ombr_hashtable_value_find_ex(t, "", 0, &v, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_find_ex(bad, "k", 0, &v, nullptr), 0x900D0321u);
    EXPECT_EQ(ombr_hashtable_count(t, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_count(nullptr, &n), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_count(bad, &n), 0x900D0321u);
    EXPECT_EQ(ombr_hashtable_value_count(t, "k", nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_count(t, nullptr, &n), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_count(nullptr, "k", &n), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_get(nullptr, 0, nullptr, nullptr, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_get(bad, 0, nullptr, nullptr, nullptr), 0x900D0321u);
    EXPECT_EQ(ombr_hashtable_value_delete(t, ""), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_value_delete(t, "missing"), 0x100D0003u);
    EXPECT_EQ(ombr_hashtable_value_remove_ex(t, "missing", 0, &v, &size), 0x100D0003u);
    EXPECT_EQ(ombr_hashtable_value_update_ex(nullptr, "k", 0, &data, 4, 1), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_clear(nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_clear(bad), 0x900D0321u);
    EXPECT_EQ(ombr_hashtable_copy(nullptr, &t), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_copy(t, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_hashtable_delete(bad), 0x900D0321u);
    EXPECT_EQ(ombr_hashtable_delete(nullptr), 0u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, CreateNeedsThePackage) {
    ombr_datatypes_shutdown();
    ombr_hashtable_t t = nullptr;
    EXPECT_EQ(ombr_hashtable_create(&t, 0, nullptr), 0x900D0007u);
    EXPECT_EQ(t, nullptr);
    ASSERT_EQ(ombr_datatypes_initialize(), 0u);
}

TEST_F(HashtableTest, RemoveHandsOverByReferenceValuesOnly) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, 0, FreedValues::record), 0u);
    static char owned[] = "mine";
    ASSERT_EQ(ombr_hashtable_value_add(t, "ref", owned, 5, 0), 0u);
    ASSERT_EQ(add_text(t, "copy", "copied"), 0u);
    void *v = nullptr;
    EXPECT_EQ(out(ombr_hashtable_value_remove_ex, t, "REF", 0, &v), 5u);
    EXPECT_EQ(v, static_cast<void *>(owned));
    EXPECT_TRUE(FreedValues::log().empty());
    v = owned;
    EXPECT_EQ(out(ombr_hashtable_value_remove_ex, t, "copy", 0, &v), 0u);
    EXPECT_EQ(v, nullptr);
    EXPECT_EQ(FreedValues::log(), std::vector<std::string>{"copied"});
    EXPECT_EQ(count_of(t), 0u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, KeysByReferenceAreNotCopied) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_KEY_BY_REFERENCE, nullptr), 0u);
    static const char key[] = "caller-owned";
    ASSERT_EQ(add_text(t, key, "v"), 0u);
    const char *got = nullptr;
    ASSERT_EQ(ombr_hashtable_value_get(t, 0, &got, nullptr, nullptr), 0u);
    EXPECT_EQ(got, key);
    ASSERT_EQ(add_text(t, "CALLER-OWNED", "w"), 0u);  // update keeps the caller's key
    ASSERT_EQ(ombr_hashtable_value_get(t, 0, &got, nullptr, nullptr), 0u);
    EXPECT_EQ(got, key);
    EXPECT_EQ(find_text(t, key), "w");
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, ThreadSafeTableDefersReplacedEntriesThatWereRead) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_THREADSAFE, FreedValues::record), 0u);
    ASSERT_EQ(add_text(t, "k", "old"), 0u);
    void *held = nullptr;
    ASSERT_EQ(ombr_hashtable_value_find_ex(t, "k", 0, &held, nullptr), 0u);
    ASSERT_EQ(add_text(t, "k", "new"), 0u);
    // The earlier pointer still reads the old value (the sanitizer build
    // would flag a freed block).
    EXPECT_STREQ(static_cast<const char *>(held), "old");
    EXPECT_EQ(stats_of(t).deferred, 1u);
    EXPECT_TRUE(FreedValues::log().empty());
    // An entry that nobody read dies at once.
    ASSERT_EQ(add_text(t, "k", "newer"), 0u);
    EXPECT_EQ(stats_of(t).deferred, 1u);
    EXPECT_EQ(FreedValues::log(), std::vector<std::string>{"new"});
    // Read by position marks an entry as well.
    ASSERT_EQ(ombr_hashtable_value_get(t, 0, nullptr, &held, nullptr), 0u);
    ASSERT_EQ(add_text(t, "k", "newest"), 0u);
    EXPECT_EQ(stats_of(t).deferred, 2u);
    EXPECT_STREQ(static_cast<const char *>(held), "newer");
    EXPECT_EQ(count_of(t), 1u);
    // Clear frees the deferred entries and runs the callback on them.
    EXPECT_EQ(ombr_hashtable_clear(t), 0u);
    EXPECT_EQ(stats_of(t).deferred, 0u);
    EXPECT_EQ(FreedValues::log(), (std::vector<std::string>{"new", "newest", "newer", "old"}));
    ASSERT_EQ(add_text(t, "k", "again"), 0u);
    ASSERT_EQ(ombr_hashtable_value_find_ex(t, "k", 0, &held, nullptr), 0u);
    ASSERT_EQ(add_text(t, "k", "again2"), 0u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);  // delete frees deferred entries too

    // Free-at-once and tables without the flag never defer.
    for (uint32_t flags : {OMBR_HASHTABLE_THREADSAFE | OMBR_HASHTABLE_FREE_AT_ONCE, 0u}) {
        ASSERT_EQ(ombr_hashtable_create(&t, flags, nullptr), 0u);
        ASSERT_EQ(add_text(t, "k", "old"), 0u);
        ASSERT_EQ(ombr_hashtable_value_find_ex(t, "k", 0, &held, nullptr), 0u);
        ASSERT_EQ(add_text(t, "k", "new"), 0u);
        EXPECT_EQ(stats_of(t).deferred, 0u);
        EXPECT_EQ(ombr_hashtable_delete(t), 0u);
    }
}

TEST_F(HashtableTest, ThreadSafeTableUnderConcurrentWriters) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_THREADSAFE, nullptr), 0u);
    on_threads(4, [t](int w) {
        for (int i = 0; i < 2000; ++i) {
            std::string k = "w" + std::to_string(w) + "_" + std::to_string(i);
            ombr_hashtable_value_add(t, k.c_str(), k.c_str(), uint32_t(k.size() + 1), 1);
            void *v = nullptr;
            ombr_hashtable_value_find_ex(t, k.c_str(), 0, &v, nullptr);
            ombr_hashtable_value_get(t, uint32_t(i), nullptr, nullptr, nullptr);
        }
    });
    EXPECT_EQ(count_of(t), 8000u);
    for (int w = 0; w < 4; ++w)
        for (int i = 0; i < 2000; i += 111) {
            std::string k = "w" + std::to_string(w) + "_" + std::to_string(i);
            EXPECT_EQ(find_text(t, k.c_str()), k);
        }
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, CopyKeepsOrderFlagsAndSharesReferences) {
    ombr_hashtable_t src = nullptr, dst = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&src, OMBR_HASHTABLE_MULTI_VALUE, FreedValues::record), 0u);
    static char shared[] = "shared";
    ASSERT_EQ(add_text(src, "b", "1"), 0u);
    ASSERT_EQ(ombr_hashtable_value_add(src, "a", shared, 7, 0), 0u);
    ASSERT_EQ(add_text(src, "b", "2"), 0u);
    ASSERT_EQ(ombr_hashtable_copy(src, &dst), 0u);
    ASSERT_NE(dst, nullptr);
    EXPECT_EQ(keys_in_order(dst), (std::vector<std::string>{"b", "a", "b"}));
    EXPECT_EQ(stats_of(dst).bucket_count, stats_of(src).bucket_count);
    ASSERT_EQ(add_text(dst, "b", "3"), 0u);  // still multi-value
    EXPECT_EQ(find_text(dst, "b", 2), "3");
    void *v = nullptr, *w = nullptr;
    ASSERT_EQ(ombr_hashtable_value_find_ex(src, "b", 0, &v, nullptr), 0u);
    ASSERT_EQ(ombr_hashtable_value_find_ex(dst, "b", 0, &w, nullptr), 0u);
    EXPECT_NE(v, w);  // copied values are copied again
    ASSERT_EQ(ombr_hashtable_value_find_ex(dst, "a", 0, &w, nullptr), 0u);
    EXPECT_EQ(w, static_cast<void *>(shared));
    for (auto item : {dst, src}) EXPECT_EQ(ombr_hashtable_delete(item), 0u);
    // Both tables handed the shared value to the callback.
    std::multiset<std::string> freed(FreedValues::log().begin(), FreedValues::log().end());
    EXPECT_EQ(freed.count("shared"), 2u);
    EXPECT_EQ(freed.count("1"), 2u);
    EXPECT_EQ(freed.count("3"), 1u);

    // A table that never held an entry copies to an empty table.
    ASSERT_EQ(ombr_hashtable_create(&src, 0, nullptr), 0u);
    dst = nullptr;
    ASSERT_EQ(ombr_hashtable_copy(src, &dst), 0u);
    ASSERT_NE(dst, nullptr);
    EXPECT_EQ(count_of(dst), 0u);
    for (auto item : {dst, src}) EXPECT_EQ(ombr_hashtable_delete(item), 0u);
}

TEST_F(HashtableTest, ErrorHookSeesFailuresOnly) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_NO_REPLACE, nullptr), 0u);
    ASSERT_EQ(add_text(t, "k", "v"), 0u);
    install_hook(OMBR_PKG_DATATYPES);
    EXPECT_EQ(ombr_hashtable_value_find_ex(t, "missing", 0, nullptr, nullptr), 0x100D0003u);
    EXPECT_EQ(ombr_hashtable_value_get(t, 4, nullptr, nullptr, nullptr), 0x100D0361u);
    EXPECT_TRUE(hook_records().empty());
    EXPECT_EQ(add_text(t, "k", "w"), 0x900D0368u);
    ASSERT_EQ(hook_records().size(), 1u);
    EXPECT_EQ(hook_records()[0].unit, "ombr_hashtable");
    EXPECT_EQ(hook_records()[0].status, 0x900D0368u);
    EXPECT_GT(hook_records()[0].line, 0u);
    // What the hook returns is what the function returns.
    g_ombr_log_error_callback = [](uint32_t, const char *, uint32_t, uint32_t) -> uint32_t { return 0x900D0999u; };
    EXPECT_EQ(ombr_hashtable_count(t, nullptr), 0x900D0999u);
    // A package whose error bit is off is not hooked.
    g_ombr_log_enabled_pkgs[OMBR_PKG_DATATYPES] = 0;
    EXPECT_EQ(ombr_hashtable_count(t, nullptr), 0x900D0001u);
    g_ombr_log_error_callback = nullptr;
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

// ---- Allocation failures ----------------------------------------------------

TEST_F(HashtableTest, AllocationFailureInAdd) {
    // Fails each allocation of a first add (array, entry) and of a growing add.
    auto keys = keys_in_distinct_buckets(13, 16);
    uint64_t runs = for_each_allocation_failure([&](uint64_t n) {
        ombr_hashtable_t t = nullptr;
        zelto_manager_memory_fail_nth(0);
        ASSERT_EQ(ombr_hashtable_create(&t, 0, FreedValues::record), 0u);
        zelto_manager_memory_fail_nth(n);
        for (int i = 0; i < 12; ++i) {
            uint32_t st = add_text(t, keys[i].c_str(), "v");
            if (st != 0) {
                EXPECT_EQ(st, 0x900D0002u);
                EXPECT_EQ(count_of(t), uint32_t(i));
                ASSERT_EQ(add_text(t, keys[i].c_str(), "v"), 0u);  // still usable
            }
        }
        uint32_t st = add_text(t, keys[12].c_str(), "v");
        // A failed growth keeps the old array: the add still succeeds.
        if (st == 0) {
            EXPECT_EQ(stats_of(t).bucket_count, n == 15 ? 16u : 32u);
            EXPECT_EQ(count_of(t), 13u);
            for (auto &k : keys) EXPECT_EQ(find_text(t, k.c_str()), "v");
        } else {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_EQ(count_of(t), 12u);
        }
        // The caller's value never reaches the callback on a failed add.
        for (auto &f : FreedValues::log()) EXPECT_NE(f, "v");
        EXPECT_EQ(ombr_hashtable_delete(t), 0u);
        FreedValues::log().clear();
    });
    EXPECT_EQ(runs, 15u);  // 12 entries, first array, 13th entry, grown array
}

TEST_F(HashtableTest, AllocationFailureInUpdate) {
    ombr_hashtable_t t = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&t, OMBR_HASHTABLE_MULTI_VALUE, nullptr), 0u);
    ASSERT_EQ(add_text(t, "k", "a"), 0u);
    ASSERT_EQ(add_text(t, "k", "b"), 0u);
    uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        uint32_t st = ombr_hashtable_value_update_ex(t, "k", 0, "c", 2, 1);
        if (st != 0) {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_EQ(find_text(t, "k", 0), "a");
            EXPECT_EQ(find_text(t, "k", 1), "b");
        } else {
            EXPECT_EQ(find_text(t, "k", 1), "c");
        }
    });
    EXPECT_EQ(runs, 1u);
    EXPECT_EQ(count_of(t), 2u);
    EXPECT_EQ(ombr_hashtable_delete(t), 0u);
}

TEST_F(HashtableTest, AllocationFailureInCopyIsQuiet) {
    ombr_hashtable_t src = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&src, 0, FreedValues::record), 0u);
    const std::vector<std::string> keys{"one", "two", "three"};
    for (auto &k : keys) ASSERT_EQ(add_text(src, k.c_str(), k.c_str()), 0u);
    // Allocations: record, array, then one per entry.
    std::vector<std::vector<std::string>> outcomes;
    uint64_t runs = for_each_allocation_failure([&](uint64_t n) {
        ombr_hashtable_t dst = nullptr;
        uint32_t st = ombr_hashtable_copy(src, &dst);
        if (n <= 2) {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_EQ(dst, nullptr);
            return;
        }
        // Entry failures are quiet: status 0.
        EXPECT_EQ(st, 0u);
        if (n == 5) {
            EXPECT_EQ(dst, nullptr) << "a failing last entry drops the copy";
        } else if (n < 5) {
            ASSERT_NE(dst, nullptr) << "an earlier failing entry is skipped";
            std::vector<std::string> expect = keys;
            expect.erase(expect.begin() + long(n - 3));
            EXPECT_EQ(keys_in_order(dst), expect);
        } else {
            ASSERT_NE(dst, nullptr);
            EXPECT_EQ(keys_in_order(dst), keys);
        }
        EXPECT_EQ(ombr_hashtable_delete(dst), 0u);
    });
    EXPECT_EQ(runs, 5u);
    // Discarded copies ran no callback; the source is intact.
    std::multiset<std::string> freed(FreedValues::log().begin(), FreedValues::log().end());
    // Copies handed out: run 3 (two, three), run 4 (one, three), the full
    // run 6 (one, two, three).
    EXPECT_EQ(freed.count("one"), 2u);
    EXPECT_EQ(freed.count("two"), 2u);
    EXPECT_EQ(freed.count("three"), 3u);
    EXPECT_EQ(keys_in_order(src), keys);
    for (auto &k : keys) EXPECT_EQ(find_text(src, k.c_str()), k);
    EXPECT_EQ(ombr_hashtable_delete(src), 0u);
}

}  // namespace
