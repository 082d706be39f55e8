#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "module/tcb.h"
#include "store/file.h"
#include "tests/unit/store/control_fault.h"

namespace
{
struct AccessRow {
    const char *label;
    const char *file, *address, *line; /* of the buffer */
};

const AccessRow grant_rows[] = {
    {"the address", "a@b\r\n", "a@b", "a@b"},
    {"any letter case", "  Alice@Example.net   \r\n", "aLICE@eXAMPLE.NET", "  Alice@Example.net"},
    {"tabs around it", "\t a@b \t\r\n", "a@b", "\t a@b"},
    {"the second line", "x@y\r\na@b\r\n", "a@b", "a@b"},
    {"no line end", "x@y\r\na@b", "a@b", "a@b"},
    {"line feeds alone", "x@y\na@b\nc@d\n", "a@b", "a@b"},
    {"the first of equal lines", "A@b \r\na@b\r\n", "a@b", "A@b"},
    {"only a part", "aa@b\r\na@bb\r\na@\r\n@b\r\n", "a@b", ""},
    {"blanks inside", "a @b\r\na@b c\r\n", "a@b", ""},
    {"no comments", "#a@b\r\n", "a@b", ""},
    {"no wildcards", "*@b\r\n*\r\n", "a@b", ""},
    {"blank lines", "\r\n  \r\n\t\r\n", "a@b", ""},
    {"blank lines and nobody", "\r\n  \r\n\t\r\n", "", ""},
};

TEST(GetGrant, AnEqualLineGrants)
{
    for (const AccessRow &row : grant_rows) {
        TempList list;
        list.put("grant", row.file);
        list.put("member", "m@x ON \r\n");
        char line[LINE_SIZE];
        memset(line, 'x', sizeof(line));
        EXPECT_EQ(0, get_grant(list.job(), row.address, line)) << row.label;
        EXPECT_STREQ(row.line, line) << row.label;
        EXPECT_EQ(0, get_grant(list.job(), "m@x", line)) << row.label;
        EXPECT_STREQ("", line) << "a member does not pass: " << row.label;
    }
}

TEST(GetGrant, AnEmptyFileLetsMembersOfAnyStatusPost)
{
    TempList list;
    list.put("member", "a@b OFF\r\nc@d ON \r\n");
    char line[LINE_SIZE];
    EXPECT_EQ(0, get_grant(list.job(), "A@B", line));
    EXPECT_STREQ("a@b OFF\r\n", line);
    EXPECT_EQ(0, get_grant(list.job(), "x@y", line));
    EXPECT_STREQ("", line);
    remove(list.control("member").c_str());
    EXPECT_EQ(-1, get_grant(list.job(), "a@b", line));
    (void)take_log();
}

TEST(GetGrant, FindsALineInALongFile)
{
    TempList list;
    std::string file;
    for (int i = 0; i < 2000; ++i)
        file += "  sender" + std::to_string(i) + "@example.net \r\n";
    list.put("grant", file);
    char line[LINE_SIZE];
    for (int i = 0; i < 2000; i += 13) {
        const std::string address = "sender" + std::to_string(i) + "@example.net";
        EXPECT_EQ(0, get_grant(list.job(), address.c_str(), line));
        EXPECT_EQ("  " + address, line);
    }
}

TEST(GetGrant, FailuresAreLoggedAndGiveMinusOne)
{
    char line[LINE_SIZE];
    {
        TempList list;
        remove(list.control("grant").c_str());
        (void)take_log();
        EXPECT_EQ(-1, get_grant(list.job(), "a@b", line));
        EXPECT_STREQ("", line);
        EXPECT_EQ((std::vector<std::string>{
                      "1/186 mlname=mylist get_grant file not stat No such file or directory"}),
                  log_of(list));
        mkdir(list.control("grant").c_str(), 0700);
        EXPECT_EQ(-1, get_grant(list.job(), "a@b", line));
        const std::vector<LogLine> log = take_log();
        ASSERT_EQ(2u, log.size());
        EXPECT_EQ("ReadFile error 21", log[0].text);
        EXPECT_FALSE(log[1].system) << "this one text goes to the delivery log";
        EXPECT_EQ(1, log[1].level);
        EXPECT_EQ(1, log[1].msgno);
        EXPECT_EQ("mlname=mylist get_grant fgets error [" + list.control("grant") + "]",
                  log[1].text);
    }
    {
        TempList list;
        mkdir(list.control("grant.new").c_str(), 0700);
        (void)take_log();
        EXPECT_EQ(-1, get_grant(list.job(), "a@b", line));
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, "1/185 mlname=mylist get_grant recover Is a directory"))
            << joined(log);
    }
    {
        TempList list;
        list.put("grant", "a@b\r\n");
        (void)take_log();
        FaultOs faults;
        faults.before = fail_call("open", "/grant", 0, EACCES);
        EXPECT_EQ(-1, get_grant(list.job(), "a@b", line));
        EXPECT_EQ(
            (std::vector<std::string>{"1/187 mlname=mylist get_grant f_open error [CTL/grant]\n"}),
            log_of(list));
    }
}

