/* The logging front end. */
#include "module/unix_sv.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>

#include "module/job.h"
#include "tests/support/log_capture.h"

TEST(Trace, GoesToTheDeliveryLogAndTraceSysToTheSystemLog)
{
    (void)take_log();
    EXPECT_EQ(0, trace(&g_logh, 5, 660, "mailing-list receive [%s]", "x"));
    EXPECT_EQ(0, trace_sys(&g_logh, 3, 42, "%d", 7));
    const std::vector<LogLine> lines = take_log();
    ASSERT_EQ(2u, lines.size());
    EXPECT_FALSE(lines[0].system);
    EXPECT_EQ(5, lines[0].level);
    EXPECT_EQ(660, lines[0].msgno);
    EXPECT_EQ("mailing-list receive [x]", lines[0].text);
    EXPECT_TRUE(lines[1].system);
    EXPECT_EQ("7", lines[1].text);
}

TEST(Trace, CutsLongTextsSilently)
{
    (void)take_log();
    const std::string text(5000, 'x');
    trace_sys(&g_logh, 1, 1, "%s", text.c_str());
    const std::string cut = take_log().at(0).text;
    EXPECT_LE(cut.size(), 1023u);
    EXPECT_GE(cut.size(), 1000u);
    EXPECT_EQ(text.substr(0, cut.size()), cut);
}

TEST(Trace, ShowsAndKeepsErrno)
{
    (void)take_log();
    errno = ENOSPC;
    trace_sys(&g_logh, 1, 1, "disk: %m");
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ("disk: No space left on device", take_log().at(0).text);
}

TEST(Trace, HasFormsForTracesAndNotices)
{
    (void)take_log();
    const auto job = std::make_unique<DeliveryJob>();
    job->thread_id = 7;
    strcpy(job->list_name, "mylist");
    printtrace(job.get(), "step %d", 3);
    printlog("notice %s", "here");
    EXPECT_EQ(
        (std::vector<std::string>{"11/414 TRC: [007:mylist] step 3", "5/415 LOG: notice here"}),
        take_log_lines(true));
}
