/* Release of the message that FETCH parsed last. */
#include "archive/mbx.h"
#include "module/guards.h"
#include "module/host_mem.h"

void list_mbx_freecache(MailboxHandle *handle)
{
    if (handle == nullptr || handle->cache == nullptr) return;
    MessageCache *cache = handle->cache;
    handle->cache = nullptr;
    FdGuard close_file(cache->fd);
    if (cache->parts != nullptr) cache->free_parts(cache->parts);
    host_release(cache);
}
