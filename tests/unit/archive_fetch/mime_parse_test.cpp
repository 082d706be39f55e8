/* Trees of parts. */
#include <errno.h>
#include <gtest/gtest.h>

#include <memory>

#include "archive/mime.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

using Tree = std::unique_ptr<PartNode, decltype(&list_freemime)>;

static Tree parse(const MessageText &message)
{
    return Tree(message.parse(), list_freemime);
}

static const std::string multipart = "Content-Type: multipart/mixed; boundary=";

TEST(MimeParse, KeepsTheValuesOfFiveFields)
{
    const MessageText message(crlf("CONTENT-TYPE: text/plain;\n\tx=y\n"
                                   "content-transfer-encoding:8bit\nContent-Id:  two blanks\n"
                                   "Content-Description: old\nContent-Description: new\n"
                                   "Content-Disposition: \nContent-Typo: x\n\nbody"));
    const Tree tree = parse(message);
    ASSERT_NE(nullptr, tree);
    EXPECT_STREQ("text/plain; x=y", tree->content_type);
    EXPECT_STREQ("8bit", tree->transfer_encoding);
    EXPECT_STREQ(" two blanks", tree->content_id);
    EXPECT_STREQ("new", tree->description);
    EXPECT_STREQ("", tree->disposition);
    EXPECT_EQ(nullptr, tree->line_count_text);
    EXPECT_EQ(0u, tree->child_count);
    EXPECT_EQ(nullptr, tree->enclosed);
    EXPECT_EQ(4u, tree->body_length);
}

TEST(MimeParse, GivesEachPartItsPlaceInTheFile)
{
    const std::string text =
        crlf(multipart + "b\n\npreamble\n--b\nX: 1\n\none\n--b\n\ntwo\n--b--\n");
    const MessageText message(text);
    const Tree tree = parse(message);
    ASSERT_EQ(2u, tree->child_count);
    const PartNode *first = tree->children[0], *second = tree->children[1];
    EXPECT_EQ(text.find("X: 1"), first->start);
    EXPECT_EQ(8u, first->header_length);
    EXPECT_EQ(5u, first->body_length);
    EXPECT_EQ(text.find("\r\ntwo"), second->start);
    EXPECT_EQ(2u, second->header_length);
    EXPECT_EQ(5u, second->body_length);
    EXPECT_EQ(getlines(message.fd(), first->start + 8, 5), first->lines);
    EXPECT_EQ(1u, second->lines_known);
}

TEST(MimeParse, TakesTheRestOfTheValueForABoundaryWithoutQuotes)
{
    const MessageText found(crlf(multipart + "b; x\n\n--b; x\n\none\n--b; x--\n"));
    EXPECT_EQ(1u, parse(found)->child_count);
    const MessageText lost(crlf(multipart + "b; x\n\n--b\n\none\n--b--\n"));
    EXPECT_EQ(0u, parse(lost)->child_count);
    const MessageText quoted(crlf(multipart + "\"b\"; x\n\n--b\n\none\n--b--\n"));
    EXPECT_EQ(1u, parse(quoted)->child_count);
    const MessageText open_quote(crlf(multipart + "\"b\n\n--b\n\none\n--b--\n"));
    EXPECT_EQ(1u, parse(open_quote)->child_count);
    const MessageText inside(crlf("Content-Type: multipart/x; my-BOUNDARY=b\n\n--b\n\n1\n--b\n"));
    EXPECT_EQ(1u, parse(inside)->child_count);
}

TEST(MimeParse, GoesOnBehindTheEndOfTheParentForItsParts)
{
    /* the inner multipart goes on finding its boundary behind the outer one's */
    const std::string text = crlf(multipart + "O\n\n--O\n" + multipart +
                                  "I\n\n--I\n\none\n--O\n\ntwo\n--I\n\nthree\n--I--\n--O--\n");
    const MessageText message(text);
    const Tree tree = parse(message);
    ASSERT_EQ(2u, tree->child_count);
    const PartNode *inner = tree->children[0];
    EXPECT_LT(inner->body_length, 20u);
    ASSERT_EQ(2u, inner->child_count);
    EXPECT_EQ(text.find("three") - 2, inner->children[1]->start);
    EXPECT_GT(inner->children[0]->body_length, inner->body_length) << "longer than its parent";
}

TEST(MimeParse, FindsNothingInAnEmptyBoundaryButLinesWithHyphens)
{
    const MessageText message(crlf(multipart + "\"\"\n\n--\n\none\n--any\n\ntwo\n-- \n"));
    EXPECT_EQ(2u, parse(message)->child_count);
}

TEST(MimeParse, TakesNoMessageWithoutTheEndOfItsHeader)
{
    EXPECT_EQ(nullptr,
              parse(MessageText(crlf("Content-Type: message/rfc822\n\nA: 1\nB: 2\n")))->enclosed);
    const MessageText empty(crlf("Content-Type: message/rfc822\n\n\n"));
    const Tree tree = parse(empty);
    ASSERT_NE(nullptr, tree->enclosed);
    EXPECT_EQ(2u, tree->enclosed->header_length);
    EXPECT_EQ(0u, tree->enclosed->body_length);
}

