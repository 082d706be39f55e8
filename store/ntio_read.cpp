/* Reading of the buffered file layer: lines, and bytes for the codecs. */
#include "store/ntio.h"

#include <errno.h>
#include <string.h>

#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/unix_sv.h"

/* -- what is asked of the kernel -- */

/* The area to read into: a larger one once the file has turned out to be longer than the former.
   Memory stays in proportion to what was read, and within a bound. */
static uint32_t wanted_area(const FileRecord *record)
{
    constexpr uint32_t more = FILE_MORE_BLOCKS * FILE_READ_SIZE;
    constexpr uint32_t most = FILE_MOST_BLOCKS * FILE_READ_SIZE;
    if (record->block_size < FILE_READ_SIZE) return record->area_size;
    return record->area_size < more ? more : most;
}

/* A larger area, or null: none is wanted, or there is no memory, and the present one has to do. */
static char *larger_area(const FileRecord *record, uint32_t size)
{
    if (size <= record->area_size) return nullptr;
    KeepErrno keep;
    return static_cast<char *>(host_allocate(size));
}

/* One read into another area, which takes the place of the record's when something comes: the last
   block stays at hand otherwise (Fcontents()).  What read(2) answered. */
static ssize_t read_into(FileRecord *record, char *area, uint32_t size)
{
    const ssize_t got = read_some(record->fd, area, size);
    if (got <= 0) {
        KeepErrno keep;
        host_release(area);
        return got;
    }
    host_release(record->area);
    record->area = area;
    record->area_size = size;
    return got;
}

/* Reads as many blocks as the area takes: whole ones, so that they end where they would if each
   were read for itself.  What read(2) answered. */
static ssize_t read_blocks(FileRecord *record)
{
    const uint32_t wanted = wanted_area(record);
    char *area = larger_area(record, wanted);
    if (area != nullptr) return read_into(record, area, wanted);
    const size_t whole = record->area_size - record->area_size % FILE_READ_SIZE;
    return read_some(record->fd, record->area, whole);
}

/* -- blocks -- */

/* Goes on to the next block, of at most limit bytes.  Its size, or what read(2) answered when there
   is none: then there is no text, but the last block still lies there. */
static ssize_t next_block(FileRecord *record, uint32_t limit)
{
    record->position = record->line_end = 0;
    char *block = record->buffer + record->block_size;
    if (record->ahead == 0) {
        const ssize_t got = limit == FILE_READ_SIZE ? read_blocks(record)
                                                    : read_some(record->fd, record->area, limit);
        if (got == 0 && record->blocks == 0 && refuse_pipe(record->fd) < 0) return -1;
        if (got <= 0) return got;
        record->ahead = static_cast<uint32_t>(got);
        block = record->area;
    }
    record->buffer = block;
    record->block_size = record->ahead < limit ? record->ahead : limit;
    record->ahead -= record->block_size;
    ++record->blocks;
    /* KEPT: a zero byte cuts the rest of its block off.
       Test: LineReading.AZeroByteHidesTheRestOfItsReadBlock */
    const void *zero = memchr(block, '\0', record->block_size);
    record->line_end = zero != nullptr
                           ? static_cast<uint32_t>(static_cast<const char *>(zero) - block)
                           : record->block_size;
    return record->block_size;
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
        const ssize_t got = next_block(record, FILE_READ_SIZE);
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
    const ssize_t got = next_block(record, FILE_BUFFER_SIZE);
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
        } else if (left < FILE_BUFFER_SIZE || record->ahead > 0) {
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
