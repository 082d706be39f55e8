/* Times by the calendar of a zone that a test chooses. */
#ifndef TESTS_LOCAL_TIME_H
#define TESTS_LOCAL_TIME_H

#include <stdlib.h>
#include <time.h>

inline void set_zone(const char *zone)
{
    setenv("TZ", zone, 1);
    tzset();
}

/* The moment in the local zone; months from 1. */
inline time_t local_time_of(int year, int month, int day, int hour, int minute, int second = 0)
{
    struct tm local = {};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    return mktime(&local);
}

#endif
