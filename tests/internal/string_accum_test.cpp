// The string accumulator: living in a caller's buffer, moving to the heap,
// detaching, and leaving its text intact when memory runs out.
#include <cstring>

#include "cantrix_test.h"
#include "out_param.h"
#include "string/ombr_string_internal.h"

namespace {

constexpr uint32_t kRecord = sizeof(ombr_string_accum);

bool inside(const void *p, const void *buffer, size_t size) {
    auto *b = static_cast<const char *>(buffer);
    auto *q = static_cast<const char *>(p);
    return q >= b && q < b + size;
}

class StringAccum : public LeakCheckedTest {};

TEST_F(StringAccum, CallerBufferHoldsRecordAndTextWithoutHeap) {
    alignas(ombr_string_accum) char buffer[64];
    std::memset(buffer, 0xAA, sizeof buffer);
    int64_t blocks = zelto_manager_memory_live_blocks();

    ombr_string_accum_t acc = nullptr;
    ASSERT_EQ(ombr_string_accum_create(&acc, buffer, sizeof buffer), 0u);
    EXPECT_EQ(static_cast<void *>(acc), static_cast<void *>(buffer));
    EXPECT_EQ(acc->capacity, sizeof buffer - kRecord);
    EXPECT_EQ(acc->data, buffer + kRecord);
    EXPECT_EQ(acc->record_on_heap, 0);
    EXPECT_EQ(acc->data_on_heap, 0);
    for (size_t i = kRecord; i < sizeof buffer; ++i) ASSERT_EQ(buffer[i], 0) << "byte " << i;

    EXPECT_EQ(out(ombr_string_accum_bytelen, acc), 0u);  // empty reports 0, not 1

    const char *data = nullptr;
    ASSERT_EQ(ombr_string_accum_append(acc, "abc", &data), 0u);
    ASSERT_EQ(ombr_string_accum_append(acc, nullptr, &data), 0u);  // null appends nothing
    ASSERT_EQ(ombr_string_accum_append(acc, "de", &data), 0u);
    EXPECT_STREQ(data, "abcde");
    EXPECT_TRUE(inside(data, buffer, sizeof buffer));
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);

    EXPECT_EQ(out(ombr_string_accum_bytelen, acc), 6u);
    const char *got = nullptr;
    ASSERT_EQ(ombr_string_accum_get_string(acc, &got, nullptr), 0u);
    EXPECT_EQ(got, data);
    EXPECT_EQ(out(ombr_string_accum_get_string, acc, nullptr), 6u);

    ASSERT_EQ(ombr_string_accum_clear(acc), 0u);
    EXPECT_EQ(out(ombr_string_accum_get_string, acc, &got), 0u);
    EXPECT_STREQ(got, "");
    EXPECT_EQ(acc->capacity, sizeof buffer - kRecord);  // clear keeps the memory
    EXPECT_EQ(ombr_string_accum_delete(acc), 0u);
}

TEST_F(StringAccum, GrowthMovesTextToHeapAndDeleteLeavesCallerRecord) {
    alignas(ombr_string_accum) char buffer[kRecord + 8];
    int64_t blocks = zelto_manager_memory_live_blocks();
    ombr_string_accum_t acc = nullptr;
    ASSERT_EQ(ombr_string_accum_create(&acc, buffer, sizeof buffer), 0u);
    const char *data = nullptr;
    ASSERT_EQ(ombr_string_accum_append(acc, "1234567", &data), 0u);  // 7 + 1 fills the 8 bytes
    EXPECT_TRUE(inside(data, buffer, sizeof buffer));

    ASSERT_EQ(ombr_string_accum_append(acc, "89", &data), 0u);
    EXPECT_FALSE(inside(data, buffer, sizeof buffer));
    EXPECT_STREQ(data, "123456789");
    EXPECT_EQ(acc->data_on_heap, 1);
    EXPECT_EQ(acc->record_on_heap, 0);
    EXPECT_EQ(acc->capacity, 20u);  // need (7 + 2 + 1) doubled
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks + 1);

    // Further growth reallocates the heap block.
    EXPECT_EQ(out(ombr_string_accum_append, acc, "abcdefghijklmnop"), "123456789abcdefghijklmnop");
    EXPECT_EQ(acc->capacity, 52u);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks + 1);

    ASSERT_EQ(ombr_string_accum_delete(acc), 0u);
    EXPECT_EQ(zelto_manager_memory_live_blocks(), blocks);
}

