/*
 * ORLIX_Time.h - calendar time with leap seconds and a compiled-in time-zone
 * database.
 *
 * An ORLIX_Time is a broken-down Gregorian date and time of day with
 * nanoseconds (years 1582 to 9999), either in UTC or as the wall-clock time
 * of one zone of the compiled database. Values are immutable: every
 * operation that yields a time returns a new value, which the caller
 * releases with orlix_time_free, and leaves its arguments unchanged.
 *
 * UTC arithmetic knows the 27 positive leap seconds from 1972-06-30 to
 * 2016-12-31: 23:59:60 on those days is a valid, distinct second. Operations
 * that accept local times convert them to UTC first; the add operations
 * convert their result back to the zone the system runs in (which is not
 * necessarily the zone of the argument).
 *
 * Nothing is recorded anywhere on failure: the result is NULL, -1 or the
 * sentinel named for the function. The tables are constant and every
 * function is re-entrant.
 */
#ifndef ORLIX_TIME_H
#define ORLIX_TIME_H

#include <stdint.h>

#include "ORLIX_Export.h"

ORLIX_BEGIN_DECLS

typedef struct ORLIX_Time_st ORLIX_Time;

/* ---- construction and ownership --------------------------------------- */

/*
 * A new UTC value. Fields must lie in year 1582..9999, month 1..12, day
 * 1..days of the month, hour 0..24, minute 0..59, second 0..60 and
 * nanosecond 0..999999999. Hour 24 is only accepted as the end of a day
 * (minute and second 0) and becomes hour 0 of the next day; second 60 only
 * where it is one of the leap seconds. NULL otherwise or when memory runs
 * out.
 */
ORLIX_API ORLIX_Time *orlix_time_newutctime(int32_t year, int32_t month, int32_t day, int32_t hour,
                                            int32_t minute, int32_t second, int64_t nanosecond);

/* The current UTC time in whole seconds (nanosecond 0); NULL when the clock
 * cannot be read or memory runs out. */
ORLIX_API ORLIX_Time *orlix_time_nowutctime(void);

/*
 * A new local time of the system's zone from its wall-clock fields, checked
 * as for orlix_time_newutctime. dst chooses between the two readings of a
 * repeated hour (1: the daylight-saving one); a time inside a skipped hour
 * moves to its end. NULL for bad fields or when memory runs out. When the
 * system runs in UTC the result is a UTC value.
 */
ORLIX_API ORLIX_Time *orlix_time_newlocaltime(int32_t year, int32_t month, int32_t day,
                                              int32_t hour, int32_t minute, int32_t second,
                                              int64_t nanosecond, uint32_t dst);

/* As orlix_time_newlocaltime in the zone named zone (a name of the compiled
 * database such as "Europe/London"; "UTC" gives a UTC value). NULL also for
 * NULL or an unknown name. */
ORLIX_API ORLIX_Time *orlix_time_newlocaltimebyzone(const char *zone, int32_t year, int32_t month,
                                                    int32_t day, int32_t hour, int32_t minute,
                                                    int32_t second, int64_t nanosecond,
                                                    uint32_t dst);

/* The current time as a local time of the system's zone; NULL on failure. */
ORLIX_API ORLIX_Time *orlix_time_nowlocaltime(void);

/* A copy of t (NULL for NULL or when memory runs out). */
ORLIX_API ORLIX_Time *orlix_time_dup(const ORLIX_Time *t);

/* Releases t; NULL is ignored. */
ORLIX_API void orlix_time_free(ORLIX_Time *t);

/* ---- fields ----------------------------------------------------------------
 * Each returns the field as stored (a local time's wall-clock reading), or -1
 * for NULL. */

ORLIX_API int32_t orlix_time_getyear(const ORLIX_Time *t);
ORLIX_API int32_t orlix_time_getmonth(const ORLIX_Time *t);
ORLIX_API int32_t orlix_time_getday(const ORLIX_Time *t);
ORLIX_API int32_t orlix_time_gethour(const ORLIX_Time *t);
ORLIX_API int32_t orlix_time_getminute(const ORLIX_Time *t);
ORLIX_API int32_t orlix_time_getsecond(const ORLIX_Time *t);
ORLIX_API int64_t orlix_time_getns(const ORLIX_Time *t);

/* 1 for a UTC value; 0 for a local time or NULL. */
ORLIX_API int orlix_time_isutctime(const ORLIX_Time *t);

/* 1 for a local time read in daylight-saving time; 0 for UTC values, other
 * local times and NULL. */
ORLIX_API int orlix_time_isdst(const ORLIX_Time *t);

/* 1 when t's year is a Gregorian leap year; 0 otherwise or for NULL. */
ORLIX_API int orlix_time_isleapyear(const ORLIX_Time *t);

/* 1 when t is one of the leap seconds (second 60; a local time is converted
 * to UTC first); 0 otherwise, for NULL or when the conversion fails. */
ORLIX_API int orlix_time_isleapsecond(const ORLIX_Time *t);

