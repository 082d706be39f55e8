/* One call of anything that writes fails, is interrupted or does half of its work.  The delivery
   ends with the stated text and exit; the files are the old ones or the new ones; what was answered
   with success has happened; the retry succeeds. */
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

#include "tests/fault/crash_run.h"
#include "tests/fault/operations.h"
#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"

static constexpr int faults[] = {ENOSPC, EIO,   EDQUOT,      EMFILE,
                                 ENOMEM, EINTR, SHORT_WRITE, SHORT_READ};

static std::string name_of(int fault)
{
    if (fault == SHORT_WRITE) return "short write";
    if (fault == SHORT_READ) return "short read";
    return strerror(fault);
}

/* -- what is stated -- */

/* By the file that a disturbed call is about: the texts that a delivery may end with, and the calls
   whose failure it need not notice. */
struct StatedRow {
    const char *file; /* short_name() begins so */
    const char *texts;
    const char *harmless;
};

static const StatedRow postings[] = {
    {"control/", "", "mkdir"}, /* there before; else the lock fails */
    {"box/", "", "mkdir"},
    {"CTL/lock", "502", "flock close"}, /* unlocking */
    {"CTL/init", "", "open read stat fsync close"},
    {"CTL/grant", "475 511", ""},
    {"CTL/member", "475 511", "fsync close"}, /* only read */
    {"CTL/msg/bnr", "475 517 526", ""},
    {"CTL/msg/mldeny", "530", "unlink"},
    {"CTL/msg", "470", ""},
    {"CTL/jnl/j.", "480 506 513 515 516 519 520 526 530 534", "fsync close"}, /* as read */
    {"CTL/jnl/5", "536", "unlink"},
    {"CTL/jnl", "470", ""},
    {"CTL/dgtstat.new", "472 473 474 475 532", "fsync close"}, /* the copy of it is synced */
    {"CTL/dgtstat.old", "472 473 474 475 532", ""},
    {"CTL/dgtstat", "472 473 474 475 532", "fsync close"}, /* as read */
    {"CTL/active", "475", "stat"},                         /* who reads it will see */
    {"CTL", "470 472 473 474", "mkdir close"},
    {"BOX/#msg/", "534", "unlink"}, /* the index has forgotten it */
    {"BOX/#msg", "534", "close"},
    {"BOX/#mix.new", "505 534", "close"}, /* synced, and copied */
    {"BOX/#mix", "505 534", "flock close futimens fstat stat"},
    {"BOX", "505 534", "close"},
};

static const StatedRow commands[] = {
    {"control/", "", "mkdir"},
    {"box/", "", "mkdir"},
    {"CTL/lock", "502", "flock close"},
    {"CTL/init", "", "open read stat fsync close"},
    {"CTL/grant", "475 511", ""},
    {"CTL/subscribe", "475 523", "fsync close"},
    {"CTL/member", "472 473 474 475 511 521 523", "fsync close"},
    {"CTL/active", "472 473 474 475 523", "fsync close"},
    {"CTL/digest", "472 473 474 475 523", "fsync close stat"},
    {"CTL/confirm", "472 473 474 475 523", "fsync close flock lseek"},
    {"CTL/dgtstat", "472 473 474 475 523", "fsync close"},
    {"CTL/msg/bnr", "475 517 526", ""},
    {"CTL/msg/cmdrpy", "523 527", "unlink"},
    {"/home/mail/", "523", "open"}, /* no welcome of its own */
    {"CTL/msg/", "523", "stat open"},
    {"CTL/msg", "470", ""},
    {"CTL/jnl/j.", "480 506 513 515 516 519 520 524", "unlink"},
    {"CTL/jnl", "470", ""},
    {"CTL", "472 473 474 523", "mkdir close"},
    {"BOX/#msg/", "523", "open fstat close fsync"}, /* a message that is gone is left out */
    {"BOX/#mix", "505 523", "flock close fstat"},
    {"BOX", "505 523", "close"},
};

template <size_t N>
static const StatedRow *find_row(const StatedRow (&rows)[N], const std::string &file)
{
    for (const StatedRow &row : rows)
        if (file.starts_with(row.file)) return &row;
    return nullptr;
}

