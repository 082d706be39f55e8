/* Locked descriptors. */
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archive/unix_lk.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

TEST(Lock, IsExclusiveAndIsGivenBack)
{
    TempDir dir;
    const std::string path = dir / "f";
    const int first = mllk_open(path.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_LE(0, first);
    EXPECT_EQ(FD_CLOEXEC, fcntl(first, F_GETFD));
    EXPECT_EQ(-1, mllks_open(path.c_str(), O_RDWR, 0));
    EXPECT_EQ(EWOULDBLOCK, errno);
    EXPECT_EQ(0, mllk_close(first));
    const int second = mllks_open(path.c_str(), O_RDWR, 0);
    EXPECT_LE(0, second);
    EXPECT_EQ(0, mllk_close(second));
}

TEST(Lock, WaitsOutAShortageButNoOtherError)
{
    TempDir dir;
    write_file(dir / "f", "");
    FaultOs fault;
    const int errors[] = {ENOMEM, ENFILE, EMFILE};
    size_t failures = 0;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "open" && failures < 3 ? errors[failures++] : 0;
    };
    const int fd = mllk_open((dir / "f").c_str(), O_RDWR, 0);
    EXPECT_LE(0, fd);
    EXPECT_EQ((std::vector<unsigned>{1, 1, 1}), fault.sleeps);
    EXPECT_EQ(0, mllk_close(fd));
    EXPECT_EQ(-1, mllk_open((dir / "none").c_str(), O_RDWR, 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(3u, fault.sleeps.size());
}

TEST(Lock, FailingClosesTheDescriptorAndKeepsErrno)
{
    TempDir dir;
    write_file(dir / "f", "");
    FaultOs fault;
    fault.before = [](const std::string &call, const std::string &) {
        return call == "flock" ? ENOLCK : 0;
    };
    EXPECT_EQ(-1, mllk_open((dir / "f").c_str(), O_RDWR, 0));
    EXPECT_EQ(ENOLCK, errno);
    EXPECT_EQ("close", fault.calls.back());
}

TEST(Lock, IsTakenAgainAfterASignal)
{
    TempDir dir;
    write_file(dir / "f", "");
    FaultOs fault;
    int signals = 2;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "flock" && signals-- > 0 ? EINTR : 0;
    };
    const int fd = mllk_open((dir / "f").c_str(), O_RDWR, 0);
    EXPECT_LE(0, fd);
    EXPECT_EQ(0, mllk_close(fd));
}

TEST(Lock, LogsAnUnlockThatFails)
{
    take_log();
    EXPECT_EQ(-1, mllk_close(-1));
    EXPECT_EQ((std::vector<std::string>{
                  "1/854 mllk_close, flock failed (fds -1) errno=9: Bad file descriptor"}),
              take_log_lines(true));
}

TEST(IndexLock, RefusesAThreadThatHasItAlready)
{
    Box box;
    const int fd = lock_index_file(box.name("#mix").c_str());
    ASSERT_LE(0, fd);
    EXPECT_EQ(-1, lock_index_file(box.name("#mix").c_str()));
    EXPECT_EQ(EDEADLK, errno);
    Box other;
    const int other_fd = lock_index_file(other.name("#mix").c_str());
    EXPECT_LE(0, other_fd);
    EXPECT_EQ(0, mllk_close(fd));
    EXPECT_EQ(0, close(other_fd)); /* without telling: the memory of it must not get in the way */
    const int again = lock_index_file(other.name("#mix").c_str());
    EXPECT_LE(0, again);
    EXPECT_EQ(0, mllk_close(again));
}

TEST(IndexLock, OfAMailboxMadeAnewDuringTheWaitIsTakenOnTheNewOne)
{
    Box box;
    const std::string name = box.name("#mix");
    FaultOs fault;
    bool replaced = false;
    fault.before = [&](const std::string &call, const std::string &) {
        if (call == "flock" && !replaced) {
            replaced = true;
            EXPECT_EQ(0, ::unlink(name.c_str()));
            write_file(name, "another file");
        }
        return 0;
    };
    const int fd = lock_index_file(name.c_str());
    ASSERT_LE(0, fd);
    struct stat locked, named;
    ASSERT_EQ(0, fstat(fd, &locked));
    ASSERT_EQ(0, stat(name.c_str(), &named));
    EXPECT_EQ(named.st_ino, locked.st_ino);
    EXPECT_EQ(0, mllk_close(fd));
}

TEST(IndexLock, OfAMailboxDeletedDuringTheWaitFails)
{
    Box box;
    const std::string name = box.name("#mix");
    FaultOs fault;
    fault.before = [&](const std::string &call, const std::string &) {
        if (call == "flock") (void)::unlink(name.c_str());
        return 0;
    };
    EXPECT_EQ(-1, lock_index_file(name.c_str()));
    EXPECT_EQ(ENOENT, errno);
}
