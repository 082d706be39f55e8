/* The system calls that tests must control, as one record of function pointers. */
#ifndef MODULE_OS_H
#define MODULE_OS_H

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

struct OsCalls {
    int (*open)(const char *path, int flags, mode_t mode);
    int (*openat)(int directory, const char *name, int flags);
    int (*close)(int fd);
    ssize_t (*read)(int fd, void *data, size_t size);
    ssize_t (*pread)(int fd, void *data, size_t size, off_t offset);
    ssize_t (*write)(int fd, const void *data, size_t size);
    ssize_t (*pwrite)(int fd, const void *data, size_t size, off_t offset);
    off_t (*lseek)(int fd, off_t offset, int whence);
    int (*fsync)(int fd);
    int (*ftruncate)(int fd, off_t length);
    int (*fstat)(int fd, struct stat *status);
    int (*stat)(const char *path, struct stat *status);
    int (*futimens)(int fd, const struct timespec times[2]);
    int (*flock)(int fd, int operation);
    int (*link)(const char *from, const char *to);
    int (*rename)(const char *from, const char *to);
    int (*unlink)(const char *path);
    int (*mkdir)(const char *path, mode_t mode);
    int (*rmdir)(const char *path);
    time_t (*time)(time_t *now);
    int (*clock_gettime)(clockid_t clock, struct timespec *now);
    unsigned (*sleep)(unsigned seconds);
};

/* The kernel's, unless a test puts its own record here while no other thread runs. */
extern const OsCalls *os;
extern const OsCalls kernel_calls;

/* All of it, repeating after EINTR and short writes.  0, or -1 with errno; a write of nothing
   counts as ENOSPC. */
[[nodiscard]] int write_all(int fd, const void *data, size_t size);
[[nodiscard]] int pwrite_all(int fd, const void *data, size_t size, off_t offset);

/* Opens with O_CLOEXEC added, repeating after EINTR.  A pipe in a file's place makes nobody wait
   for its other end. */
[[nodiscard]] int open_file(const char *path, int flags, mode_t mode);

/* The same for a file that is there, by its name in an open directory. */
[[nodiscard]] int open_file_in(int directory, const char *name, int flags);

/* Without a writer a pipe reads as an empty file: 0 for a file, -1 with ESPIPE for what has no
   position. */
[[nodiscard]] int refuse_pipe(int fd);

/* flock(2), repeating after EINTR. */
[[nodiscard]] int lock_file(int fd, int operation);

/* read(2) and pread(2), repeating after EINTR. */
[[nodiscard]] ssize_t read_some(int fd, void *data, size_t size);
[[nodiscard]] ssize_t pread_some(int fd, void *data, size_t size, off_t offset);

/* Syncs the directory that holds path, so that a new or changed name in it is durable.  0 or -1. */
[[nodiscard]] int sync_parent_directory(const char *path);

#endif
