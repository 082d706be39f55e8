/* Reading the roster: status words and looking up. */
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
} // namespace
