/* Names and times of a delivery. */
#include "module/mlist_access.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include "tests/support/fault_os.h"
#include "tests/support/local_time.h"

static std::string cleaned(const std::string &in)
{
    std::string out(in.size() + 1, 'x');
    address_check(in.c_str(), out.data());
    return out.c_str();
}

TEST(AddressCheck, ReplacesSlashesAndControlsAndLowersASCIICapitals)
{
    EXPECT_EQ("my-list.1", cleaned("My-LIST.1"));
    EXPECT_EQ("::a:", cleaned("//a/"));
    EXPECT_EQ("a::b:", cleaned("a\n\x1f"
                               "b\x7f"));
    EXPECT_EQ("\xc4\xe4\xff ", cleaned("\xc4\xe4\xff ")) << "other bytes stay";
    EXPECT_EQ("", cleaned(""));
}

TEST(ReceiveTime, IsLocalWithTheFullYearFirst)
{
    set_zone("Asia/Tokyo");
    FaultOs faults;
    faults.now = 1794701640;
    char text[32];
    strtime(text);
    EXPECT_STREQ("2026/11/15 09:14", text);
}
