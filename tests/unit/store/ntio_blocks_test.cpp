/* Blocks of 8,176 bytes are what lines are handed out of, many of them are what is read: files that
   are longer than one read, against the slow twin, which reads block by block. */
#include <sys/mman.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "store/ntio.h"
#include "store/ntio_view.h"
#include "tests/reference/line_reader.h"
#include "tests/unit/store/store_test.h"

namespace
{
constexpr size_t block = FILE_READ_SIZE;
constexpr size_t second = (1 + FILE_MORE_BLOCKS) * block; /* where the second read ends */
constexpr size_t third = second + FILE_MOST_BLOCKS * block;
constexpr int other_errno = EXDEV;

/* A File record over contents in memory, whose reads fail from a place on. */
class MemoryFile
{
  public:
    explicit MemoryFile(const std::string &contents, size_t unreadable_from = SIZE_MAX)
        : fd_(memfd_create("lines", MFD_CLOEXEC)), calls_(*os), former_(os)
    {
        EXPECT_EQ(static_cast<ssize_t>(contents.size()),
                  pwrite(fd_, contents.data(), contents.size(), 0));
        limit_ = unreadable_from;
        count_ = 0;
        calls_.read = limited_read;
        os = &calls_;
        record_ = Fopen(fd_);
    }
    ~MemoryFile()
    {
        Fclose(record_);
        os = former_;
        close(fd_);
    }
    FileRecord *get() { return record_; }
    int reads() const { return count_; }

  private:
    static ssize_t limited_read(int fd, void *data, size_t size)
    {
        ++count_;
        const size_t place = static_cast<size_t>(lseek(fd, 0, SEEK_CUR));
        if (place >= limit_) {
            errno = EIO;
            return -1;
        }
        return read(fd, data, std::min(size, limit_ - place));
    }

    inline static size_t limit_;
    inline static int count_;
    int fd_;
    OsCalls calls_;
    const OsCalls *former_;
    FileRecord *record_;
};

/* Lines of mail lengths; trouble at both sides of every block's end. */
std::string random_contents(std::mt19937 &random, size_t size)
{
    std::string contents;
    while (contents.size() < size) {
        contents.append(random() % 120, static_cast<char>('a' + random() % 26));
        contents += random() % 3 == 0 ? "\n" : "\r\n";
    }
    contents.resize(size);
    static const std::string trouble("\r\n\r\n\rxx\0", 8);
    for (size_t end = block; end < size; end += block)
        for (size_t at = end - 3; at < end + 3 && at < size; ++at)
            contents[at] = trouble[random() % (end / block % 4 == 0 ? 8 : 7)];
    return contents;
}

/* Reads the file with both, each piece into so many bytes, now and then giving the read-ahead
   back.  What differs first, or nothing. */
std::string difference(const std::string &contents, int size, size_t unreadable_from,
                       unsigned flushes, std::mt19937 &random)
{
    MemoryFile file(contents, unreadable_from);
    reference::LineReader slow(contents, unreadable_from);
    std::vector<char> destination(static_cast<size_t>(size));
    for (int ends = 0; ends < 2;) {
        errno = other_errno;
        const char *got = Fgets(destination.data(), size, file.get());
        const int error = errno;
        const std::optional<std::string> expected = slow.next(size);
        const std::string place = " at " + std::to_string(slow.offset());
        if ((got != nullptr) != expected.has_value()) return "end" + place;
        if (got != nullptr && *expected != got) return "text" + place;
        if (file.get()->state != slow.state()) return "state" + place;
        if (file.get()->position != slow.position()) return "position" + place;
        if (error != (slow.state() == 1 ? EIO : other_errno)) return "errno" + place;
        ends += got == nullptr;
        if (flushes == 0 || slow.state() != 0 || random() % flushes != 0) continue;
        const off_t told = Ftell(file.get());
        if (Fflush(file.get()) != 0) return "flush" + place;
        slow.flush();
        if (told != static_cast<off_t>(slow.offset())) return "place told" + place;
        if (lseek(file.get()->fd, 0, SEEK_CUR) != static_cast<off_t>(slow.offset()))
            return "place after flush" + place;
    }
    return "";
}

const int sizes[] = {2, 7, 80, 4096, 8176, 9000, 20000};
} // namespace

class LineBlocks : public StoreTest
{
};

TEST_F(LineBlocks, EndWhereTheyDoWhenEachIsReadForItself)
{
    std::mt19937 random(8176);
    for (const size_t blocks : {size_t{1}, size_t{2}, size_t{4}})
        for (const size_t more : {size_t{0}, size_t{1}, size_t{4000}, block - 1})
            for (const int size : sizes)
                EXPECT_EQ("", difference(random_contents(random, blocks * block + more), size,
                                         SIZE_MAX, 0, random))
                    << blocks << " " << more << " " << size;
}

