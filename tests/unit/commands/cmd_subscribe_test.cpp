/* Joining and leaving: at once, and confirmed by an id. */
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "store/confirm.h"
#include "tests/support/local_time.h"
#include "tests/unit/commands/commands_test.h"

static const char *const roster = "alice@example.net ON \r\nbob@example.jp OFF\r\n";

class Membership : public CommandTest
{
  protected:
    Membership() { list.put("digest", ""); }

    /* Sends the command and answers its reply's block, without the lines around it. */
    std::string block(const std::string &text, int result = 1)
    {
        forget();
        EXPECT_EQ(result, line(text)) << text;
        const std::string mail = sent();
        const size_t at = mail.find("\r\n>>> ") + 6;
        return mail.substr(at, mail.find("\r\n-\r\n") - at);
    }
    static std::string begin(const char *word)
    {
        return "ML Command Log:  mylist carol@example.com\r\n>>> " + std::string(word) + "\r\n";
    }
};

TEST_F(Membership, WithoutConfirmationACommandActsAtOnce)
{
    EXPECT_EQ("subscribe\r\nSucceeded", block("# subscribe\r\n"));
    EXPECT_EQ(roster + std::string("carol@example.com ON \r\n"), list.get("member"));
    EXPECT_EQ("alice@example.net\r\ncarol@example.com\r\n", list.get("active"));
    EXPECT_EQ((std::vector<std::string>{"5/18 " + begin("subscribe") + "Succeeded"}), log());
    EXPECT_EQ("unsubscribe\r\nSucceeded", block("# unsubscribe\r\n"));
    EXPECT_EQ(roster, list.get("member"));
    EXPECT_EQ("alice@example.net\r\n", list.get("active"));
    EXPECT_EQ((std::vector<std::string>{"5/30 " + begin("unsubscribe") + "Succeeded"}), log());
    EXPECT_EQ("", list.get("confirm"));
}

TEST_F(Membership, TheDefaultStatusIsTheLists)
{
    job()->settings.default_status = MEMBER_DIGEST;
    (void)block("# subscribe\r\n");
    EXPECT_EQ(roster + std::string("carol@example.com DGT\r\n"), list.get("member"));
    EXPECT_EQ("carol@example.com\r\n", list.get("digest"));
}

TEST_F(Membership, WhoIsThereOrGoneAlreadyChangesNothing)
{
    for (const int days : {0, 3}) {
        job()->settings.confirmation = days;
        const std::string before = tree_text(list.control());
        send_as("ALICE@example.net");
        EXPECT_EQ("subscribe\r\nSucceeded", block("# subscribe\r\n"));
        EXPECT_TRUE(sent().ends_with("-\r\n\r\n")) << "the welcome text is there";
        send_as("carol@example.com");
        EXPECT_EQ("unsubscribe\r\nSucceeded", block("# unsubscribe\r\n"));
        EXPECT_EQ(before, tree_text(list.control()));
    }
}

TEST_F(Membership, ARosterThatCannotBeReadIsToldAndFails)
{
    unlink(list.control("member").c_str());
    static const struct {
        const char *line, *word;
        int days, look_up;
        const char *text;
        int failed, end;
        const char *end_text;
    } rows[] = {
        {"# subscribe\r\n", "subscribe", 0, 8, "get_member fail at subscribe", 17, 100,
         "Command Subscribe Fail"},
        {"# subscribe\r\n", "subscribe", 3, 10, "get_member fail at subscribe confirm", 17, 100,
         "Command Subscribe Fail"},
        {"# unsubscribe\r\n", "unsubscribe", 0, 20, "get_member fail at unsubscribe", 29, 101,
         "Command Unsubscribe Fail"},
        {"# unsubscribe\r\n", "unsubscribe", 3, 22, "get_member fail at unsubscribe", 29, 101,
         "Command Unsubscribe Fail"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.look_up);
        job()->settings.confirmation = row.days;
        EXPECT_EQ(std::string(row.word) + "\r\nFailed", block(row.line, -1));
        EXPECT_EQ((std::vector<std::string>{
                      "1/" + std::to_string(row.look_up) + " mlname=mylist " + row.text,
                      "5/" + std::to_string(row.failed) + " " + begin(row.word) + "Failed",
                      "1/" + std::to_string(row.end) + " mlname=mylist " + row.end_text}),
                  log());
    }
}

TEST_F(Membership, ARosterThatCannotBeWrittenIsToldAndFails)
{
    ASSERT_EQ(0, mkdir(list.control("member.new").c_str(), 0770));
    /* the look-up's recovery fails already */
    EXPECT_EQ("subscribe\r\nFailed", block("# subscribe\r\n", -1));
    has_log("1/8 mlname=mylist get_member fail at subscribe");
    ASSERT_EQ(0, rmdir(list.control("member.new").c_str()));

    unlink(list.control("active").c_str());
    EXPECT_EQ("subscribe\r\nFailed", block("# subscribe\r\n", -1));
    has_log("1/9 mlname=mylist add mlmbr error at subscribe");
    EXPECT_EQ(roster + std::string("carol@example.com ON \r\n"), list.get("member"))
        << "the member was added before the derived file failed";
    EXPECT_EQ("unsubscribe\r\nSucceeded", block("# unsubscribe\r\n")) << "a removal never fails";
}

