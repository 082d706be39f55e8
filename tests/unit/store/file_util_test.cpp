/* Copying, removing and asking about whole files. */
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "store/file.h"
#include "tests/unit/store/store_test.h"

class FileUtil : public StoreTest
{
  protected:
    FileUtil() : source_(dir_ / "source"), target_(dir_ / "target") {}
    int copy() { return cpyfile(source_.c_str(), target_.c_str()); }

    TempDir dir_;
    std::string source_, target_;
};

TEST_F(FileUtil, CopiesFilesOfAllSizes)
{
    for (const size_t size :
         {0u, 1u, COPY_BLOCK_SIZE - 1u, COPY_BLOCK_SIZE + 0u, COPY_BLOCK_SIZE + 1u, 1000000u}) {
        std::string contents(size, '\0');
        for (size_t i = 0; i < size; ++i)
            contents[i] = static_cast<char>(i * 31 / 7);
        write_file(source_, contents);
        EXPECT_EQ(0, copy()) << size;
        EXPECT_EQ(contents, read_file(target_)) << size;
    }
}

TEST_F(FileUtil, ANewTargetIsForItsOwnerOnly)
{
    write_file(source_, "x");
    EXPECT_EQ(0, copy());
    EXPECT_EQ(0600u, mode_of(target_));
}

