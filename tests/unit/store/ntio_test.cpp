/* File records: opening, closing, positions, and reading byte by byte. */
#include "store/ntio.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/unit/store/store_test.h"

class Ntio : public StoreTest
{
  protected:
    Ntio() : path_(dir_ / "file") {}
    const char *path() const { return path_.c_str(); }

    TempDir dir_;
    std::string path_;
};

typedef std::vector<std::string> Lines;

/* -- opening -- */

TEST_F(Ntio, OpenTypesMapOntoDescriptorFlags)
{
    static const struct {
        const char *type;
        int flags;
    } rows[] = {
        {"r", O_RDONLY}, {"w", O_RDWR}, {"r+", O_RDWR}, {"a", O_RDWR | O_APPEND}, {"rx", O_RDONLY}};
    for (const auto &row : rows) {
        write_file(path_, "contents");
        errno = EIO;
        FileRecord *file = f_open(path(), row.type);
        ASSERT_NE(nullptr, file) << row.type;
        EXPECT_EQ(0, errno) << row.type;
        EXPECT_EQ(row.flags, fcntl(file->fd, F_GETFL) & (O_ACCMODE | O_APPEND)) << row.type;
        EXPECT_EQ(FD_CLOEXEC, fcntl(file->fd, F_GETFD)) << row.type;
        EXPECT_EQ(1, f_close(file)) << row.type;
        EXPECT_EQ(strcmp(row.type, "w") == 0 ? "" : "contents", read_file(path_)) << row.type;
    }
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

/* Whoever waited for its writer would hold the list's lock for ever. */
TEST_F(Ntio, APipeInAFilesPlaceIsNoEmptyFile)
{
    ASSERT_EQ(0, mkfifo(path(), 0600));
    char line[16];
    FileRecord *file = f_open(path(), "r");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(nullptr, Fgets(line, sizeof(line), file));
    EXPECT_EQ(1, Ferror(file));
    EXPECT_EQ(ESPIPE, errno);
    (void)f_close(file);
    file = f_open(path(), "r");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(-1, Getc(file));
    EXPECT_EQ(1, Ferror(file));
    (void)f_close(file);
    EXPECT_EQ((Lines{"1/705 ReadFile error 29", "1/721 ReadFile error 29"}), take_log_lines(true));
}

TEST_F(Ntio, OnlyWritingCreatesTheFile)
{
    for (const char *type : {"r", "r+", "rx"}) {
        EXPECT_EQ(nullptr, f_open(path(), type)) << type;
        EXPECT_EQ(ENOENT, errno) << type;
    }
    FileRecord *file = f_open(path(), "w");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(1, f_close(file));
    EXPECT_EQ(0660u, mode_of(path_));
    EXPECT_EQ(Lines{}, take_log_lines(true)) << "a failed open is its caller's to log";
}

TEST_F(Ntio, AppendingNeedsTheFile)
{
    EXPECT_EQ(nullptr, f_open(path(), "a"));
    EXPECT_EQ(ENOENT, errno);
    write_file(path_, "one\r\n");
    FileRecord *file = f_open(path(), "a");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(5, Fputs("two\r\n", file));
    EXPECT_EQ(1, f_close(file));
    EXPECT_EQ("one\r\ntwo\r\n", read_file(path_));
}

TEST_F(Ntio, CreatingNeverOpensWhatIsThere)
{
    write_file(path_, "kept");
    EXPECT_EQ(nullptr, f_create(path()));
    EXPECT_EQ(EEXIST, errno);
    EXPECT_EQ("kept", read_file(path_));
    ASSERT_EQ(0, unlink(path()));
    FileRecord *file = f_create(path());
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(5, Fputs("new\r\n", file));
    EXPECT_EQ(1, f_close(file));
    EXPECT_EQ("new\r\n", read_file(path_));
}

/* Reads to the end; the contents as the record has them, or "unknown". */
static std::string contents_after_reading(const std::string &path)
{
    FileRecord *file = f_open(path.c_str(), "r");
    char line[64];
    while (Fgets(line, sizeof(line), file) != nullptr) {
    }
    size_t size;
    const char *bytes = Fcontents(file, &size);
    const std::string contents = bytes != nullptr ? std::string(bytes, size) : "unknown";
    EXPECT_EQ(1, f_close(file));
    return contents;
}

TEST_F(Ntio, TheContentsOfAFileOfOneBlockAreAtHandAfterReading)
{
    for (const std::string &contents :
         {std::string(""), std::string("5-7"), std::string("5-7\r\n"), std::string("a\nb\n"),
          std::string("a\0b\nc", 5), std::string(FILE_READ_SIZE, 'x')}) {
        write_file(path_, contents);
        EXPECT_EQ(contents, contents_after_reading(path_));
    }
    write_file(path_, std::string(FILE_READ_SIZE + 1, 'x'));
    EXPECT_EQ("unknown", contents_after_reading(path_));
}

TEST_F(Ntio, AnUnknownTypeIsRefused)
{
    write_file(path_, "");
    for (const char *type : {"x", "", "rw", "w+", "R"}) {
        errno = EIO;
        EXPECT_EQ(nullptr, f_open(path(), type));
        EXPECT_EQ(0, errno);
        EXPECT_EQ(Lines{std::string("1/715 f_open error invalid type [") + type + "]"},
                  take_log_lines());
    }
}

TEST_F(Ntio, WrappingRefusesMinusOneAndZero)
{
    for (const int fd : {-1, 0}) {
        errno = EIO;
        EXPECT_EQ(nullptr, Fopen(fd));
        EXPECT_EQ(0, errno);
        EXPECT_EQ(Lines{"1/700 illegal argument (Fopen)"}, take_log_lines());
    }
}

TEST_F(Ntio, ANewRecordIsEmpty)
{
    write_file(path_, "abc");
    const long blocks = host_.live_blocks;
    FileRecord *file = f_open(path(), "r");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(blocks + 2, host_.live_blocks) << "record and buffer are host memory";
    EXPECT_EQ('\0', file->buffer[0]);
    EXPECT_EQ('\0', file->buffer[FILE_BUFFER_SIZE]);
    EXPECT_EQ(0u, file->position);
    EXPECT_EQ(0, file->state);
    EXPECT_EQ(0u, file->count);
    EXPECT_EQ(1, f_close(file));
}

TEST_F(Ntio, WithoutMemoryOpeningFailsAndClosesTheDescriptor)
{
    write_file(path_, "");
    static const char *const texts[] = {"1/701 LocalAlloc error 12 (fp)",
                                        "1/702 LocalAlloc error 12 (fp->buf)"};
    for (int nth = 0; nth < 2; ++nth) {
        host_.fail_allocation = nth;
        int closes = 0;
        {
            FaultOs fault;
            fault.before = [&](const std::string &call, const std::string &) {
                closes += call == "close";
                return 0;
            };
            EXPECT_EQ(nullptr, f_open(path(), "r"));
            EXPECT_EQ(ENOMEM, errno);
        }
        EXPECT_EQ(1, closes);
        EXPECT_EQ((Lines{texts[nth], "1/718 fopen error 12"}), take_log_lines());
    }
}

/* -- closing -- */

TEST_F(Ntio, ClosingNothingSucceeds)
{
    EXPECT_EQ(1, f_close(nullptr));
    Fclose(nullptr);
}

TEST_F(Ntio, AFileOnlyReadIsSyncedToo)
{
    write_file(path_, "");
    FileRecord *file = f_open(path(), "r");
    FaultOs fault;
    EXPECT_EQ(1, f_close(file));
    EXPECT_EQ((Lines{"fsync", "close"}), fault.calls);
}

TEST_F(Ntio, ClosingReportsTheFirstOfItsErrors)
{
    static const struct {
        const char *label;
        int fsync_error, close_error, error;
    } rows[] = {
        {"sync alone", ENOSPC, 0, ENOSPC},
        {"close alone", 0, EDQUOT, EDQUOT},
        {"both", ENOSPC, EDQUOT, ENOSPC},
    };
    for (const auto &row : rows) {
        FileRecord *file = f_open(path(), "w");
        ASSERT_NE(nullptr, file);
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == "fsync" ? row.fsync_error : call == "close" ? row.close_error : 0;
        };
        EXPECT_EQ(0, f_close(file)) << row.label;
        EXPECT_EQ(row.error, errno) << row.label;
    }
}

