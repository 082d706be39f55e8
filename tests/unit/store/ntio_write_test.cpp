/* Writing: straight to the descriptor, and through the write buffer. */
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "store/ntio.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/store_test.h"

typedef std::vector<std::string> Lines;

class NtioWrite : public StoreTest
{
  protected:
    NtioWrite() : path_(dir_ / "file"), file_(f_open(path_.c_str(), "w")) {}
    ~NtioWrite() override { f_close(file_); }

    std::string contents() const { return read_file(path_); }
    int close()
    {
        FileRecord *file = file_;
        file_ = nullptr;
        return f_close(file);
    }

    TempDir dir_;
    std::string path_;
    FileRecord *file_;
};

static std::function<int(const std::string &, const std::string &)> fail_writes(int error)
{
    return [error](const std::string &call, const std::string &) {
        return call == "write" ? error : 0;
    };
}

/* -- straight -- */

TEST_F(NtioWrite, ATextIsOneWriteCall)
{
    const std::string text(100000, 'x');
    FaultOs fault;
    EXPECT_EQ(100000, Fputs(text.c_str(), file_));
    EXPECT_EQ(Lines{"write"}, fault.calls);
    EXPECT_EQ(text, contents());
}

TEST_F(NtioWrite, TheEmptyTextIsNoFailure)
{
    EXPECT_EQ(0, Fputs("", file_));
    EXPECT_EQ(0, Ferror(file_));
    EXPECT_EQ(0, result_code());
}

TEST_F(NtioWrite, AFailedWriteIsPrintedLoggedAndTemporary)
{
    OutCapture out;
    FaultOs fault;
    fault.before = fail_writes(ENOSPC);
    EXPECT_EQ(-2, Fputs("12345", file_));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ("slen1=5 errno=28\n", out.take());
    EXPECT_EQ((Lines{"1/707 WriteFile:1 error 28", "1/1 set code [0]"}), take_log_lines(true));
    EXPECT_EQ(1, Ferror(file_));
    EXPECT_EQ(75, result_code());
}

TEST_F(NtioWrite, AShortWriteIsPrintedLoggedAndTemporary)
{
    OutCapture out;
    FaultOs fault;
    fault.short_write = 3;
    errno = EIO;
    EXPECT_EQ(-3, Fputs("12345", file_));
    EXPECT_EQ(0, errno);
    EXPECT_EQ("slen2=5\n", out.take());
    EXPECT_EQ((Lines{"1/708 WriteFile:1 error (length)", "1/1 set code [0]"}),
              take_log_lines(true));
    EXPECT_EQ(1, Ferror(file_));
    EXPECT_EQ(75, result_code());
}

TEST_F(NtioWrite, ASuccessResetsTheState)
{
    file_->state = 1;
    EXPECT_EQ(1, Fputs("x", file_));
    EXPECT_EQ(0, Ferror(file_));
    file_->state = 1;
    EXPECT_EQ(1, Putc('y', file_));
    EXPECT_EQ(0, Ferror(file_));
    EXPECT_EQ("xy", contents());
}

TEST_F(NtioWrite, AnInterruptedWriteIsRepeated)
{
    FaultOs fault;
    int writes = 0;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "write" && ++writes % 3 != 0 ? EINTR : 0;
    };
    EXPECT_EQ(3, Fputs("abc", file_));
    EXPECT_EQ(1, Putc('d', file_));
    EXPECT_EQ(1, Fprintf(file_->fd, "e"));
    EXPECT_EQ("abcde", contents());
}

TEST_F(NtioWrite, EveryByteValueCanBePut)
{
    std::string expected;
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(1, Putc(byte, file_));
        expected += static_cast<char>(byte);
    }
    EXPECT_EQ(expected, contents());
}

TEST_F(NtioWrite, AFailedByteIsLoggedAndTemporary)
{
    FaultOs fault;
    fault.before = fail_writes(EIO);
    EXPECT_EQ(-2, Putc('x', file_));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(1, Ferror(file_));
    EXPECT_EQ(75, result_code());
    EXPECT_EQ(Lines{"1/723 WriteFile:3 error 5"}, take_log_lines());
    forget_failure();
    fault.before = nullptr;
    fault.short_write = 0;
    EXPECT_EQ(-3, Putc('x', file_));
    EXPECT_EQ(1, Ferror(file_));
    EXPECT_EQ(75, result_code());
    EXPECT_EQ(Lines{"1/724 WriteFile:3 error (length)"}, take_log_lines());
}

TEST_F(NtioWrite, FormattingGoesStraightToADescriptor)
{
    EXPECT_EQ(7, Fprintf(file_->fd, "%s-%d", "abcde", 1));
    EXPECT_EQ("abcde-1", contents());
    const std::string text(5000, 'x');
    EXPECT_EQ(4094, Fprintf(file_->fd, "%s", text.c_str()));
    EXPECT_EQ(7u + 4094u, contents().size());
}

TEST_F(NtioWrite, FormattingRefusesMissingArguments)
{
    const char *none = nullptr;
    EXPECT_EQ(-1, Fprintf(0, "x"));
    EXPECT_EQ(-1, Fprintf(-1, "x"));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    EXPECT_EQ(-1, Fprintf(file_->fd, none));
#pragma GCC diagnostic pop
    EXPECT_EQ(Lines(3, "1/709 illegal argument (Fprintf)"), take_log_lines());
}

