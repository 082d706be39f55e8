#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "module/tcb.h"
#include "store/file.h"
#include "tests/support/fake_host.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/control_fault.h"

namespace
{
const char three_members[] = "alice@example.net ON \r\n"
                             "Bob@Example.jp OFF\r\n"
                             "carol@example.com DGT\r\n";

struct ChangeRow {
    const char *label;
    const char *before, *address, *word;
    int former;
    const char *after;
};

const ChangeRow change_rows[] = {
    {"on to off", "a@b ON \r\nc@d OFF\r\n", "a@b", "OFF", 1, "a@b OFF\r\nc@d OFF\r\n"},
    {"off to on", "a@b ON \r\nc@d OFF\r\n", "C@D", "ON ", 2, "a@b ON \r\nc@d ON \r\n"},
    {"digest to off", "c@d DGT\r\n", "c@d", "OFF", 3, "c@d OFF\r\n"},
    {"the same status", "a@b ON \r\n", "a@b", "ON ", 1, "a@b ON \r\n"},
    {"a stranger", "a@b ON \r\n", "x@y", "OFF", 0, "a@b ON \r\n"},
    {"an empty roster", "", "x@y", "OFF", 0, ""},
    {"an unknown word is passed over", "a@b QUT\r\na@b DGT\r\na@b DGT\r\n", "a@b", "OFF", 3,
     "a@b QUT\r\na@b OFF\r\na@b DGT\r\n"},
    {"only an unknown word", "a@b QUT\r\n", "a@b", "OFF", 0, "a@b QUT\r\n"},
    {"ONX is a member, and reads otherwise than ON", "a@b ONX\r\n", "a@b", "ON ", 1, "a@b ON \r\n"},
    {"lower case", "a@b off\r\n", "a@b", "OFF", 2, "a@b OFF\r\n"},
    {"a longer word keeps its rest", "a@b OFFLINE\r\n", "a@b", "DGT", 2, "a@b DGTLINE\r\n"},
    {"line feeds alone", "a@b ON \nc@d OFF\ne@f DGT\n", "c@d", "ON ", 2,
     "a@b ON \nc@d ON \ne@f DGT\n"},
    {"line feeds alone, first line", "a@b ON \nc@d OFF\n", "a@b", "DGT", 1, "a@b DGT\nc@d OFF\n"},
    {"mixed line ends", "a@b ON \r\nc@d OFF\ne@f DGT\r\n", "e@f", "ON ", 3,
     "a@b ON \r\nc@d OFF\ne@f ON \r\n"},
    {"a short word before LF", "a@b ON\nc@d OFF\n", "a@b", "OFF", 1, "a@b OFF\nc@d OFF\n"},
    {"a short word before CR LF", "a@b ON\r\nc@d OFF\r\n", "a@b", "DGT", 1,
     "a@b DGT\r\nc@d OFF\r\n"},
    {"a short word that stays", "a@b ON\r\nc@d OFF\r\n", "a@b", "ON ", 1, "a@b ON \r\nc@d OFF\r\n"},
    {"the last line has no end", "a@b ON \r\nc@d OFF", "c@d", "DGT", 2, "a@b ON \r\nc@d DGT"},
    {"the last line has no end and a blank", "c@d ON ", "c@d", "OFF", 1, "c@d OFF"},
    {"the last line is short and has no end", "a@b ON \r\nc@d ON", "c@d", "OFF", 1,
     "a@b ON \r\nc@d OFF"},
    {"the last line is long and has no end", "a@b OFFX", "a@b", "ON ", 2, "a@b ON X"},
    {"lines without a blank", "a@b\r\n\r\na@b DGT\r\n", "a@b", "ON ", 3, "a@b\r\n\r\na@b ON \r\n"},
};

TEST(ChgMember, ChangesThreeBytesAndNothingElse)
{
    for (const ChangeRow &row : change_rows) {
        TempList list;
        list.put("member", row.before);
        EXPECT_EQ(row.former, chg_member(list.job(), row.address, row.word)) << row.label;
        EXPECT_EQ(row.after, list.get("member")) << row.label;
        EXPECT_FALSE(exists(list.control("member.new"))) << row.label;
        EXPECT_FALSE(exists(list.control("member.old"))) << row.label;
    }
}

std::string address_of(int i)
{
    return std::string("m").append(std::to_string(i)).append("@example.net");
}

/* A roster of about 20 KB; each member in turn is changed, and nobody else. */
void change_each_member(const std::string &end, size_t padding, const std::string &word)
{
    WithoutSync quick;
    TempList list;
    const std::string name(80, 'm');
    std::vector<std::string> addresses;
    std::string before = std::string(padding, 'x') + end;
    for (int i = 0; before.size() < 20000; ++i) {
        addresses.push_back(name + address_of(1000 + i));
        before += addresses.back() + " " + word + end;
    }
    for (const std::string &address : addresses) {
        const std::string old_line = address + " " + word + end;
        std::string after = before;
        after.replace(after.find(old_line), old_line.size(), address + " DGT" + end);
        list.put("member", before);
        ASSERT_EQ(1, chg_member(list.job(), address.c_str(), "DGT"));
        ASSERT_TRUE(after == list.get("member")) << address << ", padding " << padding;
    }
}

TEST(ChgMember, EachMemberOfALongRosterIsChangedWithoutHarmToANeighbour)
{
    change_each_member("\r\n", 10, "ON ");
    change_each_member("\n", 10, "ON ");
    change_each_member("\n", 11, "ON");
    change_each_member("\r\n", 12, "ON");
    (void)take_log();
}

/* The lines around both borders of the read blocks, with every way in which a line can lie across
   one: among them the CR as the last byte of a block. */
TEST(ChgMember, ABlockBorderAnywhereInALineDoesNoHarm)
{
    static const struct {
        const char *word, *end;
    } rows[] = {{"ON ", "\r\n"}, {"ON", "\r\n"}, {"OFF", "\r\n"},
                {"ON ", "\n"},   {"ON", "\n"},   {"OFF", "\n"}};
    WithoutSync quick;
    TempList list;
    const std::string address = "border@example.net";
    for (const auto &row : rows) {
        const std::string end = row.end;
        const std::string tail = "next@example.net ON " + end + "last@x ON";
        for (size_t shift = 0; shift < 30; ++shift) {
            /* The changed line begins `shift` bytes before the border. */
            const size_t border = shift % 2 == 0 ? 8176 : 16352;
            std::string roster;
            while (roster.size() + 200 < border - shift)
                roster += address_of(static_cast<int>(roster.size())) + " OFF" + end;
            roster += std::string(border - shift - roster.size() - end.size(), 'y') + end;
            list.put("member", roster + address + " " + row.word + end + tail);
            ASSERT_LT(0, chg_member(list.job(), address.c_str(), "DGT"));
            ASSERT_TRUE(roster + address + " DGT" + end + tail == list.get("member"))
                << row.word << end.size() << " at " << shift;
            ASSERT_EQ(1, chg_member(list.job(), "next@example.net", "OFF"));
            ASSERT_TRUE(roster + address + " DGT" + end + "next@example.net OFF" + end +
                            "last@x ON" ==
                        list.get("member"))
                << row.word << end.size() << " at " << shift;
        }
    }
}

TEST(ChgMember, AShortWordInALongRosterMovesTheRestUpWhole)
{
    for (const int behind : {0, 1, 200, 400, 1000, 3000}) {
        TempList list;
        std::string rest;
        for (int i = 0; i < behind; ++i)
            rest += address_of(i) + " OFF\r\n";
        list.put("member", "a@b ON\n" + rest);
        EXPECT_EQ(1, chg_member(list.job(), "a@b", "OFF"));
        EXPECT_TRUE("a@b OFF\n" + rest == list.get("member")) << behind;
    }
}

/* A zero byte hides the rest of its block from the reader; no place in the file can be told from
   what it reads then. */
TEST(ChgMember, BehindAZeroByteARosterIsRatherLeftThanDamaged)
{
    WithoutSync quick;
    TempList list;
    std::string roster = "a@b ON \r\nzero";
    roster.push_back('\0');
    for (int i = 0; i < 700; ++i)
        roster += address_of(1000 + i) + " ON \r\n";
    list.put("member", roster);
    for (int i = 0; i < 700; i += 5) {
        const int former = chg_member(list.job(), address_of(1000 + i).c_str(), "OFF");
        EXPECT_EQ(0, f_recover(list.control("member").c_str()));
        std::string now = list.get("member");
        if (former == 1) {
            const std::string changed = address_of(1000 + i) + " OFF\r\n";
            const size_t at = now.find(changed);
            ASSERT_NE(std::string::npos, at);
            now.replace(at, changed.size(), address_of(1000 + i) + " ON \r\n");
        }
        ASSERT_TRUE(roster == now) << i;
        list.put("member", roster);
    }
    EXPECT_EQ(-1, chg_member(list.job(), "a@b", "OFF"));
    EXPECT_EQ(0, f_recover(list.control("member").c_str()));
    EXPECT_TRUE(roster == list.get("member"));
    (void)take_log();
}

TEST(ChgMember, EachFailedStepHasItsText)
{
    static const struct {
        const char *label;
        const char *call, *ending;
        int turn, error;
        const char *line;
    } rows[] = {
        {"roster", "open", "/member", 0, EACCES,
         "1/174 mlname=mylist chg_member member not exist Permission denied [CTL/member]"},
        {"copying", "open", "/member.new", 0, EACCES,
         "1/175 mlname=mylist chg_member copy file error Permission denied [CTL/member "
         "CTL/member.new]"},
        {"a short copy", "write", "", 0, ENOSPC,
         "1/175 mlname=mylist chg_member copy file error No space left on device [CTL/member "
         "CTL/member.new]"},
        {"opening the copy", "open", "/member.new", 1, EACCES,
         "1/176 mlname=mylist chg_member f_open error Permission denied [CTL/member.new]"},
        {"cutting the copy", "lseek", "", 1, EIO,
         "1/175 mlname=mylist chg_member copy file error Input/output error [CTL/member "
         "CTL/member.new]"},
        {"seeking", "lseek", "", 2, EIO,
         "1/177 mlname=mylist chg_member fseek error Input/output error [CTL/member.new]"},
        {"seeking, in the file layer", "lseek", "", 2, EIO, "1/712 SetFilePointer error 5"},
        {"giving back what was read", "lseek", "", 3, EIO,
         "1/177 mlname=mylist chg_member fseek error Input/output error [CTL/member.new]"},
        {"seeking again", "lseek", "", 4, EIO,
         "1/177 mlname=mylist chg_member fseek error Input/output error [CTL/member.new]"},
        {"writing", "write", "", 1, ENOSPC,
         "1/178 mlname=mylist chg_member fputs error No space left on device [CTL/member.new]"},
        {"writing, in the file layer", "write", "", 1, ENOSPC, "1/707 WriteFile:1 error 28"},
        {"reading", "read", "", 2, EIO,
         "1/179 mlname=mylist chg_member fgets error Input/output error [CTL/member.new]"},
        {"closing", "fsync", "", 2, EIO,
         "1/180 mlname=mylist chg_member close error Input/output error [CTL/member.new]"},
        {"replacing", "open", "/member.old", 0, EACCES,
         "1/181 mlname=mylist chg_member renew error Permission denied [CTL/member]"},
    };
    for (const auto &row : rows) {
        TempList list;
        list.put("member", three_members);
        FakeHost host;
        tcbcreate(&host.request);
        OutCapture out;
        (void)take_log();
        {
            FaultOs faults;
            faults.before = fail_call(row.call, row.ending, row.turn, row.error);
            EXPECT_EQ(-1, chg_member(list.job(), "bob@example.jp", "ON ")) << row.label;
            EXPECT_EQ(row.error, errno) << row.label;
        }
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, row.line)) << row.label << "\n" << joined(log);
        EXPECT_EQ(0, f_recover(list.control("member").c_str())) << row.label;
        EXPECT_EQ(three_members, list.get("member")) << row.label;
        tcbfree();
        EXPECT_EQ(0, host.live_blocks) << row.label;
    }
    (void)take_log();
}

