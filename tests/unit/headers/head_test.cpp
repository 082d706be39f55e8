/* header_proc(): the fate of each line, and whole headers. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include "mlist/mlist.h"
#include "tests/support/log_capture.h"
#include "tests/support/out_capture.h"
#include "tests/unit/headers/header_job.h"

using std::string;
using Lines = std::vector<string>;

/* -- whole headers -- */

static const char sample_header[] =
    "From taro@example.com Sun Nov 15 09:13:58 2026\r\n"
    "Received: from mx.example.com (mx.example.com [192.0.2.1])\r\n"
    "\tby mail.lists.example with ESMTP id 4F2A\r\n"
    "\tfor <mylist@lists.example>; Sun, 15 Nov 2026 09:14:00 +0900\r\n"
    "received:by localhost; Sun, 15 Nov 2026 09:13:59 +0900\r\n"
    "Message-ID: <a1@example.com>\r\n"
    "Date: Sun, 15 Nov 2026 09:13:58 +0900\r\n"
    "From: \"Yamada (Sales), Taro\" (work phone)\r\n"
    " <taro@example.com>\r\n"
    "Sender: secretary@example.com\r\n"
    "Reply-To: taro-private@example.com,\r\n"
    " taro-alt@example.com\r\n"
    "Errors-To: bounce@example.com\r\n"
    "To: mylist@lists.example\r\n"
    "Resent-From: x@example.com\r\n"
    "Resent-Sender: y@example.com\r\n"
    "Resent-To: z@example.com\r\n"
    "Disposition-Notification-To: taro@example.com\r\n"
    "X-ML-Name: other@lists.example\r\n"
    "X-Mail-Count: 000099\r\n"
    "Precedence: bulk\r\n"
    "Subject: Re: [mylist:11] Hello\r\n"
    "  World\r\n"
    "From old@example.com Sun Nov 15 09:00:00 2026\r\n"
    "Content-Type: text/plain;\r\n"
    "\tcharset=\"iso-2022-jp\"\r\n";

static const char kept_before_reply_to[] =
    "X-Received:  from mx.example.com (mx.example.com [192.0.2.1])\r\n"
    "\tby mail.lists.example with ESMTP id 4F2A\r\n"
    "\tfor <mylist@lists.example>; Sun, 15 Nov 2026 09:14:00 +0900\r\n"
    "X-Received: by localhost; Sun, 15 Nov 2026 09:13:59 +0900\r\n"
    "Message-ID: <a1@example.com>\r\n"
    "Date: Sun, 15 Nov 2026 09:13:58 +0900\r\n"
    "From: \"Yamada (Sales), Taro\" (work phone)\r\n"
    " <taro@example.com>\r\n";

static const char kept_reply_to[] = "Reply-To: taro-private@example.com,\r\n"
                                    " taro-alt@example.com\r\n";

static const char kept_to_x_ml_name[] = "Errors-To: bounce@example.com\r\n"
                                        "To: mylist@lists.example\r\n"
                                        "Resent-To: z@example.com\r\n"
                                        "X-ML-Name: other@lists.example\r\n";

static const char kept_subject[] = "Subject: Re: [mylist:11] Hello\r\n"
                                   "  World\r\n";

static const char kept_at_the_end[] = "From old@example.com Sun Nov 15 09:00:00 2026\r\n"
                                      "Content-Type: text/plain;\r\n"
                                      "\tcharset=\"iso-2022-jp\"\r\n";

static const char added_name[] = "X-ML-Name: mylist@lists.example\r\n";
static const char added_count[] = "X-Mail-Count: 000012\r\n";
static const char added_precedence[] = "Precedence: list\r\n";
static const char added_reply_to[] = "Reply-To: mylist\r\n";
static const char added_sender[] = "Sender: owner-mylist@lists.example\r\n";
static const char added_subject[] = "Subject: [mylist:12] Re: HelloWorld\r\n";

TEST(WholeHeader, IsRewrittenLineByLine)
{
    HeaderJob job;
    EXPECT_EQ(job.rewrite(sample_header),
              string(kept_before_reply_to) + kept_reply_to + kept_to_x_ml_name + kept_at_the_end +
                  added_name + added_count + added_precedence + added_subject + "\r\n");
    EXPECT_EQ(job->header_mask, 39u);
    EXPECT_STREQ(job->sender, "taro@example.com");
    EXPECT_STREQ(job->message_id, "a1@example.com");
    EXPECT_STREQ(job->xml_name, "other@lists.example");
    EXPECT_EQ(job->content_kind, CONTENT_JIS);
    EXPECT_STREQ(job->subject, "Re: HelloWorld");
    EXPECT_EQ(take_log_lines(), Lines());
}

