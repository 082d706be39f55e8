/* The lists as the digest clock sees them: their minute, their age, the owner's mail. */
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>

#include "host/mlistd/digest/lists.h"
#include "mlog.h"
#include "tests/unit/host/scratch.h"

namespace
{

using Push = DigestLists::Push;

/* Over a module that does as the list's name says (fake_module.cpp). */
class DigestListsTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        mlog_set_target("none");
        settings.data_directory = scratch.path();
        settings.control_root = scratch.path("control");
        settings.archive_root = scratch.path("archive");
        settings.spool_directory = scratch.path("spool");
        settings.config_directory = scratch.path("conf");
        settings.hostname = "mail.example.jp";
        std::filesystem::create_directories(scratch.path("spool/in"));
        auto loaded = load_module(FAKE_MODULE);
        ASSERT_TRUE(loaded) << loaded.error().text;
        module = *loaded;
        ASSERT_TRUE(initialize_module(module, settings));
    }

    ListAddress make_list(const std::string &name, const std::string &minute = "780")
    {
        scratch.write("control/d/" + name + "/init", minute);
        scratch.write("control/d/" + name + "/digest", "d@x\r\n");
        return {Role::post, name, "d"};
    }

    Fd hold(const std::string &name)
    {
        Fd lock(open(scratch.path("control/d/" + name + "/lock").c_str(),
                     O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        EXPECT_EQ(flock(lock.get(), LOCK_EX), 0);
        return lock;
    }

    std::string unsent() { return std::to_string(names_in(scratch.path("spool/in")).size()); }

    Scratch scratch;
    Settings settings;
    ModuleLibrary module{};
    std::vector<std::string> queued; /* sender, recipients, mail */
    Placeholders placeholders;
    ModuleHost host{module, settings, placeholders,
                    [this](const std::string &file, const std::string &sender,
                           std::span<const std::string> recipients,
                           const std::string &) -> Result<std::string> {
                        queued.push_back(sender);
                        for (const std::string &recipient : recipients)
                            queued.push_back(recipient);
                        queued.push_back(read_file(file));
                        return std::string("1");
                    }};
    struct Order : ListOrder {
        bool in_order(const ListAddress &) override { return true; }
        void doubt(const ListAddress &) override {}
    } order;
    Edge edge{host, order};
    ModuleDigestLists lists{host, edge};
};

} // namespace

TEST(PushMail, IsTheOwnersCommand)
{
    setenv("TZ", "JST-9", 1);
    tzset();
    const std::string mail =
        push_mail({Role::post, "mylist", "example.jp"}, "-ctl", 1795305600, 7, "mail.example.jp");
    const std::string id = "<push.1795305600." + std::to_string(getpid()) + ".7@mail.example.jp>";
    EXPECT_EQ(mail, "Date: Sun, 22 Nov 2026 09:00:00 +0900\r\n"
                    "From: owner-mylist@example.jp\r\n"
                    "To: mylist-ctl@example.jp\r\n"
                    "Subject: push\r\n"
                    "Message-ID: " +
                        id + "\r\n\r\n# push\r\n");
}

TEST_F(DigestListsTest, ThePushPassesTheEdgeAndReachesTheDigestMembers)
{
    const ListAddress list = make_list("digest");
    EXPECT_EQ(lists.push(list, 0), Push::done);
    ASSERT_EQ(queued.size(), 3u);
    EXPECT_EQ(queued[0], "owner-digest@d");
    EXPECT_EQ(queued[1], "d@x");
    EXPECT_NE(queued[2].find("\r\nFrom: owner-digest@d\r\n"), std::string::npos);
    EXPECT_TRUE(queued[2].ends_with("\r\n\r\n# push\r\n"));
    EXPECT_EQ(unsent(), "0");
}

TEST_F(DigestListsTest, WhatTheModuleDoesNotAcceptHasFailed)
{
    EXPECT_EQ(lists.push(make_list("later"), 0), Push::failed);
    EXPECT_EQ(lists.push(make_list("refuse"), 0), Push::failed);
    EXPECT_EQ(unsent(), "0");
    std::filesystem::remove(scratch.path("spool/in"));
    EXPECT_EQ(lists.push(make_list("digest"), 0), Push::failed);
}

TEST_F(DigestListsTest, AListThatIsHeldIsBusyAndNotWaitedFor)
{
    const ListAddress list = make_list("digest");
    {
        const Fd lock = hold("digest");
        EXPECT_EQ(lists.push(list, 0), Push::busy);
        EXPECT_EQ(lists.digest_minute(list).error().code, EWOULDBLOCK);
    }
    EXPECT_TRUE(queued.empty());
    EXPECT_EQ(lists.push(list, 0), Push::done);
    ASSERT_TRUE(lists.digest_minute(list));
}

/* Reading them finishes a rewrite that was cut short; a sync that fails then closes a number. */
TEST_F(DigestListsTest, APlaceholderThatReadingTheSettingsClosedIsPutBack)
{
    const ListAddress list = make_list("one");
    placeholders = std::move(*Placeholders::take());
    module.read_settings = [](const char *, const char *, ListSettings *) {
        close(LAST_PLACEHOLDER);
        return 0;
    };
    EXPECT_TRUE(lists.digest_minute(list));
    EXPECT_NE(-1, fcntl(LAST_PLACEHOLDER, F_GETFD));
}

TEST_F(DigestListsTest, TheMinuteFollowsTheSettings)
{
    const ListAddress list = make_list("one");
    EXPECT_EQ(*lists.digest_minute(list), 780);
    {
        const Fd lock = hold("one");
        EXPECT_EQ(*lists.digest_minute(list), 780) << "unchanged, so nothing has to be read";
    }
    scratch.write("control/d/one/init", "1");
    EXPECT_EQ(*lists.digest_minute(list), 1);
    scratch.write("control/d/one/init", "nonsense");
    EXPECT_EQ(lists.digest_minute(list).error().code, EIO);
    std::filesystem::remove(scratch.path("control/d/one/init"));
    EXPECT_EQ(lists.digest_minute(list).error().code, ENOENT);
    EXPECT_FALSE(lists.exists(list));
    EXPECT_TRUE(lists.all().empty());
}

TEST_F(DigestListsTest, AListIsAsOldAsItsDirectory)
{
    const time_t before = time(nullptr);
    const ListAddress list = make_list("one");
    const auto since = lists.exists_since(list);
    if (since) { /* some file systems do not tell */
        EXPECT_GE(*since, before - 1);
        EXPECT_LE(*since, time(nullptr) + 1);
    }
    EXPECT_FALSE(lists.exists_since({Role::post, "none", "d"}));
}
