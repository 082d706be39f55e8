/* Bulk text from a message file to the sink. */
#include <string.h>

#include "archive/fetch.h"
#include "module/guards.h"
#include "module/os.h"

/* KEPT: a NUL hides the rest of one read, and this is how long a read is.
   Test: FetchRfc822.SendsEachReadUpToItsFirstNul */
#define READ_SIZE 8188
#define READS_AT_ONCE 2

/* Fills the block as far as the file goes.  Bytes, 0 at the end or on failure.  A read that stops
   short just at the end by the index has come to the end: the kernel need not be asked again. */
static size_t read_block(int fd, uint64_t offset, char *block, size_t size, uint64_t end)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread_some(fd, block + done, size - done, static_cast<off_t>(offset + done));
        if (got <= 0) break;
        done += static_cast<size_t>(got);
        if (offset + done == end) break;
    }
    return done;
}

/* Hands the range's reads to send(text, length) until it answers false. */
template <class Send>
static void each_read(int fd, uint64_t start, uint64_t length, uint64_t end, Send send)
{
    KeepErrno keep;
    char block[READ_SIZE * READS_AT_ONCE];
    while (length > 0) {
        const size_t want = length < sizeof(block) ? static_cast<size_t>(length) : sizeof(block);
        const size_t got = read_block(fd, start, block, want, end);
        for (size_t at = 0; at < got; at += READ_SIZE)
            if (!send(block + at, got - at < READ_SIZE ? got - at : READ_SIZE)) return;
        if (got < want) return;
        start += got;
        length -= got;
    }
}

void send_range(int fd, uint64_t start, uint64_t length, uint64_t end)
{
    each_read(fd, start, length, end, [](const char *text, size_t size) {
        put_bytes(text, strnlen(text, size));
        return true;
    });
}

void send_text(int fd, uint64_t start, uint64_t length)
{
    each_read(fd, start, length, start + length, [](const char *text, size_t size) {
        const size_t shown = strnlen(text, size);
        put_bytes(text, shown);
        return shown == size;
    });
}
