/* The loops around system calls. */
#include "module/os.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/fault_os.h"
#include "tests/support/temp_list.h"

TEST(WriteAll, WritesEverythingInAsManyCallsAsItTakes)
{
    TempDir dir;
    const int fd = open((dir / "f").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    FaultOs faults;
    faults.short_write = 3;
    EXPECT_EQ(0, write_all(fd, "0123456789", 10));
    EXPECT_EQ(0, pwrite_all(fd, "abcd", 4, 2));
    EXPECT_EQ("01abcd6789", read_file(dir / "f"));
    faults.short_write = 0;
    EXPECT_EQ(-1, write_all(fd, "x", 1));
    EXPECT_EQ(ENOSPC, errno);
    close(fd);
}

TEST(WriteAll, GoesOnAfterASignalAndStopsAtAnError)
{
    TempDir dir;
    const int fd = open((dir / "f").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    FaultOs faults;
    int calls = 0;
    faults.before = [&](const std::string &, const std::string &) {
        return ++calls == 1 ? EINTR : calls == 3 ? EIO : 0;
    };
    EXPECT_EQ(0, write_all(fd, "x", 1));
    EXPECT_EQ(-1, write_all(fd, "y", 1));
    EXPECT_EQ(EIO, errno);
    close(fd);
}

TEST(OpenFile, NeverLeaksToAChildAndIsRepeatedAfterASignal)
{
    TempDir dir;
    FaultOs faults;
    int calls = 0;
    faults.before = [&](const std::string &, const std::string &) {
        return ++calls == 1 ? EINTR : 0;
    };
    const int fd = open_file((dir / "f").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
    close(fd);
}

TEST(SyncParentDirectory, SyncsTheDirectoryThatHoldsTheName)
{
    TempDir dir;
    FaultOs faults;
    EXPECT_EQ(0, sync_parent_directory((dir / "f").c_str()));
    EXPECT_EQ("open " + dir.path(), faults.calls.at(0));
    EXPECT_EQ("fsync", faults.calls.at(1));
    EXPECT_EQ(0, sync_parent_directory("/f"));
    EXPECT_EQ(0, sync_parent_directory("f"));
    EXPECT_EQ(-1, sync_parent_directory("/nonexistent/f"));
    EXPECT_EQ(-1, sync_parent_directory(("/" + std::string(5000, 'x') + "/f").c_str()));
    EXPECT_EQ(ENAMETOOLONG, errno);
}

/* Answers as an open against somebody's lease does, for as long as it may not wait. */
static int leased_open(const char *path, int flags, mode_t mode)
{
    if ((flags & O_NONBLOCK) == 0) return kernel_calls.open(path, flags, mode);
    errno = EWOULDBLOCK;
    return -1;
}

TEST(OpenFile, WaitsForALeaseToBeGivenUp)
{
    OsCalls calls = kernel_calls;
    calls.open = leased_open;
    os = &calls;
    const int fd = open_file("/dev/null", O_RDONLY, 0);
    os = &kernel_calls;
    ASSERT_GE(fd, 0);
    EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD) & FD_CLOEXEC);
    close(fd);
}
