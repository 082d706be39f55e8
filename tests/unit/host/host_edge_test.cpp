/* What the daemon decides itself, and the module's answers as LMTP says them. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <fcntl.h>
#include <random>
#include <sys/file.h>
#include <thread>

#include "host/mlistd/edge.h"
#include "host/mlistd/lists.h"
#include "mlog.h"
#include "tests/reference/owner.h"
#include "tests/support/lock_waiter.h"
#include "tests/unit/host/scratch.h"

TEST(ModuleAnswers, BecomeReplies)
{
    static const struct {
        const char *label;
        ModuleAnswer answer;
        const char *line;
    } rows[] = {
        {"accepted", {0, "", ""}, "250 2.0.0 accepted\r\n"},
        {"accepted with the queue's word",
         {0, "", "queued as 7"},
         "250 2.0.0 accepted, queued as 7\r\n"},
        {"accepted although a text stands",
         {0, "538 Max message size over (1KB) [ml=x] 001\n", ""},
         "250 2.0.0 accepted\r\n"},
        {"refused",
         {69, "510 loop detected (X-ML-Name: x@y) 001\n", ""},
         "550 5.4.6 510 loop detected (X-ML-Name: x@y) 001\r\n"},
        {"refused for another reason", {69, "518 x\n", ""}, "550 5.7.1 518 x\r\n"},
        {"refused, reason unknown to us",
         {69, "512 add header fail [ml=x] 001\n", ""},
         "550 5.3.0 512 add header fail [ml=x] 001\r\n"},
        {"refused without a text", {69, "", ""}, "550 5.3.0 refused\r\n"},
        {"an attacker's line ends",
         {69, "510 loop (X-ML-Name: a\r250 2.0.0 ok\x1b[1m) 001\nb", ""},
         "550 5.4.6 510 loop (X-ML-Name: a250 2.0.0 ok[1m) 001\r\n"},
        {"the lock's fault",
         {69, "502 file lock time out [ml=x] 001\n", ""},
         "451 4.3.0 502 file lock time out [ml=x] 001\r\n"},
        {"the message file's fault", {69, "508 fopen", ""}, "451 4.3.0 508 fopen\r\n"},
        {"reading's fault", {69, "525 fgets", ""}, "451 4.3.0 525 fgets\r\n"},
        {"the archive's fault",
         {69, "534 can't deliver mbox", ""},
         "451 4.3.0 534 can't deliver mbox\r\n"},
        {"the journal's fault", {69, "506 f_open fail", ""}, "451 4.3.0 506 f_open fail\r\n"},
        {"the access list's fault",
         {69, "511 mail_access fail", ""},
         "451 4.3.0 511 mail_access fail\r\n"},
        {"the top banner's fault",
         {69, "517 insert banner", ""},
         "451 4.3.0 517 insert banner\r\n"},
        {"the roster's fault",
         {69, "521  mail_access2 fail", ""},
         "451 4.3.0 521  mail_access2 fail\r\n"},
        {"the bottom banner's fault",
         {69, "526 insert banner", ""},
         "451 4.3.0 526 insert banner\r\n"},
        {"the digest status's fault",
         {69, "532 set dgtstat fail", ""},
         "451 4.3.0 532 set dgtstat fail\r\n"},
        {"a command's fault",
         {69, "523 command procedure fail", ""},
         "451 4.3.0 523 command procedure fail\r\n"},
        {"the denial notice's fault",
         {69, "530 create mldeny fail", ""},
         "451 4.3.0 530 create mldeny fail\r\n"},
        {"the renaming's fault", {69, "536 can't move", ""}, "451 4.3.0 536 can't move\r\n"},
        {"later",
         {75, "480 fputs disk full [ml=x]", ""},
         "451 4.3.0 480 fputs disk full [ml=x]\r\n"},
        {"later without a text", {75, "", ""}, "451 4.3.0 try again later\r\n"},
        {"an exit code that does not exist", {1, "", ""}, "451 4.3.0 try again later\r\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(reply_for(row.answer).line(), row.line) << row.label;
}

TEST(ForgedSenders, AreFoundWhereverAnAddressMayStart)
{
    for (const char *from :
         {"owner-mylist@example.jp", " OWNER-MyList@example.jp", "<owner-mylist@example.jp>",
          "\"x\" <owner-mylist@evil>", "x < owner-mylist@evil", "owner-mylist2@evil",
          "(c) owner-mylist@x", "ow(c)ner-mylist@x", "ow(a/)b)ner-mylist@x",
          "\"<a@b>\" <owner-mylist@x>", "a@b, owner-mylist@x", "<a@b> <owner-mylist@x",
          "group:owner-mylist@x;", "\"owner-mylist\"@x"})
        EXPECT_TRUE(claims_to_be_owner(from, "mylist")) << from;
    for (const char *from :
         {"", "alice@example.net", "Mr owner-mylist <alice@example.net>", "owner-other@example.jp",
          "not-owner-mylist@example.jp", "<alice+owner-mylist@example.jp>"})
        EXPECT_FALSE(claims_to_be_owner(from, "mylist")) << from;
    EXPECT_TRUE(claims_to_be_daemon(" Mail System <MAILER-Daemon@mx>"));
    EXPECT_TRUE(claims_to_be_daemon("mailer-daemon"));
    EXPECT_FALSE(claims_to_be_daemon("daemon@x"));
}

TEST(WhoAsks, IsTheAddressThatTheModuleWillMakeOfIt)
{
    std::mt19937 random(1);
    static const std::string alphabet = "ab@.()()<>\"\"/\\ \t";
    for (int round = 0; round < 20000; ++round) {
        std::string from;
        for (unsigned length = random() % 40; length > 0; --length)
            from += alphabet[random() % alphabet.size()];
        ASSERT_EQ(reference::owner(from), who_asks(from)) << from;
    }
}

TEST(AutomaticMail, IsKnownByTwoHeaders)
{
    for (const HeaderFacts &facts :
         {HeaderFacts{.auto_submitted = "auto-replied"},
          HeaderFacts{.auto_submitted = "auto-generated; x=y"}, HeaderFacts{.precedence = "Junk"},
          HeaderFacts{.precedence = "bulk"},
          HeaderFacts{.auto_submitted = "no", .precedence = "bulk"}})
        EXPECT_TRUE(is_automatic(facts)) << facts.auto_submitted << facts.precedence;
    for (const HeaderFacts &facts :
         {HeaderFacts{}, HeaderFacts{.auto_submitted = "No"},
          HeaderFacts{.auto_submitted = "no (comment)"}, HeaderFacts{.precedence = "list"}})
        EXPECT_FALSE(is_automatic(facts)) << facts.auto_submitted << facts.precedence;
}

namespace
{

/* The edge over a module that does as the list's name says (fake_module.cpp). */
class EdgeTest : public testing::Test
{
  protected:
    struct Queued {
        std::string file, sender;
        std::vector<std::string> recipients;
        std::string list;
    };

