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

static bool same_file(const struct stat *left, const struct stat *right)
{
    return left->st_dev == right->st_dev && left->st_ino == right->st_ino;
}

/* A descriptor may have been closed without telling, by its owner or on another thread. */
static bool still_open(const HeldIndex *held)
{
    struct stat now;
    return os->fstat(held->fd, &now) == 0 && now.st_dev == held->device &&
           now.st_ino == held->inode;
}

void note_held_index(int fd)
{
    KeepErrno keep;
    struct stat status;
    if (os->fstat(fd, &status) < 0) return;
    HeldIndex *place = nullptr;
    for (HeldIndex &held : held_indexes) {
        if (held.used && held.fd != fd && still_open(&held)) continue;
        held.used = false;
        if (place == nullptr) place = &held;
    }
    if (place != nullptr) *place = {true, fd, status.st_dev, status.st_ino};
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

static bool holds_index(const struct stat *status, int newly_opened_fd)
{
    for (HeldIndex &held : held_indexes) {
        if (!held.used || held.device != status->st_dev || held.inode != status->st_ino) continue;
        if (held.fd != newly_opened_fd && still_open(&held)) return true;
        held.used = false;
    }
    return false;
}

/* 1 with the lock of the file that has the name, 0 when the name moved on meanwhile, -1. */
static int lock_named_file(int fd, const char *name)
{
    struct stat opened, named;
    if (os->fstat(fd, &opened) < 0) return -1;
    if (holds_index(&opened, fd)) {
        errno = EDEADLK;
        return -1;
    }
    if (lock_file(fd, LOCK_EX) < 0) return -1;
    if (os->stat(name, &named) < 0) return errno == ENOENT ? 0 : -1;
    return same_file(&opened, &named) ? 1 : 0;
}

int lock_index_file(const char *name)
{
    for (;;) {
        FdGuard file(open_waiting(name, O_RDWR, 0660));
        if (file.fd < 0) return -1;
        const int locked = lock_named_file(file.fd, name);
        if (locked < 0) return -1;
        if (locked == 0) continue;
        note_held_index(file.fd);
        return file.take();
    }
}
