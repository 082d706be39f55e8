/* The roster under failures and deaths: the old one or the new one, whole. */
#include "store/file.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "module/tcb.h"
#include "store/ntio.h"
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

TEST(RosterFaults, ARosterThatIsStillToBeMadeIsMadeWholeOrNotAtAll)
{
    OutCapture out;
    survive_every_change(
        {"member"}, [](TempList &list) { remove(list.control("member").c_str()); },
        [](TempList &list) { return add_member(list.job(), "new@x"); });
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
