/* The host has no memory for the n-th block that a delivery asks for: the mail is for later or the
   delivery does without, and nothing is lost. */
#include <gtest/gtest.h>

#include "tests/fault/operations.h"
#include "tests/support/log_capture.h"

class WithoutMemory : public ::testing::TestWithParam<Operation>
{
};

static std::vector<Operation> deliveries()
{
    std::vector<Operation> found;
    for (const Operation &operation : operations)
        if (operation.subject == Subject::posting || operation.subject == Subject::command)
            found.push_back(operation);
    return found;
}

/* KEPT: settings that there was no memory to read are the defaults, and an archive that there was
   no memory to open gets its index made anew.
   Tests: Posting.WithoutSettingsFileTheDefaultsApply,
   MailboxOpen.RebuildsADamagedIndexAndFailsAllTheSame */
static Complaints without_what_is_kept(const Operation &operation, Complaints complaints)
{
    complaints.erase("an archived message is damaged");
    const bool rebuilt = complaints.erase("the index was made anew") > 0;
    if (!rebuilt || operation.settings != std::vector<std::string>{"journal=0"}) return complaints;
    for (const char *lost : {"a number was given twice", "an acknowledged posting is lost",
                             "the next number is taken"})
        complaints.erase(lost);
    return complaints;
}

TEST_P(WithoutMemory, NothingIsLost)
{
    const Operation &operation = GetParam();
    World world(operation.settings, operation.banners);
    const StillMachine still;
    const Effect effect = undisturbed(&world, operation);
    ASSERT_EQ(0, effect.outcome.exit) << effect.outcome.reply;
    int nth = 0;
    for (;; ++nth) {
        world.restore(effect.image);
        world.promises = effect.promises;
        world.host.fail_allocation = nth;
        const Outcome outcome = operation.run(world);
        const bool reached = world.host.fail_allocation < 0;
        world.host.fail_allocation = -1;
        if (!reached) break;
        SCOPED_TRACE("block " + std::to_string(nth) + ", ended with " +
                     std::to_string(outcome.exit) + " " + outcome.reply);
        EXPECT_TRUE(outcome.exit == 0 || outcome.exit == 69 || outcome.exit == 75);
        EXPECT_TRUE(outcome.exit != 69 || !outcome.reply.empty()) << "refused without a reason";
        EXPECT_EQ(0, world.host.live_blocks);
        if (operation.settings.empty()) expect_old_or_new(recovered_contents_of(world), effect);
        const Aftermath aftermath = carry_on(&world, operation);
        EXPECT_EQ(0, aftermath.retried.exit) << aftermath.retried.reply;
        EXPECT_EQ(0, aftermath.next.exit) << aftermath.next.reply;
        EXPECT_EQ(effect.complaints, without_what_is_kept(operation, aftermath.complaints));
    }
    EXPECT_GT(nth, 10);
    (void)take_log();
}

INSTANTIATE_TEST_SUITE_P(Operations, WithoutMemory, ::testing::ValuesIn(deliveries()),
                         [](const auto &row) { return row.param.label; });
