/* Times and days of the year 2026, by the local calendar. */
#ifndef TESTS_UNIT_HOST_DIGEST_TIME_H
#define TESTS_UNIT_HOST_DIGEST_TIME_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "host/mlistd/digest/schedule.h"
#include "tests/support/local_time.h"

/* "11-21 13:00" in the local zone; the first of two equal times unless told otherwise. */
inline time_t at(const std::string &text, int summer = -1)
{
    tm time{};
    EXPECT_EQ(sscanf(text.c_str(), "%d-%d %d:%d", &time.tm_mon, &time.tm_mday, &time.tm_hour,
                     &time.tm_min),
              4)
        << text;
    time.tm_mon -= 1;
    time.tm_year = 2026 - 1900;
    time.tm_isdst = summer;
    return mktime(&time);
}

inline Day day(unsigned month, unsigned number)
{
    return std::chrono::year(2026) / month / number;
}

#endif
