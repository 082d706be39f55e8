/* The collectors, also with lengths that no line of the pipeline has. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include "tests/support/log_capture.h"
#include "tests/support/out_capture.h"
#include "tests/unit/headers/header_job.h"

using std::string;
using Lines = std::vector<string>;

/* -- subject -- */

TEST(HeadSubject, StripsLineEndsAndAppends)
{
    HeaderJob job;
    EXPECT_EQ(head_subject(job.get(), "a \r\n"), 0);
    EXPECT_EQ(head_subject(job.get(), "\r\n"), 0);
    EXPECT_EQ(head_subject(job.get(), "b\r\r\n\n"), 0);
    EXPECT_EQ(head_subject(job.get(), ""), 0);
    EXPECT_STREQ(job->subject, "a b");
}

TEST(HeadSubject, CollectsExactly1024Characters)
{
    HeaderJob job;
    head_subject(job.get(), string(1000, 'a').c_str());
    head_subject(job.get(), (string(24, 'b') + "\r\n").c_str());
    EXPECT_EQ(job->subject, string(1000, 'a') + string(24, 'b'));
    EXPECT_EQ(job->flags & JOB_SUBJECT_OVERFLOW, 0u);
    EXPECT_EQ(take_log_lines(), Lines());
}

TEST(HeadSubject, StopsAtThePieceThatWouldOverflow)
{
    HeaderJob job;
    head_subject(job.get(), string(1000, 'a').c_str());
    EXPECT_EQ(head_subject(job.get(), string(25, 'b').c_str()), 0);
    EXPECT_EQ(take_log_lines(), Lines{"3/310 mlname=mylist subject over flow [mx=1024]"});
    EXPECT_NE(job->flags & JOB_SUBJECT_OVERFLOW, 0u);
    EXPECT_EQ(head_subject(job.get(), "c"), 0);
    EXPECT_EQ(job->subject, string(1000, 'a'));
    EXPECT_EQ(take_log_lines(), Lines());
}

/* -- sender -- */

TEST(HeadFrom, CollectsUpTo4095Characters)
{
    HeaderJob job;
    EXPECT_EQ(head_from(job.get(), (string(4000, 'a') + "\r\n").c_str()), 0);
    EXPECT_EQ(head_from(job.get(), string(95, 'b').c_str()), 0);
    EXPECT_EQ(strlen(job->sender), 4095u);
    EXPECT_EQ(head_from(job.get(), "\r\n"), 0);
    EXPECT_EQ(head_from(job.get(), "c"), -1);
    EXPECT_EQ(take_log_lines(),
              Lines{"1/311 mlname=mylist from too long [len=4096,fromsize=4096]"});
    EXPECT_EQ(job->sender, string(4000, 'a') + string(95, 'b'));
}

/* -- X-ML-Name -- */

static int collect_xml_name(HeaderJob &job, string &value)
{
    GuardedBuffer buffer(value.size() + 3);
    memcpy(buffer.data(), value.c_str(), value.size() + 1);
    const int result = head_xmlname(job.get(), buffer.data());
    EXPECT_TRUE(buffer.intact());
    value = buffer.data();
    return result;
}

TEST(HeadXmlname, StoresTheValueAndEndsItWithCrLf)
{
    static const struct {
        const char *value, *stored;
    } rows[] = {{"a@b\r\n", "a@b"}, {"a@b\n", "a@b"}, {"a@b", "a@b"}, {"a@b\r", "a@b\r"},
                {"\r\n", ""},       {"", ""},         {"\n", ""},     {"a\n\n", "a\n"}};
    for (const auto &row : rows) {
        HeaderJob job;
        string value = row.value;
        EXPECT_EQ(collect_xml_name(job, value), 0);
        EXPECT_STREQ(job->xml_name, row.stored);
        EXPECT_EQ(value, string(row.stored) + "\r\n");
    }
}

TEST(HeadXmlname, LengthsAroundTheLimit)
{
    static const struct {
        size_t length;
        const char *end;
        int msgno; /* 0: fits */
    } rows[] = {{4095, "", 0},     {4094, "\r\n", 0}, {4095, "\n", 0},    {4096, "", 314},
                {4096, "\n", 313}, {4097, "", 313},   {5000, "\r\n", 313}};
    for (const auto &row : rows) {
        HeaderJob job;
        OutCapture out;
        string value = string(row.length, 'x') + row.end;
        const string given = std::to_string(value.size());
        EXPECT_EQ(collect_xml_name(job, value), row.msgno == 0 ? 0 : -1);
        if (row.msgno == 0) {
            EXPECT_EQ(job->xml_name, string(row.length, 'x'));
            EXPECT_EQ(take_log_lines(), Lines());
        } else {
            EXPECT_EQ(out.take(), "xmlname too long [sl=" + given + "]\n");
            EXPECT_EQ(take_log_lines(), Lines{"1/" + std::to_string(row.msgno) +
                                              " xmlname too long [strlen=" + given + "]"});
        }
    }
}

/* -- message id -- */

