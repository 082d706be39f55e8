/* Adding and removing members. */
#include "store/file.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "module/tcb.h"
#include "store/ntio.h"
#include "tests/support/fake_host.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/control_fault.h"

namespace
{
const char three_members[] = "alice@example.net ON \r\n"
                             "Bob@Example.jp OFF\r\n"
                             "carol@example.com DGT\r\n";

/* -- adding -- */

TEST(AddMember, AppendsALineWithTheDefaultStatus)
{
    static const struct {
        int status;
        const char *line;
    } rows[] = {{0, "New@x QUT\r\n"}, {1, "New@x ON \r\n"},  {2, "New@x OFF\r\n"},
                {3, "New@x DGT\r\n"}, {-1, "New@x ON \r\n"}, {4, "New@x ON \r\n"}};
    for (const auto &row : rows) {
        TempList list;
        list.put("member", three_members);
        list.job()->settings.default_status = row.status;
        EXPECT_EQ(0, add_member(list.job(), "New@x"));
        EXPECT_EQ(std::string(three_members) + row.line, list.get("member")) << row.status;
        EXPECT_FALSE(exists(list.control("member.new")));
        EXPECT_FALSE(exists(list.control("member.old")));
    }
}

TEST(AddMember, AnEmptyOrMissingRosterIsMadeWithOneLine)
{
    TempList list;
    EXPECT_EQ(0, add_member(list.job(), "a@b"));
    EXPECT_EQ("a@b ON \r\n", list.get("member"));
    remove(list.control("member").c_str());
    EXPECT_EQ(0, add_member(list.job(), "c@d"));
    EXPECT_EQ("c@d ON \r\n", list.get("member"));
}

TEST(AddMember, AMemberIsReportedByStatusAndNothingChanges)
{
    TempList list;
    const std::string roster = std::string(three_members) + "dave@x QUT\r\nerin@x ONX\r\n";
    list.put("member", roster);
    static const struct {
        const char *address;
        int status;
    } rows[] = {{"alice@example.net", 1}, {"bob@example.jp", 2}, {"BOB@EXAMPLE.JP", 2},
                {"carol@example.com", 3}, {"dave@x", 0},         {"erin@x", 1}};
    for (const auto &row : rows) {
        EXPECT_EQ(row.status, add_member(list.job(), row.address)) << row.address;
        EXPECT_EQ(roster, list.get("member")) << row.address;
        EXPECT_FALSE(exists(list.control("member.new"))) << row.address;
    }
}

TEST(AddMember, ALastLineWithoutALineEndStaysALineOfItsOwn)
{
    TempList list;
    list.put("member", "a@b ON \r\nc@d OFF");
    EXPECT_EQ(0, add_member(list.job(), "e@f"));
    EXPECT_EQ("a@b ON \r\nc@d OFF\r\ne@f ON \r\n", list.get("member"));
    list.put("member", "a@b ON \nc@d OFF\n");
    EXPECT_EQ(0, add_member(list.job(), "e@f"));
    EXPECT_EQ("a@b ON \r\nc@d OFF\r\ne@f ON \r\n", list.get("member"));
}

TEST(AddMember, LinesThatAreNoMembersAreCarriedAlong)
{
    TempList list;
    list.put("member", "\r\ncomment\r\n  \r\na@b ON \r\n");
    EXPECT_EQ(0, add_member(list.job(), "comment"));
    EXPECT_EQ("\r\ncomment\r\n  \r\na@b ON \r\ncomment ON \r\n", list.get("member"));
}

TEST(AddMember, AnAddressThatWouldNotBeOneLineIsRefused)
{
    TempList list;
    list.put("member", three_members);
    for (const std::string &address :
         {std::string("a@b ON \r\nmallory@x"), std::string(4090, 'a'), std::string(9000, 'a')}) {
        EXPECT_EQ(-1, add_member(list.job(), address.c_str()));
        EXPECT_EQ(0, f_recover(list.control("member").c_str()));
        EXPECT_EQ(three_members, list.get("member"));
    }
    EXPECT_EQ(0, add_member(list.job(), std::string(4089, 'a').c_str()));
    EXPECT_EQ(std::string(4089, 'a') + " ON \r\n", found_line(list, std::string(4089, 'a')));
    (void)take_log();
}

TEST(AddMember, AnOldCommitMarkDoesNotMakeAHalfWrittenRosterCount)
{
    TempList list;
    list.put("member", three_members);
    list.put("member.old", "left by a crash");
    {
        FaultOs faults;
        int writes = 0;
        faults.before = [&](const std::string &call, const std::string &) {
            return call == "write" && ++writes == 1 ? -1 : 0;
        };
        EXPECT_EQ(-1, add_member(list.job(), "new@x"));
    }
    EXPECT_EQ(0, f_recover(list.control("member").c_str()));
    EXPECT_EQ(three_members, list.get("member"));
    (void)take_log();
}

TEST(AddMember, ALongRosterTakesNoSystemCallALine)
{
    TempList list;
    std::string roster;
    for (int i = 0; i < 20000; ++i)
        roster += "member" + std::to_string(i) + "@example.net ON \r\n";
    list.put("member", roster);
    FaultOs faults;
    EXPECT_EQ(0, add_member(list.job(), "new@x"));
    EXPECT_LT(faults.calls.size(), 20000u / 20);
    EXPECT_TRUE(roster + "new@x ON \r\n" == list.get("member"));
}

TEST(AddMember, LinesAtTheBordersOfReadBlocksStayAsTheyAre)
{
    for (size_t first = 20; first < 60; ++first) {
        TempList list;
        std::string roster(first, 'x');
        roster += "\r\n";
        for (int i = 0; i < 700; ++i)
            roster.append("m").append(std::to_string(1000 + i)).append("@example.net ON \r\n");
        list.put("member", roster);
        EXPECT_EQ(0, add_member(list.job(), "new@x")) << first;
        EXPECT_TRUE(roster + "new@x ON \r\n" == list.get("member")) << first;
    }
}

struct FailRow {
    const char *label;
    const char *call, *ending;
    int turn, error;
    const char *line; /* of the log */
};

/* Each row's call fails; the operation must answer -1 and log the row's line, and the roster must
   stay as it was or become what it was to be. */
void check_failures(const FailRow *rows, size_t count, const std::function<int(TempList &)> &run)
{
    for (size_t i = 0; i < count; ++i) {
        const FailRow &row = rows[i];
        TempList list;
        list.put("member", three_members);
        (void)take_log();
        FakeHost host;
        tcbcreate(&host.request);
        OutCapture out;
        {
            FaultOs faults;
            faults.before = fail_call(row.call, row.ending, row.turn, row.error);
            EXPECT_EQ(-1, run(list)) << row.label;
            EXPECT_EQ(row.error, errno) << row.label;
        }
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, row.line)) << row.label << "\n" << joined(log);
        EXPECT_EQ(0, f_recover(list.control("member").c_str())) << row.label;
        const std::string left = list.get("member");
        EXPECT_TRUE(left == three_members || left == std::string(three_members) + "new@x ON \r\n")
            << row.label << "\n"
            << left;
        tcbfree();
        EXPECT_EQ(0, host.live_blocks) << row.label;
        (void)take_log();
    }
}

