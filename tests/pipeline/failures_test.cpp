/* Outcomes of the frame: lock, directories, numbering, journal, message file. */
#include <errno.h>
#include <fcntl.h>
#include <string.h>
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

TEST_F(Failures, OnlyALockThatWouldBlockCountsAsTimedOut)
{
    FaultOs faults;
    fail(faults, "flock", path("lock"), EAGAIN);
    EXPECT_EQ(75, post_plain());
    EXPECT_TRUE(reply().starts_with("451 ")) << reply();
    fail(faults, "flock", path("lock"), ENOLCK);
    EXPECT_EQ(69, post_plain());
    EXPECT_TRUE(reply().starts_with("502 ")) << reply();
    EXPECT_TRUE(logged(351, "mlname=mylist lock file error 37 [fn=" + path("lock") + "]"));
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

/* The journal's texts are collected; the one that a failure is laid at is the first of those that
   did not get into the file. */
TEST_F(Failures, AnotherWriteErrorOfTheJournalShowsTheStepThatCameFirst)
{
    const std::string big = std::string(200000, 'x') + "\r\n";
    const struct {
        const char *label;
        std::string message;
        int nth; /* write of the journal that fails */
        int msgno;
        std::string text;
    } rows[] = {
        {"a header line", "From: alice@example.net\r\n\r\ntext\r\n", 1, 393,
         "519 fputs [ml=mylist]"},
        {"before a long body", "From: alice@example.net\r\n\r\n" + big, 1, 393,
         "519 fputs [ml=mylist]"},
        {"in a long body", "From: alice@example.net\r\n\r\n" + big, 2, 394, "520 fputs [ml=mylist"},
        {"at the end of a long body", "From: alice@example.net\r\n\r\n" + big, 4, 394,
         "520 fputs [ml=mylist"},
        {"added lines", "\r\ntext\r\n", 1, 387, "513 fputs [ml=mylist]"},
    };
    for (const auto &row : rows) {
        (void)take_log();
        FaultOs faults;
        int writes = 0;
        faults.before = [&](const std::string &call, const std::string &file) {
            return call == "write" && file == journal_path() && ++writes == row.nth ? EIO : 0;
        };
        EXPECT_EQ(75, post(row.message)) << row.label;
        const std::string whole =
            row.text + " fn=" + journal_path() + " Input/output error " + tid() + "\n";
        EXPECT_EQ(whole.substr(0, 126), reply()) << row.label;
        EXPECT_TRUE(logged(row.msgno,
                           "mlname=mylist fputs fail Input/output error [" + journal_path() + "]"))
            << row.label;
        EXPECT_EQ("", list.get("dgtstat")) << row.label;
    }
}

TEST_F(Failures, WithoutMemoryForItsBufferTheJournalIsWrittenTextByText)
{
    FaultOs faults;
    int writes = 0, failing = 0;
    faults.before = [&](const std::string &call, const std::string &file) {
        return call == "write" && file == journal_path() && ++writes == failing ? EIO : 0;
    };
    /* Which allocation is the buffer's: the one whose failure shows in the number of writes. */
    long buffer = 0;
    for (; writes < 6 && buffer < 100; ++buffer) {
        writes = 0;
        host.fail_allocation = buffer;
        (void)post_plain();
    }
    ASSERT_EQ(6, writes) << "From, Message-ID, added lines, Subject, blank line, body";
    const struct {
        int msgno;
        const char *text;
    } rows[] = {{393, "519 "}, {393, "519 "}, {387, "513 "},
                {389, "515 "}, {390, "516 "}, {394, "520 "}};
    for (const auto &row : rows) {
        ++failing;
        writes = 0;
        (void)take_log();
        host.fail_allocation = buffer - 1;
        EXPECT_EQ(75, post_plain()) << failing;
        EXPECT_TRUE(reply().starts_with(row.text)) << reply();
        EXPECT_TRUE(logged_prefix(row.msgno, "mlname=mylist fputs fail ")) << failing;
    }
}

TEST_F(Failures, AFullDiskComesBeforeAFailureThatFollowsIt)
{
    const std::string from = "From: alice@example.net\r\n";
    const struct {
        const char *label;
        std::string message;
    } rows[] = {
        {"509", from + std::string(2000, 'x') + "\r\n\r\ntext\r\n"},
        {"510", from + "X-ML-Name: mylist@example.jp\r\n\r\ntext\r\n"},
        {"518", from + "Return-Path: <a@b>\r\n\r\ntext\r\n"},
        {"528", from},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(69, post(row.message)) << row.label;
        EXPECT_TRUE(reply().starts_with(row.label)) << reply();
        FaultOs faults;
        fail(faults, "write", journal_path(), ENOSPC);
        EXPECT_EQ(75, post(row.message)) << row.label;
        EXPECT_EQ("480 fputs disk full [ml=mylist]", reply()) << row.label;
    }
}

/* Otherwise the retry would carry the commands out a second time. */
TEST_F(Failures, NoCommandIsCarriedOutWhenTheJournalCannotBeWritten)
{
    const std::string roster = list.get("member");
    for (const int error : {ENOSPC, EIO}) {
        FaultOs faults;
        fail(faults, "write", journal_path(), error);
        EXPECT_EQ(75, command("From: alice@example.net\r\n\r\n# off\r\n"));
        EXPECT_TRUE(reply().starts_with(error == ENOSPC ? "480 " : "519 ")) << reply();
        EXPECT_EQ(roster, list.get("member"));
        EXPECT_TRUE(host.submissions.empty());
    }
}

TEST_F(Failures, ABottomBannerThatCannotBeWrittenBehindCommandsIs526)
{
    list.put("msg/bnrbtm.txt", "bottom\r\n");
    FaultOs faults;
    int writes = 0;
    faults.before = [&](const std::string &call, const std::string &file) {
        return call == "write" && file == journal_path() && ++writes == 2 ? EIO : 0;
    };
    EXPECT_EQ(75, command("From: alice@example.net\r\n\r\n# stat\r\n"));
    EXPECT_EQ("526 insert banner(bottom) fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_EQ(1u, host.submissions.size());
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

TEST_F(Failures, EveryStageGivesBackWhatItHoldsWhenTheNthAllocationFails)
{
    const std::string mail = "From: alice@example.net\r\nMessage-ID: <a1@x>\r\n\r\n";
    const struct {
        const char *label;
        std::string init, body;
        bool is_command;
    } rows[] = {
        {"a posting", sample_init(), "Hi.\r\n", false},
        {"a posting that is denied", init_with({"vstrml=deny"}), "Hi.\r\n", false},
        {"commands that change the roster", sample_init(), "# off\r\n# on\r\n# stat\r\n", true},
        {"commands that read the archive", sample_init(), "# summary\r\n# get 1\r\n", true},
        {"no command", sample_init(), "hello\r\n", true},
    };
    ASSERT_EQ(0, post_plain());
    for (const auto &row : rows) {
        list.put("init", row.init);
        list.put("grant", strstr(row.label, "denied") ? "bob@example.jp\r\n" : "");
        const size_t descriptors = list_directory("/proc/self/fd").size();
        bool failed = true;
        for (long nth = 1; failed; ++nth) {
            SCOPED_TRACE(row.label + (", allocation " + std::to_string(nth)));
            host.fail_allocation = nth;
            const int code = row.is_command ? command(mail + row.body) : post(mail + row.body);
            failed = host.fail_allocation < 0;
            EXPECT_TRUE(code == 0 || code == 69 || code == 75) << code;
            EXPECT_EQ(0, host.live_blocks);
            EXPECT_EQ(descriptors, list_directory("/proc/self/fd").size());
            host.fail_allocation = -1;
        }
    }
    list.put("init", sample_init());
    EXPECT_EQ(0, post_plain());
    expect_nothing_lost_or_left();
}

TEST_F(Failures, TheFailureExitNamesThreadAndList)
{
    EXPECT_EQ(69, post(""));
    EXPECT_TRUE(logged(1, tid() + ": mailing-list unavailable  [mylist] <<<"));
}

/* -- a repair that fails -- */

/* What stands beside a control file and cannot be removed. */
static void block_recovery(const std::string &path)
{
    mkdir((path + ".new").c_str(), 0700);
    write_file(path + ".new/in-the-way", "");
}

TEST_F(Failures, SettingsThatCannotBeRepairedAreTheDefaultsAndLeaveTheirText)
{
    block_recovery(path("init"));
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ(("475 f_reover disk full " + path("init")).substr(0, 126), reply());
    EXPECT_NE(std::string::npos, archived(1).find("\r\nSubject: [mylist:1] Hello\r\n"));

    list.put("dgtstat", "1\r\n2\r\n");
    EXPECT_EQ(75, post_plain()) << "what fails later is for later";
    EXPECT_TRUE(reply().starts_with("475 ")) << reply();
}

TEST_F(Failures, AnActiveFileThatCannotBeRepairedIsNobodyToSendTo)
{
    block_recovery(path("active"));
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ(("475 f_reover disk full " + path("active")).substr(0, 126), reply());
    EXPECT_TRUE(host.submissions.empty());
    EXPECT_NE("", archived(1));
    EXPECT_TRUE(list_directory(path("jnl")).empty());
}

/* -- the host and the journal's end -- */

TEST_F(Failures, AHostWithoutMemoryForItsTextsIsNoFailure)
{
    host.request.keep_text = [](const char *) -> char * { return nullptr; };
    host.result_to_write = "queued";
    host.set_result("untouched");
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ("untouched", host.result());
}

TEST_F(Failures, AJournalThatCannotBeDeletedIsOnlyLogged)
{
    FaultOs faults;
    faults.before = [&](const std::string &call, const std::string &file) {
        return call == "unlink" && file == journal_path() ? EACCES : 0;
    };
    EXPECT_EQ(0, command("From: alice@example.net\r\n\r\n# stat\r\n"));
    EXPECT_EQ("", reply());
    EXPECT_TRUE(
        logged(403, "mlname=mylist can't delete Permission denied [" + journal_path() + "]"));
}
