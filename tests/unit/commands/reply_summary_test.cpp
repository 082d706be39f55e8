/* Lines of "summary": columns, collected headers, ranges. */
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "commands/cmd_args.h"
#include "tests/unit/commands/commands_test.h"

class SummaryLines : public CommandTest
{
  protected:
    /* Result of the reply, and its lines. */
    int create(const std::string &argument)
    {
        const std::string box = list.box();
        job()->mailbox = list_mbx_open(box.c_str(), 1);
        const int result = create_cmdrpy(job(), COMMAND_SUMMARY, argument.c_str(), VARIANT_NORMAL);
        list_mbx_close(job()->mailbox);
        job()->mailbox = nullptr;
        return result;
    }
    std::string lines(const std::string &argument)
    {
        EXPECT_EQ(0, create(argument));
        const std::string text = reply_file(), opening = "\r\nSucceeded\r\n-\r\n";
        const size_t at = text.find(opening);
        return at == std::string::npos ? "(no opening)" : text.substr(at + opening.size());
    }

    /* The line of one message with these header lines. */
    std::string line_of(const std::vector<std::string> &header)
    {
        ++number_;
        archive(number_, crlf(header) + "\r\nSubject: in the body\r\n");
        const std::string text = lines(std::to_string(number_) + "-" + std::to_string(number_));
        EXPECT_TRUE(text.ends_with("\r\n")) << text;
        return text.substr(0, text.size() - 2);
    }

  private:
    uint32_t number_ = 0;
};

TEST_F(SummaryLines, TheOwnerFillsTheColumnsUpToThe34th)
{
    EXPECT_EQ("2026/11/15 09:13 [1:a@b           ] Hi",
              line_of({"Date: Sun, 15 Nov 2026 09:13:57 +0900", "From: A <a@b>", "Subject: Hi"}));
    EXPECT_EQ(" [2:a@b                           ] Hi", line_of({"From: a@b", "Subject: Hi"}));
    EXPECT_EQ("123456789012345678901234 [3:a@b   ] ",
              line_of({"Date: 123456789012345678901234", "From: a@b"}));
    const std::string thirty(30, 'd'), twentynine(29, 'd'), forty(40, 'd');
    EXPECT_EQ(twentynine + " [4:a] ", line_of({"Date: " + twentynine, "From: a@b"}));
    EXPECT_EQ(thirty + " [5:a@b     ] ", line_of({"Date: " + thirty, "From: a@b"}));
    EXPECT_EQ(forty + " [6:alice@ex] Hi",
              line_of({"Date: " + forty, "From: alice@example.net", "Subject: Hi"}));
}

TEST_F(SummaryLines, WithoutAnyHeaderTheColumnsStayBlank)
{
    EXPECT_EQ(" [1:                              ] ", line_of({"X-Other: y"}));
}

TEST_F(SummaryLines, HeadersAreFoundInAnyCaseAndOnlyWithTheirBlank)
{
    EXPECT_EQ(" [1:a@b                           ] two", line_of({"FROM: a@b", "subject: two"}));
    EXPECT_EQ(" [2:                              ] ", line_of({"From:a@b", "Subject:\ttwo"}));
}

TEST_F(SummaryLines, ContinuationsBelongToTheHeaderBeforeThem)
{
    EXPECT_EQ(" [1:a@b                           ] onetwo",
              line_of({"Subject: one", " two", "From: Some (comment", "\tgoes on)", " <a@b>"}));
    EXPECT_EQ("x [2:a@b                          ] Hi",
              line_of({"Date: x", " y", "X-Other: z", " not mine", "From: a@b", "Subject: Hi"}))
        << "neither a date's continuation nor another header's counts";
}

TEST_F(SummaryLines, TheListsTagIsStrippedAndRepliesLoseTheirPrefixes)
{
    EXPECT_EQ(" [1:                              ] Hello", line_of({"Subject: [mylist:12] Hello"}));
    EXPECT_EQ(" [2:                              ] Hello",
              line_of({"Subject: Re: [mylist:12] Re: Hello"}));
    EXPECT_EQ(" [3:                              ] [other:1] Hello",
              line_of({"Subject: [other:1] Hello"}));
}

TEST_F(SummaryLines, SubjectsAreDecodedAndCutWithoutHalfCharacters)
{
    /* 42 bytes are 21 characters; a 22nd goes, and so does half of one behind an odd column. */
    const std::string character = "$F";
    std::string kanji, tail;
    for (int i = 0; i < 30; ++i)
        kanji += character;
    EXPECT_EQ(" [1:                              ] \x1b$B" + kanji.substr(0, 42) + "\x1b(J",
              line_of({"Subject: \x1b$B" + kanji + "\x1b(B"}));
    EXPECT_EQ(" [2:                              ] a\x1b$B" + kanji.substr(0, 40) + "\x1b(J",
              line_of({"Subject: a\x1b$B" + kanji + "\x1b(B"}));
    EXPECT_EQ(" [3:                              ] " + std::string(42, 's'),
              line_of({"Subject: " + std::string(50, 's')}));
    EXPECT_EQ(" [4:                              ] \x1b$B$F$9$H\x1b(B",
              line_of({"Subject: =?ISO-2022-JP?B?GyRCJEYkOSRIGyhC?="}));
    EXPECT_EQ(" [5:                              ] \x1b$@$F\x1b(B",
              line_of({"Subject: \x1b$@$F\x1b(B"}));
}

