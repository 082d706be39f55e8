/* Messages made to keep the parser busy: what it reads and builds is counted. */
#include <gtest/gtest.h>

#include <memory>

#include "archive/mime.h"
#include "archive/mime_lines.h"
#include "module/os.h"
#include "tests/reference/imap_read.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

using Tree = std::unique_ptr<PartNode, decltype(&list_freemime)>;

static uint64_t bytes_read;

/* While it lives, bytes that are read are counted. */
struct ReadCount {
    OsCalls calls = kernel_calls;
    ReadCount()
    {
        bytes_read = 0;
        calls.pread = [](int fd, void *data, size_t size, off_t offset) -> ssize_t {
            const ssize_t got = kernel_calls.pread(fd, data, size, offset);
            if (got > 0) bytes_read += static_cast<uint64_t>(got);
            return got;
        };
        os = &calls;
    }
    ~ReadCount() { os = &kernel_calls; }
};

static uint32_t count_parts(const PartNode *part)
{
    if (part == nullptr) return 0;
    uint32_t count = 1 + count_parts(part->enclosed);
    for (uint32_t i = 0; i < part->child_count; ++i)
        count += count_parts(part->children[i]);
    return count;
}

static int depth_of(const PartNode *part)
{
    if (part == nullptr) return 0;
    int deepest = depth_of(part->enclosed);
    for (uint32_t i = 0; i < part->child_count; ++i)
        deepest = std::max(deepest, depth_of(part->children[i]));
    return deepest + 1;
}

/* Parses it and prints it; checks that neither took more than the message is worth. */
static std::string demand_bounded(const std::string &label, const std::string &text,
                                  unsigned most_reads = 3)
{
    const MessageText message(text);
    const ReadCount count;
    const Tree tree(message.parse(), list_freemime);
    EXPECT_NE(nullptr, tree) << label;
    EXPECT_LE(bytes_read, most_reads * text.size() + 4096) << label;
    EXPECT_LE(count_parts(tree.get()), MIME_MAX_PARTS + 1u) << label;
    EXPECT_LE(depth_of(tree.get()), MIME_MAX_DEPTH + 1) << label;
    bytes_read = 0;
    const std::string shown = printed([&] { list_getbody(message.fd(), tree.get(), 1); });
    EXPECT_LE(bytes_read, most_reads * text.size() + 4096) << label;
    take_log();
    return shown;
}

static std::string repeat(const std::string &text, int times)
{
    std::string out;
    for (; times > 0; --times)
        out += text;
    return out;
}

static std::string head(const std::string &boundary)
{
    return "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n";
}

TEST(HostileMime, NestsMessagesTenThousandDeep)
{
    const std::string shown = demand_bounded(
        "messages", repeat("Content-Type: message/rfc822\r\n\r\n", 10000) + "X: 1\r\n\r\nend\r\n");
    /* 64 messages within each other; the one that is too deep is NIL */
    EXPECT_NE(std::string::npos, shown.find("NIL NIL NIL NIL NIL NIL NIL NIL NIL NIL) NIL "));
}

TEST(HostileMime, NestsMultipartsTenThousandDeep)
{
    std::string text;
    for (int i = 0; i < 10000; ++i)
        text += head("b" + std::to_string(i) + "_") + "--b" + std::to_string(i) + "_\r\n";
    text += "\r\ntext\r\n";
    for (int i = 9999; i >= 0; --i)
        text += "--b" + std::to_string(i) + "_--\r\n";
    const std::string shown = demand_bounded("multiparts", text, 70);
    EXPECT_TRUE(imap::read_value(shown) && imap::is_body(*imap::read_value(shown), true));
}

TEST(HostileMime, HasAHundredThousandParts)
{
    const MessageText message(head("b") + repeat("--b\r\n\r\nx\r\n", 100000) + "--b--\r\n");
    const Tree tree(message.parse(), list_freemime);
    ASSERT_NE(nullptr, tree);
    EXPECT_EQ(uint32_t{MIME_MAX_PARTS}, tree->child_count);
    const std::string shown =
        demand_bounded("parts", head("b") + repeat("--b\r\n\r\nx\r\n", 100000));
    EXPECT_TRUE(imap::is_body(*imap::read_value(shown), true));
}

