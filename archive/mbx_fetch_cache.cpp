/* Message files, and the message that FETCH parsed last. */
#include <errno.h>
#include <fcntl.h>
#include <new>

#include "archive/fetch.h"
#include "archive/mbx.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/unix_sv.h"

/* -- files -- */

const IndexRecord *message_record(const MailboxHandle *handle, int sequence)
{
    static constexpr IndexRecord none = {0, MESSAGE_VANISHED, 0, 0};
    if (handle == nullptr || handle->index == nullptr || sequence < 1) return &none;
    const uint32_t record = static_cast<uint32_t>(sequence);
    return record < record_count(handle->index) ? &handle->index[record] : &none;
}

static int open_by_path(const char *path, uint32_t uid)
{
    char name[MBX_NAME_SIZE];
    return message_name(name, path, uid) == 0 ? open_file(name, O_RDONLY, 0) : -1;
}

int open_message(const MailboxHandle *handle, int sequence)
{
    const uint32_t uid = message_record(handle, sequence)->uid;
    if (uid != 0) return open_by_path(handle->path, uid);
    errno = ENOENT;
    return -1;
}

/* Without a descriptor for it, paths serve as well. */
void MessageDirectory::open()
{
    char name[MBX_NAME_SIZE];
    if (join_name(name, path_, "#msg") == 0)
        directory_.fd = open_file(name, O_PATH | O_DIRECTORY, 0);
    tried_ = true;
}

int MessageDirectory::open_message(uint32_t uid)
{
    if (uid == 0) {
        errno = ENOENT;
        return -1;
    }
    if (!tried_) open();
    if (directory_.fd < 0) return open_by_path(path_, uid);
    char name[UID_TEXT_SIZE];
    uid_text(name, uid);
    return open_file_in(directory_.fd, name, O_RDONLY);
}

MessageFile::MessageFile(const MailboxHandle *handle, int sequence)
    : own_file_(handle == nullptr || handle->cache == nullptr ? open_message(handle, sequence)
                                                              : -1),
      own_bytes_(own_file_.fd, *message_record(handle, sequence), FETCH_HELD_SIZE),
      bytes_(own_file_.fd >= 0 || handle == nullptr || handle->cache == nullptr
                 ? &own_bytes_
                 : &handle->cache->bytes)
{
}

/* -- parsing -- */

PartNode *parse_message(MessageBytes *bytes, const IndexRecord &record)
{
    PartNode *parts = getmime(bytes, 0, record.header_size, text_size(&record));
    if (parts == nullptr) trace_sys(&g_logh, 3, 627, "mbx_getcache: getmime err");
    return parts;
}

void log_not_opened()
{
    trace_sys(&g_logh, 3, 626, "mbx_getcache: fopen err %m");
}

/* -- cache -- */

MessageCache::MessageCache(int at, int fd, const IndexRecord &record)
    : sequence(at), file(fd), bytes(fd, record, FETCH_HELD_SIZE),
      parts(parse_message(&bytes, record))
{
}

static void release_cache(MessageCache *cache)
{
    cache->~MessageCache();
    host_release(cache);
}

/* KEPT: a cache that is there serves, whichever message was asked for.
   Test: FetchCache.ServesWhateverMessageItHolds */
int list_mbx_getcache(MailboxHandle *handle, int sequence)
{
    if (handle == nullptr) return 0;
    if (handle->cache != nullptr) return 1;
    HostPtr<void> memory(sizeof(MessageCache));
    if (memory.p == nullptr) {
        trace_sys(&g_logh, 3, 625, "mbx_getcache: ThrMemAlloc err");
        return 0;
    }
    const int fd = open_message(handle, sequence);
    if (fd < 0) {
        log_not_opened();
        return 0;
    }
    MessageCache *cache =
        new (memory.take()) MessageCache(sequence, fd, *message_record(handle, sequence));
    if (cache->parts != nullptr)
        handle->cache = cache;
    else
        release_cache(cache);
    return handle->cache != nullptr ? 1 : 0;
}

void list_mbx_freecache(MailboxHandle *handle)
{
    if (handle == nullptr || handle->cache == nullptr) return;
    MessageCache *cache = handle->cache;
    handle->cache = nullptr;
    release_cache(cache);
}
