#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "module/tcb.h"
#include "store/file.h"
#include "tests/support/fake_host.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/control_fault.h"

namespace
{
const char mixed_members[] = "alice@example.net ON \r\n"
                             "bob@example.jp OFF\r\n"
                             "\r\n"
                             "carol@example.com DGT\r\n"
                             "nobody\r\n"
                             "Dave@Example.NET on\r\n"
                             "erin@example.net QUT\r\n"
                             "frank@example.net dgt\n"
                             "gina@example.net ONX";

const std::vector<std::string> derived = {"member", "active", "digest"};

std::string both(const TempList &list)
{
    return list.get("active") + "|" + list.get("digest");
}

/* -- deriving -- */

TEST(ReflectInclude, WritesTheAddressesOfOneStatusInTheOrderOfTheRoster)
{
    TempList list;
    list.put("member", mixed_members);
    list.put("active", "old contents that are longer than the new ones\r\n");
    EXPECT_EQ(0, reflect_include(list.job(), "active"));
    EXPECT_EQ("alice@example.net\r\nDave@Example.NET\r\ngina@example.net\r\n", list.get("active"));
    EXPECT_EQ("", list.get("digest"));
    EXPECT_EQ(0, reflect_include(list.job(), "DiGeSt"));
    EXPECT_EQ("carol@example.com\r\nfrank@example.net\r\n", list.get("digest"));
    EXPECT_EQ(mixed_members, list.get("member"));
    for (const std::string &name : derived) {
        EXPECT_FALSE(exists(list.control(name + ".new")));
        EXPECT_FALSE(exists(list.control(name + ".old")));
    }
}

TEST(ReflectInclude, AnEmptyRosterGivesAnEmptyFile)
{
    TempList list;
    list.put("active", "a@b\r\n");
    EXPECT_EQ(0, reflect_include(list.job(), "active"));
    EXPECT_TRUE(exists(list.control("active")));
    EXPECT_EQ("", list.get("active"));
}

TEST(ReflectInclude, KnowsTwoFilesOnly)
{
    TempList list;
    for (const char *type : {"member", "", "activ", "active "}) {
        (void)take_log();
        EXPECT_EQ(-1, reflect_include(list.job(), type));
        EXPECT_EQ((std::vector<std::string>{
                      std::string("1/192 mlname=mylist reflect_include not support type [") + type +
                      "]"}),
                  log_of(list));
    }
}

TEST(ReflectInclude, TheFileMustExist)
{
    TempList list;
    remove(list.control("active").c_str());
    (void)take_log();
    EXPECT_EQ(-1, reflect_include(list.job(), "active"));
    EXPECT_EQ((std::vector<std::string>{"1/194 mlname=mylist reflect_include f_open1 error No such "
                                        "file or directory [CTL/active]"}),
              log_of(list));
    EXPECT_FALSE(exists(list.control("active")));
    EXPECT_FALSE(exists(list.control("active.new")));
}

TEST(ReflectInclude, TheRosterMustExist)
{
    TempList list;
    list.put("active", "a@b\r\n");
    remove(list.control("member").c_str());
    (void)take_log();
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, reflect_include(list.job(), "active"));
    EXPECT_EQ("f_open error [" + list.control("member") + "]\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ((std::vector<std::string>{"1/196 mlname=mylist reflect_include f_open3 error No such "
                                        "file or directory [CTL/member]"}),
              log_of(list));
    EXPECT_EQ(0, f_recover(list.control("active").c_str()));
    EXPECT_EQ("a@b\r\n", list.get("active"));
    (void)take_log();
}

TEST(ReflectInclude, ANewFileThatCannotBeMadeIsReportedToTheOutputToo)
{
    TempList list;
    list.put("member", mixed_members);
    OutCapture out;
    (void)take_log();
    {
        FaultOs faults;
        faults.before = fail_call("open", "/active.new", 0, EROFS);
        EXPECT_EQ(-1, reflect_include(list.job(), "active"));
        EXPECT_EQ(EROFS, errno);
    }
    EXPECT_EQ("Can't Open Include File [" + list.control("active.new") + "]\n", out.take());
    EXPECT_EQ((std::vector<std::string>{"1/195 mlname=mylist reflect_include f_open2 error "
                                        "Read-only file system [CTL/active.new]"}),
              log_of(list));
}

