/* Fields of a header, lines, dates. */
#include <gtest/gtest.h>

#include <thread>

#include "archive/mime.h"
#include "tests/unit/archive_fetch/reader.h"

using List = std::vector<std::string>;

static List fields_of(const std::string &header)
{
    std::string copy = header;
    List found;
    for (char *one = list_get1header(copy.data()); one != nullptr; one = list_get1header(nullptr))
        found.push_back(one);
    return found;
}

TEST(FieldWalk, UnfoldsFields)
{
    EXPECT_EQ(List({"A: 1", "B: 2 3 4", ""}), fields_of("A: 1\r\nB: 2\r\n \t 3\r\n\t4\r\n\r\n"));
    EXPECT_EQ(List({" at once"}), fields_of("\r\n\tat once\r\n"));
    EXPECT_EQ(List({"a b", "c"}), fields_of("a\r\n b\rc\r\n")) << "a CR alone ends a field too";
}

TEST(FieldWalk, LosesALastLineWithoutALineEnd)
{
    EXPECT_EQ(List({"A: 1"}), fields_of("A: 1\r\nB: 2"));
    EXPECT_EQ(List(), fields_of("B: 2\n"));
    EXPECT_EQ(List(), fields_of(""));
    EXPECT_EQ(nullptr, list_get1header(nullptr));
}

TEST(FieldWalk, BelongsToItsThread)
{
    std::string mine = "A: 1\r\nB: 2\r\n";
    EXPECT_STREQ("A: 1", list_get1header(mine.data()));
    std::thread([] {
        EXPECT_EQ(nullptr, list_get1header(nullptr));
        EXPECT_EQ(nullptr, list_get1addr(nullptr));
        EXPECT_EQ(List({"C: 3"}), fields_of("C: 3\r\n"));
    }).join();
    EXPECT_STREQ("B: 2", list_get1header(nullptr));
}

static const struct {
    const char *label, *text;
    uint32_t start, length, lines;
} line_rows[] = {
    {"all of it", "a\nb\nc\n", 0, 6, 3},
    {"nothing", "a\nb\n", 2, 0, 0},
    {"from the middle of a line", "abc\nd\n", 1, 5, 2},
    {"a line that ends behind the range", "a\nbcd\n", 0, 4, 1},
    {"a last line without its end", "a\nb", 0, 3, 2},
    {"it ends behind the range", "a\nbc", 0, 3, 1},
    {"a range longer than the file", "a\nb", 0, 99, 2},
    {"a range behind the file", "a\n", 5, 5, 0},
};

TEST(Lines, AreCountedWhenTheyEndWithinTheRange)
{
    for (const auto &row : line_rows) {
        const MessageText message(row.text);
        EXPECT_EQ(row.lines, getlines(message.fd(), row.start, row.length)) << row.label;
    }
    const MessageText large(std::string(40000, 'x') + "\r\n" + std::string(40000, '\n') + "end");
    EXPECT_EQ(40002u, getlines(large.fd(), 0, large.size()));
    EXPECT_EQ(0u, getlines(-1, 0, 10));
}

static const struct {
    const char *text;
    int day, month, year; /* day 0: no date */
} date_rows[] = {
    {"Sun, 15 Nov 2026 09:13:58 +0900", 15, 11, 2026},
    {"1 jan 1999", 1, 1, 1999},
    {"01 DEC 69", 1, 12, 2069},
    {"01 Dec 70 x", 1, 12, 1970},
    {"9 Feb 5", 9, 2, 2005},
    {"9 Feb x", 9, 2, 2000},
    {"9 Feb 123", 0, 0, 0},
    {"9 Feb 12345", 9, 2, 1234},
    {"123 Feb 2000", 0, 0, 0},
    {"9  Feb 2000", 0, 0, 0},
    {"9 Febr 2000", 0, 0, 0},
    {"9 Feb", 0, 0, 0},
    {"9 Fe", 0, 0, 0},
    {"9", 0, 0, 0},
    {"no digit at all", 0, 0, 0},
    {"", 0, 0, 0},
};

TEST(Rfc822Date, ReadsDayMonthAndYear)
{
    for (const auto &row : date_rows) {
        int day = 0, month = 0, year = 0;
        EXPECT_EQ(row.day != 0, analize_rfc822date(row.text, &day, &month, &year) == 1) << row.text;
        EXPECT_EQ(row.day, day) << row.text;
        EXPECT_EQ(row.month, month) << row.text;
        EXPECT_EQ(row.year, year) << row.text;
    }
}
