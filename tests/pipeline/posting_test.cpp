/* Whole postings, byte for byte. */
#include <string.h>

#include "tests/pipeline/pipeline.h"

namespace
{
class Posting : public PipelineTest /* the archive has a record of this name */
{
};
} // namespace

static const std::string ascii_in = crlf({
    "Received: from mx.example.net (mx.example.net [192.0.2.1])",
    "\tby ml.example.jp with LMTP; Sun, 15 Nov 2026 09:13:58 +0900",
    "Date: Sun, 15 Nov 2026 09:13:57 +0900",
    "From: Alice Example <alice@example.net>",
    "To: mylist@example.jp",
    "Subject: Hello",
    "Message-ID: <a1@example.net>",
    "Mime-Version: 1.0",
    "Content-Type: text/plain; charset=us-ascii",
    "",
    "Hi all.",
});

static const std::string ascii_out = crlf({
    "X-Received:  from mx.example.net (mx.example.net [192.0.2.1])",
    "\tby ml.example.jp with LMTP; Sun, 15 Nov 2026 09:13:58 +0900",
    "Date: Sun, 15 Nov 2026 09:13:57 +0900",
    "From: Alice Example <alice@example.net>",
    "To: mylist@example.jp",
    "Message-ID: <a1@example.net>",
    "Mime-Version: 1.0",
    "Content-Type: text/plain; charset=us-ascii",
    "X-ML-Name: mylist@example.jp",
    "X-Mail-Count: 000001",
    "Precedence: list",
    "Reply-To: mylist@example.jp",
    "Subject: [mylist:00001] Hello",
    "",
    "Hi all.",
});

static const std::string japanese_in = crlf({
    "Date: Sun, 15 Nov 2026 09:20:00 +0900",
    "From: bob@example.jp (Bob)",
    "To: mylist@example.jp",
    "Subject: Re: [mylist:00001] =?ISO-2022-JP?B?GyRCJUYlOSVIGyhC?=",
    "In-Reply-To: <a1@example.net>",
    "Message-ID: <b2@example.jp>",
    "Mime-Version: 1.0",
    "Content-Type: text/plain;",
    "\tcharset=iso-2022-jp",
    "Content-Transfer-Encoding: 7bit",
    "",
    "\x1b$BK\\J8$G$9!#\x1b(B",
});

static const std::string japanese_out = crlf({
    "Date: Sun, 15 Nov 2026 09:20:00 +0900",
    "From: bob@example.jp (Bob)",
    "To: mylist@example.jp",
    "In-Reply-To: <a1@example.net>",
    "Message-ID: <b2@example.jp>",
    "Mime-Version: 1.0",
    "Content-Type: text/plain;",
    "\tcharset=iso-2022-jp",
    "Content-Transfer-Encoding: 7bit",
    "X-ML-Name: mylist@example.jp",
    "X-Mail-Count: 000002",
    "Precedence: list",
    "Reply-To: mylist@example.jp",
    "Subject: [mylist:00002] Re: =?ISO-2022-JP?B?GyRCJUYlOSVIGyhC?=",
    "",
    "\x1b$B$h$&$3$=\x1b(B",
    "",
    "\x1b$BK\\J8$G$9!#\x1b(B",
});

static std::string open_block(unsigned validity)
{
    return "* FLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent)\r\n"
           "* 0 EXISTS\r\n* 0 RECENT\r\n* OK [UIDVALIDITY " +
           std::to_string(validity) +
           "] UIDs valid\r\n* OK [UIDNEXT 1] Predicted next UID\r\n"
           "* OK [PERMANENTFLAGS (\\Answered \\Flagged \\Deleted \\Seen \\Draft $MDNSent)] "
           "limited\r\n";
}

TEST_F(Posting, APlainMessageIsRewrittenArchivedAndHandedOver)
{
    ASSERT_EQ(345u, ascii_in.size());
    const unsigned validity = index_words()[1];
    host.set_result("untouched");
    EXPECT_EQ(0, post(ascii_in));
    EXPECT_EQ("", reply());
    EXPECT_EQ("untouched", host.result());

    EXPECT_EQ(462u, ascii_out.size());
    EXPECT_EQ(ascii_out, archived(1));
    ASSERT_EQ(1u, host.submissions.size());
    const Submission &s = host.submissions[0];
    EXPECT_EQ(ascii_out, s.content);
    EXPECT_EQ("owner-mylist@example.jp", s.envelope_sender);
    EXPECT_FALSE(s.has_recipients);
    EXPECT_EQ(path("active"), s.recipient_file);
    EXPECT_TRUE(s.result_was_zeroed);

    EXPECT_EQ("1", list.get("dgtstat"));
    EXPECT_EQ((std::vector<uint32_t>{2, validity, 2, 0, 1, 32, 453, 462}), index_words());
    EXPECT_TRUE(list_directory(path("jnl")).empty());
    EXPECT_EQ(open_block(validity) + open_block(validity), out.take());
    EXPECT_TRUE(logged(660, "mailing-list receive [mylist]"));
    EXPECT_TRUE(logged(354, "unlock file [ml=mylist,fn=" + path("lock") + ",nn=2]"));
    EXPECT_TRUE(logged(661, "mailing-list end[mylist]"));
    EXPECT_TRUE(
        logged(378, "ml.ini name=mylist 0x7ff 737 0 500 1 0 0 mylist@example.jp 2 1000 0 "));
    expect_nothing_lost_or_left();
}

