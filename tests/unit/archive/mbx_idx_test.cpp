/* Index transactions as a host makes them, and what the next one does after an interrupted one. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archive/mbx.h"
#include "tests/support/fault_os.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

static const std::string old_bytes = bytes_of({{3, 7, 2, 0}, {2, 0, 0, 0}});
static const std::string new_bytes = bytes_of({{4, 7, 3, 0}, {2, 8, 0, 0}, {3, 0, 0, 0}});

static Lines files(const Box &box)
{
    Lines names = list_directory(box.path());
    std::erase(names, "#msg");
    return names;
}

TEST(IndexTransaction, HasItsWorkCopyFromBeginToEnd)
{
    Box box;
    box.append_samples(2);
    const std::string content = read_file(box.name("#mix"));
    IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    ASSERT_NE(NO_INDEX_HANDLE, index);
    EXPECT_STREQ(box.path(), index->path);
    EXPECT_EQ(0, index->error_code);
    EXPECT_EQ(0, index->second_fd);
    EXPECT_LE(0, index->new_fd);
    EXPECT_EQ((Lines{"#mix", "#mix.new"}), files(box));
    EXPECT_EQ(content, read_file(box.name("#mix.new")));
    EXPECT_EQ(-1, mllks_open(box.name("#mix").c_str(), O_RDWR, 0));
    EXPECT_EQ(box.mtime(), mlmbx_closeidx(index, INDEX_PLAIN));
    EXPECT_EQ((Lines{"#mix"}), files(box));
    EXPECT_EQ(content, read_file(box.name("#mix")));
}

TEST(IndexTransaction, ReadsChangesWritesAndCommits)
{
    Box box;
    box.append_samples(2);
    IndexHandle *index = list_mbx_openidx(box.path(), -1, INDEX_PLAIN);
    IndexRecord *records = mlmbx_readidx(index);
    ASSERT_NE(nullptr, records);
    EXPECT_EQ(3u, records[0].header_size);
    records[2].flags |= MESSAGE_SEEN;
    EXPECT_EQ(0, mlmbx_writeidx(index, records));
    EXPECT_EQ(uint32_t{MESSAGE_RECENT}, box.flags(2));
    EXPECT_NE(-1, mlmbx_closeidx(index, INDEX_PLAIN));
    EXPECT_EQ(uint32_t{MESSAGE_RECENT | MESSAGE_SEEN}, box.flags(2));
    mlist_release(records);
}

TEST(IndexTransaction, WritesTheRecordCountInMemoryAndShortensTheFile)
{
    Box box;
    box.append_samples(3);
    IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    IndexRecord *records = mlmbx_readidx(index);
    records[0].header_size = 2;
    records[1].flags = MESSAGE_EXPUNGE | MESSAGE_SEEN;
    EXPECT_EQ(1, list_mbx_writeidx_recent(index, records));
    EXPECT_EQ(uint32_t{MESSAGE_EXPUNGE | MESSAGE_SEEN}, records[1].flags);
    EXPECT_NE(-1, mlmbx_closeidx(index, INDEX_PLAIN));
    mlist_release(records);
    EXPECT_EQ(2u, box.index().size());
    EXPECT_EQ(uint32_t{MESSAGE_SEEN}, box.flags(1));
    EXPECT_EQ(2u, box.index()[0].header_size);
}

TEST(IndexTransaction, IsAbandonedWhenItsErrorIsSet)
{
    Box box;
    box.append_samples(1);
    const std::string content = read_file(box.name("#mix"));
    IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    IndexRecord *records = mlmbx_readidx(index);
    records[1].flags = 0;
    EXPECT_EQ(0, mlmbx_writeidx(index, records));
    index->error_code = EIO;
    EXPECT_EQ(-1, mlmbx_closeidx(index, INDEX_PLAIN));
    EXPECT_EQ(EIO, errno);
    mlist_release(records);
    EXPECT_EQ(content, read_file(box.name("#mix")));
    index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    EXPECT_NE(-1, mlmbx_closeidx(index, INDEX_PLAIN));
    EXPECT_EQ((Lines{"#mix"}), files(box));
    EXPECT_EQ(content, read_file(box.name("#mix")));
}

TEST(IndexTransaction, OfTooShortAnIndexCannotBeRead)
{
    Box box;
    write_file(box.name("#mix"), "fifteen bytes..");
    IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    ASSERT_NE(NO_INDEX_HANDLE, index);
    EXPECT_EQ(nullptr, mlmbx_readidx(index));
    EXPECT_EQ(-1, index->error_code);
    EXPECT_EQ(-1, mlmbx_closeidx(index, INDEX_PLAIN));
}

TEST(IndexTransaction, NeverWritesAnIndexWithoutItsHeader)
{
    Box box;
    IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    IndexRecord empty = {1, 1, 0, 0};
    EXPECT_EQ(-1, mlmbx_writeidx(index, &empty));
    EXPECT_EQ(-1, mlmbx_closeidx(index, INDEX_PLAIN));
    EXPECT_EQ(16u, read_file(box.name("#mix")).size());
}

TEST(IndexTransaction, OfAHugeSparseIndexFailsWithoutHarm)
{
    Box box;
    ASSERT_EQ(0, truncate(box.name("#mix").c_str(), off_t{1} << 40));
    IndexTransaction transaction;
    ASSERT_EQ(0, transaction.begin(box.path()));
    EXPECT_EQ(nullptr, transaction.read());
}

TEST(IndexTransaction, OfAnAbsentIndexDoesNotBegin)
{
    Box box(false);
    EXPECT_EQ(NO_INDEX_HANDLE, mlmbx_openidx(box.path(), -1, INDEX_PLAIN));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, mlmbx_closeidx(NO_INDEX_HANDLE, INDEX_PLAIN));
    EXPECT_EQ(-1, mlmbx_closeidx(nullptr, INDEX_PLAIN));
}

/* -- modes -- */

