/* Replies that cannot be written, and what is said about it. */
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/commands/commands_test.h"

class ReplyFailures : public CommandTest
{
  protected:
    ReplyFailures()
    {
        archive_sample(1);
        archive_sample(2);
    }

    int create(int kind, const char *text = nullptr)
    {
        const std::string box = list.box();
        job()->mailbox = list_mbx_open(box.c_str(), 1);
        const int result = create_cmdrpy(job(), kind, text, VARIANT_NORMAL);
        list_mbx_close(job()->mailbox);
        job()->mailbox = nullptr;
        return result;
    }

    /* The reply fails at its n-th write with a full disk: the line that is logged. */
    void expect_write_failure(int kind, const char *text, int turn, const std::string &wanted)
    {
        SCOPED_TRACE(wanted);
        forget();
        testing::internal::CaptureStderr();
        {
            FaultOs fault;
            fault.before =
                fail_call("write", "msg/cmdrpy." + std::to_string(gettid()), ENOSPC, turn);
            EXPECT_EQ(-1, create(kind, text));
        }
        const std::string printed = testing::internal::GetCapturedStderr();
        has_log("1/" + wanted + " error No space left on device [CTL/msg/cmdrpy.TID]");
        EXPECT_TRUE(printed.starts_with("fputs")) << printed;
        EXPECT_TRUE(printed.ends_with(" error 28 [" + reply_path() + "]\n")) << printed;
        EXPECT_EQ(75, result_code()) << "the host is to try again";
    }

    /* The message file of that number cannot be read on. */
    static std::function<int(const std::string &, const std::string &)>
    fail_reading(const std::string &ending)
    {
        return fail_call("read", ending, EIO);
    }
};

TEST_F(ReplyFailures, EveryStepsWriteHasItsOwnText)
{
    const std::string fputs = " mlname=mylist create_cmdrpy fputs";
    expect_write_failure(COMMAND_OFF, nullptr, 0, "209" + fputs + "1");
    expect_write_failure(COMMAND_SUBSCRIBE, nullptr, 1, "211" + fputs + "2");
    expect_write_failure(COMMAND_HELP, nullptr, 1, "218" + fputs + "4");
    expect_write_failure(COMMAND_MEMBER, nullptr, 1, "221" + fputs);
    expect_write_failure(COMMAND_SUMMARY, "1-2", 1, "228" + fputs + "5");
    expect_write_failure(COMMAND_GET, "1 2", 1, "229" + fputs + "6");
    expect_write_failure(COMMAND_GET, "1 2", 2, "230" + fputs + "7");
    expect_write_failure(COMMAND_PUSH, "1 2", 3, "229" + fputs + "6");
    expect_write_failure(COMMAND_PUSH, "1 2", 4, "230" + fputs + "7");
    expect_write_failure(COMMAND_GET, "1 2", 5, "232" + fputs + "8");
    expect_write_failure(COMMAND_STAT, nullptr, 1, "234" + fputs + "9");
    list.put("msg/welcome", "text");
    expect_write_failure(COMMAND_SUBSCRIBE, nullptr, 1, "213" + fputs + "3");
}

TEST_F(ReplyFailures, TheStreamNamesTheStepThatFailed)
{
    static const struct {
        int kind;
        int turn;
        const char *begins;
        bool own_text;
    } rows[] = {
        {COMMAND_OFF, 0, "fputs1 error ", false},
        {COMMAND_SUBSCRIBE, 1, "fputs2 error ", false},
        {COMMAND_SUBSCRIBE, 1, "fputs3 error ", true},
        {COMMAND_HELP, 1, "fputs4 error ", false},
        {COMMAND_MEMBER, 1, "fputs error ", false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.begins);
        if (row.own_text) list.put("msg/welcome", "text");
        testing::internal::CaptureStderr();
        {
            FaultOs fault;
            fault.before =
                fail_call("write", "msg/cmdrpy." + std::to_string(gettid()), EIO, row.turn);
            EXPECT_EQ(-1, create(row.kind));
        }
        EXPECT_EQ(row.begins + ("5 [" + reply_path()) + "]\n",
                  testing::internal::GetCapturedStderr());
        unlink(list.control("msg/welcome").c_str());
    }
}

