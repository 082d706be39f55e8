/* Commits that fail after the index has been touched. */
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "archive/mbx.h"
#include "tests/support/fault_os.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

/* One transaction that flags message 2 and drops message 3. */
static int change_index(const Box &box, bool literal)
{
    if (literal) {
        IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
        if (index == NO_INDEX_HANDLE) return -1;
        IndexRecord *records = mlmbx_readidx(index);
        records[2].flags = MESSAGE_DRAFT;
        records[0].header_size = 3;
        EXPECT_EQ(0, mlmbx_writeidx(index, records));
        mlist_release(records);
        return mlmbx_closeidx(index, INDEX_PLAIN) == -1 ? -1 : 0;
    }
    IndexTransaction transaction;
    struct timespec changed;
    if (transaction.begin(box.path()) < 0) return -1;
    IndexRecord *records = transaction.read();
    records[2].flags = MESSAGE_DRAFT;
    records[0].header_size = 3;
    EXPECT_EQ(0, transaction.write(records));
    mlist_release(records);
    return transaction.end(&changed);
}

static Lines files(const Box &box)
{
    Lines names = list_directory(box.path());
    std::erase(names, "#msg");
    return names;
}

/* Calls on #mix itself fail from the first-th to before the last-th. */
static void fail_on_index(FaultOs *fault, const Box &box, std::string call, int first, int last)
{
    fault->before = [name = box.name("#mix"), call, first, last,
                     nth = 0](const std::string &called, const std::string &path) mutable {
        if (called != call || path != name) return 0;
        const bool fails = nth >= first && nth < last;
        ++nth;
        return fails ? ENOSPC : 0;
    };
}

/* What is reported as failed has not happened, and readers need no room on the full disk. */
TEST(Commit, ThatFailsHalfWayPutsTheOldIndexBack)
{
    static const struct {
        const char *call;
        int nth;
    } rows[] = {{"pwrite", 0}, {"pwrite", 1}, {"pwrite", 2}, {"ftruncate", 0}, {"fsync", 0}};
    for (const auto &row : rows)
        for (const bool literal : {true, false}) {
            SCOPED_TRACE(std::string(row.call) + std::to_string(row.nth));
            Box box;
            box.append_samples(3);
            const std::string content = read_file(box.name("#mix"));
            {
                FaultOs fault;
                fault.short_write = 20;
                fail_on_index(&fault, box, row.call, row.nth, row.nth + 1);
                EXPECT_EQ(-1, change_index(box, literal));
                EXPECT_EQ(ENOSPC, errno);
            }
            EXPECT_EQ(content, read_file(box.name("#mix")));
            EXPECT_EQ((Lines{"#mix"}), files(box));
            EXPECT_EQ(0, change_index(box, literal));
        }
}

TEST(Commit, ThatCannotPutTheOldIndexBackIsCompletedByTheNextTransaction)
{
    for (const char *call : {"pwrite", "fsync"}) {
        SCOPED_TRACE(call);
        Box box;
        box.append_samples(3);
        {
            FaultOs fault;
            fault.short_write = 20;
            fail_on_index(&fault, box, call, 1, 1000);
            if (std::string(call) == "fsync") fail_on_index(&fault, box, call, 0, 1000);
            EXPECT_EQ(-1, change_index(box, false));
            EXPECT_EQ(ENOSPC, errno);
        }
        EXPECT_EQ((Lines{"#mix", "#mix.new", "#mix.old"}), files(box));
        MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_QUIET);
        ASSERT_NE(nullptr, handle);
        list_mbx_close(handle);
        EXPECT_EQ((std::vector<uint32_t>{1, 2}), box.uids());
        EXPECT_EQ(uint32_t{MESSAGE_DRAFT}, box.flags(2));
        EXPECT_EQ((Lines{"#mix"}), files(box));
    }
}

TEST(Commit, MakesItsSideFilesForOwnerAndGroup)
{
    const mode_t former = umask(017);
    Box box;
    box.append_samples(1);
    std::string modes;
    {
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &path) {
            struct stat status;
            if (call == "fsync" && path != box.name("#mix") && stat(path.c_str(), &status) == 0 &&
                S_ISREG(status.st_mode))
                modes += path.substr(box.name("").size()) + " " +
                         std::to_string((status.st_mode & 0777) == 0660) + "\n";
            return 0;
        };
        IndexHandle *index = mlmbx_openidx(box.path(), -1, INDEX_PLAIN);
        EXPECT_NE(-1, mlmbx_closeidx(index, INDEX_PLAIN));
    }
    (void)umask(former);
    EXPECT_EQ("#mix.old 1\n#mix.old 1\n",
              modes); /* the work copy has that name until it is whole */
}