TEST(MimeParse, FailsWithoutABoundary)
{
    take_log();
    EXPECT_EQ(nullptr, parse(MessageText(crlf("Content-Type: MULTIPART/mixed; x=y\n\n."))));
    EXPECT_EQ(std::vector<std::string>({"3/630 getmime: no boundary string on multipart mail"}),
              take_log_lines());
}

TEST(MimeParse, FailsWhenTheHeaderCannotBeRead)
{
    take_log();
    EXPECT_EQ(nullptr, list_getmime(-1, 0, 10, 10));
    EXPECT_EQ(std::vector<std::string>({"3/629 getmime: disk2memory fail"}), take_log_lines());
    TempDir directory;
    const int fd = open_file(directory.path().c_str(), 0, 0);
    EXPECT_EQ(nullptr, list_getmime(fd, 0, 10, 10));
    EXPECT_EQ(std::vector<std::string>({"3/629 getmime: disk2memory fail"}), take_log_lines());
    os->close(fd);
}

/* Whatever allocation or read fails: a null tree with a log line, or one with less in it, and no
   memory lost. */
TEST(MimeParse, SurvivesTheFailureOfAnyAllocation)
{
    const MessageText message(crlf(multipart +
                                   "O\n\n--O\nContent-Type: message/rfc822\n\nA: 1\n\n" +
                                   "x\n--O\nContent-ID: i\n\ny\n--O--\n"));
    HostMemory host;
    long nth = 0;
    for (; nth < 100; ++nth) {
        take_log();
        host.fail_allocation = nth;
        const long before = host.live_blocks;
        PartNode *tree = message.parse();
        const bool failed = host.fail_allocation < 0;
        host.fail_allocation = -1;
        list_freemime(tree);
        EXPECT_EQ(before, host.live_blocks) << nth;
        if (!failed) break;
        EXPECT_FALSE(take_log_lines().empty()) << nth;
    }
    EXPECT_GT(nth, 8);
    EXPECT_LT(nth, 100);
}

TEST(MimeParse, SurvivesTheFailureOfAnyRead)
{
    const MessageText message(crlf(multipart + "O\n\n--O\n\nx\n--O--\n"));
    for (int nth = 0;; ++nth) {
        int left = nth;
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == "pread" && left-- == 0 ? EIO : 0;
        };
        const Tree tree = parse(message);
        if (left >= 0) break;
        EXPECT_TRUE(tree == nullptr || tree->child_count == 1) << nth;
        ASSERT_LT(nth, 20);
    }
}

static uint32_t next_part(const MessageText &message, uint32_t position, uint32_t *header,
                          uint32_t *body)
{
    return list_get1mime(message.fd(), position, "b", header, body);
}

TEST(PartSearch, FindsOnePartAfterTheOther)
{
    const MessageText message(crlf("x\n--b\nH: 1\n\none\n--bc\n\n--b--\nz\n"));
    uint32_t header = 9, body = 9;
    const uint32_t first = next_part(message, 0, &header, &body);
    EXPECT_EQ(8u, first);
    EXPECT_EQ(8u, header);
    EXPECT_EQ(5u, body);
    const uint32_t second = next_part(message, first + header + body, &header, &body);
    EXPECT_EQ(27u, second);
    EXPECT_EQ(2u, header);
    EXPECT_EQ(0u, body);
    EXPECT_EQ(0u, next_part(message, second + header + body, &header, &body));
    EXPECT_EQ(0u, next_part(message, 4000, &header, &body));
    EXPECT_EQ(0u, list_get1mime(-1, 0, "b", &header, &body));
}

TEST(PartSearch, TakesAnyLineThatBeginsWithCarriageReturnForTheEndOfTheHeader)
{
    const MessageText message("--b\nH: 1\n\rX: 2\nbody\n--b\n");
    uint32_t header = 0, body = 0;
    EXPECT_EQ(4u, next_part(message, 0, &header, &body));
    EXPECT_EQ(11u, header);
    EXPECT_EQ(5u, body);
}

TEST(EnclosedMessage, EndsItsHeaderWithAnEmptyLineOnly)
{
    const MessageText message("A: 1\r\n\rX\r\n\r\nbody");
    const Tree tree(list_getrfc822(message.fd(), 0, message.size()), list_freemime);
    ASSERT_NE(nullptr, tree);
    EXPECT_EQ(12u, tree->header_length);
    EXPECT_EQ(4u, tree->body_length);
    EXPECT_EQ(nullptr, list_getrfc822(message.fd(), 0, 11)) << "the empty line is cut off";
    const Tree just(list_getrfc822(message.fd(), 0, 12), list_freemime);
    EXPECT_NE(nullptr, just);
    EXPECT_EQ(nullptr, list_getrfc822(-1, 0, 12));
}

/* Lines of the parser are 2,046 bytes long at most, wherever reading began. */
TEST(MimeParse, CutsLongLinesIntoPieces)
{
    for (const size_t length : {2044u, 2045u, 2046u, 2047u, 4092u}) {
        const MessageText message(multipart + "b\r\n\r\n--b\r\n\r\n" + std::string(length, 'a') +
                                  "--b\r\n");
        EXPECT_EQ(length % 2046 == 0 ? 1u : 0u, parse(message)->child_count) << length;
    }
}
