/* Hex dumps, sixteen bytes a line:
       0000: 30313233 34353637  38396162 63646566 | 0123456789abcdef */
#include <string.h>

#include "log/log.h"
#include "store/str.h"

#define DUMP_WIDTH 16
#define DUMP_LINE_SIZE 96
#define DUMP_BLOCK_SIZE 8192 /* lines are collected up to here */

/* Blanks behind the digits of a column. */
static size_t gap_behind(int column)
{
    return column == 7 ? 2 : column == 3 || column == 11 ? 1 : 0;
}

static char *put_digits(char *out, const unsigned char *bytes, int count)
{
    static const char digits[] = "0123456789abcdef";
    for (int column = 0; column < DUMP_WIDTH; ++column) {
        *out++ = column < count ? digits[bytes[column] >> 4] : ' ';
        *out++ = column < count ? digits[bytes[column] & 15] : ' ';
        memset(out, ' ', gap_behind(column));
        out += gap_behind(column);
    }
    return out;
}

/* A line's last byte must not be the first half of a two-byte character. */
static char *put_characters(char *out, const unsigned char *bytes, int count)
{
    for (int column = 0; column < count; ++column) {
        const unsigned char byte = bytes[column];
        const bool hidden = byte < ' ' || (column == DUMP_WIDTH - 1 && byte >= 0x80);
        *out++ = hidden ? '.' : static_cast<char>(byte);
    }
    return out;
}

static size_t format_dump_line(char *line, const unsigned char *bytes, int offset, int count)
{
    snprintf_(line, DUMP_LINE_SIZE, "%04x: ", static_cast<unsigned>(offset));
    char *out = put_digits(line + strlen(line), bytes, count);
    *out++ = ' ';
    *out++ = '|';
    *out++ = ' ';
    out = put_characters(out, bytes, count);
    *out++ = '\r';
    *out++ = '\n';
    return static_cast<size_t>(out - line);
}

int dump(const void *data, int length)
{
    const unsigned char *bytes = static_cast<const unsigned char *>(data);
    if (bytes == nullptr || length <= 0) return 0;
    char block[DUMP_BLOCK_SIZE];
    size_t used = 0;
    for (int offset = 0; offset < length; offset += DUMP_WIDTH) {
        const int left = length - offset;
        used += format_dump_line(block + used, bytes + offset, offset,
                                 left < DUMP_WIDTH ? left : DUMP_WIDTH);
        if (used + DUMP_LINE_SIZE <= sizeof(block)) continue;
        if (put(block, used) < 0) return -1;
        used = 0;
    }
    return put(block, used);
}
