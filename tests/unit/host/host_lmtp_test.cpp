/* Talking LMTP with the server over a socket pair, deliveries recorded. */
#include <gtest/gtest.h>

#include "tests/unit/host/lmtp_talk.h"

using namespace std::string_literals;

static const char mail[] = "Subject: a\r\n\r\nb\r\n.\r\n";

TEST(LmtpSession, GreetsWithItsExtensions)
{
    Talk talk;
    talk.send("lhlo client\r\n");
    EXPECT_EQ(talk.line(), "250-lists.example.jp");
    EXPECT_EQ(talk.line(), "250-PIPELINING");
    EXPECT_EQ(talk.line(), "250-8BITMIME");
    EXPECT_EQ(talk.line(), "250-ENHANCEDSTATUSCODES");
    EXPECT_EQ(talk.line(), "250 SIZE 52428800");
    EXPECT_EQ(talk.say("QUIT"), "221 2.0.0 bye");
    EXPECT_EQ(talk.line(), "closed");
}

TEST(LmtpSession, TakesAMailAndAnswersForEachRecipient)
{
    Talk talk;
    talk.begin({"one", "refused", "later", "two-ctl"});
    talk.send(mail);
    EXPECT_EQ(talk.line(), "250 2.0.0 accepted");
    EXPECT_EQ(talk.line(), "550 5.3.0 510 loop");
    EXPECT_EQ(talk.line(), "451 4.3.0 480 disk full");
    EXPECT_EQ(talk.line(), "250 2.0.0 accepted");
    EXPECT_EQ(talk.say("NOOP"), "250 2.0.0 ok");
    ASSERT_EQ(talk.handler.deliveries.size(), 2u);
    EXPECT_EQ(talk.handler.deliveries[0].list, "one@example.jp");
    EXPECT_EQ(talk.handler.deliveries[0].sender, "a@b");
    EXPECT_EQ(talk.handler.deliveries[0].text, "Subject: a\r\n\r\nb\r\n");
    EXPECT_TRUE(talk.files().empty());
}

TEST(LmtpSession, TheSameListTwiceGetsTheMailOnce)
{
    Talk talk;
    talk.begin({"one", "two", "ONE", "refused", "refused"});
    talk.send(mail);
    for (const char *answer : {"250", "250", "250", "550", "550"})
        EXPECT_EQ(talk.line().substr(0, 3), answer);
    EXPECT_EQ(talk.handler.deliveries.size(), 2u);
}

TEST(LmtpSession, AnswersPipelinedCommandsInOrder)
{
    Talk talk;
    talk.send(std::string("LHLO c\r\nMAIL FROM:<>\r\nRCPT TO:<one@example.jp>\r\n"
                          "RCPT TO:<unknown@example.jp>\r\nDATA\r\n") +
              mail + "MAIL FROM:<c@d>\r\nRCPT TO:<two@example.jp>\r\nDATA\r\n" + mail + "QUIT\r\n");
    std::string codes;
    for (std::string line = talk.line(); line != "closed"; line = talk.line())
        codes += line.substr(0, 4) + (line.substr(0, 3) == "354" ? "| " : "");
    EXPECT_EQ(codes, "250-250-250-250-250 250 250 550 354 | 250 250 250 354 | 250 221 ");
    ASSERT_EQ(talk.handler.deliveries.size(), 2u);
    EXPECT_EQ(talk.handler.deliveries[0].sender, "");
    EXPECT_EQ(talk.handler.deliveries[1].sender, "c@d");
}

TEST(LmtpSession, TakesItsCommandsOneByteAtATime)
{
    Talk talk;
    for (const char c :
         std::string("LHLO c\r\nMAIL FROM:<a@b>\r\nRCPT TO:<one@example.jp>\r\nDATA\r\n"))
        talk.send(std::string(1, c));
    for (int i = 0; i < 8; ++i)
        talk.line();
    for (const char c : std::string(mail))
        talk.send(std::string(1, c));
    EXPECT_EQ(talk.line(), "250 2.0.0 accepted");
}

