/* Checks for new mail, with one handle and with two. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/checked_box.h"

using Lines = std::vector<std::string>;

/* -- NOOP time -- */

TEST(CheckNewMail, SaysNothingWhenNothingChanged)
{
    CheckedBox at(2);
    at.box.age(10);
    const int64_t before = at.box.mtime();
    EXPECT_EQ("", at.check());
    EXPECT_EQ(before, at.box.mtime());
    EXPECT_EQ(before, at.handle->sync_stamp);
    EXPECT_EQ(0u, at.handle->mode);
}

TEST(CheckNewMail, AnnouncesNewMessages)
{
    CheckedBox at(1);
    at.box.append_samples(2);
    at.box.age(10);
    const int64_t before = at.box.mtime();
    EXPECT_EQ("* 3 EXISTS\r\n* 3 RECENT\r\n", at.check());
    EXPECT_LT(before, at.box.mtime()); /* others are to look, too */
    EXPECT_EQ(at.box.mtime(), at.handle->sync_stamp);
    EXPECT_EQ(4u, at.count());
}

TEST(CheckNewMail, AnnouncesRemovalsAtTheirNumbers)
{
    CheckedBox at(5);
    for (const uint32_t uid : {1, 3, 4})
        at.remove(uid);
    EXPECT_EQ("* 1 EXPUNGE\r\n* 2 EXPUNGE\r\n* 2 EXPUNGE\r\n", at.check());
    EXPECT_EQ(3u, at.count());
    EXPECT_EQ("", at.check());
}

TEST(CheckNewMail, AnnouncesFlagsOfOthersAndAdoptsThem)
{
    CheckedBox at(3);
    at.box.set_flags(2, MESSAGE_SEEN | MESSAGE_MDNSENT);
    EXPECT_EQ("* 2 FETCH (FLAGS (\\Seen $MDNSent))\r\n", at.check());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_MDNSENT}, at.handle->index[2].flags);
}

TEST(CheckNewMail, WritesItsOwnPendingFlagsOverThoseOfOthers)
{
    CheckedBox at(3);
    at.box.set_flags(2, MESSAGE_ANSWERED);
    at.handle->index[2].flags = MESSAGE_SEEN | MESSAGE_CHANGED;
    EXPECT_EQ("", at.check());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN}, at.box.flags(2));
    EXPECT_EQ(uint32_t{MESSAGE_SEEN}, at.handle->index[2].flags);
}

TEST(CheckNewMail, IgnoresADifferenceOfRecentAlone)
{
    CheckedBox at(1);
    at.box.set_flags(1, 0);
    EXPECT_EQ("", at.check());
    EXPECT_EQ(0u, at.box.flags(1));
    EXPECT_EQ(uint32_t{MESSAGE_RECENT}, at.handle->index[1].flags);
}

TEST(CheckNewMail, CarriesRecentIntoAnIndexThatItWritesAnyway)
{
    CheckedBox at(2);
    at.box.set_flags(1, 0);
    at.handle->index[2].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    EXPECT_EQ("", at.check());
    EXPECT_EQ(uint32_t{MESSAGE_RECENT}, at.box.flags(1));
}

TEST(CheckNewMail, OfAQuietHandleSynchronisesInSilence)
{
    CheckedBox at(3, MAILBOX_QUIET);
    at.box.set_flags(2, MESSAGE_SEEN);
    at.remove(1);
    at.box.append_samples(1);
    EXPECT_EQ("", at.check());
    EXPECT_EQ(4u, at.count());
    EXPECT_EQ(2u, at.handle->index[1].uid);
}

TEST(CheckNewMail, OfAReadOnlyHandlePrintsButNeverWrites)
{
    CheckedBox at(2, MAILBOX_READ_ONLY);
    at.handle->index[1].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    at.box.append_samples(1);
    at.box.age(10);
    const int64_t before = at.box.mtime();
    EXPECT_EQ("* 3 EXISTS\r\n* 3 RECENT\r\n", at.check());
    EXPECT_EQ(before, at.box.mtime());
    EXPECT_EQ(uint32_t{MESSAGE_RECENT}, at.box.flags(1));
}

