/* ENVELOPE and BODY of headers that the golden messages do not have. */
#include <gtest/gtest.h>

#include "tests/support/golden.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

static std::string envelope_of(const std::string &header)
{
    const MessageText message(crlf(header));
    std::string text;
    text = printed([&] { EXPECT_EQ(1, list_getenvelope(message.fd(), 0, message.size())); });
    return visible(text);
}

static const struct {
    const char *label, *header, *envelope;
} envelope_rows[] = {
    {"nothing", "", "(NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)"},
    {"no blank behind the colon",
     "Date:1 Jan 2026\nSubject:s\nFrom:a\nSender:a\nReply-To:a\nTo:a\nCc:a\nIn-Reply-To:a\n"
     "Message-Id:a\n",
     "(NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)"},
    {"only Bcc does without", "Bcc:a@b\nBcc: c\n",
     "(NIL NIL NIL NIL NIL NIL NIL ((NIL NIL \"a\" \"b\")(NIL NIL \"c\" NIL)) NIL NIL)"},
    {"all of it, whatever the case",
     "DATE: 1 Jan 2026\nsubject: s\nFROM: f\nsender: n\nreply-to: r\nTO: t\ncc: c\nbcc:b\n"
     "in-reply-to: i\nmessage-id: m\n",
     "(\"1 Jan 2026\" \"s\" ((NIL NIL \"f\" NIL)) ((NIL NIL \"n\" NIL)) ((NIL NIL \"r\" NIL)) "
     "((NIL NIL \"t\" NIL)) ((NIL NIL \"c\" NIL)) ((NIL NIL \"b\" NIL)) {1}\\r\\ni \"m\")"},
    {"the first From stands in for the others", "From: a, b\nFrom: c\n",
     "(NIL NIL ((NIL NIL \"a\" NIL)(NIL NIL \"b\" NIL)(NIL NIL \"c\" NIL)) "
     "((NIL NIL \"a\" NIL)(NIL NIL \"b\" NIL)) ((NIL NIL \"a\" NIL)(NIL NIL \"b\" NIL)) "
     "NIL NIL NIL NIL NIL)"},
    {"the last subject, reply and id count",
     "Subject: 1\nSubject: 2\nIn-Reply-To: 1\nIn-Reply-To: 2\nMessage-Id: 1\nMessage-Id: 2\n",
     "(NIL \"2\" NIL NIL NIL NIL NIL NIL {1}\\r\\n2 \"2\")"},
    {"a date that is none leaves the one before", "Date: 1 Jan 2026\nDate: tomorrow\n",
     "(\"1 Jan 2026\" NIL NIL NIL NIL NIL NIL NIL NIL NIL)"},
    {"a last line without its end is lost", "Subject: 1\nSubject: 2",
     "(NIL \"1\" NIL NIL NIL NIL NIL NIL NIL NIL)"},
};

TEST(Envelope, WantsABlankBehindTheColonOfAllFieldsButBcc)
{
    for (const auto &row : envelope_rows) {
        std::string header = row.header;
        EXPECT_EQ(row.envelope, envelope_of(header)) << row.label;
    }
}

TEST(Envelope, IsNilWhenTheHeaderCannotBeRead)
{
    EXPECT_EQ("NIL", printed([] { EXPECT_EQ(0, list_getenvelope(-1, 0, 10)); }));
    const MessageText message(crlf("To: a\n"));
    HostMemory host;
    for (long nth = 0; nth < 2; ++nth) {
        host.fail_allocation = nth;
        EXPECT_EQ("NIL", printed([&] { EXPECT_EQ(0, list_getenvelope(message.fd(), 0, 99)); }));
    }
    host.fail_allocation = -1;
}

TEST(Envelope, ReadsNothingBehindTheEndOfTheFile)
{
    const MessageText message(crlf("Subject: s\n"));
    EXPECT_EQ("(NIL \"s\" NIL NIL NIL NIL NIL NIL NIL NIL)",
              printed([&] { list_getenvelope(message.fd(), 0, UINT32_MAX); }));
    EXPECT_EQ("(NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL)",
              printed([&] { list_getenvelope(message.fd(), 4000000000u, UINT32_MAX); }));
}

