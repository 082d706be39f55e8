/* "grant" and "subscribe" as tools change them. */
#include "mlist/admin.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "store/file.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"

class AccessLists : public ::testing::Test
{
  protected:
    AccessLists() { session = mlist_session_open("mylist", "example.jp"); }
    ~AccessLists() override { mlist_session_close(session); }

    std::vector<std::string> entries(const char *file)
    {
        std::vector<std::string> seen;
        EXPECT_EQ(0, mlist_access_each(
                         session, file,
                         [](const char *text, void *argument) {
                             static_cast<std::vector<std::string> *>(argument)->push_back(text);
                             return 0;
                         },
                         &seen));
        return seen;
    }

    /* What the list itself says about a sender. */
    bool may_post(const char *address)
    {
        char line[LINE_SIZE];
        EXPECT_EQ(0, get_grant(list.job(), address, line));
        return line[0] != '\0';
    }
    bool may_subscribe(const char *address)
    {
        char line[LINE_SIZE];
        EXPECT_EQ(0, get_subscribe(list.job(), address, line));
        return line[0] != '\0';
    }

    TempList list;
    ListSession *session;
};

using Texts = std::vector<std::string>;

TEST_F(AccessLists, EntriesAreAddedOnceAndRemoved)
{
    EXPECT_EQ(1, mlist_access_add(session, "grant", "A@x.jp"));
    EXPECT_EQ(0, mlist_access_add(session, "grant", "a@X.JP"));
    EXPECT_EQ(1, mlist_access_add(session, "grant", "b@x.jp"));
    EXPECT_EQ("A@x.jp\r\nb@x.jp\r\n", list.get("grant"));
    EXPECT_EQ((Texts{"A@x.jp", "b@x.jp"}), entries("grant"));
    EXPECT_TRUE(may_post("a@x.jp"));
    EXPECT_FALSE(may_post("c@x.jp"));

    EXPECT_EQ(1, mlist_access_remove(session, "grant", "a@x.jp"));
    EXPECT_EQ(0, mlist_access_remove(session, "grant", "a@x.jp"));
    EXPECT_EQ(1, mlist_access_remove(session, "grant", "b@x.jp"));
    EXPECT_EQ("", list.get("grant")) << "open again";
    EXPECT_EQ("", list.get("subscribe"));
}

TEST_F(AccessLists, PatternsDependOnCase)
{
    EXPECT_EQ(1, mlist_access_add(session, "subscribe", "*.example.jp"));
    EXPECT_EQ(1, mlist_access_add(session, "subscribe", "*.EXAMPLE.jp"));
    EXPECT_EQ(1, mlist_access_add(session, "subscribe", "example.net"));
    EXPECT_EQ(0, mlist_access_add(session, "subscribe", "EXAMPLE.net"));
    EXPECT_TRUE(may_subscribe("a@lists.example.jp"));
    EXPECT_FALSE(may_subscribe("a@example.org"));
    EXPECT_EQ(0, mlist_access_remove(session, "subscribe", "*.Example.jp"));
    EXPECT_EQ(1, mlist_access_remove(session, "subscribe", "*.EXAMPLE.jp"));
    EXPECT_EQ((Texts{"*.example.jp", "example.net"}), entries("subscribe"));
}

TEST_F(AccessLists, LinesOfAnEditorAreUnderstood)
{
    list.put("grant", "\t a@x.jp  \n\n   \nb@x.jp\r\na@x.jp\nc@x.jp");
    EXPECT_EQ((Texts{"a@x.jp", "b@x.jp", "a@x.jp", "c@x.jp"}), entries("grant"));
    EXPECT_EQ(0, mlist_access_add(session, "grant", "a@x.jp"));
    EXPECT_EQ("\t a@x.jp  \n\n   \nb@x.jp\r\na@x.jp\nc@x.jp", list.get("grant"));
    EXPECT_EQ(1, mlist_access_add(session, "grant", "d@x.jp"));
    EXPECT_TRUE(may_post("c@x.jp")) << "a last line without an end keeps to itself";
    EXPECT_TRUE(may_post("d@x.jp"));
    EXPECT_EQ(1, mlist_access_remove(session, "grant", "a@x.jp"));
    EXPECT_EQ("b@x.jp\r\nc@x.jp\r\nd@x.jp\r\n", list.get("grant"));
}

TEST_F(AccessLists, TheLastEntryLeavesNoEmptyLinesBehind)
{
    list.put("grant", "\r\na@x.jp\r\n  \r\n");
    EXPECT_EQ(1, mlist_access_remove(session, "grant", "a@x.jp"));
    EXPECT_EQ("", list.get("grant")) << "lines of blanks would shut everybody out";
}