TEST(CheckNewMail, WritesThoughOpenedWithoutWriteBack)
{
    CheckedBox at(1, MAILBOX_NO_WRITE_BACK);
    at.handle->index[1].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    EXPECT_EQ("", at.check());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_RECENT}, at.box.flags(1));
}

TEST(CheckNewMail, OfAReplacedIndexAnnouncesAllOfItGone)
{
    CheckedBox at(2);
    Records records = at.box.index();
    records[0].flags += 5;
    at.box.put_index(records);
    EXPECT_EQ("* 1 EXPUNGE\r\n* 1 EXPUNGE\r\n* 2 EXISTS\r\n* 2 RECENT\r\n", at.check());
    EXPECT_EQ(Box::validity + 5, at.handle->index[0].flags);
    at.box.put_index({{9, Box::validity, 1, 0}});
    EXPECT_EQ("* 1 EXPUNGE\r\n* 1 EXPUNGE\r\n", at.check());
    EXPECT_EQ(1u, at.count());
}

TEST(CheckNewMail, StopsWhereTheIndexHasAnOlderMessageThanTheHandle)
{
    CheckedBox at(2);
    Records records = at.box.index();
    records[1].uid = 1, records[2].uid = 1; /* in disorder */
    at.box.put_index(records);
    EXPECT_EQ("* 2 EXISTS\r\n* 2 RECENT\r\n", at.check());
}

TEST(CheckNewMail, LooksAgainOnlyWhenTheIndexTimeMovedOrABitSaysSo)
{
    static const struct {
        const char *label;
        uint32_t mode;
        int seconds;
        const char *check, *check2;
    } rows[] = {
        {"same time", 0, 0, "", ""},
        {"same time, force bit", MAILBOX_FORCE_CHECK, 0, "* 2 EXISTS\r\n* 2 RECENT\r\n",
         "* 2 EXISTS\r\n* 2 RECENT\r\n"},
        {"same time, resynchronise bit", MAILBOX_RESYNC, 0, "* 2 EXISTS\r\n* 2 RECENT\r\n", ""},
        {"another time", 0, 7, "* 2 EXISTS\r\n* 2 RECENT\r\n", "* 2 EXISTS\r\n* 2 RECENT\r\n"},
    };
    for (const auto &row : rows)
        for (const bool second : {false, true}) {
            SCOPED_TRACE(row.label);
            CheckedBox at(1);
            at.box.append_samples(1);
            const struct timespec times[2] = {{at.handle->sync_stamp, 0},
                                              {at.handle->sync_stamp + row.seconds, 0}};
            utimensat(AT_FDCWD, at.box.name("#mix").c_str(), times, 0);
            at.handle->mode |= row.mode;
            if (second)
                mlmbx_checknewmail2(at.handle);
            else
                mlmbx_checknewmail(at.handle);
            EXPECT_EQ(second ? row.check2 : row.check, at.out.take());
        }
}

TEST(CheckNewMail, NoticesAChangeInTheSameSecond)
{
    CheckedBox at(1);
    at.box.append_samples(1);
    const struct timespec later = {at.handle->sync_stamp, 999999999};
    const struct timespec times[2] = {later, later};
    utimensat(AT_FDCWD, at.box.name("#mix").c_str(), times, 0);
    mlmbx_checknewmail(at.handle);
    EXPECT_EQ("* 2 EXISTS\r\n* 2 RECENT\r\n", at.out.take());
}

TEST(CheckNewMail, OfNothingIsAllowed)
{
    mlmbx_checknewmail(nullptr);
    mlmbx_checknewmail2(nullptr);
}

TEST(CheckNewMail, FailsSilently)
{
    CheckedBox at(1);
    at.box.append_samples(1);
    for (const char *failing : {"open", "pread", "fstat"}) {
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == failing ? EIO : 0;
        };
        EXPECT_EQ("", at.check());
        EXPECT_EQ("", at.check2());
    }
    EXPECT_EQ(Lines{}, take_log_lines(true));
    EXPECT_EQ("* 2 EXISTS\r\n* 2 RECENT\r\n", at.check());
}

