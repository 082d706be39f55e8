/* Making the index anew. */
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive/box.h"

using Lines = std::vector<std::string>;

static IndexRecord record_of(const std::string &message)
{
    TempDir dir;
    write_file(dir / "7", message);
    IndexRecord record = {1, 2, 3, 4};
    EXPECT_EQ(0, list_mbx_mkidx(dir.path().c_str(), "7", &record));
    EXPECT_EQ(7u, record.uid);
    EXPECT_EQ(0u, record.flags);
    EXPECT_EQ(message.size(), record.size);
    return record;
}

TEST(MakeIndexRecord, MeasuresHeaderAndSize)
{
    static const struct {
        const char *label;
        std::string message;
        uint32_t header_size;
    } rows[] = {
        {"header and body", "A: b\r\n\r\nbody\r\n\r\n", 8},
        {"empty header", "\r\nbody", 2},
        {"no blank line", "A: b\r\nB: c\r\n", 0},
        {"empty file", "", 0},
        {"a line feed alone ends no header", "A: b\n\nbody\r\n", 0},
        {"a blank line at the very end", "A: b\r\n\r\n", 8},
        {"a NUL in the header", std::string("A: \0b\r\n\r\nx", 10), 9},
        {"CR CR LF is no blank line", "A\r\n\r\r\nx", 0},
        {"header longer than a block", std::string(9000, 'h') + "\r\n\r\nb", 9004},
        {"blank line across a block", std::string(8189, 'h') + "\r\n\r\nb", 8193},
        {"last LF in the next block", std::string(8188, 'h') + "\r\n\r\nb", 8192},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(row.header_size, record_of(row.message).header_size);
    }
}

TEST(MakeIndexRecord, HeaderEndsAtAPieceThatIsCrLf)
{
    EXPECT_EQ(2048u, record_of(std::string(2046, 'h') + "\r\nB: c\r\n\r\nbody").header_size);
    EXPECT_EQ(4094u, record_of(std::string(4092, 'h') + "\r\nB: c\r\n\r\nbody").header_size);
    EXPECT_EQ(2055u, record_of(std::string(2045, 'h') + "\r\nB: c\r\n\r\nbody").header_size);
}

TEST(MakeIndexRecord, SkipsNamesThatAreNoUid)
{
    TempDir dir;
    for (const char *name :
         {"0", "007", "12a", "4294967295", "4294967296", "99999999999999999999", "1 ", "x1"}) {
        write_file(dir / name, "A: b\r\n\r\n");
        IndexRecord record;
        EXPECT_EQ(-1, list_mbx_mkidx(dir.path().c_str(), name, &record)) << name;
    }
    IndexRecord record;
    EXPECT_EQ(-1, list_mbx_mkidx(dir.path().c_str(), "5", &record)); /* no such file */
    ASSERT_EQ(0, mkdir((dir / "6").c_str(), 0700));
    EXPECT_EQ(-1, list_mbx_mkidx(dir.path().c_str(), "6", &record));
    ASSERT_EQ(0, mkfifo((dir / "8").c_str(), 0600));
    EXPECT_EQ(-1, list_mbx_mkidx(dir.path().c_str(), "8", &record));
    write_file(dir / "4294967294", "");
    EXPECT_EQ(0, list_mbx_mkidx(dir.path().c_str(), "4294967294", &record));
}

TEST(MakeIndexRecord, WaitsForDescriptors)
{
    TempDir dir;
    write_file(dir / "7", "x");
    FaultOs fault;
    int left = 3;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "open" && left-- > 0 ? EMFILE : 0;
    };
    IndexRecord record;
    EXPECT_EQ(0, list_mbx_mkidx(dir.path().c_str(), "7", &record));
    EXPECT_EQ((std::vector<unsigned>{1, 1, 1}), fault.sleeps);
}

TEST(SortIndex, OrdersByUnsignedUid)
{
    Records records = {{4294967295u, 0, 0, 0}, {1, 0, 0, 0}, {2147483648u, 0, 0, 0}, {5, 0, 0, 0}};
    list_mbx_sortidx(records.data(), static_cast<int>(records.size()));
    EXPECT_EQ(1u, records[0].uid);
    EXPECT_EQ(5u, records[1].uid);
    EXPECT_EQ(2147483648u, records[2].uid);
    EXPECT_EQ(-1, list_mbx_idxcmp(&records[0], &records[3]));
    EXPECT_EQ(1, list_mbx_idxcmp(&records[3], &records[0]));
    EXPECT_EQ(0, list_mbx_idxcmp(&records[1], &records[1]));
}