TEST(ReflectInclude, EachFailedStepHasItsText)
{
    static const struct {
        const char *label, *call, *ending;
        int turn, error;
        const char *line;
    } rows[] = {
        {"writing", "write", "", 0, ENOSPC,
         "1/197 mlname=mylist reflect_include fputs error No space left on device "
         "[CTL/active.new]"},
        {"reading", "read", "", 0, EIO,
         "1/198 mlname=mylist reflect_include fgets error Input/output error [CTL/member]"},
        {"closing", "fsync", "", 2, EIO,
         "1/199 mlname=mylist reflect_include close error Input/output error [CTL/active.new]"},
        {"replacing", "open", "/active.old", 0, EACCES,
         "1/200 mlname=mylist reflect_include renew error Permission denied [CTL/active]"},
    };
    for (const auto &row : rows) {
        TempList list;
        list.put("member", mixed_members);
        list.put("active", "a@b\r\n");
        OutCapture out;
        (void)take_log();
        {
            FaultOs faults;
            faults.before = fail_call(row.call, row.ending, row.turn, row.error);
            EXPECT_EQ(-1, reflect_include(list.job(), "active")) << row.label;
            EXPECT_EQ(row.error, errno) << row.label;
        }
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, row.line)) << row.label << "\n" << joined(log);
        EXPECT_EQ(0, f_recover(list.control("active").c_str())) << row.label;
        EXPECT_EQ("a@b\r\n", list.get("active")) << row.label;
    }
    TempList list;
    mkdir(list.control("active.new").c_str(), 0700);
    (void)take_log();
    EXPECT_EQ(-1, reflect_include(list.job(), "active"));
    const auto log = log_of(list);
    EXPECT_TRUE(has_line(
        log, "1/193 mlname=mylist reflect_include recover error Is a directory [CTL/active]"))
        << joined(log);
}

TEST(ReflectInclude, SurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto prepare = [](TempList &list) {
        std::string roster;
        for (int i = 0; i < 500; ++i)
            roster += "member" + std::to_string(i) + "@example.net ON \r\n";
        list.put("member", roster);
        list.put("active", "member1@example.net\r\n");
    };
    const auto run = [](TempList &list) { return reflect_include(list.job(), "active"); };
    survive_every_change({"active"}, prepare, run);
    survive_full_disk({"active"}, prepare, run);
}

/* -- adding -- */

TEST(AddMlmbr, ANewMemberIsAddedAndBothFilesAreDerived)
{
    static const struct {
        int status;
        const char *files;
    } rows[] = {{MEMBER_ON, "a@b\r\nnew@x\r\n|c@d\r\n"},
                {MEMBER_OFF, "a@b\r\n|c@d\r\n"},
                {MEMBER_DIGEST, "a@b\r\n|c@d\r\nnew@x\r\n"},
                {MEMBER_QUIT, "a@b\r\n|c@d\r\n"}};
    for (const auto &row : rows) {
        TempList list;
        list.put("member", "a@b ON \r\nc@d DGT\r\n");
        list.job()->settings.default_status = row.status;
        EXPECT_EQ(0, add_mlmbr(list.job(), "new@x"));
        EXPECT_EQ(row.files, both(list)) << row.status;
    }
}

TEST(AddMlmbr, AMemberIsLeftAsItIs)
{
    TempList list;
    list.put("member", "a@b ON \r\n");
    EXPECT_EQ(0, add_mlmbr(list.job(), "A@B"));
    EXPECT_EQ("a@b ON \r\n", list.get("member"));
    EXPECT_EQ("|", both(list)) << "nothing is derived";
}

TEST(AddMlmbr, WithoutAnActiveFileTheMemberIsAddedAndTheCallFails)
{
    TempList list;
    remove(list.control("active").c_str());
    EXPECT_EQ(-1, add_mlmbr(list.job(), "a@b"));
    EXPECT_EQ("a@b ON \r\n", list.get("member"));
    TempList other;
    remove(other.control("digest").c_str());
    EXPECT_EQ(-1, add_mlmbr(other.job(), "a@b"));
    EXPECT_EQ("a@b\r\n", other.get("active"));
    TempList third;
    mkdir(third.control("member.new").c_str(), 0700);
    EXPECT_EQ(-1, add_mlmbr(third.job(), "a@b"));
    (void)take_log();
}

