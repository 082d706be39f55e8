/* Command mails, for as long as there are no commands: refused, with nothing done. */
#include <unistd.h>

#include "tests/pipeline/pipeline.h"

class CommandMail : public PipelineTest
{
  protected:
    static constexpr const char *head = "From: alice@example.net\r\nMessage-ID: <c1@x>\r\n\r\n";
    static constexpr const char *unavailable = "mlname=mylist commands by mail are not available";
};

TEST_F(CommandMail, ACommandLineIs523AndSaysSoInTheLog)
{
    const std::string before = tree_text(list.control("member"));
    EXPECT_EQ(69, command(std::string(head) + "# help\r\n"));
    EXPECT_EQ("523 command procedure fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(1, unavailable));
    EXPECT_TRUE(logged(398, "mlname=mylist command procedure fail"));
    EXPECT_TRUE(host.submissions.empty());
    EXPECT_EQ(before, tree_text(list.control("member")));
    expect_nothing_lost_or_left();
}

TEST_F(CommandMail, ABodyWithoutAnyLineIs529)
{
    EXPECT_EQ(69, command(head));
    EXPECT_EQ("529 nothing command fail [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(CommandMail, ALineOver1024CharactersIs522BeforeItIsLookedAt)
{
    EXPECT_EQ(69, command(head + std::string(1023, 'x') + "\r\n"));
    EXPECT_EQ("522 char/line too long (command) [ml=mylist] strlen=1025 " + tid() + "\n", reply());
}

TEST_F(CommandMail, AMissingRosterIs521)
{
    list.put("grant", "alice@example.net\r\n");
    unlink(path("member").c_str());
    EXPECT_EQ(69, command(std::string(head) + "# help\r\n"));
    EXPECT_EQ("521  mail_access2 fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(368, "mlname=mylist mail_access2 get_member fail"));
}
