/* Dates of header lines and message ids. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include "tests/support/fault_os.h"
#include "tests/support/local_time.h"
#include "tests/unit/headers/header_job.h"

using std::string;

static string date(const string &value, int size = 256)
{
    GuardedBuffer buffer(static_cast<size_t>(size));
    datestr(value.c_str(), buffer.data(), size);
    EXPECT_TRUE(buffer.intact()) << size;
    return size > 0 ? buffer.data() : "";
}

TEST(DateStr, TableOfValues)
{
    static const struct {
        const char *label, *value, *text;
    } rows[] = {
        {"usual", "Sun, 15 Nov 2026 09:13:58 +0900\r\n", "2026/11/15 09:13"},
        {"no day of the week", "15 Nov 2026 09:13:58 +0900", "2026/11/15 09:13"},
        {"leading blanks", " \t Sun, 5 Jan 2026 9:03:58", "2026/01/05 09:03"},
        {"month in another case", "Sun, 15 nOV 2026 09:13:58", "2026/11/15 09:13"},
        {"long month name", "15 November 2026 09:13:58", "2026/11/15 09:13"},
        {"two-digit year", "Sun, 15 Nov 26 09:13:58", "26/11/15 09:13"},
        {"five-digit year", "Sun, 15 Nov 12026 09:13:58", "12026/11/15 09:13"},
        {"no blank behind the comma", "Sun,15 Nov 2026 09:13:58", "2026/11/15 09:13"},
        {"no blank before the month", "15Nov 2026 09:13:58", "2026/11/15 09:13"},
        {"wide blanks", "15  Nov\t 2026  09:13:58", "2026/11/15 09:13"},
        {"December", "31 Dec 2026 23:59:60", "2026/12/31 23:59"},
        {"numbers are not judged", "99 Jan 2026 77:88:99", "2026/01/99 77:88"},
        {"huge day", "99999999999999999999 Jan 2026 1:2:3", "2026/01/2147483647 01:02"},
        {"no seconds", "Sun, 15 Nov 2026 09:13 +0900", "Sun, 15 Nov 2026 09:13 +0900"},
        {"no day", "Sun, Nov 15 2026", "Sun, Nov 15 2026"},
        {"no month", "15 11 2026 09:13:58", "15 11 2026 09:13:58"},
        {"no year", "15 Nov", "15 Nov"},
        {"no year digits", "15 Nov x 09:13:58", "15 Nov x 09:13:58"},
        {"no time", "15 Nov 2026", "15 Nov 2026"},
        {"no minutes", "15 Nov 2026 09:", "15 Nov 2026 09:"},
        {"blank before the colon", "15 Nov 2026 09 :13:58", "15 Nov 2026 09 :13:58"},
        {"another form", "2026-11-15T09:13:58Z\r\n", "2026-11-15T09:13:58Z\r\n"},
        {"comma at the end", "15 Nov 2026 09:13:58,", "15 Nov 2026 09:13:58,"},
        {"eight-bit", "\xff, \x80 Nov", "\xff, \x80 Nov"},
        {"empty", "", ""},
        {"blanks", "  ", "  "},
    };
    for (const auto &row : rows)
        EXPECT_EQ(date(row.value), row.text) << row.label;
}

TEST(DateStr, TheFirstMonthAndTheLast)
{
    static const char *const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char want[32];
    for (int month = 1; month <= 12; ++month) {
        snprintf(want, sizeof want, "2026/%02d/01 00:00", month);
        EXPECT_EQ(date(string("1 ") + names[month - 1] + " 2026 0:0:0"), want);
    }
}

TEST(DateStr, OnlyTheFirst127CharactersAreRead)
{
    const string pad(127 - 20, ' ');
    EXPECT_EQ(date(pad + "15 Nov 2026 09:13:58"), "2026/11/15 09:13");
    const string cut = string(127 - 17, ' ') + "15 Nov 2026 09:13:58";
    EXPECT_EQ(date(cut), cut) << "the second colon is the 128th character";
}

TEST(DateStr, TheResultIsCutAtTheSize)
{
    for (int size = 0; size < 20; ++size) {
        EXPECT_EQ(
            date("15 Nov 2026 09:13:58", size),
            string("2026/11/15 09:13").substr(0, size > 0 ? static_cast<size_t>(size - 1) : 0));
        EXPECT_EQ(
            date("no date at all here", size),
            string("no date at all here").substr(0, size > 0 ? static_cast<size_t>(size - 1) : 0));
    }
    EXPECT_EQ(date(string(5000, 'x'), 4096), string(4095, 'x'));
}

TEST(Getmsgidsec, CountsLocalTimeInMonthsOf31Days)
{
    set_zone("Asia/Tokyo");
    FaultOs fault;
    fault.now = 1794701640; /* 2026-11-15 09:14:00 +0900 */
    EXPECT_EQ(getmsgidsec(), 0 + 60 * 14 + 3600 * 9 + 86400 * 15 + 2678400 * 10);
    fault.now = 1798729199; /* 2026-12-31 23:59:59 +0900 */
    EXPECT_EQ(getmsgidsec(), 59 + 60 * 59 + 3600 * 23 + 86400 * 31 + 2678400 * 11);
}
