// Keys of the hash table: every scan (eight bytes a step, sixteen bytes a
// step, the in-line short form, and the one the table uses) against the
// byte-by-byte djb2, at every length across the block edges, at every
// alignment and right before an unreadable page; and the find's in-line
// path against its general one.
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "datatypes/ombr_hashtable_key.h"
#include "datatypes_test_support.h"
#include "tests/reference/reference.h"

namespace {

namespace key = ombr::dt::key;
using HashtableKey = DatatypesTest;

using reference::check_hashtable_scans;

// Every byte value at every position of keys up to 40 bytes (across the
// 8- and 16-byte edges), among neighbours at the edges of the folded range,
// each length at another alignment.
TEST_F(HashtableKey, EveryScanAgreesWithTheByteWiseHash) {
    static constexpr char kFill[] = "`az{@AZ[\x7f\x80\xe1\xfa";
    alignas(64) char buffer[64 + 48];
    for (size_t length = 0; length <= 40; ++length) {
        char *key = buffer + length % 17;
        for (size_t i = 0; i < length; ++i) key[i] = kFill[(i + length) % (sizeof kFill - 1)];
        key[length] = '\0';
        ASSERT_EQ(check_hashtable_scans(key), "");
        for (size_t at = 0; at < length; ++at) {
            const char kept = key[at];
            for (int byte = 1; byte < 256; ++byte) {
                key[at] = static_cast<char>(byte);
                ASSERT_EQ(check_hashtable_scans(key), "") << "byte " << byte << " at " << at;
            }
            key[at] = kept;
        }
    }
}

// Keys that end right before a page that cannot be read: the scans must
// not touch it, and must still agree.
TEST_F(HashtableKey, ScansStopBeforeAnUnreadablePage) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *map = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    char *guard = static_cast<char *>(map) + page;
    ASSERT_EQ(mprotect(guard, page, PROT_NONE), 0);

    ombr_hashtable_t table = nullptr;
    ASSERT_EQ(ombr_hashtable_create(&table, 0, nullptr), 0u);
    for (size_t length = 0; length <= 40; ++length) {
        std::string text;
        for (size_t i = 0; i < length; ++i) text += static_cast<char>("kEy_09az"[i % 8] + (i / 8));
        if (length > 0) {
            ASSERT_EQ(ombr_hashtable_value_add(table, text.c_str(), nullptr, 0, 0), 0u);
        }
        // The terminator on the page's last byte, and up to 24 bytes before.
        for (size_t gap = 0; gap <= 24; ++gap) {
            char *key = guard - 1 - gap - length;
            std::memcpy(key, text.c_str(), length + 1);
            ASSERT_EQ(check_hashtable_scans(key), "") << "gap " << gap;
            if (length > 0) {
                uint32_t count = 0;
                EXPECT_EQ(ombr_hashtable_value_find_ex(table, key, 0, nullptr, nullptr), 0u) << length << " " << gap;
                ASSERT_EQ(ombr_hashtable_value_count(table, key, &count), 0u);
                EXPECT_EQ(count, 1u);
            }
        }
    }
    ombr_hashtable_delete(table);
    munmap(map, 2 * page);
}

// The find of ordinal 0 in a table without a lock goes an in-line way for
// short keys; a thread-safe twin always goes the general way. Both must
// find the same entries: short and long keys, case variants with and
// without folding, keys by reference, and misses whose hash and length
// match.
TEST_F(HashtableKey, InLineFindAgreesWithTheGeneralFind) {
    // Pairs of one length and one hash: x * 33 + y = (x + 1) * 33 + (y - 33).
    // "A~" and "B]" collide folded or not; "Ab" and "BA" byte for byte only.
    const std::vector<std::string> keys = {"a", "A", "abc", "ABC", "aBc", "\xC3\xA9", "\xC3\x89", "k1234567",
                                           "K1234567", "A~", "B]", "Ab", "BA", "fifteen_bytes_x",
                                           "FIFTEEN_BYTES_X", "sixteen_bytes_xy", "sixteen_bytes_A~",
                                           "sixteen_bytes_B]", "a key that runs past two blocks"};
    ASSERT_EQ(_ombr_hashtable_genhash("A~", false), _ombr_hashtable_genhash("B]", false));
    ASSERT_EQ(_ombr_hashtable_genhash("Ab", true), _ombr_hashtable_genhash("BA", true));

    for (const uint32_t flags : {0u, uint32_t{OMBR_HASHTABLE_CASE_SENSITIVE}, uint32_t{OMBR_HASHTABLE_KEY_BY_REFERENCE},
                                 uint32_t{OMBR_HASHTABLE_CASE_SENSITIVE | OMBR_HASHTABLE_KEY_BY_REFERENCE}}) {
        ombr_hashtable_t quick = nullptr, general = nullptr;
        ASSERT_EQ(ombr_hashtable_create(&quick, flags, nullptr), 0u);
        ASSERT_EQ(ombr_hashtable_create(&general, flags | OMBR_HASHTABLE_THREADSAFE, nullptr), 0u);
        // Every other key goes in (so that one of each colliding pair is
        // missing); all are looked up.
        for (size_t i = 0; i < keys.size(); i += 2) {
            ASSERT_EQ(ombr_hashtable_value_add(quick, keys[i].c_str(), &keys[i], 8, 0), 0u);
            ASSERT_EQ(ombr_hashtable_value_add(general, keys[i].c_str(), &keys[i], 8, 0), 0u);
        }
        for (const auto &k : keys) {
            void *a = nullptr, *b = nullptr;
            const uint32_t sa = ombr_hashtable_value_find_ex(quick, k.c_str(), 0, &a, nullptr);
            const uint32_t sb = ombr_hashtable_value_find_ex(general, k.c_str(), 0, &b, nullptr);
            EXPECT_EQ(sa, sb) << "\"" << k << "\", flags " << flags;
            EXPECT_EQ(a, b) << "\"" << k << "\", flags " << flags;
        }
        ombr_hashtable_delete(quick);
        ombr_hashtable_delete(general);
    }
}

}  // namespace