TEST_F(Membership, AFailedReplyAboutAFailureIsLoggedToo)
{
    unlink(list.control("member").c_str());
    FaultOs fault;
    fault.before = fail_call("open", "msg/cmdrpy." + std::to_string(gettid()), EROFS);
    EXPECT_EQ(-1, cmd_subscribe(job(), "\r\n"));
    has_log("1/13 mlname=mylist create cmdrpy fail -error- at subscribe");
    EXPECT_EQ(-1, cmd_unsubscribe(job(), "\r\n"));
    has_log("1/25 mlname=mylist create cmdrpy fail -error- at unsubscribe");
}

/* -- confirmation -- */

class Confirmation : public Membership
{
  protected:
    Confirmation()
    {
        set_zone("Asia/Tokyo");
        job()->settings.confirmation = 3;
        clock.now = local_time_of(2026, 11, 15, 9, 24, 31);
    }
    static std::string id_for(unsigned second)
    {
        srand(second);
        const unsigned values[2] = {static_cast<unsigned>(rand()), static_cast<unsigned>(rand())};
        char id[17];
        for (int i = 0; i < 8; ++i)
            snprintf(id + 2 * i, 3, "%02X", values[i / 4] >> 8 * (i % 4) & 0xFF);
        return id;
    }
    std::string asked(const char *word, const std::string &id) const
    {
        const bool join = strcmp(word, "subscribe") == 0;
        return std::string(word) + "\r\nPlease send next command to confirm your " + word +
               " request." + (join ? "\n" : "\r\n") +
               (join ? "So, you can be added to MailingList."
                     : "If confirmed, you are removed from MailingList.") +
               "\r\n\r\n# " + word + " " + id;
    }

    FaultOs clock;
};

TEST_F(Confirmation, TheRoundTripOfJoining)
{
    const std::string id = id_for(31), entry = "carol@example.com 0126/10/18:09:24 " + id + "\r\n";
    EXPECT_EQ(asked("subscribe", id), block("# subscribe\r\n"));
    EXPECT_EQ((std::vector<std::string>{"5/19 " + begin("subscribe") + "ConfirmId ..."}), log());
    EXPECT_EQ(entry, list.get("confirm"));
    EXPECT_EQ(roster, list.get("member"));

    for (const char *wrong :
         {"# subscribe\r\n", "# subscribe 0123456789ABCDEF\r\n", "# subscribe x\r\n"})
        EXPECT_EQ(asked("subscribe", id), block(wrong)) << wrong;
    EXPECT_EQ(entry, list.get("confirm")) << "the same id again, not a second one";
    EXPECT_EQ(roster, list.get("member"));

    EXPECT_EQ("subscribe\r\nSucceeded", block("# subscribe " + id + "\r\n"));
    EXPECT_EQ((std::vector<std::string>{"5/18 " + begin("subscribe") + "Succeeded"}), log());
    EXPECT_EQ(roster + std::string("carol@example.com ON \r\n"), list.get("member"));
    EXPECT_EQ(entry, list.get("confirm")) << "the id is not used up";
    EXPECT_EQ("subscribe\r\nSucceeded", block("# subscribe " + id + "\r\n"));
}

TEST_F(Confirmation, TheRoundTripOfLeaving)
{
    const std::string id = id_for(31);
    send_as("alice@example.net");
    EXPECT_EQ(asked("unsubscribe", id), block("# unsubscribe\r\n"));
    has_log("5/31 ML Command Log:  mylist alice@example.net\r\n>>> unsubscribe\r\nConfirmId ...");
    EXPECT_EQ("alice@example.net 0126/10/18:09:24 " + id + "\r\n", list.get("confirm"));
    EXPECT_EQ(asked("unsubscribe", id), block("# unsubscribe\r\n"));
    EXPECT_EQ(roster, list.get("member"));
    EXPECT_EQ("unsubscribe\r\nSucceeded", block("# unsubscribe " + id + "\r\n"));
    EXPECT_EQ("bob@example.jp OFF\r\n", list.get("member"));
    EXPECT_EQ("", list.get("active"));
}

TEST_F(Confirmation, AnIdServesBothCommandsOfItsAddress)
{
    (void)block("# subscribe\r\n");
    const std::string id = id_for(31);
    EXPECT_EQ("subscribe\r\nSucceeded", block("# subscribe " + id + "\r\n"));
    EXPECT_EQ("unsubscribe\r\nSucceeded", block("# unsubscribe " + id + "\r\n"));
    EXPECT_EQ(roster, list.get("member"));
    send_as("dora@example.com");
    EXPECT_EQ(asked("subscribe", id), block("# subscribe " + id + "\r\n"))
        << "another address has to ask for its own";
}

