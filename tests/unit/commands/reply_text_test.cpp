/* Welcome and help: whose text it is, and what happens when none can be had. */
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "codec/conv.h"
#include "ldapuse.h"
#include "mlist/mlist.h"
#include "module/host_mem.h"
#include "tests/support/lock_waiter.h"
#include "tests/unit/commands/commands_test.h"

class ReplyText : public CommandTest
{
  protected:
    /* What a reply holds behind its opening. */
    std::string body(int kind)
    {
        EXPECT_EQ(0, create_cmdrpy(job(), kind, nullptr, VARIANT_NORMAL));
        const std::string text = reply_file();
        const size_t at = text.find("Succeeded\r\n-\r\n");
        return at == std::string::npos ? "(no opening)"
                                       : text.substr(at + strlen("Succeeded\r\n-\r\n"));
    }
};

static const std::string builtin_help =
    "\nML Command\n\n# help\n# subscribe\n# unsubscribe\n# member\n# off\n# on\n# digest\n# stat\n"
    "# summary\n# get ID\n";

TEST_F(ReplyText, TheListsOwnTextsLieBelowTheFixedRoot)
{
    list.put("msg/help", "own help");
    list.put("msg/welcome", "own welcome");
    const std::string moved = list.root() + "/moved";
    ASSERT_EQ(0, rename((list.root() + "/control").c_str(), moved.c_str()));
    ASSERT_EQ(0, mkdir((list.root() + "/control").c_str(), 0770));
    ASSERT_EQ(0, mkdir((list.root() + "/control/example.jp").c_str(), 0770));
    ASSERT_EQ(0, mkdir((list.root() + "/control/example.jp/mylist").c_str(), 0770));
    ASSERT_EQ(0, mkdir((list.root() + "/control/example.jp/mylist/msg").c_str(), 0770));
    strcpy(g_path_mlist, moved.c_str());
    const std::string reply = moved + "/example.jp/mylist/msg/cmdrpy." + std::to_string(gettid());

    ASSERT_EQ(0, create_cmdrpy(job(), COMMAND_HELP, nullptr, VARIANT_NORMAL));
    EXPECT_TRUE(read_file(reply).ends_with("-\r\n" + builtin_help)) << "not from the moved root";
    list.put("msg/help", "fixed help");
    ASSERT_EQ(0, create_cmdrpy(job(), COMMAND_HELP, nullptr, VARIANT_NORMAL));
    EXPECT_TRUE(read_file(reply).ends_with("-\r\nfixed help\r\n"));
}

TEST_F(ReplyText, AnEmptyFileIsAText)
{
    texts.help = {"the host's"};
    texts.welcome = "the host's";
    list.put("msg/help", "");
    list.put("msg/welcome", "");
    EXPECT_EQ("\r\n", body(COMMAND_HELP));
    EXPECT_EQ("\r\n", body(COMMAND_SUBSCRIBE));
    EXPECT_EQ(0, texts.help_calls + texts.welcome_calls);
}

TEST_F(ReplyText, TheHostIsAskedForTheListAndItsDomain)
{
    EXPECT_EQ("\r\n", body(COMMAND_SUBSCRIBE)) << "an empty welcome has a line end too";
    EXPECT_EQ("example.jp", texts.domain);
    EXPECT_EQ("mylist", texts.list);
    EXPECT_EQ(1, texts.welcome_calls);
}

TEST_F(ReplyText, HelpIsLookedForTwiceBeforeTheBuiltInTextServes)
{
    EXPECT_EQ(builtin_help, body(COMMAND_HELP));
    EXPECT_EQ(2, texts.help_calls);
    texts.help = {"a", "", "c"};
    EXPECT_EQ("a\r\n\r\nc\r\n", body(COMMAND_HELP));
    EXPECT_EQ(5, texts.help_calls);
}

TEST_F(ReplyText, OnlyASucceededHelpOrSubscriptionCarriesAText)
{
    list.put("msg/help", "own help");
    list.put("msg/welcome", "own welcome");
    for (const int variant : {VARIANT_INACTIVE, VARIANT_ERROR, VARIANT_DENIED, VARIANT_CONFIRM})
        for (const int kind : {COMMAND_HELP, COMMAND_SUBSCRIBE}) {
            EXPECT_EQ(0, create_cmdrpy(job(), kind, "0123456789ABCDEF", variant));
            EXPECT_EQ(std::string::npos, reply_file().find("own ")) << kind << " " << variant;
        }
    EXPECT_EQ("", body(COMMAND_UNSUBSCRIBE));
}