TEST_F(LineBlocks, EndWhereTheyDoAroundTheEndsOfLargeReads)
{
    std::mt19937 random(128);
    for (const size_t length : {second - 1, second, second + 1, third + 1})
        EXPECT_EQ("", difference(random_contents(random, length), 4096, SIZE_MAX, 0, random))
            << length;
}

TEST_F(LineBlocks, AreGivenBackAsFarAsTheyWereNotHandedOut)
{
    std::mt19937 random(712);
    for (const int size : sizes)
        EXPECT_EQ("", difference(random_contents(random, 3 * block), size, SIZE_MAX, 40, random))
            << size;
    EXPECT_EQ("", difference(random_contents(random, second), 4096, SIZE_MAX, 400, random));
}

TEST_F(LineBlocks, AreHandedOutUpToTheByteThatCannotBeRead)
{
    std::mt19937 random(705);
    const std::string contents = random_contents(random, second + 3 * block);
    for (const size_t place : {size_t{0}, size_t{100}, block - 1, block, block + 1, 5 * block - 1,
                               5 * block, second, second + 1})
        for (const int size : {80, 9000})
            EXPECT_EQ("", difference(contents, size, place, 0, random)) << place << " " << size;
    take_log();
}

TEST_F(LineBlocks, AreReadOneByOneWithoutMemoryForMore)
{
    std::mt19937 random(702);
    const std::string contents = random_contents(random, 5 * block + 17);
    MemoryFile file(contents);
    reference::LineReader slow(contents);
    char line[4096];
    for (;;) {
        host_.fail_allocation = 0;
        errno = other_errno;
        const char *got = Fgets(line, sizeof(line), file.get());
        const std::optional<std::string> expected = slow.next(sizeof(line));
        ASSERT_EQ(expected.has_value(), got != nullptr);
        EXPECT_EQ(other_errno, errno);
        if (got == nullptr) break;
        ASSERT_EQ(*expected, got);
    }
    host_.fail_allocation = -1;
    EXPECT_EQ(7, file.reads());
}

TEST_F(LineBlocks, OfALongFileTakeFewReads)
{
    static const struct {
        size_t length;
        int reads;
    } rows[] = {{100, 2}, {block, 2}, {block + 1, 3}, {300000, 3}, {2900000, 4}};
    for (const auto &row : rows) {
        MemoryFile file(std::string(row.length, '\n'));
        char line[16];
        while (Fgets(line, sizeof(line), file.get()) != nullptr) {
        }
        EXPECT_EQ(row.reads, file.reads()) << row.length;
    }
}

TEST_F(LineBlocks, AreWhatAWriteGoesBehind)
{
    for (const bool byte : {false, true}) {
        MemoryFile file(std::string(5 * block, '\n'));
        char line[16];
        for (size_t i = 0; i <= block; ++i)
            ASSERT_NE(nullptr, Fgets(line, sizeof(line), file.get()));
        EXPECT_EQ(1, byte ? Putc('x', file.get()) : Fputs("x", file.get()));
        char written[2];
        EXPECT_EQ(2, pread(file.get()->fd, written, 2, 2 * block));
        EXPECT_EQ("x\n", std::string(written, 2));
    }
}

TEST_F(LineBlocks, AreReadOnAsBytes)
{
    std::string contents;
    for (size_t i = 0; i < 5 * block; ++i)
        contents += i % 100 == 99 ? '\n' : static_cast<char>('a' + i / 100 % 26);
    for (const size_t piece : {size_t{1}, size_t{100}, size_t{9000}, contents.size()}) {
        MemoryFile file(contents);
        char line[128];
        for (size_t i = 0; i < 100; ++i)
            ASSERT_NE(nullptr, Fgets(line, sizeof(line), file.get()));
        std::string rest, data(piece, '\0');
        for (size_t took; (took = Fread(data.data(), piece, file.get())) > 0;)
            rest.append(data, 0, took);
        EXPECT_TRUE(contents.substr(2 * block) == rest) << piece << ": what follows the block";
    }
}

TEST_F(LineBlocks, AreViewedAsTheyAreHandedOut)
{
    std::mt19937 random(4096);
    const std::string contents = random_contents(random, second + 5 * block + 1);
    MemoryFile file(contents);
    reference::LineReader slow(contents);
    char joined[VIEW_LINE_SIZE], text[VIEW_LINE_SIZE];
    LineView view;
    while (Fview(&view, joined, file.get()) > 0) {
        copy_view(text, view);
        ASSERT_EQ(slow.next(VIEW_LINE_SIZE).value_or("the end"), text) << slow.offset();
    }
    EXPECT_FALSE(slow.next(VIEW_LINE_SIZE).has_value());
}
