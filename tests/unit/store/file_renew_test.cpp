/* Replacement and recovery of a control file, undisturbed and disturbed at every call. */
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "store/file.h"
#include "store/side_files.h"
#include "tests/unit/store/store_test.h"

typedef std::vector<std::string> Lines;

class FileRenew : public StoreTest
{
  protected:
    FileRenew() : path_(dir_ / "member"), new_(path_ + ".new"), old_(path_ + ".old") {}

    const char *path() const { return path_.c_str(); }
    void expect_at_rest() const { EXPECT_EQ(Lines{"member"}, list_directory(dir_.path())); }

    TempDir dir_;
    std::string path_, new_, old_;
};

/* Several blocks each, of which no mixture looks like either. */
static const std::string before(2 * COPY_BLOCK_SIZE + 1808, 'b');
static const std::string after =
    std::string(COPY_BLOCK_SIZE, 'x') + std::string(COPY_BLOCK_SIZE + 904, 'y');

/* -- undisturbed -- */

TEST_F(FileRenew, PutsTheNewFileInPlace)
{
    write_file(path_, before);
    ASSERT_EQ(0, chmod(path(), 0640));
    struct stat was, is;
    ASSERT_EQ(0, stat(path(), &was));
    write_file(new_, after);
    EXPECT_EQ(0, f_renew(path()));
    ASSERT_EQ(0, stat(path(), &is));
    EXPECT_EQ(after, read_file(path_));
    EXPECT_EQ(was.st_ino, is.st_ino) << "overwritten in place";
    EXPECT_EQ(0640u, mode_of(path_));
    expect_at_rest();
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST_F(FileRenew, AFileThatIsCreatedIsForItsOwnerOnly)
{
    write_file(new_, after);
    EXPECT_EQ(0, f_renew(path()));
    EXPECT_EQ(after, read_file(path_));
    EXPECT_EQ(0600u, mode_of(path_));
    expect_at_rest();
}

TEST_F(FileRenew, AnEmptyNewFileEmptiesTheFile)
{
    write_file(path_, before);
    write_file(new_, "");
    EXPECT_EQ(0, f_renew(path()));
    EXPECT_EQ("", read_file(path_));
    expect_at_rest();
}

TEST_F(FileRenew, TheSecondHalfAcceptsAMissingOldFile)
{
    write_file(path_, before);
    write_file(new_, after);
    EXPECT_EQ(0, f_renew2(path(), new_.c_str(), old_.c_str()));
    EXPECT_EQ(after, read_file(path_));
    expect_at_rest();
}

TEST_F(FileRenew, TheFirstHalfKeepsACopyOfThePreviousContents)
{
    write_file(path_, before);
    write_file(new_, after);
    EXPECT_EQ(0, f_renew1(path(), new_.c_str(), old_.c_str()));
    EXPECT_EQ(before, read_file(path_));
    EXPECT_EQ(before, read_file(old_));
    EXPECT_EQ(after, read_file(new_));
}

/* -- recovery, state by state -- */

TEST_F(FileRenew, RecoveryActsOnWhatItFinds)
{
    static const struct {
        const char *label;
        bool has_new, has_old;
        Lines log; /* %D stands for the directory */
        bool rolls_forward;
        Lines left;
    } rows[] = {
        {"at rest", false, false, {}, false, {"member"}},
        {"new file alone", true, false, {"5/288 .new detected [%D/member.new]"}, false, {"member"}},
        {"committed",
         true,
         true,
         {"5/288 .new detected [%D/member.new]", "5/289 .old detected [%D/member.old]"},
         true,
         {"member"}},
        {"old file alone", false, true, {}, false, {"member", "member.old"}},
    };
    for (const auto &row : rows) {
        write_file(path_, before);
        if (row.has_new) write_file(new_, after);
        if (row.has_old) write_file(old_, before);
        EXPECT_EQ(0, f_recover(path())) << row.label;
        EXPECT_EQ(row.rolls_forward ? after : before, read_file(path_)) << row.label;
        EXPECT_EQ(row.left, list_directory(dir_.path())) << row.label;
        Lines expected;
        for (std::string line : row.log)
            expected.push_back(line.replace(line.find("%D"), 2, dir_.path()));
        EXPECT_EQ(expected, take_log_lines()) << row.label;
    }
    EXPECT_EQ("", reply());
    EXPECT_EQ(0, result_code());
}

TEST_F(FileRenew, RecoveryOfAHalfOverwrittenFile)
{
    write_file(path_, after.substr(0, COPY_BLOCK_SIZE));
    write_file(new_, after);
    write_file(old_, before);
    EXPECT_EQ(0, f_recover(path()));
    EXPECT_EQ(after, read_file(path_));
    expect_at_rest();
}

TEST_F(FileRenew, NothingToRecoverWhereThereIsNoFile)
{
    EXPECT_EQ(0, f_recover(path()));
    EXPECT_EQ(0, f_recover("/nowhere/at/all"));
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

/* -- failures and their texts -- */

static std::string cut(const std::string &text)
{
    return text.substr(0, 126);
}

TEST_F(FileRenew, AFailedFirstHalfIsReported)
{
    write_file(path_, before);
    write_file(new_, after);
    ASSERT_EQ(0, mkdir(old_.c_str(), 0700));
    EXPECT_EQ(-1, f_renew(path()));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_EQ(Lines{"3/286 renew1 error (Is a directory) [" + path_ + "]"}, take_log_lines());
    EXPECT_EQ(cut("472 copy newfile to oldfile " + path_), reply());
    EXPECT_EQ(75, result_code());
    EXPECT_EQ(before, read_file(path_));
}

TEST_F(FileRenew, AShortOldFileIsAFailedFirstHalf)
{
    write_file(path_, before);
    write_file(new_, after);
    {
        FaultOs fault;
        int writes = 0;
        fault.before = [&](const std::string &call, const std::string &) {
            return call == "write" && ++writes == 2 ? EDQUOT : 0;
        };
        EXPECT_EQ(-1, f_renew(path()));
    }
    EXPECT_EQ(Lines{"3/286 renew1 error (No space left on device) [" + path_ + "]"},
              take_log_lines());
    EXPECT_EQ(cut("472 copy newfile to oldfile " + path_), reply());
    EXPECT_EQ(before, read_file(path_));
    EXPECT_EQ(0, f_recover(path())) << "the new file was complete";
    EXPECT_EQ(after, read_file(path_));
    expect_at_rest();
}

TEST_F(FileRenew, AFailedSecondHalfIsReported)
{
    write_file(path_, before);
    EXPECT_EQ(-1, f_renew(path())) << "there is no new file";
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(Lines{"3/287 renew2 error (No such file or directory) [" + path_ + "]"},
              take_log_lines());
    EXPECT_EQ(cut("473 coppy newfile to orgfile " + path_), reply());
    EXPECT_EQ(75, result_code());
    EXPECT_EQ(before, read_file(path_));
}

TEST_F(FileRenew, AFailureOverwritesAnEarlierReply)
{
    strcpy(host_.request.reply_text, "503 earlier");
    EXPECT_EQ(-1, f_renew(path()));
    EXPECT_EQ(cut("473 coppy newfile to orgfile " + path_), reply());
}

TEST_F(FileRenew, AFailedRollForwardIsReportedAndTriedAgain)
{
    write_file(path_, before);
    write_file(new_, after);
    write_file(old_, before);
    {
        FaultOs fault;
        fault.before = [](const std::string &call, const std::string &) {
            return call == "write" ? ENOSPC : 0;
        };
        EXPECT_EQ(-1, f_recover(path()));
    }
    EXPECT_EQ((Lines{"5/288 .new detected [" + new_ + "]", "5/289 .old detected [" + old_ + "]",
                     "3/290 recover1 error (No space left on device)"}),
              take_log_lines());
    EXPECT_EQ(cut("474 f_recover disk full " + path_), reply());
    EXPECT_EQ(75, result_code());
    EXPECT_TRUE(exists(new_) && exists(old_)) << "nothing is lost";
    EXPECT_EQ(0, f_recover(path()));
    EXPECT_EQ(after, read_file(path_));
    expect_at_rest();
}

TEST_F(FileRenew, AFailedDiscardIsReported)
{
    write_file(path_, before);
    ASSERT_EQ(0, mkdir(new_.c_str(), 0700));
    EXPECT_EQ(-1, f_recover(path()));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_EQ(
        (Lines{"5/288 .new detected [" + new_ + "]", "3/291 recover2 error (Is a directory)"}),
        take_log_lines());
    EXPECT_EQ(cut("475 f_reover disk full " + path_), reply());
    EXPECT_EQ(75, result_code());
}

/* Taken for missing, a committed replacement would be overwritten by the next one. */
TEST_F(FileRenew, ASideFileThatCannotBeLookedAtMayBeThere)
{
    for (const char *ending : {".new", ".old"}) {
        write_file(path_, after.substr(0, 100));
        write_file(new_, after);
        write_file(old_, before);
        {
            FaultOs fault;
            fault.before = [&](const std::string &call, const std::string &name) {
                return call == "stat" && name.ends_with(ending) ? EIO : 0;
            };
            EXPECT_EQ(-1, f_recover(path())) << ending;
            EXPECT_EQ(EIO, errno) << ending;
        }
        const bool rolling = std::string(ending) == ".old";
        EXPECT_EQ(cut((rolling ? "474 f_recover disk full " : "475 f_reover disk full ") + path_),
                  reply());
        EXPECT_EQ(75, result_code()) << ending;
        EXPECT_EQ(0, f_recover(path())) << ending;
        EXPECT_EQ(after, read_file(path_)) << ending;
        forget_failure();
    }
}

TEST_F(FileRenew, AnOverlongPathIsRefusedBeforeAnythingIsTouched)
{
    std::string longest = dir_.path();
    while (longest.size() < 1018 - 101)
        longest += "/" + std::string(100, 'd');
    longest += "/" + std::string(1018 - longest.size() - 1, 'f');
    ASSERT_EQ(1018u, longest.size());
    SideFiles files;
    EXPECT_EQ(0, name_side_files(longest.c_str(), &files));
    EXPECT_EQ(longest + ".new", files.new_path);
    EXPECT_EQ(longest + ".old", files.old_path);

    const std::string overlong = longest + "f";
    FaultOs fault;
    EXPECT_EQ(-1, name_side_files(overlong.c_str(), &files));
    EXPECT_EQ(-1, f_recover(overlong.c_str()));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_TRUE(reply().starts_with("475 f_reover disk full "));
    EXPECT_EQ(75, result_code());
    EXPECT_EQ(-1, f_renew(overlong.c_str()));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_TRUE(reply().starts_with("472 copy newfile to oldfile "));
    EXPECT_EQ(Lines{}, fault.calls);
    const Lines log = take_log_lines();
    ASSERT_EQ(2u, log.size());
    EXPECT_EQ("3/291 recover2 error (File name too long)", log[0]);
    EXPECT_TRUE(log[1].starts_with("3/286 renew1 error (File name too long) ["));
}

/* -- every call disturbed -- */

/* Also -1: the process dies there. */
static const int disturbances[] = {-1, ENOSPC, EIO, EINTR};

TEST_F(FileRenew, EveryDisturbedReplacementEndsWhole)
{
    for (const bool creates : {false, true})
        for (const int error : disturbances) {
            const int runs = disturb_every_change(
                error,
                [&] {
                    (void)unlink(path());
                    if (!creates) write_file(path_, before);
                    write_file(new_, after);
                },
                [&] { return f_renew(path()); },
                [&](int nth, int answer) {
                    EXPECT_EQ(0, f_recover(path())) << error << " at " << nth;
                    const bool was_renewed = read_file(path_) == after;
                    const bool is_old = creates ? !exists(path_) : read_file(path_) == before;
                    EXPECT_TRUE(was_renewed || (answer < 0 && is_old)) << error << " at " << nth;
                    EXPECT_FALSE(exists(new_) || exists(old_)) << error << " at " << nth;
                });
            EXPECT_GE(runs, 9) << "fewer calls than a replacement has";
        }
}

TEST_F(FileRenew, EveryDisturbedRecoveryIsFinishedByTheNext)
{
    for (const int error : disturbances) {
        (void)disturb_every_change(
            error,
            [&] {
                write_file(path_, before.substr(0, 100));
                write_file(new_, after);
                write_file(old_, before);
            },
            [&] { return f_recover(path()); },
            [&](int nth, int) {
                EXPECT_EQ(0, f_recover(path())) << error << " at " << nth;
                EXPECT_EQ(after, read_file(path_)) << error << " at " << nth;
                expect_at_rest();
            });
    }
}

TEST_F(FileRenew, ADiskThatIsFullFromSomeByteOnLosesNothing)
{
    for (int last_write = 0; last_write < 12; ++last_write) {
        write_file(path_, before);
        write_file(new_, after);
        int answer;
        {
            FaultOs fault;
            int writes = 0;
            fault.before = [&](const std::string &call, const std::string &) {
                if (call != "write" || ++writes <= last_write) return 0;
                fault.short_write = 0; /* takes nothing from now on */
                return 0;
            };
            answer = f_renew(path());
        }
        EXPECT_EQ(last_write < 6 ? -1 : 0, answer) << last_write;
        EXPECT_EQ(0, f_recover(path())) << last_write;
        const std::string now = read_file(path_);
        EXPECT_TRUE(now == after || now == before) << last_write << ": " << now.size() << " bytes";
        expect_at_rest();
    }
}

TEST_F(FileRenew, ShortWritesAreCompleted)
{
    write_file(path_, before);
    write_file(new_, after);
    FaultOs fault;
    fault.short_write = 100;
    EXPECT_EQ(0, f_renew(path()));
    EXPECT_EQ(after, read_file(path_));
    expect_at_rest();
}

/* -- the new file -- */

TEST_F(FileRenew, AnOldFileAloneIsRemovedBeforeANewOneIsBegun)
{
    write_file(path_, before);
    write_file(old_, "from long ago");
    SideFiles files;
    ASSERT_EQ(0, name_side_files(path(), &files));
    FaultOs fault;
    FileRecord *file = open_new_file(&files);
    ASSERT_NE(nullptr, file);
    EXPECT_FALSE(exists(old_));
    EXPECT_EQ("unlink " + old_, fault.calls[2]);
    EXPECT_EQ("fsync", fault.calls[4]) << "durable before the new name is";
    EXPECT_EQ(1, f_close(file));
    drop_new_file(&files);
    expect_at_rest();
}

TEST_F(FileRenew, TheOldFileOfACommittedReplacementStays)
{
    write_file(new_, after);
    write_file(old_, before);
    SideFiles files;
    ASSERT_EQ(0, name_side_files(path(), &files));
    EXPECT_EQ(0, clear_old_file(&files));
    EXPECT_TRUE(exists(old_));
}

TEST_F(FileRenew, ANewFileIsNotBegunBesideAnOldOneThatStays)
{
    write_file(path_, before);
    ASSERT_EQ(0, mkdir(old_.c_str(), 0700));
    SideFiles files;
    ASSERT_EQ(0, name_side_files(path(), &files));
    EXPECT_EQ(nullptr, open_new_file(&files));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_FALSE(exists(new_));
}