static const struct {
    const char *label;
    std::vector<std::string> before;
    std::string command, answer;
} rows[] = {
    {"mail before the greeting", {}, "MAIL FROM:<a@b>", "503 5.5.1"},
    {"data before the greeting", {}, "DATA", "503 5.5.1"},
    {"the other protocol's greeting", {}, "EHLO x", "500 5.5.1"},
    {"a greeting without a name", {}, "LHLO", "501 5.5.4"},
    {"a recipient before the sender", {"LHLO x"}, "RCPT TO:<one@example.jp>", "503 5.5.1"},
    {"data before the sender", {"LHLO x"}, "DATA", "503 5.5.1"},
    {"data without a recipient", {"LHLO x", "MAIL FROM:<a@b>"}, "DATA", "503 5.5.1"},
    {"data after refused recipients only",
     {"LHLO x", "MAIL FROM:<a@b>", "RCPT TO:<unknown@example.jp>"},
     "DATA",
     "503 5.5.1"},
    {"data with an argument", {"LHLO x"}, "DATA now", "501 5.5.4"},
    {"a second sender", {"LHLO x", "MAIL FROM:<a@b>"}, "MAIL FROM:<a@b>", "503 5.5.1"},
    {"a sender after a reset",
     {"LHLO x", "MAIL FROM:<a@b>", "RSET"},
     "MAIL FROM:<a@b>",
     "250 2.1.0"},
    {"a sender after a new greeting",
     {"LHLO x", "MAIL FROM:<a@b>", "LHLO x"},
     "MAIL FROM:<a@b>",
     "250 2.1.0"},
    {"the empty sender", {"LHLO x"}, "MAIL FROM:<>", "250 2.1.0"},
    {"a sender in small letters, with a blank", {"LHLO x"}, "mail from: <a@b>", "250 2.1.0"},
    {"a sender with a source route", {"LHLO x"}, "MAIL FROM:<@x,@y:a@b>", "250 2.1.0"},
    {"a quoted sender", {"LHLO x"}, "MAIL FROM:<\"a>b\"@c>", "501 5.1.7"},
    {"a sender without brackets", {"LHLO x"}, "MAIL FROM:a@b", "501 5.5.4"},
    {"a sender without a domain", {"LHLO x"}, "MAIL FROM:<root>", "501 5.1.7"},
    {"a sender with a blank", {"LHLO x"}, "MAIL FROM:<a b@c>", "501 5.1.7"},
    {"an unclosed sender", {"LHLO x"}, "MAIL FROM:<a@b", "501 5.5.4"},
    {"a small size", {"LHLO x"}, "MAIL FROM:<a@b> SIZE=1000", "250 2.1.0"},
    {"a size above the limit", {"LHLO x"}, "MAIL FROM:<a@b> size=52428801", "552 5.3.4"},
    {"a size that is none", {"LHLO x"}, "MAIL FROM:<a@b> SIZE=x", "501 5.5.4"},
    {"an eight-bit body", {"LHLO x"}, "MAIL FROM:<a@b> BODY=8BITMIME SIZE=5", "250 2.1.0"},
    {"a binary body", {"LHLO x"}, "MAIL FROM:<a@b> BODY=BINARYMIME", "555 5.5.4"},
    {"an unknown parameter", {"LHLO x"}, "MAIL FROM:<a@b> AUTH=<>", "555 5.5.4"},
    {"an unknown list", {"LHLO x", "MAIL FROM:<a@b>"}, "RCPT TO:<unknown@example.jp>", "550 5.1.1"},
    {"a recipient above the tree",
     {"LHLO x", "MAIL FROM:<a@b>"},
     "RCPT TO:<../x@example.jp>",
     "550 5.1.1"},
    {"a recipient with a slash",
     {"LHLO x", "MAIL FROM:<a@b>"},
     "RCPT TO:<a/b@example.jp>",
     "550 5.1.1"},
    {"the directory itself", {"LHLO x", "MAIL FROM:<a@b>"}, "RCPT TO:<.@example.jp>", "550 5.1.1"},
    {"a domain above the tree", {"LHLO x", "MAIL FROM:<a@b>"}, "RCPT TO:<x@..>", "550 5.1.1"},
    {"a control character",
     {"LHLO x", "MAIL FROM:<a@b>"},
     "RCPT TO:<a\x01@example.jp>",
     "550 5.1.1"},
    {"a NUL", {"LHLO x", "MAIL FROM:<a@b>"}, "RCPT TO:<a\0@example.jp>"s, "550 5.1.1"},
    {"a bare local part", {"LHLO x", "MAIL FROM:<a@b>"}, "RCPT TO:<postmaster>", "550 5.1.1"},
    {"the empty recipient", {"LHLO x", "MAIL FROM:<a@b>"}, "RCPT TO:<>", "550 5.1.1"},
    {"a recipient's parameter",
     {"LHLO x", "MAIL FROM:<a@b>"},
     "RCPT TO:<one@example.jp> NOTIFY=NEVER",
     "555 5.5.4"},
    {"no recipient at all", {"LHLO x", "MAIL FROM:<a@b>"}, "RCPT TO:", "501 5.5.4"},
    {"a word that is none", {}, "FROB", "500 5.5.2"},
    {"an empty line", {}, "", "500 5.5.2"},
    {"a line that is too long", {}, std::string(5000, 'x'), "500 5.5.2"},
    {"an endless word", {}, std::string(1000000, 'x'), "500 5.5.2"},
    {"a question about a user", {}, "VRFY someone", "252 2.5.0"},
    {"a call for help", {}, "HELP", "214 end of help"},
    {"a reset before anything", {}, "RSET", "250 2.0.0"},
};

