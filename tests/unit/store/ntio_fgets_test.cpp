/* Line reading: the rules one by one, and against the slow twin over random files. */
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "store/ntio.h"
#include "tests/reference/line_reader.h"
#include "tests/unit/store/store_test.h"

namespace
{
/* A File record over contents in memory. */
class MemoryFile
{
  public:
    explicit MemoryFile(const std::string &contents) : fd_(memfd_create("lines", MFD_CLOEXEC))
    {
        EXPECT_EQ(static_cast<ssize_t>(contents.size()),
                  pwrite(fd_, contents.data(), contents.size(), 0));
        record_ = Fopen(fd_);
    }
    ~MemoryFile()
    {
        Fclose(record_);
        close(fd_);
    }
    FileRecord *get() { return record_; }

  private:
    int fd_;
    FileRecord *record_;
};

std::vector<std::string> all_lines(const std::string &contents, int size)
{
    MemoryFile file(contents);
    std::vector<std::string> lines;
    std::vector<char> destination(static_cast<size_t>(size));
    while (Fgets(destination.data(), size, file.get()) != nullptr)
        lines.push_back(destination.data());
    EXPECT_EQ(0, Ferror(file.get()));
    return lines;
}

typedef std::vector<std::string> Lines;
} // namespace

class LineReading : public StoreTest
{
};

TEST_F(LineReading, HandsEveryCompleteLineOutWithCrLf)
{
    EXPECT_EQ((Lines{"one\r\n", "two\r\n", "\r\n", "\r\n", "five"}),
              all_lines("one\ntwo\r\n\n\r\nfive", 4096));
}

TEST_F(LineReading, TheEmptyFileHasNoLine)
{
    EXPECT_EQ(Lines{}, all_lines("", 4096));
}

TEST_F(LineReading, ALastLineWithoutLineEndComesAsItIsAndThenTheEnd)
{
    MemoryFile file("last");
    char line[16];
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file.get()));
    EXPECT_STREQ("last", line);
    EXPECT_EQ(-1, file.get()->state);
    EXPECT_EQ(nullptr, Fgets(line, sizeof(line), file.get()));
    EXPECT_STREQ("", line);
    EXPECT_EQ(0, Ferror(file.get()));
}

TEST_F(LineReading, ErrorStateOfALastLineIsResetByAsking)
{
    MemoryFile file("last");
    char line[16];
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file.get()));
    EXPECT_EQ(0, Ferror(file.get()));
    EXPECT_EQ(0, file.get()->state);
}

TEST_F(LineReading, ADestinationThatIsTooSmallGetsTheRawBytes)
{
    static const struct {
        const char *label, *contents;
        int size;
        Lines lines;
    } rows[] = {
        {"room for the pair", "abc\n", 6, {"abc\r\n"}},
        {"no room for the CR", "abc\n", 5, {"abc\n"}},
        {"room for the text alone", "abc\n", 4, {"abc", "\r\n"}},
        {"a pair with its room", "abc\r\n", 6, {"abc\r\n"}},
        {"a pair is cut between CR and LF", "abc\r\n", 5, {"abc\r", "\r\n"}},
        {"a pair is left for later", "abc\r\n", 4, {"abc", "\r\n"}},
        {"two bytes at a time", "abcd\n", 3, {"ab", "cd", "\r\n"}},
        {"one byte at a time", "ab\n", 2, {"a", "b", "\n"}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.lines, all_lines(row.contents, row.size)) << row.label;
}

TEST_F(LineReading, ALongLineComesInPiecesAcrossBlocks)
{
    const std::string text(20000, 'x');
    const Lines lines = all_lines(text + "\n", 4096);
    std::string joined;
    for (const std::string &piece : lines)
        joined += piece;
    EXPECT_EQ(text + "\r\n", joined);
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ(4095u, lines[0].size());
}

TEST_F(LineReading, CrAndLfInTwoReadBlocksAreNoPair)
{
    const std::string text(8175, 'x');
    EXPECT_EQ((Lines{text + "\r\r\n", "next\r\n"}), all_lines(text + "\r\nnext\r\n", 9000));
}

TEST_F(LineReading, AZeroByteHidesTheRestOfItsReadBlock)
{
    std::string contents = "seen\nhalf";
    contents += '\0';
    contents += "hidden\n";
    contents.resize(8176, 'h');
    contents += "from the next block\n";
    EXPECT_EQ((Lines{"seen\r\n", "halffrom the next block\r\n"}), all_lines(contents, 4096));
}

TEST_F(LineReading, ABlockThatBeginsWithAZeroByteIsSkipped)
{
    std::string contents(8176, '\0');
    contents += "line\n";
    EXPECT_EQ((Lines{"line\r\n"}), all_lines(contents, 4096));
}

TEST_F(LineReading, ASizeOfOneHandsOutNothingAndTerminates)
{
    MemoryFile file("abc\n");
    char destination[2] = {'x', 'x'};
    ASSERT_NE(nullptr, Fgets(destination, 1, file.get()));
    EXPECT_EQ('\0', destination[0]);
    EXPECT_EQ('x', destination[1]);
    EXPECT_EQ(0u, file.get()->position);
}

TEST_F(LineReading, MissingArgumentsAreLoggedAndMarkTheRecord)
{
    MemoryFile file("abc\n");
    char line[16];
    EXPECT_EQ(nullptr, Fgets(nullptr, 16, file.get()));
    EXPECT_EQ(1, Ferror(file.get()));
    file.get()->state = 0;
    EXPECT_EQ(nullptr, Fgets(line, 0, file.get()));
    EXPECT_EQ(1, Ferror(file.get()));
    file.get()->state = 0;
    EXPECT_EQ(nullptr, Fgets(line, -5, file.get()));
    EXPECT_EQ(1, Ferror(file.get()));
    EXPECT_EQ(nullptr, Fgets(line, 16, nullptr));
    EXPECT_EQ(Lines(4, "1/703 illegal argument (Fgets)"), take_log_lines());
}

TEST_F(LineReading, AFailedReadIsAnErrorAndNotTheEnd)
{
    MemoryFile file("abc");
    char line[16];
    FaultOs fault;
    fault.before = [](const std::string &call, const std::string &) {
        return call == "read" ? EIO : 0;
    };
    EXPECT_EQ(nullptr, Fgets(line, sizeof(line), file.get()));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(1, Ferror(file.get()));
    EXPECT_EQ(Lines{"1/705 ReadFile error 5"}, take_log_lines());
}

TEST_F(LineReading, AFailedReadInTheMiddleOfALineDoesNotHandOldBytesOutAgain)
{
    MemoryFile file(std::string(8176, 'x') + "tail\n");
    std::vector<char> line(9000);
    {
        FaultOs fault;
        int reads = 0;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == "read" && ++reads == 2 ? EIO : 0;
        };
        EXPECT_EQ(nullptr, Fgets(line.data(), 9000, file.get()));
    }
    ASSERT_NE(nullptr, Fgets(line.data(), 9000, file.get()));
    EXPECT_STREQ("tail\r\n", line.data());
}

