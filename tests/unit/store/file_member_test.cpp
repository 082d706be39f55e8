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

/* -- status words -- */

TEST(MemberStatus, TheStoredWordsAreThreeCharactersLong)
{
    EXPECT_STREQ("QUT", mi2ms[0]);
    EXPECT_STREQ("ON ", mi2ms[1]);
    EXPECT_STREQ("OFF", mi2ms[2]);
    EXPECT_STREQ("DGT", mi2ms[3]);
}

TEST(MemberStatus, WordsAreReadByTheirFirstCharacters)
{
    static const struct {
        const char *word;
        int status;
        const char *shown;
    } rows[] = {
        {"ON \r\n", 1, "ON"},  {"ON", 1, "ON"},     {"on\r\n", 1, "ON"},   {"ONX\r\n", 1, "ON"},
        {"OFF\r\n", 2, "OFF"}, {"off", 2, "OFF"},   {"OFFLINE", 2, "OFF"}, {"OF", 0, "QUIT"},
        {"DGT\r\n", 3, "DGT"}, {"dgtx", 3, "DGT"},  {"DG\r\n", 0, "QUIT"}, {"QUT\r\n", 0, "QUIT"},
        {"", 0, "QUIT"},       {" ON ", 0, "QUIT"}, {"O", 0, "QUIT"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.status, ms2mi(row.word)) << row.word;
        EXPECT_STREQ(row.shown, get_status(("a@b " + std::string(row.word)).c_str())) << row.word;
    }
}

TEST(MemberStatus, ALineWithoutABlankIsNoMembersAndIsLogged)
{
    (void)take_log();
    EXPECT_STREQ("QUIT", get_status(""));
    EXPECT_EQ((std::vector<std::string>{"1/140 get_status null"}), take_log_lines());
    EXPECT_STREQ("QUIT", get_status("alice@example.net\r\n"));
    EXPECT_EQ((std::vector<std::string>{"1/140 get_status null"}), take_log_lines());
}

/* -- looking up -- */

std::string found_line(TempList &list, const std::string &address)
{
    char line[LINE_SIZE];
    memset(line, 'x', sizeof(line));
    EXPECT_EQ(0, get_member(list.job(), address.c_str(), line));
    return line;
}

TEST(GetMember, FindsTheWholeLineWithoutRegardToCase)
{
    TempList list;
    list.put("member", three_members);
    EXPECT_EQ("alice@example.net ON \r\n", found_line(list, "alice@example.net"));
    EXPECT_EQ("Bob@Example.jp OFF\r\n", found_line(list, "bOB@eXAMPLE.JP"));
    EXPECT_EQ("carol@example.com DGT\r\n", found_line(list, "carol@example.com"));
}

TEST(GetMember, LeavesAnEmptyLineForStrangers)
{
    TempList list;
    list.put("member", three_members);
    for (const char *address :
         {"", "alice@example.ne", "alice@example.nett", "lice@example.net", "alice@example.net ",
          "alice@example.net ON", "alice@example.net ON ", "<alice@example.net>", "dave@example.jp",
          " alice@example.net", "\x01lice@example.net"})
        EXPECT_EQ("", found_line(list, address)) << address;
    list.put("member", "");
    EXPECT_EQ("", found_line(list, "alice@example.net"));
}

TEST(GetMember, LinesWithoutABlankNeverMatch)
{
    TempList list;
    list.put("member", "alice@example.net\r\n\r\nalice@example.net OFF\r\n");
    EXPECT_EQ("alice@example.net OFF\r\n", found_line(list, "alice@example.net"));
}

TEST(GetMember, TheFirstOfTwoLinesCounts)
{
    TempList list;
    list.put("member", "a@b QUT\r\nA@B ON \r\n");
    EXPECT_EQ("a@b QUT\r\n", found_line(list, "a@b"));
}

TEST(GetMember, EveryLineEndIsHandedOutAsCrLf)
{
    TempList list;
    list.put("member", "a@b ON \nc@d OFF\r\ne@f DGT");
    EXPECT_EQ("a@b ON \r\n", found_line(list, "a@b"));
    EXPECT_EQ("c@d OFF\r\n", found_line(list, "c@d"));
    EXPECT_EQ("e@f DGT", found_line(list, "e@f"));
}

TEST(GetMember, FindsEachMemberOfALongRosterInEveryLineEnd)
{
    for (const std::string end : {"\r\n", "\n"}) {
        TempList list;
        std::string roster;
        for (int i = 0; i < 900; ++i)
            roster += "member" + std::to_string(i) + "@example.net ON " + end;
        list.put("member", roster);
        for (int i = 0; i < 900; ++i) {
            const std::string address = "member" + std::to_string(i) + "@example.net";
            const std::string line = found_line(list, address);
            EXPECT_EQ(0u, line.find(address + " ON ")) << i;
        }
    }
}

/* What a plain reader of the file layer finds, for every file of lines around the read-ahead's
   border. */
