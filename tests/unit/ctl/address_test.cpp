#include "host/mlistctl/address.h"

#include <gtest/gtest.h>

#include "host/mlistctl/failure.h"

static const std::vector<std::string> control_suffixes = {"-ctl", "-request"};

TEST(ListAddressWord, IsReadInAnyCaseOfLetters)
{
    ListAddress address = read_list_address("MyList@Example.JP", control_suffixes);
    EXPECT_EQ(address.list, "mylist");
    EXPECT_EQ(address.domain, "example.jp");
}

TEST(ListAddressWord, IsRefusedWithAReason)
{
    static const struct {
        const char *label, *word, *advice;
    } rows[] = {
        {"no domain", "mylist", "LIST@DOMAIN"},
        {"an empty name", "@example.jp", "LIST@DOMAIN"},
        {"the owners' address", "owner-mylist@example.jp", "owners"},
        {"the owners' other address", "mylist-owner@example.jp", "owners"},
        {"a control address", "mylist-CTL@example.jp", "control address"},
        {"a way up", "..@example.jp", "LIST@DOMAIN"},
        {"33 characters", "abcdefghijklmnopqrstuvwxyzabcdefg@example.jp", "32"},
    };
    for (const auto &row : rows) {
        try {
            read_list_address(row.word, control_suffixes);
            ADD_FAILURE() << row.label << ": was taken";
        } catch (const Failure &failure) {
            EXPECT_EQ(failure.exit_status, CTL_USAGE) << row.label;
            EXPECT_NE(failure.advice.find(row.advice), std::string::npos)
                << row.label << ": " << failure.advice;
        }
    }
}

TEST(MemberAddress, IsTakenWhenMailCanBeSentToIt)
{
    for (const char *address : {"alice@example.net", "A.B+c@EXAMPLE.jp", "o'neil@example.net",
                                "odd..dots.@docomo.example.jp", "x@localhost"})
        EXPECT_EQ(member_address_fault(address), nullptr) << address;
    EXPECT_EQ(member_address_fault(std::string(243, 'a') + "@example.jp"), nullptr) << "254 bytes";
}

TEST(MemberAddress, IsRefusedWhenItWouldBreakTheRosterOrAProgram)
{
    static const struct {
        const char *label;
        std::string address;
    } rows[] = {
        {"nothing", ""},
        {"no at-sign", "alice"},
        {"nothing before it", "@example.jp"},
        {"nothing after it", "alice@"},
        {"two at-signs", "alice@b@example.jp"},
        {"a blank", "alice b@example.jp"},
        {"a line end", "alice@example.jp\r\neve@example.com"},
        {"a tab", "alice\t@example.jp"},
        {"a NUL", std::string("alice\0@example.jp", 17)},
        {"a delete character", "alice\x7f@example.jp"},
        {"an angle bracket", "<alice@example.jp>"},
        {"a comma", "alice@example.jp,eve"},
        {"a quote", "\"alice\"@example.jp"},
        {"a leading dash", "-froot@example.jp"},
        {"a letter beyond ASCII", "m\xc3\xa9@example.jp"},
        {"255 bytes", std::string(244, 'a') + "@example.jp"},
    };
    for (const auto &row : rows)
        EXPECT_NE(member_address_fault(row.address), nullptr) << row.label;
}
