/* The SMTP client against a server on 127.0.0.1 that follows a script. */
#include "host/mlistd/smtp/client.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "host/mlistd/smtp/reply.h"
#include "tests/unit/host/scratch.h"
#include "tests/unit/host/smtp_server.h"

namespace
{
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

const char NO_PIPELINING[] = "250-me\r\n250 8BITMIME\r\n";

class SmtpClient : public testing::Test
{
  protected:
    void connect_to(const SmtpServer &server) { connect_to_port(server.port()); }
    void connect_to_port(const std::string &port)
    {
        settings_.server = {"", "127.0.0.1", port};
        settings_.hostname = "lists.example.jp";
        client_ = std::make_unique<SmtpTransport>(settings_);
    }
    void hurry(std::chrono::milliseconds timeout)
    {
        settings_.connect_timeout = settings_.command_timeout = settings_.data_timeout =
            settings_.end_timeout = timeout;
    }

    /* "done", "later TEXT" or "never TEXT" for each. */
    Strings deliver(const Strings &recipients, const std::string &sender = "s@x")
    {
        const Fd file(open(scratch_.write("m", "##" + text_).c_str(), O_RDONLY | O_CLOEXEC));
        const std::vector<std::string_view> to(recipients.begin(), recipients.end());
        std::vector<Answer> answers(to.size(), Answer{Answer::Kind::done, "left over"});
        usable_ = client_->deliver({std::to_string(++serial_), prefix_, file.get(), 2,
                                    static_cast<off_t>(text_.size()), 0},
                                   sender, to, answers);
        Strings shown;
        for (const Answer &answer : answers)
            shown.push_back(std::string(std::array{"later ", "done",
                                                   "never "}[static_cast<size_t>(answer.kind)]) +
                            answer.text);
        return shown;
    }