TEST(Rebuild, DescribesEveryMessageAndLosesFlags)
{
    Box box;
    box.append_samples(30);
    const Records before = box.index();
    ASSERT_EQ(0, unlink(box.message(3).c_str()));
    write_file(box.name("#msg/note"), "no message");
    write_file(box.name("#mix"), "garbage");
    FaultOs fault;
    fault.now = 1800000001;
    take_log();
    EXPECT_EQ(0, list_mbx_rebuild(box.path()));
    EXPECT_EQ((Lines{"11/636 mbx_rebuild: rebuild " + std::string(box.path())}),
              take_log_lines(true));
    const Records records = box.index();
    ASSERT_EQ(30u, records.size());
    EXPECT_EQ(bytes_of({{31, 1800000001, 30, 0}}), bytes_of({records[0]}));
    for (size_t i = 1; i < records.size(); ++i) {
        IndexRecord wanted = before[i < 3 ? i : i + 1];
        wanted.flags = 0;
        EXPECT_EQ(bytes_of({wanted}), bytes_of({records[i]}));
    }
}

TEST(Rebuild, OfAnEmptyMailboxStartsAtOne)
{
    Box box;
    FaultOs fault;
    fault.now = 5;
    EXPECT_EQ(0, list_mbx_rebuild(box.path()));
    EXPECT_EQ(bytes_of({{1, 5, 1, 0}}), read_file(box.name("#mix")));
}

TEST(Rebuild, WithoutMessagesDirectoryFailsInSilence)
{
    Box box;
    ASSERT_EQ(0, rmdir(box.name("#msg").c_str()));
    take_log();
    EXPECT_EQ(-1, list_mbx_rebuild(box.path()));
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

/* How many entries of a directory can be read before its disk fails; -1 all of them. */
static int readable_entries = -1;

/* Takes the place of the C library's for the whole program. */
extern "C" struct dirent *readdir(DIR *directory)
{
    static const auto real =
        reinterpret_cast<struct dirent *(*)(DIR *)>(dlsym(RTLD_NEXT, "readdir"));
    if (readable_entries < 0) return real(directory);
    if (readable_entries-- > 0) return real(directory);
    readable_entries = -1;
    errno = EIO;
    return nullptr;
}

TEST(Rebuild, OfADirectoryThatCannotBeReadToItsEndLeavesTheIndex)
{
    for (int entries = 0; entries <= 5; ++entries) {
        Box box;
        box.append_samples(3);
        write_file(box.name("#mix"), "garbage");
        take_log();
        readable_entries = entries;
        EXPECT_EQ(-1, list_mbx_rebuild(box.path()));
        EXPECT_EQ(EIO, errno);
        EXPECT_EQ(-1, readable_entries);
        EXPECT_EQ(Lines{}, take_log_lines(true));
        EXPECT_EQ("garbage", read_file(box.name("#mix")));
    }
}

/* A part of an index would be taken for all of it, and the rest of the archive be forgotten. */
TEST(Rebuild, CutShortByAFullDiskIsDoneAgainByTheNextOpen)
{
    for (const long long fits : {1, 16, 17, 32, 48, 63}) {
        SCOPED_TRACE(fits);
        Box box;
        box.append_samples(3);
        write_file(box.name("#mix"), "garbage");
        {
            FaultOs fault;
            fault.short_write = fits;
            EXPECT_EQ(nullptr, list_mbx_open(box.path(), MAILBOX_QUIET));
        }
        EXPECT_EQ(nullptr, list_mbx_open(box.path(), MAILBOX_QUIET));
        MailboxHandle *handle = list_mbx_open(box.path(), MAILBOX_QUIET);
        ASSERT_NE(nullptr, handle);
        EXPECT_EQ(4u, handle->index[0].header_size);
        list_mbx_close(handle);
        EXPECT_EQ((std::vector<uint32_t>{1, 2, 3}), box.uids());
    }
    take_log();
}

TEST(Rebuild, LooksAtTheFilesOnlyUnderTheLock)
{
    Box box;
    FaultOs fault;
    EXPECT_EQ(0, list_mbx_rebuild(box.path()));
    EXPECT_EQ("open " + box.name("#mix"), fault.calls.front());
}

TEST(Rebuild, LogsWhichStepFailed)
{
    static const struct {
        const char *call;
        int error;
        long long short_write;
        const char *log, *log_end;
    } rows[] = {
        {"open", EACCES, -1, "11/637 mbx_rebuild: rebuild ", "/#mix: Permission denied"},
        {"write", ENOSPC, -1, "11/638 mbx_rebuild: write ", "/#mix: No space left on device"},
        {"", 0, 7, "11/639 mbx_rebuild: write ", "/#mix: disk full?"},
        {"ftruncate", EIO, -1, "11/640 mbx_rebuild: ftruncate ", "/#mix: Input/output error"},
        {"fsync", EIO, -1, "11/641 mbx_rebuild: fsync ", "/#mix: Input/output error"},
        {"close", EIO, -1, "11/642 mbx_rebuild: close ", "/#mix: Input/output error"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.log);
        Box box;
        const std::string path = box.path();
        FaultOs fault;
        fault.short_write = row.short_write;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == row.call ? row.error : 0;
        };
        take_log();
        EXPECT_EQ(-1, list_mbx_rebuild(box.path()));
        EXPECT_EQ((Lines{"11/636 mbx_rebuild: rebuild " + path, row.log + path + row.log_end}),
                  take_log_lines(true));
    }
}