static const struct {
    const char *label;
    int mode;
    const char *work, *second;
    bool keeps_fd, keeps_second;
} mode_rows[] = {
    {"plain", INDEX_PLAIN, "#mix.new", "#mix.new1", false, false},
    {"keep the descriptor", INDEX_KEEP_FD, "#mix.new", "#mix.new1", true, false},
    {"keep the second copy", INDEX_KEEP_SECOND, "#mix.new", "#mix.new1", true, true},
    {"deleting", INDEX_DELETE, "#mix.delnew", "#mix.delnew1", true, false},
};

TEST(IndexTransaction, OnTheCallersDescriptorHasASecondCopy)
{
    for (const auto &row : mode_rows) {
        SCOPED_TRACE(row.label);
        Box box;
        box.append_samples(1);
        const int fd = mllk_open(mlmbx_idxname(box.path(), 1), O_RDWR, 0660);
        ASSERT_LE(0, fd);
        IndexHandle *index = mlmbx_openidx(box.path(), fd, row.mode);
        ASSERT_NE(NO_INDEX_HANDLE, index);
        EXPECT_EQ(fd, index->fd);
        EXPECT_LT(0, index->second_fd);
        EXPECT_EQ((Lines{"#mix", row.work, row.second}), files(box));
        IndexRecord *records = mlmbx_readidx(index);
        records[1].flags = MESSAGE_DRAFT;
        EXPECT_EQ(0, mlmbx_writeidx(index, records));
        mlist_release(records);
        EXPECT_NE(-1, mlmbx_closeidx(index, row.mode));
        EXPECT_EQ(uint32_t{MESSAGE_DRAFT}, box.flags(1));
        EXPECT_EQ(row.keeps_second ? (Lines{"#mix", row.second}) : (Lines{"#mix"}), files(box));
        EXPECT_EQ(row.keeps_fd, fcntl(fd, F_GETFD) != -1);
        if (!row.keeps_fd) continue;
        EXPECT_EQ(-1, mllks_open(box.name("#mix").c_str(), O_RDWR, 0));
        EXPECT_EQ(0, mllk_close(fd));
    }
}

TEST(IndexTransaction, BehindAFinishedCommitHasNoSecondCopy)
{
    Box box;
    write_file(box.name("#mix"), new_bytes.substr(0, 20));
    write_file(box.name("#mix.new"), new_bytes);
    write_file(box.name("#mix.old"), old_bytes);
    const int fd = mllk_open(mlmbx_idxname(box.path(), 1), O_RDWR, 0660);
    IndexHandle *index = mlmbx_openidx(box.path(), fd, INDEX_KEEP_FD);
    ASSERT_NE(NO_INDEX_HANDLE, index);
    EXPECT_EQ(0, index->second_fd);
    EXPECT_EQ((Lines{"#mix", "#mix.new"}), files(box));
    EXPECT_NE(-1, mlmbx_closeidx(index, INDEX_KEEP_FD));
    EXPECT_EQ(new_bytes, read_file(box.name("#mix")));
    EXPECT_EQ((Lines{"#mix"}), files(box));
    EXPECT_EQ(0, mllk_close(fd));
}