TEST_F(Confirmation, TextBehindTheIdDoesNotMatterItsCaseDoes)
{
    const std::string id = id_for(31);
    std::string lower = id;
    for (char &c : lower)
        c = static_cast<char>(tolower(c));
    ASSERT_NE(id, lower);
    (void)block("# subscribe\r\n");
    EXPECT_EQ(asked("subscribe", id), block("# subscribe " + lower + "\r\n"));
    EXPECT_EQ(asked("subscribe", id), block("# subscribe " + id.substr(0, 15) + "\r\n"));
    EXPECT_EQ("subscribe\r\nSucceeded", block("#subscribe \t " + id + "and more words\r\n"));
}

TEST_F(Confirmation, AnIdIsGoodThroughItsExpiryMinute)
{
    (void)block("# subscribe\r\n");
    clock.now = local_time_of(2026, 11, 18, 9, 24, 59);
    EXPECT_EQ(asked("subscribe", id_for(31)), block("# subscribe x\r\n"));
    clock.now = local_time_of(2026, 11, 18, 9, 25, 7);
    EXPECT_EQ(asked("subscribe", id_for(7)), block("# subscribe " + id_for(31) + "\r\n"));
    EXPECT_EQ("carol@example.com 0126/10/18:09:24 " + id_for(31) +
                  "\r\ncarol@example.com 0126/10/21:09:25 " + id_for(7) + "\r\n",
              list.get("confirm"));
    EXPECT_EQ("subscribe\r\nSucceeded", block("# subscribe " + id_for(7) + "\r\n"));
}

TEST_F(Confirmation, AConfirmedChangeThatFailsIsToldAndFails)
{
    (void)block("# subscribe\r\n");
    unlink(list.control("active").c_str());
    EXPECT_EQ("subscribe\r\nFailed", block("# subscribe " + id_for(31) + "\r\n", -1));
    has_log("1/9 mlname=mylist add mlmbr error at subscribe");
}

TEST_F(Confirmation, FailuresOfTheDatabaseAreToldAndFail)
{
    unlink(list.control("confirm").c_str());
    EXPECT_EQ("subscribe\r\nFailed", block("# subscribe\r\n", -1));
    has_log("1/11 mlname=mylist get cnfrmdb error at subscribe");
    has_log("5/17 " + begin("subscribe") + "Failed");
    send_as("alice@example.net");
    EXPECT_EQ("unsubscribe\r\nFailed", block("# unsubscribe\r\n", -1));
    has_log("1/23 mlname=mylist get cnfrmdb error at unsubscribe");

    list.put("confirm", "");
    clock.before = fail_call("open", "confirm.new", EDQUOT);
    EXPECT_EQ("unsubscribe\r\nFailed", block("# unsubscribe\r\n", -1));
    has_log("1/24 mlname=mylist add cnfrmdb error at unsubscribe");
    send_as("carol@example.com");
    EXPECT_EQ("subscribe\r\nFailed", block("# subscribe\r\n", -1));
    has_log("1/12 mlname=mylist add cnfrmdb error at subscribe");
    EXPECT_EQ(roster, list.get("member"));
}

TEST_F(Confirmation, AQuestionThatCannotBeWrittenOrSent)
{
    clock.before = fail_call("open", "msg/cmdrpy." + std::to_string(gettid()), EROFS);
    EXPECT_EQ(-1, cmd_subscribe(job(), "\r\n"));
    has_log("1/15 mlname=mylist create cmdrpy fail -confirm- at subscribe");
    send_as("alice@example.net");
    EXPECT_EQ(-1, cmd_unsubscribe(job(), "\r\n"));
    has_log("1/27 mlname=mylist create cmdrpy fail -confirm- at unsubscribe");
    clock.before = nullptr;
    host.accept = 0;
    EXPECT_EQ(-1, cmd_unsubscribe(job(), "\r\n"));
    has_log("1/28 mlname=mylist mailfile fail at unsubscribe");
}

TEST_F(Confirmation, ANegativeNumberOfDaysNeverConfirmsAnything)
{
    job()->settings.confirmation = -1;
    (void)block("# subscribe\r\n");
    EXPECT_EQ(asked("subscribe", id_for(31)), block("# subscribe " + id_for(31) + "\r\n"));
    EXPECT_EQ(roster, list.get("member"));
}

TEST_F(Confirmation, AnAddressWithABlankIsNeverFoundSoNeverConfirmed)
{
    send_as("alice@example.net ON");
    (void)block("# subscribe\r\n");
    EXPECT_EQ(asked("subscribe", id_for(31)), block("# subscribe " + id_for(31) + "\r\n"));
    EXPECT_EQ(roster, list.get("member"));
    EXPECT_EQ(0, cln_cnfrmdb(job()));
    EXPECT_EQ("", list.get("confirm"));
}