TEST(WholeHeader, ReplyeditChangePutsTheListsReplyTo)
{
    HeaderJob job;
    job->settings.reply_to_mode = REPLYEDIT_CHANGE;
    EXPECT_EQ(job.rewrite(sample_header),
              string(kept_before_reply_to) + kept_to_x_ml_name + kept_at_the_end + added_name +
                  added_count + added_precedence + added_reply_to + added_subject + "\r\n");
}

TEST(WholeHeader, ReplyeditNoKeepsTheMessagesReplyTo)
{
    HeaderJob job;
    job->settings.reply_to_mode = REPLYEDIT_NO;
    EXPECT_EQ(job.rewrite(sample_header),
              string(kept_before_reply_to) + kept_reply_to + kept_to_x_ml_name + kept_at_the_end +
                  added_name + added_count + added_precedence + added_subject + "\r\n");
}

TEST(WholeHeader, ReplyeditNoAddsNoReplyTo)
{
    HeaderJob job;
    job->settings.reply_to_mode = REPLYEDIT_NO;
    EXPECT_EQ(job.rewrite("From: a@example.com\r\n"),
              string("From: a@example.com\r\n") + added_name + added_count + added_precedence +
                  "Subject: [mylist:12] \r\n\r\n");
}

TEST(WholeHeader, ReplyeditAddPutsTheListsReplyToWhereThereIsNone)
{
    HeaderJob job;
    strcpy(job->settings.reply_to, "mylist@lists.example");
    EXPECT_EQ(job.rewrite("From: a@example.com\r\nSubject: Hello\r\n"),
              string("From: a@example.com\r\n") + added_name + added_count + added_precedence +
                  "Reply-To: mylist@lists.example\r\nSubject: [mylist:12] Hello\r\n\r\n");
}

TEST(WholeHeader, SubjectNoeditLeavesTheSubjectInPlace)
{
    HeaderJob job;
    job->settings.subject_mode = SUBJECT_NOEDIT;
    EXPECT_EQ(job.rewrite(sample_header), string(kept_before_reply_to) + kept_reply_to +
                                              kept_to_x_ml_name + kept_subject + kept_at_the_end +
                                              added_name + added_count + added_precedence + "\r\n");
    EXPECT_STREQ(job->subject, "Re: [mylist:11] HelloWorld");
}

TEST(WholeHeader, ResentHeaderSwitchReplacesTheCountByASender)
{
    HeaderJob job;
    add_resent_header = 1;
    EXPECT_EQ(job.rewrite(sample_header),
              string(kept_before_reply_to) + kept_reply_to + kept_to_x_ml_name + kept_at_the_end +
                  added_name + added_precedence + added_sender + added_subject + "\r\n");
}

TEST(WholeHeader, ReturnPathInAngleBracketsFails)
{
    HeaderJob job;
    EXPECT_EQ(job.rewrite(string("Return-Path: <>\r\n") + sample_header), "");
    EXPECT_EQ(take_log_lines(), Lines{"5/1 header_proc: retpath err"});
}

/* -- one line -- */

struct FateRow {
    const char *label, *line;
    int fate;
    const char *line_after;
};

static const FateRow fate_rows[] = {
    {"received with a blank", "Received: from x\r\n", HEADER_KEEP, "X-Received:  from x\r\n"},
    {"received without one", "RECEIVED:from x\r\n", HEADER_KEEP, "X-Received: from x\r\n"},
    {"received alone", "Received:", HEADER_KEEP, "X-Received: "},
    {"subject", "subject: x\r\n", HEADER_DROP, nullptr},
    {"list name", "x-ml-name: x@y\r\n", HEADER_LOOP_CHECK, nullptr},
    {"list name, LF alone", "X-ML-Name: x@y\n", HEADER_LOOP_CHECK, "X-ML-Name: x@y\r\n"},
    {"list name, no line end", "X-ML-Name:", HEADER_LOOP_CHECK, "X-ML-Name:\r\n"},
    {"mail count", "X-Mail-Count: 1\r\n", HEADER_DROP, nullptr},
    {"precedence", "precedence:bulk\r\n", HEADER_DROP, nullptr},
    {"errors to", "Errors-To: x\r\n", HEADER_KEEP, nullptr},
    {"reply to", "Reply-To: x\r\n", HEADER_KEEP, nullptr},
    {"from", "From: x\r\n", HEADER_KEEP, nullptr},
    {"message id", "MESSAGE-ID: x\r\n", HEADER_KEEP, nullptr},
    {"content type", "Content-Type: x\r\n", HEADER_KEEP, nullptr},
    {"return path without brackets", "Return-Path: a@example.com\r\n", HEADER_KEEP, nullptr},
    {"notification", "disposition-notification-to: x\r\n", HEADER_DROP, nullptr},
    {"resent sender", "Resent-Sender: x\r\n", HEADER_DROP, nullptr},
    {"resent from", "Resent-From: x\r\n", HEADER_DROP, nullptr},
    {"sender", "Sender: x\r\n", HEADER_DROP, nullptr},
    {"resent to", "Resent-To: x\r\n", HEADER_KEEP, nullptr},
    {"x-sender", "X-Sender: x\r\n", HEADER_KEEP, nullptr},
    {"received header of another name", "Received-SPF: x\r\n", HEADER_KEEP, nullptr},
    {"a blank before the colon is another name", "Subject : x\r\n", HEADER_KEEP, nullptr},
    {"no colon", "Sender\r\n", HEADER_KEEP, nullptr},
    {"empty", "", HEADER_KEEP, nullptr},
    {"continuation of nothing", " Sender: x\r\n", HEADER_KEEP, nullptr},
    {"eight-bit", "\xff\xfe: \x80\r\n", HEADER_KEEP, nullptr},
};

