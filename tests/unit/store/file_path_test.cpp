/* Paths of a list, and the preparation of its control directory. */
#include <string.h>

#include <string>
#include <vector>

#include "store/file.h"
#include "tests/unit/store/store_test.h"

typedef std::vector<std::string> Lines;

class FilePath : public StoreTest
{
  protected:
    TempList list_;
};

TEST_F(FilePath, NamesRootDomainAndList)
{
    char path[PATH_SIZE];
    EXPECT_EQ(0, control_path(path, list_.job(), "member"));
    EXPECT_EQ(list_.control("member"), path);
    EXPECT_EQ(0, archive_path(path, list_.job(), "INBOX"));
    EXPECT_EQ(list_.box(), path);
    EXPECT_EQ(0, list_path(path, "/r", "d", "l", "n"));
    EXPECT_STREQ("/r/d/l/n", path);
}

TEST_F(FilePath, APathThatDoesNotFitIsRefused)
{
    const std::string root(1000, 'r');
    char path[PATH_SIZE];
    EXPECT_EQ(0, list_path(path, root.c_str(), "domain", "list", std::string(9, 'n').c_str()));
    EXPECT_EQ(1022u, strlen(path));
    EXPECT_EQ(-1, list_path(path, root.c_str(), "domain", "list", std::string(10, 'n').c_str()));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_STREQ("", path);
}

class CheckDirectory : public FilePath
{
  protected:
    std::string msg() const { return list_.control("msg"); }
    std::string jnl() const { return list_.control("jnl"); }
};

TEST_F(CheckDirectory, MakesWhatIsMissing)
{
    ASSERT_EQ(0, rmdir(jnl().c_str()));
    EXPECT_EQ(0, check_directory(list_.job()));
    EXPECT_EQ(0760u, mode_of(jnl()));
    ASSERT_EQ(0, rmdir(msg().c_str()));
    ASSERT_EQ(0, rmdir(jnl().c_str()));
    EXPECT_EQ(0, check_directory(list_.job()));
    EXPECT_EQ(0760u, mode_of(msg()));
    EXPECT_EQ(0760u, mode_of(jnl()));
    EXPECT_EQ(0, check_directory(list_.job()));
    EXPECT_EQ("", reply());
    EXPECT_EQ(Lines{}, take_log_lines(true));
}

TEST_F(CheckDirectory, AMissingJobIsFine)
{
    EXPECT_EQ(0, check_directory(nullptr));
}

TEST_F(CheckDirectory, AFailureIsTemporaryAndEndsIt)
{
    for (const std::string &path : {msg(), jnl()}) {
        ASSERT_EQ(0, rmdir(path.c_str()));
        {
            FaultOs fault;
            fault.before = [&](const std::string &call, const std::string &where) {
                return call == "mkdir" && where == path ? ENOSPC : 0;
            };
            EXPECT_EQ(-1, check_directory(list_.job()));
            EXPECT_EQ(ENOSPC, errno);
            EXPECT_EQ(path, fault.calls.back().substr(strlen("mkdir "))) << "nothing follows";
        }
        EXPECT_EQ(("470 mkdir " + path).substr(0, 126), reply());
        EXPECT_EQ(75, result_code());
        forget_failure();
        EXPECT_EQ(0, check_directory(list_.job()));
    }
}

TEST_F(CheckDirectory, AMissingListDirectoryIsAFailure)
{
    strcpy(list_.job()->list_name, "nolist");
    EXPECT_EQ(-1, check_directory(list_.job()));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(75, result_code());
}

TEST_F(FilePath, CheckFileMakesWhatIsMissingAndKeepsTheRest)
{
    list_.put("member", "a@example.jp ON \r\n");
    for (const char *name : {"digest", "active", "status", "dgtstat", "confirm"})
        ASSERT_EQ(0, unlink(list_.control(name).c_str()));
    ASSERT_EQ(0, unlink(list_.control("grant").c_str()));
    EXPECT_EQ(1, check_file(list_.job()));
    EXPECT_EQ("a@example.jp ON \r\n", list_.get("member"));
    for (const char *name : {"digest", "active", "status", "dgtstat", "confirm"}) {
        EXPECT_EQ(0660u, mode_of(list_.control(name))) << name;
        EXPECT_EQ("", list_.get(name)) << name;
    }
    EXPECT_FALSE(exists(list_.control("grant"))) << "not one of its files";
}

TEST_F(FilePath, CheckFileIgnoresEveryError)
{
    ASSERT_EQ(0, unlink(list_.control("digest").c_str()));
    ASSERT_EQ(0, mkdir(list_.control("digest").c_str(), 0700));
    ASSERT_EQ(0, unlink(list_.control("confirm").c_str()));
    EXPECT_EQ(1, check_file(list_.job()));
    EXPECT_TRUE(exists(list_.control("confirm")));
    strcpy(list_.job()->list_name, "nolist");
    EXPECT_EQ(1, check_file(list_.job()));
    EXPECT_EQ(1, check_file(nullptr));
    EXPECT_EQ("", reply());
    EXPECT_EQ(0, result_code());
    EXPECT_EQ(Lines{}, take_log_lines(true));
}