TEST_F(NtioWrite, FormattingReportsFailuresButMarksNothing)
{
    FaultOs fault;
    fault.before = fail_writes(ENOSPC);
    EXPECT_EQ(-2, Fprintf(file_->fd, "abc"));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(Lines{"1/710 WriteFile:2 error 28"}, take_log_lines());
    fault.before = nullptr;
    fault.short_write = 2;
    EXPECT_EQ(2, Fprintf(file_->fd, "abc"));
    EXPECT_EQ(Lines{"3/711 WriteFile:2 error (length)"}, take_log_lines());
    EXPECT_EQ(0, Ferror(file_));
    EXPECT_EQ(0, result_code());
}

/* -- through the write buffer -- */

TEST_F(NtioWrite, ABufferCollectsTextsAndBytesInOrder)
{
    ASSERT_EQ(0, Fbuffer(file_, 8));
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        const std::string text(static_cast<size_t>(i) % 21, static_cast<char>('a' + i % 26));
        EXPECT_EQ(static_cast<int>(text.size()), Fputs(text.c_str(), file_));
        EXPECT_EQ(1, Putc('0' + i % 10, file_));
        expected += text + static_cast<char>('0' + i % 10);
    }
    EXPECT_EQ(1, close());
    EXPECT_EQ(expected, contents());
}

TEST_F(NtioWrite, ABufferSavesWriteCalls)
{
    ASSERT_EQ(0, Fbuffer(file_, 65536));
    FaultOs fault;
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(22, Fputs("a line of a message.\r\n", file_));
    EXPECT_EQ(Lines{}, fault.calls);
    EXPECT_EQ(0, Fdrain(file_));
    EXPECT_EQ(Lines{"write"}, fault.calls);
    EXPECT_EQ(0, Fdrain(file_)) << "nothing is waiting now";
    EXPECT_EQ(1u, fault.calls.size());
    EXPECT_EQ(22000u, contents().size());
}

TEST_F(NtioWrite, ClosingDrainsBeforeItSyncs)
{
    ASSERT_EQ(0, Fbuffer(file_, 100));
    EXPECT_EQ(3, Fputs("abc", file_));
    EXPECT_EQ("", contents());
    FaultOs fault;
    EXPECT_EQ(1, close());
    EXPECT_EQ((Lines{"write", "fsync", "close"}), fault.calls);
    EXPECT_EQ("abc", contents());
}

TEST_F(NtioWrite, AFailedDrainIsReportedByTheCallThatNeedsTheRoom)
{
    OutCapture out;
    ASSERT_EQ(0, Fbuffer(file_, 8));
    EXPECT_EQ(6, Fputs("123456", file_));
    {
        FaultOs fault;
        fault.before = fail_writes(ENOSPC);
        EXPECT_EQ(-2, Fputs("789", file_));
        EXPECT_EQ(ENOSPC, errno);
    }
    EXPECT_EQ("slen1=6 errno=28\n", out.take());
    EXPECT_EQ(Lines{"1/707 WriteFile:1 error 28"}, take_log_lines());
    EXPECT_EQ(75, result_code());
    EXPECT_EQ(1, close()) << "what failed is not written again";
    EXPECT_EQ("", contents());
}

TEST_F(NtioWrite, AFailedDrainFailsTheClose)
{
    OutCapture out;
    ASSERT_EQ(0, Fbuffer(file_, 8));
    EXPECT_EQ(3, Fputs("123", file_));
    FaultOs fault;
    fault.before = fail_writes(EIO);
    EXPECT_EQ(0, close());
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ("slen1=3 errno=5\n", out.take());
}

TEST_F(NtioWrite, AShortDrainFailsTheCloseToo)
{
    OutCapture out;
    ASSERT_EQ(0, Fbuffer(file_, 8));
    EXPECT_EQ(3, Fputs("123", file_));
    FaultOs fault;
    fault.short_write = 1;
    EXPECT_EQ(0, close());
    EXPECT_EQ(0, errno);
    EXPECT_EQ("slen2=3\n", out.take());
}

TEST_F(NtioWrite, SeekingDrainsFirst)
{
    ASSERT_EQ(0, Fbuffer(file_, 100));
    EXPECT_EQ(6, Fputs("abcdef", file_));
    EXPECT_EQ(0, Fseek(file_, 2, SEEK_SET));
    EXPECT_EQ(1, Fputs("C", file_));
    EXPECT_EQ(1, close());
    EXPECT_EQ("abCdef", contents());
}

TEST_F(NtioWrite, WithoutMemoryForABufferWritesStayDirect)
{
    host_.fail_allocation = 0;
    EXPECT_EQ(-1, Fbuffer(file_, 100));
    EXPECT_EQ(-1, Fbuffer(file_, 0));
    EXPECT_EQ(3, Fputs("abc", file_));
    EXPECT_EQ("abc", contents());
}

TEST_F(NtioWrite, ASecondBufferReplacesTheFirst)
{
    ASSERT_EQ(0, Fbuffer(file_, 8));
    EXPECT_EQ(3, Fputs("abc", file_));
    ASSERT_EQ(0, Fbuffer(file_, 100));
    EXPECT_EQ(3, Fputs("def", file_));
    EXPECT_EQ(1, close());
    EXPECT_EQ("abcdef", contents());
}