    void SetUp() override
    {
        mlog_set_target("none");
        settings.data_directory = scratch.path();
        settings.control_root = scratch.path("control");
        settings.archive_root = scratch.path("archive");
        settings.config_directory = scratch.path("conf");
        auto loaded = load_module(FAKE_MODULE);
        ASSERT_TRUE(loaded) << loaded.error().text;
        module = *loaded;
        ASSERT_TRUE(initialize_module(module, settings));
        scratch.write("mail", "A: b\r\n\r\nc\r\n");
    }

    void make_list(const std::string &name)
    {
        scratch.write("control/d/" + name + "/init", "");
        scratch.write("control/d/" + name + "/active", "a@x\r\nb@y\r\n");
        scratch.write("control/d/" + name + "/digest", "d@x\r\n");
    }

    Reply deliver(const std::string &address, const HeaderFacts &facts = {},
                  const std::string &sender = "a@x")
    {
        const auto list = parse_list_address(address, settings.control_suffixes);
        return edge.deliver(*list, {mail, sender, facts, 10});
    }

    Reply check(const std::string &address, const std::string &sender = "a@x")
    {
        return edge.check_recipient(*parse_list_address(address, settings.control_suffixes),
                                    sender);
    }

    Scratch scratch;
    Settings settings;
    ModuleLibrary module{};
    std::vector<Queued> queued;
    bool queue_works = true;
    Placeholders placeholders;
    ModuleHost host{
        module, settings, placeholders,
        [this](const std::string &file, const std::string &sender,
               std::span<const std::string> recipients,
               const std::string &list) -> Result<std::string> {
            if (!queue_works) return Error{"no room", ENOSPC};
            queued.push_back(
                {read_file(file), sender, {recipients.begin(), recipients.end()}, list});
            return std::to_string(queued.size());
        }};
    struct Order : ListOrder {
        bool in_order(const ListAddress &) override { return answer; }
        void doubt(const ListAddress &list) override { doubted.push_back(list.name()); }
        bool answer = true;
        std::vector<std::string> doubted;
    } order;
    Edge edge{host, order};
    const std::string mail = scratch.path("mail");
};

} // namespace

