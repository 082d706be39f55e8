/* The list lock by itself; the pipeline's tests show what its failures become. */
#include "module/mlist_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"

TEST(ListLock, IsReleasedOnceAndLoggedOnce)
{
    TempList list;
    ASSERT_EQ(0, file_lock(list.job()));
    EXPECT_TRUE(logged(350, "mlname=mylist lock file ... [fn=" + list.control("lock") + "]"));
    EXPECT_TRUE(logged(352, "mlname=mylist ...done lock file [fn=" + list.control("lock") + "]"));
    (void)take_log();
    file_unlock(list.job());
    file_unlock(list.job());
    EXPECT_EQ((std::vector<std::string>{"11/354 unlock file [ml=mylist,fn=" + list.control("lock") +
                                        ",nn=0]"}),
              take_log_lines(true));
    EXPECT_EQ(-1, list.job()->lock_fd);
}

TEST(ListLock, FileIsCreatedForItsOwnerAndKept)
{
    TempList list;
    ASSERT_EQ(0, file_lock(list.job()));
    file_unlock(list.job());
    struct stat status;
    ASSERT_EQ(0, stat(list.control("lock").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
    EXPECT_EQ(0, status.st_size);
}

TEST(ListLock, OfAnotherListIsFree)
{
    TempList list;
    ASSERT_EQ(0, file_lock(list.job()));
    std::thread([&] {
        const std::string other = list.root() + "/other";
        const int fd = fileopen(other.c_str(), O_RDWR | O_CREAT);
        EXPECT_GE(fd, 0);
        close(fd);
    }).join();
    file_unlock(list.job());
}

TEST(ListLock, ADescriptorThatWasLockedInVainIsClosed)
{
    TempList list;
    FaultOs faults;
    faults.before = [](const std::string &call, const std::string &) {
        return call == "flock" ? ENOLCK : 0;
    };
    EXPECT_EQ(-1, file_lock(list.job()));
    EXPECT_EQ(ENOLCK, errno);
    EXPECT_EQ("close", faults.calls.back());
    EXPECT_EQ(0u, list.job()->flags);
    EXPECT_TRUE(faults.sleeps.empty());
}