TEST_F(LineReading, AnInterruptedReadIsRepeated)
{
    MemoryFile file("abc\n");
    char line[16];
    FaultOs fault;
    int reads = 0;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "read" && ++reads < 3 ? EINTR : 0;
    };
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file.get()));
    EXPECT_STREQ("abc\r\n", line);
}

/* -- against the slow twin -- */

namespace
{
/* Quick and repeatable; millions of throws in a debug build. */
struct Dice {
    uint32_t state;
    unsigned operator()() { return (state = state * 1664525u + 1013904223u) >> 8; }
};

/* Bytes that make trouble, far more often than mail has them, and most of all around the ends of
   the read blocks. */
std::string random_contents(Dice &random, size_t size, unsigned trouble)
{
    std::string contents(size, 'a');
    for (size_t i = 0; i < size; ++i) {
        const bool near_block_end = (i + 3) % 8176 < 6;
        const unsigned odds = near_block_end ? 3 : trouble;
        if (random() % odds != 0) {
            contents[i] = static_cast<char>('a' + random() % 26);
            continue;
        }
        const unsigned kind = random() % 40;
        contents[i] = kind == 0 ? '\0' : kind < 14 ? '\r' : kind < 20 ? ' ' : '\n';
        if (contents[i] == '\r' && random() % 3 != 0 && i + 1 < size) contents[++i] = '\n';
    }
    return contents;
}

/* Reads the file with both; false at the first difference. */
bool same_lines(const std::string &contents, int size)
{
    MemoryFile file(contents);
    reference::LineReader slow(contents);
    std::vector<char> destination(static_cast<size_t>(size));
    for (int ends = 0; ends < 2;) { /* read past the end: it stays the end */
        const char *got = Fgets(destination.data(), size, file.get());
        const std::optional<std::string> expected = slow.next(size);
        if ((got != nullptr) != expected.has_value()) return false;
        if (got != nullptr && *expected != got) return false;
        if (file.get()->state != slow.state() || file.get()->position != slow.position())
            return false;
        ends += got == nullptr;
    }
    return lseek(file.get()->fd, 0, SEEK_CUR) == static_cast<off_t>(slow.offset());
}
} // namespace

TEST_F(LineReading, AgreesWithTheSlowTwinForEveryDestinationSize)
{
    Dice random{20261115};
    for (int size = 2; size <= 9000; ++size) {
        const size_t length = random() % (size < 64 ? 3000 : 12000);
        const std::string contents = random_contents(random, length, 2 + random() % 400);
        ASSERT_TRUE(same_lines(contents, size)) << "destination of " << size << " bytes";
    }
}

TEST_F(LineReading, AgreesWithTheSlowTwinForEveryFileSize)
{
    Dice random{8176};
    for (size_t length = 0; length <= 9000; ++length) {
        const std::string contents = random_contents(random, length, 2 + random() % 100);
        ASSERT_TRUE(same_lines(contents, 4096)) << "file of " << length << " bytes";
    }
}

TEST_F(LineReading, AgreesWithTheSlowTwinAroundBlockEnds)
{
    Dice random{1};
    for (size_t length = 8176 - 8; length <= 8176 + 8; ++length)
        for (int size = 8176 - 8; size <= 8176 + 8; ++size)
            for (int round = 0; round < 4; ++round) {
                const std::string contents = random_contents(random, 8176 + length, 100000);
                ASSERT_TRUE(same_lines(contents, size)) << length << " and " << size;
            }
}