TEST_F(Posting, AJapaneseReplyGetsItsTagInOneEncodedWordAndTheJisBanner)
{
    list.put("msg/bnrtopj.txt", "\xa4\xe8\xa4\xa6\xa4\xb3\xa4\xbd\r\n");
    ASSERT_EQ(0, post(ascii_in));
    ASSERT_EQ(0, post(japanese_in));
    EXPECT_EQ(452u, japanese_out.size());
    EXPECT_EQ(japanese_out, archived(2));
    EXPECT_EQ(path("jnl/3"), host.submissions[1].file);
    EXPECT_EQ("1-2", list.get("dgtstat"));
    const std::vector<uint32_t> words = index_words();
    const std::vector<uint32_t> second(words.begin() + 8, words.end());
    EXPECT_EQ((std::vector<uint32_t>{2, 32, 416, 452}), second);
    EXPECT_EQ(3u, words[0]);
}

TEST_F(Posting, TheJournalIsHandedOverUnderTheNextNumber)
{
    ASSERT_EQ(0, post_plain());
    ASSERT_EQ(0, post_plain());
    ASSERT_EQ(2u, host.submissions.size());
    EXPECT_EQ(path("jnl/2"), host.submissions[0].file);
    EXPECT_EQ(path("jnl/3"), host.submissions[1].file);
    EXPECT_NE(std::string::npos, archived(1).find("X-Mail-Count: 000001\r\n"));
    EXPECT_NE(std::string::npos, archived(2).find("X-Mail-Count: 000002\r\n"));
}

TEST_F(Posting, AKeepCountOfZeroDistributesTheSameBytesAndArchivesNothing)
{
    list.put("init", init_with({"journal=0"}));
    const unsigned validity = index_words()[1];
    ASSERT_EQ(0, post(ascii_in));
    EXPECT_EQ(ascii_out, host.submissions.at(0).content);
    const std::vector<uint32_t> words = index_words();
    ASSERT_EQ(4u, words.size());
    EXPECT_EQ((std::vector<uint32_t>{2, validity, 1}),
              (std::vector<uint32_t>(words.begin(), words.begin() + 3)));
    EXPECT_TRUE(list_directory(list.box("#msg")).empty());
    EXPECT_EQ("1", list.get("dgtstat"));
}

TEST_F(Posting, WithoutSettingsFileTheDefaultsApply)
{
    unlink(path("init").c_str());
    ASSERT_EQ(0, post(ascii_in));
    const std::string copy = host.submissions.at(0).content;
    EXPECT_NE(std::string::npos, copy.find("\r\nSubject: [mylist:1] Hello\r\n"));
    EXPECT_NE(std::string::npos, copy.find("\r\nReply-To: mylist\r\n"));
    EXPECT_EQ(copy, archived(1));
    EXPECT_TRUE(logged_prefix(183, "mlname=mylist read_mliint f_open error No such file"));
}

TEST_F(Posting, AnEmptySettingsFileMeansAnEmptyTagAndAnEmptiedArchive)
{
    ASSERT_EQ(0, post_plain());
    list.put("init", "");
    ASSERT_EQ(0, post(ascii_in));
    const std::string copy = host.submissions.at(1).content;
    EXPECT_NE(std::string::npos, copy.find("\r\nSubject:  Hello\r\n"));
    EXPECT_NE(std::string::npos, copy.find("\r\nReply-To: mylist\r\n"));
    EXPECT_TRUE(list_directory(list.box("#msg")).empty());
    EXPECT_EQ(3u, index_words()[0]);
}

TEST_F(Posting, ATextOfTheHostReachesTheRequestUnlessItBeginsWithEOF)
{
    host.result_to_write = "250 queued as 4F2A";
    ASSERT_EQ(0, post_plain());
    EXPECT_EQ("250 queued as 4F2A", host.result());
    host.set_result("before");
    host.result_to_write = "EOF anything";
    ASSERT_EQ(0, post_plain());
    EXPECT_EQ("before", host.result());
}

