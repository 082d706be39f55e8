/* The interpreter: which lines are commands, who may use them, in which order that is asked. */
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "mlist/host_functions.h"
#include "tests/unit/commands/commands_test.h"

class CommandLine : public CommandTest
{
  protected:
    /* The line's one reply: its subject's word and what became of the command. */
    std::string answer_to(const std::string &text)
    {
        forget();
        job()->flags &= ~static_cast<uint32_t>(JOB_COMMAND_SEEN);
        EXPECT_EQ(1, line(text)) << text;
        if (host.submissions.empty()) return seen() ? "seen, no reply" : "";
        EXPECT_EQ(1u, host.submissions.size());
        EXPECT_TRUE(seen());
        const std::string mail = sent();
        const size_t subject = mail.find("[") + 1, block = mail.find("\r\n>>> ");
        const size_t result = mail.find('\n', block + 2) + 1;
        return mail.substr(subject, mail.find("]: mylist\r\n") - subject) + ": " +
               mail.substr(result, mail.find_first_of("\r\n", result) - result);
    }
    bool seen() { return (job()->flags & JOB_COMMAND_SEEN) != 0; }
};

TEST_F(CommandLine, LinesThatAreNoCommandsGetNoReply)
{
    for (const char *text : {"\r\n", "hello\r\n", "> # help\r\n", "-- \r\n", "#\r\n", " \t# \t\r\n",
                             "#\n", "", "   ", "help\r\n", "\x01# help\r\n"})
        EXPECT_EQ("", answer_to(text)) << text;
}

TEST_F(CommandLine, WordsAreFoundInAnyCaseWithAnyBlanksAround)
{
    for (const char *text : {"# help\r\n", "#help\r\n", "#HELP\n", " \t # \t hElP \t \r\n",
                             "# help me\r\n", "#help\tnow\r\n", "# help\r", "# help "})
        EXPECT_EQ("help: Succeeded", answer_to(text)) << text;
}

TEST_F(CommandLine, AnythingElseBehindTheHashSignIsUnknown)
{
    static const struct {
        const char *text, *quoted;
    } rows[] = {
        {"# help", "help"},
        {"# helpme\r\n", "helpme"},
        {"# hel\r\n", "hel"},
        {"#help.\r\n", "help."},
        {"# foo bar  \t\r\n", "foo bar"},
        {"## help\r\n", "# help"},
        {"#\x80\xff\r\n", "\x80\xff"},
        {"# %s%n%s\r\n", "%s%n%s"},
        {"#", ""},
        {"# \t", ""},
        {"# push\r\n", "push"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.quoted + std::string(": Invalid Command"), answer_to(row.text)) << row.text;
        EXPECT_NE(std::string::npos,
                  sent().find("\r\n>>> " + std::string(row.quoted) + "\nInvalid Command\r\n-\r\n"));
        has_log("5/88 ML Command Log:  mylist carol@example.com\r\n>>> " + std::string(row.quoted) +
                "\r\nInvalid Command");
    }
}

TEST_F(CommandLine, PushIsUnknownToAllButTheOwnerAndTheMailSystem)
{
    static const struct {
        const char *sender;
        bool may;
    } rows[] = {
        {"alice@example.net", false},
        {"owner-mylist@example.jp", true},
        {"OWNER-MyList@example.jp", true},
        {"owner-mylist2@example.org", true},
        {"owner-mylis@example.jp", false},
        {"mailer-daemon@mx.example.jp", true},
        {"MAILER-DAEMON", true},
        {"x-MAILER-DAEMON", false},
        {"", false},
    };
    for (const auto &row : rows) {
        send_as(row.sender);
        if (row.may) {
            EXPECT_EQ("seen, no reply", answer_to("# push\r\n")) << row.sender;
            has_log("5/77 Digest Mails Log:  mylist (nothing)\r\nSucceeded");
        } else {
            EXPECT_EQ("push: Invalid Command", answer_to("# push\r\n")) << row.sender;
            has_log("1/92 mlname=mylist invalid owner for push [" + std::string(row.sender) + "]");
        }
    }
    send_as("alice@example.net");
    g_debug = 1;
    EXPECT_EQ("seen, no reply", answer_to("# push\r\n"));
    g_debug = 0;
}

