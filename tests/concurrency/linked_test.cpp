/* Threads, and processes beside them, in the module that is linked in: what the thread sanitizer
   watches. */
#include <gtest/gtest.h>

#include "module/os.h"
#include "tests/concurrency/crowd.h"

/* No machine dies here, and the more happens at once the better. */
class Together : public ::testing::Test
{
  protected:
    Together()
    {
        static const OsCalls unsynced = [] {
            OsCalls calls = kernel_calls;
            calls.fsync = [](int) { return 0; };
            return calls;
        }();
        os = &unsynced;
    }
    ~Together() override { os = &kernel_calls; }
};

TEST_F(Together, ThreadsPostToOneList)
{
    Crowd crowd(linked_calls(), {1000});
    crowd.add_threads(8, {60, 0, false});
    crowd.run_and_expect_order();
}

TEST_F(Together, ThreadsPostAndChangeTheRosterOfOneList)
{
    Crowd crowd(linked_calls(), {5});
    crowd.add_threads(8, {60, 5, false});
    crowd.run_and_expect_order();
}

TEST_F(Together, ThreadsServeManyListsBesideReaders)
{
    Crowd crowd(linked_calls(), {1000, 4, 0, 1, 1000, 30});
    crowd.add_threads(8, {60, 4, false});
    crowd.add_threads(2, {60, 0, true});
    crowd.run_and_expect_order();
}

TEST_F(Together, ProcessesWorkBesideThreadsOnOneList)
{
    Crowd crowd(linked_calls(), {10});
    crowd.add_processes(2, {60, 4, false});
    crowd.add_threads(4, {60, 4, false});
    crowd.add_threads(1, {60, 0, true});
    crowd.run_and_expect_order();
}

TEST_F(Together, ProcessesWorkBesideThreadsOnManyLists)
{
    Crowd crowd(linked_calls(), {1000, 3, 0});
    crowd.add_processes(2, {60, 5, false});
    crowd.add_processes(1, {60, 0, true});
    crowd.add_threads(5, {60, 5, false});
    crowd.run_and_expect_order();
}
