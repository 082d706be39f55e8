/* Appending messages in batches. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

static IndexHandle *begin(const Box &box, const std::string &source, int move = 0)
{
    return mbxappend(box.path(), NO_INDEX_HANDLE, source.c_str(), 0, 2, 4, move);
}

static IndexHandle *finish(IndexHandle *batch)
{
    return mbxappend(nullptr, batch, nullptr, 0, 0, 0, 0);
}

static ino_t inode_of(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

TEST(MailboxAppend, WritesTheIndexByteForByte)
{
    Box box;
    const std::string text = "x";
    const std::string source = box.source(text);
    for (const auto &sizes : {std::pair(412u, 1234u), std::pair(398u, 2048u)}) {
        IndexHandle *batch =
            mbxappend(box.path(), NO_INDEX_HANDLE, source.c_str(), 0, sizes.first, sizes.second, 0);
        ASSERT_NE(NO_INDEX_HANDLE, batch);
        EXPECT_EQ(NO_INDEX_HANDLE, finish(batch));
    }
    EXPECT_EQ("0300000048f9f86a0300000000000000\n"
              "01000000200000009c010000d2040000\n"
              "02000000200000008e01000000080000\n",
              hex(read_file(box.name("#mix"))));
    EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(box.path()));
}

TEST(MailboxAppend, KeepsGivenFlagsAndAddsRecent)
{
    Box box;
    box.append("a\r\n", MESSAGE_SEEN | MESSAGE_MDNSENT);
    EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_MDNSENT | MESSAGE_RECENT}, box.flags(1));
}

TEST(MailboxAppend, OfManyInOneBatchCommitsOnce)
{
    Box box;
    box.append_samples(1);
    const std::string before = read_file(box.name("#mix"));
    IndexHandle *batch = NO_INDEX_HANDLE;
    for (int i = 0; i < 40; ++i) {
        const std::string source = box.source(sample_message(i));
        batch = mbxappend(box.path(), batch, source.c_str(), 0, 0, 10, 0);
        ASSERT_NE(NO_INDEX_HANDLE, batch);
        EXPECT_EQ(before, read_file(box.name("#mix")));
    }
    EXPECT_EQ(NO_INDEX_HANDLE, finish(batch));
    EXPECT_EQ(0, errno);
    const Records records = box.index();
    ASSERT_EQ(42u, records.size());
    EXPECT_EQ(42u, records[0].uid);
    EXPECT_EQ(42u, records[0].header_size);
    for (uint32_t uid = 1; uid <= 41; ++uid)
        EXPECT_EQ(uid, records[uid].uid);
    EXPECT_EQ(sample_message(39), read_file(box.message(41)));
}

TEST(MailboxAppend, LinksTheSourceOrMovesIt)
{
    Box box;
    const std::string linked = box.source("link"), moved = box.source("move");
    box.append_from(linked, "link", 0, 0);
    box.append_from(moved, "move", 0, 1);
    EXPECT_EQ(inode_of(linked), inode_of(box.message(1)));
    EXPECT_FALSE(exists(moved));
    EXPECT_EQ("move", read_file(box.message(2)));
}

TEST(MailboxAppend, ReplacesAFileThatAnUnfinishedAppendLeft)
{
    Box box;
    write_file(box.message(1), "old");
    box.append("new");
    EXPECT_EQ("new", read_file(box.message(1)));
    write_file(box.message(2), "old");
    box.append_from(box.source("moved"), "moved", 0, 1);
    EXPECT_EQ("moved", read_file(box.message(2)));
}

static void fail_links(FaultOs *fault, int error)
{
    fault->before = [error](const std::string &call, const std::string &) {
        return call == "link" ? error : 0;
    };
}

TEST(MailboxAppend, CopiesWhereItCannotLink)
{
    for (const int error : {EXDEV, EMLINK}) {
        Box box;
        const std::string text = std::string(100000, 'x') + "end";
        const std::string source = box.source(text);
        FaultOs fault;
        fail_links(&fault, error);
        box.append_from(source, text, 0, 0);
        EXPECT_EQ(text, read_file(box.message(1)));
        EXPECT_NE(inode_of(source), inode_of(box.message(1)));
        struct stat status;
        ASSERT_EQ(0, stat(box.message(1).c_str(), &status));
        EXPECT_EQ(0600u, status.st_mode & 0777);
    }
}

/* -- failures -- */