TEST_F(SummaryLines, AMessageThatIsGoneHasNoLine)
{
    for (const uint32_t number : {1, 2, 3})
        archive_sample(number);
    unlink(message_path(2).c_str());
    EXPECT_EQ("2026/11/15 09:13 [1:alice@example.] Number 1\r\n"
              "2026/11/15 09:13 [3:alice@example.] Number 3\r\n",
              lines("*"));
}

TEST_F(SummaryLines, TheSendersOwnAddressSurvives)
{
    archive_sample(1);
    ASSERT_EQ(0, create("all"));
    EXPECT_STREQ("carol@example.com", job()->sender);
    EXPECT_TRUE(reply_file().find("To: carol@example.com\r\n") != std::string::npos);
}

TEST_F(SummaryLines, AFromThatIsTooLongIsLoggedAndReadingGoesOn)
{
    const std::string much(2000, 'f');
    EXPECT_EQ(" [1:" + much.substr(0, 30) + "] Hi",
              line_of({"From: " + much, " " + much, " " + much, "Subject: Hi"}));
    has_log("1/224 mlname=mylist create_cmdrpy head_from error ");
}

TEST_F(SummaryLines, ASubjectThatIsTooLongIsShownAsFarAsItWasCollected)
{
    const std::string most(1000, 's');
    EXPECT_EQ(" [1:                              ] " + most.substr(0, 42),
              line_of({"Subject: " + most, " " + most}));
    EXPECT_EQ(" [2:                              ] Next", line_of({"Subject: Ne", " xt"}))
        << "the overflow of one message is not the next one's";
}

TEST_F(SummaryLines, ASubjectThatCannotBeDecodedFailsTheReply)
{
    archive(1, "Subject: =?ISO-2022-JP?B?%%%%?=\r\n\r\n");
    EXPECT_EQ(-1, create("1-1"));
    has_log("1/227 mlname=mylist create_cmdrpy decode fail");
    EXPECT_STREQ("carol@example.com", job()->sender);
}

TEST_F(SummaryLines, HugeHeaderLinesAreBounded)
{
    const std::string huge(9000, 'd');
    archive(1, "Date: " + huge + "\r\nFrom: a@b\r\nSubject: Hi\r\n\r\n");
    const std::string text = lines("all");
    EXPECT_TRUE(text.starts_with(std::string(4089, 'd') + " [1:a@b     ] Hi\r\n")) << text.size();
}

/* -- which messages -- */

class SummaryRange : public SummaryLines
{
  protected:
    /* The numbers that a summary lists. */
    std::string numbers(const std::string &argument)
    {
        std::string found;
        const std::string text = lines(argument);
        for (size_t at = 0; (at = text.find(" [", at)) != std::string::npos; ++at)
            found += (found.empty() ? "" : " ") + text.substr(at + 2, text.find(':', at) - at - 2);
        return found;
    }
};

TEST_F(SummaryRange, WithoutAnArgumentTheNewestAreListed)
{
    for (uint32_t number = 1; number <= 9; ++number)
        archive_sample(number);
    job()->settings.summary_limit = 3;
    EXPECT_EQ("7 8 9", numbers(""));
    EXPECT_EQ("7 8 9", numbers("  \t"));
    job()->settings.summary_limit = 0;
    EXPECT_EQ("9", numbers("")) << "no maxsummary= means the newest one alone";
    job()->settings.summary_limit = 500;
    EXPECT_EQ("1 2 3 4 5 6 7 8 9", numbers(""));
    job()->settings.summary_limit = -5;
    EXPECT_EQ(1, create(""));
    has_log("1/223 mlname=mylist create_cmdrpy summcov_argstr fail[str=last:-5]");
}

TEST_F(SummaryRange, WidensToTheNeighboursOfNumbersThatAreGone)
{
    for (const uint32_t number : {1, 2, 7, 8})
        archive_sample(number);
    EXPECT_EQ("2 7", numbers("3-5"));
    EXPECT_EQ("2 7", numbers("5-3"));
    EXPECT_EQ("7", numbers("7-7"));
    EXPECT_EQ("2 7 8", numbers("4-8"));
}

TEST_F(SummaryRange, OutsideOfTheArchiveItAnswersAllOrNothing)
{
    for (uint32_t number = 10; number <= 20; ++number)
        archive_sample(number);
    EXPECT_EQ("10 11 12 13 14 15 16 17 18 19 20", numbers("30-40"));
    EXPECT_EQ("", numbers("1-5"));
    EXPECT_EQ("", numbers("0-0"));
    EXPECT_EQ("10 11 12", numbers("5-12"));
    EXPECT_EQ("19 20", numbers("19-4294967295"));
    EXPECT_EQ("10 11 12 13 14 15 16 17 18 19 20", numbers("4294967295-4294967295"));
}

TEST_F(SummaryRange, AnEmptyArchiveSucceedsWithoutALine)
{
    for (const char *argument : {"", "all", "5", "1-3", "nonsense"})
        EXPECT_EQ("", lines(argument)) << argument;
}

TEST_F(SummaryRange, MalformedArgumentsAnswerOne)
{
    archive_sample(5);
    EXPECT_EQ("5", numbers("5-5"));
    for (const char *argument :
         {"5", "-5", "5-", "x-5", "5-x", "last:", "last:x", "lastly", ",", "5,6", "5 -6", "al"}) {
        EXPECT_EQ(1, create(argument)) << argument;
        has_log("1/223 mlname=mylist create_cmdrpy summcov_argstr fail[str=" +
                std::string(argument) + "]");
    }
}
