/* The list's next message number. */
#include <gtest/gtest.h>

#include "archive/mbx.h"
#include "mlist/output.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

TEST(NewNumber, IsTheIndexesNextUidAndPrintsTheMailbox)
{
    TempList list;
    ASSERT_EQ(1, mlmbx_create(list.box().c_str()));
    write_file(list.box("#mix"), bytes_of({{12, 77, 1, 0}}));
    FaultOs fault;
    OutCapture out;
    EXPECT_EQ(0, mbxnewno(list.job()));
    EXPECT_EQ(12u, list.job()->new_number);
    EXPECT_EQ(open_lines(0, 0, 77, 12, 0), out.take());
    for (const std::string &call : fault.calls)
        EXPECT_NE("fsync", call);
}

TEST(NewNumber, OfAMissingArchiveFailsForNow)
{
    TempList list;
    OutCapture out;
    list.job()->output = mlist_get_output();
    list.job()->new_number = 5;
    take_log();
    EXPECT_EQ(-1, mbxnewno(list.job()));
    EXPECT_EQ("mbxopen failure [fn=" + list.box() + "]\n", out.take());
    EXPECT_EQ((std::vector<std::string>{
                  "1/602 mbx_open(): mbx_openidx failed No such file or directory",
                  "1/1 mbxnewno():mbxopen failure[fn=" + list.box() + "]", "1/1 set code [0]"}),
              take_log_lines(true));
    EXPECT_EQ(5u, list.job()->new_number);
}

TEST(NewNumber, AskedForTwiceKeepsOneFileOpen)
{
    TempList list;
    ASSERT_EQ(1, mlmbx_create(list.box().c_str()));
    OutCapture out;
    FaultOs fault;
    EXPECT_EQ(0, read_new_number(list.job()));
    EXPECT_EQ(0, read_new_number(list.job()));
    EXPECT_EQ(std::vector<std::string>{list.box("#mix")}, fault.open_files());
    EXPECT_EQ(0, mbxnewno(list.job()));
    EXPECT_EQ(std::vector<std::string>{}, fault.open_files());
}
