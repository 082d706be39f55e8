/* The built library in several processes at once, as hosts load it. */
#include <gtest/gtest.h>

#include "tests/concurrency/crowd.h"

TEST(BuiltLibraryTogether, ProcessesShareOneList)
{
    Crowd crowd(loaded_calls(), {6});
    crowd.add_processes(2, {.rounds = 20, .commands_in_ten = 4, .visits_in_ten = 2});
    crowd.run_and_expect_order();
}

TEST(BuiltLibraryTogether, ProcessesAndThreadsShareManyLists)
{
    Crowd crowd(loaded_calls(), {1000, 3, 0});
    crowd.add_processes(2, {.rounds = 12, .commands_in_ten = 4, .visits_in_ten = 2});
    crowd.add_threads(3, {.rounds = 12, .commands_in_ten = 4, .visits_in_ten = 2});
    crowd.add_threads(1, {.rounds = 12, .visits_in_ten = 10});
    crowd.run_and_expect_order();
}
