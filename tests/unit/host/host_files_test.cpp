/* Files and directories as the daemon and the tool read and make them. */
#include "host/base/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "host/base/fd.h"
#include "tests/unit/host/scratch.h"

/* The program's own: tells what was synced, in order. */
static std::vector<std::string> synced;

extern "C" int fsync(int fd)
{
    synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)));
    return static_cast<int>(syscall(SYS_fsync, fd));
}

class Files : public testing::Test
{
  protected:
    Files() { synced.clear(); }
    Scratch scratch;
};

TEST_F(Files, AreLoadedWhole)
{
    const std::string text = std::string(200'000, 'x') + std::string("\0end", 4);
    EXPECT_EQ(text, *load_file(scratch.write("large", text)));
    EXPECT_EQ("", *load_file(scratch.write("empty", "")));
}

TEST_F(Files, ThatCannotBeReadAreNamed)
{
    const auto missing = load_file(scratch.path("none"));
    ASSERT_FALSE(missing);
    EXPECT_EQ(ENOENT, missing.error().code);
    EXPECT_EQ(scratch.path("none") + ": No such file or directory", missing.error().text);
    EXPECT_EQ(EISDIR, load_file(scratch.path()).error().code);
    ASSERT_EQ(0, mkfifo(scratch.path("pipe").c_str(), 0600));
    EXPECT_EQ(EINVAL, load_file(scratch.path("pipe")).error().code) << "and nobody waits for it";
}

TEST_F(Files, ARangeIsReadUpToTheEnd)
{
    const Fd file(open(scratch.write("file", "0123456789").c_str(), O_RDONLY | O_CLOEXEC));
    char data[8] = "";
    EXPECT_EQ(3, read_range(file.get(), 2, data, 3));
    EXPECT_STREQ("234", data);
    EXPECT_EQ(2, read_range(file.get(), 8, data, 8));
    EXPECT_EQ(0, read_range(file.get(), 10, data, 8));
    EXPECT_EQ(-1, read_range(-1, 0, data, 8));
}

/* The crash of a machine forgets a name whose directory was not synced, and all that is below. */
TEST_F(Files, EachNewDirectoryHasItsNameSynced)
{
    ASSERT_TRUE(make_path(scratch.path("a/b/c")));
    EXPECT_TRUE(std::filesystem::is_directory(scratch.path("a/b/c")));
    EXPECT_EQ((std::vector<std::string>{scratch.path(), scratch.path("a"), scratch.path("a/b")}),
              synced);
    synced.clear();
    EXPECT_TRUE(make_path(scratch.path("a/b/c")));
    EXPECT_TRUE(make_path(scratch.path("a/b/c/")));
    EXPECT_TRUE(make_path("/"));
    EXPECT_TRUE(make_path("."));
    EXPECT_TRUE(synced.empty()) << "what is there stays as it is";
    EXPECT_TRUE(make_path(scratch.path("d/")));
    EXPECT_EQ(std::vector<std::string>{scratch.path()}, synced);
}

TEST_F(Files, ADirectoryIsMadeWithItsMode)
{
    const mode_t mask = umask(027);
    ASSERT_TRUE(make_path(scratch.path("open")));
    ASSERT_TRUE(make_path(scratch.path("closed"), 0700));
    umask(mask);
    struct stat status;
    ASSERT_EQ(0, stat(scratch.path("open").c_str(), &status));
    EXPECT_EQ(0750u, status.st_mode & 0777u);
    ASSERT_EQ(0, stat(scratch.path("closed").c_str(), &status));
    EXPECT_EQ(0700u, status.st_mode & 0777u);
}

TEST_F(Files, AFileInTheWayOfADirectoryIsAnError)
{
    scratch.write("file", "");
    for (const char *name : {"file", "file/below"}) {
        const auto made = make_path(scratch.path(name));
        ASSERT_FALSE(made) << name;
        EXPECT_EQ(ENOTDIR, made.error().code) << name;
        EXPECT_TRUE(made.error().text.starts_with(scratch.path("file"))) << name;
    }
}

TEST_F(Files, ALinkToNowhereIsNoDirectory)
{
    ASSERT_EQ(0, symlink("/nonexistent/directory", scratch.path("link").c_str()));
    EXPECT_FALSE(make_path(scratch.path("link")));
}
