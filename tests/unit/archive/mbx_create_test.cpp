/* Creating and deleting mailboxes. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

static unsigned mode_of(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

TEST(MailboxCreate, WritesAnEmptyIndexByteForByte)
{
    Box box(false);
    FaultOs fault;
    fault.now = 1794701640;
    take_log();
    EXPECT_EQ(1, mlmbx_create(box.path()));
    EXPECT_EQ("0100000048f9f86a0100000000000000\n", hex(read_file(box.name("#mix"))));
    EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(box.path()));
    EXPECT_EQ(0700u, mode_of(box.path()));
    EXPECT_EQ(0700u, mode_of(box.name("#msg")));
    EXPECT_EQ(0600u, mode_of(box.name("#mix")));
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST(MailboxCreate, OfAnExistingMailboxAnswersZeroWithoutAMessage)
{
    Box box;
    box.append_samples(1);
    const std::string before = tree_text(box.path());
    take_log();
    EXPECT_EQ(0, mlmbx_create(box.path()));
    EXPECT_EQ(before, tree_text(box.path()));
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST(MailboxCreate, MakesMissingParentsMailboxes)
{
    TempDir dir;
    const std::string path = dir / "a/b/INBOX";
    EXPECT_EQ(1, mlmbx_create(path.c_str()));
    EXPECT_EQ((Lines{"#mix", "#msg", "b"}), list_directory(dir / "a"));
    EXPECT_EQ((Lines{"#mix", "#msg", "INBOX"}), list_directory(dir / "a/b"));
    EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(path));
}

/* The parent's own call finds the parent there and says "not created". */
TEST(MailboxCreate, LeavesThePathOfTheCallerAlone)
{
    TempDir dir;
    char path[256];
    snprintf(path, sizeof(path), "%s/x/y", dir.path().c_str());
    const std::string before = path;
    EXPECT_EQ(1, mlmbx_create(path));
    EXPECT_EQ(before, path);
}

TEST(MailboxCreate, CompletesADirectoryThatHasNoIndex)
{
    TempDir dir;
    ASSERT_EQ(0, mkdir((dir / "INBOX").c_str(), 0755));
    EXPECT_EQ(1, mlmbx_create((dir / "INBOX").c_str()));
    EXPECT_EQ((Lines{"#mix", "#msg"}), list_directory(dir / "INBOX"));
}

static const struct {
    const char *label;
    const char *call, *below; /* the call that fails, on the mailbox or below it */
    int error;
    const char *log; /* before and after the path */
    const char *log_end;
} failure_rows[] = {
    {"mkdir out of space", "mkdir", "", ENOSPC, "11/608 mbx_create: mkdir ",
     " err2(No space left on device)"},
    {"#msg out of space", "mkdir", "/#msg", ENOSPC, "11/609 mbx_create: mkdir ",
     " err3(No space left on device)"},
    {"the index cannot be linked", "link", "/#mix", EIO, "11/610 mbx_create: Cannot create idx ",
     " (Input/output error)"},
};

TEST(MailboxCreate, LogsWhichStepFailed)
{
    for (const auto &row : failure_rows) {
        SCOPED_TRACE(row.label);
        Box box(false);
        FaultOs fault;
        const std::string target = box.path() + std::string(row.below);
        fault.before = [&](const std::string &call, const std::string &path) {
            return call == row.call && path == target ? row.error : 0;
        };
        take_log();
        EXPECT_EQ(0, mlmbx_create(box.path()));
        EXPECT_EQ((Lines{row.log + target + row.log_end}), take_log_lines(true));
    }
}

TEST(MailboxCreate, CountsAccessDeniedAsThere)
{
    Box box;
    ASSERT_EQ(0, unlink(box.name("#mix").c_str()));
    FaultOs fault;
    fault.before = [](const std::string &call, const std::string &) {
        return call == "mkdir" ? EACCES : 0;
    };
    EXPECT_EQ(1, mlmbx_create(box.path()));
}

