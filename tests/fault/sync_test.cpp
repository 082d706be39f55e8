/* Every sync of a posting and what it buys: without it, the disk that a crash leaves breaks a
   promise.  A sync that nobody misses would only cost time. */
#include <gtest/gtest.h>

#include "tests/fault/crash_run.h"

struct SyncRow {
    const char *name; /* short_name() */
    int nth;
    const char *buys; /* the complaint that comes up without it; null: none does */
};

static void PrintTo(const SyncRow &row, std::ostream *out)
{
    *out << row.name;
}

static const CrashScenario at_the_keep_count = {
    "",
    {"journal=3"},
    {[](World &world) { return world.post(11); }, [](World &world) { return world.post(12); }},
};

static const SyncRow rows[] = {
    {"CTL/jnl/j.TID", 0, "an archived message is damaged"},
    /* The draft, before it is renamed to .new. */
    {"CTL/dgtstat.old", 0, "the digest forgets a posting"},
    /* The copy of what was there.  Its name counts, which the directory's sync covers, and nobody
       reads its bytes: the copy of a control file syncs whatever it writes. */
    {"CTL/dgtstat.old", 1, nullptr},
    {"CTL/", 0, "the digest forgets a posting"},
    {"CTL/dgtstat", 1, "the digest forgets a posting"}, /* the first one is of the file as read */
    {"BOX/#msg/", 0, "the index names a message that is not there"},
    {"BOX/#mix.old", 0, "the index was made anew"}, /* the work copy, before its renaming */
    /* The backup, read only where overwriting the index failed, by the process that wrote it. */
    {"BOX/#mix.old", 1, nullptr},
    {"BOX/", 0, "an acknowledged posting is lost"},
    {"BOX/#mix", 0, "an acknowledged posting is lost"},
};

TEST(SyncsOfAPosting, AreThese)
{
    std::string found, wanted;
    for (const SyncCall &sync : crash_everywhere(at_the_keep_count).syncs)
        if (sync.changed) found += short_name(sync.name) + "\n";
    for (const SyncRow &row : rows)
        wanted += std::string(row.name) + "\n";
    EXPECT_EQ(wanted, found);
}

class LeftOut : public ::testing::TestWithParam<SyncRow>
{
};

TEST_P(LeftOut, IsMissed)
{
    const SyncRow &row = GetParam();
    const CrashFindings findings =
        crash_everywhere(at_the_keep_count, {row.name, row.nth, row.buys ? row.buys : ""});
    if (row.buys == nullptr)
        EXPECT_EQ(Complaints{}, findings.complaints) << findings.first;
    else
        EXPECT_TRUE(findings.complaints.contains(row.buys))
            << ::testing::PrintToString(findings.complaints) << "\n"
            << findings.first;
}

INSTANTIATE_TEST_SUITE_P(Sync, LeftOut, ::testing::ValuesIn(rows), [](const auto &row) {
    std::string name = row.param.name;
    for (char &c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name + (row.param.nth > 0 ? "_again" : "");
});
