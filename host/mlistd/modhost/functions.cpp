/* What the process offers the module by name (mlist/host_functions.h); found because the program
   exports its names. */
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "host/base/files.h"
#include "host/mlistd/modhost/delivery.h"
#include "host/mlistd/modhost/functions.h"
#include "mlist/host_functions.h"
#include "mlist/output.h"

#define EXPORTED __attribute__((visibility("default")))

namespace
{

constexpr size_t COPY_SIZE = 64 * 1024;

/* The thread's allocator: its delivery's, else the one that the module uses without one. */
char *new_buffer(size_t size)
{
    void *memory = current_delivery() != nullptr ? allocate_operation(size) : malloc(size);
    if (memory == nullptr) errno = ENOMEM;
    return static_cast<char *>(memory);
}

void drop_buffer(void *memory)
{
    const int saved = errno;
    if (current_delivery() != nullptr) {
        release_operation(memory);
    } else {
        free(memory);
    }
    errno = saved;
}

/* The sink belongs to the loaded module; set once it is bound. */
decltype(&mlist_get_output) get_output;

} // namespace

void set_sink_accessor(FILE *(*accessor)())
{
    get_output = accessor;
}

extern "C" {

EXPORTED int g_debug = 0;

EXPORTED char *disk2memory(int fd, off_t offset, size_t length)
{
    if (length == SIZE_MAX) {
        errno = ENOMEM;
        return nullptr;
    }
    char *text = new_buffer(length + 1);
    if (text == nullptr) return nullptr;
    const ssize_t got = read_range(fd, offset, text, length);
    if (got < 0) {
        drop_buffer(text);
        return nullptr;
    }
    memset(text + got, 0, length + 1 - static_cast<size_t>(got));
    return text;
}

EXPORTED int disk2stdout(int fd, off_t offset, size_t length)
{
    FILE *sink = get_output != nullptr ? get_output() : stdout;
    char block[COPY_SIZE];
    for (size_t done = 0; done < length;) {
        const size_t want = std::min(length - done, sizeof(block));
        const ssize_t got = read_range(fd, offset + static_cast<off_t>(done), block, want);
        if (got < 0) return -1;
        memset(block + got, ' ', want - static_cast<size_t>(got));
        if (fwrite(block, 1, want, sink) != want) return -1;
        done += want;
    }
    return 0;
}
}
