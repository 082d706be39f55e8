/* "get", "summary" and "push": which messages go out, in how many mails, and what is logged. */
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "module/tcb.h"
#include "tests/unit/commands/commands_test.h"

class ArchiveCommands : public CommandTest
{
  protected:
    static std::string begin() { return "ML Command Log:  mylist carol@example.com\r\n>>> "; }

    /* The numbers that the n-th mail says it holds, and those of its parts. */
    std::string said(size_t n = 0) const
    {
        const std::string mail = sent(n);
        const size_t at = mail.find("\r\n>>> ") + 6;
        return mail.substr(at, mail.find("\r\n", at) - at);
    }
    std::string parts(size_t n = 0) const
    {
        std::string found;
        const std::string mail = sent(n), mark = "\r\nSubject: Number ";
        for (size_t at = mail.find(mark); at != std::string::npos; at = mail.find(mark, at + 1)) {
            const size_t number = at + mark.size();
            found += (found.empty() ? "" : " ") +
                     mail.substr(number, mail.find("\r\n", number) - number);
        }
        return found;
    }

    /* A message of that many bytes. */
    void archive_sized(uint32_t number, size_t size)
    {
        std::string text = "From: a@b\r\nSubject: Number " + std::to_string(number) + "\r\n\r\n";
        while (text.size() + 62 <= size)
            text += std::string(60, 'x') + "\r\n";
        text += std::string(size - text.size(), 'y');
        archive(number, text);
    }
};

/* -- get -- */

class Get : public ArchiveCommands
{
};

TEST_F(Get, MessagesComeAsPartsInAscendingOrder)
{
    for (uint32_t number = 1; number <= 5; ++number)
        archive_sample(number);
    EXPECT_EQ(0, cmd_get(job(), "5 , 3 - 1\r\n"));
    ASSERT_EQ(1u, host.submissions.size());
    EXPECT_EQ("get 1-3,5", said());
    EXPECT_EQ("1 2 3 5", parts());
    EXPECT_EQ((std::vector<std::string>{"5/67 " + begin() + "get 1-3,5\r\nSucceeded"}), log());
    EXPECT_EQ(nullptr, job()->mailbox);
}

TEST_F(Get, AllAndTheAsteriskMeanTheWholeArchive)
{
    for (const uint32_t number : {4, 6, 9})
        archive_sample(number);
    for (const char *text : {"all\r\n", "*\r\n", " ALL", "99,All\r\n", "*,1"}) {
        forget();
        EXPECT_EQ(0, cmd_get(job(), text));
        EXPECT_EQ("4 6 9", parts()) << text;
        EXPECT_EQ("get 4,6,9", said());
    }
}

TEST_F(Get, NumbersThatAreGoneAreLeftOut)
{
    archive_sample(2);
    EXPECT_EQ(0, cmd_get(job(), "1-3\r\n"));
    ASSERT_EQ(1u, host.submissions.size());
    EXPECT_EQ("2", parts());
    EXPECT_EQ("get 2", said());
}

TEST_F(Get, WithoutAnyMessageThereTheAnswerIsFailedAndTheCommandCounts)
{
    archive_sample(2);
    static const struct {
        const char *text, *quoted;
    } rows[] = {
        {"7\r\n", "7"},     {" 9 - 12 , 7 \r\n", "9-12,7"}, {"\r\n", ""},   {"0\r\n", "0"},
        {",,,\r\n", ",,,"}, {"ball\r\n", "ball"},           {"1\r\n", "1"}, {"x,y z\r\n", "x,y z"},
    };
    for (const auto &row : rows) {
        forget();
        EXPECT_EQ(0, cmd_get(job(), row.text)) << row.text;
        ASSERT_EQ(1u, host.submissions.size());
        EXPECT_TRUE(
            sent().ends_with("\r\n>>> get " + std::string(row.quoted) + "\r\nFailed\r\n-\r\n"))
            << sent();
        EXPECT_EQ(
            (std::vector<std::string>{"5/70 " + begin() + "get " + row.quoted + "\r\nFailed"}),
            log());
    }
}

TEST_F(Get, NumbersAreReadModulo32Bits)
{
    archive_sample(2);
    EXPECT_EQ(0, cmd_get(job(), "4294967298"));
    EXPECT_EQ("2", parts());
}