const AccessRow subscribe_rows[] = {
    {"the domain", "example.jp\r\n", "a@example.jp", "example.jp"},
    {"plain lines in any case", "Example.jp\r\n", "a@eXAMPLE.JP", "Example.jp"},
    {"blanks around it", "  example.jp \t\r\n", "a@example.jp", "  example.jp"},
    {"another domain", "example.jp\r\n", "a@mail.example.jp", ""},
    {"an address is no domain", "a@example.jp\r\n", "a@example.jp", ""},
    {"a pattern", "*.example.jp\r\n", "a@mail.example.jp", "*.example.jp"},
    {"a pattern without a dot", "*example.jp\r\n", "a@example.jp", "*example.jp"},
    {"a pattern as long as the domain", "*ample\r\n", "a@ample", "*ample"},
    {"a pattern longer than the domain", "*xample\r\n", "a@ample", ""},
    {"a pattern in another case", "*.example.jp\r\n", "a@mail.EXAMPLE.JP", ""},
    {"a pattern inside the domain", "*.example\r\n", "a@mail.example.jp", ""},
    {"an asterisk alone", "*\r\n* \r\n", "a@example.jp", ""},
    {"a second asterisk is itself", "**jp\r\n", "a@example.jp", ""},
    {"empty lines are skipped", "\r\n  \r\nexample.jp\r\n", "a@example.jp", "example.jp"},
    {"the first line that matches", "*.jp\r\nexample.jp\r\n", "a@example.jp", "*.jp"},
    {"everything after the first at-sign", "b@example.jp\r\n", "a@b@example.jp", "b@example.jp"},
    {"no at-sign", "example.jp\r\n*p\r\n", "example.jp", ""},
    {"nothing after it", "\r\n*x\r\n", "a@", ""},
    {"nobody", "example.jp\r\n", "", ""},
    {"line feeds alone", "example.com\n*.jp\n", "a@example.jp", "*.jp"},
    {"no line end", "example.jp", "a@example.jp", "example.jp"},
};

TEST(GetSubscribe, PatternsDependOnCaseAndPlainLinesDoNot)
{
    for (const AccessRow &row : subscribe_rows) {
        TempList list;
        list.put("subscribe", row.file);
        char line[LINE_SIZE];
        memset(line, 'x', sizeof(line));
        EXPECT_EQ(0, get_subscribe(list.job(), row.address, line)) << row.label;
        EXPECT_STREQ(row.line, line) << row.label;
    }
}

