#include "tests/unit/host/smtp_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

struct SmtpServer::Talk {
    int socket;
    int wake;
    std::string in = {};
    int recipients = 0, messages = 0;

    /* False at the end of the talk, or of the test. */
    bool receive()
    {
        struct pollfd polled[2] = {{socket, POLLIN, 0}, {wake, POLLIN, 0}};
        if (poll(polled, 2, -1) < 0 || polled[1].revents != 0) return false;
        char piece[65536];
        const ssize_t n = recv(socket, piece, sizeof(piece), 0);
        if (n > 0) in.append(piece, static_cast<size_t>(n));
        return n > 0;
    }
    bool line(std::string &line_out)
    {
        for (;;) {
            const size_t end = in.find("\r\n");
            if (end != in.npos) {
                line_out = in.substr(0, end);
                in.erase(0, end + 2);
                return true;
            }
            if (!receive()) return false;
        }
    }
    bool say(const std::string &text) const
    {
        return send(socket, text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }
};

SmtpServer::SmtpServer(SmtpScript script) : script_(std::move(script))
{
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (bind(listener_, reinterpret_cast<struct sockaddr *>(&address), size) < 0 ||
        listen(listener_, 16) < 0 || pipe(wake_) < 0 ||
        getsockname(listener_, reinterpret_cast<struct sockaddr *>(&address), &size) < 0)
        abort();
    port_ = std::to_string(ntohs(address.sin_port));
    server_ = std::thread([this] { serve(); });
}

SmtpServer::~SmtpServer()
{
    close(wake_[1]); /* readable for everyone */
    server_.join();
    for (std::thread &talk : talks_)
        talk.join();
    close(wake_[0]);
    close(listener_);
}

void SmtpServer::serve()
{
    for (;;) {
        struct pollfd polled[2] = {{listener_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (poll(polled, 2, -1) < 0 || polled[1].revents != 0) return;
        const int socket = accept(listener_, nullptr, nullptr);
        if (socket < 0) continue;
        connections_++;
        talks_.emplace_back([this, socket] {
            talk(socket);
            close(socket);
            closed_++;
        });
    }
}

void SmtpServer::wait_until_closed(int connections) const
{
    while (closed_ < connections)
        usleep(1000);
}

void SmtpServer::talk(int socket)
{
    Talk talk{socket, wake_[0]};
    while (script_.flood && talk.say("220-" + std::string(1000, 'x') + "\r\n")) {
    }
    if (script_.greeting == "wait") (void)talk.receive();
    if (script_.greeting.empty() || !talk.say(script_.greeting)) return;
    std::string line;
    while (talk.line(line)) {
        {
            const std::lock_guard lock(mutex_);
            commands_.push_back(line);
        }
        const int row = 1 + static_cast<int>(std::count(talk.in.begin(), talk.in.end(), '\n'));
        longest_row_ = std::max(longest_row_.load(), row);
        if (!answer(talk, line) || talk.messages >= script_.most_messages) return;
    }
}

bool SmtpServer::answer(Talk &talk, const std::string &line)
{
    const auto told = script_.answers.find(line);
    if (told != script_.answers.end()) {
        if (told->second == "wait") return talk.receive();
        return !told->second.empty() && talk.say(told->second);
    }
    if (line.starts_with("EHLO ")) return talk.say(script_.ehlo);
    if (line.starts_with("HELO ")) return talk.say(script_.helo);
    if (line.starts_with("MAIL ") || line == "RSET") talk.recipients = 0;
    if (line.starts_with("RCPT ") && ++talk.recipients > script_.most_recipients)
        return talk.say("452 4.5.3 too many recipients\r\n");
    if (line == "DATA") return talk.say("354 go on\r\n") && take_message(talk);
    if (line == "QUIT") return false;
    return talk.say("250 2.1.0 ok\r\n");
}

bool SmtpServer::take_message(Talk &talk)
{
    if (script_.close_after_data) {
        (void)talk.receive();
        return false;
    }
    std::string message, line;
    while (talk.line(line) && line != ".")
        message += line + "\r\n";
    if (line != ".") return false;
    const auto told = script_.answers.find(".");
    if (told != script_.answers.end() && told->second == "wait") return talk.receive();
    const std::string answer = told == script_.answers.end() ? "250 2.0.0 taken\r\n" : told->second;
    if (answer.starts_with("2")) {
        const std::lock_guard lock(mutex_);
        messages_.push_back(message);
    }
    talk.messages++;
    return !answer.empty() && talk.say(answer);
}

std::vector<std::string> SmtpServer::commands()
{
    const std::lock_guard lock(mutex_);
    return commands_;
}

std::vector<std::string> SmtpServer::messages()
{
    const std::lock_guard lock(mutex_);
    return messages_;
}
