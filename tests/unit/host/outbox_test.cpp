/* The outbox: Maildirs filled by links. */
#include "host/mlistd/outbox/outbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/unit/host/queue_calls.h"
#include "tests/unit/host/scratch.h"

namespace
{
using queue_test::Control;
using queue_test::Harm;
using Strings = std::vector<std::string>;

class OutboxTest : public testing::Test
{
  protected:
    /* The answers' kinds: d, l, n. */
    std::string deliver(const Strings &recipients, bool *usable_out = nullptr)
    {
        const Fd file(open(scratch_.write("m", "##" + text_).c_str(), O_RDONLY | O_CLOEXEC));
        const std::vector<std::string_view> to(recipients.begin(), recipients.end());
        std::vector<Answer> answers(to.size());
        Outbox outbox(scratch_.path("outbox"), "mail.example.jp");
        const bool usable =
            outbox.deliver({"abc", prefix_, file.get(), 2, static_cast<off_t>(text_.size()), 1000},
                           "owner-alpha@example.jp", to, answers);
        if (usable_out != nullptr) *usable_out = usable;
        std::string kinds;
        for (const Answer &answer : answers)
            kinds += "ldn"[static_cast<int>(answer.kind)];
        return kinds;
    }
    std::string mailbox(const std::string &name) const { return scratch_.path("outbox/" + name); }

