#include "host/mlistd/smtp/connection.h"

#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <memory>
#include <utility>

using Clock = std::chrono::steady_clock;

/* Replies that pile up unread; a row of commands as long as ours never earns as much. */
static constexpr size_t MOST_UNREAD = 4 * 1024 * 1024;

/* How long a message's last answer is waited for once the daemon wants to end. */
static constexpr std::chrono::seconds PATIENCE(5);

SmtpInterrupt::SmtpInterrupt() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void SmtpInterrupt::ring()
{
    rung_ = true;
    (void)eventfd_write(event_.get(), 1); /* can only fail when it was rung before */
}

SmtpConnection::SmtpConnection(Fd socket, const SmtpInterrupt &interrupt)
    : socket_(std::move(socket)), interrupt_(&interrupt)
{
}

static int milliseconds_until(SmtpDeadline deadline)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left + 1, 0, 3600'000));
}

/* Polls the socket and the interrupt; the socket's events. */
static Result<short> wait_for(int fd, const SmtpInterrupt &interrupt, short events,
                              SmtpDeadline deadline, bool patient)
{
    bool hurried = false;
    for (;;) {
        if (interrupt.rung() && !patient) return Error{"interrupted", ECANCELED};
        if (interrupt.rung() && !hurried) {
            hurried = true;
            deadline = std::min(deadline, Clock::now() + PATIENCE);
        }
        struct pollfd polled[2] = {{fd, events, 0}, {hurried ? -1 : interrupt.fd(), POLLIN, 0}};
        const int ready = poll(polled, 2, milliseconds_until(deadline));
        if (ready < 0 && errno != EINTR) return system_error("waiting for the server");
        if (ready > 0 && polled[0].revents != 0) return polled[0].revents;
        if (Clock::now() >= deadline) return Error{"the server took too long", ETIMEDOUT};
    }
}

Result<short> SmtpConnection::wait(short events, SmtpDeadline deadline, bool patient) const
{
    return wait_for(socket_.get(), *interrupt_, events, deadline, patient);
}

/* ---- connecting ---- */

static Result<Fd> connect_to(const struct sockaddr *address, socklen_t size,
                             const std::string &name, SmtpDeadline deadline,
                             const SmtpInterrupt &interrupt)
{
    Fd socket(::socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) return system_error(name);
    if (connect(socket.get(), address, size) < 0) {
        if (errno != EINPROGRESS) return system_error(name);
        const auto ready = wait_for(socket.get(), interrupt, POLLOUT, deadline, false);
        if (!ready) return Error{name + ": " + ready.error().text, ready.error().code};
        int failure = 0;
        socklen_t length = sizeof(failure);
        if (getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &failure, &length) < 0 || failure != 0) {
            if (failure != 0) errno = failure;
            return system_error(name);
        }
    }
    const int on = 1; /* refused on a unix socket, which has no such delay */
    (void)setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
    return socket;
}

static Result<Fd> connect_to_path(const std::string &path, SmtpDeadline deadline,
                                  const SmtpInterrupt &interrupt)
{
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return Error{path + ": too long", ENAMETOOLONG};
    memcpy(address.sun_path, path.c_str(), path.size());
    return connect_to(reinterpret_cast<const struct sockaddr *>(&address), sizeof(address), path,
                      deadline, interrupt);
}

static Result<Fd> connect_to_host(const Endpoint &endpoint, SmtpDeadline deadline,
                                  const SmtpInterrupt &interrupt)
{
    const std::string name = endpoint.host + ":" + endpoint.port;
    struct addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    struct addrinfo *found = nullptr;
    const int failure = getaddrinfo(endpoint.host.c_str(), endpoint.port.c_str(), &hints, &found);
    if (failure != 0) return Error{name + ": " + gai_strerror(failure), EHOSTUNREACH};
    const std::unique_ptr<struct addrinfo, void (*)(struct addrinfo *)> owner(found, freeaddrinfo);
    Error last{name + ": no address", EHOSTUNREACH};
    for (const struct addrinfo *one = found; one != nullptr; one = one->ai_next) {
        auto socket = connect_to(one->ai_addr, one->ai_addrlen, name, deadline, interrupt);
        if (socket) return socket;
        last = socket.error();
    }
    return last;
}

Result<SmtpConnection> SmtpConnection::open(const Endpoint &endpoint, SmtpDeadline deadline,
                                            const SmtpInterrupt &interrupt)
{
    auto socket = endpoint.path.empty() ? connect_to_host(endpoint, deadline, interrupt)
                                        : connect_to_path(endpoint.path, deadline, interrupt);
    if (!socket) return socket.error();
    return SmtpConnection(std::move(*socket), interrupt);
}

/* ---- talking ---- */

Result<void> SmtpConnection::receive()
{
    char piece[16 * 1024];
    const ssize_t n = recv(socket_.get(), piece, sizeof(piece), 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return {};
    if (n < 0) return system_error("reading from the server");
    if (n == 0) return Error{"the server closed the connection", ECONNRESET};
    in_.append(piece, static_cast<size_t>(n));
    if (in_.size() - taken_ > MOST_UNREAD) return Error{"the server talks without end", EPROTO};
    return {};
}

Result<void> SmtpConnection::send(std::string_view data, SmtpDeadline deadline)
{
    while (!data.empty()) {
        const ssize_t n = ::send(socket_.get(), data.data(), data.size(), MSG_NOSIGNAL);
        if (n > 0) {
            data.remove_prefix(static_cast<size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN) return system_error("writing to the server");
        const auto events = wait(POLLIN | POLLOUT, deadline, false);
        if (!events) return events.error();
        if ((*events & POLLIN) == 0) continue;
        if (auto result = receive(); !result) return result;
    }
    return {};
}

/* The next line without its line end; it stays valid until the next call. */
Result<std::string_view> SmtpConnection::take_line(SmtpDeadline deadline, bool patient)
{
    if (taken_ == in_.size() || taken_ > MOST_UNREAD / 2) {
        in_.erase(0, taken_);
        scanned_ -= taken_;
        taken_ = 0;
    }
    for (;;) {
        const size_t end = in_.find('\n', scanned_);
        if (end != in_.npos) {
            std::string_view line(in_.data() + taken_, end - taken_);
            taken_ = scanned_ = end + 1;
            if (line.size() > LONGEST_REPLY_LINE) break;
            if (line.ends_with('\r')) line.remove_suffix(1);
            return line;
        }
        scanned_ = in_.size();
        if (scanned_ - taken_ > LONGEST_REPLY_LINE) break;
        if (const auto events = wait(POLLIN, deadline, patient); !events) return events.error();
        if (auto result = receive(); !result) return result.error();
    }
    return Error{"the server sent a line without end", EPROTO};
}

Result<SmtpReply> SmtpConnection::read_reply(SmtpDeadline deadline, bool patient)
{
    ReplyReader reader;
    for (;;) {
        const auto line = take_line(deadline, patient);
        if (!line) return line.error();
        const auto state = reader.add_line(*line);
        if (state == ReplyReader::State::complete) return std::move(reader.reply());
        if (state == ReplyReader::State::garbage)
            return Error{"the server sent something that is no reply", EPROTO};
    }
}

bool SmtpConnection::stale() const
{
    struct pollfd polled = {socket_.get(), POLLIN, 0};
    return taken_ < in_.size() || poll(&polled, 1, 0) != 0;
}
