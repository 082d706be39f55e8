/* Every row of the tables of replies, byte for byte. */
#include <string.h>
#include <unistd.h>

#include <optional>

#include "tests/support/golden.h"
#include "tests/unit/commands/commands_test.h"

class ReplyGolden : public CommandTest
{
  protected:
    ReplyGolden()
    {
        for (const uint32_t number : {1, 2, 3, 5})
            archive_sample(number);
    }

    /* Composes a reply, as its command would, and compares it. */
    void expect_reply(const std::string &name, int kind, int variant, const char *text = nullptr)
    {
        SCOPED_TRACE(name);
        const bool needs_archive = kind == COMMAND_SUMMARY;
        const std::string box = list.box();
        if (needs_archive) job()->mailbox = list_mbx_open(box.c_str(), 1);
        EXPECT_EQ(0, create_cmdrpy(job(), kind, text, variant));
        if (needs_archive) list_mbx_close(job()->mailbox);
        job()->mailbox = nullptr;
        expect_golden("replies/" + name + ".eml", reply_file());
    }
};

/* A golden reply with its command's word exchanged. */
static std::string golden_with(const std::string &name, const std::string &from,
                               const std::string &to)
{
    std::string text = read_file(MLIST_GOLDEN_DIR "/replies/" + name + ".eml");
    EXPECT_FALSE(text.empty()) << name;
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

TEST_F(ReplyGolden, EveryKindAndVariant)
{
    const char *id = "0123456789ABCDEF";
    expect_reply("inactive", COMMAND_GET, VARIANT_INACTIVE);
    expect_reply("denied", COMMAND_MEMBER, VARIANT_DENIED);
    expect_reply("confirm-subscribe", COMMAND_SUBSCRIBE, VARIANT_CONFIRM, id);
    expect_reply("confirm-unsubscribe", COMMAND_UNSUBSCRIBE, VARIANT_CONFIRM, id);
    expect_reply("get", COMMAND_GET, VARIANT_NORMAL, "1 2 3 5");
    expect_reply("summary", COMMAND_SUMMARY, VARIANT_NORMAL, "1-5");
    expect_reply("digest", COMMAND_PUSH, VARIANT_NORMAL, "2 3");
    expect_reply("succeeded", COMMAND_OFF, VARIANT_NORMAL);
    expect_reply("summary-failed", COMMAND_SUMMARY, VARIANT_ERROR, "5");
    expect_reply("get-failed", COMMAND_GET, VARIANT_ERROR, "7,9-12");
    expect_reply("invalid", REPLY_INVALID_COMMAND, VARIANT_ERROR, "helo  there");
    expect_reply("nothing", REPLY_NO_COMMAND, VARIANT_ERROR);
    expect_reply("failed", COMMAND_ON, VARIANT_ERROR);
}

TEST_F(ReplyGolden, HelpWelcomeMembersAndStatus)
{
    expect_reply("help-builtin", COMMAND_HELP, VARIANT_NORMAL);
    expect_reply("subscribe", COMMAND_SUBSCRIBE, VARIANT_NORMAL);
    expect_reply("member", COMMAND_MEMBER, VARIANT_NORMAL);
    expect_reply("stat-stranger", COMMAND_STAT, VARIANT_NORMAL);
    send_as("bob@example.jp");
    expect_reply("stat-member", COMMAND_STAT, VARIANT_NORMAL);
    send_as("carol@example.com");

    texts.help = {"First piece", "\xa4\xe8\xa4\xa6\xa4\xb3\xa4\xbd"};
    texts.welcome = "\xa4\xe8\xa4\xa6\xa4\xb3\xa4\xbd";
    expect_reply("help-host", COMMAND_HELP, VARIANT_NORMAL);
    expect_reply("subscribe-host", COMMAND_SUBSCRIBE, VARIANT_NORMAL);

    list.put("msg/help", "Ask the owner.\nOr read on.\n");
    list.put("msg/welcome", "Welcome to mylist.\r\n");
    expect_reply("help-own", COMMAND_HELP, VARIANT_NORMAL);
    expect_reply("subscribe-own", COMMAND_SUBSCRIBE, VARIANT_NORMAL);
}

TEST_F(ReplyGolden, AMessageThatIsGoneLeavesItsPartEmpty)
{
    unlink(message_path(2).c_str());
    expect_reply("get-gone", COMMAND_GET, VARIANT_NORMAL, "2 3");
}

TEST_F(ReplyGolden, DenialNotices)
{
    list.put("jnl/j." + std::to_string(gettid()),
             crlf({"From: carol@example.com", "Message-ID: <c1@example.com>",
                   "Subject: [mylist:1] Buy", "", "Some text."}));
    const std::string notice = list.control("msg/mldeny." + std::to_string(gettid()));
    EXPECT_EQ(0, create_mldeny(job(), ""));
    expect_golden("replies/denial.eml", read_file(notice));
    EXPECT_EQ(0, create_mldeny(job(), "Max message size over (10KB)"));
    expect_golden("replies/denial-size.eml", read_file(notice));
}

TEST_F(ReplyGolden, TheRowsForAnyCommandHoldForEachOfThem)
{
    for (int kind = COMMAND_HELP; kind <= COMMAND_PUSH; ++kind) {
        const std::string word = g_str_cmd[kind];
        SCOPED_TRACE(word);
        EXPECT_EQ(0, create_cmdrpy(job(), kind, nullptr, VARIANT_INACTIVE));
        EXPECT_EQ(golden_with("inactive", "get", word), reply_file());
        EXPECT_EQ(0, create_cmdrpy(job(), kind, nullptr, VARIANT_DENIED));
        EXPECT_EQ(golden_with("denied", "member", word), reply_file());
        if (kind != COMMAND_SUBSCRIBE) {
            EXPECT_EQ(0, create_cmdrpy(job(), kind, "0123456789ABCDEF", VARIANT_CONFIRM));
            EXPECT_EQ(golden_with("confirm-unsubscribe", "unsubscribe", word), reply_file());
        }
        if (kind == COMMAND_GET || kind == COMMAND_SUMMARY || kind == COMMAND_PUSH) continue;
        EXPECT_EQ(0, create_cmdrpy(job(), kind, nullptr, VARIANT_ERROR));
        std::string wanted = golden_with("failed", "[on]", "[" + word + "]");
        wanted.replace(wanted.find(">>> on"), 6, ">>> " + word);
        EXPECT_EQ(wanted, reply_file());
    }
    for (const int kind : {COMMAND_UNSUBSCRIBE, COMMAND_ON, COMMAND_DIGEST}) {
        EXPECT_EQ(0, create_cmdrpy(job(), kind, nullptr, VARIANT_NORMAL));
        EXPECT_EQ(golden_with("succeeded", "off", g_str_cmd[kind]), reply_file());
    }
}

TEST_F(ReplyGolden, AFailedPushWritesNoReplyAtAll)
{
    EXPECT_EQ(-1, create_cmdrpy(job(), COMMAND_PUSH, "1", VARIANT_ERROR));
    EXPECT_EQ("", reply_file());
}

TEST_F(ReplyGolden, TheNumberListIsShortenedInto64BytesOrShownAsItIs)
{
    std::string scattered, ninety;
    for (int number = 1; number < 60; number += 2)
        scattered += (scattered.empty() ? "" : " ") + std::to_string(number);
    for (int number = 1; number <= 90; ++number)
        ninety += (ninety.empty() ? "" : " ") + std::to_string(number);
    EXPECT_EQ(0, create_cmdrpy(job(), COMMAND_GET, scattered.c_str(), VARIANT_NORMAL));
    EXPECT_NE(std::string::npos, reply_file().find("\r\n>>> get " + scattered + "\r\nSucceeded"));
    EXPECT_EQ(0, create_cmdrpy(job(), COMMAND_GET, ninety.c_str(), VARIANT_NORMAL));
    EXPECT_NE(std::string::npos, reply_file().find("\r\n>>> get 1-90\r\nSucceeded\r\n-\r\n"));
    EXPECT_EQ(0, create_cmdrpy(job(), COMMAND_PUSH, scattered.c_str(), VARIANT_NORMAL));
    EXPECT_NE(std::string::npos,
              reply_file().find("\r\nDigest Mails:\r\n\r\n>>> " + scattered + "\r\n-\r\n"));
}

TEST_F(ReplyGolden, AnEmptyReplyToShowsWhatThePipelinePutThere)
{
    strcpy(job()->settings.reply_to, job()->list_name);
    EXPECT_EQ(0, create_cmdrpy(job(), COMMAND_OFF, nullptr, VARIANT_NORMAL));
    EXPECT_NE(std::string::npos, reply_file().find("\r\nReply-To: mylist\r\n"));
}

TEST_F(ReplyGolden, TheLongestListOfADigestIsShownWhole)
{
    std::string numbers = "100000";
    for (uint32_t number = 100002; numbers.size() + 7 <= 4096; number += 2)
        numbers += " " + std::to_string(number);
    EXPECT_EQ(0, create_cmdrpy(job(), COMMAND_PUSH, numbers.c_str(), VARIANT_NORMAL));
    EXPECT_NE(std::string::npos, reply_file().find("\r\n>>> " + numbers + "\r\n-\r\n"));
}
