/* The FLAGS item. */
#include <gtest/gtest.h>

#include "tests/unit/archive/box.h"

TEST(FlagsItem, NamesFlagsInTheirOrder)
{
    static const struct {
        uint32_t flags;
        const char *item;
    } rows[] = {
        {0, "FLAGS ()"},
        {127, "FLAGS (\\Seen \\Answered \\Flagged \\Deleted \\Draft \\Recent $MDNSent)"},
        {MESSAGE_RECENT | MESSAGE_SEEN, "FLAGS (\\Seen \\Recent)"},
        {MESSAGE_MDNSENT | MESSAGE_CHANGED | MESSAGE_EXPUNGE, "FLAGS ($MDNSent)"},
        {127 | MESSAGE_VANISHED, "FLAGS ()"},
    };
    for (const auto &row : rows) {
        OutCapture out;
        IndexRecord index[2] = {{2, 1, 2, 0}, {1, row.flags, 0, 0}};
        list_mbx_fetch_flags2(index, 1);
        EXPECT_EQ(row.item, out.take());
    }
}
