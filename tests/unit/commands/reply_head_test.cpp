/* The header builders and their limits. */
#include <string.h>

#include "tests/unit/commands/commands_test.h"

class ReplyHeaders : public CommandTest
{
};

using Builder = void (*)(DeliveryJob *, char *, int);

static void build_command_header(DeliveryJob *job, char *out, int size)
{
    make_cmdrpy_header(job, "get", out, size);
}

static const struct {
    const char *label;
    Builder build;
    int number;
    const char *text;
} builders[] = {
    {"command", build_command_header, 201, "mlname=mylist make cmdrpy header buffer too short"},
    {"digest", make_dgtrpy_header, 202, "mlnane=mylist make dgtrpy header buffer too short"},
    {"denial", make_mldeny_header, 203, "mlname=mylist, make mldeny header buffer too short"},
    {"mime", make_cmdrpy_mimeheader, 204, "mlname=mylist make cmdrpy mimeheader buffer too short"},
    {"text part", make_cmdrpy_mimetext, 205, "mlname=mylist make cmdrpy mimetext buffer too short"},
    {"mail part", make_cmdrpy_mimemail, 206, "mlname=mylist make cmdrpy mimetext buffer too short"},
    {"end", make_cmdrpy_mimeperiod, 207, "mlname=mylist make cmdrpy mimeperiod buffer too short"},
};

TEST_F(ReplyHeaders, ABlockThatDoesNotFitIsLeftOutAndLogged)
{
    for (const auto &row : builders) {
        SCOPED_TRACE(row.label);
        char whole[LINE_SIZE], block[LINE_SIZE];
        row.build(job(), whole, sizeof(whole));
        const int length = static_cast<int>(strlen(whole));
        ASSERT_GT(length, 0);
        (void)take_log();

        memset(block, 'x', sizeof(block));
        row.build(job(), block, length + 1);
        EXPECT_STREQ(whole, block) << "what fits exactly is there";
        EXPECT_EQ('x', block[length + 1]) << "and nothing behind it";
        EXPECT_TRUE(take_log().empty());

        memset(block, 'x', sizeof(block));
        row.build(job(), block, length);
        EXPECT_STREQ("", block);
        EXPECT_EQ('x', block[length]);
        const std::vector<LogLine> lines = take_log();
        ASSERT_EQ(1u, lines.size());
        EXPECT_EQ(1, lines[0].level);
        EXPECT_EQ(row.number, lines[0].msgno);
        EXPECT_EQ(row.text, lines[0].text);

        block[0] = 'y';
        row.build(job(), block, 0);
        EXPECT_EQ('y', block[0]) << "no room, nothing touched";
        (void)take_log();
    }
}

TEST_F(ReplyHeaders, WithALongMessageIdTheReplyGoesOnWithoutItsHeader)
{
    const std::string id(4090, 'm');
    strcpy(job()->message_id, id.c_str());
    archive_sample(1);
    forget();
    ASSERT_EQ(0, create_cmdrpy(job(), COMMAND_GET, "1", VARIANT_NORMAL));
    EXPECT_EQ("\r\nML Command Reply:\r\n\r\n>>> get 1\r\nSucceeded\r\n-\r\n" + sample(1),
              reply_file());
    EXPECT_EQ(
        (std::vector<std::string>{"1/201 mlname=mylist make cmdrpy header buffer too short",
                                  "1/204 mlname=mylist make cmdrpy mimeheader buffer too short",
                                  "1/205 mlname=mylist make cmdrpy mimetext buffer too short",
                                  "1/206 mlname=mylist make cmdrpy mimetext buffer too short",
                                  "1/207 mlname=mylist make cmdrpy mimeperiod buffer too short"}),
        log());
}
