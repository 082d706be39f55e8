/* The kernel's record of calls, and the loops around short and interrupted ones. */
#include "module/os.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "module/guards.h"

static int kernel_open(const char *path, int flags, mode_t mode)
{
    return open(path, flags, mode);
}

static int kernel_openat(int directory, const char *name, int flags)
{
    return openat(directory, name, flags, 0);
}

const OsCalls kernel_calls = {
    .open = kernel_open,
    .openat = kernel_openat,
    .close = close,
    .read = read,
    .pread = pread,
    .write = write,
    .pwrite = pwrite,
    .lseek = lseek,
    .fsync = fsync,
    .ftruncate = ftruncate,
    .fstat = fstat,
    .stat = stat,
    .futimens = futimens,
    .flock = flock,
    .link = link,
    .rename = rename,
    .unlink = unlink,
    .mkdir = mkdir,
    .rmdir = rmdir,
    .time = time,
    .clock_gettime = clock_gettime,
    .sleep = sleep,
};

const OsCalls *os = &kernel_calls;

/* One call, repeated for as long as a signal interrupts it. */
template <class Call> static auto unless_interrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/* Opens without waiting for the other end of a pipe.  Where a lease stands against that, as file
   servers take them, what is there is a file, and waiting means until the lease is given up. */
template <class Open> static int without_pipes(Open open_with)
{
    const int fd = unless_interrupted([=] { return open_with(O_CLOEXEC | O_NONBLOCK); });
    if (fd >= 0 || errno != EWOULDBLOCK) return fd;
    return unless_interrupted([=] { return open_with(O_CLOEXEC); });
}

int open_file(const char *path, int flags, mode_t mode)
{
    return without_pipes([=](int more) { return os->open(path, flags | more, mode); });
}

int open_file_in(int directory, const char *name, int flags)
{
    return without_pipes([=](int more) { return os->openat(directory, name, flags | more); });
}

int refuse_pipe(int fd)
{
    return os->lseek(fd, 0, SEEK_CUR) < 0 ? -1 : 0;
}

int lock_file(int fd, int operation)
{
    return unless_interrupted([=] { return os->flock(fd, operation); });
}

ssize_t read_some(int fd, void *data, size_t size)
{
    return unless_interrupted([=] { return os->read(fd, data, size); });
}

ssize_t pread_some(int fd, void *data, size_t size, off_t offset)
{
    return unless_interrupted([=] { return os->pread(fd, data, size, offset); });
}

/* Hands the data to write_piece(data, size, written so far) until none is left. */
template <class Write> static int write_pieces(const void *data, size_t size, Write write_piece)
{
    const char *bytes = static_cast<const char *>(data);
    for (size_t done = 0; done < size;) {
        const ssize_t written = write_piece(bytes + done, size - done, done);
        if (written < 0 && errno == EINTR) continue;
        if (written == 0) errno = ENOSPC;
        if (written <= 0) return -1;
        done += static_cast<size_t>(written);
    }
    return 0;
}

int write_all(int fd, const void *data, size_t size)
{
    return write_pieces(data, size, [fd](const char *piece, size_t left, size_t) {
        return os->write(fd, piece, left);
    });
}

int pwrite_all(int fd, const void *data, size_t size, off_t offset)
{
    return write_pieces(data, size, [=](const char *piece, size_t left, size_t done) {
        return os->pwrite(fd, piece, left, offset + static_cast<off_t>(done));
    });
}

int sync_parent_directory(const char *path)
{
    char parent[4096];
    const char *slash = strrchr(path, '/');
    if (slash == nullptr) {
        strcpy(parent, ".");
    } else if (slash == path) {
        strcpy(parent, "/");
    } else {
        const size_t length = static_cast<size_t>(slash - path);
        if (length >= sizeof(parent)) {
            errno = ENAMETOOLONG;
            return -1;
        }
        memcpy(parent, path, length);
        parent[length] = '\0';
    }
    FdGuard directory(open_file(parent, O_RDONLY | O_DIRECTORY, 0));
    return directory.fd < 0 ? -1 : os->fsync(directory.fd);
}
