/* Message files, and the message that FETCH parsed last. */
#include <errno.h>
#include <fcntl.h>

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

int open_message(const MailboxHandle *handle, int sequence)
{
    char name[MBX_NAME_SIZE];
    const uint32_t uid = message_record(handle, sequence)->uid;
    if (uid == 0) {
        errno = ENOENT;
        return -1;
    }
    if (message_name(name, handle->path, uid) < 0) return -1;
    return open_file(name, O_RDONLY | O_NONBLOCK, 0); /* a name that is a pipe must not stop us */
}

MessageFile::MessageFile(const MailboxHandle *handle, int sequence)
    : own_(handle == nullptr || handle->cache == nullptr)
{
    fd_ = own_ ? open_message(handle, sequence) : handle->cache->fd;
}

MessageFile::~MessageFile()
{
    if (own_) FdGuard close_file(fd_);
}

/* -- cache -- */

static PartNode *parse_message(int fd, const IndexRecord *record)
{
    return list_getmime(fd, 0, record->header_size, text_size(record));
}

/* False (logged) when one of the steps fails. */
static bool fill_cache(MessageCache *cache, const MailboxHandle *handle, int sequence)
{
    FdGuard file(open_message(handle, sequence));
    if (file.fd < 0) {
        trace_sys(&g_logh, 3, 626, "mbx_getcache: fopen err %m");
        return false;
    }
    PartNode *parts = parse_message(file.fd, message_record(handle, sequence));
    if (parts == nullptr) {
        trace_sys(&g_logh, 3, 627, "mbx_getcache: getmime err");
        return false;
    }
    *cache = {sequence, file.take(), parts};
    return true;
}

/* KEPT: a cache that is there serves, whichever message was asked for.
   Test: FetchCache.ServesWhateverMessageItHolds */
int list_mbx_getcache(MailboxHandle *handle, int sequence)
{
    if (handle == nullptr) return 0;
    if (handle->cache != nullptr) return 1;
    HostPtr<MessageCache> cache(sizeof(MessageCache));
    if (cache.p == nullptr) {
        trace_sys(&g_logh, 3, 625, "mbx_getcache: ThrMemAlloc err");
        return 0;
    }
    if (!fill_cache(cache.p, handle, sequence)) return 0;
    handle->cache = cache.take();
    return 1;
}

void list_mbx_freecache(MailboxHandle *handle)
{
    if (handle == nullptr || handle->cache == nullptr) return;
    HostPtr<MessageCache> cache(handle->cache);
    handle->cache = nullptr;
    FdGuard close_file(cache.p->fd);
    list_freemime(cache.p->parts);
}
