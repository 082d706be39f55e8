/* Owners with a destructor: descriptors, and errno around clean-up. */
#ifndef MODULE_GUARDS_H
#define MODULE_GUARDS_H

#include <errno.h>

#include "module/os.h"

/* Puts errno back to what it was when the object was made. */
struct KeepErrno {
    int saved = errno;
    KeepErrno() = default;
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;
    ~KeepErrno() { errno = saved; }
};

/* Closes a descriptor on the paths where the result of closing does not matter. */
struct FdGuard {
    int fd;
    explicit FdGuard(int open_fd) : fd(open_fd) {}
    FdGuard(const FdGuard &) = delete;
    FdGuard &operator=(const FdGuard &) = delete;
    ~FdGuard()
    {
        if (fd < 0) return;
        KeepErrno keep;
        (void)os->close(fd); /* nothing was written through it that a caller relies on */
    }
    /* The descriptor, no longer the guard's. */
    int take()
    {
        const int taken = fd;
        fd = -1;
        return taken;
    }
};

#endif