    Scratch scratch_;
    SmtpSettings settings_;
    std::unique_ptr<SmtpTransport> client_;
    std::string text_ = "Subject: s\n\n.dot\r\nbare\n", prefix_ = "Date: d\r\n";
    bool usable_ = false;
    int serial_ = 0;
};

TEST_F(SmtpClient, OneTransactionTakesTheMessageToEveryone)
{
    SmtpServer server({});
    connect_to(server);
    EXPECT_EQ((Strings{"done", "done"}), deliver({"a@x", "b@x"}));
    EXPECT_TRUE(usable_);
    client_->idle();
    Strings commands = server.commands();
    std::erase(commands, "QUIT"); /* may or may not have arrived */
    EXPECT_EQ((Strings{"EHLO lists.example.jp", "MAIL FROM:<s@x> SIZE=32", "RCPT TO:<a@x>",
                       "RCPT TO:<b@x>", "DATA"}),
              commands);
    EXPECT_EQ(Strings{"Date: d\r\nSubject: s\r\n\r\n..dot\r\nbare\r\n"}, server.messages());
}

TEST_F(SmtpClient, CommandsGoInARowOnlyWhereTheServerOffersIt)
{
    {
        SmtpServer server({});
        connect_to(server);
        EXPECT_EQ(Strings(50, "done"), deliver(Strings(50, "a@x")));
        EXPECT_GT(server.longest_row(), 10);
        client_.reset();
    }
    SmtpScript script;
    script.ehlo = NO_PIPELINING;
    SmtpServer server(script);
    connect_to(server);
    EXPECT_EQ(Strings(50, "done"), deliver(Strings(50, "a@x")));
    EXPECT_EQ(1, server.longest_row());
    EXPECT_EQ(1u, server.messages().size());
    client_.reset();
}

TEST_F(SmtpClient, EachRecipientHasItsOwnAnswer)
{
    for (const char *ehlo : {"250-me\r\n250 pipelining\r\n", NO_PIPELINING}) {
        SmtpScript script;
        script.ehlo = ehlo;
        script.answers = {{"RCPT TO:<b@x>", "550-5.1.1 no\r\n550 5.1.1 such user\r\n"},
                          {"RCPT TO:<c@x>", "450 4.2.0 greylisted\r\n"},
                          {"RCPT TO:<d@x>", "251 will forward\r\n"}};
        SmtpServer server(script);
        connect_to(server);
        EXPECT_EQ((Strings{"done", "never 550 5.1.1 no 5.1.1 such user",
                           "later 450 4.2.0 greylisted", "done"}),
                  deliver({"a@x", "b@x", "c@x", "d@x"}))
            << ehlo;
        EXPECT_TRUE(usable_);
        EXPECT_EQ(1u, server.messages().size());
        client_.reset();
    }
}

TEST_F(SmtpClient, WhenNobodyIsAcceptedNothingIsSentAndTheConnectionLives)
{
    SmtpScript script;
    script.answers = {{"RCPT TO:<b@x>", "550 no\r\n"}};
    SmtpServer server(script);
    connect_to(server);
    EXPECT_EQ(Strings{"never 550 no"}, deliver({"b@x"}));
    EXPECT_EQ(Strings{"done"}, deliver({"a@x"}));
    EXPECT_EQ(1, server.connections());
    EXPECT_EQ("RSET", server.commands()[3]);
    EXPECT_EQ(1u, server.messages().size());
    client_.reset();
}

TEST_F(SmtpClient, TheAnswerToMailIsEverybodys)
{
    for (const char *ehlo : {"250-me\r\n250 PIPELINING\r\n", NO_PIPELINING}) {
        SmtpScript script;
        script.ehlo = ehlo;
        script.answers = {{"MAIL FROM:<bad@x>", "553 5.1.8 bad sender\r\n"},
                          {"MAIL FROM:<busy@x>", "451 not now\r\n"},
                          {"RCPT TO:<b@x>", "503 what?\r\n"}};
        SmtpServer server(script);
        connect_to(server);
        EXPECT_EQ(Strings(2, "never 553 5.1.8 bad sender"), deliver({"a@x", "b@x"}, "bad@x"));
        EXPECT_EQ(Strings(2, "later 451 not now"), deliver({"a@x", "b@x"}, "busy@x"));
        EXPECT_EQ(Strings{"done"}, deliver({"a@x"}));
        EXPECT_EQ(1, server.connections()) << ehlo;
        client_.reset();
    }
}

TEST_F(SmtpClient, TheAnswerToTheMessageIsThatOfTheAccepted)
{
    static const struct {
        const char *label, *command, *reply;
        Strings answers;
    } rows[] = {
        {"refused DATA", "DATA", "554 no valid\r\n", {"never 554 no valid", "later 450 grey"}},
        {"DATA not now", "DATA", "451 later\r\n", {"later 451 later", "later 450 grey"}},
        {"refused message", ".", "550 spam\r\n", {"never 550 spam", "later 450 grey"}},
        {"message not now", ".", "452 full\r\n", {"later 452 full", "later 450 grey"}},
        {"server leaves", ".", "", {"later the server closed the connection", "later 450 grey"}},
        {"server leaves politely", "DATA", "421 bye\r\n", {"later 421 bye", "later 450 grey"}},
        {"no reply at all",
         ".",
         "hello\r\n",
         {"later the server sent something that is no reply", "later 450 grey"}},
        {"354 again", ".", "354 more\r\n", {"later unexpected reply: 354 more", "later 450 grey"}},
        {"DATA taken at once",
         "DATA",
         "250 fine\r\n",
         {"later unexpected reply: 250 fine", "later 450 grey"}},
    };
    for (const auto &row : rows) {
        SmtpScript script;
        script.answers = {{"RCPT TO:<b@x>", "450 grey\r\n"}, {row.command, row.reply}};
        SmtpServer server(script);
        connect_to(server);
        EXPECT_EQ(row.answers, deliver({"a@x", "b@x"})) << row.label;
        EXPECT_TRUE(usable_) << row.label;
        EXPECT_EQ(1, server.connections()) << row.label << ": nothing is sent twice";
        client_.reset();
    }
}

TEST_F(SmtpClient, AServerThatGoesDuringTheMessageHasNotTakenIt)
{
    SmtpServer server({.ehlo = NO_PIPELINING, .close_after_data = true});
    connect_to(server);
    text_ = std::string(20'000'000, 'x');
    const Strings answers = deliver({"a@x"});
    EXPECT_TRUE(answers[0].starts_with("later ")) << answers[0];
    EXPECT_GT(answers[0].size(), 10u) << "it says why";
    EXPECT_TRUE(usable_);
    EXPECT_EQ(1, server.connections());
    client_.reset();
}

TEST_F(SmtpClient, MoreRecipientsThanTheServerTakesGoInFurtherTransactions)
{
    for (const char *ehlo : {"250-me\r\n250 PIPELINING\r\n", NO_PIPELINING}) {
        SmtpScript script;
        script.ehlo = ehlo;
        script.most_recipients = 10;
        SmtpServer server(script);
        connect_to(server);
        EXPECT_EQ(Strings(35, "done"), deliver(Strings(35, "a@x")));
        EXPECT_EQ(4u, server.messages().size());
        EXPECT_EQ(1, server.connections());
        client_.reset();
    }
}

TEST_F(SmtpClient, AServerThatTakesNobodyIsNotAskedForEver)
{
    SmtpScript script;
    script.most_recipients = 0;
    SmtpServer server(script);
    connect_to(server);
    EXPECT_EQ(Strings(3, "later 452 4.5.3 too many recipients"), deliver(Strings(3, "a@x")));
    client_.reset();
}

TEST_F(SmtpClient, ConnectionsAreUsedAgainAndReplacedWhenTheServerClosed)
{
    SmtpScript script;
    script.most_messages = 2;
    SmtpServer server(script);
    connect_to(server);
    for (int i = 0; i < 6; i++) {
        EXPECT_EQ(Strings{"done"}, deliver({"a@x"})) << i;
        if (i % 2 == 1) server.wait_until_closed(1 + i / 2);
    }
    EXPECT_EQ(3, server.connections());
    EXPECT_EQ(6u, server.messages().size());
    client_.reset();
}

TEST_F(SmtpClient, AConnectionIsGivenUpAfterItsNumberOfMessages)
{
    SmtpServer server({});
    settings_.messages_a_connection = 2;
    connect_to(server);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(Strings{"done"}, deliver({"a@x"}));
    EXPECT_EQ(2, server.connections());
    client_.reset();
}

TEST_F(SmtpClient, AShutWayOutIsReported)
{
    static const struct {
        const char *label;
        SmtpScript script;
        const char *answer;
    } rows[] = {
        {"greeting 554", {.greeting = "554 go away\r\n"}, "later connection refused: 554 go away"},
        {"greeting 421", {.greeting = "421 busy\r\n"}, "later connection refused: 421 busy"},
        {"closes at once", {.greeting = ""}, "later the server closed the connection"},
        {"another protocol",
         {.greeting = "* OK IMAP4\r\n"},
         "later the server sent something that is no reply"},
        {"no hello of any kind",
         {.ehlo = "502 no\r\n", .helo = "550 no\r\n"},
         "later HELO refused: 550 no"},
    };
    for (const auto &row : rows) {
        SmtpServer server(row.script);
        connect_to(server);
        EXPECT_EQ(Strings{row.answer}, deliver({"a@x"})) << row.label;
        EXPECT_FALSE(usable_) << row.label;
        client_.reset();
    }
    connect_to_port("1");
    EXPECT_EQ(Strings{"later 127.0.0.1:1: Connection refused"}, deliver({"a@x"}));
    EXPECT_FALSE(usable_);
}

TEST_F(SmtpClient, AnOldServerIsGreetedWithHelo)
{
    SmtpServer server({.ehlo = "500 what?\r\n"});
    connect_to(server);
    EXPECT_EQ(Strings{"done"}, deliver({"a@x"}));
    const Strings commands = server.commands();
    EXPECT_EQ((Strings{"EHLO lists.example.jp", "HELO lists.example.jp", "MAIL FROM:<s@x>"}),
              Strings(commands.begin(), commands.begin() + 3));
    client_.reset();
}

TEST_F(SmtpClient, ExtensionsAreUsedWhereOfferedAndNeeded)
{
    static const struct {
        const char *label, *ehlo, *text, *recipient, *mail;
    } rows[] = {
        {"none", "250 me\r\n", "\xe3\x81\x82\n", "a@x", "MAIL FROM:<s@x>"},
        {"8-bit mail", "250-me\r\n250 8bitmime\r\n", "\xe3\x81\x82\n", "a@x",
         "MAIL FROM:<s@x> BODY=8BITMIME"},
        {"7-bit mail", "250-me\r\n250 8BITMIME\r\n", "a\n", "a@x", "MAIL FROM:<s@x>"},
        {"size without a limit", "250-me\r\n250 SIZE\r\n", "abc\n", "a@x",
         "MAIL FROM:<s@x> SIZE=13"},
        {"an address beyond ASCII", "250-me\r\n250 SMTPUTF8\r\n", "a\n", "\xc3\xa4@x",
         "MAIL FROM:<s@x> SMTPUTF8"},
    };
    for (const auto &row : rows) {
        SmtpServer server({.ehlo = row.ehlo});
        connect_to(server);
        text_ = row.text;
        EXPECT_EQ(Strings{"done"}, deliver({row.recipient})) << row.label;
        EXPECT_EQ(row.mail, server.commands()[1]) << row.label;
        client_.reset();
    }
}

TEST_F(SmtpClient, WhatTheServerCannotTakeIsRefusedWithoutAskingIt)
{
    SmtpServer server({.ehlo = "250-me\r\n250 SIZE 100\r\n"});
    connect_to(server);
    EXPECT_EQ((Strings{"done", "never 553 5.6.7 the relay takes no address with characters "
                               "beyond ASCII"}),
              deliver({"a@x", "\xc3\xa4@x"}));
    text_ = std::string(100, 'x');
    EXPECT_EQ(Strings{"never 552 5.3.4 the message has 109 bytes, the relay takes 100"},
              deliver({"a@x"}));
    EXPECT_EQ(1u, server.messages().size());
    client_.reset();
}

TEST_F(SmtpClient, ASlowServerMeetsADeadlineAtEveryStep)
{
    static const struct {
        const char *label;
        SmtpScript script;
        bool usable;
    } rows[] = {
        {"greeting", {.greeting = "wait"}, false},
        {"hello", {.answers = {{"EHLO lists.example.jp", "wait"}}}, false},
        {"mail", {.ehlo = NO_PIPELINING, .answers = {{"MAIL FROM:<s@x>", "wait"}}}, true},
        {"recipient", {.answers = {{"RCPT TO:<a@x>", "wait"}}}, true},
        {"data", {.answers = {{"DATA", "wait"}}}, true},
        {"end", {.answers = {{".", "wait"}}}, true},
        {"half a reply", {.answers = {{"DATA", "354-go\r\n35"}}}, true},
    };
    hurry(200ms);
    for (const auto &row : rows) {
        SmtpServer server(row.script);
        connect_to(server);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Strings{"later the server took too long"}, deliver({"a@x"})) << row.label;
        EXPECT_EQ(row.usable, usable_) << row.label;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << row.label;
        client_.reset();
    }
}