TEST(MailboxCreate, GivesUpOnASecondMissingParent)
{
    Box box(false);
    FaultOs fault;
    int calls = 0;
    fault.before = [&](const std::string &call, const std::string &path) {
        if (call != "mkdir" || path != box.path()) return 0;
        ++calls;
        return ENOENT;
    };
    take_log();
    EXPECT_EQ(0, mlmbx_create(box.path()));
    EXPECT_EQ(2, calls);
    EXPECT_EQ((Lines{"11/607 mbx_create: mkdir " + std::string(box.path()) +
                     " err1(No such file or directory)"}),
              take_log_lines(true));
}

TEST(MailboxCreate, OfARelativeNameInNowhereGivesUp)
{
    FaultOs fault;
    fault.before = [](const std::string &call, const std::string &) {
        return call == "mkdir" ? ENOENT : 0;
    };
    take_log();
    EXPECT_EQ(0, mlmbx_create("nowhere"));
    EXPECT_EQ((Lines{"11/607 mbx_create: mkdir nowhere err1(No such file or directory)"}),
              take_log_lines(true));
}

TEST(MailboxCreate, OfAPathThatIsTooLongFails)
{
    take_log();
    EXPECT_EQ(0, mlmbx_create(std::string(5000, 'x').c_str()));
    EXPECT_EQ(1u, take_log_lines(true).size());
}

TEST(MailboxCreate, NeverShowsAnIndexWithoutItsHeader)
{
    Box box(false);
    FaultOs fault;
    fault.before = [&](const std::string &, const std::string &) {
        struct stat status;
        if (stat(box.name("#mix").c_str(), &status) == 0) {
            EXPECT_EQ(16, status.st_size);
        }
        return 0;
    };
    EXPECT_EQ(1, mlmbx_create(box.path()));
}

/* -- delete -- */

/* A posting may be acknowledged next: neither the index nor a name on the way to it may be lost. */
TEST(MailboxCreate, IsOnTheDiskWhenItAnswers)
{
    Box box(false);
    const std::string path = box.path();
    Lines order;
    {
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &of) {
            if (call == "fsync" || call == "link") order.push_back(call + " " + of);
            return 0;
        };
        EXPECT_EQ(1, mlmbx_create(path.c_str()));
    }
    ASSERT_EQ(4u, order.size());
    EXPECT_TRUE(order[0].starts_with("fsync " + box.name("#mix.made"))) << order[0];
    EXPECT_EQ((Lines{"link " + box.name("#mix"), "fsync " + path,
                     "fsync " + path.substr(0, path.rfind('/'))}),
              Lines(order.begin() + 1, order.end()));
}

TEST(MailboxDelete, RemovesEverythingOfAMailbox)
{
    Box box;
    box.append_samples(3);
    EXPECT_EQ(1, mlmbx_delete(box.path()));
    EXPECT_FALSE(exists(box.path()));
}

TEST(MailboxDelete, SparesWhatIsNoMessage)
{
    Box box;
    box.append_samples(1);
    write_file(box.name("#msg/note"), "mine");
    EXPECT_EQ(1, mlmbx_delete(box.path()));
    EXPECT_EQ((Lines{"#msg"}), list_directory(box.path()));
    EXPECT_EQ((Lines{"note"}), list_directory(box.name("#msg")));
}

TEST(MailboxDelete, LeavesTransactionFilesAndSoTheDirectory)
{
    Box box;
    write_file(box.name("#mix.new"), "x");
    EXPECT_EQ(1, mlmbx_delete(box.path()));
    EXPECT_EQ((Lines{"#mix.new"}), list_directory(box.path()));
}

TEST(MailboxDelete, OfNothingAnswersOneToo)
{
    Box box(false);
    EXPECT_EQ(1, mlmbx_delete(box.path()));
}
