/* "on", "off" and "digest", and the commands that only answer. */
#include <string.h>
#include <unistd.h>

#include "tests/unit/commands/commands_test.h"

class StatusCommands : public CommandTest
{
  protected:
    std::string result(size_t n = 0) const
    {
        const std::string mail = sent(n);
        const size_t at = mail.find("\r\n", mail.find("\r\n>>> ") + 2) + 2;
        return mail.substr(at, mail.find("\r\n", at) - at);
    }
};

static const struct StatusRow {
    int (*run)(DeliveryJob *);
    const char *word, *stored;
    int change, fail_create, normal_create, send, failed, succeeded;
} status_rows[] = {
    {cmd_on, "on", "ON ", 35, 36, 37, 38, 39, 40},
    {cmd_off, "off", "OFF", 41, 42, 43, 44, 45, 46},
    {cmd_digest, "digest", "DGT", 47, 48, 49, 50, 51, 52},
};

static std::string log_line(const StatusRow &row, int number, const std::string &sender,
                            const std::string &what)
{
    return "5/" + std::to_string(number) + " ML Command Log:  mylist " + sender + "\r\n>>> " +
           row.word + "\r\n" + what;
}

static std::string fail_line(int number, const std::string &text, const StatusRow &row)
{
    return "1/" + std::to_string(number) + " mlname=mylist " + text + row.word;
}

TEST_F(StatusCommands, EveryStatusBecomesEveryOther)
{
    for (const StatusRow &row : status_rows)
        for (const std::string former : {"ON ", "OFF", "DGT"}) {
            SCOPED_TRACE(former + " to " + row.word);
            send_as("Alice@Example.NET");
            list.put("member", "alice@example.net " + former + "\r\nbob@example.jp DGT\r\n");
            list.put("active", former == "ON " ? "alice@example.net\r\n" : "");
            list.put("digest", former == "DGT" ? "alice@example.net\r\nbob@example.jp\r\n"
                                               : "bob@example.jp\r\n");
            forget();
            EXPECT_EQ(0, row.run(job()));
            EXPECT_EQ("Succeeded", result());
            const std::string now = row.stored;
            EXPECT_EQ("alice@example.net " + now + "\r\nbob@example.jp DGT\r\n",
                      list.get("member"));
            EXPECT_EQ(now == "ON " ? "alice@example.net\r\n" : "", list.get("active"));
            EXPECT_EQ(now == "DGT" ? "alice@example.net\r\nbob@example.jp\r\n"
                                   : "bob@example.jp\r\n",
                      list.get("digest"));
            EXPECT_EQ((std::vector<std::string>{
                          log_line(row, row.succeeded, "Alice@Example.NET", "Succeeded")}),
                      log());
        }
}

TEST_F(StatusCommands, AStrangerIsToldFailedAndTheCommandCounts)
{
    for (const StatusRow &row : status_rows) {
        forget();
        const std::string before = list.get("member");
        EXPECT_EQ(0, row.run(job())) << row.word;
        EXPECT_EQ("Failed", result());
        EXPECT_EQ(before, list.get("member"));
        EXPECT_EQ(
            (std::vector<std::string>{log_line(row, row.failed, "carol@example.com", "Failed")}),
            log());
    }
}

TEST_F(StatusCommands, ARosterThatCannotBeChangedIsToldAndFails)
{
    unlink(list.control("member").c_str());
    for (const StatusRow &row : status_rows) {
        forget();
        EXPECT_EQ(-1, row.run(job())) << row.word;
        EXPECT_EQ("Failed", result());
        has_log(fail_line(row.change, "chg mlmbr error at ", row));
        has_log(log_line(row, row.failed, "carol@example.com", "Failed"));
    }
}

TEST_F(StatusCommands, RepliesThatCannotBeWrittenOrSent)
{
    for (const StatusRow &row : status_rows)
        for (const bool member : {true, false}) {
            SCOPED_TRACE(row.word);
            send_as(member ? "alice@example.net" : "carol@example.com");
            forget();
            {
                FaultOs fault;
                fault.before = fail_call("open", "msg/cmdrpy." + std::to_string(gettid()), EROFS);
                EXPECT_EQ(-1, row.run(job()));
            }
            has_log(member ? fail_line(row.normal_create, "create cmdrpy fail -normal- at ", row)
                           : fail_line(row.fail_create, "create cmdrpy fail -error(1)- at ", row));
            host.accept = 0;
            EXPECT_EQ(-1, row.run(job()));
            host.accept = 1;
            has_log(fail_line(row.send, "mailfile fail at ", row));
        }
}

TEST_F(StatusCommands, HelpMemberAndStatLogWhatTheyDid)
{
    EXPECT_EQ(0, cmd_help(job()));
    EXPECT_EQ(0, cmd_member(job()));
    EXPECT_EQ(0, cmd_stat(job()));
    const std::string begin = " ML Command Log:  mylist carol@example.com\r\n>>> ";
    EXPECT_EQ((std::vector<std::string>{
                  "5/7" + begin + "help\r\nSucceeded", "5/34" + begin + "member\r\nSucceeded",
                  "1/140 get_status null", "5/55" + begin + "stat\r\nSucceeded"}),
              log());
    EXPECT_TRUE(sent(1).ends_with(list.get("member")));
}

TEST_F(StatusCommands, StatShowsTheWordForEachStatus)
{
    list.put("member", "a@x ON \r\nb@x OFF\r\nc@x DGT\r\nd@x QUT\r\ne@x\r\nf@x ONX\r\n");
    static const struct {
        const char *sender, *shown;
    } rows[] = {{"a@x", "ON"},   {"b@x", "OFF"},  {"c@x", "DGT"},
                {"d@x", "QUIT"}, {"e@x", "QUIT"}, {"f@x", "ON"}};
    for (const auto &row : rows) {
        send_as(row.sender);
        forget();
        EXPECT_EQ(0, cmd_stat(job()));
        EXPECT_TRUE(sent().ends_with("-\r\n" + std::string(row.shown) + "\r\n")) << row.sender;
    }
}
