// Hash table chains with many equal keys: the record of each chain's hashes
// that the collision test relies on stays true through adds, updates and
// removals, and finds by ordinal (which go on from the last one) agree with
// a model of insertion order.
#include <random>
#include <string>
#include <vector>

#include "datatypes_test_support.h"
#include "out_param.h"

namespace {

using HashtableChains = DatatypesTest;

struct Entry {
    std::string key;
    int id;
};

// Case-insensitive key equality, as the table has it.
bool same_key(const std::string &a, const std::string &b) { return ombr_string_equal(a.c_str(), b.c_str(), 1) != 0; }

TEST_F(HashtableChains, ChainRecordsAndOrdinalFindsFollowAModel) {
    // Few keys, so that equal keys pile up and chains mix; "K0" and "k0"
    // are the same key.
    const char *keys[] = {"K0", "k0", "a", "B", "item", "ITEM", "x1", "x2", "x3"};
    std::mt19937 rng(7);
    ombr_hashtable_t table = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&table, OMBR_HASHTABLE_MULTI_VALUE, nullptr), 0u);
    std::vector<Entry> model;  // insertion order
    std::vector<int> ids(6000);
    for (int step = 0; step < 6000; ++step) {
        const std::string key = keys[rng() % std::size(keys)];
        std::vector<size_t> with_key;
        for (size_t i = 0; i < model.size(); ++i)
            if (same_key(model[i].key, key)) with_key.push_back(i);
        const uint32_t op = rng() % 10;
        if (op < 5 || with_key.empty()) {
            ids[step] = step;
            ASSERT_EQ(ombr_hashtable_value_add(table, key.c_str(), &ids[step], 4, 0), 0u);
            model.push_back({key, step});
        } else if (op < 7) {
            const uint32_t ordinal = uint32_t(rng() % with_key.size());
            void *value = nullptr;
            uint32_t size = 0;
            ASSERT_EQ(ombr_hashtable_value_remove_ex(table, key.c_str(), ordinal, &value, &size), 0u);
            EXPECT_EQ(*static_cast<int *>(value), model[with_key[ordinal]].id);
            model.erase(model.begin() + long(with_key[ordinal]));
        } else if (op < 8) {
            // An update moves the entry to the end of its key and the table.
            const uint32_t ordinal = uint32_t(rng() % with_key.size());
            ids[step] = step;
            ASSERT_EQ(ombr_hashtable_value_update_ex(table, key.c_str(), ordinal, &ids[step], 4, 0), 0u);
            Entry moved = model[with_key[ordinal]];
            moved.id = step;
            model.erase(model.begin() + long(with_key[ordinal]));
            model.push_back(moved);
        } else {
            // Finds by every ordinal in a row, then one beyond, then a few
            // at random.
            for (uint32_t ordinal = 0; ordinal <= with_key.size(); ++ordinal) {
                void *value = nullptr;
                const uint32_t status = ombr_hashtable_value_find_ex(table, key.c_str(), ordinal, &value, nullptr);
                if (ordinal == with_key.size()) {
                    EXPECT_EQ(status, OMBR_DATATYPES_NOT_FOUND);
                } else {
                    ASSERT_EQ(status, 0u);
                    EXPECT_EQ(*static_cast<int *>(value), model[with_key[ordinal]].id) << key << " #" << ordinal;
                }
            }
            for (int r = 0; r < 3; ++r) {
                const uint32_t ordinal = uint32_t(rng() % with_key.size());
                void *value = nullptr;
                ASSERT_EQ(ombr_hashtable_value_find_ex(table, key.c_str(), ordinal, &value, nullptr), 0u);
                EXPECT_EQ(*static_cast<int *>(value), model[with_key[ordinal]].id);
            }
        }
        ASSERT_EQ(out(_ombr_hashtable_check_chains, table), 0u) << "after step " << step;
    }
    EXPECT_EQ(out(ombr_hashtable_count, table), model.size());
    ombr_hashtable_delete(table);
}

TEST_F(HashtableChains, ManyEqualKeysAddAndFindInOrder) {
    ombr_hashtable_t table = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&table, OMBR_HASHTABLE_MULTI_VALUE, nullptr), 0u);
    static int ids[50000];
    for (int i = 0; i < 50000; ++i) {
        ids[i] = i;
        ASSERT_EQ(ombr_hashtable_value_add(table, i % 1000 == 999 ? "other" : "item", &ids[i], 4, 0), 0u);
    }
    ombr_hashtable_stats stats{};
    ASSERT_EQ(_ombr_hashtable_get_stats(table, &stats), 0u);
    EXPECT_EQ(stats.bucket_count, 16u);  // equal keys do not grow the table
    EXPECT_EQ(stats.collisions, 0u);
    EXPECT_EQ(out(ombr_hashtable_value_count, table, "Item"), 49950u);
    int expected = 0;
    for (uint32_t ordinal = 0;; ++ordinal, ++expected) {
        if (expected % 1000 == 999) ++expected;
        void *value = nullptr;
        if (ombr_hashtable_value_find_ex(table, "ITEM", ordinal, &value, nullptr) != 0) break;
        ASSERT_EQ(*static_cast<int *>(value), expected);
    }
    EXPECT_EQ(expected, 50000);
    ombr_hashtable_delete(table);
}

}  // namespace
