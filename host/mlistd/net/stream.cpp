#include "host/mlistd/net/stream.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>

static constexpr size_t READ_SIZE = 64 * 1024;

int64_t steady_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void Stream::consume(size_t size)
{
    begin_ += size;
    if (begin_ == buffer_.size()) {
        buffer_.clear();
        begin_ = 0;
    }
}

Stream::Got Stream::wait_for(short events, int64_t deadline, bool stoppable) const
{
    for (;;) {
        const int64_t left = deadline - steady_ms();
        pollfd waits[2] = {{socket_, events, 0}, {stop_fd_, POLLIN, 0}};
        const nfds_t count = stoppable && stop_fd_ >= 0 ? 2 : 1;
        const int ready =
            poll(waits, count, static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX)));
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return Got::failed;
        if (waits[0].revents != 0) return Got::data;
        if (ready > 0) return Got::stopped;
        if (left <= 0) return Got::timeout;
    }
}

Stream::Got Stream::fill(int64_t deadline, bool stoppable)
{
    if (begin_ > 0) {
        buffer_.erase(0, begin_);
        begin_ = 0;
    }
    for (;;) {
        const Got ready = wait_for(POLLIN, deadline, stoppable);
        if (ready != Got::data) return ready;
        const size_t old = buffer_.size();
        buffer_.resize(old + READ_SIZE);
        const ssize_t got = recv(socket_, buffer_.data() + old, READ_SIZE, MSG_DONTWAIT);
        const int failure = errno;
        buffer_.resize(old + static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (got > 0) return Got::data;
        if (got == 0) return Got::end;
        if (failure != EINTR && failure != EAGAIN) return Got::failed;
    }
}

Stream::Got Stream::read_line(std::string &line, size_t limit, int64_t deadline)
{
    size_t searched = 0;
    bool too_long = false;
    for (;;) {
        const std::string_view text = buffered();
        const size_t end = text.find('\n', searched);
        if (end != std::string_view::npos) {
            const bool cr = end > 0 && text[end - 1] == '\r';
            too_long = too_long || end > limit;
            if (!too_long) line = text.substr(0, end - (cr ? 1 : 0));
            consume(end + 1);
            return too_long ? Got::too_long : Got::data;
        }
        if (text.size() > limit) {
            too_long = true;
            consume(text.size());
        }
        searched = buffered().size();
        const Got got = fill(deadline, !too_long);
        if (got != Got::data) return got;
    }
}

bool Stream::write_all(std::string_view text, int64_t deadline)
{
    while (!text.empty()) {
        const ssize_t sent = send(socket_, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            text.remove_prefix(static_cast<size_t>(sent));
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN || wait_for(POLLOUT, deadline, false) != Got::data) return false;
    }
    return true;
}
