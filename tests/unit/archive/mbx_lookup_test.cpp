/* From UIDs to sequence numbers. */
#include <gtest/gtest.h>
#include <limits.h>

#include "tests/unit/archive/box.h"

/* A handle that only has an index. */
struct Lookup {
    Records records;
    MailboxHandle handle = {};
    explicit Lookup(const std::vector<uint32_t> &uids)
    {
        records.push_back({0, 1, static_cast<uint32_t>(uids.size() + 1), 0});
        for (const uint32_t uid : uids)
            records.push_back({uid, 0, 0, uid * 10});
        handle.index = records.data();
    }
};

TEST(UidToSequence, FindsEveryUidAndNoneInGaps)
{
    for (const uint32_t step : {1u, 2u, 7u})
        for (const uint32_t count : {0u, 1u, 2u, 10u, 11u, 12u, 200u}) {
            std::vector<uint32_t> uids;
            for (uint32_t i = 0; i < count; ++i)
                uids.push_back(5 + i * step);
            Lookup at(uids);
            for (uint32_t uid = 0; uid < 5 + count * step + 20; ++uid) {
                int wanted = 0;
                for (uint32_t i = 0; i < count; ++i)
                    if (uids[i] == uid) wanted = static_cast<int>(i + 1);
                ASSERT_EQ(wanted, mlmbx_uid2seq(&at.handle, uid)) << uid << " of " << count;
            }
        }
}

TEST(UidToSequence, WorksAtTheEndOfTheNumbers)
{
    Lookup at({1, 4294967294u, 4294967295u});
    EXPECT_EQ(0, mlmbx_uid2seq(&at.handle, 0));
    EXPECT_EQ(2, mlmbx_uid2seq(&at.handle, 4294967294u));
    EXPECT_EQ(3, mlmbx_uid2seq(&at.handle, 4294967295u));
    EXPECT_EQ(0, mlmbx_uid2seq(&at.handle, 4294967293u));
    EXPECT_EQ(0, mlmbx_uid2seq(nullptr, 1));
}

TEST(UidSearch, AnswersTheWrongWayRoundOutsideTheRange)
{
    Lookup at({10, 12, 20});
    EXPECT_EQ(-1, mbxuidsearch(&at.handle, 5, 0));
    EXPECT_EQ(1, mbxuidsearch(&at.handle, 5, 1));
    EXPECT_EQ(3, mbxuidsearch(&at.handle, 30, 0));
    EXPECT_EQ(-1, mbxuidsearch(&at.handle, 30, 1));
}

/* The scan in its plain form. */
static int scan(const Records &records, uint32_t uid, int direction)
{
    const int last = static_cast<int>(records.size()) - 1;
    if (last == 0) return 0;
    if (uid < records[1].uid) return direction == 0 ? -1 : 1;
    for (int k = 1; k < last; ++k) {
        if (records[k].uid == uid) return k;
        if (records[k].uid < uid && uid < records[k + 1].uid) return direction == 0 ? k + 1 : k;
    }
    return records[last].uid == uid || direction == 0 ? last : -1;
}

TEST(UidSearch, AgreesWithAPlainScan)
{
    const std::vector<std::vector<uint32_t>> mailboxes = {
        {}, {3}, {1, 2, 7, 8}, {2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26}, {0, 5}};
    for (const auto &uids : mailboxes) {
        Lookup at(uids);
        for (uint32_t uid = 0; uid < 40; ++uid)
            for (const int direction : {0, 1, -7})
                EXPECT_EQ(scan(at.records, uid, direction),
                          mbxuidsearch(&at.handle, uid, direction))
                    << uid << " " << direction;
    }
}

TEST(UidCheck, AnswersSizeAndSequenceOrTheCount)
{
    Lookup at({3, 5, 9});
    int sequence = 77;
    EXPECT_EQ(50, mbxuidcheck(&at.handle, 5, &sequence));
    EXPECT_EQ(2, sequence);
    EXPECT_EQ(-1, mbxuidcheck(&at.handle, 4, &sequence));
    EXPECT_EQ(4, sequence);
    at.records[3].size = 4000000000u;
    EXPECT_EQ(INT_MAX, mbxuidcheck(&at.handle, 9, &sequence));
}
