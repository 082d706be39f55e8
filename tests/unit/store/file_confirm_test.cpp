/* The "confirm" file: entries and their expiry. */
#include <unistd.h>

#include "tests/unit/store/confirm_test.h"

TEST_F(Confirm, AnEntryCarriesItsExpiryInTheCalendarsOwnFields)
{
    FaultOs clock;
    clock.now = local_time_of(2026, 11, 15, 9, 24, 59);
    EXPECT_EQ(0, add("carol@example.com"));
    EXPECT_EQ("carol@example.com 0126/10/18:09:24 0123456789ABCDEF\r\n", list.get("confirm"));
    clock.now = local_time_of(2026, 12, 31, 23, 59);
    list.job()->settings.confirmation = 1;
    EXPECT_EQ(0, add("dora@example.com"));
    EXPECT_EQ("carol@example.com 0126/10/18:09:24 0123456789ABCDEF\r\n"
              "dora@example.com 0127/00/01:23:59 0123456789ABCDEF\r\n",
              list.get("confirm"));
}

TEST_F(Confirm, AnEntryIsGoodThroughItsExpiryMinute)
{
    FaultOs clock;
    clock.now = local_time_of(2026, 11, 15, 9, 24);
    ASSERT_EQ(0, add("carol@example.com"));
    clock.now = local_time_of(2026, 11, 18, 9, 24, 59);
    EXPECT_EQ(id, find("carol@example.com"));
    EXPECT_EQ(0, cln_cnfrmdb(list.job()));
    EXPECT_NE("", list.get("confirm"));
    clock.now = local_time_of(2026, 11, 18, 9, 25);
    EXPECT_EQ("", find("carol@example.com"));
    EXPECT_EQ(0, cln_cnfrmdb(list.job()));
    EXPECT_EQ("", list.get("confirm"));
}

TEST_F(Confirm, AddressesAreFoundInAnyCaseAndWhole)
{
    ASSERT_EQ(0, add("Carol@Example.com"));
    EXPECT_EQ(id, find("cAROL@example.COM"));
    EXPECT_EQ("", find("carol@example.co"));
    EXPECT_EQ("", find("carol@example.com.jp"));
    EXPECT_EQ("", find(""));
    EXPECT_EQ("", find("dora@example.com"));
}

TEST_F(Confirm, AnExpiredEntryIsPassedOverForALaterOne)
{
    FaultOs clock;
    clock.now = local_time_of(2026, 11, 15, 9, 24);
    list.put("confirm", "a@x 0126/10/15:09:23 AAAAAAAAAAAAAAAA\r\n"
                        "a@x\r\n"
                        "b@x 0126/10/15:09:25 BBBBBBBBBBBBBBBB\r\n"
                        "a@x 0126/10/15:09:24 CCCCCCCCCCCCCCCC\r\n"
                        "a@x 0126/10/15:09:25 DDDDDDDDDDDDDDDD\r\n");
    EXPECT_EQ("CCCCCCCCCCCCCCCC", find("a@x"));
}

TEST_F(Confirm, IdsLoseBlanksAndWhatIsBehind16Characters)
{
    list.put("confirm", "a@x 9999/00/01:00:00 0123456789ABCDEFGHI\r\n"
                        "b@x 9999/00/01:00:00 SHORT \t \r\n"
                        "c@x 9999/00/01:00:00  \r\n"
                        "d@x 9999/00/01:00:00 \xa4\xa2\n"
                        "e@x 9999/00/01:00:00 LAST");
    EXPECT_EQ("0123456789ABCDEF", find("a@x"));
    EXPECT_EQ("SHORT", find("b@x"));
    EXPECT_EQ("", find("c@x")) << "an empty id would match any answer";
    EXPECT_EQ("\xa4\xa2", find("d@x"));
    EXPECT_EQ("LAST", find("e@x"));
}