static bool has_word(const std::string &words, const std::string &word)
{
    return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}

/* Texts whose failure always leaves a mark that the mail is to be tried again. */
static const char *const later_texts = "470 472 473 474 475 480 505 513 515 516 519 520 524";
/* Texts that depend on what failed below: a write, or something else. */
static const char *const either_texts = "511 517 521 523 526 527 530 532";

static void expect_stated(const StatedRow &row, const std::string &call, const Outcome &outcome)
{
    const std::string text = outcome.reply.substr(0, 3);
    if (outcome.exit == 0) {
        EXPECT_TRUE(has_word(row.harmless, call)) << "went unnoticed";
        return;
    }
    EXPECT_TRUE(has_word(row.texts, text)) << outcome.reply;
    EXPECT_TRUE(outcome.exit == 69 || outcome.exit == 75) << outcome.exit;
    if (has_word(either_texts, text)) return;
    EXPECT_EQ(has_word(later_texts, text) ? 75 : 69, outcome.exit);
}

/* -- the call that was disturbed -- */

struct DisturbedCall {
    std::string call, file;
};

static DisturbedCall parse_call(const std::string &text, const std::string &root)
{
    const size_t blank = text.find(' ');
    std::string path = text.substr(blank + 1);
    if (path.starts_with(root + "/")) path = path.substr(root.size() + 1);
    std::string file = short_name(path + "/");
    file.pop_back();
    return {text.substr(0, blank), file};
}

/* Repeated, continued or waited for until it is done. */
static bool makes_no_difference(int fault, const std::string &call)
{
    if (fault == SHORT_READ) return true;
    if (fault != EINTR) return false;
    for (const char *repeated : {"open", "read", "pread", "write", "pwrite", "flock"})
        if (call == repeated) return true;
    return false;
}

/* KEPT: settings that cannot be read are the defaults.
   Test: Posting.WithoutSettingsFileTheDefaultsApply */
static bool is_settings(const DisturbedCall &disturbed)
{
    return disturbed.file.starts_with("CTL/init");
}

/* -- the run -- */

class Disturbed : public ::testing::TestWithParam<Operation>
{
  protected:
    Disturbed() : world(GetParam().settings, GetParam().banners) {}

    /* Whether there was an nth call to disturb. */
    bool disturb(const Effect &effect, int fault, int nth);

    void expect_outcome(const Effect &effect, int fault, const DisturbedCall &disturbed,
                        const Outcome &outcome);
    void expect_carried_on(const Effect &effect, const DisturbedCall &disturbed);

    World world;
    StillMachine still;
};

void Disturbed::expect_outcome(const Effect &effect, int fault, const DisturbedCall &disturbed,
                               const Outcome &outcome)
{
    const Operation &operation = GetParam();
    const bool is_posting = operation.subject == Subject::posting;
    if (makes_no_difference(fault, disturbed.call)) {
        EXPECT_EQ(effect.outcome.exit, outcome.exit);
        EXPECT_EQ(effect.outcome.reply, outcome.reply);
    } else if (is_posting || operation.subject == Subject::command) {
        const StatedRow *row =
            is_posting ? find_row(postings, disturbed.file) : find_row(commands, disturbed.file);
        ASSERT_NE(nullptr, row) << "nothing is stated for " << disturbed.file;
        const bool waited = outcome.exit == 0 && contents_of(world) == effect.after;
        if (!waited && !operation.hides_failures) expect_stated(*row, disturbed.call, outcome);
    }
    if (is_settings(disturbed)) return;
    expect_old_or_new(recovered_contents_of(world), effect);
    if (outcome.exit != 0 || operation.hides_failures) return;
    EXPECT_EQ(effect.after, recovered_contents_of(world)) << "success was told for something else";
}

/* KEPT: an archive that cannot be opened gets its index made anew; numbers that nothing but an
   emptied archive's index knew begin again at 1.
   Test: MailboxOpen.RebuildsADamagedIndexAndFailsAllTheSame */
