/* header_sub(): Subject lines byte for byte, and each way in which they fail. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include "mlist/mlist.h"
#include "tests/support/log_capture.h"
#include "tests/support/out_capture.h"
#include "tests/unit/headers/header_job.h"

using std::string;
using Lines = std::vector<string>;

static string subject_line(HeaderJob &job, int size = LINE_SIZE)
{
    GuardedBuffer buffer(static_cast<size_t>(size));
    const int result = header_sub(buffer.data(), size, job.get());
    EXPECT_TRUE(buffer.intact()) << size;
    if (result < 0) return "FAIL";
    return buffer.data();
}

struct SubjectRow {
    const char *label, *subject, *line;
};

static const SubjectRow subject_rows[] = {
    {"plain", "Hello", "[mylist:00012] Hello"},
    {"reply to a tagged subject", "Re: [mylist:00011] Hello", "[mylist:00012] Re: Hello"},
    {"many prefixes", "Re: RE:re:  Hello", "[mylist:00012] Re: Hello"},
    {"prefix behind the tag", "[mylist:00011] Re: Hello", "[mylist:00012] Re: Hello"},
    {"two prefixes behind the tag", "[mylist:00011] RE: Re: Hello", "[mylist:00012] RE: Re: Hello"},
    {"prefixes on both sides", "Re: [mylist:00011] RE: re:Hello", "[mylist:00012] Re: Hello"},
    {"tag of another list", "[otherlist:00003] Hello", "[mylist:00012] [otherlist:00003] Hello"},
    {"case of the tag matters", "Re: [MyList:00011] Hello",
     "[mylist:00012] Re: [MyList:00011] Hello"},
    {"kanji",
     "=?iso-2022-jp?B?GyRCRnxLXDhsGyhC?=", "[mylist:00012] =?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?="},
    {"old tag inside the word",
     "Re: =?ISO-2022-JP?B?W215bGlzdDowMDAxMV0gGyRCMnE1RCROJCpDTiRpJDsbKEI=?=",
     "[mylist:00012] Re: =?ISO-2022-JP?B?GyRCMnE1RCROJCpDTiRpGyhC?=\r\n\t"
     "=?ISO-2022-JP?B?GyRCJDsbKEI=?="},
    {"three adjacent words",
     "=?ISO-2022-JP?B?GyRCQmg9PUZzMnM+cEpzPWhNfTNYMnE0WEA+GyhC?="
     "=?ISO-2022-JP?B?GyRCO1lJdEJnMnEzKzpFMEZGYjVaOzIyQzxUGyhC?="
     "=?ISO-2022-JP?B?GyRCSmc9OE1XOWBHW0lbGyhC?=",
     "[mylist:00012] =?ISO-2022-JP?B?GyRCQmg9PUZzMnM+cEpzPWgbKEI=?=\r\n\t"
     "=?ISO-2022-JP?B?GyRCTX0zWDJxNFhAPhsoQg==?=\r\n\t"
     "=?ISO-2022-JP?B?GyRCO1lJdEJnMnEzKzpFMEZGYjVaOzIyQzxUGyhC?=\r\n\t"
     "=?ISO-2022-JP?B?GyRCSmc9OE1XOWBHW0lbGyhC?="},
    {"kanji between ASCII",
     "ABC =?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?= DEF =?ISO-2022-JP?B?GyRCMnE1RDw8TT1McxsoQg==?=",
     "[mylist:00012] ABC =?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?= DEF \r\n\t"
     "=?ISO-2022-JP?B?GyRCMnE1RDw8TT1McxsoQg==?="},
    {"another charset stays encoded",
     "=?UTF-8?B?5Lya6K2w?=", "[mylist:00012] =?UTF-8?B?5Lya6K2w?="},
    {"no subject", "", "[mylist:00012] "},
    {"only prefixes", "Re: re:", "[mylist:00012] Re: "},
    {"only a tag", "[mylist:1]", "[mylist:00012] "},
    {"fold blank lost", "HelloWorld", "[mylist:00012] HelloWorld"},
    {"leading blanks", " \t Hello", "[mylist:00012] Hello"},
};

TEST(HeaderSub, WritesTheTaggedSubject)
{
    for (const SubjectRow &row : subject_rows) {
        HeaderJob job;
        job.set_format("[%M:%0S]");
        job.set_subject(row.subject);
        EXPECT_EQ(subject_line(job), string("Subject: ") + row.line + "\r\n") << row.label;
        EXPECT_EQ(take_log_lines(), Lines()) << row.label;
    }
}

TEST(HeaderSub, RemovesBracketGroupsWhenSwitchedOn)
{
    static const SubjectRow rows[] = {
        {"groups", "[foo] (bar) Hello", "[mylist:00012] Hello"},
        {"groups behind a prefix", "Re: [foo] (bar) Hello", "[mylist:00012] Re: Hello"},
        {"other kind closes first", "[foo) x] Hello", "[mylist:00012] [foo) x] Hello"},
        {"not closed", "[foo Hello", "[mylist:00012] [foo Hello"},
        {"old tag goes as a group", "[mylist:00011] Hello", "[mylist:00012] Hello"},
        {"prefix between groups", "Re: [a] re: (b) Hello", "[mylist:00012] Re: Hello"},
        {"bracket bytes of kanji are none", "[=?ISO-2022-JP?B?GyRCJV0lOSVIGyhC?=] Hello",
         "[mylist:00012] Hello"},
    };
    for (const SubjectRow &row : rows) {
        HeaderJob job;
        force_remove_bracket = 1;
        job.set_format("[%M:%0S]");
        job.set_subject(row.subject);
        EXPECT_EQ(subject_line(job), string("Subject: ") + row.line + "\r\n") << row.label;
    }
}

TEST(HeaderSub, EmptyFormatLeavesTwoBlanks)
{
    HeaderJob job;
    job.set_format("");
    job.set_subject("Hello");
    EXPECT_EQ(subject_line(job), "Subject:  Hello\r\n");
}

TEST(HeaderSub, StoresTheCleanedSubject)
{
    static const struct {
        const char *subject, *edited, *not_edited;
    } rows[] = {
        {"Re:x", "Re: x", "Re:x"},
        {"re: [mylist:3] RE: Hello", "Re: Hello", "re: [mylist:3] RE: Hello"},
        {"[mylist:3] Hello", "Hello", "[mylist:3] Hello"},
        {"=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?=", KANJI "F|K\\8l" ASCII, KANJI "F|K\\8l" ASCII},
        {"", "", ""},
    };
    for (const auto &row : rows) {
        HeaderJob edit;
        edit.set_subject(row.subject);
        EXPECT_NE(subject_line(edit), "FAIL");
        EXPECT_STREQ(edit->subject, row.edited);

        HeaderJob noedit;
        noedit->settings.subject_mode = SUBJECT_NOEDIT;
        noedit.set_subject(row.subject);
        EXPECT_EQ(subject_line(noedit), "");
        EXPECT_STREQ(noedit->subject, row.not_edited);
    }
}

TEST(HeaderSub, ACleanedReplyThatDoesNotFitIsCut)
{
    HeaderJob job;
    OutCapture out;
    job.set_subject("Re:" + string(4092, 'x'));
    EXPECT_EQ(subject_line(job), "FAIL");
    EXPECT_EQ(job->subject, "Re: " + string(4076, 'x'));
    EXPECT_EQ(take_log_lines(),
              (Lines{"3/331 mlname=mylist not enought summary buffer -edit re- [strlen=4096]",
                     "1/334 mlname=mylist work buffer too short (make ML header)"}));
    EXPECT_EQ(out.take(), "work buffer too short (make ML header)\n");
}

TEST(HeaderSub, ASubjectThatFillsItsFieldFails)
{
    HeaderJob job;
    OutCapture out;
    memset(job->subject, 'x', sizeof job->subject);
    EXPECT_EQ(subject_line(job), "FAIL");
    EXPECT_EQ(out.take(), "work buffer too short (LEN_LINE)\n");
    EXPECT_EQ(take_log_lines(), Lines{"1/328 mlname=mylist work buffer too short (LEN_LINE)"});
}

TEST(HeaderSub, AWordThatCannotBeDecodedFails)
{
    HeaderJob job;
    OutCapture out;
    job.set_subject("=?ISO-2022-JP?B?@@?=");
    EXPECT_EQ(subject_line(job), "FAIL");
    EXPECT_EQ(out.take(), "head_sub decode2 fail\n");
    EXPECT_TRUE(logged(323, "base64_decode fail"));
    EXPECT_TRUE(logged(329, "mlname=mylist head_sub decode fail"));
    take_log();
}

TEST(HeaderSub, ATextTooLongForTheWorkBufferFails)
{
    /* "Subject: [mylist:12] " is 21 characters. */
    for (const size_t length : {4074u, 4075u}) {
        HeaderJob job;
        OutCapture out;
        job.set_subject(string(length, 'x'));
        GuardedBuffer buffer(5000);
        EXPECT_EQ(header_sub(buffer.data(), 5000, job.get()), length == 4074 ? 0 : -1);
        EXPECT_EQ(job->subject, string(length, 'x'));
        if (length == 4074) continue;
        EXPECT_EQ(out.take(), "work buffer too short (make ML header)\n");
        EXPECT_EQ(take_log_lines(),
                  Lines{"1/334 mlname=mylist work buffer too short (make ML header)"});
    }
}