TEST_F(Confirm, CleaningKeepsWhatIsGoodByteForByte)
{
    const std::string good = "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\n";
    const std::string other = "b@x 99999999999999999999/0/1:0:0 text of any kind \r\n";
    list.put("confirm", "x@x 0001/00/01:00:00 AAAAAAAAAAAAAAAA\r\n" + good +
                            "no blank\r\n\r\n"
                            "y@x 9999/00/01:00:00 \x01\r\n"
                            "y@x 9999-00/01:00:00 AAAAAAAAAAAAAAAA\r\n" +
                            other + "two words 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\n");
    EXPECT_EQ(0, cln_cnfrmdb(list.job()));
    EXPECT_EQ(good + other, list.get("confirm"));
    EXPECT_EQ(0, cln_cnfrmdb(list.job()));
    EXPECT_EQ(good + other, list.get("confirm"));
}

TEST_F(Confirm, ALastLineWithoutALineEndStaysAloneWhenOneIsAdded)
{
    list.put("confirm", "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA");
    ASSERT_EQ(0, add("b@x"));
    EXPECT_TRUE(list.get("confirm").starts_with("a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\nb@x "));
    EXPECT_EQ("AAAAAAAAAAAAAAAA", find("a@x"));
    EXPECT_EQ(id, find("b@x"));
    list.put("confirm", "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\n");
    ASSERT_EQ(0, add("b@x"));
    EXPECT_TRUE(list.get("confirm").starts_with("a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\nb@x "));
}

TEST_F(Confirm, LongAddressesDamageNothing)
{
    const std::string good = "a@x 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\n";
    for (const size_t size : {1000u, 4054u, 4055u, 4056u, 4095u}) {
        list.put("confirm", good);
        ASSERT_EQ(0, add(std::string(size, 'l')));
        EXPECT_EQ("AAAAAAAAAAAAAAAA", find("a@x"));
        ASSERT_EQ(0, add("b@x"));
        EXPECT_EQ(id, find("b@x")) << size;
        EXPECT_EQ(0, cln_cnfrmdb(list.job()));
        EXPECT_EQ("AAAAAAAAAAAAAAAA", find("a@x"));
        EXPECT_EQ(id, find("b@x"));
    }
}

TEST_F(Confirm, LinesAtTheBordersOfReadBlocksAreFoundAndKept)
{
    for (size_t pad = 8150; pad < 8200; ++pad) {
        std::string text;
        while (text.size() + 96 + 60 < pad)
            text += std::string(60, 'f') + " 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\n";
        const size_t rest = pad - text.size();
        text += std::string(rest - 36, 'g') + " 9999/00/01:00:00 AAAAAAAAAAAAAAAA\r\n";
        text += "a@x 9999/00/01:00:00 BBBBBBBBBBBBBBBB\r\n";
        list.put("confirm", text);
        ASSERT_EQ("BBBBBBBBBBBBBBBB", find("a@x")) << pad;
        ASSERT_EQ(0, cln_cnfrmdb(list.job()));
        ASSERT_EQ(text, list.get("confirm")) << pad;
    }
}

TEST_F(Confirm, AMissingDatabaseIsNotMade)
{
    unlink(list.control("confirm").c_str());
    EXPECT_EQ(-1, add("a@x"));
    char found[CONFIRM_ID_SIZE] = "x";
    EXPECT_EQ(-1, get_cnfrmdb(list.job(), "a@x", found));
    EXPECT_STREQ("", found);
    EXPECT_EQ(-1, cln_cnfrmdb(list.job()));
    EXPECT_FALSE(exists(list.control("confirm")));
    EXPECT_EQ((std::vector<std::string>{
                  "1/1 mlname=mylist add_cnfrmdb f_open No such file or directory [CTL/confirm]",
                  "1/277 mlname=mylist get_cnfrmdb f_open error No such file or directory "
                  "[CTL/confirm]",
                  "1/269 mlname=mylist cln_cnfrmdb f_open error [CTL/confirm]"}),
              log_of(list));
}
