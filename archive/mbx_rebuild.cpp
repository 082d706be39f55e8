/* Making the index anew from the message files. */
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>

#include "archive/mbx.h"
#include "archive/unix_lk.h"
#include "module/ascii.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/unix_sv.h"

/* -- one message file -- */

/* Lines are looked at in pieces of so many bytes at most; only a piece that is exactly CR LF ends
   the header.  KEPT: so does the end of a line whose length is CR LF beyond a multiple of it.
   Test: MakeIndexRecord.HeaderEndsAtAPieceThatIsCrLf */
#define HEADER_PIECE_SIZE 2046

/* State of the search for the end of the header, carried from block to block. */
struct HeaderScan {
    uint64_t position; /* bytes seen */
    size_t piece;      /* bytes of the piece under way */
    bool begins_with_cr;
};

/* Looks through one block; true with position behind the blank line once that is found. */
static bool scan_block(HeaderScan *scan, const char *block, size_t size)
{
    while (size > 0) {
        const size_t room = HEADER_PIECE_SIZE - scan->piece;
        const size_t limit = size < room ? size : room;
        const void *line_end = memchr(block, '\n', limit);
        const size_t taken =
            line_end != nullptr
                ? static_cast<size_t>(static_cast<const char *>(line_end) - block) + 1
                : limit;
        if (scan->piece == 0) scan->begins_with_cr = block[0] == '\r';
        scan->piece += taken;
        scan->position += taken;
        if (line_end != nullptr && scan->piece == 2 && scan->begins_with_cr) return true;
        if (line_end != nullptr || scan->piece == HEADER_PIECE_SIZE) scan->piece = 0;
        block += taken;
        size -= taken;
    }
    return false;
}

/* Size up to and including the blank line, 0 when there is none. */
static uint64_t header_size_of(int fd)
{
    char block[8192];
    HeaderScan scan = {0, 0, false};
    for (;;) {
        const ssize_t count = read_some(fd, block, sizeof(block));
        if (count <= 0) return 0;
        if (scan_block(&scan, block, static_cast<size_t>(count))) return scan.position;
    }
}

/* The UID that the name is, or 0: not a number, out of range, or not as we write numbers (two
   names of one number would make an index that nobody accepts). */
static uint32_t parse_uid(const char *name)
{
    if (name[0] == '0') return 0;
    uint64_t uid = 0;
    for (const char *digit = name; *digit != '\0'; ++digit) {
        if (!is_ascii_digit(static_cast<unsigned char>(*digit))) return 0;
        uid = uid * 10 + static_cast<uint64_t>(*digit - '0');
        if (uid >= UINT32_MAX) return 0; /* the next one must still be a UID */
    }
    return static_cast<uint32_t>(uid);
}

int list_mbx_mkidx(const char *message_directory, const char *name, IndexRecord *record)
{
    char path[MBX_NAME_SIZE];
    struct stat status;
    const uint32_t uid = parse_uid(name);
    if (uid == 0 || join_name(path, message_directory, name) < 0) return -1;
    FdGuard file(open_waiting(path, O_RDONLY, 0));
    if (file.fd < 0 || os->fstat(file.fd, &status) < 0) return -1;
    if (!S_ISREG(status.st_mode) || status.st_size > UINT32_MAX) return -1;
    *record = {uid, 0, static_cast<uint32_t>(header_size_of(file.fd)),
               static_cast<uint32_t>(status.st_size)};
    return 0;
}

int list_mbx_idxcmp(const void *left, const void *right)
{
    const uint32_t a = static_cast<const IndexRecord *>(left)->uid;
    const uint32_t b = static_cast<const IndexRecord *>(right)->uid;
    return a < b ? -1 : a > b;
}

void list_mbx_sortidx(IndexRecord *records, int count)
{
    if (count > 1) qsort(records, static_cast<size_t>(count), sizeof(IndexRecord), list_mbx_idxcmp);
}

/* -- all of them -- */

/* A growing block of records, the header's included. */
struct RecordArray {
    IndexRecord *records = nullptr;
    uint32_t count = 1, capacity = 0;
    ~RecordArray() { host_release(records); }
};

static int make_room(RecordArray *array)
{
    if (array->count < array->capacity) return 0;
    const size_t capacity = array->capacity == 0 ? 16 : size_t{array->capacity} * 2;
    HostPtr<IndexRecord> grown(capacity * sizeof(IndexRecord));
    if (grown.p == nullptr || capacity > MBX_MAX_RECORDS) return -1;
    if (array->records != nullptr)
        memcpy(grown.p, array->records, array->count * sizeof(IndexRecord));
    host_release(array->records);
    array->records = grown.take();
    array->capacity = static_cast<uint32_t>(capacity);
    return 0;
}

