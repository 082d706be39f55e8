#include "module/join.h"

#include <gtest/gtest.h>

TEST(Join, PutsTheTextsOneBehindTheOther)
{
    char out[16];
    EXPECT_EQ(0, join_texts(out, sizeof(out), {"a", "/", "", "bc"}));
    EXPECT_STREQ("a/bc", out);
    EXPECT_EQ(0, join_texts(out, sizeof(out), {}));
    EXPECT_STREQ("", out);
}

TEST(Join, TakesAllOfThemOrNothing)
{
    char out[8] = "before";
    EXPECT_EQ(0, join_texts(out, sizeof(out), {"1234", "567"}));
    EXPECT_STREQ("1234567", out);
    for (const char *last : {"4567", "45678", "456789"}) {
        errno = 0;
        EXPECT_EQ(last[4] == '\0' ? 0 : -1, join_texts(out, sizeof(out), {"123", last, ""}));
        EXPECT_EQ(last[4] == '\0' ? 0 : ENAMETOOLONG, errno);
        EXPECT_STREQ(last[4] == '\0' ? "1234567" : "", out);
    }
    EXPECT_EQ(-1, join_texts(out, 1, {"", "x"}));
    EXPECT_EQ(0, join_texts(out, 1, {"", ""}));
}