TEST(GetSubscribe, AnEmptyFileLetsAnyoneWithADomainIn)
{
    TempList list;
    char line[LINE_SIZE];
    memset(line, 'x', sizeof(line));
    EXPECT_EQ(0, get_subscribe(list.job(), "a@b", line));
    EXPECT_STREQ("\n", line);
    EXPECT_EQ('x', line[2]) << "the rest of the buffer stays";
    EXPECT_EQ(0, get_subscribe(list.job(), "nobody", line));
    EXPECT_STREQ("", line);
    EXPECT_EQ(0, get_subscribe(list.job(), "nobody@", line));
    EXPECT_STREQ("", line);
}

TEST(GetSubscribe, FailuresAreLoggedAndGiveMinusOne)
{
    char line[LINE_SIZE];
    {
        TempList list;
        remove(list.control("subscribe").c_str());
        (void)take_log();
        EXPECT_EQ(-1, get_subscribe(list.job(), "a@b", line));
        EXPECT_EQ((std::vector<std::string>{
                      "1/188 mlname=mylist get_subscribe file not stat No such file or directory"}),
                  log_of(list));
        mkdir(list.control("subscribe").c_str(), 0700);
        EXPECT_EQ(-1, get_subscribe(list.job(), "a@b", line));
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, "1/191 mlname=mylist get_subscribe fgets error Is a directory "
                                  "[CTL/subscribe]"))
            << joined(log);
    }
    {
        TempList list;
        list.put("subscribe", "b\r\n");
        mkdir(list.control("subscribe.new").c_str(), 0700);
        (void)take_log();
        EXPECT_EQ(-1, get_subscribe(list.job(), "a@b", line));
        const auto log = log_of(list);
        EXPECT_TRUE(has_line(log, "1/189 mlname=mylist get_subscribe recover error Is a directory "
                                  "[CTL/subscribe]"))
            << joined(log);
    }
    {
        TempList list;
        list.put("subscribe", "b\r\n");
        (void)take_log();
        FaultOs faults;
        faults.before = fail_call("open", "/subscribe", 0, EACCES);
        EXPECT_EQ(-1, get_subscribe(list.job(), "a@b", line));
        EXPECT_EQ((std::vector<std::string>{"1/190 mlname=mylist get_subscribe f_open error "
                                            "Permission denied [CTL/subscribe]"}),
                  log_of(list));
    }
}

/* The size is asked before the repair: an empty file whose replacement was cut short still lets
   anyone in. */
TEST(GetSubscribe, LooksAtTheSizeBeforeItRepairs)
{
    TempList list;
    list.put("subscribe.new", "example.jp\r\n");
    list.put("subscribe.old", "");
    char line[LINE_SIZE];
    EXPECT_EQ(0, get_subscribe(list.job(), "a@b", line));
    EXPECT_STREQ("\n", line);
    EXPECT_TRUE(exists(list.control("subscribe.new")));
}

TEST(NotExistGrant, IsAlwaysThere)
{
    TempList list;
    remove(list.control("grant").c_str());
    (void)take_log();
    EXPECT_EQ(0, notexist_grant(list.job()));
    EXPECT_EQ((std::vector<std::string>{"11/253 mlname=mylist notexist_grant grant file availabe"}),
              log_of(list));
}

TEST(NotExistSubscribe, AnEmptyFileCountsAsThere)
{
    TempList list;
    (void)take_log();
    EXPECT_EQ(0, notexist_subscribe(list.job()));
    EXPECT_EQ((std::vector<std::string>{
                  "11/256 mlname=mylist notexist_subscribe subscribe file availabe"}),
              log_of(list));
    remove(list.control("subscribe").c_str());
    EXPECT_EQ(1, notexist_subscribe(list.job()));
    EXPECT_EQ((std::vector<std::string>{
                  "1/255 mlname=mylist notexist_subscribe subscribe file not exist"}),
              log_of(list));
    mkdir(list.control("subscribe.new").c_str(), 0700);
    EXPECT_EQ(1, notexist_subscribe(list.job()));
    const auto log = log_of(list);
    EXPECT_TRUE(has_line(log, "1/254 mlname=mylist notexist_subscribe recover error Is a directory "
                              "[CTL/subscribe]"))
        << joined(log);
}
} // namespace