TEST_F(StringAccum, BufferNoLargerThanRecordGivesHeapRecord) {
    alignas(ombr_string_accum) char buffer[kRecord];
    ombr_string_accum_t acc = nullptr;
    ASSERT_EQ(ombr_string_accum_create(&acc, buffer, sizeof buffer), 0u);
    EXPECT_NE(static_cast<void *>(acc), static_cast<void *>(buffer));
    EXPECT_EQ(acc->record_on_heap, 1);
    EXPECT_EQ(acc->data_on_heap, 1);
    EXPECT_EQ(acc->capacity, kRecord + 1);  // size + 1 bytes of data
    ASSERT_EQ(ombr_string_accum_delete(acc), 0u);

    // No buffer and size 0: a record with no data at all until the first append.
    ASSERT_EQ(ombr_string_accum_create(&acc, nullptr, 0), 0u);
    EXPECT_EQ(acc->data, nullptr);
    EXPECT_EQ(acc->capacity, 0u);
    const char *data = nullptr;
    ASSERT_EQ(ombr_string_accum_append(acc, "", &data), 0u);
    ASSERT_NE(data, nullptr);
    EXPECT_STREQ(data, "");  // terminated once something was appended
    ASSERT_EQ(ombr_string_accum_delete(acc), 0u);
}

TEST_F(StringAccum, AppendCharsAndBytes) {
    ombr_string_accum_t acc = nullptr;
    ASSERT_EQ(ombr_string_accum_create(&acc, nullptr, 4), 0u);
    const char *data = nullptr;
    // Whole characters: 'a', 'é' (2 bytes), '€' (3 bytes).
    EXPECT_EQ(out(ombr_string_accum_append_chars, acc, "a\xC3\xA9\xE2\x82\xACx", 3), "a\xC3\xA9\xE2\x82\xAC");
    // Zero characters: nothing happens, output not written.
    const char *untouched = "sentinel";
    ASSERT_EQ(ombr_string_accum_append_chars(acc, "zz", 0, &untouched), 0u);
    EXPECT_STREQ(untouched, "sentinel");
    // An invalid character stops the count; asking for more than there is stops at the end.
    ASSERT_EQ(ombr_string_accum_append_chars(acc, "b\xC3z", 5, &data), 0u);
    EXPECT_EQ(out(ombr_string_accum_append_chars, acc, "cd", 10), "a\xC3\xA9\xE2\x82\xAC" "bcd");

    ASSERT_EQ(ombr_string_accum_clear(acc), 0u);
    ASSERT_EQ(ombr_string_accum_append_bytes(acc, "xy\0z", 4, &data), 0u);  // bytes, NUL included
    EXPECT_EQ(std::memcmp(data, "xy\0z", 5), 0);
    EXPECT_EQ(out(ombr_string_accum_bytelen, acc), 5u);
    ASSERT_EQ(ombr_string_accum_append_bytes(acc, "q", 0, &untouched), 0u);
    EXPECT_STREQ(untouched, "sentinel");
    data = nullptr;
    ASSERT_EQ(ombr_string_accum_append_bytes(acc, nullptr, 3, &data), 0u);  // nothing appended, output written
    EXPECT_EQ(data, acc->data);
    EXPECT_EQ(out(ombr_string_accum_bytelen, acc), 5u);
    ASSERT_EQ(ombr_string_accum_delete(acc), 0u);
}

TEST_F(StringAccum, AppendingItsOwnTextWhileGrowing) {
    alignas(ombr_string_accum) char buffer[kRecord + 8];
    ombr_string_accum_t acc = nullptr;
    ASSERT_EQ(ombr_string_accum_create(&acc, buffer, sizeof buffer), 0u);
    const char *data = nullptr;
    ASSERT_EQ(ombr_string_accum_append(acc, "abcde", &data), 0u);
    ASSERT_EQ(ombr_string_accum_append(acc, data, &data), 0u);  // moves to the heap meanwhile
    EXPECT_STREQ(data, "abcdeabcde");
    ASSERT_EQ(ombr_string_accum_append_bytes(acc, data + 2, 3, &data), 0u);
    EXPECT_STREQ(data, "abcdeabcdecde");
    ASSERT_EQ(ombr_string_accum_delete(acc), 0u);
}

TEST_F(StringAccum, DetachHandsOverTextAndLeavesAccumulatorEmpty) {
    alignas(ombr_string_accum) char buffer[kRecord + 32];
    ombr_string_accum_t acc = nullptr;
    ASSERT_EQ(ombr_string_accum_create(&acc, buffer, sizeof buffer), 0u);

    // Empty and in the caller's buffer: a heap block holding "" and size 0.
    char *text = nullptr;
    uint32_t size = 77;
    ASSERT_EQ(ombr_string_accum_detach(acc, &text, &size), 0u);
    ASSERT_NE(text, nullptr);
    EXPECT_FALSE(inside(text, buffer, sizeof buffer));
    EXPECT_STREQ(text, "");
    EXPECT_EQ(size, 0u);
    ombr_string_free(text);
    EXPECT_EQ(acc->data, nullptr);

    // The emptied accumulator takes appends again (now on the heap).
    const char *data = nullptr;
    ASSERT_EQ(ombr_string_accum_append(acc, "hello", &data), 0u);
    ASSERT_EQ(ombr_string_accum_append(acc, " world", &data), 0u);
    EXPECT_EQ(out(ombr_string_accum_detach, acc, &text), 12u);
    EXPECT_STREQ(text, "hello world");
    EXPECT_EQ(acc->data, nullptr);
    EXPECT_EQ(acc->length, 0u);
    ombr_string_free(text);

    // Text still in the caller's buffer is copied out.
    ombr_string_accum_t small = nullptr;
    alignas(ombr_string_accum) char other[kRecord + 32];
    ASSERT_EQ(ombr_string_accum_create(&small, other, sizeof other), 0u);
    ASSERT_EQ(ombr_string_accum_append(small, "abc", nullptr), 0u);
    ASSERT_EQ(ombr_string_accum_detach(small, &text, nullptr), 0u);
    EXPECT_FALSE(inside(text, other, sizeof other));
    EXPECT_STREQ(text, "abc");
    ombr_string_free(text);
    for (auto item : {small, acc}) EXPECT_EQ(ombr_string_accum_delete(item), 0u);
}

