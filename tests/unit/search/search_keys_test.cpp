/* The keys of SEARCH, one by one. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mlist/token.h"
#include "tests/support/fake_host.h"
#include "tests/support/log_capture.h"
#include "tests/unit/search/archive.h"

static std::string mail(const std::string &headers, const std::string &body)
{
    return headers + "\r\n" + body;
}

class SearchKeys : public ::testing::Test
{
  protected:
    SearchKeys()
    {
        box.add(mail("From: Taro <taro@example.jp>\r\nTo: list@example.jp\r\nSubject: Hello\r\n"
                     "Date: Sun, 15 Nov 2026 09:00:00 +0900\r\n",
                     "Body of one\r\n"),
                MESSAGE_SEEN);
        box.add(
            mail(
                "From: hanako@example.jp\r\nCc: taro@example.jp\r\n"
                "Subject: =?ISO-2022-JP?B?GyRCMnE1RBsoQg==?=\r\nDate: 1 Jan 2027 00:00:00 +0000\r\n"
                "Content-Type: text/plain; charset=ISO-2022-JP\r\n",
                "\x1b$BK\\J8$G$9\x1b(B\r\n"),
            MESSAGE_FLAGGED | MESSAGE_DELETED);
        box.add(mail("Subject: no date\r\nX-Test: a value\r\n"
                     "Content-Transfer-Encoding: base64\r\n"
                     "Content-Type: text/plain; charset=\"shift_jis\"\r\n",
                     "g0WDQoOT\r\n"),
                MESSAGE_MDNSENT | MESSAGE_ANSWERED | MESSAGE_DRAFT);
        box.add(mail(
            "Subject: Parts\r\nContent-Type: multipart/mixed; boundary=\"b\"\r\n",
            "--b\r\nContent-Type: text/plain\r\n\r\nfirst part\r\n"
            "--b\r\nContent-Type: image/png\r\n\r\nhidden\r\n"
            "--b\r\nContent-Type: message/rfc822\r\n\r\nSubject: inner\r\n\r\ndeep\r\n--b--\r\n"));
        box.open();
    }
    std::string found(const std::string &text, const char *charset = "euc-jp")
    {
        return box.search(text, charset);
    }
    SearchArchive box;
};

static const struct {
    const char *text, *wanted;
} key_rows[] = {
    {"ALL", "* SEARCH 1 2 3 4\r\n"},
    {"all\r\n", "* SEARCH 1 2 3 4\r\n"},
    {"1:2", "* SEARCH 1 2\r\n"},
    {"2,4", "* SEARCH 2 4\r\n"},
    {"3:*", "* SEARCH 3 4\r\n"},
    {"5", ""},
    {"UID 2:3", "* SEARCH 2 3\r\n"},
    {"UID 2:3 FLAGGED", "* SEARCH 2\r\n"},
    {"SEEN", "* SEARCH 1\r\n"},
    {"UNSEEN", "* SEARCH 2 3 4\r\n"},
    {"DELETED", "* SEARCH 2\r\n"},
    {"UNDELETED", "* SEARCH 1 3 4\r\n"},
    {"ANSWERED", "* SEARCH 3\r\n"},
    {"DRAFT", "* SEARCH 3\r\n"},
    {"RECENT", "* SEARCH 1 2 3 4\r\n"},
    {"NEW", "* SEARCH 2 3 4\r\n"},
    {"OLD", ""},
    {"KEYWORD $mdnsent", "* SEARCH 3\r\n"},
    {"UNKEYWORD $MDNSent", "* SEARCH 1 2 4\r\n"},
    {"KEYWORD foo", "ERROR"},
    {"KEYWORD SEEN", "ERROR"},
    {"KEYWORD", "ERROR"},
    {"FROM taro", "* SEARCH 1\r\n"},
    {"FROM TARO", ""},
    {"TO list@", "* SEARCH 1\r\n"},
    {"CC taro", "* SEARCH 2\r\n"},
    {"SUBJECT Hello", "* SEARCH 1\r\n"},
    {"SUBJECT hello", ""},
    {"SUBJECT \"\"", "* SEARCH 1 2 3 4\r\n"},
    {"SUBJECT \xb2\xf1\xb5\xc4", "* SEARCH 2\r\n"},
    {"HEADER X-Test \"a value\"", "* SEARCH 3\r\n"},
    {"HEADER x-test value", "* SEARCH 3\r\n"},
    {"HEADER X-Test", "ERROR"},
    {"BODY one", "* SEARCH 1\r\n"},
    {"BODY Hello", ""},
    {"TEXT Hello", "* SEARCH 1\r\n"},
    {"TEXT hello", ""},
    {"TEXT \xcb\xdc\xca\xb8", "* SEARCH 2\r\n"},
    {"TEXT \xa5\xa6\xa5\xa3\xa5\xf3", "* SEARCH 3\r\n"},
    {"TEXT first", "* SEARCH 4\r\n"},
    {"TEXT hidden", ""},
    {"TEXT inner", "* SEARCH 4\r\n"},
    {"BODY deep", "* SEARCH 4\r\n"},
    {"SENTON 15-Nov-2026", "* SEARCH 1\r\n"},
    {"SENTSINCE 15-nov-2026", "* SEARCH 1 2\r\n"},
    {"SENTBEFORE \"1-Jan-2027\"", "* SEARCH 1\r\n"},
    {"SENTON 32-Foo-2026", "ERROR"},
    {"SENTON 1-Jan-26", "ERROR"},
    {"NOT SEEN", "* SEARCH 2 3 4\r\n"},
    {"OR SEEN FLAGGED", "* SEARCH 1 2\r\n"},
    {"OR (SEEN 1) (3:4 UNSEEN)", "* SEARCH 1 3 4\r\n"},
    {"NOT NOT SEEN", "ERROR"},
    {"OR NOT SEEN FLAGGED", "ERROR"},
    {"NOT (NOT SEEN)", "* SEARCH 1\r\n"},
    {"NOT", "ERROR"},
    {"OR SEEN", "ERROR"},
    {"(SEEN", "ERROR"},
    {"FOO", "ERROR"},
    {"SEEN FOO", "ERROR"},
    {"*", "ERROR"},
    {"", ""},
    {"TEXT {5}", "ERROR"},
    {"SUBJECT Hello TEXT one FROM taro", "* SEARCH 1\r\n"},
};

TEST_F(SearchKeys, FindWhatTheySay)
{
    for (const auto &row : key_rows)
        EXPECT_EQ(row.wanted, found(row.text)) << row.text;
}

TEST_F(SearchKeys, ABlankTooManyBehindAnArgumentEndsTheCriteria)
{
    EXPECT_EQ("* SEARCH 1\r\n", found("SEEN  1")) << "blanks behind a key do not count";
    EXPECT_EQ("* SEARCH 1\r\n", found("TEXT one  FLAGGED"));
    EXPECT_EQ("* SEARCH 1 2\r\n", found("UID 1:2  FLAGGED"));
    EXPECT_EQ("ERROR", found("OR TEXT one  SEEN")) << "an operand is missing";
    EXPECT_EQ("ERROR", found("HEADER X-Test  value")) << "an empty text, then an unknown key";
    EXPECT_EQ("", found(" SEEN"));
    EXPECT_EQ("* SEARCH 2\r\n", found("2 ( SEEN)"));
    EXPECT_EQ("ERROR", found("SEEN\tFLAGGED")) << "a tab is no blank";
}

TEST_F(SearchKeys, NoTokenIsLeftForTheCallersLine)
{
    EXPECT_EQ("* SEARCH 1\r\n", found("TEXT Hello ALL"));
    EXPECT_EQ(nullptr, list_gettoken_astring(nullptr));
    EXPECT_EQ("ERROR", found("TEXT Hello KEYWORD foo ALL"));
    EXPECT_EQ(nullptr, list_gettoken_astring(nullptr));
}

TEST_F(SearchKeys, SizesComeFromTheIndex)
{
    const MailboxHandle *handle = box.open();
    const uint32_t second = handle->index[2].size;
    std::string larger, smaller;
    for (int s = 1; s <= 4; ++s) {
        if (handle->index[s].size > second) larger += " " + std::to_string(s);
        if (handle->index[s].size < second) smaller += " " + std::to_string(s);
    }
    EXPECT_EQ("* SEARCH" + larger + "\r\n", found("LARGER " + std::to_string(second)));
    EXPECT_EQ("* SEARCH" + smaller + "\r\n", found("SMALLER " + std::to_string(second)));
    EXPECT_EQ("* SEARCH 1 2 3 4\r\n", found("LARGER -1"));
    EXPECT_EQ("", found("LARGER 99999999999999999999"));
}

TEST_F(SearchKeys, ArrivalIsTheFilesTimeInUTC)
{
    const struct timespec noon[2] = {{1794744000, 0}, {1794744000, 0}}; /* 2026-11-15 12:00 UTC */
    for (unsigned uid = 1; uid <= 4; ++uid)
        ASSERT_EQ(0, utimensat(AT_FDCWD, box.message_file(uid).c_str(), noon, 0));
    EXPECT_EQ("* SEARCH 1 2 3 4\r\n", found("ON 15-Nov-2026"));
    EXPECT_EQ("", found("BEFORE 15-Nov-2026"));
    EXPECT_EQ("* SEARCH 1 2 3 4\r\n", found("SINCE 15-Nov-2026"));
    unlink(box.message_file(2).c_str());
    (void)take_log();
    EXPECT_EQ("* SEARCH 1 3 4\r\n", found("ON 15-Nov-2026"));
    EXPECT_TRUE(logged(805, "search_internal_date: stat err"));
}

