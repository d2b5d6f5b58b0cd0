// Vector: growth, sorted inserts, bisection with the gallop back to the
// first of equals, literal find, statuses by operation; and ombr_utils_qsort
// against std::sort.
#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "datatypes_test_support.h"
#include "out_param.h"

namespace {

class VectorTest : public DatatypesTest {};

uint32_t count_of(ombr_vector_t v) {
    uint32_t n = 0xFFFFFFFFu;
    EXPECT_EQ(ombr_vector_count(v, &n), 0u);
    return n;
}

std::vector<uintptr_t> contents(ombr_vector_t v) {
    std::vector<uintptr_t> out;
    uintptr_t e = 0;
    for (uint32_t i = 0; ombr_vector_getindex(v, i, &e) == 0; ++i) out.push_back(e);
    return out;
}

uint32_t capacity_of(ombr_vector_t v) {
    uint32_t cap = 0;
    EXPECT_EQ(_ombr_vector_get_state(v, &cap, nullptr), 0u);
    return cap;
}

bool is_sorted_flag(ombr_vector_t v) {
    uint32_t flags = 0;
    EXPECT_EQ(_ombr_vector_get_state(v, nullptr, &flags), 0u);
    return (flags & OMBR_VECTOR_SORTED) != 0;
}

// Entries whose callback key is the value divided by 100: 1203 and 1250
// compare equal, 1203 and 1303 do not.
int g_compare_calls = 0;
int32_t by_hundreds(uintptr_t a, uintptr_t b) {
    ++g_compare_calls;
    uintptr_t ka = a / 100, kb = b / 100;
    return ka < kb ? -1 : (ka > kb ? 1 : 0);
}
int32_t descending(uintptr_t a, uintptr_t b) { return a > b ? -1 : (a < b ? 1 : 0); }

std::vector<uintptr_t> g_freed;
void record_free(uintptr_t e) { g_freed.push_back(e); }

TEST_F(VectorTest, GrowthEightThenDoublingThenLinearSteps) {
    ombr_vector_t v = nullptr;
    ASSERT_EQ(ombr_vector_create(&v, 0, nullptr, nullptr), 0u);
    EXPECT_EQ(capacity_of(v), 0u);
    ASSERT_EQ(ombr_vector_add(v, 1), 0u);
    EXPECT_EQ(capacity_of(v), 8u);
    for (uintptr_t e = 2; e <= 8; ++e) ASSERT_EQ(ombr_vector_add(v, e), 0u);
    EXPECT_EQ(capacity_of(v), 8u);
    ASSERT_EQ(ombr_vector_add(v, 9), 0u);
    EXPECT_EQ(capacity_of(v), 16u);
    // set_min_size grows to exactly the asked capacity and never shrinks.
    ASSERT_EQ(ombr_vector_set_min_size(v, 100), 0u);
    EXPECT_EQ(capacity_of(v), 100u);
    ASSERT_EQ(ombr_vector_set_min_size(v, 50), 0u);
    EXPECT_EQ(capacity_of(v), 100u);
    EXPECT_EQ(count_of(v), 9u);
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    // Clear keeps the capacity.
    ASSERT_EQ(ombr_vector_clear(v), 0u);
    EXPECT_EQ(capacity_of(v), 100u);
    EXPECT_EQ(count_of(v), 0u);

    // From 0x100000 slots on, steps of 0x100000 instead of doubling.
    const uint32_t big = 0x180000;
    ASSERT_EQ(ombr_vector_set_min_size(v, big), 0u);
    for (uint32_t i = 1; i <= big; ++i) ASSERT_EQ(ombr_vector_add(v, i), 0u);
    EXPECT_EQ(capacity_of(v), big);
    ASSERT_EQ(ombr_vector_add(v, big + 1), 0u);
    EXPECT_EQ(capacity_of(v), big + 0x100000u);
    EXPECT_EQ(ombr_vector_delete(v), 0u);

    // Below the limit it doubles.
    ASSERT_EQ(ombr_vector_create(&v, 0, nullptr, nullptr), 0u);
    ASSERT_EQ(ombr_vector_set_min_size(v, 0xFFFFF), 0u);
    for (uint32_t i = 1; i <= 0xFFFFF + 1; ++i) ASSERT_EQ(ombr_vector_add(v, i), 0u);
    EXPECT_EQ(capacity_of(v), 0x1FFFFEu);
    EXPECT_EQ(ombr_vector_delete(v), 0u);
}

TEST_F(VectorTest, InsertRemoveAndIndexRange) {
    ombr_vector_t v = nullptr;
    g_freed.clear();
    ASSERT_EQ(ombr_vector_create(&v, 0, nullptr, record_free), 0u);
    ASSERT_EQ(ombr_vector_insert(v, 0, 20), 0u);
    ASSERT_EQ(ombr_vector_insert(v, 1, 40), 0u);  // index count appends
    ASSERT_EQ(ombr_vector_insert(v, 1, 30), 0u);
    ASSERT_EQ(ombr_vector_insert(v, 0, 10), 0u);
    EXPECT_EQ(ombr_vector_insert(v, 5, 50), 0x100D0361u);
    EXPECT_EQ(ombr_vector_insert(v, 2, 0), 0x900D0001u);
    EXPECT_EQ(ombr_vector_add(v, 0), 0x900D0001u);
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{10, 20, 30, 40}));

    uintptr_t e = 0;
    EXPECT_EQ(ombr_vector_getindex(v, 4, &e), 0x100D0361u);
    EXPECT_EQ(out(ombr_vector_removeindex, v, 1), 20u);
    EXPECT_TRUE(g_freed.empty());  // remove hands the entry over
    ASSERT_EQ(ombr_vector_removeindex(v, 0, nullptr), 0u);
    EXPECT_EQ(ombr_vector_removeindex(v, 2, &e), 0x100D0361u);
    ASSERT_EQ(ombr_vector_deleteindex(v, 1), 0u);
    EXPECT_EQ(g_freed, std::vector<uintptr_t>{40});
    EXPECT_EQ(ombr_vector_deleteindex(v, 1), 0x100D0361u);
    EXPECT_EQ(contents(v), std::vector<uintptr_t>{30});
    // The vacated slots were zeroed: a fresh add lands behind 30 only.
    ASSERT_EQ(ombr_vector_add(v, 99), 0u);
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{30, 99}));
    EXPECT_EQ(ombr_vector_delete(v), 0u);
    EXPECT_EQ(g_freed, (std::vector<uintptr_t>{40, 30, 99}));
}