/* The disk is full: what there is to say is said, what could not be written is tried again. */
TEST(CheckNewMail, KeepsPendingFlagsThatItCouldNotWrite)
{
    for (const bool second : {false, true}) {
        CheckedBox at(2);
        at.handle->index[2].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
        at.box.append_samples(1);
        {
            FaultOs fault;
            fault.before = [](const std::string &call, const std::string &) {
                return call == "pwrite" ? ENOSPC : 0;
            };
            EXPECT_EQ("* 3 EXISTS\r\n* 3 RECENT\r\n", second ? at.check2() : at.check());
        }
        EXPECT_EQ(uint32_t{MESSAGE_RECENT}, at.box.flags(2));
        EXPECT_TRUE(at.handle->mode & MAILBOX_FORCE_CHECK);
        if (second)
            mlmbx_checknewmail2(at.handle);
        else
            mlmbx_checknewmail(at.handle);
        EXPECT_EQ("", at.out.take());
        EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_RECENT}, at.box.flags(2));
        EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_RECENT}, at.handle->index[2].flags);
    }
}

/* -- FETCH time -- */

TEST(CheckNewMail2, MarksTheVanishedWithoutAWordAndTheNextCheckTells)
{
    CheckedBox at(3);
    at.remove(2);
    EXPECT_EQ("", at.check2());
    EXPECT_EQ(4u, at.count());
    EXPECT_TRUE(at.handle->index[2].flags & MESSAGE_VANISHED);
    EXPECT_EQ(uint32_t{MAILBOX_RESYNC}, at.handle->mode);
    list_mbx_fetch_flags2(at.handle->index, 2);
    EXPECT_EQ("FLAGS ()", at.out.take());
    mlmbx_checknewmail(at.handle);
    EXPECT_EQ("* 2 EXPUNGE\r\n", at.out.take());
    EXPECT_EQ(0u, at.handle->mode);
    EXPECT_EQ(3u, at.count());
}

TEST(CheckNewMail2, PutsNewMessagesBehindTheVanished)
{
    CheckedBox at(2);
    at.remove(1);
    at.box.append_samples(2);
    EXPECT_EQ("* 4 EXISTS\r\n* 4 RECENT\r\n", at.check2());
    ASSERT_EQ(5u, at.count());
    EXPECT_EQ(4u, at.handle->index[4].uid);
    EXPECT_EQ(5u, at.handle->index[0].uid);
    EXPECT_EQ("* 1 EXPUNGE\r\n", at.check());
}

TEST(CheckNewMail2, NumbersFetchLinesWithoutTheVanished)
{
    CheckedBox at(3);
    at.remove(1);
    at.box.set_flags(3, MESSAGE_SEEN);
    EXPECT_EQ("* 2 FETCH (FLAGS (\\Seen))\r\n", at.check2());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN}, at.handle->index[3].flags);
}

TEST(CheckNewMail2, WritesPendingFlagsOnceAndDropsTheirMark)
{
    CheckedBox at(2);
    at.handle->index[1].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    EXPECT_EQ("", at.check2());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_RECENT}, at.box.flags(1));
    EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_RECENT}, at.handle->index[1].flags);
    at.box.set_flags(1, MESSAGE_FLAGGED);
    EXPECT_EQ("* 1 FETCH (FLAGS (\\Flagged))\r\n", at.check2());
}

TEST(CheckNewMail2, OfAQuietHandleGrowsInSilence)
{
    CheckedBox at(1, MAILBOX_QUIET);
    at.box.append_samples(1);
    at.box.age(10);
    const int64_t before = at.box.mtime();
    EXPECT_EQ("", at.check2());
    EXPECT_EQ(3u, at.count());
    EXPECT_EQ(before, at.box.mtime());
}

