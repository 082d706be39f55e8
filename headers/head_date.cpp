/* Dates of header lines and message ids. */
#include "headers/head.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "module/ascii.h"
#include "module/os.h"
#include "store/str.h"

static constexpr size_t DATE_SIZE = 128; /* how much of a value is read as a date */

struct DateParts {
    const char *year; /* as written */
    int year_length;
    int month, day, hour, minute;
};

/* Reads a run of digits; the byte behind it, or null when there is no digit.  What no int holds
   becomes the largest. */
static const char *read_digits(const char *text, int *value_out)
{
    if (!is_ascii_digit(static_cast<unsigned char>(*text))) return nullptr;
    int value = 0;
    for (; is_ascii_digit(static_cast<unsigned char>(*text)); ++text) {
        const int digit = *text - '0';
        value = value > (INT_MAX - digit) / 10 ? INT_MAX : value * 10 + digit;
    }
    *value_out = value;
    return text;
}

/* Month number of the name that the text begins with, or 0. */
static int read_month(const char *text)
{
    static const char names[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int month = 1; month <= 12; ++month)
        if (begins_nocase(text, names[month - 1])) return month;
    return 0;
}

/* Digits with a colon behind them: the byte after the colon, or null. */
static const char *read_clock_part(const char *text, int *value_out)
{
    const char *end = read_digits(text, value_out);
    return end != nullptr && *end == ':' ? end + 1 : nullptr;
}

static bool parse_date(const char *text, DateParts *parts_out)
{
    const char *comma = strchr(text, ',');
    const char *at =
        read_digits(skip_space_tab(comma != nullptr ? comma + 1 : text), &parts_out->day);
    if (at == nullptr) return false;

    at = skip_space_tab(at);
    parts_out->month = read_month(at);
    if (parts_out->month == 0) return false;

    at = skip_space_tab(at + strcspn(at, " \t"));
    parts_out->year = at;
    at = skipdigit(at);
    parts_out->year_length = static_cast<int>(at - parts_out->year);
    if (parts_out->year_length == 0) return false;

    /* KEPT: the minutes need a colon behind them, so that a time without seconds is no date.
       Test: DateStr.TableOfValues */
    at = read_clock_part(skip_space_tab(at), &parts_out->hour);
    return at != nullptr && read_clock_part(at, &parts_out->minute) != nullptr;
}

void datestr(const char *value, char *out, int size)
{
    if (size <= 0) return;
    char text[DATE_SIZE];
    strncpy_(text, value, sizeof text);
    DateParts date;
    if (parse_date(skip_space_tab(text), &date))
        snprintf(out, static_cast<size_t>(size), "%.*s/%02d/%02d %02d:%02d", date.year_length,
                 date.year, date.month, date.day, date.hour, date.minute);
    else
        snprintf(out, static_cast<size_t>(size), "%s", value);
}

int64_t getmsgidsec()
{
    const time_t now = os->time(nullptr);
    struct tm local = {};
    if (localtime_r(&now, &local) == nullptr) return 0;
    return local.tm_sec + 60 * local.tm_min + 3600 * local.tm_hour + 86400 * local.tm_mday +
           int64_t{2678400} * local.tm_mon;
}
