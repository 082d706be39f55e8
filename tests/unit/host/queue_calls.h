/* The queue's system calls under a test's control: the n-th one that changes something fails or
   kills the process, the clock stands where it is put, and the order of calls is kept. */
#ifndef TESTS_UNIT_HOST_QUEUE_CALLS_H
#define TESTS_UNIT_HOST_QUEUE_CALLS_H

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "host/mlistd/spool/calls.h"

namespace queue_test
{
enum class Harm { none, fail, kill };

inline Harm harm = Harm::none;
inline int harm_at = 0; /* counted from 1 */
inline int harm_errno = ENOSPC;
inline std::atomic<int> calls_made{0};
inline std::atomic<time_t> clock_at{0}; /* 0: the kernel's */
inline std::mutex journal_mutex;
inline std::vector<std::string> journal;

/* True when this call is to fail; it does not come back when it is to kill. */
inline bool struck(const std::string &what)
{
    {
        const std::lock_guard lock(journal_mutex);
        journal.push_back(what);
    }
    if (harm == Harm::none || ++calls_made != harm_at) return false;
    if (harm == Harm::kill) kill(getpid(), SIGKILL);
    errno = harm_errno;
    return true;
}

inline std::string path_of(int fd)
{
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = readlink(link.c_str(), path, sizeof(path));
    return std::string(path, size > 0 ? static_cast<size_t>(size) : 0);
}

inline const QueueCalls &real()
{
    return kernel_queue_calls;
}

inline const QueueCalls calls = {
    .create =
        [](const char *path, mode_t mode) {
            return struck(std::string("create ") + path) ? -1 : real().create(path, mode);
        },
    .write = [](int fd, const void *data, size_t size) -> ssize_t {
        /* killed in the middle of a write: half of it is there */
        if (harm == Harm::kill && calls_made + 1 == harm_at && size > 1)
            (void)!real().write(fd, data, size / 2);
        return struck("write") ? -1 : real().write(fd, data, size);
    },
    .pwrite = [](int fd, const void *data, size_t size, off_t offset) -> ssize_t {
        if (harm == Harm::kill && calls_made + 1 == harm_at && size > 1)
            (void)!real().pwrite(fd, data, size / 2, offset);
        return struck("pwrite") ? -1 : real().pwrite(fd, data, size, offset);
    },
    .copy_range = [](int from, off_t *offset, int to, size_t size) -> ssize_t {
        return struck("copy_range") ? -1 : real().copy_range(from, offset, to, size);
    },
    .fsync = [](int fd) { return struck("fsync " + path_of(fd)) ? -1 : real().fsync(fd); },
    .fdatasync = [](int fd) { return struck("fdatasync") ? -1 : real().fdatasync(fd); },
    .syncfs = [](int fd) { return struck("syncfs") ? -1 : real().syncfs(fd); },
    .rename =
        [](const char *from, const char *to) {
            return struck(std::string("rename ") + to) ? -1 : real().rename(from, to);
        },
    .link =
        [](const char *from, const char *to) {
            return struck(std::string("link ") + to) ? -1 : real().link(from, to);
        },
    .unlink =
        [](const char *path) {
            return struck(std::string("unlink ") + path) ? -1 : real().unlink(path);
        },
    .mkdir =
        [](const char *path, mode_t mode) {
            return struck(std::string("mkdir ") + path) ? -1 : real().mkdir(path, mode);
        },
    .set_mtime =
        [](const char *path, time_t mtime) {
            return struck(std::string("set_mtime ") + path) ? -1 : real().set_mtime(path, mtime);
        },
    .now = [] { return clock_at != 0 ? clock_at.load() : real().now(); },
};

/* Puts the calls in place for a scope. */
class Control
{
  public:
    explicit Control(Harm kind = Harm::none, int at = 0, int error = ENOSPC)
    {
        harm = kind;
        harm_at = at;
        harm_errno = error;
        calls_made = 0;
        journal.clear();
        queue_calls = &calls;
    }
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;
    ~Control()
    {
        queue_calls = &kernel_queue_calls;
        harm = Harm::none;
        clock_at = 0;
    }
    /* Whether the harm was done. */
    bool happened() const { return calls_made >= harm_at && harm != Harm::none; }
};
} // namespace queue_test

#endif
