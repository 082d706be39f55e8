/* From the digest status to the hand-off, and what each failure on the way leaves. */
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mlist/mlist.h"
#include "tests/pipeline/pipeline.h"
#include "tests/support/fault_os.h"

class Distribution : public PipelineTest
{
};

TEST_F(Distribution, AListWithoutActiveFileArchivesAndSendsNothing)
{
    unlink(path("active").c_str());
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ("", reply());
    EXPECT_TRUE(host.submissions.empty());
    EXPECT_NE("", archived(1));
    EXPECT_TRUE(list_directory(path("jnl")).empty());
    EXPECT_TRUE(logged(244, "mlname=mylist notexist_active active file not exist"));
    expect_nothing_lost_or_left();
}

TEST_F(Distribution, AnEmptyActiveFileIsNobodyToSendTo)
{
    list.put("active", "");
    EXPECT_EQ(0, post_plain());
    EXPECT_TRUE(host.submissions.empty());
    EXPECT_TRUE(logged(245, "mlname=mylist notexist_active active file empty"));
}

TEST_F(Distribution, AHostThatCannotQueueIsAskedAgainLater)
{
    host.accept = 0;
    EXPECT_EQ(75, post_plain());
    EXPECT_EQ("537 mailfile fail (ex_tempfail) [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(413, "mlname=mylist mlist mailfile2 fail"));
    EXPECT_EQ((std::vector<std::string>{"2"}), list_directory(path("jnl")));
    EXPECT_EQ(archived(1), list.get("jnl/2"));
    expect_nothing_lost_or_left();

    host.accept = 1;
    EXPECT_EQ(0, post_plain()) << "the retry is a posting of its own";
    EXPECT_EQ("1-2", list.get("dgtstat"));
}

TEST_F(Distribution, TheListIsUnlockedBeforeTheHandOff)
{
    static std::string lock_path;
    static bool free_at_submit;
    lock_path = path("lock");
    host.request.submit = [](const char *, const char *, const char *const *, const char *,
                             char *) {
        const int fd = open(lock_path.c_str(), O_RDWR | O_CLOEXEC);
        free_at_submit = flock(fd, LOCK_EX | LOCK_NB) == 0;
        close(fd);
        return 1;
    };
    EXPECT_EQ(0, post_plain());
    EXPECT_TRUE(free_at_submit);
    list.put("init", init_with({"vstrml=deny"}));
    EXPECT_EQ(0, post("From: s@example.org\r\n\r\nx\r\n"));
    EXPECT_FALSE(free_at_submit) << "a notice is handed over under the lock";
}

TEST_F(Distribution, ABrokenDigestStatusIs532AndArchivesNothing)
{
    list.put("dgtstat", "1\r\n2\r\n");
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ("532 set dgtstat fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(list_directory(list.box("#msg")).empty());
    EXPECT_EQ("1\r\n2\r\n", list.get("dgtstat"));
    expect_nothing_lost_or_left();
}

TEST_F(Distribution, ADigestStatusOnAFullDiskIs532AndForLater)
{
    FaultOs faults;
    faults.before = [&](const std::string &call, const std::string &file) {
        return call == "open" && file == path("dgtstat.old") ? ENOSPC : 0; /* the draft */
    };
    EXPECT_EQ(69, post_plain()) << "an open marks nothing";
    EXPECT_EQ("532 set dgtstat fail [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(Distribution, AFailedReplacementOfTheDigestStatusKeepsItsTextAndIsForLater)
{
    FaultOs faults;
    int opens = 0;
    faults.before = [&](const std::string &call, const std::string &file) {
        return call == "open" && file == path("dgtstat.old") && ++opens == 2 ? EIO : 0;
    };
    EXPECT_EQ(75, post_plain());
    EXPECT_TRUE(reply().starts_with("472 copy newfile to oldfile ")) << reply();
}

TEST_F(Distribution, AnArchiveThatRefusesTheMessageIs534)
{
    FaultOs faults;
    faults.before = [&](const std::string &call, const std::string &file) {
        return call == "link" && file == list.box("#msg/1") ? ENOSPC : 0;
    };
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ("534 can't deliver mbox [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(list_directory(list.box("#msg")).empty());
    EXPECT_EQ("1", list.get("dgtstat"));
    faults.before = nullptr;

    EXPECT_EQ(0, post_plain()) << "the retry takes the same number";
    EXPECT_EQ("1,1", list.get("dgtstat"));
    EXPECT_NE(std::string::npos, archived(1).find("X-Mail-Count: 000001\r\n"));
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ("1,1-2", list.get("dgtstat"));
    expect_nothing_lost_or_left();
}

TEST_F(Distribution, AJournalThatCannotBeMovedIs536AndItsArchivedCopyStaysWhole)
{
    mkdir(path("jnl/2").c_str(), 0700);
    write_file(path("jnl/2/in-the-way"), "");
    EXPECT_EQ(69, post_plain());
    const std::string text = "536 can't move [ml=mylist] ";
    EXPECT_TRUE(reply().starts_with(text)) << reply();
    const std::string first = archived(1);
    EXPECT_NE("", first);
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ(first, archived(1)) << "the thread's next journal must not reuse the inode";
}

TEST_F(Distribution, TheKeepCountTrimsTheOldest)
{
    list.put("init", init_with({"journal=3"}));
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(0, post_plain());
    EXPECT_EQ((std::vector<std::string>{"3", "4", "5"}), list_directory(list.box("#msg")));
    EXPECT_EQ(6u, index_words()[0]);
    EXPECT_EQ(4u * 4, index_words().size());
}

TEST_F(Distribution, ANegativeKeepCountLeavesTheNewMessageOnly)
{
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(0, post_plain());
    list.put("init", init_with({"journal=-5"}));
    ASSERT_EQ(0, post_plain());
    EXPECT_EQ((std::vector<std::string>{"4"}), list_directory(list.box("#msg")));
}

TEST_F(Distribution, FilesHaveTheModesOfTheirKind)
{
    ASSERT_EQ(0, post_plain());
    struct stat status;
    ASSERT_EQ(0, stat(list.box("#msg/1").c_str(), &status));
    EXPECT_EQ(0660u, status.st_mode & 0777);
    ASSERT_EQ(0, stat(list.box("#mix").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
}
