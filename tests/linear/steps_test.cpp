/* The counting counts. */
#include "tests/linear/steps.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/linear/linear.h"

static void demand_caught(int (*parser)(const char *))
{
    uint64_t former = 0;
    for (size_t size = 1000; size <= 16000; size *= 4) {
        const std::string text(size, 'y');
        const uint64_t steps = steps_of([&] { parser(text.c_str()); });
        EXPECT_GE(steps, size * size / 2);
        if (former != 0) { /* four times the input, sixteen times the work */
            EXPECT_GE(steps, 12 * former);
        }
        former = steps;
    }
}

TEST(Steps, ShowAParserThatIsQuadraticByItself)
{
    demand_caught(quadratic_by_itself);
}

TEST(Steps, ShowAParserThatIsQuadraticByTheLibrary)
{
    demand_caught(quadratic_by_library);
}

TEST(Steps, AreTheSameEveryTime)
{
    const std::string text(1000, 'y');
    const auto work = [&] { quadratic_by_library(text.c_str()); };
    EXPECT_EQ(steps_of(work), steps_of(work));
}

TEST(Steps, ThatGrowFasterThanTheInputFailATest)
{
    EXPECT_NONFATAL_FAILURE(
        demand_linear({{"a quadratic parser", repeated("y")}},
                      [](std::string &text) { quadratic_by_library(text.c_str()); }),
        "a quadratic parser");
    EXPECT_NONFATAL_FAILURE(
        demand_linear({{"a parser that is not counted", repeated("y")}}, [](std::string &) {}),
        "are not all");
}
