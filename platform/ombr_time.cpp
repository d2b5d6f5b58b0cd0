// The time package: clocks, the packed calendar word, ISO 8601 reading and
// renderers of microsecond values.
#include "ombr/ombr_time.h"

#include <sys/time.h>
#include <time.h>

#include "ombr/ombr_string.h"
#include "ombr/ombr_string_printf.h"
#include "platform/ombr_frame.h"

namespace {
ombr::PackageState s_time;

// Brings up memory, then string; a failing string package takes memory down.
uint32_t time_init_func() {
    if (ombr_memory_initialize() != 0) return 10;
    if (ombr_string_initialize() != 0) {
        ombr_memory_shutdown();
        return 10;
    }
    return 0;
}

uint32_t time_shutdown_func() {
    ombr_string_shutdown();
    ombr_memory_shutdown();
    return 0;
}

// Days before each month of a common year; the tail keeps the month walk
// of create_from_seconds inside the table.
constexpr uint32_t s_ombr_time_months[16] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365, 365, 365, 365};

constexpr uint64_t kSecondsPerYear = 31536000;
constexpr uint64_t kSecondsPerDay = 86400;

// Leap days up to and including year y.
constexpr uint64_t leap_days(uint64_t y) { return y / 4 - y / 100 + (y / 100) / 4; }

struct Calendar {
    uint32_t year, month, day, hour, minute;
};

constexpr Calendar unpack(zttime t) {
    return {t >> 20, (t >> 16) & 0xF, (t >> 11) & 0x1F, (t >> 6) & 0x1F, t & 0x3F};
}

// Seconds of a calendar word since year 0.
constexpr uint64_t seconds_of(zttime t) {
    Calendar c = unpack(t);
    return c.year * kSecondsPerYear + leap_days(c.year) * kSecondsPerDay +
           (s_ombr_time_months[c.month] + c.day) * kSecondsPerDay + c.hour * 3600ull + c.minute * 60ull;
}

