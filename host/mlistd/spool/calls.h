/* The system calls of the outgoing queue that tests must control, as one record. */
#ifndef HOST_MLISTD_SPOOL_CALLS_H
#define HOST_MLISTD_SPOOL_CALLS_H

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <string>
#include <string_view>
#include <vector>

#include "host/base/fd.h"
#include "host/base/result.h"

/* All of them but now() change something on disk. */
struct QueueCalls {
    int (*create)(const char *path, mode_t mode); /* open with O_CREAT | O_EXCL | O_RDWR */
    ssize_t (*write)(int fd, const void *data, size_t size);
    ssize_t (*pwrite)(int fd, const void *data, size_t size, off_t offset);
    ssize_t (*copy_range)(int from, off_t *from_offset, int to, size_t size);
    int (*fsync)(int fd);
    int (*fdatasync)(int fd);
    int (*syncfs)(int fd);
    int (*rename)(const char *from, const char *to);
    int (*link)(const char *from, const char *to);
    int (*unlink)(const char *path);
    int (*mkdir)(const char *path, mode_t mode);
    int (*set_mtime)(const char *path, time_t mtime);
    time_t (*now)();
};

/* The kernel's, unless a test puts its own record here while no other thread runs. */
extern const QueueCalls *queue_calls;
extern const QueueCalls kernel_queue_calls;

/* All of it, repeating after EINTR and short writes.  0, or -1 with errno; a write of nothing
   counts as ENOSPC. */
[[nodiscard]] int queue_write(int fd, std::string_view data);
[[nodiscard]] int queue_pwrite(int fd, std::string_view data, off_t offset);

/* pread(2) of exactly this much, less only at the end of the file.  -1 with errno. */
[[nodiscard]] ssize_t queue_pread(int fd, void *data, size_t size, off_t offset);

/* Appends size bytes of a file to another, sharing its blocks where the file system can.  0, or -1
   with errno (ENODATA: the file ended before). */
[[nodiscard]] int queue_copy(int from, off_t offset, off_t size, int to);

/* Makes the names in a directory durable.  0, or -1 with errno. */
[[nodiscard]] int sync_directory(const std::string &path);

/* mkdir, for which an existing directory will do; its entry in the parent is durable afterwards
   when it was made.  0, or -1 with errno. */
[[nodiscard]] int make_directory(const std::string &path, mode_t mode);

/* The names in a directory but "." and "..". */
Result<std::vector<std::string>> list_directory(const std::string &path);

#endif
