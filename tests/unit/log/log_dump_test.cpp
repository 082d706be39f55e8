/* Hex dumps in the daily log. */
#include <gtest/gtest.h>

#include "mlist/daily_log.h"
#include "tests/support/temp_list.h"

static std::string dump_of(const std::string &data)
{
    TempDir dir;
    EXPECT_EQ(0, logopen(0, dir.path().c_str(), 1, 0, 0));
    logdump(1, data.data(), static_cast<int>(data.size()), "data");
    logclose();
    const std::string text = read_file(dir / list_directory(dir.path()).at(0));
    const size_t line_end = text.find("\r\n");
    EXPECT_TRUE(text.substr(0, line_end).ends_with("] data (" + std::to_string(data.size()) + ")"));
    return text.substr(line_end + 2);
}

TEST(Dump, TwentyBytesAreAFullLineAndAPaddedOne)
{
    EXPECT_EQ("0000: 30313233 34353637  38396162 63646566 | 0123456789abcdef\r\n"
              "0010: 67686900                             | ghi.\r\n",
              dump_of(std::string("0123456789abcdefghi\0", 20)));
}

TEST(Dump, EveryLengthKeepsTheColumnOfCharacters)
{
    for (int length = 1; length <= 16; ++length)
        EXPECT_EQ(42u, dump_of(std::string(static_cast<size_t>(length), 'x')).find(" | "))
            << length;
}

TEST(Dump, BytesAreUnsignedAndTheLastColumnHidesHalfACharacter)
{
    EXPECT_EQ("0000: ffffffff ffffffff  ffffffff ffffffff | " + std::string(15, '\xff') + ".\r\n",
              dump_of(std::string(16, '\xff')));
    EXPECT_EQ("0000: 1f207f                               | . \x7f\r\n", dump_of("\x1f \x7f"));
}

TEST(Dump, NothingIsDumpedOfNothing)
{
    EXPECT_EQ("", dump_of(""));
}

TEST(Dump, LargeDataIsWrittenWholeInLines)
{
    const std::string text = dump_of(std::string(100000, 'x'));
    EXPECT_EQ(4096u * 63 + 2154 * 64, text.size()) << "offsets grow to five digits";
    EXPECT_NE(std::string::npos, text.find("\r\n18690: 78787878 "));
}
