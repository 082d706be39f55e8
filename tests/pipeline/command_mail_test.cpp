/* Whole command mails. */
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/pipeline/pipeline.h"
#include "tests/support/fault_os.h"

class CommandMail : public PipelineTest
{
  protected:
    /* A command mail with these body lines, CR LF added. */
    int send(const std::string &from, const std::vector<std::string> &lines)
    {
        return command("From: " + from + "\r\nMessage-ID: <c1@example.com>\r\n\r\n" + crlf(lines));
    }
    std::string reply_mail(size_t n = 0) const { return host.submissions.at(n).content; }
    static std::string reply_to(const std::string &sender, const std::string &word,
                                const std::string &block)
    {
        return "From: mylist@example.jp\r\nTo: " + sender + "\r\nSubject: ML command [" + word +
               "]: mylist\r\nReply-To: mylist@example.jp\r\nX-ML-Name: mylist@example.jp\r\n"
               "In-Reply-To: <c1@example.com>\r\n\r\nML Command Reply:\r\n\r\n" +
               block;
    }
};

TEST_F(CommandMail, SubscribingAtOnceAddsTheSenderAndAnswers)
{
    host.set_result("untouched");
    host.result_to_write = "ignored";
    const std::string archive = tree_text(list.box());
    EXPECT_EQ(0, send("carol@example.com", {"# subscribe"}));
    EXPECT_EQ("", reply());
    EXPECT_EQ("untouched", host.result());
    ASSERT_EQ(1u, host.submissions.size());
    const Submission &s = host.submissions[0];
    EXPECT_EQ(path("msg/cmdrpy." + std::to_string(gettid())), s.file);
    EXPECT_EQ("owner-mylist@example.jp", s.envelope_sender);
    EXPECT_EQ((std::vector<std::string>{"carol@example.com"}), s.recipients);
    EXPECT_FALSE(s.has_recipient_file);
    EXPECT_TRUE(s.result_was_zeroed);
    EXPECT_EQ(233u, s.content.size());
    EXPECT_EQ(reply_to("carol@example.com", "subscribe", ">>> subscribe\r\nSucceeded\r\n-\r\n\r\n"),
              s.content);
    EXPECT_EQ("alice@example.net ON \r\nbob@example.jp ON \r\ncarol@example.com ON \r\n",
              list.get("member"));
    EXPECT_EQ("alice@example.net\r\nbob@example.jp\r\ncarol@example.com\r\n", list.get("active"));
    EXPECT_TRUE(list_directory(path("msg")).empty());
    EXPECT_TRUE(list_directory(path("jnl")).empty());
    EXPECT_EQ(archive, tree_text(list.box()));
    EXPECT_TRUE(
        logged(18, "ML Command Log:  mylist carol@example.com\r\n>>> subscribe\r\nSucceeded"));
    expect_nothing_lost_or_left();

    const std::string roster = tree_text(path());
    EXPECT_EQ(0, send("CAROL@example.com", {"# subscribe"}));
    EXPECT_EQ(roster, tree_text(path())) << "a member who subscribes changes nothing";
}

TEST_F(CommandMail, SeveralCommandsGetSeveralRepliesInOrder)
{
    EXPECT_EQ(
        0, send("alice@example.net", {"Dear list,", " #  STAT  ", "# off", "#", "# stat", "-- "}));
    ASSERT_EQ(3u, host.submissions.size());
    EXPECT_EQ(reply_to("alice@example.net", "stat", ">>> stat\r\nSucceeded\r\n-\r\nON\r\n"),
              reply_mail(0));
    EXPECT_EQ(reply_to("alice@example.net", "off", ">>> off\r\nSucceeded\r\n-\r\n"), reply_mail(1));
    EXPECT_EQ(reply_to("alice@example.net", "stat", ">>> stat\r\nSucceeded\r\n-\r\nOFF\r\n"),
              reply_mail(2));
    EXPECT_EQ("alice@example.net OFF\r\nbob@example.jp ON \r\n", list.get("member"));
    EXPECT_EQ("bob@example.jp\r\n", list.get("active"));
}

TEST_F(CommandMail, ASubscriptionCountsForTheLinesBehindIt)
{
    EXPECT_EQ(0, send("carol@example.com", {"# member", "# subscribe", "# member"}));
    ASSERT_EQ(3u, host.submissions.size());
    EXPECT_NE(std::string::npos, reply_mail(0).find(">>> member\r\nDenied Command\r\n-\r\n"));
    EXPECT_NE(std::string::npos,
              reply_mail(2).find(">>> member\r\nSucceeded\r\n-\r\n" + list.get("member")));
}

