#include "host/mlistctl/roster_text.h"

#include <gtest/gtest.h>

TEST(RosterText, GivesTheDerivedFiles)
{
    Roster roster = read_roster("alice@example.net ON \r\n"
                                "bob@example.jp OFF\r\n"
                                "carol@example.com DGT\r\n"
                                "dan@example.org onx\r\n");
    EXPECT_EQ(roster.active, "alice@example.net\r\ndan@example.org\r\n");
    EXPECT_EQ(roster.digest, "carol@example.com\r\n");
    EXPECT_TRUE(roster.faults.empty());
}

TEST(RosterText, TellsItsFaultsWithTheirLines)
{
    Roster roster = read_roster("alice@example.net ON \r\n"
                                "nostatus@example.jp\r\n"
                                "quit@example.jp QUT\r\n"
                                "ALICE@EXAMPLE.NET OFF\r\n"
                                "\r\n"
                                "bell\a@example.jp ON ");
    ASSERT_EQ(roster.faults.size(), 5u);
    EXPECT_EQ(roster.faults[0], "line 2, 'nostatus@example.jp', has no status");
    EXPECT_EQ(roster.faults[1], "line 3, 'quit@example.jp QUT', has a status that is none");
    EXPECT_EQ(roster.faults[2], "line 4, 'ALICE@EXAMPLE.NET OFF', is line 1 again");
    EXPECT_EQ(roster.faults[3], "line 5, '', has no status");
    EXPECT_EQ(roster.faults[4].substr(0, 7), "line 6,");
    EXPECT_EQ(roster.faults[4].find('\a'), std::string::npos) << "fit for a terminal";
}

TEST(RosterText, OfNothingIsNothing)
{
    Roster roster = read_roster("");
    EXPECT_TRUE(roster.active.empty() && roster.digest.empty() && roster.faults.empty());
}
