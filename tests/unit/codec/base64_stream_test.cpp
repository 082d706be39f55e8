/* base64_encode_stream over real files. */
#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <random>

#include "codec/conv.h"
#include "store/ntio.h"
#include "tests/reference/base64.h"
#include "tests/support/fault_os.h"
#include "tests/support/temp_list.h"
#include "tests/unit/codec/codec_calls.h"

namespace
{
class Base64EncodeStream : public testing::Test
{
  protected:
    TempDir dir;
};
} // namespace

/* An open file in memory that holds the bytes. */
static int memory_file(const std::string &bytes)
{
    const int fd = memfd_create("mlist-test", MFD_CLOEXEC);
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(fd, bytes.data(), bytes.size()));
    EXPECT_EQ(0, lseek(fd, 0, SEEK_SET));
    return fd;
}

static std::string content_of(int fd)
{
    std::string bytes(static_cast<size_t>(lseek(fd, 0, SEEK_END)), ' ');
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), pread(fd, bytes.data(), bytes.size(), 0));
    return bytes;
}

static std::string encoded(const std::string &bytes, int line_length)
{
    const int in_fd = memory_file(bytes), out_fd = memory_file("");
    FileRecord *in = Fopen(in_fd), *out = Fopen(out_fd);
    EXPECT_EQ(0, base64_encode_stream(in, out, line_length));
    Fclose(in);
    Fclose(out);
    const std::string text = content_of(out_fd);
    close(in_fd);
    close(out_fd);
    return text;
}

static std::string random_bytes(size_t size)
{
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes(size, ' ');
    for (char &c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

/* The bytes of groups QQQQ. */
static std::string plain_of_q(int groups)
{
    std::string bytes;
    while (groups-- > 0)
        bytes += "\x41\x04\x10";
    return bytes;
}

TEST_F(Base64EncodeStream, BreaksLinesBehindFullGroups)
{
    EXPECT_EQ("", encoded("", 76));
    EXPECT_EQ("Zm9v\r\n", encoded("foo", 76));
    EXPECT_EQ("Zm9v\r\nYmFy\r\n", encoded("foobar", 4));
    EXPECT_EQ("Zm9vYmFy\r\n", encoded("foobar", 5));
    EXPECT_EQ("Zm9v\r\nYmFy\r\n", encoded("foobar", 0));
    EXPECT_EQ("Zm9v\r\nYmFy\r\n", encoded("foobar", -7));
    EXPECT_EQ(std::string(76, 'Q') + "\r\n" + std::string(4, 'Q') + "\r\n",
              encoded(plain_of_q(20), 76));
}

TEST_F(Base64EncodeStream, EndsWithoutALineEndAfterALonePaddedGroup)
{
    EXPECT_EQ("Zg==", encoded("f", 76));
    EXPECT_EQ("Zm9v\r\nYg==", encoded("foob", 4));
    EXPECT_EQ("Zm9vYg==\r\n", encoded("foob", 8));
    EXPECT_EQ("Zm9vYmFy\r\nYmE=", encoded("foobarba", 8));
}

TEST_F(Base64EncodeStream, AgreesWithTheReferenceOnEveryLengthAroundItsBlocks)
{
    for (const int line_length : {1, 4, 64, 75, 76, 77, 1000, 5000, 1 << 30})
        for (const size_t size : {0,    1,    2,    3,    56,   57,   58,   59,   3070, 3071, 3072,
                                  3073, 3074, 3075, 6143, 6144, 6145, 8191, 8192, 8193, 20000}) {
            const std::string bytes = random_bytes(size);
            ASSERT_EQ(reference::base64_encode_stream(bytes, line_length),
                      encoded(bytes, line_length))
                << size << " bytes in lines of " << line_length;
        }
}

TEST_F(Base64EncodeStream, EncodesWhatIsLeftOfItsInput)
{
    write_file(dir / "in", "xfoobar");
    FileRecord *in = f_open((dir / "in").c_str(), "r");
    FileRecord *out = f_open((dir / "out").c_str(), "w");
    EXPECT_EQ('x', Getc(in));
    EXPECT_EQ(0, base64_encode_stream(in, out, 76));
    EXPECT_EQ(-1, Getc(in));
    f_close(in);
    f_close(out);
    EXPECT_EQ("Zm9vYmFy\r\n", read_file(dir / "out"));
}

TEST_F(Base64EncodeStream, FailsWhenAWriteFails)
{
    write_file(dir / "in", random_bytes(20000));
    int failures = 0;
    for (int nth = 0;; ++nth) {
        FileRecord *in = f_open((dir / "in").c_str(), "r");
        FileRecord *out = f_open((dir / "out").c_str(), "w");
        FaultOs faults;
        faults.fail_nth_change(nth, ENOSPC);
        const int result = base64_encode_stream(in, out, 76);
        if (faults.disturbed()) {
            ++failures;
            EXPECT_EQ(-1, result) << nth;
            EXPECT_EQ(ENOSPC, errno) << nth;
        }
        const bool disturbed = faults.disturbed();
        faults.before = nullptr;
        f_close(in);
        f_close(out);
        if (!disturbed) {
            EXPECT_EQ(0, result);
            break;
        }
    }
    EXPECT_GE(failures, 1);
}

TEST_F(Base64EncodeStream, FailsWhenAReadFails)
{
    FileRecord *in = f_open(dir.path().c_str(), "r"); /* a directory opens but does not read */
    FileRecord *out = f_open((dir / "out").c_str(), "w");
    ASSERT_NE(nullptr, in);
    EXPECT_EQ(-1, base64_encode_stream(in, out, 76));
    f_close(in);
    f_close(out);
}

TEST_F(Base64EncodeStream, RefusesMissingRecords)
{
    FileRecord *out = f_open((dir / "out").c_str(), "w");
    EXPECT_EQ(-1, base64_encode_stream(nullptr, out, 76));
    f_close(out);
    write_file(dir / "in", "foo");
    FileRecord *in = f_open((dir / "in").c_str(), "r");
    EXPECT_EQ(-1, base64_encode_stream(in, nullptr, 76));
    f_close(in);
}