TEST_F(SmtpClient, EndlessRepliesAreCutShort)
{
    {
        SmtpServer server({.flood = true});
        connect_to(server);
        EXPECT_EQ(Strings{"later the server sent something that is no reply"}, deliver({"a@x"}));
        EXPECT_FALSE(usable_);
        client_.reset();
    }
    SmtpServer server({.answers = {{"DATA", std::string(100'000, '3')}}});
    connect_to(server);
    EXPECT_EQ(Strings{"later the server sent a line without end"}, deliver({"a@x"}));
    client_.reset();
}

TEST_F(SmtpClient, AnInterruptEndsAWaitAtOnce)
{
    SmtpServer server({.answers = {{"DATA", "wait"}}});
    connect_to(server);
    std::thread ringer([&] {
        while (server.commands().empty() || server.commands().back() != "DATA")
            std::this_thread::yield();
        client_->interrupt();
    });
    EXPECT_EQ(Strings{"later interrupted"}, deliver({"a@x"}));
    ringer.join();
    EXPECT_EQ(Strings{"later 127.0.0.1:" + server.port() + ": interrupted"}, deliver({"a@x"}));
    client_.reset();
}

TEST_F(SmtpClient, LargeMessagesArriveWhole)
{
    SmtpServer server({.ehlo = "250-me\r\n250 PIPELINING\r\n"});
    connect_to(server);
    text_.clear();
    for (int i = 0; i < 100'000; i++)
        text_ += "." + std::to_string(i) + (i % 3 == 0 ? "\n" : "\r\n");
    EXPECT_EQ(Strings{"done"}, deliver({"a@x"}));
    std::string expected = prefix_;
    for (int i = 0; i < 100'000; i++)
        expected += ".." + std::to_string(i) + "\r\n";
    ASSERT_EQ(1u, server.messages().size());
    EXPECT_TRUE(expected == server.messages()[0]);
    client_.reset();
}

TEST(ReplyReader, RepliesAreReadStrictly)
{
    using State = ReplyReader::State;
    static const struct {
        const char *label;
        Strings lines;
        State state;
        const char *text;
    } rows[] = {
        {"one line", {"250 ok"}, State::complete, "250 ok"},
        {"bare code", {"250"}, State::complete, "250 "},
        {"several lines", {"250-a", "250-b", "250 c"}, State::complete, "250 a b c"},
        {"more to come", {"250-a"}, State::more, nullptr},
        {"controls and odd bytes", {"550 a\x1b[2J\x80"}, State::complete, "550 a[2J?"},
        {"another code", {"250-a", "550 b"}, State::garbage, nullptr},
        {"empty", {""}, State::garbage, nullptr},
        {"two digits", {"25 ok"}, State::garbage, nullptr},
        {"letters", {"25x ok"}, State::garbage, nullptr},
        {"code 1xx", {"150 ok"}, State::garbage, nullptr},
        {"code 6xx", {"650 ok"}, State::garbage, nullptr},
        {"four digits", {"2500 ok"}, State::garbage, nullptr},
        {"too many lines", Strings(MOST_REPLY_LINES + 1, "250-x"), State::garbage, nullptr},
    };
    for (const auto &row : rows) {
        ReplyReader reader;
        State state = State::more;
        for (const std::string &line : row.lines)
            state = reader.add_line(line);
        EXPECT_EQ(row.state, state) << row.label;
        if (row.text != nullptr) {
            EXPECT_EQ(row.text, reader.reply().text()) << row.label;
        }
    }
    ReplyReader reader;
    for (int i = 0; i < 100; i++)
        (void)reader.add_line("550-" + std::string(4000, 'x'));
    EXPECT_GE(512u, reader.reply().text().size());
}
} // namespace