/* ---- comparison and differences ------------------------------------------ */

/*
 * -1, 0 or 1 as a is before, equal to or after b, compared in UTC down to
 * the nanosecond. NULL sorts first. When a local operand cannot be converted
 * to UTC the result is -1 (a's conversion failed) or 1 (b's).
 */
ORLIX_API int orlix_time_cmp(const ORLIX_Time *a, const ORLIX_Time *b);

/*
 * The number of UTC calendar dates from b to a (23:59 and 00:01 of the next
 * day are one day apart); negative when a is earlier. Both NULL: 0; a NULL:
 * INT32_MIN; b NULL or a failed conversion: INT32_MAX.
 */
ORLIX_API int32_t orlix_time_diffdays(const ORLIX_Time *a, const ORLIX_Time *b);

/*
 * Seconds from b to a in UTC, counting every leap second from the earlier to
 * the later value, both included; nanoseconds are ignored. Both NULL: 0; a
 * NULL: INT64_MIN; b NULL or a failed conversion: INT64_MAX.
 */
ORLIX_API int64_t orlix_time_diffseconds(const ORLIX_Time *a, const ORLIX_Time *b);

/* 1 = Monday .. 7 = Sunday for the UTC date of t from 1970 on. Earlier dates
 * keep the truncating remainder of the day count: some give -1 .. -6. -1 for
 * NULL or a failed conversion. */
ORLIX_API int32_t orlix_time_getdayofweek(const ORLIX_Time *t);

/* Seconds since 1970-01-01 00:00:00 UTC without leap seconds (a POSIX
 * time_t); INT64_MIN for NULL or a failed conversion. */
ORLIX_API int64_t orlix_time_gettime_t(const ORLIX_Time *t);

/* ---- arithmetic ------------------------------------------------------------
 * Each returns a new value moved by count units (negative counts move
 * back), or NULL when the result leaves the years 1582..9999, a local
 * argument cannot be converted, or memory runs out. A UTC argument gives a
 * UTC result. A local argument is converted to UTC, moved there, and
 * converted back to the system's zone. */

/* Keeps month and day; February 29 becomes March 1 in a common year. */
ORLIX_API ORLIX_Time *orlix_time_addyear(const ORLIX_Time *t, int32_t count);

/* Keeps the day where the new month has it, else its last day. */
ORLIX_API ORLIX_Time *orlix_time_addmonth(const ORLIX_Time *t, int32_t count);

/* Calendar days and hours; second 60 becomes 59 where the new minute has no
 * leap second. */
ORLIX_API ORLIX_Time *orlix_time_addday(const ORLIX_Time *t, int32_t count);
ORLIX_API ORLIX_Time *orlix_time_addhour(const ORLIX_Time *t, int32_t count);

/* Minutes; the second field is kept as it is, 60 included. */
ORLIX_API ORLIX_Time *orlix_time_addminute(const ORLIX_Time *t, int32_t count);

/* Seconds, counting the leap seconds passed over as seconds of their own. */
ORLIX_API ORLIX_Time *orlix_time_addsecond(const ORLIX_Time *t, int32_t count);

/* ---- time zones ----------------------------------------------------------- */

/* t (a UTC value) as a local time of the system's zone; NULL for NULL, a
 * local argument or on failure. When the system runs in UTC the result is a
 * copy, still UTC. */
ORLIX_API ORLIX_Time *orlix_time_utc2local(const ORLIX_Time *t);

/* t (a UTC value) as a local time of the named zone; NULL for a NULL or
 * unknown name, a NULL or local argument, or on failure. "UTC" and "Etc/UTC"
 * give a UTC copy. */
ORLIX_API ORLIX_Time *orlix_time_utc2localbyzone(const char *zone, const ORLIX_Time *t);

/* The UTC value of a local time, read in its own zone with its dst flag
 * deciding a repeated hour; NULL for NULL, a UTC argument or on failure. */
ORLIX_API ORLIX_Time *orlix_time_local2utc(const ORLIX_Time *t);

/* ---- the zone database --------------------------------------------------- */

/* The number of zone names compiled in (582); identifiers run from 0. */
ORLIX_API int32_t orlix_time_getzonecount(void);

/* The name of zone identifier id, a constant text (414 is "Etc/UTC"); NULL
 * outside 0 .. orlix_time_getzonecount() - 1. */
ORLIX_API const char *orlix_time_getzonename(int32_t id);

/* The zone identifier a time carries (414 for every UTC value); -1 for
 * NULL. */
ORLIX_API int32_t orlix_time_getzoneid(const ORLIX_Time *t);

/* The identifier of the zone the system runs in, found anew on each call
 * from /etc/localtime, /etc/timezone, /etc/TIMEZONE, /etc/sysconfig/clock,
 * /etc/default/init and TZ, in that order; "Etc/UTC" when none answers. */
ORLIX_API int32_t orlix_time_getsystemzoneid(void);

ORLIX_END_DECLS

#endif /* ORLIX_TIME_H */
