/* When a list's digest falls due: once a day at the minute of its "time=", by the local calendar.
 */
#ifndef HOST_MLISTD_DIGEST_SCHEDULE_H
#define HOST_MLISTD_DIGEST_SCHEDULE_H

#include <chrono>
#include <compare>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

/* A day of the local calendar. */
using Day = std::chrono::sys_days;

struct LocalTime {
    Day day;
    int minute; /* of the day */

    auto operator<=>(const LocalTime &) const = default;
};

LocalTime local_time(time_t time);

/* "2026-11-21", and back; nothing for any other text. */
std::string day_text(Day day);
std::optional<Day> parse_day(std::string_view text);

/* What is known of a list. */
struct DigestFacts {
    int minute;                /* at which its digests fall due */
    std::optional<Day> pushed; /* the last day that has had its push */
    std::optional<LocalTime> exists_since;
};

enum class DigestVerdict {
    rest,     /* nothing to do until the next minute */
    push,     /* the latest due minute has not had its push */
    take_over /* no push, but from now on the latest due day counts as pushed */
};

/* The latest day whose due minute has come: today, or yesterday before that minute. */
Day latest_due_day(LocalTime now, int minute);

/* However long nobody looked, one push is due, not one for every day; a minute that comes twice
   (the clock was set back, summer time ends) is due once; a minute that was left out is due right
   after. A list is not due for a minute before its making. */
DigestVerdict judge(LocalTime now, const DigestFacts &facts);

#endif