// Reads an unsigned number behind the next `separator` at or after *cursor;
// the cursor moves past the separator. False when the separator is missing
// or nothing stands behind it.
bool read_field(const char *&cursor, char separator, uint32_t &value) {
    const char *at = ombr_string_strchr(cursor, static_cast<unsigned char>(separator));
    if (!at || at[1] == '\0') return false;
    cursor = at + 1;
    value = ombr_string_atou32(cursor);
    return true;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(time, s_time, time_init_func, time_shutdown_func, ombr::kBaseBuildDate)

OMBR_API uint64_t ombr_time_get_microseconds(void) {
    struct timeval tv;
    if (gettimeofday(&tv, nullptr) != 0) return 0;
    return static_cast<uint64_t>(tv.tv_sec) * 1000000u + static_cast<uint64_t>(tv.tv_usec);
}

OMBR_API uint64_t ombr_time_get_ticks(void) { return ombr_time_get_microseconds(); }

OMBR_API uint64_t ombr_time_get_milliseconds(void) { return (ombr_time_get_microseconds() + 500) / 1000; }

OMBR_API uint64_t ombr_time_get_seconds(void) { return (ombr_time_get_microseconds() + 500000) / 1000000; }

OMBR_API uint32_t ombr_time_get_current(const char *format, char *buffer, uint32_t size) {
    if (s_time.initialized == 0) return OMBR_TIME_ERR_NOT_INITIALIZED;
    if (!format || !buffer || size == 0) return OMBR_TIME_ERR_INVALID_ARG;
    time_t now = time(nullptr);
    struct tm local;
    if (!localtime_r(&now, &local)) return OMBR_TIME_ERR_INVALID_ARG;
    if (strftime(buffer, size, format, &local) == 0) return OMBR_TIME_ERR_NO_FIT;
    return 0;
}

OMBR_API uint32_t ombr_time_zttime_create(uint32_t year, uint32_t month, uint32_t day, uint32_t hour,
                                          uint32_t minute, zttime *out_time) {
    if (!out_time || year >= 4096 || month > 11 || day > 30 || hour > 23 || minute > 59)
        return OMBR_TIME_ERR_INVALID_ARG;
    *out_time = (year << 20) | (month << 16) | (day << 11) | (hour << 6) | minute;
    return 0;
}

OMBR_API uint32_t ombr_time_zttime_current(zttime *out_time) {
    if (!out_time) return OMBR_TIME_ERR_INVALID_ARG;
    time_t now = time(nullptr);
    struct tm local;
    if (!localtime_r(&now, &local)) return OMBR_TIME_ERR_INVALID_ARG;
    return ombr_time_zttime_create(static_cast<uint32_t>(local.tm_year + 1900), static_cast<uint32_t>(local.tm_mon),
                                   static_cast<uint32_t>(local.tm_mday - 1), static_cast<uint32_t>(local.tm_hour),
                                   static_cast<uint32_t>(local.tm_min), out_time);
}

// The reverse of seconds_of, kept with its quirks: the leap-day correction
// compares the leap days of the second year estimate with the first
// estimate itself, and the day of a month is taken modulo the days before
// that month.
OMBR_API uint32_t ombr_time_zttime_create_from_seconds(uint64_t seconds, zttime *out_time) {
    if (!out_time) return OMBR_TIME_ERR_INVALID_ARG;
    uint64_t y0 = seconds / kSecondsPerYear;
    uint64_t l0 = leap_days(y0);
    uint64_t correction = l0 * kSecondsPerDay;
    uint64_t y1 = (seconds - correction) / kSecondsPerYear;
    // In years 1 to 3 l0 is 0 and the correction becomes one day added:
    // unsigned arithmetic wraps to exactly that.
    uint64_t leap = leap_days(y1) != y0 ? l0 - 1 : l0;
    uint64_t rest_seconds = seconds - leap * kSecondsPerDay;
    uint64_t year = rest_seconds / kSecondsPerYear;
    uint64_t r = rest_seconds % kSecondsPerYear;
    uint32_t m = 0;
    while (m <= 11 && s_ombr_time_months[m + 1] * kSecondsPerDay < r) ++m;
    if (s_ombr_time_months[m] != 0) r %= s_ombr_time_months[m] * kSecondsPerDay;
    uint64_t day = r / kSecondsPerDay;
    r %= kSecondsPerDay;
    *out_time = 0;
    if (year < 4096)
        (void)ombr_time_zttime_create(static_cast<uint32_t>(year), m, static_cast<uint32_t>(day),
                                      static_cast<uint32_t>(r / 3600), static_cast<uint32_t>((r % 3600) / 60),
                                      out_time);
    return 0;
}

OMBR_API uint32_t ombr_time_zttime_delta(zttime start, zttime end, int64_t *out_seconds) {
    if (!out_seconds) return OMBR_TIME_ERR_INVALID_ARG;
    *out_seconds = static_cast<int64_t>(seconds_of(end)) - static_cast<int64_t>(seconds_of(start));
    return 0;
}

OMBR_API uint32_t ombr_time_zttime_add(zttime time, int64_t seconds, zttime *out_time) {
    if (!out_time) return OMBR_TIME_ERR_INVALID_ARG;
    int64_t total = static_cast<int64_t>(seconds_of(time)) + seconds;
    if (total < 0) return OMBR_TIME_ERR_INVALID_ARG;
    return ombr_time_zttime_create_from_seconds(static_cast<uint64_t>(total), out_time);
}

OMBR_API uint32_t ombr_time_iso8601_to_epoch(const char *text, int64_t *out_seconds) {
    if (!text || !out_seconds) return OMBR_TIME_ERR_INVALID_ARG;
    uint32_t year = ombr_string_atou32(text), month = 0, day = 0, hour = 0, minute = 0, second = 0;
    const char *cursor = text;
    if (!read_field(cursor, '-', month) || !read_field(cursor, '-', day) || !read_field(cursor, 'T', hour) ||
        !read_field(cursor, ':', minute) || !read_field(cursor, ':', second))
        return OMBR_TIME_ERR_INVALID_ARG;
    zttime when = 0, base = 0;
    uint32_t status = ombr_time_zttime_create(year, month - 1, day - 1, hour, minute, &when);
    if (status != 0) return status;
    status = ombr_time_zttime_create(1970, 0, 0, 0, 0, &base);
    if (status != 0) return status;
    int64_t delta = 0;
    (void)ombr_time_zttime_delta(base, when, &delta);
    *out_seconds = delta + second;
    return 0;
}

OMBR_API uint32_t ombr_time_format_us(uint64_t microseconds, uint8_t, const char *format, char *buffer,
                                      uint32_t size) {
    if (!format || !buffer || size == 0) return OMBR_TIME_ERR_INVALID_ARG;
    uint64_t seconds = microseconds / 1000000, micros = microseconds % 1000000;
    if (ombr_string_equal(format, "s.u", 0)) {
        ombr_string_snprintf(buffer, size, "%llu.%06llu", static_cast<unsigned long long>(seconds),
                             static_cast<unsigned long long>(micros));
        return 0;
    }
    uint64_t ms = (micros + 500) / 1000;
    time_t t = static_cast<time_t>(seconds);
    struct tm utc;
    if (!gmtime_r(&t, &utc)) return OMBR_TIME_ERR_INVALID_ARG;
    size_t length = strftime(buffer, size, format, &utc);
    if (length == 0) return OMBR_TIME_ERR_NO_FIT;
    if (ms > 0)
        ombr_string_snprintf(buffer + length, size - static_cast<uint32_t>(length), ",%03d", static_cast<int>(ms));
    return 0;
}

OMBR_API uint32_t ombr_time_format_ms(uint64_t milliseconds, uint8_t unused, const char *format, char *buffer,
                                      uint32_t size) {
    return ombr_time_format_us(milliseconds * 1000, unused, format, buffer, size);
}

OMBR_API uint32_t ombr_time_format_s(uint64_t seconds, uint8_t unused, const char *format, char *buffer,
                                     uint32_t size) {
    return ombr_time_format_us(seconds * 1000000, unused, format, buffer, size);
}