TEST_F(CommandLine, AnInactiveCommandIsRefusedBeforeAnythingElse)
{
    job()->settings.nonmember_command_mask = 0;
    for (int number = COMMAND_HELP; number < COMMAND_PUSH; ++number) {
        job()->settings.command_mask = ALL_COMMANDS & ~COMMAND_BIT(number);
        const std::string word = g_str_cmd[number];
        for (const char *sender : {"alice@example.net", "carol@example.com"}) {
            send_as(sender);
            EXPECT_EQ(word + ": Inactive Command", answer_to("# " + word + "\r\n")) << sender;
            has_log("5/82 ML Command Log:  mylist " + std::string(sender) + "\r\n>>> " + word +
                    "\r\nInactive Command");
        }
    }
}

TEST_F(CommandLine, ACommandThatIsClosedToNonMembersIsDeniedToThem)
{
    for (int number = COMMAND_HELP; number < COMMAND_PUSH; ++number) {
        job()->settings.nonmember_command_mask = ALL_COMMANDS & ~COMMAND_BIT(number);
        const std::string word = g_str_cmd[number];
        send_as("carol@example.com");
        EXPECT_EQ(word + ": Denied Command", answer_to("# " + word + "\r\n"));
        has_log("5/85 ML Command Log:  mylist carol@example.com\r\n>>> " + word +
                "\r\nDenied Command");
        send_as("bob@example.jp");
        EXPECT_EQ(std::string::npos, answer_to("# " + word + "\r\n").find("Denied")) << word;
        list.put("member", "alice@example.net ON \r\nbob@example.jp OFF\r\n");
    }
}

TEST_F(CommandLine, SubscribingAsksTheSubscribeList)
{
    list.put("subscribe", "example.org\r\n*.net\r\n");
    EXPECT_EQ("subscribe: Denied Command", answer_to("# subscribe\r\n"));
    has_log("5/85 ML Command Log:  mylist carol@example.com\r\n>>> subscribe\r\nDenied Command");
    send_as("dora@sub.example.net");
    EXPECT_EQ("subscribe: Succeeded", answer_to("# subscribe\r\n"));
    EXPECT_EQ("unsubscribe: Succeeded", answer_to("# unsubscribe\r\n"));
    send_as("no-domain");
    list.put("subscribe", "");
    EXPECT_EQ("subscribe: Denied Command", answer_to("# subscribe\r\n"));
}

TEST_F(CommandLine, AnUnreadableSubscribeListIsAFailure)
{
    unlink(list.control("subscribe").c_str());
    EXPECT_EQ(-1, cmdsubscribe_access(job()));
    EXPECT_EQ(-1, line("# subscribe\r\n"));
    has_log("1/1 mlname=mylist get_subscribe fail at subscribe");
    has_log("1/98 mlname=mylist Command Subscribe Fail");
    EXPECT_TRUE(host.submissions.empty());
    EXPECT_EQ(1, line("# unsubscribe\r\n"));
}

TEST_F(CommandLine, WordsOfOtherKindsAreEmpty)
{
    EXPECT_STREQ("", command_word(-1));
    EXPECT_STREQ("push", command_word(COMMAND_PUSH));
    EXPECT_STREQ("", command_word(11));
    EXPECT_STREQ("", command_word(REPLY_INVALID_COMMAND));
    EXPECT_STREQ("", g_str_cmd[11]);
}

TEST_F(CommandLine, EveryReplyGoesToTheSenderFromTheOwner)
{
    host.result_to_write = "ignored";
    for (const char *text : {"# help\r\n", "# foo\r\n", "# member\r\n", "# get 1\r\n"}) {
        forget();
        EXPECT_EQ(1, line(text));
        ASSERT_EQ(1u, host.submissions.size());
        const Submission &mail = host.submissions[0];
        EXPECT_EQ(reply_path(), mail.file);
        EXPECT_EQ("owner-mylist@example.jp", mail.envelope_sender);
        EXPECT_EQ((std::vector<std::string>{"carol@example.com"}), mail.recipients);
        EXPECT_FALSE(mail.has_recipient_file);
        EXPECT_TRUE(mail.result_was_zeroed);
        EXPECT_FALSE(exists(reply_path()));
    }
}