TEST(CheckNewMail2, NeverTakesOverAnIndexInDisorder)
{
    CheckedBox at(2);
    Records records = at.box.index();
    records.push_back({1, 0, 0, 0});
    records.push_back({9, 0, 0, 0});
    records.push_back({4, 0, 0, 0});
    at.box.put_index(records);
    EXPECT_EQ("* 3 EXISTS\r\n* 2 RECENT\r\n", at.check2());
    EXPECT_EQ(9u, at.handle->index[3].uid);
    EXPECT_EQ(10u, at.handle->index[0].uid);
}

TEST(CheckNewMail2, LeavesItsTransactionOpenWhenTheIndexWasReplaced)
{
    CheckedBox at(1);
    Records records = at.box.index();
    records[0].flags += 1;
    at.box.put_index(records);
    const int32_t stamp = at.handle->sync_stamp;
    EXPECT_EQ("", at.check2());
    EXPECT_EQ(0u, at.handle->index[0].flags);
    EXPECT_EQ(uint32_t{MAILBOX_RESYNC | MAILBOX_FORCE_CHECK}, at.handle->mode);
    EXPECT_EQ(stamp, at.handle->sync_stamp);
    EXPECT_TRUE(exists(at.box.name("#mix.new")));
    EXPECT_EQ(-1, mllks_open(at.box.name("#mix").c_str(), O_RDWR, 0));
    EXPECT_EQ(EWOULDBLOCK, errno);
    EXPECT_EQ(nullptr, list_mbx_open(at.box.path(), 0)); /* not for ever waiting for itself */
    EXPECT_EQ(EDEADLK, errno);

    EXPECT_EQ("* 1 EXPUNGE\r\n* 1 EXISTS\r\n* 1 RECENT\r\n", at.check());
    EXPECT_FALSE(exists(at.box.name("#mix.new")));
    const int fd = mllks_open(at.box.name("#mix").c_str(), O_RDWR, 0);
    EXPECT_LE(0, fd);
    EXPECT_EQ(0, mllk_close(fd));
}

TEST(CheckNewMail2, LeavesNothingBehindWhenTheHandleIsClosed)
{
    Box box;
    box.append_samples(1);
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_NO_WRITE_BACK);
    box.put_index({{2, 77, 1, 0}});
    handle->mode |= MAILBOX_FORCE_CHECK;
    mlmbx_checknewmail2(handle);
    list_mbx_close(handle);
    EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(box.path()));
    box.append_samples(1);
}

/* -- two handles -- */

TEST(TwoHandles, SeeEachOthersFlagsAndRemovals)
{
    CheckedBox one(3);
    OutCapture out;
    MailboxHandle *two = list_mbx_open(one.box.path(), 0);
    out.take();
    two->index[1].flags |= MESSAGE_DELETED | MESSAGE_CHANGED;
    two->index[3].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    mlmbx_expunge(two, 1);
    EXPECT_EQ("* 1 EXPUNGE\r\n", out.take());
    mlmbx_checknewmail(one.handle); /* the time moved on, be it within the second */
    EXPECT_EQ("* 1 EXPUNGE\r\n* 2 FETCH (FLAGS (\\Seen \\Recent))\r\n", out.take());
    list_mbx_close(two);
}

TEST(TwoHandles, OfAHandleTheLastWriterWins)
{
    CheckedBox one(1);
    OutCapture out;
    MailboxHandle *two = list_mbx_open(one.box.path(), 0);
    out.take();
    one.handle->index[1].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    two->index[1].flags |= MESSAGE_FLAGGED | MESSAGE_CHANGED;
    one.handle->mode |= MAILBOX_FORCE_CHECK;
    mlmbx_checknewmail(one.handle);
    list_mbx_close(two);
    EXPECT_EQ(uint32_t{MESSAGE_FLAGGED | MESSAGE_RECENT}, one.box.flags(1));
    EXPECT_EQ("", out.take());
    one.handle->mode |= MAILBOX_FORCE_CHECK;
    mlmbx_checknewmail(one.handle);
    EXPECT_EQ("* 1 FETCH (FLAGS (\\Flagged \\Recent))\r\n", out.take());
}