TEST_F(Get, AnEmptyArchiveHasNothing)
{
    for (const char *text : {"all\r\n", "1-9\r\n", "\r\n"}) {
        forget();
        EXPECT_EQ(0, cmd_get(job(), text));
        EXPECT_TRUE(sent().ends_with("\r\nFailed\r\n-\r\n")) << text;
    }
    EXPECT_NE(std::string::npos, sent().find("\r\n>>> get \r\n"));
}

TEST_F(Get, MailsStayWithinTheListsSizeLimit)
{
    for (uint32_t number = 1; number <= 5; ++number)
        archive_sized(number, 512);
    archive_sized(6, 3000);
    archive_sized(7, 512);
    archive_sized(8, 513);
    job()->settings.size_limit = 1;
    EXPECT_EQ(0, cmd_get(job(), "all"));
    std::vector<std::string> mails;
    for (size_t n = 0; n < host.submissions.size(); ++n)
        mails.push_back(parts(n));
    EXPECT_EQ((std::vector<std::string>{"1 2", "3 4", "5", "6", "7", "8"}), mails)
        << "1,024 bytes fit exactly, 1,025 do not, and a large message goes alone";
    EXPECT_EQ("get 1,2", said(0));
    EXPECT_EQ("get 6", said(3));
    std::vector<std::string> wanted;
    for (const char *numbers : {"1,2", "3,4", "5", "6", "7", "8"})
        wanted.push_back("5/67 " + begin() + "get " + numbers + "\r\nSucceeded");
    EXPECT_EQ(wanted, log());
}

TEST_F(Get, WithoutALimitOneMailHoldsThemAll)
{
    for (uint32_t number = 1; number <= 40; ++number)
        archive_sized(number, 5000);
    EXPECT_EQ(0, cmd_get(job(), "all"));
    ASSERT_EQ(1u, host.submissions.size());
    EXPECT_EQ("get 1-40", said());
    job()->settings.size_limit = 0x7FFFFFFF;
    EXPECT_EQ(0, cmd_get(job(), "all"));
    EXPECT_EQ(2u, host.submissions.size()) << "the limit in bytes needs 64 bits";
}

TEST_F(Get, TheNumberListOfAMailStaysWithin4096Characters)
{
    /* Every second number from 100,001: six characters, and seven for each further one. */
    for (uint32_t i = 0; i < 600; ++i)
        archive_sample(100001 + 2 * i);
    EXPECT_EQ(0, cmd_get(job(), "all"));
    ASSERT_EQ(2u, host.submissions.size());
    const std::string first = parts(0), second = parts(1);
    EXPECT_EQ(585u, static_cast<size_t>(std::count(first.begin(), first.end(), ' ')) + 1);
    EXPECT_EQ(6u + 584 * 7, first.size());
    EXPECT_TRUE(second.starts_with(std::to_string(100001 + 2 * 585) + " ")) << second;
    EXPECT_EQ("get " + first, said(0)) << "the long list is shown as it is";
}

TEST_F(Get, AMailThatCannotBeSentEndsTheCommand)
{
    for (uint32_t number = 1; number <= 3; ++number)
        archive_sized(number, 1024);
    job()->settings.size_limit = 1;
    host.accept = 0;
    EXPECT_EQ(-1, cmd_get(job(), "all"));
    EXPECT_EQ(1u, host.submissions.size());
    EXPECT_EQ(nullptr, job()->mailbox) << "the archive is closed on every path";
}

TEST_F(Get, AnArchiveThatCannotBeOpenedFails)
{
    unlink(list.box("#mix").c_str());
    rmdir(list.box("#msg").c_str());
    rmdir(list.box().c_str());
    EXPECT_EQ(-1, cmd_get(job(), "1"));
    has_log("1/63 mlname=mylist cmd_get():mbxopen failure[fn=BOX]");
    EXPECT_EQ(-1, cmd_summary(job(), "1"));
    has_log("1/56 mlname=mylist cmd_summary():mbxopen failure[fn=BOX]");
    EXPECT_EQ(-1, cmd_push(job()));
    has_log("1/71 mlname=mylist cmd_push():mbxopen failure[fn=BOX]");
    EXPECT_TRUE(host.submissions.empty());
}

