/* The calendar of digests, and the record of the last day. */
#include <gtest/gtest.h>

#include "host/mlistd/digest/day_file.h"
#include "tests/unit/host/digest_time.h"
#include "tests/unit/host/scratch.h"

using Names = std::vector<std::string>;

TEST(DigestSchedule, JudgesByTheLatestDueMinute)
{
    set_zone("UTC");
    const LocalTime long_ago{day(1, 1), 0};
    using enum DigestVerdict;
    static const struct {
        const char *label;
        const char *now;
        std::optional<Day> pushed;
        std::optional<LocalTime> since;
        DigestVerdict verdict;
    } rows[] = {
        {"before the minute", "11-21 12:59", day(11, 20), long_ago, rest},
        {"in the minute", "11-21 13:00", day(11, 20), long_ago, push},
        {"pushed", "11-21 13:00", day(11, 21), long_ago, rest},
        {"late", "11-21 23:59", day(11, 20), long_ago, push},
        {"late, after midnight", "11-21 00:10", day(11, 19), long_ago, push},
        {"yesterday's is done", "11-21 00:10", day(11, 20), long_ago, rest},
        {"a week of silence", "11-21 14:00", day(11, 13), long_ago, push},
        {"never pushed, old", "11-21 14:00", std::nullopt, long_ago, push},
        {"made after the minute", "11-21 14:00", std::nullopt, LocalTime{day(11, 21), 781}, rest},
        {"made in the minute", "11-21 13:00", std::nullopt, LocalTime{day(11, 21), 780}, push},
        {"made before it", "11-21 13:00", std::nullopt, LocalTime{day(11, 21), 779}, push},
        {"made again after it", "11-21 14:00", day(11, 20), LocalTime{day(11, 21), 781}, rest},
        {"age unknown, first sight", "11-21 14:00", std::nullopt, std::nullopt, take_over},
        {"age unknown, seen before", "11-21 14:00", day(11, 20), std::nullopt, push},
        {"made in the future", "11-21 14:00", std::nullopt, LocalTime{day(11, 22), 0}, take_over},
        {"the clock was set back", "11-21 14:00", day(11, 22), long_ago, rest},
        {"it had been far ahead", "11-21 14:00", day(11, 23), long_ago, take_over},
    };
    for (const auto &row : rows)
        EXPECT_EQ(judge(local_time(at(row.now)), {780, row.pushed, row.since}), row.verdict)
            << row.label;
}

TEST(DigestSchedule, WritesDaysAsTheyAreRead)
{
    for (const Day each : {day(1, 1), day(12, 31), Day(std::chrono::year(2028) / 2 / 29)})
        EXPECT_EQ(parse_day(day_text(each)), each);
    EXPECT_EQ(day_text(day(11, 21)), "2026-11-21");
    for (const char *text : {"", "2026-11-2", "2026-11-211", "2026-02-29", "2026-13-01",
                             "2026-00-10", "2026-11--1", "2026/11/21", "yyyy-mm-dd"})
        EXPECT_FALSE(parse_day(text)) << text;
}

TEST(DayFile, KeepsOneDayWhole)
{
    const Scratch scratch;
    const std::string path = scratch.path("a@d.day");
    EXPECT_FALSE(read_day_file(path));
    ASSERT_TRUE(write_day_file(path, day(11, 21)));
    EXPECT_EQ(read_file(path), "2026-11-21\n");
    ASSERT_TRUE(write_day_file(path, day(11, 22)));
    EXPECT_EQ(read_day_file(path), day(11, 22));
    EXPECT_EQ(names_in(scratch.path()), Names{"a@d.day"});
    for (const char *damage : {"", "2026-11", "\n", "x2026-11-21"}) {
        scratch.write("a@d.day", damage);
        EXPECT_FALSE(read_day_file(path)) << damage;
    }
    EXPECT_FALSE(write_day_file(scratch.path("missing/a@d.day"), day(11, 21)));
    std::filesystem::create_directory(scratch.path("making"));
    EXPECT_FALSE(write_day_file(path, day(11, 21)));
}