/* -- failures -- */

class CommandFailures : public CommandTest
{
  protected:
    CommandFailures()
    {
        archive_sample(1);
        send_as("owner-mylist@example.jp");
    }

    /* The line fails; exactly these lines are logged about it. */
    void expect_failure(const std::string &text, const std::vector<std::string> &wanted)
    {
        SCOPED_TRACE(text);
        forget();
        EXPECT_EQ(-1, line(text));
        EXPECT_EQ(wanted, log());
    }
    static std::string name(const std::string &text) { return "mlname=mylist " + text; }
};

struct FailureRow {
    const char *line;
    int create_number;
    const char *create;
    int send_number;
    const char *send;
    int fail_number;
    const char *fail;
};

static const FailureRow failure_rows[] = {
    {"# help\r\n", 5, "create cmdrpy fail at help", 6, "mailfile fail at help", 97,
     "Command Help Fail"},
    {"# subscribe\r\n", 14, "create cmdrpy fail -normal- subscribe", 16,
     "mailfile fail at subscribe", 100, "Command Subscribe Fail"},
    {"# unsubscribe\r\n", 26, "create cmdrpy fail -normal- at unsubscribe", 28,
     "mailfile fail at unsubscribe", 101, "Command Unsubscribe Fail"},
    {"# member\r\n", 32, "create cmdrpy fail at member", 33, "mailfile failed at member", 102,
     "Command Member Fail"},
    {"# off\r\n", 42, "create cmdrpy fail -error(1)- at off", 44, "mailfile fail at off", 103,
     "Command Off Fail"},
    {"# on\r\n", 36, "create cmdrpy fail -error(1)- at on", 38, "mailfile fail at on", 104,
     "Command On Fail"},
    {"# summary\r\n", 57, "create cmdrpy fail at summary", 58, "mailfile fail at summary", 105,
     "Command Summary Fail"},
    {"# summary 1\r\n", 0, nullptr, 61, "mailfile fail at summary", 105, "Command Summary Fail"},
    {"# get 1\r\n", 65, "create cmdrpy fail -normal- at get", 66, "mailfile fail at get", 106,
     "Command Get Fail"},
    {"# get 7\r\n", 68, "create cmdrpy fail -error- at get", 69, "mailfile fail at get", 106,
     "Command Get Fail"},
    {"# stat\r\n", 53, "create cmdrpy fail at stat", 54, "mailfile fail at stat", 107,
     "Command Stat Fail"},
    {"# digest\r\n", 48, "create cmdrpy fail -error(1)- at digest", 50, "mailfile fail at digest",
     108, "Command Digest Fail"},
    {"# push\r\n", 74, "create cmdrpy fail -normal- at push", 75, "mailfile fail at push", 109,
     "Command Push Fail"},
    {"# foo\r\n", 86, "create cmdrpy fail at invalidcmd", 87, "mailfile fail at invalidcmd", 93,
     "Invalid Command Fail"},
};

static const std::string cannot_open =
    "1/208 mlname=mylist create_cmdrpy can't open mailfile  Read-only file system "
    "[CTL/msg/cmdrpy.TID]";

TEST_F(CommandFailures, EveryHandlersFailureHasItsOwnText)
{
    for (const FailureRow &row : failure_rows) {
        const std::string end = "1/" + std::to_string(row.fail_number) + " " + name(row.fail);
        list.put("dgtstat", "1");
        list.put("digest", "dora@example.jp\r\n");
        if (row.create != nullptr) {
            FaultOs fault;
            fault.before = fail_call("open", "msg/cmdrpy." + std::to_string(gettid()), EROFS);
            expect_failure(
                row.line, {cannot_open,
                           "1/" + std::to_string(row.create_number) + " " + name(row.create), end});
            EXPECT_TRUE(host.submissions.empty());
        }
        list.put("dgtstat", "1");
        send_as("owner-mylist@example.jp");
        host.accept = 0;
        forget();
        EXPECT_EQ(-1, line(row.line));
        host.accept = 1;
        has_log("1/" + std::to_string(row.send_number) + " " + name(row.send));
        has_log(end);
        const bool is_push = strcmp(row.line, "# push\r\n") == 0;
        EXPECT_EQ(!is_push, exists(reply_path())) << "a reply that was not sent stays";
    }
}

