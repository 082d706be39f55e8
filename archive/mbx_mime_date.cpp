/* Dates as headers have them. */
#include "archive/mime.h"

const char month_names[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

static const char *read_digits(const char *text, int most, int *value_out, int *count_out)
{
    *value_out = *count_out = 0;
    for (; *count_out < most && is_ascii_digit(static_cast<unsigned char>(*text)); ++text) {
        *value_out = *value_out * 10 + (*text - '0');
        ++*count_out;
    }
    return text;
}

/* 1 to 12; 0 when the text begins with no month's name. */
static int month_number(const char *text)
{
    for (int i = 0; i < 12; ++i)
        if (begins_nocase(text, month_names[i])) return i + 1;
    return 0;
}

/* The year that so many digits mean; -1 when they mean none. */
static int full_year(int year, int digits)
{
    if (digits == 4) return year;
    if (digits == 3) return -1;
    return year > 69 ? 1900 + year : 2000 + year;
}

int analize_rfc822date(const char *text, int *day_out, int *month_out, int *year_out)
{
    int day, year, digits;
    while (*text != '\0' && !is_ascii_digit(static_cast<unsigned char>(*text)))
        ++text;
    text = read_digits(text, 2, &day, &digits);
    if (digits == 0 || *text != ' ') return 0;
    const int month = month_number(text + 1);
    if (month == 0 || text[4] != ' ') return 0;
    (void)read_digits(text + 5, 4, &year, &digits);
    year = full_year(year, digits);
    if (year < 0) return 0;
    *day_out = day;
    *month_out = month;
    *year_out = year;
    return 1;
}
