/* The built library in several processes at once, as hosts load it. */
#include <gtest/gtest.h>

#include "tests/concurrency/crowd.h"

TEST(BuiltLibraryTogether, ProcessesShareOneList)
{
    Crowd crowd(loaded_calls(), {6});
    crowd.add_processes(2, {20, 4, false});
    crowd.run_and_expect_order();
}

TEST(BuiltLibraryTogether, ProcessesAndThreadsShareManyLists)
{
    Crowd crowd(loaded_calls(), {1000, 3, 0});
    crowd.add_processes(2, {12, 4, false});
    crowd.add_threads(3, {12, 4, false});
    crowd.add_threads(1, {12, 0, true});
    crowd.run_and_expect_order();
}
