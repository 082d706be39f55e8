/* File records: opening, closing, positioning.  Reading is in ntio_read.cpp, writing in
   ntio_write.cpp. */
#include "store/ntio.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "module/guards.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "module/unix_sv.h"

/* -- records -- */

FileRecord *Fopen(int fd)
{
    /* KEPT: 0 is refused though it is a descriptor; a host keeps 0 to 2 open.
       Test: Ntio.WrappingRefusesMinusOneAndZero */
    if (fd == -1 || fd == 0) {
        trace_sys(&g_logh, 1, 700, "illegal argument (Fopen)");
        errno = 0;
        return nullptr;
    }
    HostPtr<FileRecord> record(sizeof(FileRecord));
    if (record.p == nullptr) {
        trace_sys(&g_logh, 1, 701, "LocalAlloc error %d (fp)", errno);
        return nullptr;
    }
    memset(record.p, 0, sizeof(*record.p));
    record.p->area = static_cast<char *>(host_allocate(FILE_BUFFER_SIZE + 1));
    if (record.p->area == nullptr) {
        trace_sys(&g_logh, 1, 702, "LocalAlloc error %d (fp->buf)", errno);
        return nullptr;
    }
    record.p->fd = fd;
    record.p->area_size = FILE_BUFFER_SIZE;
    record.p->buffer = record.p->area;
    record.p->buffer[0] = '\0';
    record.p->buffer[FILE_BUFFER_SIZE] = '\0';
    return record.take();
}

void Fclose(FileRecord *record)
{
    if (record == nullptr) return;
    host_release(record->write_buffer);
    host_release(record->area);
    host_release(record);
}

/* -- opening and closing -- */

struct OpenType {
    const char *name;
    int flags;
    mode_t mode; /* of a file that is created */
};

static const OpenType open_types[] = {
    {"r", O_RDONLY, 0},           {"w", O_RDWR | O_CREAT | O_TRUNC, 0660}, {"r+", O_RDWR, 0},
    {"a", O_RDWR | O_APPEND, 0}, /* KEPT: creates nothing.  Test: Ntio.AppendingNeedsTheFile */
    {"rx", O_RDONLY | O_EXCL, 0},
};

static const OpenType *find_open_type(const char *name)
{
    for (const OpenType &type : open_types)
        if (name != nullptr && strcmp(type.name, name) == 0) return &type;
    return nullptr;
}

static FileRecord *open_record(const char *path, int flags, mode_t mode)
{
    const int fd = open_file(path, flags, mode);
    if (fd < 0) return nullptr;
    FileRecord *record = Fopen(fd);
    if (record == nullptr) {
        trace_sys(&g_logh, 1, 718, "fopen error %d", errno);
        KeepErrno keep;
        (void)os->close(fd); /* nothing was written */
        return nullptr;
    }
    errno = 0;
    return record;
}

FileRecord *f_open(const char *path, const char *type)
{
    const OpenType *found = find_open_type(type);
    if (found != nullptr) return open_record(path, found->flags, found->mode);
    trace_sys(&g_logh, 1, 715, "f_open error invalid type [%s]", type);
    errno = 0;
    return nullptr;
}

FileRecord *f_create(const char *path)
{
    return open_record(path, O_RDWR | O_CREAT | O_EXCL, 0660);
}

int f_close(FileRecord *record)
{
    if (record == nullptr) return 1;
    bool failed = false;
    int first_errno = 0;
    const auto note = [&](int result) {
        if (result >= 0 || failed) return;
        failed = true;
        first_errno = errno;
    };
    if (record->fd != -1 && record->fd != 0) {
        note(Fdrain(record));
        note(os->fsync(record->fd));
        note(os->close(record->fd));
        record->fd = -1;
    }
    Fclose(record);
    if (!failed) return 1;
    errno = first_errno;
    return 0;
}

/* -- state and position -- */

int Ferror(FileRecord *record)
{
    if (record->state == -1) record->state = 0;
    return record->state;
}

/* KEPT: the block is measured as a text, so that bytes behind a zero byte count as handed out, and
   the position moves forward when it stands behind that byte.
   Test: Ntio.FlushMeasuresTheReadAheadAsAText */
static off_t unread_bytes(const FileRecord *record)
{
    return static_cast<off_t>(record->line_end) - record->position + record->ahead;
}

off_t Ftell(const FileRecord *record)
{
    const off_t read = os->lseek(record->fd, 0, SEEK_CUR);
    if (read >= 0) return read - unread_bytes(record);
    trace_sys(&g_logh, 1, 712, "SetFilePointer error %d", errno);
    return -1;
}

int Funread(FileRecord *record)
{
    if (record->ahead == 0) return 0;
    if (os->lseek(record->fd, -static_cast<off_t>(record->ahead), SEEK_CUR) < 0) return -1;
    record->ahead = 0;
    return 0;
}

int Fflush(FileRecord *record)
{
    if (Fdrain(record) < 0) return -1;
    if (os->lseek(record->fd, -unread_bytes(record), SEEK_CUR) < 0) {
        trace_sys(&g_logh, 1, 712, "SetFilePointer error %d", errno);
        return -1;
    }
    record->buffer[0] = '\0';
    record->position = record->line_end = record->count = record->ahead = 0;
    return 0;
}

int Fseek(FileRecord *record, off_t offset, int whence)
{
    if (Fflush(record) < 0) {
        trace_sys(&g_logh, 1, 713, "Fflush error %d", errno);
        return -1;
    }
    if (os->lseek(record->fd, offset, whence) < 0) {
        trace_sys(&g_logh, 1, 714, "SetFilePointer error %d", errno);
        return -1;
    }
    return 0;
}