static void forgive_rebuild(const Operation &operation, Complaints *complaints)
{
    if (complaints->erase("the index was made anew") == 0) return;
    if (operation.settings != std::vector<std::string>{"journal=0"}) return;
    for (const char *lost : {"a number was given twice", "an acknowledged posting is lost",
                             "the next number is taken"})
        complaints->erase(lost);
}

void Disturbed::expect_carried_on(const Effect &effect, const DisturbedCall &disturbed)
{
    const Operation &operation = GetParam();
    Aftermath aftermath = carry_on(&world, operation);
    EXPECT_EQ(0, aftermath.retried.exit) << aftermath.retried.reply;
    EXPECT_EQ(0, aftermath.next.exit) << aftermath.next.reply;
    if (operation.subject != Subject::posting && !is_settings(disturbed)) {
        EXPECT_EQ(effect.after, aftermath.contents);
    }
    for (const std::string &meant : effect.complaints)
        aftermath.complaints.erase(meant);
    if (disturbed.call == "unlink") forgive_work_files(&aftermath.complaints);
    if (disturbed.file.starts_with("BOX")) forgive_rebuild(operation, &aftermath.complaints);
    if (is_settings(disturbed)) aftermath.complaints.erase("an archived message is damaged");
    EXPECT_EQ(Complaints{}, aftermath.complaints);
}

bool Disturbed::disturb(const Effect &effect, int fault, int nth)
{
    world.restore(effect.image);
    world.promises = effect.promises;
    Outcome outcome;
    std::string call;
    {
        FaultOs calls;
        calls.disturb_nth_call(nth, fault);
        outcome = GetParam().run(world);
        EXPECT_EQ(std::vector<std::string>{}, calls.open_files()) << "descriptors are left";
        calls.close_open_files();
        if (!calls.disturbed()) return false;
        call = calls.disturbed_call();
    }
    const DisturbedCall disturbed = parse_call(call, world.list.root());
    SCOPED_TRACE(disturbed.call + " " + disturbed.file + ", call " + std::to_string(nth) + ": " +
                 name_of(fault) + "; ended with " + std::to_string(outcome.exit) + " " +
                 outcome.reply);
    expect_outcome(effect, fault, disturbed, outcome);
    expect_carried_on(effect, disturbed);
    return true;
}

TEST_P(Disturbed, EndsAsStatedAndIsDoneByTheRetry)
{
    const Effect effect = undisturbed(&world, GetParam());
    ASSERT_EQ(0, effect.outcome.exit) << effect.outcome.reply;
    for (const int fault : faults)
        for (int nth = 0; disturb(effect, fault, nth); ++nth)
            ;
    (void)take_log();
}

/* The disk that stays full is another matter than one failed write: what undoes a step must not
   need room. */
TEST_P(Disturbed, ByADiskThatStaysFullLosesNothing)
{
    const Operation &operation = GetParam();
    const Effect effect = undisturbed(&world, operation);
    bool was_full = true;
    for (int writes = 0; was_full; ++writes) {
        SCOPED_TRACE("full after " + std::to_string(writes) + " writes");
        world.restore(effect.image);
        world.promises = effect.promises;
        was_full = false;
        Outcome outcome;
        {
            FaultOs calls;
            calls.before = [&, done = 0](const std::string &call, const std::string &) mutable {
                if (call != "write" && call != "pwrite") return 0;
                was_full = was_full || done >= writes;
                return done++ >= writes ? ENOSPC : 0;
            };
            outcome = operation.run(world);
        }
        const bool refusable = operation.subject == Subject::posting; /* 534: the archive's fault */
        EXPECT_TRUE(outcome.exit == 0 || outcome.exit == 75 || (refusable && outcome.exit == 69));
        const Contents contents = recovered_contents_of(world);
        expect_old_or_new(contents, effect);
        EXPECT_TRUE(outcome.exit != 0 || operation.hides_failures || contents == effect.after);
        expect_carried_on(effect, {"write", "BOX"});
    }
    (void)take_log();
}

INSTANTIATE_TEST_SUITE_P(Operations, Disturbed, ::testing::ValuesIn(operations),
                         [](const auto &row) { return row.param.label; });