    Scratch scratch_;
    std::string text_ = "Subject: s\r\n\r\n.body\r\n", prefix_ = "Date: d\r\n";
    const std::string name_ = "1000.abc.mail.example.jp";
};

TEST_F(OutboxTest, AMailLiesInNewOfEachRecipientsMaildir)
{
    EXPECT_EQ("dd", deliver({"a@example.jp", "b@example.jp"}));
    for (const char *who : {"a@example.jp", "b@example.jp"}) {
        EXPECT_EQ((Strings{"cur", "new", "tmp"}), names_in(mailbox(who)));
        EXPECT_EQ(Strings{name_}, names_in(mailbox(who) + "/new"));
        EXPECT_EQ("Return-Path: <owner-alpha@example.jp>\nDate: d\nSubject: s\n\n.body\n",
                  read_file(mailbox(who) + "/new/" + name_));
    }
    EXPECT_EQ(Strings{}, names_in(mailbox(".stage")));
}

TEST_F(OutboxTest, TheMessageIsWrittenOnceForAll)
{
    Strings many;
    for (int i = 0; i < 200; i++)
        many.push_back("u" + std::to_string(i) + "@x");
    EXPECT_EQ(std::string(200, 'd'), deliver(many));
    struct stat status;
    ASSERT_EQ(0, stat((mailbox("u0@x") + "/new/" + name_).c_str(), &status));
    EXPECT_EQ(200u, status.st_nlink);
}

TEST_F(OutboxTest, EverythingIsSyncedBeforeTheAnswer)
{
    for (const size_t count : {2, 100}) {
        Strings recipients;
        for (size_t i = 0; i < count; i++)
            recipients.push_back("u" + std::to_string(i) + "@" + std::to_string(count));
        (void)deliver({"first@x"}); /* makes the directories above */
        const Control control;
        EXPECT_EQ(std::string(count, 'd'), deliver(recipients));
        const auto &journal = queue_test::journal;
        const auto position = [&](const std::string &call, bool last) {
            size_t at = 0;
            for (size_t i = 0; i < journal.size(); i++)
                if (journal[i].starts_with(call) && (last || at == 0)) at = i;
            return at;
        };
        EXPECT_LT(position("write", true), position("fsync", false));
        EXPECT_LT(position("fsync", false), position("link", false));
        EXPECT_LT(position("link", true), position(count > 16 ? "syncfs" : "fsync", true));
        EXPECT_LE(journal.size(), 8 + count * 9);
    }
}

/* What is not on the disk for certain has not been delivered, though it may lie there. */
TEST_F(OutboxTest, NobodyIsDoneWhenASyncFails)
{
    for (const size_t count : {2, 17}) {
        Strings recipients;
        for (size_t i = 0; i < count; i++)
            recipients.push_back("u" + std::to_string(i) + "@x");
        const auto deliver_failing_at = [&](size_t nth, bool *usable_out) {
            std::filesystem::remove_all(scratch_.path("outbox"));
            const Control control(Harm::fail, static_cast<int>(nth), EIO);
            return deliver(recipients, usable_out);
        };
        (void)deliver_failing_at(1000, nullptr);
        const Strings calls = queue_test::journal;
        size_t syncs = 0;
        for (size_t nth = 1; nth <= calls.size(); nth++) {
            const std::string &call = calls[nth - 1];
            if (!call.starts_with("fsync") && !call.starts_with("syncfs")) continue;
            bool usable = true;
            EXPECT_EQ(std::string(count, 'l'), deliver_failing_at(nth, &usable)) << call;
            EXPECT_FALSE(usable) << call;
            syncs++;
        }
        EXPECT_EQ(count > 16 ? 4u : 9u, syncs); /* two new directories, the mail, the mailboxes */
    }
}

/* A mailbox that was made for the mail has four new names, in three directories. */
TEST_F(OutboxTest, NewMailboxesAreSyncedUpToTheRoot)
{
    const Control control;
    EXPECT_EQ("dd", deliver({"a@x", "b@x"}));
    auto &journal = queue_test::journal;
    const auto is_link = [](const std::string &call) { return call.starts_with("link "); };
    journal.erase(journal.begin(), std::find_if(journal.rbegin(), journal.rend(), is_link).base());
    for (const char *directory : {"", "/a@x", "/a@x/new", "/b@x", "/b@x/new"})
        EXPECT_EQ(1, std::count(journal.begin(), journal.end(),
                                "fsync " + scratch_.path("outbox") + directory) > 0)
            << directory;
}

TEST_F(OutboxTest, AddressesBecomeSafeNames)
{
    static const struct {
        const char *label;
        std::string address, name;
    } rows[] = {
        {"plain", "user@example.jp", "user@example.jp"},
        {"case is one mailbox", "User@Example.JP", "user@example.jp"},
        {"slashes", "../../etc/passwd", "%2E.%2F..%2Fetc%2Fpasswd"},
        {"dot", ".", "%2E"},
        {"dots", "..", "%2E."},
        {"hidden", ".stage", "%2Estage"},
        {"empty", "", "%"},
        {"percent", "a%2Fb@x", "a%252fb@x"},
        {"odd bytes", "a\x01\xff b", "a%01%FF%20b"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.name, mailbox_name(row.address)) << row.label;
    const std::string long1 = mailbox_name(std::string(310, 'x') + "1");
    const std::string long2 = mailbox_name(std::string(310, 'x') + "2");
    EXPECT_EQ(255u, long1.size());
    EXPECT_NE(long1, long2);
}

TEST_F(OutboxTest, ASecondTryFindsWhatTheFirstLeft)
{
    EXPECT_EQ("d", deliver({"a@x"}));
    EXPECT_EQ("ddd", deliver({"a@x", "b@x", "A@X"}));
    EXPECT_EQ(Strings{name_}, names_in(mailbox("a@x/new")));
    EXPECT_EQ(Strings{name_}, names_in(mailbox("b@x/new")));
}

TEST_F(OutboxTest, ALeftCopyIsReplacedAndNeverWrittenTo)
{
    scratch_.write("outbox/.stage/abc", "half a mess");
    scratch_.write("outbox/read@x/cur/kept", "");
    std::filesystem::create_hard_link(mailbox(".stage/abc"), mailbox("read@x/cur/linked"));
    EXPECT_EQ("d", deliver({"a@x"}));
    EXPECT_EQ("half a mess", read_file(mailbox("read@x/cur/linked")));
    EXPECT_TRUE(read_file(mailbox("a@x/new/") + name_).ends_with(".body\n"));
}

TEST_F(OutboxTest, OneUnusableMailboxDoesNotHarmTheOthers)
{
    scratch_.write("outbox/b@x", "a file where a mailbox should be");
    bool usable;
    EXPECT_EQ("dld", deliver({"a@x", "b@x", "c@x"}, &usable));
    EXPECT_TRUE(usable);
}

TEST_F(OutboxTest, AFullDiskAtAnyCallPromisesNothing)
{
    for (int nth = 1;; nth++) {
        const Control control(Harm::fail, nth);
        std::filesystem::remove_all(mailbox(""));
        const std::string answers = deliver({"a@x"});
        if (!control.happened()) break;
        queue_test::harm = Harm::none;
        if (answers == "d") {
            EXPECT_EQ(Strings{name_}, names_in(mailbox("a@x/new"))) << nth;
        }
        EXPECT_EQ("d", deliver({"a@x"})) << nth;
        EXPECT_EQ(Strings{name_}, names_in(mailbox("a@x/new"))) << nth;
        EXPECT_TRUE(read_file(mailbox("a@x/new/") + name_).ends_with("\n\n.body\n")) << nth;
        EXPECT_EQ(Strings{}, names_in(mailbox(".stage"))) << nth;
    }
}

TEST_F(OutboxTest, TooManyLinksGetAnotherCopy)
{
    const Control control;
    /* the link of the second recipient is one too many for the file system */
    static int links;
    links = 0;
    static QueueCalls limited;
    limited = queue_test::calls;
    limited.link = [](const char *from, const char *to) {
        if (++links == 2) {
            errno = EMLINK;
            return -1;
        }
        return queue_test::calls.link(from, to);
    };
    for (const char *who : {"a@x", "b@x", "c@x"})
        for (const char *part : {"tmp", "new", "cur"})
            std::filesystem::create_directories(mailbox(std::string(who) + "/" + part));
    queue_calls = &limited;
    EXPECT_EQ("ddd", deliver({"a@x", "b@x", "c@x"}));
    for (const char *who : {"a@x", "b@x", "c@x"})
        EXPECT_TRUE(read_file(mailbox(std::string(who) + "/new/") + name_).ends_with(".body\n"));
}
} // namespace
