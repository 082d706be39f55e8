/* The numbered texts: the table as hosts know it, and its two writing rules. */
#include "module/outcome.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <map>

#include "module/tcb.h"
#include "tests/support/fake_host.h"
#include "tests/support/golden.h"
#include "tests/support/log_capture.h"

class OutcomeText : public ::testing::Test
{
  protected:
    OutcomeText()
    {
        host.request.reply_text[0] = '\0';
        tcbcreate(&host.request);
    }
    ~OutcomeText() override { tcbfree(); }
    FakeHost host;
};

/* The arguments of each text, in order; "list" and so on stand for themselves. */
static void put_sample(int code)
{
    switch (code) {
    case 451:
        return put_outcome(code, "list", 7);
    case 470:
    case 472:
    case 473:
    case 474:
    case 475:
        return put_outcome(code, "/path");
    case 480:
        return put_outcome(code, "list");
    case 501:
        return put_outcome(code, 3, 7);
    case 503:
    case 505:
        return put_outcome(code, "list", "error", 7);
    case 506:
    case 508:
        return put_outcome(code, "list", "/path", "error", 7);
    case 513:
    case 515:
    case 516:
    case 519:
    case 520:
    case 524:
        return put_outcome(code, "list", "/path", "error", 7);
    case 509:
    case 522:
        return put_outcome(code, "list", 1025, 7);
    case 510:
        return put_outcome(code, "value", 7);
    case 525:
        return put_outcome(code, "list", "error", 7);
    case 536:
        return put_outcome(code, "list", "error", "/from", "/to", 7);
    case 538:
        return put_outcome(code, 10, "list", 7);
    default:
        return put_outcome(code, "list", 7);
    }
}

TEST_F(OutcomeText, TheWholeTableIsAsPublished)
{
    std::string table;
    for (size_t i = 0; i < outcome_count; ++i) {
        host.request.reply_text[0] = '\0';
        put_sample(outcome_table[i].code);
        table +=
            std::string(outcome_table[i].rule == OutcomeRule::always ? "always   " : "if empty ") +
            visible(host.reply()) + "\n";
    }
    expect_golden("outcomes.txt", table);
}

TEST_F(OutcomeText, OfSeveralFailuresTheFirstKeepsItsTextUnlessTheRuleIsAlways)
{
    put_outcome(503, "list", "error", 7);
    put_outcome(511, "list", 7);
    EXPECT_EQ("503 check directory fail [ml=list] error 007\n", host.reply());
    put_outcome(528, "list", 7);
    EXPECT_EQ("528 input error (no text) [ml=list] 007\n", host.reply());
}

TEST_F(OutcomeText, ATextIsCutAt126CharactersAnd510At127)
{
    const std::string path(300, 'p');
    put_outcome(470, path.c_str());
    EXPECT_EQ(("470 mkdir " + path).substr(0, 126), host.reply());
    put_outcome(510, path.c_str(), 7);
    EXPECT_EQ(("510 loop detected (X-ML-Name: " + path).substr(0, 127), host.reply());
}

TEST_F(OutcomeText, AFullDiskReplacesAnyTextAndIsForLater)
{
    put_outcome(528, "list", 7);
    const auto job = std::make_unique<DeliveryJob>();
    strcpy(job->list_name, "mylist");
    tmperr_put(*job);
    EXPECT_EQ("480 fputs disk full [ml=mylist]", host.reply());
    EXPECT_EQ(75, get_rcode());
}

TEST_F(OutcomeText, ErrnoSurvives)
{
    errno = EDQUOT;
    put_outcome(480, "list");
    EXPECT_EQ(EDQUOT, errno);
}

TEST(ErrorText, IsTheSystemsAndNeverLongerThan127Characters)
{
    char text[128];
    EXPECT_STREQ("No space left on device", error_text(ENOSPC, text));
    EXPECT_STREQ("Success", error_text(0, text));
    EXPECT_STREQ("Unknown error 99999", error_text(99999, text));
}
