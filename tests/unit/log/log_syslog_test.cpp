/* What the daily log tells the system log: its own troubles, and lines of level 0 when asked to. */
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include "log/log.h"
#include "mlist/daily_log.h"
#include "mlist/mlist.h"
#include "tests/support/fake_host.h"
#include "tests/support/fault_os.h"
#include "tests/support/local_time.h"
#include "tests/support/temp_list.h"
#include "tests/unit/log/syslog_capture.h"

using Lines = std::vector<std::string>;

class DailyLogTroubles : public ::testing::Test
{
  protected:
    DailyLogTroubles()
    {
        set_zone("Asia/Tokyo");
        faults.now = 1794701640; /* 2026-11-15 09:14:00 in Tokyo */
        (void)take_syslog();
    }
    ~DailyLogTroubles() override
    {
        faults.before = nullptr;
        log_echo = 0;
        logclose();
    }
    void fail(const std::string &call_to_fail, int error)
    {
        faults.before = [=](const std::string &call, const std::string &) {
            return call == call_to_fail ? error : 0;
        };
    }
    TempDir dir;
    FaultOs faults;
};

TEST_F(DailyLogTroubles, AnOpenIsAnnouncedWithItsDirectory)
{
    EXPECT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    EXPECT_EQ((Lines{"3 lopen in", "3 lopen f=" + dir.path()}), take_syslog());
}

TEST_F(DailyLogTroubles, AFileThatCannotBeOpenedIsNamed)
{
    EXPECT_EQ(0, logopen(0, (dir / "none").c_str(), 1, 0, 0));
    EXPECT_EQ((Lines{"3 lopen in", "3 lopen f=" + (dir / "none"),
                     "3 ERROR CreateFile  No such file or directory file=" +
                         (dir / "none/20261115.log")}),
              take_syslog());
}

TEST_F(DailyLogTroubles, ADirectoryWithTooLongANameIsNoDirectory)
{
    EXPECT_EQ(-1, logopen(0, std::string(5000, 'd').c_str(), 1, 0, 0));
    EXPECT_EQ(Lines{"3 setdir()"}, take_syslog());
}

TEST_F(DailyLogTroubles, MissingMemoryIsAnErrorOfTheOpen)
{
    FakeHost host;
    tcbcreate(&host.request);
    const long before = host.live_blocks;
    host.fail_allocation = 0;
    errno = 0;
    EXPECT_EQ(-1, logopen(0, dir.path().c_str(), 1, 0, 0));
    const Lines lines = take_syslog();
    ASSERT_EQ(4u, lines.size());
    EXPECT_TRUE(lines[2].starts_with("3 ERROR meThrMemAlloc ")) << lines[2];
    EXPECT_TRUE(lines[3].starts_with("3  maillist log open() ")) << lines[3];
    host.fail_allocation = -1;
    EXPECT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    logprint(1, "line");
    EXPECT_EQ(before, host.live_blocks) << "names are released";
    tcbfree();
    EXPECT_TRUE(read_file(dir / "20261115.log").ends_with("line\r\n"));
}

TEST_F(DailyLogTroubles, ANewDayWithoutAFileIsTold)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    ASSERT_EQ(0, mkdir((dir / "20261116.log").c_str(), 0700));
    (void)take_syslog();
    faults.now += 86400;
    logprint(1, "lost");
    EXPECT_EQ((Lines{"3 lopen f=" + dir.path(),
                     "3 ERROR CreateFile  Is a directory file=" + (dir / "20261116.log"),
                     "3 update << open() Is a directory"}),
              take_syslog());
    ASSERT_EQ(0, rmdir((dir / "20261116.log").c_str()));
    logprint(1, "found");
    EXPECT_TRUE(read_file(dir / "20261116.log").ends_with("found\r\n")) << "tried again";
}

TEST_F(DailyLogTroubles, AFailedFlushIsTold)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    (void)take_syslog();
    fail("fsync", EIO);
    logflush();
    EXPECT_EQ(Lines{"3 ERROR FlushFileBuffers Input/output error"}, take_syslog());
}

TEST_F(DailyLogTroubles, LinesOfLevelZeroAreEchoedWhenAskedFor)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    (void)take_syslog();
    logprint(0, "quiet");
    EXPECT_EQ(Lines{}, take_syslog());
    log_echo = 1;
    logprint(0, "number %d", 7);
    logprint(1, "not this");
    logdump(0, "ab", 2, "data");
    EXPECT_EQ((Lines{"3  logprint: number 7", "3 logdump data (2)"}), take_syslog());
}
