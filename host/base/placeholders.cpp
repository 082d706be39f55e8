#include "host/base/placeholders.h"

#include <array>
#include <fcntl.h>
#include <poll.h>

int moved_above(int fd)
{
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, LAST_PLACEHOLDER + 1);
    if (moved >= 0) close(fd);
    return moved;
}

using Numbers = std::array<pollfd, LAST_PLACEHOLDER + 1>;

/* One call for all of them, since it is made with every delivery: a number that is closed is told
   as POLLNVAL.  When the call fails each of them is taken for closed, which is harmless. */
static Numbers look_at_all()
{
    Numbers numbers{};
    for (int number = 0; number <= LAST_PLACEHOLDER; ++number)
        numbers[static_cast<size_t>(number)].fd = number;
    if (poll(numbers.data(), numbers.size(), 0) < 0)
        for (pollfd &number : numbers)
            number.revents = POLLNVAL;
    return numbers;
}

static bool is_closed(const pollfd &number)
{
    return (number.revents & POLLNVAL) != 0;
}

/* Leaves a number that is open as it is.  0 to 2 without close-on-exec: a child expects them. */
static void take_number(int null, int number)
{
    const int got = fcntl(null, number <= 2 ? F_DUPFD : F_DUPFD_CLOEXEC, number);
    if (got >= 0 && got != number) close(got);
}

Result<Placeholders> Placeholders::take()
{
    Fd low(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!low) return system_error("/dev/null");
    Placeholders placeholders;
    placeholders.null_.reset(fcntl(low.get(), F_DUPFD_CLOEXEC, LAST_PLACEHOLDER + 1));
    if (!placeholders.null_) return system_error("descriptor placeholders");
    low.reset();
    placeholders.restore();
    for (const pollfd &number : look_at_all())
        if (is_closed(number)) return system_error("descriptor placeholders");
    return placeholders;
}

void Placeholders::restore() const
{
    const int saved = errno;
    for (const pollfd &number : look_at_all())
        if (is_closed(number)) take_number(null_.get(), number.fd);
    errno = saved;
}