TEST_F(Get, WithoutMemoryForTheSetItFails)
{
    archive_sample(1);
    long opening = host.allocations;
    EXPECT_EQ(0, cmd_get(job(), "7")); /* counts what opening takes: the set comes right behind */
    opening = host.allocations - opening;
    bool found = false;
    for (long nth = 0; nth < opening && !found; ++nth) {
        forget();
        host.fail_allocation = nth;
        const int result = cmd_get(job(), "7");
        host.fail_allocation = -1;
        const std::vector<std::string> lines = log();
        found = std::count(lines.begin(), lines.end(),
                           "1/64 mlname=mylist conv_argstr fail at get") == 1;
        if (!found) continue;
        EXPECT_EQ(-1, result);
        EXPECT_EQ("1/2 convert_arg : mlname=mylist memory allocation failed "
                  "Cannot allocate memory",
                  lines.at(0));
    }
    EXPECT_TRUE(found);
}

/* -- summary -- */

class SummaryCommand : public ArchiveCommands
{
};

TEST_F(SummaryCommand, ShowsTheArgumentAsNormalised)
{
    archive_sample(3);
    EXPECT_EQ(0, cmd_summary(job(), "\r\n"));
    EXPECT_TRUE(sent().ends_with("\r\n>>> summary \r\nSucceeded\r\n-\r\n"
                                 "2026/11/15 09:13 [3:alice@example.] Number 3\r\n"));
    EXPECT_EQ((std::vector<std::string>{"5/59 " + begin() + "summary\r\nSucceeded"}), log());
    forget();
    EXPECT_EQ(0, cmd_summary(job(), "\t 3 -\t 3 \r\n"));
    EXPECT_EQ("summary 3-3", said());
    forget();
    EXPECT_EQ(0, cmd_summary(job(), "LAST: 2\n"));
    EXPECT_EQ("summary LAST: 2", said());
    EXPECT_EQ(nullptr, job()->mailbox);
}

TEST_F(SummaryCommand, AMalformedArgumentIsAnsweredFailedAndCounts)
{
    archive_sample(5);
    EXPECT_EQ(0, cmd_summary(job(), " 5 \r\n"));
    EXPECT_TRUE(sent().ends_with("\r\n>>> summary 5\r\nFailed\r\n-\r\n"));
    EXPECT_EQ(
        (std::vector<std::string>{"1/223 mlname=mylist create_cmdrpy summcov_argstr fail[str=5]",
                                  "5/62 " + begin() + "summary 5\r\nFailed"}),
        log());
    EXPECT_EQ(nullptr, job()->mailbox);
    forget();
    FaultOs fault;
    fault.before = fail_call("open", "msg/cmdrpy." + std::to_string(gettid()), EROFS, 1);
    EXPECT_EQ(-1, cmd_summary(job(), "5"));
    has_log("1/60 mlname=mylist create cmdrpy fail -error- at summary");
}

/* -- push -- */

class Push : public ArchiveCommands
{
  protected:
    Push()
    {
        send_as("owner-mylist@example.jp");
        list.put("digest", "dora@example.jp\r\n");
        for (uint32_t number = 1; number <= 4; ++number)
            archive_sample(number);
    }
};

TEST_F(Push, ThePendingDigestGoesToTheHostWithItsNumbers)
{
    list.put("dgtstat", "2-3,9");
    EXPECT_EQ(0, cmd_push(job()));
    ASSERT_EQ(1u, host.submissions.size());
    const Submission &mail = host.submissions[0];
    EXPECT_EQ(reply_path(), mail.file);
    EXPECT_EQ("owner-mylist@example.jp", mail.envelope_sender);
    EXPECT_FALSE(mail.has_recipients);
    EXPECT_TRUE(mail.has_recipient_file);
    EXPECT_EQ("2 3", mail.recipient_file);
    EXPECT_TRUE(mail.result_was_zeroed);
    EXPECT_EQ("2 3", parts());
    EXPECT_NE(std::string::npos, mail.content.find("\r\nDigest Mails:\r\n\r\n>>> 2,3\r\n-\r\n"));
    EXPECT_FALSE(exists(reply_path()));
    EXPECT_EQ("", list.get("dgtstat"));
    EXPECT_EQ((std::vector<std::string>{"5/76 Digest Mails Log:  mylist 2,3\r\nSucceeded"}), log());
}