TEST(LmtpSession, AnswersEachCommandByWhatCameBefore)
{
    for (const auto &row : rows) {
        Talk talk;
        for (const std::string &command : row.before)
            talk.say(command);
        EXPECT_EQ(talk.say(row.command).substr(0, row.answer.size()), row.answer) << row.label;
        EXPECT_EQ(talk.say("NOOP"), "250 2.0.0 ok") << row.label;
    }
}

TEST(LmtpSession, LimitsTheRecipients)
{
    Talk talk({.recipients = 2});
    talk.hello();
    talk.say("MAIL FROM:<a@b>");
    EXPECT_EQ(talk.say("RCPT TO:<one@example.jp>").substr(0, 3), "250");
    EXPECT_EQ(talk.say("RCPT TO:<two@example.jp>").substr(0, 3), "250");
    EXPECT_EQ(talk.say("RCPT TO:<three@example.jp>"), "452 4.5.3 too many recipients");
}

TEST(LmtpSession, RefusedDataIsAnsweredForEachRecipientAndNotDelivered)
{
    static const struct {
        const char *label;
        std::string data, answer;
    } refused[] = {
        {"too large", "A: b\r\n\r\n" + std::string(3000, 'x') + "\r\n.\r\n", "552 5.3.4"},
        {"NUL", "A: b\r\n\r\n\0\r\n.\r\n"s, "554 5.6.0"},
    };
    for (const auto &row : refused) {
        Talk talk({.message_size = 2000});
        talk.begin({"one", "two"});
        talk.send(row.data);
        EXPECT_EQ(talk.line().substr(0, 9), row.answer) << row.label;
        EXPECT_EQ(talk.line().substr(0, 9), row.answer) << row.label;
        EXPECT_EQ(talk.say("NOOP"), "250 2.0.0 ok") << row.label;
        EXPECT_TRUE(talk.handler.deliveries.empty()) << row.label;
    }
}

TEST(LmtpSession, ASessionGoesOnAfterAMail)
{
    Talk talk;
    talk.begin({"one"});
    talk.send(mail);
    EXPECT_EQ(talk.line().substr(0, 3), "250");
    EXPECT_EQ(talk.say("DATA").substr(0, 3), "503") << "the transaction is over";
    talk.begin({"two"});
    talk.send(mail);
    EXPECT_EQ(talk.line().substr(0, 3), "250");
    EXPECT_EQ(talk.handler.deliveries.size(), 2u);
}

