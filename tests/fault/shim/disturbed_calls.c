/* Preloaded into a program: disturbs its n-th file system call below a directory.

   DISTURB_BELOW    the directory; calls on names below it and on descriptors opened there count
   DISTURB_SPARED   how the names end that do not, if any
   DISTURB_CALLS    which calls count, as ",open,write,"; "make" is an open that may create
   DISTURB_AT       the call that is disturbed, from 1; 0 only counts
   DISTURB_HARM     kill: the process dies before the call; tear: half of what it writes is
                    written, then it dies; short: half of what it reads or writes is; else the
                    number of the error that the call fails with, doing nothing
   DISTURB_COUNT    a file of 8 bytes that holds the number of calls counted, as it grows */
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

enum { DESCRIPTORS = 4096 };
enum { KILL = -1, TEAR = -2, SHORT = -3 }; /* beside the numbers of errors */

static const char *below = "";
static const char *spared = "";
static const char *counted = "";
static size_t below_length;
static long at;
static int harm;
static _Atomic long *count;
static _Atomic char of_interest[DESCRIPTORS]; /* opened below the directory */

#define REAL(name, ...)                                                                            \
    static __typeof__(name) *real;                                                                 \
    if (!real) real = (__typeof__(name) *)dlsym(RTLD_NEXT, #name)

__attribute__((constructor)) static void read_orders(void)
{
    const char *file = getenv("DISTURB_COUNT"), *what = getenv("DISTURB_HARM");
    if (!file || !getenv("DISTURB_BELOW")) return;
    const int fd = open(file, O_RDWR | O_CLOEXEC);
    count = mmap(NULL, sizeof(*count), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (count == MAP_FAILED) abort();
    counted = getenv("DISTURB_CALLS") ? getenv("DISTURB_CALLS") : "";
    spared = getenv("DISTURB_SPARED") ? getenv("DISTURB_SPARED") : "";
    at = getenv("DISTURB_AT") ? atol(getenv("DISTURB_AT")) : 0;
    harm = !what                    ? 0
           : !strcmp(what, "kill")  ? KILL
           : !strcmp(what, "tear")  ? TEAR
           : !strcmp(what, "short") ? SHORT
                                    : atoi(what);
    below = getenv("DISTURB_BELOW");
    below_length = strlen(below);
}

static int is_below(const char *path)
{
    if (below_length == 0 || !path || strncmp(path, below, below_length) != 0) return 0;
    const size_t length = strlen(path), end = strlen(spared);
    return end == 0 || length < end || strcmp(path + length - end, spared) != 0;
}

static int is_known(int fd)
{
    return fd >= 0 && fd < DESCRIPTORS && of_interest[fd];
}

/* Counts the call; what it has to suffer, or 0.  Who is to die before the call does so here. */
static int turn_of(const char *name, int concerned)
{
    if (!count || !concerned) return 0;
    if (!strstr(counted, name) || ++*count != at) return 0;
    if (harm == KILL) raise(SIGKILL);
    return harm;
}

static int fails(int turn)
{
    if (turn > 0) errno = turn;
    return turn > 0;
}

static int opened(int fd, const char *path)
{
    if (fd >= 0 && fd < DESCRIPTORS) of_interest[fd] = (char)is_below(path);
    return fd;
}

#define OPEN(name)                                                                                 \
    int name(const char *path, int flags, ...)                                                     \
    {                                                                                              \
        REAL(name);                                                                                \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;                       \
        va_end(arguments);                                                                         \
        const char *call = flags & (O_CREAT | O_TRUNC) ? ",make," : ",open,";                      \
        if (fails(turn_of(call, is_below(path)))) return -1;                                       \
        return opened(real(path, flags, mode), path);                                              \
    }
OPEN(open)
OPEN(open64)

/* Only whole paths are looked at: the programs name files so. */
#define OPENAT(name)                                                                               \
    int name(int directory, const char *path, int flags, ...)                                      \
    {                                                                                              \
        REAL(name);                                                                                \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;                       \
        va_end(arguments);                                                                         \
        const char *call = flags & (O_CREAT | O_TRUNC) ? ",make," : ",open,";                      \
        if (fails(turn_of(call, is_below(path)))) return -1;                                       \
        return opened(real(directory, path, flags, mode), path);                                   \
    }
OPENAT(openat)
OPENAT(openat64)

DIR *opendir(const char *path)
{
    REAL(opendir);
    return fails(turn_of(",open,", is_below(path))) ? NULL : real(path);
}

int close(int fd)
{
    REAL(close);
    const int turn = turn_of(",close,", is_known(fd));
    if (fd >= 0 && fd < DESCRIPTORS) of_interest[fd] = 0;
    const int result = real(fd); /* a descriptor is gone also when closing it fails */
    return fails(turn) ? -1 : result;
}

/* -- reading and writing -- */

static void die_torn(int turn)
{
    if (turn == TEAR) raise(SIGKILL);
}

#define HALF(turn, size) ((turn) < 0 && (size) > 1 ? (size) / 2 : (size))

ssize_t read(int fd, void *data, size_t size)
{
    REAL(read);
    const int turn = turn_of(",read,", is_known(fd));
    return fails(turn) ? -1 : real(fd, data, HALF(turn, size));
}

ssize_t write(int fd, const void *data, size_t size)
{
    REAL(write);
    const int turn = turn_of(",write,", is_known(fd));
    if (fails(turn)) return -1;
    const ssize_t done = real(fd, data, HALF(turn, size));
    die_torn(turn);
    return done;
}

#define PREAD(name, offset_type)                                                                   \
    ssize_t name(int fd, void *data, size_t size, offset_type offset)                              \
    {                                                                                              \
        REAL(name);                                                                                \
        const int turn = turn_of(",read,", is_known(fd));                                          \
        return fails(turn) ? -1 : real(fd, data, HALF(turn, size), offset);                        \
    }
PREAD(pread, off_t)
PREAD(pread64, off64_t)

#define PWRITE(name, offset_type)                                                                  \
    ssize_t name(int fd, const void *data, size_t size, offset_type offset)                        \
    {                                                                                              \
        REAL(name);                                                                                \
        const int turn = turn_of(",write,", is_known(fd));                                         \
        if (fails(turn)) return -1;                                                                \
        const ssize_t done = real(fd, data, HALF(turn, size), offset);                             \
        die_torn(turn);                                                                            \
        return done;                                                                               \
    }
PWRITE(pwrite, off_t)
PWRITE(pwrite64, off64_t)

ssize_t copy_file_range(int from, off64_t *from_at, int to, off64_t *to_at, size_t size,
                        unsigned flags)
{
    REAL(copy_file_range);
    const int turn = turn_of(",write,", is_known(to));
    if (fails(turn)) return -1;
    const ssize_t done = real(from, from_at, to, to_at, HALF(turn, size), flags);
    die_torn(turn);
    return done;
}

/* -- calls without a size: torn, they are done and then the process dies -- */

#define PLAIN(result, name, parameters, arguments, word, concerned)                                \
    result name parameters                                                                         \
    {                                                                                              \
        REAL(name);                                                                                \
        const int turn = turn_of(word, concerned);                                                 \
        if (fails(turn)) return -1;                                                                \
        const result done = real arguments;                                                        \
        die_torn(turn);                                                                            \
        return done;                                                                               \
    }
PLAIN(int, fsync, (int fd), (fd), ",sync,", is_known(fd))
PLAIN(int, fdatasync, (int fd), (fd), ",sync,", is_known(fd))
PLAIN(int, syncfs, (int fd), (fd), ",sync,", is_known(fd))
PLAIN(int, flock, (int fd, int operation), (fd, operation), ",lock,", is_known(fd))
PLAIN(int, ftruncate, (int fd, off_t size), (fd, size), ",size,", is_known(fd))
PLAIN(int, ftruncate64, (int fd, off64_t size), (fd, size), ",size,", is_known(fd))
PLAIN(int, futimens, (int fd, const struct timespec times[2]), (fd, times), ",time,", is_known(fd))
PLAIN(int, rename, (const char *from, const char *to), (from, to), ",name,",
      is_below(from) || is_below(to))
PLAIN(int, link, (const char *from, const char *to), (from, to), ",name,",
      is_below(from) || is_below(to))
PLAIN(int, unlink, (const char *path), (path), ",name,", is_below(path))
PLAIN(int, mkdir, (const char *path, mode_t mode), (path, mode), ",make,", is_below(path))
PLAIN(int, rmdir, (const char *path), (path), ",name,", is_below(path))

/* Whoever waits for memory or descriptors to come back finds them at once. */
unsigned sleep(unsigned seconds)
{
    (void)seconds;
    return 0;
}
