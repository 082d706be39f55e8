/* What the tests of the store share: a thread that delivers, and the loop that disturbs every
   changing call of an operation once. */
#ifndef TESTS_UNIT_STORE_STORE_TEST_H
#define TESTS_UNIT_STORE_STORE_TEST_H

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "module/tcb.h"
#include "tests/support/fake_host.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_list.h"

/* A thread in the middle of a delivery, which has recorded nothing yet. */
class StoreTest : public ::testing::Test
{
  protected:
    StoreTest()
    {
        umask(017);
        tcbcreate(&host_.request);
        host_.request.reply_text[0] = '\0';
        take_log();
    }
    ~StoreTest() override
    {
        tcbfree();
        EXPECT_EQ(0, host_.live_blocks) << "host memory was not given back";
    }

    std::string reply() const { return host_.reply(); }
    int result_code() const { return thread_context()->result_code; }
    void forget_failure()
    {
        host_.request.reply_text[0] = '\0';
        thread_context()->result_code = 0;
        take_log();
    }

    FakeHost host_;
};

/* Runs prepare, then operate with its n-th changing call failing, then check(n, answer), for
   n = 0, 1, ... until an undisturbed run.  Error -1 lets the process die there.  The number of
   disturbed runs. */
inline int disturb_every_change(int error, const std::function<void()> &prepare,
                                const std::function<int()> &operate,
                                const std::function<void(int nth, int answer)> &check)
{
    for (int nth = 0;; ++nth) {
        prepare();
        int answer;
        bool disturbed;
        {
            FaultOs fault;
            fault.fail_nth_change(nth, error);
            answer = operate();
            disturbed = fault.disturbed();
        }
        check(nth, answer);
        if (!disturbed) return nth;
    }
}

/* The permission bits of a file. */
inline unsigned mode_of(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
}

#endif