TEST_F(AccessLists, WhatIsNoEntryNeverReachesTheFile)
{
    for (const char *text : {"", " ", "a b@x.jp", "a@x.jp\r\nb@x.jp", "a\tb@x.jp", "a@x.jp\n",
                             "\x7f@x.jp", "*@x.jp", "*"}) {
        errno = 0;
        EXPECT_EQ(-1, mlist_access_add(session, "grant", text)) << text;
        EXPECT_EQ(EINVAL, errno) << text;
    }
    EXPECT_EQ(-1, mlist_access_add(session, "grant", std::string(1001, 'a').c_str()));
    EXPECT_EQ(1, mlist_access_add(session, "grant", std::string(1000, 'a').c_str()));
    EXPECT_EQ(1, mlist_access_remove(session, "grant", std::string(1000, 'a').c_str()));
    EXPECT_EQ(-1, mlist_access_add(session, "subscribe", "*"));
    EXPECT_EQ(-1, mlist_access_remove(session, "subscribe", ""));
    for (const char *file : {"member", "", "../grant", "init"}) {
        EXPECT_EQ(-1, mlist_access_add(session, file, "a@x.jp")) << file;
        EXPECT_EQ(-1, mlist_access_remove(session, file, "a@x.jp")) << file;
        EXPECT_EQ(-1, mlist_access_each(
                          session, file, [](const char *, void *) { return 0; }, nullptr))
            << file;
        EXPECT_EQ(EINVAL, errno) << file;
    }
    EXPECT_EQ("", list.get("grant"));
    EXPECT_EQ("", list.get("subscribe"));
    EXPECT_EQ("", list.get("member"));
}

TEST_F(AccessLists, MembersHaveToBeOneWordToo)
{
    for (const char *text : {"", "a b@x.jp", "a@x.jp ON \r\nb@x.jp", "a@x.jp\t"}) {
        errno = 0;
        EXPECT_EQ(-1, mlist_member_add(session, text)) << text;
        EXPECT_EQ(EINVAL, errno) << text;
    }
    EXPECT_EQ("", list.get("member"));
}

TEST_F(AccessLists, AMissingFileIsAFailure)
{
    unlink(list.control("grant").c_str());
    EXPECT_EQ(-1, mlist_access_add(session, "grant", "a@x.jp"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(-1, mlist_access_remove(session, "grant", "a@x.jp"));
    EXPECT_EQ(-1, mlist_access_each(
                      session, "grant", [](const char *, void *) { return 0; }, nullptr));
    EXPECT_FALSE(exists(list.control("grant")));
    EXPECT_TRUE(logged(442, "mlname=mylist access list open error No such file or directory [" +
                                list.control("grant") + "]"));
}

TEST_F(AccessLists, AVisitorMayStop)
{
    list.put("grant", "a@x.jp\r\nb@x.jp\r\n");
    int calls = 0;
    EXPECT_EQ(7, mlist_access_each(
                     session, "grant",
                     [](const char *, void *argument) {
                         ++*static_cast<int *>(argument);
                         return 7;
                     },
                     &calls));
    EXPECT_EQ(1, calls);
}

/* Every changing call fails, or is the last one of the process. */
TEST_F(AccessLists, AChangeCutShortLeavesTheOldListOrTheNewOne)
{
    const std::string before = "a@x.jp\r\nb@x.jp\r\n";
    for (const int error : {EIO, ENOSPC, -1}) {
        for (const bool adding : {true, false}) {
            bool disturbed = true;
            for (int nth = 0; disturbed; ++nth) {
                list.put("grant", before);
                int result;
                {
                    FaultOs fault;
                    fault.fail_nth_change(nth, error);
                    result = adding ? mlist_access_add(session, "grant", "c@x.jp")
                                    : mlist_access_remove(session, "grant", "a@x.jp");
                    disturbed = fault.disturbed();
                }
                ASSERT_EQ(0, f_recover(list.control("grant").c_str()));
                const std::string after = adding ? before + "c@x.jp\r\n" : "b@x.jp\r\n";
                const std::string now = list.get("grant");
                EXPECT_TRUE(now == before || now == after)
                    << now << " after " << nth << " with " << error;
                EXPECT_TRUE(result != 1 || now == after) << "done, and yet not there";
                unlink(list.control("grant.old").c_str());
                ASSERT_LT(nth, 100);
            }
        }
    }
}