TEST_F(EdgeTest, AListThatIsNotInOrderTakesNoMailYet)
{
    make_list("one");
    order.answer = false;
    EXPECT_EQ("451 4.3.0 the list's files are not in order\r\n", deliver("one@d").line());
    EXPECT_EQ(451, deliver("one-ctl@d", {.from = "a@x"}).code);
    order.answer = true;
    EXPECT_EQ(250, deliver("one@d").code);
}

TEST_F(EdgeTest, AListIsDoubtedAfterAFaultOfTheMachine)
{
    for (const char *name : {"one", "refuse", "later"})
        make_list(name);
    EXPECT_EQ(250, deliver("one@d").code);
    EXPECT_EQ(550, deliver("refuse@d").code);
    EXPECT_EQ(std::vector<std::string>{}, order.doubted);
    EXPECT_EQ(451, deliver("later@d").code);
    EXPECT_EQ(std::vector<std::string>{"later@d"}, order.doubted);
}

TEST_F(EdgeTest, AListIsDoubtedAfterCommands)
{
    make_list("one");
    EXPECT_EQ(250, deliver("one-ctl@d", {.from = "a@x"}).code);
    EXPECT_EQ(std::vector<std::string>{"one@d"}, order.doubted) << "leaving succeeds at any rate";
}

TEST_F(EdgeTest, AListThatCannotBeLookedAtIsNotUnknown)
{
    settings.control_root = scratch.path("control");
    ASSERT_EQ(0, symlink("loop", settings.control_root.c_str()));
    ASSERT_EQ(0, symlink("control", scratch.path("loop").c_str()));
    EXPECT_EQ(451, check("one@d").code);
}

TEST_F(EdgeTest, KnowsOnlyListsWithASettingsFile)
{
    make_list("one");
    EXPECT_EQ(check("one@d").code, 250);
    EXPECT_EQ(check("two@d").code, 550);
    EXPECT_EQ(check("one@e").code, 550);
    std::filesystem::create_directories(scratch.path("control/d/dir/init"));
    EXPECT_EQ(check("dir@d").code, 550) << "a directory is no settings file";
    std::filesystem::create_directories(scratch.path("control/d/link"));
    std::filesystem::create_symlink(scratch.path("control/d/one/init"),
                                    scratch.path("control/d/link/init"));
    EXPECT_EQ(check("link@d").code, 550) << "nor is a symbolic link";
    EXPECT_EQ(deliver("two@d").code, 550);
    EXPECT_EQ(names_in(scratch.path("control/d")),
              (std::vector<std::string>{"dir", "link", "one"}));
    EXPECT_EQ(all_lists(settings).size(), 1u);
}

