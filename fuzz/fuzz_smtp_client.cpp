/* Any bytes as all that a relay ever says, to whatever it is told: each recipient gets an answer,
   none is taken for served unless the relay asked for the message and accepted it, none is given up
   unless it refused, and what we say is lines of SMTP.  The first byte chooses message and
   recipients. */
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "fuzz/demand.h"
#include "fuzz/memory_directory.h"
#include "host/base/fd.h"
#include "host/mlistd/smtp/client.h"

using namespace std::chrono_literals;

/* Says the same on every connection, says no more, and listens until the client leaves: one client
   after the other. */
class Relay
{
  public:
    Relay() : path_(memory_directory() + "/fuzz-relay-" + std::to_string(getpid()))
    {
        address_.sun_family = AF_UNIX;
        demand(path_.size() < sizeof(address_.sun_path));
        memcpy(address_.sun_path, path_.c_str(), path_.size());
        (void)unlink(path_.c_str());
        listener_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        demand(bind(listener_.get(), name(), sizeof(address_)) == 0);
        demand(listen(listener_.get(), 8) == 0);
        thread_ = std::thread([this] { serve(); });
    }
    ~Relay()
    {
        shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
        (void)unlink(path_.c_str());
    }

    const std::string &path() const { return path_; }

    /* While nobody is connected. */
    void set_script(std::string_view script)
    {
        script_ = script;
        heard_.clear();
    }

    /* What the clients said who have left: all, when a connection behind theirs is served. */
    const std::string &heard()
    {
        const Fd own(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        demand(connect(own.get(), name(), sizeof(address_)) == 0);
        shutdown(own.get(), SHUT_WR);
        char piece[4096];
        while (recv(own.get(), piece, sizeof(piece), 0) > 0)
            continue;
        return heard_;
    }

  private:
    const struct sockaddr *name() const
    {
        return reinterpret_cast<const struct sockaddr *>(&address_);
    }

    void serve()
    {
        for (;;) {
            const Fd client(accept(listener_.get(), nullptr, nullptr));
            if (!client) return;
            (void)send(client.get(), script_.data(), script_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            shutdown(client.get(), SHUT_WR);
            char piece[4096];
            for (ssize_t n; (n = recv(client.get(), piece, sizeof(piece), 0)) > 0;)
                heard_.append(piece, static_cast<size_t>(n));
        }
    }

    const std::string path_;
    struct sockaddr_un address_ = {};
    Fd listener_;
    std::string script_, heard_;
    std::thread thread_;
};

static SmtpSettings settings_for(const Relay &relay)
{
    SmtpSettings settings;
    settings.server.path = relay.path();
    settings.hostname = "me.example.jp";
    settings.connect_timeout = settings.command_timeout = 5s;
    settings.data_timeout = settings.end_timeout = 5s;
    return settings;
}

static const char *const messages[] = {
    "Subject: x\r\n\r\n.dot\r\n..\r\nend\r\n",
    "Subject: \xc3\xa9\r\n\r\nwithout an end",
    "",
    "no header\r\n",
};

/* Whether some line of the script, the last may have no end, has such a code. */
static bool says(std::string_view script, std::string_view beginning)
{
    for (size_t at = 0; at < script.size();) {
        if (script.substr(at).starts_with(beginning)) return true;
        const size_t end = script.find('\n', at);
        at = end == script.npos ? script.size() : end + 1;
    }
    return false;
}

/* The client gives up by itself what is larger than the relay takes, and an address that only some
   relays take: then it says so. */
static bool gave_up_itself(const Answer &answer)
{
    return answer.text.starts_with("552 5.3.4 ") || answer.text.starts_with("553 5.6.7 ");
}

static void check_answers(const std::vector<Answer> &answers, std::string_view script)
{
    for (const Answer &answer : answers) {
        if (answer.kind == Answer::Kind::done) demand(says(script, "3") && says(script, "2"));
        if (answer.kind == Answer::Kind::never) demand(says(script, "5") || gave_up_itself(answer));
        if (answer.kind != Answer::Kind::done) demand(!answer.text.empty());
        for (const char c : answer.text)
            demand(c >= ' ' && c <= '~');
    }
}

/* Commands and messages are made of whole lines; a session begins with its greeting. */
static void check_heard(const std::string &heard)
{
    demand(heard.empty() || heard.starts_with("EHLO me.example.jp\r\n"));
    for (size_t i = 0; i < heard.size(); ++i) {
        if (heard[i] == '\n') demand(i > 0 && heard[i - 1] == '\r');
        if (heard[i] == '\r') demand(i + 1 == heard.size() || heard[i + 1] == '\n');
    }
}

static int message_file(std::string_view text)
{
    static const int fd = memfd_create("message", MFD_CLOEXEC);
    demand(ftruncate(fd, 0) == 0);
    demand(pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return fd;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Relay relay;
    if (size < 1 || size > 20000) return 0;
    const std::string_view script(reinterpret_cast<const char *>(data) + 1, size - 1);
    relay.set_script(script);

    const std::string_view text = messages[data[0] % 4];
    const OutboundMessage message = {"1j0q157pgpi001",
                                     "List-Id: <l.x>\r\n",
                                     message_file(text),
                                     0,
                                     static_cast<off_t>(text.size()),
                                     0};
    static const std::string_view everybody[] = {"a@x", "b@y.example", "\xc3\xa9@x", "d@x"};
    const std::span<const std::string_view> recipients(everybody, 1 + data[0] / 4 % 4);
    std::vector<Answer> answers(recipients.size());
    {
        SmtpTransport transport(settings_for(relay));
        (void)transport.deliver(message, "owner-mylist@example.jp", recipients, answers);
    }
    check_answers(answers, script);
    check_heard(relay.heard());
    return 0;
}
