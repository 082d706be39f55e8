#include "host/mlistctl/lmtp_client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "host/base/text.h"
#include "host/mlistctl/failure.h"

/* The daemon answers within its own waits (a busy list's is some minutes); this only ends a wait
   for a process that has stopped. */
constexpr time_t answer_seconds = 900;
constexpr size_t max_reply_line = 8192;

static Fd connect_unix(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd && connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        fd.reset();
    return fd;
}

static Fd connect_tcp(const Endpoint &endpoint)
{
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(endpoint.host.c_str(), endpoint.port.c_str(), &hints, &found) != 0) {
        errno = EADDRNOTAVAIL;
        return Fd();
    }
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
    Fd fd;
    for (const addrinfo *at = found; at && !fd; at = at->ai_next) {
        fd.reset(socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC, at->ai_protocol));
        if (fd && connect(fd.get(), at->ai_addr, at->ai_addrlen) != 0) fd.reset();
    }
    return fd;
}

LmtpClient::LmtpClient(const Endpoint &endpoint)
    : name_(endpoint.path.empty() ? endpoint.host + ":" + endpoint.port : endpoint.path),
      socket_(endpoint.path.empty() ? connect_tcp(endpoint) : connect_unix(endpoint.path))
{
    if (!socket_) lost("mlistd does not answer on " + name_ + ": " + strerror(errno));
    timeval limit{answer_seconds, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

void LmtpClient::lost(const std::string &what) const
{
    throw Failure{CTL_LATER, what, "see that mlistd runs and that lmtp.listen names this address"};
}

void LmtpClient::send(std::string_view data)
{
    while (!data.empty()) {
        ssize_t sent = ::send(socket_.get(), data.data(), data.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) lost(errno_text("mlistd on " + name_ + " went away"));
        data.remove_prefix(static_cast<size_t>(sent));
    }
}

void LmtpClient::quit() const
{
    static constexpr std::string_view word = "QUIT\r\n";
    (void)!::send(socket_.get(), word.data(), word.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::string LmtpClient::read_line()
{
    for (;;) {
        size_t end = received_.find('\n');
        if (end != std::string::npos) {
            std::string line = received_.substr(0, end);
            received_.erase(0, end + 1);
            return line;
        }
        if (received_.size() > max_reply_line) lost("mlistd on " + name_ + " sends no reply lines");
        char buffer[4096];
        ssize_t size = recv(socket_.get(), buffer, sizeof(buffer), 0);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) lost(errno_text("mlistd on " + name_ + " does not answer"));
        if (size == 0) lost("mlistd on " + name_ + " closed the connection");
        received_.append(buffer, static_cast<size_t>(size));
    }
}

LmtpReply LmtpClient::read_reply()
{
    for (;;) {
        std::string line = read_line();
        auto code = parse_number(std::string_view(line).substr(0, 3));
        if (line.size() < 3 || !code) lost("mlistd on " + name_ + " sends no LMTP replies");
        if (line.size() > 3 && line[3] == '-') continue;
        return {static_cast<int>(*code),
                one_line(std::string_view(line).substr(std::min<size_t>(4, line.size())))};
    }
}

LmtpReply LmtpClient::command(std::string_view line)
{
    send(std::string(line) + "\r\n");
    return read_reply();
}

void DataEncoder::encode(std::string_view piece, std::string &out)
{
    while (!piece.empty()) {
        size_t end = std::min(piece.find_first_of("\r\n"), piece.size());
        if (end > 0 && line_start_ && piece.front() == '.') out += '.';
        out.append(piece.substr(0, end));
        if (end > 0) line_start_ = false;
        if (end == piece.size()) return;
        if (piece[end] == '\n') {
            out += "\r\n";
            line_start_ = true;
        }
        piece.remove_prefix(end + 1);
    }
}

void DataEncoder::finish(std::string &out) const
{
    out += line_start_ ? ".\r\n" : "\r\n.\r\n";
}