TEST_F(EdgeTest, BouncesReachOnlyTheOwners)
{
    make_list("one");
    scratch.write("conf/lists/d/one/owners", "boss@x\r\n\r\nnonsense\nother@y\n");
    for (const char *sender : {"", "MAILER-DAEMON@mx", "mailer-daemon@mx"}) {
        EXPECT_EQ(check("one@d", sender).code, 550) << sender;
        EXPECT_EQ(check("one-ctl@d", sender).code, 550) << sender;
        EXPECT_EQ(check("owner-one@d", sender).code, 250) << sender;
    }
    EXPECT_EQ(deliver("one-owner@d", {}, "").code, 250);
    ASSERT_EQ(queued.size(), 1u);
    EXPECT_EQ(queued[0].sender, "");
    EXPECT_EQ(queued[0].recipients, (std::vector<std::string>{"boss@x", "other@y"}));
    EXPECT_EQ(deliver("one@d", {.from = "MAILER-DAEMON@mx"}).code, 550);
    EXPECT_EQ(queued.size(), 1u);
}

TEST_F(EdgeTest, AListWithoutOwnersHasNoOwnersAddress)
{
    make_list("one");
    EXPECT_EQ(check("owner-one@d").code, 550);
    scratch.write("conf/lists/d/one/owners", "# nobody\n");
    EXPECT_EQ(check("owner-one@d").code, 550);
}

TEST_F(EdgeTest, TheControlAddressTakesNoForgedAndNoAutomaticMail)
{
    make_list("one");
    EXPECT_EQ(deliver("one-ctl@d", {.from = "owner-one@d"}).code, 550);
    EXPECT_EQ(deliver("one-ctl@d", {.from = "<MAILER-DAEMON@d>"}).code, 550);
    EXPECT_EQ(deliver("one-ctl@d", {.auto_submitted = "auto-replied"}).code, 250);
    EXPECT_TRUE(queued.empty()) << "no command has been carried out";
    EXPECT_EQ(deliver("one-ctl@d", {.from = "a@x"}).code, 250);
    EXPECT_EQ(deliver("one@d", {.from = "owner-one@d", .precedence = "bulk"}).code, 250)
        << "who posts may be anyone";
    EXPECT_EQ(queued.size(), 2u);
}

/* The roster ends an address at its first blank: who has one would never be found again, and what
   stands before the blank might be somebody else. */
TEST_F(EdgeTest, TheControlAddressTakesCommandsOnlyOfWhoHasAnAddress)
{
    make_list("one");
    for (const char *from : {"", "  ", "<>", "Bob B", "victim@x on", "a@x, b@x", "<a@x b>",
                             "a@x\x01", "bob@x <a@x", "\"a b\"@x"})
        EXPECT_EQ(deliver("one-ctl@d", {.from = from}).line(),
                  "550 5.1.7 the From line has no address that can be answered\r\n")
            << from;
    EXPECT_TRUE(queued.empty()) << "no command has been carried out";
    for (const char *from : {"a@x", " A B <a@x>", "a@x (A B)", "(c) <a@x>, <b@x>"})
        EXPECT_EQ(deliver("one-ctl@d", {.from = from}).code, 250) << from;
    EXPECT_EQ(queued.size(), 4u);
    EXPECT_EQ(deliver("one@d", {.from = "victim@x on"}).code, 250) << "who posts may be anyone";
}

TEST_F(EdgeTest, PassesTheModulesAnswersOn)
{
    for (const char *list :
         {"refuse", "machine", "later", "mute", "memory", "digest", "reply", "one"})
        make_list(list);
    EXPECT_EQ(deliver("refuse@d").line(), "550 5.4.6 510 loop detected (X-ML-Name: x) 007\r\n");
    EXPECT_EQ(deliver("machine@d").line(), "451 4.3.0 534 can't deliver mbox [ml=machine] 007\r\n");
    EXPECT_EQ(deliver("later@d").code, 451);
    EXPECT_EQ(deliver("mute@d").code, 550);
    EXPECT_EQ(deliver("memory@d").code, 250);
    EXPECT_TRUE(queued.empty());
    EXPECT_EQ(deliver("one@d").line(), "250 2.0.0 accepted, queued as 1\r\n");
}

