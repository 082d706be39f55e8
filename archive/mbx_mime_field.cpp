/* Walking a header field by field, and counting lines. */
#include <errno.h>
#include <string.h>

#include "archive/mime.h"
#include "module/guards.h"
#include "module/host_functions.h"
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

/* -- ranges of the message file -- */

/* Bytes of the range that the file has, or -1 with errno. */
static int64_t clamp_range(int fd, uint64_t start, uint64_t length)
{
    struct stat status;
    if (os->fstat(fd, &status) < 0) return -1;
    const uint64_t size = static_cast<uint64_t>(status.st_size);
    if (start >= size) return 0;
    return static_cast<int64_t>(length < size - start ? length : size - start);
}

uint64_t bytes_there(int fd, uint64_t start, uint64_t length)
{
    const int64_t there = clamp_range(fd, start, length);
    return there > 0 ? static_cast<uint64_t>(there) : 0;
}

char *read_header(int fd, uint64_t start, uint64_t length)
{
    const int64_t there = clamp_range(fd, start, length);
    if (there < 0) return nullptr;
    return read_to_memory(fd, static_cast<off_t>(start), static_cast<size_t>(there));
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

/* Whether the file ends within the first length bytes from start, end not included. */
static bool ends_the_file(int fd, uint64_t start, uint64_t length)
{
    return bytes_there(fd, start, length + 1) == length;
}

uint32_t getlines(int fd, uint32_t start, uint32_t length)
{
    KeepErrno keep;
    char block[COUNT_SIZE];
    uint32_t count = 0;
    uint64_t done = 0;
    char last = '\n';
    while (done < length) {
        const uint64_t left = length - done;
        const ssize_t got = pread_some(fd, block, left < sizeof(block) ? left : sizeof(block),
                                       static_cast<off_t>(start + done));
        if (got <= 0) break;
        count += count_feeds(block, static_cast<size_t>(got));
        last = block[got - 1];
        done += static_cast<uint64_t>(got);
    }
    if (last != '\n' && ends_the_file(fd, start, done)) ++count;
    return count;
}