TEST(GetMember, AgreesWithTheLineReaderAroundEachBlockBorder)
{
    for (size_t padding = 8100; padding < 8200; ++padding) {
        TempList list;
        std::string roster;
        while (roster.size() + 64 < padding)
            roster += "filler@example.net ON \r\n";
        roster += std::string(padding - roster.size(), 'x') + "\r\n";
        roster += "alice@example.net ON \r\nbob@example.jp OFF\n";
        list.put("member", roster);

        std::string wanted;
        FileRecord *file = f_open(list.control("member").c_str(), "r");
        char line[LINE_SIZE];
        while (Fgets(line, sizeof(line), file) != nullptr)
            if (strncmp(line, "alice@", 6) == 0) wanted = line;
        f_close(file);
        EXPECT_EQ(wanted, found_line(list, "alice@example.net")) << padding;
        EXPECT_EQ("bob@example.jp OFF\r\n", found_line(list, "bob@example.jp")) << padding;
    }
}

TEST(GetMember, AnOverlongLineIsReadInPieces)
{
    TempList list;
    const std::string address(5000, 'a');
    list.put("member", address + " ON \r\nbob@example.jp OFF\r\n");
    EXPECT_EQ("", found_line(list, address));
    EXPECT_EQ("aaaaa", found_line(list, std::string(905, 'a')).substr(0, 5));
    EXPECT_EQ("bob@example.jp OFF\r\n", found_line(list, "bob@example.jp"));
}

TEST(GetMember, FailuresAreLoggedAndGiveMinusOne)
{
    char line[LINE_SIZE];
    {
        TempList list;
        remove(list.control("member").c_str());
        (void)take_log();
        EXPECT_EQ(-1, get_member(list.job(), "a@b", line));
        EXPECT_EQ(ENOENT, errno);
        EXPECT_STREQ("", line);
        EXPECT_EQ((std::vector<std::string>{
                      "11/183 mlname=mylist get_member f_open error No such file or directory "
                      "[CTL/member]"}),
                  log_of(list));
        mkdir(list.control("member").c_str(), 0700);
        EXPECT_EQ(-1, get_member(list.job(), "a@b", line));
        EXPECT_EQ((std::vector<std::string>{
                      "1/705 ReadFile error 21",
                      "11/184 mlname=mylist get_member fgets error Is a directory [CTL/member]"}),
                  log_of(list));
    }
    {
        TempList list;
        mkdir(list.control("member.new").c_str(), 0700);
        EXPECT_EQ(-1, get_member(list.job(), "a@b", line));
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, "11/182 mlname=mylist get_member recover error Is a directory "
                                  "[CTL/member]"))
            << joined(log);
    }
    {
        TempList list("l", std::string(1020, 'd').substr(0, 250));
        memset(g_path_mlist, '/', 900);
        g_path_mlist[900] = '\0';
        EXPECT_EQ(-1, get_member(list.job(), "a@b", line));
        EXPECT_EQ(ENAMETOOLONG, errno);
        (void)take_log();
    }
}

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

/* -- whole or not at all -- */

void prepare_long(TempList &list)
{
    std::string roster;
    for (int i = 0; i < 400; ++i)
        roster += "member" + std::to_string(i) + "@example.net " + mi2ms[1 + i % 3] + "\r\n";
    list.put("member", roster);
}

TEST(RosterFaults, AddingSurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto run = [](TempList &list) { return add_member(list.job(), "new@x"); };
    survive_every_change({"member"}, prepare_long, run);
    survive_full_disk({"member"}, prepare_long, run);
}

TEST(RosterFaults, RemovingSurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto run = [](TempList &list) { return del_member(list.job(), "member7@example.net"); };
    survive_every_change({"member"}, prepare_long, run);
    survive_full_disk({"member"}, prepare_long, run);
}

TEST(RosterFaults, ARosterThatIsStillToBeMadeIsMadeWholeOrNotAtAll)
{
    OutCapture out;
    survive_every_change(
        {"member"}, [](TempList &list) { remove(list.control("member").c_str()); },
        [](TempList &list) { return add_member(list.job(), "new@x"); });
}

TEST(RosterFaults, WithoutMemoryNothingIsLost)
{
    static const struct {
        const char *label;
        int (*run)(DeliveryJob *);
        const char *after;
    } rows[] = {
        {"add", [](DeliveryJob *job) { return add_member(job, "new@x"); },
         "alice@example.net ON \r\nBob@Example.jp OFF\r\ncarol@example.com DGT\r\nnew@x ON \r\n"},
        {"del", [](DeliveryJob *job) { return del_member(job, "bob@example.jp"); },
         "alice@example.net ON \r\ncarol@example.com DGT\r\n"},
        {"chg", [](DeliveryJob *job) { return chg_member(job, "bob@example.jp", "DGT"); },
         "alice@example.net ON \r\nBob@Example.jp DGT\r\ncarol@example.com DGT\r\n"},
    };
    for (const auto &row : rows) {
        bool reached = true;
        long nth = 0;
        for (; reached; ++nth) {
            TempList list;
            list.put("member", three_members);
            FakeHost host;
            tcbcreate(&host.request);
            host.fail_allocation = nth;
            const int result = row.run(list.job());
            reached = host.fail_allocation < 0;
            host.fail_allocation = -1;
            EXPECT_EQ(0, f_recover(list.control("member").c_str()));
            EXPECT_EQ(result < 0 ? three_members : row.after, list.get("member"))
                << row.label << " without allocation " << nth;
            tcbfree();
            EXPECT_EQ(0, host.live_blocks) << row.label << " without allocation " << nth;
        }
        EXPECT_GT(nth, 4) << row.label;
    }
    (void)take_log();
}
} // namespace