TEST(HeadMsgid, StoresTheTextBetweenTheBrackets)
{
    static const struct {
        const char *value, *stored;
    } rows[] = {{" <a1@example.com>\r\n", "a1@example.com"},
                {"x<y>z<w>", "y"},
                {"<>", ""},
                {">a<b>", "b"},
                {"<<a>>", "<a"},
                {" a1@example.com\r\n", "old"},
                {"<a1@example.com\r\n", "old"},
                {"", "old"}};
    for (const auto &row : rows) {
        HeaderJob job;
        strcpy(job->message_id, "old");
        EXPECT_EQ(head_msgid(job.get(), row.value), 0);
        EXPECT_STREQ(job->message_id, row.stored) << row.value;
    }
}

TEST(HeadMsgid, LengthsAroundTheLimit)
{
    HeaderJob job;
    OutCapture out;
    EXPECT_EQ(head_msgid(job.get(), ("<" + string(4094, 'i') + ">").c_str()), 0);
    EXPECT_EQ(job->message_id, string(4094, 'i'));
    EXPECT_EQ(head_msgid(job.get(), ("<" + string(4095, 'j') + ">").c_str()), -1);
    EXPECT_EQ(job->message_id, string(4094, 'i'));
    EXPECT_EQ(out.take(), "message-id too long [sl=4097]\n");
    EXPECT_EQ(take_log_lines(), Lines{"1/315 mlname=mylist message-id too long [strlen=4097]"});
}

/* -- content type -- */

struct ContentRow {
    const char *label;
    std::vector<const char *> pieces;
    int kind;
};

static const ContentRow content_rows[] = {
    {"plain with a foreign charset", {" text/plain; charset=us-ascii\r\n"}, CONTENT_PLAIN},
    {"plain in JIS", {" text/plain; charset=iso-2022-jp\r\n"}, CONTENT_JIS},
    {"case does not matter", {"TEXT/PLAIN;CHARSET=ISO-2022-JP"}, CONTENT_JIS},
    {"quoted, with blanks", {" text/plain; charset \t= \" iso-2022-jp\""}, CONTENT_JIS},
    {"a longer charset name", {"text/plain;charset=iso-2022-jp-2"}, CONTENT_JIS},
    {"charset in the next line", {" text/plain;\r\n", "charset=iso-2022-jp\r\n"}, CONTENT_JIS},
    {"charset cut by the fold", {" text/plain; charset=\r\n", "iso-2022-jp\r\n"}, CONTENT_JIS},
    {"type in the next line", {"\r\n", "text/plain; charset=iso-2022-jp\r\n"}, CONTENT_JIS},
    {"blank line before it", {" \t\r\n", " text/plain; x=y\r\n"}, CONTENT_PLAIN},
    {"no parameter", {" text/plain;\r\n"}, CONTENT_PLAIN},
    {"no semicolon", {" text/plain\r\n"}, CONTENT_OTHER},
    {"blank before the semicolon", {" text/plain ; charset=iso-2022-jp"}, CONTENT_OTHER},
    {"charset not the first", {" text/plain; format=flowed; charset=iso-2022-jp"}, CONTENT_PLAIN},
    {"charset without a value", {" text/plain; charset"}, CONTENT_PLAIN},
    {"charset without a name", {" text/plain; charset=\""}, CONTENT_PLAIN},
    {"html", {" text/html; charset=iso-2022-jp"}, CONTENT_OTHER},
    {"multipart", {" multipart/mixed; boundary=x"}, CONTENT_OTHER},
    {"empty", {""}, CONTENT_OTHER},
};

TEST(HeadContype, ClassifiesTheValue)
{
    for (const ContentRow &row : content_rows) {
        HeaderJob job;
        for (const char *piece : row.pieces)
            EXPECT_EQ(head_contype(job.get(), piece), 0) << row.label;
        EXPECT_EQ(job->content_kind, row.kind) << row.label;
    }
}

TEST(HeadContype, PiecesAreJoinedWithABlank)
{
    HeaderJob job;
    head_contype(job.get(), " text/plain;\r\n");
    EXPECT_EQ(job->content_kind, CONTENT_PLAIN);
    head_contype(job.get(), "charset=\"iso-2022-jp\"\r\n");
    EXPECT_EQ(job->content_kind, CONTENT_JIS);
    EXPECT_STREQ(job->content_type, " text/plain; charset=\"iso-2022-jp\"");
}

TEST(HeadContype, StopsAt4096Characters)
{
    HeaderJob job;
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(head_contype(job.get(), (string(1000, 't') + "\r\n").c_str()), 0);
    EXPECT_EQ(strlen(job->content_type), 4096u);
    EXPECT_EQ(head_contype(job.get(), "x"), 0);
    EXPECT_EQ(strlen(job->content_type), 4096u);

    HeaderJob other;
    EXPECT_EQ(head_contype(other.get(), string(9000, 't').c_str()), 0);
    EXPECT_EQ(strlen(other->content_type), 4096u);
}

/* -- return path -- */

TEST(HeadRetpath, RefusesAnswersOfTheMailSystem)
{
    HeaderJob job;
    EXPECT_EQ(head_retpath(job.get(), " <a@example.com>\r\n"), -1);
    EXPECT_EQ(head_retpath(job.get(), " mailer-daemon@example.com\r\n"), -1);
    EXPECT_EQ(head_retpath(job.get(), " a@example.com\r\n"), 0);
    EXPECT_EQ(head_retpath(job.get(), ""), 0);
}
