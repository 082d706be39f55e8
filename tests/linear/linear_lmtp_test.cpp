/* The LMTP server: a client that never stops sending commands, and mail data of every shape. */
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "host/base/fd.h"
#include "host/mlistd/lmtp/session.h"
#include "tests/linear/linear.h"
#include "tests/support/temp_list.h"

namespace
{
class Taker : public LmtpHandler
{
  public:
    Reply check_recipient(const ListAddress &, const std::string &) override
    {
        return {250, "2.1.5", "recipient ok"};
    }
    Reply deliver(const ListAddress &, const IncomingMail &mail) override
    {
        received += mail.size;
        return {250, "2.0.0", "accepted"};
    }
    int64_t received = 0;
};

class LinearLmtp : public ::testing::Test
{
  protected:
    LinearLmtp()
    {
        config_.hostname = "h";
        config_.in_directory = list_.root();
        config_.message_size = INT64_MAX;
    }

    /* The server is this thread, and what it does is counted; the client has two of its own. */
    void serve(std::string_view text)
    {
        int ends[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        const Fd client(ends[0]);
        std::thread says([&] {
            for (ssize_t sent; !text.empty(); text.remove_prefix(static_cast<size_t>(sent)))
                if ((sent = send(client.get(), text.data(), text.size(), MSG_NOSIGNAL)) <= 0)
                    return;
            shutdown(client.get(), SHUT_WR);
        });
        std::thread hears([&] {
            char block[64 * KIB];
            while (recv(client.get(), block, sizeof(block), 0) > 0)
                ;
        });
        {
            const Fd server(ends[1]);
            LmtpSession(Stream(server.get(), -1), config_, taker_, "linear").run();
        }
        says.join();
        hears.join();
    }

    TempList list_;
    LmtpConfig config_;
    Taker taker_;
};
} // namespace

TEST_F(LinearLmtp, Commands)
{
    demand_linear({{"NOOP", repeated("NOOP\r\n")},
                   {"transactions given up", repeated("LHLO c\r\nMAIL FROM:<a@b>\r\nRSET\r\n")},
                   {"many recipients",
                    repeated("LHLO c\r\nMAIL FROM:<a@b>\r\n", "RCPT TO:<l@d>\r\n", "QUIT\r\n"),
                    "those beyond the hundredth are mistakes"},
                   {"blanks", repeated("NOOP ", " ", "\r\n")},
                   {"one line", repeated("x")},
                   {"empty lines", repeated("\r\n"), "twenty mistakes end it"},
                   {"zeros", repeated(std::string(1, '\0'))}},
                  [&](std::string &text) { serve(text); });
}

TEST_F(LinearLmtp, MailData)
{
    const std::string head = "LHLO c\r\nMAIL FROM:<a@b>\r\nRCPT TO:<l@d>\r\nDATA\r\n";
    const std::string tail = "\r\n.\r\nQUIT\r\n";
    const auto data = [&](const std::string &piece, const std::string &before = "") {
        return repeated(head + before, piece, tail);
    };
    demand_linear({{"header lines", data("Subject: s\r\n")},
                   {"From lines", data("From: a@b\r\n")},
                   {"a folded From", data(" a\r\n", "From: a@b\r\n")},
                   {"a long From", data("a", "From: ")},
                   {"return paths", data("Return-Path: <a@b>\r\n")},
                   {"automatic mail", data("Auto-Submitted: no\r\n")},
                   {"a header without a colon", data("x")},
                   {"body lines", data("x\r\n", "\r\n")},
                   {"one body line", data("x", "\r\n")},
                   {"dots", data("..\r\n", "\r\n")},
                   {"dots in no line of their own", data(".\n", "\r\n")},
                   {"line feeds", data("\n")},
                   {"carriage returns", data("\r", "\r\n")},
                   {"carriage returns in the header", data("\r", "x: ")},
                   {"zeros", data(std::string(1, '\0'))}},
                  [&](std::string &text) { serve(text); });
    EXPECT_GT(taker_.received, int64_t{64} * int64_t{MIB});
}
