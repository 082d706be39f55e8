#include "tests/concurrency/lock_watch.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/concurrency/board.h"

static uint64_t inode_of(int fd)
{
    struct stat status;
    return fstat(fd, &status) == 0 ? status.st_ino : 0;
}

static void forget_lock(BoardLine *own, int fd)
{
    for (HeldLock &lock : own->held)
        if (lock.fd == fd) lock.inode = 0;
}

static void note_lock(BoardLine *own, int fd)
{
    forget_lock(own, fd);
    for (HeldLock &lock : own->held) {
        if (lock.inode != 0) continue;
        lock.fd = fd;
        lock.inode = inode_of(fd);
        return;
    }
}

static int watched_flock(int fd, int operation)
{
    BoardLine *own = own_board_line();
    if (own == nullptr) return flock(fd, operation);
    const bool unlock = (operation & LOCK_UN) != 0;
    if (!unlock) own->waits_for = inode_of(fd);
    if (unlock) forget_lock(own, fd);
    const int result = flock(fd, operation);
    own->waits_for = 0;
    if (!unlock && result == 0) note_lock(own, fd);
    return result;
}

static int watched_close(int fd)
{
    if (BoardLine *own = own_board_line()) forget_lock(own, fd);
    return close(fd);
}

OsCalls watched_calls()
{
    OsCalls calls = kernel_calls;
    calls.flock = watched_flock;
    calls.close = watched_close;
    return calls;
}
