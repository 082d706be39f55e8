/* The power fails: whatever was not synced may be gone.  Nothing that was acknowledged is lost, and
   what the next operation finds is the old state or the new one, whole. */
#include <gtest/gtest.h>

#include "mlist/archive.h"
#include "module/host_mem.h"
#include "tests/fault/crash_run.h"

static std::function<Outcome(World &)> post(int posting)
{
    return [=](World &world) { return world.post(posting); };
}

static std::function<Outcome(World &)> command(const char *sender, const char *line)
{
    return [=](World &world) { return world.command(sender, line); };
}

static Outcome done(bool well)
{
    return {well ? 0 : 75, well ? "" : "failed"};
}

/* An index transaction of the host's own. */
static Outcome flag_first_message(World &world)
{
    IndexHandle *index = mlmbx_openidx(world.box().c_str(), -1, INDEX_PLAIN);
    if (index == NO_INDEX_HANDLE) return done(false);
    IndexRecord *records = mlmbx_readidx(index);
    if (records != nullptr) records[1].flags ^= MESSAGE_FLAGGED;
    const bool written = records != nullptr && mlmbx_writeidx(index, records) == 0;
    host_release(records);
    return done(mlmbx_closeidx(index, INDEX_PLAIN) != -1 && written);
}

/* A check by a handle that knows the index of another UIDVALIDITY: it keeps its transaction. */
static Outcome find_another_index(World &world)
{
    MailboxHandle *handle =
        list_mbx_open(world.box().c_str(), MAILBOX_QUIET | MAILBOX_NO_WRITE_BACK);
    if (handle == nullptr) return done(false);
    ++handle->index[0].flags;
    handle->mode |= MAILBOX_FORCE_CHECK;
    mlmbx_checknewmail2(handle);
    list_mbx_close(handle);
    return done(true);
}

/* Two of a kind: what the first leaves unsynced meets what the second writes. */
static const CrashScenario scenarios[] = {
    {"PostingBelowTheKeepCount", {}, {post(11), post(12)}},
    {"PostingAtTheKeepCount", {"journal=3"}, {post(11), post(12)}},
    {"PostingThatIsNotKept", {"journal=0"}, {post(11), post(12)}},
    {"DenialAfterAPosting",
     {"vstrml=deny"},
     {post(11), [](World &world) { return world.post_as("stranger@example.com", 12); }}},
    {"Subscribe",
     {},
     {command("carol@example.com", "# subscribe"), command("frank@example.com", "# subscribe")}},
    {"Unsubscribe",
     {},
     {command("alice@example.net", "# unsubscribe"), command("dora@example.jp", "# unsubscribe")}},
    {"OffAndOn", {}, {command("alice@example.net", "# off"), command("alice@example.net", "# on")}},
    {"Digest",
     {},
     {command("bob@example.jp", "# digest"), command("alice@example.net", "# digest")}},
    {"AskingForAnId",
     {"confirm=3"},
     {command("carol@example.com", "# subscribe"), command("frank@example.com", "# subscribe")}},
    {"JoiningWithAnId",
     {"confirm=3"},
     {command("erin@example.com", "# subscribe EEEEEEEEEEEEEEEE"), post(11)}},
    {"PostingAfterHalfAnIndex", {"journal=3"}, {post(11)}, leave_half_an_index},
    {"PostingAfterHalfAStatus",
     {},
     {post(11)},
     [](World &world) { leave_half_committed(world, "dgtstat", "1-3"); }},
    {"OffAfterHalfARoster",
     {},
     {command("alice@example.net", "# off")},
     [](World &world) { leave_half_committed(world, "member", world.list.get("member")); }},
    {"HostsTransactionAfterAPosting", {}, {post(11), flag_first_message}},
    {"HostsTransactions", {}, {flag_first_message, flag_first_message}},
    {"HostsTransactionAfterHalfAnIndex", {}, {flag_first_message}, leave_half_an_index},
    {"PostingAfterAHostsTransaction", {}, {flag_first_message, post(11)}},
    {"CheckOfAnotherIndexAfterAPosting", {}, {post(11), find_another_index}},
    {"PushAfterAPosting", {}, {post(11), command("owner-mylist@example.jp", "# push")}},
};

static void PrintTo(const CrashScenario &scenario, std::ostream *out)
{
    *out << scenario.label;
}

class Crash : public ::testing::TestWithParam<CrashScenario>
{
};

TEST_P(Crash, LosesNothing)
{
    const CrashFindings findings = crash_everywhere(GetParam());
    EXPECT_EQ(Complaints{}, findings.complaints) << findings.first;
    EXPECT_GT(findings.images, 20);
    RecordProperty("disks", findings.images);
}

INSTANTIATE_TEST_SUITE_P(Operations, Crash, ::testing::ValuesIn(scenarios),
                         [](const auto &row) { return row.param.label; });
