/* Host memory with the way back written in front of every block. */
#include "module/host_mem.h"

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include "module/guards.h"
#include "module/tcb.h"

/* In front of each block; as large as the strictest alignment, so that the block keeps it. */
struct alignas(16) BlockPrefix {
    ReleaseOp release;
};
static_assert(sizeof(BlockPrefix) == 16);

void *host_allocate(size_t size)
{
    const DeliveryRequest *request = thread_context()->request;
    void *raw = size <= SIZE_MAX - sizeof(BlockPrefix)
                    ? request->allocate(size + sizeof(BlockPrefix))
                    : nullptr;
    if (raw == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    BlockPrefix *prefix = static_cast<BlockPrefix *>(raw);
    prefix->release = request->release;
    return prefix + 1;
}

void host_release(void *memory)
{
    if (memory == nullptr) return;
    KeepErrno keep;
    BlockPrefix *prefix = static_cast<BlockPrefix *>(memory) - 1;
    prefix->release(prefix);
}

char *host_copy_text(const char *text)
{
    const size_t size = strlen(text) + 1;
    char *copy = static_cast<char *>(host_allocate(size));
    if (copy != nullptr) memcpy(copy, text, size);
    return copy;
}
