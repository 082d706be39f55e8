#include "host/base/placeholders.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

static constexpr mode_t LIST_FILE_MASK = 017;

int moved_above(int fd)
{
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, LAST_PLACEHOLDER + 1);
    if (moved >= 0) close(fd);
    return moved;
}

static bool is_open(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

/* 0 to 2 without close-on-exec: a child expects them. */
static void take_number(int null, int number)
{
    const int got = fcntl(null, number <= 2 ? F_DUPFD : F_DUPFD_CLOEXEC, number);
    if (got >= 0 && got != number) close(got);
}

Result<Placeholders> Placeholders::take()
{
    umask(LIST_FILE_MASK);
    signal(SIGPIPE, SIG_IGN);
    Fd low(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!low) return system_error("/dev/null");
    Placeholders placeholders;
    placeholders.null_.reset(fcntl(low.get(), F_DUPFD_CLOEXEC, LAST_PLACEHOLDER + 1));
    if (!placeholders.null_) return system_error("descriptor placeholders");
    low.reset();
    placeholders.restore();
    for (int number = 0; number <= LAST_PLACEHOLDER; ++number)
        if (!is_open(number)) return system_error("descriptor placeholders");
    return placeholders;
}

void Placeholders::restore() const
{
    const int saved = errno;
    for (int number = 0; number <= LAST_PLACEHOLDER; ++number)
        if (!is_open(number)) take_number(null_.get(), number);
    errno = saved;
}