TEST(ChgMember, AMissingRosterAndAFailedRecoveryAreFailures)
{
    TempList list;
    remove(list.control("member").c_str());
    (void)take_log();
    EXPECT_EQ(-1, chg_member(list.job(), "a@b", "ON "));
    EXPECT_EQ((std::vector<std::string>{"1/174 mlname=mylist chg_member member not exist No such "
                                        "file or directory [CTL/member]"}),
              log_of(list));
    mkdir(list.control("member.new").c_str(), 0700);
    EXPECT_EQ(-1, chg_member(list.job(), "a@b", "ON "));
    const auto log = log_of(list);
    EXPECT_TRUE(
        has_line(log, "1/173 mlname=mylist chg_member recover error Is a directory [CTL/member]"))
        << joined(log);
}

TEST(ChgMember, AShortCopyOnAFullDiskLosesNothing)
{
    std::string roster;
    for (int i = 0; roster.size() < 4 * COPY_BLOCK_SIZE; ++i)
        roster += address_of(i) + " ON \r\n";
    for (const char *stale : {"", "an old commit mark"}) {
        TempList list;
        list.put("member", roster);
        if (*stale != '\0') list.put("member.old", stale);
        {
            FaultOs faults;
            faults.before = [count = 0](const std::string &call, const std::string &) mutable {
                return call == "write" && ++count > 2 ? ENOSPC : 0;
            };
            EXPECT_EQ(-1, chg_member(list.job(), address_of(5).c_str(), "OFF"));
        }
        EXPECT_FALSE(exists(list.control("member.new")));
        EXPECT_EQ(0, f_recover(list.control("member").c_str()));
        EXPECT_TRUE(roster == list.get("member"));
    }
    (void)take_log();
}

