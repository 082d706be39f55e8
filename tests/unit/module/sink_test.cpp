/* The per-thread sink and the functions that the host may provide. */
#include "module/sink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "module/host_functions.h"
#include "module/host_mem.h"
#include "tests/support/out_capture.h"
#include "tests/support/temp_list.h"

TEST(Sink, IsTheThreadsOwnAndStdoutWhereNoneIsSet)
{
    OutCapture mine;
    out_printf("mine %d", 1);
    std::thread([] {
        EXPECT_EQ(stdout, mlist_get_output());
        OutCapture theirs;
        out_printf("theirs");
        EXPECT_EQ("theirs", theirs.take());
    }).join();
    out_flush();
    EXPECT_EQ("mine 1", mine.take());
}

TEST(HostFunctions, ReadARangeToMemoryAndToTheSink)
{
    TempDir dir;
    write_file(dir / "f", "0123456789");
    const int fd = open((dir / "f").c_str(), O_RDONLY | O_CLOEXEC);
    HostPtr<char> text(read_to_memory(fd, 2, 5));
    EXPECT_STREQ("23456", text.p);
    HostPtr<char> shorter(read_to_memory(fd, 8, 100));
    EXPECT_STREQ("89", shorter.p);
    OutCapture out;
    EXPECT_EQ(0, copy_to_sink(fd, 8, 5));
    EXPECT_EQ("89   ", out.take()) << "a short file never makes a literal short";
    close(fd);
    EXPECT_EQ(-1, copy_to_sink(fd, 0, 1));
    EXPECT_EQ(nullptr, read_to_memory(fd, 0, 1));
    EXPECT_EQ(0, debug_switch());
}
