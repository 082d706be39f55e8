/* Walking a header field by field, and counting lines. */
#include <errno.h>
#include <string.h>

#include "archive/mime.h"
#include "module/guards.h"
#include "module/os.h"

/* -- fields -- */

/* Every CR LF with blanks or tabs behind it becomes one blank, in place. */
static void unfold(char *text)
{
    char *to = text;
    const char *from = text;
    for (;;) {
        const char *cr = strchr(from, '\r');
        const size_t length = cr != nullptr ? static_cast<size_t>(cr - from) : strlen(from);
        if (to != from) memmove(to, from, length);
        to += length;
        if (cr == nullptr) break;
        from = cr + 1;
        if (from[0] != '\n' || !is_blank(static_cast<unsigned char>(from[1]))) {
            *to++ = '\r';
            continue;
        }
        ++from;
        while (is_blank(static_cast<unsigned char>(*from)))
            ++from;
        *to++ = ' ';
    }
    *to = '\0';
}

void start_fields(FieldCursor *cursor, char *header)
{
    unfold(header);
    cursor->next = header;
}

char *next_field(FieldCursor *cursor)
{
    char *field = cursor->next;
    char *cr = field != nullptr ? strchr(field, '\r') : nullptr;
    cursor->next = nullptr;
    if (cr == nullptr) return nullptr;
    *cr = '\0';
    cursor->next = cr[1] == '\n' ? cr + 2 : cr + 1;
    return field;
}

char *field_value(char *field, const char *prefix)
{
    return begins_nocase(field, prefix) ? field + strlen(prefix) : nullptr;
}

static thread_local FieldCursor header_walk;

char *list_get1header(char *header)
{
    if (header != nullptr) start_fields(&header_walk, header);
    return next_field(&header_walk);
}

/* -- lines -- */

#define COUNT_SIZE 16384

static uint32_t count_feeds(const char *data, size_t size)
{
    uint32_t count = 0;
    const char *const end = data + size;
    while (data < end) {
        const void *feed = memchr(data, '\n', static_cast<size_t>(end - data));
        if (feed == nullptr) break;
        ++count;
        data = static_cast<const char *>(feed) + 1;
    }
    return count;
}

/* Feeds of a range that is read piece by piece, and how it ends; less where reading fails. */
static uint32_t count_feeds_in_file(int fd, uint32_t start, uint32_t length, uint64_t *done_out,
                                    char *last_out)
{
    char block[COUNT_SIZE];
    uint32_t count = 0;
    uint64_t done = 0;
    while (done < length) {
        const uint64_t left = length - done;
        const ssize_t got = pread_some(fd, block, left < sizeof(block) ? left : sizeof(block),
                                       static_cast<off_t>(start + done));
        if (got <= 0) break;
        count += count_feeds(block, static_cast<size_t>(got));
        *last_out = block[got - 1];
        done += static_cast<uint64_t>(got);
    }
    *done_out = done;
    return count;
}

/* The file's last line needs no line feed. */
static uint32_t count_lines_held(const char *data, size_t size, uint64_t start, uint64_t length)
{
    if (start >= size) return 0;
    const size_t take = length < size - start ? static_cast<size_t>(length) : size - start;
    const bool unended = take == size - start && take > 0 && data[size - 1] != '\n';
    return count_feeds(data + start, take) + unended;
}

uint32_t count_lines(MessageBytes *bytes, uint32_t start, uint32_t length)
{
    KeepErrno keep;
    size_t size = 0;
    const char *whole = bytes->whole(&size);
    if (whole != nullptr) return count_lines_held(whole, size, start, length);
    char last = '\n';
    uint64_t done = 0;
    const uint32_t feeds = count_feeds_in_file(bytes->fd(), start, length, &done, &last);
    return feeds + (last != '\n' && bytes->there(start, done + 1) == done);
}

uint32_t getlines(int fd, uint32_t start, uint32_t length)
{
    MessageBytes bytes(fd);
    return count_lines(&bytes, start, length);
}