TEST(IndexTransaction, ThatFailsOnTheCallersDescriptorClosesItAtTheEndOnly)
{
    Box box;
    const int fd = mllk_open(mlmbx_idxname(box.path(), 1), O_RDWR, 0660);
    {
        FaultOs fault;
        fault.fail_nth_change(0, ENOSPC);
        EXPECT_EQ(NO_INDEX_HANDLE, mlmbx_openidx(box.path(), fd, INDEX_KEEP_FD));
    }
    EXPECT_NE(-1, fcntl(fd, F_GETFD)); /* nothing began: still the caller's */
    IndexHandle *index = mlmbx_openidx(box.path(), fd, INDEX_KEEP_FD);
    ASSERT_NE(NO_INDEX_HANDLE, index);
    index->error_code = -1;
    EXPECT_EQ(-1, mlmbx_closeidx(index, INDEX_KEEP_FD));
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
}

TEST(IndexTransaction, InsideAnotherOfTheThreadIsRefused)
{
    Box box;
    IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
    EXPECT_EQ(NO_INDEX_HANDLE, mlmbx_openidx(box.path(), -1, INDEX_PLAIN));
    EXPECT_EQ(EDEADLK, errno);
    EXPECT_EQ(nullptr, list_mbx_open(box.path(), MAILBOX_QUIET));
    EXPECT_NE(-1, mlmbx_closeidx(index, INDEX_PLAIN));
    MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_QUIET);
    EXPECT_NE(nullptr, handle);
    list_mbx_close(handle);
}

/* -- recovery: the rows of the table in archive/mbx_idx.cpp -- */

static const struct {
    const char *label;
    bool work, backup;
    std::string index, wanted;
} state_rows[] = {
    {"at rest", false, false, old_bytes, old_bytes},
    {"died before the commit", true, false, old_bytes, old_bytes},
    {"died while the index was overwritten", true, true, new_bytes.substr(0, 20), new_bytes},
    {"died before the index was overwritten", true, true, old_bytes, new_bytes},
    {"a lone backup", false, true, old_bytes, old_bytes},
};

TEST(IndexRecovery, MakesTheIndexWholeAsTheNextTransactionBegins)
{
    for (const auto &row : state_rows)
        for (const int form : {0, 1, 2}) {
            SCOPED_TRACE(std::string(row.label) + " form " + std::to_string(form));
            Box box;
            const bool deleting = form == 2;
            write_file(box.name("#mix"), row.index);
            if (row.work) write_file(box.name(deleting ? "#mix.delnew" : "#mix.new"), new_bytes);
            if (row.backup) write_file(box.name(deleting ? "#mix.delold" : "#mix.old"), old_bytes);
            if (form == 0) {
                IndexTransaction transaction;
                EXPECT_EQ(0, transaction.begin(box.path()));
                EXPECT_EQ(row.wanted, read_file(box.name("#mix")));
                EXPECT_EQ((Lines{"#mix"}), files(box));
                continue;
            }
            const int mode = deleting ? INDEX_DELETE : INDEX_PLAIN;
            IndexHandle *index = mlmbx_openidx(box.path(), -1, mode);
            ASSERT_NE(NO_INDEX_HANDLE, index);
            EXPECT_EQ(row.wanted, read_file(box.name("#mix")));
            EXPECT_EQ((Lines{"#mix", deleting ? "#mix.delnew" : "#mix.new"}), files(box));
            const int fd = index->fd;
            EXPECT_NE(-1, mlmbx_closeidx(index, mode));
            EXPECT_EQ(row.wanted, read_file(box.name("#mix")));
            EXPECT_EQ((Lines{"#mix"}), files(box));
            if (deleting) {
                EXPECT_EQ(0, mllk_close(fd));
            }
        }
}

TEST(IndexRecovery, ConcludesNothingFromASideFileThatCannotBeSeen)
{
    Box box;
    write_file(box.name("#mix"), new_bytes.substr(0, 20));
    write_file(box.name("#mix.new"), new_bytes);
    write_file(box.name("#mix.old"), old_bytes);
    {
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &path) {
            return call == "stat" && path == box.name("#mix.old") ? EIO : 0;
        };
        IndexTransaction transaction;
        EXPECT_EQ(-1, transaction.begin(box.path()));
        EXPECT_EQ(EIO, errno);
    }
    EXPECT_EQ((Lines{"#mix", "#mix.new", "#mix.old"}), files(box));
    IndexTransaction transaction;
    EXPECT_EQ(0, transaction.begin(box.path()));
    EXPECT_EQ(new_bytes, read_file(box.name("#mix")));
}

/* -- the cheap form -- */

