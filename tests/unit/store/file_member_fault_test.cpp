/* The roster under failures and deaths: the old one or the new one, whole. */
#include "store/file.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "module/tcb.h"
#include "store/ntio.h"
#include "store/roster.h"
#include "tests/support/fake_host.h"
#include "tests/support/out_capture.h"
#include "tests/unit/store/control_fault.h"

namespace
{
const char three_members[] = "alice@example.net ON \r\n"
                             "Bob@Example.jp OFF\r\n"
                             "carol@example.com DGT\r\n";

/* -- whole or not at all -- */

void prepare_long(TempList &list)
{
    std::string roster;
    for (int i = 0; i < 400; ++i)
        roster += "member" + std::to_string(i) + "@example.net " + mi2ms[1 + i % 3] + "\r\n";
    list.put("member", roster);
}

TEST(RosterFaults, AddingSurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto run = [](TempList &list) { return add_member(list.job(), "new@x"); };
    survive_every_change({"member"}, prepare_long, run);
    survive_full_disk({"member"}, prepare_long, run);
}

TEST(RosterFaults, RemovingSurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto run = [](TempList &list) { return del_member(list.job(), "member7@example.net"); };
    survive_every_change({"member"}, prepare_long, run);
    survive_full_disk({"member"}, prepare_long, run);
}

const char *const some_members[] = {"member7@example.net", "new@x", "member390@example.net",
                                    "member8@example.net"};

TEST(RosterFaults, AddingManySurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto run = [](TempList &list) {
        const int wanted[] = {0, 1, 0, 1};
        return add_members(list.job(), RosterSet(some_members, 4), wanted);
    };
    survive_every_change({"member"}, prepare_long, run);
    survive_full_disk({"member"}, prepare_long, run);
}

TEST(RosterFaults, RemovingManySurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto run = [](TempList &list) {
        return del_members(list.job(), RosterSet(some_members, 4));
    };
    survive_every_change({"member"}, prepare_long, run);
    survive_full_disk({"member"}, prepare_long, run);
}

TEST(RosterFaults, ChangingManySurvivesEveryFailureAndDeath)
{
    OutCapture out;
    const auto prepare = [](TempList &list) {
        prepare_long(list);
        list.put("member", "new@x ON\n" + list.get("member")); /* the others make room */
    };
    const auto run = [](TempList &list) {
        int former[4];
        return chg_members(list.job(), RosterSet(some_members, 4), "DGT", former);
    };
    survive_every_change({"member"}, prepare, run);
    survive_full_disk({"member"}, prepare, run);
}

TEST(RosterFaults, ARosterThatIsStillToBeMadeIsMadeWholeOrNotAtAll)
{
    OutCapture out;
    survive_every_change(
        {"member"}, [](TempList &list) { remove(list.control("member").c_str()); },
        [](TempList &list) { return add_member(list.job(), "new@x"); });
}

int change_many(DeliveryJob *job, int (*change)(DeliveryJob *, const RosterSet &))
{
    const char *const two[] = {"bob@example.jp", "alice@example.net"};
    const RosterSet set(two, 2);
    return set.ready() ? change(job, set) : -1;
}

int add_members_of_set(DeliveryJob *job, const RosterSet &set)
{
    const int wanted[] = {1, 1};
    return add_members(job, set, wanted);
}

int chg_members_of_set(DeliveryJob *job, const RosterSet &set)
{
    int former[2];
    return chg_members(job, set, "DGT", former);
}

TEST(RosterFaults, WithoutMemoryNothingIsLost)
{
    static const struct {
        const char *label;
        int (*run)(DeliveryJob *);
        const char *after;
    } rows[] = {
        {"add", [](DeliveryJob *job) { return add_member(job, "new@x"); },
         "alice@example.net ON \r\nBob@Example.jp OFF\r\ncarol@example.com DGT\r\nnew@x ON \r\n"},
        {"del", [](DeliveryJob *job) { return del_member(job, "bob@example.jp"); },
         "alice@example.net ON \r\ncarol@example.com DGT\r\n"},
        {"chg", [](DeliveryJob *job) { return chg_member(job, "bob@example.jp", "DGT"); },
         "alice@example.net ON \r\nBob@Example.jp DGT\r\ncarol@example.com DGT\r\n"},
        {"add many", [](DeliveryJob *job) { return change_many(job, add_members_of_set); },
         "alice@example.net ON \r\nBob@Example.jp OFF\r\ncarol@example.com DGT\r\n"
         "bob@example.jp ON \r\nalice@example.net ON \r\n"},
        {"del many", [](DeliveryJob *job) { return change_many(job, del_members); },
         "carol@example.com DGT\r\n"},
        {"chg many", [](DeliveryJob *job) { return change_many(job, chg_members_of_set); },
         "alice@example.net DGT\r\nBob@Example.jp DGT\r\ncarol@example.com DGT\r\n"},
    };
    for (const auto &row : rows) {
        bool reached = true;
        long nth = 0;
        for (; reached; ++nth) {
            TempList list;
            list.put("member", three_members);
            FakeHost host;
            tcbcreate(&host.request);
            host.fail_allocation = nth;
            const int result = row.run(list.job());
            reached = host.fail_allocation < 0;
            host.fail_allocation = -1;
            EXPECT_EQ(0, f_recover(list.control("member").c_str()));
            EXPECT_EQ(result < 0 ? three_members : row.after, list.get("member"))
                << row.label << " without allocation " << nth;
            tcbfree();
            EXPECT_EQ(0, host.live_blocks) << row.label << " without allocation " << nth;
        }
        EXPECT_GT(nth, 4) << row.label;
    }
    (void)take_log();
}
} // namespace
