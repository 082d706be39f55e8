#include "bench/smtp_sink.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "bench/machine.h"

namespace
{
/* What the client sends, line by line; replies leave together when it waits for them. */
class Talk
{
  public:
    explicit Talk(int socket) : socket_(socket) {}

    bool next(std::string_view &line_out)
    {
        size_t end;
        while ((end = input_.find("\r\n", at_)) == input_.npos)
            if (!receive()) return false;
        line_out = std::string_view(input_).substr(at_, end - at_);
        at_ = end + 2;
        return true;
    }
    void say(const char *reply) { replies_ += reply; }

  private:
    bool receive()
    {
        if (!replies_.empty() && send(socket_, replies_.data(), replies_.size(), MSG_NOSIGNAL) < 0)
            return false;
        replies_.clear();
        input_.erase(0, at_);
        at_ = 0;
        char piece[65536];
        const ssize_t n = recv(socket_, piece, sizeof(piece), 0);
        if (n > 0) input_.append(piece, static_cast<size_t>(n));
        return n > 0;
    }

    int socket_;
    std::string input_, replies_;
    size_t at_ = 0;
};

bool starts_with_verb(std::string_view line, const char *verb)
{
    return line.size() >= strlen(verb) && strncasecmp(line.data(), verb, strlen(verb)) == 0;
}
} // namespace

SmtpSink::SmtpSink() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto *const any = reinterpret_cast<sockaddr *>(&address);
    if (bind(listener_, any, size) != 0 || listen(listener_, 1024) != 0 ||
        getsockname(listener_, any, &size) != 0)
        abort();
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { accept_clients(); });
}

SmtpSink::~SmtpSink()
{
    end_ = true;
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
    while (clients_ > 0) /* theirs to hang up: they have ended */
        usleep(1000);
}

void SmtpSink::accept_clients()
{
    while (!end_) {
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        clients_++;
        std::thread([this, client] {
            serve(client);
            close(client);
            clients_--;
        }).detach();
    }
}

void SmtpSink::serve(int client)
{
    Talk talk(client);
    talk.say("220 sink ESMTP\r\n");
    std::string_view line;
    uint64_t recipients = 0;
    while (talk.next(line)) {
        if (starts_with_verb(line, "EHLO"))
            talk.say("250-sink\r\n250-PIPELINING\r\n250 8BITMIME\r\n");
        else if (starts_with_verb(line, "RCPT")) {
            recipients++;
            talk.say("250 ok\r\n");
        } else if (starts_with_verb(line, "DATA")) {
            talk.say("354 go on\r\n");
            do {
                if (!talk.next(line)) return;
            } while (line != ".");
            talk.say("250 taken\r\n");
            mails_++;
            copies_ += recipients;
            recipients = 0;
        } else if (starts_with_verb(line, "QUIT")) {
            talk.say("221 bye\r\n");
            (void)talk.next(line);
            return;
        } else
            talk.say("250 ok\r\n");
    }
}

bool SmtpSink::wait_for(uint64_t copies) const
{
    constexpr double PATIENCE = 60;
    uint64_t last = copies_;
    for (double since = seconds_now(); copies_ < copies;) {
        usleep(500);
        if (copies_ == last && seconds_now() - since > PATIENCE) return false;
        if (copies_ != last) since = seconds_now();
        last = copies_;
    }
    return true;
}
