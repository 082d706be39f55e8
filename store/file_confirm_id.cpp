/* Confirmation ids and their expiry. */
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "module/os.h"
#include "store/confirm.h"
#include "store/str.h"

/* -- ids -- */

/* Four bytes as hexadecimal digits, the least significant first. */
static char *put_bytes(char *out, uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8) {
        snprintf(out, 3, "%02X", (value >> shift) & 0xFFu);
        out += 2;
    }
    return out;
}

/* KEPT: two draws of the C library's generator, seeded with the second of the minute.  The state
   is the call's own, so that the host's generator is left alone; it gives the same numbers.
   Test: ConfirmId.IsThatOfTheCLibrarysGeneratorForEverySecond */
char *mkcnfrm(char *buffer)
{
    struct tm now = {};
    (void)getnewtime(&now, 0); /* without a calendar time the second is 0 */
    struct random_data generator = {};
    char state[128];
    memset(state, 0, sizeof(state));
    initstate_r(static_cast<unsigned>(now.tm_sec), state, sizeof(state), &generator);
    char *out = buffer;
    for (int draw = 0; draw < 2; ++draw) {
        int32_t value = 0;
        random_r(&generator, &value);
        out = put_bytes(out, static_cast<uint32_t>(value));
    }
    return buffer;
}

/* -- times -- */

int getnewtime(struct tm *out, int64_t seconds)
{
    time_t then;
    if (__builtin_add_overflow(os->time(nullptr), seconds, &then)) return -1;
    return localtime_r(&then, out) != nullptr ? 0 : -1;
}

/* A number and the character behind it; a number too large to matter is the largest.  Null when
   there is no digit, or another character. */
static const char *read_field(const char *text, char end, int *value_out)
{
    if (!is_ascii_digit(static_cast<unsigned char>(*text))) return nullptr;
    int64_t value = 0;
    for (; is_ascii_digit(static_cast<unsigned char>(*text)); ++text)
        if (value <= INT_MAX) value = value * 10 + (*text - '0');
    *value_out = value > INT_MAX ? INT_MAX : static_cast<int>(value);
    return *text == end ? text + 1 : nullptr;
}

static bool is_printable(unsigned char c)
{
    return c > 31 && c != 127;
}

#define DATE_FIELDS 5

const char *validcnfrm(const struct tm *now, const char *text)
{
    static const char ends[DATE_FIELDS] = {'/', '/', ':', ':', ' '};
    int line[DATE_FIELDS];
    for (int i = 0; i < DATE_FIELDS; ++i) {
        text = read_field(text, ends[i], &line[i]);
        if (text == nullptr) return nullptr;
    }
    if (!is_printable(static_cast<unsigned char>(*text))) return nullptr;

    const int current[DATE_FIELDS] = {now->tm_year, now->tm_mon, now->tm_mday, now->tm_hour,
                                      now->tm_min};
    for (int i = 0; i < DATE_FIELDS; ++i)
        if (line[i] != current[i]) return line[i] > current[i] ? text : nullptr;
    return text;
}
