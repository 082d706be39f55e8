/* Daily log files. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <thread>

#include "mlist/daily_log.h"
#include "tests/support/fault_os.h"
#include "tests/support/local_time.h"
#include "tests/support/temp_list.h"

class DailyLog : public ::testing::Test
{
  protected:
    DailyLog()
    {
        set_zone("Asia/Tokyo");
        faults.now = 1794701640; /* 2026-11-15 09:14:00 in Tokyo */
        faults.nanoseconds = 7000000;
    }
    ~DailyLog() override { logclose(); }
    std::string today() const { return read_file(dir / "20261115.log"); }
    static std::string tid()
    {
        char text[32];
        snprintf(text, sizeof(text), "[%04d] ", gettid());
        return text;
    }
    TempDir dir;
    FaultOs faults;
};

TEST_F(DailyLog, ALineHasTimeThreadTextAndCRLF)
{
    ASSERT_EQ(0, logopen(1, dir.path().c_str(), 5, 1, 0));
    errno = ENOENT;
    logprint(5, "hello %s %d", "world", 7);
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ("09:14:00.007 " + tid() + "hello world 7\r\n", today());
}

TEST_F(DailyLog, LevelsAboveTheConfiguredOneAreSkipped)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 3, 0, 0));
    logprint(4, "not this");
    logprint(3, "this");
    logprint(-1, "and this");
    EXPECT_EQ("09:14:00.007 " + tid() + "this\r\n09:14:00.007 " + tid() + "and this\r\n", today());
}

TEST_F(DailyLog, MidnightBeginsAnotherFile)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    faults.now = 1794754799; /* 23:59:59 */
    faults.nanoseconds = 999000000;
    logprint(1, "last");
    faults.now = 1794754800;
    faults.nanoseconds = 0;
    logprint(1, "first");
    EXPECT_EQ("23:59:59.999 " + tid() + "last\r\n", today());
    EXPECT_EQ("00:00:00.000 " + tid() + "first\r\n", read_file(dir / "20261116.log"));
}

TEST_F(DailyLog, ALongLineIsCutInItsTextAndKeepsItsEnd)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    const std::string text(5000, 'x');
    logprint(1, "%s", text.c_str());
    const std::string line = today();
    EXPECT_EQ(1023u, line.size());
    EXPECT_TRUE(line.ends_with("xxx\r\n"));
    logdump(1, "ab", 2, "%s", text.c_str());
    const std::string second = today().substr(line.size());
    EXPECT_EQ(1023u, second.find("\r\n") + 2);
    EXPECT_NE(std::string::npos, second.find("xxx (2)\r\n0000: 6162"));
}

TEST_F(DailyLog, FilesAreAppendedToAndMadeForAllLessTheMask)
{
    write_file(dir / "20261115.log", "before\r\n");
    const mode_t mask = umask(027);
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    logprint(1, "after");
    EXPECT_TRUE(today().starts_with("before\r\n09:14"));
    faults.now += 86400;
    logprint(1, "next day");
    umask(mask);
    struct stat status;
    ASSERT_EQ(0, stat((dir / "20261116.log").c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 0777);
}

TEST_F(DailyLog, AnOpenThatFailsIsNoErrorAndNothingIsLogged)
{
    EXPECT_EQ(0, logopen(0, "/nonexistent/directory", 1, 0, 0));
    logprint(1, "nowhere");
    EXPECT_EQ(-1, logopen(0, std::string(2000, 'd').c_str(), 1, 0, 0));
    EXPECT_EQ("", today());
}

/* With the system's own calls: the recorded ones are one thread's. */
TEST(DailyLogThreads, OpenTheFileForThemselvesAndWriteWholeLines)
{
    const TempDir dir;
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&dir, t] {
            logprint(1, "before this thread opened it: nothing");
            ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
            for (int i = 0; i < 50; ++i)
                logprint(1, "thread %d line", t);
        });
    for (std::thread &thread : threads)
        thread.join();
    logclose();
    std::string text;
    for (const std::string &name : list_directory(dir.path())) /* two at midnight */
        text += read_file(dir / name);
    size_t lines = 0;
    for (size_t at = 0; at < text.size(); at = text.find("\r\n", at) + 2, ++lines)
        EXPECT_NE(std::string::npos, text.find(" line\r\n", at));
    EXPECT_EQ(200u, lines);
    EXPECT_EQ(std::string::npos, text.find("nothing"));
}

TEST_F(DailyLog, TheFlushFlagSyncsEveryLineAndAFailureClosesTheFile)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 1));
    faults.calls.clear();
    logprint(1, "one");
    EXPECT_EQ((std::vector<std::string>{"write", "fsync"}), faults.calls);
    faults.before = [](const std::string &call, const std::string &) {
        return call == "fsync" ? EIO : 0;
    };
    logprint(1, "two");
    logprint(1, "three");
    faults.before = nullptr;
    EXPECT_TRUE(today().ends_with("two\r\n"));
    faults.now += 86400;
    logprint(1, "four");
    EXPECT_TRUE(read_file(dir / "20261116.log").ends_with("four\r\n")) << "a new day opens anew";
}

TEST_F(DailyLog, ClosingEndsLoggingUntilTheNextOpen)
{
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    logclose();
    logclose();
    logprint(1, "lost");
    logflush();
    EXPECT_EQ("", today());
    ASSERT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    logprint(1, "found");
    logflush();
    EXPECT_TRUE(today().ends_with("found\r\n"));
}