TEST(HeaderSub, TheLongestTagFitsItsBuffer)
{
    /* 31 times the longest list name: no format makes a longer tag. */
    HeaderJob job;
    memset(job->list_name, 'l', LIST_NAME_SIZE - 1);
    string format;
    for (int i = 0; i < 31; ++i)
        format += "%M";
    job.set_format(format);
    EXPECT_EQ(subject_line(job), "Subject: " + string(31 * 63, 'l') + " \r\n");
}

TEST(HeaderSub, ASubjectThatOutgrowsItsBufferInEncodingFails)
{
    HeaderJob job;
    OutCapture out;
    string subject;
    for (int i = 0; i < 200; ++i)
        subject += KANJI "F|" ASCII;
    job.set_subject(subject);
    EXPECT_EQ(subject_line(job), "FAIL");
    EXPECT_EQ(out.take(), "head_sub encode fail\n");
    EXPECT_EQ(take_log_lines(), (Lines{"1/327 string too long (encode_b64)",
                                       "1/335 mlname=mylist head_sub encode fail"}));
}

TEST(HeaderSub, TheLineMustFitItsBuffer)
{
    /* "Subject: [mylist:12] Hello" and CR LF: 28 characters and the NUL. */
    for (int size = 0; size < 40; ++size) {
        HeaderJob job;
        OutCapture out;
        job.set_subject("Hello");
        const string line = subject_line(job, size);
        if (size >= 29) {
            EXPECT_EQ(line, "Subject: [mylist:12] Hello\r\n");
            continue;
        }
        EXPECT_EQ(line, "FAIL");
        const string given = std::to_string(size);
        EXPECT_EQ(out.take(), "input buffer too short [sz=" + given + "]\n");
        EXPECT_EQ(take_log_lines(),
                  Lines{"1/336 mlname=mylist input buffer too short [sz=" + given + "]"});
    }
}

