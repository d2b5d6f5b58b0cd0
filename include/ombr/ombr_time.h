/*
 * Time: wall-clock readings in microseconds, the packed calendar word
 * `zttime`, ISO 8601 reading and renderers of microsecond values.
 *
 * All clocks read the wall clock (gettimeofday); there is no monotonic
 * source. Statuses are returned straight, without the error hook. Only
 * ombr_time_get_current needs the package (ombr_time_initialize) to be up.
 */
#ifndef OMBR_TIME_H
#define OMBR_TIME_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

#define OMBR_TIME_ERR_INVALID_ARG 0x901C0001u
#define OMBR_TIME_ERR_NOT_INITIALIZED 0x901C0007u
#define OMBR_TIME_ERR_NO_FIT 0x901C0009u /* formatted time does not fit */

/* Packed calendar word of minute resolution: year in bits 31-20 (below
 * 4096), month 19-16 (0-11), day 15-11 (0-30), hour 10-6 (0-23), minute
 * 5-0 (0-59). Month and day count from 0. */
typedef uint32_t zttime;

/* Clock readings; 0 when the clock cannot be read. Milliseconds and
 * seconds are rounded to nearest. */
OMBR_API uint64_t ombr_time_get_microseconds(void);
OMBR_API uint64_t ombr_time_get_ticks(void);
OMBR_API uint64_t ombr_time_get_milliseconds(void);
OMBR_API uint64_t ombr_time_get_seconds(void);

/* Local time through strftime into buffer (size bytes). */
OMBR_API uint32_t ombr_time_get_current(const char *format, char *buffer, uint32_t size);

OMBR_API uint32_t ombr_time_zttime_create(uint32_t year, uint32_t month, uint32_t day, uint32_t hour,
                                          uint32_t minute, zttime *out_time);
/* Local time now. */
OMBR_API uint32_t ombr_time_zttime_current(zttime *out_time);
/* Calendar word of a count of seconds since year 0 (the reverse of the
 * seconds of a word, with the leap-year quirks of that reverse: it can be a
 * day off, and an impossible day gives the word 0 with status 0). */
OMBR_API uint32_t ombr_time_zttime_create_from_seconds(uint64_t seconds, zttime *out_time);
/* Seconds of end minus seconds of start. Seconds of a word count from year
 * 0 in 365-day years plus leap days (the current year's leap day counts
 * whatever the month). */
OMBR_API uint32_t ombr_time_zttime_delta(zttime start, zttime end, int64_t *out_seconds);
OMBR_API uint32_t ombr_time_zttime_add(zttime time, int64_t seconds, zttime *out_time);

/* "YYYY-MM-DDThh:mm:ss" to seconds since 1970-01-01T00:00 by the seconds of
 * the calendar word; no time zone is read. */
OMBR_API uint32_t ombr_time_iso8601_to_epoch(const char *text, int64_t *out_seconds);

/* Renders a time in microseconds: the format "s.u" gives "seconds.micro"
 * ("1.500000"); any other format is a strftime format for UTC, followed by
 * ",mmm" when the rounded milliseconds are above 0. The byte is ignored. */
OMBR_API uint32_t ombr_time_format_us(uint64_t microseconds, uint8_t unused, const char *format, char *buffer,
                                      uint32_t size);
OMBR_API uint32_t ombr_time_format_ms(uint64_t milliseconds, uint8_t unused, const char *format, char *buffer,
                                      uint32_t size);
OMBR_API uint32_t ombr_time_format_s(uint64_t seconds, uint8_t unused, const char *format, char *buffer,
                                     uint32_t size);

OMBR_END_DECLS

#endif
