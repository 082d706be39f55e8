/* Appending messages in a batch: files go into #msg one by one, their records into memory, and
   the index is committed once at the end. */
#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include "archive/mbx.h"
#include "archive/unix_lk.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/unix_sv.h"

/* -- the message file -- */

/* Closes what was written; the copy counts only when that worked too. */
static int sync_and_close(FdGuard *copy, const char *to)
{
    if (os->fsync(copy->fd) < 0) {
        trace_sys(&g_logh, 1, 616, "mbx_append: fsync(%s): %m", to);
        return -1;
    }
    if (os->close(copy->take()) == 0) return 0;
    trace_sys(&g_logh, 1, 617, "mbx_append: close(%s): %m", to);
    return -1;
}

static int write_copy(const char *from, const char *to)
{
    FdGuard source(open_waiting(from, O_RDONLY, 0));
    if (source.fd < 0) {
        trace_sys(&g_logh, 1, 613, "mbx_append: open(%s): %m", from);
        return -1;
    }
    FdGuard copy(open_waiting(to, O_WRONLY | O_CREAT, 0600));
    if (copy.fd < 0) {
        trace_sys(&g_logh, 1, 614, "mbx_append: open(%s): %m", to);
        return -1;
    }
    if (copy_content(source.fd, copy.fd) == 0) return sync_and_close(&copy, to);
    trace_sys(&g_logh, 1, 615, "mbx_append: copy(%s, %s): %m", from, to);
    return -1;
}

static int copy_message(const char *from, const char *to)
{
    if (write_copy(from, to) == 0) return 0;
    KeepErrno keep;
    (void)os->unlink(to); /* half a message must not be found by a rebuild */
    return -1;
}

/* A file of that name is left from an append that was never committed. */
static int link_in_place(const char *from, const char *to)
{
    if (os->link(from, to) == 0) return 0;
    if (errno != EEXIST) return -1;
    return os->unlink(to) < 0 ? -1 : os->link(from, to);
}

static int place_message(const char *from, const char *to, int move)
{
    const int placed = move ? os->rename(from, to) : link_in_place(from, to);
    if (placed == 0) return 0;
    if (!move && (errno == EMLINK || errno == EXDEV)) return copy_message(from, to);
    trace_sys(&g_logh, 1, 618, "mbx_append: link(%s, %s): %m", from, to);
    return -1;
}

/* -- the batch -- */

static AppendBatch *current_batch()
{
    return &thread_context()->batch;
}

static void clear_batch()
{
    AppendBatch *batch = current_batch();
    host_release(batch->index);
    *batch = {};
}

/* Gives the batch up.  errno is kept. */
static IndexHandle *abandon_batch(IndexHandle *index)
{
    abandon_index(index);
    clear_batch();
    return NO_INDEX_HANDLE;
}

static IndexHandle *start_batch(const char *path)
{
    AppendBatch *batch = current_batch();
    if (batch->index != nullptr) errno = EBUSY; /* another one of this thread is not finished */
    IndexHandle *index = batch->index == nullptr ? begin_lazy_index(path) : nullptr;
    if (index == nullptr) {
        trace_sys(&g_logh, 1, 611, "mbx_append: openidx err %m");
        return NO_INDEX_HANDLE;
    }
    batch->index = mlmbx_readidx(index);
    if (batch->index == nullptr) {
        trace_sys(&g_logh, 1, 612, "mbx_append: readidx err %m");
        return abandon_batch(index);
    }
    batch->uid_validity = uid_validity(batch->index);
    batch->capacity = record_count(batch->index) + 1; /* the spare record */
    return index;
}

/* Makes room for one more record.  0 or -1. */
static int grow_batch(AppendBatch *batch)
{
    const uint32_t count = record_count(batch->index);
    if (count < batch->capacity) return 0;
    const size_t capacity = count + size_t{count} / 2 + 16;
    HostPtr<IndexRecord> grown(capacity * sizeof(IndexRecord));
    if (grown.p == nullptr) return -1;
    memcpy(grown.p, batch->index, count * sizeof(IndexRecord));
    host_release(batch->index);
    batch->index = grown.take();
    batch->capacity = static_cast<uint32_t>(capacity);
    return 0;
}

/* The UID for the next message, or 0 when there is none left.  A header that lags behind its
   records is damaged: its UID would overwrite somebody's message. */
static uint32_t next_uid(IndexRecord *index)
{
    const uint32_t messages = message_count(index);
    const uint32_t last = messages > 0 ? index[messages].uid : 0;
    const uint32_t uid = uid_next(index) > last ? uid_next(index) : last + 1;
    return uid == UINT32_MAX ? 0 : uid;
}

/* Takes the next UID and adds the record.  0 or -1. */
static int add_record(AppendBatch *batch, const IndexRecord *message)
{
    const uint32_t uid = next_uid(batch->index);
    if (uid == 0 || record_count(batch->index) >= MBX_MAX_RECORDS) {
        errno = EOVERFLOW;
        return -1;
    }
    if (grow_batch(batch) < 0) return -1;
    IndexRecord *record = &batch->index[record_count(batch->index)++];
    *record = *message;
    record->uid = uid;
    record->flags |= MESSAGE_RECENT;
    uid_next(batch->index) = uid + 1;
    batch->last_uid = uid;
    return 0;
}

int append_to_block(AppendBatch *batch, const char *path, const char *source,
                    const IndexRecord *message, int move)
{
    char destination[MBX_NAME_SIZE];
    if (add_record(batch, message) < 0 || message_name(destination, path, batch->last_uid) < 0) {
        trace_sys(&g_logh, 1, 618, "mbx_append: link(%s, %s): %m", source, path);
        return -1;
    }
    return place_message(source, destination, move);
}

int sync_message_directory(const char *path)
{
    char name[MBX_NAME_SIZE];
    if (message_name(name, path, 0) < 0) return -1;
    return sync_parent_directory(name);
}

static int commit_batch(IndexHandle *index)
{
    AppendBatch *batch = current_batch();
    errno = EINVAL;
    if (batch->index == nullptr) return -1;
    if (batch->last_uid != 0 && sync_message_directory(index->path) < 0) return -1;
    return list_mbx_writeidx_recent(index, batch->index) == 1 ? 0 : -1;
}

static IndexHandle *finish_batch(IndexHandle *index)
{
    if (index == nullptr || index == NO_INDEX_HANDLE) {
        clear_batch();
        return NO_INDEX_HANDLE;
    }
    if (commit_batch(index) < 0) return abandon_batch(index);
    const bool done = mlmbx_closeidx(index, INDEX_PLAIN) != -1;
    clear_batch();
    if (done) errno = 0;
    return NO_INDEX_HANDLE;
}

IndexHandle *list_mbx_append(const char *path, IndexHandle *index, const char *source,
                             uint32_t flags, uint32_t header_size, uint32_t size, int move)
{
    if (path == nullptr) return finish_batch(index);
    if (index == nullptr || index == NO_INDEX_HANDLE) index = start_batch(path);
    if (index == NO_INDEX_HANDLE) return NO_INDEX_HANDLE;
    const IndexRecord message = {0, flags, header_size, size};
    AppendBatch *batch = current_batch();
    if (batch->index != nullptr && append_to_block(batch, index->path, source, &message, move) == 0)
        return index;
    return abandon_batch(index);
}

IndexHandle *mbxappend(const char *path, IndexHandle *index, const char *source, uint32_t flags,
                       uint32_t header_size, uint32_t size, int move)
{
    return list_mbx_append(path, index, source, flags, header_size, size, move);
}
