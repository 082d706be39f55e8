/* Threads, and processes beside them, in the module that is linked in: what the thread sanitizer
   watches. */
#include <gtest/gtest.h>

#include "module/os.h"
#include "tests/concurrency/crowd.h"
#include "tests/concurrency/lock_watch.h"

/* No machine dies here, and the more happens at once the better. */
class Together : public ::testing::Test
{
  protected:
    Together()
    {
        static const OsCalls unsynced = [] {
            OsCalls calls = watched_calls();
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
    crowd.add_threads(8, {.rounds = 60});
    crowd.run_and_expect_order();
}

TEST_F(Together, ThreadsPostAndChangeTheRosterOfOneList)
{
    Crowd crowd(linked_calls(), {5});
    crowd.add_threads(8, {.rounds = 60, .commands_in_ten = 5});
    crowd.run_and_expect_order();
}

TEST_F(Together, ThreadsServeManyListsBesideReaders)
{
    Crowd crowd(linked_calls(), {1000, 4, 0, 1, 1000, 30});
    crowd.add_threads(8, {.rounds = 60, .commands_in_ten = 4});
    crowd.add_threads(2, {.rounds = 60, .visits_in_ten = 10});
    crowd.run_and_expect_order();
}

/* Everything that a host does, all at once, and other hosts beside it. */
static const Duty everything = {.rounds = 100, .commands_in_ten = 3, .visits_in_ten = 4};

TEST_F(Together, ThreadsAndProcessesDoEverythingOnOneList)
{
    Crowd crowd(linked_calls(), {1000});
    crowd.add_processes(2, everything);
    crowd.add_threads(8, everything);
    crowd.run_and_expect_order();
}

TEST_F(Together, ThreadsAndProcessesDoEverythingOnAListThatIsTrimmed)
{
    Crowd crowd(linked_calls(), {10});
    crowd.add_processes(2, everything);
    crowd.add_threads(8, everything);
    crowd.run_and_expect_order();
}

TEST_F(Together, ThreadsAndProcessesDoEverythingOnFiftyLists)
{
    std::vector<int> keeps;
    for (int list = 0; list < 50; ++list)
        keeps.push_back(list % 4 == 0 ? list % 3 : 1000);
    Crowd crowd(linked_calls(), keeps);
    crowd.add_processes(2, everything);
    crowd.add_threads(8, everything);
    crowd.run_and_expect_order();
}