TEST_F(Ntio, ReleasingARecordLeavesTheDescriptorOpen)
{
    write_file(path_, "");
    FileRecord *file = f_open(path(), "r");
    const int fd = file->fd;
    Fclose(file);
    EXPECT_EQ(0, close(fd));
}

/* -- positions -- */

static off_t descriptor_position(const FileRecord *file)
{
    return lseek(file->fd, 0, SEEK_CUR);
}

TEST_F(Ntio, FlushGivesTheReadAheadBack)
{
    write_file(path_, "one\ntwo\nthree\n");
    FileRecord *file = f_open(path(), "r+");
    char line[16];
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file));
    EXPECT_EQ(14, descriptor_position(file));
    EXPECT_EQ(0, Fflush(file));
    EXPECT_EQ(4, descriptor_position(file));
    EXPECT_EQ(3, Fputs("TWO", file));
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file));
    EXPECT_STREQ("\r\n", line);
    EXPECT_EQ(1, f_close(file));
    EXPECT_EQ("one\nTWO\nthree\n", read_file(path_));
}

TEST_F(Ntio, FlushMeasuresTheReadAheadAsAText)
{
    write_file(path_, std::string("one\ntwo\0hidden", 14));
    FileRecord *file = f_open(path(), "r");
    char line[16];
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file));
    EXPECT_EQ(0, Fflush(file));
    EXPECT_EQ(14 - 3, descriptor_position(file)) << "only \"two\" counts as not handed out";
    EXPECT_EQ(0, Fseek(file, 0, SEEK_SET));
    for (int i = 0; i < 10; ++i)
        (void)Getc(file);
    EXPECT_EQ(0, Fflush(file));
    EXPECT_EQ(14 + 3, descriptor_position(file)) << "ten bytes of a text of seven were handed out";
    EXPECT_EQ(1, f_close(file));
}

