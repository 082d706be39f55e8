/* Thread contexts and the Result code. */
#include "module/tcb.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "module/host_mem.h"
#include "tests/support/fake_host.h"
#include "tests/support/log_capture.h"

TEST(ResultCode, IsRefusalOnAFreshContextAndSaysThatNoneWasSet)
{
    FakeHost host;
    tcbcreate(&host.request);
    (void)take_log();
    errno = 0;
    EXPECT_EQ(69, get_rcode());
    EXPECT_TRUE(logged(1, "tls get value in get_rcode err=0"));
    EXPECT_TRUE(logged(1, "return code [0]"));
    tcbfree();
}

TEST(ResultCode, IsLaterAfterATemporaryFailureAndLogsTheCodeBefore)
{
    FakeHost host;
    tcbcreate(&host.request);
    (void)take_log();
    setrc_tempfail();
    setrc_tempfail();
    EXPECT_EQ(75, get_rcode());
    EXPECT_EQ(
        (std::vector<std::string>{"1/1 set code [0]", "1/1 set code [75]", "1/1 return code [75]"}),
        take_log_lines(true));
    tcbfree();
}

TEST(ResultCode, IsStillKnownWhenTheContextIsGone)
{
    FakeHost host;
    tcbcreate(&host.request);
    setrc_tempfail();
    tcbfree();
    EXPECT_EQ(75, get_rcode());
    tcbcreate(&host.request);
    EXPECT_EQ(69, get_rcode()) << "the next delivery starts anew";
    tcbfree();
}

TEST(ThreadContext, IsFoundThroughTheExportedKeyWhichKeepsItsValue)
{
    FakeHost host;
    tcbcreate(&host.request);
    void *record = pthread_getspecific(tlskey_mlist);
    EXPECT_EQ(record, thread_context());
    EXPECT_EQ(&host.request, thread_context()->request);
    EXPECT_NE(0, thread_context()->start_time);
    tcbfree();
    EXPECT_EQ(record, pthread_getspecific(tlskey_mlist));
    EXPECT_NE(record, static_cast<void *>(thread_context())) << "nobody follows the stale value";
    EXPECT_EQ(0, host.live_blocks);
}

TEST(ThreadContext, OfAThreadWithoutDeliveryIsPrivateAndRefusesToSubmit)
{
    ThreadContext *mine = thread_context();
    ASSERT_NE(nullptr, mine->request);
    char result[MLIST_RESULT_TEXT_SIZE] = {};
    EXPECT_EQ(0, mine->request->submit("f", "s", nullptr, nullptr, result));
    void *memory = host_allocate(10);
    EXPECT_NE(nullptr, memory);
    host_release(memory);
    std::thread([mine] { EXPECT_NE(mine, thread_context()); }).join();
}

TEST(ThreadContext, WithoutMemoryTheDeliveryGoesOnWithThePrivateOne)
{
    FakeHost host;
    host.fail_allocation = 0;
    tcbcreate(&host.request);
    EXPECT_EQ(&host.request, thread_context()->request);
    setrc_tempfail();
    tcbfree();
    EXPECT_EQ(75, get_rcode());
    EXPECT_NE(&host.request, thread_context()->request);
}

TEST(ThreadContext, OfAHostIsBackAfterADeliveryOnTheSameThread)
{
    FakeHost host;
    DeliveryRequest session = host.request;
    tcbcreate(&session);
    const ThreadContext *mine = thread_context();
    setrc_tempfail();
    EXPECT_EQ(69, host.deliver("/nonexistent/m", "", {"mylist"}));
    EXPECT_TRUE(host.reply().starts_with("501 ")) << host.reply();
    EXPECT_EQ(1, host.live_blocks) << "the session's, and nothing of the delivery";
    EXPECT_EQ(mine, thread_context());
    EXPECT_EQ(mine, pthread_getspecific(tlskey_mlist));
    EXPECT_EQ(75, get_rcode());
    tcbfree();
    EXPECT_EQ(0, host.live_blocks);
}

TEST(ThreadNumber, IsTheKernelsOnEveryThreadAndInAChild)
{
    EXPECT_EQ(gettid(), thread_number());
    EXPECT_EQ(gettid(), thread_number()) << "the kept one";
    std::thread([] { EXPECT_EQ(gettid(), thread_number()); }).join();
    const pid_t child = fork();
    if (child == 0) _exit(thread_number() == gettid() ? 0 : 1);
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}