static int changes_in(const FaultOs &fault, const std::string &name)
{
    int count = 0;
    for (const std::string &call : fault.calls)
        if (call.compare(0, name.size(), name) == 0) ++count;
    return count;
}

TEST(CheapTransaction, ThatOnlyReadsTouchesNothing)
{
    Box box;
    box.append_samples(2);
    box.age(10);
    const int64_t before = box.mtime();
    FaultOs fault;
    IndexTransaction transaction;
    ASSERT_EQ(0, transaction.begin(box.path()));
    mlist_release(transaction.read());
    struct timespec changed;
    EXPECT_EQ(0, transaction.end(&changed));
    EXPECT_EQ(before, changed.tv_sec);
    EXPECT_EQ(1, changes_in(fault, "open"));
    EXPECT_EQ(1, changes_in(fault, "pread"));
    for (const char *change : {"fsync", "pwrite", "unlink", "futimens", "ftruncate"})
        EXPECT_EQ(0, changes_in(fault, change));
}

TEST(CheapTransaction, ThatWritesTheSameOnlyRenewsTheTime)
{
    Box box;
    box.append_samples(2);
    box.age(10);
    const int64_t before = box.mtime();
    FaultOs fault;
    IndexTransaction transaction;
    ASSERT_EQ(0, transaction.begin(box.path()));
    IndexRecord *records = transaction.read();
    EXPECT_EQ(0, transaction.write(records));
    mlist_release(records);
    struct timespec changed;
    EXPECT_EQ(0, transaction.end(&changed));
    EXPECT_LT(before, changed.tv_sec);
    EXPECT_EQ(0, changes_in(fault, "fsync"));
    EXPECT_EQ(1, changes_in(fault, "futimens"));
}

TEST(CheapTransaction, ThatChangesSyncsThreeFilesAndTheDirectory)
{
    Box box;
    box.append_samples(2);
    FaultOs fault;
    IndexTransaction transaction;
    ASSERT_EQ(0, transaction.begin(box.path()));
    IndexRecord *records = transaction.read();
    records[1].flags = 0;
    EXPECT_EQ(0, transaction.write(records));
    mlist_release(records);
    struct timespec changed;
    EXPECT_EQ(0, transaction.end(&changed));
    EXPECT_EQ(4, changes_in(fault, "fsync"));
    EXPECT_EQ(0u, box.flags(1));
}

TEST(CheapTransaction, OutOfScopeLeavesNothing)
{
    Box box;
    box.append_samples(1);
    const std::string before = tree_text(box.path());
    {
        IndexTransaction transaction;
        ASSERT_EQ(0, transaction.begin(box.path()));
        IndexRecord *records = transaction.read();
        records[1].flags = 0;
        EXPECT_EQ(0, transaction.write(records));
        mlist_release(records);
        EXPECT_TRUE(exists(box.name("#mix.new")));
    }
    EXPECT_EQ(before, tree_text(box.path()));
    box.append_samples(1);
}

TEST(CheapTransaction, WorksOnIndexesOfManyBlocks)
{
    Box box;
    Records records = {{100001, Box::validity, 100001, 0}};
    for (uint32_t uid = 1; uid <= 100000; ++uid)
        records.push_back({uid, MESSAGE_RECENT, 1, 2});
    box.put_index(records);
    box.append("one more");
    records[0].uid = 100002;
    records[0].header_size = 100002;
    records.push_back({100001, MESSAGE_RECENT, 0, 8});
    EXPECT_TRUE(bytes_of(records) == read_file(box.name("#mix")));
}

TEST(CheapTransaction, OfAPostingTakesTheDraftOfOneThatDied)
{
    Box box;
    box.append_samples(1);
    write_file(box.name("#mix.old"), std::string(1000, 'd'));
    KeptIndex kept = {};
    {
        IndexTransaction number;
        ASSERT_EQ(0, number.begin(box.path(), &kept));
        kept = number.keep_file();
    }
    EXPECT_EQ((Lines{"#mix"}), files(box));
    write_file(box.name("#mix.old"), std::string(1000, 'd'));
    IndexTransaction transaction;
    ASSERT_EQ(0, transaction.begin(box.path(), &kept));
    IndexRecord *records = transaction.read();
    records[1].flags = MESSAGE_SEEN;
    EXPECT_EQ(0, transaction.write(records));
    mlist_release(records);
    EXPECT_EQ(0, transaction.end(nullptr));
    EXPECT_EQ((Lines{"#mix"}), files(box));
    EXPECT_EQ(uint32_t{MESSAGE_SEEN}, box.flags(1));
}