TEST_F(VectorTest, SortedAddKeepsOrderAndFindGivesFirstOfEquals) {
    ombr_vector_t v = nullptr;
    ASSERT_EQ(ombr_vector_create(&v, OMBR_VECTOR_SORTED, by_hundreds, nullptr), 0u);
    std::mt19937 rng(7);
    std::vector<uintptr_t> added;
    for (int i = 0; i < 3000; ++i) {
        // Keys 1..40 with raw values spread inside each hundred: long runs.
        uintptr_t e = uintptr_t(1 + rng() % 40) * 100 + rng() % 100;
        ASSERT_EQ(ombr_vector_add(v, e), 0u);
        added.push_back(e);
    }
    EXPECT_TRUE(is_sorted_flag(v));
    // Sorted by key, equal keys in raw order: that is plain numeric order.
    std::sort(added.begin(), added.end());
    std::vector<uintptr_t> got = contents(v);
    EXPECT_EQ(got, added);
    for (uintptr_t key = 0; key <= 41; ++key) {
        uintptr_t probe = key * 100 + 50;
        auto first = std::find_if(got.begin(), got.end(), [&](uintptr_t e) { return e / 100 == key; });
        uint32_t index = 0xFFFFFFFFu;
        uint32_t st = ombr_vector_find(v, probe, &index);
        if (first == got.end()) {
            EXPECT_EQ(st, 0x100D0003u);
            EXPECT_EQ(index, 0xFFFFFFFFu);
        } else {
            ASSERT_EQ(st, 0u) << key;
            EXPECT_EQ(index, uint32_t(first - got.begin())) << key;
        }
        // Literal find wants the very raw value.
        if (first != got.end()) {
            ASSERT_EQ(ombr_vector_find_literal(v, *first, &index), 0u);
            EXPECT_EQ(got[index], *first);
        }
    }
    EXPECT_EQ(ombr_vector_find_literal(v, 100 * 41 + 1, nullptr), 0x100D0003u);
    EXPECT_EQ(ombr_vector_find(v, 0, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_vector_delete(v), 0u);
}

TEST_F(VectorTest, FirstOfEqualsForEveryRunLength) {
    // A run of n equal entries at every offset: the gallop lands on its start.
    for (uint32_t before = 0; before < 6; ++before) {
        for (uint32_t run = 1; run <= 70; ++run) {
            ombr_vector_t v = nullptr;
            ASSERT_EQ(ombr_vector_create(&v, OMBR_VECTOR_SORTED, by_hundreds, nullptr), 0u);
            for (uint32_t i = 0; i < before; ++i) ASSERT_EQ(ombr_vector_add(v, 100 + i), 0u);
            for (uint32_t i = 0; i < run; ++i) ASSERT_EQ(ombr_vector_add(v, 500 + i % 100), 0u);
            for (uint32_t i = 0; i < 3; ++i) ASSERT_EQ(ombr_vector_add(v, 900 + i), 0u);
            EXPECT_EQ(out(ombr_vector_find, v, 599), before) << "run " << run;
            EXPECT_EQ(ombr_vector_delete(v), 0u);
        }
    }
}

TEST_F(VectorTest, OutOfOrderInsertClearsSortedBitAndFindScans) {
    ombr_vector_t v = nullptr;
    ASSERT_EQ(ombr_vector_create(&v, OMBR_VECTOR_SORTED, by_hundreds, nullptr), 0u);
    for (uintptr_t e : {100, 200, 300, 400}) ASSERT_EQ(ombr_vector_add(v, e), 0u);
    ASSERT_EQ(ombr_vector_insert(v, 2, 250), 0u);  // in order: still sorted
    EXPECT_TRUE(is_sorted_flag(v));
    ASSERT_EQ(ombr_vector_insert(v, 2, 199), 0u);  // below its predecessor 200
    EXPECT_FALSE(is_sorted_flag(v));
    // The unsorted find scans from 0: the first entry equal by callback.
    ASSERT_EQ(ombr_vector_insert(v, 0, 450), 0u);
    uint32_t index = 0;
    EXPECT_EQ(out(ombr_vector_find, v, 420), 0u);
    EXPECT_EQ(out(ombr_vector_find, v, 150), 1u);
    // Literal find on an unsorted vector ignores the callback.
    EXPECT_EQ(ombr_vector_find_literal(v, 150, &index), 0x100D0003u);
    EXPECT_EQ(out(ombr_vector_find_literal, v, 199), 3u);
    // Add on an unsorted vector appends.
    ASSERT_EQ(ombr_vector_add(v, 50), 0u);
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{450, 100, 200, 199, 250, 300, 400, 50}));
    // Sorting again: by key, ties by raw value.
    ASSERT_EQ(ombr_vector_sort(v, by_hundreds, 0), 0u);
    EXPECT_TRUE(is_sorted_flag(v));
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{50, 100, 199, 200, 250, 300, 400, 450}));
    EXPECT_EQ(ombr_vector_delete(v), 0u);
}