TEST(HeaderProc, EachNameHasItsFate)
{
    for (const FateRow &row : fate_rows) {
        HeaderJob job;
        string line = row.line;
        EXPECT_EQ(job.process(line), row.fate) << row.label;
        EXPECT_EQ(line, row.line_after != nullptr ? row.line_after : row.line) << row.label;
        EXPECT_EQ(take_log_lines(), Lines()) << row.label;
    }
}

TEST(HeaderProc, ContinuationLinesShareTheFateOfTheirField)
{
    static const FateRow rows[] = {
        {"received", "Received: x\r\n", HEADER_KEEP, nullptr},
        {"subject", "Subject: x\r\n", HEADER_DROP, nullptr},
        {"list name", "X-ML-Name: x\r\n", HEADER_LOOP_CHECK, nullptr},
        {"sender", "Sender: x\r\n", HEADER_DROP, nullptr},
        {"unknown", "To: x\r\n", HEADER_KEEP, nullptr},
    };
    for (const FateRow &row : rows)
        for (const char *continuation : {" y\r\n", "\ty\r\n", "\tReceived: y\r\n", " \r\n"}) {
            HeaderJob job;
            string line = row.line, next = continuation;
            job.process(line);
            EXPECT_EQ(job.process(next), row.fate) << row.label;
            EXPECT_EQ(next, continuation) << row.label;
        }
}

TEST(HeaderProc, AnUnknownFieldEndsTheFormerOne)
{
    HeaderJob job;
    string sender = "Sender: x\r\n", to = "To: y\r\n", more = " z\r\n";
    EXPECT_EQ(job.process(sender), HEADER_DROP);
    EXPECT_EQ(job->header_index, 15);
    EXPECT_EQ(job.process(to), HEADER_KEEP);
    EXPECT_EQ(job->header_index, -1);
    EXPECT_EQ(job.process(more), HEADER_KEEP);
}

TEST(HeaderProc, ReceivedBecomesXReceivedWithTwoBlanks)
{
    HeaderJob job;
    string line = "Received: from a by b\r\n";
    EXPECT_EQ(job.process(line), HEADER_KEEP);
    EXPECT_EQ(line, "X-Received:  from a by b\r\n");
}

TEST(HeaderProc, OverlongReceivedIsCutAndEndsInLfCr)
{
    /* Name (9) and value; 12 + value + NUL must stay within 4,096. */
    for (const size_t length : {4082u, 4083u, 4084u, 4085u, 4086u}) {
        HeaderJob job;
        const string value(length, 'v');
        string line = "Received:" + value;
        EXPECT_EQ(job.process(line), HEADER_KEEP);
        if (length <= 4083) {
            EXPECT_EQ(line, "X-Received: " + value);
            EXPECT_EQ(take_log_lines(), Lines());
        } else {
            EXPECT_EQ(line, "X-Received: " + string(4081, 'v') + "\n\r");
            EXPECT_EQ(take_log_lines(),
                      Lines{"3/316 mlname=mylist not enough x-received buffer -no edit- [strlen=" +
                            std::to_string(length + 12) + "]"});
        }
    }
}

TEST(HeaderProc, OverlongXmlNameLeavesRoomForItsLineEnd)
{
    for (const char *end : {"", "\n", "\r\n", "\r"})
        for (size_t length = 4070; length + strlen(end) <= 4085; ++length) {
            HeaderJob job;
            string line = "X-ML-Name:" + string(length, 'n') + end;
            EXPECT_EQ(job.process(line), HEADER_LOOP_CHECK);
            EXPECT_TRUE(line.ends_with("n\r\n") || line.ends_with("\r\r\n")) << length;
            EXPECT_GE(line.size(), 10 + length) << length;
        }
}

