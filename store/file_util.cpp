/* Small operations on whole files, beneath the replacement of control files. */
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "module/guards.h"
#include "module/os.h"
#include "store/file.h"

/* KEPT: what a failed write leaves out is left out silently, and the copy goes on with the next
   block; whoever needs the whole file compares the sizes (copy_whole()).
   Test: FileUtil.CopyDoesNotReportAFailedWrite */
static void copy_block(int to, const char *block, size_t size)
{
    KeepErrno keep;
    (void)write_all(to, block, size);
}

/* 0, or -1 with errno when the source cannot be read. */
static int copy_blocks(int from, int to)
{
    char block[COPY_BLOCK_SIZE];
    for (;;) {
        const ssize_t got = read_some(from, block, sizeof(block));
        if (got <= 0) return got < 0 ? -1 : 0;
        copy_block(to, block, static_cast<size_t>(got));
    }
}

/* Cuts the target to what was written: overwriting what is there costs no new room, which a full
   disk may not have. */
static int cut_target(int to)
{
    const off_t end = os->lseek(to, 0, SEEK_CUR);
    return end < 0 ? -1 : os->ftruncate(to, end);
}

/* Syncs and closes what was copied to. */
static int finish_target(int to)
{
    if (os->fsync(to) == 0) return os->close(to) < 0 ? -1 : 0;
    const int cause = errno;
    (void)os->close(to); /* the failure is reported already */
    /* KEPT: the descriptor whose number is the error's is closed as well; a host keeps a
       placeholder on these numbers.  Test: FileUtil.AFailedSyncClosesTheDescriptorOfThatNumber */
    (void)os->close(cause);
    errno = cause;
    return -1;
}

int cpyfile(const char *source, const char *target)
{
    FdGuard from(open_file(source, O_RDONLY, 0));
    if (from.fd < 0 || refuse_pipe(from.fd) < 0) return -1;
    FdGuard to(open_file(target, O_RDWR | O_CREAT, 0600));
    if (to.fd < 0) return -1;
    if (copy_blocks(from.fd, to.fd) < 0 || cut_target(to.fd) < 0) return -1;
    (void)os->close(from.take()); /* only read */
    return finish_target(to.take());
}

int copy_whole(const char *source, const char *target)
{
    if (cpyfile(source, target) < 0) return -1;
    const int64_t size = stat_size(source);
    if (size < 0) return -1;
    if (stat_size(target) == size) return 0;
    errno = ENOSPC; /* the cause that copies are cut short by */
    return -1;
}

int write_anew(const char *target, const char *bytes, size_t size)
{
    FdGuard to(open_file(target, O_RDWR | O_CREAT | O_TRUNC, 0600));
    if (to.fd < 0 || write_all(to.fd, bytes, size) < 0) return -1;
    return finish_target(to.take());
}

/* Cut in any case: somebody without the list's lock may have made it longer than it was read. */
int overwrite_whole(const char *target, const char *bytes, size_t size)
{
    FdGuard to(open_file(target, O_RDWR, 0));
    if (to.fd < 0 || write_all(to.fd, bytes, size) < 0 ||
        os->ftruncate(to.fd, static_cast<off_t>(size)) < 0)
        return -1;
    return finish_target(to.take());
}

int delfile(const char *path)
{
    return os->unlink(path);
}

int extfile(const char *path)
{
    struct stat status;
    return os->stat(path, &status) == 0 ? 1 : 0;
}

int64_t stat_size(const char *path)
{
    struct stat status;
    return os->stat(path, &status) == 0 ? static_cast<int64_t>(status.st_size) : -1;
}
