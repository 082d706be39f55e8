/* Index locks, and the memory of which indexes this thread holds: a second flock() of the same
   file through another descriptor would wait for ever for the thread's own first one. */
#include "archive/unix_lk.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "module/guards.h"
#include "module/os.h"
#include "module/unix_sv.h"

static bool is_shortage(int error)
{
    return error == ENOMEM || error == ENFILE || error == EMFILE;
}

int open_waiting(const char *path, int flags, mode_t mode)
{
    int fd = open_file(path, flags, mode);
    while (fd < 0 && is_shortage(errno)) {
        (void)os->sleep(1);
        fd = open_file(path, flags, mode);
    }
    return fd;
}

static int open_with_lock(const char *path, int flags, mode_t mode, int operation)
{
    FdGuard file(open_waiting(path, flags, mode));
    if (file.fd < 0 || lock_file(file.fd, operation) < 0) return -1;
    return file.take();
}

int mllk_open(const char *path, int flags, mode_t mode)
{
    return open_with_lock(path, flags, mode, LOCK_EX);
}

int mllks_open(const char *path, int flags, mode_t mode)
{
    return open_with_lock(path, flags, mode, LOCK_EX | LOCK_NB);
}

/* -- indexes held by this thread -- */

struct HeldIndex {
    bool used;
    int fd;
    dev_t device;
    ino_t inode;
};

/* A thread holds one, rarely two; what does not fit is merely not remembered. */
static thread_local HeldIndex held_indexes[8];

static bool is_file(const KeptIndex *file, const struct stat *status)
{
    return file->device == status->st_dev && file->inode == status->st_ino;
}

/* A descriptor may have been closed without telling, by its owner or on another thread. */
static bool still_open(const HeldIndex *held)
{
    struct stat now;
    return os->fstat(held->fd, &now) == 0 && now.st_dev == held->device &&
           now.st_ino == held->inode;
}

static void note_held_file(int fd, const struct stat *status)
{
    KeepErrno keep;
    HeldIndex *place = nullptr;
    for (HeldIndex &held : held_indexes) {
        if (held.used && held.fd != fd && still_open(&held)) continue;
        held.used = false;
        if (place == nullptr) place = &held;
    }
    if (place != nullptr) *place = {true, fd, status->st_dev, status->st_ino};
}

void note_held_index(int fd)
{
    KeepErrno keep;
    struct stat status;
    if (os->fstat(fd, &status) == 0) note_held_file(fd, &status);
}

void forget_held_index(int fd)
{
    for (HeldIndex &held : held_indexes)
        if (held.used && held.fd == fd) held.used = false;
}

int mllk_close(int fd)
{
    forget_held_index(fd);
    if (lock_file(fd, LOCK_UN) < 0)
        trace_sys(&g_logh, 1, 854, "mllk_close, flock failed (fds %d) errno=%d: %m", fd, errno);
    return os->close(fd);
}

static bool holds_index(const KeptIndex *file)
{
    for (HeldIndex &held : held_indexes) {
        if (!held.used || held.device != file->device || held.inode != file->inode) continue;
        if (held.fd != file->fd && still_open(&held)) return true;
        held.used = false;
    }
    return false;
}

/* 1 with the lock of the file that has the name, 0 when the name moved on meanwhile, -1. */
static int lock_named_file(const KeptIndex *file, const char *name, struct stat *named_out)
{
    if (holds_index(file)) {
        errno = EDEADLK;
        return -1;
    }
    if (lock_file(file->fd, LOCK_EX) < 0) return -1;
    if (os->stat(name, named_out) < 0) return errno == ENOENT ? 0 : -1;
    return is_file(file, named_out) ? 1 : 0;
}

/* Opens the file that has the name now.  Its fd is -1 with errno on failure. */
static KeptIndex open_named_file(const char *name)
{
    FdGuard file(open_waiting(name, O_RDWR, 0660));
    struct stat opened;
    if (file.fd < 0 || os->fstat(file.fd, &opened) < 0) return {-1, 0, 0};
    return {file.take(), opened.st_dev, opened.st_ino};
}

int lock_index_file(const char *name, struct stat *found_out, KeptIndex *kept)
{
    struct stat found;
    for (;;) {
        const bool has_kept = kept != nullptr && kept->fd > 0;
        const KeptIndex file = has_kept ? *kept : open_named_file(name);
        if (has_kept) kept->fd = 0;
        FdGuard guard(file.fd);
        if (file.fd < 0) return -1;
        const int locked = lock_named_file(&file, name, &found);
        if (locked < 0) return -1;
        if (locked == 0) continue;
        note_held_file(file.fd, &found);
        if (found_out != nullptr) *found_out = found;
        return guard.take();
    }
}

KeptIndex unlock_index_file(int fd, const struct stat *status)
{
    forget_held_index(fd);
    if (lock_file(fd, LOCK_UN) == 0) return {fd, status->st_dev, status->st_ino};
    /* A lock that stayed would make this very thread wait for itself; closing gives it up.
       Test: Disturbed.EndsAsStatedAndIsDoneByTheRetry/PostingThatIsNotKept */
    (void)os->close(fd);
    return {0, 0, 0};
}
