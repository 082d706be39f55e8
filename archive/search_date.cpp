/* Date keys: of a message's arrival (its file's time) and of its sending (its Date field). */
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "archive/search.h"
#include "module/ascii.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/unix_sv.h"

struct Day {
    int day, month, year;
};

/* Below, at or above 0 as left is before, on or after right. */
static int compare_days(const Day &left, const Day &right)
{
    if (left.year != right.year) return left.year < right.year ? -1 : 1;
    if (left.month != right.month) return left.month < right.month ? -1 : 1;
    return left.day == right.day ? 0 : left.day < right.day ? -1 : 1;
}

/* -- the criterion's date -- */

static int month_of(const char *name)
{
    static const char names[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    for (int month = 0; month < 12; ++month)
        if (same_bytes_nocase(name, names + 3 * month, 3)) return month + 1;
    return 0;
}

static bool is_digit(char c)
{
    return is_ascii_digit(static_cast<unsigned char>(c));
}

int search_analize_imapdate(const char *text, int *day_out, int *month_out, int *year_out)
{
    if (*text == '"') ++text;
    if (!is_digit(*text)) return 0;
    *day_out = *text++ - '0';
    if (is_digit(*text)) *day_out = *day_out * 10 + (*text++ - '0');
    if (*text++ != '-') return 0;
    for (int i = 0; i < 3; ++i)
        if (text[i] == '\0') return 0;
    *month_out = month_of(text);
    if (*month_out == 0 || text[3] != '-') return 0;
    text += 4;
    *year_out = 0;
    for (int i = 0; i < 4; ++i, ++text) {
        if (!is_digit(*text)) return 0;
        *year_out = *year_out * 10 + (*text - '0');
    }
    return *text == '\0' || *text == '"';
}

/* How a key compares, and the numbers of its log lines. */
struct DateKey {
    const char *word;
    bool (*matches)(int order);
    int stat_error, time_error;
};

static bool is_before(int order)
{
    return order < 0;
}
static bool is_on(int order)
{
    return order == 0;
}
static bool is_since(int order)
{
    return order >= 0;
}

static const DateKey internal_keys[] = {
    {"SINCE", is_since, 803, 804}, {"ON", is_on, 805, 806}, {"BEFORE", is_before, 807, 808}};
static const DateKey sent_keys[] = {
    {"SENTSINCE", is_since, 809, 0}, {"SENTON", is_on, 810, 0}, {"SENTBEFORE", is_before, 811, 0}};

template <size_t count>
static const DateKey &find_key(const DateKey (&keys)[count], const char *word)
{
    for (const DateKey &key : keys)
        if (same_text_nocase(key.word, word)) return key;
    return keys[0];
}

static bool parse_day(Search *search, const char *text, Day *day_out)
{
    if (search_analize_imapdate(text, &day_out->day, &day_out->month, &day_out->year)) return true;
    (void)search_error(search);
    return false;
}

/* -- arrival -- */

static bool arrival_of(const MailboxHandle *handle, int sequence, const DateKey &key, Day *day_out)
{
    char name[MBX_NAME_SIZE];
    struct stat status;
    if (message_name(name, handle->path, message_record(handle, sequence)->uid) < 0 ||
        os->stat(name, &status) < 0) {
        trace_sys(&g_logh, 11, key.stat_error, "search_internal_date: stat err");
        return false;
    }
    struct tm utc;
    if (gmtime_r(&status.st_mtime, &utc) == nullptr) {
        trace_sys(&g_logh, 11, key.time_error, "search_internal_date: stat mtime err");
        return false;
    }
    *day_out = {utc.tm_mday, utc.tm_mon + 1, utc.tm_year + 1900};
    return true;
}

SearchEntry *search_internal_date(Search *search, SearchEntry *set, const char *word,
                                  const char *date)
{
    Day wanted;
    if (!parse_day(search, date, &wanted)) return set;
    const DateKey &key = find_key(internal_keys, word);
    return filter_set(set, [&](int s) {
        Day day;
        return arrival_of(search->handle, s, key, &day) && key.matches(compare_days(day, wanted));
    });
}

/* -- sending -- */

#define HELD_FOR_DATE 16384

int search_get_rfc822date(const MailboxHandle *handle, int sequence, int *day_out, int *month_out,
                          int *year_out)
{
    FdGuard file(open_message(handle, sequence));
    if (file.fd < 0) return 0;
    /* Read with or without the lock: a message file never changes, and its lock may be a queue's
       that we must not wait for. */
    (void)lock_file(file.fd, LOCK_EX | LOCK_NB);
    const IndexRecord *record = message_record(handle, sequence);
    MessageBytes bytes(file.fd, *record, HELD_FOR_DATE);
    const HostPtr<char> header(bytes.text(0, record->header_size));
    if (header.p == nullptr) return 0;
    FieldCursor fields;
    start_fields(&fields, header.p);
    while (char *field = next_field(&fields)) {
        const char *value = field_value(field, "Date: ");
        if (value != nullptr) return analize_rfc822date(value, day_out, month_out, year_out);
    }
    return 0;
}

SearchEntry *search_date(Search *search, SearchEntry *set, const char *word, const char *date)
{
    Day wanted;
    if (!parse_day(search, date, &wanted)) return set;
    const DateKey &key = find_key(sent_keys, word);
    return filter_set(set, [&](int s) {
        Day day;
        if (search_get_rfc822date(search->handle, s, &day.day, &day.month, &day.year))
            return key.matches(compare_days(day, wanted));
        trace_sys(&g_logh, 11, key.stat_error, "search_date: search_get_rfc822date err");
        return false;
    });
}
