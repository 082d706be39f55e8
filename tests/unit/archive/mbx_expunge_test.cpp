/* Removing messages. */
#include <errno.h>
#include <gtest/gtest.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;
using Uids = std::vector<uint32_t>;

static constexpr uint32_t pending_delete = MESSAGE_DELETED | MESSAGE_CHANGED;

/* An open handle on a mailbox of so many messages. */
struct OpenBox {
    Box box;
    OutCapture out;
    MailboxHandle *handle;
    explicit OpenBox(int messages, int mode = 0)
    {
        box.append_samples(messages);
        handle = list_mbx_open(box.path(), mode);
        out.take();
        take_log();
    }
    ~OpenBox() { list_mbx_close(handle); }
    void mark(std::initializer_list<int> sequences, uint32_t flags)
    {
        for (const int sequence : sequences)
            handle->index[sequence].flags |= flags;
    }
};

TEST(MailboxExpunge, RepeatsTheNumberOfConsecutiveRemovals)
{
    OpenBox at(5);
    at.mark({2, 3}, pending_delete);
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("* 2 EXPUNGE\r\n* 2 EXPUNGE\r\n", at.out.take());
    EXPECT_EQ((Uids{1, 4, 5}), at.box.uids());
    EXPECT_EQ((Lines{"1", "4", "5"}), list_directory(at.box.name("#msg")));
    EXPECT_EQ(4u, at.handle->index[0].header_size);
    EXPECT_EQ(4u, at.handle->index[2].uid);
}

TEST(MailboxExpunge, OfTheFirstLeavesTheIndexByteForByte)
{
    Box box;
    const std::string source = box.source("x");
    for (const auto &sizes : {std::pair(412u, 1234u), std::pair(398u, 2048u)})
        (void)mbxappend(
            nullptr,
            mbxappend(box.path(), NO_INDEX_HANDLE, source.c_str(), 0, sizes.first, sizes.second, 0),
            nullptr, 0, 0, 0, 0);
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    handle->index[1].flags |= pending_delete;
    out.take();
    mlmbx_expunge(handle, 0);
    EXPECT_EQ("", out.take());
    EXPECT_EQ("0300000048f9f86a0200000000000000\n"
              "02000000200000008e01000000080000\n",
              hex(read_file(box.name("#mix"))));
    list_mbx_close(handle);
}

TEST(MailboxExpunge, ReportsWhatOthersDidFirst)
{
    OpenBox at(4);
    at.mark({2}, pending_delete);
    at.box.set_flags(3, MESSAGE_FLAGGED | MESSAGE_RECENT);
    at.box.append_samples(1);
    Records records = at.box.index();
    records.erase(records.begin() + 1); /* message 1 went away elsewhere */
    at.box.put_index(records);
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("* 1 EXPUNGE\r\n"
              "* 2 FETCH (FLAGS (\\Flagged \\Recent))\r\n"
              "* 4 EXISTS\r\n* 4 RECENT\r\n"
              "* 1 EXPUNGE\r\n",
              at.out.take());
    EXPECT_EQ((Uids{3, 4, 5}), at.box.uids());
}

TEST(MailboxExpunge, IsSilentWithoutReportHoweverTheHandleWasOpened)
{
    OpenBox at(3);
    at.mark({1}, pending_delete);
    at.box.set_flags(3, MESSAGE_FLAGGED);
    at.box.append_samples(1);
    mlmbx_expunge(at.handle, 0);
    EXPECT_EQ("", at.out.take());
    EXPECT_EQ((Uids{2, 3, 4}), at.box.uids());
}

TEST(MailboxExpunge, ReportsOnAQuietHandleToo)
{
    OpenBox at(2, MAILBOX_QUIET);
    at.mark({1}, pending_delete);
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("* 1 EXPUNGE\r\n", at.out.take());
}

TEST(MailboxExpunge, TakesMessagesThatOthersFlagged)
{
    OpenBox at(3);
    at.box.set_flags(2, MESSAGE_DELETED);
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("* 2 FETCH (FLAGS (\\Deleted))\r\n* 2 EXPUNGE\r\n", at.out.take());
    EXPECT_EQ((Uids{1, 3}), at.box.uids());
}

TEST(MailboxExpunge, OfNothingWritesNothing)
{
    OpenBox at(2);
    at.box.age(50);
    const int64_t before = at.box.mtime();
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("", at.out.take());
    EXPECT_EQ(before, at.box.mtime());
}

TEST(MailboxExpunge, WithoutWriteBackDoesNothing)
{
    OpenBox at(2, MAILBOX_NO_WRITE_BACK);
    at.mark({1}, pending_delete);
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ(-1, mlmbx_expunge2(at.handle, 1));
    EXPECT_EQ("", at.out.take());
    EXPECT_EQ((Uids{1, 2}), at.box.uids());
}

