/* Opening and closing a mailbox. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/fake_host.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

TEST(MailboxOpen, PrintsAnEmptyMailboxWithoutAnUnseenLine)
{
    Box box;
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(open_lines(0, 0, Box::validity, 1, 0), out.take());
    list_mbx_close(handle);
    EXPECT_EQ("", out.take());
}

TEST(MailboxOpen, PrintsCountsAndTheFirstUnseenMessage)
{
    Box box;
    box.append_samples(3);
    box.set_flags(1, MESSAGE_SEEN | MESSAGE_RECENT);
    box.set_flags(2, MESSAGE_SEEN);
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(open_lines(3, 2, Box::validity, 4, 3), out.take());
    EXPECT_EQ(4u, handle->index[0].header_size);
    list_mbx_close(handle);
}

static const struct {
    const char *label;
    int mode;
    bool prints, read_only;
} mode_rows[] = {
    {"no bits", 0, true, false},
    {"no write-back prints all the same", MAILBOX_NO_WRITE_BACK, true, false},
    {"quiet", MAILBOX_QUIET, false, false},
    {"read-only has no permanent flags", MAILBOX_READ_ONLY, true, true},
    {"read-only without write-back", MAILBOX_READ_ONLY | MAILBOX_NO_WRITE_BACK, true, true},
};

TEST(MailboxOpen, OnlyTheQuietBitKeepsItSilent)
{
    for (const auto &row : mode_rows) {
        SCOPED_TRACE(row.label);
        Box box;
        box.append_samples(1);
        OutCapture out;
        MailboxHandle *handle = list_mbx_open(box.path(), row.mode);
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(row.prints ? open_lines(1, 1, Box::validity, 2, 1, row.read_only) : "",
                  out.take());
        list_mbx_close(handle);
    }
}

TEST(MailboxOpen, WithoutWriteBackOrRecentMailsLeavesTheIndexAlone)
{
    for (const int mode : {0, static_cast<int>(MAILBOX_NO_WRITE_BACK)}) {
        Box box;
        box.append_samples(1);
        if (mode == 0) box.set_flags(1, MESSAGE_SEEN);
        box.age(100);
        const int64_t before = box.mtime();
        OutCapture out;
        MailboxHandle *handle = list_mbx_open(box.path(), mode);
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(before, box.mtime());
        EXPECT_EQ(before, handle->sync_stamp);
        list_mbx_close(handle);
    }
}

TEST(MailboxOpen, WithRecentMailsRenewsTheIndexTimeAndNothingElse)
{
    Box box;
    box.append_samples(2);
    box.age(100);
    const int64_t before = box.mtime();
    const std::string content = read_file(box.name("#mix"));
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    ASSERT_NE(nullptr, handle);
    EXPECT_LT(before, box.mtime());
    EXPECT_EQ(box.mtime(), handle->sync_stamp);
    EXPECT_EQ(content, read_file(box.name("#mix")));
    list_mbx_close(handle);
}

TEST(MailboxOpen, OfAReaderNeitherSyncsNorWrites)
{
    Box box;
    box.append_samples(2);
    OutCapture out;
    FaultOs fault;
    MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_NO_WRITE_BACK);
    ASSERT_NE(nullptr, handle);
    list_mbx_close(handle);
    for (const std::string &call : fault.calls)
        for (const char *change : {"fsync", "pwrite", "write", "ftruncate", "unlink", "futimens"})
            EXPECT_NE(0, call.compare(0, strlen(change), change)) << call;
}

/* -- failures -- */

TEST(MailboxOpen, WithoutMemoryForTheHandleLeavesTheIndexAlone)
{
    Box box;
    box.append_samples(1);
    const std::string content = read_file(box.name("#mix"));
    FakeHost host;
    tcbcreate(&host.request);
    const long blocks = host.live_blocks;
    static const char *const wanted[] = {"1/600 mbx_open(): ThrMemAlloc failed: ",
                                         "1/601 mbx_open(): ThrStrdup failed: "};
    for (long nth = 0; nth < 2; ++nth) {
        take_log();
        host.fail_allocation = nth;
        EXPECT_EQ(nullptr, list_mbx_open(box.path(), MAILBOX_QUIET));
        EXPECT_EQ(-1, host.fail_allocation);
        EXPECT_EQ(Lines{std::string(wanted[nth]) + "Cannot allocate memory"}, take_log_lines(true));
        EXPECT_EQ(blocks, host.live_blocks);
    }
    tcbfree();
    EXPECT_EQ(content, read_file(box.name("#mix")));
}

TEST(MailboxOpen, ThatCannotRenewTheIndexRebuildsIt)
{
    static const struct {
        const char *call;
        int nth; /* of these calls */
        const char *log;
    } rows[] = {
        {"pread", 1, "1/605 mbx_open(): mbx_writeidx failed Input/output error"},
        {"futimens", 0, "1/606 mbx_open(): mbx_closeidx failed Input/output error"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.call);
        Box box;
        box.append_samples(2);
        take_log();
        {
            FaultOs fault;
            int left = row.nth;
            fault.before = [&](const std::string &call, const std::string &) {
                return call == row.call && left-- == 0 ? EIO : 0;
            };
            EXPECT_EQ(nullptr, list_mbx_open(box.path(), MAILBOX_QUIET));
        }
        EXPECT_EQ((Lines{row.log, "11/636 mbx_rebuild: rebuild " + std::string(box.path())}),
                  take_log_lines(true));
        EXPECT_EQ((std::vector<uint32_t>{1, 2}), box.uids());
    }
}

