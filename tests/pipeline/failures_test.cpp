/* Outcomes of the frame: lock, directories, numbering, journal, message file. */
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/pipeline/pipeline.h"
#include "tests/support/fault_os.h"

class Failures : public PipelineTest
{
  protected:
    std::string journal_path() const { return path("jnl/j." + std::to_string(gettid())); }

    /* Fails one call on one path. */
    void fail(FaultOs &faults, const std::string &call, const std::string &file, int error)
    {
        faults.before = [=](const std::string &c, const std::string &f) {
            return c == call && f == file ? error : 0;
        };
    }
};

TEST_F(Failures, ADeliveryWaitsForALockHeldElsewhere)
{
    const int fd = open(path("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    FaultOs faults;
    std::atomic<bool> waiting = false;
    faults.before = [&](const std::string &call, const std::string &) {
        if (call == "flock") waiting = true;
        return 0;
    };
    std::thread holder([&] {
        while (!waiting)
            std::this_thread::yield();
        EXPECT_TRUE(list_directory(list.box("#msg")).empty());
        close(fd);
    });
    EXPECT_EQ(0, post_plain());
    holder.join();
}

TEST_F(Failures, ALockThatWouldBlockIsForLater)
{
    FaultOs faults;
    fail(faults, "open", path("lock"), EAGAIN);
    EXPECT_EQ(75, post_plain());
    EXPECT_EQ("451 file lock time out [ml=mylist " + tid() + "]\n", reply());
    EXPECT_TRUE(logged(373, "mlname=mylist file lock time out (ex_tempfail)"));
    EXPECT_FALSE(logged_prefix(351, "mlname"));
}

TEST_F(Failures, AMissingListDirectoryIs502AtOnce)
{
    FaultOs faults;
    fail(faults, "open", path("lock"), ENOENT);
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ("502 file lock time out [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(351, "mlname=mylist lock file error 2 [fn=" + path("lock") + "]"));
    EXPECT_TRUE(logged(374, "mlname=mylist file lock fail No such file or directory"));
    EXPECT_TRUE(faults.sleeps.empty());
}

TEST_F(Failures, ShortageOfDescriptorsIsWaitedOutSixTimes)
{
    FaultOs faults;
    fail(faults, "open", path("lock"), EMFILE);
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ(std::vector<unsigned>(6, 10), faults.sleeps);
    EXPECT_EQ("502 file lock time out [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(Failures, OpeningAndLockingShareTheirRetries)
{
    FaultOs faults;
    int opens = 0, locks = 0;
    faults.before = [&](const std::string &call, const std::string &file) {
        if (call == "open" && file == path("lock")) return ++opens <= 4 ? ENFILE : 0;
        if (call == "flock") return ++locks <= 3 ? ENOMEM : 0;
        return 0;
    };
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ(6u, faults.sleeps.size());
    EXPECT_EQ(3, locks);
}

TEST_F(Failures, AnInterruptedLockGoesOnWaiting)
{
    FaultOs faults;
    int locks = 0;
    faults.before = [&](const std::string &call, const std::string &) {
        return call == "flock" && ++locks == 1 ? EINTR : 0;
    };
    EXPECT_EQ(0, post_plain());
}

TEST_F(Failures, ADirectoryThatCannotBeMadeIs470AndForLater)
{
    rmdir(path("jnl").c_str());
    FaultOs faults;
    fail(faults, "mkdir", path("jnl"), EROFS);
    EXPECT_EQ(75, post_plain());
    EXPECT_EQ("470 mkdir " + path("jnl"), reply());
}

TEST_F(Failures, AnArchiveThatCannotBeOpenedIs505AndForLater)
{
    unlink(list.box("#mix").c_str());
    EXPECT_EQ(75, post_plain());
    EXPECT_TRUE(reply().starts_with("505 get_newid fail [ml=mylist] ")) << reply();
    EXPECT_TRUE(reply().ends_with(" " + tid() + "\n ")) << reply();
    EXPECT_TRUE(logged(1, "mbxnewno():mbxopen failure[fn=" + list.box() + "]"));
    EXPECT_TRUE(logged(360, "mlname=mylist get_newno mbx_newno error"));
    EXPECT_TRUE(logged(377, "mlname=mylist get_newno fail"));
    EXPECT_EQ("mbxopen failure [fn=" + list.box() + "]\n", out.take());
    EXPECT_FALSE(logged_prefix(378, "ml.ini"));
}

TEST_F(Failures, ADamagedIndexIsRebuiltAndTheRetrySucceeds)
{
    ASSERT_EQ(0, post_plain());
    write_file(list.box("#mix"), "short");
    EXPECT_EQ(75, post_plain());
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ(2u, list_directory(list.box("#msg")).size());
}

TEST_F(Failures, AJournalThatCannotBeOpenedIs506)
{
    FaultOs faults;
    fail(faults, "open", journal_path(), EACCES);
    EXPECT_EQ(69, post_plain());
    const std::string whole =
        "506 f_open fail [ml=mylist] fn=" + journal_path() + " Permission denied " + tid() + "\n";
    EXPECT_EQ(whole.substr(0, 126), reply());
}

TEST_F(Failures, AJournalThatIsADirectoryIs506)
{
    mkdir(journal_path().c_str(), 0700);
    EXPECT_EQ(69, post_plain());
    EXPECT_TRUE(reply().starts_with("506 f_open fail [ml=mylist] fn=")) << reply();
}

TEST_F(Failures, AMessageFileThatIsGoneIs508)
{
    EXPECT_EQ(69, host.deliver("/nonexistent/m", "example.jp", {"mylist"}));
    EXPECT_EQ("508 fopen [ml=mylist] fn=/nonexistent/m No such file or directory " + tid() + "\n",
              reply());
    expect_nothing_lost_or_left();
}

TEST_F(Failures, AMessageFileThatCannotBeReadIs525)
{
    EXPECT_EQ(69, host.deliver(list.root(), "example.jp", {"mylist"}));
    EXPECT_EQ("525 fgets [ml=mylist] Is a directory " + tid() + "\n", reply());
    EXPECT_TRUE(logged(400, "mlname=mylist mlist fgets7 error Is a directory"));
}

TEST_F(Failures, AFullDiskUnderTheJournalIs480AndForLater)
{
    FaultOs faults;
    fail(faults, "write", journal_path(), ENOSPC);
    EXPECT_EQ(75, post_plain());
    EXPECT_EQ("480 fputs disk full [ml=mylist]", reply());
    EXPECT_EQ(75, post_plain({}, std::string(200000, 'x') + "\r\n"));
    EXPECT_EQ("480 fputs disk full [ml=mylist]", reply());
    EXPECT_EQ("", list.get("dgtstat"));
}

TEST_F(Failures, AnotherWriteErrorOfTheJournalShowsItsStepAndIsForLater)
{
    FaultOs faults;
    fail(faults, "write", journal_path(), EIO);
    EXPECT_EQ(75, post_plain({}, std::string(200000, 'x') + "\r\n"));
    const std::string whole =
        "520 fputs [ml=mylist fn=" + journal_path() + " Input/output error " + tid() + "\n";
    EXPECT_EQ(whole.substr(0, 126), reply());
}

TEST_F(Failures, AJournalThatCannotBeSyncedIsForLater)
{
    FaultOs faults;
    fail(faults, "fsync", journal_path(), EIO);
    EXPECT_EQ(75, post_plain());
    EXPECT_TRUE(reply().starts_with("520 fputs [ml=mylist fn=")) << reply();
    EXPECT_EQ("", list.get("dgtstat"));
    EXPECT_TRUE(list_directory(list.box("#msg")).empty());
}

TEST_F(Failures, EveryStageGivesBackItsMemoryWhenTheNthAllocationFails)
{
    bool failed = true;
    for (long nth = 1; failed; ++nth) {
        host.fail_allocation = nth;
        const int code = post_plain();
        failed = host.fail_allocation < 0;
        EXPECT_TRUE(code == 0 || code == 69 || code == 75) << nth;
        EXPECT_EQ(0, host.live_blocks) << nth;
    }
    EXPECT_EQ(0, post_plain());
    expect_nothing_lost_or_left();
}

TEST_F(Failures, TheFailureExitNamesThreadAndList)
{
    EXPECT_EQ(69, post(""));
    EXPECT_TRUE(logged(1, tid() + ": mailing-list unavailable  [mylist] <<<"));
}