/* The next entry that may be a message; null with errno 0 at the end, or with the cause. */
static const dirent *next_entry(DIR *directory)
{
    const dirent *entry;
    do {
        errno = 0;
        entry = readdir(directory);
    } while (entry != nullptr && !is_ascii_digit(static_cast<unsigned char>(entry->d_name[0])));
    return entry;
}

/* Half of the names make no index: the messages left out would be forgotten and their numbers
   given out again. */
static int collect_records(DIR *directory, const char *directory_name, RecordArray *array)
{
    while (const dirent *entry = next_entry(directory)) {
        if (make_room(array) < 0) return -1;
        if (list_mbx_mkidx(directory_name, entry->d_name, &array->records[array->count]) == 0)
            ++array->count;
    }
    if (errno != 0) return -1;
    return make_room(array); /* of an empty directory too there is a header */
}

static int scan_messages(const char *path, RecordArray *array)
{
    char name[MBX_NAME_SIZE];
    if (join_name(name, path, "#msg") < 0) return -1;
    DIR *directory = opendir(name);
    if (directory == nullptr) return -1;
    const int collected = collect_records(directory, name, array);
    KeepErrno keep;
    closedir(directory);
    return collected;
}

static void complete_header(RecordArray *array)
{
    IndexRecord *records = array->records;
    const int messages = static_cast<int>(array->count - 1);
    list_mbx_sortidx(records + 1, messages);
    uid_next(records) = messages > 0 ? records[messages].uid + 1 : 1;
    uid_validity(records) = static_cast<uint32_t>(os->time(nullptr));
    record_count(records) = array->count;
    records[0].size = 0;
}

static ssize_t write_once(int fd, const void *data, size_t size)
{
    ssize_t written = os->write(fd, data, size);
    while (written < 0 && errno == EINTR)
        written = os->write(fd, data, size);
    return written;
}

static int replace_content(int fd, const char *path, const RecordArray *array)
{
    const size_t size = array->count * sizeof(IndexRecord);
    const ssize_t written = write_once(fd, array->records, size);
    if (written < 0) {
        trace_sys(&g_logh, 11, 638, "mbx_rebuild: write %s/#mix: %m", path);
        return -1;
    }
    if (static_cast<size_t>(written) != size) {
        trace_sys(&g_logh, 11, 639, "mbx_rebuild: write %s/#mix: disk full?", path);
        /* a part of it would pass for a whole index; nothing at all is rebuilt at the next open */
        (void)os->ftruncate(fd, 0);
        return -1;
    }
    if (os->ftruncate(fd, static_cast<off_t>(size)) < 0) {
        trace_sys(&g_logh, 11, 640, "mbx_rebuild: ftruncate %s/#mix: %m", path);
        return -1;
    }
    if (os->fsync(fd) < 0) {
        trace_sys(&g_logh, 11, 641, "mbx_rebuild: fsync %s/#mix: %m", path);
        return -1;
    }
    return 0;
}

static int close_index(int fd, const char *path)
{
    if (mllk_close(fd) == 0) return 0;
    trace_sys(&g_logh, 11, 642, "mbx_rebuild: close %s/#mix: %m", path);
    return -1;
}

/* The lock is taken before the files are looked at: a message that is appended between would be
   missing from the new index, and its number would be given out again. */
static int lock_index_of(const char *path)
{
    char name[MBX_NAME_SIZE];
    return index_name(name, path) < 0 ? -1 : lock_index_file(name);
}

int list_mbx_rebuild(const char *path)
{
    FdGuard file(lock_index_of(path));
    const int lock_error = errno;
    RecordArray array;
    const int scanned = scan_messages(path, &array);
    int rebuilt = -1;
    if (scanned == 0) {
        complete_header(&array);
        trace_sys(&g_logh, 11, 636, "mbx_rebuild: rebuild %s", path);
        errno = lock_error;
        if (file.fd < 0)
            trace_sys(&g_logh, 11, 637, "mbx_rebuild: rebuild %s/#mix: %m", path);
        else
            rebuilt = replace_content(file.fd, path, &array);
    }
    if (file.fd < 0) return -1;
    if (rebuilt == 0) return close_index(file.take(), path);
    KeepErrno keep;
    (void)mllk_close(file.take()); /* the failure is known already */
    return -1;
}