TEST_F(ReplyFailures, AHelpThatCannotBeWrittenFailsWithItsSourcesNumber)
{
    texts.help = {"text"};
    expect_write_failure(COMMAND_HELP, nullptr, 1, "215 mlname=mylist create_cmdrpy fputs2");
    list.put("msg/help", "text");
    expect_write_failure(COMMAND_HELP, nullptr, 1, "214 mlname=mylist create_cmdrpy fputs3");
}

TEST_F(ReplyFailures, ALargePartFailsWhileItIsCopied)
{
    archive(3, "Subject: Large\r\n\r\n" + crlf(std::vector<std::string>(20000, "A line of text.")));
    expect_write_failure(COMMAND_GET, "3", 3, "230 mlname=mylist create_cmdrpy fputs7");
}

TEST_F(ReplyFailures, AReplyFileThatCannotBeOpenedIs208)
{
    ASSERT_EQ(0, mkdir(reply_path().c_str(), 0770));
    EXPECT_EQ(-1, create(COMMAND_OFF));
    has_log("1/208 mlname=mylist create_cmdrpy can't open mailfile  Is a directory "
            "[CTL/msg/cmdrpy.TID]");
    ASSERT_EQ(0, rmdir(reply_path().c_str()));
    ASSERT_EQ(0, rmdir(list.control("msg").c_str()));
    EXPECT_EQ(-1, create(COMMAND_OFF));
    has_log("1/208 mlname=mylist create_cmdrpy can't open mailfile  No such file or directory "
            "[CTL/msg/cmdrpy.TID]");
}

TEST_F(ReplyFailures, WithoutMemoryForItsFileAReplyFails)
{
    /* The third is that of the write buffer, which a reply can do without. */
    for (const int nth : {0, 1}) {
        host.fail_allocation = nth;
        EXPECT_EQ(-1, create_cmdrpy(job(), COMMAND_OFF, nullptr, VARIANT_NORMAL)) << nth;
        has_log("1/208 mlname=mylist create_cmdrpy can't open mailfile  Cannot allocate memory "
                "[CTL/msg/cmdrpy.TID]");
    }
    ASSERT_EQ(0, create_cmdrpy(job(), COMMAND_MEMBER, nullptr, VARIANT_NORMAL));
    const std::string whole = reply_file();
    host.fail_allocation = 2;
    EXPECT_EQ(0, create_cmdrpy(job(), COMMAND_MEMBER, nullptr, VARIANT_NORMAL));
    EXPECT_EQ(whole, reply_file());
}

TEST_F(ReplyFailures, AnUnreadableRosterFailsMemberAndStat)
{
    const std::string roster = list.control("member");
    unlink(roster.c_str());
    EXPECT_EQ(-1, create(COMMAND_MEMBER));
    has_log("1/220 mlname=mylist create_cmdrpy can't open information file "
            "No such file or directory [CTL/member]");
    EXPECT_EQ(-1, create(COMMAND_STAT));
    has_log("1/233 mlname=mylist create_cmdrpy can't access information file [CTL/member]");
    forget();

    ASSERT_EQ(0, mkdir(roster.c_str(), 0770));
    EXPECT_EQ(-1, create(COMMAND_MEMBER));
    has_log("1/222 mlname=mylist create_cmdrpy fgets1 error Is a directory [CTL/msg/cmdrpy.TID]");
    ASSERT_EQ(0, rmdir(roster.c_str()));

    list.put("member", "");
    ASSERT_EQ(0, mkdir((roster + ".new").c_str(), 0770));
    EXPECT_EQ(-1, create(COMMAND_MEMBER));
    has_log("1/219 mlname=mylist create_cmdrpy recover error Is a directory [CTL/member]");
    EXPECT_TRUE(host.reply().starts_with("475 ")) << host.reply();
}

