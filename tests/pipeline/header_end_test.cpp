/* Header lines and the end of the header, as the pipeline sees them. */
#include <sys/stat.h>
#include <unistd.h>

#include "mlist/mlist.h"
#include "tests/pipeline/pipeline.h"

class HeaderEnd : public PipelineTest
{
  protected:
    /* A header line of length characters, its line end included. */
    static std::string line_of(size_t length)
    {
        return "X-Long: " + std::string(length - 10, 'x') + "\r\n";
    }
};

TEST_F(HeaderEnd, ALineOf1024CharactersPassesAndOneMoreIs509)
{
    EXPECT_EQ(0, post("From: alice@example.net\r\n" + line_of(1024) + "\r\ntext\r\n"));
    EXPECT_EQ(69, post("From: alice@example.net\r\n" + line_of(1025) + "\r\ntext\r\n"));
    EXPECT_EQ("509 char/line too long (header) [ml=mylist] strlen=1025 " + tid() + "\n", reply());
    EXPECT_EQ(69, post(line_of(5000) + "\r\ntext\r\n"));
    EXPECT_EQ("509 char/line too long (header) [ml=mylist] strlen=4095 " + tid() + "\n", reply());
    expect_nothing_lost_or_left();
}

TEST_F(HeaderEnd, AMessageWithoutBlankLineIs528)
{
    EXPECT_EQ(69, post("From: alice@example.net\r\nSubject: x\r\n"));
    EXPECT_EQ("528 input error (no text) [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(404, "mlname=mylist input error (no text)"));
    EXPECT_EQ(69, post(""));
    EXPECT_EQ("528 input error (no text) [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(HeaderEnd, TheBottomBannerComesBefore528AndMayTurnItInto526)
{
    list.put("msg/bnrbtm.txt", "bottom\r\n");
    EXPECT_EQ(69, post("From: alice@example.net\r\n"));
    EXPECT_TRUE(journal().ends_with("bottom\r\n\r\n"));
    unlink(path("msg/bnrbtm.txt").c_str());
    mkdir(path("msg/bnrbtm.txt").c_str(), 0700);
    EXPECT_EQ(69, post("From: alice@example.net\r\n"));
    EXPECT_EQ("526 insert banner(bottom) fail [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(HeaderEnd, AnXMlNameOfThisListIsALoopInAnyCase)
{
    EXPECT_EQ(69, post_plain({"X-ML-Name: MyList@EXAMPLE.jp.more"}));
    EXPECT_EQ("510 loop detected (X-ML-Name: MyList@EXAMPLE.jp.more) " + tid() + "\n", reply());
    EXPECT_EQ(0, post_plain({"X-ML-Name: other@example.jp"}));
    EXPECT_NE(std::string::npos, archived(1).find("\r\nX-ML-Name: other@example.jp\r\n"));
    EXPECT_NE(std::string::npos, archived(1).find("\r\nX-ML-Name: mylist@example.jp\r\n"));
}

TEST_F(HeaderEnd, AnXMlNameOnAContinuationLineIsALoopToo)
{
    EXPECT_EQ(69, post_plain({"X-ML-Name:", " mylist@example.jp"}));
    EXPECT_TRUE(reply().starts_with("510 loop detected (X-ML-Name: ")) << reply();
}

TEST_F(HeaderEnd, A510TextMayFillTheWholeReply)
{
    EXPECT_EQ(69, post_plain({"X-ML-Name: mylist@example.jp" + std::string(300, 'x')}));
    EXPECT_EQ(127u, reply().size());
}

TEST_F(HeaderEnd, AnAddressTooLongForTheLoopCheckIsALoop)
{
    /* list 6 + domain 185 + 2 = 193 fits; one more does not. */
    for (const size_t size : {185u, 186u}) {
        const std::string domain = std::string(size - 4, 'd') + ".com";
        const std::string control = list.root() + "/control/" + domain + "/mylist";
        write_file(list.root() + "/message", "From: alice@example.net\r\n\r\ntext\r\n");
        ASSERT_EQ(75, host.deliver(list.root() + "/message", domain, {"mylist"}));
        std::string box = list.root() + "/box/" + domain + "/mylist/INBOX";
        ASSERT_EQ(1, mlmbx_create(box.c_str()));
        for (const char *name : {"grant", "member", "dgtstat", "active"})
            write_file(control + "/" + name, "");
        const bool fits = size == 185;
        EXPECT_EQ(fits ? 0 : 69, host.deliver(list.root() + "/message", domain, {"mylist"}));
        EXPECT_EQ(fits ? "" : "510 loop detected (X-ML-Name: ) " + tid() + "\n", reply());
        EXPECT_EQ(!fits, logged(369, "mlname=mylist loop mail buffer size too small"));
    }
}

TEST_F(HeaderEnd, AMissingGrantFileIs511EvenForAnOpenListAndCommandMails)
{
    unlink(path("grant").c_str());
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ("511 mail_access fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(367, "mlname=mylist mail_access get_grant fail"));
    EXPECT_EQ(69, command("From: alice@example.net\r\n\r\n# help\r\n"));
    EXPECT_EQ("511 mail_access fail [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(HeaderEnd, AnAddedLineThatDoesNotFitIs512)
{
    add_resent_header = 1;
    /* The Sender line is charged with the sender's length. */
    std::string header = "From: ";
    for (int i = 0; i < 4; ++i)
        header += std::string(1000, 'a') + "\r\n ";
    header += std::string(90, 'a') + "\r\n";
    EXPECT_EQ(69, post(header + "\r\ntext\r\n"));
    EXPECT_EQ("512 add header fail [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(HeaderEnd, AnUndecodableSubjectIs514)
{
    EXPECT_EQ(69, post("From: alice@example.net\r\nSubject: =?ISO-2022-JP?B?@@?=\r\n\r\ntext\r\n"));
    EXPECT_EQ("514 add header (subject) fail [ml=mylist] " + tid() + "\n", reply());
}

TEST_F(HeaderEnd, AReturnPathWithAnAddressIs518)
{
    for (const char *value :
         {"Return-Path: <a@b>", "return-path: <>", "Return-Path: mailer-daemon@x"}) {
        EXPECT_EQ(69, post_plain({value})) << value;
        EXPECT_EQ("518 header procedure fail [ml=mylist] " + tid() + "\n", reply()) << value;
    }
    EXPECT_TRUE(logged(1, "header_proc: retpath err"));
    EXPECT_EQ(0, post_plain({"Return-Path: a@b"}));
}

TEST_F(HeaderEnd, SubjectNoeditKeepsTheLineInPlace)
{
    list.put("init", init_with({"subject=noedit"}));
    ASSERT_EQ(0, post_plain({"X-After: 1"}));
    EXPECT_TRUE(
        archived(1).starts_with("From: alice@example.net\r\nSubject: Hello\r\n"
                                "Message-ID: <a1@example.net>\r\nX-After: 1\r\nX-ML-Name: "));
    EXPECT_EQ(std::string::npos, archived(1).find("[mylist:"));
}

TEST_F(HeaderEnd, TheSwitchForResentHeadersReplacesTheCountByASenderLine)
{
    add_resent_header = 1;
    ASSERT_EQ(0, post_plain());
    EXPECT_NE(std::string::npos,
              archived(1).find("Reply-To: mylist@example.jp\r\nSender: owner-mylist@example.jp\r\n"
                               "Subject: [mylist:00001] Hello\r\n"));
    EXPECT_EQ(std::string::npos, archived(1).find("X-Mail-Count"));
}

TEST_F(HeaderEnd, ReplyeditNoAddsNoReplyTo)
{
    list.put("init", init_with({"replyedit=no"}));
    ASSERT_EQ(0, post_plain());
    EXPECT_EQ(std::string::npos, archived(1).find("Reply-To"));
}

TEST_F(HeaderEnd, BareLineFeedsArePassedOn)
{
    ASSERT_EQ(0, post("From: alice@example.net\nSubject: Hello\nX-A: 1\n\ntext\n"));
    EXPECT_TRUE(archived(1).starts_with("From: alice@example.net\nX-A: 1\nX-ML-Name: "));
    EXPECT_TRUE(archived(1).ends_with("Subject: [mylist:00001] Hello\r\n\ntext\n"));
}

TEST_F(HeaderEnd, ATopBannerThatCannotBeRepairedIs475FromTheLayerBelow)
{
    mkdir(path("msg/bnrtop.txt.new").c_str(), 0700);
    write_file(path("msg/bnrtop.txt.new/in-the-way"), "");
    EXPECT_EQ(75, post_plain());
    EXPECT_TRUE(reply().starts_with("475 f_reover disk full ")) << reply();
    EXPECT_TRUE(logged_prefix(258, "mlname=mylist insert_banner_t recover error "));
}

TEST_F(HeaderEnd, ATopBannerThatCannotBeReadIs517)
{
    mkdir(path("msg/bnrtop.txt").c_str(), 0700);
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ("517 insert banner(top) fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged_prefix(260, "mlname=mylist insert_banner_t fgets error Is a directory ["));
}

TEST_F(HeaderEnd, ABottomBannerThatCannotBeReadIs526)
{
    mkdir(path("msg/bnrbtm.txt").c_str(), 0700);
    EXPECT_EQ(69, post_plain());
    EXPECT_EQ("526 insert banner(bottom) fail [ml=mylist] " + tid() + "\n", reply());
}