TEST_F(EdgeTest, SubmissionsGoToWhomTheModuleMeans)
{
    for (const char *list : {"digest", "reply", "one"})
        make_list(list);
    EXPECT_EQ(deliver("one@d").code, 250);
    EXPECT_EQ(deliver("digest-ctl@d", {.from = "a@x"}).code, 250);
    EXPECT_EQ(deliver("reply-ctl@d", {.from = "a@x"}).code, 250);
    ASSERT_EQ(queued.size(), 3u);
    EXPECT_EQ(queued[0].file, "A: b\r\n\r\nc\r\n");
    EXPECT_EQ(queued[0].sender, "owner-one@d");
    EXPECT_EQ(queued[0].recipients, (std::vector<std::string>{"a@x", "b@y"}));
    EXPECT_EQ(queued[0].list, "one@d");
    EXPECT_EQ(queued[1].recipients, (std::vector<std::string>{"d@x"}));
    EXPECT_EQ(queued[2].recipients, (std::vector<std::string>{"someone@example.net"}));
}

TEST_F(EdgeTest, ARewriteCutShortIsFinishedBeforeTheMembersAreRead)
{
    make_list("one");
    scratch.write("control/d/one/active.new", "new@x\r\n");
    EXPECT_EQ(deliver("one@d").code, 250);
    EXPECT_EQ(queued[0].recipients, (std::vector<std::string>{"new@x"}));
}

TEST_F(EdgeTest, TheMembersAreReadUnderTheListsLock)
{
    make_list("one");
    const Fd lock(
        open((scratch.path("control/d/one/lock")).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    std::thread delivery([&] { EXPECT_EQ(deliver("one@d").code, 250); });
    wait_for_a_waiter(lock.get());
    scratch.write("control/d/one/active", "late@x\r\n");
    flock(lock.get(), LOCK_UN);
    delivery.join();
    EXPECT_EQ(queued[0].recipients, (std::vector<std::string>{"late@x"}));

    /* The digest's are not: the module holds the lock itself then. */
    make_list("digest");
    const Fd held(
        open((scratch.path("control/d/digest/lock")).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
    EXPECT_EQ(deliver("digest-ctl@d", {.from = "a@x"}).code, 250);
}

TEST_F(EdgeTest, WhatCannotBeQueuedIsNotAccepted)
{
    make_list("one");
    make_list("reply");
    scratch.write("conf/lists/d/one/owners", "boss@x\n");
    queue_works = false;
    EXPECT_EQ(deliver("one@d").line(), "451 4.3.0 537 mailfile fail (ex_tempfail)\r\n");
    EXPECT_EQ(deliver("reply@d").code, 550);
    EXPECT_EQ(deliver("owner-one@d").code, 451);
}

TEST_F(EdgeTest, AMissingMemberFileHasNoMembers)
{
    make_list("one");
    std::filesystem::remove(scratch.path("control/d/one/active"));
    EXPECT_EQ(deliver("one@d").code, 250);
    EXPECT_TRUE(queued[0].recipients.empty());
}

TEST_F(EdgeTest, ABusyListIsAnsweredWithLater)
{
    make_list("slow");
    settings.lmtp_list_wait = 0;
    std::thread first([&] { EXPECT_EQ(deliver("slow@d").code, 250); });
    while (!std::filesystem::exists(scratch.path("control/d/slow/begun")))
        std::this_thread::yield();
    EXPECT_EQ(deliver("slow@d").line(), "451 4.3.2 the list is busy, try again later\r\n");
    scratch.write("control/d/slow/go", "");
    first.join();
    EXPECT_EQ(deliver("slow@d").code, 250);
}

TEST(ModuleLibrary, SaysWhatIsMissing)
{
    EXPECT_FALSE(load_module("/nonexistent/mlist.so.0"));
    const auto other = load_module("libc.so.6");
    ASSERT_FALSE(other);
    EXPECT_NE(other.error().text.find("ModuleInitialize"), std::string::npos);
}
