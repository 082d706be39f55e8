/* Sessions of tools with one list. */
#include "mlist/admin.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"

class Admin : public ::testing::Test
{
  protected:
    Admin() { session = mlist_session_open("mylist", "example.jp"); }
    ~Admin() override { mlist_session_close(session); }

    std::vector<std::string> members()
    {
        std::vector<std::string> seen;
        EXPECT_EQ(0, mlist_member_each(
                         session,
                         [](const char *address, int status, void *argument) {
                             static_cast<std::vector<std::string> *>(argument)->push_back(
                                 std::string(address) + ":" + std::to_string(status));
                             return 0;
                         },
                         &seen));
        return seen;
    }

    TempList list;
    ListSession *session;
};

TEST_F(Admin, ASessionHoldsTheListLock)
{
    ASSERT_NE(nullptr, session);
    const int fd = open(list.control("lock").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(-1, flock(fd, LOCK_EX | LOCK_NB));
    mlist_session_close(session);
    session = nullptr;
    EXPECT_EQ(0, flock(fd, LOCK_EX | LOCK_NB));
    close(fd);
}

TEST_F(Admin, BadNamesAndMissingListsHaveNoSession)
{
    for (const char *name : {"", ".", "..", "a/b", "a\nb", "123456789012345678901234567890123"}) {
        EXPECT_EQ(nullptr, mlist_session_open(name, "example.jp")) << name;
        EXPECT_EQ(EINVAL, errno) << name;
    }
    EXPECT_EQ(nullptr, mlist_session_open("mylist", "a/b"));
    EXPECT_EQ(nullptr, mlist_session_open("nolist", "example.jp"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(exists(list.root() + "/control/example.jp/nolist"));
}

TEST_F(Admin, MembersAreAddedOnceChangedAndRemoved)
{
    EXPECT_EQ(1, mlist_member_add(session, "A@x.jp"));
    EXPECT_EQ(0, mlist_member_add(session, "a@X.JP"));
    EXPECT_EQ(1, mlist_member_add(session, "b@x.jp"));
    EXPECT_EQ((std::vector<std::string>{"A@x.jp:1", "b@x.jp:1"}), members());
    EXPECT_EQ("A@x.jp\r\nb@x.jp\r\n", list.get("active"));

    EXPECT_EQ(1, mlist_member_set_status(session, "a@x.jp", 3));
    EXPECT_EQ(0, mlist_member_set_status(session, "c@x.jp", 3));
    EXPECT_EQ(3, mlist_member_status(session, "a@x.jp"));
    EXPECT_EQ(0, mlist_member_status(session, "c@x.jp"));
    EXPECT_EQ("A@x.jp\r\n", list.get("digest"));

    EXPECT_EQ(1, mlist_member_remove(session, "a@x.jp"));
    EXPECT_EQ(0, mlist_member_remove(session, "a@x.jp"));
    EXPECT_EQ("", list.get("digest"));
    EXPECT_EQ("b@x.jp ON \r\n", list.get("member"));
}

TEST_F(Admin, RemovingAnAddressOfSeveralLinesUpdatesBothFiles)
{
    list.put("member", "a@x.jp ON \r\nb@x.jp ON \r\na@x.jp DGT\r\n");
    list.put("active", "a@x.jp\r\nb@x.jp\r\n");
    list.put("digest", "a@x.jp\r\n");
    EXPECT_EQ(1, mlist_member_remove(session, "a@x.jp"));
    EXPECT_EQ("b@x.jp\r\n", list.get("active"));
    EXPECT_EQ("", list.get("digest"));
}

TEST_F(Admin, DerivedFilesAreRewrittenOnlyWhereTheyDisagree)
{
    list.put("member", "a@x.jp ON \r\nnoise\r\nb@x.jp DGT\r\nc@x.jp ON \r\n");
    EXPECT_EQ(1, mlist_derive(session, "active"));
    EXPECT_EQ("a@x.jp\r\nc@x.jp\r\n", list.get("active"));
    EXPECT_EQ(0, mlist_derive(session, "active"));
    list.put("active", "a@x.jp\r\nc@x.jp\r\nextra@x.jp\r\n");
    EXPECT_EQ(1, mlist_derive(session, "active"));
    list.put("active", "a@x.jp\r\n");
    EXPECT_EQ(1, mlist_derive(session, "active"));
    EXPECT_EQ(1, mlist_derive(session, "digest"));
    EXPECT_EQ(0, mlist_derive(session, "digest"));
    EXPECT_EQ(-1, mlist_derive(session, "member"));
}

TEST_F(Admin, ReplyTextsOfFailedOperationsAreKept)
{
    EXPECT_STREQ("", mlist_session_reply(session));
    mkdir(list.control("member.new").c_str(), 0700);
    write_file(list.control("member.new/in-the-way"), "");
    EXPECT_EQ(-1, mlist_member_add(session, "a@x.jp"));
    EXPECT_EQ(("475 f_reover disk full " + list.control("member")).substr(0, 126),
              mlist_session_reply(session));
}

TEST_F(Admin, MissingFilesAreMade)
{
    for (const char *name : {"digest", "active", "member", "status", "dgtstat", "confirm"})
        unlink(list.control(name).c_str());
    rmdir(list.control("msg").c_str());
    EXPECT_EQ(0, mlist_session_check_files(session));
    for (const char *name : {"digest", "active", "member", "status", "dgtstat", "confirm", "msg"})
        EXPECT_TRUE(exists(list.control(name))) << name;
}

TEST_F(Admin, AMissingRosterIsAFailureNotAnEmptyList)
{
    unlink(list.control("member").c_str());
    EXPECT_EQ(-1, mlist_member_status(session, "a@x.jp"));
    EXPECT_EQ(-1, mlist_member_remove(session, "a@x.jp"));
    EXPECT_EQ(-1, mlist_member_each(
                      session, [](const char *, int, void *) { return 0; }, nullptr));
    EXPECT_EQ(-1, mlist_derive(session, "active"));
}
