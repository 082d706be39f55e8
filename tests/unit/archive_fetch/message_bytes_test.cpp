/* What is held of a message gives the same bytes as the file does. */
#include "archive/message_bytes.h"

#include <gtest/gtest.h>

#include "archive/mime.h"
#include "module/host_mem.h"
#include "module/os.h"
#include "tests/unit/archive_fetch/reader.h"

static const std::string twenty = "0123456789ABCDEFGHIJ";

/* While it lives, reads give at most so many bytes, and the one that is told fails. */
struct SlowReads {
    static inline size_t most;
    static inline int reads, failing;
    OsCalls calls = kernel_calls;
    explicit SlowReads(size_t bytes, int fail = -1)
    {
        most = bytes;
        reads = 0;
        failing = fail;
        calls.pread = [](int fd, void *data, size_t size, off_t offset) -> ssize_t {
            if (reads++ != failing)
                return kernel_calls.pread(fd, data, size < most ? size : most, offset);
            errno = EIO;
            return -1;
        };
        os = &calls;
    }
    ~SlowReads() { os = &kernel_calls; }
};

static std::string range_of(MessageBytes *bytes, uint64_t start, uint64_t length)
{
    size_t size = 0;
    const char *found = bytes->range(start, length, &size);
    return found != nullptr ? std::string(found, size) : "null";
}

/* Held whole or not, of a file of the size that the index has, a shorter or a longer one. */
TEST(MessageBytes, GivesWhatTheFileHas)
{
    const MessageText message(twenty);
    for (const uint32_t expected : {20u, 19u, 21u, 3u, 0u, 4000000000u})
        for (const uint32_t header : {0u, 5u, 4000000000u})
            for (const uint32_t most : {0u, 5u, 19u, 20u, 21u, 64u})
                for (const size_t reads : {1u, 7u, 19u, 20u, 1000u}) {
                    if (reads == 19 && expected == 19) continue; /* looks like the end */
                    const SlowReads slow(reads);
                    MessageBytes bytes(message.fd(), {1, 0, header, expected}, most);
                    for (const uint64_t start : {0u, 4u, 5u, 19u, 20u, 21u})
                        for (const uint64_t length : {0u, 1u, 5u, 16u, 20u, 4000000000u})
                            ASSERT_EQ(start < 20 ? twenty.substr(start, length) : "",
                                      range_of(&bytes, start, length))
                                << expected << " " << header << " " << most << " " << start << " "
                                << length;
                    ASSERT_EQ(twenty.substr(7), range_of(&bytes, 7, UINT64_MAX));
                }
}

TEST(MessageBytes, CountsLinesAlike)
{
    for (const std::string text : {"a\nb\nc", "a\nb\n", "\n\n\n", "abc", ""}) {
        const MessageText message(text);
        for (uint32_t start = 0; start <= message.size() + 1; ++start)
            for (uint32_t length = 0; length <= message.size() + 2; ++length) {
                MessageBytes held(message.fd(), {1, 0, 0, message.size()}, 64);
                EXPECT_EQ(getlines(message.fd(), start, length), count_lines(&held, start, length))
                    << text << " " << start << " " << length;
            }
    }
}

TEST(MessageBytes, AreReadOnceWhenTheIndexKnowsTheSize)
{
    const MessageText message(twenty);
    const SlowReads reads(1000);
    MessageBytes bytes(message.fd(), {1, 0, 5, 20}, 64);
    EXPECT_EQ(0, SlowReads::reads);
    const HostPtr<char> header(bytes.text(0, 5));
    EXPECT_STREQ("01234", header.p);
    EXPECT_EQ("FGHIJ", range_of(&bytes, 15, 100));
    EXPECT_EQ(1, SlowReads::reads);
}

/* What was read before the failure serves; what lies behind it fails for whoever wants it. */
TEST(MessageBytes, FailOnlyWhereTheFileDoes)
{
    const MessageText message(twenty);
    {
        const SlowReads reads(1000, 0);
        MessageBytes bytes(message.fd(), {1, 0, 5, 20}, 64);
        EXPECT_EQ("null", range_of(&bytes, 0, 5));
        EXPECT_EQ(EIO, errno);
    }
    const SlowReads reads(8, 1);
    MessageBytes bytes(message.fd(), {1, 0, 5, 20}, 64);
    EXPECT_EQ("01234567", range_of(&bytes, 0, 8));
    EXPECT_EQ("6789", range_of(&bytes, 6, 4)) << "read from the file";
    MessageBytes none(-1);
    EXPECT_EQ("null", range_of(&none, 0, 5));
    EXPECT_EQ(0u, none.there(0, 5));
}
