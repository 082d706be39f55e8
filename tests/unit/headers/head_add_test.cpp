/* The lines that the list adds. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include "mlist/mlist.h"
#include "tests/support/log_capture.h"
#include "tests/support/out_capture.h"
#include "tests/unit/headers/header_job.h"

using std::string;
using Lines = std::vector<string>;

static string add(HeaderJob &job, int size = LINE_SIZE)
{
    GuardedBuffer buffer(static_cast<size_t>(size));
    const int result = header_add(buffer.data(), size, job.get());
    EXPECT_TRUE(buffer.intact()) << size;
    if (result < 0) return "FAIL";
    return size > 0 ? buffer.data() : "";
}

TEST(HeaderAdd, WritesEachLineWhoseBitIsSet)
{
    static const struct {
        uint32_t mask;
        const char *lines;
    } rows[] = {
        {1, "X-ML-Name: mylist@lists.example\r\n"},
        {2, "X-Mail-Count: 000012\r\n"},
        {4, "Precedence: list\r\n"},
        {8, ""},
        {16, "Reply-To: mylist\r\n"},
        {32, ""},
        {0, ""},
        {61, "X-ML-Name: mylist@lists.example\r\nPrecedence: list\r\nReply-To: mylist\r\n"}};
    for (const auto &row : rows) {
        HeaderJob job;
        job->header_mask = row.mask;
        EXPECT_EQ(add(job), row.lines) << row.mask;
    }
}

TEST(HeaderAdd, ValuesFollowTheSettings)
{
    static const struct {
        int precedence;
        uint32_t number;
        const char *reply_to, *lines;
    } rows[] = {
        {PRECEDENCE_JUNK, 0, "a@b",
         "X-Mail-Count: 000000\r\nPrecedence: junk\r\nReply-To: a@b\r\n"},
        {PRECEDENCE_BULK, 999999, "a@b",
         "X-Mail-Count: 999999\r\nPrecedence: bulk\r\nReply-To: a@b\r\n"},
        {77, 4294967295u, "a@b",
         "X-Mail-Count: 4294967295\r\nPrecedence: list\r\nReply-To: a@b\r\n"},
    };
    for (const auto &row : rows) {
        HeaderJob job;
        job->header_mask = ADD_XMAIL_COUNT | ADD_PRECEDENCE | ADD_REPLY_TO;
        job->settings.precedence = row.precedence;
        job->new_number = row.number;
        strcpy(job->settings.reply_to, row.reply_to);
        EXPECT_EQ(add(job), row.lines);
    }
}

TEST(HeaderAdd, EachLineMustFitWithItsNul)
{
    static const struct {
        uint32_t mask;
        int bytes;
        const char *name;
        int msgno;
    } rows[] = {{1, 34, "X-ML-Name", 317},
                {2, 23, "X-Mail-Count", 318},
                {4, 19, "Precedence", 319},
                {16, 19, "Reply-To", 321}};
    for (const auto &row : rows)
        for (int size = 0; size < 60; ++size) {
            HeaderJob job;
            OutCapture out;
            job->header_mask = row.mask;
            const string lines = add(job, size);
            if (size >= row.bytes) {
                EXPECT_EQ(static_cast<int>(lines.size()) + 1, row.bytes) << row.name << size;
                EXPECT_EQ(take_log_lines(), Lines());
                continue;
            }
            EXPECT_EQ(lines, "FAIL") << row.name << size;
            EXPECT_EQ(out.take(), string("Add Header Too Long -") + row.name + "-\n");
            EXPECT_EQ(take_log_lines(),
                      Lines{"1/" + std::to_string(row.msgno) +
                            " mlname=mylist Add Header Too Long -" + row.name + "-"});
        }
}

TEST(HeaderAdd, ALaterLineMayBeTheOneTooMany)
{
    HeaderJob enough;
    enough->header_mask = 23;
    EXPECT_EQ(add(enough, 92).size(), 33u + 22 + 18 + 18);
    HeaderJob job;
    OutCapture out;
    job->header_mask = 23;
    EXPECT_EQ(add(job, 91), "FAIL");
    EXPECT_EQ(take_log_lines(), Lines{"1/321 mlname=mylist Add Header Too Long -Reply-To-"});
}

TEST(HeaderAdd, AnySizeStaysWithinTheBuffer)
{
    for (int size = 0; size < 120; ++size) {
        HeaderJob job;
        OutCapture out;
        GuardedBuffer buffer(static_cast<size_t>(size));
        header_add(buffer.data(), size, job.get());
        EXPECT_TRUE(buffer.intact()) << size;
        EXPECT_TRUE(size == 0 || buffer.terminated()) << size;
    }
}

TEST(HeaderAdd2, WritesNothingWhenTheSwitchIsOff)
{
    HeaderJob job;
    GuardedBuffer buffer(10);
    strcpy(buffer.data(), "old");
    EXPECT_EQ(header_add2(buffer.data(), 10, job.get()), 0);
    EXPECT_STREQ(buffer.data(), "");
}

TEST(HeaderAdd2, WritesTheOwnerAsSender)
{
    HeaderJob job;
    add_resent_header = 2;
    char buffer[LINE_SIZE];
    EXPECT_EQ(header_add2(buffer, sizeof buffer, job.get()), 0);
    EXPECT_STREQ(buffer, "Sender: owner-mylist@lists.example\r\n");
}

TEST(HeaderAdd2, ALongPosterAddressIsTooLong)
{
    for (const size_t length : {4085u, 4086u}) {
        HeaderJob job;
        OutCapture out;
        add_resent_header = 1;
        job.set_sender(string(length, 'a'));
        char buffer[LINE_SIZE];
        const int result = header_add2(buffer, sizeof buffer, job.get());
        EXPECT_EQ(result, length == 4085 ? 0 : -1);
        if (result == 0) continue;
        EXPECT_EQ(out.take(), "Add Header Too Long -Resent-*-\n");
        EXPECT_EQ(take_log_lines(), Lines{"1/321 mlname=mylist Add Header Too Long -Resent-*-"});
    }
}

TEST(HeaderAdd2, AnySizeStaysWithinTheBuffer)
{
    for (int size = 0; size < 60; ++size) {
        HeaderJob job;
        OutCapture out;
        add_resent_header = 1;
        GuardedBuffer buffer(static_cast<size_t>(size));
        EXPECT_EQ(header_add2(buffer.data(), size, job.get()), size >= 37 ? 0 : -1) << size;
        EXPECT_TRUE(buffer.intact()) << size;
    }
}