TEST(HostileMime, HasSiblingsThatEachClaimTheRest)
{
    /* every part of the outer multipart is one with the inner boundary, up to the end of the file
     */
    demand_bounded("same boundary",
                   head("O") + repeat("--O\r\n" + head("I") + "--I\r\n\r\n1\r\n", 5000));
    std::string text = head("O");
    for (int i = 0; i < 4000; ++i)
        text += "--O\r\n" + head("I" + std::to_string(i));
    text += std::string(200000, 'x');
    for (int i = 0; i < 4000; ++i)
        text += "\r\n--I" + std::to_string(i) + "\r\n--I" + std::to_string(i);
    demand_bounded("boundaries of their own", text, 20);
}

TEST(HostileMime, HasHeadersThatOverlap)
{
    /* the headers of all parts end at one place near the end of the file */
    std::string text = head("O");
    for (int i = 0; i < 3000; ++i)
        text += "--O\r\n" + head("H" + std::to_string(i) + "_");
    for (int i = 0; i < 3000; ++i)
        text += "--H" + std::to_string(i) + "_\r\n";
    text += repeat("X: y\r\n", 50000) + "\r\n";
    for (int i = 0; i < 3000; ++i)
        text += "--H" + std::to_string(i) + "_\r\n";
    demand_bounded("headers", text + "--O--\r\n", 20);
}

TEST(HostileMime, HasLinesOfHyphensOnly)
{
    demand_bounded("hyphens", head("zz") + repeat("--\n", 300000));
    demand_bounded("an empty boundary", head("\"\"") + repeat("--\n", 300000));
    demand_bounded("empty lines", head("b") + "--b\r\n" + repeat("\r\n", 300000) + "--b\r\n");
    demand_bounded("carriage returns", head("b") + "--b\r\n" + repeat("\r", 300000) + "--b\r\n");
    demand_bounded("no line at all", head("b") + std::string(600000, '-'));
}

/* Positions within a row of empty lines are as good as the row's own. */
TEST(HostileMime, CountsLinesWithinRowsOfEmptyOnes)
{
    const MessageText message(repeat("\r\n", 10) + "--b\r\n" + repeat("\r\n", 5) + "--b\r\n");
    for (uint32_t from = 0; from <= 20; from += 2) {
        MimeLines lines;
        LinePosition behind;
        MessageBytes bytes(message.fd());
        ASSERT_TRUE(lines.load(&bytes, 0, message.size()));
        EXPECT_EQ(17u, lines.lines_at_end());
        ASSERT_TRUE(lines.find_blank(from, message.size(), &behind));
        EXPECT_EQ(from < 20 ? from + 2 : 27u, behind.offset) << from;
        EXPECT_EQ(getlines(message.fd(), 0, behind.offset), behind.lines) << from;
        EXPECT_FALSE(lines.find_blank(from, from + 1, &behind)) << from;
    }
}

TEST(HostileMime, HasFieldsAndAddressesWithoutEnd)
{
    const std::string to = "To: " + repeat("a@b, ", 50000) + "\r\n";
    std::string type = "Content-Type: text/plain";
    for (int i = 0; i < 20000; ++i)
        type += "; n" + std::to_string(i) + "*0=a; n" + std::to_string(i) + "*1=b";
    type += "\r\n";
    const MessageText message(to + type + repeat("To: c@d\r\n", 20000) + repeat(" \r\n", 30000) +
                              "Content-ID: " + std::string(300000, '(') + "\r\n\r\nbody");
    const ReadCount count;
    const Tree tree(message.parse(), list_freemime);
    ASSERT_NE(nullptr, tree);
    const std::string envelope =
        printed([&] { EXPECT_EQ(1, list_getenvelope(message.fd(), 0, tree->header_length)); });
    const auto value = imap::read_value(envelope);
    ASSERT_TRUE(value && imap::is_envelope(*value));
    EXPECT_EQ(70000u, value->list[5].list.size());
    const auto body = imap::read_value(printed([&] { list_getbody(message.fd(), tree.get(), 1); }));
    ASSERT_TRUE(body && imap::is_body(*body, true));
    EXPECT_EQ(40000u, body->list[2].list.size());
    EXPECT_LE(bytes_read, 3u * message.size());
}