TEST(AddMember, EachFailedStepHasItsText)
{
    static const FailRow rows[] = {
        {"new file", "open", "/member.new", 0, EACCES,
         "1/159 mlname=mylist add_member f_open1 error Permission denied [CTL/member.new]"},
        {"roster", "open", "/member", 0, EACCES,
         "1/160 mlname=mylist add_member f_open2 error Permission denied [CTL/member]"},
        {"lines", "write", "", 0, ENOSPC,
         "1/161 add_member mlname=mylist fputs1 error No space left on device [CTL/member.new]"},
        {"reading", "read", "", 0, EIO,
         "1/162 mlname=mylist add_member fgets error Input/output error [CTL/member]"},
        {"new line", "write", "", 1, ENOSPC,
         "1/163 mlname=mylist add_member fputs2 error No space left on device [CTL/member.new]"},
        {"closing", "fsync", "", 1, EIO,
         "1/164 mlname=mylist add_member f_close error Input/output error [CTL/member.new]"},
        {"replacing", "open", "/member.old", 0, EACCES,
         "1/165 mlname=mylist add_member renew error Permission denied [CTL/member]"},
    };
    check_failures(rows, std::size(rows),
                   [](TempList &list) { return add_member(list.job(), "new@x"); });
}

TEST(AddMember, AFailedWriteMarksATemporaryFailureAndOneThatIsShortToo)
{
    for (const bool is_short : {false, true}) {
        TempList list;
        list.put("member", three_members);
        FakeHost host;
        tcbcreate(&host.request);
        OutCapture out;
        (void)take_log();
        {
            FaultOs faults;
            if (is_short)
                faults.short_write = 5;
            else
                faults.before = full_disk_after(0);
            EXPECT_EQ(-1, add_member(list.job(), "new@x"));
        }
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, is_short ? "1/161 add_member mlname=mylist fputs1 error Success "
                                             "[CTL/member.new]"
                                           : "1/161 add_member mlname=mylist fputs1 error No space "
                                             "left on device [CTL/member.new]"))
            << joined(log);
        EXPECT_EQ(75, get_rcode());
        tcbfree();
        EXPECT_EQ(0, f_recover(list.control("member").c_str()));
        EXPECT_EQ(three_members, list.get("member"));
        (void)take_log();
    }
}

TEST(AddMember, AFullDiskIsNoticedEvenWhenTheAddressIsThere)
{
    TempList list;
    list.put("member", three_members);
    OutCapture out;
    {
        FaultOs faults;
        faults.before = full_disk_after(0);
        EXPECT_EQ(-1, add_member(list.job(), "alice@example.net"));
    }
    EXPECT_TRUE(logged_prefix(161, "add_member mlname=mylist fputs1 error"));
    (void)take_log();
}

