/* A disk that is really full: a small tmpfs in a mount namespace of the test's own. */
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/pipeline/pipeline.h"

/* Mounted over; the incoming messages stay on the disk below /tmp. */
#define SMALL_DISK "/mnt"

/* Where the trees of this test lie; each case runs in a child that mounts a small file system
   there, so that nothing stays mounted. */
class SmallDisk
{
  public:
    explicit SmallDisk(const char *size)
    {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return;
        const std::string options = std::string("size=") + size;
        usable_ = mount("tmpfs", SMALL_DISK, "tmpfs", 0, options.c_str()) == 0;
        setenv("TMPDIR", SMALL_DISK, 1);
    }
    bool usable() const { return usable_; }

  private:
    bool usable_ = false;
};

/* Fills the file system until nothing more fits, then frees room bytes again. */
static void fill_disk(size_t room)
{
    const std::string block(4096, 'f');
    std::string path = SMALL_DISK "/filler";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    off_t size = 0;
    for (ssize_t n; (n = write(fd, block.data(), block.size())) > 0;)
        size += n;
    ASSERT_EQ(ENOSPC, errno);
    ASSERT_EQ(0, ftruncate(fd, size - static_cast<off_t>(room)));
    close(fd);
}

/* Runs the body in a child process and reports what it reported. */
template <class Body> static void in_child(Body body)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        body();
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "see the lines above";
}

namespace
{
class OnDisk : public PipelineTest
{
  public:
    OnDisk() { message_file = incoming / "message"; }
    void TestBody() override {}
    void try_with_room(size_t room)
    {
        ASSERT_EQ(0, post_plain());
        const std::string first = archived(1);
        fill_disk(room);
        const int code = post_plain({}, std::string(30000, 'x') + "\r\n");
        EXPECT_TRUE(code == 0 || code == 75 || code == 69) << code;
        if (code != 0) {
            EXPECT_NE("", reply());
        }
        EXPECT_EQ(first, archived(1)) << "room " << room;
        unlink(SMALL_DISK "/filler");
        /* With room again the list works on, and nothing that was accepted is gone. */
        EXPECT_EQ(0, post_plain()) << reply() << " room " << room;
        const std::vector<uint32_t> words = index_words();
        EXPECT_EQ(list_directory(list.box("#msg")).size() + 1, words.size() / 4) << "room " << room;
        EXPECT_EQ("alice@example.net ON \r\nbob@example.jp ON \r\n", list.get("member"));
        EXPECT_EQ(sample_init(), list.get("init"));
        expect_nothing_lost_or_left();
    }
    TempDir incoming{"/tmp"};
    void journal_on_a_full_disk()
    {
        fill_disk(8192);
        EXPECT_EQ(75, post_plain({}, std::string(60000, 'x') + "\r\n"));
        EXPECT_EQ("480 fputs disk full [ml=mylist]", reply());
    }
};
} // namespace

TEST(FullDisk, ARefusalOrARetryButNothingLostAtAnyFillLevel)
{
    in_child([] {
        const SmallDisk disk("512k");
        if (!disk.usable()) {
            printf("no mount namespace here: the test needs root (CAP_SYS_ADMIN)\n");
            ADD_FAILURE();
            return;
        }
        for (size_t room = 0; room <= 120000; room += 4096) {
            OnDisk list;
            list.try_with_room(room);
        }
    });
}

TEST(FullDisk, TheJournalOnAFullDiskIs480AndForLater)
{
    in_child([] {
        const SmallDisk disk("512k");
        ASSERT_TRUE(disk.usable()) << "no mount namespace here: the test needs CAP_SYS_ADMIN";
        OnDisk list;
        list.journal_on_a_full_disk();
    });
}
