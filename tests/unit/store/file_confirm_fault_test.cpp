/* The "confirm" file: its lock, and what goes wrong. */
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <span>
#include <thread>

#include "tests/support/lock_waiter.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/confirm_test.h"

/* -- the lock -- */

TEST_F(Confirm, TheLockIsMadeOnDemandAndLeftFree)
{
    EXPECT_FALSE(exists(list.control("confirm.lock")));
    umask(0);
    ASSERT_EQ(0, add("a@x"));
    umask(017);
    EXPECT_EQ(0700u, mode_of(list.control("confirm.lock")));
    EXPECT_EQ("", list.get("confirm.lock"));
    const int fd = open(list.control("confirm.lock").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(0, flock(fd, LOCK_EX | LOCK_NB));
    close(fd);
}

TEST_F(Confirm, EveryOperationWaitsForTheLock)
{
    ASSERT_EQ(0, add("a@x"));
    const int other = open(list.control("confirm.lock").c_str(), O_RDWR | O_CLOEXEC);
    for (int operation = 0; operation < 3; ++operation) {
        ASSERT_EQ(0, flock(other, LOCK_EX));
        std::atomic<bool> freed = false, ended_early = false;
        std::thread owner([&] {
            wait_for_a_waiter(other);
            freed = true;
            flock(other, LOCK_UN);
        });
        char found[CONFIRM_ID_SIZE];
        if (operation == 0) {
            EXPECT_EQ(0, add("b@x"));
        } else if (operation == 1) {
            EXPECT_EQ(1, get_cnfrmdb(list.job(), "b@x", found));
        } else {
            EXPECT_EQ(0, cln_cnfrmdb(list.job()));
        }
        ended_early = !freed;
        owner.join();
        EXPECT_FALSE(ended_early) << operation;
    }
    close(other);
}

TEST_F(Confirm, TheLockTextsAreThoseOfEachOperation)
{
    char found[CONFIRM_ID_SIZE];
    FaultOs fault;
    fault.before = fail_call("flock", "confirm.lock", 0, ENOLCK);
    EXPECT_EQ(-1, add("a@x"));
    fault.before = fail_call("flock", "confirm.lock", 0, ENOLCK);
    EXPECT_EQ(-1, get_cnfrmdb(list.job(), "a@x", found));
    fault.before = fail_call("flock", "confirm.lock", 0, ENOLCK);
    EXPECT_EQ(-1, cln_cnfrmdb(list.job()));
    fault.before = [](const std::string &call, const std::string &path) {
        return call == "open" && path.ends_with("confirm.lock") ? EROFS : 0;
    };
    EXPECT_EQ(-1, add("a@x"));
    EXPECT_EQ(-1, get_cnfrmdb(list.job(), "a@x", found));
    EXPECT_EQ(-1, cln_cnfrmdb(list.job()));
    EXPECT_EQ((std::vector<std::string>{
                  "1/280 mlname add_cnfrmdb flock (No locks available) f=mylist",
                  "1/275 mlname=mylist get_cnfrmdb flock (No locks available) f=CTL/confirm.lock",
                  "1/266 mlname=mylist cln_cnfrmdb flock (No locks available) f=CTL/confirm.lock",
                  "1/279 mlname=mylist add_cnfrmdb flock open (Read-only file system) "
                  "f=CTL/confirm.lock",
                  "1/274 mlname=mylist get_cnfrmdb flock open (Read-only file system) "
                  "f=CTL/confirm.lock",
                  "1/265 mlname=mylist cln_cnfrmdb flock open (Read-only file system) "
                  "f=CTL/confirm.lock"}),
              log_of(list));
}

/* -- failures -- */

struct ConfirmFault {
    const char *call, *ending;
    int turn, error;
    const char *log; /* the operation's own line */
};

/* Runs the operation with each fault: it fails, says so, and the entries are as they were. */
static void expect_texts(TempList &list, std::span<const ConfirmFault> rows,
                         const std::string &before, const std::function<int()> &operation)
{
    for (const ConfirmFault &row : rows) {
        SCOPED_TRACE(row.log);
        list.put("confirm", before);
        take_log();
        {
            FaultOs fault;
            fault.before = fail_call(row.call, row.ending, row.turn, row.error);
            EXPECT_EQ(-1, operation());
        }
        const std::vector<std::string> lines = log_of(list);
        EXPECT_TRUE(has_line(lines, row.log)) << joined(lines);
        EXPECT_EQ(before, list.get("confirm"));
    }
}

TEST_F(Confirm, EveryFailureOfAddingHasItsText)
{
    static const ConfirmFault rows[] = {
        {"open", "/confirm", 0, EACCES,
         "1/1 mlname=mylist add_cnfrmdb f_open Permission denied [CTL/confirm]"},
        {"open", "/confirm.new", 0, EDQUOT,
         "1/281 mlname=mylist add_cnfrmdb copy file error Disk quota exceeded "
         "[CTL/confirm CTL/confirm.new]"},
        {"write", "/confirm.new", 0, ENOSPC,
         "1/281 mlname=mylist add_cnfrmdb copy file error No space left on device "
         "[CTL/confirm CTL/confirm.new]"},
        {"open", "/confirm.new", 1, EMFILE,
         "1/282 mlname=mylist add_cnfrmdb f_open error Too many open files [CTL/confirm.new]"},
        {"write", "/confirm.new", 1, ENOSPC,
         "1/283 mlname=mylist add_cnfrmdb fputs error No space left on device [CTL/confirm.new]"},
        {"fsync", "/confirm.new", 1, EIO,
         "1/284 mlname=mylist add_cnfrmdb close error Input/output error [CTL/confirm.new]"},
        {"open", "/confirm.old", 0, EROFS,
         "1/285 mlname=mylist add_cnfrmdb renew error Read-only file system [CTL/confirm]"},
    };
    const std::string before = "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\n";
    for (const ConfirmFault &row : rows) {
        expect_texts(list, {&row, 1}, before, [&] { return add("b@x"); });
        EXPECT_EQ("AAAAAAAAAAAAAAAA", find("a@x"));
        EXPECT_EQ(0, add("b@x")) << "the next one starts afresh";
        EXPECT_EQ(id, find("b@x"));
    }
}

TEST_F(Confirm, ADateBeyondTheCalendarFailsToAdd)
{
    FaultOs clock;
    clock.now = INT64_MAX - 10;
    list.job()->settings.confirmation = 0;
    EXPECT_EQ(-1, add("a@x"));
    EXPECT_EQ((std::vector<std::string>{"1/1 mlname=mylist add_cnfrmdb f_open Value too large for "
                                        "defined data type [CTL/confirm]"}),
              log_of(list));
    list.job()->settings.confirmation = 3;
    EXPECT_EQ(-1, add("a@x")) << "the sum is too large";
    clock.now = local_time_of(2026, 11, 15, 9, 24);
    list.job()->settings.confirmation = INT32_MAX;
    EXPECT_EQ(0, add("a@x"));
    EXPECT_EQ(id, find("a@x"));
}

TEST_F(Confirm, EveryFailureOfLookingUpHasItsText)
{
    list.put("confirm", "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\n");
    char found[CONFIRM_ID_SIZE] = "x";
    OutCapture out;
    {
        FaultOs fault;
        fault.before = fail_call("read", "/confirm", 0, EIO);
        EXPECT_EQ(-1, get_cnfrmdb(list.job(), "a@x", found));
        EXPECT_STREQ("", found);
    }
    EXPECT_EQ("fgets error 5 [" + list.control("confirm") + "]\n", out.take());
    ASSERT_EQ(0, mkdir(list.control("confirm.new").c_str(), 0770));
    EXPECT_EQ(-1, get_cnfrmdb(list.job(), "a@x", found));
    EXPECT_EQ(-1, cln_cnfrmdb(list.job()));
    const std::vector<std::string> lines = log_of(list);
    EXPECT_TRUE(has_line(lines, "1/278 mlname=mylist get_cnfrmdb fgets error Input/output error "
                                "[CTL/confirm]"));
    EXPECT_TRUE(has_line(lines, "1/276 mlname=mylist get_cnfrmdb recover error Is a directory "
                                "[CTL/confirm]"))
        << joined(lines);
    EXPECT_TRUE(has_line(lines, "1/267 mlname=mylist cln_cnfrmdb recover error Is a directory "
                                "[CTL/confirm]"));
}

TEST_F(Confirm, EveryFailureOfCleaningHasItsText)
{
    static const ConfirmFault rows[] = {
        {"open", "/confirm.new", 0, EDQUOT,
         "1/268 mlname=mylist cln_cnfrmdb f_open error Disk quota exceeded [CTL/confirm.new]"},
        {"open", "/confirm", 0, EACCES,
         "1/269 mlname=mylist cln_cnfrmdb f_open error [CTL/confirm]"},
        {"write", "/confirm.new", 0, ENOSPC,
         "1/270 mlname=mylist cln_cnfrmdb fputs error No space left on device [CTL/confirm.new]"},
        {"read", "/confirm", 0, EIO,
         "1/271 mlname=mylist cln_cnfrmdb fgets error Input/output error [CTL/confirm]"},
        {"fsync", "/confirm.new", 0, EIO,
         "1/272 mlname=mylist cln_cnfrmdb close error Input/output error [CTL/confirm.new]"},
        {"open", "/confirm.old", 0, EROFS,
         "1/273 mlname=mylist cln_cnfrmdb renew error Read-only file system [CTL/confirm]"},
    };
    const std::string before = "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\nb@x old\r\n";
    expect_texts(list, rows, before, [&] { return cln_cnfrmdb(list.job()); });
    EXPECT_EQ("AAAAAAAAAAAAAAAA", find("a@x"));
}

TEST_F(Confirm, AddingRunsNoRecovery)
{
    list.put("confirm", "");
    list.put("confirm.new", "half an entry");
    ASSERT_EQ(0, add("a@x"));
    const std::vector<std::string> lines = log_of(list);
    EXPECT_EQ("", joined(lines)) << "a recovery would log what it found";
    EXPECT_EQ(id, find("a@x"));
    EXPECT_FALSE(exists(list.control("confirm.new")));
}

/* While it lives, no time passes. */
class StoppedClock
{
  public:
    StoppedClock() : former_(os), calls_(*os)
    {
        calls_.time = [](time_t *) -> time_t { return 1794700800; };
        os = &calls_;
    }
    ~StoppedClock() { os = former_; }
    StoppedClock(const StoppedClock &) = delete;
    StoppedClock &operator=(const StoppedClock &) = delete;

  private:
    const OsCalls *former_;
    OsCalls calls_;
};

TEST_F(Confirm, NoFailureAndNoDeathLosesAnEntry)
{
    StoppedClock stopped;
    const auto prepare = [](TempList &fresh) {
        fresh.job()->settings.confirmation = 3;
        fresh.put("confirm", "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\nb@x expired\r\n");
    };
    survive_every_change({"confirm"}, prepare,
                         [](TempList &fresh) { return cln_cnfrmdb(fresh.job()); });
    survive_every_change({"confirm"}, prepare,
                         [](TempList &fresh) { return add_cnfrmdb(fresh.job(), "c@x", id); });
    survive_full_disk({"confirm"}, prepare,
                      [](TempList &fresh) { return cln_cnfrmdb(fresh.job()); });
    survive_full_disk({"confirm"}, prepare,
                      [](TempList &fresh) { return add_cnfrmdb(fresh.job(), "c@x", id); });
}