TEST_F(CommandFailures, RefusalsThatCannotBeSent)
{
    job()->settings.command_mask = 0;
    host.accept = 0;
    expect_failure("# help\r\n", {"1/81 " + name("mailfile fail at inactivecmd"),
                                  "1/94 " + name("Inactive Command Fail")});
    job()->settings.command_mask = ALL_COMMANDS;
    job()->settings.nonmember_command_mask = COMMAND_BIT(COMMAND_SUBSCRIBE);
    expect_failure("# help\r\n", {"1/84 " + name("mailfile fail at deny cmd"),
                                  "1/96 " + name("Denied Command Fail")});
    list.put("subscribe", "nobody.example\r\n");
    expect_failure("# subscribe\r\n", {"1/84 " + name("mailfile fail at deny cmd"),
                                       "1/99 " + name("Denied Command Fail")});
    forget();
    EXPECT_EQ(-1, nothing_cmd(job()));
    EXPECT_EQ((std::vector<std::string>{"1/90 " + name("mailfile fail at nothingcmd")}), log());
}

TEST_F(CommandFailures, RefusalsThatCannotBeWritten)
{
    FaultOs fault;
    fault.before = fail_call("open", "msg/cmdrpy." + std::to_string(gettid()), EROFS);
    job()->settings.command_mask = 0;
    expect_failure("# help\r\n", {cannot_open, "1/80 " + name("create cmdrpy fail at inactivecmd"),
                                  "1/94 " + name("Inactive Command Fail")});
    job()->settings.command_mask = ALL_COMMANDS;
    job()->settings.nonmember_command_mask = 0;
    expect_failure("# help\r\n", {cannot_open, "1/83 " + name("create cmdrpy fail at denycmd"),
                                  "1/96 " + name("Denied Command Fail")});
    forget();
    EXPECT_EQ(-1, nothing_cmd(job()));
    EXPECT_EQ(
        (std::vector<std::string>{cannot_open, "1/89 " + name("create cmdrpy fail at nothingcmd")}),
        log());
}

TEST_F(CommandFailures, NothingIsLoggedAsSuch)
{
    EXPECT_EQ(0, nothing_cmd(job()));
    EXPECT_EQ((std::vector<std::string>{
                  "5/91 ML Command Log:  mylist owner-mylist@example.jp\r\n>>> (nothing)\r\n"
                  "Not Found"}),
              log());
}

/* -- the recipient -- */

class ReplyAddress : public CommandTest
{
  protected:
    std::string recipient(const std::string &sender)
    {
        forget();
        send_as(sender);
        EXPECT_EQ(1, line("# help\r\n"));
        return host.submissions.at(0).recipients.at(0);
    }
};

TEST_F(ReplyAddress, APercentSignIsNeverAnArgument)
{
    EXPECT_EQ("100%off@example.jp", recipient("100%%off@example.jp"));
    for (const char *sender : {"%s%s%s%s%s@x", "%n%n%n@x", "%99999999d@x", "%*.*s", "%", "%%%",
                               "%l", "%1$n", "a%hhn@x", "%-+ #0'I*.$hlqjzZtLd"})
        EXPECT_LT(recipient(sender).size(), 40u) << sender;
}

TEST_F(ReplyAddress, OtherBytesStayAndTheLengthIsBounded)
{
    for (const char *sender : {"\"john doe\"@example.jp", "a b@x", "\x8e\xb6@x", "<>@x", ""})
        EXPECT_EQ(sender, recipient(sender));
    EXPECT_EQ(std::string(1000, 'a') + "@x", recipient(std::string(1000, 'a') + "@x"));
    EXPECT_EQ(std::string(1022, 'a'), recipient(std::string(4000, 'a')));
    EXPECT_EQ(std::string(1022, 'a'), recipient(std::string(1022, 'a') + "%%"));
}