/* -- removing -- */

TEST(DelMlmbr, DerivesTheFileThatTheMemberWasIn)
{
    static const struct {
        const char *address, *member, *files;
    } rows[] = {
        {"a@b", "c@d OFF\r\ne@f DGT\r\n", "|stale digest"},
        {"c@d", "a@b ON \r\ne@f DGT\r\n", "stale active|stale digest"},
        {"e@f", "a@b ON \r\nc@d OFF\r\n", "stale active|"},
        {"x@y", "a@b ON \r\nc@d OFF\r\ne@f DGT\r\n", "stale active|stale digest"},
    };
    for (const auto &row : rows) {
        TempList list;
        list.put("member", "a@b ON \r\nc@d OFF\r\ne@f DGT\r\n");
        list.put("active", "stale active");
        list.put("digest", "stale digest");
        EXPECT_EQ(0, del_mlmbr(list.job(), row.address));
        EXPECT_EQ(row.member, list.get("member")) << row.address;
        EXPECT_EQ(row.files, both(list)) << row.address;
    }
}

TEST(DelMlmbr, AnswersZeroEvenWhenItFails)
{
    TempList list;
    remove(list.control("member").c_str());
    EXPECT_EQ(0, del_mlmbr(list.job(), "a@b"));
    list.put("member", "a@b ON \r\n");
    remove(list.control("active").c_str());
    EXPECT_EQ(0, del_mlmbr(list.job(), "a@b"));
    EXPECT_EQ("", list.get("member"));
    (void)take_log();
}

/* -- changing -- */

TEST(ChgMlmbr, DerivesWhatTheChangeAffects)
{
    static const struct {
        int former, status, result;
        const char *member, *files;
    } rows[] = {
        {0, 1, 0, "x@y ON \r\n", "stale active|stale digest"},
        {0, 2, 0, "x@y ON \r\n", "stale active|stale digest"},
        {0, 3, 0, "x@y ON \r\n", "stale active|stale digest"},
        {1, 1, 1, "a@b ON \r\n", "stale active|stale digest"},
        {1, 2, 1, "a@b OFF\r\n", "|stale digest"},
        {1, 3, 1, "a@b DGT\r\n", "|a@b\r\n"},
        {2, 1, 1, "a@b ON \r\n", "a@b\r\n|stale digest"},
        {2, 2, 1, "a@b OFF\r\n", "stale active|stale digest"},
        {2, 3, 1, "a@b DGT\r\n", "stale active|a@b\r\n"},
        {3, 1, 1, "a@b ON \r\n", "a@b\r\n|"},
        {3, 2, 1, "a@b OFF\r\n", "stale active|"},
        {3, 3, 1, "a@b DGT\r\n", "stale active|stale digest"},
    };
    for (const auto &row : rows) {
        TempList list;
        list.put("member", row.former == 0 ? "x@y ON \r\n"
                                           : std::string("a@b ") + mi2ms[row.former] + "\r\n");
        list.put("active", "stale active");
        list.put("digest", "stale digest");
        EXPECT_EQ(row.result, chg_mlmbr(list.job(), "a@b", row.status)) << row.former << row.status;
        EXPECT_EQ(row.member, list.get("member")) << row.former << row.status;
        EXPECT_EQ(row.files, both(list)) << row.former << row.status;
    }
}

TEST(ChgMlmbr, OtherStatusNumbersAreRefused)
{
    TempList list;
    list.put("member", "a@b ON \r\n");
    for (const int status : {-1, 0, 4, 1000})
        EXPECT_EQ(-1, chg_mlmbr(list.job(), "a@b", status)) << status;
    EXPECT_EQ("a@b ON \r\n", list.get("member"));
}

