/* The digest status: the line, and the file that holds it. */
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "store/file.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/store_test.h"

typedef std::vector<std::string> Lines;

/* -- the line -- */

static std::string added(const std::string &line, uint32_t number, int size = 64)
{
    char buffer[128];
    snprintf(buffer, sizeof(buffer), "%s", line.c_str());
    return anlyzline_dst(buffer, size, number) == 0 ? buffer : "refused";
}

TEST(AnlyzlineDst, JoinsOnlyTheSuccessor)
{
    static const struct {
        const char *line;
        uint32_t number;
        const char *result;
    } rows[] = {
        {"", 5, "5"},
        {"0", 4, "4"},
        {"\r\n", 4, "4"},
        {"what", 4, "4"},
        {"5", 6, "5-6"},
        {"5", 7, "5,7"},
        {"5", 5, "5,5"},
        {"5", 4, "5,4"},
        {"5-6", 7, "5-7"},
        {"5-7", 9, "5-7,9"},
        {"5-7,9", 10, "5-7,9-10"},
        {"5-7,9-10", 11, "5-7,9-11"},
        {"5-8", 6, "5-8,6"},
        {"5,5", 6, "5,5-6"},
        {"1,5", 6, "1,5-6"},
        {"9-99", 100, "9-100"},
        {"5\r\n", 6, "5\r\n-6"},
        {"5,", 6, "5,,6"},
        {"5-", 6, "5-,6"},
        {"2147483646", 2147483647u, "2147483646-2147483647"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.result, added(row.line, row.number)) << row.line << " + " << row.number;
}

TEST(AnlyzlineDst, ALineThatDoesNotFitStaysAsItWas)
{
    static const struct {
        const char *line;
        uint32_t number;
        int fits;
    } rows[] = {
        {"", 12, 3}, {"5", 6, 4}, {"5", 17, 5}, {"5-8", 9, 4}, {"5-9", 10, 5}, {"5-8", 33, 7},
    };
    for (const auto &row : rows) {
        EXPECT_NE("refused", added(row.line, row.number, row.fits)) << row.line;
        char buffer[16];
        strcpy(buffer, row.line);
        EXPECT_EQ(-1, anlyzline_dst(buffer, row.fits - 1, row.number)) << row.line;
        EXPECT_STREQ(row.line, buffer);
        EXPECT_EQ(-1, anlyzline_dst(buffer, 0, row.number)) << row.line;
    }
}

/* -- the file -- */

class DstFile : public StoreTest
{
  protected:
    DstFile() : path_(list_.control("dgtstat")) {}

    const char *path() const { return path_.c_str(); }
    std::string status() const { return list_.get("dgtstat"); }
    void put(const std::string &line) { list_.put("dgtstat", line); }
    int set(uint32_t number) { return set_dstfile(list_.job(), path(), number); }
    int reset() { return reset_dstfile(list_.job(), path()); }
    int get(int size = LINE_SIZE)
    {
        memset(buffer_, 0, sizeof(buffer_));
        return get_dstfile(list_.job(), path(), buffer_, size);
    }
    std::string bracketed() const { return " [" + path_ + "]"; }
    void make_directory(const std::string &name)
    {
        ASSERT_EQ(0, mkdir(list_.control(name).c_str(), 0700));
    }
    void no_side_files()
    {
        EXPECT_FALSE(exists(path_ + ".new"));
        EXPECT_FALSE(exists(path_ + ".old"));
    }

    TempList list_;
    std::string path_;
    char buffer_[LINE_SIZE];
};

class SetDstfile : public DstFile
{
};
class GetDstfile : public DstFile
{
};
class ResetDstfile : public DstFile
{
};

TEST_F(SetDstfile, CollectsNumbersWithoutALineEnd)
{
    static const struct {
        uint32_t number;
        const char *status;
    } rows[] = {{5, "5"}, {6, "5-6"}, {7, "5-7"}, {9, "5-7,9"}, {10, "5-7,9-10"}};
    for (const auto &row : rows) {
        EXPECT_EQ(0, set(row.number));
        EXPECT_EQ(row.status, status());
        no_side_files();
    }
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST_F(SetDstfile, ALineEndInTheFileStaysInsideTheLine)
{
    put("5\r\n");
    EXPECT_EQ(0, set(6));
    EXPECT_EQ("5\r\n-6", status());
}

TEST_F(SetDstfile, TheFileMustExist)
{
    ASSERT_EQ(0, unlink(path()));
    EXPECT_EQ(-1, set(1));
    EXPECT_EQ(Lines{"1/147 mlname=mylist set_dstfile f_open1 error No such file or directory" +
                    bracketed()},
              take_log_lines());
}

TEST_F(SetDstfile, ASecondLineIsMalformed)
{
    put("5\r\n6");
    EXPECT_EQ(-1, set(7));
    EXPECT_EQ(Lines{"1/148 mlname=mylist set_dstfile dgtstat format1 error Success" + bracketed()},
              take_log_lines());
    EXPECT_EQ("5\r\n6", status());
}

TEST_F(SetDstfile, AReadErrorIsLogged)
{
    FaultOs fault;
    fault.before = [](const std::string &call, const std::string &) {
        return call == "read" ? EIO : 0;
    };
    EXPECT_EQ(-1, set(7));
    EXPECT_EQ(
        (Lines{"1/705 ReadFile error 5",
               "1/149 mlname=mylist set_dstfile fgets error Input/output error" + bracketed()}),
        take_log_lines());
}

TEST_F(SetDstfile, AFullLineIsRefused)
{
    std::string line = "1";
    while (line.size() + 5 < LINE_SIZE - 1)
        line += ",1000";
    line.resize(LINE_SIZE - 1, '0');
    put(line);
    EXPECT_EQ(-1, set(7));
    EXPECT_EQ(Lines{"1/150 set_dstfile dgtstat format2 error Success" + bracketed()},
              take_log_lines());
    EXPECT_EQ(line, status());
}

/* As by an editor that knows nothing of the list's lock. */
TEST_F(SetDstfile, AFileThatGrowsMeanwhileHasNothingButTheNewLine)
{
    list_.put("dgtstat", "5");
    FaultOs fault;
    fault.before = [&](const std::string &call, const std::string &) {
        if (call == "rename") list_.put("dgtstat", "5-9,11,13");
        return 0;
    };
    EXPECT_EQ(0, set(6));
    EXPECT_EQ("5-6", list_.get("dgtstat"));
}

TEST_F(SetDstfile, ANewFileThatCannotBeMadeIsLogged)
{
    FaultOs fault;
    fault.before = [&](const std::string &call, const std::string &path) {
        return call == "open" && path == path_ + ".old" ? EACCES : 0; /* the draft */
    };
    EXPECT_EQ(-1, set(7));
    EXPECT_EQ(
        Lines{"1/151 mlname=mylist set_dstfile f_open2 error Permission denied" + bracketed()},
        take_log_lines());
}

TEST_F(SetDstfile, AFullDiskIsLoggedAndLeavesNothingBehind)
{
    put("5");
    OutCapture out;
    {
        FaultOs fault;
        fault.before = [](const std::string &call, const std::string &) {
            return call == "write" ? ENOSPC : 0;
        };
        EXPECT_EQ(-1, set(6));
        EXPECT_EQ(ENOSPC, errno);
    }
    EXPECT_EQ((Lines{"1/707 WriteFile:1 error 28",
                     "1/152 mlname=mylist set_dstfile fputs error No space left on device" +
                         bracketed()}),
              take_log_lines());
    EXPECT_EQ("slen1=3 errno=28\n", out.take());
    EXPECT_EQ(75, result_code());
    EXPECT_EQ("", reply());
    EXPECT_EQ("5", status());
    no_side_files();
}

TEST_F(SetDstfile, AFailedCloseGoesUnnoticed)
{
    put("5");
    FaultOs fault;
    int syncs = 0;
    fault.before = [&](const std::string &call, const std::string &) {
        return call == "fsync" && ++syncs == 2 ? ENETDOWN : 0; /* the new file's */
    };
    EXPECT_EQ(0, set(6));
    EXPECT_EQ("5-6", status());
    EXPECT_EQ(Lines{}, take_log_lines());
}

TEST_F(SetDstfile, AFailedReplacementIsLogged)
{
    put("5");
    FaultOs fault;
    int opens = 0;
    fault.before = [&](const std::string &call, const std::string &path) {
        return call == "open" && path == path_ + ".old" && ++opens == 2 ? EACCES : 0;
    };
    EXPECT_EQ(-1, set(6));
    EXPECT_EQ(
        (Lines{"3/286 renew1 error (Permission denied)" + bracketed(),
               "1/154 mlname=mylist set_dstfile renew error Permission denied" + bracketed()}),
        take_log_lines());
    EXPECT_TRUE(reply().starts_with("472 "));
}

TEST_F(SetDstfile, AFailedRecoveryIsLogged)
{
    make_directory("dgtstat.new");
    EXPECT_EQ(-1, set(6));
    EXPECT_TRUE(
        logged(146, "mlname=mylist set_dstfile recover error Is a directory" + bracketed()));
}

TEST_F(GetDstfile, ReadsTheLine)
{
    put("5-7,9");
    EXPECT_EQ(0, get());
    EXPECT_STREQ("5-7,9", buffer_);
    put("5-7,9\n");
    EXPECT_EQ(0, get());
    EXPECT_STREQ("5-7,9\r\n", buffer_);
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST_F(GetDstfile, AnEmptyFileLeavesTheBuffer)
{
    strcpy(buffer_, "mine");
    EXPECT_EQ(0, get_dstfile(list_.job(), path(), buffer_, sizeof(buffer_)));
    EXPECT_STREQ("mine", buffer_);
}

TEST_F(GetDstfile, ASecondLineOrABufferTooSmallIsMalformed)
{
    const Lines expected = {"1/144 mlname=mylist get_dstfile dgtstat format error Success" +
                            bracketed()};
    put("5\r\n6");
    EXPECT_EQ(-1, get());
    EXPECT_EQ(expected, take_log_lines());
    put("12345");
    EXPECT_EQ(-1, get(4));
    EXPECT_STREQ("123", buffer_);
    EXPECT_EQ(expected, take_log_lines());
}

TEST_F(GetDstfile, FailuresAreLogged)
{
    ASSERT_EQ(0, unlink(path()));
    EXPECT_EQ(-1, get());
    EXPECT_EQ(Lines{"1/143 mlname=mylist get_dstfile f_open error No such file or directory" +
                    bracketed()},
              take_log_lines());
    make_directory("dgtstat");
    EXPECT_EQ(-1, get());
    EXPECT_EQ((Lines{"1/705 ReadFile error 21",
                     "1/145 mlname=mylist get_dstfile fgets error Is a directory" + bracketed()}),
              take_log_lines());
    make_directory("dgtstat.new");
    EXPECT_EQ(-1, get());
    EXPECT_TRUE(
        logged(142, "mlname=mylist get_dstfile recover error Is a directory" + bracketed()));
}

TEST_F(ResetDstfile, EmptiesTheFile)
{
    put("5-7,9");
    EXPECT_EQ(0, reset());
    EXPECT_EQ("", status());
    no_side_files();
    EXPECT_EQ(0, reset());
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST_F(ResetDstfile, FailuresAreLogged)
{
    put("5");
    make_directory("dgtstat.new");
    EXPECT_EQ(-1, reset());
    EXPECT_EQ(Lines{"1/155 mlname=mylist reset_dstfile f_open error Is a directory" + bracketed()},
              take_log_lines())
        << "no recovery runs first";
    ASSERT_EQ(0, rmdir((path_ + ".new").c_str()));
    FaultOs fault;
    fault.before = [&](const std::string &call, const std::string &path) {
        return call == "unlink" && path == path_ + ".new" ? EACCES : 0;
    };
    EXPECT_EQ(-1, reset());
    EXPECT_EQ((Lines{"3/287 renew2 error (Permission denied)" + bracketed(),
                     "1/157 mlname=mylist reset_dstfile renew Permission denied" + bracketed()}),
              take_log_lines());
}

/* -- every call disturbed -- */

static const int disturbances[] = {-1, ENOSPC, ENETDOWN};

TEST_F(SetDstfile, EveryDisturbedAdditionEndsWhole)
{
    OutCapture out;
    for (const bool lone_old : {false, true})
        for (const int error : disturbances)
            (void)disturb_every_change(
                error,
                [&] {
                    put("5-7");
                    if (lone_old) list_.put("dgtstat.old", "from long ago");
                },
                [&] { return set(8); },
                [&](int nth, int answer) {
                    EXPECT_EQ(0, get()) << error << " at " << nth;
                    const std::string now = buffer_;
                    EXPECT_TRUE(now == "5-8" || (answer < 0 && now == "5-7"))
                        << error << " at " << nth << ": " << now;
                });
}

TEST_F(ResetDstfile, EveryDisturbedResetEndsWhole)
{
    for (const char *committed : {"", "5-8"})
        for (const int error : disturbances)
            (void)disturb_every_change(
                error,
                [&] {
                    put("5-7");
                    if (*committed == '\0') return;
                    list_.put("dgtstat.new", committed); /* what an earlier crash left */
                    list_.put("dgtstat.old", "5-7");
                },
                [&] { return reset(); },
                [&](int nth, int answer) {
                    EXPECT_EQ(0, get()) << error << " at " << nth;
                    const std::string now = buffer_;
                    const std::string was = *committed != '\0' ? committed : "5-7";
                    EXPECT_TRUE(now.empty() || (answer < 0 && now == was))
                        << error << " at " << nth << ": " << now;
                });
}
