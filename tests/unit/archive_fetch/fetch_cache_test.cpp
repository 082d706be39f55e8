/* The message that is kept parsed. */
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

using Lines = std::vector<std::string>;

static std::string message_named(const std::string &subject)
{
    return crlf("Subject: " + subject + "\n\n" + subject + "\n");
}

static int opens_of(const FaultOs &fault, const std::string &path)
{
    int count = 0;
    for (const std::string &call : fault.calls)
        if (call == "open " + path) ++count;
    return count;
}

TEST(FetchCache, ParsesAMessageOnceForAllItems)
{
    Reader reader(message_named("a"));
    FaultOs fault;
    reader.fetch({"BODY", "BODYSTRUCTURE", "ENVELOPE", "BODY[1]", "BODY[]", "RFC822.TEXT"});
    reader.fetch({"BODY.PEEK[1]<0.1>", "BODY.PEEK[HEADER.FIELDS (SUBJECT)]"});
    EXPECT_EQ(1, opens_of(fault, reader.file()));
}

TEST(FetchCache, GivesWayToAnotherMessage)
{
    Reader reader(std::vector<std::string>{message_named("one"), message_named("two")});
    EXPECT_EQ("BODY[1] {5}\r\none\r\n", reader.items({"BODY.PEEK[1]"}, 1));
    EXPECT_EQ("BODY[1] {5}\r\ntwo\r\n", reader.items({"BODY.PEEK[1]"}, 2));
    EXPECT_EQ("BODY[1] {5}\r\none\r\n", reader.items({"BODY.PEEK[1]"}, 1));
}

TEST(FetchCache, ServesWhateverMessageItHolds)
{
    Reader reader(std::vector<std::string>{message_named("one"), message_named("two")});
    EXPECT_EQ(1, list_mbx_getcache(reader.handle(), 1));
    EXPECT_EQ(1, list_mbx_getcache(reader.handle(), 2));
    const std::string stale = printed([&] { list_mbx_fetch_mimebody(reader.handle(), 2, "1]"); });
    EXPECT_EQ("BODY[1] {5}\r\none\r\n", stale);
    list_mbx_freecache(reader.handle());
    list_mbx_freecache(reader.handle());
    EXPECT_EQ("BODY[1] {5}\r\ntwo\r\n",
              printed([&] { list_mbx_fetch_mimebody(reader.handle(), 2, "1]"); }));
}

TEST(FetchCache, LogsWhyItCannotBeFilled)
{
    Reader reader(message_named("a"));
    take_log();
    EXPECT_EQ(0, list_mbx_getcache(nullptr, 1));
    EXPECT_EQ(0, list_mbx_getcache(reader.handle(), 2));
    EXPECT_EQ(Lines({"3/626 mbx_getcache: fopen err No such file or directory"}), take_log_lines());
    {
        FaultOs fault;
        fault.before = [](const std::string &call, const std::string &) {
            return call == "pread" ? EIO : 0;
        };
        EXPECT_EQ(0, list_mbx_getcache(reader.handle(), 1));
    }
    EXPECT_EQ(Lines({"3/629 getmime: disk2memory fail", "3/627 mbx_getcache: getmime err"}),
              take_log_lines());
    HostMemory host;
    const long before = host.live_blocks;
    host.fail_allocation = 0;
    EXPECT_EQ(0, list_mbx_getcache(reader.handle(), 1));
    EXPECT_EQ(Lines({"3/625 mbx_getcache: ThrMemAlloc err"}), take_log_lines());
    host.fail_allocation = 1;
    EXPECT_EQ(0, list_mbx_getcache(reader.handle(), 1));
    EXPECT_EQ(Lines({"3/628 getmime: ThrMemAlloc fail", "3/627 mbx_getcache: getmime err"}),
              take_log_lines());
    EXPECT_EQ(before, host.live_blocks);
}

TEST(FetchCache, KeepsAMessageThatIsUnlinkedMeanwhile)
{
    Reader reader(message_named("kept"));
    EXPECT_EQ(1, list_mbx_getcache(reader.handle(), 1));
    ASSERT_EQ(0, unlink(reader.file().c_str()));
    EXPECT_EQ("BODY[1] {6}\r\nkept\r\n", reader.items({"BODY.PEEK[1]"}));
}

TEST(FetchCache, ClosesTheFileAndGivesAllMemoryBack)
{
    HostMemory host;
    const long blocks = host.live_blocks;
    const std::vector<std::string> before = list_directory("/proc/self/fd");
    {
        Reader reader(message_named("a"));
        reader.fetch({"FULL", "BODY[1]", "BODY[HEADER.FIELDS (SUBJECT)]", "BODYSTRUCTURE"});
    }
    EXPECT_EQ(blocks, host.live_blocks);
    EXPECT_EQ(before.size(), list_directory("/proc/self/fd").size());
}