TEST_F(VectorTest, SortRulesForCompareAndForce) {
    ombr_vector_t v = nullptr;
    ASSERT_EQ(ombr_vector_create(&v, 0, by_hundreds, nullptr), 0u);
    for (uintptr_t e : {305, 101, 399, 300, 204}) ASSERT_EQ(ombr_vector_add(v, e), 0u);
    ASSERT_EQ(ombr_vector_sort(v, by_hundreds, 0), 0u);
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{101, 204, 300, 305, 399}));
    // Same compare, no force, already sorted: nothing runs.
    g_compare_calls = 0;
    ASSERT_EQ(ombr_vector_sort(v, by_hundreds, 0), 0u);
    EXPECT_EQ(g_compare_calls, 0);
    ASSERT_EQ(ombr_vector_sort(v, by_hundreds, 1), 0u);
    EXPECT_GT(g_compare_calls, 0);
    // A new compare re-sorts; the raw value still breaks ties.
    ASSERT_EQ(ombr_vector_sort(v, descending, 0), 0u);
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{399, 305, 300, 204, 101}));
    // A null compare drops the sorted bit and leaves the order.
    ASSERT_EQ(ombr_vector_sort(v, nullptr, 1), 0u);
    EXPECT_FALSE(is_sorted_flag(v));
    EXPECT_EQ(contents(v), (std::vector<uintptr_t>{399, 305, 300, 204, 101}));
    // Without a callback the raw value orders.
    ASSERT_EQ(ombr_vector_add(v, 7), 0u);
    EXPECT_EQ(out(ombr_vector_find, v, 300), 2u);
    // Clear keeps the sorted bit.
    ASSERT_EQ(ombr_vector_sort(v, descending, 0), 0u);
    ASSERT_EQ(ombr_vector_clear(v), 0u);
    EXPECT_TRUE(is_sorted_flag(v));
    EXPECT_EQ(ombr_vector_delete(v), 0u);
}

