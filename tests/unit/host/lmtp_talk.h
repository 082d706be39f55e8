/* A client that talks LMTP with a session over a socket pair; deliveries are recorded. */
#ifndef TESTS_UNIT_HOST_LMTP_TALK_H
#define TESTS_UNIT_HOST_LMTP_TALK_H

#include <gtest/gtest.h>

#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "host/mlistd/lmtp/session.h"
#include "mlog.h"
#include "tests/unit/host/scratch.h"

/* Takes mail for every list but those whose name says otherwise. */
class RecordingHandler : public LmtpHandler
{
  public:
    struct Delivery {
        std::string list;
        std::string sender;
        std::string text;
    };
    std::vector<Delivery> deliveries;

    Reply check_recipient(const ListAddress &recipient, const std::string &) override
    {
        if (recipient.list == "unknown") return {550, "5.1.1", "no such list"};
        return {250, "2.1.5", "recipient ok"};
    }

    Reply deliver(const ListAddress &recipient, const IncomingMail &mail) override
    {
        if (recipient.list == "throws") throw std::runtime_error("out of everything");
        if (recipient.list == "refused") return {550, "5.3.0", "510 loop"};
        if (recipient.list == "later") return {451, "4.3.0", "480 disk full"};
        deliveries.push_back({recipient.name(), mail.sender, read_file(mail.file)});
        return {250, "2.0.0", "accepted"};
    }
};

/* A running session and its client's end. */
class Talk
{
  public:
    explicit Talk(LmtpConfig config = {}) : config_(std::move(config))
    {
        mlog_set_target("none");
        if (config_.hostname.empty()) config_.hostname = "lists.example.jp";
        config_.control_suffixes = {"-ctl"};
        config_.in_directory = scratch_.path();
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        client_.reset(ends[0]);
        server_.reset(ends[1]);
        stop_.reset(eventfd(0, EFD_CLOEXEC));
        thread_ = std::thread([this] {
            LmtpSession(Stream(server_.get(), stop_.get()), config_, handler, "test").run();
            server_.reset();
        });
        EXPECT_EQ(line(), "220 lists.example.jp LMTP ready");
    }
    ~Talk() { hang_up(); }

    void send(std::string_view text)
    {
        while (!text.empty()) {
            const ssize_t sent = ::send(client_.get(), text.data(), text.size(), MSG_NOSIGNAL);
            if (sent < 0) return;
            text.remove_prefix(static_cast<size_t>(sent));
        }
    }

    /* One line of an answer; "closed" when the server has gone, "silence" after ten seconds. */
    std::string line()
    {
        for (;;) {
            const size_t end = received_.find("\r\n");
            if (end != std::string::npos) {
                std::string one = received_.substr(0, end);
                received_.erase(0, end + 2);
                return one;
            }
            pollfd wait{client_.get(), POLLIN, 0};
            if (poll(&wait, 1, 10'000) <= 0) return "silence";
            char block[4096];
            const ssize_t got = recv(client_.get(), block, sizeof(block), 0);
            if (got <= 0) return "closed";
            received_.append(block, static_cast<size_t>(got));
        }
    }

    /* The last line of the answer to one command. */
    std::string say(const std::string &command)
    {
        send(command + "\r\n");
        for (;;) {
            std::string one = line();
            if (one.size() < 4 || one[3] != '-') return one;
        }
    }

    void hello() { EXPECT_EQ(say("LHLO client").substr(0, 3), "250"); }

    void begin(const std::vector<std::string> &lists)
    {
        hello();
        EXPECT_EQ(say("MAIL FROM:<a@b>"), "250 2.1.0 sender ok");
        for (const std::string &list : lists)
            EXPECT_EQ(say("RCPT TO:<" + list + "@example.jp>"), "250 2.1.5 recipient ok");
        EXPECT_EQ(say("DATA").substr(0, 3), "354");
    }

    void hang_up()
    {
        client_.reset();
        wait();
    }

    void wait()
    {
        if (thread_.joinable()) thread_.join();
    }

    void stop() { eventfd_write(stop_.get(), 1); }
    std::vector<std::string> files() const { return names_in(scratch_.path()); }

    RecordingHandler handler;

  private:
    Scratch scratch_;
    LmtpConfig config_;
    Fd client_;
    Fd server_;
    Fd stop_;
    std::thread thread_;
    std::string received_;
};

#endif