TEST_F(FileUtil, AnExistingTargetKeepsItsInodeAndMode)
{
    write_file(source_, "short");
    write_file(target_, "a longer text than the source's");
    ASSERT_EQ(0, chmod(target_.c_str(), 0640));
    struct stat before, after;
    ASSERT_EQ(0, stat(target_.c_str(), &before));
    EXPECT_EQ(0, copy());
    ASSERT_EQ(0, stat(target_.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(0640u, mode_of(target_));
    EXPECT_EQ("short", read_file(target_));
}

TEST_F(FileUtil, AMissingSourceLeavesTheTargetAlone)
{
    write_file(target_, "kept");
    EXPECT_EQ(-1, copy());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ("kept", read_file(target_));
}

TEST_F(FileUtil, ATargetThatCannotBeOpenedIsReported)
{
    write_file(source_, "x");
    ASSERT_EQ(0, mkdir(target_.c_str(), 0700));
    EXPECT_EQ(-1, copy());
    EXPECT_EQ(EISDIR, errno);
}

TEST_F(FileUtil, ASourceThatCannotBeReadIsReported)
{
    ASSERT_EQ(0, mkdir(source_.c_str(), 0700));
    EXPECT_EQ(-1, copy());
    EXPECT_EQ(EISDIR, errno);
}

TEST_F(FileUtil, CopyDoesNotReportAFailedWrite)
{
    write_file(source_, std::string(COPY_BLOCK_SIZE, 'a') + std::string(COPY_BLOCK_SIZE, 'b') +
                            std::string(COPY_BLOCK_SIZE, 'c'));
    FaultOs fault;
    int writes = 0;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "write" && ++writes == 2 ? ENOSPC : 0;
    };
    EXPECT_EQ(0, copy());
    EXPECT_EQ(std::string(COPY_BLOCK_SIZE, 'a') + std::string(COPY_BLOCK_SIZE, 'c'),
              read_file(target_))
        << "the copy goes on with the next block";
    writes = 0;
    EXPECT_EQ(-1, copy_whole(source_.c_str(), target_.c_str()));
    EXPECT_EQ(ENOSPC, errno);
}

TEST_F(FileUtil, ABlockIsWrittenInAsManyCallsAsItTakes)
{
    const std::string contents(10000, 'x');
    write_file(source_, contents);
    FaultOs fault;
    fault.short_write = 7;
    EXPECT_EQ(0, copy_whole(source_.c_str(), target_.c_str()));
    EXPECT_EQ(contents, read_file(target_));
}

TEST_F(FileUtil, AWriteThatTakesNothingEndsTheBlock)
{
    write_file(source_, std::string(10000, 'x'));
    FaultOs fault;
    fault.short_write = 0;
    EXPECT_EQ(0, copy());
    EXPECT_EQ("", read_file(target_));
    EXPECT_EQ(-1, copy_whole(source_.c_str(), target_.c_str()));
    EXPECT_EQ(ENOSPC, errno);
}

TEST_F(FileUtil, APipeIsNotCopiedAsAnEmptyFile)
{
    write_file(target_, "contents");
    ASSERT_EQ(0, mkfifo(source_.c_str(), 0600));
    EXPECT_EQ(-1, copy());
    EXPECT_EQ(ESPIPE, errno);
    EXPECT_EQ("contents", read_file(target_));
}

TEST_F(FileUtil, AWholeIsWrittenInPlaceAndCutToItsLength)
{
    EXPECT_EQ(0, write_anew(target_.c_str(), "abc", 3));
    EXPECT_EQ("abc", read_file(target_));
    EXPECT_EQ(0600u, mode_of(target_));
    struct stat before, after;
    ASSERT_EQ(0, stat(target_.c_str(), &before));
    EXPECT_EQ(0, overwrite_whole(target_.c_str(), "x", 1)) << "shorter";
    EXPECT_EQ("x", read_file(target_));
    EXPECT_EQ(0, overwrite_whole(target_.c_str(), "longer", 6));
    EXPECT_EQ("longer", read_file(target_));
    EXPECT_EQ(0, write_anew(target_.c_str(), "y", 1)) << "emptied before";
    EXPECT_EQ("y", read_file(target_));
    ASSERT_EQ(0, stat(target_.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(0, delfile(target_.c_str()));
    EXPECT_EQ(-1, overwrite_whole(target_.c_str(), "x", 1));
    EXPECT_EQ(ENOENT, errno);
}

TEST_F(FileUtil, AWholeThatCannotBeWrittenIsReported)
{
    for (const char *call : {"open", "write", "ftruncate", "fsync", "close"}) {
        write_file(target_, "before");
        FaultOs fault;
        fault.before = [&](const std::string &called, const std::string &) {
            return called == call ? EDQUOT : 0;
        };
        EXPECT_EQ(-1, overwrite_whole(target_.c_str(), "x", 1)) << call;
        EXPECT_EQ(EDQUOT, errno) << call;
    }
}

static bool is_open(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

TEST_F(FileUtil, AFailedSyncClosesTheDescriptorOfThatNumber)
{
    const int cause = ENETDOWN; /* 100: a number that nothing else uses here */
    ASSERT_EQ(cause, fcntl(STDERR_FILENO, F_DUPFD, cause));
    write_file(source_, "x");
    {
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == "fsync" ? cause : 0;
        };
        EXPECT_EQ(-1, copy());
        EXPECT_EQ(cause, errno);
    }
    EXPECT_FALSE(is_open(cause));
    EXPECT_EQ("x", read_file(target_));
}

TEST_F(FileUtil, AFailedCloseIsReported)
{
    write_file(source_, "x");
    FaultOs fault;
    int closes = 0;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "close" && ++closes == 2 ? EDQUOT : 0;
    };
    EXPECT_EQ(-1, copy());
    EXPECT_EQ(EDQUOT, errno);
}

TEST_F(FileUtil, NoCopyLeavesADescriptorOpen)
{
    write_file(source_, std::string(5000, 'x'));
    const int first_free = dup(0);
    close(first_free);
    (void)disturb_every_change(
        ENETDOWN, [] {}, [&] { return copy(); },
        [&](int nth, int) {
            const int now_free = dup(0);
            close(now_free);
            EXPECT_EQ(first_free, now_free) << "call " << nth;
        });
}

TEST_F(FileUtil, RemovingAFile)
{
    write_file(source_, "x");
    EXPECT_EQ(0, delfile(source_.c_str()));
    EXPECT_FALSE(exists(source_));
    EXPECT_EQ(-1, delfile(source_.c_str()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, delfile(dir_.path().c_str()));
}

TEST_F(FileUtil, AskingAboutAFile)
{
    EXPECT_EQ(0, extfile(source_.c_str()));
    EXPECT_EQ(-1, stat_size(source_.c_str()));
    write_file(source_, "12345");
    EXPECT_EQ(1, extfile(source_.c_str()));
    EXPECT_EQ(5, stat_size(source_.c_str()));
    EXPECT_EQ(1, extfile(dir_.path().c_str()));
    ASSERT_EQ(0, truncate(source_.c_str(), 5000000000));
    EXPECT_EQ(5000000000, stat_size(source_.c_str()));
}
