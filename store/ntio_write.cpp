/* Writing of the buffered file layer: straight to the descriptor, or through a buffer where
   Fbuffer() has set one up. */
#include "store/ntio.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/sink.h"
#include "module/tcb.h"
#include "module/unix_sv.h"

/* One write(2), repeated only when a signal came before the first byte. */
static ssize_t write_once(int fd, const void *data, size_t size)
{
    ssize_t written;
    do {
        written = os->write(fd, data, size);
    } while (written < 0 && errno == EINTR);
    return written;
}

/* The same where the block that was read last ends, however much was read. */
static ssize_t write_behind_block(FileRecord *record, const void *data, size_t size)
{
    return Funread(record) < 0 ? -1 : write_once(record->fd, data, size);
}

/* A failed write also makes the host try the delivery again. */
static void mark_failed(FileRecord *record)
{
    record->state = 1;
    setrc_tempfail();
}

/* Writes a text or a block of texts: its size, -2 or -3. */
static int write_text(FileRecord *record, const char *text, size_t size)
{
    const ssize_t written = write_behind_block(record, text, size);
    if (written < 0) {
        out_printf("slen1=%d errno=%d\n", static_cast<int>(size), errno);
        trace_sys(&g_logh, 1, 707, "WriteFile:1 error %d", errno);
        mark_failed(record);
        return -2;
    }
    if (static_cast<size_t>(written) < size) {
        trace_sys(&g_logh, 1, 708, "WriteFile:1 error (length)");
        out_printf("slen2=%d\n", static_cast<int>(size));
        mark_failed(record);
        errno = 0;
        return -3;
    }
    record->state = 0;
    record->written += size;
    return static_cast<int>(written);
}

/* -- write buffer -- */

int Fbuffer(FileRecord *record, uint32_t size)
{
    if (Fdrain(record) < 0) return -1;
    char *buffer = size > 0 ? static_cast<char *>(host_allocate(size)) : nullptr;
    if (buffer == nullptr) return -1;
    host_release(record->write_buffer);
    record->write_buffer = buffer;
    record->write_size = size;
    return 0;
}

int Fdrain(FileRecord *record)
{
    const uint32_t waiting = record->write_count;
    if (waiting == 0) return 0;
    /* After a failure the block is gone: part of it may be in the file, and it must not get there
       twice. */
    record->write_count = 0;
    const int result = write_text(record, record->write_buffer, waiting);
    return result < 0 ? result : 0;
}

/* Puts a text behind the waiting ones; one that has no room drains them first. */
static int collect_text(FileRecord *record, const char *text, size_t size)
{
    if (size > record->write_size - record->write_count) {
        const int drained = Fdrain(record);
        if (drained < 0) return drained;
        if (size >= record->write_size) return write_text(record, text, size);
    }
    memcpy(record->write_buffer + record->write_count, text, size);
    record->write_count += static_cast<uint32_t>(size);
    record->state = 0;
    return static_cast<int>(size);
}

/* -- writing -- */

int Fputs(const char *text, FileRecord *record)
{
    if (text == nullptr || record == nullptr) {
        trace_sys(&g_logh, 1, 706, "illegal argument (Fputs)");
        if (record != nullptr) record->state = 1;
        return -1;
    }
    return Fputb(text, strlen(text), record);
}

int Fputb(const char *bytes, size_t size, FileRecord *record)
{
    return record->write_buffer != nullptr ? collect_text(record, bytes, size)
                                           : write_text(record, bytes, size);
}

int Putc(int byte, FileRecord *record)
{
    if (record == nullptr) {
        /* KEPT: the text names a call of another layer.  Test: Ntio.MissingArgumentsAreLogged */
        trace_sys(&g_logh, 1, 722, "illegal argument (Puts)");
        return -1;
    }
    const char data = static_cast<char>(byte);
    if (record->write_buffer != nullptr) return collect_text(record, &data, 1);
    const ssize_t written = write_behind_block(record, &data, 1);
    if (written < 0) {
        trace_sys(&g_logh, 1, 723, "WriteFile:3 error %d", errno);
        mark_failed(record);
        return -2;
    }
    if (written == 0) {
        trace_sys(&g_logh, 1, 724, "WriteFile:3 error (length)");
        mark_failed(record);
        return -3;
    }
    record->state = 0;
    return 1;
}

#define FPRINTF_AREA_SIZE 4095

int Fprintf(int fd, const char *format, ...)
{
    if (fd == 0 || fd == -1 || format == nullptr) {
        trace_sys(&g_logh, 1, 709, "illegal argument (Fprintf)");
        return -1;
    }
    char area[FPRINTF_AREA_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(area, sizeof(area), format, arguments);
    va_end(arguments);
    const size_t size = strlen(area);
    const ssize_t written = write_once(fd, area, size);
    if (written < 0) {
        trace_sys(&g_logh, 1, 710, "WriteFile:2 error %d", errno);
        return -2;
    }
    if (static_cast<size_t>(written) < size)
        trace_sys(&g_logh, 3, 711, "WriteFile:2 error (length)");
    return static_cast<int>(written);
}