TEST_F(SearchKeys, AMessageWithoutDateIsLoggedOnceForEachKey)
{
    (void)take_log();
    EXPECT_EQ("* SEARCH 1\r\n", found("SENTON 15-Nov-2026"));
    size_t lines = 0;
    for (const LogLine &line : take_log())
        lines += line.msgno == 810 && line.text == "search_date: search_get_rfc822date err";
    EXPECT_EQ(2u, lines);
}

TEST_F(SearchKeys, ALockedMessageIsReadAllTheSame)
{
    const int fd = open(box.message_file(1).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    EXPECT_EQ("* SEARCH 1\r\n", found("SENTON 15-Nov-2026"));
    close(fd);
}

TEST_F(SearchKeys, ACriterionWithoutCharsetIsShiftJIS)
{
    EXPECT_EQ("* SEARCH 2\r\n", box.search("SUBJECT \x89\xef\x8b\x63", nullptr));
    EXPECT_EQ("* SEARCH 2\r\n", box.search("SUBJECT \x1b$B2q5D\x1b(B", "ISO-2022-JP"));
}

TEST_F(SearchKeys, VanishedFilesFailTextKeysOnly)
{
    unlink(box.message_file(1).c_str());
    (void)take_log();
    EXPECT_EQ("", found("SUBJECT Hello"));
    EXPECT_TRUE(logged_prefix(626, "mbx_getcache: fopen err"));
    EXPECT_EQ("* SEARCH 1\r\n", found("SEEN"));
}

TEST_F(SearchKeys, LargeMessagesAreSearchedToTheirEnds)
{
    std::string body;
    for (int line = 0; line < 8000; ++line)
        body += "a line of a large message, again and again\r\n";
    box.add(mail("Subject: large\r\nContent-Type: multipart/mixed; boundary=b\r\n",
                 "--b\r\n\r\n" + body + "the end of one\r\n--b\r\nSubject: second\r\n\r\n" + body +
                     "the end of two\r\n--b--\r\n"));
    box.open();
    EXPECT_EQ("* SEARCH 5\r\n", found("TEXT \"the end of one\""));
    EXPECT_EQ("* SEARCH 5\r\n", found("BODY \"the end of two\""));
    EXPECT_EQ("* SEARCH 5\r\n", found("TEXT \"Subject: second\""));
    EXPECT_EQ("", found("BODY \"Subject: second\""));
}

TEST_F(SearchKeys, AHeaderSizeBeyondTheFileIsNoTrouble)
{
    MailboxHandle *handle = box.open();
    for (const uint32_t size : {65536u, 65537u, 4294967295u}) {
        handle->index[1].header_size = size;
        EXPECT_EQ("* SEARCH 1\r\n", found("SUBJECT Hello")) << size;
    }
}

TEST_F(SearchKeys, UIDsArePrintedInSequenceOrder)
{
    EXPECT_EQ("* SEARCH 1 2 3 4\r\n", box.search("ALL", nullptr, 1));
}

TEST_F(SearchKeys, GroupsNestToALimit)
{
    for (const int depth : {60, 100, 100000}) {
        const std::string open(static_cast<size_t>(depth), '('),
            end(static_cast<size_t>(depth), ')');
        EXPECT_EQ(depth < 64 ? "* SEARCH 1\r\n" : "ERROR", found(open + "SEEN" + end)) << depth;
    }
}

TEST_F(SearchKeys, RangesMayOverlapRepeatAndTouch)
{
    EXPECT_EQ("* SEARCH 1 2 3\r\n", found("1:2,2:3"));
    EXPECT_EQ("* SEARCH 2 4\r\n", found("2,2,2,4,4"));
    EXPECT_EQ("* SEARCH 1 2 4\r\n", found("UID 1:2,4:4,1:1"));
    std::string many = "1:*";
    for (int i = 0; i < 100000; ++i)
        many += ",1:*";
    EXPECT_EQ("* SEARCH 1 2 3 4\r\n", found(many));
}

TEST(SearchParsing, ReadsTheStructureOfAMessageOnceForAllKeys)
{
    SearchArchive box;
    box.add(mail("Subject: Parts\r\nContent-Type: multipart/mixed; boundary=\"b\"\r\n",
                 "--b\r\nContent-Type: multipart/mixed\r\n\r\nno boundary\r\n"
                 "--b\r\n\r\nalpha beta\r\n--b--\r\n"));
    (void)take_log();
    EXPECT_EQ("* SEARCH 1\r\n", box.search("TEXT alpha BODY beta SUBJECT Parts"));
    size_t parsed = 0;
    for (const LogLine &line : take_log())
        parsed += line.msgno == 630; /* logged by every parse of this message */
    EXPECT_EQ(1u, parsed);
}

TEST(SearchEmpty, AnEmptyMailboxFindsNothingWithoutError)
{
    SearchArchive box;
    EXPECT_EQ("", box.search("ALL"));
    EXPECT_EQ("", box.search("UID 1:*"));
    EXPECT_EQ("", box.search("NOT SEEN TEXT x"));
    EXPECT_EQ("ERROR", box.search("FOO"));
}

TEST(SearchRange, NeverWalksNumbersThatAreNotThere)
{
    SearchArchive box;
    box.add("Subject: a\r\n\r\nx\r\n");
    MailboxHandle *handle = box.open();
    handle->index[0].uid = 4294967295u; /* a UIDNEXT that allows any UID */
    EXPECT_EQ("* SEARCH 1\r\n", box.search("UID 1:4294967294"));
    EXPECT_EQ("* SEARCH 1\r\n", box.search("UID 1:*"));
}

/* A search without memory finds what it should, less, or answers an error: never more. */
TEST(SearchMemory, AnyAllocationMayFail)
{
    FakeHost host;
    tcbcreate(&host.request);
    {
        SearchArchive box;
        box.add("Subject: =?EUC-JP?B?pKI=?=\r\n\r\nfirst\r\n", MESSAGE_SEEN);
        box.add("Subject: b\r\nContent-Type: text/plain; charset=shift_jis\r\n"
                "Content-Transfer-Encoding: base64\r\n\r\ng0WDQoOT\r\n");
        box.open();
        const long before = host.live_blocks;
        int errors = 0, found = 0;
        for (long n = 0; n < 200; ++n) {
            host.fail_allocation = n;
            const std::string answer = box.search(
                "1:2 UID 1:* SUBJECT \xa4\xa2 (OR SEEN TEXT \xa5\xa6) BODY first", "euc-jp");
            EXPECT_TRUE(answer == "ERROR" || answer.empty() || answer == "* SEARCH 1\r\n")
                << n << answer;
            EXPECT_EQ(before, host.live_blocks) << n;
            errors += answer == "ERROR";
            found += !answer.empty() && answer != "ERROR";
        }
        host.fail_allocation = -1;
        EXPECT_LT(10, errors);
        EXPECT_LT(10, found) << "allocations end before the numbers do";
    }
    tcbfree();
}