TEST_F(Ntio, SeekingGoesBackToALine)
{
    write_file(path_, "one\ntwo\n");
    FileRecord *file = f_open(path(), "r");
    char line[16];
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file));
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file));
    EXPECT_EQ(0, Fseek(file, -4, SEEK_CUR));
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file));
    EXPECT_STREQ("two\r\n", line);
    EXPECT_EQ(0, Fseek(file, 0, SEEK_SET));
    ASSERT_NE(nullptr, Fgets(line, sizeof(line), file));
    EXPECT_STREQ("one\r\n", line);
    EXPECT_EQ(1, f_close(file));
}

TEST_F(Ntio, FailedSeeksAreLogged)
{
    write_file(path_, "one\n");
    FileRecord *file = f_open(path(), "r");
    {
        FaultOs fault;
        int seeks = 0, failing = 1;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == "lseek" && ++seeks == failing ? EIO : 0;
        };
        EXPECT_EQ(-1, Fflush(file));
        EXPECT_EQ(EIO, errno);
        EXPECT_EQ(Lines{"1/712 SetFilePointer error 5"}, take_log_lines());
        seeks = 0;
        EXPECT_EQ(-1, Fseek(file, 0, SEEK_SET));
        EXPECT_EQ((Lines{"1/712 SetFilePointer error 5", "1/713 Fflush error 5"}),
                  take_log_lines());
        seeks = 0;
        failing = 2;
        EXPECT_EQ(-1, Fseek(file, 0, SEEK_SET));
        EXPECT_EQ(EIO, errno);
        EXPECT_EQ(Lines{"1/714 SetFilePointer error 5"}, take_log_lines());
    }
    EXPECT_EQ(1, f_close(file));
}

/* -- byte by byte -- */

TEST_F(Ntio, BytesComeAsTheyAreInTheFile)
{
    std::string contents;
    for (int i = 0; i < 20000; ++i)
        contents += static_cast<char>(i * 7 + i / 256);
    write_file(path_, contents);
    FileRecord *file = f_open(path(), "r");
    for (const char c : contents)
        ASSERT_EQ(static_cast<unsigned char>(c), Getc(file));
    errno = EIO;
    EXPECT_EQ(-1, Getc(file));
    EXPECT_EQ(0, errno);
    EXPECT_EQ(-1, Getc(file)) << "the end stays the end";
    EXPECT_EQ(0, Ferror(file));
    EXPECT_EQ(1, f_close(file));
}