TEST(ChgMlmbr, FailuresGiveMinusOne)
{
    TempList list;
    remove(list.control("member").c_str());
    (void)take_log();
    EXPECT_EQ(-1, chg_mlmbr(list.job(), "a@b", 2));
    const auto log = log_of(list);
    EXPECT_TRUE(has_line(log, "1/257 mlname=mylist chg_member failed a@b")) << joined(log);

    list.put("member", "a@b ON \r\n");
    remove(list.control("active").c_str());
    EXPECT_EQ(-1, chg_mlmbr(list.job(), "a@b", 2));
    EXPECT_EQ("a@b OFF\r\n", list.get("member"));
    (void)take_log();
}

TEST(ChgMlmbr, EachFileSurvivesEveryFailureAndDeath)
{
    OutCapture out;
    survive_every_change(
        derived,
        [](TempList &list) {
            list.put("member", "a@b ON \r\nc@d DGT\r\ne@f ON \r\n");
            list.put("active", "a@b\r\ne@f\r\n");
            list.put("digest", "c@d\r\n");
        },
        [](TempList &list) { return chg_mlmbr(list.job(), "a@b", 3); });
}

/* -- is there anyone -- */

TEST(NotExist, TellsWhetherThereIsAnyoneToSendTo)
{
    static const struct {
        const char *name;
        int (*operation)(DeliveryJob *);
        const char *recover, *missing, *empty, *available;
    } rows[] = {
        {"active", notexist_active,
         "1/243 mlname=mylist notexist_active recover error Is a directory [CTL/active]",
         "1/244 mlname=mylist notexist_active active file not exist",
         "1/245 mlname=mylist notexist_active active file empty",
         "11/246 mlname=mylist notexist_active active file availabe"},
        {"digest", notexist_digest,
         "1/247 mlname=mylist notexist_digest recover error Is a directory [CTL/digest]",
         "1/248 mlname=mylist notexist_digest digest file not exist",
         "1/249 mlname=mylist notexist_digest digest file empty",
         "11/250 mlname=mylist notexist_digest digest file availabe"},
    };
    for (const auto &row : rows) {
        TempList list;
        (void)take_log();
        EXPECT_EQ(1, row.operation(list.job()));
        EXPECT_EQ((std::vector<std::string>{row.empty}), log_of(list));
        list.put(row.name, "a@b\r\n");
        EXPECT_EQ(0, row.operation(list.job()));
        EXPECT_EQ((std::vector<std::string>{row.available}), log_of(list));
        remove(list.control(row.name).c_str());
        EXPECT_EQ(1, row.operation(list.job()));
        EXPECT_EQ((std::vector<std::string>{row.missing}), log_of(list));
        mkdir(list.control(std::string(row.name) + ".new").c_str(), 0700);
        EXPECT_EQ(1, row.operation(list.job()));
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, row.recover)) << joined(log);
    }
}

/* Taken for missing, nobody would get a posting that was acknowledged. */
TEST(NotExist, AFileThatCannotBeLookedAtIsLeftToItsReader)
{
    TempList list;
    for (const std::string name : {"/active", "/digest", "/active.new", "/digest.new"}) {
        list.put("active", "a@b\r\n");
        list.put("digest", "a@b\r\n");
        FaultOs fault;
        fault.before = [&](const std::string &call, const std::string &path) {
            return call == "stat" && path.ends_with(name) ? EIO : 0;
        };
        EXPECT_EQ(0, notexist_active(list.job())) << name;
        EXPECT_EQ(0, notexist_digest(list.job())) << name;
    }
    (void)take_log();
}

TEST(NotExist, AnInterruptedReplacementIsFinishedFirst)
{
    TempList list;
    list.put("active.new", "a@b\r\n");
    list.put("active.old", "");
    EXPECT_EQ(0, notexist_active(list.job()));
    EXPECT_EQ("a@b\r\n", list.get("active"));
    (void)take_log();
}

TEST(DelActive, RemovesOneOfTheTwoFiles)
{
    TempList list;
    EXPECT_EQ(0, del_active(list.job(), 0));
    EXPECT_FALSE(exists(list.control("digest")));
    EXPECT_TRUE(exists(list.control("active")));
    EXPECT_EQ(0, del_active(list.job(), 7));
    EXPECT_FALSE(exists(list.control("active")));
    EXPECT_EQ(-1, del_active(list.job(), 1));
    EXPECT_EQ(ENOENT, errno);
}
} // namespace