/* What goes wrong while one message is appended, and what is said about it.  %s and %d in the
   text stand for source and destination. */
static const struct {
    const char *label;
    bool copy;        /* links fail with EXDEV */
    const char *call; /* fails ... */
    char where;       /* ... on the source, the destination, the index, or (any) a descriptor */
    int error;
    const char *log;
} failure_rows[] = {
    {"no index", false, "open", 'i', EACCES, "1/611 mbx_append: openidx err Permission denied"},
    {"index unreadable", false, "pread", 'i', EIO,
     "1/612 mbx_append: readidx err Input/output error"},
    {"link refused", false, "link", 'd', EPERM,
     "1/618 mbx_append: link(%s, %d): Operation not permitted"},
    {"source unreadable", true, "open", 's', EACCES,
     "1/613 mbx_append: open(%s): Permission denied"},
    {"destination not made", true, "open", 'd', ENOSPC,
     "1/614 mbx_append: open(%d): No space left on device"},
    {"disk full", true, "pwrite", 'd', ENOSPC,
     "1/615 mbx_append: copy(%s, %d): No space left on device"},
    {"copy not synced", true, "fsync", 'd', EIO, "1/616 mbx_append: fsync(%d): Input/output error"},
};

static std::string filled(std::string text, const std::string &source, const std::string &to)
{
    for (size_t at; (at = text.find("%s")) != std::string::npos;)
        text.replace(at, 2, source);
    for (size_t at; (at = text.find("%d")) != std::string::npos;)
        text.replace(at, 2, to);
    return text;
}

TEST(MailboxAppend, LogsWhatFailedAndLeavesTheIndex)
{
    for (const auto &row : failure_rows) {
        SCOPED_TRACE(row.label);
        Box box;
        box.append_samples(1);
        const std::string source = box.source("text"), to = box.message(2);
        const std::string where = row.where == 's'   ? source
                                  : row.where == 'd' ? to
                                  : row.where == 'i' ? box.name("#mix")
                                                     : "";
        const std::string before = tree_text(box.path());
        {
            FaultOs fault;
            fault.before = [&](const std::string &call, const std::string &path) {
                if (row.copy && call == "link") return EXDEV;
                return call == row.call && path == where ? row.error : 0;
            };
            take_log();
            EXPECT_EQ(NO_INDEX_HANDLE, begin(box, source));
            EXPECT_EQ(row.error, errno);
            EXPECT_EQ((Lines{filled(row.log, source, to)}), take_log_lines(true));
        }
        EXPECT_EQ(before, tree_text(box.path()));
        box.append("works again");
    }
}

TEST(MailboxAppend, LogsACopyThatCannotBeClosed)
{
    Box box;
    const std::string source = box.source("text");
    FaultOs fault;
    bool synced = false;
    fault.before = [&](const std::string &call, const std::string &) {
        if (call == "link") return EXDEV;
        if (call == "fsync") synced = true;
        if (call != "close" || !synced) return 0;
        synced = false;
        return EDQUOT;
    };
    take_log();
    EXPECT_EQ(NO_INDEX_HANDLE, begin(box, source));
    EXPECT_EQ((Lines{"1/617 mbx_append: close(" + box.message(1) + "): Disk quota exceeded"}),
              take_log_lines(true));
    EXPECT_FALSE(exists(box.message(1)));
}

TEST(MailboxAppend, LogsAStaleFileThatCannotBeRemoved)
{
    Box box;
    const std::string source = box.source("text");
    ASSERT_EQ(0, mkdir(box.message(1).c_str(), 0700));
    take_log();
    EXPECT_EQ(NO_INDEX_HANDLE, begin(box, source));
    EXPECT_EQ(
        (Lines{"1/618 mbx_append: link(" + source + ", " + box.message(1) + "): Is a directory"}),
        take_log_lines(true));
}

TEST(MailboxAppend, OfAMissingSourceEndsTheWholeBatch)
{
    Box box;
    IndexHandle *batch = begin(box, box.source("one"));
    ASSERT_NE(NO_INDEX_HANDLE, batch);
    EXPECT_EQ(NO_INDEX_HANDLE, mbxappend(box.path(), batch, "/nonexistent/file", 0, 0, 0, 0));
    EXPECT_EQ(1u, box.index().size());
    EXPECT_EQ(1u, box.index()[0].uid);
    box.append("two");
    EXPECT_EQ("two", read_file(box.message(1)));
}