TEST_F(Push, ALargeDigestIsSentInBatches)
{
    list.put("dgtstat", "1-4");
    job()->settings.size_limit = 0x7FFFFFFF;
    EXPECT_EQ(0, cmd_push(job()));
    EXPECT_EQ(1u, host.submissions.size());
    forget();
    for (uint32_t number = 5; number <= 8; ++number)
        archive_sized(number, 600);
    list.put("dgtstat", "5-8");
    job()->settings.size_limit = 1;
    EXPECT_EQ(0, cmd_push(job()));
    ASSERT_EQ(4u, host.submissions.size());
    for (size_t n = 0; n < 4; ++n)
        EXPECT_EQ(std::to_string(n + 5), host.submissions[n].recipient_file);
}

TEST_F(Push, WithNothingPendingTheStatusIsResetAllTheSame)
{
    for (const char *pending : {"", "9-12", "0"}) {
        list.put("dgtstat", pending);
        forget();
        EXPECT_EQ(0, cmd_push(job()));
        EXPECT_TRUE(host.submissions.empty());
        EXPECT_EQ("", list.get("dgtstat"));
        EXPECT_EQ(
            (std::vector<std::string>{"5/77 Digest Mails Log:  mylist (nothing)\r\nSucceeded"}),
            log());
    }
}

TEST_F(Push, WithoutDigestMembersNothingIsSentAndTheStatusIsReset)
{
    list.put("digest", "");
    list.put("dgtstat", "1-4");
    EXPECT_EQ(0, cmd_push(job()));
    EXPECT_TRUE(host.submissions.empty());
    EXPECT_FALSE(exists(reply_path()));
    EXPECT_EQ("", list.get("dgtstat"));
    EXPECT_EQ((std::vector<std::string>{"1/249 mlname=mylist notexist_digest digest file empty",
                                        "5/76 Digest Mails Log:  mylist 1-4\r\nSucceeded"}),
              log());
}

TEST_F(Push, ExpiredConfirmationsAreSwept)
{
    list.put("confirm", "a@x 0126/10/15:09:24 0123456789ABCDEF\r\n"
                        "b@x 9999/10/15:09:24 0123456789ABCDEF\r\n");
    EXPECT_EQ(0, cmd_push(job()));
    EXPECT_EQ("b@x 9999/10/15:09:24 0123456789ABCDEF\r\n", list.get("confirm"));
}

TEST_F(Push, ADigestThatIsNotTakenStaysPending)
{
    list.put("dgtstat", "1-4");
    host.accept = 0;
    EXPECT_EQ(-1, cmd_push(job()));
    EXPECT_EQ("1-4", list.get("dgtstat"));
    EXPECT_EQ((std::vector<std::string>{"1/75 mlname=mylist mailfile fail at push"}), log());
    EXPECT_EQ(nullptr, job()->mailbox);
}

TEST_F(Push, EveryFileFailureHasItsOwnText)
{
    list.put("dgtstat", "1\r\n2\r\n");
    EXPECT_EQ(-1, cmd_push(job()));
    has_log("1/72 mlname=mylist get_dstfile fail at push");
    list.put("dgtstat", "1");
    {
        FaultOs fault;
        fault.before = fail_call("open", "dgtstat.new", EDQUOT);
        EXPECT_EQ(-1, cmd_push(job()));
        has_log("1/78 mlname=mylist reset_dstfile fail at push");
        EXPECT_EQ(1u, host.submissions.size());
    }
    unlink(list.control("confirm").c_str());
    EXPECT_EQ(-1, cmd_push(job()));
    has_log("1/79 mlname=mylist cln cnfrmdb error at push");
    EXPECT_EQ("", list.get("dgtstat"));
    EXPECT_EQ(nullptr, job()->mailbox);
}

TEST_F(Push, WithoutMemoryForTheSetTheDigestStaysPending)
{
    list.put("dgtstat", "1-4");
    bool found = false;
    for (long nth = 0; nth < 40 && !found; ++nth) {
        forget();
        host.fail_allocation = nth;
        const int result = cmd_push(job());
        host.fail_allocation = -1;
        const std::vector<std::string> lines = log();
        found = std::count(lines.begin(), lines.end(),
                           "1/73 mlname=mylist conv_argstr fail at push") == 1;
        if (found) {
            EXPECT_EQ(-1, result);
            EXPECT_EQ("1-4", list.get("dgtstat"));
        }
        list.put("dgtstat", "1-4");
    }
    EXPECT_TRUE(found);
}
