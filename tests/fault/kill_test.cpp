/* The process dies at any changing call of anything that writes.  The files that are left are the
   old ones or the new ones, whole; what was acknowledged is there; the retry does what the first
   attempt would have done. */
#include <gtest/gtest.h>

#include "tests/fault/operations.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"

class Killed : public ::testing::TestWithParam<Operation>
{
};

/* Of a posting that was archived before the process died, the retry is another one. */
static void expect_carried_on(World *world, const Operation &operation, const Effect &effect)
{
    const Aftermath aftermath = carry_on(world, operation);
    EXPECT_EQ(effect.outcome.exit, aftermath.retried.exit) << aftermath.retried.reply;
    for (size_t i = 0; i < effect.after.size(); ++i) {
        const bool counts_postings = std::string(control_files[i]) == "dgtstat";
        if (operation.subject == Subject::posting && counts_postings) continue;
        EXPECT_EQ(effect.after[i], aftermath.contents[i]) << control_files[i];
    }
    EXPECT_EQ(0, aftermath.next.exit) << aftermath.next.reply;
    EXPECT_EQ(effect.complaints, aftermath.complaints);
}

TEST_P(Killed, LeavesOldOrNewFilesAndIsDoneByTheRetry)
{
    const Operation &operation = GetParam();
    World world(operation.settings, operation.banners);
    const StillMachine still;
    const Effect effect = undisturbed(&world, operation);
    ASSERT_EQ(0, effect.outcome.exit) << effect.outcome.reply;
    bool killed = true;
    for (int nth = 0; killed; ++nth) {
        world.restore(effect.image);
        world.promises = effect.promises;
        std::string call;
        {
            FaultOs faults;
            faults.disturb_nth_call(nth, KILL);
            world.is_dead = [&] { return faults.dead(); };
            (void)operation.run(world);
            world.is_dead = nullptr;
            faults.close_open_files();
            killed = faults.disturbed();
            call = faults.disturbed_call();
        }
        SCOPED_TRACE("call " + std::to_string(nth) + ": " + call);
        expect_old_or_new(recovered_contents_of(world), effect);
        expect_carried_on(&world, operation, effect);
        if (HasFailure()) break;
    }
    (void)take_log();
}

INSTANTIATE_TEST_SUITE_P(Operations, Killed, ::testing::ValuesIn(operations),
                         [](const auto &row) { return row.param.label; });
