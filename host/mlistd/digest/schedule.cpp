#include "host/mlistd/digest/schedule.h"

#include <cstdio>

#include "host/base/text.h"

namespace chr = std::chrono;

LocalTime local_time(time_t time)
{
    tm local{};
    localtime_r(&time, &local);
    const chr::year_month_day date{chr::year(local.tm_year + 1900),
                                   chr::month(static_cast<unsigned>(local.tm_mon + 1)),
                                   chr::day(static_cast<unsigned>(local.tm_mday))};
    return {chr::sys_days(date), local.tm_hour * 60 + local.tm_min};
}

std::string day_text(Day day)
{
    const chr::year_month_day date(day);
    char text[32];
    snprintf(text, sizeof(text), "%04d-%02u-%02u", static_cast<int>(date.year()),
             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return text;
}

std::optional<Day> parse_day(std::string_view text)
{
    if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
    const auto year = parse_number(text.substr(0, 4));
    const auto month = parse_number(text.substr(5, 2));
    const auto day = parse_number(text.substr(8, 2));
    if (!year || !month || !day || *month < 0 || *day < 0) return std::nullopt;
    const chr::year_month_day date{chr::year(static_cast<int>(*year)),
                                   chr::month(static_cast<unsigned>(*month)),
                                   chr::day(static_cast<unsigned>(*day))};
    if (!date.ok()) return std::nullopt;
    return chr::sys_days(date);
}

Day latest_due_day(LocalTime now, int minute)
{
    return now.minute >= minute ? now.day : now.day - chr::days(1);
}

DigestVerdict judge(LocalTime now, const DigestFacts &facts)
{
    const Day due = latest_due_day(now, facts.minute);
    /* Written by a clock that ran ahead; believed, it would silence the list until that day. */
    if (facts.pushed && *facts.pushed > now.day + chr::days(1)) return DigestVerdict::take_over;
    if (facts.pushed && *facts.pushed >= due) return DigestVerdict::rest;

    /* A making in the future is the word of such a clock too. */
    const bool age_known = facts.exists_since && *facts.exists_since <= now;
    if (!age_known) return facts.pushed ? DigestVerdict::push : DigestVerdict::take_over;
    const bool younger = *facts.exists_since > LocalTime{due, facts.minute};
    return younger ? DigestVerdict::rest : DigestVerdict::push;
}