TEST_F(ReplyText, AHostThatFailsFailsTheReplyAndLeavesItUnfinished)
{
    texts.error = KYT_ERROR;
    EXPECT_EQ(-1, create_cmdrpy(job(), COMMAND_SUBSCRIBE, nullptr, VARIANT_NORMAL));
    has_log("1/210 kyt_ml_welcomemsg_search  error 268435457 [CTL/msg/cmdrpy.TID]");
    EXPECT_EQ(-1, create_cmdrpy(job(), COMMAND_HELP, nullptr, VARIANT_NORMAL));
    has_log("1/212 kyt_ml_helpmsg_search  rval=10000001  mlname=mylist domain=example.jp");
    EXPECT_TRUE(reply_file().ends_with(">>> help\r\nSucceeded\r\n-\r\n"));
}

TEST_F(ReplyText, AHostThatNeverEndsItsHelpDoesNotHoldTheList)
{
    texts.help = {"again"};
    texts.endless_help = 1;
    EXPECT_TRUE(body(COMMAND_HELP).starts_with("again\r\nagain\r\n"));
    EXPECT_LE(texts.help_calls, 20000);
}

TEST_F(ReplyText, ALongTextOfTheHostIsCutAndTheReplyGoesOn)
{
    texts.welcome = std::string(4095, 'w');
    EXPECT_EQ(std::string(4095, 'w') + "\r\n", body(COMMAND_SUBSCRIBE));
    std::string lines;
    while (lines.size() + 5 <= 4095)
        lines += "\xa4\xe8"
                 "a\r\n"; /* grows with every line when it is converted */
    texts.welcome = lines;
    const std::string text = body(COMMAND_SUBSCRIBE);
    EXPECT_TRUE(text.starts_with("\x1b$B$h\x1b(Ba\r\n"));
    EXPECT_TRUE(text.ends_with("\r\n"));
    EXPECT_LE(text.size(), 4097u);
    EXPECT_GT(text.size(), 4000u);
    texts.welcome = "cut\xa4";
    EXPECT_EQ("cut\r\n", body(COMMAND_SUBSCRIBE)) << "half a character";
}

TEST_F(ReplyText, ATextFileIsReadUnderASharedLock)
{
    list.put("msg/help", "half");
    const std::string path = list.control("msg/help");
    const int editor = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(0, flock(editor, LOCK_EX));
    std::thread finish([&] {
        wait_for_a_waiter(editor);
        EXPECT_EQ(6, write(editor, " done\n", 6));
        close(editor);
    });
    char *text = file2memory(path.c_str());
    finish.join();
    ASSERT_NE(nullptr, text);
    EXPECT_STREQ("half done\n", text);
    host_release(text);
    const int other = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(0, flock(other, LOCK_EX | LOCK_NB)) << "the lock is still held";
    close(other);
}

TEST_F(ReplyText, AFileThatCannotBeReadIsNoTextAndKeepsTheCause)
{
    errno = 0;
    EXPECT_EQ(nullptr, file2memory(list.control("msg/none").c_str()));
    EXPECT_EQ(ENOENT, errno);
    list.put("msg/help", "text");
    const std::string path = list.control("msg/help");
    for (const char *call : {"open", "flock", "fstat", "pread"}) {
        FaultOs fault;
        fault.before = fail_call(call, "msg/help", EIO);
        errno = 0;
        EXPECT_EQ(nullptr, file2memory(path.c_str())) << call;
        EXPECT_EQ(EIO, errno) << call;
    }
    host.fail_allocation = 0;
    EXPECT_EQ(nullptr, file2memory(path.c_str()));
    EXPECT_EQ(ENOMEM, errno);
    host.fail_allocation = -1;
    ASSERT_EQ(0, mkdir(list.control("msg/welcome").c_str(), 0770));
    EXPECT_EQ("\r\n", body(COMMAND_SUBSCRIBE)) << "a directory in the text's place";
}