TEST_F(VectorTest, StatusesDifferByOperation) {
    FakeHandle fake;
    auto bad = fake.as<ombr_vector_t>();
    uint32_t n = 7;
    uintptr_t e = 0;
    EXPECT_EQ(ombr_vector_create(nullptr, 0, nullptr, nullptr), 0x900D0001u);
    EXPECT_EQ(out(ombr_vector_count, nullptr), 0u);
    EXPECT_EQ(ombr_vector_count(nullptr, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_vector_delete(nullptr), 0u);
    // Wrong magic: 0x320 for delete, add, insert, set_min_size.
    EXPECT_EQ(ombr_vector_delete(bad), 0x900D0320u);
    EXPECT_EQ(ombr_vector_add(bad, 1), 0x900D0320u);
    EXPECT_EQ(ombr_vector_insert(bad, 0, 1), 0x900D0320u);
    EXPECT_EQ(ombr_vector_set_min_size(bad, 8), 0x900D0320u);
    // ... 0x321 for the others.
    EXPECT_EQ(ombr_vector_clear(bad), 0x900D0321u);
    EXPECT_EQ(ombr_vector_count(bad, &n), 0x900D0321u);
    EXPECT_EQ(ombr_vector_getindex(bad, 0, &e), 0x900D0321u);
    EXPECT_EQ(ombr_vector_removeindex(bad, 0, &e), 0x900D0321u);
    EXPECT_EQ(ombr_vector_deleteindex(bad, 0), 0x900D0321u);
    EXPECT_EQ(ombr_vector_find(bad, 1, nullptr), 0x900D0321u);
    EXPECT_EQ(ombr_vector_find_literal(bad, 1, nullptr), 0x900D0321u);
    EXPECT_EQ(ombr_vector_sort(bad, nullptr, 0), 0x900D0321u);
    EXPECT_EQ(ombr_vector_foreach(bad, [](void *, uintptr_t) -> int32_t { return 1; }, nullptr), 0x900D0321u);
    // Null handles.
    for (uint32_t st : {ombr_vector_clear(nullptr), ombr_vector_add(nullptr, 1), ombr_vector_insert(nullptr, 0, 1),
                        ombr_vector_getindex(nullptr, 0, &e), ombr_vector_removeindex(nullptr, 0, &e),
                        ombr_vector_deleteindex(nullptr, 0), ombr_vector_find(nullptr, 1, nullptr),
                        ombr_vector_find_literal(nullptr, 1, nullptr), ombr_vector_sort(nullptr, nullptr, 0),
                        ombr_vector_foreach(nullptr, nullptr, nullptr), ombr_vector_set_min_size(nullptr, 1)})
        EXPECT_EQ(st, 0x900D0001u);
    ombr_vector_t v = nullptr;
    ASSERT_EQ(ombr_vector_create(&v, 0, nullptr, nullptr), 0u);
    EXPECT_EQ(ombr_vector_getindex(v, 0, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_vector_foreach(v, nullptr, nullptr), 0x900D0001u);
    EXPECT_EQ(ombr_vector_find(v, 5, nullptr), 0x100D0003u);
    EXPECT_EQ(ombr_vector_delete(v), 0u);

    ombr_datatypes_shutdown();
    v = nullptr;
    EXPECT_EQ(ombr_vector_create(&v, 0, nullptr, nullptr), 0x900D0007u);
    EXPECT_EQ(v, nullptr);
    ASSERT_EQ(ombr_datatypes_initialize(), 0u);
}

struct WalkContext {
    ombr_vector_t vector;
    std::vector<uintptr_t> seen;
    uintptr_t stop_at;
};

TEST_F(VectorTest, ForeachRunsUnderTheLockAndStops) {
    WalkContext ctx{};
    ASSERT_EQ(ombr_vector_create(&ctx.vector, OMBR_VECTOR_THREADSAFE, nullptr, nullptr), 0u);
    for (uintptr_t e = 1; e <= 5; ++e) ASSERT_EQ(ombr_vector_add(ctx.vector, e), 0u);
    auto walk = [](void *c, uintptr_t entry) -> int32_t {
        auto *w = static_cast<WalkContext *>(c);
        w->seen.push_back(entry);
        // Re-entering the same vector on the same thread works; the walk
        // reads count again, so an entry added here is visited too.
        if (entry == 2) ombr_vector_add(w->vector, 6);
        return entry == w->stop_at ? 0 : 1;
    };
    ctx.stop_at = 0;
    ASSERT_EQ(ombr_vector_foreach(ctx.vector, walk, &ctx), 0u);
    EXPECT_EQ(ctx.seen, (std::vector<uintptr_t>{1, 2, 3, 4, 5, 6}));
    install_hook(OMBR_PKG_DATATYPES);
    ctx.seen.clear();
    ctx.stop_at = 3;
    EXPECT_EQ(ombr_vector_foreach(ctx.vector, walk, &ctx), 0x900D01A0u);
    EXPECT_EQ(ctx.seen, (std::vector<uintptr_t>{1, 2, 3}));
    ASSERT_EQ(hook_records().size(), 1u);
    EXPECT_EQ(hook_records()[0].unit, "ombr_vector");
    EXPECT_EQ(hook_records()[0].status, 0x900D01A0u);
    // Soft statuses never reach the hook.
    uintptr_t e = 0;
    EXPECT_EQ(ombr_vector_getindex(ctx.vector, 100, &e), 0x100D0361u);
    EXPECT_EQ(ombr_vector_find(ctx.vector, 100, nullptr), 0x100D0003u);
    EXPECT_EQ(hook_records().size(), 1u);
    EXPECT_EQ(ombr_vector_delete(ctx.vector), 0u);
}

TEST_F(VectorTest, AllocationFailures) {
    // Create with a lock: record, then the lock's own allocation.
    uint64_t runs = for_each_allocation_failure([](uint64_t n) {
        ombr_vector_t v = nullptr;
        uint32_t st = ombr_vector_create(&v, OMBR_VECTOR_THREADSAFE, nullptr, nullptr);
        if (n == 1) {
            EXPECT_EQ(st, 0x900D0002u);
        }
        if (st != 0) {
            EXPECT_TRUE(OMBR_STATUS_FAILED(st));
            EXPECT_EQ(v, nullptr);
        }
        EXPECT_EQ(ombr_vector_delete(v), 0u);
    });
    EXPECT_GE(runs, 2u);

    // Growth: the first add, the ninth entry and set_min_size allocate.
    runs = for_each_allocation_failure([&](uint64_t n) {
        zelto_manager_memory_fail_nth(0);
        ombr_vector_t v = nullptr;
        ASSERT_EQ(ombr_vector_create(&v, OMBR_VECTOR_SORTED, nullptr, nullptr), 0u);
        zelto_manager_memory_fail_nth(n);
        for (uintptr_t e = 1; e <= 8; ++e) {
            uint32_t st = ombr_vector_add(v, 100 - e);
            if (st != 0) {
                EXPECT_EQ(st, 0x900D0002u);
                EXPECT_EQ(count_of(v), uint32_t(e - 1));
                EXPECT_EQ(capacity_of(v), 0u);
                ASSERT_EQ(ombr_vector_add(v, 100 - e), 0u);  // still usable
            }
        }
        uint32_t st = ombr_vector_insert(v, 8, 200);
        if (st != 0) {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_EQ(count_of(v), 8u);
            EXPECT_EQ(capacity_of(v), 8u);
        }
        st = ombr_vector_set_min_size(v, 64);
        if (st != 0) {
            EXPECT_EQ(st, 0x900D0002u);
            EXPECT_LT(capacity_of(v), 64u);
        }
        std::vector<uintptr_t> got = contents(v);
        EXPECT_TRUE(std::is_sorted(got.begin(), got.end()));
        EXPECT_TRUE(is_sorted_flag(v));
        EXPECT_EQ(ombr_vector_delete(v), 0u);
    });
    EXPECT_EQ(runs, 3u);
}

// ---- ombr_utils_qsort ---------------------------------------------------------

int32_t compare_u32(const void *a, const void *b, void *) {
    uint32_t x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    return x < y ? -1 : (x > y ? 1 : 0);
}

// Records whether any compare argument lies outside the array: that is the
// pivot copy of the partition phase.
struct ArrayBounds {
    const char *begin;
    const char *end;
    int outside = 0;
};
int32_t compare_tracking(const void *a, const void *b, void *context) {
    auto *bounds = static_cast<ArrayBounds *>(context);
    for (const void *p : {a, b}) {
        auto *c = static_cast<const char *>(p);
        if (c < bounds->begin || c >= bounds->end) ++bounds->outside;
    }
    return compare_u32(a, b, nullptr);
}

using QsortTest = DatatypesTest;

TEST_F(QsortTest, LargeRandomArraysMatchStdSort) {
    std::mt19937 rng(12345);
    for (uint32_t n : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 17u, 100u, 1000u, 200000u}) {
        for (uint32_t range : {3u, 1000u, 0xFFFFFFFFu}) {
            std::vector<uint32_t> data(n);
            for (auto &x : data) x = range == 0xFFFFFFFFu ? uint32_t(rng()) : uint32_t(rng() % range);
            std::vector<uint32_t> expect = data;
            std::sort(expect.begin(), expect.end());
            ASSERT_EQ(ombr_utils_qsort(data.data() ? data.data() : &range, n, 4, compare_u32, nullptr), 0u);
            ASSERT_EQ(data, expect) << "n=" << n << " range=" << range;
        }
    }
}

TEST_F(QsortTest, OrderedShapesAndAllEqualKeys) {
    const uint32_t n = 50000;
    std::vector<std::vector<uint32_t>> shapes(5, std::vector<uint32_t>(n));
    for (uint32_t i = 0; i < n; ++i) {
        shapes[0][i] = i;                             // ascending
        shapes[1][i] = n - i;                         // descending
        shapes[2][i] = i < n / 2 ? i : n - i;         // organ pipe
        shapes[3][i] = 42;                            // all equal
        shapes[4][i] = (i % 2) ? i : 0;               // sawtooth with equal valleys
    }
    for (auto &data : shapes) {
        std::vector<uint32_t> expect = data;
        std::sort(expect.begin(), expect.end());
        ASSERT_EQ(ombr_utils_qsort(data.data(), n, 4, compare_u32, nullptr), 0u);
        EXPECT_EQ(data, expect);
    }
}

// Records of an odd size with few distinct keys: keys match std::sort, and
// every record survives byte for byte (the sort is not stable).
struct Record {
    uint16_t key;
    uint8_t payload[9];
};
static_assert(sizeof(Record) == 12 || sizeof(Record) == 11);
int32_t compare_record(const void *a, const void *b, void *context) {
    ++*static_cast<int *>(context);
    auto ka = static_cast<const Record *>(a)->key, kb = static_cast<const Record *>(b)->key;
    return ka < kb ? -1 : (ka > kb ? 1 : 0);
}

TEST_F(QsortTest, EqualKeysWithPayloadsAndOddElementSizes) {
    std::mt19937 rng(99);
    std::vector<Record> data(30000);
    for (uint32_t i = 0; i < data.size(); ++i) {
        data[i].key = uint16_t(rng() % 7);
        std::memset(data[i].payload, 0, sizeof data[i].payload);
        std::memcpy(data[i].payload, &i, sizeof i);
    }
    auto key_list = [](const std::vector<Record> &v) {
        std::vector<uint16_t> k;
        for (auto &r : v) k.push_back(r.key);
        return k;
    };
    auto all_bytes = [](const std::vector<Record> &v) {
        std::multiset<std::vector<uint8_t>> s;
        for (auto &r : v) {
            auto *p = reinterpret_cast<const uint8_t *>(&r);
            s.emplace(p, p + sizeof(Record));
        }
        return s;
    };
    std::vector<Record> expect = data;
    std::sort(expect.begin(), expect.end(), [](const Record &a, const Record &b) { return a.key < b.key; });
    auto bytes_before = all_bytes(data);
    int calls = 0;
    ASSERT_EQ(ombr_utils_qsort(data.data(), uint32_t(data.size()), sizeof(Record), compare_record, &calls), 0u);
    EXPECT_GT(calls, 0);  // the context reached the callback
    EXPECT_EQ(key_list(data), key_list(expect));
    EXPECT_EQ(all_bytes(data), bytes_before);

    // Element sizes 1 and 3 go through the same byte-wise moves.
    std::vector<uint8_t> bytes(4001);
    for (auto &b : bytes) b = uint8_t(rng());
    std::vector<uint8_t> bexp = bytes;
    std::sort(bexp.begin(), bexp.end());
    auto cmp_byte = [](const void *a, const void *b, void *) -> int32_t {
        return int32_t(*static_cast<const uint8_t *>(a)) - int32_t(*static_cast<const uint8_t *>(b));
    };
    ASSERT_EQ(ombr_utils_qsort(bytes.data(), uint32_t(bytes.size()), 1, cmp_byte, nullptr), 0u);
    EXPECT_EQ(bytes, bexp);
    struct Three {
        uint8_t b[3];
    };
    std::vector<Three> threes(999);
    for (auto &t : threes) t = {{uint8_t(rng() % 5), uint8_t(rng()), uint8_t(rng())}};
    ASSERT_EQ(ombr_utils_qsort(threes.data(), uint32_t(threes.size()), 3, cmp_byte, nullptr), 0u);
    EXPECT_TRUE(std::is_sorted(threes.begin(), threes.end(), [](const Three &a, const Three &b) { return a.b[0] < b.b[0]; }));
}

TEST_F(QsortTest, PartitionPhaseOnlyAboveFourElements) {
    uint32_t four[4] = {4, 3, 2, 1};
    ArrayBounds b4{reinterpret_cast<char *>(four), reinterpret_cast<char *>(four + 4)};
    ASSERT_EQ(ombr_utils_qsort(four, 4, 4, compare_tracking, &b4), 0u);
    EXPECT_EQ(b4.outside, 0);  // insertion pass only: no pivot copy
    EXPECT_EQ(std::vector<uint32_t>(four, four + 4), (std::vector<uint32_t>{1, 2, 3, 4}));
    uint32_t five[5] = {5, 4, 3, 2, 1};
    ArrayBounds b5{reinterpret_cast<char *>(five), reinterpret_cast<char *>(five + 5)};
    ASSERT_EQ(ombr_utils_qsort(five, 5, 4, compare_tracking, &b5), 0u);
    EXPECT_GT(b5.outside, 0);
    EXPECT_EQ(std::vector<uint32_t>(five, five + 5), (std::vector<uint32_t>{1, 2, 3, 4, 5}));
}

TEST_F(QsortTest, ArgumentsAndSilentAllocationFailure) {
    uint32_t data[6] = {6, 5, 4, 3, 2, 1};
    install_hook(OMBR_PKG_SORT);
    EXPECT_EQ(ombr_utils_qsort(nullptr, 6, 4, compare_u32, nullptr), 0x900F0001u);
    EXPECT_EQ(ombr_utils_qsort(data, 6, 4, nullptr, nullptr), 0x900F0001u);
    ASSERT_EQ(hook_records().size(), 2u);
    EXPECT_EQ(hook_records()[0].status, 0x900F0001u);
    EXPECT_EQ(ombr_utils_qsort(data, 0, 4, compare_u32, nullptr), 0u);
    EXPECT_EQ(data[0], 6u);
    // The pivot copy cannot be allocated: success, array untouched.
    uint64_t runs = for_each_allocation_failure([&](uint64_t) {
        uint32_t copy[6];
        std::memcpy(copy, data, sizeof copy);
        ASSERT_EQ(ombr_utils_qsort(copy, 6, 4, compare_u32, nullptr), 0u);
        if (zelto_manager_memory_failure_fired()) {
            EXPECT_EQ(std::vector<uint32_t>(copy, copy + 6), std::vector<uint32_t>(data, data + 6));
        } else {
            EXPECT_EQ(std::vector<uint32_t>(copy, copy + 6), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
        }
    });
    EXPECT_EQ(runs, 1u);
    EXPECT_EQ(hook_records().size(), 2u);
}

}  // namespace