/* -- damage -- */

static const struct {
    const char *label;
    std::string index;
    std::string log;
} damage_rows[] = {
    {"an empty file", "", "1/603 mbx_open(): mlmbx_readidx failed Success"},
    {"fifteen bytes", std::string(15, '\1'), "1/603 mbx_open(): mlmbx_readidx failed Success"},
    {"equal UIDs", bytes_of({{4, 7, 3, 0}, {2, 0, 0, 0}, {2, 0, 0, 0}}), "1/604 "},
    {"falling UIDs", bytes_of({{4, 7, 3, 0}, {3, 0, 0, 0}, {2, 0, 0, 0}}), "1/604 "},
    {"UID zero", bytes_of({{4, 7, 2, 0}, {0, 0, 0, 0}}), "1/604 "},
};

TEST(MailboxOpen, RebuildsADamagedIndexAndFailsAllTheSame)
{
    for (const auto &row : damage_rows) {
        SCOPED_TRACE(row.label);
        Box box;
        box.append_samples(3);
        write_file(box.name("#mix"), row.index);
        FaultOs fault;
        fault.now = 1800000000;
        OutCapture out;
        take_log();
        EXPECT_EQ(nullptr, list_mbx_open(box.path(), 0));
        const std::string first =
            row.log.back() == ' ' ? row.log + "mbx_open: " + box.path() + " invalid uid" : row.log;
        EXPECT_EQ((Lines{first, "11/636 mbx_rebuild: rebuild " + std::string(box.path())}),
                  take_log_lines(true));
        EXPECT_EQ("", out.take());
        MailboxHandle *handle = list_mbx_open(box.path(), 0);
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(open_lines(3, 0, 1800000000, 4, 1), out.take());
        list_mbx_close(handle);
        EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(box.path()));
    }
}

TEST(MailboxOpen, IgnoresATrailingPartialRecordAndTheStoredCount)
{
    Box box;
    box.append_samples(2);
    Records records = box.index();
    records[0].header_size = 99;
    write_file(box.name("#mix"), bytes_of(records) + "partial");
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(open_lines(2, 2, Box::validity, 3, 1), out.take());
    list_mbx_close(handle);
    EXPECT_EQ(48u, read_file(box.name("#mix")).size());
}

TEST(MailboxOpen, OfAMissingMailboxFailsAndMakesNothing)
{
    Box box(false);
    OutCapture out;
    take_log();
    EXPECT_EQ(nullptr, list_mbx_open(box.path(), 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ((Lines{"1/602 mbx_open(): mbx_openidx failed No such file or directory"}),
              take_log_lines(true));
    EXPECT_FALSE(exists(box.path()));
}

TEST(MailboxOpen, OfAMailboxWithoutAnIndexCannotRebuildIt)
{
    Box box;
    ASSERT_EQ(0, unlink(box.name("#mix").c_str()));
    take_log();
    EXPECT_EQ(nullptr, list_mbx_open(box.path(), 0));
    EXPECT_EQ((Lines{"1/602 mbx_open(): mbx_openidx failed No such file or directory",
                     "11/636 mbx_rebuild: rebuild " + std::string(box.path()),
                     "11/637 mbx_rebuild: rebuild " + std::string(box.path()) +
                         "/#mix: No such file or directory"}),
              take_log_lines(true));
}

TEST(MailboxOpen, OfAPathThatIsTooLongFails)
{
    take_log();
    EXPECT_EQ(nullptr, list_mbx_open(("/" + std::string(4095, 'x')).c_str(), 0));
    EXPECT_EQ((Lines{"1/602 mbx_open(): mbx_openidx failed File name too long"}),
              take_log_lines(true));
}

/* -- close -- */

TEST(MailboxClose, WritesPendingFlagsSilently)
{
    Box box;
    box.append_samples(2);
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), 0);
    handle->index[2].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    handle->mode |= MAILBOX_FORCE_CHECK;
    out.take();
    list_mbx_close(handle);
    EXPECT_EQ("", out.take());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN | MESSAGE_RECENT}, box.flags(2));
}

TEST(MailboxClose, WithoutWriteBackForgetsPendingFlags)
{
    Box box;
    box.append_samples(1);
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_NO_WRITE_BACK);
    handle->index[1].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    handle->mode |= MAILBOX_FORCE_CHECK;
    list_mbx_close(handle);
    EXPECT_EQ(uint32_t{MESSAGE_RECENT}, box.flags(1));
}

TEST(MailboxClose, OfAReadOnlyHandleWritesNothing)
{
    Box box;
    box.append_samples(1);
    OutCapture out;
    MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_READ_ONLY);
    handle->index[1].flags |= MESSAGE_SEEN | MESSAGE_CHANGED;
    handle->mode |= MAILBOX_FORCE_CHECK;
    list_mbx_close(handle);
    EXPECT_EQ(uint32_t{MESSAGE_RECENT}, box.flags(1));
}

TEST(MailboxClose, OfNothingIsAllowed)
{
    list_mbx_close(nullptr);
}