TEST_F(Posting, BodyLinesOfAnyLengthAreCopiedAsTheyAre)
{
    const std::string body =
        std::string(300000, 'x') + "\r\n" + std::string(4094, 'y') + "\n" + "no end";
    ASSERT_EQ(0, post_plain({}, body));
    EXPECT_TRUE(archived(1).ends_with("\r\n\r\n" + body));
    EXPECT_EQ(archived(1), host.submissions.at(0).content);
}

TEST_F(Posting, BlankLinesBeforeTheTextAndAnAllBlankBodyAreKept)
{
    ASSERT_EQ(0, post_plain({}, "\r\n  \t\r\ntext\r\n"));
    EXPECT_TRUE(archived(1).ends_with("\r\n\r\n\r\n  \t\r\ntext\r\n"));
    ASSERT_EQ(0, post_plain({}, "\r\n\r\n"));
    EXPECT_TRUE(archived(2).ends_with("Hello\r\n\r\n\r\n\r\n"));
    ASSERT_EQ(0, post_plain({}, ""));
    EXPECT_TRUE(archived(3).ends_with("Hello\r\n\r\n"));
}

TEST_F(Posting, BytesBehindANulAreLostUpToTheEndOfTheirPiece)
{
    ASSERT_EQ(0, post_plain({}, std::string("ab\0cd\r\nnext\r\n", 13)));
    EXPECT_TRUE(archived(1).ends_with("\r\n\r\nabnext\r\n"));
}

TEST_F(Posting, BannersStandAboveAndBelowAPlainBody)
{
    list.put("msg/bnrtop.txt", "top one\r\ntop two\n");
    list.put("msg/bnrbtm.txt", "bottom\r\n");
    ASSERT_EQ(0, post_plain());
    EXPECT_TRUE(
        archived(1).ends_with("Hello\r\n\r\ntop one\r\ntop two\n\r\nHi.\r\nbottom\r\n\r\n"));
    ASSERT_EQ(0, post_plain({"Content-Type: text/plain"}));
    EXPECT_TRUE(archived(2).ends_with("Hello\r\n\r\nHi.\r\n")) << "no semicolon, no banners";
    ASSERT_EQ(0, post_plain({"Content-Type: multipart/mixed; boundary=x"}));
    EXPECT_TRUE(archived(3).ends_with("Hello\r\n\r\nHi.\r\n"));
}

TEST_F(Posting, AnArchivedMessageSurvivesTheNextDeliveryOfItsThread)
{
    /* After a failed rename the journal's name is still a link of the archived message. */
    ASSERT_EQ(0, post_plain());
    const std::string first = archived(1);
    const std::string name = path("jnl/j." + std::to_string(gettid()));
    ASSERT_EQ(0, link(list.box("#msg/1").c_str(), name.c_str()));
    ASSERT_EQ(0, post_plain());
    EXPECT_EQ(first, archived(1));
}

/* Which of the two logs the lines of a delivery go to, and at which level. */
TEST_F(Posting, TheLinesOfADeliveryHaveTheirLogAndLevel)
{
    ASSERT_EQ(0, post_plain());
    list.put("init", init_with({"vstrml=deny"}));
    ASSERT_EQ(0, post("From: stranger@example.org\r\n\r\ntext\r\n"));
    ASSERT_EQ(0, command("From: alice@example.net\r\n\r\n# stat\r\n"));
    ASSERT_EQ(69, post(""));
    const struct {
        int msgno;
        bool system;
        int level;
        const char *begins;
    } rows[] = {
        {660, false, 5, "mailing-list receive [mylist]"},
        {350, true, 11, "mlname=mylist lock file ... [fn="},
        {352, true, 11, "mlname=mylist ...done lock file [fn="},
        {378, true, 11, "ml.ini name=mylist 0x7ff 737 "},
        {385, true, 11, "mlname=mylist mail access status 1 alice@example.net"},
        {396, true, 11, "mlname=mylist mail access2 status 1 alice@example.net"},
        {354, true, 11, "unlock file [ml=mylist,fn="},
        {661, false, 11, "mailing-list end[mylist]"},
        {408, true, 5, "Distribution Denied Log: mylist stranger@example.org"},
        {404, true, 1, "mlname=mylist input error (no text)"},
        {1, false, 1, "unavailable"},
    };
    const std::vector<LogLine> lines = take_log();
    for (const auto &row : rows) {
        const std::string begins =
            row.msgno == 1 ? tid() + ": mailing-list unavailable  [mylist] <<<" : row.begins;
        bool found = false;
        for (const LogLine &line : lines) {
            if (line.msgno != row.msgno || !line.text.starts_with(begins)) continue;
            found = true;
            EXPECT_EQ(row.system, line.system) << line.text;
            EXPECT_EQ(row.level, line.level) << line.text;
        }
        EXPECT_TRUE(found) << begins;
    }
}