TEST(HeaderSub, ALineEndHiddenInAWordAddsNoLine)
{
    HeaderJob job;
    /* "a" CR LF "Bcc: x" */
    job.set_subject("=?ISO-2022-JP?B?YQ0KQmNjOiB4?=");
    EXPECT_EQ(subject_line(job), "Subject: [mylist:12] a  Bcc: x\r\n");
}

TEST(HeaderSub, HostileSubjectsStayWithinEveryBuffer)
{
    const std::vector<string> parts = {"=?ISO-2022-JP?B?",
                                       "=?ISO-2022-JP?Q?",
                                       "?=",
                                       "=1B",
                                       "=",
                                       "=1B$B",
                                       KANJI,
                                       ASCII,
                                       ESC "$@",
                                       ESC "(J",
                                       ESC,
                                       "GyRC",
                                       "F|",
                                       "[",
                                       "]",
                                       "(",
                                       ")",
                                       "re:",
                                       "mylist:",
                                       "7",
                                       " ",
                                       "\t",
                                       "\x80\xff",
                                       "%M",
                                       "\r"};
    OutCapture out;
    for (uint32_t seed = 0; seed < 20000; ++seed) {
        RandomBytes random(seed);
        HeaderJob job;
        force_remove_bracket = static_cast<int32_t>(random.below(3));
        string subject;
        for (uint32_t i = random.below(60); i > 0; --i)
            subject += parts[random.below(static_cast<uint32_t>(parts.size()))];
        job.set_subject(subject);
        const string line = subject_line(job);
        if (line == "FAIL") continue;
        ASSERT_TRUE(line.ends_with("\r\n"));
        ASSERT_EQ(unfold(line).find('\n'), unfold(line).size() - 1) << line;
    }
    take_log();
}