TEST(MailboxAppend, FinishTellsThroughErrnoThatTheDiskIsFull)
{
    Box box;
    const std::string before = read_file(box.name("#mix"));
    IndexHandle *batch = begin(box, box.source("one"));
    {
        FaultOs fault;
        fault.before = [](const std::string &call, const std::string &) {
            return call == "pwrite" ? ENOSPC : 0;
        };
        EXPECT_EQ(NO_INDEX_HANDLE, finish(batch));
        EXPECT_EQ(ENOSPC, errno);
    }
    EXPECT_EQ(before, read_file(box.name("#mix")));
    EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(box.path()));
}

TEST(MailboxAppend, FinishWithoutABatchIsHarmless)
{
    EXPECT_EQ(NO_INDEX_HANDLE, finish(NO_INDEX_HANDLE));
    EXPECT_EQ(NO_INDEX_HANDLE, finish(nullptr));
}

TEST(MailboxAppend, OfASecondBatchOnOneThreadIsRefused)
{
    Box box, other;
    IndexHandle *batch = begin(box, box.source("one"));
    ASSERT_NE(NO_INDEX_HANDLE, batch);
    take_log();
    EXPECT_EQ(NO_INDEX_HANDLE, begin(other, other.source("x")));
    EXPECT_EQ(EBUSY, errno);
    EXPECT_TRUE(logged(611, "mbx_append: openidx err Device or resource busy"));
    EXPECT_EQ(NO_INDEX_HANDLE, finish(batch));
    EXPECT_EQ(2u, box.index().size());
}

TEST(MailboxAppend, ClearsExpungeMarksOfEveryRecord)
{
    Box box;
    box.append_samples(2);
    box.set_flags(1, MESSAGE_SEEN | MESSAGE_EXPUNGE);
    box.append("one more");
    EXPECT_EQ(uint32_t{MESSAGE_SEEN}, box.flags(1));
}

TEST(MailboxAppend, NeverOverwritesAMessageWhenTheHeaderLagsBehind)
{
    Box box;
    box.append_samples(3);
    Records records = box.index();
    records[0].uid = 2;
    box.put_index(records);
    box.append("new");
    EXPECT_EQ(sample_message(2), read_file(box.message(2)));
    EXPECT_EQ("new", read_file(box.message(4)));
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, 4}), box.uids());
    EXPECT_EQ(5u, box.index()[0].uid);
}

TEST(MailboxAppend, WorksUpToTheLastUidAndNotBeyond)
{
    Box box;
    box.put_index({{4294967294u, Box::validity, 1, 0}});
    box.append("last");
    EXPECT_EQ("last", read_file(box.name("#msg/4294967294")));
    EXPECT_EQ(NO_INDEX_HANDLE, begin(box, box.source("none")));
    EXPECT_EQ(EOVERFLOW, errno);
    EXPECT_EQ((Lines{"4294967294"}), list_directory(box.name("#msg")));
}

TEST(MailboxAppend, MakesTheFileNamesDurableBeforeTheIndex)
{
    Box box;
    const std::string source = box.source("text");
    FaultOs fault;
    IndexHandle *batch = begin(box, source);
    EXPECT_EQ(NO_INDEX_HANDLE, finish(batch));
    Lines order;
    for (const std::string &call : fault.calls)
        if (call == "fsync" || call.find("#mix.") != std::string::npos ||
            call == "open " + box.name("#msg") || call == "open " + std::string(box.path()))
            if (call.compare(0, 4, "stat") != 0) order.push_back(call);
    EXPECT_EQ((Lines{"open " + box.name("#msg"), "fsync",        /* the message's name */
                     "open " + box.name("#mix.old"), "fsync",    /* the work copy's bytes */
                     "rename " + box.name("#mix.new"),           /* before its name */
                     "open " + box.name("#mix.old"), "fsync",    /* the backup */
                     "open " + std::string(box.path()), "fsync", /* both names */
                     "fsync",                                    /* #mix */
                     "unlink " + box.name("#mix.old"), "unlink " + box.name("#mix.new")}),
              order);
}