TEST(ChgMember, SurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto prepare = [](TempList &list) {
        std::string roster;
        for (int i = 0; i < 600; ++i)
            roster += address_of(i) + " ON \r\n";
        list.put("member", roster);
    };
    const auto run = [](TempList &list) {
        return chg_member(list.job(), address_of(300).c_str(), "OFF");
    };
    survive_every_change({"member"}, prepare, run);
    survive_full_disk({"member"}, prepare, run);
}

TEST(ChgMember, MakingRoomForAShortWordSurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto prepare = [](TempList &list) {
        std::string roster = "a@b ON\n";
        for (int i = 0; i < 1000; ++i)
            roster += address_of(i) + " ON \n";
        list.put("member", roster);
    };
    const auto run = [](TempList &list) { return chg_member(list.job(), "a@b", "OFF"); };
    survive_every_change({"member"}, prepare, run);
    survive_full_disk({"member"}, prepare, run);
}

TEST(ChgMember, TheRosterKeepsItsMode)
{
    TempList list;
    list.put("member", three_members);
    chmod(list.control("member").c_str(), 0640);
    EXPECT_EQ(2, chg_member(list.job(), "bob@example.jp", "DGT"));
    EXPECT_EQ(0640u, mode_of(list.control("member")));
}
} // namespace
