#include "host/mlistd/spool/calls.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

static int create_kernel(const char *path, mode_t mode)
{
    return ::open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
}

static ssize_t copy_range_kernel(int from, off_t *from_offset, int to, size_t size)
{
    return copy_file_range(from, from_offset, to, nullptr, size, 0);
}

static int set_mtime_kernel(const char *path, time_t mtime)
{
    const struct timespec times[2] = {{0, UTIME_OMIT}, {mtime, 0}};
    return utimensat(AT_FDCWD, path, times, AT_SYMLINK_NOFOLLOW);
}

static time_t now_kernel()
{
    /* Not time(), which may lag behind the time stamps of files: a submission that is due the
       second it was made would have to wait. */
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

const QueueCalls kernel_queue_calls = {
    create_kernel, ::write, ::pwrite, copy_range_kernel, ::fsync,          ::fdatasync, ::syncfs,
    ::rename,      ::link,  ::unlink, ::mkdir,           set_mtime_kernel, now_kernel,
};
const QueueCalls *queue_calls = &kernel_queue_calls;

/* Repeats one call until everything is written. */
template <typename Write> static int write_fully(std::string_view data, Write write)
{
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = write(data.data() + done, data.size() - done, done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) {
            errno = ENOSPC;
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

int queue_write(int fd, std::string_view data)
{
    return write_fully(data, [&](const char *piece, size_t size, size_t) {
        return queue_calls->write(fd, piece, size);
    });
}

int queue_pwrite(int fd, std::string_view data, off_t offset)
{
    return write_fully(data, [&](const char *piece, size_t size, size_t done) {
        return queue_calls->pwrite(fd, piece, size, offset + static_cast<off_t>(done));
    });
}

ssize_t queue_pread(int fd, void *data, size_t size, off_t offset)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pread(fd, static_cast<char *>(data) + done, size - done,
                                offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

static int copy_by_hand(int from, off_t offset, off_t size, int to)
{
    constexpr off_t PIECE = 256 * 1024;
    std::vector<char> buffer(static_cast<size_t>(std::min(size, PIECE)));
    while (size > 0) {
        const size_t want = static_cast<size_t>(std::min(size, PIECE));
        const ssize_t n = queue_pread(from, buffer.data(), want, offset);
        if (n < 0) return -1;
        if (n == 0) {
            errno = ENODATA;
            return -1;
        }
        if (queue_write(to, {buffer.data(), static_cast<size_t>(n)}) < 0) return -1;
        offset += n;
        size -= n;
    }
    return 0;
}

/* Reasons of copy_file_range() that say nothing about reading and writing. */
static bool cannot_copy_in_kernel(int error)
{
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
           error == EBADF || error == EPERM;
}

int queue_copy(int from, off_t offset, off_t size, int to)
{
    while (size > 0) {
        const ssize_t n = queue_calls->copy_range(from, &offset, to, static_cast<size_t>(size));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && !cannot_copy_in_kernel(errno)) return -1;
        /* some file systems answer 0 for what they cannot copy this way */
        if (n <= 0) return copy_by_hand(from, offset, size, to);
        size -= n;
    }
    return 0;
}

int sync_directory(const std::string &path)
{
    const Fd directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory ? queue_calls->fsync(directory.get()) : -1;
}

int make_directory(const std::string &path, mode_t mode)
{
    if (queue_calls->mkdir(path.c_str(), mode) == 0) {
        const size_t slash = path.find_last_of('/');
        return sync_directory(slash == path.npos ? "."
                                                 : path.substr(0, std::max<size_t>(slash, 1)));
    }
    struct stat status;
    if (errno != EEXIST || stat(path.c_str(), &status) < 0) return -1;
    if (S_ISDIR(status.st_mode)) return 0;
    errno = ENOTDIR;
    return -1;
}

Result<std::vector<std::string>> list_directory(const std::string &path)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(path.c_str()), closedir);
    if (!directory) return system_error(path);
    std::vector<std::string> names;
    errno = 0;
    while (const struct dirent *entry = readdir(directory.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    if (errno != 0) return system_error(path);
    return names;
}