TEST_F(Ntio, AFailedReadOfAByteIsLogged)
{
    write_file(path_, "abc");
    FileRecord *file = f_open(path(), "r");
    {
        FaultOs fault;
        fault.before = [](const std::string &call, const std::string &) {
            return call == "read" ? EIO : 0;
        };
        EXPECT_EQ(-1, Getc(file));
        EXPECT_EQ(EIO, errno);
    }
    EXPECT_EQ(1, Ferror(file));
    EXPECT_EQ(Lines{"1/721 ReadFile error 5"}, take_log_lines());
    EXPECT_EQ('a', Getc(file));
    EXPECT_EQ(1, f_close(file));
}

TEST_F(Ntio, BytesComeInPiecesOfAnySize)
{
    std::string contents;
    for (int i = 0; i < 70000; ++i)
        contents += static_cast<char>(i * 7 + i / 256);
    write_file(path_, contents);
    for (const size_t piece : {1u, 100u, 8191u, 8192u, 8193u, 30000u, 70000u, 70001u}) {
        FileRecord *file = f_open(path(), "r");
        std::vector<char> block(piece);
        std::string read;
        errno = EIO;
        for (size_t took = piece; took == piece;) {
            if (piece > 1) read += static_cast<char>(Getc(file)); /* fills the buffer in between */
            took = Fread(block.data(), piece, file);
            read.append(block.data(), took);
        }
        EXPECT_EQ(0, errno) << piece;
        EXPECT_EQ(0, Ferror(file)) << piece;
        read.resize(contents.size()); /* the end, told by Getc() */
        EXPECT_TRUE(contents == read) << piece;
        EXPECT_EQ(1, f_close(file));
    }
}

TEST_F(Ntio, AFailedReadOfManyBytesIsLogged)
{
    write_file(path_, std::string(20000, 'x'));
    FileRecord *file = f_open(path(), "r");
    std::vector<char> block(20000);
    EXPECT_EQ(0u, Fread(block.data(), block.size(), nullptr));
    EXPECT_EQ(Lines{"1/720 illegal argument (Getc)"}, take_log_lines());
    EXPECT_EQ('x', Getc(file));
    {
        FaultOs fault;
        fault.before = [](const std::string &call, const std::string &) {
            return call == "read" ? EIO : 0;
        };
        EXPECT_EQ(8191u, Fread(block.data(), block.size(), file)) << "what was in the buffer";
        EXPECT_EQ(EIO, errno);
    }
    EXPECT_EQ(1, Ferror(file));
    EXPECT_EQ(Lines{"1/721 ReadFile error 5"}, take_log_lines());
    EXPECT_EQ(11808u, Fread(block.data(), block.size(), file));
    EXPECT_EQ(1, f_close(file));
}

TEST_F(Ntio, MixingBytesAndLinesStaysInsideTheBuffer)
{
    write_file(path_, std::string(8192, 'x') + "\n");
    FileRecord *file = f_open(path(), "r");
    char line[64];
    for (int i = 0; i < 100; ++i) {
        (void)Getc(file);
        (void)Fgets(line, sizeof(line), file);
    }
    EXPECT_EQ(0, Fflush(file));
    EXPECT_EQ(1, f_close(file));
}

TEST_F(Ntio, MissingArgumentsAreLogged)
{
    EXPECT_EQ(-1, Getc(nullptr));
    EXPECT_EQ(-1, Putc('x', nullptr));
    EXPECT_EQ(-1, Fputs("x", nullptr));
    FileRecord *file = f_open(path(), "w");
    EXPECT_EQ(-1, Fputs(nullptr, file));
    EXPECT_EQ(1, Ferror(file));
    EXPECT_EQ(1, f_close(file));
    EXPECT_EQ((Lines{"1/720 illegal argument (Getc)", "1/722 illegal argument (Puts)",
                     "1/706 illegal argument (Fputs)", "1/706 illegal argument (Fputs)"}),
              take_log_lines());
    EXPECT_EQ(0, result_code()) << "a missing argument is no temporary failure";
}
