/* Reading of the buffered file layer: lines, and bytes for the codecs. */
#include "store/ntio.h"

#include <errno.h>
#include <string.h>

#include "module/os.h"
#include "module/unix_sv.h"

/* Fills the buffer with at most limit bytes, which the text in it ends behind.  What read(2)
   answered; after 0 and -1 there is no text, but the bytes of the last block still lie there. */
static ssize_t fill_buffer(FileRecord *record, size_t limit)
{
    const ssize_t got = read_some(record->fd, record->buffer, limit);
    record->position = record->line_end = 0;
    if (got == 0 && record->blocks == 0 && refuse_pipe(record->fd) < 0) return -1;
    if (got <= 0) return got;
    record->block_size = static_cast<uint32_t>(got);
    ++record->blocks;
    record->buffer[got] = '\0';
    /* KEPT: a zero byte cuts the rest of its block off.
       Test: LineReading.AZeroByteHidesTheRestOfItsReadBlock */
    record->line_end = static_cast<uint32_t>(strlen(record->buffer));
    return got;
}

/* The destination of one Fgets() call, filled from the left. */
struct LineOut {
    char *start;
    char *end;   /* the terminator's place */
    size_t room; /* bytes from end on, the terminator's included */
};

/* Hands size unread bytes to the line. */
static void move_bytes(LineOut *line, FileRecord *record, size_t size)
{
    memcpy(line->end, record->buffer + record->position, size);
    line->end += size;
    *line->end = '\0';
    line->room -= size;
    record->position += static_cast<uint32_t>(size);
}

/* Hands the line out that ends at the line feed, or as much of it as there is room for. */
static char *finish_line(LineOut *line, FileRecord *record, const char *line_feed)
{
    const char *unread = record->buffer + record->position;
    const size_t raw_length = static_cast<size_t>(line_feed - unread);
    const bool has_cr = raw_length > 0 && line_feed[-1] == '\r';
    const size_t length = raw_length - (has_cr ? 1 : 0);
    if (line->room < length + sizeof("\r\n")) {
        move_bytes(line, record, line->room - 1);
        return line->start;
    }
    memcpy(line->end, unread, length);
    memcpy(line->end + length, "\r\n", sizeof("\r\n"));
    record->position += static_cast<uint32_t>(raw_length + 1);
    return line->start;
}

/* Nothing is left: the end of the file, or its last line, which had no line end. */
static char *finish_file(const LineOut *line, FileRecord *record)
{
    if (line->end == line->start) {
        record->state = 0;
        return nullptr;
    }
    record->state = -1;
    return line->start;
}

char *Fgets(char *destination, int size, FileRecord *record)
{
    if (destination == nullptr || size <= 0 || record == nullptr) {
        trace_sys(&g_logh, 1, 703, "illegal argument (Fgets)");
        if (record != nullptr) record->state = 1;
        return nullptr;
    }
    LineOut line = {destination, destination, static_cast<size_t>(size)};
    *destination = '\0';
    if (record->state == -1) {
        record->state = 0;
        return nullptr;
    }
    for (;;) {
        const char *unread = record->buffer + record->position;
        const size_t count =
            record->position < record->line_end ? record->line_end - record->position : 0;
        const size_t usable = line.room - 1; /* a line feed behind these bytes changes nothing */
        const void *line_feed = memchr(unread, '\n', count < usable ? count : usable);
        if (line_feed != nullptr)
            return finish_line(&line, record, static_cast<const char *>(line_feed));
        if (count > usable) {
            move_bytes(&line, record, usable);
            return line.start;
        }
        move_bytes(&line, record, count);
        /* KEPT: a CR that ends one block has been handed over by now, so that an LF that begins
           the next gives CR CR LF.  Test: LineReading.CrAndLfInTwoReadBlocksAreNoPair */
        const ssize_t got = fill_buffer(record, FILE_READ_SIZE);
        if (got < 0) {
            trace_sys(&g_logh, 1, 705, "ReadFile error %d", errno);
            record->state = 1;
            return nullptr;
        }
        if (got == 0) return finish_file(&line, record);
    }
}

const char *Fcontents(const FileRecord *record, size_t *size_out)
{
    *size_out = record->block_size;
    return record->blocks <= 1 ? record->buffer : nullptr;
}

/* What a read of bytes answered: false at the end of the file and on an error. */
static bool bytes_came(FileRecord *record, ssize_t got)
{
    if (got > 0) return true;
    if (got == 0) {
        errno = 0;
        return false;
    }
    trace_sys(&g_logh, 1, 721, "ReadFile error %d", errno);
    record->state = 1;
    return false;
}

static bool has_argument(const FileRecord *record)
{
    if (record == nullptr) trace_sys(&g_logh, 1, 720, "illegal argument (Getc)");
    return record != nullptr;
}

static bool fill_with_bytes(FileRecord *record)
{
    const ssize_t got = fill_buffer(record, FILE_BUFFER_SIZE);
    record->count = got > 0 ? static_cast<uint32_t>(got) : 0;
    return bytes_came(record, got);
}

int Getc(FileRecord *record)
{
    if (!has_argument(record)) return -1;
    if (record->position >= record->count && !fill_with_bytes(record)) return -1;
    return static_cast<unsigned char>(record->buffer[record->position++]);
}

/* Whole buffers go straight to where they are wanted. */
size_t Fread(void *data, size_t size, FileRecord *record)
{
    char *to = static_cast<char *>(data);
    if (!has_argument(record)) return 0;
    for (size_t left = size; left > 0;) {
        size_t took = 0;
        if (record->position < record->count) {
            const size_t buffered = record->count - record->position;
            took = buffered < left ? buffered : left;
            memcpy(to, record->buffer + record->position, took);
            record->position += static_cast<uint32_t>(took);
        } else if (left < FILE_BUFFER_SIZE) {
            if (!fill_with_bytes(record)) return size - left;
        } else {
            const ssize_t got = read_some(record->fd, to, left);
            if (!bytes_came(record, got)) return size - left;
            took = static_cast<size_t>(got);
        }
        to += took;
        left -= took;
    }
    return size;
}
