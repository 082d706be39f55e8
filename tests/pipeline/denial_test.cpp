/* Refused postings and the notices about them. */
#include "mlist/mlist.h"
#include "tests/pipeline/pipeline.h"

class Denial : public PipelineTest
{
  protected:
    std::string mail = crlf({"From: Stranger <stranger@example.org>",
                             "Message-ID: <s1@example.org>", "Subject: Buy", "", "text"});

    /* What the notice has to be, around the reason and the copy of the rewritten posting. */
    std::string notice(const std::string &sender, const std::string &id, const std::string &reason,
                       const std::string &copy)
    {
        return "From: owner-mylist@example.jp\r\nTo: " + sender +
               "\r\nSubject: ML denied: mylist\r\nX-ML-Name: mylist@example.jp\r\n"
               "In-Reply-To: <" +
               id +
               ">\r\nMime-Version: 1.0\r\n"
               "Content-Type: Multipart/Mixed;\r\n\tboundary=\"--NextPart(" +
               id +
               ")--\"\r\n"
               "\r\n----NextPart(" +
               id +
               ")--\r\n"
               "Content-Type: Text/Plain; charset=iso-2022-jp\r\n\r\n"
               "\r\nDistribution Denied:\r\n-\r\n\r\n\t" +
               reason +
               "\r\n\r\n"
               "\r\n----NextPart(" +
               id + ")--\r\nContent-Type: Message/Rfc822\r\n\r\n" + copy + "\r\n----NextPart(" +
               id + ")----\r\n\r\n";
    }

    std::string copy_of_mail =
        crlf({"From: Stranger <stranger@example.org>", "Message-ID: <s1@example.org>",
              "X-ML-Name: mylist@example.jp", "X-Mail-Count: 000001", "Precedence: list",
              "Reply-To: mylist@example.jp", "Subject: [mylist:00001] Buy", "", "text"});
};

TEST_F(Denial, TheNoticeForAStrangerIsByteExact)
{
    list.put("init", init_with({"vstrml=deny"}));
    const std::string box_before = tree_text(list.box());
    host.result_to_write = "queued";
    EXPECT_EQ(0, post(mail));
    EXPECT_EQ("", reply());
    EXPECT_EQ("queued", host.result());
    ASSERT_EQ(1u, host.submissions.size());
    const Submission &s = host.submissions[0];
    EXPECT_EQ(path("msg/mldeny." + std::to_string(gettid())), s.file);
    EXPECT_EQ("owner-mylist@example.jp", s.envelope_sender);
    EXPECT_EQ((std::vector<std::string>{"stranger@example.org"}), s.recipients);
    EXPECT_FALSE(s.has_recipient_file);
    EXPECT_TRUE(s.result_was_zeroed);
    EXPECT_EQ(notice("stranger@example.org", "s1@example.org", "It is restrict mailing list rule. ",
                     copy_of_mail),
              s.content);
    EXPECT_TRUE(logged(408, "Distribution Denied Log: mylist stranger@example.org"));
    EXPECT_TRUE(list_directory(path("msg")).empty());
    EXPECT_EQ("", list.get("dgtstat"));
    EXPECT_EQ(copy_of_mail, journal()) << "it stays until the thread overwrites it";
    EXPECT_EQ(box_before, tree_text(list.box()));
    expect_nothing_lost_or_left();
}

TEST_F(Denial, ADeniedPostingUsesUpNoNumber)
{
    list.put("init", init_with({"vstrml=deny"}));
    ASSERT_EQ(0, post(mail));
    ASSERT_EQ(0, post_plain());
    EXPECT_NE(std::string::npos, archived(1).find("X-Mail-Count: 000001\r\n"));
    EXPECT_EQ(path("jnl/2"), host.submissions.at(1).file);
}

TEST_F(Denial, WithoutASenderTheOwnerGetsTheNotice)
{
    list.put("init", init_with({"vstrml=deny"}));
    ASSERT_EQ(0, post("Message-ID: <s1@example.org>\r\nSubject: Buy\r\n\r\ntext\r\n"));
    EXPECT_EQ((std::vector<std::string>{"owner-mylist@example.jp"}),
              host.submissions.at(0).recipients);
    EXPECT_NE(std::string::npos, host.submissions[0].content.find("\r\nTo: \r\n"));
}

TEST_F(Denial, GrantedSendersAndMembersMayPostToAClosedList)
{
    list.put("init", init_with({"vstrml=deny"}));
    ASSERT_EQ(0, post_plain()) << "a member, since the grant file is empty";
    EXPECT_EQ(1u, list_directory(list.box("#msg")).size());
    list.put("grant", "  Stranger@Example.ORG \r\n");
    ASSERT_EQ(0, post(mail));
    EXPECT_EQ(2u, list_directory(list.box("#msg")).size());
    ASSERT_EQ(0, post_plain());
    EXPECT_EQ(2u, list_directory(list.box("#msg")).size()) << "a grant file shuts members out";
}

