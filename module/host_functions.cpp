/* The functions that the host may provide, and what serves where it does not. */
#include "module/host_functions.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "mlist/output.h"
#include "module/guards.h"
#include "module/host_mem.h"
#include "module/tcb.h"

#define COPY_SIZE 16384

/* Reads size bytes at offset, less only at the end of the file.  Bytes read, or -1. */
static ssize_t read_range(int fd, off_t offset, char *data, size_t size)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread_some(fd, data + done, size - done, offset + static_cast<off_t>(done));
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

static char *own_disk2memory(int fd, off_t offset, size_t length)
{
    HostPtr<char> text(length + 1);
    if (text.p == nullptr) return nullptr;
    const ssize_t got = read_range(fd, offset, text.p, length);
    if (got < 0) return nullptr;
    text.p[got] = '\0';
    return text.take();
}

static int own_disk2stdout(int fd, off_t offset, size_t length)
{
    FILE *sink = mlist_get_output();
    char block[COPY_SIZE];
    for (size_t done = 0; done < length;) {
        const size_t want = length - done < sizeof(block) ? length - done : sizeof(block);
        const ssize_t got = read_range(fd, offset + static_cast<off_t>(done), block, want);
        if (got < 0) return -1;
        memset(block + got, ' ', want - static_cast<size_t>(got));
        if (fwrite(block, 1, want, sink) != want) return -1;
        done += want;
    }
    return 0;
}

/* The host's buffer comes straight from its allocator, without what host_release() looks for in
   front of a block: the text moves into one of ours. */
static char *host_disk2memory(int fd, off_t offset, size_t length)
{
    char *raw = disk2memory(fd, offset, length);
    if (raw == nullptr) return nullptr;
    HostPtr<char> text(length + 1);
    if (text.p != nullptr) memcpy(text.p, raw, length + 1);
    KeepErrno keep;
    thread_context()->request->release(raw);
    return text.take();
}

bool host_reads_files()
{
    return disk2memory != nullptr;
}

char *read_to_memory(int fd, off_t offset, size_t length)
{
    return host_reads_files() ? host_disk2memory(fd, offset, length)
                              : own_disk2memory(fd, offset, length);
}

int copy_to_sink(int fd, off_t offset, size_t length)
{
    return disk2stdout != nullptr ? disk2stdout(fd, offset, length)
                                  : own_disk2stdout(fd, offset, length);
}

int debug_switch()
{
    return &g_debug != nullptr ? g_debug : 0;
}
