// Time: clocks and their rounding, the packed calendar word and its
// seconds, the reverse with its quirks, ISO 8601 reading and the renderers.
#include <array>
#include <string>

#include "cantrix_test.h"
#include "ombr/ombr_time.h"
#include "out_param.h"

namespace {

class TimeTest : public LeakCheckedTest {};

zttime make(uint32_t y, uint32_t mo, uint32_t d, uint32_t h, uint32_t mi) {
    zttime t = 0xFFFFFFFFu;
    EXPECT_EQ(ombr_time_zttime_create(y, mo, d, h, mi, &t), 0u);
    return t;
}

TEST_F(TimeTest, ClocksReadTheWallClockAndRound) {
    uint64_t before = ombr_time_get_microseconds();
    uint64_t ms = ombr_time_get_milliseconds();
    uint64_t s = ombr_time_get_seconds();
    uint64_t ticks = ombr_time_get_ticks();
    uint64_t after = ombr_time_get_microseconds();
    EXPECT_GT(before, 1600000000ull * 1000000);
    EXPECT_LE(before, ticks);
    EXPECT_LE(ticks, after);
    EXPECT_GE(ms, (before + 500) / 1000);
    EXPECT_LE(ms, (after + 500) / 1000);
    EXPECT_GE(s, (before + 500000) / 1000000);
    EXPECT_LE(s, (after + 500000) / 1000000);
}

TEST_F(TimeTest, CalendarWordLayoutAndRanges) {
    EXPECT_EQ(make(2013, 0, 7, 7, 49), (2013u << 20) | (0u << 16) | (7u << 11) | (7u << 6) | 49u);
    EXPECT_EQ(make(4095, 11, 30, 23, 59), 0xFFFBF5FBu);
    zttime t = 5;
    for (auto args : {std::array<uint32_t, 5>{4096, 0, 0, 0, 0}, {2000, 12, 0, 0, 0}, {2000, 0, 31, 0, 0},
                      {2000, 0, 0, 24, 0}, {2000, 0, 0, 0, 60}})
        EXPECT_EQ(ombr_time_zttime_create(args[0], args[1], args[2], args[3], args[4], &t), OMBR_TIME_ERR_INVALID_ARG);
    EXPECT_EQ(t, 5u);
    EXPECT_EQ(ombr_time_zttime_create(2000, 0, 0, 0, 0, nullptr), OMBR_TIME_ERR_INVALID_ARG);

    zttime now = 0;
    ASSERT_EQ(ombr_time_zttime_current(&now), 0u);
    EXPECT_GE(now >> 20, 2020u);
    EXPECT_LE((now >> 16) & 0xF, 11u);
}

TEST_F(TimeTest, SecondsOfWordsAndDeltas) {
    // Days before each month of a common year; the year's leap day counts
    // whatever the month.
    EXPECT_EQ(out(ombr_time_zttime_delta, make(2000, 0, 0, 0, 0), make(2000, 2, 0, 0, 0)), 59 * 86400);
    // L(2000) - L(1999) = 1, counted in January already
    EXPECT_EQ(out(ombr_time_zttime_delta, make(1999, 0, 0, 0, 0), make(2000, 0, 0, 0, 0)), 366 * 86400);
    EXPECT_EQ(out(ombr_time_zttime_delta, make(2000, 5, 10, 12, 30), make(2000, 5, 10, 10, 0)), -9000);
    EXPECT_EQ(ombr_time_zttime_delta(0, 0, nullptr), OMBR_TIME_ERR_INVALID_ARG);
}

TEST_F(TimeTest, FromSecondsKeepsItsQuirks) {
    // Year 0 takes no leap correction: its own seconds come back.
    EXPECT_EQ(out(ombr_time_zttime_create_from_seconds, 3 * 86400 + 3600 * 5 + 60 * 7), make(0, 0, 3, 5, 7));
    // Later years: the leap correction is one day short, so a word comes
    // back a day late.
    int64_t delta = 0;
    ASSERT_EQ(ombr_time_zttime_delta(make(0, 0, 0, 0, 0), make(1970, 0, 0, 0, 0), &delta), 0u);
    const uint64_t base = static_cast<uint64_t>(delta);
    EXPECT_EQ(out(ombr_time_zttime_create_from_seconds, base), make(1970, 0, 1, 0, 0));
    // The day inside a later month is taken modulo the days before it.
    EXPECT_EQ(out(ombr_time_zttime_create_from_seconds, base + 40 * 86400), make(1970, 1, 10, 0, 0));
    EXPECT_EQ(out(ombr_time_zttime_create_from_seconds, base + 130 * 86400), make(1970, 4, 11, 0, 0));
    // At the exact end of March the day becomes 31: the word is 0, the
    // status still 0.
    EXPECT_EQ(out(ombr_time_zttime_create_from_seconds, static_cast<uint64_t>(base) + 89 * 86400), 0u);
    EXPECT_EQ(ombr_time_zttime_create_from_seconds(0, nullptr), OMBR_TIME_ERR_INVALID_ARG);

    EXPECT_EQ(out(ombr_time_zttime_add, make(1970, 0, 0, 0, 0), 3600), make(1970, 0, 1, 1, 0));
}

TEST_F(TimeTest, Iso8601) {
    int64_t s = 0;
    EXPECT_EQ(out(ombr_time_iso8601_to_epoch, "1970-01-01T00:00:07"), 7);
    ASSERT_EQ(ombr_time_iso8601_to_epoch("1970-01-02T01:02:03+05:00", &s), 0u);  // no time zone read
    EXPECT_EQ(s, 86400 + 3723);
    EXPECT_EQ(out(ombr_time_iso8601_to_epoch, "1971-01-01T00:00:00"), 365 * 86400);
    for (const char *bad : {"1970-01-01T00:00", "1970-01-01 00:00:00", "1970-01-01T00:00:", "1970", "1970-13-01T00:00:00",
                            "1970-01-00T00:00:00"})
        EXPECT_EQ(ombr_time_iso8601_to_epoch(bad, &s), OMBR_TIME_ERR_INVALID_ARG) << bad;
    EXPECT_EQ(ombr_time_iso8601_to_epoch(nullptr, &s), OMBR_TIME_ERR_INVALID_ARG);
}

TEST_F(TimeTest, Renderers) {
    char buf[64];
    ASSERT_EQ(ombr_time_format_us(1500000, 0, "s.u", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "1.500000");
    ASSERT_EQ(ombr_time_format_ms(1234, 1, "s.u", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "1.234000");
    ASSERT_EQ(ombr_time_format_s(86400 + 61, 0, "%Y-%m-%d %H:%M:%S", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "1970-01-02 00:01:01");
    ASSERT_EQ(ombr_time_format_us(2123456, 0, "%S", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "02,123");
    ASSERT_EQ(ombr_time_format_us(2000400, 0, "%S", buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "02");  // rounds to 0 ms
    EXPECT_EQ(ombr_time_format_us(0, 0, "%Y-%m-%d", buf, 4), OMBR_TIME_ERR_NO_FIT);
    EXPECT_EQ(ombr_time_format_us(0, 0, nullptr, buf, 4), OMBR_TIME_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_time_format_us(0, 0, "%Y", nullptr, 4), OMBR_TIME_ERR_INVALID_ARG);
}

TEST_F(TimeTest, CurrentNeedsThePackage) {
    char buf[64];
    while (ombr_time_initchecks()) ombr_time_shutdown();
    EXPECT_EQ(ombr_time_get_current("%Y", buf, sizeof buf), OMBR_TIME_ERR_NOT_INITIALIZED);
    ASSERT_EQ(ombr_time_initialize(), 0u);
    ASSERT_EQ(ombr_time_get_current("%Y", buf, sizeof buf), 0u);
    EXPECT_EQ(std::string(buf).size(), 4u);
    EXPECT_EQ(ombr_time_get_current("%Y", buf, 0), OMBR_TIME_ERR_INVALID_ARG);
    EXPECT_EQ(ombr_time_get_current("%Y-%m-%d", buf, 3), OMBR_TIME_ERR_NO_FIT);
    ombr_time_shutdown();
}

}  // namespace
