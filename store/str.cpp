/* Bounded string helpers, used everywhere in the module. */
#include "store/str.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

static const char line_ends[] = "\r\n";
static const char blanks_and_line_ends[] = " \t\r\n";

/* -- bounded writing -- */

/* KEPT: one byte of the buffer is never used, so that a text has size - 2 characters at most.
   Test: Str.FormattingLeavesOneByteUnused */
static int format_bounded(char *buffer, size_t size, const char *format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

static int format_bounded(char *buffer, size_t size, const char *format, va_list arguments)
{
    const int wanted = vsnprintf(buffer, size - 1, format, arguments);
    buffer[size - 1] = '\0';
    return wanted;
}

int snprintf_(char *buffer, size_t size, const char *format, ...)
{
    if (size == 0) return 0;
    va_list arguments;
    va_start(arguments, format);
    const int wanted = format_bounded(buffer, size, format, arguments);
    va_end(arguments);
    return wanted;
}

int seprintf_(char *buffer, size_t size, const char *format, ...)
{
    if (size == 0 || buffer[0] != '\0') return 0;
    va_list arguments;
    va_start(arguments, format);
    const int wanted = format_bounded(buffer, size, format, arguments);
    va_end(arguments);
    return wanted;
}

/* Copies at most limit bytes and ends them; what follows in the destination stays as it was. */
static void copy_at_most(char *destination, const char *source, size_t limit)
{
    const size_t length = strnlen(source, limit);
    memcpy(destination, source, length);
    destination[length] = '\0';
}

char *strncpy_(char *destination, const char *source, size_t size)
{
    if (size == 0) return destination;
    copy_at_most(destination, source, size - 1);
    destination[size - 1] = '\0';
    return destination;
}

char *strncat_(char *destination, const char *source, size_t n)
{
    if (n == 0) return destination;
    char *end = destination + strlen(destination);
    copy_at_most(end, source, n - 1);
    end[n - 1] = '\0';
    return destination;
}

char *strcpy_(char *destination, const char *source)
{
    return strcpy(destination, source);
}

char *strcat_(char *destination, const char *source)
{
    const size_t old_length = strlen(destination);
    const size_t added = strlen(source);
    memcpy(destination + old_length, source, added + 1);
    /* KEPT: a second terminator as far behind the end as the source is long; the contract makes
       callers provide that room.  Test: Str.JoiningStoresASecondTerminator */
    destination[old_length + added + added] = '\0';
    return destination;
}

char *strdup_(const char *text)
{
    return text == nullptr ? nullptr : strdup(text);
}

/* -- walking -- */

const char *skip_space_tab(const char *text)
{
    if (text == nullptr) return "";
    while (is_blank(static_cast<unsigned char>(*text)))
        ++text;
    return text;
}

char *skip_space_tab(char *text)
{
    return const_cast<char *>(skip_space_tab(static_cast<const char *>(text)));
}

const char *skipdigit(const char *text)
{
    while (is_ascii_digit(static_cast<unsigned char>(*text)))
        ++text;
    return text;
}

uint32_t atodw(const char *text)
{
    uint32_t value = 0;
    for (text = skip_space_tab(text); is_ascii_digit(static_cast<unsigned char>(*text)); ++text)
        value = value * 10 + static_cast<uint32_t>(*text - '0');
    return value;
}

char *jumpend(char *text)
{
    return *text == '\0' ? text : text + strlen(text) - 1;
}

const char *findstr(const char *text, const char *pattern)
{
    return strstr(text, pattern);
}

/* -- trimming -- */

static bool is_blank_or_line_end(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

void chop(char *text)
{
    text[strcspn(text, line_ends)] = '\0';
}

void strip_endchar(char *text)
{
    size_t length = strlen(text);
    while (length > 0 && is_blank_or_line_end(text[length - 1]))
        --length;
    text[length] = '\0';
}

void strip_space_tab_endchar(char *text)
{
    /* Runs between the removed bytes are moved as a whole. */
    char *to = text;
    for (const char *from = text; *from != '\0';) {
        const size_t run = strcspn(from, blanks_and_line_ends);
        memmove(to, from, run);
        to += run;
        from += run;
        from += strspn(from, blanks_and_line_ends);
    }
    *to = '\0';
}