TEST(LmtpSession, ASilentClientIsSentAway)
{
    Talk talk({.timeout_ms = 50});
    EXPECT_EQ(talk.line(), "421 4.4.2 timeout, closing");
    EXPECT_EQ(talk.line(), "closed");
}

TEST(LmtpSession, AMailThatStallsIsGivenUp)
{
    Talk talk({.timeout_ms = 100});
    talk.begin({"one"});
    talk.send("Subject: a\r\n\r\nb");
    EXPECT_EQ(talk.line(), "421 4.4.2 timeout, closing");
    EXPECT_EQ(talk.line(), "closed");
    talk.wait();
    EXPECT_TRUE(talk.handler.deliveries.empty());
    EXPECT_TRUE(talk.files().empty());
}

TEST(LmtpSession, AMailThatDripsHasATotalTime)
{
    Talk talk({.timeout_ms = 5000, .data_timeout_ms = 200});
    talk.begin({"one"});
    const int64_t start = steady_ms();
    for (int i = 0; i < 15; ++i) {
        talk.send("x");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(talk.line(), "421 4.4.2 timeout, closing");
    EXPECT_LT(steady_ms() - start, 4000);
}

TEST(LmtpSession, AClientThatDropsInTheDataDeliversNothing)
{
    Talk talk;
    talk.begin({"one"});
    talk.send("Subject: a\r\n\r\nb\r\n.\r");
    talk.hang_up();
    EXPECT_TRUE(talk.handler.deliveries.empty());
    EXPECT_TRUE(talk.files().empty());
}

TEST(LmtpSession, TooManyErrorsEndIt)
{
    Talk talk;
    std::string last;
    for (int i = 0; i < 20; ++i)
        last = talk.say("FROB");
    EXPECT_EQ(last, "500 5.5.2 unknown command");
    EXPECT_EQ(talk.line(), "421 4.7.0 too many errors, closing");
    EXPECT_EQ(talk.line(), "closed");
}

TEST(LmtpSession, TheEndOfTheDaemonEndsWaitingButNotReceiving)
{
    Talk waiting;
    waiting.hello();
    waiting.stop();
    EXPECT_EQ(waiting.line(), "421 4.3.2 shutting down");
    EXPECT_EQ(waiting.line(), "closed");

    Talk receiving;
    receiving.begin({"one"});
    receiving.send("Subject: a\r\n");
    receiving.stop();
    /* Time to notice; that it goes on receiving shows only when the mail is whole. */
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    receiving.send("\r\nb\r\n.\r\n");
    EXPECT_EQ(receiving.line(), "250 2.0.0 accepted");
    EXPECT_EQ(receiving.line(), "421 4.3.2 shutting down");
    EXPECT_EQ(receiving.handler.deliveries.size(), 1u);
}

TEST(LmtpSession, WithoutRoomForTheMailItSaysSoBeforeTheData)
{
    LmtpConfig config;
    config.hostname = "h";
    config.control_suffixes = {"-ctl"};
    config.in_directory = "/nonexistent";
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Fd client(ends[0]);
    const Fd server(ends[1]);
    const std::string commands = "LHLO c\r\nMAIL FROM:<a@b>\r\nRCPT TO:<x@d>\r\nDATA\r\nQUIT\r\n";
    ASSERT_EQ(send(client.get(), commands.data(), commands.size(), 0),
              static_cast<ssize_t>(commands.size()));
    RecordingHandler handler;
    LmtpSession(Stream(server.get(), -1), config, handler, "test").run();
    char answers[4096];
    const ssize_t got = recv(client.get(), answers, sizeof(answers), 0);
    ASSERT_GT(got, 0);
    EXPECT_NE(std::string(answers, static_cast<size_t>(got)).find("452 4.3.1 "), std::string::npos);
}