TEST(MailboxExpunge, OfAReplacedIndexAnnouncesAllOfItGone)
{
    OpenBox at(3);
    at.mark({1}, pending_delete);
    Records records = at.box.index();
    records[0].flags += 1;
    records.pop_back();
    at.box.put_index(records);
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("* 1 EXPUNGE\r\n* 1 EXPUNGE\r\n* 1 EXPUNGE\r\n* 2 EXISTS\r\n* 2 RECENT\r\n",
              at.out.take());
    EXPECT_EQ((Uids{1, 2}), at.box.uids());
    EXPECT_EQ(3u, at.handle->index[0].header_size);
    EXPECT_EQ(Box::validity + 1, at.handle->index[0].flags);
}

TEST(MailboxExpunge, ClearsForceAndResynchroniseBits)
{
    OpenBox at(1);
    at.handle->mode |= MAILBOX_FORCE_CHECK | MAILBOX_RESYNC;
    mlmbx_expunge(at.handle, 0);
    EXPECT_EQ(0u, at.handle->mode);
}

TEST(MailboxExpunge2, RemovesMarkedMessagesNotDeletedOnes)
{
    OpenBox at(4);
    at.mark({1}, pending_delete);
    at.mark({2, 4}, MESSAGE_EXPUNGE);
    EXPECT_EQ(0, mlmbx_expunge2(at.handle, 1));
    EXPECT_EQ("* 2 EXPUNGE\r\n* 3 EXPUNGE\r\n", at.out.take());
    EXPECT_EQ((Uids{1, 3}), at.box.uids());
    EXPECT_EQ(uint32_t{MESSAGE_DELETED | MESSAGE_RECENT}, at.box.flags(1));
}

TEST(MailboxExpunge2, IgnoresMarksThatOthersLeftInTheIndex)
{
    OpenBox at(2);
    at.box.set_flags(1, MESSAGE_EXPUNGE | MESSAGE_RECENT);
    EXPECT_EQ(0, mlmbx_expunge2(at.handle, 1));
    EXPECT_EQ((Uids{1, 2}), at.box.uids());
}

/* -- failures -- */

TEST(MailboxExpunge, LogsWhyItDidNotBegin)
{
    OpenBox at(2);
    at.mark({1}, pending_delete);
    FaultOs fault;
    fault.before = [&](const std::string &call, const std::string &path) {
        return call == "open" && path == at.box.name("#mix") ? EACCES : 0;
    };
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ((Lines{"1/650 mlmbx_expungen(): mbx_openidx failed Permission denied"}),
              take_log_lines(true));
    fault.before = [](const std::string &call, const std::string &) {
        return call == "pread" ? EIO : 0;
    };
    EXPECT_EQ(-1, mlmbx_expunge2(at.handle, 1));
    EXPECT_EQ((Lines{"1/651 mlmbx_expunge(): mbx_readidx failed Input/output error"}),
              take_log_lines(true));
    fault.before = nullptr;
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("* 1 EXPUNGE\r\n", at.out.take());
}

TEST(MailboxExpunge, OnAFullDiskKeepsMessagesMarksAndSilence)
{
    OpenBox at(3);
    at.mark({2}, pending_delete);
    at.box.set_flags(3, MESSAGE_FLAGGED);
    const std::string before = tree_text(at.box.path());
    {
        FaultOs fault;
        fault.before = [](const std::string &call, const std::string &) {
            return call == "pwrite" ? ENOSPC : 0;
        };
        mlmbx_expunge(at.handle, 1);
    }
    EXPECT_EQ("", at.out.take());
    EXPECT_EQ(before, tree_text(at.box.path()));
    mlmbx_expunge(at.handle, 1);
    EXPECT_EQ("* 3 FETCH (FLAGS (\\Flagged))\r\n* 2 EXPUNGE\r\n", at.out.take());
    EXPECT_EQ((Uids{1, 3}), at.box.uids());
}

TEST(MailboxExpunge, UnlinksOnlyAfterTheCommit)
{
    OpenBox at(2);
    at.mark({1}, pending_delete);
    FaultOs fault;
    mlmbx_expunge(at.handle, 0);
    const auto at_call = [&](const std::string &call) {
        for (size_t i = 0; i < fault.calls.size(); ++i)
            if (fault.calls[i] == call) return static_cast<int>(i);
        return -1;
    };
    EXPECT_LT(at_call("unlink " + at.box.name("#mix.new")), at_call("unlink " + at.box.message(1)));
    EXPECT_LT(0, at_call("unlink " + at.box.message(1)));
}
