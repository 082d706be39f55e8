/* What is a list's address and what can never be one. */
#include <gtest/gtest.h>

#include "host/base/names.h"
#include "host/base/text.h"

static const std::vector<std::string> suffixes = {"-ctl", "-request"};

static const struct {
    const char *address;
    Role role;
    const char *list, *domain;
} addresses[] = {
    {"mylist@example.jp", Role::post, "mylist", "example.jp"},
    {"MyList@Example.JP", Role::post, "mylist", "example.jp"},
    {"mylist-ctl@example.jp", Role::control, "mylist", "example.jp"},
    {"mylist-REQUEST@example.jp", Role::control, "mylist", "example.jp"},
    {"owner-mylist@example.jp", Role::owner, "mylist", "example.jp"},
    {"mylist-owner@example.jp", Role::owner, "mylist", "example.jp"},
    {"a.b-c_d+e@x", Role::post, "a.b-c_d+e", "x"},
    {"12345678901234567890123456789012@example.jp", Role::post, "12345678901234567890123456789012",
     "example.jp"},
};

TEST(ListAddress, IsTakenApartByPrefixAndSuffix)
{
    for (const auto &row : addresses) {
        const auto parsed = parse_list_address(row.address, suffixes);
        ASSERT_TRUE(parsed) << row.address;
        EXPECT_EQ(parsed->role, row.role) << row.address;
        EXPECT_EQ(parsed->list, row.list) << row.address;
        EXPECT_EQ(parsed->domain, row.domain) << row.address;
    }
}

static const std::string no_addresses[] = {
    "",
    "@",
    "mylist",
    "mylist@",
    "@example.jp",
    ".@example.jp",
    "..@example.jp",
    "../x@example.jp",
    "a/b@example.jp",
    "/@example.jp",
    "my list@example.jp",
    "my\tlist@example.jp",
    std::string("my\0list@example.jp", 18),
    "my\x7flist@example.jp",
    "my\x80list@example.jp",
    "\"my\"@example.jp",
    "-ctl@example.jp",
    "owner-@example.jp",
    "-owner@example.jp",
    "owner-mylist-ctl@example.jp",
    "mylist-ctl-ctl@example.jp",
    "owner-owner-mylist@example.jp",
    "mylist-owner-request@example.jp",
    "123456789012345678901234567890123@example.jp",
    "mylist@.",
    "mylist@..",
    "mylist@../x",
    "mylist@a/b",
    "mylist@example..jp",
    "mylist@.example.jp",
    "mylist@example.jp.",
    "mylist@exam ple.jp",
    "mylist@[127.0.0.1]",
    "mylist@a@b/c",
    "mylist@" + std::string(160, 'a'),
    std::string(100000, 'a') + "@example.jp",
};

TEST(ListAddress, IsRefusedWhereItCouldLeaveTheTreeOrShadowAnother)
{
    for (const std::string &address : no_addresses)
        EXPECT_FALSE(parse_list_address(address, suffixes)) << address;
}

TEST(ListAddress, FollowsTheConfiguredSuffixes)
{
    EXPECT_EQ(parse_list_address("x-CMD@d", {"-Cmd"})->role, Role::control);
    EXPECT_EQ(parse_list_address("x-ctl@d", {"-cmd"})->role, Role::post);
    EXPECT_FALSE(parse_list_name("x-ctl@d", suffixes));
    EXPECT_TRUE(parse_list_name("x@d", suffixes));
}

TEST(ListAddress, LongestNamesFitTheModulesLoopTest)
{
    EXPECT_TRUE(valid_domain(std::string(DOMAIN_MAX, 'a')));
    EXPECT_LT(LIST_NAME_MAX + DOMAIN_MAX + 2, 194u);
}

TEST(Mailbox, NeedsALocalPartAndADomain)
{
    for (const char *good : {"a@b", "A.B@Example.jp", "\"a b\"@example.jp", "a@[192.0.2.1]",
                             "a@[IPv6:::1]", "!#$%&'*+-/=?^_`{|}~@x"})
        EXPECT_TRUE(valid_mailbox(good)) << good;
    for (const char *bad : {"", "a", "@b", "a@", "a b@c", "a@b c", "<a@b>", "a@b\r\nRCPT TO:<x>",
                            "a..b@c", "\"a\"b\"@c", "a@[1<2]", "a@b,c@d"})
        EXPECT_FALSE(valid_mailbox(bad)) << bad;
    EXPECT_FALSE(valid_mailbox("a@" + std::string(300, 'b')));
}

TEST(HostText, OneLineIsFitForAReply)
{
    EXPECT_EQ(one_line("510 loop (\r\x01x)\nsecond"), "510 loop (x)");
    EXPECT_EQ(one_line("\xa4\xa2 z \r\n"), "?? z");
    EXPECT_EQ(one_line(""), "");
}

TEST(HostText, NumbersHaveUnitsAndNothingElse)
{
    EXPECT_EQ(parse_size("50M"), 50 * 1024 * 1024);
    EXPECT_EQ(parse_size("1k"), 1024);
    EXPECT_EQ(parse_duration("2h"), 7200);
    for (const char *bad : {"", "M", "-1", "+1", " 1", "1 ", "1MM", "0x10", "99999999999999999999"})
        EXPECT_FALSE(parse_size(bad)) << bad;
}