TEST(HeaderProc, EnvelopeLineIsDroppedOnlyAsTheFirstLine)
{
    HeaderJob job;
    string line = "From a@example.com Sun Nov 15 09:13:58 2026\r\n";
    EXPECT_EQ(job.process(line), HEADER_DROP);
    job->flags = 0;
    EXPECT_EQ(job.process(line), HEADER_KEEP);
    EXPECT_STREQ(job->sender, "");
}

TEST(HeaderProc, ReplyToFollowsTheListsSetting)
{
    static const struct {
        int mode, fate;
        uint32_t mask;
    } rows[] = {{REPLYEDIT_ADD, HEADER_KEEP, 47},
                {REPLYEDIT_CHANGE, HEADER_DROP, 63},
                {REPLYEDIT_NO, HEADER_KEEP, 47}};
    for (const auto &row : rows) {
        HeaderJob job;
        job->settings.reply_to_mode = row.mode;
        string line = "Reply-To: a@example.com\r\n", more = " (Alice)\r\n";
        EXPECT_EQ(job.process(line), row.fate);
        EXPECT_EQ(job.process(more), row.fate);
        EXPECT_EQ(job->header_mask, row.mask);
    }
}

TEST(HeaderProc, ErrorsToClearsItsBit)
{
    HeaderJob job;
    string line = "Errors-To: a@example.com\r\n";
    job.process(line);
    EXPECT_EQ(job->header_mask, 55u);
}

TEST(HeaderProc, SubjectOverThreeLinesIsJoinedDirectly)
{
    HeaderJob job;
    for (string line : {"Subject: One\r\n", "\tTwo\r\n", "  Three\r\n"})
        job.process(line);
    EXPECT_STREQ(job->subject, "OneTwoThree");
}

TEST(HeaderProc, OnlyOneBlankIsSkippedAndOnlyWhereTheFieldWantsIt)
{
    HeaderJob job;
    for (string line :
         {"Subject:  a\r\n", "   b\r\n", "From:  c\r\n", "  d\r\n", "X-ML-Name:  e\r\n"})
        job.process(line);
    EXPECT_STREQ(job->subject, " a b");
    EXPECT_STREQ(job->sender, "  c d");
    EXPECT_STREQ(job->xml_name, " e");
}

TEST(HeaderProc, ATabIsPartOfTheValue)
{
    HeaderJob job;
    for (string line : {"Subject:\ta\r\n", "\t\tb\r\n", "X-ML-Name:\tc\r\n"})
        job.process(line);
    EXPECT_STREQ(job->subject, "\ta\tb");
    EXPECT_STREQ(job->xml_name, "\tc");
}

TEST(HeaderProc, ALaterXmlNameLineReplacesTheValue)
{
    HeaderJob job;
    for (string line : {"X-ML-Name: first@example.jp\r\n", "\tsecond@example.jp\r\n"})
        job.process(line);
    EXPECT_STREQ(job->xml_name, "second@example.jp");
}

TEST(HeaderProc, AFoldedMessageIdIsFound)
{
    HeaderJob job;
    for (string line : {"Message-Id:\r\n", " <a1@example.com>\r\n"})
        job.process(line);
    EXPECT_STREQ(job->message_id, "a1@example.com");
}

TEST(HeaderProc, ReturnPathTable)
{
    static const struct {
        const char *line;
        int fate;
    } rows[] = {
        {"Return-Path: <a@example.com>\r\n", HEADER_FAIL},
        {"Return-Path: <>\r\n", HEADER_FAIL},
        {"Return-Path: a <b\r\n", HEADER_KEEP},
        {"Return-Path: > a <\r\n", HEADER_KEEP},
        {"Return-Path: a@example.com\r\n", HEADER_KEEP},
        {"Return-Path:MAILER-DAEMON@example.com\r\n", HEADER_FAIL},
        {"Return-Path: \t Mailer-Daemon@example.com\r\n", HEADER_FAIL},
        {"Return-Path: MAILER-DAEMON\r\n", HEADER_KEEP},
        {"Return-Path: x-MAILER-DAEMON@example.com\r\n", HEADER_KEEP},
    };
    for (const auto &row : rows) {
        HeaderJob job;
        string line = row.line;
        EXPECT_EQ(job.process(line), row.fate) << row.line;
        EXPECT_EQ(take_log_lines(),
                  row.fate == HEADER_FAIL ? Lines{"5/1 header_proc: retpath err"} : Lines())
            << row.line;
    }
}

TEST(HeaderProc, AFailingCollectorIsNamed)
{
    HeaderJob job;
    job.set_sender(string(4000, 'a'));
    string line = "From: " + string(100, 'b') + "\r\n";
    EXPECT_EQ(job.process(line), HEADER_FAIL);
    EXPECT_EQ(take_log_lines(), (Lines{"1/311 mlname=mylist from too long [len=4101,fromsize=4096]",
                                       "5/1 header_proc: from err"}));
}