TEST_F(StringAccum, ArgumentChecks) {
    ombr_string_accum_t acc = nullptr;
    EXPECT_EQ(ombr_string_accum_create(nullptr, nullptr, 0), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_append(nullptr, "a", nullptr), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_append_chars(nullptr, "a", 1, nullptr), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_append_bytes(nullptr, "a", 1, nullptr), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_get_string(nullptr, nullptr, nullptr), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_clear(nullptr), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_delete(nullptr), 0u);
    ASSERT_EQ(ombr_string_accum_create(&acc, nullptr, 0), 0u);
    uint32_t size = 0;
    char *text = nullptr;
    EXPECT_EQ(ombr_string_accum_bytelen(acc, nullptr), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_bytelen(nullptr, &size), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_detach(acc, nullptr, &size), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_detach(nullptr, &text, &size), 0x90050001u);
    EXPECT_EQ(ombr_string_accum_delete(acc), 0u);
}

TEST_F(StringAccum, CreateWithoutMemory) {
    for_each_allocation_failure([](uint64_t) {
        ombr_string_accum_t acc = nullptr;
        uint32_t status = ombr_string_accum_create(&acc, nullptr, 16);
        if (status == 0) {
            EXPECT_EQ(acc->capacity, 17u);
            ombr_string_accum_delete(acc);
        } else {
            EXPECT_EQ(status, 0x90050002u);
            EXPECT_EQ(acc, nullptr);  // output written only on success
        }
    });
}

TEST_F(StringAccum, FailedGrowthKeepsTheText) {
    // Each allocating path: leaving the caller's buffer, reallocating on the
    // heap, and copying out on detach.
    uint64_t runs = for_each_allocation_failure([](uint64_t) {
        alignas(ombr_string_accum) char buffer[kRecord + 4];
        ombr_string_accum_t acc = nullptr;
        ASSERT_EQ(ombr_string_accum_create(&acc, buffer, sizeof buffer), 0u);
        const char *data = nullptr;
        ASSERT_EQ(ombr_string_accum_append(acc, "ab", &data), 0u);
        uint32_t status = ombr_string_accum_append(acc, "cdef", &data);
        if (status != 0) {
            EXPECT_EQ(status, 0x90050002u);
            EXPECT_TRUE(inside(acc->data, buffer, sizeof buffer));
            EXPECT_STREQ(acc->data, "ab");
            EXPECT_EQ(acc->length, 2u);
            ombr_string_accum_delete(acc);
            return;
        }
        status = ombr_string_accum_append_chars(acc, "ghijklmnopqrstuvwxyz", 20, &data);
        if (status != 0) {
            EXPECT_EQ(status, 0x90050002u);
            EXPECT_STREQ(acc->data, "abcdef");
            ombr_string_accum_delete(acc);
            return;
        }
        EXPECT_STREQ(data, "abcdefghijklmnopqrstuvwxyz");
        char *text = nullptr;
        // A failed shrink hands over the larger block: detach still succeeds.
        EXPECT_EQ(out(ombr_string_accum_detach, acc, &text), 27u);
        EXPECT_STREQ(text, "abcdefghijklmnopqrstuvwxyz");
        ombr_string_free(text);
        ombr_string_accum_delete(acc);
    });
    EXPECT_EQ(runs, 3u);

    // Copying a caller-buffer text out on detach.
    for_each_allocation_failure([](uint64_t) {
        alignas(ombr_string_accum) char buffer[kRecord + 16];
        ombr_string_accum_t acc = nullptr;
        ASSERT_EQ(ombr_string_accum_create(&acc, buffer, sizeof buffer), 0u);
        ASSERT_EQ(ombr_string_accum_append(acc, "kept", nullptr), 0u);
        char *text = nullptr;
        uint32_t status = ombr_string_accum_detach(acc, &text, nullptr);
        if (status == 0) {
            EXPECT_STREQ(text, "kept");
            ombr_string_free(text);
        } else {
            EXPECT_EQ(status, 0x90050002u);
            EXPECT_EQ(text, nullptr);
            EXPECT_STREQ(acc->data, "kept");
        }
        ombr_string_accum_delete(acc);
    });
}

}  // namespace