TEST(BodyStructure, DescribesAMultipartWithoutPartsAsABasicType)
{
    Reader reader(crlf("Content-Type: multipart/mixed; boundary=a.b\n\nno part\n"));
    EXPECT_EQ("(\"multipart\" \"mixed\" (\"boundary\" \"a.b\") NIL NIL \"7BIT\" 9)", reader.body());
}

TEST(BodyStructure, PrintsALineCountTextInPlaceOfANumber)
{
    char lines[] = "many";
    PartNode part = {};
    part.body_length = 3;
    part.line_count_text = lines;
    const MessageText message("abc");
    EXPECT_EQ("(\"TEXT\" \"PLAIN\" (\"CHARSET\" \"US-ASCII\") NIL NIL \"7BIT\" 3 many)",
              printed([&] { list_getbody(message.fd(), &part, 0); }));
    part.line_count_text = nullptr;
    EXPECT_EQ("(\"TEXT\" \"PLAIN\" (\"CHARSET\" \"US-ASCII\") NIL NIL \"7BIT\" 3 1 NIL NIL NIL)",
              printed([&] { list_getbody(message.fd(), &part, 1); }))
        << "a part that was not parsed has its lines counted";
    part.header_length = part.start = UINT32_MAX;
    part.body_length = UINT32_MAX;
    EXPECT_EQ("(\"TEXT\" \"PLAIN\" (\"CHARSET\" \"US-ASCII\") NIL NIL \"7BIT\" 4294967295 0)",
              printed([&] { list_getbody(message.fd(), &part, 0); }));
}

TEST(BodyStructure, LogsWhatItShowsAsNil)
{
    char type[] = "Message/RFC822";
    PartNode part = {};
    part.content_type = type;
    take_log();
    EXPECT_EQ("NILNIL", printed([&] {
                  list_getbody(-1, nullptr, 0);
                  list_getbody(-1, &part, 1);
              }));
    EXPECT_EQ(std::vector<std::string>({"1/631 getbody: mime parse err, mp=NULL",
                                        "1/632 getbody: mime parse err, rfc822=NIL"}),
              take_log_lines());
}

static const struct {
    const char *type, *body;
} type_rows[] = {
    {"", "(\"\" NIL NIL NIL NIL \"7BIT\" 1)"},
    {"x", "(\"x\" NIL NIL NIL NIL \"7BIT\" 1)"},
    {"TEXT/", "(\"TEXT\" \"\" NIL NIL NIL \"7BIT\" 1 1)"},
    {"text/html;", "(\"TEXT\" \"html\" NIL NIL NIL \"7BIT\" 1 1)"},
    {"text/html; x", "(\"TEXT\" \"html\" NIL NIL NIL \"7BIT\" 1 1)"},
    {"text/a b=c", "(\"TEXT\" \"a\" (\"b\" \"c\") NIL NIL \"7BIT\" 1 1)"},
    {"text/a\tb=c", "(\"TEXT\" \"a\" (\"b\" \"c\") NIL NIL \"7BIT\" 1 1)"},
    {"texts/a;b=c", "(\"texts\" \"a\" (\"b\" \"c\") NIL NIL \"7BIT\" 1)"},
    {"a/b/c", "(\"a\" {3}\\r\\nb/c NIL NIL NIL \"7BIT\" 1)"},
    {"message/rfc822x", "(\"message\" \"rfc822x\" NIL NIL NIL \"7BIT\" 1)"},
    {"message/partial", "(\"message\" \"partial\" NIL NIL NIL \"7BIT\" 1)"},
};

TEST(BodyStructure, TakesContentTypesApart)
{
    for (const auto &row : type_rows) {
        Reader reader(std::string("Content-Type: ") + row.type + "\r\n\r\nx");
        EXPECT_EQ(row.body, visible(reader.body())) << row.type;
    }
}