TEST(AddMember, DirectoriesInPlaceOfFilesAreFailures)
{
    {
        TempList list;
        mkdir(list.control("member.new").c_str(), 0700);
        (void)take_log();
        EXPECT_EQ(-1, add_member(list.job(), "a@b"));
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(
            log, "1/158 mlname=mylist add_member recover error Is a directory  [CTL/member]"))
            << joined(log);
    }
    {
        TempList list;
        remove(list.control("member").c_str());
        mkdir(list.control("member").c_str(), 0700);
        (void)take_log();
        EXPECT_EQ(-1, add_member(list.job(), "a@b"));
        const auto log = log_of(list);
        EXPECT_TRUE(
            has_line(log, "1/162 mlname=mylist add_member fgets error Is a directory [CTL/member]"))
            << joined(log);
    }
}

/* -- removing -- */

TEST(DelMember, RemovesTheLineAndTellsItsStatus)
{
    static const struct {
        const char *address;
        int status;
        const char *left;
    } rows[] = {
        {"ALICE@example.net", 1, "Bob@Example.jp OFF\r\ncarol@example.com DGT\r\n"},
        {"bob@example.jp", 2, "alice@example.net ON \r\ncarol@example.com DGT\r\n"},
        {"carol@example.com", 3, "alice@example.net ON \r\nBob@Example.jp OFF\r\n"},
        {"dave@example.jp", 0, three_members},
    };
    for (const auto &row : rows) {
        TempList list;
        list.put("member", three_members);
        EXPECT_EQ(row.status, del_member(list.job(), row.address)) << row.address;
        EXPECT_EQ(row.left, list.get("member")) << row.address;
        EXPECT_FALSE(exists(list.control("member.new")));
        EXPECT_FALSE(exists(list.control("member.old")));
    }
}

TEST(DelMember, RemovesEveryLineOfTheAddressAndTellsTheLastStatus)
{
    TempList list;
    list.put("member", "a@b ON \r\nc@d OFF\r\nA@B DGT\r\n");
    EXPECT_EQ(3, del_member(list.job(), "a@b"));
    EXPECT_EQ("c@d OFF\r\n", list.get("member"));
    list.put("member", "a@b ON \r\na@b QUT\r\n");
    EXPECT_EQ(0, del_member(list.job(), "a@b"));
    EXPECT_EQ("", list.get("member"));
}

TEST(DelMember, NeverJoinsLines)
{
    TempList list;
    list.put("member", "a@b ON \nno blank\n\nc@d OFF\ne@f DGT");
    EXPECT_EQ(2, del_member(list.job(), "c@d"));
    EXPECT_EQ("a@b ON \r\nno blank\r\n\r\ne@f DGT", list.get("member"));
    EXPECT_EQ(3, del_member(list.job(), "e@f"));
    EXPECT_EQ("a@b ON \r\nno blank\r\n\r\n", list.get("member"));
}

TEST(DelMember, TheRosterIsReplacedEvenWhenNothingWasRemoved)
{
    TempList list;
    list.put("member", three_members);
    FaultOs faults;
    EXPECT_EQ(0, del_member(list.job(), "nobody@x"));
    bool made_old = false;
    for (const std::string &call : faults.calls)
        made_old = made_old || call == "open " + list.control("member.old");
    EXPECT_TRUE(made_old);
}

TEST(DelMember, EachFailedStepHasItsText)
{
    static const FailRow rows[] = {
        {"roster", "open", "/member", 0, EACCES,
         "11/167 mlname=mylist del_member f_open1 error Permission denied [CTL/member]"},
        {"new file", "open", "/member.new", 0, EACCES,
         "11/168 mlname=mylist del_member f_open2 error Permission denied [CTL/member.new]"},
        {"lines", "write", "", 0, ENOSPC,
         "11/169 mlname=mylist del_member fputs error No space left on device [CTL/member.new]"},
        {"reading", "read", "", 0, EIO,
         "11/170 mlname=mylist del_member fgets error  Input/output error [CTL/member]"},
        {"closing", "fsync", "", 1, EIO,
         "11/171 mlname=mylist del_member close error  Input/output error [CTL/member.new]"},
        {"replacing", "open", "/member.old", 0, EACCES,
         "11/172 mlname=mylist del_member renew error Permission denied [CTL/member]"},
    };
    check_failures(rows, std::size(rows),
                   [](TempList &list) { return del_member(list.job(), "stranger@x"); });
}

TEST(DelMember, AMissingRosterAndAFailedRecoveryAreFailures)
{
    TempList list;
    remove(list.control("member").c_str());
    (void)take_log();
    EXPECT_EQ(-1, del_member(list.job(), "a@b"));
    EXPECT_EQ((std::vector<std::string>{"11/167 mlname=mylist del_member f_open1 error No such "
                                        "file or directory [CTL/member]"}),
              log_of(list));
    EXPECT_FALSE(exists(list.control("member.new")));
    mkdir(list.control("member.new").c_str(), 0700);
    EXPECT_EQ(-1, del_member(list.job(), "a@b"));
    const auto log = log_of(list);
    EXPECT_TRUE(
        has_line(log, "11/166 mlname=mylist del_member recover error  Is a directory [CTL/member]"))
        << joined(log);
}

} // namespace