TEST_F(Denial, AnOversizePostingIsAnsweredWith538AndANotice)
{
    ml_maxmsgsize = 1;
    list.put("init", init_with({"maxmsgsize=1"}));
    const std::string head = "From: alice@example.net\r\nMessage-ID: <a1@x>\r\n\r\n";
    const std::string fits = head + std::string(1024 - head.size() - 2, 'x') + "\r\n";
    EXPECT_EQ(0, post(fits));
    EXPECT_EQ("", reply());
    EXPECT_EQ(0, post(fits + "\n"));
    EXPECT_EQ("538 Max message size over (1KB) [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(414, "mlname=mylist Max message size over (1KB)"));
    ASSERT_EQ(2u, host.submissions.size());
    EXPECT_NE(std::string::npos,
              host.submissions[1].content.find("-\r\n\r\n\tMax message size over (1KB)\r\n\r\n"));
    EXPECT_EQ((std::vector<std::string>{"alice@example.net"}), host.submissions[1].recipients);
}

TEST_F(Denial, TheSizeIsTestedOnlyWhenTheHostSaysExactlyOne)
{
    list.put("init", init_with({"maxmsgsize=1"}));
    const std::string big = std::string(3000, 'x') + "\r\n";
    for (const int value : {0, 2}) {
        ml_maxmsgsize = value;
        EXPECT_EQ(0, post_plain({}, big)) << value;
        EXPECT_EQ("", reply()) << value;
    }
}

TEST_F(Denial, AClosedListGivesItsOwnReasonBeforeTheSize)
{
    ml_maxmsgsize = 1;
    list.put("init", init_with({"maxmsgsize=1", "vstrml=deny"}));
    EXPECT_EQ(0, post(mail + std::string(2000, 'x') + "\r\n"));
    EXPECT_TRUE(reply().starts_with("538 ")) << reply();
    EXPECT_NE(std::string::npos,
              host.submissions.at(0).content.find("\tIt is restrict mailing list rule. \r\n"));
}

TEST_F(Denial, ALimitBeyond32BitsOfBytesIsNoLimitForASmallMail)
{
    ml_maxmsgsize = 1;
    list.put("init", init_with({"maxmsgsize=2147483647"}));
    EXPECT_EQ(0, post_plain());
    EXPECT_EQ("", reply());
}

TEST_F(Denial, ANoticeThatCannotBeWrittenIs530)
{
    list.put("init", init_with({"vstrml=deny"}));
    mkdir(path("msg/mldeny." + std::to_string(gettid())).c_str(), 0700);
    EXPECT_EQ(69, post(mail));
    EXPECT_EQ("530 create mldeny fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(
        logged_prefix(235, "mlname=mylist create_mldeny can't open mailfile Is a directory ["));
    EXPECT_TRUE(host.submissions.empty());
}

TEST_F(Denial, ANoticeThatTheHostRefusesIs531AndStays)
{
    list.put("init", init_with({"vstrml=deny"}));
    host.accept = 0;
    EXPECT_EQ(69, post(mail));
    EXPECT_EQ("531  mailfile fail [ml=mylist] " + tid() + "\n", reply());
    EXPECT_TRUE(logged(407, "mlname=mylist mlist mailfile1 fail"));
    EXPECT_EQ(1u, list_directory(path("msg")).size());
    expect_nothing_lost_or_left();
}

TEST_F(Denial, AnOversizePostingKeepsItsTextWhenTheNoticeFails)
{
    ml_maxmsgsize = 1;
    list.put("init", init_with({"maxmsgsize=1"}));
    host.accept = 0;
    EXPECT_EQ(69, post_plain({}, std::string(3000, 'x')));
    EXPECT_TRUE(reply().starts_with("538 Max message size over (1KB)")) << reply();
}

TEST_F(Denial, LineEndsOfTheRefusedMessageBecomeCRLF)
{
    list.put("init", init_with({"vstrml=deny"}));
    ASSERT_EQ(0, post("From: stranger@example.org\nMessage-ID: <s1@x>\nSubject: Buy\n\nno end"));
    const std::string content = host.submissions.at(0).content;
    EXPECT_NE(std::string::npos,
              content.find("From: stranger@example.org\r\nMessage-ID: <s1@x>\r\n"));
    EXPECT_NE(std::string::npos, content.find("\r\n\r\nno end\r\n----NextPart(s1@x)----\r\n\r\n"));
}

TEST_F(Denial, APercentInTheSenderIsTakenAsItStands)
{
    list.put("init", init_with({"vstrml=deny"}));
    ASSERT_EQ(0, post("From: a%s%n@example.org\r\n\r\ntext\r\n"));
    EXPECT_EQ((std::vector<std::string>{"a%s%n@example.org"}), host.submissions.at(0).recipients);
    EXPECT_TRUE(logged(408, "Distribution Denied Log: mylist a%s%n@example.org"));
}