TEST_F(CommandMail, WithoutAnyCommandTheAnswerSaysNothing)
{
    const std::string wanted =
        reply_to("alice@example.net", "(nothing)", ">>> (null)(nothing)\r\nNot Found\r\n-\r\n");
    EXPECT_EQ(0, send("alice@example.net", {"hello", "#", " # "}));
    EXPECT_EQ(wanted, reply_mail(0));
    EXPECT_EQ(0, command("From: alice@example.net\r\nMessage-ID: <c1@example.com>\r\n\r\n"));
    EXPECT_EQ(wanted, reply_mail(1));
}

TEST_F(CommandMail, AnAnswerThatCannotBeSentFailsTheDelivery)
{
    host.accept = 0;
    EXPECT_EQ(69, send("alice@example.net", {"# help"}));
    EXPECT_EQ("523 command procedure fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(6, "mlname=mylist mailfile fail at help"));
    EXPECT_TRUE(logged(97, "mlname=mylist Command Help Fail"));
    EXPECT_TRUE(logged(398, "mlname=mylist command procedure fail"));
    EXPECT_EQ(1u, list_directory(path("msg")).size());

    EXPECT_EQ(69, send("alice@example.net", {"no command"}));
    EXPECT_EQ("527 nothing command fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_EQ(69, command("From: alice@example.net\r\n\r\n"));
    EXPECT_EQ("529 nothing command fail [ml=mylist] " + tid() + "\n", reply());
    expect_nothing_lost_or_left();
}

TEST_F(CommandMail, ALineOver1024CharactersIs522BeforeItIsLookedAt)
{
    EXPECT_EQ(69, send("alice@example.net", {std::string(1023, 'x')}));
    EXPECT_EQ("522 char/line too long (command) [ml=mylist] strlen=1025 " + tid() + "\n", reply());
    EXPECT_EQ(0, send("alice@example.net", {std::string(1022, 'x')}));
}

TEST_F(CommandMail, AMissingRosterIs521)
{
    list.put("grant", "alice@example.net\r\n");
    unlink(path("member").c_str());
    EXPECT_EQ(69, send("alice@example.net", {"# help"}));
    EXPECT_EQ("521  mail_access2 fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(368, "mlname=mylist mail_access2 get_member fail"));
}

TEST_F(CommandMail, ThousandsOfLinesWithoutCommandsReadTheRosterOnce)
{
    std::vector<std::string> lines(20000, "> quoted text");
    EXPECT_EQ(0, send("alice@example.net", lines));
    EXPECT_EQ(1u, host.submissions.size());
    long looked_up = 0;
    for (const LogLine &line : take_log())
        looked_up += line.msgno == 396;
    EXPECT_EQ(20000, looked_up) << "the log shows every line's status all the same";
}

/* Whatever was carried out may have changed the roster; a number sign with nothing behind it is no
   command. */
TEST_F(CommandMail, TheRosterIsReadAgainOnlyBehindACommand)
{
    const auto reads_of_roster = [this](const std::vector<std::string> &lines) {
        FaultOs calls;
        EXPECT_EQ(0, send("alice@example.net", lines));
        return std::count(calls.calls.begin(), calls.calls.end(), "open " + path("member"));
    };
    const auto once = reads_of_roster({"x"});
    EXPECT_LT(0, once);
    EXPECT_EQ(once, reads_of_roster({"x", "#", "#  ", " #\t", "x"}));
    EXPECT_EQ(once + 1, reads_of_roster({"x", "# nobodyknows", "x", "x"}));
    EXPECT_EQ(once + 2, reads_of_roster({"#nobodyknows", "# nor this", "x"}));
}

TEST_F(CommandMail, AnOversizeCommandMailSaysSoAndIsCarriedOut)
{
    ml_maxmsgsize = 1;
    list.put("init", init_with({"maxmsgsize=1"}));
    EXPECT_EQ(0, send("alice@example.net", {"# off", std::string(1000, 'x'), "x"}));
    EXPECT_TRUE(reply().starts_with("538 Max message size over (1KB)")) << reply();
    EXPECT_EQ("alice@example.net OFF\r\nbob@example.jp ON \r\n", list.get("member"));
}