TEST_F(ReplyFailures, AMessageThatCannotBeReadOnFailsGetAndSummary)
{
    unlink(message_path(1).c_str());
    ASSERT_EQ(0, mkdir(message_path(1).c_str(), 0770));
    EXPECT_EQ(-1, create(COMMAND_GET, "1 2"));
    has_log("1/231 mlname=mylist create_cmdrpy fgets3 error Is a directory [CTL/msg/cmdrpy.TID]");
    forget();
    EXPECT_EQ(-1, create(COMMAND_SUMMARY, "1-2"));
    has_log("1/226 mlname=mylist create_cmdrpy fgets2 error Is a directory [CTL/msg/cmdrpy.TID]");
}

TEST_F(ReplyFailures, AFailureClosesWhatIsOpenAndTheNextReplyOverwrites)
{
    const int before = dup(0);
    close(before);
    expect_write_failure(COMMAND_GET, "1 2", 4, "230 mlname=mylist create_cmdrpy fputs7");
    expect_write_failure(COMMAND_MEMBER, nullptr, 1, "221 mlname=mylist create_cmdrpy fputs");
    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after) << "a descriptor stayed open";
    EXPECT_NE("", reply_file());
    EXPECT_EQ(0, create(COMMAND_ON));
    EXPECT_TRUE(reply_file().ends_with(">>> on\r\nSucceeded\r\n-\r\n"));
}

TEST_F(ReplyFailures, AReplyThatCannotBeSyncedFails)
{
    FaultOs fault;
    fault.before = fail_call("fsync", "msg/cmdrpy." + std::to_string(gettid()), EIO);
    EXPECT_EQ(-1, create_cmdrpy(job(), COMMAND_OFF, nullptr, VARIANT_NORMAL));
    has_log("1/221 mlname=mylist create_cmdrpy fputs error Input/output error "
            "[CTL/msg/cmdrpy.TID]");
}

/* -- denial notices -- */

class DenialFailures : public CommandTest
{
  protected:
    DenialFailures() { list.put("jnl/j." + tid(), "Subject: x\r\n\r\ntext\r\n"); }
    static std::string tid() { return std::to_string(gettid()); }
};

TEST_F(DenialFailures, EveryStepsWriteHasItsOwnNumber)
{
    static const int numbers[] = {236, 237, 238, 240, 242};
    for (int turn = 0; turn < 5; ++turn) {
        forget();
        testing::internal::CaptureStderr();
        {
            FaultOs fault;
            fault.before = fail_call("write", "msg/mldeny." + tid(), EIO, turn);
            EXPECT_EQ(-1, create_mldeny(job(), ""));
        }
        has_log("1/" + std::to_string(numbers[turn]) +
                " mlname=mylist create_mldeny fputs error Input/output error [CTL/msg/mldeny.TID]");
        EXPECT_EQ("fputs error 5 [" + list.control("msg/mldeny." + tid()) + "]\n",
                  testing::internal::GetCapturedStderr());
    }
}

TEST_F(DenialFailures, FilesThatAreMissingOrUnreadable)
{
    const std::string notice = list.control("msg/mldeny." + tid());
    const std::string journal = list.control("jnl/j." + tid());
    ASSERT_EQ(0, mkdir(notice.c_str(), 0770));
    EXPECT_EQ(-1, create_mldeny(job(), ""));
    has_log("1/235 mlname=mylist create_mldeny can't open mailfile Is a directory "
            "[CTL/msg/mldeny.TID]");
    ASSERT_EQ(0, rmdir(notice.c_str()));
    unlink(journal.c_str());
    EXPECT_EQ(-1, create_mldeny(job(), ""));
    has_log("1/239 mlname=mylist create_mldeny can't open information file "
            "No such file or directory [CTL/jnl/j.TID]");
    ASSERT_EQ(0, mkdir(journal.c_str(), 0770));
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, create_mldeny(job(), ""));
    EXPECT_EQ("fgets error 21 [" + notice + "]\n", testing::internal::GetCapturedStderr());
    has_log("1/241 mlname=mylist create_mldeny fgets error Is a directory [CTL/jnl/j.TID]");
}
