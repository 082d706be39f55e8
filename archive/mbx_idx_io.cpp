/* Reading and writing the work copy of an index transaction, and copying index files. */
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "archive/mbx.h"
#include "archive/unix_lk.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"

/* A few pages at a time: an archive of a thousand messages is one read and one write. */
#define INDEX_BLOCK_SIZE 32768

/* -- copying -- */

int copy_content(int from, int to)
{
    char block[INDEX_BLOCK_SIZE];
    off_t offset = 0;
    for (;;) {
        const ssize_t count = pread_some(from, block, sizeof(block), offset);
        if (count < 0) return -1;
        if (count == 0) return os->ftruncate(to, offset);
        if (pwrite_all(to, block, static_cast<size_t>(count), offset) < 0) return -1;
        offset += count;
    }
}

int copy_durably(int from, int to)
{
    return copy_content(from, to) < 0 ? -1 : os->fsync(to);
}

int mlmbx_copybyfd(int from, int to)
{
    char block[8192];
    ssize_t count = read_some(from, block, sizeof(block));
    for (; count > 0; count = read_some(from, block, sizeof(block)))
        if (write_all(to, block, static_cast<size_t>(count)) < 0) return 0;
    if (count < 0) return 0;
    const off_t end = os->lseek(to, 0, SEEK_CUR);
    return end >= 0 && os->ftruncate(to, end) == 0 && os->fsync(to) == 0 ? 1 : 0;
}

/* -- reading -- */

/* Failures without an errno of their own count as -1. */
static void note_error(OpenIndex *index)
{
    index->error_code = errno != 0 ? errno : -1;
}

/* The descriptor that holds the transaction's content. */
static int content_fd(const OpenIndex *index)
{
    return index->new_fd >= 0 ? index->new_fd : index->fd;
}

static int read_whole(int fd, char *to, size_t size)
{
    for (size_t done = 0; done < size;) {
        errno = 0;
        const ssize_t count = pread_some(fd, to + done, size - done, static_cast<off_t>(done));
        if (count <= 0) return -1;
        done += static_cast<size_t>(count);
    }
    return 0;
}

/* The size of an index that can be one, or -1 with errno, which is 0 for a size that cannot. */
static off_t readable_size(const OpenIndex *index)
{
    struct stat status = index->found;
    const bool known = index->lazy && index->new_fd < 0;
    if (!known && os->fstat(content_fd(index), &status) < 0) return -1;
    errno = 0;
    constexpr off_t record = sizeof(IndexRecord);
    if (status.st_size < record || status.st_size / record > MBX_MAX_RECORDS) return -1;
    return status.st_size;
}

IndexRecord *mlmbx_readidx(IndexHandle *handle)
{
    OpenIndex *index = open_index_of(handle);
    const off_t file_size = readable_size(index);
    if (file_size < 0) {
        note_error(index);
        return nullptr;
    }
    const size_t size = static_cast<size_t>(file_size);
    HostPtr<IndexRecord> records(size + sizeof(IndexRecord));
    if (records.p == nullptr ||
        read_whole(content_fd(index), reinterpret_cast<char *>(records.p), size) < 0) {
        note_error(index);
        return nullptr;
    }
    record_count(records.p) = static_cast<uint32_t>(size / sizeof(IndexRecord));
    return records.take();
}

/* -- writing -- */

/* 1 when the file holds exactly these bytes, 0 when not, -1. */
static int holds_image(int fd, const IndexImage &image)
{
    const char *bytes = static_cast<const char *>(image.bytes);
    struct stat status;
    if (os->fstat(fd, &status) < 0) return -1;
    if (status.st_size != static_cast<off_t>(image.size)) return 0;
    char block[INDEX_BLOCK_SIZE];
    for (size_t done = 0; done < image.size;) {
        const size_t left = image.size - done;
        const size_t wanted = left < sizeof(block) ? left : sizeof(block);
        const ssize_t count = pread_some(fd, block, wanted, static_cast<off_t>(done));
        if (count < 0) return -1;
        if (count == 0 || memcmp(block, bytes + done, static_cast<size_t>(count)) != 0) return 0;
        done += static_cast<size_t>(count);
    }
    return 1;
}

static int fill_work_copy(OpenIndex *index, const IndexImage &image)
{
    if (pwrite_all(index->new_fd, image.bytes, image.size, 0) < 0) return -1;
    if (os->ftruncate(index->new_fd, static_cast<off_t>(image.size)) < 0) return -1;
    return os->fsync(index->new_fd);
}

/* The cheap form's first writing. */
static int write_lazily(OpenIndex *index, const IndexImage &image)
{
    const int same = holds_image(index->fd, image);
    if (same < 0) return -1;
    index->renew_time = same == 1;
    return same ? 0 : make_work_copy(index, &image);
}

static int write_image(OpenIndex *index, const IndexImage &image)
{
    errno = 0;
    int written = -1;
    if (image.size == 0)
        errno = EINVAL; /* not even a header: nobody could read that again */
    else if (index->lazy && index->new_fd < 0)
        written = write_lazily(index, image);
    else
        written = fill_work_copy(index, image);
    if (written < 0) note_error(index);
    return written;
}

int mlmbx_writeidx(IndexHandle *index, IndexRecord *records)
{
    return write_image(open_index_of(index), image_of(records));
}

int IndexTransaction::replace(IndexRecord *before, IndexRecord *after)
{
    OpenIndex *index = open_index_of(handle_);
    /* Bytes behind the last whole record are read by nobody, but the backup has them too. */
    const IndexImage read = image_of(before);
    if (static_cast<off_t>(read.size) == index->found.st_size) index->before = read;
    index->after = image_of(after);
    errno = 0;
    const int written = make_work_copy(index, &index->after);
    if (written < 0) note_error(index);
    return written;
}

static bool has_expunge_mark(IndexRecord *records)
{
    for (uint32_t i = 1; i < record_count(records); ++i)
        if (records[i].flags & MESSAGE_EXPUNGE) return true;
    return false;
}

int list_mbx_writeidx_recent(IndexHandle *index, IndexRecord *records)
{
    if (!has_expunge_mark(records)) return mlmbx_writeidx(index, records) == 0 ? 1 : 0;
    const size_t size = record_count(records) * sizeof(IndexRecord);
    HostPtr<IndexRecord> cleared(size);
    if (cleared.p == nullptr) {
        note_error(open_index_of(index));
        return 0;
    }
    memcpy(cleared.p, records, size);
    for (uint32_t i = 1; i < record_count(records); ++i)
        cleared.p[i].flags &= ~static_cast<uint32_t>(MESSAGE_EXPUNGE);
    return mlmbx_writeidx(index, cleared.p) == 0 ? 1 : 0;
}

void mlist_release(void *memory)
{
    host_release(memory);
}
